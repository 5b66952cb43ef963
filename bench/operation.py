# What an operation is: its statement and its array in each column; and what a job with a limit is.
"""Statements and makers are templates; {rows}, {columns} and so on are the words of Shape.

A statement can use velmar, np, pa, array, pickle, sys; n, a NumPy array of random elements in row
order; data, the same as nested lists; flat, the same as one list; and a, which the maker of the
column makes of them. With makers of b there is also b, with separate element objects.
"""

import re
from dataclasses import dataclass, field
from enum import Enum
from typing import NamedTuple

OURS = "velmar"
NUMPY = "numpy"
NUMPY_F = "numpy-F"  # column-major, the fair comparison for operations that reorder elements
ARRAY = "array"  # a list of array.array rows, or one flat array.array
LIST = "list"  # shares the elements; a lower bound where others convert
BYTES = "bytearray"
OTHERWISE = "ours otherwise"  # our arrays with other steps, size or elements, see README.md
ARROW = "pyarrow"
COLUMNS = (OURS, NUMPY, NUMPY_F, ARRAY, LIST, BYTES, OTHERWISE, ARROW)
IDENTIFIERS = {"numpy_F": NUMPY_F, "ours_otherwise": OTHERWISE}

MOST_ELEMENTS = 10**7
ROWS_BESIDE = 10


class Layout(Enum):
    """The meaning of the size of an operation, which determines the shape of its arrays."""

    # The array has as many columns as rows, or three, ten or thirty times as many.
    WHOLE = "elements of the array"
    # The array has ten rows; the operation is on one of them.
    ROW = "elements of the row"


# Shown to readers instead of the numbers.
SHOWN = {"row": "i", "column": "j", "rows": "rows", "columns": "columns", "count": "rows * columns"}
SHOWN |= {"low": "low", "high": "high"}


class Shape(NamedTuple):
    rows: int
    columns: int

    def __str__(self):
        return f"{self.rows}x{self.columns}"

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


def shape_of(size, layout):
    if layout is Layout.ROW:
        return Shape(ROWS_BESIDE, size)
    rows = 1
    while (rows * 10) ** 2 <= size:
        rows *= 10
    return Shape(rows, size // rows)


def sizes_up_to(most, layout, steps=(1, 3)):
    """1, 3, 10, 30, ... (with one step: powers of ten), for arrays of at most `most` elements."""
    most //= ROWS_BESIDE if layout is Layout.ROW else 1
    sizes, power = [], 1
    while power <= most:
        sizes += [step * power for step in steps if step * power <= most]
        power *= 10
    return sizes


@dataclass(frozen=True)
class Operation:
    """Statements and makers are dicts by column."""

    title: str
    statements: dict[str, str]
    makers: dict[str, str] = field(default_factory=dict)
    makers_of_b: dict[str, str] = field(default_factory=dict)
    elements: str = ""  # the maker of n
    layout: Layout = Layout.WHOLE
    note: str = ""

    def shown(self, column):
        """The statement in one line, with words instead of numbers."""
        lines = self.statements[column].format(**SHOWN).splitlines()
        return " ".join(line.strip() for line in lines)

    def uses(self, name):
        texts = (*self.statements.values(), *self.makers.values(), *self.makers_of_b.values())
        return any(re.search(rf"\b{name}\b", text) for text in texts)


# --- Jobs: operations at one shape.


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
class Job:
    operation: Operation
    shape: Shape
    limit: Limit | None = None
    kind: Kind = Kind.TIME
    item_bytes: int = 8

    @property
    def name(self):
        return self.operation.title

    @property
    def element_bytes(self):
        return self.shape.rows * self.shape.columns * self.item_bytes

    def statements(self):
        words = self.shape.words()
        return {column: text.format(**words) for column, text in self.operation.statements.items()}


# --- Makers of `n`. In a list each element is a separate object, except small ints and bools.

FLOATS = "generator.random(shape) * 1000"
INTS = "generator.integers(-1_000_000, 1_000_000, shape)"
SMALL_INTS = "generator.integers(0, 256, shape)"
WHOLE_FLOATS = f"{INTS}.astype(float)"
BOOLS = "generator.random(shape) < 0.5"
COMPLEX = "generator.random(shape) + 1j * generator.random(shape)"

# --- Makers of `a` by column: arrays in resident memory.

DOUBLES = {
    OURS: "velmar.double(n)",
    NUMPY: "n.copy()",
    NUMPY_F: 'n.copy("F")',
    ARRAY: '[array("d", row.tobytes()) for row in n]',
    LIST: "n.tolist()",
    ARROW: (
        "pa.ListArray.from_arrays(np.arange(0, {count} + 1, {columns}, dtype='int32'),"
        " n.copy().ravel())"
    ),
}
COMPLEX_DOUBLES = {
    OURS: "velmar.double(n, is_complex=True)",
    NUMPY: "n.copy()",
    NUMPY_F: 'n.copy("F")',
}
FLAT_ARRAY = 'array("d", n.tobytes())'


# --- Operations in one call. Keywords are columns; numpy_F is numpy-F, and like numpy by default.


def changed(statements, texts):
    """The statements with these texts instead, sorted like COLUMNS.

    A text None means that the column does not have the operation.
    """
    texts = {IDENTIFIERS.get(name, name): text for name, text in texts.items()}
    if texts.get(NUMPY):
        texts.setdefault(NUMPY_F, texts[NUMPY])
    texts = statements | texts
    return {column: texts[column] for column in COLUMNS if texts.get(column)}


def build(title, elements, note="", **texts):
    """An operation that makes an array from data, flat or n."""
    return Operation(title, changed({}, texts), elements=elements, note=note)


def use(
    title,
    statement,
    makers=DOUBLES,
    elements=FLOATS,
    layout=Layout.WHOLE,
    makers_of_b=None,
    note="",
    **others,
):
    """An operation on the arrays of the makers. `others` are the statements that differ."""
    texts = changed(dict.fromkeys(makers, statement), others)
    statements = {column: text for column, text in texts.items() if column in makers}
    return Operation(title, statements, makers, makers_of_b or {}, elements, layout, note)
