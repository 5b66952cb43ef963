"""Right-hand sides: the elements and the objects that each class accepts and refuses."""

from __future__ import annotations

import array as arrays_of_the_library

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, COMPLEX_ROWS, INTEGER_ROWS, contents, exact, grid, line
from helpers.cases import each, each_form, rows
from helpers.conversion_model import TOO_LARGE, assigned
from helpers.failures import (
    DIFFERENT_SHAPE,
    NOT_NUMERIC,
    NOT_RECTANGULAR,
    SCALAR_EXPECTED,
    UNEVEN,
    Failure,
    raises,
)
from helpers.hostile_sequences import SequenceFloat, SequenceInt
from helpers.scalar_values import BOUNDARY_FLOATS, BOUNDARY_INTEGERS, VALUES

WAYS = [  # each writes the element [0][1] of 2 by 2
    ("number", lambda array, value: array[0].__setitem__(1, value)),
    ("number_of_slice", lambda array, value: array[0][::-1].__setitem__(0, value)),
    ("numbers", lambda array, value: array[0].__setitem__(slice(1, 2), [value])),
    ("row", lambda array, value: array.__setitem__(0, [1, value])),
    ("rows", lambda array, value: array.__setitem__(slice(0, 1), [[1], (value,)])),
]


def check_values(row, is_complex, write, values):
    array = row.cls([[1, 0], [0, 1]], is_complex=is_complex)
    one, zero = array[0][0], array[0][1]
    for value in values:
        array[0][1] = 0
        element = assigned(row, is_complex, value)
        if isinstance(element, Failure):
            with raises(*element):
                write(array, value)
            element = zero
        else:
            write(array, value)
        assert exact(contents(array)) == exact([[one, element], [zero, one]]), value


class TestConversion:
    @each_form
    @rows("write", WAYS)
    def test_every_kind_of_value(self, row, is_complex, write):
        check_values(row, is_complex, write, VALUES.values())

    @each_form
    @rows("write", WAYS[:3])
    def test_boundaries(self, row, is_complex, write):
        check_values(row, is_complex, write, [*BOUNDARY_INTEGERS, *BOUNDARY_FLOATS])

    ROWS = [
        ("complex_for_real", velmar.double, 1 + 2j, TypeError, "complex"),
        ("complex_for_integer", velmar.int8, 1 + 0j, TypeError, "complex"),
        ("complex_for_logical", velmar.logical, 0j, TypeError, "complex"),
        ("float_for_integer", velmar.int64, 1.0, TypeError, "float"),
        ("float_for_logical", velmar.logical, 0.5, TypeError, "float"),
        ("none", velmar.single, None, TypeError, "value must not be 'None'."),
        ("object", velmar.uint8, object(), TypeError, "type does not match."),
        ("int8", velmar.int8, 128, OverflowError, "value (128) cannot be stored in a variable "),
        ("uint8", velmar.uint8, -1, OverflowError, "value (-1) cannot be stored in a variable "),
        ("int64", velmar.int64, 2**63, OverflowError, TOO_LARGE),
        ("double", velmar.double, 10**400, OverflowError, TOO_LARGE),
        ("logical", velmar.logical, 2**64, OverflowError, TOO_LARGE),
    ]
    WORDS = {
        "complex": "does not accept complex values if 'is_complex' is not set to 'True'.",
        "float": "does not accept floating-point values.",
    }

    @rows("cls, value, error, message", ROWS)
    @rows("write", WAYS)
    def test_rows(self, write, cls, value, error, message):
        word = cls.__name__.rpartition(".")[2]
        if message in self.WORDS:
            message = f"velmar.{word} {self.WORDS[message]}"
        elif message.endswith(" "):
            message += f"of type {word}."
        array = cls([[1, 0], [0, 1]])
        with raises(error, message):
            write(array, value)
        assert contents(array) == [[1, 0], [0, 1]]

    @rows("write", WAYS)
    def test_both_parts_of_a_complex_number(self, write):
        array = velmar.double([[1, 0], [0, 1]], is_complex=True)
        write(array, 1 + 2j)
        assert contents(array) == [[1, 1 + 2j], [0, 1]]

    @pytest.mark.parametrize("value", [1, 7, -1, True, 2**62])
    def test_logical_stores_truth(self, value):
        array = velmar.logical([[0, 0, 0]])
        array[0][1] = value
        array[0][2:] = [value]
        assert contents(array) == [[False, True, True]]

    def test_single_is_rounded(self):
        array = velmar.single([[0, 0, 0]])
        array[0] = [0.1, -1e300, 10**400]
        assert contents(array) == [[0.10000000149011612, float("inf"), float("inf")]]

    @each(INTEGER_ROWS)
    def test_limits(self, row):
        array = row.cls([[0, 0]])
        array[0] = [row.low, row.high]
        assert contents(array) == [[row.low, row.high]]
        for beyond in (row.low - 1, row.high + 1):
            with pytest.raises(OverflowError):
                array[0][0] = beyond
            with pytest.raises(OverflowError):
                array[0] = [0, beyond]
        assert contents(array) == [[row.low, row.high]]


