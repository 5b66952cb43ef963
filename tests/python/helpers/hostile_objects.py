"""Hostile objects: their methods can raise or change the arrays in use. And random arguments."""

from __future__ import annotations

import ctypes
import itertools
import math
import random
from collections.abc import Callable
from typing import Any

import velmar

from helpers.arrays import CLASS_ROWS, ElementClass
from helpers.buffer_requests import column_major_strides, format_of, size_of_element
from helpers.lying_exporter import LyingExporter

MOST_DEPTH = 3  # nested hostile actions
MOST_BYTES = 4096  # of the memory of an exporter
MOST_HELD = 12
MOST_ROWS = 4096  # of an array without elements
ODD = [None, "text", b"\x01\x02", 2**70, -(2**70), 2**63 - 1, -(2**63), float("nan"), 1j, object()]
ODD += [True, [], {}, (), range(3), slice(None), slice(None, None, 0), Ellipsis, 10**30, -0.0]


raise_pending_error = ctypes.pythonapi.PyErr_Occurred  # raises what a call left beside its result
raise_pending_error.restype = ctypes.c_void_p


class Mishap(Exception):
    """Raised by the hostile objects."""


class Harm:
    """Performs random actions on the arrays of a walk, which sets `acts`, the list of actions."""

    def __init__(self, rng: random.Random):
        self.rng = rng
        self.acts: list[Callable[[], Any]] = []
        self.depth = 0
        self.done = 0

    def strike(self, percent: int = 60) -> None:
        if self.depth >= MOST_DEPTH or not self.acts or self.rng.randrange(100) >= percent:
            return
        self.depth += 1
        try:
            self.done += 1
            self.rng.choice(self.acts)()
        except (Exception, RecursionError):
            if self.rng.randrange(4) == 0:
                raise
        finally:
            self.depth -= 1

    def answer(self, usual: Any) -> Any:
        """Returns mostly the usual answer; sometimes returns one of a wrong type, or raises."""
        self.strike()
        roll = self.rng.randrange(40)
        if roll == 0:
            raise Mishap("no answer")
        if roll == 1:
            raise self.rng.choice([MemoryError, StopIteration, IndexError, KeyError, OSError])()
        if roll == 2:
            return self.rng.choice([None, "text", -1, 2**70, 1.5, [], object(), 1j, b"12"])
        return usual

    def given_to(self, made: Any) -> Any:
        """Returns the object, a hostile one, after giving it this harm."""
        made.harm = self
        return made


def answered(usual: Callable[..., Any]) -> Callable[..., Any]:
    """A method that mostly returns what `usual` returns."""

    def method(self: Any, *arguments: Any) -> Any:
        return self.harm.answer(usual(self, *arguments))

    return method


class HostileSequence:
    """A sequence whose length changes and whose items can be anything."""

    def __init__(self, harm: Harm, items: list[Any]):
        self.harm, self.items = harm, items

    def __len__(self) -> Any:
        if self.harm.rng.randrange(20) == 0:
            if self.items and self.harm.rng.randrange(2):
                self.items.pop()
            else:
                self.items.append(self.harm.rng.randrange(9))
        return self.harm.answer(len(self.items))

    def __getitem__(self, index: Any) -> Any:
        usual = self.items[index]  # read before the hostile action, returned after it
        if self.harm.rng.randrange(20) == 0:
            self.items.clear()
        return self.harm.answer(usual)

    def __iter__(self) -> Any:
        self.harm.strike()
        return iter(self.items)

    __eq__ = answered(lambda self, other: False)
    __repr__ = answered(lambda self: "HostileSequence")

    def __hash__(self) -> int:
        return 1

    def __del__(self) -> None:
        self.harm.strike(20)


