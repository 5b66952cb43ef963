"""`save` and `load`: arrays in NumPy's .npy format, versions 1 to 3, by the standard library."""

import io
import math
import os
import re
import stat
import struct
import sys
from typing import Any, NamedTuple

import velmar
from velmar._memory import (
    LETTERS,
    MOST_DIMENSIONS_OF_A_MEMORYVIEW,
    array_from_bytes,
    frame_of,
    singles_of,
    size_of_element,
    swapped,
)

__all__ = ["load", "save"]

_SIGNATURE = b"\x93NUMPY"
# The length of the header that follows, and its encoding.
_VERSIONS = {(1, 0): ("<H", "latin-1"), (2, 0): ("<I", "latin-1"), (3, 0): ("<I", "utf-8")}
_LONGEST_HEADER = 65535
_ALIGNMENT = 64  # of the elements in the file
_LONGEST_DIMENSION = 2**63 - 1
_PART = 1 << 20  # bytes that are read at first if the size of the file is not known

# The letter of the kind and the size of an element in bytes.
_CODES = {
    velmar.double: "f8",
    velmar.single: "f4",
    velmar.int8: "i1",
    velmar.uint8: "u1",
    velmar.int16: "i2",
    velmar.uint16: "u2",
    velmar.int32: "i4",
    velmar.uint32: "u4",
    velmar.int64: "i8",
    velmar.uint64: "u8",
    velmar.logical: "b1",
}
_COMPLEX_CODES = {velmar.double: "c16", velmar.single: "c8"}
_HALF = "f2"
_FORMS: dict[str, tuple[Any, bool]] = {
    **{code: (cls, False) for cls, code in _CODES.items()},
    **{code: (cls, True) for cls, code in _COMPLEX_CODES.items()},
    _HALF: (velmar.single, False),
}
_DESCRIPTION = re.compile(r"([<>=|]?)([a-zA-Z]\d{0,3})", re.ASCII)
# One entry of the header with the comma after it. NumPy writes these three keys and no other text;
# Python 2 wrote an L after some lengths.
_ENTRY = re.compile(
    r"""\s* (?P<quote>['"]) (?P<key>descr|fortran_order|shape) (?P=quote) \s* : \s*
    (?: (?P<mark>['"]) (?P<text>[^'"\\]*) (?P=mark) | (?P<truth>True|False)
      | \( (?P<lengths>[\dL\s,]*) \) | (?P<records>\[) .* )
    \s* (?: , | \Z )""",
    re.ASCII | re.VERBOSE | re.DOTALL,
)
_LENGTH = re.compile(r"\s*(\d{1,19})L?\s*", re.ASCII)


class _Header(NamedTuple):
    cls: Any
    is_complex: bool
    is_half: bool
    is_swapped: bool
    is_column_major: bool
    shape: tuple[int, ...]


def save(path: Any, a: Any) -> None:
    """Writes an array in NumPy's .npy format, column by column, without a copy of its elements.

    path -- the name of the file as a str or a path, taken as it is; or a file that is open for
        writing bytes, which stays open
    a -- an array of any class, or a view, which is copied as it is now. A row has one dimension in
        the file

    Raises TypeError for complex integers, which the format does not have, and if a is not an array;
    OSError from the file; RuntimeError for a view whose array no longer exists. All but OSError are
    raised before the file is opened.
    """
    if type(a) not in LETTERS:
        name = type(a).__qualname__
        raise TypeError(f"save() must be passed an array, not {name!r}: pass velmar.asarray(x).")
    _check_path(path, "save", "write")
    header = _header_of(a)
    frame = frame_of(a)
    if not isinstance(path, str | os.PathLike):
        _write(path, header)
        _write(path, frame)
        return
    with open(path, "wb") as file:
        file.write(header)
        file.write(frame)


def load(path: Any) -> Any:
    """The array in a file of NumPy's .npy format, versions 1 to 3.

    path -- the name of the file as a str or a path; or a file that is open for reading bytes. It is
        read up to the end of the array, so a file can hold several

    The shape is that of the file; one dimension of n becomes 1 by n, no dimension 1 by 1. Both byte
    orders and both memory orders are read. Half precision becomes single, which holds all its
    values. Memory is allocated only for elements that are in the file. Nothing in the file is run.

    Raises ValueError for a file that is damaged, cut off or not of this format, and for elements
    that no class can hold, such as pickled objects; OSError from the file.
    """
    _check_path(path, "load", "read")
    if not isinstance(path, str | os.PathLike):
        return _read(path)
    with open(path, "rb") as file:
        return _read(file)


