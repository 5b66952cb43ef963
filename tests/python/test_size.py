"""`size`: how it is read and normalised, and the data that fits it."""

from __future__ import annotations

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, exact
from helpers.cases import each, each_form
from helpers.failures import raises
from helpers.nesting_model import mismatch, nested
from helpers.scalar_values import LyingInt, Side, WithIndex
from velmarmultidimarrayforpython import ShapeError, SizeError

NOT_A_SEQUENCE = "value of 'size' must be a sequence."
EMPTY = "sequence passed to 'size' must not be empty."
NOT_INTEGERS = "dimensions must be nonnegative integers."
NEGATIVE = "size cannot contain negative dimensions. Use nonnegative integers for dimensions."


class TestNormalisation:
    ROWS = {
        "one": ((3,), [1, 3]),
        "one 1": ((1,), [1, 1]),
        "one 0": ((0,), [1, 0]),
        "two": ((2, 3), [2, 3]),
        "two, last 1": ((3, 1), [3, 1]),
        "two, first 1": ((1, 3), [1, 3]),
        "three, last 1": ((3, 1, 1), [3, 1]),
        "three, first two 1": ((1, 1, 3), [1, 1, 3]),
        "three 1": ((1, 1, 1), [1, 1]),
        "five, two trailing 1": ((2, 1, 3, 1, 1), [2, 1, 3]),
        "inner 1 kept": ((2, 1, 1, 3), [2, 1, 1, 3]),
        "many 1": ((1,) * 50, [1, 1]),
        "0 by 0": ((0, 0), [0, 0]),
        "0 by 5": ((0, 5), [0, 5]),
        "5 by 0": ((5, 0), [5, 0]),
        "0 then 1 by 1": ((0, 1, 1), [0, 1]),
        "0 last is kept": ((2, 3, 0), [2, 3, 0]),
        "0 then trailing 1": ((2, 0, 1), [2, 0]),
        "0 in the middle": ((2, 0, 4), [2, 0, 4]),
    }

    @pytest.mark.parametrize("size, dimensions", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, size, dimensions):
        array = velmar.int8(size=size)
        expected = nested(dimensions, [0] * 100)
        assert len(array) == dimensions[0]
        assert exact(contents(array)) == exact(expected)
        assert str(array) == str(expected).replace(" ", "")

    @each_form
    def test_all_classes(self, row, is_complex):
        assert len(row.cls(size=(3,), is_complex=is_complex)) == 1
        assert len(row.cls(size=(3, 1, 1), is_complex=is_complex)) == 3

    @pytest.mark.parametrize("size", [(2**40, 2**40, 0), (2**40, 0, 2**40), (2**40, 0)])
    def test_a_zero_makes_any_other_dimension_affordable(self, size):
        assert len(velmar.int8(size=size)) == 2**40

    def test_leading_zero_makes_any_other_dimension_affordable(self):
        assert contents(velmar.int8(size=(0, 2**62, 2**62))) == []


