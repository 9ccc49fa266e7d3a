#!/usr/bin/env python3
"""Shows headers and documents as the reference needs them, for Doxygen: referencefilter.py FILE

Protected members are for the library's own derived classes, so they count as private. Copying and
moving need no words of their own. Links to what is not in the reference become text, and links to
a chapter lead to its document.
"""

import re
import sys
from pathlib import Path

SPECIAL = re.compile(r"""
    ^\s*(?:friend\s.*\boperator==.*=\ default;            # memberwise
    |(\w+)\((?:const\ )?\1&&?(?:\ \w+)?\)[^{;]*;          # copy or move constructor
    |(\w+)&\ operator=\((?:const\ )?\2&&?(?:\ \w+)?\)[^{;]*;
    )\s*$""", re.VERBOSE)


LINK = re.compile(r"(!?)\[([^\]]*)\]\(([^)\s]+)\)")
DOCUMENTS = {"architecture.md", "errors.md", "installing.md", "reference.md", "store-format.md"}


def shown_code(line):
    if SPECIAL.match(line):
        return ""
    return line.replace("protected:", "private:")


def shown_link(match):
    image, text, target = match.groups()
    document = target.partition("#")[0]
    if document in DOCUMENTS:
        return f"[{text}]({document})"
    return match.group() if image or "://" in target else text


def main(file):
    text = Path(file).read_text(encoding="utf-8")
    # Lines stay where they are: complaints name them.
    if file.endswith(".md"):
        sys.stdout.write(LINK.sub(shown_link, text))
    else:
        sys.stdout.write("\n".join(map(shown_code, text.split("\n"))))


if __name__ == "__main__":
    main(sys.argv[1])
