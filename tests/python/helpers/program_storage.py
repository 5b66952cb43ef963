"""A model of the storage of arrays: elements and their positions."""

from __future__ import annotations

import math
from typing import Any

from helpers.failures import NULL_POINTER, OUTSIDE_STORAGE, UNREADABLE_BOUND, ZERO_STEP
from helpers.program_buffers import shown
from helpers.slice_model import SliceItem, item_of


class Storage:
    """The elements of one array, first index fastest."""

    def __init__(self, is_complex: bool, shape: list[int], elements: list[Any]):
        self.is_complex = is_complex
        self.elements = elements
        self.reshape(shape)

    def reshape(self, shape: list[int]) -> None:
        """Change the shape; no element moves."""
        self.shape = shape
        self.strides = [math.prod(shape[:k]) for k in range(len(shape))]

    def _place(self, position: Any) -> int | None:
        """The place of the element. Only the place must be valid, not each entry of `position`."""
        place = sum(map(lambda p, s: p * s, position, self.strides))
        inside = len(position) <= len(self.shape) and 0 <= place < len(self.elements)
        return place if inside else None

    def read(self, position: Any) -> Any:
        place = self._place(position)
        if place is None:
            raise NULL_POINTER.error()
        return shown(self.elements[place])

    def write(self, position: Any, element: Any) -> None:
        place = self._place(position)
        if place is None:
            raise OUTSIDE_STORAGE.error()
        self.elements[place] = element

    def nested(self, fixed: tuple[int, ...]) -> list:
        """The nested list behind the fixed positions; empty if no dimension is left."""
        if len(fixed) >= len(self.shape):
            return []
        positions = [(*fixed, i) for i in range(self.shape[len(fixed)])]
        look = self.read if len(fixed) + 1 == len(self.shape) else self.nested
        return [look(position) for position in positions]


def read_slice(subscript: slice, length: int) -> SliceItem:
    """The item of a slice in a dimension of this length; the step is read first."""
    readable = [bound is None or hasattr(bound, "__index__") for bound in _bounds(subscript)]
    if not readable[0] or (subscript.step is not None and subscript.step.__index__() == 0):
        raise ZERO_STEP.error()
    if not all(readable):
        raise UNREADABLE_BOUND.error()
    return item_of(subscript, length)


def _bounds(subscript: slice) -> tuple[Any, Any, Any]:
    return subscript.step, subscript.start, subscript.stop
