"""Reads through three slices in a row, in any dimension, against the model and lists."""

import itertools

import pytest
import velmar
from helpers.arrays import grid
from helpers.cases import slices_for_triples, some_of
from helpers.slice_model import ViewModel, text_of


def triples(length):
    """Three slices in a row; each of the first two comes from one half of the selection."""
    some = slices_for_triples(length)
    yield from itertools.product(some[::2], some[1::2], some_of(some, 5))


def array_of(*shape):
    return velmar.double(grid(*shape)) if 0 not in shape else velmar.double(size=shape)


class TestTriples:
    @pytest.mark.parametrize("length", [0, 1, 2, 3, 4])
    def test_first_of_two_dimensions(self, length):
        array, model, rows = array_of(length, 2), ViewModel(grid(length, 2)), grid(length, 2)
        for chain in triples(length):
            first, second, third = chain
            view, want = array[first][second][third], rows[first][second][third]
            assert model[first][second][third].contents() == want, chain
            assert len(view) == len(want), chain
            assert str(view) == text_of(want), chain

    @pytest.mark.parametrize("plane", [0, -1])
    def test_middle_of_three_dimensions(self, plane):
        array, rows = array_of(2, 3, 2), grid(2, 3, 2)
        for chain in triples(3):
            first, second, third = chain
            view, want = array[plane][first][second][third], rows[plane][first][second][third]
            assert str(view) == text_of(want), chain
            for i in range(-len(want), len(want)):
                assert view[i][1] == want[i][1], (chain, i)

    def test_number_behind_the_triple(self):
        array, numbers = array_of(2, 4)[1], grid(2, 4)[1]
        for chain in triples(4):
            first, second, third = chain
            view, want = array[first][second][third], numbers[first][second][third]
            assert len(view) == len(want), chain
            for i in range(-len(want), len(want)):
                assert view[i] == want[i], (chain, i)
            for i in (len(want), -len(want) - 1):
                with pytest.raises(IndexError):
                    view[i]
