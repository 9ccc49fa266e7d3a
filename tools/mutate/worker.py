"""A copy of the project in which mutants are built and tried, one at a time."""

import difflib
import json
import os
import resource
import shlex
import shutil
import signal
import subprocess
import time
from collections import Counter
from pathlib import Path

import results
from suites import BUILT

# A mutant that needs this many times as long as the sources as they are, and so much more, hangs.
PATIENCE_TIMES = 10
PATIENCE_SECONDS = 20
MEMORY = 4096  # megabytes
OUTPUT = 1 << 28  # bytes that a program may write to a file
# Sanitizers that the tests have but most mutants do without, to be compiled faster.
MORE_CHECKS = ("-fsanitize=address,undefined", "-fno-sanitize-recover=all")


class BuildError(Exception):
    """The sources as they are do not build, or their tests fail."""


def files_of(project):
    """The files under version control, and those that could be."""
    listed = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard", "--deduplicate"],
        cwd=project, check=True, capture_output=True).stdout.decode()
    return [name for name in listed.split("\0") if name and (project / name).is_file()]


def copy_project(project, copy):
    """Makes the copy what the project is; leaves alone what is so already."""
    wanted = files_of(project)
    for name in wanted:
        source, target = project / name, copy / name
        if target.is_file() and target.read_bytes() == source.read_bytes():
            continue
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source, target)
    for folder, folders, names in os.walk(copy):
        if Path(folder) == copy:
            folders.remove("build") if "build" in folders else None
        for name in names:
            if (Path(folder) / name).relative_to(copy).as_posix() not in set(wanted):
                (Path(folder) / name).unlink()
    (copy / "build").mkdir(exist_ok=True)
    dependencies = copy / "build" / "deps"
    if not dependencies.is_symlink():
        dependencies.symlink_to(project / "build" / "deps")


def limit_process():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (OUTPUT, OUTPUT))


class Command:
    """A command of the build, with a way to change what it reads and writes."""

    def __init__(self, line, folder):
        self.line = line
        self.folder = folder
        self.words = shlex.split(line)

    def output(self):
        return self.words[self.words.index("-o") + 1] if "-o" in self.words else ""

    def run(self, line=None):
        environment = {**os.environ, "CCACHE_DISABLE": "1"}
        return subprocess.run(["sh", "-c", line or self.line], cwd=self.folder, env=environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False,
                              # An interruption must not look like a failure.
                              start_new_session=True)


class Program:
    """A test program, as ctest would run it."""

    def __init__(self, test, environment):
        self.name = test["name"]
        self.command = [word for word in test["command"] if not word.startswith("--gtest_output")]
        properties = {entry["name"]: entry["value"] for entry in test["properties"]}
        self.folder = properties.get("WORKING_DIRECTORY", ".")
        self.environment = {**os.environ, **environment}
        for setting in properties.get("ENVIRONMENT", []):
            name, _, value = setting.partition("=")
            self.environment[name] = value
        self.seconds = 0.0

    def run(self, log, limit=600.0):
        """Whether it passes; nothing if it takes too long."""
        with open(log, "wb") as output:
            process = subprocess.Popen(self.command, cwd=self.folder, env=self.environment,
                                       stdin=subprocess.DEVNULL, stdout=output,
                                       stderr=subprocess.STDOUT, start_new_session=True,
                                       preexec_fn=limit_process)
            try:
                return process.wait(timeout=limit) == 0
            except subprocess.TimeoutExpired:
                return None
            finally:
                kill_group(process)

    def measure(self, log):
        """Runs it on the sources as they are."""
        start = time.monotonic()
        if not self.run(log):
            raise BuildError(f"{self.name} fails without a mistake in the sources: {log}")
        self.seconds = time.monotonic() - start

    def limit(self):
        return self.seconds * PATIENCE_TIMES + PATIENCE_SECONDS


def kill_group(process):
    """Kills a program and those that it started."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


def failed_test(log):
    """The first test that failed according to a program's output."""
    with open(log, "rb") as file:
        text = file.read(1 << 20).decode(errors="replace")
    for line in text.splitlines():
        if line.startswith("[  FAILED  ]"):
            return line.removeprefix("[  FAILED  ]").split(",")[0].split("(")[0].strip()
    return "it ended early"


def mutated(name):
    """What the object is called that is made of a mutant."""
    return f"{name}.mutant.o"


