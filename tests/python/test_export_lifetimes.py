"""Exported memory stays valid after its array is gone and after a reshape."""

from __future__ import annotations

import contextlib
import ctypes
import gc
import itertools
import math
import os
import sys

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, grid
from helpers.buffer_requests import (
    FORMAT,
    INDIRECT,
    ask,
    column_major,
    column_major_strides,
    exported,
    give_back,
    memory_of,
    numbers,
    packed,
)
from helpers.cases import each_form, rows

CUBE = grid(4, 6, 5)
SHAPES = [  # of 120 elements, all different
    shape
    for count in (1, 2, 3, 4)
    for shape in itertools.product((1, 2, 3, 4, 5, 6, 8, 10, 12, 20, 24, 60, 120), repeat=count)
    if math.prod(shape) == 120 and (len(shape) < 3 or shape[-1] != 1)
]


def churn():
    """Allocate and free memory of these sizes, so that freed memory is overwritten."""
    others = [velmar.double(size=(7, 11, 13)[: 1 + i % 3]) for i in range(30)]
    others += [velmar.double(vector=[-1.0] * 120) for _ in range(10)]
    for other in others:
        memoryview(other)
    return len(others)


def assert_described(buffer, shape):
    assert buffer.ndim == len(shape)
    assert numbers(buffer.shape, len(shape)) == list(shape)
    assert numbers(buffer.strides, len(shape)) == column_major_strides(list(shape), 8)


class TestWithoutTheArray:
    @each_form
    def test_memoryview_alone(self, row, is_complex):
        nested = [[1, 0, 1], [0, 1, 0]]
        array = row.cls(nested, is_complex=is_complex)
        views = [memoryview(array), memoryview(array[1]), memoryview(array[::-1])]
        want = [view.tobytes() for view in views]
        del array
        gc.collect()
        churn()
        assert [view.tobytes() for view in views] == want
        assert [view.shape for view in views] == [(2, 3), (1, 3), (2, 3)]

    def test_buffers_alone(self):
        array = velmar.double(CUBE)
        answers = [ask(source, INDIRECT | FORMAT) for source in (array, array[2], array[1][:2])]
        del array
        gc.collect()
        churn()
        wants = [(CUBE, (4, 6, 5)), (CUBE[2], (6, 5)), (CUBE[1][:2], (2, 5))]
        for answer, (nested, shape) in zip(answers, wants, strict=True):
            assert_described(answer.buffer, shape)
            assert memory_of(answer.buffer) == packed(column_major(nested, shape), CLASS_ROWS[0])
            assert answer.buffer.format == b"d"
            give_back(answer)

    def test_copy_of_a_yielded_row(self):
        array = velmar.double([[1, 2], [3, 4]])
        views = [memoryview(row) for row in array]
        del array
        gc.collect()
        churn()
        assert [view.tolist() for view in views] == [[[1, 2]], [[3, 4]]]

    def test_parts_of_a_memoryview(self):
        part = memoryview(velmar.int8([1, 2, 3, 4])[0]).cast("B")[1:3]
        gc.collect()
        churn()
        assert bytes(part) == b"\x02\x03"

    def test_array_lives_as_long_as_its_buffers(self):
        array = velmar.double(vector=range(1000))
        address = array.buffer_info()[0]
        first, second = memoryview(array), memoryview(array)
        del array
        first.release()
        assert second.obj.buffer_info() == (address, 1000)
        second.obj[0][5] = -5
        assert second[0, 5] == -5


