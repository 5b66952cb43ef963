"""asarray() of objects of NumPy and through NumPy, and asnumpy()."""

from __future__ import annotations

import math

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, exact, grid
from helpers.cases import each, rows
from helpers.failures import STORAGE_GONE, raises
from helpers.outside_buffers import DTYPES, values_of
from helpers.view_states import WITHOUT_STORAGE
from hypothesis import given
from hypothesis import strategies as st

numpy = pytest.importorskip("numpy")

CODES = {row.word: numpy.dtype(DTYPES[row.word]) for row in CLASS_ROWS}
FORMS = [(row.cls, CODES[row.word]) for row in CLASS_ROWS]
FORMS += [(velmar.double, numpy.dtype("c16")), (velmar.single, numpy.dtype("c8"))]
each_dtype = pytest.mark.parametrize("cls, dtype", FORMS, ids=[str(dtype) for _, dtype in FORMS])


def sample(dtype, shape):
    count = math.prod(shape)
    numbers = numpy.arange(count) % 3 - (0 if dtype.kind in "bu" else 1)
    elements = numbers.astype(dtype)
    if dtype.kind == "c":
        elements += 2j * (numbers + 1)
    return elements.reshape(shape)


class TestArraysOfNumpy:
    @each_dtype
    @pytest.mark.parametrize("order", "<>")
    def test_orders(self, cls, dtype, order):
        x = sample(dtype, (3, 4, 2)).astype(dtype.newbyteorder(order))
        for y in (x, numpy.asfortranarray(x), x[::2, ::-1], x.transpose(1, 0, 2), x[0], x[:, 1, 0]):
            a = velmar.asarray(y)
            assert type(a) is cls
            assert a._is_complex is (dtype.kind == "c")
            assert exact(contents(a)) == exact(y.tolist() if y.ndim > 1 else [y.tolist()])

    @each(CLASS_ROWS)
    def test_limits(self, row):
        x = numpy.array(values_of(row), CODES[row.word])
        for y in (x, x.astype(x.dtype.newbyteorder(">"))):
            assert exact(contents(velmar.asarray(y))) == exact([x.tolist()])

    def test_unaligned(self):
        x = numpy.frombuffer(b"-" + numpy.arange(6.0).tobytes(), "u1")[1:].view("d").reshape(2, 3)
        assert not x.flags.aligned
        assert contents(velmar.asarray(x)) == x.tolist()

    @given(st.integers(0, 0xFFFF).map(lambda bits: numpy.uint16(bits).view("e")))
    def test_half_precision(self, half):
        (read,) = velmar.asarray(numpy.array([half]))[0]
        assert repr(read) == repr(float(half))

    @pytest.mark.parametrize("letters", ["longlong", "ulonglong", "long", "ulong", "intp"])
    def test_names_of_integers(self, letters):
        x = numpy.array([[1, 2]], letters)
        a = velmar.asarray(x)
        assert (type(a).__name__, a.itemsize) == (x.dtype.name, x.itemsize)

    @pytest.mark.parametrize("x", [numpy.float32(1.5), numpy.array(1.5, "f")])
    def test_numbers(self, x):
        assert velmar.asarray(x) == velmar.single([[1.5]])

    def test_mask_that_masks_nothing(self):
        x = numpy.ma.masked_array([1.5, 2], [False, False])
        assert velmar.asarray(x) == velmar.double([1.5, 2])


class Table:
    def __init__(self, found):
        self.found = found

    def __array__(self, dtype=None, copy=None):
        return self.found() if callable(self.found) else self.found


class Tensor:
    """Has __dlpack__ and nothing else."""

    def __init__(self, found):
        self.found = found

    def __dlpack__(self, **options):
        return self.found.__dlpack__(**options)

    def __dlpack_device__(self):
        return self.found.__dlpack_device__()


class Interface:
    def __init__(self, found):
        self.found = found
        self.__array_interface__ = found.__array_interface__


