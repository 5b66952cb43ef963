"""Assignment through views: the four ways of writing, what each accepts, and every refusal."""

from __future__ import annotations

import ctypes
import functools
import operator

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, every, exact, grid, line, subscripted
from helpers.cases import each, each_form, rows
from helpers.conversion_model import TOO_LARGE
from helpers.failures import (
    DIFFERENT_SHAPE,
    IS_NONE,
    NO_ROOM,
    NO_VALUES,
    NOT_AN_INDEX,
    NULL_POINTER,
    OUTSIDE_STORAGE,
    PAST_SLICE,
    UNEVEN,
    WRONG_COUNT,
    must_fail,
    raises,
)
from helpers.memory_blocks import blocks_per_call, counts_blocks
from helpers.scalar_values import CalledIndex, RaisingIndex
from helpers.subscript_rows import BAD_SLICES, OUTSIDE, REFUSED
from helpers.view_states import bare_record
from helpers.write_model import Storage, Target, attempt


class RaisingLength:
    """Its error exists already, because making one would call a function with an error pending."""

    error = KeyError("length")

    def __len__(self):
        raise self.error

    def __getitem__(self, index):
        return 1


def check(shape, chain, subscript, value, error, expected):
    """Assign in an array numbered in the order of its nesting; compare all of it afterwards."""
    array = velmar.double(grid(*shape))
    view = subscripted(array, chain)
    if error is None:
        view[subscript] = value
    else:
        with raises(*error):
            view[subscript] = value
    assert contents(array) == expected
    model = Target(Storage(shape))
    attempt(subscripted(model, chain), subscript, value)
    assert model.storage.contents() == expected  # the model agrees with the row


BEFORE = grid(2, 3)
TEN = [float(i) for i in range(10)]

IN_TWO_DIMENSIONS = [  # on [[0, 1, 2], [3, 4, 5]]
    ("number_for_a_row", 0, 5, DIFFERENT_SHAPE, BEFORE),
    ("row", 1, [7, 8, 9], None, [[0, 1, 2], [7, 8, 9]]),
    ("row_from_the_end", -2, [7, 8, 9], None, [[7, 8, 9], [3, 4, 5]]),
    ("short_row", 1, [7, 8], DIFFERENT_SHAPE, BEFORE),
    ("long_row", 1, [7, 8, 9, 10], DIFFERENT_SHAPE, BEFORE),
    ("nested_row", 1, [[7, 8, 9]], DIFFERENT_SHAPE, BEFORE),
    ("no_row", 1, [], DIFFERENT_SHAPE, BEFORE),
    ("column_for_a_row", 1, [[7], [8], [9]], DIFFERENT_SHAPE, BEFORE),
    ("flat_rows", every(0, 2), [1, 2, 3, 4, 5, 6], None, [[1, 2, 3], [4, 5, 6]]),
    ("nested_rows", every(0, 2), [[1, 2, 3], [4, 5, 6]], None, [[1, 2, 3], [4, 5, 6]]),
    ("rows_nested_otherwise", every(0, 2), [[1, 2], [3, 4], [5, 6]], None, [[1, 2, 3], [4, 5, 6]]),
    ("rows_in_one", every(), [[[1, 2, 3, 4, 5, 6]]], None, [[1, 2, 3], [4, 5, 6]]),
    ("rows_backwards", every(step=-1), [1, 2, 3, 4, 5, 6], None, [[4, 5, 6], [1, 2, 3]]),
    ("one_row", every(1, 2), [7, 8, 9], None, [[0, 1, 2], [7, 8, 9]]),
    ("too_few", every(0, 2), [11, 12, 13, 14, 15], WRONG_COUNT, [[11, 12, 13], [14, 15, 5]]),
    ("too_many", every(0, 2), [1, 2, 3, 4, 5, 6, 7], WRONG_COUNT, [[1, 2, 3], [4, 5, 6]]),
    ("one_row_for_two", every(0, 2), [7, 8, 9], WRONG_COUNT, [[7, 8, 9], [3, 4, 5]]),
    ("scalar_for_rows", every(0, 2), 9, WRONG_COUNT, [[9, 1, 2], [3, 4, 5]]),
    ("scalar_for_last_row", every(1, 2), 9, WRONG_COUNT, [[0, 1, 2], [9, 4, 5]]),
    ("nothing_for_rows", every(0, 2), [], NO_VALUES, BEFORE),
    ("nested_nothing_for_rows", every(0, 2), [[], []], NO_VALUES, BEFORE),
    ("nothing_for_no_rows", every(2, 2), [], None, BEFORE),
    ("nested_nothing_for_no_rows", every(2, 2), [[], [], []], None, BEFORE),
    ("number_for_no_rows", every(2, 2), [1], NO_ROOM, BEFORE),
    ("scalar_for_no_rows", every(2, 2), 1, NO_ROOM, BEFORE),
]