class Build:
    """The build of one system in a worker's copy."""

    def __init__(self, copy, system):
        self.copy = copy
        self.system = system
        self.folder = copy / "build" / BUILT[system]
        self.programs = {}
        self.links = {}
        self.compiles = {}
        self.includes = {}
        self.noticed = Counter()
        self.current = ""
        self.log = self.folder / "mutant.log"

    def tool(self, *command):
        done = subprocess.run(command, cwd=self.copy, stdin=subprocess.DEVNULL, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        output = done.stdout.decode(errors="replace")
        if done.returncode:
            raise BuildError(f"{' '.join(map(str, command))} failed:\n{output[-3000:]}")
        return output

    def prepare(self, suites):
        """Builds and measures what the suites need."""
        self.tool("cmake", "--preset", BUILT[self.system])
        names = {name for suite in suites for name in suite.all_programs()}
        targets = names | {suite.linked for suite in suites if suite.linked}
        # A run that was interrupted may have left a mutant where these are.
        for target in targets:
            for name in (target, f"{target}.exe", f"{target}.dll"):
                (self.folder / "bin" / name).unlink(missing_ok=True)
        self.tool("cmake", "--build", str(self.folder), "--parallel", "1", "--target",
                  *sorted(targets))
        self.read_commands(targets)
        self.read_includes()
        # Only now that the programs are there ctest says how to run them.
        tests = {test["name"]: test for test in json.loads(
            self.tool("ctest", "--test-dir", str(self.folder), "--show-only=json-v1"))["tests"]}
        environment = {"GTEST_FAIL_FAST": "1", "GTEST_BRIEF": "1",
                       "ASAN_OPTIONS": f"hard_rss_limit_mb={MEMORY}"}
        for name in sorted(names):
            self.programs[name] = Program(tests[name], environment)
            self.programs[name].measure(self.log)

    def read_commands(self, targets):
        for target in targets:
            for line in self.tool("ninja", "-C", str(self.folder), "-t", "commands",
                                  target).splitlines():
                if line.startswith("ninja:"):
                    continue
                command = Command(line, self.folder)
                if "-c" in command.words:
                    self.compiles[command.output()] = command
                elif Path(command.output()).stem == target:
                    self.links[target] = command

    def read_includes(self):
        """What each object is made of, as the compiler told it."""
        current = None
        for line in self.tool("ninja", "-C", str(self.folder), "-t", "deps").splitlines():
            if line and not line.startswith(" "):
                current = self.includes.setdefault(line.partition(":")[0], set())
            elif line.strip():
                current.add(os.path.normpath(self.folder / line.strip()))

    def affected(self, target, file):
        """The objects of a target that the file is part of."""
        path = os.path.normpath(self.copy / file)
        return [word for word in self.links[target].words
                if word in self.compiles and path in self.includes.get(word, ())]

    def build(self, targets, file, more=()):
        """Builds the objects anew that the file is part of, beside the others, and links them. The
        output of what fails, or nothing."""
        return self.compile_all([name for target in targets
                                 for name in self.affected(target, file)], more) or \
            self.link_all(targets, file, more)

    def compile_all(self, names, more=()):
        for name in dict.fromkeys(names):
            done = self.compile(name, mutated(name), more)
            if done.returncode:
                return done.stdout.decode(errors="replace")
        return None

    def link_all(self, targets, file, more=()):
        for target in targets:
            done = self.link(target, self.affected(target, file), more=more)
            if done.returncode:
                return done.stdout.decode(errors="replace")
        return None

    def link(self, target, changed, without=(), more=()):
        """Links a target with mutated objects in place of others, and without some."""
        command = self.links[target]
        line = command.line
        for name in changed:
            line = line.replace(f" {name} ", f" {mutated(name)} ")
        for name in without:
            line = line.replace(f" {name} ", " ").replace(f" {mutated(name)} ", " ")
        if more:
            line = line.replace(" -o ", f" {' '.join(more)} -o ", 1)
        return command.run(line)

    def by_test_source(self, target, file):
        """Tries a header with one source of the test program after the other, the most promising
        first: few mutants come to the second. Yields what fails to compile, or "" each time that the
        program was linked. A program that cannot be linked like this is left to the caller."""
        names = self.affected(target, file)
        tests = [name for name in names if name.endswith("_test.cpp.o")]
        failed = self.compile_all(name for name in names if name not in tests)
        if failed:
            yield failed
        all_tests = [name for name in self.links[target].words if name.endswith("_test.cpp.o")]
        for test in sorted(tests, key=lambda name: self.promise(name, file), reverse=True):
            failed = self.compile_all([test])
            if failed:
                yield failed
            others = [name for name in all_tests if name != test]
            if self.link(target, names, others).returncode == 0:
                self.current = test
                yield ""

    def promise(self, test, file):
        """How likely a test source is to notice a mistake in a file: by what it noticed before, then
        by its name."""
        similar = difflib.SequenceMatcher(None, Path(test).name.split("_")[0], Path(file).stem)
        return self.noticed[test, file], similar.ratio()

    def compile(self, name, output, more, with_warnings=False):
        command = self.compiles[name]
        line = command.line.replace(f" -o {name} ", f" {' '.join(more)} -o {output} ", 1)
        # Mutants are built with -w in front of the project's warnings, which are errors.
        return command.run(line.replace(" -w ", " ", 1) if with_warnings else line)

    def optimised(self, targets, file):
        """What the optimising compiler makes of the file, without sanitizers."""
        objects = []
        for target in targets:
            for name in self.affected(target, file):
                output = f"{name}.plain.o"
                if self.compile(name, output, ("-O2", "-fno-sanitize=all")).returncode:
                    return None
                objects.append((name, (self.folder / output).read_bytes()))
        return objects


class Worker:
    """Tries mutants in a copy of its own."""

    def __init__(self, project, number):
        self.project = project
        self.copy = project / "build" / "mutate" / f"worker{number}"
        self.builds = {}
        self.plain = {}

    def prepare(self, suites):
        """\\param suites pairs of a system and a suite"""
        copy_project(self.project, self.copy)
        for system in sorted({system for system, _ in suites}):
            self.builds[system] = Build(self.copy, system)
            self.builds[system].prepare([suite for of, suite in suites if of == system])

    def attempt(self, mutant, suite):
        """The verdict on a mutant, and what led to it."""
        path = self.copy / mutant.file
        source = path.read_bytes()
        times = path.stat()
        try:
            path.write_bytes(mutant.change.apply(source))
            verdict = self.judge(mutant, suite)
            if verdict[0] == results.SURVIVED and (warning := self.warning(mutant, suite)):
                return results.NOT_BUILT, warning
            if verdict[0] == results.SURVIVED and self.is_compiled_alike(mutant, suite, source):
                return results.EQUIVALENT, "compiled to the same"
            return verdict
        finally:
            path.write_bytes(source)
            os.utime(path, ns=(times.st_atime_ns, times.st_mtime_ns))

    def judge(self, mutant, suite):
        build = self.builds[mutant.system]
        verdict = self.run_tests(build, mutant, suite, suite.programs)
        if verdict[0] == results.SURVIVED and mutant.system == "native":
            verdict = self.run_tests(build, mutant, suite, suite.programs, MORE_CHECKS)
        if verdict[0] == results.SURVIVED and suite.torture:
            verdict = self.run_tests(build, mutant, suite, suite.torture)
        return verdict

    def run_tests(self, build, mutant, suite, names, more=()):
        output = None
        if suite.linked:
            output = build.build([suite.linked], mutant.file, more)
            if output is not None:
                return results.NOT_BUILT, first_error(output)
        for name in names:
            # One program after the other: most mutants do not come to the second.
            if mutant.file.endswith(".h") and not suite.linked and not more:
                for output in build.by_test_source(name, mutant.file):
                    verdict = (results.NOT_BUILT, first_error(output)) if output \
                        else self.run_program(build, name)
                    if verdict:
                        build.noticed[build.current, mutant.file] += 1
                        return verdict
                output = build.link_all([name], mutant.file)
            elif not suite.linked:
                output = build.build([name], mutant.file, more)
            if output:
                return results.NOT_BUILT, first_error(output)
            verdict = self.run_program(build, name)
            if verdict:
                return verdict
        return results.SURVIVED, ""

    def run_program(self, build, name):
        """The verdict, or nothing if the program passes."""
        program = build.programs[name]
        passed = program.run(build.log, program.limit())
        if passed is None and build.system == "windows":
            # Very rarely a program hangs under Wine.
            passed = program.run(build.log, program.limit())
        if passed is None:
            return results.TIMED_OUT, name
        return None if passed else (results.KILLED, f"{name}: {failed_test(build.log)}")

    def warning(self, mutant, suite):
        """What the compiler says of it with the project's warnings, or nothing."""
        build = self.builds[mutant.system]
        target = suite.linked or suite.programs[0]
        for name in build.affected(target, mutant.file)[:1]:
            done = build.compile(name, mutated(name), ("-O1",), with_warnings=True)
            if done.returncode:
                return first_error(done.stdout.decode(errors="replace"))
        return ""

    def is_compiled_alike(self, mutant, suite, source):
        build = self.builds[mutant.system]
        targets = [suite.linked] if suite.linked else suite.programs
        path = self.copy / mutant.file
        after = build.optimised(targets, mutant.file)
        if mutant.file not in self.plain:
            path.write_bytes(source)
            self.plain[mutant.file] = build.optimised(targets, mutant.file)
        return after is not None and after == self.plain[mutant.file]


def first_error(output):
    return next((line.strip()[:200] for line in output.splitlines() if "error" in line), "")