def _check_path(path: Any, function: str, method: str) -> None:
    if isinstance(path, io.TextIOBase):
        raise TypeError(f"{function}() needs a file that is open for bytes, not for text.")
    if not isinstance(path, str | os.PathLike) and not callable(getattr(path, method, None)):
        name = type(path).__qualname__
        raise TypeError(f"{function}() needs the name of a file or an open file, not {name!r}.")


def _header_of(a: Any) -> bytes:
    cls = type(a)
    if a._is_complex and cls not in _COMPLEX_CODES:
        raise TypeError(
            f"save() cannot write complex {cls.__name__} elements, because the format has no "
            "complex integers. Save velmar.asarray(a, velmar.double)."
        )
    code = _COMPLEX_CODES[cls] if a._is_complex else _CODES[cls]
    order = "<" if sys.byteorder == "little" else ">"
    if size_of_element(cls, False) == 1:
        order = "|"
    text = repr({"descr": order + code, "fortran_order": len(a.size) > 1, "shape": a.size})
    start = len(_SIGNATURE) + 4
    header = text.encode("ascii")
    header += b" " * (-(start + len(header) + 1) % _ALIGNMENT) + b"\n"
    if len(header) > _LONGEST_HEADER:
        raise ValueError(f"save() cannot write {len(a.size)} dimensions.")
    return _SIGNATURE + bytes((1, 0)) + struct.pack("<H", len(header)) + header


def _write(file: Any, data: bytes | memoryview) -> None:
    if not isinstance(file, io.RawIOBase):
        file.write(data)
        return
    # A file without a buffer may write less than all.
    rest = memoryview(data)
    while rest.nbytes:
        count = file.write(rest)
        if not count:
            raise BlockingIOError("save() needs a file that waits until all bytes are written.")
        rest = rest[count:]


def _invalid(reason: str) -> ValueError:
    return ValueError(f"load() cannot read this file: {reason}.")


def _read(file: Any) -> Any:
    header = _read_header(file)
    cls, is_complex, is_half, is_swapped, is_column_major, shape = header
    size = (1,) * (2 - len(shape)) + shape
    count = math.prod(shape)
    if not count:
        return cls(size=size, is_complex=is_complex)
    itemsize = 2 if is_half else size_of_element(cls, is_complex)
    raw = memoryview(_read_elements(file, count * itemsize))
    if is_half:
        raw = singles_of(raw, is_swapped)
    elif is_swapped:
        raw = swapped(raw, size_of_element(cls, False))
    return array_from_bytes(cls, is_complex, raw, size, not is_column_major and len(shape) > 1)


def _read_header(file: Any) -> _Header:
    start = _read_bytes(file, len(_SIGNATURE) + 2)
    if start[: len(_SIGNATURE)] != _SIGNATURE[: len(start)]:
        raise _invalid("it is not a .npy file")
    if len(start) < len(_SIGNATURE) + 2:
        raise _invalid("it ends in the header")
    version = (start[-2], start[-1])
    if version not in _VERSIONS:
        raise _invalid(f"it has version {version[0]}.{version[1]} of the format, not 1.0 to 3.0")
    layout, encoding = _VERSIONS[version]
    packed = _read_bytes(file, struct.calcsize(layout))
    if len(packed) < struct.calcsize(layout):
        raise _invalid("it ends in the header")
    (length,) = struct.unpack(layout, packed)
    if length > _LONGEST_HEADER:
        raise _invalid(f"its header has {length} bytes; at most {_LONGEST_HEADER} are allowed")
    encoded = _read_bytes(file, length)
    if len(encoded) < length:
        raise _invalid("it ends in the header")
    try:
        text = encoded.decode(encoding)
    except UnicodeDecodeError as error:
        raise _invalid("its header is not valid") from error
    return _parsed(text)


