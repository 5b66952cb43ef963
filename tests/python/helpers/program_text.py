"""The parts of the lines of random programs as text: names, subscripts and data.

They are chosen with the models of the names that a program has so far, so that most lines are
valid: an index lies within the array, data has the shape of its target. Some are meant to fail.
"""

from __future__ import annotations

import array
import math
import random
from collections.abc import Callable
from typing import Any, NamedTuple

from helpers.arrays import ElementClass
from helpers.buffer_requests import LETTERS
from helpers.program_buffers import Exported
from helpers.program_model import Array, MCPyIter, composed, read_slice

NAMES = "abcdefgh"
MOST_ELEMENTS = 36
ODD_NUMBERS = [
    *["127", "128", "-128", "-129", "255", "256", "32768", "65536", "2**31", "-2**31-1", "2**32"],
    *["2**53+1", "2**63-1", "2**63", "-2**63", "-2**63-1", "2**64-1", "2**64", "-10**30"],
    *["0.5", "-0.5", "-0.0", "128.5", "-128.9", "1e300", "-1e300", "float('nan')"],
    *["float('inf')", "-float('inf')", "1j", "(0.5-1j)", "(2.0**63+0j)", "(-129+0j)"],
    *["complex('nan')", "True", "False"],
]
NO_NUMBERS = ["None", "'x'", "''", "[1]", "(1, 2)", "range(2)", "object()", "set()", "[1, [2]]"]
NO_SUBSCRIPTS = ["None", "'x'", "1.0", "(0, 1)", "...", "[0]", "1j"]
ODD_BOUNDS = ["'x'", "1.0", "[]", "True", "2**40", "-2**63", "2**63-1", "2**70", "-2**70"]


class Target(NamedTuple):
    """The left side of an assignment: an array and a subscript."""

    text: str
    array: Array
    subscript: str

    @property
    def left(self) -> str:
        return f"{self.text}[{self.subscript}]"

    @property
    def shape(self) -> list[int] | None:
        return shape_of(answer(self.array, self.subscript))


