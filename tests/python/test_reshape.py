"""`reshape`: its arguments, its refusals and their order, and the views that change."""

from __future__ import annotations

import gc
import math

import hypothesis.strategies as st
import pytest
import velmar
from helpers.arrays import contents, exact, six
from helpers.cases import each_form, rows
from helpers.failures import (
    NOT_DIMENSIONS,
    NOT_INITIALIZED,
    PARTIAL_ARRAY,
    different_count,
    raises,
    unreadable_length,
)
from helpers.hostile_sequences import (
    BadLength,
    Boom,
    ItemDict,
    Scripted,
    SequenceInt,
    Unsized,
    then,
)
from helpers.nesting_model import in_storage_order
from helpers.scalar_values import LyingInt, Side, WithIndex
from helpers.view_states import WITHOUT_STORAGE, bare_record
from hypothesis import given

KEYWORDS = "reshape() does not accept keyword arguments."


class TestShapes:
    @rows(
        "shape, size",
        [
            ("two", (3, 2), (3, 2)),
            ("same", (2, 3), (2, 3)),
            ("row", (1, 6), (1, 6)),
            ("column", (6, 1), (6, 1)),
            ("one_dimension", [6], (6,)),
            ("three", (1, 2, 3), (1, 2, 3)),
            ("ones_in_front", (1, 1, 1, 6), (1, 1, 1, 6)),
            ("ones_inside", (2, 1, 1, 3), (2, 1, 1, 3)),
            ("one_behind", (2, 3, 1), (2, 3)),
            ("ones_behind", (2, 3, 1, 1), (2, 3)),
            ("ones_behind_a_single_dimension", (6, 1, 1), (6, 1)),
            ("ones_on_both_sides", (1, 6, 1, 1), (1, 6)),
            ("many", [1] * 60 + [6] + [1] * 60, (*[1] * 60, 6)),
        ],
    )
    def test_elements_stay_in_storage_order(self, shape, size):
        array = six()
        assert array.reshape(shape) is array
        assert array.size == size
        assert exact(contents(array)) == exact(
            in_storage_order(size, [1.0, 2.0, 3.0, 4.0, 5.0, 6.0])
        )
        assert list(array.noncomplex()) == [1, 2, 3, 4, 5, 6]

    def test_text(self):
        array = six()
        assert str(array) == "[[1.0,3.0,5.0],[2.0,4.0,6.0]]"
        assert str(array.reshape(3, 2)) == "[[1.0,4.0],[2.0,5.0],[3.0,6.0]]"
        assert repr(array) == "velmar.double([[1.0,4.0],[2.0,5.0],[3.0,6.0]])"

    @pytest.mark.parametrize("shape", [(1,), [1], (1, 1), (1, 1, 1), (1,) * 40], ids=len)
    def test_one_element(self, shape):
        array = velmar.int8(7)
        if len(shape) == 1:
            assert array.reshape([1]).size == (1,)
            assert contents(array) == [7]
        else:
            assert array.reshape(*shape).size == (1, 1)
            assert contents(array) == [[7]]

    @pytest.mark.parametrize(
        "shape", [(0, 5), (5, 0), (0, 0), (2, 0, 4), (0, 1), (0, 1, 1)], ids=str
    )
    def test_no_elements(self, shape):
        for before in ((0, 0), (0, 5), (5, 0), (3, 0, 2)):
            array = velmar.double(size=before)
            kept = shape[:2] if shape[-2:] == (1, 1) else shape
            assert array.reshape(shape).size == kept
            assert contents(array) == in_storage_order(kept, [])

    def test_no_elements_in_one_dimension(self):
        array = velmar.double()
        assert array.reshape([0]).size == (0,)
        assert str(array) == "[]"
        assert array.reshape(0, 5).reshape(5, 0).size == (5, 0)

    @each_form
    def test_all_classes(self, row, is_complex):
        flat = [1, 0, 0, 1, 1, 0, 1, 1, 0, 0, 0, 1]
        array = row.cls(vector=flat, size=(3, 4), is_complex=is_complex)
        elements = list((array.real() if is_complex else array.noncomplex())._data)
        for shape in ((2, 6), (2, 3, 2), (12, 1), (4, 3)):
            array.reshape(shape)
            fresh = row.cls(vector=flat, size=shape, is_complex=is_complex)
            assert array == fresh
            assert repr(array) == repr(fresh)
            assert exact(list(array._real if is_complex else array._data)) == exact(elements)
        assert array._is_complex is is_complex

    @given(st.lists(st.permutations([1, 2, 2, 3, 5]), min_size=1, max_size=6), st.data())
    def test_one_after_the_other(self, factors, data):
        numbers = list(range(60))
        array = velmar.int16(vector=numbers, size=(60, 1))
        for lengths in factors:
            cut = data.draw(st.integers(0, 5))
            shape = [math.prod(lengths[:cut]), *lengths[cut:]]
            array.reshape(shape)
            assert contents(array) == in_storage_order(array.size, numbers)
            assert math.prod(array.size) == 60


