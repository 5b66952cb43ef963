# Times every operation over sizes, ours and the neighbours'; prints, writes and draws the results.
"""Times the arrays over sizes. The table of an operation has for each size our median, each
neighbour's median and, in brackets, ours divided by it.
"""

import subprocess
import sys
import time
from pathlib import Path

import console
from figure_text import aligned, cells, count_text
from measure import BENCH, columns_of, run_fresh
from operation import MOST_ELEMENTS, OURS, sizes_up_to
from operation_list import GROUPS

PROGRAM = "script/bench --sizes"
LEAST_SECONDS, QUICK_LEAST_SECONDS = 0.01, 0.002


def share_of(end, columns):
    """Divides the time until the end among the columns of the remaining operations."""
    return max(0.0, end - time.monotonic()) / columns


def line_of(size, figures):
    return f"{size:>9} {aligned(*figures)}"


def swept(columns, *arguments):
    """Runs sweep.py for these columns, prints each size when it is measured, returns all."""
    points, stopped, peak, status = [], {}, 0, 0
    try:
        for point in run_fresh(BENCH / "sweep.py", *arguments):
            peak = point.pop("peak_bytes")
            stopped |= dict.fromkeys(point.pop("stopped"), point["size"])
            if point["medians"]:
                points.append(point)
                figures = cells(point["medians"], columns)
                print(line_of(count_text(point["size"]), figures), flush=True)
    except subprocess.CalledProcessError as error:
        status = error.returncode
    for column, size in stopped.items():
        print(f"{column}: no time for {count_text(size)} and more")
    if status:
        print(f"the process ended with status {status}")
    return {"points": points, "stopped": stopped, "peak_bytes": peak, "status": status}


def measured(arguments, least_seconds):
    """Measures the chosen operations. Yields a row of results for each."""
    chosen = [
        (group, key, operation, columns_of(operation))
        for group, operations in GROUPS.items()
        for key, operation in operations.items()
        if arguments.only in operation.title or arguments.only in key
    ]
    end = time.monotonic() + arguments.minutes * 60
    steps = (1,) if arguments.quick else (1, 3)
    for i, (group, key, operation, columns) in enumerate(chosen):
        print(f"\n{operation.title}: {operation.shown(OURS)}\n{line_of('size', columns)}")
        seconds = share_of(end, sum(len(columns) for *_, columns in chosen[i:]))
        sizes = sizes_up_to(arguments.most, operation.layout, steps)
        yield {
            "group": group,
            "key": key,
            "title": operation.title,
            "size_counts": operation.layout.value,
            "note": operation.note,
            "statements": {column: operation.shown(column) for column in columns},
        } | swept(columns, key, seconds, least_seconds, *sizes)


def main():
    only = "operations whose title or key"
    parser = console.parser(PROGRAM, __doc__, "powers of ten, shorter samples", only)
    add = parser.add_argument
    add("--most", type=int, default=MOST_ELEMENTS, help="largest number of elements of an array")
    add("--minutes", type=float, default=30, help="approximate time of all samples")
    add("--plots", metavar="FOLDER", help="draw a picture of each operation into this folder")
    arguments = parser.parse_args()
    drawing = ["matplotlib"] if arguments.plots else []
    machine = console.start(PROGRAM, "velmar", "numpy", *drawing)
    least_seconds = QUICK_LEAST_SECONDS if arguments.quick else LEAST_SECONDS
    start = time.monotonic()
    rows = list(measured(arguments, least_seconds))
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