IN_ONE_DIMENSION = [  # on 0, 1 ... 9
    ("number", 0, 5, None, [5, *TEN[1:]]),
    ("last_number", -1, 5, None, [*TEN[:9], 5]),
    ("bool_index", True, 5, None, [0, 5, *TEN[2:]]),
    ("bool_value", 0, True, None, [1, *TEN[1:]]),
    ("numbers", every(0, 3), [7, 8, 9], None, [7, 8, 9, *TEN[3:]]),
    ("numbers_backwards", every(2, None, -1), [7, 8, 9], None, [9, 8, 7, *TEN[3:]]),
    ("stepped_numbers", every(1, 6, 2), [7, 8, 9], None, [0, 7, 2, 8, 4, 9, *TEN[6:]]),
    ("scalar_for_numbers", every(0, 3), 5, DIFFERENT_SHAPE, TEN),
    ("scalar_for_one_number", every(0, 1), 5, DIFFERENT_SHAPE, TEN),
    ("one_number", every(0, 1), [5], None, [5, *TEN[1:]]),
    ("nested_numbers", every(0, 3), [[7, 8, 9]], DIFFERENT_SHAPE, TEN),
    ("column_of_numbers", every(0, 3), [[7], [8], [9]], DIFFERENT_SHAPE, TEN),
    ("too_few", every(0, 3), [7, 8], DIFFERENT_SHAPE, TEN),
    ("too_many", every(0, 3), [7, 8, 9, 10], DIFFERENT_SHAPE, TEN),
    ("nothing", every(5, 5), [], None, TEN),
    ("nothing_outside", every(20, 30), [], None, TEN),
    ("nested_nothing", every(5, 5), [[]], DIFFERENT_SHAPE, TEN),
    ("nothing_for_numbers", every(0, 3), [], DIFFERENT_SHAPE, TEN),
    ("number_for_nothing", every(5, 5), [1], DIFFERENT_SHAPE, TEN),
    ("scalar_for_nothing", every(5, 5), 1, DIFFERENT_SHAPE, TEN),
]


class TestTables:
    @rows("subscript, value, error, expected", IN_TWO_DIMENSIONS)
    def test_two_dimensions(self, subscript, value, error, expected):
        check((2, 3), [], subscript, value, error, expected)

    @rows("subscript, value, error, expected", IN_ONE_DIMENSION)
    def test_one_dimension(self, subscript, value, error, expected):
        check((1, 10), [0], subscript, value, error, [expected])

    def test_right_side_is_read_before_the_first_write(self):
        array = velmar.double(grid(2, 3))
        for subscript in (0, every(0, 2)):
            with raises(ValueError, "elements of array are of different lengths or types."):
                array[subscript] = [1, "x"]
            with raises(ValueError, "value passed to initializer must be numeric."):
                array[subscript] = ["x", "y"]
            with raises(TypeError, "value must not be 'None'."):
                array[subscript] = [7, 8, None]
        with raises(TypeError, "value must not be 'None'."):
            array[0][:] = [7, 8, None]
        assert contents(array) == BEFORE


