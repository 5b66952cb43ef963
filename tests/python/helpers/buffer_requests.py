"""Requests to the buffer protocol with any flags, through ctypes, and the expected memory."""

from __future__ import annotations

import contextlib
import ctypes
import itertools
import math
import struct
from collections.abc import Iterator
from typing import Any, NamedTuple

from helpers.arrays import ElementClass
from helpers.failures import Failure

SIMPLE = 0
WRITABLE = 0x1
FORMAT = 0x4
ND = 0x8
STRIDES = 0x10 | ND
C_CONTIGUOUS = 0x20 | STRIDES
F_CONTIGUOUS = 0x40 | STRIDES
ANY_CONTIGUOUS = 0x80 | STRIDES
INDIRECT = 0x100 | STRIDES

# The letter of each class's elements in a format; complex elements have a Z before it.
LETTERS = {
    "double": "d",
    "single": "f",
    "int8": "b",
    "uint8": "B",
    "int16": "h",
    "uint16": "H",
    "int32": "i",
    "uint32": "I",
    "int64": "q",
    "uint64": "Q",
    "logical": "?",
}


class PyBuffer(ctypes.Structure):
    """Py_buffer. `obj` is a plain address, so its reference must be released by hand."""

    _fields_ = [
        ("buf", ctypes.c_void_p),
        ("obj", ctypes.c_void_p),
        ("len", ctypes.c_ssize_t),
        ("itemsize", ctypes.c_ssize_t),
        ("readonly", ctypes.c_int),
        ("ndim", ctypes.c_int),
        ("format", ctypes.c_char_p),
        ("shape", ctypes.POINTER(ctypes.c_ssize_t)),
        ("strides", ctypes.POINTER(ctypes.c_ssize_t)),
        ("suboffsets", ctypes.POINTER(ctypes.c_ssize_t)),
        ("internal", ctypes.c_void_p),
    ]


UNTOUCHED = 0x5A5A5A5A5A5A5A5A

_pointer = ctypes.POINTER(PyBuffer)
_get_buffer = ctypes.PYFUNCTYPE(ctypes.c_int, ctypes.py_object, _pointer, ctypes.c_int)(
    ("PyObject_GetBuffer", ctypes.pythonapi)
)
_release = ctypes.PYFUNCTYPE(None, _pointer)(("PyBuffer_Release", ctypes.pythonapi))
_get_slot = ctypes.PYFUNCTYPE(ctypes.c_void_p, ctypes.py_object, ctypes.c_int)(
    ("PyType_GetSlot", ctypes.pythonapi)
)
_SLOT_OF_GETBUFFER = 1

# The slot itself accepts null pointers, and flags that the interpreter would refuse.
_Slot = ctypes.PYFUNCTYPE(ctypes.c_int, ctypes.c_void_p, _pointer, ctypes.c_int)


def slot_of(cls: type) -> Any:
    return _Slot(_get_slot(cls, _SLOT_OF_GETBUFFER))


def blank() -> PyBuffer:
    """A record in which every byte is 0x5A, so that untouched fields can be recognised."""
    buffer = PyBuffer()
    ctypes.memset(ctypes.byref(buffer), 0x5A, ctypes.sizeof(buffer))
    return buffer


@contextlib.contextmanager
def exported(source: Any, flags: int = SIMPLE) -> Iterator[PyBuffer]:
    """The record that PyObject_GetBuffer fills for these flags; released after the block."""
    buffer = blank()
    assert _get_buffer(source, buffer, flags) == 0
    try:
        yield buffer
    finally:
        _release(buffer)
        assert buffer.obj is None


class Answer(NamedTuple):
    """The result of a request, its error or None, and the record after the request.

    The error has no traceback, because the frames would keep the source alive.
    """

    result: int | None
    error: BaseException | None
    buffer: PyBuffer

    @property
    def failure(self) -> Failure | None:
        return None if self.error is None else Failure(type(self.error), str(self.error))


def ask_slot(source: Any, flags: int) -> Answer:
    """Ask the slot of the class. Release the buffer with `give_back`."""
    buffer = blank()
    try:
        result = slot_of(type(source))(id(source), buffer, flags)
    except Exception as error:
        return Answer(None, error.with_traceback(None), buffer)
    return Answer(result, None, buffer)


def ask(source: Any, flags: int) -> Answer:
    """Ask through the interpreter. Release the buffer with `give_back`."""
    buffer = blank()
    try:
        result = _get_buffer(source, buffer, flags)
    except Exception as error:
        return Answer(None, error.with_traceback(None), buffer)
    return Answer(result, None, buffer)


def give_back(answer: Answer) -> None:
    _release(answer.buffer)


def numbers(pointer: Any, count: int) -> list[int]:
    """The entries of a shape or of strides."""
    return [pointer[i] for i in range(count)]


def memory_of(buffer: PyBuffer) -> bytes:
    return ctypes.string_at(buffer.buf, buffer.len) if buffer.len else b""


def format_of(row: ElementClass, is_complex: bool = False) -> str:
    return ("Z" if is_complex else "") + LETTERS[row.word]


def size_of_element(row: ElementClass, is_complex: bool = False) -> int:
    return struct.calcsize("=" + LETTERS[row.word]) * (2 if is_complex else 1)


def column_major_strides(shape: list[int], itemsize: int) -> list[int]:
    return [itemsize * math.prod(shape[:i]) for i in range(len(shape))]


def column_major(nested: list, shape: list[int]) -> list:
    """The numbers of a nested list, the first dimension fastest."""

    def element(place: tuple[int, ...]) -> Any:
        found: Any = nested
        for index in place:
            found = found[index]
        return found

    places = itertools.product(*(range(length) for length in reversed(shape)))
    return [element(place[::-1]) for place in places]


def packed(elements: list, row: ElementClass, is_complex: bool = False) -> bytes:
    """The bytes of the numbers, one after the other."""
    parts = elements
    if is_complex:
        parts = [part for number in elements for part in (number.real, number.imag)]
    if row.kind in ("signed", "unsigned"):
        parts = [int(part) for part in parts]
    return struct.pack(f"={len(parts)}{LETTERS[row.word]}", *parts)


def assert_fields(buffer, source, flags, *, shape, itemsize, letters, memory):
    """Check every field of an exported buffer."""
    assert buffer.obj == id(source)
    assert buffer.len == len(memory)
    assert buffer.itemsize == itemsize
    assert buffer.ndim == len(shape)
    assert buffer.readonly == 1
    assert buffer.format == (letters.encode() if flags & FORMAT else None)
    assert numbers(buffer.shape, len(shape)) == shape
    assert numbers(buffer.strides, len(shape)) == column_major_strides(shape, itemsize)
    assert not buffer.suboffsets
    assert buffer.internal == UNTOUCHED
    assert memory_of(buffer) == memory


def expected(nested, shape, row, is_complex=False):
    return {
        "shape": shape,
        "itemsize": size_of_element(row, is_complex),
        "letters": format_of(row, is_complex),
        "memory": packed(column_major(nested, shape), row, is_complex),
    }
