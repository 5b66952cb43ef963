"""Writes through the views that iterators yield: with live storage, sliced and expired."""

from __future__ import annotations

import gc
import operator

import pytest
import velmar
from helpers.arrays import contents, exact, grid
from helpers.cases import each_form, rows
from helpers.failures import DIFFERENT_SHAPE, STORAGE_GONE, TOO_MANY_INDICES, raises
from helpers.hostile_sequences import Scripted, then
from helpers.memory_blocks import blocks_per_call, counts_blocks
from helpers.scalar_values import CalledIndex
from helpers.view_states import expired_plane, expired_row


class TestYieldedRows:
    """They do not own the storage, and write to that of the array."""

    def test_numbers(self):
        array = velmar.double(grid(3, 4))
        for i, row in enumerate(array):
            for j in range(4):
                row[j] = 10 * i + j
            row[-1] += 0.5
        assert contents(array) == [[10 * i, 10 * i + 1, 10 * i + 2, 10 * i + 3.5] for i in range(3)]

    def test_slices_of_numbers(self):
        array = velmar.double(grid(3, 4))
        for row in array:
            row[::-1] = row
            row[1:3] = [8, 9]
        assert contents(array) == [[3, 8, 9, 0], [7, 8, 9, 4], [11, 8, 9, 8]]

    def test_rows_of_planes(self):
        array = velmar.double(grid(2, 2, 3))
        for plane in array:
            plane[0] = plane[1]
            plane[1][0] = -1
            for row in plane:
                row[2] = -2
        assert contents(array) == [[[3, 4, -2], [-1, 4, -2]], [[9, 10, -2], [-1, 10, -2]]]

    @each_form
    def test_every_class(self, row, is_complex):
        array = row.cls([[[1, 0], [0, 0]], [[1, 1], [1, 1]]], is_complex=is_complex)
        plane = list(array)[1]
        plane[0] = [0, 1]
        plane[1][1] = 0
        list(plane)[1][:1] = [0]
        want = row.cls([[[1, 0], [0, 0]], [[0, 1], [0, 0]]], is_complex=is_complex)
        assert exact(contents(array)) == exact(contents(want))

    def test_rows_of_a_slice(self):
        array = velmar.double(grid(4, 2))
        for row in array[::-2]:
            row[0] = 9
        for number, row in enumerate(array[1:3]):
            row[:] = [number, number]
        assert contents(array) == [[0, 1], [0, 0], [1, 1], [9, 7]]

    def test_integers_count_by_the_storage_as_everywhere(self):
        row = list(KEPT)[0][0]
        with raises(IndexError, "index has an invalid value: 3"):
            row[3] = 1
        with raises(IndexError, "index has an invalid value: -4"):
            row[-4] = 1
        with raises(*DIFFERENT_SHAPE):
            row[:] = [1]
        with raises(*DIFFERENT_SHAPE):
            list(KEPT)[0][0] = 1
        with raises(RuntimeError, "index is not an integer or slice."):
            row[None] = 1
        with raises(ValueError, "slice step cannot be zero."):
            row[::0] = 1
        with raises(RuntimeError, "null data pointer."):
            del row[0]
        assert contents(KEPT) == grid(2, 2, 3)

    def test_any_strong_view_keeps_them_usable(self):
        array = velmar.double(grid(3, 2))
        row, other = list(array)[1], array[2]
        del array
        gc.collect()
        row[0] = 9
        assert contents(row) == [9, 3]
        assert contents(other) == [4, 5]
        del other
        with raises(*TOO_MANY_INDICES):
            row[0] = 9


KEPT = velmar.double(grid(2, 2, 3))


