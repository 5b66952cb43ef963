"""clone(): what is copied of a view, the independence of the copy, and the kept snapshot."""

import gc
import math
import random

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, as_rows, contents, every, exact, grid, line, subscripted
from helpers.cases import each, each_form, rows
from helpers.failures import NOT_INITIALIZED, STORAGE_GONE, raises
from helpers.memory_blocks import blocks_per_call, counts_blocks, references_per_call
from helpers.view_states import WITHOUT_STORAGE, bare_record, call_method

CUBE = grid(4, 5, 6)


VIEWS = [  # chains on 4 by 5 by 6
    ("plane", [2]),
    ("row", [2, 3]),
    ("last_row", [-1, -1]),
    ("planes", [every(1, 3)]),
    ("one_plane", [every(3, 4)]),
    ("reversed_planes", [every(step=-1)]),
    ("every_second_plane_backwards", [every(step=-2)]),
    ("rows_of_plane", [2, every(1, 3)]),
    ("reversed_rows_of_plane", [0, every(step=-1)]),
    ("part_of_row", [1, 2, every(2, 5)]),
    ("reversed_row", [1, 2, every(step=-1)]),
    ("one_number", [1, 2, every(4, 5)]),
    ("slice_of_slice", [every(step=-1), every(1, None, 2)]),
    ("plane_of_planes", [every(1, 3), 1]),
    ("slice_in_each_dimension", [every(1, 3), 1, every(step=-2), 1, every(1, 5, 3)]),
    ("all", [every()]),
]


def clones_of_shape(*shape):
    array = velmar.double(grid(*shape))
    return contents(array.clone()), grid(*shape)


class TestContents:
    @each_form
    def test_whole_array(self, row, is_complex):
        array = row.cls([[1, 0, 1], [0, 1, 0]], is_complex=is_complex)
        clone = array.clone()
        assert type(clone) is row.cls
        assert clone is not array
        assert repr(clone) == repr(array)
        assert exact(contents(clone)) == exact(contents(array))

    @each_form
    def test_row_becomes_one_by_n(self, row, is_complex):
        array = row.cls([[1, 0, 1], [0, 1, 0]], is_complex=is_complex)
        clone = array[1].clone()
        assert type(clone) is row.cls
        assert len(clone) == 1
        assert len(clone[0]) == 3
        assert repr(clone) == repr(row.cls([[0, 1, 0]], is_complex=is_complex))

    @rows("chain", VIEWS)
    def test_views(self, chain):
        array = velmar.double(CUBE)
        view = subscripted(array, chain)
        want = as_rows(contents(view))
        assert contents(view.clone()) == want
        assert contents(array) == CUBE

    @rows("chain", VIEWS)
    def test_views_of_a_complex_class(self, chain):
        nested = [[[complex(n % 100, -1) for n in line_] for line_ in plane] for plane in CUBE]
        view = subscripted(velmar.int8(nested, is_complex=True), chain)
        clone = view.clone()
        assert exact(contents(clone)) == exact(as_rows(contents(view)))
        assert repr(clone).endswith(", is_complex=True)")

    @pytest.mark.parametrize(
        "shape",
        [(1, 1), (1, 5), (5, 1), (2, 3), (1, 1, 2), (2, 1, 3), (3, 2, 1, 2), (7, 11, 13), (90, 70)],
        ids=str,
    )
    def test_shapes(self, shape):
        got, want = clones_of_shape(*shape)
        assert got == want

    def test_flat_data_in_storage_order(self):
        array = velmar.int8([1, 2, 3, 4, 5, 6], size=(2, 3))
        assert contents(array.clone()) == [[1, 3, 5], [2, 4, 6]]
        assert contents(array[1].clone()) == [[2, 4, 6]]

    def test_is_a_whole_array(self):
        clone = velmar.double(CUBE)[2][1:4][::-1].clone()
        assert clone.__reduce__() == (velmar.double, ({}, CUBE[2][3:0:-1]))
        assert contents(clone[0][::-1]) == CUBE[2][3][::-1]

    def test_clone_of_a_clone(self):
        clone = line(5)[::-2].clone().clone()
        assert contents(clone) == [[4.0, 2.0, 0.0]]

    def test_takes_no_arguments(self):
        with pytest.raises(TypeError):
            line(3).clone(1)


