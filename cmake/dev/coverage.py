#!/usr/bin/env python3
"""Prints line and branch coverage by room from gcovr's reports: coverage.py FOLDER

A line or branch counts as executed if it was in any of the builds.
"""

import json
import subprocess
import sys
from collections import defaultdict
from pathlib import Path


def merged_files(folder):
    tracefiles = [f"--add-tracefile={file}" for file in ("native.json", "windows.json")]
    output = subprocess.run(
        ["gcovr", *tracefiles, "--root", str(folder.parent.parent), "--json-summary", "-"],
        cwd=folder, check=True, capture_output=True, text=True).stdout
    return json.loads(output)["files"]


def ratio(covered, total):
    return f"{covered}/{total} {100 * covered / total:5.1f} %" if total else "-"


def main(folder):
    kinds = ("line_covered", "line_total", "branch_covered", "branch_total")
    rooms = defaultdict(lambda: dict.fromkeys(kinds, 0))
    for file in merged_files(Path(folder).resolve()):
        for row in (rooms[Path(file["filename"]).parts[0]], rooms["total"]):
            for kind in kinds:
                row[kind] += file[kind]
    print(f"{'room':<10}{'lines':>20}{'branches':>20}")
    for name in sorted(rooms, key=lambda room: (room == "total", room)):
        row = rooms[name]
        print(f"{name:<10}{ratio(row['line_covered'], row['line_total']):>20}"
              f"{ratio(row['branch_covered'], row['branch_total']):>20}")


if __name__ == "__main__":
    main(sys.argv[1])
