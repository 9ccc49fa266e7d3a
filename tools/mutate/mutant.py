"""A mutant: the sources with one small mistake."""

import hashlib
import re
from dataclasses import dataclass


def one_line(text):
    """The text without line breaks and indentation, however it was formatted."""
    return re.sub(r"\s+", " ", text).strip()


@dataclass(frozen=True)
class Change:
    """A piece of a file and what replaces it. Positions are in bytes."""
    operator: str
    start: int
    end: int
    text: str       # what is there instead
    shown_start: int  # the expression or statement that people are shown, which the piece lies in
    shown_end: int

    def apply(self, source: bytes):
        """The changed source. Its lines keep their numbers."""
        lines = source[self.start:self.end].count(b"\n") - self.text.count("\n")
        return source[:self.start] + self.text.encode() + b"\n" * lines + source[self.end:]

    def before(self, source: bytes):
        return one_line(source[self.shown_start:self.shown_end].decode())

    def after(self, source: bytes):
        changed = self.apply(source)
        end = self.shown_end + len(changed) - len(source)
        return one_line(changed[self.shown_start:end].decode())


@dataclass(frozen=True)
class Mutant:
    file: str      # relative to the project
    function: str  # the function, variable or class that the change lies in
    line: int
    system: str    # "native" or "windows": where it is compiled
    change: Change
    before: str
    after: str
    number: int    # among those of a function that read alike

    @property
    def key(self):
        """Names it in lists. Has no line numbers, so that changes elsewhere do not matter."""
        number = f" ({self.number})" if self.number > 1 else ""
        return (f"{self.file}: {self.function}: {self.change.operator}: "
                f"{self.before} -> {self.after or 'nothing'}{number}")

    def __str__(self):
        return (f"{self.file}:{self.line}: {self.function}: {self.change.operator}: "
                f"{self.before} -> {self.after or 'nothing'}")

    def rank(self, seed):
        """Its place in the order of a seed, which no other mutant influences. The numbers of tables
        come last: they are many and alike."""
        drawn = hashlib.sha256(f"{seed} {self.key}".encode()).hexdigest()
        return self.change.operator == "table", drawn


def mutants_of(file, system, source, changes):
    """The mutants of a file, from pairs of a function's name and a change, without those that are
    the same as others."""
    found, seen, numbers = [], set(), {}
    for function, change in sorted(changes, key=lambda pair: (pair[1].start, pair[1].end,
                                                              pair[1].operator, pair[1].text)):
        same = change.start, change.end, one_line(change.text)
        if same in seen:
            continue
        seen.add(same)
        before, after = change.before(source), change.after(source)
        reads = function, change.operator, before, after
        numbers[reads] = numbers.get(reads, 0) + 1
        line = source.count(b"\n", 0, change.start) + 1
        found.append(Mutant(file, function, line, system, change, before, after, numbers[reads]))
    return found
