"""Data that contains itself, raises, lies about its length or changes while it is walked."""

from __future__ import annotations

from collections import UserDict

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents
from helpers.cases import each, each_form
from helpers.failures import (
    IS_NONE,
    NESTED_VECTOR,
    NOT_RECTANGULAR,
    NULL_POINTER,
    UNEVEN,
    WRONG_TYPE,
    raises,
)
from helpers.hostile_sequences import (
    Answers,
    BadLength,
    Boom,
    ItemDict,
    ReversedList,
    ReversedTuple,
    Scripted,
    SequenceFloat,
    SequenceInt,
    Unsized,
    then,
)
from velmarmultidimarrayforpython import ShapeError


def vector_item(index):
    return RuntimeError, f"item {index} could not be retrieved."


def size_item(index):
    text = "could not be retrieved from the value associated with the 'size' keyword."
    return RuntimeError, f"Item {index} {text}"


def raises_itself(error, call):
    """The call raises the same exception object as the sequence."""
    with pytest.raises(type(error)) as caught:
        call()
    assert caught.value is error


class TestRecursion:
    @staticmethod
    def refuse(data):
        with pytest.raises(RecursionError) as caught:
            velmar.double(data)
        assert caught.type is RecursionError

    def test_a_list_that_contains_itself(self):
        loop = []
        loop.append(loop)
        self.refuse(loop)

    def test_a_list_that_contains_itself_twice(self):
        loop = []
        loop += [loop, loop]
        self.refuse(loop)

    def test_lists_that_contain_each_other(self):
        first, second = [], []
        first.append(second)
        second.append(first)
        self.refuse(first)

    def test_a_tuple_that_contains_itself(self):
        loop = ([],)
        loop[0].append(loop)
        self.refuse(loop)

    def test_a_sequence_that_is_its_own_item(self):
        loop = Scripted([None])
        loop.items[0] = Answers(lambda: loop)
        self.refuse(loop)

    @each_form
    def test_nesting_deeper_than_any_limit(self, row, is_complex):
        deep = 1
        for _ in range(100_000):
            deep = [deep]
        with pytest.raises(RecursionError):
            row.cls(deep, is_complex=is_complex)

    def test_construction_works_afterwards(self):
        loop = []
        loop.append(loop)
        for _ in range(50):
            self.refuse(loop)
        assert contents(velmar.double([[1, 2]])) == [[1.0, 2.0]]

    def test_a_vector_is_not_followed(self):
        loop = []
        loop.append(loop)
        with raises(*NESTED_VECTOR):
            velmar.double(vector=loop)

    def test_very_many_dimensions(self):
        made = velmar.double(size=(1,) * 100_000 + (2,))
        assert len(made) == 1
        for text in (str, repr):
            with pytest.raises(RecursionError):
                text(made)


