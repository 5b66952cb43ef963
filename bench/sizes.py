# Times every operation over sizes, ours and the neighbours'; prints, writes and draws the results.
"""Prints a table for each operation: by size our median, each neighbour's median and the ratio."""

import argparse
import json
import os
import subprocess
import sys
import time
from importlib.util import find_spec
from pathlib import Path

from figure_text import count_text, ratio_text, time_text
from operation import ARROW, COLUMNS, MOST_ELEMENTS, sizes_up_to
from operation_list import GROUPS
from rows import OURS
from run import machine

SWEEP = Path(__file__).resolve().parent / "sweep.py"
SIZE_WIDTH = 9
OURS_WIDTH = 9
PEER_WIDTH = 16
LEAST_SECONDS, QUICK_LEAST_SECONDS = 0.01, 0.002
DIGITS = 4


class Clock:
    """Divides the remaining time among the columns of the remaining operations."""

    def __init__(self, seconds, pairs):
        self.end = time.monotonic() + seconds
        self.pairs = pairs

    def share(self):
        return max(0.0, self.end - time.monotonic()) / max(1, self.pairs)


def header(columns):
    peers = [column.rjust(PEER_WIDTH) for column in columns if column != OURS]
    return " ".join(["size".rjust(SIZE_WIDTH), OURS.rjust(OURS_WIDTH), *peers])


def line(size, medians, columns):
    ours = medians.get(OURS)
    cells = [count_text(size).rjust(SIZE_WIDTH)]
    cells.append((time_text(ours) if ours else "-").rjust(OURS_WIDTH))
    for column in columns:
        if column == OURS:
            continue
        text = "-"
        if column in medians:
            ratio = f" ({ratio_text(ours / medians[column])})" if ours else ""
            text = time_text(medians[column]) + ratio
        cells.append(text.rjust(PEER_WIDTH))
    return " ".join(cells)


def rounded(figures):
    return {column: float(f"{value:.{DIGITS}g}") for column, value in figures.items()}


def sweep(operation, columns, sizes, seconds, least_seconds):
    """Measures one operation in a separate process and prints each size when it is done."""
    command = [sys.executable, str(SWEEP), operation.key, str(seconds), str(least_seconds)]
    child = subprocess.Popen(
        [*command, *map(str, sizes)], stdout=subprocess.PIPE, text=True, encoding="utf-8"
    )
    points, peak, stopped = [], 0, {}
    for text in child.stdout:
        found = json.loads(text)
        peak = found.get("peak_bytes", peak)
        if "size" not in found:
            continue
        stopped |= dict.fromkeys(found.pop("stopped"), found["size"])
        if found["medians"]:
            print(line(found["size"], found["medians"], columns), flush=True)
            found |= {key: rounded(found[key]) for key in ("medians", "spreads")}
            points.append(found)
    for column, size in stopped.items():
        print(f"{column}: no time for {count_text(size)} and more")
    if child.wait():
        print(f"the process ended with status {child.returncode}")
    return {"points": points, "stopped": stopped, "peak_bytes": peak, "status": child.returncode}


def measured(operation, columns, arguments, least_seconds, clock):
    steps = (1,) if arguments.quick else (1, 3)
    sizes = sizes_up_to(arguments.most, operation.layout, steps)
    seconds = clock.share()
    clock.pairs -= len(columns)
    print(f"\n{operation.title}: {operation.shown(OURS)}\n{header(columns)}")
    return {
        "key": operation.key,
        "title": operation.title,
        "size_counts": operation.layout.value,
        "note": operation.note,
        "statements": {column: operation.shown(column) for column in columns},
    } | sweep(operation, columns, sizes, seconds, least_seconds)


def versions():
    """Versions, machine, and the load before the run."""
    found = machine() | {"load": round(os.getloadavg()[0], 2)}
    if find_spec(ARROW):
        found[ARROW] = __import__(ARROW).__version__
    return found


def parse_arguments():
    parser = argparse.ArgumentParser(
        description="Times the arrays over sizes.", prog="script/bench --sizes"
    )
    parser.add_argument("--quick", action="store_true", help="powers of ten, shorter samples")
    parser.add_argument(
        "--most", type=int, default=MOST_ELEMENTS, help="largest number of elements of an array"
    )
    parser.add_argument("--minutes", type=float, default=30, help="approximate time of all samples")
    parser.add_argument(
        "--only",
        default="",
        metavar="TEXT",
        help="only operations whose title or key contains TEXT",
    )
    parser.add_argument("--json", metavar="FILE", help="also write the results to this file")
    parser.add_argument(
        "--plots", metavar="FOLDER", help="draw a picture of each operation into this folder"
    )
    return parser.parse_args()


def text_of(results):
    """The results as JSON, one line for each operation."""
    start = {name: value for name, value in results.items() if name != "operations"}
    rows = ",\n".join(json.dumps(row) for row in results["operations"])
    return f'{json.dumps(start)[:-1]}, "operations": [\n{rows}\n]}}\n'


def chosen(only, columns):
    """Group, operation and columns of each operation to be measured."""
    return [
        (group, operation, [column for column in columns if column in operation.statements])
        for group, operations in GROUPS.items()
        for operation in operations
        if only in operation.title or only in operation.key
    ]


def main():
    arguments = parse_arguments()
    for needed in ("velmar", "numpy", *(["matplotlib"] if arguments.plots else [])):
        if find_spec(needed) is None:
            sys.exit(f"bench: {needed} cannot be imported; script/bench --sizes sets everything up")
    found = versions()
    print(", ".join(f"{name} {value}" for name, value in found.items()))
    print("medians; in brackets ours over theirs, so below 1 we are faster")
    columns = [column for column in COLUMNS if column != ARROW or ARROW in found]
    choice = chosen(arguments.only, columns)
    clock = Clock(arguments.minutes * 60, sum(len(own) for _, _, own in choice))
    least_seconds = QUICK_LEAST_SECONDS if arguments.quick else LEAST_SECONDS
    start = time.monotonic()
    rows = [
        {"group": group} | measured(operation, own, arguments, least_seconds, clock)
        for group, operation, own in choice
    ]
    minutes = (time.monotonic() - start) / 60
    print(f"\n{len(rows)} operations in {minutes:.1f} minutes")
    results = {
        "machine": found,
        "most": arguments.most,
        "least_seconds": least_seconds,
        "minutes": round(minutes, 1),
        "operations": rows,
    }
    if arguments.json:
        Path(arguments.json).write_text(text_of(results), encoding="utf-8")
    if arguments.plots:
        from plots import draw_all

        draw_all(results, Path(arguments.plots))
    return 1 if any(row["status"] for row in rows) else 0


if __name__ == "__main__":
    sys.exit(main())
