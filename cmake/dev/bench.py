#!/usr/bin/env python3
"""Runs the benchmark and writes what it found: bench.py [--quick]

Prints a table, and writes it with charts to docs/benchmarks.md and docs/images/. The programs must have
been built in build/native-release and build/windows-release. With --quick it measures each row for a
shorter time and writes no documents.
"""

import json
import os
import platform
import re
import shutil
import statistics
import subprocess
import sys
import time
from pathlib import Path

from charts import duration
from benchpage import write_page
from benchrows import CONTENDER, ROWS

ROOT = Path(__file__).resolve().parents[2]
NATIVE = ROOT / "build/native-release/bin"
WINDOWS = ROOT / "build/windows-release/bin"
RESULTS = ROOT / "build/bench"


class Sample:
    """What was measured of one contender at one piece of work of one size."""

    def __init__(self):
        self.times = []  # nanoseconds
        self.counters = {}
        self.instructions = None

    def time(self):
        return statistics.median(self.times)

    def spread(self):
        """The middle half of the repetitions."""
        if len(self.times) < 4:
            return min(self.times), max(self.times)
        lower, _, upper = statistics.quantiles(self.times, n=4, method="inclusive")
        return lower, upper


class Measurements:
    def __init__(self):
        self.samples = {}  # (work, contender, size) -> Sample
        self.context = {}

    def sample(self, name):
        work, contender, size = name.split("/")[:3]
        return self.samples.setdefault((work, contender, int(size)), Sample())

    def add_report(self, report, clock):
        """A report in the JSON of Google Benchmark."""
        self.context.update(report["context"])
        for run in report["benchmarks"]:
            if run.get("run_type") != "iteration":
                continue
            sample = self.sample(run["name"])
            factor = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]
            sample.times.append(run[clock] * factor)
            for counter in ("allocations", "bytes", "calls"):
                if counter in run:
                    sample.counters[counter] = run[counter]

    def sizes(self, work):
        return sorted({size for at, _, size in self.samples if at == work})

    def contenders(self, work, size):
        """[(name, sample)], this library first, then the fastest first."""
        found = [(name, sample) for (at, name, of), sample in self.samples.items()
                 if at == work and of == size]
        return sorted(found, key=lambda entry: (entry[0] != CONTENDER, entry[1].time()))


def run(arguments, **options):
    print(f"{Path(arguments[0]).name} ...", flush=True)
    subprocess.run([str(argument) for argument in arguments], check=True,
                   stdout=subprocess.DEVNULL, **options)


def measure_portable(measurements, quick):
    """Times are of the processor, because what else the machine does then matters less; those of
    programs are of the clock."""
    # Reading a token takes long enough to need few repetitions.
    for name, rows, repetitions, least, clock in (
            ("portable", "-^(harvest|classify|readtoken)/", 9, 0.05, "cpu_time"),
            ("token", "^(harvest|classify)/", 5, 0.02, "cpu_time"),
            ("programs", "^readtoken/", 3, 0.02, "real_time")):
        report = RESULTS / f"{name}.json"
        run([NATIVE / "portablebench", f"--benchmark_filter={rows}",
             "--benchmark_enable_random_interleaving=true",
             f"--benchmark_repetitions={3 if quick else repetitions}",
             f"--benchmark_min_time={0.01 if quick else least}",
             f"--benchmark_out={report}", "--benchmark_out_format=json"],
            stderr=subprocess.DEVNULL)
        measurements.add_report(json.loads(report.read_text()), clock)


def run_windows(program, *arguments):
    """The rows that a Windows program printed, a JSON object a line."""
    print(f"{program} ...", flush=True)
    environment = dict(os.environ, CSU_BUILD=f"Z:{WINDOWS.parent}")
    output = subprocess.run([ROOT / "cmake/runwine.sh", WINDOWS / program, *arguments], check=True,
                            capture_output=True, text=True, env=environment).stdout
    return [json.loads(line) for line in output.splitlines() if line.startswith("{")]


def measure_windows(measurements, quick):
    """The Windows build under Wine, by the clock."""
    repetitions = 1 if quick else 5
    # Stores take a different time in each run, so their median needs more of them.
    rows = run_windows("storebench.exe", str(repetitions * 3))
    for _ in range(repetitions):
        rows += run_windows("loadbench.exe")
    rows += run_windows("updatebench.exe", "1000", str(repetitions))
    (RESULTS / "windows.json").write_text(json.dumps(rows, indent=1))
    measurements.add_report({"context": {}, "benchmarks": rows}, "real_time")
    library = WINDOWS / "certstoreupdater.dll"
    stripped = RESULTS / "stripped.dll"
    subprocess.run(["x86_64-w64-mingw32-strip", "-o", stripped, library], check=True)
    measurements.context["library size"] = stripped.stat().st_size


def count_instructions(measurements):
    """Counted by callgrind, which needs no counters of the processor."""
    folder = RESULTS / "callgrind"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    run(["valgrind", "--tool=callgrind", "--instr-atstart=no",
         f"--callgrind-out-file={folder}/out", NATIVE / "portablebench", "--instructions"],
        stderr=subprocess.DEVNULL)
    for file in folder.glob("out*"):
        content = file.read_text(errors="replace")
        name = re.search(r"^desc: Trigger: Client Request: (.*)$", content, re.MULTILINE)
        total = re.search(r"^(?:totals|summary): (\d+)", content, re.MULTILINE)
        if name and total:
            parts = name[1].strip().rsplit("/", 1)
            measurements.sample(parts[0]).instructions = int(total[1]) / int(parts[1])


def table(measurements):
    """Rows for people: work, size, this library, its rivals, ratio, goal."""
    rows = []
    for row in ROWS:
        for size in row.shown_sizes(measurements.sizes(row.work)):
            entries = measurements.contenders(row.work, size)
            if not entries or entries[0][0] != CONTENDER or len(entries) < 2:
                continue
            ours, (rival, theirs) = entries[0][1], entries[1]
            ratio = ours.time() / theirs.time()
            rows.append((row, size, ours, rival, theirs, ratio, row.goal_met(size, ratio, ours)))
    return rows


def print_table(rows):
    print(f"\n{'work':44} {'this library':>14} {'fastest other':>14}  {'':28} {'ratio':>6}  goal")
    for row, size, ours, rival, theirs, ratio, met in rows:
        goal = row.goal(size)
        print(f"{row.label(size):44} {duration(ours.time()):>14} {duration(theirs.time()):>14}  "
              f"{rival:28} {ratio:6.2f}  {goal + (': ' + ('met' if met else 'NOT MET')) if goal else ''}")


def machine():
    model = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo")
                  if line.startswith("model name")), platform.machine())
    memory = next(int(line.split()[1]) for line in open("/proc/meminfo")) / 1024 ** 2
    return f"{os.cpu_count()} processors ({model}), {memory:.0f} GiB, Linux {platform.release()}"


def main():
    quick = sys.argv[1:] == ["--quick"]
    if sys.argv[1:] and not quick:
        sys.exit("usage: ./dev bench [--quick]")
    start = time.monotonic()
    RESULTS.mkdir(parents=True, exist_ok=True)
    measurements = Measurements()
    measure_portable(measurements, quick)
    measure_windows(measurements, quick)
    if not quick:
        count_instructions(measurements)
    rows = table(measurements)
    print_table(rows)
    if not quick:
        write_page(ROOT / "docs", measurements, rows, machine(), time.monotonic() - start)
        print("\nwritten: docs/benchmarks.md and its charts")


if __name__ == "__main__":
    main()
