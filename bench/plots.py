# Draws the times of each operation against size, and the ratios to NumPy for each group. The axes
# of numbers are logarithmic.

import itertools
from contextlib import contextmanager

from figure_text import slug, time_text
from matplotlib import rc_context
from matplotlib.figure import Figure
from operation import ARRAY, ARROW, LIST, NUMPY, NUMPY_F, OURS
from ratios import ratios_of, times_of

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
    "font.sans-serif": ["DejaVu Sans", "Helvetica", "Arial"],
    "font.size": 9,
    "lines.markersize": 4,
    "lines.linewidth": 1.2,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "grid.color": "#dddddd",
    "grid.linewidth": 0.6,
    "image.cmap": "Blues",
    "scatter.edgecolors": "#08306b",
}
INCHES = (4.8, 3.4)
GROUP_INCHES, GROUP_INCHES_PER_ROW = 0.6, 0.2


def ratio_tick(ratio):
    return f"1/{1 / ratio:g}" if ratio < 1 else f"{ratio:g}"


@contextmanager
def picture(file, title, height):
    """The axes to draw on; the picture is written at the end."""
    with rc_context(SETTINGS):
        figure = Figure(figsize=(INCHES[0], height), layout="constrained", facecolor="white")
        axes = figure.subplots()
        yield axes
        axes.minorticks_off()
        figure.savefig(file, metadata={"Date": None, "Creator": None, "Title": title})


def set_ticks(axis, most, text):
    axis.get_major_locator().set_params(numticks=most)
    axis.set_major_formatter(lambda value, _: text(value))


def draw(row, file):
    with picture(file, row["title"], INCHES[1]) as axes:
        for column in row["statements"]:
            times = times_of(row, column)
            axes.loglog(list(times), list(times.values()), label=column, **STYLES[column])
        axes.set_xlabel(row["size_counts"])
        set_ticks(axes.yaxis, 14, time_text)
        axes.grid()
        axes.figure.legend(loc="outside upper center", ncols=3, frameon=False)


def draw_group(rows, file):
    """One line for each operation: a dot for each size, darker for larger ones, at the ratio."""
    title = f"{rows[0]['group']}: ratios to NumPy"
    with picture(file, title, GROUP_INCHES + GROUP_INCHES_PER_ROW * len(rows)) as axes:
        dots = [
            (ratio, place, size)
            for place, row in enumerate(rows)
            for size, ratio in ratios_of(row).items()
        ]
        ratios, places, sizes = zip(*dots, strict=True)
        axes.axvspan(1e-3, 1, color="#e8f3ea", zorder=0)
        axes.axvline(1, color="#333333", linewidth=1)
        axes.scatter(ratios, places, s=26, c=sizes, norm="log", vmin=0.01, linewidths=0.5, zorder=3)
        axes.set_xscale("log")
        axes.set_xlim(min(0.5, *ratios) / 1.3, max(2, *ratios) * 1.3)
        axes.set_ylim(len(rows) - 0.4, -0.6)
        axes.set_yticks(range(len(rows)), [row["title"] for row in rows])
        set_ticks(axes.xaxis, 8, ratio_tick)
        axes.set_xlabel("our time / time of NumPy")
        axes.grid(axis="y")


def draw_all(results, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for group, members in itertools.groupby(results["operations"], lambda row: row["group"]):
        rows = list(members)
        draw_group(rows, folder / f"{slug(group)}.svg")
        for row in rows:
            draw(row, folder / f"{slug(row['title'])}.svg")
    print(f"drew the pictures in {folder}")
