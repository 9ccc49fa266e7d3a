#!/usr/bin/python3
"""Counting test results: what is skipped has to be listed."""

import json
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "cmake" / "dev"))
import results  # noqa: E402

LIST = """# Heading
12 13 | windows | Suite.Skipped | a reason
13 | windows | Suite.Newer | another reason
"""


class ListedSkips(unittest.TestCase):
    def listed(self, system):
        with tempfile.NamedTemporaryFile("w", suffix=".txt") as file:
            file.write(LIST)
            file.flush()
            return results.listed_skips(system, Path(file.name))

    def test_are_those_of_the_system(self):
        self.assertEqual(self.listed("debian 12"), {("windows", "Suite.Skipped"): "a reason"})
        self.assertEqual(len(self.listed("debian 13")), 2)

    def test_are_all_where_nobody_has_looked(self):
        self.assertEqual(len(self.listed("ubuntu 24.04")), 2)

    def test_of_the_project_can_be_read(self):
        for system in ["debian 12", "debian 13"]:
            for reason in results.listed_skips(system).values():
                self.assertTrue(reason)


class CountOfAProgram(unittest.TestCase):
    def count(self, skip):
        tests = [{"name": "Passes", "status": "RUN", "result": "COMPLETED"},
                 {"name": "Skipped", "status": "RUN", "result": "SKIPPED"},
                 {"name": "Fails", "status": "RUN", "result": "COMPLETED",
                  "failures": [{"failure": "why"}]}]
        said = []
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
            json.dump({"testsuites": [{"name": "Suite", "testsuite": tests}]}, file)
            file.flush()
            count = results.count_program(Path(file.name), "fail", "", said.append, skip)
        self.assertEqual(len(said), 1)
        return count.line()

    def test_has_a_listed_skip_as_one(self):
        self.assertEqual(self.count(lambda test: test == "Suite.Skipped"),
                         "1 passed, 1 failed, 1 skipped")

    def test_has_any_other_skip_as_a_failure(self):
        self.assertEqual(self.count(lambda test: False), "1 passed, 2 failed")

    def test_has_a_program_without_results_as_one_failure(self):
        count = results.count_program(Path("/nowhere.json"), "fail", "", lambda text: None, None)
        self.assertEqual(count.line(), "0 passed, 1 failed")


if __name__ == "__main__":
    unittest.main()
