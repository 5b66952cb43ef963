# Converts the published table to sea_temperatures.bin; README.md in this folder gives the source.
"""Usage: python make_sea_temperatures.py elnino.csv sea_temperatures.bin"""

import array
import csv
import sys


def main(source, target):
    with open(source, newline="", encoding="ascii") as file:
        header, *years = csv.reader(file)
    assert len(header) == 13 and all(len(year) == 13 for year in years)
    numbers = array.array("d", [float(text) for year in years for text in year[1:]])
    if sys.byteorder == "big":
        numbers.byteswap()
    with open(target, "wb") as file:
        numbers.tofile(file)
    print(f"{len(numbers)} months, {years[0][0]} to {years[-1][0]}")


if __name__ == "__main__":
    main(*sys.argv[1:])
