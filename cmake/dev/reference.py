#!/usr/bin/env python3
"""Makes the program's reference from the program's own help: reference.py [--check] FILE README

Writes FILE from --help and every command's --help, and the exit codes between two marks in README.
With --check it compares instead: it prints the differences and ends with 1 if there are any.
Environment: CSU_BUILD, CSU_WINE.

Help consists of blocks with empty lines between them. A block whose first line ends with a colon has
a title (Options:, Examples:, ...). An indented line is a term, two blanks and its meaning, or
continues the line before it.
"""

import difflib
import os
import re
import subprocess
import sys
from collections import defaultdict
from dataclasses import dataclass, field
from pathlib import Path

PROGRAM = "certstoreupdate"
ENTRY = re.compile(r" {1,4}(?P<term>\S.*?)(?: {2,}(?P<meaning>.*))?")
# Titles whose entries are options.
NO_OPTIONS = {"Usage", "Commands", "Arguments", "Environment", "Exit codes", "Examples"}


def help_of(*arguments):
    program = Path(os.environ["CSU_BUILD"]) / "bin" / f"{PROGRAM}.exe"
    wine = os.environ.get("CSU_WINE")
    output = subprocess.run([*([wine] if wine else []), str(program), *arguments, "--help"],
                            check=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE).stdout
    return output.decode().replace("\r\n", "\n")


@dataclass
class Block:
    """The lines between two empty lines."""
    title: str = ""
    text: list = field(default_factory=list)     # lines that are not indented
    lines: list = field(default_factory=list)    # those that are, as they stand
    entries: list = field(default_factory=list)  # and as (term, meaning)


def read_block(lines):
    block = Block()
    title = re.fullmatch(r"([A-Z][\w ]*):", lines[0])
    if title and len(lines) > 1 and lines[1].startswith(" "):
        block.title = title[1]
        lines = lines[1:]
    for line in lines:
        if not line.startswith(" "):
            block.text.append(line)
            continue
        block.lines.append(line)
        entry = ENTRY.fullmatch(line)
        if entry:
            block.entries.append((entry["term"], entry["meaning"] or ""))
        elif block.entries:
            term, meaning = block.entries.pop()
            block.entries.append((term, f"{meaning} {line.strip()}".strip()))
    return block


class Help:
    def __init__(self, *arguments):
        parts = re.split(r"\n{2,}", help_of(*arguments).strip("\n"))
        blocks = [read_block(part.split("\n")) for part in parts]
        self.summary = blocks[0].text
        usage = next(line for block in blocks for line in block.text if line.startswith("Usage: "))
        self.usage = usage.removeprefix("Usage: ")
        self.titled = {block.title: block for block in blocks if block.title}
        self.details = [block for block in blocks[1:]
                        if not block.title and not block.text[:1] == [usage]]

    def options(self):
        """The groups of options by title: (term, meaning) each."""
        return {title: block.entries for title, block in self.titled.items()
                if title not in NO_OPTIONS}

    def entries(self, title):
        return self.titled[title].entries if title in self.titled else []


# --- Markdown ---------------------------------------------------------------------------------

def marked(text):
    """Prose with options as code and names of documents as links."""
    text = re.sub(r"([\\`*_<>|])", r"\\\1", text)
    text = re.sub(rf'"({PROGRAM} [^"]*)"', r"`\1`", text)
    text = re.sub(r"(?<![\w`-])(--[a-z][a-z-]*)(?![^`]*`)", r"`\1`", text)
    return re.sub(r"\bdocs/([\w-]+\.md)", r"[\1](\1)", text)


def sentence(text):
    text = marked(text)
    return text[:1].upper() + text[1:] + ("" if text.endswith(".") else ".")


def code_block(lines):
    return ["```", *lines, "```", ""]


def code(term):
    return "`" + term.replace("|", r"\|") + "`"


def table(headings, rows):
    rows = [headings, ["---"] * len(headings), *rows]
    return ["| " + " | ".join(cells) + " |" for cells in rows] + [""]


def option_table(entries, heading="Option"):
    return table([heading, "Meaning"],
                 [[code(term), sentence(meaning)] for term, meaning in entries])


def bullets(entries):
    return [f"- **{term}**: {marked(meaning)}" for term, meaning in entries] + [""]


def prose(blocks):
    lines = []
    for block in blocks:
        lines += [marked(line) for line in block.text]
        if block.text:
            lines.append("")
        if block.entries:
            lines += bullets(block.entries)
    return lines


def anchor(title):
    return title.lower().replace(" ", "-")


# --- the document -----------------------------------------------------------------------------

