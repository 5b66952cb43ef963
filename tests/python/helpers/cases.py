"""Which cases a test runs on: every class, rows of a table, slices, and fewer in a brief run."""

from __future__ import annotations

import functools
import itertools
import os
from typing import Any

import pytest

from helpers.arrays import FORMS, ElementClass

IS_BRIEF = os.environ.get("HYPOTHESIS_PROFILE") == "brief"


# Lengths of a dimension that is short enough to try every slice.
short_lengths = pytest.mark.parametrize("length", [0, 1, 2, 3] if IS_BRIEF else [0, 1, 2, 3, 4])


@functools.cache
def slices(length: int, reach: int = 1, steps: tuple = (None, 2, 3, -1, -2, -3)) -> list[slice]:
    """Every slice with bounds from `reach` below the dimension to `reach` above it, or none."""
    ends = [None, *range(-length - reach, length + reach + 1)]
    return [slice(*parts) for parts in itertools.product(ends, ends, steps)]


def slices_for_triples(length: int) -> list[slice]:
    """Few enough for three in a row: bounds at both ends and beyond, both directions, a step."""
    ends = (None, 1, -1, length + 1)
    return [slice(*parts) for parts in itertools.product(ends, ends, (None, -1, 2))]


def some_of(cases, step):
    """The cases of a sequence; in a brief run only the first and every step-th after it."""
    return cases[::step] if IS_BRIEF else cases


def each(rows: list[ElementClass]):
    """Parametrize a test by `row`, named by the class's type word."""
    return pytest.mark.parametrize("row", rows, ids=[row.word for row in rows])


def each_form(test):
    """Parametrize a test by `row, is_complex`: all classes, and all that can be complex so."""
    ids = [f"complex-{row.word}" if is_complex else row.word for row, is_complex in FORMS]
    return pytest.mark.parametrize("row, is_complex", FORMS, ids=ids)(test)


def rows(names: str, table: list[tuple]) -> Any:
    """Parametrize a test by the entries behind the first, which becomes the row's id."""
    single = "," not in names
    values = [row[1] if single else row[1:] for row in table]
    return pytest.mark.parametrize(names, values, ids=[row[0] for row in table])
