"""Comparison: arrays are equal if iteration yields equal items; orders are refused."""

import itertools
import math
import operator
import sys
from unittest import mock

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, COMPLEX_ROWS, contents, every, grid, line, subscripted
from helpers.cases import each, each_form, rows
from helpers.child_interpreter import run_script
from helpers.failures import NOT_INITIALIZED, STORAGE_GONE, must_fail, raises
from helpers.memory_blocks import blocks_per_call, counts_blocks
from helpers.view_states import WITHOUT_STORAGE, bare_record, expired_row
from hypothesis import given
from hypothesis import strategies as st

CUBE = grid(2, 3, 4)
NO_ORDER = "inequality operators not supported."
ORDERS = [operator.lt, operator.le, operator.gt, operator.ge]
orders = pytest.mark.parametrize("order", ORDERS, ids=lambda order: order.__name__)


def assert_equal(a, b):
    for x, y in ((a, b), (b, a)):
        assert (x == y) is True
        assert (x != y) is False


def assert_unequal(a, b):
    for x, y in ((a, b), (b, a)):
        assert (x == y) is False
        assert (x != y) is True


class TestEqual:
    @each_form
    def test_same_contents(self, row, is_complex):
        nested = [[1, 0, 1], [0, 1, 1]]
        array = row.cls(nested, is_complex=is_complex)
        assert_equal(array, row.cls(nested, is_complex=is_complex))
        assert_equal(array, array)
        assert_equal(array[0], row.cls(nested, is_complex=is_complex)[0])

    @each_form
    def test_every_element_counts(self, row, is_complex):
        nested = [[1, 0, 1], [0, 1, 1]]
        array = row.cls(nested, is_complex=is_complex)
        for i, j in itertools.product(range(2), range(3)):
            other = row.cls(nested, is_complex=is_complex)
            other[i][j] = 1 - nested[i][j]
            assert_unequal(array, other)
            other[i][j] = nested[i][j]
            assert_equal(array, other)

    @each(COMPLEX_ROWS)
    def test_imaginary_part_counts(self, row):
        array = row.cls([[1, 2]], is_complex=True)
        assert_unequal(array, row.cls([[1, 2 + 1j]], is_complex=True))
        assert_equal(array, row.cls([[1, 2 + 0j]], is_complex=True))

    @each(COMPLEX_ROWS)
    def test_complex_without_imaginary_parts_equals_real(self, row):
        real = row.cls([[1, 0], [0, 1]])
        assert_equal(real, row.cls([[1, 0], [0, 1]], is_complex=True))
        assert_unequal(real, row.cls([[1, 0], [0, 1 + 1j]], is_complex=True))
        assert_equal(real[1], row.cls([[1, 0], [0, 1]], is_complex=True)[1])

    def test_complex_of_64_bits_is_compared_through_double(self):
        odd, even = 2**60 + 1, 2**60
        assert_unequal(velmar.int64([odd]), velmar.int64([even]))
        assert_equal(velmar.int64([odd], is_complex=True), velmar.int64([even], is_complex=True))
        assert_unequal(velmar.int64([odd]), velmar.int64([odd], is_complex=True))
        assert_equal(velmar.int64([even]), velmar.int64([odd], is_complex=True))

    @pytest.mark.parametrize("word", ["int64", "uint64"])
    def test_integers_beyond_53_bits(self, word):
        cls = getattr(velmar, word)
        assert_unequal(cls([2**62 + 1]), cls([2**62]))

    @each(CLASS_ROWS)
    def test_extremes(self, row):
        assert_equal(row.cls([row.low, row.high]), row.cls([row.low, row.high]))
        assert_unequal(row.cls([row.low]), row.cls([row.high]))

    def test_zeros_of_either_sign(self):
        assert_equal(velmar.double([0.0, -0.0]), velmar.double([-0.0, 0.0]))

    def test_layout_does_not_matter(self):
        assert_equal(
            velmar.int8([[1, 2, 3], [4, 5, 6]]), velmar.int8([1, 4, 2, 5, 3, 6], size=(2, 3))
        )

    def test_writes_are_seen(self):
        array, other = velmar.int8([[1, 2]]), velmar.int8([[1, 2]])
        array.clone()
        array[0][1] = 9
        assert_unequal(array, other)
        other[0][1] = 9
        assert_equal(array, other)

    def test_list_of_arrays(self):
        assert [velmar.int8([1]), 2] == [velmar.int8([1]), 2]
        assert [velmar.int8([1])] != [velmar.int8([2])]
        assert velmar.int8([1]) in [3, velmar.int8([1])]
        assert [velmar.int8([2]), velmar.int8([1])].index(velmar.int8([1])) == 1


