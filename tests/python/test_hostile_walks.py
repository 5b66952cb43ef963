"""Random operations with hostile objects. `torture/walks.py` runs many more of them."""

from __future__ import annotations

import random
import sys

import pytest
import velmar
from helpers.arrays import contents
from helpers.cases import IS_BRIEF
from helpers.hostile_objects import HostileExporter
from helpers.hostile_walk import Walk, disagreement


@pytest.fixture(name="walk")
def fixture_walk(monkeypatch, request):
    monkeypatch.setattr(sys, "unraisablehook", lambda _: None)  # finalizers raise on purpose
    walk = Walk(random.Random(request.node.name))
    yield walk
    walk.harm.acts.clear()  # so that what is freed later does no harm


class Lying:
    """As an array with two rows, whose length is another one."""

    size = (2, 3)

    def __len__(self):
        return 3

    def buffer_info(self):
        return 0, 6


class TestWalk:
    @pytest.mark.filterwarnings("ignore")
    @pytest.mark.parametrize("number", range(2 if IS_BRIEF else 6))
    def test_nothing_is_found(self, walk, number):
        assert walk.run(300) is None
        assert walk.done == 300
        assert walk.harm.done > 0

    def test_an_error_that_the_interpreter_reports_is_found(self, walk):
        def fail():
            raise SystemError("returned NULL without setting an exception")

        walk.steps = [fail]
        assert walk.run(5) == "fail: SystemError: returned NULL without setting an exception"
        assert walk.done == 1

    def test_an_exporter_hides_a_required_error_of_an_act(self, walk):
        array = velmar.double([[1, 2, 3]])
        walk.harm.acts = [lambda: array[2**70]]  # its error stays pending beside its result
        exporter = walk.harm.given_to(HostileExporter(bytes(8), b"d", 8))
        for _ in range(20):
            assert contents(velmar.double(exporter)) == [[0.0]]
        assert walk.harm.done > 0

    @pytest.mark.parametrize(
        "size, is_kept",
        [((2, 3), True), ((0, 2**31), True), ((4096, 0), True), ((2, 2049, 0), False)],
    )
    def test_arrays_with_endless_rows_are_not_kept(self, walk, size, is_kept):
        assert (walk.keep(velmar.int8(size=size)) in walk.arrays) == is_kept

    def test_a_disagreement_is_found(self, walk):
        lying = Lying()
        walk.arrays.append(lying)
        walk.steps = [lambda: None]
        assert walk.run(20) == f"{lying}: length 3, size (2, 3), items 3"
        assert walk.done == 10

    def test_an_array_agrees_with_itself(self, walk):
        assert disagreement(walk.array()) is None
