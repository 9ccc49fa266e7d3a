#!/usr/bin/env python3
"""Prints and checks what the tests executed: coverage.py BUILD...

BUILD is the folder of a build that counts, after its tests ran. A line or branch counts as executed
if any of the builds executed it. Ends with 1 if

- a line or branch is not executed, and coverage.unreached does not list it with a reason (layers in
  coverage.floors are exempt),
- coverage.unreached lists something that is executed or no longer exists, or
- a layer is below its percentages in coverage.floors.

Only branches of decisions count. The edge that GCC adds to each call for an exception does not, nor
does the compiler's own clean-up code, which only exceptions reach.
"""

import json
import re
import subprocess
import sys
from collections import defaultdict
from fnmatch import fnmatchcase
from pathlib import Path
from typing import NamedTuple

PROJECT = Path(__file__).resolve().parents[2]
RULES = Path(__file__).resolve().parent
LAYERS = ("util", "asn1", "pkcs11", "include", "src", "app")
KINDS = ("lines", "branches")
# How many files one run of gcov reads.
BATCH = 50
# Lines like these only end what is above them.
NO_CODE = re.compile(r"[\s{}();]*")


def is_for_windows(build):
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    return re.search(r"^CMAKE_TOOLCHAIN_FILE:.*mingw", cache, re.MULTILINE) is not None


def gcov_reports(build, tool):
    """What gcov says of each object file of the build, and of each header in it."""
    counts = sorted(str(file) for file in build.rglob("*.gcda"))
    if not counts:
        sys.exit(f"{build}: no program has run")
    for first in range(0, len(counts), BATCH):
        command = [tool, "--json-format", "--stdout", "--branch-probabilities",
                   *counts[first:first + BATCH]]
        output = subprocess.run(command, check=True, cwd=build, stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL, text=True).stdout
        for report in map(json.loads, output.splitlines()):
            folder = Path(report["current_working_directory"])
            for file in report["files"]:
                yield (folder / file["file"]).resolve(), file["lines"]


def decided(branches):
    """The counts of branches that have nothing to do with exceptions. A call that may throw adds two
    edges, one for going on and one for the exception."""
    counts = []
    position = 0
    while position != len(branches):
        branch = branches[position]
        following = branches[position + 1] if position + 1 != len(branches) else None
        if branch["fallthrough"] and following and following["throw"]:
            position += 2
            continue
        if not branch["throw"]:
            counts.append(branch["count"])
        position += 1
    return counts


def decisions(counts, text):
    """The branches, grouped by decision: two each, or all of a switch. A decision of which no branch
    was taken is left out: only an exception leads there, or a branch that is reported itself."""
    size = len(counts) if text.startswith("switch") or len(counts) % 2 else 2
    groups = [counts[first:first + size] for first in range(0, len(counts), size or 1)]
    return [group for group in groups if any(group)]


class Line:
    """What was executed of a line, by all functions that were compiled from it."""

    def __init__(self):
        self.functions = defaultdict(list)
        self.counts = defaultdict(int)

    def add(self, function, count, branches):
        key = function, len(branches)
        self.counts[key] += count
        known = self.functions[key]
        self.functions[key] = [a + b for a, b in zip(known, branches)] if known else branches

    def count(self):
        return sum(self.counts.values())

    def decisions(self, text):
        # Functions of one template have the same branches; together they take them.
        by_length = defaultdict(list)
        for key, branches in self.functions.items():
            if self.counts[key]:
                by_length[len(branches)].append(branches)
        for same in by_length.values():
            yield from decisions([sum(counts) for counts in zip(*same)], text)


def executed_lines(builds):
    """The lines that have code, by file (relative to the project) and number."""
    files = defaultdict(lambda: defaultdict(Line))
    for build in builds:
        tool = "x86_64-w64-mingw32-gcov-posix" if is_for_windows(build) else "gcov"
        for path, lines in gcov_reports(build, tool):
            if not path.is_relative_to(PROJECT):
                continue
            name = path.relative_to(PROJECT).as_posix()
            if name.split("/")[0] not in LAYERS:
                continue
            for line in lines:
                # Each compiler makes its own function.
                function = tool, line.get("function_name")
                files[name][line["line_number"]].add(function, line["count"],
                                                     decided(line["branches"]))
    return files


class Layer:
    def __init__(self):
        self.covered = dict.fromkeys(KINDS, 0)
        self.total = dict.fromkeys(KINDS, 0)

    def add(self, kind, covered, total):
        self.covered[kind] += covered
        self.total[kind] += total

    def percent(self, kind):
        return 100 * self.covered[kind] / self.total[kind] if self.total[kind] else 100.0

    def ratio(self, kind):
        if not self.total[kind]:
            return "-"
        return f"{self.covered[kind]}/{self.total[kind]} {self.percent(kind):6.2f} %"