class TestNotANumber:
    @pytest.mark.parametrize("cls", [velmar.double, velmar.single])
    def test_array_is_not_equal_to_itself(self, cls):
        array = cls([1.0, math.nan])
        assert (array == array) is False
        assert (array != array) is True
        assert_unequal(array, array.clone())
        assert_unequal(array[0], array[0])
        assert_equal(array[0][:1], array[0][:1])

    @pytest.mark.parametrize("value", [complex(math.nan, 0), complex(0, math.nan)])
    def test_complex(self, value):
        array = velmar.double([1, value], is_complex=True)
        assert (array == array) is False

    def test_lists_compare_identity_first(self):
        array = velmar.double([math.nan])
        assert [array] == [array]


class TestClasses:
    def test_each_differs_from_every_other(self):
        arrays = [row.cls([[1, 0]]) for row in CLASS_ROWS]
        for a, b in itertools.combinations(arrays, 2):
            assert_unequal(a, b)
            assert_unequal(a[0], b[0])

    def test_arrays_without_elements(self):
        for a, b in itertools.combinations([row.cls() for row in CLASS_ROWS], 2):
            assert_unequal(a, b)

    def test_complex_arrays(self):
        assert_unequal(velmar.double([1], is_complex=True), velmar.single([1], is_complex=True))


SHAPES = [(0, 0), (0, 3), (0, 3, 2), (1, 0), (2, 0), (3, 0), (2, 0, 4), (2, 3, 0), (1, 1), (1, 2)]
SHAPES += [(2, 1), (1, 4), (4, 1), (2, 2), (1, 1, 2), (1, 2, 2), (2, 1, 2), (1, 1, 4)]


def zero_nesting(shape):
    if not shape:
        return 0
    return [zero_nesting(shape[1:]) for _ in range(shape[0])]


class TestShapes:
    def test_each_pair(self):
        for a, b in itertools.combinations(SHAPES, 2):
            check = assert_equal if zero_nesting(a) == zero_nesting(b) else assert_unequal
            check(velmar.int8(size=a), velmar.int8(size=b))

    @rows(
        "a, b",
        [
            ("0_0_and_0_3", (0, 0), (0, 3)),
            ("0_3_and_0_3_2", (0, 3), (0, 3, 2)),
            ("1_0_and_1_0", (1, 0), (1, 0)),
            ("2_0_and_2_0_4", (2, 0), (2, 0, 4)),
        ],
    )
    def test_equal_when_the_walks_yield_the_same(self, a, b):
        assert_equal(velmar.double(size=a), velmar.double(size=b))
        assert_equal(velmar.double(size=a, is_complex=True), velmar.double(size=b))

    @rows(
        "a, b",
        [
            ("0_0_and_1_0", (0, 0), (1, 0)),
            ("1_0_and_2_0", (1, 0), (2, 0)),
            ("1_4_and_2_2", (1, 4), (2, 2)),
            ("1_2_and_2_1", (1, 2), (2, 1)),
            ("1_2_and_1_1_2", (1, 2), (1, 1, 2)),
            ("2_2_and_2_2_2", (2, 2), (2, 2, 2)),
        ],
    )
    def test_unequal(self, a, b):
        assert_unequal(velmar.double(size=a), velmar.double(size=b))

    def test_one_is_the_beginning_of_the_other(self):
        assert_unequal(velmar.int8([[1, 2]]), velmar.int8([[1, 2], [3, 4]]))
        assert_unequal(line(3), line(4))
        assert_unequal(line(3)[:0], line(3))


class TestViews:
    @rows(
        "chain",
        [
            ("plane", [1]),
            ("row", [1, 2]),
            ("reversed_planes", [every(step=-1)]),
            ("rows_of_plane", [0, every(1, 3)]),
            ("part_of_row", [0, 1, every(3, 0, -2)]),
            ("no_planes", [every(1, 1)]),
        ],
    )
    def test_view_equals_the_same_view_of_an_equal_array(self, chain):
        a, b = velmar.double(CUBE), velmar.double(CUBE)
        view = subscripted(a, chain)
        assert_equal(view, subscripted(b, chain))
        assert_equal(view, subscripted(a, chain))
        assert_equal(view, view[:])

    def test_different_parts_that_show_the_same(self):
        array = velmar.double([[1, 2, 1], [1, 2, 1]])
        assert_equal(array[0], array[1])
        assert_equal(array[0], array[1][::-1])
        assert_equal(array, array[::-1])
        assert_equal(array[0][::2], array[1][::-2])
        assert_unequal(array[0], array[0][:2])

    def test_line_against_an_array_of_one_row(self):
        array = velmar.double([1, 2, 3])
        assert_unequal(array, array[0])
        assert_equal(array, array[:])

    def test_line_against_its_clone(self):
        view = line(3)
        assert_unequal(view, view.clone())
        assert_equal(view, view.clone()[0])

    def test_plane_against_its_clone(self):
        for view in (velmar.double(CUBE), velmar.double(CUBE)[1], velmar.double(CUBE)[::-1]):
            assert_equal(view, view.clone())

    def test_empty_views(self):
        array = velmar.double(CUBE)
        empties = [velmar.double(), array[1:1], array[0][3:], array[0][0][:0]]
        for a, b in itertools.product(empties, empties):
            assert_equal(a, b)
        assert_unequal(velmar.double(), velmar.double(size=(1, 0)))
        assert_equal(velmar.double(), velmar.double(size=(1, 0))[0])

    def test_yielded_rows(self):
        array = velmar.double(CUBE)
        for i, plane in enumerate(array):
            assert_equal(plane, array[i])
            assert_equal(plane, plane)
            assert_unequal(plane, array[1 - i])


