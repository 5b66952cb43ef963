"""The eleven classes with their letters, dtypes and limits, and sample data."""

from typing import NamedTuple

import velmar


class Row(NamedTuple):
    word: str
    cls: type
    letter: str
    dtype: str
    low: float
    high: float


def integer(word, letter, low, high):
    return Row(word, getattr(velmar, word), letter, word, low, high)


ROWS = [
    Row("double", velmar.double, "d", "float64", -1.5e308, 5e-324),
    Row("single", velmar.single, "f", "float32", -1.5, 2.0**100),
    integer("int8", "b", -(2**7), 2**7 - 1),
    integer("uint8", "B", 0, 2**8 - 1),
    integer("int16", "h", -(2**15), 2**15 - 1),
    integer("uint16", "H", 0, 2**16 - 1),
    integer("int32", "i", -(2**31), 2**31 - 1),
    integer("uint32", "I", 0, 2**32 - 1),
    integer("int64", "q", -(2**63), 2**63 - 1),
    integer("uint64", "Q", 0, 2**64 - 1),
    Row("logical", velmar.logical, "?", "bool", False, True),
]
NUMBERS = [row for row in ROWS if row.word != "logical"]
FLOATS = ROWS[:2]
INTEGERS = ROWS[2:10]


def nested(row):
    """Two rows of three numbers."""
    one, zero = type(row.low)(1), type(row.low)(0)
    return [[row.low, one, zero], [row.high, zero, one]]


def state(a):
    """What an array is: its class, whether it is complex, its shape and its bytes."""
    return type(a), a._is_complex, memoryview(a).shape, memoryview(a).tobytes("A")
