"""Right-hand sides that share the target's storage, or run code while they are read."""

from __future__ import annotations

import gc

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, every, exact, grid, line, subscripted
from helpers.cases import each, each_form, rows
from helpers.failures import NOT_RECTANGULAR, NULL_POINTER, UNEVEN, raises
from helpers.hostile_sequences import Answers, BadLength, Boom, Scripted, Unsized, then
from helpers.scalar_values import CalledIndex
from helpers.write_model import Storage, Target, attempt

BACK = every(step=-1)

IN_A_LINE = [  # target view and subscript in 0 ... 7; the view on the right
    ("part", [], every(0, 2), [every(2, 4)]),
    ("itself", [], every(), []),
    ("itself_backwards", [], BACK, []),
    ("backwards", [], every(), [BACK]),
    ("both_backwards", [], BACK, [BACK]),
    ("too_few", [], every(1, None), [every(0, 1)]),
    ("shift_right", [], every(1, None), [every(0, -1)]),
    ("shift_left", [], every(0, -1), [every(1, None)]),
    ("spread", [], every(None, None, 2), [every(0, 4)]),
    ("gather", [], every(0, 4), [every(None, None, 2)]),
    ("interleaved", [], every(0, None, 2), [every(1, None, 2)]),
    ("mirrored_half", [], every(0, 4), [every(None, 3, -1)]),
    ("through_a_slice", [every(2, 6)], every(0, 3), [every(1, 4)]),
    ("through_itself", [every(4, 6)], every(3, 5), [every(4, 6)]),
    ("nothing", [], every(3, 3), [every(5, 5)]),
]

IN_A_CUBE = [  # the same in 3 by 3 by 3
    ("plane", [], 0, [1]),
    ("plane_itself", [], 1, [1]),
    ("plane_backwards", [], 1, [1, BACK]),
    ("planes", [], every(0, 2), [every(1, 3)]),
    ("planes_shifted", [], every(1, 3), [every(0, 2)]),
    ("itself", [], every(), []),
    ("itself_backwards", [], BACK, []),
    ("backwards", [], every(), [BACK]),
    ("row", [0], 1, [2, 1]),
    ("row_backwards", [0], 1, [0, 1, BACK]),
    ("rows_of_plane", [1], every(0, 2), [1, every(1, 3)]),
    ("rows_backwards", [1], BACK, [1]),
    ("numbers", [0, 0], every(), [0, 0, BACK]),
    ("numbers_shifted", [0, 0], every(1, None), [0, 0, every(0, 2)]),
    ("through_a_slice", [BACK], every(0, 2), [every(0, 2)]),
    ("through_itself", [BACK], every(), [BACK]),
    ("one_plane", [every(1, None)], 0, [0, BACK]),
    ("too_few", [], every(), [1]),
    ("too_many", [], every(1, 3), []),
]


def check_aliased(array, shape, chain, subscript, other, make_right=lambda view: view):
    """The result is that of a right side read completely before the first write."""
    model = Target(Storage(shape))
    first = [0] if shape[0] == 1 else []
    right = subscripted(array, first + other)
    read = contents(right)
    want = attempt(subscripted(model, first + chain), subscript, read)
    assert attempt(subscripted(array, first + chain), subscript, make_right(right)) == want
    assert contents(array) == model.storage.contents()


