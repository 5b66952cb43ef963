"""Arrays built from buffers with wrong descriptions."""

from __future__ import annotations

import struct

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, FORMS, contents, exact
from helpers.buffer_requests import LETTERS, format_of, packed, size_of_element
from helpers.cases import each, each_form, rows
from helpers.failures import DOES_NOT_FIT, Failure, raises
from helpers.lying_exporter import LyingExporter, build
from helpers.nesting_model import mismatch
from helpers.outside_buffers import incompatible, not_complex, same_format, values_of
from velmarmultidimarrayforpython import ShapeError, SizeError

NO_FORMAT = Failure(BufferError, "input 'format' field is null.")
NO_SHAPE = Failure(BufferError, "shape is null.")
SIX = struct.pack("6d", *range(1, 7))
ALL_LETTERS = "xcbB?hHiIlLqQnNefdgspPwuOZTX<>=@!&:{( 1"


def doubles(**lies) -> LyingExporter:
    return LyingExporter(SIX, lies.pop("format", b"d"), lies.pop("itemsize", 8), **lies)


class TestFormats:
    @each_form
    def test_every_letter(self, row, is_complex):
        """48 bytes are a whole number of elements in every class."""
        wanted = LETTERS[row.word]
        for letter in ALL_LETTERS:
            for itemsize in (1, 2, 4, 8, 16):
                given = ("Z" if is_complex else "") + letter
                source = LyingExporter(SIX, given.encode(), itemsize)
                if same_format(letter, wanted, itemsize):
                    built = build(row.cls, source, is_complex=is_complex)
                    assert built.size == (1, 48 // size_of_element(row, is_complex))
                    continue
                with raises(*incompatible(given, format_of(row, is_complex))):
                    build(row.cls, source, is_complex=is_complex)

    @each_form
    def test_complex_is_said_in_front(self, row, is_complex):
        for letter in ALL_LETTERS:
            if is_complex and letter != "Z":
                with raises(*not_complex(letter)):
                    build(row.cls, LyingExporter(SIX, letter.encode(), 8), is_complex=True)
            elif not is_complex:
                with raises(*incompatible(f"Z{letter}", LETTERS[row.word])):
                    build(row.cls, LyingExporter(SIX, f"Z{letter}".encode(), 8))

    @each_form
    def test_missing_and_empty(self, row, is_complex):
        for format in (None, b"", b"\0d"):
            with raises(*NO_FORMAT):
                build(row.cls, LyingExporter(SIX, format, 8), is_complex=is_complex)

    @each_form
    def test_what_follows_the_letter_is_not_read(self, row, is_complex):
        for rest in (b"d", b"x7", b" ", b"\x01", b"?" * 1000):
            format = format_of(row, is_complex).encode() + rest
            built = build(row.cls, LyingExporter(SIX, format, 8), is_complex=is_complex)
            assert built.size == (1, 48 // size_of_element(row, is_complex))

    def test_prefixes_are_letters_of_their_own(self):
        for prefix in "<>=@!1 ":
            with raises(*incompatible(f"{prefix}d", "d")):
                build(velmar.double, doubles(format=f"{prefix}d".encode()))
            with raises(*incompatible(f"Z{prefix}d", "Zd")):
                build(velmar.double, doubles(format=f"Z{prefix}d".encode()), is_complex=True)
            with raises(*not_complex(f"{prefix}Zd")):
                build(velmar.double, doubles(format=f"{prefix}Zd".encode()), is_complex=True)

    def test_complex_letter_without_a_type(self):
        with raises(*incompatible("Z", "Zd")):
            build(velmar.double, doubles(format=b"Z"), is_complex=True)
        with raises(*incompatible("Z", "d")):
            build(velmar.double, doubles(format=b"Z"))
        with raises(*incompatible("ZZd", "Zd")):
            build(velmar.double, doubles(format=b"ZZd"), is_complex=True)

    def test_the_whole_format_is_shown(self):
        for given in ("x" * 5000, "T{d:a:\u00e9}", "%s%n%d", "'"):
            with raises(*incompatible(given, "d")):
                build(velmar.double, doubles(format=given.encode()))
            with raises(*not_complex(given)):
                build(velmar.int8, doubles(format=given.encode()), is_complex=True)

    def test_a_format_that_is_no_text(self):
        with pytest.raises((BufferError, UnicodeDecodeError)):
            build(velmar.double, doubles(format=b"\xff\xfe"))

    def test_a_complex_long_is_measured_by_the_whole_item(self):
        longs = struct.pack("=4i", 1, 2, 3, 4)
        source = LyingExporter(longs, b"Zl", 4)
        assert contents(build(velmar.int32, source, is_complex=True)) == [[1 + 2j, 3 + 4j]]
        with raises(*incompatible("Zl", "Zi")):
            build(velmar.int32, LyingExporter(longs, b"Zl", 8), is_complex=True)
        source = LyingExporter(longs, b"Zl", 8)
        assert build(velmar.int64, source, is_complex=True).size == (1, 1)
        source = LyingExporter(longs, b"ZL", 16)
        assert build(velmar.uint64, source, is_complex=True).size == (1, 1)

    def test_complex_bytes_and_bools(self):
        source = LyingExporter(b"\x01\x02\x03\x04", b"Z?", 2)
        assert contents(build(velmar.uint8, source, is_complex=True)) == [[1 + 2j, 3 + 4j]]


class TestLength:
    @each_form
    def test_whole_elements_only(self, row, is_complex):
        size = size_of_element(row, is_complex)
        format = format_of(row, is_complex).encode()
        for length in range(1, 3 * size + 1):
            source = LyingExporter(bytes(length), format, size)
            if length % size == 0:
                assert build(row.cls, source, is_complex=is_complex).size == (1, length // size)
                continue
            with raises(*DOES_NOT_FIT):
                build(row.cls, source, is_complex=is_complex)

    @each_form
    def test_length_zero(self, row, is_complex):
        for memory in (b"", None):
            source = LyingExporter(memory, format_of(row, is_complex).encode(), 8)
            assert build(row.cls, source, is_complex=is_complex).size == (0, 0)

    @each_form
    def test_negative_length(self, row, is_complex):
        for length in (-1, -16, -(2**63)):
            source = LyingExporter(SIX, format_of(row, is_complex).encode(), 8, length=length)
            with raises(*DOES_NOT_FIT):
                build(row.cls, source, is_complex=is_complex)

    @each_form
    def test_no_memory_for_it(self, row, is_complex):
        count = 2**62 // size_of_element(row, is_complex)
        source = LyingExporter(SIX, format_of(row, is_complex).encode(), 8, length=2**62)
        text = "unable to allocate memory for array with number of elements = "
        with raises(MemoryError, f"{text}{count}; type = {row.word}"):
            build(row.cls, source, is_complex=is_complex)

    def test_elements_without_an_address(self):
        with raises(RuntimeError, "null data pointer."):
            build(velmar.double, LyingExporter(None, b"d", 8, length=16))

    def test_the_length_counts_and_not_the_shape(self):
        """In one dimension only the length in bytes is read."""
        for shape in ([], [99], [-1], [0], None):
            for strides in ([], [0], [-8], [3], None):
                for itemsize in (8, 0, -1, 3):
                    source = doubles(shape=shape, strides=strides, itemsize=itemsize)
                    built = build(velmar.double, source)
                    assert contents(built) == [[1.0, 2.0, 3.0, 4.0, 5.0, 6.0]]

    def test_negative_dimensions_count_as_one(self):
        source = doubles(ndim=-1, shape=None, strides=None)
        assert build(velmar.double, source).size == (1, 6)


class TestNoDimension:
    @pytest.mark.parametrize("shape", [None, [], [7]], ids=str)
    def test_one_element(self, shape):
        source = LyingExporter(SIX[:8], b"d", 8, ndim=0, shape=shape, strides=None)
        assert contents(build(velmar.double, source)) == [[1.0]]

    @pytest.mark.parametrize("count", [0, 2, 6])
    def test_another_count(self, count):
        source = LyingExporter(SIX[: 8 * count], b"d", 8, ndim=0, shape=None, strides=None)
        with raises(*DOES_NOT_FIT):
            build(velmar.double, source)


class TestShape:
    @each(CLASS_ROWS)
    @rows(
        "shape, strides, letter",
        [
            ("row_major", [2, 3], [3, 1], "C"),
            ("column_major", [2, 3], [1, 2], "F"),
            ("only_the_first_stride_counts", [2, 3], [1, -7], "F"),
            ("also_in_row_major", [2, 3], [3, 99], "C"),
            ("no_stride", [2, 3], [0, 0], "C"),
            ("backwards", [2, 3], [-1, 3], "C"),
            ("two_items", [2, 3], [2, 1], "C"),
            ("three_dimensions", [1, 2, 3], [6, 3, 1], "C"),
            ("three_in_column_major", [1, 2, 3], [1, 1, 2], "F"),
            ("one_column", [6, 1], [1, 1], "F"),
        ],
    )
    def test_the_first_stride_tells_the_order(self, row, shape, strides, letter):
        size = size_of_element(row)
        strides = [size * stride for stride in strides]
        memory, format = packed(values_of(row), row), format_of(row).encode()
        source = LyingExporter(memory, format, size, ndim=len(shape), shape=shape, strides=strides)
        built = build(row.cls, source)
        assert built.size == tuple(shape)
        in_storage = list(built.noncomplex())
        if letter == "F":
            assert exact(in_storage) == exact(values_of(row))
        else:
            plain = memoryview(memory).cast(format_of(row), tuple(shape))
            assert exact(contents(built)) == exact(plain.tolist())

    def test_complex_elements_move_whole(self):
        for strides, want in (([24, 16], [[1 + 2j, 3 + 4j, 5 + 6j]]), ([16, 16], None)):
            source = doubles(format=b"Zd", itemsize=16, ndim=2, shape=[3, 1], strides=strides)
            built = build(velmar.double, source, is_complex=True)
            assert contents(built) == [[1 + 2j], [3 + 4j], [5 + 6j]]
            assert want is None or contents(built.real()) == [n.real for n in want[0]]

    REFUSED = [
        ("too_few", [2, 2], [16, 8]),
        ("too_many", [3, 3], [24, 8]),
        ("none", [0, 3], [24, 8]),
        ("one_negative", [-6, -1], [8, 8]),
        ("negative_and_positive", [-2, 3], [24, 8]),
        ("wraps_to_the_count", [9, 6148914691236517206], [8, 8]),
        ("wraps_to_none_by_far", [2**32, 2**32], [8, 8]),
        ("wraps_to_the_count_by_far", [2**63 - 1, 2**63 - 1, 6], [8, 8, 8]),
        ("huge", [2**63 - 1, 6], [8, 8]),
        ("without_strides", [2, 3], None),
    ]

    @rows("shape, strides", REFUSED)
    def test_refused(self, shape, strides):
        with raises(*DOES_NOT_FIT):
            build(velmar.double, doubles(ndim=len(shape), shape=shape, strides=strides))

    @rows("shape, strides", REFUSED)
    def test_refused_of_bytes(self, shape, strides):
        """Any length in bytes fits classes with elements of one byte."""
        for cls, format in ((velmar.uint8, b"B"), (velmar.int8, b"b"), (velmar.logical, b"?")):
            source = LyingExporter(b"123456", format, 1, ndim=len(shape), shape=shape)
            source.strides = doubles(strides=strides).strides
            with raises(*DOES_NOT_FIT):
                build(cls, source)

    def test_items_of_no_size(self):
        with raises(*DOES_NOT_FIT):
            build(velmar.double, doubles(itemsize=0, ndim=2, shape=[2, 3], strides=[24, 8]))

    @each_form
    def test_no_shape(self, row, is_complex):
        format = format_of(row, is_complex).encode()
        for ndim in (2, 3, 64):
            source = LyingExporter(SIX, format, 8, ndim=ndim, shape=None, strides=None)
            with raises(*NO_SHAPE):
                build(row.cls, source, is_complex=is_complex)

    def test_many_dimensions(self):
        shape = [1] * 500 + [2] + [1] * 500 + [3]
        strides = [48] * 500 + [24] * 501 + [8]
        built = build(velmar.double, doubles(ndim=1002, shape=shape, strides=strides))
        assert built.size == tuple(shape)
        assert list(built.noncomplex()) == [1.0, 4.0, 2.0, 5.0, 3.0, 6.0]

    def test_without_elements(self):
        for shape in ([0, 3], [3, 0], [2**40, 0, 2**40], [0, 2**62, 2**62]):
            source = LyingExporter(b"", b"d", 8, ndim=len(shape), shape=shape, strides=[8] * 3)
            assert build(velmar.double, source).size == tuple(shape)


class TestOrderOfChecks:
    FAULTS = [  # each row has the faults of the rows after it
        ("format", {"format": None}, NO_FORMAT),
        ("letter", {"format": b"e"}, incompatible("e", "d")),
        ("fit", {}, DOES_NOT_FIT),
    ]

    @rows("lies, failure", FAULTS)
    def test_format_then_length_then_shape(self, lies, failure):
        with raises(*failure):
            build(velmar.double, doubles(length=47, ndim=2, shape=None, strides=None, **lies))

    def test_shape_then_strides(self):
        with raises(*NO_SHAPE):
            build(velmar.double, doubles(ndim=2, shape=None, strides=None))

    def test_size_is_read_before_the_buffer(self):
        source = doubles(format=None)
        with raises(TypeError, "dimensions must be nonnegative integers."):
            velmar.double(source, (2.0,))
        assert source.requests == []

    def test_size_is_compared_behind_the_buffer(self):
        for faulty in (doubles(format=None), doubles(length=47)):
            with pytest.raises(BufferError):
                build(velmar.double, faulty, size=(5, 5))
        with raises(ShapeError, mismatch("6", "5, 5")):
            build(velmar.double, doubles(), size=(5, 5))
        with raises(SizeError, mismatch("2, 3", "3, 2")):
            build(velmar.double, doubles(ndim=2, shape=[2, 3], strides=[24, 8]), size=(3, 2))

    def test_two_sources_of_elements(self):
        source = doubles()
        with raises(TypeError, "initializer and 'vector' must not both be specified."):
            velmar.double(source, vector=[1])
        assert source.requests == []


class TestSmallSizes:
    """`size` reserves memory for fewer or more elements than the buffer holds."""

    @pytest.mark.parametrize("row, is_complex", FORMS[::5])
    def test_size_of_another_count(self, row, is_complex):
        size = size_of_element(row, is_complex)
        memory = bytes(size * 3000)
        for shape in ((1, 1), (0, 0), (100, 100)):
            text = ", ".join(map(str, shape))
            source = LyingExporter(memory, format_of(row, is_complex).encode(), size)
            with raises(ShapeError, mismatch("3000", text)):
                build(row.cls, source, size=shape, is_complex=is_complex)