def nested(depth):
    numbers = st.integers(0, 1)
    if depth == 1:
        return st.lists(numbers, max_size=3)
    return st.integers(0, 2).flatmap(
        lambda width: st.lists(st.lists(numbers, min_size=width, max_size=width), max_size=3)
    )


cuts = st.builds(slice, st.none() | st.integers(-3, 3), st.none() | st.integers(-3, 3))


@st.composite
def views(draw):
    is_complex = draw(st.booleans())
    view = velmar.int8(draw(nested(draw(st.sampled_from([1, 2])))), is_complex=is_complex)
    if draw(st.booleans()):
        view = view[draw(cuts)]
    if len(view) and draw(st.booleans()):
        view = view[0]
        if draw(st.booleans()):
            view = view[draw(cuts)]
    return view


class TestAgainstNestedLists:
    @given(a=views(), b=views())
    def test_equal_as_their_nested_lists_are(self, a, b):
        check = assert_equal if contents(a) == contents(b) else assert_unequal
        check(a, b)


class AlwaysEqual:
    def __eq__(self, other):
        return True

    def __lt__(self, other):
        return True


OTHERS = [5, 1.0, 1j, None, "a", b"a", [1.0], [[1.0]], (1.0,), {}, object(), velmar.double, line]


class TestOtherTypes:
    @pytest.mark.parametrize("other", OTHERS, ids=lambda other: type(other).__name__)
    def test_are_unequal(self, other):
        assert_unequal(velmar.double([1]), other)
        assert_unequal(velmar.double([1])[0], other)

    def test_iterators_are_unequal(self):
        array = velmar.double([1])
        assert_unequal(array, iter(array))
        assert_unequal(array, velmar.MCPyIter())

    def test_the_array_answers_before_the_other(self):
        array = velmar.double([1])
        assert (array == AlwaysEqual()) is False
        assert (array == mock.ANY) is False
        assert (AlwaysEqual() == array) is True
        assert array.__eq__(5) is False
        assert array.__ne__(5) is True


class TestOrders:
    @orders
    @each_form
    def test_are_refused(self, row, is_complex, order):
        array = row.cls([1, 0], is_complex=is_complex)
        for other in (array, row.cls([1, 0]), 5, None, "a", AlwaysEqual(), array[0]):
            with raises(NotImplementedError, NO_ORDER):
                order(array, other)
            with raises(NotImplementedError, NO_ORDER):
                order(array[0], other)

    @orders
    def test_reflected(self, order):
        for other in (5, 1.0, None, "a", [1]):
            with raises(NotImplementedError, NO_ORDER):
                order(other, velmar.double([1]))

    def test_method_raises_too(self):
        with raises(NotImplementedError, NO_ORDER):
            velmar.double([1]).__lt__(5)

    def test_sorting(self):
        with raises(NotImplementedError, NO_ORDER):
            sorted([velmar.double([1]), velmar.double([2])])
        with raises(NotImplementedError, NO_ORDER):
            max(velmar.double([[1], [2]]), velmar.double([3]))

    @orders
    @rows("make", WITHOUT_STORAGE)
    def test_are_refused_without_storage(self, make, order):
        with raises(NotImplementedError, NO_ORDER):
            order(make(), 5)

    @orders
    def test_are_refused_before_the_other_is_read(self, order):
        with raises(NotImplementedError, NO_ORDER):
            order(velmar.double([1]), bare_record(velmar.double))


class TestHash:
    @each(CLASS_ROWS)
    def test_arrays_have_none(self, row):
        assert row.cls.__hash__ is None
        for array in (row.cls([1]), row.cls([1])[0]):
            with raises(TypeError, f"unhashable type: 'velmar.{row.word}'"):
                hash(array)

    def test_iterators_have_one(self):
        iterator = iter(line(3))
        assert {iterator: 1}[iterator] == 1


