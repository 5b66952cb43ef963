# Fits the body mass of penguins to two lengths, with the native client of this folder.
"""Reads examples/data/penguins.csv and prints the fit of body mass to flipper and bill length."""

import csv
import math
from pathlib import Path

import least_squares
import velmar

DATA_FILE = Path(__file__).resolve().parents[1] / "data" / "penguins.csv"


def read_penguins():
    with DATA_FILE.open(newline="", encoding="ascii") as file:
        return list(csv.DictReader(file))


def make_arrays(penguins):
    """The design (per row: 1, flipper length and bill length in mm) and a row of masses in g."""
    flippers = [float(p["flipper_length_mm"]) for p in penguins]
    bills = [float(p["bill_length_mm"]) for p in penguins]
    ones = [1.0] * len(penguins)
    # Column by column, the storage order.
    design = velmar.double(vector=ones + flippers + bills, size=(len(penguins), 3))
    return design, velmar.double([float(p["body_mass_g"]) for p in penguins])


def main():
    penguins = read_penguins()
    design, masses = make_arrays(penguins)
    coefficients, residual_sums = least_squares.fit(design, masses)
    constant, per_flipper, per_bill = coefficients[0]
    print(f"{len(penguins)} penguins, read from {DATA_FILE.name}")
    print("body mass in g, by the lengths of flipper and bill in mm:")
    print(f"    {constant:.1f} + {per_flipper:.3f} * flipper + {per_bill:.3f} * bill")
    spread = math.sqrt(residual_sums[0][0] / (len(penguins) - len(coefficients[0])))
    print(f"standard error of the residuals: {spread:.0f} g")

    print("the same for each species, from views of those rows:")
    for species in ("Adelie", "Gentoo", "Chinstrap"):
        rows = [number for number, p in enumerate(penguins) if p["species"] == species]
        of_species = slice(rows[0], rows[-1] + 1)
        coefficients, _ = least_squares.fit(design[of_species], masses[0][of_species])
        constant, per_flipper, per_bill = coefficients[0]
        print(f"    {species:9} {constant:8.1f} {per_flipper:+7.3f} {per_bill:+8.3f}")


if __name__ == "__main__":
    main()
