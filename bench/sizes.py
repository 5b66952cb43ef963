# Times every operation over sizes, ours and the neighbours'; prints, writes and draws the results.
"""Prints a table for each operation: by size our median, each neighbour's median and the ratio."""

import os
import subprocess
import sys
import time
from importlib import import_module
from importlib.util import find_spec
from pathlib import Path

import console
from figure_text import cells, count_text
from measure import BENCH, columns_of, run_fresh
from operation import ARROW, MOST_ELEMENTS, OURS, sizes_up_to
from operation_list import GROUPS

OURS_WIDTH = 9  # of the size, too
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


def aligned(size, ours, *peers):
    first = [size.rjust(OURS_WIDTH), ours.rjust(OURS_WIDTH)]
    return " ".join([*first, *[text.rjust(PEER_WIDTH) for text in peers]])


def rounded(figures):
    return {column: float(f"{value:.{DIGITS}g}") for column, value in figures.items()}


def sweep(key, columns, sizes, seconds, least_seconds):
    """Measures one operation in a separate process and prints each size when it is done."""
    points, peak, stopped, status = [], 0, {}, 0
    try:
        for found in run_fresh(BENCH / "sweep.py", key, seconds, least_seconds, *sizes):
            peak = found.get("peak_bytes", peak)
            if "size" not in found:
                continue
            size = found["size"]
            stopped |= dict.fromkeys(found.pop("stopped"), size)
            if found["medians"]:
                print(aligned(count_text(size), *cells(found["medians"], columns)), flush=True)
                found |= {key: rounded(found[key]) for key in ("medians", "spreads")}
                points.append(found)
    except subprocess.CalledProcessError as error:
        status = error.returncode
    for column, size in stopped.items():
        print(f"{column}: no time for {count_text(size)} and more")
    if status:
        print(f"the process ended with status {status}")
    return {"points": points, "stopped": stopped, "peak_bytes": peak, "status": status}


def measured(key, operation, columns, arguments, least_seconds, clock):
    steps = (1,) if arguments.quick else (1, 3)
    sizes = sizes_up_to(arguments.most, operation.layout, steps)
    seconds = clock.share()
    clock.pairs -= len(columns)
    print(f"\n{operation.title}: {operation.shown(OURS)}\n{aligned('size', *columns)}")
    return {
        "key": key,
        "title": operation.title,
        "size_counts": operation.layout.value,
        "note": operation.note,
        "statements": {column: operation.shown(column) for column in columns},
    } | sweep(key, columns, sizes, seconds, least_seconds)


def versions():
    """Versions, machine, and the load before the run."""
    found = console.machine() | {"load": round(os.getloadavg()[0], 2)}
    if find_spec(ARROW):
        found[ARROW] = import_module(ARROW).__version__
    return found


def parse_arguments():
    parser = console.parser(
        "Times the arrays over sizes.",
        "powers of ten, shorter samples",
        "operations whose title or key",
    )
    parser.prog = "script/bench --sizes"
    parser.add_argument(
        "--most", type=int, default=MOST_ELEMENTS, help="largest number of elements of an array"
    )
    parser.add_argument("--minutes", type=float, default=30, help="approximate time of all samples")
    parser.add_argument(
        "--plots", metavar="FOLDER", help="draw a picture of each operation into this folder"
    )
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    drawing = ["matplotlib"] if arguments.plots else []
    console.require("script/bench --sizes", "velmar", "numpy", *drawing)
    machine = versions()
    console.print_head(machine, "")
    choice = [
        (group, key, operation, columns_of(operation))
        for group, operations in GROUPS.items()
        for key, operation in operations.items()
        if arguments.only in operation.title or arguments.only in key
    ]
    clock = Clock(arguments.minutes * 60, sum(len(columns) for *_, columns in choice))
    least_seconds = QUICK_LEAST_SECONDS if arguments.quick else LEAST_SECONDS
    start = time.monotonic()
    rows = [
        {"group": group} | measured(key, operation, columns, arguments, least_seconds, clock)
        for group, key, operation, columns in choice
    ]
    minutes = (time.monotonic() - start) / 60
    print(f"\n{len(rows)} operations in {minutes:.1f} minutes")
    results = {
        "machine": machine,
        "most": arguments.most,
        "least_seconds": least_seconds,
        "minutes": round(minutes, 1),
        "operations": rows,
    }
    console.write_json(arguments.json, results, "operations")
    if arguments.plots:
        from plots import draw_all

        draw_all(results, Path(arguments.plots))
    return 1 if any(row["status"] for row in rows) else 0


if __name__ == "__main__":
    sys.exit(main())
