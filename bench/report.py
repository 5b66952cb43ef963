# Writes docs/performance.md from the results of runs, so that no number is typed by hand.

import itertools
import json
from pathlib import Path
from statistics import median, quantiles

from figure_text import cells, count_text, limit_cells, ratio_text, slug, table, time_text
from operation import NUMPY, NUMPY_F, OURS, Kind
from ratios import decided, fairest_peer, ratios_of, times_of
from sweep import LONG_REPEATS, LONG_SECONDS, REPEATS

ROOT = Path(__file__).resolve().parents[1]
OVERVIEW_SIZES = (1, 100, 10_000, 1_000_000, 10_000_000)
# A time that grows by less than this factor over all sizes counts as the same.
FLAT_GROWTH = 3
# More than this many times slower than the neighbour counts as much slower.
MUCH_SLOWER = 3

START = """\
<!-- Written by bench/report.py from the figures in bench/results; not by hand. -->

# Performance

All figures on this page were measured on one machine, and `bench/report.py` wrote the page from \
them. Absolute times depend on the machine; compare the ratios. The load is that at the start.

Machine: {machine}."""
OVERVIEW = """\
The table shows our time divided by that of NumPy in column-major order, which is our order as \
well. Below 1 we are faster. Where NumPy does not have the operation, the row names the column \
that is used instead. The first line of the table has the numbers of elements."""
READING = """\
How to read the sections below:

- The picture of a group has a dot for each size, darker for more elements: our time divided by that
  of NumPy in column-major order. In the green part we are faster.
- "1 us at 1, 3 ns an element at 10^6" has the figures at the smallest and at the largest size.
  "95 ns at any size" is the median of figures that differ less than threefold at these two.
- "About as fast" is within a tenth. A difference at only one size is ignored.
- In the calls, `a` is the array of the column, or the memory from which one is made. `b` is equal
  to `a` and shares nothing with it. `data` has the elements as nested lists, `flat` as one list."""
JOBS = """\
`script/bench --check` fails if one of these limits is exceeded. The brackets contain our figure \
divided by that of the column. An aim is a lower value to work towards.

- An import is timed alone in a fresh process.
- A peak is the most that a statement adds to the resident memory, in sizes of the elements.
- Held is the memory of an array that was read and exported.
- `bytearray` is zeroed memory of the same size; in the rows on buffers, one copy of filled memory.
- `ours otherwise` is our array of ten elements for the reshapes, and finite values for the \
infinities. In other rows it is the steps of the statement as separate calls: nested lists, their \
pickle, a construction."""


def fold(summary, text):
    """Text that a click on the summary shows.

    Markdown inside HTML begins after an empty line, and a table ends before one.
    """
    return f"<details><summary>{summary}</summary>\n\n{text}\n</details>"


def growth_text(times):
    """Text for the times of a column: one for all sizes, or those at both ends."""
    smallest, largest = min(times), max(times)
    if times[largest] < FLAT_GROWTH * times[smallest]:
        return f"{time_text(median(times.values()))} at any size"
    start, each = time_text(times[smallest]), time_text(times[largest] / largest)
    return f"{start} at {smallest}, {each} an element at {count_text(largest)}"


def comparison_text(ratios_by_size, peer):
    """Text that says which side is faster, and at which sizes."""
    clear = decided(ratios_by_size)
    words = {size: "faster" if ratio < 1 else "slower" for size, ratio in clear.items()}
    runs = [(word, list(sizes)) for word, sizes in itertools.groupby(words, words.get)]
    match runs:
        case []:
            return f"About as fast as {peer} at every size."
        case [(word, _)]:
            return f"{word.title()} than {peer} at every size where the two differ."
        case [(word, [*_, last]), (other_word, [first, *_])]:
            sizes = f"up to size {count_text(last)}, {other_word} from size {count_text(first)} on"
            return f"{word.title()} than {peer} {sizes}."
    return f"Faster than {peer} at some sizes, slower at others."


def overview_cells(row):
    peer, found = fairest_peer(row), ratios_of(row)
    name = f"[{row['title']}](#{slug(row['title'])})"
    if peer not in (NUMPY, NUMPY_F):
        name += f", over {peer}"
    return [name, *(ratio_text(found[size]) if size in found else "-" for size in OVERVIEW_SIZES)]