class HostileList(list):
    """A list that is cleared while it is read."""

    harm: Harm

    def __len__(self) -> Any:
        usual = super().__len__()
        self.harm.strike(30)
        return usual

    def __getitem__(self, index: Any) -> Any:
        usual = super().__getitem__(index)
        if self.harm.rng.randrange(10) == 0:
            self.clear()
        return self.harm.answer(usual)


class HostileNumber:
    """An object with all conversions to numbers."""

    def __init__(self, harm: Harm, value: int):
        self.harm, self.value = harm, value

    __index__ = __int__ = answered(lambda self: self.value)
    __float__ = answered(lambda self: float(self.value))
    __complex__ = answered(lambda self: complex(self.value))
    __bool__ = answered(lambda self: bool(self.value))
    __eq__ = answered(lambda self, other: True)

    def __hash__(self) -> int:
        return 2

    def __del__(self) -> None:
        self.harm.strike(20)


def _hostile(base: type) -> type:
    """A subclass of a number type with hostile conversions."""
    names = ("__index__", "__int__", "__float__", "__complex__", "__bool__", "__abs__", "__neg__")
    methods = {name: answered(getattr(base, name, base)) for name in names}
    return type(f"Hostile{base.__name__.title()}", (base,), methods)


HostileInt, HostileFloat, HostileComplex = (_hostile(base) for base in (int, float, complex))


class HostileExporter(LyingExporter):
    """An exporter with hostile actions during requests."""

    harm: Harm

    def fill(self, buffer: Any, flags: int) -> None:
        depth = self.harm.depth
        try:  # an exporter written with ctypes cannot raise
            self.harm.strike()
            raise_pending_error()
        except Exception:
            self.harm.depth = depth
        super().fill(buffer, flags)
        if len(self.requests) > 20:
            self.requests.clear()


def any_exporter(
    kind: type[LyingExporter], rng: random.Random, row: ElementClass, is_complex: bool
) -> Any:
    """An exporter of any description. It has exactly as many bytes as it declares."""
    letter = format_of(row, is_complex)
    if rng.randrange(4) == 0:
        letter = rng.choice(["", "Z", "d", "l", "L", "<d", "B", "?", "xx", "Zd", letter + letter])
    size = size_of_element(row, is_complex)
    itemsize = size if rng.randrange(5) else rng.choice([0, 1, 2, 3, 4, 8, 16, -1, 2**62])
    lengths = [rng.choice([0, 1, 2, 3, 4, 5]) for _ in range(rng.randrange(1, 5))]
    total = min(math.prod(lengths) * size, MOST_BYTES)
    if rng.randrange(5) == 0:
        total = rng.choice([0, 1, 7, 8, total + 1, total + size, max(total - 1, 0)])
    while rng.randrange(5) == 0:
        odd = [-1, 2**31, 2**32, 2**62, 2**63 - 1, 0, 1]
        lengths[rng.randrange(len(lengths))] = rng.choice(odd)
    strides = column_major_strides(lengths, size)
    if rng.randrange(2):  # row by row
        strides = column_major_strides(lengths[::-1], size)[::-1]
    if rng.randrange(5) == 0:
        strides[rng.randrange(len(strides))] = rng.choice([0, -size, 1, 2**62, -(2**63)])
    ndim = len(lengths) if rng.randrange(6) else rng.randrange(len(lengths) + 1)
    missing = rng.randrange(24)
    return kind(
        None if missing == 0 and total == 0 else bytes(total),
        None if missing == 1 else letter.encode(),
        itemsize,
        length=total,
        ndim=ndim,
        shape=None if missing == 2 else lengths,
        strides=None if missing == 3 else strides,
    )


class Cycle:
    """A reference cycle whose finalizer performs a hostile action."""

    def __init__(self, harm: Harm, held: Any):
        self.harm, self.held, self.itself = harm, held, self

    def __del__(self) -> None:
        self.harm.strike()
        self.held = None


