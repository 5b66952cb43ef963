"""A model of subscripts in plain Python: what a view stores, and its elements."""

from __future__ import annotations

from typing import Any, NamedTuple

LONGEST = 2**63 - 1  # the longest step in either direction


class SliceItem(NamedTuple):
    """A slice in positions of the storage, as a view stores it."""

    start: int
    stop: int
    step: int
    length: int

    def positions(self) -> range:
        return range(self.start, self.stop, self.step)


EMPTY = SliceItem(0, 0, 1, 0)  # the only form of an empty slice


def normalized(item: SliceItem, length: int) -> SliceItem:
    """The item for a dimension of this length; a start outside is moved inside."""
    start, stop, step, count = item
    if start == stop or count == 0:
        return EMPTY
    if start >= length:
        start = length - 1
    if start < 0:
        start = max(start + length, 0)
    return SliceItem(start, stop, step, count)


def item_of(subscript: slice, length: int) -> SliceItem:
    """The item of a Python slice in a dimension of this length."""
    start, stop, step = subscript.indices(length)
    step = max(-LONGEST, min(LONGEST, step))
    return normalized(SliceItem(start, stop, step, len(range(start, stop, step))), length)


def resolved(parent: SliceItem, child: SliceItem) -> SliceItem:
    """The child, given in positions of the parent, in positions of the storage."""
    child = normalized(child, parent.length)
    values = parent.positions()
    if not values:
        return parent
    if len(values) <= child.start:
        return EMPTY
    start = values[child.start]
    step = parent.step * child.step
    length = min(len(values), child.length)
    return SliceItem(start, start + step * length, step, length)


def composed(parent: SliceItem, subscript: slice) -> SliceItem:
    """The item of a slice of a view that ends in a slice."""
    return resolved(parent, item_of(subscript, parent.length))


def index_of(subscript: int, length: int) -> int:
    """The position of an integer subscript in a dimension of this length."""
    index = int(subscript)
    position = index + length if index < 0 else index
    if not 0 <= position < length:
        raise IndexError(f"index has an invalid value: {index}")
    return position


class ViewModel:
    """A view: the nested list behind its integer subscripts, and perhaps a slice of it."""

    def __init__(self, nested: list, item: SliceItem | None = None):
        self.nested = nested
        self.item = item

    def __len__(self) -> int:
        return len(self.nested) if self.item is None else self.item.length

    def __getitem__(self, subscript: int | slice) -> Any:
        if isinstance(subscript, slice):
            if self.item is None:
                return ViewModel(self.nested, item_of(subscript, len(self)))
            return ViewModel(self.nested, composed(self.item, subscript))
        position = index_of(subscript, len(self))
        if self.item is not None:
            position = self.item.positions()[position]
        found = self.nested[position]
        return ViewModel(found) if isinstance(found, list) else found

    def contents(self) -> list:
        if self.item is None:
            return self.nested
        return [self.nested[position] for position in self.item.positions()]


def text_of(nested: Any) -> str:
    """The text of a nested list without blanks."""
    return str(nested).replace(" ", "")