class TestWhatASequenceIsAsked:
    def test_scalars(self):
        data = Scripted([1, 2, 3])
        assert contents(velmar.int8(data)) == [[1, 2, 3]]
        assert data.log == ["len", 0, 1, 2, 0, 1, 2]

    def test_one_scalar(self):
        data = Scripted([1])
        assert contents(velmar.int8(data)) == [[1]]
        assert data.log == ["len", 0]

    def test_none(self):
        data = Scripted([])
        assert contents(velmar.int8(data)) == []
        assert data.log == ["len"]

    def test_lengths_of_all_items_are_read_first(self):
        first, second = Scripted([1, 2]), Scripted([3, 4])
        outer = Scripted([first, second])
        assert contents(velmar.int8(outer)) == [[1, 2], [3, 4]]
        assert outer.log == ["len", 0, 1, 0, 1]
        assert first.log == second.log == ["len", "len", 0, 1, 0, 1]

    def test_length_of_a_single_item_is_not_read_first(self):
        child = Scripted([1, 2])
        assert contents(velmar.int8([child])) == [[1, 2]]
        assert child.log == ["len", 0, 1, 0, 1]

    def test_the_first_disagreement_ends_it(self):
        child, last = Scripted([1]), Scripted([1])
        data = Scripted([1, child, last])
        with raises(*UNEVEN):
            velmar.int8(data)
        assert data.log == ["len", 0, 1]
        assert child.log == last.log == []

    def test_vector(self):
        data = Scripted([1, 2, 3])
        assert contents(velmar.int8(vector=data)) == [[1, 2, 3]]
        assert data.log == ["len", 0, 1, 2]

    def test_vector_stops_at_the_first_fault(self):
        data = Scripted([1, None, 3])
        with raises(ValueError, IS_NONE[1]):
            velmar.int8(vector=data)
        assert data.log == ["len", 0, 1]

    def test_vector_of_a_wrong_count(self):
        data = Scripted([1, 2, 3])
        with pytest.raises(ShapeError):
            velmar.int8(vector=data, size=(2, 2))
        assert data.log == ["len"]

    def test_nothing_is_read_before_other_refusals(self):
        data = Scripted([1])
        for call in (
            lambda: velmar.int8(data, size=5),
            lambda: velmar.int8(data, is_complex=1),
            lambda: velmar.int8(data, vector=data),
        ):
            with pytest.raises(TypeError):
                call()
        assert data.log == []


class TestLengthRaises:
    """The exception of __len__ is passed on unchanged, wherever the length is read."""

    PLACES = {
        "initializer": lambda bad: velmar.double(bad),
        "only item": lambda bad: velmar.double([bad]),
        "first item": lambda bad: velmar.double([bad, [1]]),
        "first item, then a scalar": lambda bad: velmar.double([bad, 1]),
        "last item": lambda bad: velmar.double([[1], bad]),
        "both items": lambda bad: velmar.double([bad, bad]),
        "deep": lambda bad: velmar.double([[[1]], [bad]]),
        "complex": lambda bad: velmar.double(bad, is_complex=True),
        "with size": lambda bad: velmar.double(bad, (2, 2)),
        "vector": lambda bad: velmar.double(vector=bad),
        "vector with size": lambda bad: velmar.double(vector=bad, size=(2, 2)),
        "vector without elements": lambda bad: velmar.double(vector=bad, size=(0, 2)),
        "size": lambda bad: velmar.double(size=bad),
        "size of data": lambda bad: velmar.double([1], bad),
    }

    @pytest.mark.parametrize("build", PLACES.values(), ids=PLACES.keys())
    def test_own_exception(self, build):
        for error in (Boom("length"), ValueError("length"), MemoryError("length")):
            bad = Scripted([1, 2], lengths=[error])
            raises_itself(error, lambda bad=bad: build(bad))
            assert bad.log == ["len"]

    @pytest.mark.parametrize("build", PLACES.values(), ids=PLACES.keys())
    def test_the_interpreters_own_exceptions(self, build):
        for bad, exception in (
            (Unsized(), TypeError),
            (BadLength(-1), ValueError),
            (BadLength(2**70), OverflowError),
            (BadLength("2"), TypeError),
        ):
            with pytest.raises(exception) as expected:
                len(bad)
            with raises(exception, str(expected.value)):
                build(bad)

    @each(CLASS_ROWS)
    def test_all_classes(self, row):
        error = Boom("length")
        raises_itself(error, lambda: row.cls(Scripted([1], lengths=[error])))
        raises_itself(error, lambda: row.cls(vector=Scripted([1], lengths=[error])))
        raises_itself(error, lambda: row.cls(size=Scripted([1], lengths=[error])))

    def test_a_scalar_first_means_that_no_length_is_asked_for(self):
        with raises(*UNEVEN):
            velmar.double([1, Scripted([1], lengths=[Boom("length")])])

    def test_only_the_second_length_raises(self):
        error = Boom("second length")
        data = [Scripted([1, 2], lengths=[2, error]), [3, 4]]
        raises_itself(error, lambda: velmar.double(data))


