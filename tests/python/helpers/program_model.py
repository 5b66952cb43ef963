"""A model of the arrays: storage, views and how long they last, writes, copies, comparison.

Programs use its classes instead of those of the module: the same expressions give numbers, lists
and other models. The model shares no code with the module. A storage is owned by Python references,
so it is gone when its last strong view is gone.
"""

from __future__ import annotations

import array
import itertools
import math
import weakref
from collections.abc import Iterator
from types import SimpleNamespace
from typing import Any

from helpers.arrays import CLASS_ROWS, ElementClass
from helpers.buffer_requests import LETTERS, size_of_element
from helpers.conversion_model import assigned
from helpers.failures import (
    DIFFERENT_SHAPE,
    NO_ROOM,
    NO_VALUES,
    NOT_AN_INDEX,
    NOT_DIMENSIONS,
    NULL_POINTER,
    PARTIAL_ARRAY,
    PAST_SLICE,
    STORAGE_GONE,
    TOO_MANY_INDICES,
    UNREADABLE_ITEM,
    WRONG_COUNT,
    different_count,
    unreadable_length,
)
from helpers.nesting_model import storage_order
from helpers.program_buffers import Exported
from helpers.program_storage import Storage, read_slice
from helpers.program_values import (
    NOTHING,
    assigned_alone,
    constructed,
    flattened,
    is_sequence,
    item_or_nothing,
    stored,
)
from helpers.slice_model import SliceItem, index_of, text_of
from helpers.slice_model import resolved as composed
from helpers.write_model import increment


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
        self._is_complex = storage.is_complex
        self._is_weak = False
        self._strong: Storage | None = storage
        self._weak: Any = None
        self._integers: tuple[int, ...] = ()
        self._slice: SliceItem | None = None
        self._snapshot: tuple[list[int], list[Any]] | None = None
        self._copy: Storage | None = None  # the exported memory of a view

    def _view(self, integers: tuple[int, ...], item: SliceItem | None, *, weak: bool) -> Array:
        """Another view of the storage; a strong view made of a weak one has no storage."""
        view = object.__new__(type(self))
        view._is_weak = weak
        view._strong = None if weak else self._strong
        view._weak = self._weak
        if not self._is_weak:
            view._weak = None if self._strong is None else weakref.ref(self._strong)
        view._is_complex = self._is_complex
        view._integers, view._slice, view._snapshot, view._copy = integers, item, None, None
        return view

    # Lifetimes.

    def _storage(self) -> Storage:
        found = self._strong
        if self._is_weak and self._weak is not None:
            found = self._weak()
        if found is None:
            raise STORAGE_GONE.error()
        return found

    def _number_of_dimensions(self) -> int:
        """-1 if the storage is gone, so that there are always too many indices."""
        if self._is_weak and (self._weak is None or self._weak() is None):
            return -1
        return len(self._storage().shape)

    # Reading.

    def __len__(self) -> int:
        if self._slice is not None:
            return self._slice.length
        shape = self._storage().shape
        if len(self._integers) >= len(shape):  # reshaped since
            raise TOO_MANY_INDICES.error()
        return shape[len(self._integers)]

    def __getitem__(self, subscript: Any) -> Any:
        if isinstance(subscript, int):
            return self._item(int(subscript))
        if type(subscript) is not slice:
            raise NOT_AN_INDEX.error()
        item = read_slice(subscript, len(self))
        if self._slice is not None:
            item = composed(self._slice, item)
        return self._view(self._integers, item, weak=False)

    def _item(self, index: int) -> Any:
        length = len(self)
        open_dimensions = self._number_of_dimensions() - len(self._integers)
        if open_dimensions <= 0:
            raise TOO_MANY_INDICES.error()
        integers = (*self._integers, self._in_storage(index_of(index, length)))
        if open_dimensions > 1:
            return self._view(integers, None, weak=self._is_weak)
        return self._storage().read(integers)

    def _in_storage(self, position: int) -> int:
        """The position in the storage of a position in this view."""
        if self._slice is None:
            return position
        values = self._slice.positions()
        if len(values) <= position:
            raise PAST_SLICE.error()
        return values[position]

    def _contents(self) -> list:
        storage = self._storage()
        if self._slice is None:
            return storage.nested(self._integers)
        positions = [(*self._integers, p) for p in self._slice.positions()]
        if len(self._integers) + 1 != len(storage.shape):
            return [storage.nested(position) for position in positions]
        try:
            return [storage.read(position) for position in positions]
        except RuntimeError:
            raise UNREADABLE_ITEM.error() from None

    def __str__(self) -> str:
        return text_of(self._contents())

    def __repr__(self) -> str:
        text = self.__str__()
        complex_part = ", is_complex=True" if self._is_complex else ""
        return f"velmar.{self.row.word}({text}{complex_part})"

    # Writing.

    def __setitem__(self, subscript: Any, value: Any) -> None:
        fixed = len(self._integers)
        open_dimensions = self._number_of_dimensions() - fixed
        if open_dimensions <= 0:
            raise TOO_MANY_INDICES.error()
        storage = self._storage()
        length = self._length_for_writes(storage)
        if isinstance(subscript, int):
            position = self._in_storage(index_of(int(subscript), length))
            write = self._write_number if open_dimensions == 1 else self._write_row
            write(storage, (*self._integers, position), value)
            return
        if type(subscript) is not slice:
            raise NOT_AN_INDEX.error()
        item = read_slice(subscript, length)
        if open_dimensions > 1:
            self._write_rows(storage, item, value)
        else:
            self._write_numbers(storage, item, value)

    def __delitem__(self, subscript: Any) -> None:
        self[subscript] = NOTHING

    def _length_for_writes(self, storage: Storage) -> int:
        """The length of the dimension in the storage, not that of a slice in the view."""
        return storage.shape[len(self._integers)]

    def _flattened(self, value: Any) -> tuple[list[int], list[Any]]:
        def element_of(leaf: Any) -> Any:
            element = assigned(self.row, self._is_complex, leaf)
            return stored(self.row, self._is_complex, leaf, element)

        return flattened(value, element_of)

    def _write_number(self, storage: Storage, position: tuple[int, ...], value: Any) -> None:
        storage.write(position, assigned_alone(self.row, self._is_complex, value))

    def _write_row(self, storage: Storage, fixed: tuple[int, ...], value: Any) -> None:
        """Write to the part behind an integer, which needs data of exactly its shape."""
        dimensions, elements = self._flattened(value)
        shape = storage.shape[len(fixed) :]
        if dimensions != shape:
            raise DIFFERENT_SHAPE.error()
        for rest, element in zip(itertools.product(*map(range, shape)), elements, strict=True):
            storage.write((*fixed, *rest), element)

    def _write_rows(self, storage: Storage, item: SliceItem, value: Any) -> None:
        """Write to a slice of parts: data of any nesting, until either side ends; writes remain."""
        elements = self._flattened(value)[1]
        if not elements:
            if item.length:
                raise NO_VALUES.error()
            return
        if not item.length:
            raise NO_ROOM.error()
        if self._is_weak:
            raise STORAGE_GONE.error()  # the write uses a strong view of this one
        if self._slice is not None:
            item = composed(self._slice, item)
        ranges = [(i, i + 1, 0) for i in self._integers] + [(item.start, item.stop, item.step)]
        ranges += [(0, length, 1) for length in storage.shape[len(ranges) :]]
        position = [start for start, _, _ in ranges]
        for element in elements[:-1]:
            storage.write(position, element)
            if not increment(position, ranges):
                raise WRONG_COUNT.error()
        storage.write(position, elements[-1])
        if increment(position, ranges):
            raise WRONG_COUNT.error()

    def _write_numbers(self, storage: Storage, item: SliceItem, value: Any) -> None:
        """Write to a slice of the last dimension, which counts in the storage, not in the view."""
        dimensions, elements = self._flattened(value)
        positions = item.positions()
        if dimensions != [len(positions)]:
            raise DIFFERENT_SHAPE.error()
        for position, element in zip(positions, elements, strict=True):
            storage.write((*self._integers, position), element)

    # Copies.

    def clone(self) -> Array:
        if self._snapshot is None:
            try:
                self._snapshot = self._materialized()
            except Exception as error:
                raise SystemError("a result with an exception set") from error
        return self._new(self._snapshot_as_storage())

    def _new(self, storage: Storage) -> Array:
        created = object.__new__(type(self))
        created._own(storage)
        return created

    def _snapshot_as_storage(self) -> Storage:
        self._storage()  # raises if the storage is gone
        shape, elements = self._snapshot or ([], [])
        return Storage(self._is_complex, list(shape), list(elements))

    def _materialized(self) -> tuple[list[int], list[Any]]:
        storage = self._storage()
        dimensions, elements = self._flattened(self._contents())
        if len(dimensions) == 1:
            dimensions.insert(0, 1)
        if not elements:
            dimensions = [0, *storage.shape[1:]]
        return dimensions, storage_order(dimensions, elements)

    def __reduce__(self) -> tuple:
        options = {"is_complex": True} if self._is_complex else {}
        return type(self), (options, self._storage().nested(self._integers))

    # Memory.

    def _memory(self) -> Exported:
        """A view exports a copy of its elements, made once."""
        if not self._integers and self._slice is None:
            return Exported(self, self._storage())
        if self._copy is None:
            try:
                self._snapshot = self._snapshot or self._materialized()
                self._copy = self._snapshot_as_storage()
            except Exception:
                raise NULL_POINTER.error() from None
        return Exported(self, self._copy)

    def tomemoryview(self) -> Exported:
        return self._memory()

    def toarray(self) -> array.array:
        letter = LETTERS[self.row.word].replace("?", "B")
        walk = MCPyIter(self)
        try:
            return array.array(letter, walk)
        except Exception:
            left = self._number_of_dimensions() - len(self._integers)
        text = "toarray() can be called only on a one-dimensional sequence."
        raise RuntimeError("toarray() failed." if left == 1 else text)

    def buffer_info(self) -> tuple[int, int]:
        return id(self._storage()), len(self._storage().elements)

    def get_bytewise_strides(self) -> tuple[int, ...]:
        return tuple(self.itemsize * stride for stride in self._storage().strides)

    @property
    def itemsize(self) -> int:
        self._storage()
        return size_of_element(self.row, self._is_complex)

    @property
    def size(self) -> tuple[int, ...]:
        shape = self._storage().shape
        sliced = [] if self._slice is None else [self._slice.length]
        if len(shape) < len(self._integers) + len(sliced):
            raise TOO_MANY_INDICES.error()
        return (*sliced, *shape[len(self._integers) + len(sliced) :])

    _size = size

    # Reshape and extraction.

    def reshape(self, *args: Any, **kwargs: Any) -> Array:
        if self._integers:
            raise PARTIAL_ARRAY.error()
        shape = new_shape(args[0] if len(args) == 1 else args)
        storage = self._storage()
        count = len(storage.elements)
        if math.prod(shape) != count:
            wrapped = (math.prod(shape) + 2**63) % 2**64 - 2**63
            raise different_count(wrapped, count).error()
        if kwargs:
            raise ValueError("reshape() does not accept keyword arguments.")
        storage.reshape(shape)
        return self

    def _extracted(self, part: Any) -> Array:
        """Row 0 of a new array of one row."""
        elements = [part(element) for element in self._storage().elements]
        whole = self._new(Storage(False, [1, len(elements)], elements))
        return whole._view((0,), None, weak=False)

    def _part(self, part: Any) -> Array:
        if not self._is_complex:
            raise ValueError("real() and imag() can be called only on a complex array.")
        return self._extracted(part)

    def real(self) -> Array:
        return self._part(lambda element: element.real)

    def imag(self) -> Array:
        return self._part(lambda element: element.imag)

    def noncomplex(self) -> Array:
        if self._is_complex:
            raise ValueError("noncomplex() must not be called on a complex array.")
        return self._extracted(lambda element: element)

    _real, _imag, _data = property(real), property(imag), property(noncomplex)

    # Iteration and comparison.

    def __iter__(self) -> MCPyIter:
        return MCPyIter(self)

    def _equals(self, other: Any) -> bool:
        if type(self) is not type(other):
            return False
        walks = MCPyIter(self), MCPyIter(other)
        while True:
            x, y = (_next_or_nothing(walk) for walk in walks)
            if x is NOTHING or y is NOTHING:
                return x is y
            if isinstance(x, Array) and isinstance(y, Array):
                if not x._equals(y):
                    return False
            elif isinstance(x, Array) or isinstance(y, Array) or x != y:
                return False

    def __eq__(self, other: object) -> bool:
        return self._equals(other)

    def __ne__(self, other: object) -> bool:
        return not self._equals(other)

    def __lt__(self, other: object) -> bool:
        raise NotImplementedError("inequality operators not supported.")

    __le__ = __gt__ = __ge__ = __lt__


