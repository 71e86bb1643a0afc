#!/usr/bin/env python3
"""The table and the picture of kernel_bench's results.

Usage: table.py [--markdown] RESULTS.json [PICTURE.svg]

Every figure is the median of its repetitions. "kernel/limit" says how many times the limit's time the kernel takes,
"peer/kernel" how many times the kernel's time the peer takes. Operations with a disk in them come twice: by the time of
day and by processor time.
"""

import collections
import json
import math
import re
import statistics
import sys

UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
OPTIONS = re.compile(r"(/(real_time|manual_time|process_time|(iterations|repeats|min_time):[\d.]+))+$")
TWICE = "save text"  # by the time of day and by processor time


def read_results(path):
    """{operation: {who: nanoseconds}} in the order of the measurements."""
    with open(path, encoding="utf-8") as file:
        runs = json.load(file)["benchmarks"]
    times = collections.defaultdict(lambda: collections.defaultdict(list))
    for run in sorted((run for run in runs if run["run_type"] == "iteration"), key=lambda run: run["family_index"]):
        name = OPTIONS.sub("", run["run_name"])
        operation, who = name.split(" | ")
        unit = UNITS[run["time_unit"]]
        by_day = "/real_time" in run["run_name"] or "/manual_time" in run["run_name"]
        times[operation][who].append(run["real_time" if by_day else "cpu_time"] * unit)
        if operation == TWICE:
            times[operation + ", processor"][who].append(run["cpu_time"] * unit)
    medians = {}
    for operation, by_who in times.items():
        medians[operation] = {who: statistics.median(list_) for who, list_ in by_who.items()}
    return medians


def show_time(nanoseconds):
    for unit, factor in (("ns", 1), ("us", 1e3), ("ms", 1e6)):
        if nanoseconds < 1000 * factor or unit == "ms":
            return f"{nanoseconds / factor:.{1 if nanoseconds < 100 * factor else 0}f} {unit}"


def show_ratio(ratio):
    return f"{ratio:.2f}" if ratio < 10 else f"{ratio:.0f}"


def print_table(results):
    widths = (30, 26, 10, 12, 11)
    heads = ("operation", "who", "median", "kernel/limit", "peer/kernel")

    def print_row(*cells):
        shown = [f"{cell:<{width}}" if i < 2 else f"{cell:>{width}}" for i, (cell, width) in enumerate(zip(cells, widths))]
        print(" ".join(shown).rstrip())

    print_row(*heads)
    for operation, by_who in results.items():
        kernel = by_who.get("kernel")
        limits = [time for who, time in by_who.items() if who.startswith("limit") and not who.startswith("limit, bare")]
        for i, (who, time) in enumerate(by_who.items()):
            to_limit = to_kernel = ""
            if kernel and who.startswith("limit"):
                to_limit = show_ratio(kernel / time) + ("*" if time == min(limits) else " ")
            elif kernel and not who.startswith("kernel"):
                to_kernel = show_ratio(time / kernel)
            print_row("" if i else operation, who, show_time(time), to_limit, to_kernel)
    print("\n* the fastest limit of the operation that is right for every table")


# --- The table of the manual ------------------------------------------------------------------------------------------

PEERS = {"SQLite": "SQLite", "LMDB": "LMDB", "unordered_map": "std::unordered_map", "map": "std::map"}


def spaced(operation):
    return re.sub(r"\d{4,}", lambda number: f"{int(number.group()):,}", operation)


def limits_cell(by_who):
    """The limits of an operation that are near the fastest one, with what the kernel takes of each."""
    limits = {who: time for who, time in by_who.items() if who.startswith("limit, ")}
    near = {who: time for who, time in limits.items() if time <= 2.2 * min(limits.values())}
    return "; ".join(f"{who.removeprefix('limit, ')} {show_time(time)}: **{show_ratio(by_who['kernel'] / time)}**"
                     for who, time in sorted(near.items(), key=lambda item: item[1], reverse=True))


def print_markdown(results):
    compared = {operation: by_who for operation, by_who in results.items() if "LMDB" in by_who}
    print("| Operation | Kernel | Limit: kernel / limit | " + " | ".join(PEERS) + " |")
    print("|---" * (3 + len(PEERS)) + "|")
    for operation, by_who in compared.items():
        peers = [show_ratio(by_who[peer] / by_who["kernel"]) for peer in PEERS.values()]
        print("| " + " | ".join([spaced(operation), show_time(by_who["kernel"]), limits_cell(by_who), *peers]) + " |")
    print("\n| Operation | Who | Time | kernel / limit | peer / kernel |\n|---|---|---|---|---|")
    for operation, by_who in results.items():
        if operation in compared:
            continue
        for i, (who, time) in enumerate(by_who.items()):
            is_limit = who.startswith("limit")
            ratio = "" if who == "kernel" else show_ratio(by_who["kernel"] / time if is_limit else time / by_who["kernel"])
            cells = ["" if i else operation, f"**{who}**" if who == "kernel" else who, show_time(time),
                     ratio if is_limit else "", "" if is_limit else ratio]
            print("| " + " | ".join(cells) + " |")