class Place(NamedTuple):
    """A place that was not executed."""
    file: str
    number: int
    texts: list[str]  # of the line above and of the line itself
    kind: str         # line or branch


def evaluate(files):
    """The layers, and the places that were not executed."""
    layers, missing = defaultdict(Layer), []
    for name in sorted(files):
        layer = layers[name.split("/")[0]]
        source = [line.strip() for line in (PROJECT / name).read_text("utf-8").splitlines()]
        for number in sorted(files[name]):
            line, text = files[name][number], source[number - 1]
            if NO_CODE.fullmatch(text):
                continue
            groups = list(line.decisions(text))
            taken = sum(count != 0 for group in groups for count in group)
            branches = sum(map(len, groups))
            layer.add("lines", line.count() != 0, 1)
            layer.add("branches", taken, branches)
            if not line.count() or taken != branches:
                missing.append(Place(name, number, source[max(number - 2, 0):number],
                                     "branch" if line.count() else "line"))
    return layers, missing


def entries(file):
    """The lines of a file without its comments, each with the comments above its paragraph."""
    remarks = []
    for line in (RULES / file).read_text(encoding="utf-8").splitlines():
        if line.startswith("#"):
            remarks.append(line)
        elif line.strip():
            yield line.strip(), remarks
        else:
            remarks = []


class Unreached:
    """An entry of coverage.unreached: a file and the text of a line, in which * is any text. The text
    of the line above and " \\n " may come first. An entry that begins with "natively" is executed by
    the tests for Windows, one that begins with "sometimes" in some runs."""

    def __init__(self, entry, remarks):
        self.entry = entry
        self.natively = entry.startswith("natively ")
        self.sometimes = entry.startswith("sometimes ")
        place = entry.removeprefix("natively ").removeprefix("sometimes ")
        self.file, _, text = place.partition(": ")
        self.patterns = text.replace("[", "[[]").split(r" \n ")
        self.has_reason = bool(remarks)

    def matches(self, place):
        texts = place.texts[-len(self.patterns):]
        return place.file == self.file and all(map(fnmatchcase, texts, self.patterns))

    def stands(self):
        """Whether its file has such a line, executed or not."""
        lines = (PROJECT / self.file).read_text("utf-8").splitlines()
        return any(fnmatchcase(line.strip(), self.patterns[-1]) for line in lines)


def unexplained(missing, files, with_windows, floors):
    explained = [Unreached(*entry) for entry in entries("coverage.unreached")]
    for entry in explained:
        if not entry.has_reason:
            yield f"coverage.unreached gives no reason for: {entry.entry}"
        used = any(map(entry.matches, missing))
        if with_windows and entry.natively and used:
            yield f"the tests for Windows do not execute, against coverage.unreached: {entry.entry}"
        # A native build knows nothing of a file that is compiled for Windows only.
        if not used and (entry.file in files or with_windows) \
                and not (with_windows and entry.natively) \
                and not (entry.sometimes and entry.stands()):
            yield f"coverage.unreached lists a line that is executed or gone: {entry.entry}"
    for place in missing:
        if place.file.split("/")[0] not in floors and \
                not any(entry.matches(place) for entry in explained):
            yield f"{place.file}:{place.number}: {place.kind} not executed: {place.texts[-1]}"


def read_floors():
    return {layer: list(map(float, floors))
            for layer, *floors in (entry.split() for entry, _ in entries("coverage.floors"))}


def below_floors(layers, floors):
    for name, least in floors.items():
        if name not in layers:
            yield f"coverage.floors names a layer that was not executed: {name}"
            continue
        for kind, floor in zip(KINDS, least):
            if layers[name].percent(kind) < floor:
                yield f"{name}: {kind} are below {floor} %: {layers[name].ratio(kind)}"


def print_table(layers):
    print(f"{'layer':<10}{'lines':>20}{'branches':>20}")
    for name in LAYERS:
        if name in layers:
            print(f"{name:<10}{layers[name].ratio('lines'):>20}{layers[name].ratio('branches'):>20}")


def main(builds):
    with_windows = any(map(is_for_windows, builds))
    files = executed_lines(builds)
    layers, missing = evaluate(files)
    floors = read_floors()
    print_table(layers)
    complaints = list(unexplained(missing, files, with_windows, floors))
    if with_windows:
        complaints += below_floors(layers, floors)
    print("\n".join(complaints) or "all is executed, or listed with a reason")
    if "app" in layers:
        print("\nnot executed of the program:")
        for place in missing:
            if place.file.startswith("app/"):
                print(f"    {place.file}:{place.number}: {place.kind}")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main([Path(build).resolve() for build in sys.argv[1:]]))
