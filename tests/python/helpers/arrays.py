"""What every test file shares: the table of classes, reading an array back, exact errors."""

from __future__ import annotations

import contextlib
from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any

import pytest
import velmar


@dataclass(frozen=True)
class ElementClass:
    """One array class and the facts about its elements that tests reason with."""

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


def each(rows: list[ElementClass]):
    """Parametrize a test by `row`, named by the class's type word."""
    return pytest.mark.parametrize("row", rows, ids=[row.word for row in rows])


def contents(array: Any) -> Any:
    """The nested list that an array or view denotes, read through len() and subscripts alone."""
    if not isinstance(array, tuple(row.cls for row in CLASS_ROWS)):
        return array
    return [contents(array[i]) for i in range(len(array))]


@contextlib.contextmanager
def raises(exception: type[BaseException], message: str) -> Iterator[None]:
    """Expect exactly this exception class (no subclass) with exactly this message."""
    with pytest.raises(exception) as caught:
        yield
    assert caught.type is exception
    assert str(caught.value) == message


FORMS = [(row, False) for row in CLASS_ROWS] + [(row, True) for row in COMPLEX_ROWS]


def each_form(test):
    """Parametrize a test by `row, is_complex`: all classes, and all that can be complex so."""
    ids = [f"complex-{row.word}" if is_complex else row.word for row, is_complex in FORMS]
    return pytest.mark.parametrize("row, is_complex", FORMS, ids=ids)(test)


def exact(value: Any) -> Any:
    """A nested value with each type spelt out, so that 1, 1.0, True, -0.0 and nan all compare."""
    if isinstance(value, list):
        return [exact(item) for item in value]
    return type(value), repr(value)
