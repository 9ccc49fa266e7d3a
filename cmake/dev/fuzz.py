#!/usr/bin/env python3
"""Runs the fuzz targets: fuzz.py SECONDS

The seconds are divided among the targets, which run on all processors. A target starts with its
seeds, the inputs kept in fuzz/corpus, and those that earlier runs added to build/fuzz/inputs, where
new ones go too. Prints a line for each target when it ends. If a target found something, prints the
path of the input and how to run it again, and ends with 1.
"""

import os
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor, as_completed
from pathlib import Path

BUILD = Path("build/fuzz")
FINDINGS = BUILD / "findings"
LOGS = Path("build/logs")
# Targets that read the same kind of input share a dictionary.
DICTIONARIES = {"ber": "asn1", "certificate": "asn1", "names": "asn1", "openssl": "asn1",
                "cspbinding": "utf8", "utf8": "utf8", "hostilemodule": "hostilemodule"}
COLUMNS = "{:14}{:>8}{:>12}{:>9}{:>7}{:>8}{:>10}"


class Run:
    def __init__(self, target, status, output, findings):
        self.target = target
        self.status = status
        self.findings = findings
        self.executions = self.number(r"stat::number_of_executed_units: +(\d+)", output)
        self.rate = self.number(r"stat::average_exec_per_sec: +(\d+)", output)
        self.inputs = self.number(r" corp: (\d+)", output)
        self.cov = self.number(r" cov: (\d+)", output)
        self.ft = self.number(r" ft: (\d+)", output)

    @staticmethod
    def number(pattern, output):
        found = re.findall(pattern, output)
        return found[-1] if found else "-"

    def row(self):
        return COLUMNS.format(self.target, self.inputs, self.executions, self.rate, self.cov,
                              self.ft, len(self.findings))


def found_by(target):
    return set((FINDINGS / target).iterdir())


def run(target, seconds):
    inputs = [BUILD / "inputs" / target, BUILD / "seeds" / target, Path("fuzz/corpus") / target]
    inputs[0].mkdir(parents=True, exist_ok=True)
    (FINDINGS / target).mkdir(parents=True, exist_ok=True)
    before = found_by(target)
    process = subprocess.run(
        [BUILD / "bin" / f"fuzz_{target}", f"-max_total_time={seconds}", "-max_len=4096",
         "-timeout=10", "-malloc_limit_mb=256", "-print_final_stats=1",
         f"-dict=fuzz/{DICTIONARIES[target]}.dict", f"-artifact_prefix={FINDINGS / target}/",
         *[folder for folder in inputs if folder.is_dir()]],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    output = process.stdout.decode(errors="replace")
    (LOGS / f"fuzz-{target}.log").write_text(output, encoding="utf-8")
    return Run(target, process.returncode, output, sorted(found_by(target) - before))


def explain(failed):
    print(f"\n{failed.target} ended with {failed.status}; its log: {LOGS}/fuzz-{failed.target}.log")
    for file in failed.findings:
        print(f"    {file}\n    run it again: {BUILD}/bin/fuzz_{failed.target} {file}")


def main(arguments):
    if len(arguments) != 1 or not arguments[0].isdigit() or int(arguments[0]) == 0:
        print("usage: ./dev fuzz [SECONDS]", file=sys.stderr)
        return 2
    processors = os.cpu_count() or 1
    seconds = max(1, int(arguments[0]) * processors // len(DICTIONARIES))
    print(f"{len(DICTIONARIES)} targets, {seconds} s each, {processors} at a time")
    print(COLUMNS.format("target", "inputs", "executions", "per s", "cov", "ft", "findings"),
          flush=True)
    failed = []
    with ThreadPoolExecutor(processors) as pool:
        for future in as_completed(pool.submit(run, target, seconds)
                                   for target in sorted(DICTIONARIES)):
            print(future.result().row(), flush=True)
            if future.result().status != 0:
                failed.append(future.result())
    for each in failed:
        explain(each)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
