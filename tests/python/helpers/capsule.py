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
_adopt = ctypes.PYFUNCTYPE(ctypes.py_object, ctypes.c_void_p)(_table[0])
_hand_out = ctypes.PYFUNCTYPE(ctypes.c_void_p, ctypes.py_object)(_table[1])


def there_and_back(array: Any) -> Any:
    """An array of the contents that a native client gets: those of the array, or a snapshot."""
    return _adopt(_hand_out(array))
