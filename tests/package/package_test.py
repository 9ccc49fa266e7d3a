#!/usr/bin/env python3
"""Makes the packages of a release build and uses them: package_test.py BUILD OTHER-BUILD FOLDER

The zip must hold what contents.txt lists, with every DLL that something in it needs; somebody
else's project must build against it and run with nothing but its bin folder. The installer must
install the same files, also over an older installation, and remove them. The other build is of the
same sources in another folder: its zip must be the same bytes.
"""

import filecmp
import os
import re
import shutil
import subprocess
import sys
import zipfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
PROJECT = HERE.parents[1]
sys.path.insert(0, str(PROJECT / "tests" / "hardening"))
from images import WINDOWS  # noqa: E402

NAME = "certstoreupdater-{}-windows-x86_64"
COMPILER = "x86_64-w64-mingw32-g++-posix"
OBJDUMP = "x86_64-w64-mingw32-objdump"
UNINSTALL_KEY = r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\certstoreupdater"
# A minute after the first of January 1980, the earliest that a zip can say, in UTC.
SOME_DATE = "315532860"


def run(*command, check=True, **options):
    return subprocess.run([str(part) for part in command], check=check, text=True, **options)


def wine(*command, check=True, capture_output=False, **environment):
    """Runs a program that finds no DLLs but those beside it and the system's."""
    return run(os.environ["CSU_WINE"], *command, check=check, capture_output=capture_output,
               env={**os.environ, "CSU_OWN_DLLS_ONLY": "1", **environment})


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


def expect(holds, what):
    if not holds:
        sys.exit(what)


def project_version(build):
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    return re.search(r"^CMAKE_PROJECT_VERSION:\w+=(.*)$", cache, re.MULTILINE).group(1)


def make_packages(build, folder, *options):
    run("cpack", "--config", build / "CPackConfig.cmake", "-B", folder, *options, cwd=build,
        env={**os.environ, "SOURCE_DATE_EPOCH": SOME_DATE})


def files_below(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file())


def check_contents(files):
    listed = [line for line in (HERE / "contents.txt").read_text(encoding="utf-8").splitlines()
              if not line.startswith("#")]
    complaints = [f"is packaged but not in contents.txt: {name}" for name in files
                  if name not in listed]
    complaints += [f"is missing: {name}" for name in listed if name not in files]
    expect(not complaints, "\n".join(complaints))


def imports_of(image):
    headers = run(OBJDUMP, "--private-headers", image, capture_output=True).stdout
    imports = {name.lower() for name in re.findall(r"DLL Name: (\S+)", headers)}
    expect(imports, f"{image.name} imports nothing")
    return imports


def check_imports(folder, windows=WINDOWS):
    """What the programs and DLLs of a folder need is Windows' or lies in the folder or below it."""
    there = {path.name.lower() for path in folder.rglob("*")}
    for image in folder.iterdir():
        if image.suffix in (".dll", ".exe"):
            lacking = imports_of(image) - windows - there
            expect(not lacking, f"{image.name} needs {', '.join(sorted(lacking))}")


def check_symbols(folder):
    for image in folder.iterdir():
        sections = run(OBJDUMP, "--section-headers", image, capture_output=True).stdout
        expect(".debug_info" not in sections, f"{image.name} has debug information")


def check_links(folder):
    """What the documents link to is packaged."""
    for document in folder.rglob("*.md"):
        text = document.read_text(encoding="utf-8")
        for target in re.findall(r"\]\(([^)#]+)(?:#[^)]*)?\)", text):
            if "://" not in target:
                expect((document.parent / target).exists(),
                       f"{document.relative_to(folder)} points to {target}, which is not packaged")


def use_in_project(installed, version, folder):
    # No header but the installed ones, the compiler's and Boost's.
    boost = folder / "boost-headers"
    boost.mkdir(parents=True)
    (boost / "boost").symlink_to("/usr/include/boost")
    project = folder / "consumer"
    run("cmake", "-G", "Ninja", "-S", HERE / "consumer", "-B", project,
        "-D", "CMAKE_SYSTEM_NAME=Windows", "-D", f"CMAKE_CXX_COMPILER={COMPILER}",
        "-D", "CMAKE_BUILD_TYPE=Release", "-D", f"CMAKE_PREFIX_PATH={installed}",
        "-D", f"Boost_INCLUDE_DIR={boost}")
    run("cmake", "--build", project)
    shutil.copy2(project / "consumer.exe", installed / "bin")
    (folder / "tokens").mkdir()
    configuration = folder / "softhsm2.conf"
    configuration.write_text(f"directories.tokendir = Z:{folder}/tokens\n", encoding="utf-8")
    wine(installed / "bin" / "consumer.exe", version,
         windows_path(os.environ["CSU_SOFTHSM_DLL"]),
         SOFTHSM2_CONF=windows_path(configuration))
    (installed / "bin" / "consumer.exe").unlink()


def said_version(program):
    return wine(program, "--version", capture_output=True).stdout.strip()


def registered_version():
    answer = subprocess.run([os.environ["CSU_WINE"], "reg", "query", UNINSTALL_KEY, "/v",
                             "DisplayVersion"], capture_output=True, text=True, check=False)
    found = re.search(r"REG_SZ\s+(\S+)", answer.stdout)
    return found.group(1) if found else None


def forget_installation():
    """Removes what a run that was broken off left in the registry."""
    subprocess.run([os.environ["CSU_WINE"], "reg", "delete", UNINSTALL_KEY, "/f"],
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)


def check_installer(installer, unpacked, version, target):
    forget_installation()
    for time in ("the first time", "over what is there"):
        # NSIS wants this argument last and without quotes.
        wine(installer, "/S", "/D=" + windows_path(target))
        expect([name for name in files_below(target) if name != "Uninstall.exe"]
               == files_below(unpacked), f"{time} the installer installs other files than the zip")
        for name in files_below(unpacked):
            expect(filecmp.cmp(target / name, unpacked / name, shallow=False),
                   f"the installer's {name} is not that of the zip")
        expect(registered_version() == version, "what is installed is not registered")
    said = said_version(target / "bin" / "certstoreupdate.exe")
    expect(said == f"certstoreupdate {version}", f"what is installed says: {said}")

    (target / "bin" / "mine.txt").write_text("not the installer's", encoding="utf-8")
    # With this argument it does not remove itself, and so ends only when all is done.
    wine(target / "Uninstall.exe", "/S", "_?=" + windows_path(target))
    left = files_below(target)
    expect(left == ["Uninstall.exe", "bin/mine.txt"], f"after removing there is: {left}")
    expect(registered_version() is None, "what was removed is still registered")


def main(build, other_build, work):
    shutil.rmtree(work, ignore_errors=True)
    version = project_version(build)
    make_packages(build, work / "packages")
    name = NAME.format(version)
    with zipfile.ZipFile(work / "packages" / f"{name}.zip") as archive:
        archive.extractall(work / "unpacked")
    unpacked = work / "unpacked" / name
    make_packages(other_build, work / "again", "-G", "ZIP")
    expect(filecmp.cmp(work / "packages" / f"{name}.zip", work / "again" / f"{name}.zip",
                       shallow=False), "the zip of the other build is not the same bytes")
    check_contents(files_below(unpacked))
    check_imports(unpacked / "bin")
    check_symbols(unpacked / "bin")
    check_links(unpacked)
    use_in_project(unpacked, version, work)
    check_installer(work / "packages" / f"{name}.exe", unpacked, version, work / "installed")
    print("as it should be")


if __name__ == "__main__":
    main(*(Path(argument).resolve() for argument in sys.argv[1:]))
