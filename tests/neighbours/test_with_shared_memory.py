"""The example with shared memory: every class in a block, whole and by columns."""

import multiprocessing
from contextlib import contextmanager
from multiprocessing.shared_memory import SharedMemory

import numpy as np
import pytest
import velmar
import with_shared_memory
from helpers.cases import each
from samples import INTEGERS, ROWS, nested, state
from with_numpy import from_parts
from with_shared_memory import largest, put, take


@contextmanager
def shared(a):
    block, description = put(a)
    try:
        yield description
    finally:
        block.close()
        block.unlink()


@each(ROWS)
def test_every_class(row):
    a = row.cls(nested(row))
    with shared(a) as description:
        assert state(take(*description)) == state(a)


@each(INTEGERS)
def test_complex_integers(row):
    a = from_parts(np.array([[row.low, 1]], row.dtype), np.array([[2, row.high]], row.dtype))
    with shared(a) as description:
        assert state(take(*description)) == state(a)


@pytest.mark.parametrize("size", [(0, 0), (0, 3), (3, 0), (2, 3, 4), (1, 1)], ids=str)
def test_shapes(size):
    a = velmar.int32(vector=range(int(np.prod(size))), size=size)
    with shared(a) as description:
        assert state(take(*description)) == state(a)


def test_some_columns():
    a = velmar.double([[1, 2, 3, 4], [5, 6, 7, 8]])
    with shared(a) as description:
        assert take(*description, columns=(1, 3)) == velmar.double([[2, 3], [6, 7]])
        assert take(*description, columns=(3, 4)) == velmar.double([[4], [8]])
        assert take(*description, columns=(2, 2)).size == (2, 0)


def test_a_view():
    a = velmar.double([[1, 2], [3, 4], [5, 6]])
    with shared(a[::-1]) as description:
        assert take(*description) == velmar.double([[5, 6], [3, 4], [1, 2]])


def test_what_is_taken_is_a_copy():
    with shared(velmar.double([[1, 2]])) as description:
        taken = take(*description)
        taken[0][0] = 9
        assert take(*description) == velmar.double([[1, 2]])


def test_another_process():
    pool = multiprocessing.get_context("spawn").Pool(1)
    with shared(velmar.double([[1, 20], [3, 2]])) as description:
        assert pool.apply(largest, (description, (0, 2))) == [3.0, 20.0]
        pool.close()
        pool.join()


def test_nothing_is_left():
    with shared(velmar.double([[1, 2]])) as description:
        pass
    with pytest.raises(FileNotFoundError):
        SharedMemory(description[0])


def test_program(capsys):
    with_shared_memory.main()
    printed = capsys.readouterr().out
    assert "take(*description) == measures = True" in printed
    assert "largest body_mass_g: 6300.0" in printed
