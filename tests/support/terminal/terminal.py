"""A terminal for programs: what a person would see of them and could type to them.

    with Terminal(["./program"], columns=80) as terminal:
        terminal.wait_for("Name: ")
        terminal.type("somebody\n")
        code = terminal.wait_for_end()
        for line in terminal.lines():
            print(line.text)

The program has a pseudo terminal as its controlling terminal and standard streams; what it writes
goes through a terminal emulator, so that moves of the cursor and colours are what they are on a
screen. Nothing waits for a time to pass: every wait ends with what it waits for, or fails when the
terminal's patience is over.
"""

import fcntl
import os
import pty
import select
import signal
import struct
import termios
import time
from dataclasses import dataclass
from itertools import groupby

import pyte

INTERRUPT = "\x03"
BACKSPACE = "\x7f"


@dataclass(frozen=True)
class Style:
    """How characters look. A colour is "default", one of the sixteen (red, brightred, ...) or six
    hexadecimal digits."""
    foreground: str = "default"
    background: str = "default"
    bold: bool = False
    underlined: bool = False
    reversed: bool = False


PLAIN = Style()


@dataclass(frozen=True)
class Run:
    """Neighbouring characters of one style."""
    text: str
    style: Style = PLAIN


class Line:
    """A line of the screen, without the blanks behind its text."""

    def __init__(self, cells):
        runs = [Run("".join(text for text, _ in group), style)
                for style, group in groupby(cells, key=lambda cell: cell[1])]
        if runs and runs[-1].style == PLAIN:
            last = runs.pop().text.rstrip()
            runs += [Run(last)] if last else []
        self.runs = runs

    @property
    def text(self):
        return "".join(run.text for run in self.runs).rstrip()


def _style(cell):
    return Style(cell.fg, cell.bg, cell.bold, cell.underscore, cell.reverse)


class _Screen(pyte.HistoryScreen):
    """Tells bright colours from bold characters, which the emulator takes for the same."""

    _places = {3: "fg", 4: "bg", 9: "fg", 10: "bg"}
    _names = ("black", "red", "green", "yellow", "blue", "magenta", "cyan", "white")

    def select_graphic_rendition(self, *codes):
        if 38 in codes or 48 in codes:  # what follows these are no codes
            super().select_graphic_rendition(*codes)
            return
        for code in codes or (0,):
            if code // 10 in self._places and code % 10 < 8:
                name = ("bright" if code >= 90 else "") + self._names[code % 10]
                colour = {self._places[code // 10]: name}
                self.cursor.attrs = self.cursor.attrs._replace(**colour)
            else:
                super().select_graphic_rendition(code)


class Terminal:
    """Runs a program on a terminal of its own and ends it when the block is left.

    rows is the height that the program sees. patience is how many seconds a wait may take.
    environment holds variables that differ from this process's; None takes one away. Without echo
    the terminal shows nothing of what is typed, whatever the program wants.
    """

    def __init__(self, command, columns=80, rows=25, patience=300, environment=None, echo=True):
        self._command = command
        self._screen = _Screen(columns, rows, history=100000)
        self._stream = pyte.ByteStream(self._screen)
        self._columns = columns
        self._patience = patience
        self._status = None
        self._open = True
        variables = {**os.environ, "TERM": "xterm-256color", **(environment or {})}
        variables = {name: value for name, value in variables.items() if value is not None}
        self._process, self._terminal = pty.fork()
        if self._process == 0:
            self._become(command, columns, rows, variables)
        if not echo:
            modes = termios.tcgetattr(self._terminal)
            modes[3] &= ~termios.ECHO
            termios.tcsetattr(self._terminal, termios.TCSANOW, modes)
        # Every read begins with a byte that is not 0 if it tells of a change of the terminal's mode.
        fcntl.ioctl(self._terminal, termios.TIOCPKT, struct.pack("i", 1))

    @staticmethod
    def _become(command, columns, rows, variables):
        try:
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
            os.execvpe(command[0], command, variables)
        except OSError as error:
            os.write(2, f"{command[0]}: {error.strerror}\n".encode())
        finally:
            os._exit(127)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self._status is None:
            try:
                os.killpg(self._process, signal.SIGKILL)
            except ProcessLookupError:
                # It is so young that it has no group of its own yet.
                os.kill(self._process, signal.SIGKILL)
            os.waitpid(self._process, 0)
        os.close(self._terminal)

    def type(self, text):
        """Presses the keys; "\\n" is the enter key, INTERRUPT is Ctrl-C."""
        data = text.replace("\n", "\r").encode()
        while data:
            data = data[os.write(self._terminal, data):]

    def wait_for(self, text):
        """Returns when the text stands in a line of the screen or above it."""
        deadline = time.monotonic() + self._patience
        while not any(text in self._padded(row) for row in self._rows()):
            if not self._read(deadline):
                raise AssertionError(f"the program ended without {text!r}:\n{self.text()}")

    def wait_for_raw_input(self):
        """Returns when the program reads keys itself, so that the terminal shows none.

        What is typed before is shown by the terminal, whatever the program wants.
        """
        deadline = time.monotonic() + self._patience
        while termios.tcgetattr(self._terminal)[3] & (termios.ECHO | termios.ICANON):
            if not self._read(deadline):
                raise AssertionError(f"the program ended without reading keys:\n{self.text()}")

    def wait_for_end(self):
        """Waits until the program has ended and all that it wrote is on the screen.

        Returns its exit code, or the negated number of the signal that ended it.
        """
        deadline = time.monotonic() + self._patience
        while self._read(deadline):
            pass
        if self._status is None:
            self._status = os.waitstatus_to_exitcode(os.waitpid(self._process, 0)[1])
        return self._status

    def _read(self, deadline):
        """Takes what happens next on the terminal; False when nobody can write to it any more."""
        if not self._open:
            return False
        left = deadline - time.monotonic()
        if left <= 0 or not select.select([self._terminal], [], [], left)[0]:
            raise TimeoutError(f"nothing more came from {self._command}:\n{self.text()}")
        try:
            data = os.read(self._terminal, 65536)
        except OSError:  # how Linux says that the other side is closed
            data = b""
        self._open = bool(data)
        if data[:1] == b"\0":
            self._stream.feed(data[1:])
        return self._open

    def _rows(self):
        """The emulator's cells, from the first line that scrolled away to the last of the screen.

        The cell behind a double-width character is empty.
        """
        yield from self._screen.history.top
        for row in range(self._screen.lines):
            yield self._screen.buffer[row]

    def _padded(self, row):
        return "".join(row[column].data for column in range(self._columns))

    def lines(self):
        """All lines from the first to the last that is not empty, scrolled ones included."""
        lines = [Line([(row[column].data, _style(row[column])) for column in range(self._columns)])
                 for row in self._rows()]
        while lines and not lines[-1].runs:
            lines.pop()
        return lines

    def text(self):
        """The lines as text."""
        return "\n".join(line.text for line in self.lines())
