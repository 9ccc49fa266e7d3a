#!/usr/bin/python3
"""The program on a terminal: the PIN prompt, tables and colours.

Needs the environment that certstoreupdater_add_script_test gives.
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest
import uuid
from pathlib import Path

from wcwidth import wcswidth, wcwidth

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "support" / "terminal"))
from terminal import BACKSPACE, INTERRUPT, Terminal  # noqa: E402

PROGRAMS = Path(os.environ["CSU_BUILD"]) / "bin"
WINE = os.environ["CSU_WINE"]

# One that is installed, so that there is no warning.
CSP = "Microsoft Enhanced Cryptographic Provider v1.0"
STORE = f"CSU-Terminal-{uuid.uuid4()}"


def windows_path(path):
    return f"Z:{path}"


def windows_program(name, *arguments, redirection=""):
    # Ctrl-C is for the program: were what starts it to end, the program would be hung up.
    return ["/bin/sh", "-c", f"trap '' INT; exec \"$@\" {redirection}", "sh",
            WINE, str(PROGRAMS / f"{name}.exe"), *arguments]


def without_blanks(text):
    return "".join(text.split())


class TerminalTest(unittest.TestCase):
    """A scripted token, and a store that is gone afterwards."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="csu-terminal-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.addCleanup(self.erase_store)
        self.script = ["slot pin=1234", f"record {windows_path(self.folder / 'calls')}"]

    def put_certificate(self, container, label, subject, has_key=True, options=()):
        """A certificate on the token; the subject is as openssl wants it."""
        file = self.folder / f"{container}.der"
        subprocess.run(["openssl", "req", "-x509", "-utf8", "-subj", subject, "-days", "3650",
                        "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                        "-keyout", "/dev/null", "-outform", "DER", "-out", str(file), *options],
                       check=True, capture_output=True)
        label = label.replace(" ", "%20")
        self.script.append(f"certificate value=@{windows_path(file)} id={container} label={label}")
        if has_key:
            self.script.append(f"key id={container}")

    def put_many_certificates(self, count):
        """So many with keys, which differ in their serial numbers only."""
        self.put_certificate("00", "Signature", "/CN=Somebody",
                             options=["-set_serial", "0x" + 20 * "41"])
        del self.script[-2:]
        one = (self.folder / "00.der").read_bytes()
        # Behind the version: an INTEGER of twenty octets.
        at = one.index(b"\x02\x01\x02\x02\x14") + 5 + 18
        for number in range(count):
            id = f"{number:04X}"
            value = one[:at] + bytes.fromhex(id) + one[at + 2:]
            self.script += [f"certificate value={value.hex()} id={id}", f"key id={id}"]

    @staticmethod
    def erase_store():
        with Terminal(windows_program("showstore", "erase", STORE)) as terminal:
            terminal.wait_for_end()

    def updater(self, command, *options, columns=80, environment=None, redirection="", echo=True):
        """The program with the token, on a terminal."""
        script = self.folder / "token.script"
        script.write_text("\n".join(self.script) + "\n")
        return Terminal(
            windows_program(
                "winecompat-launcher", str(PROGRAMS / "certstoreupdate.exe"), command,
                "--module", windows_path(PROGRAMS / "faketoken.dll"), "--allow-unsigned-module",
                "--csp", CSP, "--store", STORE, *options,
                redirection=redirection),
            columns=columns,
            echo=echo,
            environment={"FAKETOKEN_SCRIPT": windows_path(script), "NO_COLOR": None,
                         "TEST_PIN": "1234", **(environment or {})})

    def shown(self, command, **options):
        """What a command shows that is given the PIN in a variable."""
        with self.updater(command, "--pin-env", "TEST_PIN", **options) as terminal:
            terminal.wait_for_end()
            return terminal.lines()

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

    def test_does_not_ask_the_token_if_what_is_typed_is_too_long_for_a_pin(self):
        for length in [256, 300]:
            with self.subTest(length), self.updater("status") as terminal:
                self.answer(terminal, "@" * length + "\n")
                self.assertEqual(terminal.wait_for_end(), 2)
                shown = terminal.text().replace("\n", "")
                self.assertIn("too long to be a PIN; the token was not asked", shown)
                self.assertNotIn("@", shown)
        self.assertNotIn("C_Login", " ".join(self.calls()))

    def test_does_not_ask_the_token_if_nothing_is_typed(self):
        with self.updater("status") as terminal:
            self.answer(terminal, "\n")
            self.assertEqual(terminal.wait_for_end(), 2)
            self.assertIn("the token was not asked", terminal.text().replace("\n", ""))
        self.assertNotIn("C_Login", " ".join(self.calls()))

    def test_ends_without_asking_the_token_when_interrupted(self):
        with self.updater("status") as terminal:
            self.answer(terminal, "1234" + INTERRUPT)
            terminal.wait_for_end()
            self.assertEqual(terminal.text(), "PIN:")
        self.assertNotIn("C_Login", " ".join(self.calls()))


def cells(line):
    """The line's characters by their columns; behind a character of two columns is an empty one."""
    return [cell for character in line.text
            for cell in [character, ""][:wcwidth(character)]]


def read_table(lines):
    """The rows of a table whose cells are broken into lines, without blanks; headings first."""
    # Headings can be broken, too; each is here by how it begins.
    starts = [re.search(rf"\b{heading}\b", lines[0].text).start()
              for heading in ["STATE", "CONTAINER", "CLASS", "FRIENDLY", "ON", "IN"]]
    rows = []
    for line in lines:
        characters = cells(line)
        pieces = [without_blanks("".join(characters[start:end]))
                  for start, end in zip(starts, starts[1:] + [len(characters)])]
        if pieces[0]:
            rows.append(pieces)
        else:
            rows[-1] = [cell + piece for cell, piece in zip(rows[-1], pieces)]
    return rows


class Tables(TerminalTest):
    def setUp(self):
        super().setUp()
        self.put_certificate(
            "01A2FF", "Signature",
            "/C=DE/O=An organisation/OU=Department of long names/CN=Somebody with a long name")
        self.put_certificate("02B3", "鍵と証明書", "/O=組織/CN=証明書の名前はとても長いのです")
        self.put_certificate(
            "0405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F", "Root", "/CN=A root",
            has_key=False)

    def expect_whole_table_in(self, columns):
        lines = self.shown("status", columns=columns)
        for line in lines:
            self.assertLess(wcswidth(line.text), columns)
        dates = r"\d{4}-\d\d-\d\dto\d{4}-\d\d-\d\d"
        expected = [
            ("STATE", "CONTAINER", "CLASS", "FRIENDLYNAME", "ONTHETOKEN", "INTHESTORE"),
            ("missing", "CKAIDHEX:01A2FF", "self-signed", "Signature",
             "CN=Somebodywithalongname,OU=Departmentoflongnames,O=Anorganisation,C=DE," + dates,
             "-"),
            ("missing", "CKAIDHEX:02B3", "self-signed", "鍵と証明書",
             "CN=証明書の名前はとても長いのです,O=組織," + dates, "-"),
            ("tokenonly", "CKAIDHEX:0405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F",
             "self-signed", "Root", "CN=Aroot," + dates, "-"),
        ]
        rows = read_table(lines)
        self.assertEqual(len(rows), len(expected), rows)
        for row, cells_of_row in zip(rows, expected):
            for cell, expression in zip(row, cells_of_row):
                self.assertRegex(cell, f"^{expression}$")

    def test_fit_into_80_columns_with_all_that_they_say(self):
        self.expect_whole_table_in(80)

    def test_fit_into_120_columns_with_all_that_they_say(self):
        self.expect_whole_table_in(120)

    def test_take_a_line_for_each_row_if_there_is_room(self):
        self.assertEqual(len(self.shown("status", columns=300)), 4)


class Interruption(TerminalTest):
    def test_ends_a_watch_in_order(self):
        self.put_certificate("01", "Signature", "/CN=Somebody")
        with self.updater("watch", "--pin-env", "TEST_PIN") as terminal:
            terminal.wait_for("added")
            terminal.type(INTERRUPT)
            self.assertEqual(terminal.wait_for_end(), 0)
            self.assertIn("stopped", terminal.text())
        self.assertEqual(self.calls()[-1], "C_Finalize 0")


class Progress(TerminalTest):
    BAR = re.compile(r"0% +10 +20 .* 100%\n\|-.*-\|\n\*+")
    STEPS = 60

    def setUp(self):
        super().setUp()
        self.put_many_certificates(self.STEPS)

    def sync(self, environment=None, **options):
        """Messages alone, as the bar is one; the table would move it out of sight."""
        return self.updater("sync", "--pin-env", "TEST_PIN", redirection=">/dev/null",
                            environment={"CSU_SLOW_STORE": "1", **(environment or {})}, **options)

    def test_is_shown_where_work_takes_longer_than_a_moment(self):
        with self.sync() as terminal:
            self.assertEqual(terminal.wait_for_end(), 0)
            self.assertRegex(terminal.text(), self.BAR)
            self.assertEqual(terminal.text().count("*"), 51, "full")

    def test_is_not_shown_if_nobody_wants_more_than_text(self):
        with self.sync(environment={"NO_COLOR": "1"}) as terminal:
            self.assertEqual(terminal.wait_for_end(), 0)
            self.assertEqual(terminal.text(), "")

    def test_ends_its_line_when_it_is_broken_off(self):
        # What the terminal itself shows of a Ctrl-C would stand in the bar.
        with self.sync(environment={"CSU_STORE_WAITS_AT": str(self.STEPS // 2)},
                       echo=False) as terminal:
            terminal.wait_for("*")
            terminal.type(INTERRUPT)
            self.assertEqual(terminal.wait_for_end(), 11)
            self.assertRegex(terminal.text(), self.BAR)
            self.assertLess(terminal.text().count("*"), 51)
            self.assertRegex(terminal.text(), r"\*\n+certstoreupdate: interrupted;")


class StandardOutput(TerminalTest):
    def test_that_takes_nothing_ends_a_command_with_1(self):
        self.put_certificate("01", "Signature", "/CN=Somebody")
        for command in ["status", "sync", "watch"]:
            with self.subTest(command), self.updater(
                    command, "--pin-env", "TEST_PIN", redirection=">/dev/full") as terminal:
                self.assertEqual(terminal.wait_for_end(), 1)
                self.assertIn("standard output cannot be written", terminal.text())


class Colours(TerminalTest):
    def setUp(self):
        super().setUp()
        self.put_certificate("01", "Signature", "/CN=Somebody")
        self.put_certificate("02", "Root", "/CN=A root", has_key=False)

    def colours(self, lines):
        """The colour of every text that does not have the terminal's own."""
        for line in lines:
            for run in line.runs:
                self.assertEqual((run.style.background, run.style.bold), ("default", False))
        return {run.text.strip(): run.style.foreground for line in lines for run in line.runs
                if run.style.foreground != "default"}

    def test_tell_the_states_apart(self):
        before = self.colours(self.shown("status", columns=120))
        self.assertEqual(before["missing"], "yellow")
        self.assertEqual(before["token only"], "brightblack")
        self.assertEqual(self.colours(self.shown("sync"))["added"], "green")
        self.assertEqual(self.colours(self.shown("status", columns=120))["in step"], "green")

    def test_mark_failures(self):
        shown = self.shown("status", columns=400, environment={"TEST_PIN": "1"})
        (message, colour), = self.colours(shown).items()
        self.assertIn("the token refused the PIN", message)
        self.assertEqual(colour, "brightred")

    def test_are_left_out_if_nobody_wants_them(self):
        plain = {"NO_COLOR": "1"}
        self.assertEqual(self.colours(self.shown("status", columns=120, environment=plain)), {})
        self.assertEqual(self.colours(self.shown("sync", environment=plain)), {})
        self.assertEqual(self.colours(self.shown("status", environment={**plain, "TEST_PIN": "1"})),
                         {})

    def test_do_not_change_what_is_said(self):
        coloured = self.shown("status", columns=120)
        plain = self.shown("status", columns=120, environment={"NO_COLOR": "1"})
        self.assertNotEqual(self.colours(coloured), {})
        self.assertEqual([line.text for line in plain], [line.text for line in coloured])


if __name__ == "__main__":
    unittest.main()
