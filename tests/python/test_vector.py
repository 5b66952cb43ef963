"""`vector`: an unnested sequence of elements in storage order."""

from __future__ import annotations

import array
import collections

import pytest
import velmar
from helpers.arrays import contents, exact
from helpers.cases import each_form
from helpers.failures import NESTED_VECTOR, raises
from helpers.hostile_sequences import StrSubclass
from velmarmultidimarrayforpython import ShapeError

NOT_A_SEQUENCE = (ValueError, "value of 'vector' must be a sequence.")
TEXT = (ValueError, "value passed to 'vector' must be numeric.")


class TestAccepted:
    ROWS = {
        "one": ([1], None, [[1]]),
        "three": ([1, 2, 3], None, [[1, 2, 3]]),
        "none": ([], None, [[]]),
        "no tuple items": ((), None, [[]]),
        "no bytes": (b"", None, [[]]),
        "tuple": ((1, 2), None, [[1, 2]]),
        "range": (range(1, 4), None, [[1, 2, 3]]),
        "deque": (collections.deque([1, 2]), None, [[1, 2]]),
        "user dict with numbered keys": (collections.UserDict({0: 7}), None, [[7]]),
        "bytes": (b"ab", None, [[97, 98]]),
        "bytearray": (bytearray(b"ab"), None, [[97, 98]]),
        "memoryview": (memoryview(b"ab"), None, [[97, 98]]),
        "array.array": (array.array("b", [1, -2]), None, [[1, -2]]),
        "array.array of another type": (array.array("Q", [1, 2]), None, [[1, 2]]),
        "row of an array": (velmar.int64([1, 2, 3])[0], None, [[1, 2, 3]]),
        "slice of a row": (velmar.int64([1, 2, 3])[0][::-2], None, [[3, 1]]),
        "array without rows": (velmar.int8(), None, [[]]),
        "bools": ([True, False], None, [[1, 0]]),
        "2 by 1": ([1, 2], (2, 1), [[1], [2]]),
        "1 by 2": ([1, 2], (1, 2), [[1, 2]]),
        "one dimension": ([1, 2], (2,), [[1, 2]]),
        "size None": ([1, 2], None, [[1, 2]]),
        "2 by 3": ([1, 2, 3, 4, 5, 6], (2, 3), [[1, 3, 5], [2, 4, 6]]),
        "2 by 2 by 2": (range(1, 9), (2, 2, 2), [[[1, 5], [3, 7]], [[2, 6], [4, 8]]]),
        "one in 1 by 1": ([5], (1, 1), [[5]]),
        "one in 1 by 1 by 1": ([5], (1, 1, 1), [[5]]),
        "none in 0 by 0": ([], (0, 0), []),
        "none in 0 by 5": ([], (0, 5), []),
        "none in 3 by 0": ([], (3, 0), [[], [], []]),
    }

    @pytest.mark.parametrize("vector, size, expected", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, vector, size, expected):
        assert exact(contents(velmar.int8(vector=vector, size=size))) == exact(expected)

    @each_form
    def test_all_classes(self, row, is_complex):
        zero, one = contents(row.cls([0, 1], is_complex=is_complex))[0]
        made = row.cls(vector=[1, 0, 1], is_complex=is_complex)
        assert type(made) is row.cls
        assert exact(contents(made)) == exact([[one, zero, one]])
        made = row.cls(vector=[1, 0, 1, 0, 0, 1], size=(3, 2), is_complex=is_complex)
        assert exact(contents(made)) == exact([[one, zero], [zero, zero], [one, one]])
        made = row.cls(vector=[], is_complex=is_complex)
        assert contents(made) == [[]]

    def test_long(self):
        numbers = list(range(100_000))
        assert contents(velmar.int32(vector=numbers)) == [numbers]

    def test_floats_and_complex_in_a_logical_array(self):
        made = velmar.logical(vector=[0.0, 0.5, float("nan"), 0j, 1j, -0.0, 7])
        assert contents(made) == [[False, True, True, False, True, False, True]]

    def test_the_sequence_may_change_afterwards(self):
        numbers = [1, 2]
        made = velmar.int8(vector=numbers)
        numbers[0] = 9
        assert contents(made) == [[1, 2]]


