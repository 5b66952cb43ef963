"""The initializer: the dimensions of nested data, and uneven data."""

from __future__ import annotations

import array
import collections

import pytest
import velmar
from helpers.arrays import contents, exact
from helpers.cases import each_form
from helpers.failures import IS_NONE, NOT_NUMERIC, NOT_RECTANGULAR, UNEVEN, raises
from helpers.hostile_sequences import StrSubclass
from helpers.nesting_model import nested, normalized
from helpers.scalar_values import LyingInt

FLOATING = (TypeError, "velmar.int8 does not accept floating-point values.")


def wrapped(value, times):
    for _ in range(times):
        value = [value]
    return value


class TestDimensions:
    ROWS = {
        "scalar": (5, [[5]]),
        "one": ([5], [[5]]),
        "one in two": ([[5]], [[5]]),
        "one in three": ([[[5]]], [[5]]),
        "one in thirty": (wrapped(5, 30), [[5]]),
        "flat": ([1, 2, 3], [[1, 2, 3]]),
        "column": ([[1], [2], [3]], [[1], [2], [3]]),
        "row": ([[1, 2, 3]], [[1, 2, 3]]),
        "2 by 2": ([[1, 2], [3, 4]], [[1, 2], [3, 4]]),
        "2 by 1 by 2": ([[[1, 2]], [[3, 4]]], [[[1, 2]], [[3, 4]]]),
        "1 by 2 by 1": ([[[1], [2]]], [[1, 2]]),
        "1 by 2 by 1 by 1": ([[[[1]], [[2]]]], [[1, 2]]),
        "2 by 1 by 1": ([[[1]], [[2]]], [[1], [2]]),
        "2 by 1 by 1 by 1": ([[[[1]]], [[[2]]]], [[1], [2]]),
        "1 by 1 by 2": ([[[1, 2]]], [[[1, 2]]]),
        "1 by 1 by 2 by 1": ([[[[1], [2]]]], [[[1, 2]]]),
        "1 by 2 by 1 by 2": ([[[[1, 2]], [[3, 4]]]], [[[[1, 2]], [[3, 4]]]]),
        "empty": ([], []),
        "empty in one": ([[]], [[]]),
        "empty in two": ([[[]]], [[[]]]),
        "two empty": ([[], []], [[], []]),
        "2 by 1 by 0": ([[[]], [[]]], [[[]], [[]]]),
        "1 by 2 by 0": ([[[], []]], [[[], []]]),
        "2 by 2 by 0": ([[[], []], [[], []]], [[[], []], [[], []]]),
    }

    @pytest.mark.parametrize("data, expected", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, data, expected):
        array_ = velmar.int8(data)
        assert exact(contents(array_)) == exact(expected)
        assert repr(array_) == f"velmar.int8({expected})".replace(" ", "")

    SHAPES = [(2, 3, 4), (4, 1, 3, 2), (3, 1, 1, 2), (1, 1, 1, 5), (2, 2, 2, 2, 2), (2,) * 7]

    @each_form
    @pytest.mark.parametrize("shape", SHAPES, ids=str)
    def test_many_dimensions(self, row, is_complex, shape):
        numbers = [number % 2 for number in range(128)]
        zero = row.cls([0], is_complex=is_complex)[0][0]
        expected = nested(normalized(shape), [type(zero)(number) for number in numbers])
        made = row.cls(nested(shape, numbers), is_complex=is_complex)
        assert exact(contents(made)) == exact(expected)

    def test_deep_nesting(self):
        made = velmar.int8(wrapped([1, 2], 150))
        for _ in range(150):
            assert len(made) == 1
            made = made[0]
        assert contents(made) == [1, 2]


