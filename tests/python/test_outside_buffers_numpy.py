"""Arrays built from NumPy arrays: each dtype, both orders, and refusals."""

from __future__ import annotations

import itertools

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, COMPLEX_ROWS, contents, exact
from helpers.cases import each, rows
from helpers.failures import raises
from helpers.outside_buffers import DTYPES, incompatible, not_complex, values_of

numpy = pytest.importorskip("numpy")


class TestEveryClass:
    @each(CLASS_ROWS)
    @pytest.mark.parametrize("order", ["C", "F"])
    def test_two_dimensions(self, row, order):
        source = numpy.array(values_of(row), DTYPES[row.word]).reshape(2, 3)
        built = row.cls(numpy.asarray(source, order=order))
        assert built.size == (2, 3)
        assert exact(contents(built)) == exact(source.tolist())

    @each(CLASS_ROWS)
    def test_one_dimension(self, row):
        source = numpy.array(values_of(row), DTYPES[row.word])
        assert exact(contents(row.cls(source))) == exact([source.tolist()])
        assert row.cls(source, size=(3, 2)).size == (3, 2)

    @pytest.mark.parametrize("word, letters", [("double", "c16"), ("single", "c8")])
    @pytest.mark.parametrize("order", ["C", "F"])
    def test_complex(self, word, letters, order):
        source = numpy.array([[1 + 2j, -3j, 4], [0.5, 6 - 1j, 7]], letters)
        built = getattr(velmar, word)(numpy.asarray(source, order=order), is_complex=True)
        assert exact(contents(built)) == exact(source.tolist())
        assert built._is_complex

    @each(CLASS_ROWS)
    def test_there_and_back(self, row):
        source = numpy.asfortranarray(numpy.array(values_of(row), DTYPES[row.word]).reshape(3, 2))
        back = numpy.asarray(memoryview(row.cls(source)))
        assert back.dtype == source.dtype
        assert back.flags.f_contiguous
        assert back.tolist() == source.tolist()


class TestOrders:
    @pytest.mark.parametrize(
        "shape", [(3, 4, 5), (2, 1, 3), (1, 5), (5, 1), (1, 1, 2), (2, 2, 2, 2)]
    )
    def test_both_orders_give_the_same(self, shape):
        source = numpy.arange(numpy.prod(shape), dtype=float).reshape(shape)
        for order in "CF":
            built = velmar.double(numpy.asarray(source, order=order))
            assert built.size == shape
            assert contents(built) == source.tolist()

    def test_a_transposed_array(self):
        source = numpy.arange(6.0).reshape(2, 3)
        assert contents(velmar.double(source.T)) == source.T.tolist()
        assert contents(velmar.double(numpy.asfortranarray(source).T)) == source.T.tolist()

    def test_other_orders_are_not_contiguous(self):
        source = numpy.zeros((2, 3, 4))
        for axes in itertools.permutations(range(3)):
            turned = source.transpose(axes)
            if turned.flags.c_contiguous or turned.flags.f_contiguous:
                assert velmar.double(turned).size == turned.shape
                continue
            with raises(ValueError, "ndarray is not contiguous"):
                velmar.double(turned)

    @rows(
        "source",
        [
            ("columns", numpy.zeros((2, 4))[:, ::2]),
            ("backwards", numpy.zeros(3)[::-1]),
            ("broadcast", numpy.broadcast_to(1.0, (2, 3))),
            ("inner_part", numpy.zeros((4, 4))[1:3, 1:3]),
        ],
    )
    def test_parts_that_are_not_contiguous(self, source):
        with raises(ValueError, "ndarray is not contiguous"):
            velmar.double(source)
        assert velmar.double(source.copy()).size in ((2, 2), (1, 3), (2, 3))

    def test_parts_that_are(self):
        source = numpy.arange(12.0).reshape(4, 3)
        assert contents(velmar.double(source[1:3])) == source[1:3].tolist()
        assert contents(velmar.double(source[2])) == [source[2].tolist()]
        assert contents(velmar.double(source[:, 1:2].copy())) == source[:, 1:2].tolist()

    def test_strides_of_short_dimensions_may_be_anything(self):
        """In NumPy dimensions of length 1 and arrays without items may have any stride."""
        source = numpy.arange(24.0).reshape(4, 6)
        for part in (source[::4], source[:1, :], source[1:2, 2:5], source[:, 1:2][:1]):
            assert part.flags.c_contiguous or part.flags.f_contiguous
            assert contents(velmar.double(part)) == part.tolist()
        for part in (source[::2, :0], source[:0, ::3]):
            assert velmar.double(part).size == part.shape

    def test_no_dimension(self):
        assert contents(velmar.double(numpy.array(2.5))) == [[2.5]]
        assert contents(velmar.double(numpy.float64(2.5))) == [[2.5]]
        assert contents(velmar.single(numpy.array(1j, "c8"), is_complex=True)) == [[1j]]

    def test_no_elements(self):
        for shape in ((0,), (0, 0), (0, 3), (3, 0), (2, 0, 4)):
            built = velmar.double(numpy.zeros(shape))
            assert built.size == (shape if len(shape) > 1 else (0, 0))


class TestRefusals:
    @rows(
        "dtype, given",
        [
            ("half", "f2", "e"),
            ("long_double", "g", "g"),
            ("swapped", ">f8", ">d"),
            ("text", "U3", "3w"),
            ("bytes", "S3", "3s"),
            ("record", [("a", "f8")], "T{d:a:}"),
            ("object", object, "O"),
            ("complex", "c16", "Zd"),
            ("bool", "?", "?"),
            ("raw", "V4", "4x"),
        ],
    )
    def test_formats(self, dtype, given):
        with raises(*incompatible(given, "d")):
            velmar.double(numpy.zeros((2, 2), dtype))

    def test_times_have_no_buffer(self):
        with pytest.raises(ValueError, match="cannot include dtype 'M' in a buffer"):
            velmar.double(numpy.zeros(2, "M8[s]"))

    @each(COMPLEX_ROWS)
    def test_complex_of_another_width(self, row):
        source = numpy.zeros(3, "c8" if row.word == "double" else "c16")
        given = "Zf" if row.word == "double" else "Zd"
        with raises(*incompatible(given, "Z" + velmar_letter(row))):
            row.cls(source, is_complex=True)
        with raises(*not_complex("d")):
            row.cls(numpy.zeros(3), is_complex=True)

    def test_what_was_refused_is_not_held(self):
        source = numpy.zeros(4)
        with pytest.raises(BufferError):
            velmar.single(source)
        source.resize(8)  # raises while its memory is exported
        assert source.size == 8


def velmar_letter(row) -> str:
    return memoryview(row.cls(0)).format