class TestWhatCountsAsASequenceOfIntegers:
    ACCEPTED = {
        "list": [2, 3],
        "tuple": (2, 3),
        "range": range(2, 4),
        "bytes": b"\x02\x03",
        "bytearray": bytearray(b"\x02\x03"),
        "int subclass": [LyingInt(2), LyingInt(3)],
        "int enum": list(Side),
        "row of an array": velmar.uint16([2, 3])[0],
        "slice of a row": velmar.int64([3, 9, 2])[0][::-2],
    }

    @pytest.mark.parametrize("size", ACCEPTED.values(), ids=ACCEPTED.keys())
    def test_accepted(self, size):
        assert contents(velmar.int8(size=size)) == [[0, 0, 0], [0, 0, 0]]

    def test_bools_are_1_and_0(self):
        assert contents(velmar.int8(size=(True, 2))) == [[0, 0]]
        assert contents(velmar.int8(size=(2, False))) == [[], []]
        assert contents(velmar.int8(size=velmar.logical([True, True, True])[0])) == [[0]]

    REFUSED = {
        "int": (5, TypeError, NOT_A_SEQUENCE),
        "0": (0, TypeError, NOT_A_SEQUENCE),
        "False": (False, TypeError, NOT_A_SEQUENCE),
        "float": (2.0, TypeError, NOT_A_SEQUENCE),
        "set": ({2, 3}, TypeError, NOT_A_SEQUENCE),
        "dict": ({0: 2, 1: 3}, TypeError, NOT_A_SEQUENCE),
        "empty dict": ({}, TypeError, NOT_A_SEQUENCE),
        "iterator": (iter([2, 3]), TypeError, NOT_A_SEQUENCE),
        "object": (object(), TypeError, NOT_A_SEQUENCE),
        "class": (list, TypeError, NOT_A_SEQUENCE),
        "empty tuple": ((), ValueError, EMPTY),
        "empty list": ([], ValueError, EMPTY),
        "empty str": ("", ValueError, EMPTY),
        "empty bytes": (b"", ValueError, EMPTY),
        "empty array": (velmar.int8(), ValueError, EMPTY),
        "str": ("ab", TypeError, NOT_INTEGERS),
        "str of digits": ("23", TypeError, NOT_INTEGERS),
        "floats": ((2.0, 3.0), TypeError, NOT_INTEGERS),
        "one float": ((2.0,), TypeError, NOT_INTEGERS),
        "None inside": ((None, 2), TypeError, NOT_INTEGERS),
        "nested": ([[2, 3]], TypeError, NOT_INTEGERS),
        "object with __index__": ((WithIndex(), 2), TypeError, NOT_INTEGERS),
        "complex": ((2 + 0j,), TypeError, NOT_INTEGERS),
        "whole array": (velmar.uint16([2, 3]), TypeError, NOT_INTEGERS),
        "row of doubles": (velmar.double([2, 3])[0], TypeError, NOT_INTEGERS),
        "negative": ((-1, 2), ValueError, NEGATIVE),
        "negative last": ((2, -1), ValueError, NEGATIVE),
        "negative alone": ((-1,), ValueError, NEGATIVE),
        "negative behind 0": ((0, -5), ValueError, NEGATIVE),
        "negative int subclass": ((LyingInt(-3),), ValueError, NEGATIVE),
        "lowest": ((-(2**63),), ValueError, NEGATIVE),
        "too large": ((2**63, 0), ValueError, NEGATIVE),
        "larger": ((2**64, 1), ValueError, NEGATIVE),
        "far too large": ((10**400,), ValueError, NEGATIVE),
        "far too small": ((-(10**400),), ValueError, NEGATIVE),
        "item by item: negative first": ((-1, "a"), ValueError, NEGATIVE),
        "item by item: type first": (("a", -1), TypeError, NOT_INTEGERS),
        "item by item: float first": ((2.0, 2**64), TypeError, NOT_INTEGERS),
    }

    @pytest.mark.parametrize("size, exception, message", REFUSED.values(), ids=REFUSED.keys())
    def test_refused(self, size, exception, message):
        with raises(exception, message):
            velmar.int8(size=size)
        with raises(exception, message):
            velmar.int8([1, 2], size)
        with raises(exception, message):
            velmar.int8(vector=[1, 2], size=size)

    @each_form
    def test_refused_by_all_classes(self, row, is_complex):
        for size, exception, message in (
            (5, TypeError, NOT_A_SEQUENCE),
            ((), ValueError, EMPTY),
            ((2.0,), TypeError, NOT_INTEGERS),
            ((-1,), ValueError, NEGATIVE),
        ):
            with raises(exception, message):
                row.cls(size=size, is_complex=is_complex)


