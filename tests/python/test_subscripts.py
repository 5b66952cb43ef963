"""Single subscripts: the accepted objects, and the refused ones with their messages."""

import ctypes
import enum
import functools
import operator
import sys

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, grid, line
from helpers.cases import each, rows
from helpers.child_interpreter import run_script
from helpers.failures import NOT_AN_INDEX, ZERO_STEP, raises
from helpers.hostile_sequences import then
from helpers.scalar_values import CalledIndex, LyingInt, WithIndex
from helpers.subscript_rows import BAD_SLICES, OUTSIDE, REFUSED

LAST = 2**63 - 1


class Choice(enum.IntEnum):
    SECOND = 1


INTEGERS = [  # on 0.0, 1.0, 2.0, 3.0, 4.0
    ("first", 0, 0.0),
    ("last", 4, 4.0),
    ("minus_one", -1, 4.0),
    ("minus_length", -5, 0.0),
    ("true", True, 1.0),
    ("false", False, 0.0),
    ("subclass", LyingInt(2), 2.0),
    ("negative_subclass", LyingInt(-2), 3.0),
    ("enumeration", Choice.SECOND, 1.0),
]


class TestInteger:
    @rows("index, expected", INTEGERS)
    def test_rows(self, index, expected):
        got = line(5)[index]
        assert type(got) is float
        assert got == expected

    @rows("index, expected", INTEGERS)
    def test_rows_on_the_first_of_two_dimensions(self, index, expected):
        array = velmar.double([[float(i), i + 0.5] for i in range(5)])
        assert contents(array[index]) == [expected, expected + 0.5]

    @rows("index, text", OUTSIDE)
    def test_out_of_range(self, index, text):
        with raises(IndexError, f"index has an invalid value: {text}"):
            line(5)[index]

    @rows("index, text", OUTSIDE)
    def test_out_of_range_on_the_first_of_two_dimensions(self, index, text):
        array = velmar.double([[float(i), i + 0.5] for i in range(5)])
        with raises(IndexError, f"index has an invalid value: {text}"):
            array[index]

    @rows("index, text", OUTSIDE)
    def test_out_of_range_on_a_view_with_a_slice(self, index, text):
        view = line(10)[2:7]
        with raises(IndexError, f"index has an invalid value: {text}"):
            view[index]

    @each(CLASS_ROWS)
    def test_out_of_range_in_every_class(self, row):
        array = row.cls([[1, 0, 1]])
        with raises(IndexError, "index has an invalid value: 1"):
            array[1]
        with raises(IndexError, "index has an invalid value: -4"):
            array[0][-4]

    @pytest.mark.parametrize("index", [0, -1, 1, -2, True, LAST, -(2**63)])
    @pytest.mark.parametrize("size", [(0, 0), (0, 3), (0, 2, 2)], ids=str)
    def test_length_zero_has_no_element(self, size, index):
        with raises(IndexError, f"index has an invalid value: {int(index)}"):
            velmar.double(size=size)[index]

    def test_length_zero_behind_the_first_dimension(self):
        view = velmar.double(size=(2, 0, 4))[1]
        with raises(IndexError, "index has an invalid value: 0"):
            view[0]

    def test_a_dimension_of_length_one_is_a_dimension_like_any_other(self):
        row, column = velmar.double([[1, 2, 3]]), velmar.double([[1], [2], [3]])
        assert contents(row[0]) == [1.0, 2.0, 3.0]
        assert contents(column[2]) == [3.0]
        assert column[2][0] == 3.0
        with raises(IndexError, "index has an invalid value: 2"):
            row[2]

    def test_number_comes_with_the_last_dimension_and_not_before(self):
        array = velmar.double(grid(2, 3, 4))
        assert type(array[1]) is velmar.double
        assert type(array[1][2]) is velmar.double
        assert type(array[1][2][3]) is float
        assert array[1][2][3] == 23.0

    def test_every_element_of_three_dimensions(self):
        nested = grid(2, 3, 4)
        array = velmar.double(nested)
        for i in range(-2, 2):
            for j in range(-3, 3):
                for k in range(-4, 4):
                    assert array[i][j][k] == nested[i][j][k]

    def test_trailing_dimensions_of_length_one_are_gone(self):
        array = velmar.double([[[5]]])
        assert type(array[0][0]) is float

    def test_dimensions_of_length_one_in_front_stay(self):
        array = velmar.double(size=(1, 1, 1, 2))
        assert contents(array) == [[[[0.0, 0.0]]]]
        assert type(array[0][0][0]) is velmar.double
        assert type(array[0][0][0][1]) is float


