# What an operation is that is timed over sizes: its statements, its data, the shapes of its arrays.
"""Statements and makers are templates: {rows}, {columns} and so on stand for what Shape has.

A statement may use velmar, np, pa, array, pickle, sys; n, a NumPy array of random elements in row
order; data, the same as nested lists; and a, what the column's maker gives of them. A twin has b as
well: made like a, of elements that are objects of their own.
"""

import re
from collections.abc import Callable
from dataclasses import dataclass, field
from enum import Enum

from rows import ARRAY, LIST, NUMPY, NUMPY_F, OURS

ARROW = "pyarrow"
COLUMNS = (OURS, NUMPY, NUMPY_F, ARRAY, LIST, ARROW)
# The neighbour that a summary compares with is the first of these that has the operation.
FAIREST = (NUMPY_F, NUMPY, ARRAY, LIST, ARROW)

MOST_ELEMENTS = 10**7
ROWS_BESIDE = 10


class Layout(Enum):
    """What the size of an operation counts, and so the shape of its arrays."""

    WHOLE = "elements of the array"  # of as many rows as columns, or of three or ten times as many
    ROW = "elements of the row"  # of one row of ten


# What a reader sees in place of the numbers.
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
    """1, 3, 10, 30 and on (with one step: powers of ten), in arrays of at most so many elements."""
    most //= ROWS_BESIDE if layout is Layout.ROW else 1
    sizes, power = [], 1
    while power <= most:
        sizes += [step * power for step in steps if step * power <= most]
        power *= 10
    return sizes


@dataclass(frozen=True)
class Operation:
    """Statements and makers go by column; the key is the name of its picture."""

    key: str
    title: str
    statements: dict[str, str]
    makers: dict[str, str] = field(default_factory=dict)
    elements: Callable | None = None  # (generator, (rows, columns)) to a NumPy array
    layout: Layout = Layout.WHOLE
    twin: bool = False
    note: str = ""

    def shown(self, column):
        """The statement in one line, with letters for the numbers."""
        lines = self.statements[column].format(**SHOWN).splitlines()
        return " ".join(line.strip() for line in lines)

    def uses(self, name):
        texts = (*self.statements.values(), *self.makers.values())
        return any(re.search(rf"\b{name}\b", text) for text in texts)


# --- Elements. What a list has of them is an object of its own each, but for small ints and bools.


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


# --- What a stands for in each column: doubles, of memory that is resident.

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
    """Columns from keywords: numpy_F is the column numpy-F, and the same as numpy if left out."""
    texts = {NUMPY_F if name == "numpy_F" else name: text for name, text in texts.items()}
    if NUMPY in texts:
        texts.setdefault(NUMPY_F, texts[NUMPY])
    return texts


def in_order(texts):
    """Without the columns that lack the operation."""
    return {column: texts[column] for column in COLUMNS if texts.get(column)}


def build(key, title, elements, note="", **texts):
    """An operation that makes an array, from what data or n holds."""
    return Operation(key, title, in_order(by_column(texts)), {}, elements, note=note)


def use(key, title, statement, layout=Layout.WHOLE, twin=False, note="", **others):
    """An operation on an array of doubles; others spell it otherwise, None: the column lacks it."""
    statements = in_order(dict.fromkeys(COLUMNS, statement) | by_column(others))
    makers = {column: DOUBLES[column] for column in statements}
    return Operation(key, title, statements, makers, floats, layout, twin, note)


def whole(key, title, elements, makers, note="", **texts):
    """An operation on arrays that the makers make of n."""
    statements = in_order(by_column(texts))
    return Operation(key, title, statements, makers, elements, note=note)
