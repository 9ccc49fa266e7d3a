#!/usr/bin/python3
"""The program on a terminal: the PIN prompt.

Needs the environment that certstoreupdater_add_script_test gives.
"""

import os
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "support" / "terminal"))
from terminal import BACKSPACE, INTERRUPT, Terminal  # noqa: E402

PROGRAMS = Path(os.environ["CSU_BUILD"]) / "bin"
WINE = os.environ["CSU_WINE"]

CSP = "Terminal Test CSP"
STORE = f"CSU-Terminal-{os.getpid()}"


def windows_path(path):
    return f"Z:{path}"


def windows_program(name, *arguments):
    return [WINE, str(PROGRAMS / f"{name}.exe"), *arguments]


class TerminalTest(unittest.TestCase):
    """A scripted token, and a store that is gone afterwards."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="csu-terminal-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.addCleanup(self.erase_store)
        self.script = ["slot pin=1234", f"record {windows_path(self.folder / 'calls')}"]

    @staticmethod
    def erase_store():
        with Terminal(windows_program("showstore", "erase", STORE)) as terminal:
            terminal.wait_for_end()

    def updater(self, command, *options, columns=80, environment=None):
        """The program with the token, on a terminal."""
        script = self.folder / "token.script"
        script.write_text("\n".join(self.script) + "\n")
        return Terminal(
            windows_program(
                "winecompat-launcher", str(PROGRAMS / "certstoreupdate.exe"), command,
                "--module", windows_path(PROGRAMS / "faketoken.dll"),
                "--csp", CSP, "--store", STORE, *options),
            columns=columns,
            environment={"FAKETOKEN_SCRIPT": windows_path(script), "NO_COLOR": None,
                         **(environment or {})})

    def calls(self):
        """The names of the calls that the token received, each with its answer."""
        return (self.folder / "calls").read_text().splitlines()


class PinPrompt(TerminalTest):
    def answer(self, terminal, keys):
        terminal.wait_for("PIN: ")
        terminal.wait_for_raw_input()
        terminal.type(keys)

    def test_takes_the_pin_that_is_typed(self):
        with self.updater("status") as terminal:
            self.answer(terminal, "1234\n")
            self.assertEqual(terminal.wait_for_end(), 0)
        self.assertIn("C_Login 0", self.calls())

    def test_shows_nothing_of_what_is_typed(self):
        with self.updater("status") as terminal:
            self.answer(terminal, "@#%&\n")
            self.assertEqual(terminal.wait_for_end(), 5)
            self.assertEqual(terminal.lines()[0].text, "PIN:")
            for key in "@#%&*":
                self.assertNotIn(key, terminal.text())
        self.assertIn("C_Login 160", self.calls())

    def test_takes_back_what_is_erased(self):
        with self.updater("status") as terminal:
            self.answer(terminal, f"99{BACKSPACE * 2}1239{BACKSPACE}4\n")
            self.assertEqual(terminal.wait_for_end(), 0)

    def test_does_not_ask_the_token_if_nothing_is_typed(self):
        with self.updater("status") as terminal:
            self.answer(terminal, "\n")
            self.assertEqual(terminal.wait_for_end(), 2)
            self.assertIn("the token was not asked", terminal.text().replace("\n", ""))
        self.assertNotIn("C_Login", " ".join(self.calls()))

    def test_ends_without_asking_the_token_when_interrupted(self):
        with self.updater("status") as terminal:
            self.answer(terminal, "1234" + INTERRUPT)
            self.assertNotEqual(terminal.wait_for_end(), 0)
            self.assertEqual(terminal.text(), "PIN:")
        self.assertNotIn("C_Login", " ".join(self.calls()))


if __name__ == "__main__":
    unittest.main()
