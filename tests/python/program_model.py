"""A model of the arrays: storage, views and how long they last, writes, copies, comparison.

Its classes stand in for those of the module: they answer the same expressions, with numbers,
lists and other models. A model shares no code with the module; what owns a storage here is a
Python reference, so that a storage goes when the last strong view of it goes.
"""

from __future__ import annotations

import itertools
import math
import weakref
from collections.abc import Iterator
from types import SimpleNamespace
from typing import Any

from arrays import CLASS_ROWS, ElementClass
from nesting_model import storage_order
from program_values import (
    NOTHING,
    assigned,
    assigned_alone,
    constructed,
    flattened,
)
from slice_model import EMPTY, SliceItem, index_of, item_of, normalized, text_of

LOCKED = "locked shared pointer is null."
TOO_MANY = "too many indices."
NO_INDEX = "index is not an integer or slice."
BEYOND_SLICE = "unable to index into slice."
DIFFERENT = "unable to perform assignment because the left and right sides have a different shape."
UNREADABLE = "slice indices must be integers or None or have an __index__ method"

Range = tuple[int, int, int]  # start, stop and step of one dimension; a fixed one has step 0


class Storage:
    """The elements of one array, first index fastest."""

    def __init__(self, is_complex: bool, shape: list[int], elements: list[Any]):
        self.is_complex = is_complex
        self.shape = shape
        self.elements = elements
        self.strides = [math.prod(shape[:k]) for k in range(len(shape))]

    def _offset(self, position: Any) -> int:
        return sum(map(lambda p, s: p * s, position, self.strides))

    def read(self, position: Any) -> Any:
        return self.elements[self._offset(position)]

    def write(self, position: Any, element: Any) -> None:
        offset = self._offset(position)
        if not 0 <= offset < len(self.elements):  # the entries alone are not looked at
            raise RuntimeError("unable to set value.")
        self.elements[offset] = element

    def nested(self, fixed: tuple[int, ...]) -> Any:
        """What is left behind the fixed leading positions: a nested list, or a number."""
        if len(fixed) == len(self.shape):
            return self.read(fixed)
        return [self.nested((*fixed, i)) for i in range(self.shape[len(fixed)])]


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


def composed(parent: SliceItem, child: SliceItem) -> SliceItem:
    """The child, given in positions of the parent's run, in positions of the storage."""
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


