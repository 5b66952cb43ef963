"""Every slice of every slice of short dimensions, against the model and against ranges."""

import itertools

import pytest
import velmar
from helpers.arrays import grid, line
from helpers.cases import short_lengths, slices, slices_for_triples
from helpers.slice_model import EMPTY, SliceItem, ViewModel, composed, item_of, text_of

STEPS = (None, 1, 2, 3, -1, -2, -3)


def all_slices(length, reach=1):
    """Slices with the same meaning but different steps are all included."""
    return slices(length, reach, STEPS)


def few_slices(length):
    """A small selection: bounds at both ends, inside and outside, and both directions."""
    ends = sorted({-length - 1, -1, 1, length}) + [None]
    return [slice(*parts) for parts in itertools.product(ends, ends, (None, 2, -1, -2))]


def check(view, item, chain):
    """Length, text and every element of a one-dimensional view over 0.0, 1.0, 2.0, ..."""
    want = [float(position) for position in item.positions()]
    assert len(view) == item.length == len(want), chain
    assert [view[i] for i in range(len(view))] == want, chain
    assert [view[i - len(want)] for i in range(len(view))] == want, chain
    assert str(view) == text_of(want), chain


class TestModel:
    """The model: its stored forms against a table, its positions against ranges."""

    @pytest.mark.parametrize(
        "length, subscript, expected",
        [
            (5, slice(None, None, -1), SliceItem(4, -1, -1, 5)),
            (5, slice(None, None, -2), SliceItem(4, -1, -2, 3)),
            (5, slice(1, 3), SliceItem(1, 3, 1, 2)),
            (5, slice(-2, None), SliceItem(3, 5, 1, 2)),
            (5, slice(3, 3), EMPTY),
            (5, slice(4, 2), EMPTY),
            (5, slice(10, 20), EMPTY),
            (5, slice(2, 4, -1), EMPTY),
            (0, slice(None), EMPTY),
            (3, slice(None, None, 2**70), SliceItem(0, 3, 2**63 - 1, 1)),
        ],
    )
    def test_items(self, length, subscript, expected):
        assert item_of(subscript, length) == expected

    @pytest.mark.parametrize(
        "parent, child, expected",
        [
            (slice(1, 10, 2), slice(1, 4), SliceItem(3, 9, 2, 3)),
            (slice(None, None, -1), slice(1, 3), SliceItem(8, 6, -1, 2)),
            (slice(1, 10, 2), slice(None, None, -1), SliceItem(9, -1, -2, 5)),
            (slice(None, None, -2), slice(None, None, -1), SliceItem(1, 11, 2, 5)),
            (slice(2, 4), slice(5, 7), SliceItem(2, 2, 1, 0)),
            (slice(0, 4, 2), slice(1, 2), SliceItem(2, 4, 2, 1)),
            (slice(3, 3), slice(None), EMPTY),
            (slice(8, None, -2), slice(1, None), SliceItem(6, -2, -2, 4)),
        ],
    )
    def test_compositions(self, parent, child, expected):
        assert composed(item_of(parent, 10), child) == expected

    @short_lengths
    def test_one_slice_against_range(self, length):
        for subscript in all_slices(length, 2):
            item = item_of(subscript, length)
            assert list(item.positions()) == list(range(length)[subscript]), subscript
            assert item.length == len(item.positions()), subscript

    @short_lengths
    def test_two_slices_against_range(self, length):
        for first, second in itertools.product(few_slices(length), all_slices(length)):
            item = composed(item_of(first, length), second)
            assert list(item.positions()) == list(range(length)[first][second]), (first, second)
            assert item.length == len(item.positions()), (first, second)


class TestOneDimension:
    @short_lengths
    def test_one_slice(self, length):
        array = line(length)
        for subscript in all_slices(length, 2):
            check(array[subscript], item_of(subscript, length), subscript)

    @short_lengths
    def test_slice_of_every_stored_form(self, length):
        array = line(length)
        parents = {item_of(first, length): first for first in all_slices(length)}
        for item, first in parents.items():
            parent = array[first]
            for second in all_slices(length):
                check(parent[second], composed(item, second), (first, second))

    @short_lengths
    def test_slice_of_every_stored_form_of_a_slice(self, length):
        array = line(length)
        parents = {}
        for first in few_slices(length):
            item = item_of(first, length)
            for second in all_slices(item.length):
                parents.setdefault(composed(item, second), (first, second))
        for item, (first, second) in parents.items():
            parent = array[first][second]
            for third in all_slices(item.length):
                check(parent[third], composed(item, third), (first, second, third))

    @short_lengths
    def test_triples(self, length):
        array = line(length)
        selection = slices_for_triples(length)
        for first, second in itertools.product(selection, selection):
            view = array[first][second]
            inner = composed(item_of(first, length), second)
            for third in selection:
                item, innermost = composed(inner, third), view[third]
                assert len(innermost) == item.length, (first, second, third)
                want = text_of([float(position) for position in item.positions()])
                assert str(innermost) == want, (first, second, third)


class TestSeveralDimensions:
    """Slices in each dimension of an array of three dimensions."""

    SHAPE = (3, 2, 4)

    def test_first_dimension(self):
        nested = grid(*self.SHAPE)
        array, model = velmar.double(nested), ViewModel(nested)
        for first, second in itertools.product(few_slices(3), few_slices(3)):
            view, want = array[first][second], model[first][second]
            assert len(view) == len(want), (first, second)
            assert str(view) == text_of(want.contents()), (first, second)
            for i in range(len(want)):
                assert str(view[i][-1][1:3]) == text_of(want[i][-1][1:3].contents())

    def test_last_dimension(self):
        nested = grid(*self.SHAPE)
        array, model = velmar.double(nested), ViewModel(nested)
        for i, j in itertools.product(range(3), range(2)):
            for first, second in itertools.product(few_slices(4), few_slices(4)):
                view, want = array[i][j][first][second], model[i][j][first][second]
                assert str(view) == text_of(want.contents()), (i, j, first, second)

    def test_slice_and_integer_in_every_dimension(self):
        nested = grid(*self.SHAPE)
        array, model = velmar.double(nested), ViewModel(nested)
        some = [slice(None), slice(None, None, -1), slice(1, None), slice(None, None, 2)]
        for first, second, third in itertools.product(some, some, some):
            planes, want_planes = array[first], model[first]
            for i in range(-len(want_planes), len(want_planes)):
                rows, want_rows = planes[i][second], want_planes[i][second]
                for j in range(-len(want_rows), len(want_rows)):
                    numbers, want = rows[j][third], want_rows[j][third]
                    assert str(numbers) == text_of(want.contents())
                    assert [numbers[k] for k in range(len(want))] == want.contents()