class TestKindsOfSequence:
    """Everything with items by number is walked, whatever its type, except a str."""

    ROWS = {
        "tuple": ((1, 2), [[1, 2]]),
        "tuple of lists": (([1, 2], [3, 4]), [[1, 2], [3, 4]]),
        "list of tuple and list": ([(1, 2), [3, 4]], [[1, 2], [3, 4]]),
        "range": (range(3), [[0, 1, 2]]),
        "list of ranges": ([range(2), range(5, 7)], [[0, 1], [5, 6]]),
        "deque": (collections.deque([1, 2]), [[1, 2]]),
        "user list": (collections.UserList([[1], [2]]), [[1], [2]]),
        "user dict with numbered keys": (collections.UserDict({0: 7, 1: 8}), [[7, 8]]),
        "bytes inside": ([b"ab", b"cd"], [[97, 98], [99, 100]]),
        "bytes, bytearray and list inside": (
            [b"a", bytearray(b"b"), [3]],
            [[97], [98], [3]],
        ),
        "array.array inside": ([array.array("b", [1, 2]), [3, 4]], [[1, 2], [3, 4]]),
        "memoryview inside": ([memoryview(b"ab"), [3, 4]], [[97, 98], [3, 4]]),
        "bools": ([True, False], [[1, 0]]),
    }

    @pytest.mark.parametrize("data, expected", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, data, expected):
        assert exact(contents(velmar.int8(data))) == exact(expected)

    def test_an_array_is_walked(self):
        row = velmar.double([1, 2])
        assert contents(velmar.double(row)) == [[1.0, 2.0]]
        assert contents(velmar.double(row[0])) == [[1.0, 2.0]]
        assert contents(velmar.double(velmar.int8([[1, 2], [3, 4]]))) == [[1.0, 2.0], [3.0, 4.0]]
        cube = nested((2, 3, 4), range(24))
        assert contents(velmar.int8(velmar.int8(cube))) == cube
        assert contents(velmar.int8(velmar.int8(cube)[1])) == cube[1]
        assert contents(velmar.int8(velmar.int8(cube)[1][::-1])) == cube[1][::-1]

    def test_an_array_without_elements_is_walked(self):
        assert contents(velmar.double(velmar.double())) == []
        assert contents(velmar.double(velmar.double(vector=[]))) == [[]]
        assert contents(velmar.double(velmar.double(size=(3, 0)))) == [[], [], []]

    def test_arrays_inside_a_list(self):
        row = velmar.int8([1, 2])[0]
        assert contents(velmar.int8([row, row, [3, 4]])) == [[1, 2], [1, 2], [3, 4]]
        assert contents(velmar.int8([velmar.int8([1, 2])])) == [[[1, 2]]]

    def test_an_array_is_walked_element_by_element(self):
        with raises(*FLOATING):
            velmar.int8(velmar.double([1, 2]))
        text = "velmar.double does not accept complex values if 'is_complex' is not set to 'True'."
        with raises(TypeError, text):
            velmar.double(velmar.double([1], is_complex=True))
        made = velmar.int8(velmar.double([1.9, -2.9]), is_complex=True)
        assert exact(contents(made)) == exact([[1 + 0j, -2 + 0j]])
        assert contents(velmar.logical(velmar.double([0, 0.5]))) == [[False, True]]


class TestMixedRows:
    """Numbers of different types side by side, and beside values that are not numbers."""

    ROWS = {
        "subclass last": ([1, 2, LyingInt(3)], [[1, 2, 3]]),
        "subclass first": ([LyingInt(3), 1, 2], [[3, 1, 2]]),
        "subclass between": ([[1, LyingInt(2), True], [4, 5, 6]], [[1, 2, 1], [4, 5, 6]]),
        "subclass in the second row": ([[1, 2], [3, LyingInt(4)]], [[1, 2], [3, 4]]),
        "subclass in one tuple": ([(1, LyingInt(2)), [3, 4]], [[1, 2], [3, 4]]),
        "subclass in a third dimension": (
            [[[1, 2], [3, LyingInt(4)]], [[5, 6], [7, 8]]],
            [[[1, 2], [3, 4]], [[5, 6], [7, 8]]],
        ),
        "nested in a row of its own": ([[[1, 2]], [[LyingInt(3), 4]]], [[[1, 2]], [[3, 4]]]),
    }

    @pytest.mark.parametrize("data, expected", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, data, expected):
        assert exact(contents(velmar.int8(data))) == exact(expected)

    def test_silent_zeros_of_complex_arrays(self):
        data = [[1, 2.5, None], [3j, object(), True], [{}, 4, 5]]
        expected = [[1 + 0j, 2.5 + 0j, 0j], [3j, 0j, 1 + 0j], [0j, 4 + 0j, 5 + 0j]]
        assert exact(contents(velmar.double(data, is_complex=True))) == exact(expected)

    def test_a_row_refused_leaves_nothing_behind(self):
        for data, error in (([1, 2, None], IS_NONE), ([[1, 2], [3, 4.5]], FLOATING)):
            with raises(*error):
                velmar.int8(data)
            assert contents(velmar.int8([[1, 2], [3, 4]])) == [[1, 2], [3, 4]]

    def test_rows_longer_than_the_first_promises(self):
        """The lengths up to the first scalar decide what is reserved; more data must fit too."""
        for data in ([[[1]], [[2] * 5000]], [[[], []], [[1] * 500] * 2]):
            with raises(*NOT_RECTANGULAR):
                velmar.int8(data)


