#!/usr/bin/env python3
"""Checks that every promise of docs/threat-model.md has tests, and that they exist.

A test is named as `Suite.Test`, as `Class.test_method` of a script, or as `name_test` of ctest.
"""

import re
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
DOCUMENT = PROJECT / "docs" / "threat-model.md"

NAME = re.compile(r"`([A-Z]\w+\.\w+|[a-z]\w+_test)`")


def sources(pattern):
    for file in sorted((PROJECT / "tests").rglob(pattern)):
        yield file.read_text(encoding="utf-8")


def declared_tests():
    names = set()
    for text in sources("*.cpp"):
        names.update(f"{suite}.{test}" for suite, test in
                     re.findall(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", text, re.MULTILINE))
    for text in sources("*.py"):
        for part in re.split(r"^class ", text, flags=re.MULTILINE)[1:]:
            name = re.match(r"\w+", part).group()
            names.update(f"{name}.{test}" for test in re.findall(r"def (test_\w+)\(", part))
    for text in sources("CMakeLists.txt"):
        scripts = set(re.findall(r"certstoreupdater_add_script_test\((\S+)", text))
        # The names of a foreach are written out.
        for variable, values in re.findall(r"foreach\((\w+) ([^)]*)\)", text):
            scripts |= {script.replace("${%s}" % variable, value)
                        for script in scripts for value in values.split()}
        names |= scripts
    return names


def complaints(document, known):
    promises = 0
    for line in document.splitlines():
        named = NAME.findall(line)
        if line.startswith("| ") and not line.startswith(("| promise |", "|---")):
            promises += 1
            if not named:
                yield f"no test is named for: {line.split('|')[1].strip()}"
        for name in named:
            if name not in known:
                yield f"there is no test {name}"
    if not promises:
        yield "there are no promises"


def main():
    known = declared_tests()
    # What this script is trusted to see, it sees.
    broken = "| a promise | |\n| another one | `No.SuchTest`, `no_such_test` |"
    if len(list(complaints(broken, known))) != 3:
        print("complaints are not made as they should be")
        return 1
    found = list(complaints(DOCUMENT.read_text(encoding="utf-8"), known))
    print("\n".join(found) or "every promise has its tests")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
