"""Random data: elements read back in either order, and the model predicts every refusal."""

from __future__ import annotations

import math

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, FORMS, contents, exact
from helpers.conversion_model import convert
from helpers.failures import NOT_RECTANGULAR, Failure, raises
from helpers.nesting_model import (
    in_storage_order,
    mismatch,
    nested,
    normalized,
    outcome,
    storage_order,
)
from hypothesis import example, given, settings
from hypothesis import strategies as st
from velmarmultidimarrayforpython import ShapeError, SizeError

# Most ragged data is refused at the first list, so more examples are needed.
more = settings(max_examples=6 * settings.default.max_examples)

forms = st.sampled_from(FORMS)
dimensions = st.lists(st.integers(0, 4), min_size=2, max_size=5)
flat_sizes = st.lists(st.integers(0, 4), min_size=1, max_size=5)


def elements(row, is_complex):
    """Values that the class stores unchanged, as Python objects of the type that reads return."""
    if row.kind == "logical":
        return st.booleans()
    if row.kind == "float":
        part = st.floats(width=32 if row.word == "single" else 64)
        if row.word == "single":
            part = part.filter(lambda number: number != -math.inf)  # it is stored as inf
        return st.builds(complex, part, part) if is_complex else part
    if is_complex:
        bound = 2**53  # a double holds these exactly
        part = st.integers(max(row.low, -bound), min(row.high, bound)).map(float)
        return st.builds(complex, part, part)
    return st.integers(row.low, row.high)


@st.composite
def filled(draw, shapes):
    """A class, whether it is complex, dimensions and their elements."""
    row, is_complex = draw(forms)
    shape = draw(shapes)
    count = math.prod(shape)
    values = draw(st.lists(elements(row, is_complex), min_size=count, max_size=count))
    return row, is_complex, shape, values


class TestRoundTrip:
    @given(filled(dimensions))
    def test_nested_data_reads_back(self, case):
        row, is_complex, shape, values = case
        made = row.cls(nested(shape, values), is_complex=is_complex)
        assert type(made) is row.cls
        assert exact(contents(made)) == exact(nested(normalized(shape), values))
        again = row.cls(made, is_complex=is_complex)
        assert repr(again) == repr(made)

    @given(filled(flat_sizes))
    def test_flat_data_lies_in_storage_order(self, case):
        row, is_complex, size, values = case
        shape = normalized(size)
        expected = exact(in_storage_order(shape, values))
        flat = row.cls(values, size, is_complex=is_complex)
        assert exact(contents(flat)) == expected
        vector = row.cls(vector=values, size=size, is_complex=is_complex)
        assert exact(contents(vector)) == expected

    @given(filled(dimensions))
    def test_nested_data_is_stored_in_columns(self, case):
        row, is_complex, shape, values = case
        stored = storage_order(shape, values)
        made = row.cls(nested(shape, values), size=shape, is_complex=is_complex)
        flat = row.cls(stored, size=shape, is_complex=is_complex)
        assert exact(contents(made)) == exact(contents(flat))

    @given(filled(st.lists(st.integers(0, 9), min_size=1, max_size=1)))
    def test_a_vector_is_one_row(self, case):
        row, is_complex, _, values = case
        vector = row.cls(vector=values, is_complex=is_complex)
        assert exact(contents(vector)) == exact([values])
        flat = row.cls(values, is_complex=is_complex)
        assert exact(contents(flat)) == exact([values] if values else [])

    @given(filled(dimensions), st.integers(0, 4))
    def test_trailing_singletons_are_dropped(self, case, extra):
        row, is_complex, shape, values = case
        plain = row.cls(nested(shape, values), is_complex=is_complex)
        longer = row.cls(nested([*shape, *[1] * extra], values), is_complex=is_complex)
        assert repr(longer) == repr(plain)
        sized = row.cls(nested(shape, values), [*shape, *[1] * extra], is_complex=is_complex)
        assert repr(sized) == repr(plain)


class TestSizeAgainstData:
    @given(flat_sizes, st.integers(0, 30))
    def test_a_flat_list_needs_the_count(self, size, count):
        shape = normalized(size)
        values = list(range(count))
        if math.prod(size) == count:
            assert contents(velmar.int8(values, size)) == in_storage_order(shape, values)
            return
        text = mismatch(str(count), ", ".join(map(str, shape)))
        with raises(ShapeError, text):
            velmar.int8(values, size)
        with raises(ShapeError, text):
            velmar.int8(vector=values, size=size)

    @given(st.lists(st.integers(1, 3), min_size=2, max_size=4), flat_sizes)
    @example([2, 3], [3, 2])
    @example([1, 2, 1], [2])
    def test_nested_data_needs_the_dimensions(self, shape, size):
        data = nested(shape, range(math.prod(shape)))
        given_, wanted = normalized(shape), normalized(size)
        if given_ == wanted:
            assert contents(velmar.int8(data, size)) == nested(given_, range(math.prod(shape)))
            return
        text = mismatch(", ".join(map(str, given_)), ", ".join(map(str, wanted)))
        error = SizeError if math.prod(given_) == math.prod(wanted) else ShapeError
        with raises(error, text):
            velmar.int8(data, size)


leaves = st.sampled_from([0, 1, True, 7, 300, 0.5, 1j, None, "", "a", "ab"])
ragged = st.recursive(leaves, lambda inner: st.lists(inner, max_size=3), max_leaves=12)
# Data of nearly equal depths, so that the walk often gets past the first list.
nearly = st.integers(0, 3).flatmap(
    lambda depth: _nearly(depth, st.sampled_from([0, 1, 1, 1, 2, None]))
)


def _nearly(depth, leaf):
    for _ in range(depth):
        leaf = st.lists(leaf, min_size=0, max_size=2) | st.lists(leaf, min_size=1, max_size=2)
    return st.lists(leaf, max_size=3)


class TestRaggedData:
    @staticmethod
    def check(row, is_complex, data):
        expected = outcome(data, lambda value: convert(row, is_complex, value))
        if isinstance(expected, Failure):
            with raises(*expected):
                row.cls(data, is_complex=is_complex)
        else:
            assert exact(contents(row.cls(data, is_complex=is_complex))) == exact(expected)

    @more
    @given(forms, ragged.filter(lambda data: data is not None))
    @example(FORMS[0], [[[], []], [[1], [2]]])
    @example(FORMS[0], [[[1], [2]], [[3, 4], [5, 6]]])
    @example(FORMS[0], [[[]], [1]])
    def test_any_nesting(self, form, data):
        self.check(*form, data)

    @more
    @given(forms, nearly)
    @example(FORMS[0], [[[]], [[1]]])
    def test_nearly_rectangular_nesting(self, form, data):
        self.check(*form, data)


class TestModel:
    """The model of the walk, against a table."""

    ROWS = [
        (5, [[5.0]]),
        ([], []),
        ([[]], [[]]),
        ([1, 2], [[1.0, 2.0]]),
        ([[[1], [2]]], [[1.0, 2.0]]),
        ([[[], []], [[1], [2]]], NOT_RECTANGULAR),
        ([[[1]], [2]], NOT_RECTANGULAR),
    ]

    @pytest.mark.parametrize("data, expected", ROWS, ids=map(str, range(len(ROWS))))
    def test_rows(self, data, expected):
        assert outcome(data, lambda value: convert(CLASS_ROWS[0], False, value)) == expected