class TestWithoutElements:
    @rows(
        "make",
        [
            ("nothing", lambda: velmar.double()),
            ("no_rows", lambda: velmar.double(size=(0, 3))),
            ("no_columns", lambda: velmar.double(size=(3, 0))),
            ("row_without_columns", lambda: velmar.double(size=(3, 0))[1]),
            ("inner_dimension_empty", lambda: velmar.double(size=(2, 0, 4))),
            ("empty_slice", lambda: velmar.double(CUBE)[2:2]),
            ("empty_slice_of_plane", lambda: velmar.double(CUBE)[1][5:]),
            ("empty_slice_of_row", lambda: line(4)[3:1]),
            ("complex", lambda: velmar.int16(size=(3, 0), is_complex=True)[::-1]),
        ],
    )
    def test_the_first_dimension_is_empty(self, make):
        source = make()
        clone = source.clone()
        assert type(clone) is type(source)
        assert len(clone) == 0
        assert str(clone) == "[]"
        assert ("is_complex" in repr(clone)) is ("is_complex" in repr(source))
        assert clone == type(source)()

    def test_empty_lines_are_not_empty_rows(self):
        array = velmar.double(size=(2, 0))
        assert str(array) == "[[],[]]"
        assert array.clone() != array


class TestIndependence:
    def test_writes_to_the_source(self):
        array = velmar.int32([[1, 2], [3, 4]])
        clone, row_clone = array.clone(), array[0].clone()
        array[0][0] = 99
        array[1] = [7, 8]
        assert contents(clone) == [[1, 2], [3, 4]]
        assert contents(row_clone) == [[1, 2]]

    def test_writes_to_the_clone(self):
        array = velmar.int32([[1, 2], [3, 4]])
        for source in (array, array[0], array[::-1], array[1][1:]):
            before = str(source)
            clone = source.clone()
            clone[0][0] = 99
            assert clone[0][0] == 99
            assert str(source) == before
        assert contents(array) == [[1, 2], [3, 4]]

    def test_outlives_the_source(self):
        array = velmar.double(grid(3, 1000))
        clones = [array.clone(), array[1].clone(), array[::-1].clone()]
        del array
        gc.collect()
        others = [velmar.double(size=(3, 1000)) for _ in range(10)]
        nested = grid(3, 1000)
        assert [contents(clone) for clone in clones] == [nested, [nested[1]], nested[::-1]]
        assert len(others) == 10

    def test_of_a_yielded_row_outlives_the_storage(self):
        array = velmar.double([[1, 2], [3, 4]])
        row = list(array)[1]
        clone = row.clone()
        view = clone[0]
        del array
        with raises(*STORAGE_GONE):
            str(row)
        assert contents(clone) == [[3.0, 4.0]]
        del clone
        assert contents(view) == [3.0, 4.0]

    def test_of_a_yielded_plane(self):
        array = velmar.double(CUBE)
        clones = [plane.clone() for plane in array]
        assert [contents(clone) for clone in clones] == CUBE