class Writer:
    """Chooses the parts of a line as text: names, subscripts and data."""

    def __init__(self, rng: random.Random, names: dict[str, Any]):
        self.rng = rng
        self.names = names  # bound to models

    def often(self, percent: float) -> bool:
        return self.rng.random() * 100 < percent

    def target(self, of_views: bool = True) -> str:
        """A name to bind. Half of the names mostly hold views, the other half whole arrays."""
        half = len(NAMES) // 2
        names = NAMES if self.often(15) else NAMES[half:] if of_views else NAMES[:half]
        return self.rng.choice(names)

    def found(self, kind: Any) -> list[tuple[str, Any]]:
        """Expressions for objects of this kind: names and items of lists."""
        found = []
        for name in NAMES:
            value = self.names.get(name)
            if isinstance(value, kind):
                found.append((name, value))
            if isinstance(value, list):
                items = [(f"{name}[{i}]", item) for i, item in enumerate(value[:3])]
                found += [(text, item) for text, item in items if isinstance(item, kind)]
        return found

    def array(self) -> tuple[str, Array]:
        found = self.found(Array)
        lasting = [(text, array) for text, array in found if shape_of(array) is not None]
        if lasting and self.often(85):
            some = self.rng.choices(lasting, k=3 if self.often(75) else 1)
            return max(some, key=lambda one: math.prod(shape_of(one[1]) or []))
        return self.rng.choice(found) if found else ("velmar.double()", self.new_array())

    def new_array(self) -> Array:
        return self.names["velmar"].double()

    def iterator(self) -> str:
        found = self.found(MCPyIter)
        return self.rng.choice(found)[0] if found else f"iter({self.array()[0]})"

    # Subscripts.

    def index(self, length: int) -> str:
        if length and self.often(92):
            return str(self.rng.randrange(-length, length))
        if self.often(60):
            return str(self.rng.randint(-length - 3, length + 3))
        return self.rng.choice(["True", "False", *NO_SUBSCRIPTS])

    def slice(self, length: int) -> str:
        def bound() -> str:
            if self.often(45):
                return ""
            if self.often(3):
                return self.rng.choice(ODD_BOUNDS)
            return str(self.rng.randint(-length - 2, length + 2))

        if self.often(4):
            step = self.rng.choice(["0", *ODD_BOUNDS])
        else:
            step = self.rng.choice(["", "", "", "1", "2", "3", "-1", "-1", "-2", "-3"])
        return f"{bound()}:{bound()}" + (f":{step}" if step else "")

    def subscript(self, length: int) -> str:
        return self.index(length) if self.often(55) else self.slice(length)

    def subscripted(self, text: str, array: Any, most: int) -> tuple[str, Any]:
        """The text of up to `most` subscripts of the array, and the model of the result."""
        for _ in range(self.rng.randint(0, most)):
            shape = shape_of(array)
            if not shape:
                break
            subscript = self.subscript(shape[0])
            text, array = f"{text}[{subscript}]", answer(array, subscript)
        return text, array

    def part(self) -> str:
        """An array, a view, or a view of either."""
        return self.subscripted(*self.array(), 2)[0]

    def target_of_write(self, subscript_of: Callable[[int], str]) -> Target:
        text, array = self.array()
        while self.often(35):
            shape = shape_of(array)
            if not shape or len(shape) < 2:
                break
            further = self.subscript(shape[0])
            inner = answer(array, further)
            if not isinstance(inner, Array):
                break
            text, array = f"{text}[{further}]", inner
        shape = shape_of(array)
        return Target(text, array, subscript_of(shape[0] if shape else 2))

    # Data.

    def number(self, row: ElementClass, is_complex: bool) -> str:
        if self.often(4):
            return self.rng.choice(ODD_NUMBERS)
        if self.often(1):
            return self.rng.choice(NO_NUMBERS)
        if is_complex and self.often(60):
            low = 0 if row.kind == "unsigned" else -9
            return str(complex(self.rng.randint(0, 9), self.rng.randint(low, 9)))
        if row.kind == "float" and self.often(40):
            return str(self.rng.randint(-40, 40) / 8)
        low = -9 if row.low < 0 else 0
        return str(self.rng.randint(low, 9))

    def nested(self, shape: list[int], row: ElementClass, is_complex: bool) -> str:
        if not shape:
            return self.number(row, is_complex)
        items = [self.nested(shape[1:], row, is_complex) for _ in range(shape[0])]
        return f"[{', '.join(items)}]"

    def shape(self) -> list[int]:
        while True:
            lengths = self.rng.choices(range(5), [4, 15, 30, 32, 20], k=self.rng.randint(1, 4))
            if math.prod(lengths) <= MOST_ELEMENTS:
                return lengths

    def bent(self, shape: list[int]) -> list[int]:
        """A slightly different shape, or this shape nested differently."""
        count = math.prod(shape)
        return self.rng.choice(
            [[count], [1, *shape], shape[1:], [*shape, 1], [count + 1], [max(count - 1, 0)], [0]]
        )

    def data(self, shape: list[int] | None, array: Array) -> str:
        """Data to assign to a part of this shape."""
        if shape is None or self.often(8):
            shape = self.shape()
        elif self.often(18):
            shape = self.bent(shape)
        if self.often(2):
            return f"bytes({math.prod(shape)})"
        return self.nested(shape, array.row, array._is_complex)

    def buffer(self, row: ElementClass) -> str:
        """An object that exports memory, mostly with elements of this class."""
        count, letter = math.prod(self.shape()), LETTERS[row.word]
        if self.often(8):
            letter = self.rng.choice(list(LETTERS.values()))
        if letter == "?" or (letter == "B" and self.often(50)):
            data = bytes(self.rng.choice([0, 1, 1, 2, 255]) for _ in range(count))
            return f"{data!r}" if self.often(60) else f"memoryview({data!r}).cast({letter!r})"
        low = -9 if letter in "bhiqdf" else 0
        numbers = [self.rng.randint(low, 99) for _ in range(count)]
        flat = f"array.array({letter!r}, {numbers})"
        form = self.rng.choice(["flat"] * 2 + ["shaped"] * 3 + ["cut", "long"])
        if form == "flat":
            return flat
        if form == "shaped":
            shape = tuple(self.factors(count))
            return f"memoryview({flat}).cast('B').cast({letter!r}, {shape})"
        if form == "long" and letter in "iqIQ":
            return f"array.array({'l' if letter in 'iq' else 'L'!r}, {numbers})"
        return f"memoryview({flat})[{self.slice(count)}]"

    def memory(self) -> str | None:
        """An expression for memory that an earlier line exported."""
        found = self.found(Exported | array.array)
        return self.rng.choice(found)[0] if found else None

    def factors(self, count: int) -> list[int]:
        """A shape with this number of elements."""
        if count == 0:
            return self.rng.choice([[0], [0, 0], [0, 3], [3, 0], [2, 0, 2], [0, 1, 4]])
        shape = [1] * self.rng.choice([0, 0, 0, 0, 1])
        while count > 1 and (len(shape) < 3 or self.often(30)):
            length = self.rng.choice([n for n in range(1, count + 1) if count % n == 0])
            shape.append(length)
            count //= length
        return [*shape, count] if count > 1 or not shape else shape


def shape_of(value: Any) -> list[int] | None:
    """The shape of a model, [] for a number, None if it cannot be read."""
    if not isinstance(value, Array):
        return [] if isinstance(value, int | float | complex) else None
    try:
        return [len(value), *value._storage().shape[len(value._integers) + 1 :]]
    except RuntimeError:
        return None


def answer(array: Array, subscript: str) -> Any:
    """The result of this subscript in the model, or None if it raises."""
    try:
        return eval(f"array[{subscript}]", {"array": array})
    except Exception:
        return None


class _Subscripts:
    def __getitem__(self, subscript: Any) -> Any:
        return subscript


def walked(target: Target) -> list[int] | None:
    """The number of elements that an assignment to a slice of a slice needs."""
    array, shape = target.array, target.shape
    subscript = answer(_Subscripts(), target.subscript)
    if not shape or array._slice is None or type(subscript) is not slice:
        return None
    lengths = array._storage().shape[len(array._integers) :]
    if not lengths:
        return None
    item = read_slice(subscript, lengths[0])
    count = len(composed(array._slice, item).positions()) or 1
    return [min(count * math.prod(shape[1:]), MOST_ELEMENTS)]
