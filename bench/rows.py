# The rows of the benchmark table, and helpers that make a row in one line.
"""A statement can use velmar, np, array, pickle, sys and the data of the row; with makers also a.
A maker can use the same names except a.

A row with makers of b also has b, made from equal data whose elements are separate objects.
"""

import random
from collections.abc import Callable
from dataclasses import dataclass, field
from enum import Enum
from functools import partial

OURS = "velmar"
NUMPY = "numpy"
NUMPY_F = "numpy-F"  # column-major, the fair comparison for operations that reorder elements
ARRAY = "array"  # a list of array.array rows, or one flat array.array
LIST = "list"  # shares the elements; a lower bound where others convert
BYTES = "bytearray"
OTHERWISE = "ours otherwise"  # our arrays with other steps, size or elements, see README.md
PEERS = (NUMPY, NUMPY_F, ARRAY, LIST, BYTES, OTHERWISE)

# Allowed in addition for a construction of any size: arenas of the allocator, pages of code.
PEAK_CONSTANT_BYTES = 1 << 20


class Kind(Enum):
    """What a row measures. The values are part of the JSON results."""

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
class Case:
    """Statements and makers are dicts by column; a maker makes the `a` of its column from data.

    `second` has the makers of `b`, from data of its own.
    """

    name: str
    statements: dict[str, str]
    limit: Limit | None = None
    data: Callable[[], list] | None = None
    makers: dict[str, str] = field(default_factory=dict)
    second: dict[str, str] = field(default_factory=dict)
    kind: Kind = Kind.TIME
    element_bytes: int = 0


def at_most(ratio, peer=None, aim=None):
    return Limit(ratio, peer, aim)


# --- Data: every element is a separate object; all runs use the same values.


def random_float(generator):
    return generator.random() * 1000


def random_int(generator):
    return generator.randrange(-1_000_000, 1_000_000)


def random_byte(generator):
    return generator.randrange(256)


def random_bool(generator):
    return generator.random() < 0.5


def random_complex(generator):
    return complex(generator.random(), generator.random())


def make_nested(rows, columns, draw):
    generator = random.Random(rows * columns)
    return [[draw(generator) for _ in range(columns)] for _ in range(rows)]


def make_flat(count, draw):
    return make_nested(1, count, draw)[0]


def random_array(rows, columns):
    import numpy

    return numpy.random.default_rng(1).random((rows, columns))


def nested(rows, columns, draw):
    return partial(make_nested, rows, columns, draw)


def flat(count, draw):
    return partial(make_flat, count, draw)


# --- Rows.


def from_nested(ours, theirs, letter):
    """Construction from nested lists by column. `letter`: None if array.array has no such type."""
    statements = {
        OURS: f"velmar.{ours}",
        NUMPY: f"np.array({theirs})",
        NUMPY_F: f'np.array({theirs}, order="F")',
        LIST: "[list(row) for row in data]",
    }
    return statements | ({ARRAY: f'[array("{letter}", row) for row in data]'} if letter else {})


def build(name, data, ours, limit=None, theirs="data", letter="d"):
    return Case(name, from_nested(ours, theirs, letter), limit, data)


def build_flat(name, data, ours, limit=None, theirs="data", letter="d"):
    peers = {NUMPY: f"np.array({theirs})", ARRAY: f'array("{letter}", data)', LIST: "list(data)"}
    return Case(name, {OURS: f"velmar.{ours}"} | peers, limit, data)


def peak(name, data, element_bytes, ours, limit=None, theirs="data", letter="d"):
    statements = from_nested(ours, theirs, letter)
    return Case(name, statements, limit, data, kind=Kind.PEAK, element_bytes=element_bytes)


def zeros(rows, columns, limit=None):
    statements = {
        OURS: f"velmar.double(size=({rows}, {columns}))",
        NUMPY: f"np.zeros(({rows}, {columns}))",
        NUMPY_F: f'np.zeros(({rows}, {columns}), order="F")',
        ARRAY: f'[array("d", bytes({columns * 8})) for _ in range({rows})]',
        LIST: f"[[0.0] * {columns} for _ in range({rows})]",
        BYTES: f"bytearray({rows * columns * 8})",
    }
    return Case(f"size=({rows}, {columns})", statements, limit)