class TestSliceOfRowsOfAYieldedPlane:
    """The write uses a temporary view without storage, which fails after the values are read."""

    ROWS = [
        ("rows", slice(0, 2), [1, 2, 3, 4, 5, 6], STORAGE_GONE),
        ("row", slice(1, 2), [1, 2, 3], STORAGE_GONE),
        ("backwards", slice(None, None, -1), [1, 2, 3, 4, 5, 6], STORAGE_GONE),
        ("wrong_count", slice(0, 2), [1], STORAGE_GONE),
        ("scalar", slice(0, 2), 1, STORAGE_GONE),
        ("nothing", slice(0, 2), [], (ValueError, "slice is nonempty but values are empty.")),
        (
            "no_rows",
            slice(1, 1),
            [1],
            (ValueError, "slice is empty, but number of elements assigned is greater than zero."),
        ),
        ("none", slice(0, 2), [None], (TypeError, "value must not be 'None'.")),
        ("text", slice(0, 2), "1", (ValueError, "value passed to initializer must be numeric.")),
        ("step", slice(0, 2, 0), [1], (ValueError, "slice step cannot be zero.")),
    ]

    @rows("subscript, value, error", ROWS)
    def test_rows(self, subscript, value, error):
        with raises(*error):
            list(KEPT)[0][subscript] = value
        assert contents(KEPT) == grid(2, 2, 3)

    def test_nothing_for_no_rows(self):
        list(KEPT)[0][1:1] = []
        assert contents(KEPT) == grid(2, 2, 3)

    @each_form
    def test_every_class(self, row, is_complex):
        array = row.cls([[[1, 0], [0, 0]], [[1, 1], [1, 1]]], is_complex=is_complex)
        for plane in array:
            with raises(*STORAGE_GONE):
                plane[:] = [0, 1, 0, 1]
        assert contents(array) == [[[1, 0], [0, 0]], [[1, 1], [1, 1]]]


SLICES_OF_YIELDED = [
    ("row", lambda: list(KEPT[0])[0][::-1]),
    ("rows", lambda: list(KEPT)[0][:1]),
    ("empty_row", lambda: list(KEPT[0])[0][3:]),
    ("slice_of_slice", lambda: list(KEPT)[0][:][1:]),
]

SUBSCRIPTS = [0, -1, 100, slice(None), slice(1, 1), None, slice(None, None, 0)]


class TestSlicesOfYieldedViews:
    """They have no storage at all, although the array still exists."""

    @rows("make", SLICES_OF_YIELDED)
    @pytest.mark.parametrize("value", [1, [1], [], None, "1"], ids=repr)
    def test_assignment(self, make, value):
        for subscript in SUBSCRIPTS:
            with raises(*STORAGE_GONE):
                make()[subscript] = value
        assert contents(KEPT) == grid(2, 2, 3)

    @rows("make", SLICES_OF_YIELDED)
    def test_deletion(self, make):
        for subscript in SUBSCRIPTS:
            with raises(*STORAGE_GONE):
                del make()[subscript]

    def test_after_reading_the_length(self):
        part = list(KEPT[0])[0][1:]
        assert len(part) == 2
        with raises(*STORAGE_GONE):
            part[0] = 1


class TestExpired:
    """The storage is gone before the assignment."""

    @rows("make", [("row", expired_row), ("plane", expired_plane)])
    @pytest.mark.parametrize("value", [1, [1], [], None, "1"], ids=repr)
    def test_assignment(self, make, value):
        view = make()
        for subscript in SUBSCRIPTS:
            with raises(*TOO_MANY_INDICES):
                view[subscript] = value
            with raises(*TOO_MANY_INDICES):
                del view[subscript]

    @each_form
    def test_every_class(self, row, is_complex):
        view = expired_row(row.cls, is_complex=is_complex)
        for subscript, value in ((0, 1), (slice(None), [1, 0, 1]), (slice(0, 0), [])):
            with raises(*TOO_MANY_INDICES):
                view[subscript] = value

    def test_loop_over_a_temporary(self):
        rows_of_it = [row for row in velmar.double(grid(2, 2))]
        for row in rows_of_it:
            with raises(*TOO_MANY_INDICES):
                row[0] = 1

    def test_as_a_right_side(self):
        array = velmar.double(grid(2, 3))
        with raises(*STORAGE_GONE):
            array[0] = expired_row()
        with raises(*STORAGE_GONE):
            array[:] = [expired_row(), [1, 2, 3]]
        with raises(TypeError, "sequence passed when scalar was expected."):
            array[0][0] = expired_row()
        assert contents(array) == grid(2, 3)