class TestViewEndingInASlice:
    """An integer is checked against the storage and looked up in the slice of the view.

    A slice of numbers ignores the slice of the view.
    """

    ROWS = [  # on 0 ... 9, through [2:5]
        ("first", 0, 9, None, [*TEN[:2], 9, *TEN[3:]]),
        ("second", 1, 9, None, [*TEN[:3], 9, *TEN[4:]]),
        ("last", 2, 9, None, [*TEN[:4], 9, *TEN[5:]]),
        ("behind", 3, 9, PAST_SLICE, TEN),
        ("minus_one", -1, 9, PAST_SLICE, TEN),
        ("minus_seven", -7, 9, PAST_SLICE, TEN),
        ("minus_eight", -8, 99, None, [*TEN[:4], 99, *TEN[5:]]),
        ("minus_ten", -10, 99, None, [*TEN[:2], 99, *TEN[3:]]),
        ("seven", 7, 9, PAST_SLICE, TEN),
        ("nine", 9, 9, PAST_SLICE, TEN),
        ("ten", 10, 9, (IndexError, "index has an invalid value: 10"), TEN),
        ("twelve", 12, 9, (IndexError, "index has an invalid value: 12"), TEN),
        ("minus_eleven", -11, 9, (IndexError, "index has an invalid value: -11"), TEN),
        ("part", every(0, 2), [8, 9], None, [8, 9, *TEN[2:]]),
        ("all", every(), list(range(20, 30)), None, list(range(20, 30))),
        ("length_of_the_view", every(), [7, 8, 9], DIFFERENT_SHAPE, TEN),
        ("outside_the_view", every(8, 10), [18, 19], None, [*TEN[:8], 18, 19]),
        ("backwards", every(1, None, -1), [8, 9], None, [9, 8, *TEN[2:]]),
    ]

    @rows("subscript, value, error, expected", ROWS)
    def test_rows(self, subscript, value, error, expected):
        check((1, 10), [0, every(2, 5)], subscript, value, error, [expected])

    @rows("subscript, value, error, expected", ROWS[13:])
    def test_empty_and_composed_views_are_no_different_for_slices(
        self, subscript, value, error, expected
    ):
        for chain in ([every(5, 5)], [every(step=-2)], [every(1, None), every(step=-1)]):
            check((1, 10), [0, *chain], subscript, value, error, [expected])

    @rows("index", [("first", 0), ("last", 9), ("minus_one", -1), ("minus_ten", -10)])
    def test_empty_view_has_no_number(self, index):
        check((1, 10), [0, every(5, 5)], index, 1, PAST_SLICE, [TEN])

    def test_reversed_view(self):
        array = velmar.double([TEN])
        view = array[0][::-1]
        view[0], view[-1] = 90, 91
        assert contents(array) == [[91.0, *TEN[1:9], 90.0]]

    def test_read_then_write_in_place(self):
        array = line(10)
        array[2:5][0] += 40
        array[-1] *= 2
        assert contents(array) == [0, 1, 42, *TEN[3:9], 18]


THIRTY = grid(10, 3)


