"""Writes through every slice of every slice of short dimensions, against the model."""

from __future__ import annotations

import functools
import itertools

import pytest
import velmar
from helpers.arrays import subscripted
from helpers.cases import short_lengths, slices, some_of
from helpers.failures import NO_ROOM, OUTSIDE_STORAGE, PAST_SLICE, WRONG_COUNT
from helpers.slice_model import composed, item_of, text_of
from helpers.write_model import Storage, Target, attempt, increment


@functools.cache
def different_slices(length):
    """One slice for each run of positions of the dimension."""
    return list({item_of(each, length): each for each in slices(length)}.values())


@functools.cache
def chains(length):
    """One chain of at most two slices for each form that a view of the dimension can store."""
    found = {None: []}
    for first in slices(length):
        found.setdefault(item_of(first, length), [first])
    for item, chain in list(found.items())[1:]:
        for second in slices(item.length):
            found.setdefault(composed(item, second), [*chain, second])
    return list(found.values())


class Pair:
    """An array of floats and its model: both get the same writes and are compared as a whole."""

    def __init__(self, *shape):
        self.storage = Storage(shape)
        contents = self.storage.contents()
        self.array = velmar.double(contents) if contents else velmar.double(size=shape)
        self.model = Target(self.storage)
        self.counter = 1000
        self.refusals = {}
        self.shown = None  # the elements of `text`

    def fresh(self, count):
        """This many numbers that are not in the array."""
        self.counter += count
        return [float(self.counter - i) for i in range(count)]

    def at(self, *chain):
        """The view at the end of the chain and the model of it."""
        return subscripted(self.array, chain), subscripted(self.model, chain)

    def expected(self):
        """The text of the whole model, which is made anew only after a change."""
        if self.storage.elements != self.shown:
            self.shown = self.storage.elements.copy()
            self.text = text_of(self.storage.contents())
        return self.text

    def check(self, views, chain, subscript, value):
        """The same outcome, and the same elements in the whole array."""
        view, model = views
        want = attempt(model, subscript, value)
        assert attempt(view, subscript, value) == want, (chain, subscript, value)
        assert str(self.array) == self.expected(), (chain, subscript, value)
        self.refusals[want] = self.refusals.get(want, 0) + 1


def counts_near(right):
    """The right number of elements and those around it."""
    return sorted({count for count in (0, 1, right - 1, right, right + 1) if count >= 0})


class TestLastDimension:
    """A slice of the last dimension counts in the storage, not in the view."""

    @short_lengths
    def test_every_slice_of_every_view(self, length):
        pair = Pair(1, length)
        for chain in chains(length):
            views = pair.at(0, *chain)
            for subscript in different_slices(length):
                right = item_of(subscript, length).length
                for count in counts_near(right):
                    pair.check(views, chain, subscript, pair.fresh(count))

    @short_lengths
    def test_every_spelling_of_a_slice(self, length):
        pair = Pair(1, length)
        for chain in ([], [slice(1, None)], [slice(None, None, -2)], [slice(0, 0)]):
            views = pair.at(0, *chain)
            for subscript in slices(length):
                right = item_of(subscript, length).length
                for count in (right, right + 1):
                    pair.check(views, chain, subscript, pair.fresh(count))

    @short_lengths
    def test_every_number_of_every_view(self, length):
        pair = Pair(1, length)
        for chain in chains(length):
            views = pair.at(0, *chain)
            for index in range(-length - 2, length + 2):
                pair.check(views, chain, index, pair.fresh(1)[0])

    @short_lengths
    def test_scalars_and_nested_lists(self, length):
        pair = Pair(1, length)
        for chain in chains(length)[::7]:
            views = pair.at(0, *chain)
            for subscript in different_slices(length):
                for value in (7.0, [[7.0]], [pair.fresh(length)], [[]]):
                    pair.check(views, chain, subscript, value)


