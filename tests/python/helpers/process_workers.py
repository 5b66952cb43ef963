"""Functions that worker processes run; the workers import this module."""

from __future__ import annotations

import os
from typing import Any

import velmar
import vlexceptions


def scaled(array: Any, factor: int) -> Any:
    """Multiply all elements in place."""
    for row in array:
        for i, number in enumerate(row):
            row[i] = number * factor
    return array


def same(value: Any) -> Any:
    return value


def texts(arrays: list) -> list:
    return [repr(array) for array in arrays]


def row_total(row: Any) -> float:
    """The sum of a row, which arrives as an array of one row."""
    return sum(row[0])


def made(word: str, nested: list, is_complex: bool = False) -> Any:
    return getattr(velmar, word)(nested, is_complex=is_complex)


def reversed_rows(array: Any) -> Any:
    return array[::-1]


def reversed_rows_cloned(array: Any) -> Any:
    return array[::-1].clone()


def wrong_count(count: int) -> Any:
    return velmar.double([1.0] * count, size=(count, 2))


def wrong_shape(count: int) -> Any:
    return velmar.double([[1.0] * count], size=(count, 1))


def wrong_count_caught(count: int) -> list:
    try:
        return [wrong_count(count)]
    except vlexceptions.ShapeError as error:
        return [error]


def wrong_index(array: Any) -> Any:
    return array[len(array)]


def row_without_storage() -> Any:
    return list(velmar.double([[1, 2], [3, 4]]))[0]


def process_number(_: Any) -> int:
    return os.getpid()