class TestUnderAReshape:
    def test_memoryview_shows_what_it_showed(self):
        array = velmar.double(CUBE)
        view = memoryview(array)
        for shape in SHAPES:
            assert array.reshape(*[shape] if len(shape) == 1 else shape) is array
            assert array.size == shape
            assert (view.shape, view.strides) == ((4, 6, 5), (8, 32, 192))
            assert view.tolist() == CUBE
        churn()
        assert view.tolist() == CUBE

    def test_numbers_of_every_shape_stay(self):
        array = velmar.double(CUBE)
        answers = []
        for shape in SHAPES:
            array.reshape(shape)
            answers.append((shape, ask(array, INDIRECT)))
        churn()
        addresses = {answer.buffer.buf for _, answer in answers}
        assert addresses == {array.buffer_info()[0]}
        for shape, answer in answers:
            assert_described(answer.buffer, shape)
        for shape, answer in reversed(answers):
            array.reshape(shape)
            assert_described(answer.buffer, shape)
            give_back(answer)
        with exported(array) as buffer:
            assert_described(buffer, SHAPES[0])

    def test_reshape_back_to_an_exported_shape(self):
        array = velmar.double(CUBE)
        with exported(array) as first:
            for shape in SHAPES * 2:
                array.reshape(shape)
            assert_described(first, (4, 6, 5))
            array.reshape(4, 6, 5)
            with exported(array) as second:
                assert_described(second, (4, 6, 5))
                array.reshape(120, 1)
                churn()
                assert_described(second, (4, 6, 5))
            assert_described(first, (4, 6, 5))

    def test_elements_stay_where_they_are(self):
        array = velmar.double([[1, 2, 3], [4, 5, 6]])
        view = memoryview(array)
        address = array.buffer_info()
        array.reshape(3, 2)
        array[2][1] = 9
        array[1][0] = 8
        assert view.tolist() == [[1, 2, 3], [8, 5, 9]]
        assert memoryview(array).tolist() == contents(array) == [[1, 5], [8, 3], [2, 9]]
        assert array.buffer_info() == address

    def test_copies_of_views_stay(self):
        array = velmar.double(CUBE)
        plane, planes, early = array[1], array[::-1], array[2]
        views = [memoryview(plane), memoryview(planes)]
        early.clone()
        array.reshape(10, 12)
        array[0] = [-1.0] * 12
        churn()
        assert [view.tolist() for view in views] == [CUBE[1], CUBE[::-1]]
        assert memoryview(plane).tolist() == CUBE[1]
        assert memoryview(early).tolist() == CUBE[2]
        assert memoryview(array[1]).shape == (1, 12)
        assert plane.size == (12,)

    def test_through_a_slice(self):
        array = velmar.double(CUBE)
        view, part = memoryview(array), array[1:3]
        copy = memoryview(part)
        part.reshape(2, 60)
        assert array.size == (2, 60)
        assert view.tolist() == CUBE
        assert copy.tolist() == CUBE[1:3]

    def test_refused_reshape_changes_nothing(self):
        array = velmar.double(CUBE)
        view = memoryview(array)
        for arguments in ((7, 7), (), (-4, -30), ("ab",)):
            with pytest.raises(Exception):  # noqa: B017 - any error will do
                array.reshape(*arguments)
        assert view.tolist() == memoryview(array).tolist() == CUBE

    def test_without_elements(self):
        array = velmar.double(size=(0, 5))
        with exported(array) as buffer:
            array.reshape(5, 0)
            array.reshape(7, 0, 9)
            churn()
            assert_described(buffer, (0, 5))
        with exported(array) as buffer:
            assert_described(buffer, (7, 0, 9))

    def test_array_dropped_after_a_reshape(self):
        array = velmar.double(CUBE)
        answer = ask(array, INDIRECT)
        array.reshape(60, 2)
        other = memoryview(array)
        del array
        gc.collect()
        churn()
        assert_described(answer.buffer, (4, 6, 5))
        assert memory_of(answer.buffer) == packed(column_major(CUBE, [4, 6, 5]), CLASS_ROWS[0])
        give_back(answer)
        assert other.shape == (60, 2)


