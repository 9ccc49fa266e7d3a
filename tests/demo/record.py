#!/usr/bin/python3
"""Runs a program on a terminal and keeps what a person would see.

record.py COLUMNS FILE TITLE COMMAND...: prints the lines as text, writes them with their colours
to FILE for picture.py, and ends with the program's exit code.
"""

import json
import sys
from dataclasses import asdict
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "support" / "terminal"))
from terminal import Terminal  # noqa: E402


def main(columns, file, title, *command):
    with Terminal(list(command), columns=int(columns), rows=50) as terminal:
        code = terminal.wait_for_end()
        lines = terminal.lines()
    screen = {"title": title, "columns": int(columns),
              "lines": [[asdict(run) for run in line.runs] for line in lines]}
    Path(file).write_text(json.dumps(screen, ensure_ascii=False), encoding="utf-8")
    print("\n".join(line.text for line in lines))
    return code if code >= 0 else 128 - code


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
