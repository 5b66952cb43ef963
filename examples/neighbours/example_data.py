"""The two data sets of examples/data as arrays."""

import array
import csv
import sys
from pathlib import Path

import velmar

FOLDER = Path(__file__).resolve().parents[1] / "data"
PENGUINS = FOLDER / "penguins.csv"
MEASURES = ["bill_length_mm", "bill_depth_mm", "flipper_length_mm", "body_mass_g"]
FIRST_YEAR = 1950


def sea_temperatures():
    """Monthly temperatures in degrees Celsius, 12 by 61: month, year."""
    numbers = array.array("d", (FOLDER / "sea_temperatures.bin").read_bytes())
    if sys.byteorder == "big":  # the file is little-endian
        numbers.byteswap()
    return velmar.double(numbers, size=(12, len(numbers) // 12))


def penguin_measures():
    """Four measures of each penguin, 342 by 4."""
    with PENGUINS.open(newline="", encoding="ascii") as file:
        return velmar.double([[float(p[name]) for name in MEASURES] for p in csv.DictReader(file)])
