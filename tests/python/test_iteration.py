"""Iteration: the items, their order, and that neither iterators nor items keep the storage."""

import gc
import itertools
import operator
import sys

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, every, exact, grid, line, subscripted
from helpers.cases import each, each_form, rows
from helpers.failures import NOT_INITIALIZED, STORAGE_GONE, raises
from helpers.memory_blocks import blocks_per_call, counts_blocks, references_per_call
from helpers.slice_model import ViewModel
from helpers.view_states import WITHOUT_STORAGE, bare_record, expired_plane, expired_row

CUBE = grid(4, 5, 6)


def yielded(view):
    return [contents(item) for item in view]


class TestWhatIsYielded:
    @each_form
    def test_whole_array_yields_rows(self, row, is_complex):
        nested = [[1, 0, 1], [0, 1, 1]]
        array = row.cls(nested, is_complex=is_complex)
        items = list(array)
        assert [type(item) for item in items] == [row.cls] * 2
        assert [len(item) for item in items] == [3, 3]
        for i, item in enumerate(items):
            assert repr(item) == repr(array[i])
            assert exact(contents(item)) == exact(contents(array[i]))

    @each_form
    def test_row_yields_numbers(self, row, is_complex):
        array = row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)
        assert exact(list(array[1])) == exact([array[1][i] for i in range(3)])
        assert exact(list(array[1][::-2])) == exact([array[1][2], array[1][0]])

    def test_one_by_n_yields_its_row(self):
        array = velmar.double([1, 2, 3])
        items = list(array)
        assert [type(item) for item in items] == [velmar.double]
        assert str(items[0]) == "[1.0,2.0,3.0]"

    def test_n_by_one_yields_views_of_one_element(self):
        array = velmar.int8([[1], [2], [3]])
        items = list(array)
        assert [type(item) for item in items] == [velmar.int8] * 3
        assert [str(item) for item in items] == ["[1]", "[2]", "[3]"]

    @rows(
        "chain, expected",
        [
            ("array", [], CUBE),
            ("plane", [2], CUBE[2]),
            ("row", [2, 3], CUBE[2][3]),
            ("planes", [every(1, 3)], CUBE[1:3]),
            ("reversed_planes", [every(step=-1)], CUBE[::-1]),
            ("every_third_plane_backwards", [every(step=-3)], CUBE[::-3]),
            ("rows_of_plane", [1, every(4, 0, -2)], CUBE[1][4:0:-2]),
            ("part_of_row", [1, 2, every(2, 5)], CUBE[1][2][2:5]),
            ("reversed_row", [1, 2, every(step=-1)], CUBE[1][2][::-1]),
            ("one_number", [1, 2, every(3, 4)], [CUBE[1][2][3]]),
            ("slice_of_slice", [every(step=-1), every(step=2)], CUBE[::-1][::2]),
            ("row_of_planes", [every(1, 3), 1, every(step=-2), 0], CUBE[2][4]),
            ("no_planes", [every(2, 2)], []),
            ("no_rows", [1, every(9, None)], []),
            ("no_numbers", [1, 2, every(3, 1)], []),
        ],
    )
    def test_views(self, chain, expected):
        array = velmar.double(CUBE)
        view = subscripted(array, chain)
        assert yielded(view) == expected
        text = "[" + ",".join(str(item) for item in view) + "]"
        assert text == str(expected).replace(" ", "")

    @rows(
        "make",
        [
            ("nothing", lambda: velmar.double()),
            ("no_rows", lambda: velmar.double(size=(0, 3))),
            ("row_without_columns", lambda: velmar.double(size=(2, 0))[1]),
            ("plane_without_rows", lambda: velmar.double(size=(2, 0, 4))[0]),
            ("empty_slice", lambda: velmar.double(CUBE)[3:3]),
            ("empty_slice_of_row", lambda: line(4)[4:]),
            ("empty_slice_of_empty_slice", lambda: line(4)[1::2][2:][::-1]),
        ],
    )
    def test_nothing(self, make):
        source = make()
        iterator = iter(source)
        for _ in range(3):
            with pytest.raises(StopIteration) as caught:
                next(iterator)
            assert caught.value.value is None

    def test_rows_without_columns(self):
        array = velmar.double(size=(3, 0))
        assert [str(row) for row in array] == ["[]", "[]", "[]"]
        assert yielded(velmar.double(size=(2, 0, 4))) == [[], []]

    @pytest.mark.parametrize("length", range(5))
    def test_every_slice(self, length):
        array = velmar.double([float(i) for i in range(length)], size=(1, length))
        column = velmar.int8(size=(length, 2))
        ends = [None, *range(-length - 1, length + 2)]
        for parts in itertools.product(ends, ends, (None, 2, 3, -1, -2, -3)):
            cut = slice(*parts)
            assert list(array[0][cut]) == [float(i) for i in range(length)][cut], cut
            assert len(list(column[cut])) == len(range(length)[cut]), cut

    @pytest.mark.parametrize("length", [1, 3, 4])
    def test_every_slice_of_slices(self, length):
        array = line(length)
        ends = [None, *range(-length - 1, length + 2)]
        few = [slice(*parts) for parts in itertools.product((None, -1, 1), ends, (1, 2, -1, -2))]
        for first, second in itertools.product(few, few):
            want = ViewModel([float(i) for i in range(length)])[first][second].contents()
            assert list(array[first][second]) == want, (first, second)

    def test_nested_loops(self):
        array = velmar.double(grid(2, 3, 4))
        got = [number for plane in array for row in plane for number in row]
        assert got == [float(i) for i in range(24)]

    def test_huge_dimension_starts_at_once(self):
        array = velmar.double(size=(2**62, 0))
        iterator = iter(array)
        assert [str(next(iterator)) for _ in range(3)] == ["[]", "[]", "[]"]
        assert str(next(iter(array[::-1]))) == "[]"


