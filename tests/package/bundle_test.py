#!/usr/bin/env python3
"""Makes the bundle of tests and runs some of it as a stranger would: bundle_test.py BUILD FOLDER

The bundle must have every DLL that something in it needs, and its report must tell what passed,
what failed and what broke off.
"""

import shutil
import sys
import zipfile
from pathlib import Path

from package_test import PROJECT, WINDOWS, check_imports, expect, wine

sys.path.insert(0, str(PROJECT / "cmake" / "dev"))
import testbundle  # noqa: E402

# The tests need more of Windows than the product does.
MORE_OF_WINDOWS = WINDOWS | {"version.dll", "winhttp.dll", "ws2_32.dll"}


def report_of(folder, *programs, code):
    ended = wine(folder / "runtests.exe", *programs, check=False)
    expect(ended.returncode == code, f"runtests ended with {ended.returncode}")
    return (folder / "report.txt").read_text(encoding="utf-8")


def main(build, work):
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    testbundle.main(build, work / "tests.zip")
    with zipfile.ZipFile(work / "tests.zip") as archive:
        archive.extractall(work)
    folder = work / "tests"
    check_imports(folder / "bin", MORE_OF_WINDOWS)

    report = report_of(folder, "cspbinding_test", "installedcsp_test", code=0)
    expect("(Wine)" in report, "the report does not name the system")
    expect(" 0 failed, 0 skipped, 0 programs broke off\n" in report and
           "in all: 0 passed" not in report, f"the report is:\n{report}")

    # One that fails, because SoftHSM is gone, one that ends without results, one that is missing.
    (folder / "softhsm2.dll").unlink()
    shutil.copy2(folder / "bin" / "storetool.exe", folder / "bin" / "tool_test.exe")
    report = report_of(folder, "endtoend_test", "tool_test", "missing_test", code=1)
    expect("\nFAILED " in report and ", 2 programs broke off\n" in report and
           "cannot be started: error 2" in report, f"the report is:\n{report}")
    print("as it should be")


if __name__ == "__main__":
    main(*(Path(argument).resolve() for argument in sys.argv[1:]))
