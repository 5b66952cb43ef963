# A tour of the array classes, with a table of penguin measurements.
"""Makes arrays of several classes from examples/data/penguins.csv and shows their operations.

A printed line "expression = value" shows an expression of this file and the text of its value.
"""

import csv
import pickle
from pathlib import Path

import velmar

DATA_FILE = Path(__file__).resolve().parent / "data" / "penguins.csv"


def read_penguins():
    with DATA_FILE.open(newline="", encoding="ascii") as file:
        return list(csv.DictReader(file))


def explain(text):
    print(f"\n{text}")


def show(line):
    print(f"    {line}")


def refused(action, text):
    try:
        action()
    except (TypeError, ValueError, OverflowError, IndexError) as error:
        show(f"{text} -> {type(error).__name__}: {error}")
    else:
        show(f"{text} was not refused")


def nested_lists_and_subscripts(penguins):
    explain("Nested lists make an array: one row a penguin, here bill length and depth in mm.")
    bills = velmar.double(
        [[float(p["bill_length_mm"]), float(p["bill_depth_mm"])] for p in penguins]
    )
    show(f"{len(bills) = }")

    explain("An integer subscript fixes a dimension and gives a view; the last one gives a number.")
    show(f"{bills[0] = !s}")
    show(f"{bills[0][1] = }")
    show(f"{bills[-1] = !s}")

    explain("A slice is a view as well: it copies nothing and shares the storage.")
    show(f"{bills[:3] = !s}")
    show(f"{bills[::100] = !s}")
    show(f"{len(bills[::100]) = }")

    explain("A slice of a slice is resolved at once: rows 50, 100 and 150, then the last two rows.")
    show(f"{bills[::50][1:4] = !s}")
    show(f"{bills[::-1][:2] = !s}")

    explain("A subscript after a slice addresses the same dimension: this is row 13.")
    show(f"{bills[10:20][3] = !s}")

    explain("A view keeps the storage alive, also when the array itself is gone.")
    gentoos = bills[151:274]
    del bills
    show(f"{len(gentoos) = }")
    show(f"{gentoos[0] = !s}")


def flat_vector_with_size(penguins):
    explain("A flat vector with a size is in storage order: the first column, then the second.")
    flippers = [int(p["flipper_length_mm"]) for p in penguins]
    masses = [int(p["body_mass_g"]) for p in penguins]
    table = velmar.int32(vector=flippers + masses, size=(len(penguins), 2))
    show(f"{table[0] = !s}")
    show(f"{table[:4] = !s}")

    explain("Size alone gives zeros; a vector alone gives one row.")
    show(f"{velmar.uint8(size=(2, 3)) = }")
    show(f"{velmar.uint16(vector=flippers[:5]) = }")


def three_dimensions(penguins):
    explain("Three levels of nesting: species, then bird, then flipper in mm and mass in g.")
    pairs = {"Adelie": [], "Gentoo": [], "Chinstrap": []}
    for p in penguins:
        pairs[p["species"]].append([int(p["flipper_length_mm"]), int(p["body_mass_g"])])
    groups = velmar.int16([birds[:3] for birds in pairs.values()])
    show(f"{groups[1] = !s}")
    show(f"{groups[1][2][0] = }")
    show(f"{groups[::2][1][:2] = !s}")


def complex_and_logical(penguins):
    explain("A complex array has the class of its parts: bill length + depth * 1j, in one row.")
    pairs = [complex(float(p["bill_length_mm"]), float(p["bill_depth_mm"])) for p in penguins]
    bills = velmar.double(pairs, is_complex=True)
    show(f"{bills[0][:3] = !s}")
    show(f"{bills[0][:2] = }")

    explain("Conditions make a logical array: heavier than 4.5 kg, and known to be female.")
    tests = velmar.logical([[int(p["body_mass_g"]) > 4500, p["sex"] == "female"] for p in penguins])
    show(f"{tests[150:154] = !s}")
    show(f"{sum(tests[i][0] for i in range(len(tests))) = }")


def text_and_errors(penguins):
    explain("repr is the call that makes the array again; single keeps 24 bits of each number.")
    lengths = velmar.single([float(p["bill_length_mm"]) for p in penguins[:2]])
    show(f"{lengths = }")
    show(f"{str(eval(repr(lengths))) == str(lengths) = }")

    explain("What does not fit is refused, with a message that says why.")
    refused(lambda: velmar.int32([39.1]), "velmar.int32([39.1])")
    refused(lambda: velmar.uint8([3750]), "velmar.uint8([3750])")
    refused(lambda: velmar.double([[1, 2], [3]]), "velmar.double([[1, 2], [3]])")
    refused(lambda: lengths[0][2], "lengths[0][2]")


def flippers_and_masses(penguins):
    return velmar.int32([[int(p["flipper_length_mm"]), int(p["body_mass_g"])] for p in penguins])


def writes(penguins):
    explain("An assignment through a view goes to the shared storage: the array shows it at once.")
    table = flippers_and_masses(penguins)
    show(f"{table[:3] = !s}")
    first = table[0]
    first[1] = 3800
    table[1:3] = [[187, 3810], [196, 3260]]
    show(f"{table[:3] = !s}")
    show(f"{first = !s}")

    explain("A slice in the last dimension takes a flat sequence: grams to the nearest hundred.")
    for row in table[:3]:
        row[1:] = [round(row[1], -2)]
    show(f"{table[:3] = !s}")

    explain("Nothing is broadcast, and a value that does not fit leaves the array as it was.")
    refused(lambda: table.__setitem__(0, 0), "table[0] = 0")
    refused(lambda: first.__setitem__(1, 3750.5), "first[1] = 3750.5")


def copies_and_comparison(penguins):
    explain("A clone of a view is an array of its own: a write to one is not seen in the other.")
    table = flippers_and_masses(penguins)
    chinstraps = table[274:]
    kept = chinstraps.clone()
    show(f"{len(kept), kept == chinstraps = }")
    table[274][1] = 0
    show(f"{chinstraps[0] = !s}")
    show(f"{kept[0] = !s}")
    show(f"{kept == chinstraps = }")

    explain("Pickles carry arrays and views away, to files or to other processes, and back.")
    loaded = pickle.loads(pickle.dumps(table))
    show(f"{loaded == table = }")
    show(f"{len(loaded), loaded[274:][0][1] = }")
    show(f"{loaded == velmar.int64(table) = }  (another class)")


def loops(penguins):
    explain("A loop yields the rows of an array, and the numbers of a row.")
    table = flippers_and_masses(penguins)  # keeps the array alive during the loops
    for row in table[::150]:
        show(f"{row = !s}")
    show(f"{max(mass for _, mass in table) = }")
    show(f"{sum(flipper for flipper, _ in table) / len(table) = :.1f}")


def main():
    penguins = read_penguins()
    print(f"{len(penguins)} penguins, read from {DATA_FILE.name}.")
    nested_lists_and_subscripts(penguins)
    flat_vector_with_size(penguins)
    three_dimensions(penguins)
    complex_and_logical(penguins)
    text_and_errors(penguins)
    writes(penguins)
    copies_and_comparison(penguins)
    loops(penguins)


if __name__ == "__main__":
    main()
