"""matplotlib: arrays drawn as lines, points and an image, into a PNG file.

Usage: with_matplotlib.py [FILE.png]; the default is build/neighbours.png.
"""

import sys
from pathlib import Path

from example_data import FIRST_YEAR, penguin_measures, sea_temperatures
from matplotlib.figure import Figure
from with_numpy import to_numpy

PICTURE_FILE = Path(__file__).resolve().parents[2] / "build" / "neighbours.png"


def draw_lines(axes, temperatures):
    """plot accepts an array and draws each column, here a year, as a line."""
    axes.set_title("The months of each year")
    axes.set_ylabel("degrees Celsius")
    return axes.plot(range(1, 13), temperatures, color="tab:blue", linewidth=0.5)


def draw_points(axes, measures):
    """NumPy selects the columns, because the subscripts of an array select rows first."""
    n = to_numpy(measures)
    axes.set_title("Flippers and masses of penguins")
    axes.set_xlabel("mm")
    axes.set_ylabel("g")
    return axes.scatter(n[:, 2], n[:, 3], s=4)


def draw_image(axes, temperatures):
    """imshow accepts an array and draws row 0 at the top."""
    axes.set_title(f"Months from {FIRST_YEAR} on")
    return axes.imshow(temperatures, aspect="auto", interpolation="nearest")


def draw(file):
    figure = Figure(figsize=(12, 4), layout="constrained")
    left, middle, right = figure.subplots(1, 3)
    temperatures = sea_temperatures()
    draw_lines(left, temperatures)
    draw_points(middle, penguin_measures())
    figure.colorbar(draw_image(right, temperatures), ax=right, label="degrees Celsius")
    figure.savefig(file, dpi=80)


def main(file=PICTURE_FILE):
    Path(file).parent.mkdir(parents=True, exist_ok=True)
    draw(file)
    print(f"The picture is in {file}")


if __name__ == "__main__":
    main(*sys.argv[1:])
