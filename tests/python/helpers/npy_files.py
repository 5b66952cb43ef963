"""Files of NumPy's format, written here byte by byte, and arrays read from bytes."""

from __future__ import annotations

import io
import itertools
import struct
import sys
from typing import Any

import pytest
import velmar

from helpers.arrays import CLASS_ROWS

NATIVE = "<" if sys.byteorder == "little" else ">"
CODES = {row.word: f"{row.kind[0]}{row.cls().itemsize}" for row in CLASS_ROWS}
CODES["logical"] = "b1"
CODES |= {word: code.replace("s", "i") for word, code in CODES.items()}
LETTERS = {row.word: memoryview(row.cls([[1]])).format for row in CLASS_ROWS}
# Class, is_complex, code, letter of struct.
FORMS = [
    *[(row.cls, False, CODES[row.word], LETTERS[row.word]) for row in CLASS_ROWS],
    (velmar.double, True, "c16", "d"),
    (velmar.single, True, "c8", "f"),
]
each_form_of_numpy = pytest.mark.parametrize(
    "cls, is_complex, code, letter", FORMS, ids=[form[2] for form in FORMS]
)


def value_at(letter: str, is_complex: bool, i: int) -> Any:
    if letter == "?":
        return i % 3 == 0
    if letter in "efd":
        return complex(i + 0.5, -i) if is_complex else i - 2.5
    return 1 + i * (1 + 2 ** (8 * struct.calcsize(letter) - 8)) % 100


def header(descr: Any, fortran_order: bool, shape: tuple[int, ...]) -> str:
    return repr({"descr": descr, "fortran_order": fortran_order, "shape": shape}) + "\n"


def file_of(
    text: str, data: bytes = b"", version: tuple[int, int] = (1, 0), length: int | None = None
) -> bytes:
    encoded = text.encode("latin-1" if version < (3, 0) else "utf-8")
    length = len(encoded) if length is None else length
    packed = struct.pack("<H" if version == (1, 0) else "<I", length)
    return b"\x93NUMPY" + bytes(version) + packed + encoded + data


def elements(
    letter: str, order: str, is_complex: bool, shape: tuple[int, ...], fortran_order: bool
) -> tuple[bytes, Any]:
    """The bytes of numbers that count up in the order of the nesting, and the nested list."""
    positions = list(itertools.product(*map(range, shape)))
    numbers = {at: value_at(letter, is_complex, i) for i, at in enumerate(positions)}
    if fortran_order:
        positions.sort(key=lambda at: at[::-1])
    parts = [numbers[at] for at in positions]
    if is_complex:
        parts = [part for x in parts for part in (x.real, x.imag)]

    def nested(at):
        if len(at) == len(shape):
            return numbers[at]
        return [nested((*at, i)) for i in range(shape[len(at)])]

    expected = nested(())
    for _ in range(2 - len(shape)):
        expected = [expected]
    return struct.pack(f"{order}{len(parts)}{letter}", *parts), expected


def loaded(data: bytes) -> Any:
    return velmar.load(io.BytesIO(data))


def saved(a: Any) -> bytes:
    file = io.BytesIO()
    velmar.save(file, a)
    return file.getvalue()


SHAPES = [(), (1,), (5,), (2, 3), (3, 1), (1, 4), (2, 3, 2), (2, 1, 3, 2)]


class Trickle(io.RawIOBase):
    """A file that reads and writes at most three bytes at a time."""

    def __init__(self, data=b""):
        self.file = io.BytesIO(data)

    def readable(self):
        return True

    def writable(self):
        return True

    def readinto(self, buffer):
        return self.file.readinto(memoryview(buffer)[:3])

    def write(self, data):
        return self.file.write(memoryview(data)[:3])
