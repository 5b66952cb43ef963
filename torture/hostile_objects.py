"""Hostile objects: every method that the module calls can raise or change the arrays in use."""

from __future__ import annotations

import gc
import random
from collections.abc import Callable
from typing import Any

from helpers.lying_exporter import LyingExporter

MOST_DEPTH = 3  # nested hostile actions
PADDING = 4096  # real size in bytes of the memory of exporters that declare a wrong length


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

    def __eq__(self, other: object) -> Any:
        return self.harm.answer(False)

    def __hash__(self) -> int:
        return 1

    def __repr__(self) -> Any:
        return self.harm.answer("HostileSequence")

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

    def __index__(self) -> Any:
        return self.harm.answer(self.value)

    def __int__(self) -> Any:
        return self.harm.answer(self.value)

    def __float__(self) -> Any:
        return self.harm.answer(float(self.value))

    def __complex__(self) -> Any:
        return self.harm.answer(complex(self.value))

    def __bool__(self) -> Any:
        return self.harm.answer(bool(self.value))

    def __eq__(self, other: object) -> Any:
        return self.harm.answer(True)

    def __hash__(self) -> int:
        return 2

    def __del__(self) -> None:
        self.harm.strike(20)


def _asked_of(base: type) -> type:
    """A subclass of a number type with hostile conversions."""

    def asked(name: str) -> Callable[[Any], Any]:
        def method(self: Any) -> Any:
            usual = getattr(base, name)(self) if hasattr(base, name) else base(self)
            return self.harm.answer(usual)

        return method

    names = ("__index__", "__int__", "__float__", "__complex__", "__bool__", "__abs__", "__neg__")
    methods = {name: asked(name) for name in names}
    return type(f"Hostile{base.__name__.title()}", (base,), methods)


HostileInt, HostileFloat, HostileComplex = (_asked_of(base) for base in (int, float, complex))


class HostileExporter(LyingExporter):
    """An exporter with hostile actions during requests. Its memory is larger than it declares."""

    harm: Harm

    def fill(self, buffer: Any, flags: int) -> None:
        depth = self.harm.depth
        try:
            self.harm.strike()
        except Exception:
            self.harm.depth = depth  # an exporter written with ctypes cannot raise
        super().fill(buffer, flags)
        if len(self.requests) > 20:
            self.requests.clear()


def hostile_exporter(harm: Harm) -> HostileExporter:
    rng = harm.rng
    letter = rng.choice([b"d", b"f", b"b", b"B", b"h", b"i", b"q", b"?", b"Zd", b"Zb", b"", b"xx"])
    count, itemsize = rng.randrange(0, 40), rng.choice([0, 1, 2, 4, 8, 16, 3])
    shape = rng.choice([[count], [count, 1], [2, 3], [], [-1, 4], [2**62, 4], [2**32, 2**32], [0]])
    exporter = HostileExporter(
        bytes(PADDING),
        None if rng.randrange(20) == 0 else letter,
        itemsize,
        length=rng.choice([count * itemsize, count, 0, 48, PADDING]),
        ndim=rng.choice([len(shape), len(shape), 0, 1]),
        shape=shape,
        strides=rng.choice([[itemsize] * len(shape), [8, 24], [0, 0, 0], [-8, 8]]),
    )
    if exporter.ndim > len(shape) or exporter.ndim > exporter_strides(exporter):
        exporter.ndim = 0  # do not declare more entries than exist
    exporter.harm = harm
    return exporter


def exporter_strides(exporter: Any) -> int:
    return len(exporter.strides) if exporter.strides is not None else 0


class Cycle:
    """A reference cycle whose finalizer performs a hostile action."""

    def __init__(self, harm: Harm, held: Any):
        self.harm, self.held, self.itself = harm, held, self

    def __del__(self) -> None:
        self.harm.strike()
        self.held = None


def collect() -> None:
    gc.collect(random.randrange(3))