class TestIterator:
    def test_class(self):
        array = velmar.double([1, 2])
        assert type(iter(array)) is velmar.MCPyIter
        assert type(iter(array[0][::-1])) is velmar.MCPyIter

    def test_is_its_own_iterator(self):
        array = velmar.double([1, 2])
        iterator = iter(array)
        assert iter(iterator) is iterator
        assert iter(iter(iterator)) is iterator
        next(iterator)
        assert iter(iterator) is iterator

    @pytest.mark.parametrize("make", [lambda: velmar.int8([[1], [2], [3]]), lambda: line(3)])
    def test_stays_exhausted(self, make):
        source = make()
        iterator = iter(source)
        assert len(list(iterator)) == 3
        for _ in range(3):
            with pytest.raises(StopIteration) as caught:
                next(iterator)
            assert caught.value.args == ()
        assert list(iterator) == []
        assert next(iterator, "default") == "default"

    def test_stays_exhausted_when_the_storage_has_gone(self):
        array = velmar.double([1, 2])
        iterator = iter(array)
        assert len(list(iterator)) == 1
        del array
        assert list(iterator) == []

    def test_iterators_of_one_array_are_independent(self):
        view = line(4)
        first, second = iter(view), iter(view)
        assert first is not second
        assert [next(first), next(first), next(second)] == [0.0, 1.0, 0.0]
        assert list(first) == [2.0, 3.0]
        assert list(second) == [1.0, 2.0, 3.0]

    def test_each_step_makes_a_new_view(self):
        array = velmar.double([[1, 2], [3, 4]])
        first, second = array
        assert first is not second
        assert list(array)[0] is not first

    def test_has_no_length(self):
        assert operator.length_hint(iter(line(3)), 99) == 99
        with pytest.raises(TypeError):
            len(iter(line(3)))

    def test_is_no_array(self):
        iterator = iter(line(3))
        assert iterator != line(3)
        assert line(3) != iterator
        with pytest.raises(TypeError):
            iterator[0]
        assert not hasattr(iterator, "clone")


class TestMadeDirectly:
    def test_next(self):
        iterator = velmar.MCPyIter()
        for _ in range(2):
            with raises(*NOT_INITIALIZED):
                next(iterator)

    def test_is_its_own_iterator(self):
        iterator = velmar.MCPyIter()
        assert iter(iterator) is iterator

    @pytest.mark.parametrize("walk", [list, tuple, sum, sorted])
    def test_walks(self, walk):
        with raises(*NOT_INITIALIZED):
            walk(velmar.MCPyIter())

    def test_many_come_and_go(self):
        assert all(type(velmar.MCPyIter()) is velmar.MCPyIter for _ in range(1000))

    def test_takes_no_arguments(self):
        with pytest.raises(TypeError):
            velmar.MCPyIter(velmar.double([1]))


