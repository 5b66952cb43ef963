"""Arrays in rare states: storage gone, never any storage, only an allocated record."""

from __future__ import annotations

import ctypes
import operator
from typing import Any

import velmar

_allocate = ctypes.PYFUNCTYPE(ctypes.py_object, ctypes.py_object, ctypes.c_ssize_t)(
    ("PyType_GenericAlloc", ctypes.pythonapi)
)

KEPT = velmar.double([[[1, 2, 3], [4, 5, 6]], [[7, 8, 9], [10, 11, 12]]])


def bare_record(cls: type) -> Any:
    """An allocated object whose constructor has not run."""
    return _allocate(cls, 0)


def expired_row(cls: Any = velmar.double, **options: Any) -> Any:
    """Row 0 of 2 by 3, yielded by an iterator whose array is gone."""
    return list(cls([[1, 0, 1], [0, 1, 0]], **options))[0]


def expired_plane(cls: Any = velmar.double, **options: Any) -> Any:
    """Plane 0 of 2 by 2 by 3, in the same state."""
    return list(cls([[[1, 0, 1], [0, 1, 0]]] * 2, **options))[0]


def expired_row_of_plane() -> Any:
    array = velmar.double([[[1, 2, 3], [4, 5, 6]]] * 2)
    return list(array)[1][-1]


WITHOUT_STORAGE = [
    ("row", expired_row),
    ("complex_row", lambda: expired_row(velmar.int8, is_complex=True)),
    ("logical_row", lambda: expired_row(velmar.logical)),
    ("plane", expired_plane),
    ("row_of_plane", expired_row_of_plane),
    # A slice of a yielded view has no storage, although the array still exists.
    ("slice_of_row", lambda: list(KEPT[0])[0][::-1]),
    ("slice_of_plane", lambda: list(KEPT)[0][:1]),
    ("empty_slice_of_plane", lambda: list(KEPT)[0][1:1]),
]


def call_method(instance: Any, name: str) -> Any:
    """Call a method so that the interpreter checks that result and error agree."""
    return operator.methodcaller(name)(instance)
