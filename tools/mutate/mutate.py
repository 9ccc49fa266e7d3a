#!/usr/bin/env python3
"""Measures the tests by the mistakes that they notice: mutate.py [OPTION...]; see docs/testing.md.

Makes one small mistake after the other in copies of the sources, and runs the tests of the folder in
which it is. Ends with 1 if the tests overlook a mistake that the file survivors does not list with a
reason, or if that file lists what does not belong there.
"""

import argparse
import fcntl
import json
import os
import queue
import shlex
import signal
import subprocess
import sys
import threading
import time
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from dataclasses import asdict
from pathlib import Path

import results
import survivors
from mutant import Change, Mutant
from suites import COMPILED, FOLDERS, SUITES, folder_of, suite_of
from worker import BuildError, Worker

PROJECT = Path(__file__).resolve().parents[2]
FOLDER = PROJECT / "build" / "mutate"
LIST = Path(__file__).resolve().parent / "survivors"
SEED = 1
COLUMNS = ("killed", "timed out", "equivalent", "did not build", "listed", "survived")


def parse(arguments):
    parser = argparse.ArgumentParser(prog="./dev mutate", description=__doc__.splitlines()[0])
    parser.add_argument("--seed", type=int, default=SEED,
                        help="draws the mutants in another order (%(default)s)")
    parser.add_argument("--minutes", type=float, default=0,
                        help="ends after so long; the next run goes on (no limit)")
    parser.add_argument("--only", metavar="PATH", action="append",
                        help="mutants of a file or folder; may be given several times")
    parser.add_argument("--folder", choices=FOLDERS, help="mutants of one folder")
    parser.add_argument("--system", choices=tuple(SUITES), help="mutants that one system compiles")
    parser.add_argument("--workers", type=int, default=os.cpu_count() or 1,
                        help="copies of the sources to work in (%(default)s)")
    parser.add_argument("--again", action="store_true", help="try again what survived before")
    parser.add_argument("--list", action="store_true", help="only print the mutants")
    return parser.parse_args(arguments)


def compile_options(command):
    """The options that matter to a parser: folders, definitions, the standard."""
    words = iter(shlex.split(command)[1:])
    for word in words:
        if word in ("-I", "-isystem", "-D"):
            yield from (word, next(words))
        elif word.startswith(("-I", "-isystem", "-D", "-std=")):
            yield word


def windows_options():
    """Clang compiles for Windows with the cross compiler's headers."""
    told = subprocess.run(["x86_64-w64-mingw32-g++-posix", "-x", "c++", "-E", "-v", "/dev/null"],
                          capture_output=True, text=True, check=True).stderr
    folders = [line.strip() for line in told.splitlines()
               if line.startswith(" ") and ("/c++" in line or line.endswith("mingw32/include"))]
    return ["--target=x86_64-w64-windows-gnu", "-nostdinc++",
            *(word for folder in folders for word in ("-isystem", folder))]


def all_mutants():
    """The mutants of all files, read anew only if something changed."""
    commands = [PROJECT / "build" / preset / "compile_commands.json" for preset in COMPILED.values()]
    sources = [PROJECT / name for name in (*FOLDERS, "include")]
    here = Path(__file__).resolve().parent
    tool = [here / name for name in ("mutant.py", "operators.py", "syntax.py")]
    digest = results.digest_of([*tool, *commands, *sources])
    kept = FOLDER / "mutants.json"
    try:
        known = json.loads(kept.read_text(encoding="utf-8"))
        if known["digest"] == digest:
            return [from_dictionary(each) for each in known["mutants"]]
    except (FileNotFoundError, ValueError):
        pass
    found = read_mutants()
    FOLDER.mkdir(parents=True, exist_ok=True)
    kept.write_text(json.dumps({"digest": digest, "mutants": [asdict(each) for each in found]}),
                    encoding="utf-8")
    return found


def from_dictionary(fields):
    return Mutant(**{**fields, "change": Change(**fields["change"])})


def read_mutants():
    """The mutants of all files: those of portable ones as the native build compiles them, then the
    rest."""
    from syntax import Reader
    reader = Reader(PROJECT, lambda name: folder_of(name) in FOLDERS)
    found = []
    for system, preset in COMPILED.items():
        more = windows_options() if system == "windows" else []
        commands = PROJECT / "build" / preset / "compile_commands.json"
        for entry in json.loads(commands.read_text(encoding="utf-8")):
            path = Path(entry["directory"]) / entry["file"]
            name = reader.relative(path)
            if name.endswith(".cpp") and folder_of(name) in FOLDERS and name not in reader.read:
                found += reader.mutants(path, [*compile_options(entry["command"]), *more], system)
    return found


class Basis:
    """Digests of what verdicts depend on."""

    def __init__(self):
        self.known = {}
        self.support = results.digest_of([PROJECT / "tests" / "support"])

    def of(self, mutant):
        return f"{self.digest(mutant.file)} {self.digest(*test_folders(mutant))} {self.support}"

    def digest(self, *names):
        if names not in self.known:
            self.known[names] = results.digest_of([PROJECT / name for name in names])
        return self.known[names]


def test_folders(mutant):
    """The folders of the tests that measure a mutant's file."""
    if folder_of(mutant.file) != "src":
        return (f"tests/{folder_of(mutant.file)}",)
    names = {program.removesuffix("_test").split("_")[0]
             for program in suite_of(mutant).all_programs()}
    names = {"certstorehelper" if name == "cspbinding" else name for name in names}
    return tuple(f"tests/{name}" for name in sorted(names))