class TestSnapshot:
    """The snapshot is made at the first clone of an object and never refreshed."""

    @each_form
    def test_second_clone_is_as_the_first(self, row, is_complex):
        array = row.cls([[1, 0], [0, 1]], is_complex=is_complex)
        first = array.clone()
        array[0][0] = 0
        second = array.clone()
        assert repr(second) == repr(first) == repr(row.cls([[1, 0], [0, 1]], is_complex=is_complex))
        assert array[0][0] == 0

    @rows("chain", VIEWS)
    def test_of_a_view(self, chain):
        array = velmar.double(CUBE)
        view = subscripted(array, chain)
        before = contents(view)
        view.clone()
        array[:] = [[[0.0] * 6] * 5] * 4
        assert contents(view.clone()) == as_rows(before)
        assert contents(view) != before
        fresh = subscripted(array, chain)
        assert contents(fresh.clone()) == as_rows(contents(fresh)) == as_rows(contents(view))

    def test_write_through_the_view_itself(self):
        view = line(4)[::-1]
        view.clone()
        view[0] = 99.0
        assert contents(view.clone()) == [[3.0, 2.0, 1.0, 0.0]]
        assert contents(view) == [99.0, 2.0, 1.0, 0.0]

    def test_first_clone_sees_what_was_written_before(self):
        array = velmar.double([[1, 2], [3, 4]])
        array[1][1] = 9
        view = array[1]
        view[0] = 8
        assert contents(view.clone()) == [[8.0, 9.0]]
        assert contents(array.clone()) == [[1.0, 2.0], [8.0, 9.0]]

    def test_each_object_has_its_own(self):
        array = velmar.double([[1, 2], [3, 4]])
        old = array[0]
        old.clone()
        array[0][0] = 99
        assert contents(old.clone()) == [[1.0, 2.0]]
        assert contents(array[0].clone()) == [[99.0, 2.0]]
        assert contents(old[:].clone()) == [[99.0, 2.0]]
        assert contents(array.clone()) == [[99.0, 2.0], [3.0, 4.0]]

    def test_yielded_rows_have_their_own(self):
        array = velmar.double([[1, 2], [3, 4]])
        array.clone()
        array[0][0] = 99
        assert [contents(row.clone()) for row in array] == [[[99.0, 2.0]], [[3.0, 4.0]]]

    def test_writes_to_a_clone_do_not_reach_the_next_clone(self):
        array = velmar.int16([[1, 2], [3, 4]])
        first = array.clone()
        first[0][0] = 50
        second = array.clone()
        assert contents(second) == [[1, 2], [3, 4]]
        second[1] = [60, 70]
        assert contents(first) == [[50, 2], [3, 4]]
        assert contents(array.clone()) == [[1, 2], [3, 4]]
        assert contents(array) == [[1, 2], [3, 4]]

    def test_clone_has_none_yet(self):
        clone = velmar.int16([[1, 2]]).clone()
        clone[0][0] = 7
        assert contents(clone.clone()) == [[7, 2]]

    def test_reads_of_the_source_do_not_use_it(self):
        array = velmar.int16([[1, 2], [3, 4]])
        old = array.clone()
        array[0] = [8, 9]
        assert str(array) == "[[8,9],[3,4]]"
        assert array.__reduce__()[1][1] == [[8, 9], [3, 4]]
        assert [list(row) for row in array] == [[8, 9], [3, 4]]
        assert array != old
        assert contents(velmar.int16(array)) == [[8, 9], [3, 4]]


EXTREMES = {
    "float": [0.0, -0.0, math.inf, math.nan, 5e-324, 0.1],
    "logical": [True, False],
}


def extremes(row):
    return EXTREMES.get(row.kind, [row.low, row.high, 0, 1]) + [row.low, row.high]


class TestElements:
    @each(CLASS_ROWS)
    def test_extremes_of_each_class(self, row):
        array = row.cls([extremes(row)])
        assert exact(contents(array.clone())) == exact(contents(array))

    def test_doubles_of_any_bits(self):
        generator = random.Random(4)
        values = [
            math.ldexp(generator.uniform(-1, 1), generator.randint(-1070, 1020)) for _ in range(500)
        ]
        array = velmar.double(vector=[*values, -math.inf])
        assert exact(contents(array[0].clone())) == exact(contents(array))

    def test_singles_of_any_bits(self):
        generator = random.Random(5)
        values = [
            math.ldexp(generator.uniform(-1, 1), generator.randint(-150, 127)) for _ in range(500)
        ]
        array = velmar.single(vector=values)
        assert exact(contents(array.clone())) == exact(contents(array))

    def test_complex_doubles(self):
        values = [complex(-0.0, math.inf), complex(math.nan, -0.0), complex(-1e300, 5e-324)]
        array = velmar.double([values], is_complex=True)
        assert exact(contents(array.clone())) == exact(contents(array)) == exact([values])

    @pytest.mark.parametrize("word", ["int64", "uint64"])
    def test_complex_of_64_bits_goes_through_double(self, word):
        array = getattr(velmar, word)([2**60 + 1], is_complex=True)
        assert exact(contents(array.clone())) == exact([[complex(2**60, 0)]])


