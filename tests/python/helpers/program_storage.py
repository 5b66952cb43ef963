"""A model of what arrays stand on: the elements, and positions and slices of them."""

from __future__ import annotations

import math
from typing import Any

from helpers.program_buffers import shown
from helpers.program_values import NULL_ITEM
from helpers.slice_model import SliceItem, item_of

UNREADABLE = "slice indices must be integers or None or have an __index__ method"

Range = tuple[int, int, int]  # start, stop and step of one dimension; a fixed one has step 0


class Storage:
    """The elements of one array, first index fastest."""

    def __init__(self, is_complex: bool, shape: list[int], elements: list[Any]):
        self.is_complex = is_complex
        self.elements = elements
        self.reshape(shape)

    def reshape(self, shape: list[int]) -> None:
        """Lay another shape over the elements, none of which moves."""
        self.shape = shape
        self.strides = [math.prod(shape[:k]) for k in range(len(shape))]

    def _place(self, position: Any) -> int | None:
        """The element's place; what counts is that there is one, and not each entry."""
        place = sum(map(lambda p, s: p * s, position, self.strides))
        inside = len(position) <= len(self.shape) and 0 <= place < len(self.elements)
        return place if inside else None

    def read(self, position: Any) -> Any:
        place = self._place(position)
        if place is None:
            raise RuntimeError(NULL_ITEM)
        return shown(self.elements[place])

    def write(self, position: Any, element: Any) -> None:
        place = self._place(position)
        if place is None:
            raise RuntimeError("unable to set value.")
        self.elements[place] = element

    def nested(self, fixed: tuple[int, ...]) -> list:
        """What is left behind the fixed leading positions; nothing where no dimension is left."""
        if len(fixed) >= len(self.shape):
            return []
        positions = [(*fixed, i) for i in range(self.shape[len(fixed)])]
        look = self.read if len(fixed) + 1 == len(self.shape) else self.nested
        return [look(position) for position in positions]


def read_slice(subscript: slice, length: int) -> SliceItem:
    """The item that a slice gives on a dimension of this length; the step is looked at first."""
    readable = [bound is None or hasattr(bound, "__index__") for bound in _bounds(subscript)]
    if not readable[0] or (subscript.step is not None and subscript.step.__index__() == 0):
        raise ValueError("slice step cannot be zero.")
    if not all(readable):
        raise TypeError(UNREADABLE)
    return item_of(subscript, length)


def _bounds(subscript: slice) -> tuple[Any, Any, Any]:
    return subscript.step, subscript.start, subscript.stop


def increment(position: list[int], ranges: list[Range]) -> bool:
    """Move to the next position, last entry fastest; false at the end of the walk."""
    for k in reversed(range(len(position))):
        start, stop, step = ranges[k]
        entry = position[k]
        inside = stop < entry <= start if step < 0 else start <= entry < stop
        if not inside:
            return False
        after = entry + step
        last = step == 0 or (after <= stop if step < 0 else after >= stop)
        if not last:
            position[k] = after
            position[k + 1 :] = [each[0] for each in ranges[k + 1 :]]
            return True
        if step == 0:
            return False
    return False