class TestRowsOfAViewEndingInASlice:
    """Slices of rows compose, but the subscript is resolved against the storage's length."""

    ROWS = [  # on 3 by 4, through [1:3]; 9 is written everywhere
        ("slice", every(0, 1), [9] * 4, None, [1]),
        ("integer", 0, [9] * 4, None, [1]),
        ("second", 1, [9] * 4, None, [2]),
        ("both", every(0, 2), [9] * 8, None, [1, 2]),
        ("reversed", every(1, None, -1), [9] * 8, None, [1, 2]),
        ("third", 2, [9] * 4, PAST_SLICE, []),
        ("minus_one", -1, [9] * 4, PAST_SLICE, []),
        ("minus_two", -2, [9] * 4, None, [2]),
        ("minus_three", -3, [9] * 4, None, [1]),
        ("fourth", 3, [9] * 4, (IndexError, "index has an invalid value: 3"), []),
        ("minus_four", -4, [9] * 4, (IndexError, "index has an invalid value: -4"), []),
        ("all_three", every(), [9] * 12, WRONG_COUNT, [1, 2]),
        ("all_of_the_view", every(), [9] * 8, None, [1, 2]),
        ("empty", every(3, None), [9] * 4, NO_ROOM, []),
    ]

    @rows("subscript, value, error, written", ROWS)
    def test_rows(self, subscript, value, error, written):
        expected = [[9] * 4 if i in written else row for i, row in enumerate(grid(3, 4))]
        check((3, 4), [every(1, 3)], subscript, value, error, expected)

    def test_empty_view_is_written_at_its_start(self):
        # The subscript is not empty. That the view is empty does not matter.
        expected = [[7, 8, 9, 10], *grid(3, 4)[1:]]
        check((3, 4), [every(2, 2)], every(0, 1), [7, 8, 9, 10], None, expected)
        check((3, 4), [every(2, 2)], every(0, 1), [7, 8, 9, 10, 11], WRONG_COUNT, expected)

    def test_run_beyond_the_view(self):
        # Rows 3, 4 and 5 are written: the view has three rows, and the walk starts at its second.
        chain, subscript = [every(2, 5)], every(1, 10)
        written = [[90, 91, 92], [93, 94, 95], [96, 97, 98]]
        expected = [*THIRTY[:3], *written, *THIRTY[6:]]
        check((10, 3), chain, subscript, list(range(90, 99)), None, expected)
        expected = [*THIRTY[:3], *written[:2], *THIRTY[5:]]
        check((10, 3), chain, subscript, list(range(90, 96)), WRONG_COUNT, expected)

    def test_run_beyond_the_end_of_the_storage(self):
        # Row 10 of a column is row 0 of the next one; after the last column there is none.
        expected = [row[:] for row in THIRTY]
        expected[8], expected[9] = [50.0, 51.0, 52.0], [53.0, 54.0, 55.0]
        expected[0] = [0.0, 56.0, 57.0]
        error = OUTSIDE_STORAGE
        check((10, 3), [every(7, 10)], every(1, 10), list(range(50, 59)), error, expected)

    def test_run_before_the_start_of_the_storage(self):
        expected = [row[:] for row in THIRTY]
        expected[1], expected[0] = [50.0, 51.0, 52.0], [53.0, 54.0, 55.0]
        error = OUTSIDE_STORAGE
        chain = [every(2, None, -1)]
        check((10, 3), chain, every(1, None), list(range(50, 59)), error, expected)
        check((10, 3), chain, every(1, None), list(range(50, 56)), WRONG_COUNT, expected)
        check((10, 3), chain, every(1, 3), list(range(50, 56)), None, expected)


class TestSubscript:
    """The subscripts of a read, resolved against the storage's length."""

    @staticmethod
    def targets():
        return [line(5), line(5)[1:3], velmar.double(grid(5, 2)), velmar.double(grid(5, 2))[::-1]]

    @rows("index, text", OUTSIDE)
    def test_out_of_range(self, index, text):
        for view in self.targets():
            for value in (1, [1, 2], None, "x"):
                with raises(IndexError, f"index has an invalid value: {text}"):
                    view[index] = value

    @rows("subscript", REFUSED)
    def test_refused(self, subscript):
        for view in [*self.targets(), velmar.double()]:
            with raises(*NOT_AN_INDEX):
                view[subscript] = 1

    @rows("subscript, failure", BAD_SLICES)
    def test_bad_slices(self, subscript, failure):
        for view in [*self.targets(), velmar.double(), line(5)[3:3]]:
            with raises(*failure):
                view[subscript] = [1]

    @each(CLASS_ROWS)
    def test_refused_in_every_class(self, row):
        array = row.cls([1])
        with raises(*NOT_AN_INDEX):
            array[None] = 1
        with raises(ValueError, "slice step cannot be zero."):
            array[::0] = 1
        with raises(IndexError, "index has an invalid value: 1"):
            array[1] = [1]
        with raises(RuntimeError, "object not initialized."):
            bare_record(row.cls)[None] = 1

    @pytest.mark.parametrize("index", [0, -1, 1])
    def test_length_zero_has_no_element(self, index):
        for size in ((0, 0), (0, 3)):
            with raises(IndexError, f"index has an invalid value: {index}"):
                velmar.double(size=size)[index] = []
        with raises(IndexError, f"index has an invalid value: {index}"):
            velmar.double(size=(2, 0))[0][index] = 1

    @pytest.mark.parametrize("index", [2**63, -(2**63) - 1, 2**70])
    def test_beyond_64_bits_it_is_the_last_with_an_error_pending(self, index):
        for array, value, expected in (
            (line(3), 9.0, [0, 1, 9]),
            (velmar.double(grid(3, 1)), [9.0], [[0], [1], [9]]),
        ):
            with pytest.raises(SystemError, match="returned a result with an exception set") as it:
                functools.partial(operator.setitem, array, index, value)()
            assert type(it.value.__cause__) is OverflowError
            assert contents(array) == expected

    @pytest.mark.parametrize("value", [-1, [-1]], ids=str)
    def test_beside_that_error_minus_one_is_too_large(self, value):
        whole = velmar.int16(vector=[0, 1, 2], size=(3, 1))
        array = whole if isinstance(value, list) else line(3, velmar.int16)
        with raises(OverflowError, "Python int too large to convert to C long long"):
            functools.partial(operator.setitem, array, 2**70, value)()
        assert contents(array) in ([0, 1, 2], [[0], [1], [2]])

    @rows(
        "value, error",
        [
            ("lengths", [[1], [2, 3]], UNEVEN),
            ("empty", [[1, 2], []], UNEVEN),
            ("list", [1, [2]], UNEVEN),
            ("tuple", ([1], 2), UNEVEN),
            ("text", [1, "x"], UNEVEN),
            ("deeper", [[[1], [2, 3]], [[1], [2]]], UNEVEN),
            ("none", [None, 1], IS_NONE),
            ("length", RaisingLength(), (KeyError, "'length'")),
            ("length_inside", [[1], RaisingLength()], (KeyError, "'length'")),
        ],
    )
    def test_beside_that_error_a_refusal_is_the_usual_one(self, value, error):
        for shape in ((3, 1), (3, 2), (2, 2, 2)):
            array = velmar.double(grid(*shape))
            before = contents(array)
            with raises(*error):
                array[2**70] = value
            assert contents(array) == before

    def test_bounds_of_a_slice_are_asked_for_before_the_right_side_is_read(self):
        error = KeyError("bound")
        for view in self.targets():
            with pytest.raises(KeyError) as caught:
                view[RaisingIndex(error) :] = None
            assert caught.value is error

    def test_a_bound_that_writes(self):
        array = line(4)

        def bound():
            array[3] = 30
            array[0] = 10
            return 2

        array[: CalledIndex(bound)] = [7, 8]
        assert contents(array) == [7, 8, 2, 30]


