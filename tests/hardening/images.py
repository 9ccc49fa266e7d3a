#!/usr/bin/env python3
"""Checks the DLL and the program as the linker made them: images.py flags|exports|imports

flags    the mitigations against exploits are switched on
exports  the DLL exports what src/exports.txt lists; with --write the list is made anew
imports  both need nothing but Windows and the compiler's run-time library

Each check is also tried on an image that was made for it: unhardened.exe is linked to fail, and
loadslater.dll exports one function.
"""

import difflib
import os
import re
import subprocess
import sys
from pathlib import Path

TOOLS = "x86_64-w64-mingw32-"
PROJECT = Path(__file__).resolve().parents[2]
BIN = Path(os.environ["CSU_BUILD"]) / "bin"
LIBRARY, PROGRAM = "certstoreupdater.dll", "certstoreupdate.exe"
UNHARDENED, MODULE = "unhardened.exe", "loadslater.dll"

RELOCATIONS_STRIPPED = 0x0001
DLL_CHARACTERISTICS = {"HIGH_ENTROPY_VA": 0x0020, "DYNAMIC_BASE": 0x0040, "NX_COMPAT": 0x0100}

WINDOWS = {"advapi32.dll", "crypt32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll",
           "shell32.dll", "user32.dll", "wintrust.dll"}
RUN_TIME = {"libgcc_s_seh-1.dll", "libstdc++-6.dll", "libwinpthread-1.dll"}
# A build that checks the stack needs one more. It is not for shipping.
STACK_PROTECTOR = {"libssp-0.dll"}

EXPORTS = PROJECT / "src" / "exports.txt"
EXPORTS_HEAD = """\
# What the DLL exports, one name a line, sorted. Mangled names differ between compilers: these are
# GCC's, demangled, so that the two entry points of a constructor are one line. Made by
#   CSU_BUILD=build/windows tests/hardening/images.py exports --write
"""


def output_of(tool, *arguments, text=None):
    return subprocess.run([TOOLS + tool, *arguments], input=text, check=True,
                          capture_output=True, text=True).stdout


def headers(image):
    return output_of("objdump", "--private-headers", str(BIN / image))


def number(pattern, text):
    return int(re.search(pattern, text, re.MULTILINE).group(1), 16)


def flaws(image):
    """What a mitigation lacks in an image, one line each."""
    text = headers(image)
    set_flags = number(r"^DllCharacteristics\s+([0-9a-f]+)$", text)
    for name, flag in DLL_CHARACTERISTICS.items():
        if not set_flags & flag:
            yield f"{name} is not set"
    # Without relocations the addresses stay as they are, whatever the flags say.
    if number(r"^Characteristics 0x([0-9a-f]+)$", text) & RELOCATIONS_STRIPPED:
        yield "the relocations are stripped"
    if not number(r"^Entry 5 [0-9a-f]+ ([0-9a-f]+) Base Relocation Directory", text):
        yield "there are no relocations"
    sections = output_of("objdump", "--section-headers", str(BIN / image))
    for name, flags in re.findall(r"^ +\d+ (\S+) .*\n +(.*)$", sections, re.MULTILINE):
        if "CODE" in flags.split(", ") and "READONLY" not in flags.split(", "):
            yield f"the section {name} can be both written and executed"


def check_flags():
    for image in (LIBRARY, PROGRAM):
        for flaw in flaws(image):
            yield f"{image}: {flaw}"
    found = list(flaws(UNHARDENED))
    for name in [*DLL_CHARACTERISTICS, "stripped", "no relocations", "written and executed"]:
        if not any(name in flaw for flaw in found):
            yield f"{UNHARDENED}: not found to be without: {name}"


def exported_names(image):
    table = headers(image).partition("[Ordinal/Name Pointer] Table")[2].partition("\n\n")[0]
    mangled = re.findall(r"^\s*\[ *\d+\] (?:.* )?(\S+)$", table, re.MULTILINE)
    return sorted(set(output_of("c++filt", text="\n".join(mangled)).splitlines()))


def check_exports():
    listed = [line for line in EXPORTS.read_text(encoding="utf-8").splitlines()
              if not line.startswith("#")]
    exported = exported_names(LIBRARY)
    if not exported:
        yield f"{LIBRARY} exports nothing"
    if exported_names(MODULE) != ["C_GetFunctionList"]:
        yield f"{MODULE}: exports are not read as they are"
    if listed == exported:
        return
    yield from difflib.unified_diff(listed, exported, str(EXPORTS.relative_to(PROJECT)), LIBRARY,
                                    n=0, lineterm="")
    yield ("What goes away breaks callers; what is added is promised to them. If this is meant:\n"
           f"    CSU_BUILD={BIN.parent} {Path(__file__).relative_to(PROJECT)} exports --write")


def write_exports():
    EXPORTS.write_text(EXPORTS_HEAD + "".join(name + "\n" for name in exported_names(LIBRARY)),
                       encoding="utf-8")


def surprising_imports(image, known):
    text = headers(image)
    imports = {name.lower() for name in re.findall(r"DLL Name: (\S+)", text)}
    if not imports:
        yield "imports nothing"
    for name in sorted(imports - known):
        yield f"imports {name}"
    # A library that is loaded late is looked for by whatever rules the process has by then.
    if number(r"^Entry d [0-9a-f]+ ([0-9a-f]+) Delay Import Directory", text):
        yield "has delayed imports"


def check_imports():
    known = WINDOWS | RUN_TIME
    if os.environ["CSU_STACK_PROTECTOR"] == "1":
        known |= STACK_PROTECTOR
    for image, needed in ((LIBRARY, set()), (PROGRAM, {LIBRARY})):
        for surprise in surprising_imports(image, known | needed):
            yield f"{image}: {surprise}"
    if "imports plantedlibrary.dll" not in surprising_imports(UNHARDENED, known):
        yield f"{UNHARDENED}: not found to import plantedlibrary.dll"


def main(arguments):
    if arguments == ["exports", "--write"]:
        write_exports()
        return 0
    checks = {"flags": check_flags, "exports": check_exports, "imports": check_imports}
    complaints = list(checks[arguments[0]]())
    print("\n".join(complaints) or "as it should be")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