class TestRefused:
    ROWS = {
        "int": (5, NOT_A_SEQUENCE),
        "0": (0, NOT_A_SEQUENCE),
        "False": (False, NOT_A_SEQUENCE),
        "float": (1.5, NOT_A_SEQUENCE),
        "dict": ({0: 1}, NOT_A_SEQUENCE),
        "empty dict": ({}, NOT_A_SEQUENCE),
        "set": ({1}, NOT_A_SEQUENCE),
        "iterator": (iter([1]), NOT_A_SEQUENCE),
        "object": (object(), NOT_A_SEQUENCE),
        "str": ("12", TEXT),
        "empty str": ("", TEXT),
        "str subclass": (StrSubclass("12"), TEXT),
        "nested": ([[1]], NESTED_VECTOR),
        "empty inside": ([[]], NESTED_VECTOR),
        "nested second": ([1, [2]], NESTED_VECTOR),
        "str inside": (["1"], NESTED_VECTOR),
        "empty str inside": ([""], NESTED_VECTOR),
        "bytes inside": ([b"1"], NESTED_VECTOR),
        "whole array": (velmar.int8([1, 2]), NESTED_VECTOR),
        "array inside": ([velmar.int8([1])[0]], NESTED_VECTOR),
        "range inside": ([range(1)], NESTED_VECTOR),
        "None inside": ([None], (ValueError, "value must not be 'None'.")),
        "dict inside": ([{}], (ValueError, "type does not match.")),
        "object inside": ([object()], (ValueError, "type does not match.")),
        "out of range": (
            [300],
            (ValueError, "value (300) cannot be stored in a variable of type int8."),
        ),
        "too large": ([2**70], (ValueError, "Python int too large to convert to C long long")),
        "float inside": (
            [1.5],
            (ValueError, "velmar.int8 does not accept floating-point values."),
        ),
        "complex inside": (
            [1j],
            (
                ValueError,
                "velmar.int8 does not accept complex values if 'is_complex' is not set to 'True'.",
            ),
        ),
    }

    @pytest.mark.parametrize("vector, error", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, vector, error):
        with raises(*error):
            velmar.int8(vector=vector)

    @each_form
    def test_all_classes(self, row, is_complex):
        for vector, error in ((5, NOT_A_SEQUENCE), ("1", TEXT), ([[1]], NESTED_VECTOR)):
            with raises(*error):
                row.cls(vector=vector, is_complex=is_complex)

    def test_complex_element_out_of_range(self):
        with raises(ValueError, "value (128.5) cannot be stored in a variable of type int8."):
            velmar.int8(vector=[128.5], is_complex=True)

    def test_wrong_count(self):
        text = "dimensions of initializer (3) do not match dimensions specified by 'size' (2, 2)."
        with raises(ShapeError, text):
            velmar.double(vector=[1, 2, 3], size=(2, 2))


class TestOrderOfChecks:
    MISMATCH = "dimensions of initializer ({}) do not match dimensions specified by 'size' (2, 2)."
    ROWS = {
        "sequence before count": (5, (2, 2), NOT_A_SEQUENCE),
        "text before count": ("ab", (2, 2), TEXT),
        "count before nesting": ([[1]], (2, 2), (ShapeError, MISMATCH.format(1))),
        "count before elements": ([None] * 3, (2, 2), (ShapeError, MISMATCH.format(3))),
        "item by item: element first": (
            [None, [1]],
            None,
            (ValueError, "value must not be 'None'."),
        ),
        "item by item: nesting first": ([[1], None], None, NESTED_VECTOR),
    }

    @pytest.mark.parametrize("vector, size, error", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, vector, size, error):
        with raises(*error):
            velmar.int8(vector=vector, size=size)