class TestKeptNumbers:
    """The shapes kept for consumers grow with the number of shapes, not of reshapes."""

    def test_one_place_for_each_shape(self):
        array = velmar.double(CUBE)
        places = set()
        with exported(array):
            for shape in SHAPES[:10] * 20:
                array.reshape(shape)
                with exported(array) as buffer:
                    places.add((shape, address(buffer.shape), address(buffer.strides)))
        assert len(places) == 10

    @pytest.mark.skipif(
        "asan" in os.environ.get("LD_PRELOAD", ""),
        reason="the sanitizer does not reuse freed memory",
    )
    @rows("is_exported", [("exported_once", False), ("exported_at_each_shape", True)])
    def test_memory_does_not_grow(self, is_exported):
        array = velmar.double(CUBE)
        view = memoryview(array)
        before = resident_bytes()
        for _ in range(30000):
            for shape in ((2, 60), (5, 4, 6), (120, 1), (4, 6, 5)):
                array.reshape(shape)
                if is_exported:
                    memoryview(array).release()
        assert resident_bytes() - before < 4_000_000
        assert view.tolist() == CUBE


def address(pointer):
    return ctypes.cast(pointer, ctypes.c_void_p).value


def resident_bytes():
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGESIZE")


def address_of(view):
    with exported(view.obj) as buffer:
        return buffer.buf


class Interruption:
    """Garbage in a cycle: its finaliser runs the action once, at the next collection."""

    def __init__(self, action, results):
        self.itself = self
        self.action = action
        self.results = results

    def __del__(self):
        gc.set_threshold(0)
        try:
            self.results.append(self.action())
        except Exception as error:
            self.results.append(error)


@contextlib.contextmanager
def interrupted(action, after):
    """Run the action when `after` more containers exist, in the middle of the call under test."""
    results: list = []
    thresholds = gc.get_threshold()
    gc.disable()
    gc.freeze()  # collections skip the objects that exist now
    gc.collect()  # starts the count of new containers
    Interruption(action, results)
    gc.set_threshold(after, 1000, 1000)
    gc.enable()
    try:
        yield results
    finally:
        gc.set_threshold(*thresholds)
        gc.collect()


collects_anywhere = pytest.mark.skipif(
    sys.version_info >= (3, 12), reason="later interpreters never collect within a call"
)

MOMENTS = pytest.mark.parametrize("after", range(1, 16))
NUMBERS = [[float(10 * i + j) for j in range(10)] for i in range(10)]


@collects_anywhere
class TestFinalisers:
    """A finaliser that runs while a view is copied changes only the result."""

    @MOMENTS
    @pytest.mark.parametrize("shape", [(20, 5), (100,), (2, 50), (5, 5, 2, 2), (1, 100)], ids=str)
    def test_reshapes(self, shape, after):
        array = velmar.double(NUMBERS)
        view = array[::-1]
        with interrupted(lambda: array.reshape(shape), after), contextlib.suppress(RuntimeError):
            memoryview(view)
        assert array.size == shape
        array.reshape(10, 10)
        assert contents(array) == NUMBERS
        assert memoryview(array[::-1]).tolist() == NUMBERS[::-1]

    @MOMENTS
    def test_exports(self, after):
        view = velmar.double(NUMBERS)[::-1]
        with interrupted(lambda: memoryview(view), after) as results:
            outer = memoryview(view)
        (inner,) = results
        assert inner.tolist() == outer.tolist() == memoryview(view).tolist() == NUMBERS[::-1]
        assert address_of(inner) == address_of(outer) == address_of(memoryview(view))

    @MOMENTS
    @rows(
        "before, behind",
        [
            ("before_a_reshape", None, (20, 5)),
            ("before_a_reshape_to_a_line", None, (100,)),
            ("after_a_reshape", (20, 5), None),
            ("after_a_reshape_to_a_line", (100,), None),
            ("between_reshapes", (20, 5), (10, 10)),
        ],
    )
    def test_exports_beside_a_reshape(self, before, behind, after):
        array = velmar.double(NUMBERS)
        view = array[::-1]

        def action():
            if before:
                array.reshape(before)
            made = memoryview(view)
            if behind:
                array.reshape(behind)
            return made

        with interrupted(action, after) as results:
            outer = memoryview(view)
        (inner,) = results
        assert inner.shape == outer.shape
        assert inner.tolist() == outer.tolist()
        assert address_of(inner) == address_of(outer) == address_of(memoryview(view))

    @MOMENTS
    def test_writes(self, after):
        array = velmar.double(NUMBERS)
        view = array[::-1]

        def action():
            array[:] = [[-1.0] * 10] * 10

        with interrupted(action, after):
            got = memoryview(view).tolist()
        assert {number for line in got for number in line} <= {-1.0, *range(100)}
        assert contents(array) == [[-1.0] * 10] * 10

    @MOMENTS
    def test_drops_the_storage(self, after):
        held = [velmar.double([NUMBERS, NUMBERS])]
        plane = list(held[0])[1]
        got = None
        with interrupted(held.clear, after), contextlib.suppress(RuntimeError):
            got = memoryview(plane).tolist()
        churn()
        assert got in (None, NUMBERS)
        assert held == []


