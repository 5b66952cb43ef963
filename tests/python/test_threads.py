"""Threads that share arrays, with a switch between threads as often as the interpreter can."""

from __future__ import annotations

import sys
import threading

import pytest
import velmar
from helpers.arrays import contents

ROUNDS = 300


@pytest.fixture(autouse=True)
def fixture_frequent_switches():
    before = sys.getswitchinterval()
    sys.setswitchinterval(1e-6)
    yield
    sys.setswitchinterval(before)


def run_all(*actions):
    """Run each action in rounds, in a thread of its own; return what they raised."""
    raised = []
    start = threading.Barrier(len(actions))

    def rounds(action):
        start.wait()
        try:
            for k in range(ROUNDS):
                action(k)
        except BaseException as error:
            raised.append(error)

    threads = [threading.Thread(target=rounds, args=(action,)) for action in actions]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return raised


class Slowly:
    """A sequence whose items are computed in Python, so that threads switch while it is read."""

    def __init__(self, values):
        self.values = values

    def __len__(self):
        return len(self.values)

    def __getitem__(self, index):
        return self.values[index]


def test_each_thread_writes_its_own_row():
    array = velmar.int32(size=(4, 50))

    def writer(row):
        def write(k):
            values = [row * ROUNDS + k] * 50
            array[row] = Slowly(values) if k % 2 else values
            assert list(array[row]) == values

        return write

    assert run_all(*map(writer, range(4))) == []
    assert contents(array) == [[row * ROUNDS + ROUNDS - 1] * 50 for row in range(4)]


def test_a_row_is_read_whole_while_another_thread_writes_it():
    """The values of an assignment are read first, and stored without a switch in between."""
    array = velmar.int32(size=(2, 50))

    def write(k):
        array[0] = Slowly([k] * 50)

    def read(k):
        assert len(set(velmar.int32(array[0].clone())[0])) == 1
        assert len(set(memoryview(array[0].clone()).tolist()[0])) == 1

    assert run_all(write, read, read) == []


def test_reshapes_beside_reads():
    array = velmar.double([[1, 2, 3], [4, 5, 6]])
    texts = {"[[1.0,2.0,3.0],[4.0,5.0,6.0]]", "[[1.0,5.0],[4.0,3.0],[2.0,6.0]]"}

    def reshape(k):
        array.reshape(*((3, 2), (2, 3))[k % 2])

    def text(k):
        assert str(array) in texts

    def copies(k):
        assert sorted(array.noncomplex()) == [1, 2, 3, 4, 5, 6]
        assert velmar.double(array).size in ((2, 3), (3, 2))
        memoryview(array).release()

    assert run_all(reshape, text, copies) == []


def test_storage_that_goes_away_beside_its_rows():
    holder = [velmar.double([[1, 2], [3, 4]])]

    def replace(k):
        holder[0] = velmar.double([[1, 2], [3, 4]])

    def read(k):
        row = next(iter(holder[0]))
        try:
            assert list(row) == [1.0, 2.0]
        except RuntimeError as error:
            assert str(error) in ("locked shared pointer is null.", "too many indices.")

    assert run_all(replace, read, read) == []
