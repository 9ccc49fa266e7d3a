#!/usr/bin/python3
"""The page on strictness: compared with the tests' tables, but for what another parser answers."""

import subprocess
import tempfile
import unittest
from pathlib import Path

TOOL = Path(__file__).resolve().parents[2] / "cmake" / "dev" / "strictnesspage.py"

PAGE = """# Title

| rule | clause |
|---|---|
| a rule | 8.1 |

| case | error | OpenSSL 3.0.1 |
|---|---|---|
| a case | mismatch | accepts |
"""
OTHER_PARSER = PAGE.replace("3.0.1", "3.5.2").replace("accepts", "refuses")


class StrictnessPage(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="csu-tools-")
        self.addCleanup(folder.cleanup)
        self.page = Path(folder.name) / "page.md"
        self.generator = Path(folder.name) / "generator"

    def run_tool(self, page, generated, *options):
        self.page.write_text(page)
        self.generator.write_text(f"#!/bin/sh\ncat <<'EOF'\n{generated}EOF\n")
        self.generator.chmod(0o755)
        return subprocess.run(["python3", str(TOOL), *options, str(self.page), str(self.generator)],
                              capture_output=True, text=True).returncode

    def test_is_up_to_date_whatever_version_of_the_other_parser_is_installed(self):
        self.assertEqual(self.run_tool(PAGE, PAGE), 0)
        self.assertEqual(self.run_tool(PAGE, OTHER_PARSER), 0)

    def test_is_not_up_to_date_if_anything_else_differs(self):
        for there, now in [("# Title", "# Other"), ("8.1", "8.2"), ("mismatch", "other error"),
                           ("a case", "another case"), ("| a rule | 8.1 |\n", "")]:
            with self.subTest(there):
                self.assertEqual(self.run_tool(PAGE, OTHER_PARSER.replace(there, now)), 1)

    def test_is_left_alone_by_an_update_that_changes_the_other_parser_only(self):
        self.assertEqual(self.run_tool(PAGE, OTHER_PARSER, "--update"), 0)
        self.assertEqual(self.page.read_text(), PAGE)

    def test_is_replaced_by_an_update_that_changes_more(self):
        changed = OTHER_PARSER.replace("8.1", "8.2")
        self.assertEqual(self.run_tool(PAGE, changed, "--update"), 0)
        self.assertEqual(self.page.read_text(), changed)


if __name__ == "__main__":
    unittest.main()