SEQUENCES = [
    ("list", [1]),
    ("tuple", (1, 0)),
    ("empty_list", []),
    ("range", range(2)),
    ("bytes", b"1"),
    ("bytearray", bytearray(b"1")),
    ("memoryview", memoryview(b"1")),
    ("array_of_the_library", arrays_of_the_library.array("d", [1])),
    ("array", velmar.double([1])),
    ("view", velmar.double([1])[0]),
    ("nested_list", [[1]]),
]


class TestSequenceForANumber:
    """A sequence for one number: real classes refuse it, complex ones convert it to 0."""

    @rows("value", SEQUENCES)
    @each(CLASS_ROWS)
    def test_real(self, row, value):
        array = row.cls([[1, 1]])
        with raises(*SCALAR_EXPECTED):
            array[0][0] = value
        with raises(TypeError, "value is not numeric."):
            array[0][0] = "1"
        assert contents(array) == [[1, 1]]

    @rows("value", [*SEQUENCES, ("text", "1"), ("empty_text", "")])
    @each(COMPLEX_ROWS)
    def test_complex(self, row, value):
        array = row.cls([[1, 1]], is_complex=True)
        array[0][0] = value
        assert exact(contents(array)) == exact([[0j, 1 + 0j]])

    def test_a_number_with_items_is_a_number(self):
        array = line(3, velmar.int8)
        array[0] = SequenceInt(9)
        assert contents(array) == [9, 1, 2]
        array = line(3)
        array[0] = SequenceFloat(9)
        assert contents(array) == [9, 1, 2]
        array[0:2] = SequenceInt(9)  # here the same object is read as a sequence
        assert contents(array) == [5, 6, 2]