def judgement(rows):
    """Text with the operations that are never slower than NumPy, and those that are much slower."""
    both = [row for row in rows if fairest_peer(row) in (NUMPY, NUMPY_F)]
    never = [row for row in both if all(ratio < 1 for ratio in decided(ratios_of(row)).values())]
    much = [row for row in both if list(ratios_of(row).values())[-1] > MUCH_SLOWER]
    lines = [f"NumPy has {len(both)} of the operations that were measured:\n"]
    for found, words in (
        (never, "faster here, or about equal, at every size"),
        (much, f"more than {MUCH_SLOWER} times slower at the largest size"),
    ):
        titles = f": {'; '.join(row['title'] for row in found)}" if found else ""
        lines.append(f"- {len(found)} are {words}{titles}.")
    return "\n".join(lines)


def section(row):
    columns_by_statement = {}
    for column, statement in row["statements"].items():
        columns_by_statement.setdefault(statement, []).append(column)
    calls = [f"{', '.join(names)}: `{text}`" for text, names in columns_by_statement.items()]
    peer = fairest_peer(row)
    ours, theirs = (growth_text(times_of(row, column)) for column in (OURS, peer))
    words = f"{comparison_text(ratios_of(row), peer)} {OURS}: {ours}; {peer}: {theirs}."
    picture = f"![Time against size, {row['title']}](plots/{slug(row['title'])}.svg)"
    folded = fold("Calls and diagram", f"{'; '.join(calls)}. {picture}")
    return "\n".join([f"### {row['title']}", f"{words} {row['note']}".rstrip(), folded])


def sections(rows):
    for group, members in itertools.groupby(rows, lambda row: row["group"]):
        yield f"## {group}"
        yield f"![{group}, ratios to NumPy](plots/{slug(group)}.svg)"
        yield from map(section, members)


def job_cells(row):
    figures = cells(row["medians"], (OURS, NUMPY, NUMPY_F), Kind(row["figures"]))
    return [row["name"], *figures, *limit_cells(row)]


def measured(sizes):
    rows = sizes["operations"]
    points = [point for row in rows for point in row["points"]]
    spreads = [100 * (spread - 1) for point in points for spread in point["spreads"].values()]
    worst = quantiles(spreads, n=20)[-1]
    memory = max(row["peak_bytes"] for row in rows)
    least, long = time_text(sizes["least_seconds"]), time_text(LONG_SECONDS)
    return f"""\
- Each operation runs in a fresh process. The columns of one size are sampled in turn, with the
  garbage collector off; a figure is the median of {REPEATS} samples of at least {least}, or of
  {LONG_REPEATS} where a run takes longer than {long}.
- An array has as many rows as columns, or three, ten or thirty times as many columns. The size of
  an operation on one row is the length of the row, one of ten.
- `numpy-F` is NumPy in column-major order. `array` is a list of `array.array` rows, or a flat one;
  `list` is a list of lists, which shares its elements instead of converting them, so it is a lower
  bound; `pyarrow` is a list array, or a flat one.
- A column ends where the next size would have taken more than its share of the time.
- The upper quartile of the samples was {median(spreads):.2g} % above the lower one in the median of
  all figures, and {worst:.2g} % or more in the worst twentieth.
- The run took {sizes["minutes"]:g} minutes and {memory / 1e9:.2g} GB of memory.
- To do it again: `script/bench --sizes --json bench/results/sizes.json`, `script/bench --json \
bench/results/table.json`, then `python bench/report.py`."""


def page_of(sizes, jobs):
    rows = sizes["operations"]
    head = ["operation", *map(count_text, OVERVIEW_SIZES)]
    overview = table(head, map(overview_cells, rows), len(OVERVIEW_SIZES))
    job_table = table(["job", "here", NUMPY, NUMPY_F, "at most", ""], map(job_cells, jobs["rows"]))
    parts = [
        START.format(machine=sizes["machine"]),
        "## In short",
        judgement(rows),
        OVERVIEW,
        fold("Table of ratios", overview + "\n"),
        "## Jobs with a limit",
        JOBS,
        fold("Table of jobs", job_table + "\n"),
        "## Operations over sizes",
        READING,
        *sections(rows),
        "## How it was measured",
        measured(sizes),
    ]
    return "\n\n".join(parts) + "\n"


def results_in(name):
    return json.loads((ROOT / "bench/results" / name).read_text(encoding="utf-8"))


def main():
    from plots import draw_all

    sizes = results_in("sizes.json")
    page = page_of(sizes, results_in("table.json"))
    (ROOT / "docs/performance.md").write_text(page, encoding="utf-8")
    draw_all(sizes, ROOT / "docs/plots")


if __name__ == "__main__":
    main()
