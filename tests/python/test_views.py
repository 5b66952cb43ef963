"""Views: chains of subscripts, and that views share the storage and keep it alive."""

import gc
import operator
import sys

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, every, exact, grid, line, subscripted
from helpers.cases import each, each_form, rows
from helpers.failures import must_fail, raises
from helpers.memory_blocks import blocks_per_call, references_per_call

CUBE = grid(4, 5, 6)


LINE_CHAINS = [  # on 0 ... 9 in one dimension
    ("odd_then_part", [every(1, 10, 2), every(1, 4)], [3, 5, 7]),
    ("reversed_then_part", [every(step=-1), every(1, 3)], [8, 7]),
    ("odd_then_reversed", [every(1, 10, 2), every(step=-1)], [9, 7, 5, 3, 1]),
    ("reversed_odd_then_reversed", [every(step=-2), every(step=-1)], [1, 3, 5, 7, 9]),
    ("child_past_the_end", [every(2, 4), every(5, 7)], []),
    ("child_reaches_past_the_end", [every(2, 5), every(1, 100)], [3, 4]),
    ("part_of_stepped", [every(0, 4, 2), every(1, 2)], [2]),
    ("reversed_twice", [every(step=-1), every(step=-1)], list(range(10))),
    ("reversed_three_times", [every(step=-1)] * 3, list(range(9, -1, -1))),
    ("steps_multiply", [every(step=2), every(step=2)], [0, 4, 8]),
    ("three_steps_multiply", [every(step=2)] * 3, [0, 8]),
    ("negative_steps_multiply", [every(step=-3), every(step=-2)], [0, 6]),
    ("down_to_zero", [every(8, None, -2), every(step=2)], [8, 4, 0]),
    ("down_to_zero_reversed", [every(8, None, -4), every(step=-1)], [0, 4, 8]),
    ("below_zero_stop_then_part", [every(step=-2), every(3, None), every(1, None)], [1]),
    ("empty_of_full", [every(), every(4, 4)], []),
    ("empty_of_stepped", [every(3, None, 3), every(2, 2)], []),
    ("full_of_empty", [every(4, 4), every()], []),
    ("reversed_of_empty", [every(4, 4), every(step=-1)], []),
    ("stepped_of_empty_of_stepped", [every(3, None, 3), every(2, 2), every(step=-2)], []),
    ("single", [every(7, 8), every(step=-5)], [7]),
    ("last_of_slice", [every(2, 5), -1], 4),
    ("first_of_reversed", [every(step=-1), 0], 9),
    ("last_of_reversed", [every(step=-1), -1], 0),
    ("number_of_stepped", [every(1, 10, 2), 3], 7),
    ("number_of_composed", [every(1, 10, 2), every(step=-1), 1], 7),
    ("number_of_single", [every(0, 1), 0], 0),
]

CUBE_CHAINS = [  # on 4 by 5 by 6; expected is the same chain on nested lists
    ("plane", [2], CUBE[2]),
    ("row", [2, 3], CUBE[2][3]),
    ("number", [2, 3, 4], CUBE[2][3][4]),
    ("planes", [every(1, 3)], CUBE[1:3]),
    ("rows_of_plane", [2, every(1, 3)], CUBE[2][1:3]),
    ("plane_of_planes", [every(1, 3), 1], CUBE[2]),
    ("planes_of_planes", [every(0, 4, 2), every(1, 2)], [CUBE[2]]),
    ("row_of_plane_of_planes", [every(step=-1), 0, 1], CUBE[3][1]),
    (
        "slices_in_each_dimension",
        [every(1, 3), 1, every(step=-2), 1, every(2, 5), -1],
        CUBE[2][2][4],
    ),
    ("numbers_of_row", [1, 2, every(step=-1)], CUBE[1][2][::-1]),
    ("numbers_of_row_of_rows", [1, every(3, 0, -1), 0, every(4, None)], CUBE[1][3][4:]),
    ("reversed_planes", [every(step=-1)], CUBE[::-1]),
    ("no_planes", [every(2, 2)], []),
    ("no_rows", [-1, every(9, None)], []),
    ("negative_numbers", [-1, -2, -3], CUBE[3][3][3]),
]


