"""A model of data for constructors and assignments: dimensions and elements, or an error."""

from __future__ import annotations

import math
from collections.abc import Callable
from typing import Any

from velmarmultidimarrayforpython import ShapeError, SizeError

from helpers.arrays import ElementClass
from helpers.conversion_model import assigned, convert
from helpers.failures import (
    NESTED_VECTOR,
    NOT_NUMERIC,
    NOT_RECTANGULAR,
    NULL_POINTER,
    SCALAR_EXPECTED,
    THREE_POSITIONS,
    TWO_SOURCES,
    UNEVEN,
    Failure,
)
from helpers.nesting_model import mismatch, normalized, storage_order
from helpers.program_buffers import Pair, outside, taken_over

NOTHING = object()  # the value of an assignment that stands for `del`

Convert = Callable[[Any], Any]
Data = tuple[list[int], list[Any]]  # dimensions and elements


def is_sequence(value: Any) -> bool:
    return hasattr(type(value), "__getitem__") and not isinstance(value, dict)


def stored(row: ElementClass, is_complex: bool, value: Any, element: Any) -> Any:
    """The element as it is stored: complex elements of integer classes keep exact parts."""
    if isinstance(element, Failure) or not is_complex or row.kind == "float":
        return element
    if isinstance(value, int):
        return Pair(int(value), 0)
    return Pair(int(element.real), int(element.imag))


def converted(element: Any) -> Any:
    """The element of a conversion; raises if the conversion failed."""
    if isinstance(element, Failure):
        raise element.error()
    return element


def assigned_alone(row: ElementClass, is_complex: bool, value: Any) -> Any:
    """The element for an assignment to a single number."""
    if value is NOTHING:
        raise NULL_POINTER.error()
    if is_sequence(value) and not is_complex:
        if isinstance(value, str):
            raise TypeError("value is not numeric.")
        raise SCALAR_EXPECTED.error()
    return stored(row, is_complex, value, converted(assigned(row, is_complex, value)))


def item_or_nothing(sequence: Any, index: int) -> Any:
    try:
        return sequence[index]
    except Exception:
        return NOTHING


def _length(sequence: Any) -> int:
    """The number of items, which must be all numbers or all sequences of one length."""
    count = len(sequence)
    if count < 2:
        return count
    first = None
    for index in range(count):
        item = item_or_nothing(sequence, index)
        if item is NOTHING:
            raise NULL_POINTER.error()
        if index == 0:
            first = len(item) if is_sequence(item) else None
            continue
        if is_sequence(item) != (first is not None) or (first is not None and len(item) != first):
            raise UNEVEN.error()
    return count


class _Walk:
    """The walk through nested data. A recursive closure would be a reference cycle."""

    def __init__(self, element_of: Convert):
        self.element_of = element_of
        self.dimensions: list[int] = []
        self.elements: list[Any] = []
        self.leaf_depth = 0

    def visit(self, value: Any, depth: int) -> None:
        if value is NOTHING:
            raise NULL_POINTER.error()
        if isinstance(value, str):
            raise NOT_NUMERIC.error()
        if not is_sequence(value):
            self._visit_leaf(value, depth)
            return
        count = _length(value)
        if len(self.dimensions) == depth:
            self.dimensions.append(0)
        for index in range(count):
            self.visit(item_or_nothing(value, index), depth + 1)
        found = self.dimensions[depth] or count  # a length of 0 leaves the dimension open
        if found != count:
            raise NOT_RECTANGULAR.error()
        self.dimensions[depth] = found

    def _visit_leaf(self, value: Any, depth: int) -> None:
        self.elements.append(converted(self.element_of(value)))
        self.leaf_depth = self.leaf_depth or depth
        if self.leaf_depth != depth:
            raise NOT_RECTANGULAR.error()


def flattened(data: Any, element_of: Convert) -> Data:
    """The lengths of the nesting, and the elements with the last level fastest."""
    walk = _Walk(element_of)
    walk.visit(data, 0)
    return walk.dimensions or [1, 1], walk.elements


def _text(dimensions: list[int]) -> str:
    return ", ".join(map(str, dimensions))


def specified_dimensions(size: Any) -> list[int]:
    if not is_sequence(size):
        raise TypeError("value of 'size' must be a sequence.")
    if len(size) == 0:
        raise ValueError("sequence passed to 'size' must not be empty.")
    for length in size:
        if not isinstance(length, int):
            raise TypeError("dimensions must be nonnegative integers.")
        if length < 0:
            text = "size cannot contain negative dimensions. Use nonnegative integers for"
            raise ValueError(f"{text} dimensions.")
    return normalized([int(length) for length in size])


def _fills_storage(calculated: list[int], specified: list[int]) -> bool:
    """Whether data of these dimensions fills `size` in storage order; raises if it does not fit."""
    if not specified or calculated == specified:
        return False
    text = mismatch(_text(calculated), _text(specified))
    if math.prod(calculated) != math.prod(specified):
        raise ShapeError(text)
    if len(calculated) == 1 and calculated[0] > 0:
        return calculated[0] > 1
    if math.prod(specified) != 0:
        raise SizeError(text)
    return False


def _from_vector(vector: Any, specified: list[int], element_of: Convert) -> Data:
    if not is_sequence(vector):
        raise ValueError("value of 'vector' must be a sequence.")
    if isinstance(vector, str):
        raise ValueError("value passed to 'vector' must be numeric.")
    count = len(vector)
    calculated = [count] if specified else [1, count]
    _fills_storage(calculated, specified)
    elements = []
    for index in range(count):
        item = item_or_nothing(vector, index)
        if item is NOTHING:
            raise RuntimeError(f"item {index} could not be retrieved.")
        if is_sequence(item):
            raise NESTED_VECTOR.error()
        element = element_of(item)
        if isinstance(element, Failure):
            raise ValueError(element.message)  # not the class of the failure
        elements.append(element)
    return specified or calculated, elements


def _from_initializer(
    given: tuple[list[int], list[Any]], is_storage_order: bool, specified: list[int]
) -> Data:
    calculated, elements = given
    if math.prod(calculated) != len(elements):
        raise NOT_RECTANGULAR.error()
    if len(calculated) == 1 and specified and len(elements) != math.prod(specified):
        raise ShapeError(mismatch(_text(calculated), _text(specified)))
    if len(calculated) == 1 and not specified:
        calculated = [min(calculated[0], 1), calculated[0]]
    if len(calculated) > 1:
        calculated = normalized(calculated)
    is_storage_order |= _fills_storage(calculated, specified)
    dimensions = specified or calculated
    return dimensions, elements if is_storage_order else storage_order(dimensions, elements)


def constructed(
    row: ElementClass,
    is_complex: bool,
    initializer: Any = None,
    size: Any = None,
    vector: Any = None,
    vector_is_named: bool = True,
) -> Data:
    """The dimensions of a new array and its elements, first index fastest."""
    if initializer is None and size is None and vector is None:
        return [0, 0], []
    if initializer is not None and vector is not None:
        raise (TWO_SOURCES if vector_is_named else THREE_POSITIONS).error()
    specified = [] if size is None else specified_dimensions(size)

    def element_of(value: Any) -> Any:
        return stored(row, is_complex, value, convert(row, is_complex, value))

    if vector is not None:
        return _from_vector(vector, specified, element_of)
    if initializer is not None:
        buffer = outside(initializer)
        if buffer is None:
            return _from_initializer(flattened(initializer, element_of), False, specified)
        given = taken_over(row, is_complex, buffer)
        return _from_initializer(given, buffer.is_storage_order, specified)
    return specified, [element_of(0)] * math.prod(specified)
