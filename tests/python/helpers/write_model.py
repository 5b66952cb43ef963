"""A model of assignment in plain Python: the written elements and the refusals."""

from __future__ import annotations

import itertools
import math
from collections.abc import Callable, Iterable, Iterator, Sequence
from typing import Any

from helpers.failures import (
    DIFFERENT_SHAPE,
    NO_ROOM,
    NO_VALUES,
    NOT_RECTANGULAR,
    OUTSIDE_STORAGE,
    PAST_SLICE,
    SCALAR_EXPECTED,
    UNEVEN,
    WRONG_COUNT,
    Failure,
)
from helpers.nesting_model import in_storage_order, storage_order
from helpers.slice_model import SliceItem, composed, item_of, resolved


def invalid_index(index: int) -> Failure:
    return Failure(IndexError, f"index has an invalid value: {int(index)}")


class Refused(Exception):
    """Ends an assignment with a Failure."""


def refuse(failure: Failure) -> None:
    raise Refused(failure)


def number(value: Any) -> Any:
    """The conversion of velmar.double: a float or an int is accepted, a list is not a scalar."""
    return SCALAR_EXPECTED if isinstance(value, list) else float(value)


def flattened(value: Any, convert: Callable[[Any], Any]) -> tuple[list[int], list[Any]]:
    """The lengths of nested lists, level by level, and all scalars in order."""
    lengths: list[int] = []  # 0 while open
    elements: list[Any] = []
    depths: set[int] = set()

    def walk(node: Any, depth: int) -> None:
        if not isinstance(node, list):
            elements.append(converted(node, convert))
            depths.add(depth)
            if len(depths) > 1:
                refuse(NOT_RECTANGULAR)
            return
        if len({len(child) if isinstance(child, list) else None for child in node}) > 1:
            refuse(UNEVEN)
        if len(lengths) == depth:
            lengths.append(0)
        for child in node:
            walk(child, depth + 1)
        if lengths[depth] not in (0, len(node)):
            refuse(NOT_RECTANGULAR)
        lengths[depth] = len(node)

    walk(value, 0)
    return lengths or [1, 1], elements


def converted(value: Any, convert: Callable[[Any], Any]) -> Any:
    element = convert(value)
    if isinstance(element, Failure):
        refuse(element)
    return element


class Storage:
    """The elements of an array, first index fastest."""

    def __init__(self, shape: Sequence[int], elements: Iterable[Any] | None = None):
        self.shape = tuple(shape)
        count = math.prod(self.shape)
        values = [float(i) for i in range(count)] if elements is None else list(elements)
        self.elements = storage_order(self.shape, values)

    def contents(self) -> list:
        return in_storage_order(self.shape, self.elements)

    def write(self, position: Iterable[int], element: Any) -> None:
        """Only the place in the storage must be valid, not each index."""
        offset, stride = 0, 1
        for index, length in zip(position, self.shape, strict=True):
            offset += index * stride
            stride *= length
        if not 0 <= offset < len(self.elements):
            refuse(OUTSIDE_STORAGE)
        self.elements[offset] = element


def increment(position: list[int], ranges: Sequence[tuple[int, int, int]]) -> bool:
    """Move to the next position, last index fastest; False, without a move, at the last one.

    Each range is the start, stop and step of a dimension; a fixed dimension has step 0.
    """
    for k in reversed(range(len(position))):
        start, stop, step = ranges[k]
        index = position[k]
        inside = start <= index < stop if step >= 0 else stop < index <= start
        if not inside:
            return False
        following = index + step
        if step > 0 and following < stop or step < 0 and following > stop:
            position[k] = following
            position[k + 1 :] = [begin for begin, _, _ in ranges[k + 1 :]]
            return True
        if step == 0:  # a fixed dimension ends the walk
            return False
    return False