def _parsed(text: str) -> _Header:
    """What the header says. It is a Python dict, but is compared with a pattern and not evaluated:
    the parsers of Python fail in many ways for text that is made to harm.
    """
    text = text.strip(" \t\r\n")
    if text[:1] != "{" or text[-1:] != "}":
        raise _invalid("its header is not valid")
    entries: dict[str, re.Match[str]] = {}
    place, inside = 0, text[1:-1].rstrip(" \t\r\n")
    while place < len(inside):
        entry = _ENTRY.match(inside, place)
        if entry is None or entry["key"] in entries:
            raise _invalid("its header is not valid")
        entries[entry["key"]] = entry
        if entry["records"] is not None:
            if entry["key"] != "descr":
                raise _invalid("its header is not valid")
            raise _invalid("its elements are records. Save one field of them")
        place = entry.end()
    if len(entries) != 3:
        raise _invalid("its header is not valid")
    description, truth = entries["descr"]["text"], entries["fortran_order"]["truth"]
    lengths = entries["shape"]["lengths"]
    if description is None or truth is None or lengths is None:
        raise _invalid("its header is not valid")
    shape = _shape_of(lengths)
    if truth == "False" and len(shape) > MOST_DIMENSIONS_OF_A_MEMORYVIEW:
        raise _invalid(f"it has {len(shape)} dimensions, more than NumPy supports")
    return _Header(*_form_of(description), truth == "True", shape)


def _shape_of(lengths: str) -> tuple[int, ...]:
    parts = lengths.split(",")
    if not parts[-1].strip():
        parts.pop()
    elif len(parts) == 1:
        raise _invalid("its header is not valid")  # a number in brackets, not a tuple
    shape = []
    for part in parts:
        length = _LENGTH.fullmatch(part)
        if length is None or int(length[1]) > _LONGEST_DIMENSION:
            raise _invalid("its header is not valid")
        shape.append(int(length[1]))
    return tuple(shape)


def _form_of(description: str) -> tuple[Any, bool, bool, bool]:
    """The class, is_complex, whether it is half precision, and whether bytes are to be swapped."""
    match = _DESCRIPTION.fullmatch(description)
    order, code = match.groups() if match else ("", "")
    if code.startswith("O"):
        raise _invalid("its elements are pickled Python objects, which can run any code")
    if code not in _FORMS:
        remedy = ""
        if code in ("f10", "f12", "f16", "c20", "c24", "c32"):
            remedy = ". Save numpy.load(path).astype('float64') or .astype('complex128') instead"
        raise _invalid(f"no class can hold its elements of type {description[:80]!r}{remedy}")
    cls, is_complex = _FORMS[code]
    is_swapped = order == (">" if sys.byteorder == "little" else "<")
    return cls, is_complex, code == _HALF, is_swapped


def _read_elements(file: Any, expected: int) -> bytes:
    available = _bytes_left(file)
    if available is not None and available < expected:
        raise _invalid(f"it has {available} bytes of elements; {expected} expected")
    data = _read_bytes(file, expected, _PART if available is None else expected)
    if len(data) < expected:
        raise _invalid(f"it has {len(data)} bytes of elements; {expected} expected")
    return data


def _bytes_left(file: Any) -> int | None:
    """The bytes from here to the end of a file; None if only reading can tell."""
    try:
        if type(file) is io.BytesIO:
            return max(len(file.getbuffer()) - file.tell(), 0)
        # Files of other types, such as compressed ones, can have another size than on the disk.
        if type(file) in (io.BufferedReader, io.BufferedRandom, io.FileIO):
            status = os.fstat(file.fileno())
            if stat.S_ISREG(status.st_mode):
                return max(status.st_size - file.tell(), 0)
    except (OSError, ValueError):
        pass
    return None


def _read_bytes(file: Any, count: int, part: int = _PART) -> bytes:
    """The next bytes, or fewer at the end of the file.

    Reads `part` bytes at first and then as many as were read before, so that a false count
    allocates no memory for bytes that are not in the file.
    """
    parts = []
    have = 0
    while have < count:
        wanted = min(max(part, have), count - have)
        data = file.read(wanted)
        if isinstance(data, str):
            raise TypeError("load() needs a file that is open for bytes, not for text.")
        if not data:
            break
        if len(data) > wanted:
            raise _invalid(f"{wanted} bytes were asked for, but {len(data)} read")
        parts.append(data)
        have += len(data)
    return parts[0] if len(parts) == 1 else b"".join(parts)
