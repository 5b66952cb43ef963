"""Times every operation over sizes. Its table has for each size our median, each neighbour's median
and, in brackets, ours divided by it: below 1 we are faster.
"""

import time
from pathlib import Path

import console
from figure_text import aligned, cells, count_text
from measure import BENCH, columns_of, run_fresh
from operation import MOST_ELEMENTS, OURS, sizes_up_to
from operation_list import GROUPS

LEAST_SECONDS, QUICK_LEAST_SECONDS = 0.01, 0.002


def line_of(size, figures):
    return f"{size:>9} {aligned(figures)}"


def measured(arguments, least_seconds):
    """Measures the chosen operations and prints a table of each. Yields a row of results for each.

    The time is divided among all columns of all operations.
    """
    chosen = [
        (group, title, operation, columns_of(operation))
        for group, operations in GROUPS.items()
        for title, operation in operations.items()
        if arguments.only in title
    ]
    all_columns = sum(len(columns) for *_, columns in chosen)
    steps = (1,) if arguments.quick else (1, 3)
    for group, title, operation, columns in chosen:
        print(f"\n{title}: {operation.shown(OURS)}\n{line_of('size', columns)}", flush=True)
        seconds = arguments.minutes * 60 / all_columns
        sizes = sizes_up_to(arguments.most, operation.size_counts, steps)
        found = run_fresh(BENCH / "sweep.py", title, seconds, least_seconds, *sizes)
        for point in found["points"]:
            print(line_of(count_text(point["size"]), cells(point["medians"], columns)))
        for column, size in found["stopped"].items():
            print(f"{column}: no time for {count_text(size)} and more")
        yield {
            "group": group,
            "title": title,
            "size_counts": operation.size_counts,
            "note": operation.note,
            "statements": {column: operation.shown(column) for column in columns},
        } | found


def main():
    parser = console.parser("script/bench --sizes", __doc__)
    add = parser.add_argument
    add("--most", type=int, default=MOST_ELEMENTS, help="most elements of an array, at least 10")
    add("--minutes", type=float, default=60, help="most time of all samples, approximately")
    add("--plots", metavar="FOLDER", help="draw a picture of each operation into this folder")
    arguments = parser.parse_args()
    if arguments.plots:  # before the samples, because matplotlib may be missing
        from plots import draw_all
    machine = console.machine()
    print(machine)
    least_seconds = QUICK_LEAST_SECONDS if arguments.quick else LEAST_SECONDS
    start = time.monotonic()
    rows = list(measured(arguments, least_seconds))
    minutes = (time.monotonic() - start) / 60
    print(f"\n{len(rows)} operations in {minutes:.1f} minutes")
    results = {
        "machine": machine,
        "least_seconds": least_seconds,
        "minutes": round(minutes, 1),
        "operations": rows,
    }
    if arguments.json:
        console.write_json(arguments.json, results, "operations")
    if arguments.plots:
        draw_all(results, Path(arguments.plots))


if __name__ == "__main__":
    main()
