"""A reshape changes all views and iterators of the storage, also those that no longer fit."""

from __future__ import annotations

import sys

import pytest
import velmar
from helpers.arrays import contents, every, exact, six, subscripted
from helpers.cases import each_form, rows, some_of
from helpers.failures import (
    NULL_POINTER,
    OUTSIDE_STORAGE,
    PARTIAL_ARRAY,
    TOO_MANY_INDICES,
    UNREADABLE_ITEM,
    different_count,
    raises,
)
from helpers.hostile_sequences import Boom, Scripted
from helpers.memory_blocks import blocks_per_call, counts_blocks
from helpers.program_runs import Run
from helpers.view_states import call_method
from velmarmultidimarrayforpython import ShapeError


class TestSharing:
    def test_all_names_and_views_see_it(self):
        array = six()
        other, view, row = array, array[:], array[1]
        array.reshape(3, 2)
        assert other is array
        assert view.size == (2, 2)  # the slice has two of now three rows
        assert contents(view) == [[1, 4], [2, 5]]
        assert contents(row) == [2, 5]

    def test_through_a_slice(self):
        array = six()
        view = array[1:]
        assert view.reshape(3, 2) is view
        assert contents(array) == [[1, 4], [2, 5], [3, 6]]
        assert contents(view) == [[2, 5]]  # the view keeps its slice
        with raises(*different_count(2, 6)):
            view.reshape(1, 2)
        backwards = array[::-1]
        assert backwards.reshape(1, 6).size == (3, 6)
        assert contents(array) == [[1, 2, 3, 4, 5, 6]]

    def test_not_through_integers(self):
        array = velmar.double(size=(2, 3, 4))
        for part in (array[0], array[0][1], array[0][1:], array[1:][0], list(array)[0]):
            with raises(*PARTIAL_ARRAY):
                part.reshape(24, 1)
        with raises(*PARTIAL_ARRAY):
            array.noncomplex().reshape(24, 1)
        assert array.size == (2, 3, 4)

    def test_writes_go_on_to_reach_all(self):
        array = six()
        view = array[:]
        array.reshape(3, 2)
        array[1] = [8, 9]
        view[0] = [6, 7]
        assert contents(array) == [[6, 7], [8, 9], [3, 6]]
        assert list(array.noncomplex()) == [6, 8, 3, 7, 9, 6]