class TestThroughNumpy:
    @pytest.mark.parametrize("wrap", [Table, Tensor, Interface])
    @pytest.mark.parametrize("order", "CF")
    @each_dtype
    def test_each_way(self, wrap, order, cls, dtype):
        x = numpy.array(sample(dtype, (2, 3)), order=order)
        a = velmar.asarray(wrap(x))
        assert type(a) is cls
        assert exact(contents(a)) == exact(x.tolist())

    def test_with_class(self):
        a = velmar.asarray(Table(numpy.array([[1, 2]])), velmar.single)
        assert a == velmar.single([[1, 2]])

    def test_buffer_comes_first(self):
        class Both(bytearray):
            def __array__(self, dtype=None, copy=None):
                raise AssertionError

        assert velmar.asarray(Both(b"a")) == velmar.uint8([97])


def fails():
    raise RuntimeError("no numbers today")


TIME = "which no class can hold. Convert them first, for example with x.astype('int64') or "
TIME += "x.astype('float32')."


class TestRefused:
    @rows(
        "x, exception, message",
        [
            (
                "times",
                numpy.array(["2020-01-01"], "M8[D]"),
                TypeError,
                "asarray() cannot use 'numpy.ndarray' with elements of NumPy's type "
                f"datetime64[D], {TIME}",
            ),
            (
                "time",
                numpy.datetime64("2020-01-01"),
                TypeError,
                "asarray() cannot use 'numpy.datetime64' with elements of NumPy's type "
                f"datetime64[D], {TIME}",
            ),
            (
                "table of times",
                Table(numpy.array([3], "m8[s]")),
                TypeError,
                "asarray() cannot use 'test_asarray_numpy.Table' with elements of NumPy's type "
                f"timedelta64[s], {TIME}",
            ),
            (
                "masked",
                numpy.ma.masked_array([1, 2], [False, True]),
                ValueError,
                f"asarray() would lose the mask of '{numpy.ma.MaskedArray.__module__}.MaskedArray'."
                " Pass x.filled(value) instead.",
            ),
            (
                "table of objects",
                Table(numpy.array([None, 1])),
                TypeError,
                "asarray() cannot use 'test_asarray_numpy.Table' with elements of format 'O', which"
                " no class can hold. They are Python objects: pass numpy.asarray(x).tolist() and "
                "'cls'.",
            ),
            (
                "long double",
                numpy.array([1], "longdouble"),
                TypeError,
                "asarray() cannot use 'numpy.ndarray' with elements of format 'g', which no class "
                "can hold. Round them first: numpy.asarray(x).astype('float64'), or 'complex128' "
                "if they are complex.",
            ),
            (
                "failing",
                Table(fails),
                TypeError,
                "asarray() cannot use 'test_asarray_numpy.Table', because numpy.asarray() failed: "
                "no numbers today",
            ),
        ],
    )
    def test_rows(self, x, exception, message):
        with raises(exception, message):
            velmar.asarray(x)

    @pytest.mark.parametrize("letters", ["g", "G"])
    def test_remedy_of_long_double(self, letters):
        x = numpy.array([1.5], letters)
        target = "complex128" if letters == "G" else "float64"
        assert contents(velmar.asarray(numpy.asarray(x).astype(target))) == [[1.5]]

    def test_remedies(self):
        x = numpy.array([(1, 2.5)], [("name", "i4"), ("other", "f8")])
        assert contents(velmar.asarray(x["other"])) == [[2.5]]
        objects = Table(numpy.array([1, 2], "O"))
        assert contents(velmar.asarray(numpy.asarray(objects).tolist(), velmar.int8)) == [[1, 2]]
        assert contents(velmar.asarray(numpy.ma.masked_array([1], [True]).filled(7))) == [[7]]
        assert contents(velmar.asarray(numpy.array([3], "m8[s]").astype("int64"))) == [[3]]