TOO_LARGE = [  # converted to double, such an element is outside the class
    ("int64_highest", velmar.int64, 2**63 - 1, "value (9.22337e+18)", "int64"),
    ("int64_lowest", velmar.int64, -(2**63), "value (-9.22337e+18)", "int64"),
    ("uint64_highest", velmar.uint64, 2**64 - 1, "value (1.84467e+19)", "uint64"),
]


def cause_of_failing_clone(array):
    """The error of a failing clone, which returns an object and leaves the error set."""
    with pytest.raises(SystemError, match="returned a result with an exception set") as caught:
        call_method(array, "clone")
    return caught.value.__cause__


class TestFailures:
    @rows("make", WITHOUT_STORAGE)
    def test_without_storage(self, make):
        view = make()
        for _ in range(2):
            cause = cause_of_failing_clone(view)
            assert type(cause) is RuntimeError
            assert str(cause) == STORAGE_GONE.message

    def test_snapshot_taken_before_the_storage_went(self):
        array = velmar.double([[1, 2], [3, 4]])
        row = list(array)[1]
        assert contents(row.clone()) == [[3.0, 4.0]]
        del array
        for _ in range(2):
            with raises(*STORAGE_GONE):
                call_method(row, "clone")

    @rows("cls, element, value, word", TOO_LARGE)
    def test_complex_element_that_does_not_fit_when_it_comes_back(self, cls, element, value, word):
        cause = cause_of_failing_clone(cls([[1, element]], is_complex=True))
        assert type(cause) is OverflowError
        assert str(cause) == f"{value} cannot be stored in a variable of type {word}."

    @rows("cls, element, value, word", TOO_LARGE)
    def test_failure_is_not_remembered(self, cls, element, value, word):
        array = cls([[1, element], [2, 3]], is_complex=True)
        cause_of_failing_clone(array)
        array[0][1] = 4
        assert contents(array.clone()) == [[1, 4], [2, 3]]
        array[0][1] = element
        assert contents(array.clone()) == [[1, 4], [2, 3]]

    def test_part_that_fits(self):
        array = velmar.int64([[2**63 - 1, 2]], is_complex=True)
        assert contents(array[0][1:].clone()) == [[2 + 0j]]
        cause_of_failing_clone(array[0])

    def test_more_rows_than_memory_holds(self):
        array = velmar.double(size=(2**62, 0))
        assert type(cause_of_failing_clone(array)) is MemoryError
        assert len(array) == 2**62

    @each(CLASS_ROWS)
    def test_bare_record(self, row):
        with raises(*NOT_INITIALIZED):
            bare_record(row.cls).clone()


def failing_clone(array):
    try:
        call_method(array, "clone")
    except (SystemError, RuntimeError):
        return
    raise AssertionError("the array was cloned")


class TestReferences:
    @counts_blocks
    @rows(
        "action",
        [
            ("array", lambda: velmar.double([[1000.5, 2000.5], [3000.5, 4000.5]]).clone()),
            ("row", lambda: velmar.double([[1000.5, 2000.5], [3000.5, 4000.5]])[1].clone()),
            ("complex", lambda: velmar.int32([1000, 2000j], is_complex=True).clone()),
            ("nothing", lambda: velmar.double().clone()),
            ("too_large", lambda: failing_clone(velmar.int64([2**63 - 1], is_complex=True))),
            ("without_storage", lambda: failing_clone(list(velmar.double([1000.5]))[0])),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        assert blocks_per_call(action) < 0.05

    @each(CLASS_ROWS)
    def test_clones_leave_a_reference_on_their_class(self, row):
        array = row.cls([[1, 0], [0, 1]])
        assert references_per_call(row.cls, array.clone) == 1