class TestText:
    ROWS = {
        "top": ("12", NOT_NUMERIC),
        "empty top": ("", NOT_NUMERIC),
        "one character": ("1", NOT_NUMERIC),
        "subclass": (StrSubclass("12"), NOT_NUMERIC),
        "in a list": (["1"], NOT_NUMERIC),
        "empty in a list": ([""], NOT_NUMERIC),
        "subclass in a list": ([StrSubclass("1")], NOT_NUMERIC),
        "same lengths": (["ab", "cd"], NOT_NUMERIC),
        "same length as a list": (["ab", [1, 2]], NOT_NUMERIC),
        "behind a list of its length": ([[1, 2], "ab"], NOT_NUMERIC),
        "deep": ([[["1"]]], NOT_NUMERIC),
        "other length": (["a", "bc"], UNEVEN),
        "beside a number": ([1, "1"], UNEVEN),
        "before a number": (["1", 1], UNEVEN),
        "beside a longer list": ([[1, 2], "a"], UNEVEN),
    }

    @pytest.mark.parametrize("data, error", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, data, error):
        with raises(*error):
            velmar.int8(data)

    @each_form
    def test_all_classes(self, row, is_complex):
        for data in ("12", ["1"]):
            with raises(*NOT_NUMERIC):
                row.cls(data, is_complex=is_complex)

    def test_with_size(self):
        with raises(*NOT_NUMERIC):
            velmar.double("ab", (1, 2))


class TestUneven:
    ROWS = {
        "number and list": ([1, [2]], UNEVEN),
        "list and number": ([[1], 2], UNEVEN),
        "number last": ([[1], [2], 3], UNEVEN),
        "list last": ([1, 2, [3]], UNEVEN),
        "lengths": ([[1], [2, 3]], UNEVEN),
        "lengths, shorter last": ([[1, 2], [3, 4], [5]], UNEVEN),
        "empty first": ([[], [1]], UNEVEN),
        "empty last": ([[1], []], UNEVEN),
        "empty and number": ([[], 1], UNEVEN),
        "one level down": ([[[1], [2, 3]]], UNEVEN),
        "in the second branch": ([[[1, 2], [3, 4]], [[5], [6, 7]]], UNEVEN),
        "number and list, second branch": ([[1, 2], [3, [4]]], UNEVEN),
        "tuple and list": ([(1,), [2, 3]], UNEVEN),
        "array and number": ([velmar.int8([1])[0], 1], UNEVEN),
    }

    RECTANGULAR = {
        "lengths across branches": ([[[1], [2]], [[3, 4], [5, 6]]], NOT_RECTANGULAR),
        "shorter across branches": ([[[1, 2], [3, 4]], [[5], [6]]], NOT_RECTANGULAR),
        "empty after full": ([[[1], [2]], [[], []]], NOT_RECTANGULAR),
        "empty after one": ([[[1]], [[]]], NOT_RECTANGULAR),
        "scalar less deep": ([[[1]], [2]], NOT_RECTANGULAR),
        "scalar deeper": ([[1], [[2]]], NOT_RECTANGULAR),
        "scalars of one row": ([[[1, 2]], [[[3], [4]]]], NOT_RECTANGULAR),
        "third branch": ([[[1, 2]], [[3, 4]], [[5]]], NOT_RECTANGULAR),
        "empty before full": ([[[], []], [[1], [2]]], NOT_RECTANGULAR),
        "empty before one": ([[[]], [[1]]], NOT_RECTANGULAR),
        "empty beside a scalar": ([[[]], [1]], NOT_RECTANGULAR),
        "empty behind a scalar": ([[1], [[]]], NOT_RECTANGULAR),
        "empty before long ones": ([[[], []], [[1, 2, 3], [4, 5, 6]]], NOT_RECTANGULAR),
    }

    ALL = {**ROWS, **RECTANGULAR}

    @pytest.mark.parametrize("data, error", ALL.values(), ids=ALL.keys())
    def test_rows(self, data, error):
        with raises(*error):
            velmar.int8(data)

    @each_form
    def test_all_classes(self, row, is_complex):
        for data, error in (
            ([1, [0]], UNEVEN),
            ([[[1], [0]], [[1, 0], [0, 1]]], NOT_RECTANGULAR),
            ([[[1]], [0]], NOT_RECTANGULAR),
            ([[[], []], [[1], [0]]], NOT_RECTANGULAR),
        ):
            with raises(*error):
                row.cls(data, is_complex=is_complex)

    def test_too_few_elements_are_no_better_with_size(self):
        with raises(*NOT_RECTANGULAR):
            velmar.int8([[[], []], [[1], [2]]], (2, 2))

    def test_no_elements_at_all_are_no_fault(self):
        assert contents(velmar.int8([[[], []], [[], []]])) == [[[], []], [[], []]]


