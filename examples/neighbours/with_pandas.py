"""pandas: the columns of a frame as an array, and an array as a frame."""

import numpy as np
import pandas as pd
import velmar
from example_data import MEASURES, PENGUINS
from with_numpy import from_numpy, to_numpy


def from_frame(frame):
    """An array of a frame's numbers, one row per record; missing values are NaN.

    Does not use velmar.double(frame), because a subscript of a frame selects a column by its label.
    """
    return from_numpy(frame.to_numpy())


def to_frame(a, columns, index=None):
    """A frame with a copy of the elements, which can be changed."""
    return pd.DataFrame(np.array(a), columns=columns, index=index)


def view_as_frame(a, columns):
    """A read-only frame on the memory of an array, without a copy. It shows writes to the array."""
    return pd.DataFrame(to_numpy(a), columns=columns, copy=False)


def main():
    frame = pd.read_csv(PENGUINS)
    measures = from_frame(frame[MEASURES])
    print("From a frame: one copy, integers and floats together become doubles")
    print(f"    {measures.size, type(measures) = }")
    print(f"    {measures[0] = !s}")

    species = frame["species"].astype("category")
    codes = velmar.int8(species.cat.codes.to_numpy())
    print("A column of words as its codes:")
    print(f"    {codes.size, list(species.cat.categories) = }")

    print("To a frame, with the names that arrays do not have:")
    table = to_frame(measures, MEASURES, index=frame["species"])
    table["bill_ratio"] = table["bill_length_mm"] / table["bill_depth_mm"]
    print(table.groupby(level=0).mean().round(2).to_string())

    print("The means as an array again:")
    means = from_frame(table.groupby(level=0).mean().round(2))
    print(f"    {means[0] = !s}")


if __name__ == "__main__":
    main()