class TestExpiresDuringTheCall:
    """Reading the right side drops the last owner of the storage."""

    TARGETS = [
        ("row", lambda array: list(array)[0], 1, 3),
        ("rows", lambda array: list(array)[0], slice(0, 1), 3),
        ("numbers", lambda array: list(list(array)[0])[0], slice(0, 3), 3),
        ("number_from_the_end", lambda array: list(array)[1][0], slice(None, None, -1), 3),
    ]

    @rows("view_of, subscript, count", TARGETS)
    def test_reading_an_item(self, view_of, subscript, count):
        holder = [velmar.double(grid(2, 2, 3))]
        view = view_of(holder[0])
        items = [1] * (count - 1)
        with raises(*STORAGE_GONE):
            view[subscript] = Scripted([then(holder.clear, 1), *items])
        assert holder == []
        with raises(*TOO_MANY_INDICES):
            view[subscript] = 1

    @rows("subscript", [("row", slice(1, 1)), ("end", slice(3, None)), ("back", slice(0, 2, -1))])
    def test_nothing_for_an_empty_run(self, subscript):
        holder = [velmar.double(grid(2, 2, 3))]
        row = list(list(holder[0])[0])[0]
        row[subscript] = Scripted([], lengths=[then(holder.clear, 0)])
        assert holder == []
        with raises(*TOO_MANY_INDICES):
            row[subscript] = []

    @rows("view_of, subscript, count", TARGETS)
    def test_an_item_refused_after_the_storage_is_gone(self, view_of, subscript, count):
        holder = [velmar.double(grid(2, 2, 3))]
        with raises(TypeError, "value must not be 'None'."):
            view_of(holder[0])[subscript] = Scripted([then(holder.clear, None)])
        assert count == 3

    def test_bound_of_a_slice(self):
        for view_of in (lambda array: list(array)[0], lambda array: list(list(array)[0])[0]):
            holder = [velmar.double(grid(2, 2, 3))]
            view = view_of(holder[0])
            with raises(*STORAGE_GONE):
                view[: CalledIndex(then(holder.clear, 1))] = [1]

    def test_row_on_the_right(self):
        array, holder = velmar.double(grid(2, 3)), [velmar.double(grid(2, 3))]
        row = list(holder[0])[0]
        with raises(*STORAGE_GONE):
            array[:] = [Scripted([then(holder.clear, 1), 2, 3]), row]
        assert contents(array) == grid(2, 3)


@counts_blocks
class TestReferences:
    @rows(
        "action",
        [
            ("number", lambda: operator.setitem(list(KEPT[0])[0], 0, 0.0)),
            ("numbers", lambda: operator.setitem(list(KEPT[0])[0], slice(0, 2), [0.0, 1.0])),
            ("row", lambda: operator.setitem(list(KEPT)[0], 0, [0.0, 1.0, 2.0])),
            ("rows", lambda: refused(STORAGE_GONE, list(KEPT)[0], slice(1), [0, 1, 2])),
            ("slice", lambda: refused(STORAGE_GONE, list(KEPT)[0][1:], 0, [0, 1, 2])),
            ("expired", lambda: refused(TOO_MANY_INDICES, expired_row(), 0, 1)),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        assert blocks_per_call(action) < 0.05
        assert contents(KEPT) == grid(2, 2, 3)

    def test_storage_goes_with_the_last_strong_owner(self):
        def action():
            array = velmar.double(size=(2, 3))
            array[0] = list(array)[1]

        assert blocks_per_call(action) < 0.05


def refused(error, view, subscript, value):
    with raises(*error):
        view[subscript] = value
