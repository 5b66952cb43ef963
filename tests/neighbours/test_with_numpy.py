"""The example with NumPy: every class in both directions, and memory in other layouts."""

import numpy as np
import pytest
import velmar
import with_numpy
from helpers.cases import each, rows
from samples import FLOATS, INTEGERS, ROWS, nested
from with_numpy import from_numpy, from_parts, parts, to_numpy


class TestOut:
    @each(ROWS)
    def test_every_class(self, row):
        a = row.cls(nested(row))
        n = to_numpy(a)
        assert (n.dtype, n.shape, n.tolist()) == (row.dtype, (2, 3), nested(row))
        assert (n.ctypes.data, n.flags.writeable) == (a.buffer_info()[0], False)
        assert n.flags.f_contiguous

    @each(FLOATS)
    def test_complex(self, row):
        a = row.cls([[1 + 2j, -3j], [4, 5]], is_complex=True)
        n = to_numpy(a)
        assert n.dtype == {"double": "complex128", "single": "complex64"}[row.word]
        assert n.tolist() == [[1 + 2j, -3j], [4, 5]]

    def test_a_later_write_shows(self):
        a = velmar.double([[1, 2]])
        n = to_numpy(a)
        a[0][1] = 7
        assert n.tolist() == [[1, 7]]


def numbers():
    return np.arange(24.0).reshape(4, 6)


LAYOUTS = [
    ("rows", lambda: numbers()),
    ("columns", lambda: np.asfortranarray(numbers())),
    ("transposed", lambda: numbers().T),
    ("gaps", lambda: numbers()[::2, 1::3]),
    ("backwards", lambda: numbers()[::-1, ::-1]),
    ("swapped", lambda: numbers().astype(">f8")),
    ("swapped_with_gaps", lambda: numbers().astype(">f8")[:, ::2]),
    ("three_dimensions", lambda: np.arange(24.0).reshape(2, 3, 4)),
    ("axes_moved", lambda: np.arange(24.0).reshape(2, 3, 4).transpose(0, 2, 1)),
    ("broadcast", lambda: np.broadcast_to(np.arange(3.0), (2, 3))),
    ("empty", lambda: np.empty((3, 0))),
    ("read_only", lambda: np.frombuffer(bytes(48)).reshape(2, 3)),
]


class TestIn:
    @each(ROWS)
    def test_every_class(self, row):
        a = from_numpy(np.array(nested(row), row.dtype))
        assert type(a) is row.cls
        assert a.size == (2, 3)
        assert to_numpy(a).tolist() == nested(row)

    @rows("make", LAYOUTS)
    def test_layouts(self, make):
        n = make()
        a = from_numpy(n)
        assert a.size == n.shape
        assert to_numpy(a).tolist() == n.tolist()

    @pytest.mark.parametrize("dtype, cls", [("c16", velmar.double), ("c8", velmar.single)])
    @pytest.mark.parametrize("order", ["<", ">"])
    def test_complex(self, dtype, cls, order):
        n = np.array([[1 + 2j, 0], [3, -4j]], order + dtype)
        a = from_numpy(n)
        assert (type(a), a._is_complex) == (cls, True)
        assert to_numpy(a).tolist() == n.tolist()

    @pytest.mark.parametrize("n", [np.array(3.0), np.float64(3)[...], np.array([3.0])], ids=repr)
    def test_few_dimensions(self, n):
        assert from_numpy(n) == velmar.double([[3]])

    def test_a_copy(self):
        n = numbers()
        a = from_numpy(n)
        n[0, 0] = -1
        assert a[0][0] == 0.0

    @pytest.mark.parametrize(
        "dtype, text",
        [("f2", "float16"), ("O", "object"), ("U3", "<U3"), ("M8[s]", "datetime64[s]")],
    )
    def test_refused(self, dtype, text):
        with pytest.raises(TypeError) as caught:
            from_numpy(np.zeros(2, dtype))
        assert str(caught.value) == f"no class holds elements of type {text}"


def two_parts(row):
    real = np.array([[row.low, row.high, 1], [0, row.high - 1, 2]], row.dtype)
    return real, real[::-1, ::-1].copy()


class TestComplexIntegers:
    @each(INTEGERS)
    def test_both_ways_to_the_bit(self, row):
        real, imag = two_parts(row)
        a = from_parts(real, imag)
        assert (type(a), a._is_complex, a.size) == (row.cls, True, (2, 3))
        got_real, got_imag = parts(a)
        assert got_real.dtype == got_imag.dtype == row.dtype
        assert (got_real.tolist(), got_imag.tolist()) == (real.tolist(), imag.tolist())
        assert a[0][2] == complex(real[0, 2], imag[0, 2])

    def test_parts_are_the_memory(self):
        a = velmar.int16([[1 + 2j, 3]], is_complex=True)
        real, imag = parts(a)
        assert real.ctypes.data == a.buffer_info()[0] == imag.ctypes.data - 2
        a[0][1] = 8 - 9j
        assert (real.tolist(), imag.tolist()) == ([[1, 8]], [[2, -9]])
        assert not real.flags.writeable

    @each(FLOATS)
    def test_floats_have_parts_too(self, row):
        real, imag = parts(row.cls([[1 + 2j, 3 - 4j]], is_complex=True))
        assert (real.tolist(), imag.tolist()) == ([[1, 3]], [[2, -4]])

    def test_a_view(self):
        a = velmar.int8([[1 + 2j, 3], [4, 5j]], is_complex=True)
        real, imag = parts(a[1])
        assert (real.tolist(), imag.tolist()) == ([[4, 0]], [[0, 5]])

    @pytest.mark.parametrize("shape", [(0, 3), (3, 0), (2, 3, 4)], ids=str)
    def test_shapes(self, shape):
        real = np.arange(np.prod(shape), dtype="int32").reshape(shape)
        a = from_parts(real, -real)
        assert a.size == shape
        assert [part.tolist() for part in parts(a)] == [real.tolist(), (-real).tolist()]

    def test_one_dimension(self):
        one = np.array([1, 2], "int8")
        assert from_parts(one, one) == velmar.int8([[1 + 1j, 2 + 2j]], is_complex=True)

    @pytest.mark.parametrize("imag", [np.zeros((1, 2), "int16"), np.zeros((2, 1), "int8")])
    def test_parts_that_differ(self, imag):
        with pytest.raises(TypeError) as caught:
            from_parts(np.zeros((1, 2), "int8"), imag)
        assert str(caught.value) == "the parts differ in type or shape"


def test_program(capsys):
    with_numpy.main()
    printed = capsys.readouterr().out
    assert "n.ctypes.data == temperatures.buffer_info()[0] = True" in printed
    assert "years = velmar.double([[21.44,25.78]])" in printed
    assert "waves[0][:3] = [(126-221j),(36-195j),(182-263j)]" in printed