class MCPyIter:
    """An iterator over the first open dimension, which owns nothing."""

    def __init__(self, array: Array):
        shape = array._storage().shape
        fixed = len(array._integers)
        self._source = array._view(array._integers, array._slice, weak=True)
        positions = range(0)
        if fixed < len(shape):
            positions = range(shape[fixed]) if array._slice is None else array._slice.positions()
        self._positions: Iterator[int] = iter(positions)
        self._yields_views = len(shape) - fixed > 1

    def __iter__(self) -> MCPyIter:
        return self

    def __next__(self) -> Any:
        integers = (*self._source._integers, next(self._positions))
        if self._yields_views:
            return self._source._view(integers, None, weak=True)
        return self._source._storage().read(integers)


def _next_or_nothing(walk: MCPyIter) -> Any:
    """The next item; comparison treats every error as the end."""
    try:
        return next(walk)
    except Exception:
        return NOTHING


def _length_or_zero(given: Any) -> int:
    """The length, or 0 if reading it raises."""
    try:
        return len(given)
    except Exception:
        return 0


def new_shape(given: Any) -> list[int]:
    if not is_sequence(given) or _length_or_zero(given) == 0:
        raise NOT_DIMENSIONS.error()
    shape = []
    for index in range(len(given)):
        length = item_or_nothing(given, index)
        if length is NOTHING:
            raise unreadable_length(index).error()
        if not isinstance(length, int) or not 0 <= length < 2**63:
            raise NOT_DIMENSIONS.error()
        shape.append(int(length))
    while len(shape) > 2 and shape[-1] == 1:
        shape.pop()
    return shape


def _memory_of(value: Any) -> Any:
    return value._memory() if isinstance(value, Array) else memoryview(value)


def _reduced(value: Any, protocol: int = 0) -> Any:
    return value.__reduce__() if isinstance(value, Array) else (lambda: value, ())


def _restored(reduced: Any) -> Any:
    make, arguments = reduced
    return make(*arguments)


def _copied(value: Any) -> Any:
    return _restored(_reduced(value))


def namespace() -> dict[str, Any]:
    """The names that programs use, bound to the model."""
    # The names are qualified, because the interpreter puts them into its messages.
    classes = {row.word: type(f"velmar.{row.word}", (Array,), {"row": row}) for row in CLASS_ROWS}
    return {
        "velmar": SimpleNamespace(**classes),
        "array": array,
        "memoryview": _memory_of,
        "copy": SimpleNamespace(copy=_copied, deepcopy=_copied),
        "pickle": SimpleNamespace(dumps=_reduced, loads=_restored),
    }