SHAPES = [
    ("number", lambda: line(5)),
    ("view", lambda: velmar.double([[1, 2], [3, 4]])),
    ("slice_of_numbers", lambda: line(9)[1:8:2]),
    ("slice_of_views", lambda: velmar.double([[1, 2], [3, 4]])[::-1]),
]


class TestIntegerBeyond64Bits:
    """It is read as -1, and the OverflowError stays set beside the result."""

    @pytest.mark.parametrize("index", [2**63, -(2**63) - 1, 2**70, -(2**70), LyingInt(2**70)])
    @rows("make", SHAPES)
    def test_call_gives_system_error(self, make, index):
        # functools.partial checks each call for a pending error; a plain subscript does not.
        with pytest.raises(SystemError, match="returned a result with an exception set") as caught:
            functools.partial(operator.getitem, make(), index)()
        assert type(caught.value.__cause__) is OverflowError

    @rows("make", SHAPES)
    def test_method_gives_system_error(self, make):
        with pytest.raises(SystemError, match="returned a result with an exception set") as caught:
            functools.partial(make().__getitem__, 2**70)()
        assert type(caught.value.__cause__) is OverflowError

    @rows("make", SHAPES)
    def test_interface_of_the_interpreter_leaves_overflow_error(self, make):
        get_item = ctypes.PYFUNCTYPE(ctypes.py_object, ctypes.py_object, ctypes.py_object)(
            ("PyObject_GetItem", ctypes.pythonapi)
        )
        with pytest.raises(OverflowError):
            get_item(make(), 2**70)
        assert contents(get_item(make(), -1)) == contents(make()[-1])

    @pytest.mark.parametrize("size", [(0, 0), (0, 3)], ids=str)
    @pytest.mark.parametrize("index", [2**70, -(2**70)])
    def test_on_length_zero_it_is_an_index_error_of_minus_one(self, size, index):
        with raises(IndexError, "index has an invalid value: -1"):
            velmar.double(size=size)[index]

    def test_on_a_slice_of_length_zero_too(self):
        with raises(IndexError, "index has an invalid value: -1"):
            line(5)[2:2][2**70]

    @pytest.mark.skipif(
        hasattr(sys, "gettotalrefcount"), reason="a debug interpreter checks at once"
    )
    def test_result_is_the_last_element(self):
        outcome = run_script("""
            import functools, operator
            import velmar

            def subscript_with(array, index):
                absorb = functools.partial(operator.neg, 1)
                value = array[index]  # leaves the error pending, which the next call runs into
                try:
                    absorb()
                except SystemError as error:
                    return [str(value), type(error.__cause__).__name__]
                return [str(value), None]

            array = velmar.int16([[1, 2, 3], [4, 5, 6]])
            report([
                subscript_with(array, 2**70),
                subscript_with(array, -(2**70)),
                subscript_with(array[0], 2**70),
                subscript_with(array[::-1], 2**70),
                subscript_with(array[0][:2], 2**70),
            ])
        """)
        assert outcome.reported == [
            ["[4,5,6]", "OverflowError"],
            ["[4,5,6]", "OverflowError"],
            ["3", "OverflowError"],
            ["[1,2,3]", "OverflowError"],
            ["2", "OverflowError"],
        ]
        assert outcome.error_lines == []


class TestRefused:
    @rows("subscript", REFUSED)
    @rows("make", SHAPES)
    def test_rows(self, make, subscript):
        with raises(*NOT_AN_INDEX):
            make()[subscript]

    @rows("subscript", REFUSED)
    def test_before_any_look_at_the_length(self, subscript):
        with raises(*NOT_AN_INDEX):
            velmar.double()[subscript]

    @each(CLASS_ROWS)
    def test_in_every_class(self, row):
        with raises(*NOT_AN_INDEX):
            row.cls([1])[None]

    def test_comma_makes_a_tuple(self):
        array = velmar.double([[1, 2], [3, 4]])
        with raises(*NOT_AN_INDEX):
            array[0, 1]
        with raises(*NOT_AN_INDEX):
            array[:, 0]

    def test_array_is_no_index(self):
        with raises(*NOT_AN_INDEX):
            line(3)[velmar.int8([1])]