class TestLiveStorage:
    """An iterator copies the bounds when it is made and reads each element when it yields it."""

    def test_writes_ahead_of_the_walk_are_seen(self):
        view = line(4)
        iterator = iter(view)
        assert next(iterator) == 0.0
        view[0], view[2] = 88.0, 99.0
        assert list(iterator) == [1.0, 99.0, 3.0]

    def test_writes_in_the_walk(self):
        array = velmar.int32([[1, 2], [3, 4]])
        for row in array:
            for i, number in enumerate(row):
                row[i] = number * 10
        assert contents(array) == [[10, 20], [30, 40]]

    def test_rows_show_later_writes_and_write_through(self):
        array = velmar.int32([[1, 2], [3, 4]])
        first, second = array
        array[0][1] = 50
        assert contents(first) == [1, 50]
        second[0] = 60
        assert contents(array) == [[1, 50], [60, 4]]

    def test_snapshot_of_a_clone_is_not_walked(self):
        view = line(3)
        view.clone()
        view[1] = 50.0
        assert list(view) == [0.0, 50.0, 2.0]

    def test_any_strong_view_keeps_rows_usable(self):
        array = velmar.double(CUBE)
        keeper = array[3][4]
        iterator = iter(array)
        first = next(iterator)
        del array
        gc.collect()
        assert contents(first) == CUBE[0]
        assert contents(first[1]) == CUBE[0][1]
        assert first[1][2] == CUBE[0][1][2]
        assert yielded(iterator) == CUBE[1:]
        del keeper
        with raises(*STORAGE_GONE):
            str(first)

    def test_row_of_a_row_is_weak_too(self):
        array = velmar.double(CUBE)
        plane = next(iter(array))
        row = plane[1]
        assert contents(row) == CUBE[0][1]
        del array
        with raises(*STORAGE_GONE):
            row[0]


class TestStorageGone:
    @pytest.mark.parametrize("step", [1, -1])
    def test_rows_are_still_yielded(self, step):
        array = velmar.int8([[1], [2], [3]])
        iterator = iter(array[::step])
        del array
        items = list(iterator)
        assert [type(item) for item in items] == [velmar.int8] * 3
        for item in items:
            with raises(*STORAGE_GONE):
                str(item)
        assert list(iterator) == []

    def test_numbers_fail_one_by_one(self):
        view = line(3)
        iterator = iter(view)
        assert next(iterator) == 0.0
        del view
        for _ in range(2):
            with raises(*STORAGE_GONE):
                next(iterator)
        for _ in range(2):
            with pytest.raises(StopIteration):
                next(iterator)

    @each_form
    def test_numbers_of_each_form(self, row, is_complex):
        iterator = iter(row.cls([1, 0, 1], is_complex=is_complex)[0])
        with raises(*STORAGE_GONE):
            next(iterator)

    def test_loop_over_a_temporary_array_yields_rows_that_cannot_be_used(self):
        seen = 0
        for row in velmar.double([[1, 2], [3, 4]]):
            seen += 1
            with raises(*STORAGE_GONE):
                row[0]
        assert seen == 2

    def test_loop_over_the_numbers_of_a_temporary_row(self):
        with raises(*STORAGE_GONE):
            for number in velmar.double([1, 2])[0]:
                raise AssertionError(number)

    def test_loop_over_a_slice_of_a_temporary_array(self):
        for row in velmar.double([[1, 2], [3, 4]])[::-1]:
            with raises(*STORAGE_GONE):
                list(row)

    def test_rows_of_a_named_array_keep_their_storage(self):
        array = velmar.double([[1, 2], [3, 4]])
        assert [list(row) for row in array] == [[1.0, 2.0], [3.0, 4.0]]

    USES = [
        ("len", len),
        ("bool", bool),
        ("str", str),
        ("repr", repr),
        ("iter", iter),
        ("list", list),
        ("number", lambda view: view[0]),
        ("negative", lambda view: view[-1]),
        ("beyond", lambda view: view[100]),
        ("slice", lambda view: view[:]),
        ("contains", lambda view: 1.0 in view),
        ("unpacked", lambda view: [*view]),
        ("reversed", lambda view: list(reversed(view))),
        ("constructor", lambda view: velmar.double(vector=view)),
        ("equal", lambda view: view == view),
        ("reduce", lambda view: view.__reduce__()),
    ]

    @rows("use", USES)
    def test_uses_of_a_row(self, use):
        for make in (expired_row, expired_plane):
            view = make()
            for _ in range(2):
                with raises(*STORAGE_GONE):
                    use(view)

    @rows("make", WITHOUT_STORAGE)
    @pytest.mark.parametrize("use", [str, repr, iter, list, tuple], ids=lambda use: use.__name__)
    def test_each_kind_of_view(self, use, make):
        with raises(*STORAGE_GONE):
            use(make())

    def test_assignment_to_a_row(self):
        with raises(RuntimeError, "too many indices."):
            expired_row()[0] = 1.0

    def test_slice_of_a_yielded_row_has_no_storage_from_the_start(self):
        array = velmar.double([[1, 2, 3], [4, 5, 6]])
        part = list(array)[0][1:]
        for use in (str, list, lambda view: view[0], lambda view: view[:][0], equals_itself):
            with raises(*STORAGE_GONE):
                use(part)
        assert contents(array) == [[1.0, 2.0, 3.0], [4.0, 5.0, 6.0]]

    def test_rows_go_in_any_order(self):
        for order in itertools.permutations(range(3)):
            array = velmar.double([[1], [2]])
            things = [array, iter(array), list(array)]
            del array
            for i in order:
                things[i] = None
            gc.collect()
            assert things == [None] * 3


