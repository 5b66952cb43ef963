"""Parametrizes tests: classes, tables of rows, slices; a brief run has fewer cases."""

from __future__ import annotations

import functools
import importlib.util
import itertools
import os
from typing import Any

import pytest

from helpers.arrays import FORMS, ElementClass

IS_BRIEF = os.environ.get("HYPOTHESIS_PROFILE") == "brief"


# Lengths of dimensions that are short enough to try every slice.
short_lengths = pytest.mark.parametrize("length", [0, 1, 2, 3] if IS_BRIEF else [0, 1, 2, 3, 4])


@functools.cache
def slices(length: int, reach: int = 1, steps: tuple = (None, 2, 3, -1, -2, -3)) -> list[slice]:
    """All slices with bounds from `reach` below the dimension to `reach` above it, and None."""
    ends = [None, *range(-length - reach, length + reach + 1)]
    return [slice(*parts) for parts in itertools.product(ends, ends, steps)]


def slices_for_triples(length: int) -> list[slice]:
    """Few enough slices to try three in a row."""
    ends = (None, 1, -1, length + 1)
    return [slice(*parts) for parts in itertools.product(ends, ends, (None, -1, 2))]


def some_of(cases, step):
    """The cases of a sequence; in a brief run only the first and every step-th after it."""
    return cases[::step] if IS_BRIEF else cases


def needs(package: str):
    """Skips a test where the package is not installed."""
    is_missing = importlib.util.find_spec(package) is None
    return pytest.mark.skipif(is_missing, reason=f"{package} is not installed")


def each(rows: list[ElementClass]):
    """Parametrize a test by `row`, named by the class's type word."""
    return pytest.mark.parametrize("row", rows, ids=[row.word for row in rows])


def each_form(test):
    """Parametrize a test by `row, is_complex`: all classes, and the complex form of most."""
    ids = [f"complex-{row.word}" if is_complex else row.word for row, is_complex in FORMS]
    return pytest.mark.parametrize("row, is_complex", FORMS, ids=ids)(test)


def rows(names: str, table: list[tuple]) -> Any:
    """Parametrize a test by rows; the first entry of each is its id."""
    single = "," not in names
    values = [row[1] if single else row[1:] for row in table]
    return pytest.mark.parametrize(names, values, ids=[row[0] for row in table])
