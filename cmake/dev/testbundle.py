#!/usr/bin/env python3
"""Puts the test programs of a Windows build into one zip: testbundle.py BUILD ZIP

It runs on a Windows machine without any tools: unpack it, run runtests.exe, and send report.txt back.
Only test programs are included; tests that are scripts check the build, not Windows.
"""

import concurrent.futures
import json
import os
import shutil
import subprocess
import sys
import zipfile
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
COMPILER = "x86_64-w64-mingw32-g++-posix"
STRIP = "x86_64-w64-mingw32-strip"
RUN_TIME = ["libgcc_s_seh-1.dll", "libssp-0.dll", "libstdc++-6.dll", "libwinpthread-1.dll"]
# Copies of other programs, and programs that only the build's own tools use.
LEFT_OUT = ("heapchecked-", "heapdefects", "unhardened", "barecalls", "updatebench", "showstore",
            "signee")

README = """\
Tests of the certificate store updater on Windows

Use a 64-bit Windows 10 or 11 that you can afford to break, preferably a virtual machine: the tests
register fake cryptographic providers, trust a test authority during a test, create certificate stores
of their own, and add entries of a made-up provider to the personal store. They remove all of that,
unless they are interrupted.

1. Unpack everything into a writable folder with a short path.
2. Open a command prompt as administrator, go to that folder, and run:  runtests.exe
3. Send back report.txt and, if a program broke off, the folder results.

It takes a few minutes. To run only some programs, name them: runtests.exe util_test asn1_test. Tests
that cannot run on your Windows are skipped and say why.
"""


def test_programs(build):
    listing = json.loads(subprocess.run(["ctest", "--show-only=json-v1"], cwd=build, check=True,
                                        capture_output=True, text=True).stdout)
    for test in listing["tests"]:
        properties = {entry["name"]: entry["value"] for entry in test["properties"]}
        if "script" not in properties.get("LABELS", []):
            yield test["name"]


def run_time_dlls():
    for name in RUN_TIME:
        path = subprocess.run([COMPILER, f"-print-file-name={name}"], check=True,
                              capture_output=True, text=True).stdout.strip()
        yield Path(path).resolve()


def add_stripped(image, copy):
    copy.parent.mkdir(parents=True, exist_ok=True)
    subprocess.run([STRIP, "--preserve-dates", "-o", copy, image], check=True)


def collect(build, folder):
    binaries = build / "bin"
    images = {path: folder / "bin" / path.relative_to(binaries)
              for pattern in ("*.exe", "*.dll", "planted/*.dll") for path in binaries.glob(pattern)
              if not path.name.startswith(LEFT_OUT)}
    images |= {path: folder / "bin" / path.name for path in run_time_dlls()}
    images[PROJECT / "build" / "deps" / "softhsm" / "softhsm2.dll"] = folder / "softhsm2.dll"
    images[binaries / "runtests.exe"] = folder / "runtests.exe"
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(lambda pair: add_stripped(*pair), images.items()))
    # Stripping would break their signatures. They get a new time, because Wine takes a file's time
    # for that of its signature, and the zip rounds times down.
    shutil.copytree(binaries / "signedfiles", folder / "bin" / "signedfiles",
                    copy_function=shutil.copy)
    shutil.copy2(PROJECT / "docs" / "certstoreupdate.schema.json", folder / "bin")
    programs = sorted(test_programs(build))
    missing = [name for name in programs if not (folder / "bin" / f"{name}.exe").exists()]
    if missing:
        sys.exit(f"not built: {', '.join(missing)}")
    (folder / "tests.txt").write_text("".join(name + "\n" for name in programs), encoding="utf-8")
    (folder / "README.txt").write_text(README, encoding="utf-8", newline="\r\n")


def pack(folder, target):
    with zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED) as archive:
        for path in sorted(folder.rglob("*")):
            if path.is_file():
                archive.write(path, f"{target.stem}/{path.relative_to(folder)}")


def main(build, target):
    folder = target.parent / "testbundle"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    collect(build, folder)
    pack(folder, target)
    shutil.rmtree(folder)


if __name__ == "__main__":
    main(*(Path(argument).resolve() for argument in sys.argv[1:]))