def equals_itself(view):
    return view == view


class TestBareRecord:
    @each(CLASS_ROWS)
    def test_iter(self, row):
        with raises(*NOT_INITIALIZED):
            iter(bare_record(row.cls))


def last_of(iterable):
    for item in iterable:
        last = item
    return last


class TestReferences:
    def test_iterator_and_rows_hold_no_reference_to_the_array(self):
        array = velmar.double([[1, 2], [3, 4]])
        before = sys.getrefcount(array)
        iterator = iter(array)
        row = next(iterator)
        after = sys.getrefcount(array)
        assert after == before
        assert contents(row) == [1.0, 2.0]

    def test_iter_of_an_iterator_is_one_reference_more(self):
        iterator = iter(line(3))
        before = sys.getrefcount(iterator)
        again = iter(iterator)
        after = sys.getrefcount(iterator)
        assert after == before + 1
        assert again is iterator

    @counts_blocks
    @rows(
        "action",
        [
            ("rows", lambda array: last_of(array)),
            ("numbers", lambda array: last_of(array[1])),
            ("slice", lambda array: list(array[::-1])),
            ("abandoned", lambda array: next(iter(array))),
            ("never_begun", lambda array: iter(array[0])),
            ("exhausted", lambda array: next(iter(array[0][:0]), None)),
            ("directly", lambda array: velmar.MCPyIter()),
            ("directly_with_next", lambda array: next_fails(velmar.MCPyIter())),
            ("storage_gone", lambda array: next_fails(iter(velmar.double([1.5, 2000])[0]))),
            ("rows_without_storage", lambda array: list(velmar.double([[1000.5], [2000.5]]))),
            ("complex", lambda array: list(velmar.int8([1j, 2], is_complex=True))),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        array = velmar.double([[1000.5, 2000.5, 3000.5], [4000.5, 5000.5, 6000.5]])
        assert blocks_per_call(lambda: action(array)) < 0.05

    def test_iterators_leave_a_reference_on_their_class(self):
        # Deliberate, as for arrays: the reference to the class is not released.
        array = velmar.double([1, 2])
        assert references_per_call(velmar.MCPyIter, lambda: iter(array)) == 1

    @each(CLASS_ROWS)
    def test_rows_leave_a_reference_on_their_class(self, row):
        array = row.cls([[1], [0]])
        assert references_per_call(row.cls, lambda: list(array)) == 2


def next_fails(iterator):
    try:
        next(iterator)
    except RuntimeError:
        return
    raise AssertionError("something was yielded")