class TestViewsOfTheTarget:
    @rows("chain, subscript, other", IN_A_LINE)
    @pytest.mark.parametrize(
        "make", [lambda view: view, list, tuple], ids=["view", "list", "tuple"]
    )
    def test_line(self, make, chain, subscript, other):
        array = velmar.double([list(range(8))])
        check_aliased(array, (1, 8), chain, subscript, other, make)

    @rows("chain, subscript, other", IN_A_CUBE)
    @pytest.mark.parametrize(
        "make", [lambda view: view, list, tuple], ids=["view", "list", "tuple"]
    )
    def test_cube(self, make, chain, subscript, other):
        # The items of the lists are views of the same storage.
        check_aliased(velmar.double(grid(3, 3, 3)), (3, 3, 3), chain, subscript, other, make)

    @each_form
    def test_every_class(self, row, is_complex):
        array = row.cls([[1, 0, 1, 1], [0, 0, 1, 0]], is_complex=is_complex)
        want = contents(array)
        array[::-1] = array
        want.reverse()
        assert exact(contents(array)) == exact(want)
        array[0][1:] = array[0][:-1]
        want[0][1:] = want[0][:-1]
        assert exact(contents(array)) == exact(want)
        array[1] = array[1][::-1]
        want[1].reverse()
        assert exact(contents(array)) == exact(want)

    def test_swapped_rows_are_not_copies(self):
        array = velmar.double(grid(2, 3))
        array[0], array[1] = array[1], array[0]
        assert contents(array) == [[3, 4, 5], [3, 4, 5]]
        array = velmar.double(grid(2, 3))
        array[:] = [array[1], array[0]]
        assert contents(array) == [[3, 4, 5], [0, 1, 2]]

    def test_transposed_by_rows_of_numbers(self):
        array = velmar.double(grid(3, 3))
        array[:] = [[row[i] for row in array] for i in range(3)]
        assert contents(array) == [[0, 3, 6], [1, 4, 7], [2, 5, 8]]

    def test_a_conversion_failure_of_the_last_element_writes_nothing(self):
        array = velmar.double(grid(2, 3))
        with raises(*UNEVEN):
            array[:] = [array[1], array[0][:2]]
        with raises(TypeError, "value must not be 'None'."):
            array[:] = [array[1], [0, 0, None]]
        assert contents(array) == grid(2, 3)


class TestSeenEverywhere:
    """All views share the storage, so all of them show a write at once."""

    WRITES = [  # to row 2 of 4 by 3
        ("number", lambda a: [operator_set(a[2], i, 9) for i in range(3)]),
        ("row", lambda a: operator_set(a, 2, [9, 9, 9])),
        ("rows", lambda a: operator_set(a, every(2, 3), [9, 9, 9])),
        ("numbers", lambda a: operator_set(a[2], every(), [9, 9, 9])),
        ("row_of_slice", lambda a: operator_set(a[1:], 1, [9, 9, 9])),
        ("rows_of_slice", lambda a: operator_set(a[::-1], every(1, 2), [9, 9, 9])),
        ("numbers_of_slice", lambda a: operator_set(a[1:][1], every(), [9, 9, 9])),
        ("number_of_slice", lambda a: [operator_set(a[2][::-1], i, 9) for i in range(3)]),
        ("number_of_yielded_row", lambda a: [operator_set(list(a)[2], i, 9) for i in range(3)]),
        ("numbers_of_yielded_row", lambda a: operator_set(list(a)[2], every(), [9, 9, 9])),
    ]

    @rows("write", WRITES)
    def test_rows(self, write):
        array = velmar.double(grid(4, 3))
        views = [array[2], array[-2][1:], array[::2], array[1:][1], array[::-1][1::2]]
        rows_of_it, iterator = list(array), iter(array[2])
        before = [contents(view) for view in views]
        assert before[0] == [6, 7, 8]
        write(array)
        assert contents(array) == [[0, 1, 2], [3, 4, 5], [9, 9, 9], [9, 10, 11]]
        assert [contents(view) for view in views] == [
            [9, 9, 9],
            [9, 9],
            [[0, 1, 2], [9, 9, 9]],
            [9, 9, 9],
            [[9, 9, 9], [0, 1, 2]],
        ]
        assert contents(rows_of_it[2]) == [9, 9, 9]
        assert list(iterator) == [9, 9, 9]
        assert str(views[3]) == "[9.0,9.0,9.0]"
        assert array == velmar.double([[0, 1, 2], [3, 4, 5], [9, 9, 9], [9, 10, 11]])

    def test_copies_are_not_written(self):
        array = velmar.double(grid(2, 2))
        copy, clone = velmar.double(array), array.clone()
        array[:] = [9] * 4
        assert contents(copy) == contents(clone) == grid(2, 2)
        clone[0] = [5, 5]
        assert contents(array) == [[9, 9], [9, 9]]

    def test_through_a_view_whose_array_has_gone(self):
        view = velmar.double(grid(3, 3))[1]
        gc.collect()
        view[0] = 9
        view[1:] = [8, 7]
        assert contents(view) == [9, 8, 7]