class TestLengthWithoutRoomForItsList:
    """The arguments that name dimensions are kept as a list of numbers."""

    PLACES = {
        "size": lambda bad: velmar.double(size=bad),
        "size of data": lambda bad: velmar.double([1], bad),
        "size of a vector": lambda bad: velmar.double(vector=[1], size=bad),
        "reshape": lambda bad: velmar.double([1]).reshape(bad),
    }

    @pytest.mark.parametrize("call", PLACES.values(), ids=PLACES.keys())
    def test_no_item_is_asked_for(self, call):
        bad = Scripted([1], lengths=[2**62])
        with raises(MemoryError, ""):
            call(bad)
        assert bad.log.count("len") == len(bad.log)
        with raises(MemoryError, ""):
            call(range(1, 2**62))

    def test_long_lists_that_there_is_room_for(self):
        assert velmar.double(size=[1] * 10**6).size == (1, 1)
        assert velmar.double([1]).reshape([1] * 10**6).size == (1, 1)
        text = "unable to allocate memory for array with number of elements = "
        with raises(MemoryError, f"{text}{2**64 - 1}; type = double"):
            velmar.double(size=range(1, 100))


class TestItemRaises:
    """An item that raises gives the message of the route, whatever the exception was."""

    ROWS = {
        "only item": (lambda: Scripted([Boom("item")]), NULL_POINTER),
        "first item": (lambda: Scripted([Boom("item"), 2]), NULL_POINTER),
        "last item": (lambda: Scripted([1, 2, Boom("item")]), NULL_POINTER),
        "IndexError": (lambda: Scripted([1, IndexError("item")]), NULL_POINTER),
        "MemoryError": (lambda: Scripted([MemoryError("item")]), NULL_POINTER),
        "inside": (lambda: [Scripted([1, Boom("item")]), [3, 4]], NULL_POINTER),
        "inside, only item": (lambda: [[1], Scripted([Boom("item")])], NULL_POINTER),
        "the second time": (lambda: Scripted([1, Answers(2, Boom("item"))]), NULL_POINTER),
        "dict with other keys": (lambda: UserDict(a=1), NULL_POINTER),
        "behind a fault": (lambda: Scripted([None, Answers(2, Boom("item"))]), IS_NONE),
        "behind an uneven one": (lambda: Scripted([1, [2], Boom("item")]), UNEVEN),
    }

    @pytest.mark.parametrize("make, error", ROWS.values(), ids=ROWS.keys())
    def test_initializer(self, make, error):
        with raises(*error):
            velmar.double(make())

    @each_form
    def test_all_classes(self, row, is_complex):
        with raises(*NULL_POINTER):
            row.cls(Scripted([Boom("item")]), is_complex=is_complex)
        with raises(*vector_item(0)):
            row.cls(vector=Scripted([Boom("item")]), is_complex=is_complex)

    @pytest.mark.parametrize("index", [0, 1, 2])
    def test_vector(self, index):
        items = [1, 2, 3]
        items[index] = Boom("item")
        with raises(*vector_item(index)):
            velmar.double(vector=Scripted(items))

    @pytest.mark.parametrize("index", [0, 1, 2])
    def test_size(self, index):
        items = [1, 2, 3]
        items[index] = Boom("item")
        with raises(*size_item(index)):
            velmar.double(size=Scripted(items))

    def test_size_item_by_item(self):
        with raises(TypeError, "dimensions must be nonnegative integers."):
            velmar.double(size=Scripted([None, Boom("item")]))


