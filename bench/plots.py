# Draws the times of each operation against size; both axes are logarithmic.
"""plots.py RESULTS FOLDER draws the results of a run of sizes.py."""

import json
import math
import sys
from pathlib import Path

from operation import ARROW
from rows import ARRAY, LIST, NUMPY, NUMPY_F, OURS

# Colours that colour-blind readers can tell apart, each with its own marker.
STYLES = {
    OURS: {"color": "#000000", "marker": "o", "linewidth": 2.2, "zorder": 3},
    NUMPY: {"color": "#56b4e9", "marker": "s"},
    NUMPY_F: {"color": "#0072b2", "marker": "D"},
    ARRAY: {"color": "#009e73", "marker": "^"},
    LIST: {"color": "#d55e00", "marker": "v"},
    ARROW: {"color": "#cc79a7", "marker": "X"},
}
SETTINGS = {
    "svg.fonttype": "none",
    "svg.hashsalt": "velmar",
    "font.family": "sans-serif",
    "font.sans-serif": ["DejaVu Sans", "Helvetica", "Arial"],
    "font.size": 9,
    "lines.markersize": 4,
    "lines.linewidth": 1.2,
}
INCHES = (4.8, 3.4)
UNITS = {-12: "ps", -9: "ns", -6: "us", -3: "ms", 0: "s", 3: "ks"}  # by power of ten


def points_of(row, column):
    points = [point for point in row["points"] if column in point["medians"]]
    return [point["size"] for point in points], [point["medians"][column] for point in points]


def tick_text(seconds, _position):
    """Text for a power of ten: 1 ns, 10 ns, 100 ns, 1 us, ..."""
    power = round(math.log10(seconds))
    step = power % 3
    return f"{10**step} {UNITS[power - step]}"


def draw(row, file):
    from matplotlib import rc_context
    from matplotlib.figure import Figure
    from matplotlib.ticker import FuncFormatter, LogLocator, NullLocator

    with rc_context(SETTINGS):
        figure = Figure(figsize=INCHES, layout="constrained", facecolor="white")
        axes = figure.subplots()
        for column in row["statements"]:
            sizes, times = points_of(row, column)
            axes.loglog(sizes, times, label=column, **STYLES[column])
        axes.set_xlabel(row["size_counts"])
        axes.yaxis.set_major_locator(LogLocator(numticks=14))
        axes.yaxis.set_major_formatter(FuncFormatter(tick_text))
        for axis in (axes.xaxis, axes.yaxis):
            axis.set_minor_locator(NullLocator())
        axes.grid(color="#dddddd", linewidth=0.6)
        axes.spines[["top", "right"]].set_visible(False)
        figure.legend(loc="outside upper center", ncols=3, frameon=False)
        figure.savefig(file, metadata={"Date": None, "Creator": None, "Title": row["title"]})


def picture_name(row):
    return f"{row['key']}.svg"


def draw_all(results, folder):
    folder.mkdir(parents=True, exist_ok=True)
    drawn = [row for row in results["operations"] if row["points"]]
    for row in drawn:
        draw(row, folder / picture_name(row))
    print(f"{len(drawn)} pictures in {folder}")


if __name__ == "__main__":
    draw_all(json.loads(Path(sys.argv[1]).read_text(encoding="utf-8")), Path(sys.argv[2]))