SLICES = [  # on 0, 1, 2, 3, 4
    ("all", slice(None), [0, 1, 2, 3, 4]),
    ("middle", slice(1, 3), [1, 2]),
    ("from", slice(2, None), [2, 3, 4]),
    ("up_to", slice(2), [0, 1]),
    ("negative_bounds", slice(-3, -1), [2, 3]),
    ("beyond_both_ends", slice(-10, 10), [0, 1, 2, 3, 4]),
    ("equal_bounds", slice(3, 3), []),
    ("crossed_bounds", slice(4, 2), []),
    ("outside", slice(10, 20), []),
    ("backwards_wrong_way", slice(2, 4, -1), []),
    ("below", slice(-20, -10), []),
    ("single", slice(4, None), [4]),
    ("second", slice(None, None, 2), [0, 2, 4]),
    ("third_from_one", slice(1, None, 3), [1, 4]),
    ("reversed", slice(None, None, -1), [4, 3, 2, 1, 0]),
    ("reversed_second", slice(None, None, -2), [4, 2, 0]),
    ("reversed_part", slice(3, 0, -1), [3, 2, 1]),
    ("reversed_to_the_first", slice(2, None, -1), [2, 1, 0]),
    ("reversed_from_outside", slice(10, None, -3), [4, 1]),
    ("reversed_stop_below", slice(1, -10, -1), [1, 0]),
    ("step_beyond_length", slice(1, None, 100), [1]),
    ("bools", slice(False, True, True), [0]),
    ("subclass", slice(Choice.SECOND, None), [1, 2, 3, 4]),
    ("object_with_index", slice(WithIndex(1), WithIndex(4), WithIndex(2)), [1, 3]),
    ("huge_bounds", slice(-(2**70), 2**70), [0, 1, 2, 3, 4]),
    ("huge_step", slice(None, None, 2**70), [0]),
    ("huge_negative_step", slice(None, None, -(2**70)), [4]),
    ("longest_step", slice(2, None, LAST), [2]),
    ("lowest_step", slice(2, None, -(2**63)), [2]),
]


BAD_SLICE_TARGETS = [
    *SHAPES,
    ("nothing", velmar.double),
    ("empty_slice", lambda: line(5)[3:3]),
    ("empty_slice_of_views", lambda: velmar.double(size=(4, 2))[3:3]),
]


class TestSlice:
    @rows("subscript, expected", SLICES)
    def test_rows(self, subscript, expected):
        view = line(5, velmar.int32)[subscript]
        assert type(view) is velmar.int32
        assert len(view) == len(expected)
        assert contents(view) == expected
        assert str(view) == str(expected).replace(" ", "")

    @rows("subscript, expected", SLICES)
    def test_rows_on_the_first_of_two_dimensions(self, subscript, expected):
        view = velmar.int32([[i, 10 + i] for i in range(5)])[subscript]
        assert len(view) == len(expected)
        assert contents(view) == [[i, 10 + i] for i in expected]

    @rows("subscript, expected", SLICES)
    def test_rows_on_a_view_with_a_slice(self, subscript, expected):
        view = line(12, velmar.int32)[10::-2][:5][subscript]
        assert contents(view) == [10 - 2 * i for i in expected]

    @rows("subscript, failure", BAD_SLICES)
    @rows("make", BAD_SLICE_TARGETS)
    def test_bad_rows(self, make, subscript, failure):
        with raises(*failure):
            make()[subscript]

    @each(CLASS_ROWS)
    def test_step_zero_in_every_class(self, row):
        with raises(*ZERO_STEP):
            row.cls([1])[::0]

    def test_slice_is_never_a_number(self):
        for view in (line(5)[2:3], line(1)[:], line(5)[:0]):
            assert type(view) is velmar.double
        assert type(line(5)[2:3][0]) is float

    def test_slice_bounds_are_asked_for_in_order(self):
        asked = []

        def bound(name):
            return CalledIndex(then(lambda: asked.append(name), 1))

        assert contents(line(5)[bound("start") : bound("stop") : bound("step")]) == []
        assert asked == ["step", "start", "stop"]

    def test_dimensions_behind_a_slice_cannot_be_reached(self):
        view = velmar.double(grid(2, 3))[:][:][1:]
        assert len(view) == 1
        assert contents(view) == [[3.0, 4.0, 5.0]]
