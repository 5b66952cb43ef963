"""A model of nested data: dimensions, order of elements, and refusal of ragged lists."""

from __future__ import annotations

import itertools
import math
from collections.abc import Callable, Iterable, Sequence
from typing import Any

from helpers.failures import NOT_NUMERIC, NOT_RECTANGULAR, UNEVEN, Failure


def mismatch(calculated: str, specified: str) -> str:
    """The message for data whose dimensions differ from `size`."""
    return (
        f"dimensions of initializer ({calculated}) do not match "
        f"dimensions specified by 'size' ({specified})."
    )


def nested(dimensions: Sequence[int], elements: Iterable[Any]) -> Any:
    """The nested list of these dimensions, filled from `elements` last index fastest."""
    source = iter(elements)
    if not dimensions:
        return next(source)
    *outer, row = dimensions

    def level(depth: int) -> Any:
        if depth == len(outer):
            return [next(source) for _ in range(row)]
        return [level(depth + 1) for _ in range(outer[depth])]

    return level(0)


def in_storage_order(dimensions: Sequence[int], elements: Sequence[Any]) -> Any:
    """The nested list of these dimensions, filled from `elements` first index fastest."""

    if not dimensions:
        return elements[0]
    last = len(dimensions) - 1

    def level(depth: int, offset: int, stride: int) -> Any:
        length = dimensions[depth]
        if depth == last:
            return [elements[offset + i * stride] for i in range(length)]
        return [level(depth + 1, offset + i * stride, stride * length) for i in range(length)]

    return level(0, 0, 1)


def storage_order(dimensions: Sequence[int], elements: Sequence[Any]) -> list[Any]:
    """Reorder `elements` from last index fastest to first index fastest."""
    ordered = []
    for position in itertools.product(*map(range, reversed(dimensions))):  # first index fastest
        offset = 0
        for index, length in zip(reversed(position), dimensions, strict=True):
            offset = offset * length + index
        ordered.append(elements[offset])
    return ordered


def normalized(dimensions: Sequence[int]) -> list[int]:
    """The dimensions that an array keeps: at least two, without trailing 1s after the second."""
    kept = list(dimensions)
    if len(kept) == 1:
        return [1, *kept]
    while len(kept) > 2 and kept[-1] == 1:
        kept.pop()
    return kept


class _Refused(Exception):
    """Ends the walk with a Failure."""


def outcome(data: Any, convert: Callable[[Any], Any]) -> Any:
    """The contents of an array of `data`, or the first Failure."""
    lengths: dict[int, int] = {}  # of the lists at each depth, 0 while open
    depths: set[int] = set()  # of the scalars; a second one ends the walk
    elements: list[Any] = []

    def refuse(failure: Failure) -> None:
        raise _Refused(failure)

    def walk_sequence(children: list[Any], depth: int) -> None:
        sizes = {len(child) if isinstance(child, (list, str)) else None for child in children}
        if len(sizes) > 1:
            refuse(UNEVEN)
        lengths.setdefault(depth, 0)
        for child in children:
            walk(child, depth + 1)
        if lengths[depth] not in (0, len(children)):  # a length of 0 leaves the dimension open
            refuse(NOT_RECTANGULAR)
        lengths[depth] = len(children)

    def walk(value: Any, depth: int) -> None:
        if isinstance(value, str):
            refuse(NOT_NUMERIC)
        if isinstance(value, list):
            walk_sequence(value, depth)
            return
        element = convert(value)
        if isinstance(element, Failure):
            refuse(element)
        depths.add(depth)
        if len(depths) > 1:
            refuse(NOT_RECTANGULAR)
        elements.append(element)

    try:
        walk(data, 0)
    except _Refused as refused:
        return refused.args[0]
    dimensions = list(lengths.values()) or [1, 1]
    if math.prod(dimensions) != len(elements):
        return NOT_RECTANGULAR
    if len(dimensions) == 1:
        dimensions.insert(0, min(dimensions[0], 1))
    return nested(normalized(dimensions), elements)