def sample(row, is_complex, count):
    """Values of the class as reads return them, all different except in a logical array."""
    if row.kind == "logical":
        return [i % 2 == 0 for i in range(count)]
    if is_complex:
        return [complex(100 - i, i + 1) for i in range(count)]
    if row.kind == "float":
        return [i + 0.5 for i in range(count)]
    return [row.high - i for i in range(count)]


class TestEveryClass:
    """The four ways of writing, before and after the first read of the elements."""

    @each_form
    @pytest.mark.parametrize("looked", [False, True])
    def test_four_ways(self, row, is_complex, looked):
        zero = 0j if is_complex else {"float": 0.0, "logical": False}.get(row.kind, 0)
        want = [[zero] * 3 for _ in range(4)]
        array = row.cls(want, is_complex=is_complex)
        views = [array[0], array[::-1], array[:]]
        if looked:
            assert exact(contents(array)) == exact(want)
        values = sample(row, is_complex, 6)

        array[0][1] = want[0][1] = values[0]
        array[3] = want[3] = values[1:4]
        array[1:3] = values
        want[1:3] = [values[:3], values[3:]]
        array[0][2::-2] = values[4:]
        want[0][2::-2] = values[4:]

        assert exact(contents(array)) == exact(want)
        assert exact(contents(array.clone())) == exact(want)  # from the array, not its mirror
        for view, expected in zip(views, (want[0], want[::-1], want), strict=True):
            assert exact(contents(view)) == exact(expected)

    @each_form
    def test_refusals(self, row, is_complex):
        array = row.cls([[1, 0], [0, 1]], is_complex=is_complex)
        before = exact(contents(array))
        for view, subscript, value, failure in (
            (array, 0, 1, DIFFERENT_SHAPE),
            (array, 0, [1], DIFFERENT_SHAPE),
            (array[0], every(), 1, DIFFERENT_SHAPE),
            (array[0], every(), [1, 0, 1], DIFFERENT_SHAPE),
            (array, every(), [], NO_VALUES),
            (array, every(1, 1), [1], NO_ROOM),
            (array, every(), [1, 0, 0], WRONG_COUNT),
            (array, every(), [1, 0, 0, 1, 1], WRONG_COUNT),
        ):
            with raises(*failure):
                view[subscript] = value
        with raises(*PAST_SLICE):
            array[1:][1] = [1, 0]
        with raises(*PAST_SLICE):
            array[0][1:][-1] = 1
        assert exact(contents(array)) == before  # the refused counts wrote the old values