class Array:
    """An array or a view: integer subscripts, perhaps a slice behind them, and a storage."""

    row: ElementClass  # of each class

    def __init__(self, *args: Any, **kwargs: Any):
        if args and not kwargs and isinstance(args[0], dict):
            args, kwargs = args[1:], args[0]
        named = dict(zip(("initializer", "size", "vector", "is_complex"), args, strict=False))
        given = {**named, **kwargs}
        is_complex = given.pop("is_complex", False)
        if type(is_complex) is not bool:
            raise TypeError("value passed to 'is_complex' must be a bool.")
        if is_complex and self.row.kind == "logical":
            raise TypeError("logical arrays must not be complex.")
        data = constructed(self.row, is_complex, **given, vector_is_named="vector" in kwargs)
        self._own(Storage(is_complex, *data))

    def _own(self, storage: Storage) -> None:
        self._is_weak = False
        self._strong: Storage | None = storage
        self._weak: Any = None
        self._integers: tuple[int, ...] = ()
        self._slice: SliceItem | None = None
        self._snapshot: tuple[list[int], list[Any]] | None = None

    def _view(self, integers: tuple[int, ...], item: SliceItem | None, *, weak: bool) -> Array:
        """Another view of the storage; a strong one of a weak one has no storage at all."""
        view = object.__new__(type(self))
        view._is_weak = weak
        view._strong = None if weak else self._strong
        view._weak = self._weak
        if not self._is_weak:
            view._weak = None if self._strong is None else weakref.ref(self._strong)
        view._integers, view._slice, view._snapshot = integers, item, None
        return view

    # Lifetimes.

    def _storage(self) -> Storage:
        found = self._strong
        if self._is_weak and self._weak is not None:
            found = self._weak()
        if found is None:
            raise RuntimeError(LOCKED)
        return found

    def _number_of_dimensions(self) -> int:
        """-1 speaks for a storage that has gone, so that there are always too many indices."""
        if self._is_weak and (self._weak is None or self._weak() is None):
            return -1
        return len(self._storage().shape)

    # Reading.

    def __len__(self) -> int:
        if self._slice is not None:
            return self._slice.length
        return self._storage().shape[len(self._integers)]

    def __getitem__(self, subscript: Any) -> Any:
        if isinstance(subscript, int):
            return self._item(int(subscript))
        if type(subscript) is not slice:
            raise RuntimeError(NO_INDEX)
        item = read_slice(subscript, len(self))
        if self._slice is not None:
            item = composed(self._slice, item)
        return self._view(self._integers, item, weak=False)

    def _item(self, index: int) -> Any:
        length = len(self)
        open_dimensions = self._number_of_dimensions() - len(self._integers)
        if open_dimensions <= 0:
            raise RuntimeError(TOO_MANY)
        integers = (*self._integers, self._in_storage(index_of(index, length)))
        if open_dimensions > 1:
            return self._view(integers, None, weak=self._is_weak)
        return self._storage().read(integers)

    def _in_storage(self, position: int) -> int:
        """The position in the storage that a position of this view means."""
        if self._slice is None:
            return position
        values = self._slice.positions()
        if len(values) <= position:
            raise RuntimeError(BEYOND_SLICE)
        return values[position]

    def _contents(self) -> list:
        storage = self._storage()
        if self._slice is None:
            return storage.nested(self._integers)
        return [storage.nested((*self._integers, p)) for p in self._slice.positions()]

    def __str__(self) -> str:
        return text_of(self._contents())

    def __repr__(self) -> str:
        text = self.__str__()
        complex_part = ", is_complex=True" if self._storage().is_complex else ""
        return f"velmar.{self.row.word}({text}{complex_part})"

    # Writing.

    def __setitem__(self, subscript: Any, value: Any) -> None:
        fixed = len(self._integers)
        open_dimensions = self._number_of_dimensions() - fixed
        if open_dimensions <= 0:
            raise RuntimeError(TOO_MANY)
        storage = self._storage()
        length = self._length_for_writes(storage)
        if isinstance(subscript, int):
            position = self._in_storage(index_of(int(subscript), length))
            write = self._write_number if open_dimensions == 1 else self._write_row
            write(storage, (*self._integers, position), value)
            return
        if type(subscript) is not slice:
            raise RuntimeError(NO_INDEX)
        item = read_slice(subscript, length)
        if open_dimensions > 1:
            self._write_rows(storage, item, value)
        else:
            self._write_numbers(storage, item, value)

    def __delitem__(self, subscript: Any) -> None:
        self[subscript] = NOTHING

    def _length_for_writes(self, storage: Storage) -> int:
        """The length of the dimension in the storage, whatever slice of it the view shows."""
        return storage.shape[len(self._integers)]

    def _flattened(self, storage: Storage, value: Any) -> tuple[list[int], list[Any]]:
        return flattened(value, lambda leaf: assigned(self.row, storage.is_complex, leaf))

    def _write_number(self, storage: Storage, position: tuple[int, ...], value: Any) -> None:
        storage.write(position, assigned_alone(self.row, storage.is_complex, value))

    def _write_row(self, storage: Storage, fixed: tuple[int, ...], value: Any) -> None:
        """A part behind an integer takes data of just its shape."""
        dimensions, elements = self._flattened(storage, value)
        shape = storage.shape[len(fixed) :]
        if dimensions != shape:
            raise ValueError(DIFFERENT)
        for rest, element in zip(itertools.product(*map(range, shape)), elements, strict=True):
            storage.write((*fixed, *rest), element)

    def _write_rows(self, storage: Storage, item: SliceItem, value: Any) -> None:
        """A run of parts takes any nesting, until either side runs out; what is in stays in."""
        elements = self._flattened(storage, value)[1]
        if not elements:
            if item.length:
                raise ValueError("slice is nonempty but values are empty.")
            return
        if not item.length:
            text = "slice is empty, but number of elements assigned is greater than zero."
            raise ValueError(text)
        if self._is_weak:
            raise RuntimeError(LOCKED)  # it is written through a strong view of this one
        if self._slice is not None:
            item = composed(self._slice, item)
        ranges = [(i, i + 1, 0) for i in self._integers] + [(item.start, item.stop, item.step)]
        ranges += [(0, length, 1) for length in storage.shape[len(ranges) :]]
        position = [start for start, _, _ in ranges]
        for element in elements[:-1]:
            storage.write(position, element)
            if not increment(position, ranges):
                raise ValueError("length of slice does not match number of elements.")
        storage.write(position, elements[-1])
        if increment(position, ranges):
            raise ValueError("length of slice does not match number of elements.")

    def _write_numbers(self, storage: Storage, item: SliceItem, value: Any) -> None:
        """In the last dimension a slice means the storage, whatever slice the view shows."""
        dimensions, elements = self._flattened(storage, value)
        positions = item.positions()
        if dimensions != [len(positions)]:
            raise ValueError(DIFFERENT)
        for position, element in zip(positions, elements, strict=True):
            storage.write((*self._integers, position), element)

    # Copies.

    def clone(self) -> Array:
        if self._snapshot is None:
            try:
                self._snapshot = self._materialized()
            except Exception as error:
                raise SystemError("a result with an exception set") from error
        is_complex = self._storage().is_complex
        shape, elements = self._snapshot
        copied = object.__new__(type(self))
        copied._own(Storage(is_complex, list(shape), list(elements)))
        return copied

    def _materialized(self) -> tuple[list[int], list[Any]]:
        storage = self._storage()
        dimensions, elements = self._flattened(storage, self._contents())
        if len(dimensions) == 1:
            dimensions.insert(0, 1)
        if not elements:
            dimensions = [0, *storage.shape[1:]]
        return dimensions, storage_order(dimensions, elements)

    def __reduce__(self) -> tuple:
        storage = self._storage()
        options = {"is_complex": True} if storage.is_complex else {}
        return type(self), (options, storage.nested(self._integers))

    # Iteration and comparison.

    def __iter__(self) -> MCPyIter:
        return MCPyIter(self)

    def _equals(self, other: Any) -> bool:
        if type(self) is not type(other):
            return False
        for x, y in itertools.zip_longest(MCPyIter(self), MCPyIter(other), fillvalue=NOTHING):
            if isinstance(x, Array) and isinstance(y, Array):
                if not x._equals(y):
                    return False
            elif isinstance(x, Array) or isinstance(y, Array) or x != y:
                return False
        return True

    def __eq__(self, other: object) -> bool:
        return self._equals(other)

    def __ne__(self, other: object) -> bool:
        return not self._equals(other)

    def __lt__(self, other: object) -> bool:
        raise NotImplementedError("inequality operators not supported.")

    __le__ = __gt__ = __ge__ = __lt__