class TestSequences:
    """Everything that the interpreter calls a sequence is read as one."""

    ROWS = [
        ("tuple", (7, 8, 9)),
        ("range", range(7, 10)),
        ("bytes", bytes([7, 8, 9])),
        ("bytearray", bytearray([7, 8, 9])),
        ("memoryview", memoryview(bytes([7, 8, 9]))),
        ("array_of_the_library", arrays_of_the_library.array("h", [7, 8, 9])),
        ("view", velmar.uint8([7, 8, 9])[0]),
        ("slice", line(12, velmar.uint8)[7:10]),
        ("reversed", velmar.uint8([9, 8, 7])[0][::-1]),
    ]

    @rows("value", ROWS)
    @each(CLASS_ROWS)
    def test_rows(self, row, value):
        want = [bool(item) for item in value] if row.kind == "logical" else list(value)
        array = row.cls([[0, 0, 0], [0, 0, 1]])
        array[0] = value
        array[1][::-1] = value
        assert contents(array) == [want, want[::-1]]
        array[:] = [value, value]
        assert contents(array) == [want, want]
        array[1:] = value
        assert contents(array) == [want, want]

    def test_whole_arrays(self):
        array = velmar.double(grid(2, 3))
        array[:] = velmar.int8([[9, 8, 7], [6, 5, 4]])
        assert contents(array) == [[9, 8, 7], [6, 5, 4]]
        with raises(*DIFFERENT_SHAPE):
            array[0] = velmar.double([1, 2, 3])  # its shape is 1 by 3, not 3
        array[0] = velmar.double([1, 2, 3])[0]
        array[1:] = velmar.double([1, 2, 3])
        assert contents(array) == [[1, 2, 3], [1, 2, 3]]
        array[:] = velmar.double([[1, 2], [3, 4], [5, 6]])
        assert contents(array) == [[1, 2, 3], [4, 5, 6]]

    def test_arrays_of_other_kinds(self):
        array = velmar.int16(grid_of_ints(2, 2))
        with raises(TypeError, "velmar.int16 does not accept floating-point values."):
            array[0] = velmar.double([1, 2])[0]
        message = "does not accept complex values if 'is_complex' is not set to 'True'."
        with raises(TypeError, f"velmar.int16 {message}"):
            array[0] = velmar.int16([1, 2], is_complex=True)[0]
        assert contents(array) == [[0, 1], [2, 3]]
        array[0] = velmar.logical([1, 0])[0]
        assert contents(array) == [[1, 0], [2, 3]]

    @pytest.mark.parametrize("value", [{1: 2}, {1, 2}, iter([1, 2]), (i for i in [1])], ids=type)
    def test_no_sequences(self, value):
        for array, subscript in ((line(2), slice(None)), (velmar.double(grid(2, 2)), 0)):
            with raises(TypeError, "type does not match."):
                array[subscript] = value

    ILL_FORMED = [
        ("text", "12", NOT_NUMERIC),
        ("empty_text", "", NOT_NUMERIC),
        ("texts", ["1", "2"], NOT_NUMERIC),
        ("deep_text", [[1], ["2"]], NOT_NUMERIC),
        ("number_and_list", [1, [2]], UNEVEN),
        ("list_and_number", [[1], 2], UNEVEN),
        ("ragged", [[1], [2, 3]], UNEVEN),
        ("number_and_text", [1, "2"], UNEVEN),
        ("deep_ragged", [[[1], [2]], [[3, 4], [5, 6]]], NOT_RECTANGULAR),
        ("depths", [[[1]], [2]], NOT_RECTANGULAR),
    ]

    @rows("value, failure", ILL_FORMED)
    @each_form
    def test_ill_formed(self, row, is_complex, value, failure):
        array = row.cls([[1, 0], [0, 1]], is_complex=is_complex)
        for view, subscript in (
            (array, 0),
            (array, slice(None)),
            (array, slice(1, 1)),
            (array[::-1], slice(1, None)),
            (array[0], slice(None)),
            (array[0], slice(2, 2)),
        ):
            with raises(*failure):
                view[subscript] = value
        assert contents(array) == [[1, 0], [0, 1]]

    @each(COMPLEX_ROWS)
    def test_complex_takes_any_object_as_zero(self, row):
        array = row.cls([[1, 1], [1, 1]], is_complex=True)
        array[0] = [None, {}]
        array[1:] = [object(), 1j]
        assert contents(array) == [[0, 0], [0, 1j]]
        single = row.cls([[1, 1]], is_complex=True)[0:1]
        with raises(ValueError, "length of slice does not match number of elements."):
            single[0:1] = None
        assert contents(single) == [[0, 1]]


def grid_of_ints(*shape):
    return [[int(number) for number in row] for row in grid(*shape)]


class TestNothing:
    """Right-hand sides without elements."""

    @each_form
    def test_matching_shape(self, row, is_complex):
        array = row.cls(size=(2, 3, 0), is_complex=is_complex)
        array[0] = [[], [], []]
        array[-1] = velmar.double(size=(3, 0))
        array[1][2] = []
        array[0][2:1] = [[]]
        for view in (array, array[1]):
            with raises(ValueError, "slice is nonempty but values are empty."):
                view[1:] = []
        array[0][0][:] = []
        array[0][0][5:9] = ()
        assert contents(array) == [[[], [], []]] * 2

    @rows("value", [("flat", []), ("two", [[], []]), ("deep", [[[]], [[]], [[]]]), ("number", 1)])
    def test_other_shape(self, value):
        with raises(*DIFFERENT_SHAPE):
            velmar.double(size=(2, 3, 0))[0] = value

    def test_dimension_in_front_of_a_missing_one(self):
        array = velmar.double(size=(2, 0, 3))
        with raises(*DIFFERENT_SHAPE):
            array[0] = []  # one dimension, but 0 by 3 are open
        array[0][:] = []
        with raises(ValueError, "slice is nonempty but values are empty."):
            array[0:1] = []
        with raises(RuntimeError, "unable to set value."):
            array[0:1] = [1]
        with raises(RuntimeError, "unable to set value."):
            velmar.double(size=(2, 0))[:] = 1

    def test_no_room(self):
        with raises(*DIFFERENT_SHAPE):
            velmar.double(size=(2, 0))[0] = [1]
        with raises(*DIFFERENT_SHAPE):
            velmar.double(size=(2, 0))[0][:] = [1]
        with raises(
            ValueError, "slice is empty, but number of elements assigned is greater than zero."
        ):
            velmar.double()[:] = [1]