class TestComposition:
    @rows("chain, expected", LINE_CHAINS)
    def test_line_rows(self, chain, expected):
        view = subscripted(line(10, velmar.int8), chain)
        assert contents(view) == expected
        assert str(view) == str(expected).replace(" ", "")

    @rows("chain, expected", LINE_CHAINS)
    def test_line_rows_on_the_first_of_two_dimensions(self, chain, expected):
        view = subscripted(velmar.int8([[i] for i in range(10)]), chain)
        want = [[i] for i in expected] if isinstance(expected, list) else [expected]
        assert contents(view) == want
        assert str(view) == str(want).replace(" ", "")

    @rows("chain, expected", CUBE_CHAINS)
    def test_cube_rows(self, chain, expected):
        view = subscripted(velmar.double(CUBE), chain)
        assert contents(view) == expected
        assert str(view) == str(expected).replace(" ", "")

    def test_steps_of_sixteen(self):
        assert contents(line(16)[::2][::2][::2]) == [0.0, 8.0]

    def test_chain_in_one_expression(self):
        array = velmar.int16([[1, 2, 3, 4], [5, 6, 7, 8]])
        assert array[0][1:3][::-1][0] == 3
        assert array[::-1][0][::-1][1:][::2][-1] == 5

    @rows("index", [("length", 3), ("below", -4)])
    def test_index_is_against_the_view_and_not_the_storage(self, index):
        view = line(10)[2:5]
        assert [view[0], view[2], view[-1], view[-3]] == [2.0, 4.0, 4.0, 2.0]
        with raises(IndexError, f"index has an invalid value: {index}"):
            view[index]

    def test_number_of_an_empty_child(self):
        for view in (line(10)[1::2][2:2], line(10)[4:4][::-1], line(10)[2:4][5:7]):
            for index in (0, -1):
                with raises(IndexError, f"index has an invalid value: {index}"):
                    view[index]

    def test_very_long_chains(self):
        view = line(10)
        for _ in range(5000):
            view = view[::-1]
        assert contents(view) == [float(i) for i in range(10)]
        for _ in range(5000):
            view = view[:]
        assert str(view[3:]) == "[3.0,4.0,5.0,6.0,7.0,8.0,9.0]"

    def test_view_of_flat_data_in_storage_order(self):
        array = velmar.int8([1, 2, 3, 4, 5, 6], size=(2, 3))
        assert contents(array[0]) == [1, 3, 5]
        assert contents(array[1][::-1]) == [6, 4, 2]
        assert contents(array[::-1]) == [[2, 4, 6], [1, 3, 5]]


HUGE = 2**62