class TestFlatDataInSize:
    """A flat list or a vector fills any shape of its count, first index fastest."""

    SIX = [1, 2, 3, 4, 5, 6]
    ROWS = {
        "2 by 3": (SIX, (2, 3), [[1, 3, 5], [2, 4, 6]]),
        "3 by 2": (SIX, (3, 2), [[1, 4], [2, 5], [3, 6]]),
        "6": (SIX, (6,), [[1, 2, 3, 4, 5, 6]]),
        "6 by 1": (SIX, (6, 1), [[1], [2], [3], [4], [5], [6]]),
        "1 by 6 by 1": (SIX, (1, 6, 1), [[1, 2, 3, 4, 5, 6]]),
        "1 by 2 by 3": (SIX, (1, 2, 3), [[[1, 3, 5], [2, 4, 6]]]),
        "2 by 1 by 3": (SIX, (2, 1, 3), [[[1, 3, 5]], [[2, 4, 6]]]),
        "2 by 2 by 2": ([*SIX, 7, 8], (2, 2, 2), [[[1, 5], [3, 7]], [[2, 6], [4, 8]]]),
        "one in 1": ([7], (1,), [[7]]),
        "one in 1 by 1": ([7], (1, 1), [[7]]),
        "one in 1 by 1 by 1": ([7], (1, 1, 1), [[7]]),
        "none in 0 by 5": ([], (0, 5), []),
        "none in 5 by 0": ([], (5, 0), [[]] * 5),
        "none in 0": ([], (0,), [[]]),
        "none in 0 by 0": ([], (0, 0), []),
        "none in 2 by 0 by 4": ([], (2, 0, 4), [[], []]),
    }

    @pytest.mark.parametrize("data, size, expected", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, data, size, expected):
        assert exact(contents(velmar.int16(data, size))) == exact(expected)
        assert exact(contents(velmar.int16(tuple(data), size=list(size)))) == exact(expected)
        assert exact(contents(velmar.int16(vector=data, size=size))) == exact(expected)

    WRONG_COUNT = {
        "too few": ([1, 2, 3], (2, 2), mismatch("3", "2, 2")),
        "too many": ([1, 2, 3, 4, 5], (2, 2), mismatch("5", "2, 2")),
        "one": ([1], (2, 2), mismatch("1", "2, 2")),
        "one for two": ([1], (2,), mismatch("1", "1, 2")),
        "none": ([], (2, 2), mismatch("0", "2, 2")),
        "none for one": ([], (1, 1), mismatch("0", "1, 1")),
        "some for none": ([1, 2], (0, 2), mismatch("2", "0, 2")),
        "one for none": ([1], (0,), mismatch("1", "1, 0")),
        "text shows what is kept of size": ([1], (3, 1, 2, 1, 1), mismatch("1", "3, 1, 2")),
    }

    @pytest.mark.parametrize("data, size, message", WRONG_COUNT.values(), ids=WRONG_COUNT.keys())
    def test_wrong_count(self, data, size, message):
        with raises(ShapeError, message):
            velmar.double(data, size)
        with raises(ShapeError, message):
            velmar.double(vector=data, size=size)

    # Their product is 1 in 64 bits.
    WRAPPING = [(7, 7905747460161236407), (7, 7, 9035139954469984465)]

    @pytest.mark.parametrize("size", WRAPPING)
    def test_product_that_wraps_to_one(self, size):
        with raises(SizeError, mismatch("1", ", ".join(map(str, size)))):
            velmar.double([1], size)
        with raises(SizeError, mismatch("1", ", ".join(map(str, size)))):
            velmar.double(vector=[1], size=size)

    def test_whole_text(self):
        text = "dimensions of initializer (3) do not match dimensions specified by 'size' (2, 2)."
        with raises(ShapeError, text):
            velmar.double([1, 2, 3], size=(2, 2))


