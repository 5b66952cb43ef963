"""The elements of an array as flat bytes, and an array from such bytes. Shared by the helpers."""

import ctypes
import math
import struct
import sys
from array import array
from pickle import PickleBuffer
from typing import Any

import velmar

LETTERS: dict[Any, Any] = {
    velmar.double: "d",
    velmar.single: "f",
    velmar.int8: "b",
    velmar.uint8: "B",
    velmar.int16: "h",
    velmar.uint16: "H",
    velmar.int32: "i",
    velmar.uint32: "I",
    velmar.int64: "q",
    velmar.uint64: "Q",
    velmar.logical: "?",
}
MOST_DIMENSIONS_OF_A_MEMORYVIEW = 64
# Elements of each size, to reverse the bytes of.
_TO_SWAP = {2: "H", 4: "I", 8: "Q"}
_HALVES_AT_A_TIME = 1 << 16


class _Buffer(ctypes.Structure):
    """Py_buffer, whose layout is part of the stable interface."""

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


def _function(name: str, result: Any, *parameters: Any) -> Any:
    # A separate prototype, because the function objects of ctypes.pythonapi are shared.
    return ctypes.PYFUNCTYPE(result, *parameters)((name, ctypes.pythonapi))


_get_buffer = _function(
    "PyObject_GetBuffer", ctypes.c_int, ctypes.py_object, ctypes.POINTER(_Buffer), ctypes.c_int
)
_release_buffer = _function("PyBuffer_Release", None, ctypes.POINTER(_Buffer))
_memoryview_of = _function("PyMemoryView_FromBuffer", ctypes.py_object, ctypes.POINTER(_Buffer))


def size_of_element(cls: Any, is_complex: bool) -> int:
    """The bytes of an element, of both parts if it is complex."""
    return struct.calcsize(LETTERS[cls]) * (2 if is_complex else 1)


def frame_of(a: Any) -> memoryview:
    """The current elements in storage order, as flat bytes.

    For a whole array it is the memory of the array, for a view a copy.
    """
    size, is_complex = a.size, a._is_complex
    count = math.prod(size)
    if not count:
        return memoryview(b"")
    if not exports_its_storage(a) or len(size) > MOST_DIMENSIONS_OF_A_MEMORYVIEW:
        a = type(a)(a, is_complex=is_complex)
        a.reshape([count])
    return PickleBuffer(a).raw()


def exports_its_storage(a: Any) -> bool:
    """Whether `a` is a whole array and not a view.

    A view exports a copy that is made only once, so a later write makes it out of date. Only the
    address of the export distinguishes a slice of all elements from its array, so this function
    exports such a slice.
    """
    address, count = a.buffer_info()
    size = a.size
    if math.prod(size) != count or len(size) != len(a.get_bytewise_strides()):
        return False
    exported = _Buffer()
    try:
        _get_buffer(a, exported, 0)
    except RuntimeError:
        return False  # a view that cannot be copied; the caller then gets the error
    _release_buffer(exported)
    return bool(exported.buf == address)


def array_from_bytes(
    cls: Any, is_complex: bool, raw: memoryview, size: tuple[int, ...], row_major: bool = False
) -> Any:
    """An array with a copy of flat bytes, which must be as many as `size` needs.

    `size` has at least two dimensions. With `row_major` at most 64, and the last one varies fastest
    in the bytes; otherwise the first one does.
    """
    if not raw.nbytes:
        return cls(size=size, is_complex=is_complex)
    if is_complex:
        return _complex_from_bytes(cls, raw, size, row_major)
    if row_major:
        return cls(raw.cast(LETTERS[cls], size))
    return cls(raw.cast(LETTERS[cls]), size=size)


def _complex_from_bytes(cls: Any, raw: memoryview, size: tuple[int, ...], row_major: bool) -> Any:
    # memoryview.cast() does not support complex formats; PyMemoryView_FromBuffer does.
    itemsize = size_of_element(cls, True)
    shape = size if row_major else (raw.nbytes // itemsize,)
    strides = [itemsize]
    for length in shape[:0:-1]:
        strides.insert(0, strides[0] * length)
    exported = _Buffer()
    _get_buffer(raw, exported, 0)
    try:
        elements = _Buffer(
            buf=exported.buf,
            len=raw.nbytes,
            itemsize=itemsize,
            readonly=1,
            ndim=len(shape),
            format=b"Z" + LETTERS[cls].encode(),
            shape=(ctypes.c_ssize_t * len(shape))(*shape),
            strides=(ctypes.c_ssize_t * len(shape))(*strides),
        )
        with _memoryview_of(elements) as buffer:
            return cls(buffer, size=size, is_complex=True)
    finally:
        _release_buffer(exported)


def swapped(raw: memoryview, itemsize: int) -> memoryview:
    """A copy of flat bytes with the bytes of each item reversed."""
    if itemsize == 1:
        return raw
    items = array(_TO_SWAP[itemsize])
    items.frombytes(raw)
    items.byteswap()
    return memoryview(items).cast("B")


def singles_of(raw: memoryview, is_swapped: bool) -> memoryview:
    """Flat bytes of elements of half precision as bytes of single precision, which is exact."""
    order = "<" if (sys.byteorder == "little") != is_swapped else ">"
    numpy = sys.modules.get("numpy")
    if numpy is not None:  # a hundred times faster
        return PickleBuffer(numpy.frombuffer(raw, f"{order}e").astype("f")).raw()
    singles = array("f")
    for start in range(0, raw.nbytes, 2 * _HALVES_AT_A_TIME):
        part = raw[start : start + 2 * _HALVES_AT_A_TIME]
        singles.extend(struct.unpack(f"{order}{part.nbytes // 2}e", part))
    return memoryview(singles).cast("B")