class TestOneDimension:
    def test_reads_as_numbers(self):
        array = six().reshape([6])
        assert (len(array), array.size, str(array)) == (6, (6,), "[1.0,2.0,3.0,4.0,5.0,6.0]")
        assert exact([array[0], array[-1], *array[4:1:-2]]) == exact([1.0, 6.0, 5.0, 3.0])
        assert list(array) == [1, 2, 3, 4, 5, 6]
        assert 4 in array
        assert array.get_bytewise_strides() == (8,)
        with raises(IndexError, "index has an invalid value: 6"):
            array[6]

    def test_is_written_as_numbers(self):
        array = six().reshape([6])
        array[0] = 9
        array[3:5] = [7, 8]
        assert list(array) == [9, 2, 3, 7, 8, 6]
        assert contents(array.reshape(2, 3)) == [[9, 3, 8], [2, 7, 6]]

    def test_equals_a_row_and_no_array_of_two_dimensions(self):
        array = six().reshape([6])
        assert array == six().noncomplex()
        assert array != velmar.double([[1, 2, 3, 4, 5, 6]])

    def test_exports_copies_and_pickles(self):
        array = six().reshape([6])
        assert memoryview(array).shape == (6,)
        assert memoryview(array).tolist() == [1, 2, 3, 4, 5, 6]
        assert array.toarray().tolist() == [1, 2, 3, 4, 5, 6]
        assert array.clone().size == (1, 6)
        assert array.__reduce__() == (velmar.double, ({}, [1, 2, 3, 4, 5, 6]))
        assert velmar.double(memoryview(array)).size == (1, 6)

    def test_reshape_to_two_dimensions(self):
        assert contents(six().reshape([6]).reshape(2, 3)) == [[1, 3, 5], [2, 4, 6]]


