#!/usr/bin/python3
"""Draws what record.py has kept: picture.py PICTURE.svg TITLE SCREEN...

The same screens give the same bytes. The picture needs nothing from outside; its text is set in
whatever fixed-width font there is.
"""

import io
import json
import re
import sys
from pathlib import Path

from rich.console import Console
from rich.style import Style
from rich.terminal_theme import TerminalTheme
from rich.text import Text

THEME = TerminalTheme(
    background=(22, 27, 34),
    foreground=(230, 237, 243),
    normal=[(72, 79, 88), (255, 123, 114), (63, 185, 80), (210, 153, 34),
            (88, 166, 255), (188, 140, 255), (57, 197, 207), (177, 186, 196)],
    bright=[(139, 148, 158), (255, 123, 114), (86, 211, 100), (227, 179, 65),
            (121, 192, 255), (210, 168, 255), (86, 212, 221), (255, 255, 255)])

TEMPLATE = """\
<svg viewBox="0 0 {width} {height}" xmlns="http://www.w3.org/2000/svg">
<style>
.{unique_id}-matrix {{
  font-family: ui-monospace, Consolas, Menlo, "DejaVu Sans Mono", monospace;
  font-size: {char_height}px;
  line-height: {line_height}px;
}}
.{unique_id}-title {{ font: bold 18px sans-serif; }}
{styles}
</style>
<defs>
<clipPath id="{unique_id}-clip-terminal">
<rect x="0" y="0" width="{terminal_width}" height="{terminal_height}"/>
</clipPath>
{lines}
</defs>
{chrome}
<g transform="translate({terminal_x}, {terminal_y})" clip-path="url(#{unique_id}-clip-terminal)">
{backgrounds}
<g class="{unique_id}-matrix" xml:space="preserve">
{matrix}
</g>
</g>
</svg>
"""


def colour(name):
    if name == "default":
        return None
    if re.fullmatch("[0-9a-f]{6}", name):
        return f"#{name}"
    return name.replace("bright", "bright_")


def style(look):
    return Style(color=colour(look["foreground"]), bgcolor=colour(look["background"]),
                 bold=look["bold"], underline=look["underlined"], reverse=look["reversed"])


def lines_of(screens):
    """A prompt with the command, and what it printed, for each screen."""
    for number, screen in enumerate(screens):
        if number:
            yield Text("")
        yield Text.assemble(("> ", "bright_black"), (screen["title"], "bold"))
        for runs in screen["lines"]:
            yield Text.assemble(*((run["text"], style(run["style"])) for run in runs))


def draw(title, screens, unique_id):
    console = Console(record=True, file=io.StringIO(), width=screens[0]["columns"],
                      force_terminal=True, color_system="truecolor", _environ={})
    for line in lines_of(screens):
        console.print(line, no_wrap=True)
    svg = console.export_svg(title=title, theme=THEME, code_format=TEMPLATE,
                             font_aspect_ratio=0.6, unique_id=unique_id)
    return "\n".join(line.strip() for line in svg.splitlines() if line.strip()) + "\n"


def main(picture, title, *files):
    screens = [json.loads(Path(file).read_text(encoding="utf-8")) for file in files]
    svg = draw(title, screens, Path(picture).stem)
    Path(picture).write_text(svg, encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
