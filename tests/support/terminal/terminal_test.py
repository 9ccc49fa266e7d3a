#!/usr/bin/python3
"""The terminal for tests, with programs of this system."""

import signal
import unittest

from terminal import INTERRUPT, PLAIN, Run, Style, Terminal


def shell(script, **options):
    return Terminal(["/bin/sh", "-c", script], **options)


def shown(script, **options):
    with shell(script, **options) as terminal:
        terminal.wait_for_end()
        return terminal.lines()


class TerminalTest(unittest.TestCase):
    def test_has_the_size_that_it_was_given(self):
        lines = shown("stty size", columns=97, rows=31)
        self.assertEqual([line.text for line in lines], ["31 97"])

    def test_keeps_lines_that_scroll_away(self):
        lines = shown("seq 1000", rows=10)
        self.assertEqual([line.text for line in lines], [str(n) for n in range(1, 1001)])

    def test_breaks_lines_where_the_terminal_ends(self):
        lines = shown("printf 'abcdefg'", columns=4)
        self.assertEqual([line.text for line in lines], ["abcd", "efg"])

    def test_obeys_moves_of_the_cursor(self):
        lines = shown(r"printf 'one\033[1Dx\033[Ky\rO'")
        self.assertEqual([line.text for line in lines], ["Onxy"])

    def test_gives_wide_characters_once(self):
        lines = shown("printf '漢字|'")
        self.assertEqual(lines[0].text, "漢字|")

    def test_tells_the_colours_of_characters(self):
        lines = shown(r"printf 'a\033[1;31mbc\033[0m\033[92md\033[33me\033[0m  '")
        self.assertEqual(lines[0].runs, [
            Run("a", PLAIN),
            Run("bc", Style(foreground="red", bold=True)),
            Run("d", Style(foreground="brightgreen")),
            Run("e", Style(foreground="yellow")),
        ])

    def test_types_to_the_program(self):
        with shell("read line; echo \"<$line>\"") as terminal:
            terminal.type("some words\n")
            self.assertEqual(terminal.wait_for_end(), 0)
            self.assertEqual(terminal.text(), "some words\n<some words>")

    def test_shows_nothing_of_what_is_typed_without_echo(self):
        with shell("read line; echo \"<$line>\"; exec cat", echo=False) as terminal:
            terminal.type("some words\n")
            terminal.wait_for("<some words>")
            terminal.type(INTERRUPT)
            terminal.wait_for_end()
            self.assertEqual(terminal.text(), "<some words>")

    def test_waits_until_the_program_reads_keys_itself(self):
        with shell("stty raw -echo; printf ready; head -c 1 >/dev/null") as terminal:
            terminal.wait_for_raw_input()
            terminal.type("x")
            self.assertEqual(terminal.wait_for_end(), 0)
            self.assertEqual(terminal.text(), "ready")

    def test_interrupts_the_program(self):
        with shell("echo waiting; exec cat") as terminal:
            terminal.wait_for("waiting")
            terminal.type(INTERRUPT)
            self.assertEqual(terminal.wait_for_end(), -signal.SIGINT)

    def test_gives_the_exit_code(self):
        with shell("exit 7") as terminal:
            self.assertEqual(terminal.wait_for_end(), 7)

    def test_tells_what_was_shown_if_the_program_ends_too_early(self):
        with shell("echo something else") as terminal:
            with self.assertRaisesRegex(AssertionError, "something else"):
                terminal.wait_for("this")

    def test_gives_up_on_a_program_that_does_not_end(self):
        with Terminal(["/bin/cat"], patience=0) as terminal:
            self.assertRaises(TimeoutError, terminal.wait_for_end)


if __name__ == "__main__":
    unittest.main()