class TestArguments:
    @rows(
        "arguments",
        [
            ("numbers", (3, 2)),
            ("tuple", ((3, 2),)),
            ("list", ([3, 2],)),
            ("range", (range(3, 1, -1),)),
            ("bytes", (b"\x03\x02",)),
            ("row_of_integers", (velmar.uint8([3, 2])[0],)),
            ("script", (Scripted([3, 2]),)),
            ("int_subclasses", (LyingInt(3), LyingInt(2))),
            ("enumeration", ([Side.THREE, Side.TWO],)),
            ("array_of_one_dimension", (velmar.int64([3, 2]).reshape([2]),)),
            ("sequence_that_is_an_int", (SequenceInt(3), 2)),
        ],
    )
    def test_accepted(self, arguments):
        assert six().reshape(*arguments).size == (3, 2)

    def test_bools_are_1_and_0(self):
        assert six().reshape(True, 6).size == (1, 6)
        assert six().reshape(velmar.logical([True])[0][0], 6).size == (1, 6)
        assert velmar.double().reshape(False, 7).size == (0, 7)

    def test_an_int_with_items_alone_is_a_sequence(self):
        with raises(*different_count(30, 6)):
            six().reshape(SequenceInt(6))  # read as a sequence with the items 5 and 6

    REFUSED = [
        ("nothing", ()),
        ("none", (None,)),
        ("number", (6,)),
        ("zero", (0,)),
        ("float", (6.0,)),
        ("empty_tuple", ((),)),
        ("empty_list", ([],)),
        ("empty_text", ("",)),
        ("empty_array", (velmar.double(),)),
        ("text", ("23",)),
        ("set", ({2, 3},)),
        ("dict", ({0: 2, 1: 3},)),
        ("dict_with_items", (ItemDict(),)),
        ("generator", (iter([2, 3]),)),
        ("nested", ([[2, 3]],)),
        ("two_sequences", ((2,), (3,))),
        ("whole_array", (velmar.uint8([2, 3]),)),
        ("row_of_doubles", (velmar.double([2, 3])[0],)),
        ("float_first", (2.0, 3)),
        ("float_last", (2, 3.0)),
        ("none_inside", (2, None)),
        ("index_alone", (2, WithIndex())),
        ("complex", (2 + 0j, 3)),
        ("negative", (-2, -3)),
        ("negative_last", (6, -1)),
        ("negative_subclass", (LyingInt(-6), 1)),
        ("lowest", (-(2**63), 1)),
        ("too_large", (2**63, 1)),
        ("far_too_large", (6, 10**400)),
        ("unsized", (Unsized(),)),
        ("length_raises", (Scripted([2, 3], [Boom()]),)),
        ("length_is_negative", (BadLength(-1),)),
        ("length_is_no_number", (BadLength("x"),)),
        ("length_is_too_large", (BadLength(2**70),)),
    ]

    @rows("arguments", REFUSED)
    def test_refused(self, arguments):
        array = six()
        with raises(*NOT_DIMENSIONS):
            array.reshape(*arguments)
        assert array.size == (2, 3)
        assert str(array) == "[[1.0,3.0,5.0],[2.0,4.0,6.0]]"

    @each_form
    def test_refused_by_all_classes(self, row, is_complex):
        array = row.cls([[0, 1, 1], [1, 0, 0]], is_complex=is_complex)
        with raises(*NOT_DIMENSIONS):
            array.reshape(6)
        with raises(*different_count(8, 6)):
            array.reshape(2, 4)
        with raises(ValueError, KEYWORDS):
            array.reshape(3, 2, order="F")
        with raises(*PARTIAL_ARRAY):
            array[0].reshape(3, 1)
        with raises(*unreadable_length(0)):
            array.reshape(Scripted([Boom()]))
        assert array.size == (2, 3)

    @pytest.mark.parametrize("index", range(3))
    @pytest.mark.parametrize("error", [Boom(), IndexError(), KeyboardInterrupt()], ids=repr)
    def test_an_item_that_cannot_be_had(self, index, error):
        items: list = [1, 2, 3]
        items[index] = error
        with raises(*unreadable_length(index)):
            six().reshape(Scripted(items))

    def test_a_length_that_is_too_long(self):
        with raises(*unreadable_length(2)):
            six().reshape(Scripted([2, 3], [3]))

    def test_a_length_that_is_too_short(self):
        assert six().reshape(Scripted([3, 2, 9], [2])).size == (3, 2)

    def test_items_are_read_from_the_first_to_the_first_bad_one(self):
        script = Scripted([3, "x", Boom()])
        with raises(*NOT_DIMENSIONS):
            six().reshape(script)
        assert [entry for entry in script.log if entry != "len"] == [0, 1]

    def test_sequences_of_one_item_are_the_sequence_themselves(self):
        with raises(*NOT_DIMENSIONS):
            six().reshape([(2, 3)])
        assert six().reshape((6,)).size == (6,)

    @rows("arguments", [("none", ()), ("wrong", (2, 2)), ("right", (3, 2)), ("text", ("x",))])
    def test_by_way_of_the_class(self, arguments):
        with raises(*NOT_INITIALIZED):
            velmar.double.reshape(bare_record(velmar.double), *arguments)
        if arguments == (3, 2):
            assert velmar.double.reshape(six(), *arguments).size == (3, 2)