class TestLengthLies:
    ROWS = {
        "too long": (lambda: Scripted([1, 2], lengths=[3]), NULL_POINTER),
        "too long by far": (lambda: Scripted([1, 2], lengths=[2**62]), NULL_POINTER),
        "too long, inside": (lambda: [Scripted([1, 2], lengths=[3]), [1, 2, 3]], NULL_POINTER),
        "grows": (lambda: [Scripted([1, 2, 3], lengths=[2, 3]), [4, 5]], NOT_RECTANGULAR),
        "grows, last": (lambda: [[4, 5], Scripted([1, 2, 3], lengths=[2, 3])], NOT_RECTANGULAR),
        "shrinks": (lambda: [Scripted([1, 2], lengths=[2, 1]), [4, 5]], NOT_RECTANGULAR),
        "shrinks, last": (lambda: [[4, 5], Scripted([1, 2], lengths=[2, 1])], NOT_RECTANGULAR),
        "empties": (lambda: [Scripted([1, 2], lengths=[2, 0]), [4, 5]], NOT_RECTANGULAR),
        "empties, last": (lambda: [[4, 5], Scripted([1, 2], lengths=[2, 0])], NOT_RECTANGULAR),
        "agrees too late": (lambda: [Scripted([1, 2], lengths=[1, 2]), [4, 5]], UNEVEN),
    }

    @pytest.mark.parametrize("make, error", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, make, error):
        with raises(*error):
            velmar.double(make())

    def test_too_short(self):
        assert contents(velmar.int8(Scripted([1, 2, 3], lengths=[2]))) == [[1, 2]]
        assert contents(velmar.int8(Scripted([1, 2, 3], lengths=[0]))) == []
        assert contents(velmar.int8(vector=Scripted([1, 2, 3], lengths=[2]))) == [[1, 2]]

    def test_all_rows_grow_to_the_same_length(self):
        data = [Scripted([1, 2, 3], lengths=[2, 3]) for _ in range(2)]
        assert contents(velmar.int8(data)) == [[1, 2, 3], [1, 2, 3]]

    def test_far_more_items_than_the_first_length(self):
        data = [Scripted([1, 2]), Scripted([3] * 5000, lengths=[2, 5000])]
        with raises(*NOT_RECTANGULAR):
            velmar.int8(data)
        data = [Scripted([3] * 5000, lengths=[2, 5000]) for _ in range(2)]
        assert contents(velmar.int8(data)) == [[3] * 5000] * 2

    def test_vector_too_long(self):
        with raises(*vector_item(2)):
            velmar.int8(vector=Scripted([1, 2], lengths=[3]))

    def test_size_too_long(self):
        with raises(*size_item(2)):
            velmar.int8(size=Scripted([1, 2], lengths=[3]))


