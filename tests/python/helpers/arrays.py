"""The table of classes, sample arrays, and reading the contents of an array."""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Any

import velmar


@dataclass(frozen=True)
class ElementClass:
    """One array class and the facts about its elements that tests use."""

    word: str
    kind: str  # "float", "signed", "unsigned" or "logical"
    low: float
    high: float

    @property
    def cls(self) -> type:
        return getattr(velmar, self.word)

    @property
    def has_complex(self) -> bool:
        return self.kind != "logical"


def _integer(word: str) -> ElementClass:
    bits = int(word.lstrip("uint"))
    if word.startswith("u"):
        return ElementClass(word, "unsigned", 0, 2**bits - 1)
    return ElementClass(word, "signed", -(2 ** (bits - 1)), 2 ** (bits - 1) - 1)


SINGLE_MAX = 3.4028234663852886e38

CLASS_ROWS = [
    ElementClass("double", "float", -1.7976931348623157e308, 1.7976931348623157e308),
    ElementClass("single", "float", -SINGLE_MAX, SINGLE_MAX),
    *(_integer(f"{sign}int{bits}") for bits in (8, 16, 32, 64) for sign in ("", "u")),
    ElementClass("logical", "logical", False, True),
]
INTEGER_ROWS = [row for row in CLASS_ROWS if row.kind in ("signed", "unsigned")]
COMPLEX_ROWS = [row for row in CLASS_ROWS if row.has_complex]
CLASSES = tuple(row.cls for row in CLASS_ROWS)
FORMS = [(row, False) for row in CLASS_ROWS] + [(row, True) for row in COMPLEX_ROWS]


def every(start: Any = None, stop: Any = None, step: Any = None) -> slice:
    """A slice; bounds that do not matter may be left out."""
    return slice(start, stop, step)


def subscripted(array: Any, chain: list[int | slice]) -> Any:
    for subscript in chain:
        array = array[subscript]
    return array


def line(count: int, cls: Any = None, **options: Any) -> Any:
    """A view of one dimension that holds 0, 1, 2, ... `count` - 1."""
    cls = cls or velmar.double
    return cls(vector=list(range(count)), **options)[0]


def grid(*shape: int) -> list:
    """A nested list of floats of this shape, numbered in the order of the nesting."""

    def level(first: int, rest: tuple[int, ...]) -> Any:
        if not rest:
            return float(first)
        below = math.prod(rest[1:])
        return [level(first + i * below, rest[1:]) for i in range(rest[0])]

    return level(0, shape)


def six() -> velmar.double:
    """2 by 3, holding 1 to 6 in storage order."""
    return velmar.double(vector=[1, 2, 3, 4, 5, 6], size=(2, 3))


def contents(array: Any) -> Any:
    """The nested list of an array or view, read with len() and subscripts only."""
    if not isinstance(array, CLASSES):
        return array
    return [contents(array[i]) for i in range(len(array))]


def as_rows(nested: list) -> list:
    """The contents of a copy of a view with these contents: one level becomes one row."""
    return nested if nested and isinstance(nested[0], list) else [nested]


def exact(value: Any) -> Any:
    """A nested value with the type of each number, so that 1, 1.0, True, -0.0 and nan differ."""
    if isinstance(value, list):
        return [exact(item) for item in value]
    return type(value), repr(value)
