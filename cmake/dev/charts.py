"""Charts as small SVG files, whose text changes only where a number does."""

import math
from html import escape

# Colours that colour-blind people can tell apart too, on light and dark pages.
COLOURS = ["#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00", "#56b4e9", "#8c6d31", "#7f7f7f"]
FONT = "font-family='sans-serif' font-size='12'"
INK = "#808080"


def number(value):
    """A number with three significant digits."""
    if value == 0:
        return "0"
    digits = max(0, 2 - math.floor(math.log10(abs(value))))
    return f"{round(value, digits):,.{min(digits, 3)}f}"


def duration(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{number(nanoseconds / size)} {unit}"
    return f"{number(nanoseconds)} ns"


def text(x, y, content, anchor="start", **attributes):
    more = "".join(f" {name.replace('_', '-')}='{value}'" for name, value in attributes.items())
    return f"<text x='{x:.0f}' y='{y:.0f}' text-anchor='{anchor}' fill='{INK}'{more}>{escape(content)}</text>"


def document(width, height, title, parts):
    return "\n".join([
        f"<svg xmlns='http://www.w3.org/2000/svg' width='{width}' height='{height}' "
        f"viewBox='0 0 {width} {height}' {FONT}>",
        f"<title>{escape(title)}</title>",
        *parts,
        "</svg>", ""])


def bars(title, groups):
    """Groups of horizontal bars on one logarithmic scale.

    groups: [(heading, [(label, nanoseconds, is_ours)])]"""
    left, width, row, gap = 190, 820, 20, 34
    values = [value for _, entries in groups for _, value, _ in entries]
    low = math.floor(math.log10(min(values)))
    high = math.ceil(math.log10(max(values)))
    scale = (width - left - 100) / max(1, high - low)
    y, parts = 24, []
    bottom = y + sum(gap + row * len(entries) for _, entries in groups)
    for decade in range(low, high + 1):
        x = left + (decade - low) * scale
        parts.append(f"<line x1='{x:.0f}' y1='16' x2='{x:.0f}' y2='{bottom}' stroke='{INK}' stroke-opacity='0.25'/>")
        parts.append(text(x, 12, duration(10 ** decade), "middle"))
    for heading, entries in groups:
        parts.append(text(8, y + 16, heading, font_weight="bold"))
        y += gap - 8
        for label, value, is_ours in entries:
            length = max(1, (math.log10(value) - low) * scale)
            colour = COLOURS[0] if is_ours else COLOURS[7]
            parts.append(text(left - 8, y + 13, label, "end"))
            parts.append(f"<rect x='{left}' y='{y + 2}' width='{length:.0f}' height='{row - 5}' fill='{colour}'/>")
            parts.append(text(left + length + 6, y + 13, duration(value)))
            y += row
        y += 8
    return document(width, bottom + 10, title, parts)


def slope(points):
    """The exponent with which values grow: 1 is in proportion, 2 quadratic."""
    logs = [(math.log(x), math.log(y)) for x, y in points if x > 0 and y > 0]
    mean_x = sum(x for x, _ in logs) / len(logs)
    mean_y = sum(y for _, y in logs) / len(logs)
    spread = sum((x - mean_x) ** 2 for x, _ in logs)
    return sum((x - mean_x) * (y - mean_y) for x, y in logs) / spread if spread else 0


def lines(title, axis, series, show=duration):
    """Lines on two logarithmic scales; the legend tells the slope of each.

    series: [(label, [(size, value)])]"""
    left, top, width, height, legend = 80, 20, 820, 380, 270
    xs = [x for _, points in series for x, _ in points]
    ys = [y for _, points in series for _, y in points]
    low_x, high_x = math.log10(min(xs)), math.log10(max(xs))
    low_y, high_y = math.floor(math.log10(min(ys))), math.ceil(math.log10(max(ys)))

    def place(x, y):
        return (left + (math.log10(x) - low_x) / (high_x - low_x or 1) * (width - left - legend),
                height - 50 - (math.log10(y) - low_y) / (high_y - low_y or 1) * (height - 50 - top))

    parts = []
    right = width - legend
    for decade in range(low_y, high_y + 1):
        _, y = place(min(xs), 10 ** decade)
        parts.append(f"<line x1='{left}' y1='{y:.0f}' x2='{right}' y2='{y:.0f}' stroke='{INK}' stroke-opacity='0.25'/>")
        parts.append(text(left - 6, y + 4, show(10 ** decade), "end"))
    for x in sorted(set(xs)):
        at, _ = place(x, 10 ** low_y)
        parts.append(f"<line x1='{at:.0f}' y1='{top}' x2='{at:.0f}' y2='{height - 50}' stroke='{INK}' stroke-opacity='0.15'/>")
        parts.append(text(at, height - 34, f"{x:,}", "middle"))
    parts.append(text((left + right) / 2, height - 12, axis, "middle"))
    for index, (label, points) in enumerate(series):
        colour = COLOURS[index % len(COLOURS)]
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in (place(*point) for point in sorted(points)))
        parts.append(f"<polyline points='{path}' fill='none' stroke='{colour}' stroke-width='2'/>")
        y = top + 10 + 20 * index
        parts.append(f"<rect x='{right + 14}' y='{y - 9}' width='10' height='10' fill='{colour}'/>")
        parts.append(text(right + 30, y, f"{label}: slope {slope(points):.2f}"))
    return document(width, height, title, parts)
