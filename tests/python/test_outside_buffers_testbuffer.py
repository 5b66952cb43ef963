"""Arrays built from the exporter in the interpreter's own tests of buffers."""

from __future__ import annotations

import itertools
import math

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, exact
from helpers.buffer_requests import LETTERS
from helpers.cases import each, rows
from helpers.failures import raises
from helpers.outside_buffers import incompatible, not_complex, values_of

exporters = pytest.importorskip("_testbuffer")
ndarray = exporters.ndarray
FORTRAN, PIL = exporters.ND_FORTRAN, exporters.ND_PIL

NOT_CONTIGUOUS = "ndarray is not contiguous"
IN_EITHER_ORDER = pytest.mark.parametrize("flags", [0, FORTRAN], ids=["row_major", "column_major"])


def doubles(*shape, **options):
    numbers = [float(k) for k in range(math.prod(shape))]
    return ndarray(numbers, shape=list(shape), format="d", **options)


class TestContiguous:
    @each(CLASS_ROWS)
    @IN_EITHER_ORDER
    def test_each_class(self, row, flags):
        for shape in ([2, 3], [3, 2], [1, 6], [6, 1], [1, 2, 3], [3, 1, 2], [1, 1, 6]):
            source = ndarray(values_of(row), shape=shape, format=LETTERS[row.word], flags=flags)
            built = row.cls(source)
            assert built.size == tuple(shape)
            assert exact(contents(built)) == exact(source.tolist())

    @IN_EITHER_ORDER
    @pytest.mark.parametrize("count", range(1, 6))
    def test_every_small_shape(self, flags, count):
        for shape in itertools.product(range(1, 4), repeat=count):
            source = doubles(*shape, flags=flags)
            built = velmar.double(source)
            if count == 1:
                assert contents(built) == [source.tolist()]
            elif count == 2 or shape[-1] > 1:
                assert contents(built) == source.tolist()
            else:
                kept = shape
                while len(kept) > 2 and kept[-1] == 1:
                    kept = kept[:-1]
                assert contents(built) == doubles(*kept, flags=flags).tolist()

    @IN_EITHER_ORDER
    def test_no_dimension(self, flags):
        source = ndarray(2.5, shape=[], format="d", flags=flags)
        assert contents(velmar.double(source)) == [[2.5]]
        assert contents(velmar.double(source, (1, 1, 1))) == [[2.5]]

    def test_an_offset(self):
        source = ndarray([1.0, 2.0, 3.0, 4.0], shape=[2], offset=16, format="d")
        assert contents(velmar.double(source)) == [[3.0, 4.0]]

    @pytest.mark.parametrize("shape", [[0], [0, 3], [3, 0], [2, 0, 4]], ids=str)
    def test_no_elements(self, shape):
        count = max(math.prod(max(n, 1) for n in shape), 1)
        source = ndarray([0.0] * count, shape=shape, format="d")
        built = velmar.double(source)
        assert built.size == ((0, 0) if len(shape) == 1 else tuple(shape))

    def test_slices_that_are_still_contiguous(self):
        source = doubles(4, 3)
        assert contents(velmar.double(source[1:3])) == source[1:3].tolist()
        assert contents(velmar.double(source[2:3, 1:])) == source[2:3, 1:].tolist()
        column_major = doubles(4, 3, flags=FORTRAN)
        part = column_major[:, 1:]
        assert contents(velmar.double(part)) == part.tolist()

    def test_a_stride_of_a_single_row_is_not_told_apart(self):
        """The stride of a dimension of length 1 is ignored: both orders are the same."""
        source = ndarray([1.0, 2.0, 3.0, 4.0], shape=[1, 2], strides=[16, 8], format="d")
        assert contents(velmar.double(source)) == [[1.0, 2.0]]
        source = ndarray([1.0, 2.0, 3.0, 4.0], shape=[2, 1], strides=[8, 16], format="d")
        assert contents(velmar.double(source)) == [[1.0], [2.0]]

    def test_a_chain_of_exporters(self):
        source = ndarray(ndarray(memoryview(doubles(2, 3))))
        assert contents(velmar.double(source)) == source.tolist()


