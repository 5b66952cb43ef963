"""Calls the functions of the capsule that exchange arrays with native clients."""

from __future__ import annotations

import ctypes
from typing import Any

import velmarmultidimarrayforpython as module

_pointer_of = ctypes.PYFUNCTYPE(ctypes.c_void_p, ctypes.py_object, ctypes.c_char_p)(
    ("PyCapsule_GetPointer", ctypes.pythonapi)
)
_table = (ctypes.c_void_p * 5).from_address(
    _pointer_of(module._capi, b"velmarmultidimarrayforpython._capi")
)

# With py_object as argument type, a null pointer would be a ValueError of ctypes.
to_python = ctypes.PYFUNCTYPE(ctypes.py_object, ctypes.c_void_p)(_table[0])
from_python = ctypes.PYFUNCTYPE(ctypes.c_void_p, ctypes.py_object)(_table[1])
bare_from_buffer = ctypes.PYFUNCTYPE(
    ctypes.py_object, ctypes.py_object, ctypes.POINTER(ctypes.c_int)
)(_table[2])
has_buffer = ctypes.PYFUNCTYPE(ctypes.c_bool, ctypes.py_object)(_table[4])


def from_buffer(source: Any) -> tuple[Any, int]:
    """An array of the contents of a buffer, and the number of its element type."""
    number = ctypes.c_int(-1)
    return bare_from_buffer(source, ctypes.byref(number)), number.value


def there_and_back(array: Any) -> Any:
    """An array of the contents that a native client gets: those of the array, or a snapshot."""
    return to_python(from_python(array))