class TestChangesUnderTheWalk:
    def test_items_of_the_second_pass_count(self):
        assert contents(velmar.int8(Scripted([Answers(1, 3), Answers(2, 4)]))) == [[3, 4]]
        data = Scripted([Answers(1, [3]), Answers(2, [4])])
        assert contents(velmar.int8(data)) == [[3], [4]]
        with raises(*NOT_RECTANGULAR):
            velmar.int8(Scripted([Answers(1, [3]), Answers(2, 4)]))
        with raises(ValueError, "value passed to initializer must be numeric."):
            velmar.int8(Scripted([1, Answers(2, "2")]))
        with raises(*WRONG_TYPE):
            velmar.int8(Scripted([1, Answers(2, object())]))

    def test_a_list_cleared_by_the_length_of_its_only_item(self):
        outer = []
        outer.append(Scripted([7], lengths=[then(outer.clear, 1)]))
        assert contents(velmar.int8(outer)) == [[7]]
        assert outer == []

    def test_a_list_cleared_by_the_length_of_an_item(self):
        outer = []
        outer += [Scripted([7], lengths=[then(outer.clear, 1)]), [8]]
        with raises(*NULL_POINTER):
            velmar.int8(outer)

    def test_a_list_cleared_by_an_item_of_its_item(self):
        outer = []
        outer += [Scripted([then(outer.clear, 7)]), [8]]
        with raises(*NULL_POINTER):
            velmar.int8(outer)

    def test_a_list_cleared_by_its_last_item(self):
        outer = []
        outer += [[8], Scripted([then(outer.clear, 7)])]
        assert contents(velmar.int8(outer)) == [[8], [7]]

    def test_a_list_that_grows(self):
        outer = []
        outer += [Scripted([then(lambda: outer.append([9]), 7)]), [8]]
        assert contents(velmar.int8(outer)) == [[7], [8]]
        assert len(outer) == 3

    REPLACED = {
        "equal": ([9], None),
        "number": (9, NOT_RECTANGULAR),
        "longer": ([9, 9], NOT_RECTANGULAR),
        "empty": ([], NOT_RECTANGULAR),
        "deeper": ([[9]], NOT_RECTANGULAR),
        "text": ("a", (ValueError, "value passed to initializer must be numeric.")),
        "None": (None, IS_NONE),
    }

    @pytest.mark.parametrize("late, error", REPLACED.values(), ids=REPLACED.keys())
    def test_an_item_replaced_by_the_one_before_it(self, late, error):
        outer = [None, [8]]
        outer[0] = Scripted([then(lambda: outer.__setitem__(1, late), 7)])
        if error is None:
            assert contents(velmar.int8(outer)) == [[7], [9]]
            return
        with raises(*error):
            velmar.int8(outer)

    def test_an_inner_list_cleared_by_the_list_beside_it(self):
        inner = [1, 2]
        with raises(*NOT_RECTANGULAR):
            velmar.int8([Scripted([then(inner.clear, 7), 8]), inner])

    def test_an_inner_list_cleared_by_its_own_item(self):
        inner = []
        inner += [Scripted([then(inner.clear, 7)]), [8]]
        with raises(*NULL_POINTER):
            velmar.int8([inner])

    def test_a_vector_that_empties_itself(self):
        items = Scripted([then(lambda: items.items.clear(), 7), 8])
        with raises(*vector_item(1)):
            velmar.int8(vector=items)

    def test_a_size_that_empties_itself(self):
        size = Scripted([then(lambda: size.items.clear(), 1), 2])
        with raises(*size_item(1)):
            velmar.int8(size=size)


class TestTypesThatMislead:
    def test_a_number_with_items_is_walked(self):
        assert contents(velmar.int8(SequenceInt(3))) == [[5, 6]]
        assert contents(velmar.double(SequenceFloat(3))) == [[5.0, 6.0]]
        assert contents(velmar.int8([SequenceInt(3), [1, 2]])) == [[5, 6], [1, 2]]
        assert contents(velmar.int8(vector=SequenceInt(3))) == [[5, 6]]
        assert contents(velmar.int8(size=SequenceInt(3))) == [[0] * 6] * 5
        with raises(*NESTED_VECTOR):
            velmar.int8(vector=[SequenceInt(3)])
        with raises(*UNEVEN):
            velmar.int8([1, SequenceInt(3)])

    def test_a_number_with_items_is_a_dimension_all_the_same(self):
        assert contents(velmar.int8(size=(SequenceInt(2), 1))) == [[0], [0]]

    @pytest.mark.parametrize("base", [ReversedList, ReversedTuple])
    def test_a_subclass_is_read_through_its_own_methods(self, base):
        data = base([1, 2, 3])
        assert contents(velmar.int8(data)) == [[3, 2]]
        assert contents(velmar.int8([data, data])) == [[3, 2], [3, 2]]
        assert contents(velmar.int8([data, [1, 2]])) == [[3, 2], [1, 2]]
        assert contents(velmar.int8(vector=data)) == [[3, 2]]
        assert contents(velmar.int8(size=data)) == [[0, 0]] * 3
        with raises(*UNEVEN):
            velmar.int8([data, [1, 2, 3]])

    def test_a_dict_is_no_sequence_whatever_it_defines(self):
        with raises(*WRONG_TYPE):
            velmar.int8([ItemDict()])
        with raises(ValueError, "value of 'vector' must be a sequence."):
            velmar.int8(vector=ItemDict())
        with raises(TypeError, "value of 'size' must be a sequence."):
            velmar.int8(size=ItemDict())
