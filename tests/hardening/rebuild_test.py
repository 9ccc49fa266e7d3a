#!/usr/bin/env python3
"""Builds what is packaged twice, in different folders, and compares: rebuild_test.py FOLDER

The DLL and the program must be the same bytes, so that anybody can check that what is shipped was
made from these sources. A FOLDER from last time is used again: only what changed is built.
"""

import filecmp
import shutil
import subprocess
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
SOURCES = ["CMakeLists.txt", "CMakePresets.json", "cmake", "util", "asn1", "pkcs11", "include",
           "src", "app", "fuzz", "docs", "CHANGELOG.md", "LICENSE"]
PRESET = "windows-release"


def copy_sources(origin, folder):
    """Replaces all but the folder build, with the times of the files as they are."""
    for name in SOURCES:
        copy = folder / name
        if copy.is_dir():
            shutil.rmtree(copy)
        if (origin / name).is_dir():
            shutil.copytree(origin / name, copy)
        else:
            shutil.copy2(origin / name, copy)


def build(folder):
    dependencies = folder / "build" / "deps"
    dependencies.parent.mkdir(exist_ok=True)
    if not dependencies.is_symlink():
        dependencies.symlink_to(PROJECT / "build" / "deps")
    for command in (["cmake", "--preset", PRESET, "-D", "BUILD_TESTING=OFF"],
                    ["cmake", "--build", "--preset", PRESET, "--target", "updater"]):
        subprocess.run(command, cwd=folder, check=True)
    return folder / "build" / PRESET / "bin"


def main(work):
    # The lengths of the folders' names differ too.
    folders = [work / "one", work / "the other" / "folder"]
    origin = PROJECT
    for folder in folders:
        folder.mkdir(parents=True, exist_ok=True)
        # The second from the first: the project may be edited meanwhile.
        copy_sources(origin, folder)
        origin = folder
    one, other = map(build, folders)
    different = [name for name in ("certstoreupdater.dll", "certstoreupdate.exe")
                 if not filecmp.cmp(one / name, other / name, shallow=False)]
    for name in different:
        print(f"{one / name} and {other / name} differ")
    return 1 if different else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]).resolve()))
