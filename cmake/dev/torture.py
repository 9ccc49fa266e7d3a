#!/usr/bin/env python3
"""Reports what the torture tests made fail: torture.py RESULTS_FOLDER

Reads the JSON files that the tests left there. Prints a line for each kind of failure: the number of
runs, what failed in them, and how many runs ended wrongly. Ends with 1 if one did, or if there are no
results.
"""

import json
import sys
from pathlib import Path


def tests(folder):
    """All tests of the torture programs."""
    for file in sorted(folder.glob("torture*.json")):
        for suite in json.loads(file.read_text(encoding="utf-8", errors="replace"))["testsuites"]:
            yield from suite["testsuite"]


def what_failed(test):
    if int(test["allocations"]):
        return f"{test['allocations']} allocations"
    functions, codes = int(test["functions"]), int(test["codes"])
    return (f"{test['calls']} calls of {functions} function{'s' * (functions != 1)},"
            f" {codes} code{'s' * (codes != 1)}")


def main(folder):
    runs = 0
    failures = []
    for test in tests(folder):
        # Including failures outside the runs, such as that of a function that was never called.
        failures += [failure["failure"] for failure in test.get("failures", [])]
        if "torture" not in test:
            continue
        runs += int(test["runs"])
        print(f"{test['torture']:46} {int(test['runs']):5} runs: {what_failed(test)};"
              f" {test['failed_runs']} failures")
    for failure in failures[:5]:
        print("\n" + failure[:2000])
    print(f"{runs} runs, {len(failures)} failed expectations")
    return 0 if runs and not failures else 1


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1])))