class MCPyIter:
    """A walk along the first open dimension, which holds on to nothing."""

    def __init__(self, array: Array):
        shape = array._storage().shape
        fixed = len(array._integers)
        self._source = array._view(array._integers, array._slice, weak=True)
        self._positions: Iterator[int] = iter(
            range(shape[fixed]) if array._slice is None else array._slice.positions()
        )
        self._yields_views = len(shape) - fixed > 1

    def __iter__(self) -> MCPyIter:
        return self

    def __next__(self) -> Any:
        integers = (*self._source._integers, next(self._positions))
        if self._yields_views:
            return self._source._view(integers, None, weak=True)
        return self._source._storage().read(integers)


def _reduced(value: Any, protocol: int = 0) -> Any:
    return value.__reduce__() if isinstance(value, Array) else (lambda: value, ())


def _restored(reduced: Any) -> Any:
    make, arguments = reduced
    return make(*arguments)


def _copied(value: Any) -> Any:
    return _restored(_reduced(value))


def namespace() -> dict[str, Any]:
    """What a program finds under the names of the modules that it uses."""
    # The names are whole, since the interpreter puts them into messages of its own.
    classes = {row.word: type(f"velmar.{row.word}", (Array,), {"row": row}) for row in CLASS_ROWS}
    return {
        "velmar": SimpleNamespace(**classes),
        "copy": SimpleNamespace(copy=_copied, deepcopy=_copied),
        "pickle": SimpleNamespace(dumps=_reduced, loads=_restored),
    }