class TestAsnumpy:
    @each_dtype
    def test_whole_array(self, cls, dtype):
        x = sample(dtype, (2, 3, 4))
        a = velmar.asarray(x)
        shown = velmar.asnumpy(a)
        assert shown.dtype == dtype and shown.shape == (2, 3, 4)
        assert shown.tolist() == x.tolist()
        assert shown.ctypes.data == a.buffer_info()[0]
        assert not shown.flags.writeable and shown.flags.f_contiguous

    @each_dtype
    def test_views(self, cls, dtype):
        x = sample(dtype, (3, 4, 2))
        a = velmar.asarray(x)
        for chain in ([0], [1, 2], [slice(None, None, -1)], [slice(1, 2)], [2, slice(3)], [0, 3]):
            view, expected = a, x
            for subscript in chain:
                view, expected = view[subscript], expected[subscript]
            shown = velmar.asnumpy(view)
            assert (shown.dtype, shown.shape) == (dtype, view.size) == (dtype, expected.shape)
            assert exact(shown.tolist()) == exact(expected.tolist())
            assert not shown.flags.writeable

    def test_row_has_one_dimension(self):
        a = velmar.double([[1, 2, 3]])
        assert velmar.asnumpy(a[0]).shape == (3,)
        assert velmar.asnumpy(a[0][1:]).shape == (2,)
        assert velmar.asnumpy(velmar.double([1, 2]).reshape([2])).shape == (2,)

    def test_later_writes_show_in_a_whole_array(self):
        a = velmar.double([[1, 2], [3, 4]])
        shown = velmar.asnumpy(a)
        a[0][0] = 9
        assert shown[0, 0] == 9

    @pytest.mark.parametrize("view", [lambda a: a[1], lambda a: a[::-1], lambda a: a[:]])
    def test_shows_a_view_as_it_is_now(self, view):
        a = velmar.double([[1, 2], [3, 4]])
        v = view(a)
        memoryview(v)  # keeps a snapshot
        v.clone()
        a[1][0] = 30
        assert 30 in velmar.asnumpy(v)
        a[1][0] = 31
        assert 31 in velmar.asnumpy(v)

    def test_keeps_the_array_alive(self):
        shown = velmar.asnumpy(velmar.double(grid(30, 40)))
        assert shown.tolist() == grid(30, 40)

    @pytest.mark.parametrize("size", [(0, 0), (0, 3), (2, 0, 3)])
    @each_dtype
    def test_without_elements(self, size, cls, dtype):
        a = cls(size=size, is_complex=dtype.kind == "c")
        shown = velmar.asnumpy(a)
        assert (shown.shape, shown.dtype) == (size, dtype)
        assert not shown.flags.writeable
        assert velmar.asnumpy(velmar.double(size=(2, 0))[1]).shape == (0,)

    @each_dtype
    def test_there_and_back(self, cls, dtype):
        a = velmar.asarray(sample(dtype, (3, 2)))
        b = velmar.asarray(velmar.asnumpy(a))
        assert a == b and a is not b

    @pytest.mark.parametrize("x, name", [([1], "list"), (velmar.double, "type"), (b"", "bytes")])
    def test_not_an_array(self, x, name):
        with raises(TypeError, f"asnumpy() must be passed an array, not '{name}'."):
            velmar.asnumpy(x)

    @each([row for row in CLASS_ROWS if row.kind in ("signed", "unsigned")])
    def test_complex_integers(self, row):
        a = row.cls([1, 2j], is_complex=True)
        with raises(
            TypeError,
            f"asnumpy() cannot show complex {row.word} elements, because NumPy has no complex "
            "integers. Pass velmar.asarray(a, velmar.double).",
        ):
            velmar.asnumpy(a)
        assert velmar.asnumpy(velmar.asarray(a, velmar.double)).tolist() == [[1, 2j]]

    @rows("make", [row for row in WITHOUT_STORAGE if row[0] != "complex_row"])
    def test_without_storage(self, make):
        with raises(*STORAGE_GONE):
            velmar.asnumpy(make())

    def test_view_that_a_reshape_left_outside(self):
        a = velmar.int8([[1, 2], [3, 4]])
        row = a[1]
        a.reshape(1, 4)
        with raises(RuntimeError, "null data pointer."):
            velmar.asnumpy(row)