class TestEarlierDimension:
    """A slice of an earlier dimension composes with the slice of the view."""

    @staticmethod
    def counts(subscript, length, row):
        """Counts of elements: every number of whole rows, and those around the right count."""
        right = item_of(subscript, length).length * row
        return sorted({*range(0, (length + 1) * row + 1, row), *counts_near(right)})

    @short_lengths
    def test_every_slice_of_every_view(self, length):
        pair = Pair(length, 2)
        for chain in chains(length):
            views = pair.at(*chain)
            for subscript in different_slices(length):
                for count in self.counts(subscript, length, 2):
                    pair.check(views, chain, subscript, pair.fresh(count))
        if length == 4:  # all refusals occur, also of runs that leave the view
            for failure in (NO_ROOM, OUTSIDE_STORAGE, WRONG_COUNT):
                assert pair.refusals[failure] > 100
            assert pair.refusals[None] > 1000

    @short_lengths
    def test_every_spelling_of_a_slice(self, length):
        pair = Pair(length, 2)
        for chain in ([], [slice(1, None)], [slice(None, None, -2)], [slice(0, 0)]):
            views = pair.at(*chain)
            for subscript in slices(length):
                right = item_of(subscript, length).length * 2
                for count in (right, right + 1):
                    pair.check(views, chain, subscript, pair.fresh(count))

    @short_lengths
    def test_every_row_of_every_view(self, length):
        pair = Pair(length, 2)
        for chain in chains(length):
            views = pair.at(*chain)
            for index in range(-length - 2, length + 2):
                for count in (1, 2, 3):
                    pair.check(views, chain, index, pair.fresh(count))
                pair.check(views, chain, index, 7.0)
        if length == 4:
            assert pair.refusals[PAST_SLICE] > 100

    def test_any_nesting_of_the_right_count(self):
        pair = Pair(4, 2)
        for chain in chains(4)[::5]:
            views = pair.at(*chain)
            for subscript in different_slices(4):
                numbers = pair.fresh(item_of(subscript, 4).length * 2)
                halves = [numbers[i : i + 2] for i in range(0, len(numbers), 2)]
                for value in ([numbers], halves, [halves], [[each] for each in numbers], 7.0):
                    pair.check(views, chain, subscript, value)

    @pytest.mark.parametrize("plane", [0, 1])
    def test_middle_dimension(self, plane):
        pair = Pair(2, 3, 2)
        for chain in chains(3):
            views = pair.at(plane, *chain)
            for subscript in different_slices(3):
                right = item_of(subscript, 3).length * 2
                for count in sorted({right - 2, right - 1, right, right + 1, right + 2, 6}):
                    pair.check(views, chain, subscript, pair.fresh(max(count, 0)))

    def test_first_of_three_dimensions(self):
        pair = Pair(3, 2, 2)
        for chain in chains(3):
            views = pair.at(*chain)
            for subscript in different_slices(3):
                right = item_of(subscript, 3).length * 4
                for count in (right - 1, right, right + 1):
                    pair.check(views, chain, subscript, pair.fresh(max(count, 0)))


class TestTriples:
    """Three slices one after the other; the third is assigned to."""

    ENDS = (None, 1, -1)
    SELECTION = [slice(*parts) for parts in itertools.product(ENDS, ENDS, (None, -1, 2))]

    @short_lengths
    @pytest.mark.parametrize("is_last", [True, False], ids=["last", "earlier"])
    def test_all(self, length, is_last):
        width = 1 if is_last else 2
        pair = Pair(1, length) if is_last else Pair(length, width)
        start = [0] if is_last else []
        for first, second in itertools.product(self.SELECTION, self.SELECTION):
            views = pair.at(*start, first, second)
            for third in some_of(self.SELECTION, 4):
                right = item_of(third, length).length * width
                pair.check(views, (first, second), third, pair.fresh(right))

    HUGE = [slice(None, None, step) for step in (2**62, -(2**62), 2**70, -(2**70), 2**63 - 1)]

    @pytest.mark.parametrize("is_last", [True, False], ids=["last", "earlier"])
    def test_huge_steps(self, is_last):
        pair = Pair(1, 3) if is_last else Pair(3, 2)
        start = [0] if is_last else []
        some = [slice(None), slice(None, None, -1), slice(1, None), *self.HUGE]
        for first, second in itertools.product(some, some):
            views = pair.at(*start, first, second)
            for third in some:
                for count in (0, 1, 2, 3, 6):
                    pair.check(views, (first, second), third, pair.fresh(count))


class TestModel:
    """The walk of the model, against a table."""

    @pytest.mark.parametrize(
        "ranges, positions",
        [
            ([(0, 2, 1), (0, 3, 1)], [(0, 0), (0, 1), (0, 2), (1, 0), (1, 1), (1, 2)]),
            ([(1, 2, 0), (0, 3, 1)], [(1, 0), (1, 1), (1, 2)]),
            ([(4, -1, -1)], [(4,), (3,), (2,), (1,), (0,)]),
            ([(4, -2, -2)], [(4,), (2,), (0,)]),
            ([(2, -1, -1), (0, 2, 1)], [(2, 0), (2, 1), (1, 0), (1, 1), (0, 0), (0, 1)]),
            ([(0, 0, 1), (0, 2, 1)], [(0, 0), (0, 1)]),
        ],
    )
    def test_walk(self, ranges, positions):
        position = [start for start, _, _ in ranges]
        walked = [tuple(position)]
        while increment(position, ranges):
            walked.append(tuple(position))
        assert walked == positions
        assert tuple(position) == positions[-1]