def has_endless_rows(array: Any) -> bool:
    """Whether text and lists of an array without elements are too long, as for 2**31 x 0."""
    try:
        lengths = array.size
    except Exception:
        return False  # without storage
    before_none = itertools.takewhile(bool, lengths)
    return 0 in lengths and math.prod(before_none) > MOST_ROWS


class Choices:
    """The arrays and the memory of a walk, and random arguments for its operations."""

    def __init__(self, rng: random.Random):
        self.rng = rng
        self.harm = Harm(rng)
        self.held: list[Any] = []  # iterators and memory
        self.arrays: list[Any] = []

    def array(self) -> Any:
        if not self.arrays or self.rng.randrange(30) == 0:
            self.keep(self.any_class()([[1, 0, 1], [0, 1, 0]]))
        return self.rng.choice(self.arrays)

    def any_class(self) -> Any:
        return self.rng.choice(CLASS_ROWS).cls

    def keep(self, thing: Any) -> Any:
        """Keeps an array, an iterator or memory for later operations."""
        if hasattr(thing, "clone"):
            if has_endless_rows(thing):
                return thing
            pool = self.arrays
        elif isinstance(thing, memoryview | velmar.MCPyIter):
            pool = self.held
        else:
            return thing
        pool.append(thing)
        if len(pool) > MOST_HELD:
            pool.pop(self.rng.randrange(len(pool)))
        return thing

    def number(self) -> Any:
        roll, value = self.rng.randrange(12), self.rng.choice([0, 1, 1, 2, 5, -1, 300, 2**40])
        if roll > 3:
            return self.rng.choice([value, value, float(value), bool(value)])
        if roll == 3:
            return self.rng.choice(ODD)
        if roll == 2:
            return HostileNumber(self.harm, value)
        kind = self.rng.choice([HostileInt, HostileFloat, HostileComplex])
        return self.harm.given_to(kind(value))

    def data(self, depth: int = 0) -> Any:
        roll = self.rng.randrange(14)
        if roll == 0:
            return self.number()
        if roll == 1:
            row = self.rng.choice(CLASS_ROWS)
            is_complex = row.has_complex and self.rng.randrange(3) == 0
            exporter = any_exporter(HostileExporter, self.rng, row, is_complex)
            return self.harm.given_to(exporter)
        if roll == 2 and self.arrays:
            return self.rng.choice(self.arrays)
        if roll == 3 and self.held:
            return self.rng.choice(self.held)
        lengths = self.rng.choice([0, 1, 2, 2, 3, 3, 6])
        deeper = depth < 3 and self.rng.randrange(3) > 0
        items = [self.data(depth + 1) if deeper else self.number() for _ in range(lengths)]
        if roll < 8:
            return items
        if roll < 11:
            return HostileSequence(self.harm, items)
        if roll == 11:
            return tuple(items)
        return self.harm.given_to(HostileList(items))

    def item(self) -> Any:
        roll = self.rng.randrange(10)
        if roll < 5:
            return self.rng.randint(-4, 4)
        if roll == 5:
            return HostileNumber(self.harm, self.rng.randint(-3, 3))
        if roll == 6:
            return self.harm.given_to(HostileInt(self.rng.randint(-3, 3)))
        if roll == 7:
            return self.rng.choice(ODD)
        bounds = [None, None, 0, 1, 2, -1, -2, 5, 2**70, HostileNumber(self.harm, 1)]
        return slice(*(self.rng.choice(bounds) for _ in range(3)))

    def size(self) -> Any:
        count = self.rng.randrange(5)
        lengths: list[Any] = [self.rng.choice([0, 1, 2, 3, 3]) for _ in range(count)]
        roll = self.rng.randrange(8)
        if roll == 0 and lengths:
            odd = [2**45, 2**62, 2**63, -1, 2**70, "x", None, HostileNumber(self.harm, 2)]
            lengths[-1] = self.rng.choice(odd)
        if roll == 1:
            return HostileSequence(self.harm, lengths)
        return self.rng.choice([tuple(lengths), lengths])