class TestHugeDimensions:
    """Dimensions without elements may have any length; their positions are never listed."""

    def test_slices_of_slices(self):
        array = velmar.double(size=(HUGE, 0))
        assert len(array) == HUGE
        assert len(array[::-1]) == HUGE
        assert len(array[::2][::2]) == HUGE // 4
        assert len(array[::-1][5:]) == HUGE - 5
        assert len(array[::-1][::3][HUGE // 3 - 2 :]) == 3
        assert str(array[::-1][::3][HUGE // 3 - 2 :]) == "[[],[],[]]"
        assert len(array[::2][HUGE // 2 - 1]) == 0

    def test_stop_beyond_64_bits(self):
        array = velmar.double(size=(2**63 - 1, 0))
        view = array[:: 2**31][:: 2**31]
        assert len(view) == 2
        assert str(view) == "[[],[]]"
        assert str(view[::-1]) == "[[],[]]"
        assert str(array[:: 2**62]) == "[[],[]]"
        assert str(array[:: -(2**62)]) == "[[],[]]"
        assert str(view[1]) == "[]"

    @pytest.mark.parametrize("text", [str, repr])
    def test_text_that_no_memory_can_hold(self, text):
        array = velmar.double(size=(HUGE, 0))
        for view in (array, array[1:], array[::-2]):
            with pytest.raises(MemoryError):
                text(view)
        assert text(array[:1]) in ("[[]]", "velmar.double([[]])")

    def test_index_beyond_the_length(self):
        array = velmar.double(size=(HUGE, 0))
        with raises(IndexError, f"index has an invalid value: {HUGE}"):
            array[HUGE]
        assert str(array[HUGE - 1]) == "[]"


class TestClassOfAView:
    @each_form
    def test_is_the_class_of_the_array(self, row, is_complex):
        array = row.cls([[[1, 0], [0, 1]], [[1, 1], [0, 0]]], is_complex=is_complex)
        for view in (array[0], array[0][1], array[0:0], array[::-1], array[1][::2][1:]):
            assert type(view) is row.cls

    @each_form
    def test_is_complex_as_the_array(self, row, is_complex):
        array = row.cls([[[1, 0], [0, 1]], [[1, 1], [0, 0]]], is_complex=is_complex)
        for view in (array[0], array[0][1], array[0:0], array[::-1], array[1][::2][1:]):
            assert repr(view).endswith("], is_complex=True)" if is_complex else "])")

    def test_views_are_new_objects(self):
        array = velmar.double([[1, 2], [3, 4]])
        assert array[0] is not array[0]
        assert array[:] is not array


class TestParent:
    """A subscript does not change the view that it is taken of."""

    @rows(
        "make",
        [
            ("array", lambda: velmar.double(CUBE)),
            ("integer", lambda: velmar.double(CUBE)[1]),
            ("slice", lambda: velmar.double(CUBE)[::-2]),
            ("empty", lambda: velmar.double(CUBE)[2:2]),
            ("integer_and_slice", lambda: velmar.double(CUBE)[1][3:0:-1]),
        ],
    )
    def test_is_unchanged(self, make):
        parent = make()
        before = repr(parent), len(parent)
        for subscript in (0, -1, 100, every(), every(step=-1), every(1, 1), every(step=0), None):
            try:
                parent[subscript]
            except (IndexError, ValueError, RuntimeError):
                continue
        assert (repr(parent), len(parent)) == before


class TestLifetime:
    @each_form
    def test_storage_lives_as_long_as_a_view(self, row, is_complex):
        values = [[i % 2 for i in range(100)], [1] * 100]
        array = row.cls(values, is_complex=is_complex)
        want = [exact(contents(array[0])), exact(contents(array[::-1]))]
        integer, reverse = array[0], array[::-1]
        del array
        gc.collect()
        others = [row.cls([[0] * 100, [0] * 100], is_complex=is_complex) for _ in range(20)]
        assert [exact(contents(integer)), exact(contents(reverse))] == want
        assert len(others) == 20

    def test_view_of_a_view_needs_neither_parent(self):
        array = velmar.double(grid(3, 1000))
        outer = array[1]
        inner = outer[10:500:7]
        innermost = inner[::-1]
        del array
        del outer
        del inner
        gc.collect()
        others = [velmar.double(size=(3, 1000)) for _ in range(10)]
        assert contents(innermost) == grid(3, 1000)[1][10:500:7][::-1]
        assert len(others) == 10

    def test_view_of_a_temporary(self):
        assert contents(velmar.double(grid(2, 500))[1][::250]) == [500.0, 750.0]

    def test_views_in_any_order_of_destruction(self):
        for order in ([0, 1, 2, 3], [3, 2, 1, 0], [1, 3, 0, 2]):
            array = velmar.int32([[1, 2, 3], [4, 5, 6]])
            views = {0: array, 1: array[1], 2: array[1][::-1], 3: array[::-1]}
            del array
            texts = {key: str(view) for key, view in views.items()}
            for key in order:
                assert {left: str(view) for left, view in views.items()} == texts
                del views[key], texts[key]

    def test_array_from_a_view_stands_alone(self):
        array = velmar.int32([[1, 2, 3], [4, 5, 6]])
        copy = velmar.double(array[::-1])
        del array
        assert contents(copy) == [[4.0, 5.0, 6.0], [1.0, 2.0, 3.0]]
        row = velmar.int8([[1, 2, 3], [4, 5, 6]])[1][::-1]
        assert contents(velmar.int8(row)) == [[6, 5, 4]]


class TestReferences:
    @rows(
        "action",
        [
            ("number", lambda a: a[1][2]),
            ("view", lambda a: a[1]),
            ("slice", lambda a: a[::-1]),
            ("chain", lambda a: a[0:2][1][::2][::-1][0]),
            ("out_of_range", lambda a: must_fail(IndexError, operator.getitem, a, 2)),
            ("refused", lambda a: must_fail(RuntimeError, operator.getitem, a, None)),
            ("zero_step", lambda a: must_fail(ValueError, operator.getitem, a, every(step=0))),
            ("bad_start", lambda a: must_fail(TypeError, operator.getitem, a, every("a"))),
            ("length", len),
            ("text", str),
            ("constructor_form", repr),
            ("text_of_slice", lambda a: str(a[::-1])),
            ("list", list),
            ("complex_number", lambda a: velmar.int8([1j], is_complex=True)[0][0]),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        array = velmar.double([[1000.5, 2000.5, 3000.5], [4000.5, 5000.5, 6000.5]])
        assert blocks_per_call(lambda: action(array)) < 0.05

    @each(CLASS_ROWS)
    @pytest.mark.parametrize("subscript", [0, slice(None, None, -1)], ids=["integer", "slice"])
    def test_views_leave_a_reference_on_their_class(self, row, subscript):
        # Deliberate: a destroyed array does not release its reference to its class.
        array = row.cls([[1, 0], [0, 1]])
        assert references_per_call(row.cls, lambda: array[subscript]) == 1

    @pytest.mark.parametrize("subscript", [0, slice(None)], ids=["integer", "slice"])
    def test_array_itself_gains_no_reference(self, subscript):
        array = velmar.double([[1, 2], [3, 4]])
        before = sys.getrefcount(array)
        views = [array[subscript] for _ in range(10)]
        assert sys.getrefcount(array) == before
        assert len(views) == 10
