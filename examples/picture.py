# Draws 61 years of sea temperatures: reads a binary file into an array and passes it to NumPy.
"""Makes an array from the file's memory, reshapes it in place and draws it, without a loop.

Usage: picture.py [FILE.png]; the default is build/sea_temperatures.png.
"""

import array
import sys
from pathlib import Path

import numpy as np
import velmar
from matplotlib.figure import Figure

ROOT = Path(__file__).resolve().parents[1]
DATA_FILE = ROOT / "examples" / "data" / "sea_temperatures.bin"
PICTURE_FILE = ROOT / "build" / "sea_temperatures.png"
FIRST_YEAR = 1950
MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"]


def explain(text):
    print(f"\n{text}")


def show(line):
    print(f"    {line}")


def read_numbers():
    numbers = array.array("d")
    numbers.frombytes(DATA_FILE.read_bytes())
    if sys.byteorder == "big":  # the file is little-endian
        numbers.byteswap()
    return numbers


def take_in():
    explain("An array takes a buffer in whole, with one copy of memory: here all months in a row.")
    months = velmar.double(read_numbers())
    show(f"{months.size = }")
    show(f"{months[0][:3] = !s}")
    return months


def reshape(months):
    explain("reshape lays another shape over the same elements: month by year, a year a column.")
    show(f"{months.reshape(12, len(months[0]) // 12) is months = }")
    show(f"{months.size, months.itemsize, months.get_bytewise_strides() = }")
    show(f"{months[0][:3] = !s}  (three Januaries)")
    return months


def hand_on(months):
    explain("NumPy sees that memory: nothing is copied, and it cannot write to it.")
    temperatures = np.asarray(memoryview(months))
    show(f"{temperatures.shape, temperatures.dtype.name = }")
    show(f"{temperatures.ctypes.data == months.buffer_info()[0] = }")
    show(f"{temperatures.flags.f_contiguous, temperatures.flags.writeable = }")

    explain("There it can be computed with: how far each month was from the mean of its name.")
    anomalies = temperatures - temperatures.mean(axis=1, keepdims=True)
    month, year = divmod(int(anomalies.argmax()), anomalies.shape[1])
    show(f"{FIRST_YEAR + year, MONTHS[month], float(anomalies.max().round(2)) = }")
    return temperatures, anomalies


def label_years(axes, count):
    axes.set_xticks(range(0, count, 5), range(FIRST_YEAR, FIRST_YEAR + count, 5))
    axes.set_yticks(range(len(MONTHS)), MONTHS)


def draw(temperatures, anomalies, file):
    figure = Figure(figsize=(11, 7), layout="constrained")
    figure.suptitle(
        "Sea surface off Peru and Ecuador (0-10 S, 80-90 W), monthly means "
        f"{FIRST_YEAR}-{FIRST_YEAR + temperatures.shape[1] - 1}"
    )
    upper, lower = figure.subplots(2, 1, sharex=True)
    most = abs(anomalies).max()
    for axes, values, title, unit, style in (
        (upper, temperatures, "Temperature", "degrees Celsius", {"cmap": "viridis"}),
        (
            lower,
            anomalies,
            "Difference from the mean of the month: strong El Nino events are red",
            "kelvin",
            {"cmap": "RdBu_r", "vmin": -most, "vmax": most},
        ),
    ):
        image = axes.imshow(values, aspect="auto", interpolation="nearest", **style)
        axes.set_title(title)
        label_years(axes, values.shape[1])
        figure.colorbar(image, ax=axes, label=unit)
    upper.tick_params(labelbottom=True)
    file.parent.mkdir(parents=True, exist_ok=True)
    figure.savefig(file, dpi=100)


def main(file=PICTURE_FILE):
    print(f"{DATA_FILE.stat().st_size} bytes, read from {DATA_FILE.name}.")
    temperatures, anomalies = hand_on(reshape(take_in()))
    draw(temperatures, anomalies, Path(file))
    print(f"\nThe picture is in {file}")


if __name__ == "__main__":
    main(*sys.argv[1:])