class TestWithoutStorage:
    @rows("make", WITHOUT_STORAGE)
    @pytest.mark.parametrize("compare", [operator.eq, operator.ne], ids=["eq", "ne"])
    def test_against_arrays_of_the_class(self, compare, make):
        view = make()
        for other in (type(view)([1]), type(view)(), type(view)([1])[0], view, make()):
            with raises(*STORAGE_GONE):
                compare(view, other)
            with raises(*STORAGE_GONE):
                compare(other, view)

    @rows("make", WITHOUT_STORAGE)
    def test_answers_that_need_no_storage(self, make):
        view = make()
        other_class = velmar.single if type(view) is not velmar.single else velmar.double
        for other in (5, None, [1.0], other_class([1]), expired_row(other_class)):
            assert_unequal(view, other)


class TestBareRecord:
    @each(CLASS_ROWS)
    def test_on_either_side(self, row):
        bare, array = bare_record(row.cls), row.cls([1])
        for a, b in ((bare, array), (array, bare), (bare, bare), (bare, 5), (5, bare)):
            for compare in (operator.eq, operator.ne):
                with raises(*NOT_INITIALIZED):
                    compare(a, b)

    @orders
    def test_is_found_before_the_order(self, order):
        with raises(*NOT_INITIALIZED):
            order(bare_record(velmar.double), 5)

    def test_of_another_class(self):
        with raises(*NOT_INITIALIZED):
            velmar.single([1]) == bare_record(velmar.double)  # noqa: B015 - it must raise


class TestDepth:
    def test_more_dimensions_than_the_interpreter_recurses(self):
        outcome = run_script("""
            import copy, operator, os, resource
            import velmar

            if "asan" not in os.environ.get("LD_PRELOAD", ""):
                resource.setrlimit(resource.RLIMIT_AS, (3 << 30, 3 << 30))

            def outcome_of(action):
                try:
                    return repr(action())
                except Exception as error:
                    return type(error.__cause__ or error).__name__

            found = {}
            for depth in (100, 900, 20000):
                array = velmar.int8(size=[1] * depth + [2])
                found[depth] = [
                    outcome_of(lambda: type(operator.methodcaller("clone")(array)) is velmar.int8),
                    outcome_of(lambda: type(copy.copy(array)) is velmar.int8),
                    outcome_of(lambda: len(list(array)) == 1),
                    outcome_of(lambda: array == array),
                    outcome_of(lambda: not array != array),
                ]
            report(found)
        """)
        assert outcome.reported["100"] == ["True"] * 5
        for answers in outcome.reported.values():
            assert set(answers) <= {"True", "RecursionError"}
        assert outcome.error_lines == []


class TestOutput:
    def test_nothing_is_printed(self, capfd):
        array = velmar.double([1, math.nan])
        assert array != velmar.double([[1], [2]])
        with raises(*STORAGE_GONE):
            expired_row() == array  # noqa: B015 - it must raise
        assert capfd.readouterr() == ("", "")


class TestReferences:
    @counts_blocks
    @rows(
        "action",
        [
            ("equal", lambda a: a == velmar.double([[1000.5, 2000.5], [3000.5, 4000.5]])),
            ("last_differs", lambda a: a == velmar.double([[1000.5, 2000.5], [3000.5, 7.5]])),
            ("shorter", lambda a: a == a[:1]),
            ("longer", lambda a: a[:1] == a),
            ("number_against_row", lambda a: a[0] == a),
            ("row_against_number", lambda a: a == a[0]),
            ("class", lambda a: a == velmar.single([1000.5])),
            ("other", lambda a: a != 1000.5),
            ("order", lambda a: must_fail(NotImplementedError, operator.lt, a, a)),
            ("storage_gone", lambda a: must_fail(RuntimeError, operator.eq, a, expired_row())),
            ("complex", lambda a: a == velmar.double([1000.5, 1j], is_complex=True)),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        array = velmar.double([[1000.5, 2000.5], [3000.5, 4000.5]])
        assert blocks_per_call(lambda: action(array)) < 0.05

    def test_operands_gain_no_reference(self):
        a, b = velmar.double([[1, 2], [3, 4]]), velmar.double([[1, 2], [3, 4]])
        before = sys.getrefcount(a), sys.getrefcount(b)
        for _ in range(10):
            assert a == b
        after = sys.getrefcount(a), sys.getrefcount(b)
        assert after == before


class TestMoreSubscriptsThanDimensions:
    """After a reshape to fewer dimensions a view can have more subscripts than there are."""

    @staticmethod
    def view():
        array = velmar.double(size=(2, 2, 2, 2))
        row = array[0][1][1]
        array.reshape(4, 4)
        return row, array

    def test_such_views_are_equal(self):
        row, array = self.view()
        other, another = self.view()
        assert array == another
        assert (row == other, row != other) == (True, False)

    def test_other_arrays_differ(self):
        row, array = self.view()
        empty = velmar.double(size=(2, 0))
        assert [row == array, array == row, row == empty, empty == row] == [False] * 4