class TestNestedDataInSize:
    """Nested data must have exactly the dimensions of the normalised `size`."""

    ROWS = {
        "2 by 2": ([[1, 2], [3, 4]], (2, 2), [[1, 2], [3, 4]]),
        "trailing 1 in size": ([[1, 2], [3, 4]], (2, 2, 1), [[1, 2], [3, 4]]),
        "trailing 1 in data": ([[[1], [2]], [[3], [4]]], (2, 2), [[1, 2], [3, 4]]),
        "one row": ([[1, 2, 3]], (1, 3), [[1, 2, 3]]),
        "one row, one dimension": ([[1, 2, 3]], (3,), [[1, 2, 3]]),
        "one column": ([[1], [2], [3]], (3, 1), [[1], [2], [3]]),
        "one element": ([[1]], (1, 1), [[1]]),
        "scalar": (1, (1, 1), [[1]]),
        "scalar, one dimension": (1, (1,), [[1]]),
        "scalar, three dimensions": (1, (1, 1, 1), [[1]]),
        "three dimensions": ([[[1, 2]], [[3, 4]]], (2, 1, 2), [[[1, 2]], [[3, 4]]]),
        "no elements, other shape": ([[]], (0, 5), []),
        "no elements, more dimensions": ([[], []], (3, 0, 2), [[], [], []]),
        "no elements, same shape": ([[], []], (2, 0), [[], []]),
    }

    @pytest.mark.parametrize("data, size, expected", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, data, size, expected):
        assert exact(contents(velmar.int16(data, size))) == exact(expected)

    REFUSED = {
        "wrong count": ([[1, 2], [3, 4]], (3, 3), ShapeError, mismatch("2, 2", "3, 3")),
        "wrong count, one row": ([[1, 2, 3]], (4,), ShapeError, mismatch("1, 3", "1, 4")),
        "scalar": (1.0, (2, 2), ShapeError, mismatch("1, 1", "2, 2")),
        "scalar for none": (1.0, (0, 0), ShapeError, mismatch("1, 1", "0, 0")),
        "none for two": ([[]], (1, 2), ShapeError, mismatch("1, 0", "1, 2")),
        "two for none": ([[1, 2]], (0, 2), ShapeError, mismatch("1, 2", "0, 2")),
        "flattened": ([[1, 2], [3, 4]], (1, 4), SizeError, mismatch("2, 2", "1, 4")),
        "flattened, one dimension": ([[1, 2], [3, 4]], (4,), SizeError, mismatch("2, 2", "1, 4")),
        "turned": ([[1, 2, 3]], (3, 1), SizeError, mismatch("1, 3", "3, 1")),
        "turned back": ([[1], [2]], (1, 2), SizeError, mismatch("2, 1", "1, 2")),
        "1 in front": ([[1, 2]], (1, 1, 2), SizeError, mismatch("1, 2", "1, 1, 2")),
        "text after trimming": (
            [[[[1]], [[2]]]],
            (2, 1, 1),
            SizeError,
            mismatch("1, 2", "2, 1"),
        ),
    }

    @pytest.mark.parametrize("data, size, error, message", REFUSED.values(), ids=REFUSED.keys())
    def test_refused(self, data, size, error, message):
        with raises(error, message):
            velmar.double(data, size)

    def test_whole_text(self):
        text = (
            "dimensions of initializer (2, 2) do not match dimensions specified by 'size' (1, 4)."
        )
        with raises(SizeError, text):
            velmar.double([[1, 2], [3, 4]], size=(1, 4))

    @each_form
    def test_all_classes(self, row, is_complex):
        with raises(ShapeError, mismatch("2, 1", "3, 1")):
            row.cls([[0], [1]], (3, 1), is_complex=is_complex)
        with raises(SizeError, mismatch("2, 1", "1, 2")):
            row.cls([[0], [1]], (1, 2), is_complex=is_complex)


class TestOrderOfChecks:
    """An initializer is read before it is compared with `size`, a vector afterwards."""

    @each(CLASS_ROWS)
    def test_elements_before_count(self, row):
        with raises(TypeError, "value must not be 'None'."):
            row.cls([None], (2, 2))
        with raises(TypeError, "value must not be 'None'."):
            row.cls([[1, 0], [1, None]], (1, 4))

    def test_rectangularity_before_count(self):
        with raises(ValueError, "elements of array are of different lengths or types."):
            velmar.double([1, [2]], (3, 3))
        with raises(ValueError, "arrays must be rectangular."):
            velmar.double([[[1]], [2]], (3, 3))

    def test_vector_count_before_elements(self):
        with raises(ShapeError, mismatch("1", "2, 2")):
            velmar.double(vector=[None], size=(2, 2))
        with raises(ShapeError, mismatch("1", "2, 2")):
            velmar.double(vector=[[1]], size=(2, 2))
