"""Exporters of numbers in any byte order and with any strides, at odd addresses."""

from __future__ import annotations

import itertools
import math
import struct
import sys
from collections.abc import Callable
from typing import Any, NamedTuple

import velmar

from helpers.lying_exporter import LyingExporter

NATIVE = "<" if sys.byteorder == "little" else ">"
LETTERS = "bBhHiIqQfd?"
CLASS_OF = {
    "b": velmar.int8,
    "B": velmar.uint8,
    "h": velmar.int16,
    "H": velmar.uint16,
    "i": velmar.int32,
    "I": velmar.uint32,
    "q": velmar.int64,
    "Q": velmar.uint64,
    "e": velmar.single,
    "f": velmar.single,
    "d": velmar.double,
    "?": velmar.logical,
}


def number(letter: str, i: int) -> Any:
    """A value with different bytes, for each letter and each i."""
    if letter == "?":
        return i % 3 == 0
    if letter in "efd":
        return (i - 1) * 1.5 + 0.25
    size = struct.calcsize(letter)
    value = int.from_bytes(bytes((37 * i + 11 * k + 1) % 256 for k in range(size)), "big")
    return value if letter.isupper() else value - (1 << 8 * size - 1)


def flat_bytes(letter: str, order: str, numbers: list) -> bytes:
    parts = [part for x in numbers for part in ((x.real, x.imag) if type(x) is complex else (x,))]
    parts = [part if letter in "efd?" else int(part) for part in parts]
    return struct.pack(f"{order}{len(parts)}{letter}", *parts)


class Layout(NamedTuple):
    """Strides, in elements, and the position of the first element."""

    strides: tuple[int, ...]
    first: int


def layouts(shape: tuple[int, ...]) -> dict[str, Layout]:
    """Both orders, gaps, and a step backwards."""
    row_major = [math.prod(shape[i + 1 :]) for i in range(len(shape))]
    column_major = [math.prod(shape[:i]) for i in range(len(shape))]
    count = math.prod(shape)
    return {
        "rows": Layout(tuple(row_major), 0),
        "columns": Layout(tuple(column_major), 0),
        "gaps": Layout(tuple(2 * stride for stride in row_major), 1),
        "backwards": Layout(tuple(-stride for stride in column_major), count - 1),
    }


def nested(shape: tuple[int, ...], value: Callable, position: tuple[int, ...] = ()) -> Any:
    if len(position) == len(shape):
        return value(position)
    return [nested(shape, value, (*position, i)) for i in range(shape[len(position)])]


class Placed(LyingExporter):
    """A correct exporter of memory with any strides; `first` is the place of the first element."""

    def __init__(
        self,
        memory: bytes,
        format: str,
        itemsize: int,
        shape: tuple[int, ...],
        strides: Any,
        first: int,
    ):
        super().__init__(
            memory,
            format.encode(),
            itemsize,
            length=math.prod(shape) * itemsize,
            ndim=len(shape),
            shape=list(shape) or None,
            strides=list(strides) or None,
        )
        self.first = first

    def fill(self, buffer: Any, flags: int) -> None:
        super().fill(buffer, flags)
        buffer.buf += self.first


def exporter(
    format: str, itemsize: int, shape: tuple[int, ...], layout: Layout, element: Callable
) -> Placed:
    """An exporter of element(position), which gives bytes, in this layout, at an odd address."""
    memory = bytearray((2 * math.prod(shape) + 1) * itemsize + 1)
    for position in itertools.product(*map(range, shape)):
        place = layout.first + sum(map(int.__mul__, position, layout.strides))
        memory[1 + place * itemsize : 1 + (place + 1) * itemsize] = element(position)
    strides = [stride * itemsize for stride in layout.strides]
    first = 1 + layout.first * itemsize
    return Placed(bytes(memory), format, itemsize, shape, strides, first)


def value_at(
    letter: str, is_complex: bool, shape: tuple[int, ...], position: tuple[int, ...]
) -> Any:
    i = sum(k * math.prod(shape[d + 1 :]) for d, k in enumerate(position))
    return complex(number(letter, i), number(letter, i + 1)) if is_complex else number(letter, i)
