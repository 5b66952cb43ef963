"""A model of buffers: memory that arrays of the model export or are built from."""

from __future__ import annotations

import array
import itertools
import math
import struct
from typing import Any, NamedTuple

from helpers.arrays import ElementClass
from helpers.buffer_requests import LETTERS, format_of
from helpers.failures import DOES_NOT_FIT
from helpers.nesting_model import in_storage_order
from helpers.outside_buffers import incompatible, not_complex, same_format

NOT_CONTIGUOUS = "memoryview: underlying buffer is not contiguous"


class Pair(NamedTuple):
    """A complex element of an integer class, with exact parts, unlike a Python complex."""

    real: int
    imag: int

    def __complex__(self) -> complex:
        return complex(float(self.real), float(self.imag))


def shown(element: Any) -> Any:
    return complex(element) if isinstance(element, Pair) else element


class Outside(NamedTuple):
    """The description of a buffer, and its bytes in the order of the memory."""

    format: str
    itemsize: int
    shape: tuple[int, ...]
    is_storage_order: bool
    data: bytes


class Exported:
    """Exported memory: the current elements in the shape of the time of the export."""

    readonly = True

    def __init__(self, owner: Any, storage: Any):
        self.owner = owner  # stays alive as long as the export
        self.format = format_of(owner.row, storage.is_complex)
        self.itemsize = struct.calcsize(f"={LETTERS[owner.row.word]}") * (1 + storage.is_complex)
        self.shape = tuple(storage.shape)
        self.strides = tuple(self.itemsize * stride for stride in storage.strides)
        self._elements = storage.elements

    def tolist(self) -> Any:
        if self.format.startswith("Z"):
            raise NotImplementedError(f"memoryview: unsupported format {self.format}")
        return in_storage_order(self.shape, self._elements)

    def described(self) -> Outside:
        parts = self._elements
        if self.format.startswith("Z"):
            parts = list(itertools.chain(*((e.real, e.imag) for e in parts)))
        data = struct.pack(f"={len(parts)}{self.format[-1]}", *parts)
        return Outside(self.format, self.itemsize, self.shape, True, data)


Exported.__name__ = "memoryview"  # the name under which it is described


def outside(value: Any) -> Outside | None:
    """The description of a buffer, or None for any other value."""
    if isinstance(value, Exported):
        return value.described()
    if not isinstance(value, bytes | bytearray | array.array | memoryview):
        return None
    memory = memoryview(value)
    if not memory.contiguous:
        raise BufferError(NOT_CONTIGUOUS)
    first = memory.strides[0] if memory.ndim else 0
    is_storage_order = memory.ndim > 1 and first == memory.itemsize
    data = memory.tobytes("A")
    return Outside(memory.format, memory.itemsize, memory.shape, is_storage_order, data)


def _check_format(given: Outside, wanted: str) -> None:
    if wanted.startswith("Z") and not given.format.startswith("Z"):
        raise not_complex(given.format).error()
    place = len(wanted) - 1
    if not same_format(given.format[place : place + 1], wanted[place], given.itemsize):
        raise incompatible(given.format, wanted).error()


def taken_over(row: ElementClass, is_complex: bool, given: Outside) -> tuple[list[int], list[Any]]:
    """The dimensions, and the elements in the order of the buffer."""
    wanted = format_of(row, is_complex)
    _check_format(given, wanted)
    letter = wanted[-1]
    size = struct.calcsize(f"={letter}") * (1 + is_complex)
    if len(given.data) % size:
        raise DOES_NOT_FIT.error()
    count = len(given.data) // size
    if letter == "?":
        elements: list[Any] = [byte != 0 for byte in given.data]
    else:
        elements = list(struct.unpack(f"={count * (1 + is_complex)}{letter}", given.data))
    if is_complex:
        make = complex if row.kind == "float" else Pair
        elements = [make(*parts) for parts in zip(elements[::2], elements[1::2], strict=True)]
    dimensions = list(given.shape) if len(given.shape) > 1 else [count]
    if math.prod(dimensions) != count:
        raise DOES_NOT_FIT.error()
    return dimensions, elements