class Reference:
    def __init__(self):
        self.main = Help()
        self.commands = {name: Help(name) for name, _ in self.main.entries("Commands")}
        self.shared = self.shared_options()
        self.shared_details = self.details_of_shared_options()

    def shared_options(self):
        """Groups of options that several commands have: the entries that most of them show, and the
        commands that do."""
        variants = defaultdict(lambda: defaultdict(list))
        for name, command in self.commands.items():
            for title, entries in command.options().items():
                variants[title][tuple(entries)].append(name)
        most = {title: max(by_entries.items(), key=lambda variant: len(variant[1]))
                for title, by_entries in variants.items() if title != "Options"}
        return {title: (list(entries), names) for title, (entries, names) in most.items()
                if len(names) > 1}

    def details_of_shared_options(self):
        """Paragraphs that all commands of such a group have and no others, by the group's title."""
        commands_of = defaultdict(list)
        for name, command in self.commands.items():
            for block in command.details:
                commands_of[tuple(block.text)].append(name)
        return {title: [text for text, users in commands_of.items() if users == names]
                for title, (_, names) in self.shared.items()}

    def lines(self):
        return [
            "<!-- Made from the program's own help by ./dev docs: change that, not this. -->", "",
            f"# {PROGRAM}", "",
            "## Name", "", f"`{PROGRAM}`: {self.purpose()}", "",
            "## Synopsis", "", *code_block(command.usage for command in self.commands.values()),
            "## Description", "",
            *(marked(line) for line in self.main.summary), "", *prose(self.main.details),
            *table(["Command", "What it does"],
                   [[f"[{name}](#{anchor(name)})", sentence(meaning)]
                    for name, meaning in self.main.entries("Commands")]),
            *option_table(self.main.entries("Options")),
            "## Commands", "",
            *(line for name in self.commands for line in self.command(name)),
            "## Options of several commands", "", *self.options_of_several(),
            "## Environment", "",
            *table(["Variable", "Meaning"], [[code(name), sentence(meaning)] for name, meaning
                                             in self.main.entries("Environment")]),
            "## Exit status", "", *self.exit_codes(),
        ]

    def exit_codes(self):
        return table(["Code", "Meaning"], [[number, sentence(meaning)] for number, meaning
                                           in self.main.entries("Exit codes")])

    def purpose(self):
        """The summary up to its first comma."""
        purpose = " ".join(self.main.summary).split(", ")[0]
        return marked(purpose[:1].lower() + purpose[1:])

    def command(self, name):
        command = self.commands[name]
        told_elsewhere = {text for title in command.options()
                          for text in self.shared_details.get(title, [])}
        lines = [f"### {name}", "", *code_block([command.usage]),
                 sentence(" ".join(command.summary)), ""]
        lines += prose(block for block in command.details
                       if tuple(block.text) not in told_elsewhere)
        if command.entries("Arguments"):
            lines += option_table(command.entries("Arguments"), "Argument")
        lines += self.own_options(command)
        if command.entries("Examples"):
            lines += ["Examples:", ""]
            lines += code_block(line.strip() for line in command.titled["Examples"].lines)
        return lines

    def own_options(self, command):
        general = self.main.entries("Options")
        own, elsewhere = [], []
        for title, entries in command.options().items():
            if title in self.shared and self.shared[title][0] == entries:
                elsewhere.append(f"[{title.lower()}](#{anchor(title)})")
            else:
                own += [entry for entry in entries if entry not in general]
        lines = option_table(own) if own else []
        if elsewhere:
            lines += [f"{'Further options' if own else 'Options'}: {', '.join(elsewhere)}.", ""]
        return lines

    def options_of_several(self):
        lines = []
        for title, (entries, names) in self.shared.items():
            users = ", ".join(f"[{name}](#{anchor(name)})" for name in names)
            lines += [f"### {title}", "", f"Of {users}.", "", *option_table(entries)]
            for text in self.shared_details[title]:
                lines += [*(marked(line) for line in text), ""]
        return lines


BEGIN = "<!-- exit codes, from the program's own help by ./dev docs -->\n"
END = "<!-- end of exit codes -->\n"


def with_exit_codes(readme, reference):
    before, rest = readme.split(BEGIN)
    behind = rest.split(END)[1]
    return before + BEGIN + "\n".join(["", *reference.exit_codes()]) + "\n" + END + behind


def main(arguments):
    check = arguments[:1] == ["--check"]
    file, readme = (Path(name) for name in arguments[check:])
    reference = Reference()
    there = {path: path.read_text(encoding="utf-8") if path.exists() else ""
             for path in (file, readme)}
    made = {file: "\n".join(reference.lines()).rstrip("\n") + "\n",
            readme: with_exit_codes(there[readme], reference)}
    if not check:
        for path, text in made.items():
            path.write_text(text, encoding="utf-8")
        return 0
    for path, text in made.items():
        sys.stdout.writelines(difflib.unified_diff(
            there[path].splitlines(keepends=True), text.splitlines(keepends=True),
            str(path), "what ./dev docs would write"))
    return 0 if there == made else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
