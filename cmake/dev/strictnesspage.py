#!/usr/bin/env python3
"""Compares docs/strictness.md with what the tests' tables say, or brings it up to date:
strictnesspage.py [--update] PAGE GENERATOR

The last column of its tables tells what one version of OpenSSL answers, and names that version. Others
answer differently, so that column is not compared, and a page that is up to date but for that column is
left as it is.
"""

import difflib
import re
import subprocess
import sys
from pathlib import Path


def without_other_parser(page):
    """The lines of the page, those of tables without the column of OpenSSL's answers."""
    kept = []
    in_table = False
    for line in page.splitlines():
        if re.search(r"\| OpenSSL [^|]*\|$", line):
            in_table = True
        elif not line.startswith("|"):
            in_table = False
        kept.append(line.rsplit("|", 2)[0] if in_table else line)
    return kept


def main(arguments):
    update = arguments[:1] == ["--update"]
    page, generator = arguments[update:]
    generated = subprocess.run([generator], check=True, capture_output=True, text=True).stdout
    kept = Path(page).read_text(encoding="utf-8")
    differences = list(difflib.unified_diff(
        without_other_parser(kept), without_other_parser(generated), page, generator, lineterm=""))
    if not differences:
        return 0
    if update:
        Path(page).write_text(generated, encoding="utf-8")
        return 0
    print("\n".join(differences))
    print("./dev docs brings the page up to date")
    return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