BLOCKS = grid(10, 20, 2)


def unfinished():
    """An array, a view that is copied row by row, and a function that makes it readable.

    The last rows of the view lie outside the storage until the array has its first shape back.
    """
    array = velmar.double(BLOCKS)
    view = array[9][:]
    array.reshape(20, 10, 2)
    return array, view, lambda: array.reshape(10, 20, 2)


@collects_anywhere
class TestFinalisersBetweenRows:
    """The same for views that are copied through lists of numbers, row by row."""

    def test_finalisers_run_between_two_rows(self):
        """Some of these moments lie between two rows, as the tests below assume."""
        copies = []
        for after in range(1, 16):
            _, view, complete = unfinished()
            with interrupted(complete, after), contextlib.suppress(RuntimeError):
                copies.append(memoryview(view).tolist())
        mixed = [copy for copy in copies if copy != BLOCKS[9]]
        assert mixed
        for copy in mixed:  # rows of the earlier shape, then of the later; the first is in both
            are_late = [row == late for row, late in zip(copy, BLOCKS[9], strict=True)]
            assert are_late[1:] == sorted(are_late[1:])

    def test_between_two_rows_without_elements(self):
        failures = set()
        for after in range(1, 16):
            array = velmar.double(size=(10, 0))
            view = array[::-1]
            with interrupted(lambda: array.reshape(0, 20), after):  # noqa: B023 - runs here
                try:
                    memoryview(view)
                except RuntimeError as error:
                    failures.add(str(error))
        assert failures == {"null data pointer."}

    @MOMENTS
    def test_reshapes(self, after):
        array, view, complete = unfinished()
        with interrupted(complete, after), contextlib.suppress(RuntimeError):
            memoryview(view)
        assert array.size == (10, 20, 2)
        assert contents(array) == BLOCKS
        assert memoryview(array[9][:]).tolist() == BLOCKS[9]

    @MOMENTS
    def test_exports(self, after):
        _, view, complete = unfinished()

        def action():
            complete()
            return memoryview(view)

        outer = None
        with interrupted(action, after) as results, contextlib.suppress(RuntimeError):
            outer = memoryview(view)
        (inner,) = results
        assert inner.tolist() == memoryview(view).tolist()
        assert inner.tolist() == BLOCKS[9] or outer is not None
        assert address_of(inner) == address_of(memoryview(view))
        if outer is not None:
            assert outer.tolist() == inner.tolist()
            assert address_of(inner) == address_of(outer)

    @MOMENTS
    def test_writes(self, after):
        array, view, complete = unfinished()

        def action():
            complete()
            array[:] = [[[-1.0] * 2] * 20] * 10

        got = []
        with interrupted(action, after), contextlib.suppress(RuntimeError):
            got = memoryview(view).tolist()
        assert {number for line in got for number in line} <= {-1.0, *range(400)}
        assert contents(array) == [[[-1.0] * 2] * 20] * 10

    @MOMENTS
    def test_drops_the_storage(self, after):
        held = [velmar.double(BLOCKS)]
        plane = list(held[0])[9]
        held[0].reshape(5, 40, 2)
        with interrupted(held.clear, after), pytest.raises(RuntimeError):
            memoryview(plane)
        churn()
        assert held == []
