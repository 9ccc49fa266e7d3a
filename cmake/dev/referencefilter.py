#!/usr/bin/env python3
"""Prepares a header or document for Doxygen: referencefilter.py FILE

Protected members become private, because only the library's own classes derive. Copy and move
operations are left out, because they need no comment. Links to something outside the reference become
text, and links to a chapter become links to its document.
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
    # Line numbers stay the same: Doxygen's warnings name them.
    if file.endswith(".md"):
        sys.stdout.write(LINK.sub(shown_link, text))
    else:
        sys.stdout.write("\n".join(map(shown_code, text.split("\n"))))


if __name__ == "__main__":
    main(sys.argv[1])
