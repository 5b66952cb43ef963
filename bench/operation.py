"""What an operation is: its statement and its array in each column; and what a job with a limit is.

Statements and makers are templates; {rows}, {columns} and so on are the words of Shape.

A statement can use velmar, np, pa, array, pickle, sys; n, a NumPy array of random elements in row
order; data, the same as nested lists; flat, the same as one list; and a, which the maker of the
column makes of them. With makers of b there is also b, with separate element objects.
"""

import re
from dataclasses import dataclass, field, fields, replace
from enum import Enum
from typing import NamedTuple

OURS = "velmar"
NUMPY = "numpy"
NUMPY_F = "numpy-F"  # column-major, the fair comparison for operations that reorder elements
ARRAY = "array"  # a list of array.array rows, or one flat array.array
LIST = "list"  # shares the elements; a lower bound where others convert
BYTES = "bytearray"
OTHERWISE = "ours otherwise"  # our arrays with other steps, size or elements, see report.py
ARROW = "pyarrow"
COLUMNS = (OURS, NUMPY, NUMPY_F, ARRAY, LIST, BYTES, OTHERWISE, ARROW)
# Columns by keyword, where a keyword is not just the name of its column.
KEYWORDS = {"numpy": (NUMPY, NUMPY_F), "numpy_F": (NUMPY_F,), "rows": (ARRAY, LIST)}

MOST_ELEMENTS = 10**7
ROWS_BESIDE = 10

# What the size of an operation counts. A whole array has as many columns as rows, or three, ten or
# thirty times as many. For an operation on a row the array has ten rows.
WHOLE, ROW = "elements of the array", "elements of the row"

# Shown to readers instead of the numbers.
SHOWN = {"row": "i", "column": "j", "rows": "rows", "columns": "columns", "count": "rows * columns"}
SHOWN |= {"low": "low", "high": "high"}


class Shape(NamedTuple):
    rows: int
    columns: int

    def words(self):
        low = self.rows // 4
        return {
            "rows": self.rows,
            "columns": self.columns,
            "count": self.rows * self.columns,
            "row": self.rows // 2,
            "column": self.columns // 2,
            "low": low,
            "high": low + max(1, self.rows // 2),
        }


def shape_of(size, size_counts):
    if size_counts == ROW:
        return Shape(ROWS_BESIDE, size)
    digits = len(str(size))
    rows = 10 ** ((digits - 1) // 2)
    return Shape(rows, size // rows)


def sizes_up_to(most, size_counts, steps=(1, 3)):
    """1, 3, 10, 30, ... (with one step: powers of ten), for arrays of at most `most` elements."""
    most //= ROWS_BESIDE if size_counts == ROW else 1
    sizes = [step * 10**power for power in range(len(str(most))) for step in steps]
    return [size for size in sizes if size <= most]


class Kind(Enum):
    """What a job measures. The values are part of the JSON results."""

    TIME = "seconds of the statement"
    IMPORT = "seconds of the import, in a fresh process"
    PEAK = "growth of the resident peak, in sizes of the elements, in a fresh process"
    GROWTH = "growth of the resident peak by a use, in sizes of the elements, in a fresh process"
    HELD = "bytes that one object holds in all, in a fresh process"


@dataclass(frozen=True)
class Limit:
    """The upper limit of our result divided by the peer's, or of our result without a peer.

    `aim` is a lower value to work towards.
    """

    ratio: float
    peer: str | None = None
    aim: float | None = None


@dataclass(frozen=True)
class Operation:
    """Statements and makers are dicts by column. A job is an operation at one shape."""

    statements: dict[str, str] = field(default_factory=dict)
    makers: dict[str, str] = field(default_factory=dict)
    makers_of_b: dict[str, str] = field(default_factory=dict)
    elements: str = ""  # a key of ELEMENTS
    size_counts: str = WHOLE
    note: str = ""
    # Of a job:
    shape: Shape = Shape(10, 10)
    limit: Limit | None = None
    kind: Kind = Kind.TIME
    item_bytes: int = 8

    @property
    def element_bytes(self):
        return self.shape.rows * self.shape.columns * self.item_bytes

    def changed(self, **changes):
        """The operation with other fields and statements; the keywords are fields and columns.

        A later keyword replaces an earlier one. A statement None means that the column does not
        have the operation. Of an operation with makers, only their columns remain.
        """
        others = {one.name: changes.pop(one.name) for one in fields(self) if one.name in changes}
        texts = dict(self.statements)
        for keyword, text in changes.items():
            texts |= dict.fromkeys(KEYWORDS.get(keyword, (keyword,)), text)
        makers = others.get("makers", self.makers) or COLUMNS
        columns = [column for column in COLUMNS if texts.get(column) and column in makers]
        return replace(self, statements={column: texts[column] for column in columns}, **others)

    def shown(self, column):
        """The statement in one line, with words instead of numbers."""
        return " ".join(self.statements[column].format(**SHOWN).split())

    def uses(self, name):
        texts = (*self.statements.values(), *self.makers.values(), *self.makers_of_b.values())
        return any(re.search(rf"\b{name}\b", text) for text in texts)


# Makers of `n`. In a list each element is a separate object, except small ints and bools.
ELEMENTS = {
    "floats": "generator.random(shape) * 1000",
    "ints": "generator.integers(-1_000_000, 1_000_000, shape)",
    "small_ints": "generator.integers(0, 256, shape)",
    "whole_floats": "generator.integers(-1_000_000, 1_000_000, shape).astype(float)",
    "bools": "generator.random(shape) < 0.5",
    "complex": "generator.random(shape) + 1j * generator.random(shape)",
}