def operator_set(view, subscript, value):
    view[subscript] = value


TARGETS = [  # each takes two elements
    ("row", lambda array: array, 0),
    ("rows", lambda array: array, every(0, 1)),
    ("rows_of_slice", lambda array: array[::-1], every(0, 1)),
    ("numbers", lambda array: array[0], every()),
]


@pytest.fixture(name="array")
def fixture_array():
    return velmar.double(grid(2, 2))


class TestRaisingRightSide:
    @rows("view_of, subscript", TARGETS)
    def test_length(self, array, view_of, subscript):
        error = Boom("length")
        bad = Scripted([1, 2], lengths=[error])
        for value in (bad, [bad], [bad, bad]):
            with pytest.raises(Boom) as caught:
                view_of(array)[subscript] = value
            assert caught.value is error
        for value in (Unsized(), BadLength(-1), BadLength("2"), BadLength(2**70)):
            with pytest.raises((TypeError, ValueError, OverflowError)) as expected:
                len(value)
            with raises(expected.type, str(expected.value)):
                view_of(array)[subscript] = value
        assert contents(array) == grid(2, 2)

    ITEMS = [
        ("only", lambda: Scripted([Boom("item")]), NULL_POINTER),
        ("first", lambda: Scripted([Boom("item"), 2]), NULL_POINTER),
        ("last", lambda: Scripted([1, Boom("item")]), NULL_POINTER),
        ("second_time", lambda: Scripted([1, Answers(2, Boom("item"))]), NULL_POINTER),
        ("inside", lambda: [Scripted([1, Boom("item")]), [3, 4]], NULL_POINTER),
        ("too_long", lambda: Scripted([1, 2], lengths=[3]), NULL_POINTER),
        ("too_long_by_far", lambda: Scripted([1, 2], lengths=[2**62]), NULL_POINTER),
        ("grows", lambda: [Scripted([1, 2], lengths=[1, 2]), [4]], NOT_RECTANGULAR),
        ("shrinks", lambda: [[4, 5], Scripted([1, 2], lengths=[2, 1])], NOT_RECTANGULAR),
        ("agrees_too_late", lambda: [Scripted([1, 2], lengths=[1, 2]), [4, 5]], UNEVEN),
        ("deeper", lambda: Scripted([Answers(1, [3]), Answers(2, 4)]), NOT_RECTANGULAR),
    ]

    @rows("make, error", ITEMS)
    @rows("view_of, subscript", TARGETS)
    def test_items(self, array, view_of, subscript, make, error):
        with raises(*error):
            view_of(array)[subscript] = make()
        assert contents(array) == grid(2, 2)

    @rows("view_of, subscript", TARGETS)
    def test_empties(self, array, view_of, subscript):
        # A length of 0 leaves a dimension open, so the data can be 2 by 2.
        value = [Scripted([1, 2], lengths=[2, 0]), [4, 5]]
        outcome = attempt(view_of(array), subscript, value)
        assert outcome is None or outcome[0] is ValueError
        assert contents(array).count([4, 5]) == (outcome is None)
        assert [0, 1] in contents(array) or [2, 3] in contents(array)

    @rows("view_of, subscript", TARGETS)
    def test_lists_without_end(self, array, view_of, subscript):
        loop = []
        loop.append(loop)
        with pytest.raises(RecursionError):
            view_of(array)[subscript] = loop
        assert contents(array) == grid(2, 2)

    @each(CLASS_ROWS)
    def test_a_number_reads_nothing_of_the_sequence(self, row):
        array = row.cls([[1, 0]])
        value = Scripted([Boom("item")], lengths=[Boom("length")])
        with raises(TypeError, "sequence passed when scalar was expected."):
            array[0][0] = value
        assert value.log == []

    def test_what_a_sequence_is_asked(self, array):
        value = Scripted([7, 8])
        array[0] = value
        assert value.log == ["len", 0, 1, 0, 1]
        assert contents(array) == [[7, 8], [2, 3]]

    def test_a_length_that_is_too_short_counts(self, array):
        array[0] = Scripted([7, 8, 9], lengths=[2])
        assert contents(array) == [[7, 8], [2, 3]]


