#!/usr/bin/python3
"""Setting up a machine, where something is missing: one clear line each."""

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]


def bash(script, **variables):
    return subprocess.run(["bash", "-euc", script], cwd=PROJECT, capture_output=True, text=True,
                          env={**os.environ, **variables})


class System(unittest.TestCase):
    def check(self, name):
        return bash(f"source cmake/deps/system.sh; check_system '{name}'")

    def test_is_accepted_without_a_word_if_it_is_supported(self):
        for name in ["debian 12", "debian 13"]:
            with self.subTest(name):
                result = self.check(name)
                self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_is_accepted_with_a_word_if_nobody_has_tried_it(self):
        result = self.check("ubuntu 24.04")
        self.assertEqual(result.returncode, 0)
        self.assertIn("nobody has tried ubuntu 24.04", result.stderr)

    def test_is_refused_in_one_line_that_says_what_is_supported(self):
        for name in ["debian 11", "debian", "ubuntu 22.04", "fedora 41", "unknown"]:
            with self.subTest(name):
                result = self.check(name)
                self.assertEqual(result.returncode, 1)
                self.assertRegex(result.stderr,
                                 rf"\Adev: Debian 12 and 13 are supported, .*{name}.*\n\Z")

    def test_is_refused_with_a_boost_that_is_too_old(self):
        for version, status in [("1.74", 1), ("1.9", 1), ("1.81", 0), ("1.83", 0), ("1.88", 0)]:
            with self.subTest(version):
                result = bash(f"source cmake/deps/system.sh; check_boost {version}")
                self.assertEqual(result.returncode, status)
                self.assertEqual(f"dev: Boost {version} is installed, and 1.81" in result.stderr,
                                 status == 1)

    def test_has_its_versions_in_one_line(self):
        result = bash("source cmake/deps/system.sh; versions")
        self.assertRegex(result.stdout, r"\A\S+.*: GCC [\d.]+, for Windows [\d.]+, Wine \S+, "
                                        r"OpenSSL \S+, Boost \S+, SoftHSM \S+\n\Z")


class Packages(unittest.TestCase):
    """packages.sh with stand-ins for the programs that look at the machine and change it."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="csu-tools-")
        self.addCleanup(folder.cleanup)
        self.bin = Path(folder.name)
        for name in ["bash", "comm", "dirname", "env", "sed", "sort"]:
            (self.bin / name).symlink_to(shutil.which(name))
        self.stand_in("dpkg", "exit 0")
        self.stand_in("dpkg-query", "exit 1")
        self.stand_in("id", "echo 0")
        self.stand_in("apt-get", "exit 0")

    def stand_in(self, name, script):
        file = self.bin / name
        file.write_text(f"#!{self.bin}/bash\n{script}\n")
        file.chmod(0o755)

    def install(self):
        return subprocess.run([shutil.which("bash"), str(PROJECT / "cmake/deps/packages.sh"), "fresh"],
                              capture_output=True, text=True, env={"PATH": str(self.bin)})

    def expect_failure(self, said):
        result = self.install()
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr.splitlines()[-1], said)

    def test_are_installed_where_that_is_possible(self):
        result = self.install()
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_are_named_if_nobody_may_install_them(self):
        self.stand_in("id", "echo 1000")
        self.expect_failure("^dev: root or sudo is needed to install packages. Missing: debootstrap$")

    def test_are_named_if_the_network_is_missing(self):
        self.stand_in("apt-get", "exit 100")
        self.expect_failure("^dev: packages cannot be fetched: .*network.* Missing: debootstrap$")

    def test_are_named_if_they_cannot_be_installed(self):
        self.stand_in("apt-get", 'case "$*" in *" update") ;; *) exit 100 ;; esac')
        self.expect_failure("^dev: apt-get cannot install debootstrap$")

    def test_are_installed_after_what_an_interrupted_run_has_left_half_done(self):
        done = self.bin / "configured"
        self.stand_in("dpkg", f": >{done}")
        self.stand_in("apt-get", f'case "$*" in *" update") ;; *) [[ -e {done} ]] ;; esac')
        self.assertEqual(self.install().returncode, 0)

    def test_are_installed_if_only_a_source_that_has_none_of_them_is_out_of_reach(self):
        self.stand_in("apt-get", 'case "$*" in *" update") exit 100 ;; esac')
        self.assertEqual(self.install().returncode, 0)


class Step(unittest.TestCase):
    def run_step(self, command):
        with tempfile.TemporaryDirectory(prefix="csu-tools-") as folder:
            return bash(f"root={folder}; source cmake/dev/steps.sh; step 'a step' {command}")

    def test_that_fails_says_the_reason_that_it_knows(self):
        result = self.run_step("bash -c 'echo noise; echo \"dev: the reason\" >&2; echo more; exit 3'")
        self.assertEqual(result.returncode, 1)
        self.assertTrue(result.stderr.startswith("dev: a step failed: the reason\nThe whole log: "),
                        result.stderr)

    def test_that_fails_for_an_unknown_reason_shows_the_end_of_its_log(self):
        result = self.run_step("bash -c 'seq 100; exit 3'")
        self.assertEqual(result.returncode, 1)
        self.assertIn("    71\n", result.stderr)
        self.assertNotIn("    70\n", result.stderr)


class WithoutGit(unittest.TestCase):
    def dev(self, *arguments):
        with tempfile.TemporaryDirectory(prefix="csu-tools-") as folder:
            shutil.copy2(PROJECT / "dev", folder)
            shutil.copytree(PROJECT / "cmake", Path(folder) / "cmake")
            variables = {name: value for name, value in os.environ.items()
                         if name != "SOURCE_DATE_EPOCH" and not name.startswith("GIT_")}
            return subprocess.run([f"{folder}/dev", *arguments], capture_output=True, text=True,
                                  env={**variables, "GIT_CEILING_DIRECTORIES": str(Path(folder).parent)})

    def test_a_package_asks_for_the_time_of_its_sources(self):
        result = self.dev("package")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, r"\Adev: this is no git checkout: set SOURCE_DATE_EPOCH .*\n\Z")

    def test_what_works_on_the_files_that_git_knows_says_so(self):
        for command in ["format", "lint"]:
            with self.subTest(command):
                result = self.dev(command)
                self.assertEqual(result.returncode, 1)
                self.assertRegex(result.stderr, r"\Adev: this is no git checkout, .*\n\Z")


if __name__ == "__main__":
    unittest.main()
