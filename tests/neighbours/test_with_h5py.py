"""The example with h5py: every class written and read, whole and by rows."""

import h5py
import numpy as np
import pytest
import velmar
import with_h5py
from helpers.cases import each
from samples import FLOATS, INTEGERS, ROWS, nested
from with_h5py import read, write
from with_numpy import from_parts


@pytest.fixture
def file(tmp_path):
    with h5py.File(tmp_path / "file.h5", "w") as opened:
        yield opened


@each(ROWS)
def test_every_class(file, row):
    a = row.cls(nested(row))
    stored = write(file, "a", a)
    assert (stored.dtype, stored.shape) == (row.dtype, (2, 3))
    got = read(file, "a")
    assert (type(got), got._is_complex) == (row.cls, False)
    assert np.asarray(got).tolist() == nested(row)


@each(FLOATS)
def test_complex(file, row):
    a = row.cls([[1 + 2j, 3], [0, -4j]], is_complex=True)
    write(file, "a", a)
    got = read(file, "a")
    assert (type(got), got._is_complex, got == a) == (row.cls, True, True)


@each(INTEGERS)
def test_complex_integers(file, row):
    a = from_parts(np.array([[row.low, 1]], row.dtype), np.array([[2, row.high]], row.dtype))
    write(file, "a", a)
    got = read(file, "a")
    assert (type(got), got._is_complex) == (row.cls, True)
    assert memoryview(got).tobytes("A") == memoryview(a).tobytes("A")


@pytest.mark.parametrize("size", [(0, 3), (3, 0), (2, 3, 4), (1, 1), (2, 1, 2, 2)], ids=str)
def test_shapes(file, size):
    a = velmar.int32(vector=range(int(np.prod(size))), size=size)
    write(file, "a", a)
    got = read(file, "a")
    assert got.size == size
    assert got == a


def test_rows(file):
    write(file, "a", velmar.double([[1, 2], [3, 4], [5, 6], [7, 8]]))
    assert read(file, "a", slice(1, 3)) == velmar.double([[3, 4], [5, 6]])
    assert read(file, "a", slice(0, 4, 2)) == velmar.double([[1, 2], [5, 6]])


def test_a_view(file):
    write(file, "a", velmar.double([[1, 2], [3, 4]])[::-1])
    assert read(file, "a") == velmar.double([[3, 4], [1, 2]])


def test_rows_of_complex_integers(file):
    write(file, "a", velmar.int8([[1 + 2j], [3 - 4j]], is_complex=True))
    assert read(file, "a", slice(1, 2)) == velmar.int8([[3 - 4j]], is_complex=True)


def test_on_disk_row_by_row(tmp_path):
    with h5py.File(tmp_path / "file.h5", "w") as opened:
        offset = write(opened, "a", velmar.int16([[1, 2, 3], [4, 5, 6]])).id.get_offset()
    stored = np.frombuffer((tmp_path / "file.h5").read_bytes(), "int16", 6, offset)
    assert stored.tolist() == [1, 2, 3, 4, 5, 6]


def test_program(capsys):
    with_h5py.main()
    printed = capsys.readouterr().out
    assert "read(file, 'temperatures') == temperatures = True" in printed
    assert "read(file, 'wave') = velmar.int16([[(-5+12j),(3-1j)]], is_complex=True)" in printed