class TestOrderOfChecks:
    """The walk goes depth first and stops at the first fault.

    A list is checked before its items. Its length is compared with that of the lists beside it
    after its items.
    """

    ROWS = {
        "children before the first of them": ([None, [1]], UNEVEN),
        "children's lengths before the first": ([[None], [1, 2]], UNEVEN),
        "children before text": (["text", 1], UNEVEN),
        "children before a number refused": ([1.5, [1]], UNEVEN),
        "children before numbers refused, last": ([1, 300, 2, [3]], UNEVEN),
        "children before a number refused, text": ([1.5, "a"], UNEVEN),
        "children before depth": ([[[1]], [2, [3]]], UNEVEN),
        "outer children before inner": ([[1, [2]], [3]], UNEVEN),
        "first branch's element before the second's evenness": (
            [[None, 1], [[1], 2]],
            IS_NONE,
        ),
        "first branch's evenness before the second's element": ([[1, [2]], [None, 1]], UNEVEN),
        "element before the next branch's length": (
            [[[None], [1]], [[1, 2], [3, 4]]],
            IS_NONE,
        ),
        "element before its own list's length": ([[[1], [2]], [[None, 4], [5, 6]]], IS_NONE),
        "list's length before the next list's element": (
            [[[1], [2]], [[3, 4], [None, 6]]],
            NOT_RECTANGULAR,
        ),
        "element before depth": ([[[1]], [None]], IS_NONE),
        "element before depth, deeper": ([[1], [[None]]], IS_NONE),
        "depth before the next element": ([[[1]], [[[2], [None]]]], NOT_RECTANGULAR),
        "text before depth": ([[[1]], ["a"]], NOT_NUMERIC),
        "text before its list's length": ([[[1], [2]], [["a", "b"], ["c", "d"]]], NOT_NUMERIC),
        "first element of two": ([1.5, None], FLOATING),
        "first element of two, turned": ([None, 1.5], IS_NONE),
        "depth before the second element": ([[[1], [2]], [3, None]], NOT_RECTANGULAR),
        "first row's element first": ([[1, None], [1.5, 1]], IS_NONE),
        "element before the missing ones": ([[[], []], [[None], [2]]], IS_NONE),
    }

    @pytest.mark.parametrize("data, error", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, data, error):
        with raises(*error):
            velmar.int8(data)

    def test_depth_is_checked_when_every_element_converts(self):
        with raises(*NOT_RECTANGULAR):
            velmar.int8([[[1]], [None]], is_complex=True)