class TestDeletion:
    """Refused with the message of an assignment whose value is missing."""

    TARGETS = [
        ("number", lambda: line(5), 0),
        ("last_number", lambda: line(5), -1),
        ("number_of_a_slice", lambda: line(5)[2:], 1),
        ("numbers", lambda: line(5), every(0, 2)),
        ("no_numbers", lambda: line(5), every(2, 2)),
        ("row", lambda: velmar.double(grid(5, 2)), 0),
        ("row_of_a_slice", lambda: velmar.double(grid(5, 2))[2:], 0),
        ("rows", lambda: velmar.double(grid(5, 2)), every(0, 2)),
        ("no_rows", lambda: velmar.double(grid(5, 2)), every(2, 2)),
    ]

    @rows("make, subscript", TARGETS)
    def test_rows(self, make, subscript):
        view = make()
        before = contents(view)
        for delete in (operator.delitem, type(view).__delitem__):
            with raises(*NULL_POINTER):
                delete(view, subscript)
        with raises(*NULL_POINTER):
            del view[subscript]
        assert contents(view) == before

    @each_form
    def test_every_class(self, row, is_complex):
        array = row.cls([[1, 0], [0, 1]], is_complex=is_complex)
        for view in (array, array[0]):
            for subscript in (1, every(), every(1, 1)):
                with raises(*NULL_POINTER):
                    del view[subscript]

    def test_the_subscript_comes_first(self):
        for view in (line(5), velmar.double(grid(5, 2))):
            with raises(IndexError, "index has an invalid value: 5"):
                del view[5]
            with raises(*NOT_AN_INDEX):
                del view[None]
            with raises(ValueError, "slice step cannot be zero."):
                del view[::0]
            with raises(*PAST_SLICE):
                del view[2:3][1]


class TestInterpreter:
    def test_no_item_assignment_of_sequences(self):
        set_item = ctypes.PYFUNCTYPE(
            ctypes.c_int, ctypes.py_object, ctypes.c_ssize_t, ctypes.py_object
        )(("PySequence_SetItem", ctypes.pythonapi))
        array = line(3)
        with pytest.raises(TypeError):
            set_item(array, 0, 9)
        assert contents(array) == [0, 1, 2]

    def test_method(self):
        array = line(3)
        assert array.__setitem__(1, 9) is None
        assert operator.setitem(array, every(0, 1), [8]) is None
        assert contents(array) == [8, 9, 2]

    def test_overflow_of_the_value_is_its_own(self):
        with raises(OverflowError, TOO_LARGE):
            line(3)[0] = 2**64


def refused(view, subscript, value):
    must_fail(Exception, operator.setitem, view, subscript, value)


@counts_blocks
class TestReferences:
    @rows(
        "action",
        [
            ("number", lambda a: operator.setitem(a[1], 2, 1000.5)),
            ("numbers", lambda a: operator.setitem(a[1], every(), [1000.5, 2, 3])),
            ("row", lambda a: operator.setitem(a, 1, [1000.5, 2, 3])),
            ("rows", lambda a: operator.setitem(a, every(), [1000.5] * 6)),
            ("rows_of_slice", lambda a: operator.setitem(a[::-1], every(), a)),
            ("array", lambda a: operator.setitem(a, 0, a[1])),
            ("wrong_count", lambda a: refused(a, every(), [1000.5] * 7)),
            ("unequal", lambda a: refused(a, 0, [1000.5])),
            ("out_of_range", lambda a: refused(a, 5, 1000.5)),
            ("past_slice", lambda a: refused(a[1:], -1, [1, 2, 3])),
            ("no_value", lambda a: refused(a, 0, [1, 2, None])),
            ("no_number", lambda a: refused(a[0], 0, None)),
            ("bad_slice", lambda a: refused(a, every("a"), 1)),
            ("refused", lambda a: refused(a, None, 1)),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        array = velmar.double([[1000.5, 2000.5, 3000.5], [4000.5, 5000.5, 6000.5]])
        assert blocks_per_call(lambda: action(array)) < 0.05