class Run:
    """Tries mutants on several workers."""

    def __init__(self, mutants, kept, deadline, listed):
        self.todo = queue.SimpleQueue()
        for mutant in mutants:
            self.todo.put(mutant)
        self.total = len(mutants)
        self.kept = kept
        self.listed = listed
        self.basis = Basis()
        self.deadline = deadline
        self.lock = threading.Lock()
        self.done = 0
        self.failure = None

    def work(self, worker):
        try:
            while not self.failure and time.monotonic() < self.deadline:
                mutant = self.todo.get_nowait()
                basis = self.basis.of(mutant)
                verdict, remark = worker.attempt(mutant, suite_of(mutant))
                with self.lock:
                    self.kept.put(mutant.key, basis, verdict, remark)
                    self.done += 1
                    self.report(mutant, verdict)
        except queue.Empty:
            pass
        except Exception as error:  # pylint: disable=broad-except
            self.failure = error

    def report(self, mutant, verdict):
        if verdict == results.SURVIVED and mutant.key not in self.listed:
            print(f"survived: {mutant}", flush=True)
        if self.done % 25 == 0 or self.done == self.total:
            print(f"{self.done} of {self.total}", flush=True)

    def run(self, workers):
        threads = [threading.Thread(target=self.work, args=(worker,)) for worker in workers]
        for thread in threads:
            thread.start()
        try:
            for thread in threads:
                thread.join()
        except KeyboardInterrupt:
            self.deadline = 0
            print("ending the mutants that are being tried", flush=True)
            for thread in threads:
                thread.join()
        if self.failure:
            raise self.failure


def print_table(mutants, verdicts, reasons):
    print(f"\n{'folder':<8}{'mutants':>9}{'tried':>8}" + "".join(f"{name:>15}" for name in COLUMNS))
    for folder in (*FOLDERS, "all"):
        of_folder = [mutant for mutant in mutants
                     if folder in ("all", folder_of(mutant.file))]
        count = Counter("listed" if verdicts[mutant.key] == results.SURVIVED
                        and mutant.key in reasons else verdicts[mutant.key]
                        for mutant in of_folder if mutant.key in verdicts)
        if of_folder:
            print(f"{folder:<8}{len(of_folder):>9}{sum(count.values()):>8}" +
                  "".join(f"{count[name]:>15}" for name in COLUMNS))


def listed():
    return survivors.read(LIST.read_text(encoding="utf-8"))


def evaluate(mutants, chosen, kept):
    """Prints what is known of the chosen mutants; whether all is well."""
    basis = Basis()
    verdicts = {mutant.key: verdict for mutant in chosen
                if (verdict := kept.get(mutant.key, basis.of(mutant)))}
    entries = listed()
    reasons = {entry.key: entry.reason for entry in entries}
    overlooked = [mutant for mutant in chosen if verdicts.get(mutant.key) == results.SURVIVED]
    print_table(chosen, verdicts, reasons)
    for mutant in overlooked:
        if mutant.key in reasons:
            print(f"\nlisted: {mutant}\n    {reasons[mutant.key]}")
    complaints = list(survivors.complaints(entries, {mutant.key for mutant in mutants}, verdicts))
    unlisted = [mutant for mutant in overlooked if mutant.key not in reasons]
    for mutant in unlisted:
        print(f"\nsurvived: {mutant}\n    {mutant.key}")
    for complaint in complaints:
        print(f"\n{LIST.relative_to(PROJECT)}: {complaint}")
    return not unlisted and not complaints


def try_mutants(chosen, options, kept):
    basis = Basis()
    todo = []
    for mutant in chosen:
        known = kept.get(mutant.key, basis.of(mutant))
        if not known or options.again and known == results.SURVIVED:
            todo.append(mutant)
    print(f"{len(chosen)} mutants, {len(todo)} of them to be tried", flush=True)
    if not todo:
        return
    suites = sorted({(mutant.system, suite_of(mutant)) for mutant in todo}, key=str)
    workers = [Worker(PROJECT, number + 1) for number in range(options.workers)]
    print(f"building {len(workers)} copies in {FOLDER.relative_to(PROJECT)}", flush=True)
    with ThreadPoolExecutor(len(workers)) as pool:
        list(pool.map(lambda worker: worker.prepare(suites), workers))
    # Building takes as long as it takes: without it nothing is measured.
    deadline = time.monotonic() + (options.minutes * 60 if options.minutes else float("inf"))
    Run(todo, kept, deadline, {entry.key for entry in listed()}).run(workers)


def main(arguments):
    options = parse(arguments)
    # Whatever ends it, it first takes back the mutants that it works on.
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.default_int_handler)
    mutants = all_mutants()
    chosen = [mutant for mutant in mutants
              if mutant.file.startswith(tuple(options.only or [""]))
              and options.folder in (None, folder_of(mutant.file))
              and options.system in (None, mutant.system)]
    chosen.sort(key=lambda mutant: mutant.rank(options.seed))
    if options.list:
        for mutant in chosen:
            print(mutant)
        return 0
    FOLDER.mkdir(parents=True, exist_ok=True)
    with open(FOLDER / "lock", "w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        kept = results.Results(FOLDER / "results.json")
        try:
            try_mutants(chosen, options, kept)
        except BuildError as error:
            print(error, file=sys.stderr)
            return 1
        return 0 if evaluate(mutants, chosen, kept) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