# --- The picture ------------------------------------------------------------------------------------------------------

COLOURS = ("#d62728", "#1f77b4", "#17becf", "#2ca02c", "#9467bd", "#8c564b", "#e377c2", "#7f7f7f", "#bcbd22")
PANEL_WIDTH, PANEL_HEIGHT, LEFT, TOP, GAP = 380, 360, 70, 50, 70


def search_curves(results, kind):
    """{who: [(records, nanoseconds)]} of the searches of one kind of keys."""
    curves = collections.defaultdict(list)
    for operation, by_who in results.items():
        if match := re.fullmatch(rf"search {kind} (\d+)", operation):
            for who, time in by_who.items():
                curves[who].append((int(match.group(1)), time))
    return curves


class Scale:
    """A logarithmic axis: values to pixels."""

    def __init__(self, values, start, end):
        self.low = math.floor(math.log10(min(values)))
        self.high = max(math.ceil(math.log10(max(values))), self.low + 1)
        self.start, self.end = start, end

    def at(self, value):
        part = (math.log10(value) - self.low) / (self.high - self.low)
        return self.start + part * (self.end - self.start)

    def ticks(self):
        return [10**exponent for exponent in range(self.low, self.high + 1)]


def text(x, y, content, anchor="middle", more=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" {more}>{content}</text>'


def draw_panel(kind, curves, across, up, colours):
    parts = [text((across.start + across.end) / 2, TOP - 14, f"{kind} keys", more='font-size="14"')]
    for value in across.ticks():
        x = across.at(value)
        parts.append(f'<line x1="{x:.1f}" y1="{up.start}" x2="{x:.1f}" y2="{up.end}" stroke="#ddd"/>')
        parts.append(text(x, up.start + 18, f"{value:,}"))
    for value in up.ticks():
        y = up.at(value)
        parts.append(f'<line x1="{across.start}" y1="{y:.1f}" x2="{across.end}" y2="{y:.1f}" stroke="#ddd"/>')
        parts.append(text(across.start - 6, y + 4, f"{value:,} ns", "end"))
    parts.append(text((across.start + across.end) / 2, up.start + 38, "records"))
    for who, points in curves.items():
        path = " ".join(f"{across.at(records):.1f},{up.at(time):.1f}" for records, time in sorted(points))
        width = 3 if who == "kernel" else 1.5
        dashes = ' stroke-dasharray="5 3"' if who.startswith("limit") else ""
        parts.append(f'<polyline points="{path}" fill="none" stroke="{colours[who]}" stroke-width="{width}"{dashes}/>')
    return parts


def draw_key(names, colours, x):
    parts = []
    for i, who in enumerate(names):
        y = TOP + 14 + 20 * i
        width = 3 if who == "kernel" else 1.5
        dashes = ' stroke-dasharray="5 3"' if who.startswith("limit") else ""
        parts.append(f'<line x1="{x}" y1="{y}" x2="{x + 24}" y2="{y}" stroke="{colours[who]}" '
                     f'stroke-width="{width}"{dashes}/>')
        parts.append(text(x + 30, y + 4, who, "start"))
    return parts


def draw_picture(results):
    panels = [(kind, search_curves(results, kind)) for kind in ("dense", "sparse")]
    panels = [(kind, curves) for kind, curves in panels if curves]
    points = [point for _, curves in panels for line in curves.values() for point in line]
    if not points:
        sys.exit("table.py: no searches to draw")
    names = list(dict.fromkeys(who for _, curves in panels for who in curves))
    colours = {who: COLOURS[i % len(COLOURS)] for i, who in enumerate(names)}
    up = Scale([time for _, time in points], TOP + PANEL_HEIGHT, TOP)
    parts = []
    x = LEFT
    for kind, curves in panels:
        across = Scale([records for records, _ in points], x, x + PANEL_WIDTH)
        parts += draw_panel(kind, curves, across, up, colours)
        x += PANEL_WIDTH + GAP
    parts += draw_key(names, colours, x - GAP + 20)
    size = f'width="{x + 140}" height="{TOP + PANEL_HEIGHT + 60}"'
    heading = text(LEFT, 20, "One record by its key: time against the number of records", "start", 'font-size="15"')
    return (f'<svg xmlns="http://www.w3.org/2000/svg" {size} font-family="sans-serif" font-size="12">\n'
            '<rect width="100%" height="100%" fill="white"/>\n' + heading + "\n" + "\n".join(parts) + "\n</svg>\n")


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--markdown"]
    if not 1 <= len(arguments) <= 2:
        sys.exit("usage: table.py [--markdown] RESULTS.json [PICTURE.svg]")
    results = read_results(arguments[0])
    (print_markdown if "--markdown" in sys.argv else print_table)(results)
    if len(arguments) == 2 and any(operation.startswith("search ") for operation in results):
        with open(arguments[1], "w", encoding="utf-8") as file:
            file.write(draw_picture(results))


main()