class TestCount:
    @rows(
        "shape, product",
        [
            ("fewer", (2, 2), 4),
            ("more", (2, 4), 8),
            ("none", (0, 6), 0),
            ("one", (1, 1, 1), 1),
            ("one_dimension", [7], 7),
            ("wraps_to_the_count", (9, 6148914691236517206), 6),
            ("wraps_to_the_count_from_far", (2**63 - 1, 2**63 - 1, 6), 6),
            ("wraps_to_none", (2**32, 2**32), 0),
            ("wraps_to_the_lowest", (2**62, 2), -(2**63)),
            ("wraps_below_none", (2**62, 3), 3 * 2**62 - 2**64),
            ("largest", [2**63 - 1], 2**63 - 1),
            ("trailing_ones_count", (2, 2, 1, 1), 4),
        ],
    )
    def test_another_count(self, shape, product):
        array = six()
        with raises(*different_count(product, 6)):
            array.reshape(shape)
        assert array.size == (2, 3)

    def test_of_an_empty_array(self):
        array = velmar.double(size=(0, 3))
        for shape, product in (((1, 1), 1), ((2**32, 2**32), 0), ((2**62, 4), 0)):
            with raises(*different_count(product, 0)):
                array.reshape(shape)
        assert array.size == (0, 3)

    def test_a_zero_makes_every_other_length_affordable(self):
        array = velmar.int8()
        assert array.reshape(2**62, 2**62, 0).size == (2**62, 2**62, 0)
        assert array.reshape(0, 2**63 - 1).size == (0, 2**63 - 1)
        assert len(array) == 0


class TestOrderOfChecks:
    def test_partial_before_the_arguments(self):
        for arguments, options in (((), {}), (("x",), {"a": 1}), ((2.0,), {}), ((1, 3), {})):
            with raises(*PARTIAL_ARRAY):
                six()[0].reshape(*arguments, **options)

    def test_arguments_before_the_count(self):
        with raises(*NOT_DIMENSIONS):
            six().reshape(5, -1)
        with raises(*unreadable_length(1)):
            six().reshape(Scripted([5, Boom()]))

    def test_keywords_last(self):
        with raises(ValueError, KEYWORDS):
            six().reshape(2, 3, order="F")
        with raises(*different_count(4, 6)):
            six().reshape(2, 2, order="F")
        with raises(*NOT_DIMENSIONS):
            six().reshape(order="F")
        with raises(*NOT_DIMENSIONS):
            six().reshape(shape=(2, 3))
        with raises(ValueError, KEYWORDS):
            six().reshape((3, 2), shape=(3, 2))

    @rows("make", WITHOUT_STORAGE)
    def test_partial_before_the_storage(self, make):
        with raises(*PARTIAL_ARRAY):
            make().reshape(1, 3)


class TestMeanwhile:
    """Reading the dimensions can run any code."""

    def test_the_array_gets_another_shape(self):
        array = six()
        shape = Scripted(
            [then(lambda: array.reshape(6, 1), 3), then(lambda: array.reshape([6]), 2)]
        )
        assert array.reshape(shape).size == (3, 2)
        assert contents(array) == [[1, 4], [2, 5], [3, 6]]

    def test_a_refusal_leaves_what_was_done_meanwhile(self):
        array = six()
        with raises(*different_count(4, 6)):
            array.reshape(Scripted([then(lambda: array.reshape(6, 1), 2), 2]))
        assert array.size == (6, 1)

    def test_the_array_is_written_exported_and_cloned(self):
        array = six()
        held = []

        def use():
            held.extend((memoryview(array), array.clone(), array[0], iter(array)))
            array[1] = [7, 8, 9]

        array.reshape(Scripted([then(use, 3), 2]))
        assert contents(array) == [[1, 8], [7, 5], [3, 9]]
        assert held[0].tolist() == [[1, 3, 5], [7, 8, 9]]
        assert contents(held[1]) == [[1, 3, 5], [2, 4, 6]]

    def test_the_last_reference_goes(self):
        names = {"array": six()}
        drop = then(lambda: (names.clear(), gc.collect()), 2)
        assert names["array"].reshape(Scripted([3, drop])).size == (3, 2)