def buffer(name, count, shape=None, order="C", limit=None):
    """Construction from memory of doubles: flat, or with a shape in one of the two orders."""
    source = f"np.random.default_rng(1).random({count})"
    shaped = f'{source}.reshape({shape}, order="{order}")' if shape else source
    statements = {
        OURS: "velmar.double(a)",
        NUMPY: "np.array(a)",
        NUMPY_F: 'np.array(a, order="F")',
        BYTES: "bytes(a)",
    }
    makers = dict.fromkeys(statements, shaped) | {BYTES: f"bytearray({source})"}
    if not shape:
        statements[ARRAY] = 'array("d", a)'
        makers[ARRAY] = f'array("d", bytearray({source}))'
    return Case(f"buffer, {name}", statements, limit, makers=makers)


def whole(statement, makers, limit=None, name=None, **others):
    """A statement on the array of each maker; `others`: the statements of columns that differ."""
    statements = dict.fromkeys(makers, statement) | spelled(others)
    return Case(name or statement, statements, limit, makers=makers)


def growth(name, statement, limit, rows, columns, **others):
    """The memory that a statement on an array of random doubles needs, beside that of the array."""
    statements = {OURS: statement} | spelled(others)
    data = partial(random_array, rows, columns)
    element_bytes = rows * columns * 8
    makers = {column: DOUBLE_MAKERS[column] for column in statements}
    return Case(
        name,
        statements,
        limit,
        data,
        makers,
        kind=Kind.GROWTH,
        element_bytes=element_bytes,
    )


def held(rows, columns, limit):
    """The memory of an array of random doubles that was read and has exported its memory."""
    data = partial(random_array, rows, columns)
    statements = {
        OURS: "velmar.double(data)",
        NUMPY: "np.array(data)",
        ARRAY: 'array("d", data.tobytes())',
    }
    element_bytes = rows * columns * 8
    return Case(
        f"held, {rows}x{columns}",
        statements,
        limit,
        data,
        kind=Kind.HELD,
        element_bytes=element_bytes,
    )


def spelled(others):
    """Statements by column; the keywords write the names of columns as identifiers."""
    names = {"numpy_F": NUMPY_F, "ours_otherwise": OTHERWISE}
    return {names.get(column, column): statement for column, statement in others.items()}


DOUBLE_MAKERS = {
    OURS: "velmar.double(data)",
    NUMPY: "np.array(data)",
    NUMPY_F: 'np.array(data, order="F")',
    ARRAY: '[array("d", row) for row in data]',
    LIST: "data",
    OTHERWISE: "velmar.double(data)",
}
SAME_FOR_ALL = (OURS, NUMPY, NUMPY_F, ARRAY, LIST)


INT32_MAKERS = {
    OURS: "velmar.int32(data)",
    NUMPY: 'np.array(data, dtype="int32")',
    NUMPY_F: 'np.array(data, dtype="int32", order="F")',
    ARRAY: '[array("i", row) for row in data]',
    LIST: "data",
}


def use(
    statement,
    limit=None,
    rows=100,
    columns=100,
    name=None,
    draw=random_float,
    makers=DOUBLE_MAKERS,
    second=None,
    **others,
):
    """A statement on an array with this many rows and columns, of doubles unless `makers` differ.

    `second`: the makers of b, if the statement uses one. `others` are the statements of columns
    that differ: numpy (in both orders unless numpy_F is given), array, list and ours_otherwise. A
    column of None is left out.
    """
    if "numpy" in others:
        others.setdefault("numpy_F", others["numpy"])
    statements = dict.fromkeys(SAME_FOR_ALL, statement) | spelled(others)
    statements = {column: text for column, text in statements.items() if text is not None}
    name = f"{name or statement}, {rows}x{columns}"
    return Case(name, statements, limit, nested(rows, columns, draw), makers, second or {})
