# The operations that are timed over sizes: statements, data, and shapes of the arrays.
"""Statements and makers are templates; {rows}, {columns} and so on are the words of Shape.

A statement can use velmar, np, pa, array, pickle, sys; n, a NumPy array of random elements in row
order; data, the same elements as nested lists; and a, which the maker of the column makes of them.
A twin also has b: made like a, with separate element objects.
"""

import re
from collections.abc import Callable
from dataclasses import dataclass, field
from enum import Enum

from rows import ARRAY, LIST, NUMPY, NUMPY_F, OURS

ARROW = "pyarrow"
COLUMNS = (OURS, NUMPY, NUMPY_F, ARRAY, LIST, ARROW)
# A summary compares with the first of these columns that has the operation.
FAIREST = (NUMPY_F, NUMPY, ARRAY, LIST, ARROW)

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


@dataclass(frozen=True)
class Shape:
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
    """Statements and makers are dicts by column; the key is also the name of the picture."""

    key: str
    title: str
    statements: dict[str, str]
    makers: dict[str, str] = field(default_factory=dict)
    elements: Callable | None = None  # (generator, (rows, columns)) -> NumPy array
    layout: Layout = Layout.WHOLE
    twin: bool = False
    note: str = ""

    def shown(self, column):
        """The statement in one line, with words instead of numbers."""
        lines = self.statements[column].format(**SHOWN).splitlines()
        return " ".join(line.strip() for line in lines)

    def uses(self, name):
        texts = (*self.statements.values(), *self.makers.values())
        return any(re.search(rf"\b{name}\b", text) for text in texts)


# --- Elements. In a list each element is a separate object, except small ints and bools.


def floats(generator, shape):
    return generator.random(shape) * 1000


def ints(generator, shape):
    return generator.integers(-1_000_000, 1_000_000, shape)


def small_ints(generator, shape):
    return generator.integers(0, 256, shape)


def bools(generator, shape):
    return generator.random(shape) < 0.5


def complexes(generator, shape):
    return generator.random(shape) + 1j * generator.random(shape)


# --- What `a` is in each column: doubles in resident memory.

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
COMPLEXES = {
    OURS: "velmar.double(n, is_complex=True)",
    NUMPY: "n.copy()",
    NUMPY_F: 'n.copy("F")',
}


def by_column(texts):
    """Columns from keywords: numpy_F is the column numpy-F; by default it is the same as numpy."""
    texts = {NUMPY_F if name == "numpy_F" else name: text for name, text in texts.items()}
    if NUMPY in texts:
        texts.setdefault(NUMPY_F, texts[NUMPY])
    return texts


def in_order(texts):
    """Sorted like COLUMNS, without the columns that do not have the operation."""
    return {column: texts[column] for column in COLUMNS if texts.get(column)}


def build(key, title, elements, note="", **texts):
    """An operation that makes an array from data or n."""
    return Operation(key, title, in_order(by_column(texts)), {}, elements, note=note)


def use(key, title, statement, layout=Layout.WHOLE, twin=False, note="", **others):
    """An operation on an array of doubles. `others` are the statements of columns that differ.

    A statement None means that the column does not have the operation.
    """
    statements = in_order(dict.fromkeys(COLUMNS, statement) | by_column(others))
    makers = {column: DOUBLES[column] for column in statements}
    return Operation(key, title, statements, makers, floats, layout, twin, note)


def whole(key, title, elements, makers, note="", **texts):
    """An operation on arrays that the makers make from n."""
    statements = in_order(by_column(texts))
    return Operation(key, title, statements, makers, elements, note=note)
