#!/usr/bin/env python3
"""Adds up test results: results.py [--filtered] SYSTEM NAME=BUILD_FOLDER...

Counts every test that a build folder declares. A GoogleTest program counts as the tests in its JSON
file, or as one failure if it has none because it crashed or did not start; a script counts as one
test. A test that was not run is a failure, unless the run was filtered; so is one that was skipped and is
not in tests/skipped.txt for the SYSTEM, such as "debian 13". Prints the failures, a table of folders and
builds, and the totals. Ends with 1 if a test failed or none was run.
"""

import json
import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from collections import Counter, defaultdict
from pathlib import Path


SKIPPED = Path(__file__).resolve().parents[2] / "tests" / "skipped.txt"


def listed_skips(system, file=SKIPPED):
    """The reasons why tests are skipped on a system, by build and test. A system without releases of its
    own in the list may skip whatever others skip."""
    reasons = {}
    releases = set()
    for line in file.read_text(encoding="utf-8").splitlines():
        if line and not line.startswith("#"):
            on, build, test, reason = (part.strip() for part in line.split("|"))
            reasons[build, test] = (on.split(), reason)
            releases.update(f"debian {release}" for release in on.split())
    release = system.removeprefix("debian ")
    return {key: reason for key, (on, reason) in reasons.items()
            if release in on or system not in releases}


class Count:
    def __init__(self):
        self.passed = 0
        self.failed = 0
        self.skipped = 0

    def add(self, other):
        self.passed += other.passed
        self.failed += other.failed
        self.skipped += other.skipped

    def line(self):
        return (f"{self.passed} passed, {self.failed} failed"
                + (f", {self.skipped} skipped" if self.skipped else ""))

    def __str__(self):
        parts = [f"{self.passed} passed"]
        if self.failed:
            parts.append(f"{self.failed} failed")
        if self.skipped:
            parts.append(f"{self.skipped} skipped")
        return ", ".join(parts)


def declared_tests(build):
    """Names and labels of the tests that ctest knows in a build folder."""
    output = subprocess.run(
        ["ctest", "--test-dir", str(build), "--show-only=json-v1"],
        check=True, capture_output=True, text=True).stdout
    tests = json.loads(output)["tests"]
    repeated = {name for name, count in Counter(test["name"] for test in tests).items() if count > 1}
    if repeated:
        sys.exit(f"results: {build} has several tests of one name: {', '.join(sorted(repeated))}")
    for test in tests:
        properties = {entry["name"]: entry["value"] for entry in test.get("properties", [])}
        yield test["name"], properties.get("LABELS", ["other"])


def outcomes(build):
    """The status and the output of every test that ctest ran."""
    return {case.get("name"): (case.get("status"), case.findtext("system-out") or "")
            for report in (build / "test-results").glob("*.xml")
            for case in ElementTree.parse(report).getroot().iter("testcase")}


def tail(text, lines=15):
    return "\n".join("    " + line for line in text.strip().splitlines()[-lines:])


def count_program(file, status, output, complain, skip):
    """Counts the tests of one GoogleTest program. skip is told of each that is skipped, and says whether
    that is as it should be."""
    count = Count()
    try:
        suites = json.loads(file.read_text(encoding="utf-8", errors="replace"))["testsuites"]
    except (OSError, ValueError, KeyError):
        count.failed = 1
        complain("left no results: it crashed or did not start\n" + tail(output))
        return count
    for suite in suites:
        for test in suite["testsuite"]:
            if test.get("failures"):
                count.failed += 1
                messages = "\n".join(failure["failure"] for failure in test["failures"])
                complain(f"{suite['name']}.{test['name']}\n{tail(messages)}")
            elif test.get("result") == "SKIPPED":
                if skip(f"{suite['name']}.{test['name']}"):
                    count.skipped += 1
                else:
                    count.failed += 1
            elif test.get("status") == "RUN":
                count.passed += 1
    if status != "run" and not count.failed:
        count.failed = 1
        complain("all tests passed, but the program ended with an error\n" + tail(output))
    return count


def count_script(status, output, complain):
    count = Count()
    if status == "run":
        count.passed = 1
    else:
        count.failed = 1
        complain("\n" + tail(output, 30))
    return count


def count_build(name, build, filtered, reasons):
    """Counts by folder; prints what failed and what was skipped."""
    folders = defaultdict(Count)
    unseen = {test for listed, test in reasons if listed == name}
    log = f"build/logs/test-{name}.log"
    seen = outcomes(build)
    for test, labels in declared_tests(build):
        if filtered and test not in seen:
            continue
        status, output = seen.get(test, ("not run", "ctest did not run it"))
        folder = next(label for label in labels if label != "script")

        def complain(text, test=test):
            print(f"FAILED {name}: {test}: {text}\n    (all of its output: {log})")

        def skip(skipped, complain=complain):
            reason = reasons.get((name, skipped))
            if not reason:
                complain(f"{skipped} was skipped, and {SKIPPED.name} does not say why")
                return False
            unseen.discard(skipped)
            print(f"skipped {name}: {skipped}: {reason}")
            return True

        if "script" in labels:
            folders[folder].add(count_script(status, output, complain))
        else:
            file = build / "test-results" / f"{test}.json"
            folders[folder].add(count_program(file, status, output, complain, skip))
    if not filtered:
        for test in sorted(unseen):
            print(f"no longer skipped {name}: {test}")
    return folders


def print_table(builds, counts):
    folders = sorted({folder for by_folder in counts.values() for folder in by_folder})
    cells = {(folder, name): str(counts[name][folder]) if folder in counts[name] else "-"
             for folder in folders for name in builds}
    widths = {name: max([len(name)] + [len(cells[folder, name]) for folder in folders])
              for name in builds}
    first = max([len("folder")] + [len(folder) for folder in folders])
    print("  ".join(["folder".ljust(first)] + [name.ljust(widths[name]) for name in builds]).rstrip())
    for folder in folders:
        row = [folder.ljust(first)] + [cells[folder, name].ljust(widths[name]) for name in builds]
        print("  ".join(row).rstrip())


def main(arguments):
    filtered = arguments[:1] == ["--filtered"]
    system, *folders = arguments[filtered:]
    builds = dict(folder.split("=", 1) for folder in folders)
    reasons = listed_skips(system)
    counts = {name: count_build(name, Path(folder), filtered, reasons)
              for name, folder in builds.items()}
    total = Count()
    for by_folder in counts.values():
        for count in by_folder.values():
            total.add(count)
    print()
    print_table(list(builds), counts)
    print(total.line())
    return 0 if total.passed and not total.failed else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
