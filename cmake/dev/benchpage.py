"""Writes the page about the benchmark. All its numbers come from the run that wrote it."""

from datetime import date

import charts
from benchrows import CONTENDER, ROWS
from charts import duration, number

HEAD = """# Benchmarks

How fast the library is, beside what people would use instead, measured in one run. This page and its
charts were written by

    ./dev bench

which installs the other libraries, builds everything for release, and measures. On another machine the
times differ; compare the ratios.
"""

HOW = """## How it is measured

- All contenders do the same work on the same input, in one program compiled with `-O2`. The other
  libraries are Debian's packages. The certificates are those in Debian's package `ca-certificates` that
  all libraries accept; they are used in turn, so that no contender reads the same one twice in a row. The
  benchmark refuses to run unless all libraries read the same serial number, validity, KeyUsage and
  BasicConstraints from each certificate, and write the same bytes.
- Times are medians of repetitions, which run in random order among all contenders; the parentheses have
  the middle half of them. Work inside one program is measured in processor time, whole programs by the
  clock.
- Allocations are all calls of `malloc` and its relatives, in any library. Instructions are counted by
  callgrind, so they are the same on every machine with the same packages.
- The ratio is this library's time divided by that of the fastest other; below 1 is faster.
- The program starts a second thread before it measures, because without one the standard library's
  shared pointers count without atomic operations. A `wchar_t` has four bytes here and two on Windows.
"""


def sentence(text):
    """With a capital at the beginning; str.capitalize would also turn ASCII into Ascii."""
    return text[:1].upper() + text[1:]


def versions(context):
    names = ["OpenSSL", "GnuTLS", "mbedTLS", "Botan", "NSS", "libksba", "libtasn1"]
    return ", ".join(f"{name} {context[name].split()[0]}" for name in names if name in context)


def cell(sample):
    lower, upper = sample.spread()
    return f"{duration(sample.time())} ({duration(lower)} to {duration(upper)})"


def counts(sample):
    parts = []
    if "allocations" in sample.counters:
        parts.append(number(sample.counters["allocations"]))
    else:
        parts.append("")
    parts.append(f"{sample.instructions:,.0f}" if sample.instructions else "")
    return parts


def ratio_table(rows):
    yield "| work | this library | fastest other | ratio | goal |"
    yield "|---|---|---|---|---|"
    for row, size, ours, rival, theirs, ratio, met in rows:
        goal = row.goal(size)
        verdict = f"{goal}: {'met' if met else '**not met**'}" if goal else ""
        yield (f"| {row.label(size)} | {cell(ours)} | {rival}: {cell(theirs)} | {ratio:.2f} "
               f"| {verdict} |")


def floors(rows):
    """Why goals are missed, of those that are."""
    missed = [(row, size) for row, size, *_, met in rows if row.goal(size) and not met]
    if not missed:
        yield "Every goal is met."
        return
    yield "Why some rows miss their goal:\n"
    for row, size in missed:
        yield f"- {sentence(row.label(size))}: {row.floor or 'not known yet.'}"


def all_contenders(measurements):
    for row in ROWS:
        for size in row.shown_sizes(measurements.sizes(row.work)):
            entries = measurements.contenders(row.work, size)
            if not entries:
                continue
            yield f"\n### {sentence(row.label(size))}\n"
            yield "| who | time | allocations | instructions |"
            yield "|---|---|---|---|"
            for name, sample in entries:
                yield f"| {name} | {cell(sample)} | {' | '.join(counts(sample))} |"


def bar_chart(measurements, group):
    groups = []
    for row in ROWS:
        if row.group != group:
            continue
        for size in row.shown_sizes(measurements.sizes(row.work)):
            entries = measurements.contenders(row.work, size)
            if len(entries) > 1:
                groups.append((row.label(size), [
                    (name, sample.time(), name == CONTENDER) for name, sample in entries]))
    return charts.bars(f"{group}: time, logarithmic", groups) if groups else None