class TestNotContiguous:
    @rows(
        "source",
        [
            ("gaps", doubles(6)[::2]),
            ("backwards", doubles(6)[::-1]),
            ("columns", doubles(3, 4)[:, ::2]),
            ("backward_rows", doubles(3, 4)[::-1]),
            ("inner_part", doubles(3, 4)[1:, 1:]),
            ("inner_part_in_column_major", doubles(3, 4, flags=FORTRAN)[1:, 1:]),
            ("pointers", doubles(2, 3, flags=PIL)),
            ("pointers_in_three_dimensions", doubles(2, 3, 2, flags=PIL)),
            ("one_place", ndarray([1.0], shape=[3], strides=[0], format="d")),
            (
                "neither_order",
                ndarray([0.0] * 24, shape=[2, 3, 4], strides=[8, 64, 16], format="d"),
            ),
        ],
    )
    def test_is_refused_by_the_exporter(self, source):
        with raises(BufferError, NOT_CONTIGUOUS):
            velmar.double(source)
        with raises(BufferError, NOT_CONTIGUOUS):
            velmar.int8(source, is_complex=True)

    def test_a_refusal_of_its_own(self):
        with raises(BufferError, "ND_GETBUF_FAIL: forced test exception"):
            velmar.double(doubles(2, flags=exporters.ND_GETBUF_FAIL))

    @rows(
        "flags",
        [
            ("nothing", exporters.PyBUF_SIMPLE),
            ("shape", exporters.PyBUF_ND),
            ("format_and_shape", exporters.PyBUF_ND | exporters.PyBUF_FORMAT),
        ],
    )
    def test_a_description_with_gaps(self, flags):
        """The re-exporter was given fewer fields than are asked for here."""
        poor = ndarray(doubles(2, 3), getbuf=flags)
        with raises(BufferError, "re-exporter does not provide format, shape or strides"):
            velmar.double(poor)

    def test_a_description_without_a_format(self):
        """Without a format the items count as bytes, although each is eight bytes long."""
        poor = ndarray(doubles(2, 3), getbuf=exporters.PyBUF_STRIDES)
        with raises(*incompatible("B", "d")):
            velmar.double(poor)
        with raises(BufferError, "input does not fit evenly into output type."):
            velmar.uint8(poor)


class TestFormats:
    @rows(
        "given, items",
        [
            ("little", "<d", [1.0, 2.0]),
            ("big", ">d", [1.0, 2.0]),
            ("standard", "=d", [1.0, 2.0]),
            ("native_by_name", "@d", [1.0, 2.0]),
            ("network", "!d", [1.0, 2.0]),
            ("counted", "1d", [1.0, 2.0]),
            ("single", "f", [1.0, 2.0]),
            ("half", "e", [1.0, 2.0]),
            ("char", "c", [b"a", b"b"]),
            ("text", "4s", [b"abcd", b"efgh"]),
            ("pascal", "5p", [b"abcd", b"efgh"]),
            ("size", "n", [1, 2]),
            ("pointer", "P", [1, 2]),
            ("int", "i", [1, 2]),
            ("padded", "xd", [1.0, 2.0]),
        ],
    )
    def test_refused(self, given, items):
        source = ndarray(items, shape=[2], format=given)
        with raises(*incompatible(given, "d")):
            velmar.double(source)
        with raises(*not_complex(given)):
            velmar.double(source, is_complex=True)

    def test_only_the_first_letter_is_read(self):
        """Pairs of doubles are read as twice as many doubles, unless the shape shows otherwise."""
        flat = ndarray([(1.0, 2.0), (3.0, 4.0)], shape=[2], format="dd")
        assert contents(velmar.double(flat)) == [[1.0, 2.0, 3.0, 4.0]]
        square = ndarray([(1.0, 2.0), (3.0, 4.0)], shape=[2, 1], format="dd")
        with raises(BufferError, "input does not fit evenly into output type."):
            velmar.double(square)
        mixed = ndarray([(1.0, 2)], shape=[1], format="db")
        with raises(BufferError, "input does not fit evenly into output type."):
            velmar.double(mixed)

    def test_longs(self):
        for given, word in (("l", "int"), ("L", "uint")):
            source = ndarray([1, 2], shape=[2], format=given)
            cls = getattr(velmar, f"{word}{8 * source.itemsize}")
            assert contents(cls(source)) == [[1, 2]]


class TestRelease:
    """The exporter raises on a new allocation while its memory is exported."""

    ATTEMPTS = [
        ("success", velmar.double, {}),
        ("format", velmar.single, {}),
        ("complex", velmar.double, {"is_complex": True}),
        ("count", velmar.double, {"size": (7, 7)}),
        ("shape", velmar.double, {"size": (3, 2)}),
    ]

    @rows("cls, options", ATTEMPTS)
    def test_each_way_out(self, cls, options):
        source = doubles(2, 3)
        for _ in range(10):
            try:
                cls(source, **options)
            except Exception as error:
                assert options or cls is velmar.single, error
        source.push([1.0, 2.0], shape=[2], format="d")
        with memoryview(source), raises(BufferError, "cannot change structure: 1 exported buffer"):
            source.push([1.0], shape=[1], format="d")

    @rows("cls, options", ATTEMPTS)
    def test_a_memoryview_of_it(self, cls, options):
        source = memoryview(doubles(2, 3))
        for _ in range(10):
            try:
                cls(source, **options)
            except Exception as error:
                assert options or cls is velmar.single, error
        source.release()
