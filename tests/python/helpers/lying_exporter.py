"""An object that exports any buffer it is told to, valid or not."""

from __future__ import annotations

import ctypes
import sys
from typing import Any

from helpers.buffer_requests import ANY_CONTIGUOUS, FORMAT, PyBuffer

_GetBuffer = ctypes.PYFUNCTYPE(
    ctypes.c_int, ctypes.py_object, ctypes.POINTER(PyBuffer), ctypes.c_int
)


class _Slot(ctypes.Structure):
    _fields_ = [("slot", ctypes.c_int), ("function", ctypes.c_void_p)]


class _Spec(ctypes.Structure):
    _fields_ = [
        ("name", ctypes.c_char_p),
        ("basicsize", ctypes.c_int),
        ("itemsize", ctypes.c_int),
        ("flags", ctypes.c_uint),
        ("slots", ctypes.POINTER(_Slot)),
    ]


@_GetBuffer
def _export(exporter, buffer, flags):
    exporter.fill(buffer.contents, flags)
    return 0


# There is no slot for the release: it may be called while an exception is set, when a Python
# function must not run. The reference that each buffer holds shows whether it was released.
_GETBUFFER = 1  # the number of the slot
_BASETYPE = 1 << 10
_make_type = ctypes.PYFUNCTYPE(ctypes.py_object, ctypes.POINTER(_Spec))(
    ("PyType_FromSpec", ctypes.pythonapi)
)
_count_up = ctypes.PYFUNCTYPE(None, ctypes.py_object)(("Py_IncRef", ctypes.pythonapi))
_slots = (_Slot * 2)(_Slot(_GETBUFFER, ctypes.cast(_export, ctypes.c_void_p)), _Slot(0, None))
_spec = _Spec(b"lying_exporter.Base", 0, 0, _BASETYPE, _slots)
_Base: Any = _make_type(_spec)


def _numbers(values: list[int] | None) -> Any:
    return None if values is None else (ctypes.c_ssize_t * max(len(values), 1))(*values)


class LyingExporter(_Base):
    """Exports `memory` with an unchecked description.

    Fields that are not given are those of a correct exporter of one dimension. `requests` has the
    flags of all requests.
    """

    def __init__(self, memory: bytes | None, format: bytes | None, itemsize: int, **lies: Any):
        count = len(memory or b"")
        self.memory = None if memory is None else ctypes.create_string_buffer(memory, count or 1)
        self.format = format
        self.itemsize = itemsize
        self.length = lies.pop("length", count)
        self.ndim = lies.pop("ndim", 1)
        self.shape = _numbers(lies.pop("shape", [count // itemsize] if itemsize else None))
        self.strides = _numbers(lies.pop("strides", [itemsize]))
        assert not lies
        self.requests: list[int] = []

    def fill(self, buffer: PyBuffer, flags: int) -> None:
        self.requests.append(flags)
        buffer.buf = None if self.memory is None else ctypes.addressof(self.memory)
        buffer.len, buffer.itemsize = self.length, self.itemsize
        buffer.readonly, buffer.ndim = 1, self.ndim
        buffer.format = self.format
        for name in ("shape", "strides"):
            numbers = getattr(self, name)
            pointer = ctypes.POINTER(ctypes.c_ssize_t)
            setattr(buffer, name, ctypes.cast(numbers, pointer) if numbers else None)
        buffer.suboffsets, buffer.internal = None, None
        _count_up(self)
        buffer.obj = id(self)


def build(cls: Any, exporter: LyingExporter, **options: Any) -> Any:
    """An array of the exported memory, which must be requested once and released."""
    references = sys.getrefcount(exporter)
    try:
        return cls(exporter, **options)
    finally:
        assert exporter.requests == [ANY_CONTIGUOUS | FORMAT]
        assert sys.getrefcount(exporter) == references