def growth(measurements, row):
    series = {}
    for size in measurements.sizes(row.work):
        for name, sample in measurements.contenders(row.work, size):
            series.setdefault(name, []).append((size, sample.time()))
    return [(name, points) for name, points in series.items() if len(points) > 1]


def memory(context):
    """[(count, contender, bytes for each certificate, bytes of its DER)]"""
    found = []
    for key, value in context.items():
        if key.startswith("memory/"):
            _, contender, count = key.split("/")
            found.append((int(count), contender, *map(int, value.split())))
    return sorted(found)


def memory_section(context):
    yield "## Memory and size\n"
    yield ("What a map of certificates keeps of the heap, for each certificate with an id of 20 bytes "
           "and a label. A block of a buffer has room for half as much again as what it was made for, "
           "and 16 elements more; a `wchar_t` takes four bytes here and two on Windows. The goal is "
           "1.3 times the certificate and 512 bytes.\n")
    yield "| certificates | map | bytes each | certificate | goal |"
    yield "|---|---|---|---|---|"
    for count, contender, used, der in memory(context):
        most = 1.3 * der + 512
        goal = f"{most:,.0f}: {'met' if used <= most else '**not met**'}" if contender == CONTENDER else ""
        yield f"| {count:,} | {contender} | {used:,} | {der:,} | {goal} |"
    if "library size" in context:
        yield f"\nThe DLL has {context['library size'] / 1024:,.0f} KiB without symbols."


def million(measurements):
    yield "## A million certificates\n"
    yield ("What the largest size that was measured leads to, if it goes on as it did between the last "
           "two sizes.\n")
    yield "| work | measured | slope | for 1,000,000 |"
    yield "|---|---|---|---|"
    for row in ROWS:
        sizes = measurements.sizes(row.work)
        if row.axis and "certificates" in row.axis and len(sizes) > 1:
            points = []
            for size in sizes[-2:]:
                entries = measurements.contenders(row.work, size)
                if entries and entries[0][0] == CONTENDER:
                    points.append((size, entries[0][1].time()))
            if len(points) < 2:
                continue
            (_, _), (size, time) = points
            slope = charts.slope(points)
            title = row.title.replace("{size}", "…")
            yield (f"| {title} | {duration(time)} for {size:,} | {slope:.2f} "
                   f"| {duration(time * (1_000_000 / size) ** slope)} |")
    kept = [entry for entry in memory(measurements.context) if entry[1] == CONTENDER]
    if kept:
        count, _, used, _ = kept[-1]
        yield f"| keep the map in memory | {used * count / 2 ** 20:,.0f} MiB for {count:,} | 1.00 | {used * 1e6 / 2 ** 30:,.1f} GiB |"


def write_page(docs, measurements, rows, machine, seconds):
    images = docs / "images"
    page = [HEAD]
    page.append(f"Measured on {date.today().isoformat()}: {machine}. {versions(measurements.context)}. "
                f"The measurements took {seconds / 60:.0f} minutes.\n")
    page.append("## Ratios\n")
    page.extend(ratio_table(rows))
    page.append("")
    page.extend(floors(rows))
    page.append("\n## Charts\n")
    for group in dict.fromkeys(row.group for row in ROWS):
        if chart := bar_chart(measurements, group):
            file = f"bench-{group.lower().replace(' ', '-')}.svg"
            (images / file).write_text(chart)
            page.append(f"![{group}](images/{file})\n")
    page.append("## How it grows\n")
    page.append("Both scales are logarithmic; a slope of 1 is growth in proportion, 2 is quadratic, 0 none.\n")
    for row in ROWS:
        if row.axis and (series := growth(measurements, row)):
            title = row.title.replace("{size}", "…")
            file = f"bench-growth-{row.work}.svg"
            (images / file).write_text(charts.lines(title, row.axis, series))
            page.append(f"### {sentence(title)}\n\n![{title}](images/{file})\n")
    page.extend(million(measurements))
    page.append("")
    page.extend(memory_section(measurements.context))
    page.append("")
    page.append(HOW)
    page.append("## All contenders")
    page.extend(all_contenders(measurements))
    (docs / "benchmarks.md").write_text("\n".join(page).rstrip() + "\n")