class TestRightSideThatWrites:
    """What the right side writes while it is read is there; the assignment then overwrites it."""

    @rows("view_of, subscript", TARGETS)
    def test_into_the_target(self, array, view_of, subscript):
        def write():
            array[:] = [50, 51, 52, 53]

        write()
        view_of(array)[subscript] = [7, 8]
        want = contents(array)
        for value in (Scripted([then(write, 7), 8]), Scripted([7, then(write, 8)])):
            array[:] = grid(2, 2)
            view_of(array)[subscript] = value
            assert contents(array) == want

    def test_writes_before_a_failure_stay(self, array):
        def write():
            array[1][1] = 99

        with raises(TypeError, "value must not be 'None'."):
            array[0] = Scripted([then(write, 7), None])
        with raises(ValueError, "length of slice does not match number of elements."):
            array[:] = Scripted([7, then(write, 8)])
        assert contents(array) == [[7, 8], [2, 99]]

    def test_rows_that_were_read_keep_what_was_read(self, array):
        def write():
            array[0] = [50, 51]

        array[:] = Scripted([array[0], then(write, array[0])])
        # The first pass asks both rows for their lengths, the second reads row by row.
        assert contents(array) == [[50, 51], [50, 51]]
        array[:] = grid(2, 2)
        array[:] = [array[0], Scripted([then(write, 7), 8])]
        assert contents(array) == [[0, 1], [7, 8]]

    def test_into_another_view_of_the_same_call(self, array):
        view = array[0]
        view[:] = Scripted([then(lambda: operator_set(view, every(), [5, 6]), 7), view[1]])
        assert contents(array) == [[7, 1], [2, 3]]

    def test_nested_assignments(self):
        def assign_to_all(view, value):
            view[:] = value

        def assign_to_list(numbers, value):
            for i in range(len(value)):  # as the check of the kinds of items does
                value[i]
            numbers[:] = [value[i] for i in range(len(value))]

        class Nested:
            def __init__(self, target, assign, depth):
                self.target, self.assign, self.depth = target, assign, depth

            def __len__(self):
                return 4

            def __getitem__(self, index):
                if self.depth and index == 2:
                    self.assign(self.target, Nested(self.target, self.assign, self.depth - 1))
                return self.target[index] + 1

        array, numbers = line(4), [0.0, 1.0, 2.0, 3.0]
        assign_to_list(numbers, Nested(numbers, assign_to_list, 3))
        assign_to_all(array, Nested(array, assign_to_all, 3))
        assert contents(array) == numbers
        assert numbers != [1.0, 2.0, 3.0, 4.0]


class TestRightSideThatDropsTheArray:
    """The call itself keeps the storage alive."""

    @rows("view_of, subscript", TARGETS)
    def test_last_reference_to_the_array(self, view_of, subscript):
        holder = [velmar.double(grid(2, 2))]
        kept = holder[0][:]
        view = [view_of(holder[0])]

        def drop():
            holder.clear()
            view.clear()
            gc.collect()
            holder.append([velmar.double(grid(20, 20)) for _ in range(5)])

        view[0][subscript] = Scripted([7, then(drop, 8)])
        assert not view
        assert [7, 8] in contents(kept)

    @rows("view_of, subscript", TARGETS)
    def test_temporary(self, view_of, subscript):
        view = [view_of(velmar.double(grid(2, 2)))]
        view[0][subscript] = Scripted([then(view.clear, 7), 8])
        assert not view

    def test_list_on_the_right_cleared_while_it_is_read(self, array):
        value = []
        value += [Scripted([then(value.clear, 7), 8]), [5, 6]]
        with raises(*NULL_POINTER):
            array[:] = value
        value += [[5, 6], Scripted([then(value.clear, 7), 8])]
        array[:] = value
        assert value == []
        assert contents(array) == [[5, 6], [7, 8]]

    def test_bound_of_a_slice_drops_the_array(self):
        holder = [velmar.double(grid(2, 2))]
        kept = holder[0][:]

        holder[0][CalledIndex(then(holder.clear, 1)) :] = [7, 8]
        assert contents(kept) == [[0, 1], [7, 8]]