class Target:
    """A view to write to: fixed integers and perhaps a slice, in positions of the storage."""

    def __init__(
        self,
        storage: Storage,
        convert: Callable[[Any], Any] = number,
        fixed: tuple[int, ...] = (),
        item: SliceItem | None = None,
    ):
        self.storage = storage
        self.convert = convert
        self.fixed = fixed
        self.item = item

    @property
    def stored_length(self) -> int:
        """The length for the subscripts of an assignment, also if the view ends in a slice."""
        return self.storage.shape[len(self.fixed)]

    @property
    def is_last(self) -> bool:
        return len(self.fixed) == len(self.storage.shape) - 1

    def __len__(self) -> int:
        return self.stored_length if self.item is None else self.item.length

    def __getitem__(self, subscript: int | slice) -> Target:
        if isinstance(subscript, slice):
            if self.item is None:
                item = item_of(subscript, self.stored_length)
            else:
                item = composed(self.item, subscript)
            return Target(self.storage, self.convert, self.fixed, item)
        positions = range(self.stored_length) if self.item is None else self.item.positions()
        if not -len(positions) <= subscript < len(positions):
            refuse(invalid_index(subscript))
        fixed = (*self.fixed, positions[subscript])
        return Target(self.storage, self.convert, fixed)

    def __setitem__(self, subscript: int | slice, value: Any) -> None:
        if not isinstance(subscript, slice):
            self._set_at_integer(subscript, value)
            return
        item = item_of(subscript, self.stored_length)
        if self.is_last:
            self._set_numbers(item.positions(), value)
        else:
            self._set_rows(item, value)

    def _set_at_integer(self, subscript: int, value: Any) -> None:
        length = self.stored_length
        index = subscript + length if subscript < 0 else subscript
        if not 0 <= index < length:
            refuse(invalid_index(subscript))
        if self.item is not None:
            positions = self.item.positions()
            if len(positions) <= index:
                refuse(PAST_SLICE)
            index = positions[index]
        if self.is_last:
            self.storage.write((*self.fixed, index), converted(value, self.convert))
        else:
            self._set_row(index, value)

    def _set_row(self, index: int, value: Any) -> None:
        """Write a sub-array, which needs exactly its dimensions."""
        lengths, elements = flattened(value, self.convert)
        open_lengths = self.storage.shape[len(self.fixed) + 1 :]
        if lengths != list(open_lengths):
            refuse(DIFFERENT_SHAPE)
        places = itertools.product(*map(range, open_lengths))
        for element, place in zip(elements, places):  # noqa: B905 - elements can be missing
            self.storage.write((*self.fixed, index, *place), element)

    def _set_numbers(self, indices: range, value: Any) -> None:
        """Write to a slice of the last dimension; the slice of the view is ignored."""
        lengths, elements = flattened(value, self.convert)
        if len(lengths) != 1 or len(elements) != len(indices):
            refuse(DIFFERENT_SHAPE)
        for index, element in zip(indices, elements, strict=True):
            self.storage.write((*self.fixed, index), element)

    def _set_rows(self, item: SliceItem, value: Any) -> None:
        """Write to a slice of sub-arrays; only the count of elements is checked, at the end."""
        lengths, elements = flattened(value, self.convert)
        if math.prod(lengths) == 0:
            if item.length != 0:
                refuse(NO_VALUES)
            return
        if item.length == 0:
            refuse(NO_ROOM)
        if self.item is not None:
            # Unlike in a read, the item was made for the dimension of the storage, so the written
            # elements may lie outside the view.
            item = resolved(self.item, item)
        ranges = list(self._ranges(item))
        position = [start for start, _, _ in ranges]
        moved, done = True, 0
        while moved and done < len(elements):
            self.storage.write(position, elements[done])
            moved = increment(position, ranges)
            done += 1
        if moved or done < len(elements):
            refuse(WRONG_COUNT)

    def _ranges(self, item: SliceItem) -> Iterator[tuple[int, int, int]]:
        for index in self.fixed:
            yield index, index + 1, 0
        yield item.start, item.stop, item.step
        for length in self.storage.shape[len(self.fixed) + 1 :]:
            yield 0, length, 1


def attempt(target: Any, subscript: Any, value: Any) -> tuple[type, str] | None:
    """Assign to a view or its model: None, or the class and message of the error."""
    try:
        target[subscript] = value
    except Refused as refused:
        return refused.args[0]
    except Exception as error:
        return type(error), str(error)
    return None