class TestWhatIsKept:
    def test_the_clone_of_a_clone_made_before(self):
        array = six()
        array.clone()
        array.reshape(3, 2)
        assert contents(array.clone()) == [[1, 3, 5], [2, 4, 6]]
        assert array[:].clone().size == (3, 2)

    def test_a_clone_made_before_is_its_own(self):
        array = six()
        clone = array.clone()
        array.reshape(3, 2)
        clone.reshape(6, 1)
        assert (array.size, clone.size) == ((3, 2), (6, 1))
        assert contents(clone.reshape(2, 3)) == [[1, 3, 5], [2, 4, 6]]

    def test_exported_memory_of_a_view(self):
        array = six()
        view = array[:]
        memory = memoryview(view)
        array.reshape(3, 2)
        assert memory.tolist() == memoryview(view).tolist() == [[1, 3, 5], [2, 4, 6]]
        assert contents(view) == [[1, 4], [2, 5]]

    def test_memory_that_is_out(self):
        array = six()
        before = memoryview(array)
        address = array.buffer_info()
        array.reshape(1, 2, 3)
        after = memoryview(array)
        array[0][0][0] = 9
        assert array.buffer_info() == address
        assert (before.shape, before.strides) == ((2, 3), (8, 16))
        assert (after.shape, after.strides) == ((1, 2, 3), (8, 8, 16))
        assert before.tolist() == [[9, 3, 5], [2, 4, 6]]
        assert after.tolist() == [before.tolist()]
        del array
        assert before.tolist() == [[9, 3, 5], [2, 4, 6]]

    @counts_blocks
    @rows(
        "action",
        [
            ("success", lambda array: array.reshape(6, 1).reshape((2, 3))),
            ("exported", lambda array: memoryview(array.reshape(6, 1).reshape(2, 3)).release()),
            ("count", lambda array: pytest.raises(ShapeError, array.reshape, 2, 2)),
            ("arguments", lambda array: pytest.raises(ValueError, array.reshape, 2, "x")),
            ("keyword", lambda array: pytest.raises(ValueError, array.reshape, 2, 3, a=1)),
            ("item", lambda array: pytest.raises(RuntimeError, array.reshape, Scripted([Boom()]))),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        array = six()
        references = sys.getrefcount(array)
        assert abs(blocks_per_call(lambda: action(array))) < 0.5
        assert sys.getrefcount(array) == references


def stale(chain, shape):
    """A view made of six(), which then gets another shape."""
    array = six()
    view = subscripted(array, chain)
    array.reshape(shape)
    return array, view


class TestInside:
    """A view reads the elements at its positions in the new shape."""

    @rows(
        "chain, shape, found",
        [
            ("row", [1], (3, 2), [2.0, 5.0]),
            ("row_of_three_dimensions", [1], (2, 1, 3), [[2.0, 4.0, 6.0]]),
            ("row_of_one_element", [1], (6, 1), [2.0]),
            ("rows", [every(1)], (3, 2), [[2.0, 5.0]]),
            ("backwards", [every(step=-1)], (3, 2), [[2.0, 5.0], [1.0, 4.0]]),
            ("no_rows", [every(2)], (3, 2), []),
            ("part_of_row", [0, every(0, 2)], (3, 2), [1.0, 4.0]),
            ("part_of_row_of_three_dimensions", [0, every(1, 2)], (1, 2, 3), [[2.0, 4.0, 6.0]]),
            ("rows_of_one_dimension", [every(1)], [6], [2.0]),
        ],
    )
    def test_reads(self, chain, shape, found):
        _, view = stale(chain, shape)
        assert exact(contents(view)) == exact(found)
        assert str(view) == str(found).replace(" ", "")
        assert [contents(part) for part in view] == found
        assert view == view
        assert contents(view.clone()) in (found, [found])

    def test_positions_outside_their_dimension_but_inside_the_storage(self):
        """Only the place in the storage is checked, not each subscript."""
        array, view = stale([1], (1, 6))
        assert view.size == (6,)
        assert [view[i] for i in range(5)] == [2, 3, 4, 5, 6]
        view[4] = 9
        assert contents(array) == [[1, 2, 3, 4, 5, 9]]
        with raises(*NULL_POINTER):
            view[5]
        with raises(*OUTSIDE_STORAGE):
            view[5] = 9

    def test_writes(self):
        array, view = stale([1], (3, 2))
        view[1] = 8
        view[:] = [7, 9]
        assert contents(array) == [[1, 4], [7, 9], [3, 6]]
        array, view = stale([every(1)], (3, 2))
        view[0] = [7, 8]
        assert contents(array) == [[1, 4], [7, 8], [3, 6]]


OUTSIDE = [  # the view lies behind the last element, wholly or in part
    ("last_row", [1, every(2)], (6, 1)),
    ("rows", [every(1)], (1, 2, 3)),
    ("rows_in_one_row", [every(1)], (1, 6)),
    ("row_in_one_row", [1], (1, 6)),
    ("row_in_one_plane", [1], (1, 1, 6)),
]


class TestOutside:
    """Nothing outside the storage is read or written."""

    @rows("chain, shape", OUTSIDE)
    def test_reads(self, chain, shape):
        _, view = stale(chain, shape)
        for read in (str, repr, lambda v: contents(v), memoryview, lambda v: v[-1][-1][-1]):
            with pytest.raises((RuntimeError, TypeError)) as caught:
                read(view)
            if caught.type is TypeError:  # an earlier subscript gave a number
                continue
            assert str(caught.value) in (NULL_POINTER.message, UNREADABLE_ITEM.message)
        with raises(*NULL_POINTER):
            memoryview(view)
        with raises(*NULL_POINTER):
            view.tomemoryview()

    @rows("chain, shape", OUTSIDE)
    def test_clones(self, chain, shape):
        _, view = stale(chain, shape)
        with pytest.raises(SystemError) as caught:
            call_method(view, "clone")
        assert type(caught.value.__cause__) is RuntimeError
        assert str(caught.value.__cause__) in (NULL_POINTER.message, UNREADABLE_ITEM.message)

    @rows("chain, shape", OUTSIDE)
    def test_comes_back_with_the_shape(self, chain, shape):
        array, view = stale(chain, shape)
        with pytest.raises(RuntimeError):
            memoryview(view)
        array.reshape(2, 3)
        assert contents(view) == contents(subscripted(six(), chain))
        assert contents(view.clone()[0]) == contents(subscripted(six().clone(), chain).clone()[0])

    def test_text(self):
        for chain, shape, message in (
            ([1], (1, 6), NULL_POINTER.message),
            ([every(1)], (1, 6), NULL_POINTER.message),
            ([1, every(1)], (6, 1), UNREADABLE_ITEM.message),
        ):
            _, view = stale(chain, shape)
            with raises(RuntimeError, message):
                str(view)
            with raises(RuntimeError, message):
                repr(view)

    def test_walks(self):
        _, view = stale([1], (1, 6))
        walk = iter(view)
        assert [next(walk) for _ in range(5)] == [2, 3, 4, 5, 6]
        with raises(*NULL_POINTER):
            next(walk)
        with pytest.raises(StopIteration):
            next(walk)
        with raises(*NULL_POINTER):
            list(view)
        with raises(*NULL_POINTER):
            7 in view  # noqa: B015

    def test_comparison_takes_an_error_for_the_end(self):
        _, view = stale([1], (1, 6))
        assert view == view
        assert view == velmar.double([2, 3, 4, 5, 6])[0]
        assert view != velmar.double([2, 3, 4, 5, 6, 7])[0]

    def test_toarray(self, capfd):
        _, view = stale([1], (1, 6))
        with raises(RuntimeError, "toarray() failed."):
            view.toarray()
        assert capfd.readouterr().err.endswith(f"RuntimeError: {NULL_POINTER.message}\n")

    def test_pickling(self):
        _, view = stale([1], (1, 6))
        with raises(*NULL_POINTER):
            view.__reduce__()

    def test_writes_of_one(self):
        array, view = stale([1, every(2)], (6, 1))
        with raises(*OUTSIDE_STORAGE):
            view[0] = 9
        assert list(array._data) == [1, 2, 3, 4, 5, 6]

    def test_writes_of_many_stop_at_the_end(self):
        array, view = stale([1], (1, 6))
        with raises(*OUTSIDE_STORAGE):
            view[:] = [12, 13, 14, 15, 16, 17]
        assert list(array._data) == [1, 12, 13, 14, 15, 16]
        array, view = stale([every(1)], (1, 2, 3))
        with raises(*OUTSIDE_STORAGE):
            view[0] = [[7, 8, 9], [7, 8, 9]]
        assert list(array._data) == [1, 7, 7, 8, 8, 9]  # the last one lies outside

    def test_as_data(self):
        array, view = stale([1], (1, 6))
        with raises(*NULL_POINTER):
            velmar.double(view)
        with raises(RuntimeError, "item 5 could not be retrieved."):
            velmar.double(vector=view)
        with raises(*NULL_POINTER):
            array[0] = view

    @each_form
    def test_all_classes(self, row, is_complex):
        array = row.cls([[1, 0, 1], [0, 1, 0]], is_complex=is_complex)
        view = array[1]
        array.reshape(1, 6)
        with raises(*NULL_POINTER):
            str(view)
        with raises(*NULL_POINTER):
            view[5]
        with raises(*OUTSIDE_STORAGE):
            view[5] = 1
        with raises(*NULL_POINTER):
            memoryview(view)
        assert array.size == (1, 6)


class TestNoDimensionLeft:
    @rows("chain", [("row", [1]), ("row_of_plane", [1, 0]), ("plane", [-1])])
    def test_a_view_of_integers(self, chain):
        array = velmar.double(size=(2, 3, 4)) if len(chain) > 1 else six()
        view = subscripted(array, chain)
        array.reshape([len(array._data)])
        for use in (len, lambda v: v[0], lambda v: v[:], lambda v: v.__setitem__(0, 1)):
            with raises(*TOO_MANY_INDICES):
                use(view)
        with raises(*TOO_MANY_INDICES):
            view[:] = [1]
        with raises(*TOO_MANY_INDICES):
            del view[0]
        assert (str(view), repr(view), list(iter(view))) == ("[]", "velmar.double([])", [])
        assert view == view
        assert memoryview(view).tolist() == []
        assert view.toarray().tolist() == []
        assert view.__reduce__() == (velmar.double, ({}, []))
        assert view.itemsize == 8
        assert list(view.noncomplex()) == list(array)

    def test_size(self):
        array = velmar.double(size=(2, 3, 4))
        views = array[0], array[0][0], array[0][:2], array[0][0][1:]
        array.reshape([24])
        assert views[0].size == ()
        for view in views[1:]:
            for name in ("size", "_size"):
                with raises(*TOO_MANY_INDICES):
                    getattr(view, name)

    def test_a_slice_keeps_its_length(self):
        array, view = stale([1, every(1)], [6])
        assert len(view) == 2
        assert str(view) == "[[],[]]"
        with raises(*TOO_MANY_INDICES):
            view[0]
        with raises(*TOO_MANY_INDICES):
            view[0] = 1
        with raises(*TOO_MANY_INDICES):
            view[:] = [1, 2]
        assert list(view[::-1]) == list(view) == []
        assert list(array) == [1, 2, 3, 4, 5, 6]


class TestWalks:
    """An iterator keeps its bounds and reads in the new shape."""

    def test_rows(self):
        array = six()
        walk = iter(array)
        array.reshape(3, 2)
        assert [contents(row) for row in walk] == [[1, 4], [2, 5]]

    def test_rows_that_are_numbers_now(self):
        array = six()
        walk = iter(array)
        array.reshape([6])
        first = next(walk)
        with raises(*TOO_MANY_INDICES):
            len(first)
        assert str(first) == "[]"
        assert len(list(walk)) == 1

    def test_numbers_that_are_rows_now(self):
        array = six().reshape([6])
        walk = iter(array)
        array.reshape(2, 3)
        assert [next(walk) for _ in range(6)] == [1, 2, 3, 4, 5, 6]

    def test_numbers_of_a_row(self):
        array = six()
        walk = iter(array[1])
        assert next(walk) == 2
        array.reshape(6, 1)
        with raises(*NULL_POINTER):
            next(walk)
        with raises(*NULL_POINTER):
            next(walk)
        with pytest.raises(StopIteration):
            next(walk)

    def test_numbers_of_too_many_dimensions(self):
        array = six()
        walk = iter(array[1])
        array.reshape([6])
        for _ in range(3):
            with raises(*NULL_POINTER):
                next(walk)
        assert next(walk, None) is None

    def test_a_loop_that_reshapes(self):
        array = six()
        found = []
        for row in array:
            array.reshape(3, 2)
            found.append(contents(row))
        assert found == [[1, 4], [2, 5]]

    def test_rows_that_were_yielded(self):
        array = six()
        row = list(array)[1]
        array.reshape(3, 2)
        assert contents(row) == [2, 5]
        array.reshape(1, 6)
        with raises(*NULL_POINTER):
            str(row)


SHAPES = ["(2, 3)", "(3, 2)", "(1, 6)", "(6, 1)", "[6]", "(1, 2, 3)", "(3, 1, 2)"]
VIEWS = ["[:]", "[0]", "[-1]", "[1:]", "[::-1]", "[1:1]", "[0][1:]", "[-1][::-1]", "[0][0]"]
USES = [
    "f.size",
    "len(f)",
    "next(g, None)",
    "h = f[-1]",
    "h = f[::2]",
    "list(f)",
    "list(g)",
    "f[0] = 7",
    "f[-1:] = [8]",
    "f[:] = [1, 2, 3, 4, 5, 6]",
    "h = f.clone()",
    "memoryview(f).tolist()",
    "f.toarray()",
    "velmar.double(f)",
    "a[-1] = f",
    "a.reshape((2, 3))",
]


class TestEveryPair:
    """Each view of each shape, used after a reshape to each other shape, against the model."""

    @pytest.mark.parametrize("after", SHAPES)
    @pytest.mark.parametrize("before", SHAPES)
    def test_as_the_model(self, before, after):
        for view in some_of(VIEWS, 2):
            run = Run()
            lines = [
                "a = velmar.double(vector=[1, 2, 3, 4, 5, 6])",
                f"a.reshape({before})",
                f"f = a{view}",
                "g = iter(f)",
                f"a.reshape({after})",
            ]
            for line in lines + USES:
                assert run.step(line) is None
                assert run.look() is None
