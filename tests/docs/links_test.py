#!/usr/bin/env python3
"""Checks that what the documents link to is there: files, and chapters of documents."""

import re
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]

LINK = re.compile(r"\[[^\]]*\]\(([^)\s]+)\)")


def chapters(text):
    """The names by which links reach the headings, as the usual viewers make them."""
    names = set()
    for heading in re.findall(r"^#+ (.*)$", without_code(text), re.MULTILINE):
        name = re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
        copies = [name] + [f"{name}-{number}" for number in range(1, 20)]
        names.add(next(copy for copy in copies if copy not in names))
    return names


def without_code(text):
    return re.sub(r"^```.*?^```$", "", text, flags=re.MULTILINE | re.DOTALL)


def complaints(document, text):
    for target in LINK.findall(without_code(text)):
        if "://" in target:
            continue
        name, _, chapter = target.partition("#")
        file = (document.parent / name).resolve() if name else document
        if not file.exists():
            yield f"{document.name}: there is no {target}"
        elif chapter:
            linked = text if file == document else file.read_text(encoding="utf-8")
            if chapter not in chapters(linked):
                yield f"{document.name}: there is no chapter {target}"


def main():
    # What this script is trusted to see, it sees.
    broken = "# One `chapter`\n[a](#one-chapter) [b](no-such-file.md) [c](#no-such-chapter)\n"
    if len(list(complaints(PROJECT / "README.md", broken))) != 2:
        print("mistakes in a document are not found")
        return 1
    documents = [*PROJECT.glob("*.md"), *(PROJECT / "docs").rglob("*.md")]
    found = [complaint for document in documents
             for complaint in complaints(document, document.read_text(encoding="utf-8"))]
    print("\n".join(found) or f"the links of {len(documents)} documents lead somewhere")
    return 1 if found or not documents else 0


if __name__ == "__main__":
    sys.exit(main())
