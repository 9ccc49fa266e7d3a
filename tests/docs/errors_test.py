#!/usr/bin/env python3
"""Checks docs/errors.md against the sources: all classes, all parameters, all fixed texts in them.

A class is a heading of its own; below it a table has its parameters as quoted words in the second
column, and the fixed values of "CAUSE" and "Method" somewhere.
"""

import re
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
DOCUMENT = PROJECT / "docs" / "errors.md"
LAYERS = ["util", "asn1", "pkcs11", "include", "src"]

# Functions that throw for their callers: what they throw, and the key of their first text.
THROWN_FOR_OTHERS = {"decodeError": ("QuorError_Asn1_Decode", "CAUSE"),
                     "throwFailureOf": ("CertStoreUpdaterError_InvalidConfiguration", "Method")}


def sources():
    for layer in LAYERS:
        for pattern in ("*.h", "*.cpp"):
            for file in sorted((PROJECT / layer).rglob(pattern)):
                yield file.read_text(encoding="utf-8")


def in_parentheses(text, start):
    """What stands between the parenthesis at `start` and the one that closes it."""
    depth = 0
    for end in range(start, len(text)):
        depth += {"(": 1, ")": -1}.get(text[end], 0)
        if depth == 0:
            return text[start + 1:end]
    return text[start + 1:]


class Sources:
    """What the throw sites say."""

    def __init__(self, texts):
        self.classes = set()
        self.keys = {}
        self.values = {}
        for text in texts:
            self.classes |= set(re.findall(r"^KORV_EVENT_CLASS\((\w+),", text, re.MULTILINE))
            for match in re.finditer(r"makeEvent<(\w+)>\(", text):
                self.add(match.group(1), in_parentheses(text, match.end() - 1))
            for function, (event, key) in THROWN_FOR_OTHERS.items():
                for value in re.findall(function + r'\(L"([^"]*)"', text):
                    self.values.setdefault(event, set()).add((key, value))

    def add(self, event, arguments):
        keys = set(re.findall(r'\{L"(\w+)",', arguments))
        if "positionParam" in arguments:
            keys.add("POSITION")
        self.keys.setdefault(event, set()).update(keys)
        fixed = set(re.findall(r'\{L"(\w+)", L"([^"]*)"\}', arguments))
        self.values.setdefault(event, set()).update(fixed)


def sections(document):
    parts = re.split(r"^### `(\w+)`$", document, flags=re.MULTILINE)
    return dict(zip(parts[1::2], parts[2::2]))


def parameters_in(section):
    rows = [line.split("|") for line in section.splitlines() if line.startswith("| ")]
    # Parameters are in capitals, but for two.
    return {word for row in rows for word in re.findall(r'"(\w+)"', row[2])
            if word in ("Method", "error") or word == word.upper()}


def complaints(document, code):
    documented = sections(document)
    for name in sorted(code.classes - documented.keys()):
        yield f"not documented: {name}"
    for name in sorted(documented.keys() - code.classes):
        yield f"there is no class {name}"
    for name, section in documented.items():
        keys = code.keys.get(name, set())
        if parameters_in(section) - {value for _, value in code.values.get(name, ())} != keys:
            yield f"{name} has the parameters {sorted(keys)}, not {sorted(parameters_in(section))}"
        for key, value in sorted(code.values.get(name, ())):
            if f'"{value}"' not in section:
                yield f'{name} does not tell of "{key}" "{value}"'


def main():
    # What this script is trusted to see, it sees.
    code = Sources(['KORV_EVENT_CLASS(A, B);\nKORV_EVENT_CLASS(C, B);\n'
                    'throw makeEvent<A>(file, {{L"KEY", L"Fixed"}});'])
    broken = '### `A`\n\n| when | parameters | what to do |\n| x | "OTHER" | y |\n### `D`\n'
    if len(list(complaints(broken, code))) != 4:
        print("mistakes in a document are not found:", *complaints(broken, code), sep="\n")
        return 1
    code = Sources(sources())
    found = list(complaints(DOCUMENT.read_text(encoding="utf-8"), code))
    print("\n".join(found) or f"{len(code.classes)} classes are documented")
    return 1 if found or not code.keys else 0


if __name__ == "__main__":
    sys.exit(main())
