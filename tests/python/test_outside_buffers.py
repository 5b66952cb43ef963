"""Arrays built from the memory of other objects: sources, formats, orders of elements."""

from __future__ import annotations

import array
import contextlib
import ctypes
import gc
import math
import sys

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, COMPLEX_ROWS, INTEGER_ROWS, contents, exact
from helpers.buffer_requests import LETTERS, format_of, packed, size_of_element
from helpers.cases import each, each_form, rows
from helpers.failures import raises
from helpers.nesting_model import mismatch
from helpers.outside_buffers import incompatible, not_complex, values_of
from velmarmultidimarrayforpython import ShapeError, SizeError


def memory_of(row, shape=()) -> memoryview:
    """The values as a correct buffer in the format of the class."""
    flat = memoryview(packed(values_of(row), row))
    return flat.cast(format_of(row), shape) if shape else flat.cast(format_of(row))


class TestFlat:
    @each(CLASS_ROWS)
    def test_every_class_takes_its_own_format(self, row):
        built = row.cls(memory_of(row))
        assert type(built) is row.cls
        assert exact(contents(built)) == exact([values_of(row)])

    @each([row for row in CLASS_ROWS if row.word != "logical"])
    def test_array_array(self, row):
        source = array.array(LETTERS[row.word], values_of(row))
        assert exact(contents(row.cls(source))) == exact([values_of(row)])
        assert exact(contents(row.cls(initializer=source))) == exact([values_of(row)])

    @pytest.mark.parametrize("make", [bytes, bytearray, memoryview], ids=lambda make: make.__name__)
    def test_bytes(self, make):
        source = make(b"\x00\x02\xff")
        assert contents(velmar.uint8(source)) == [[0, 2, 255]]
        assert exact(contents(velmar.logical(source))) == exact([[False, True, True]])

    def test_one_item(self):
        assert contents(velmar.double(array.array("d", [7.5]))) == [[7.5]]
        assert contents(velmar.uint8(b"a")) == [[97]]

    @each_form
    def test_no_items(self, row, is_complex):
        if is_complex:
            return
        built = row.cls(memoryview(b"").cast(LETTERS[row.word]))
        assert built.size == (0, 0)
        assert str(built) == "[]"

    def test_a_bool_buffer_keeps_its_bytes_as_bytes(self):
        source = memoryview(b"\x00\x02\x01\xff").cast("?")
        assert contents(velmar.uint8(source)) == [[0, 2, 1, 255]]
        assert exact(contents(velmar.logical(source))) == exact([[False, True, True, True]])

    def test_a_logical_of_odd_bytes_holds_ones(self):
        built = velmar.logical(b"\x02\x80\x00")
        assert bytes(memoryview(built).cast("B")) == b"\x01\x01\x00"

    def test_the_width_of_a_long_decides(self):
        signed, unsigned = array.array("l", [-1, 5]), array.array("L", [1, 5])
        wide = signed.itemsize == 8
        takes, refuses = ("int64", "int32") if wide else ("int32", "int64")
        assert contents(getattr(velmar, takes)(signed)) == [[-1, 5]]
        assert contents(getattr(velmar, f"u{takes}")(unsigned)) == [[1, 5]]
        with raises(*incompatible("l", LETTERS[refuses])):
            getattr(velmar, refuses)(signed)
        with raises(*incompatible("L", LETTERS[f"u{refuses}"])):
            getattr(velmar, f"u{refuses}")(unsigned)
        with raises(*incompatible("L", LETTERS[takes])):
            getattr(velmar, takes)(unsigned)

    def test_bits_come_as_they_are(self):
        quiet = bytes.fromhex("010000000000f87f0000000000000080")
        built = velmar.double(memoryview(quiet).cast("d"))
        assert bytes(memoryview(built).cast("B")) == quiet

    @each(CLASS_ROWS)
    def test_elements_are_a_copy(self, row):
        """The elements are a copy, so the source may change afterwards."""
        source = bytearray(packed(values_of(row), row))
        built = row.cls(memoryview(source).cast(format_of(row)))
        source[:] = bytes(len(source))
        assert exact(contents(built)) == exact([values_of(row)])

    def test_a_million_items(self):
        source = array.array("i", range(1_000_000))
        built = velmar.int32(source)
        assert built.size == (1, 1_000_000)
        assert bytes(memoryview(built).cast("B")) == source.tobytes()


class TestOneRoute:
    """A buffer is not walked as a sequence, unless it is an array of this module."""

    def test_no_conversion(self):
        with raises(*incompatible("f", "d")):
            velmar.double(array.array("f", [1.0]))
        with raises(*incompatible("B", "d")):
            velmar.double(b"12")
        with raises(*incompatible("B", "b")):
            velmar.int8(b"a")
        with raises(*incompatible("B", "h")):
            velmar.int16(b"abc")  # the format is checked before the length

    def test_no_conversion_below_a_list_either(self):
        assert contents(velmar.double([array.array("f", [1.0]), b"\x02"])) == [[1.0], [2.0]]

    def test_a_vector_is_walked(self):
        assert contents(velmar.double(vector=array.array("f", [1.0, 2.0]))) == [[1.0, 2.0]]
        assert contents(velmar.double(vector=b"\x05")) == [[5.0]]

    def test_own_arrays_are_walked(self):
        source = velmar.single([[1, 2], [3, 4]])
        assert contents(velmar.double(source)) == [[1.0, 2.0], [3.0, 4.0]]
        with raises(*incompatible("f", "d")):
            velmar.double(memoryview(source))

    def test_a_subclass_of_a_buffer(self):
        class Bytes(bytes):
            def __len__(self):
                return 99

            def __getitem__(self, index):
                return 99

        assert contents(velmar.uint8(Bytes(b"\x01\x02"))) == [[1, 2]]

    def test_a_text_is_no_buffer(self):
        with raises(ValueError, "value passed to initializer must be numeric."):
            velmar.uint8("ab")

    def test_in_the_leading_dict(self):
        built = velmar.int16({"initializer": array.array("h", [1, 2]), "size": (2, 1)})
        assert contents(built) == [[1], [2]]


class TestDimensions:
    @each(CLASS_ROWS)
    def test_row_major(self, row):
        source = memory_of(row, (2, 3))
        assert exact(contents(row.cls(source))) == exact(source.tolist())
        assert exact(contents(row.cls(memory_of(row, (3, 1, 2))))) == exact(
            memory_of(row, (3, 1, 2)).tolist()
        )

    @rows(
        "shape, size",
        [
            ("row", (1, 6), (1, 6)),
            ("column", (6, 1), (6, 1)),
            ("two", (2, 3), (2, 3)),
            ("three", (1, 2, 3), (1, 2, 3)),
            ("inner_one", (2, 1, 3), (2, 1, 3)),
            ("trailing_one", (2, 3, 1), (2, 3)),
            ("trailing_ones", (3, 2, 1, 1), (3, 2)),
            ("all_but_one_trail", (6, 1, 1, 1), (6, 1)),
        ],
    )
    def test_size(self, shape, size):
        assert velmar.uint8(memoryview(b"123456").cast("B", shape)).size == size

    @pytest.mark.parametrize(
        "shape", [(6, 1), (1, 6), (2, 3), (3, 2), (1, 2, 3), (2, 3, 1)], ids=str
    )
    def test_trailing_ones_change_no_order(self, shape):
        flat = memoryview(array.array("d", range(6))).cast("B")
        for ones in range(3):
            built = velmar.double(flat.cast("d", (*shape, *[1] * ones)))
            plain = velmar.double(flat.cast("d", shape))
            assert built.size == plain.size
            assert contents(built) == contents(plain)

    def test_no_dimension_at_all(self):
        assert contents(velmar.double(memoryview(bytes(8)).cast("d", ()))) == [[0.0]]
        assert contents(velmar.uint8(memoryview(b"\x07").cast("B", ()))) == [[7]]

    @pytest.mark.parametrize("shape", [(3, 4, 5), (2, 2, 2, 2), (1, 7), (7, 1), (1, 1, 3)], ids=str)
    @pytest.mark.parametrize("letter", ["d", "h", "B"])
    def test_a_row_major_buffer_reads_as_itself(self, shape, letter):
        source = (
            memoryview(array.array(letter, range(math.prod(shape)))).cast("B").cast(letter, shape)
        )
        cls = {"d": velmar.double, "h": velmar.int16, "B": velmar.uint8}[letter]
        assert contents(cls(source)) == source.tolist()

    @each_form
    def test_exports_of_the_module_come_back(self, row, is_complex):
        """Column-major memory of two and three dimensions, of views and of complex arrays."""
        for nested in ([[0, 1, 1], [1, 0, 1]], [[[0, 1], [1, 1]], [[1, 0], [0, 0]]], [[1]], 1):
            source = row.cls(nested, is_complex=is_complex)
            for view in (source, source[0], source[::-1]):
                built = row.cls(memoryview(view), is_complex=is_complex)
                assert built == view.clone()
                assert built.size == view.clone().size
                assert repr(built) == repr(view.clone())

    @each_form
    def test_exports_without_elements_come_back(self, row, is_complex):
        for size in ((0, 0), (0, 3), (3, 0), (2, 0, 3)):
            source = row.cls(size=size, is_complex=is_complex)
            assert row.cls(memoryview(source), is_complex=is_complex).size == size

    @each(COMPLEX_ROWS)
    def test_complex_parts_stay_in_order(self, row):
        data = [[complex(1, 2), complex(3, 4)], [complex(5, 6), complex(7, 8)]]
        source = row.cls(data, is_complex=True)
        built = row.cls(memoryview(source), is_complex=True)
        assert exact(contents(built)) == exact(data)

    @pytest.mark.parametrize("word", ["int64", "uint64"])
    def test_complex_integers_keep_all_their_bits(self, word):
        cls = getattr(velmar, word)
        source = cls([2**62 + 1, 3], is_complex=True)
        assert list(cls(memoryview(source), is_complex=True).real()) == [2**62 + 1, 3]


class TestSize:
    SIX = array.array("d", range(1, 7))

    def test_a_flat_buffer_fills_a_size_in_storage_order(self):
        assert contents(velmar.double(self.SIX, (2, 3))) == [[1, 3, 5], [2, 4, 6]]
        assert contents(velmar.double(self.SIX, size=(3, 2, 1))) == [[1, 4], [2, 5], [3, 6]]
        assert velmar.double(self.SIX, size=[6]).size == (1, 6)
        assert contents(velmar.uint8(b"\x01\x02", (2, 1))) == [[1], [2]]

    def test_size_none(self):
        assert velmar.double(self.SIX, None).size == (1, 6)

    def test_the_same_dimensions(self):
        source = memoryview(self.SIX).cast("B").cast("d", (2, 3))
        assert contents(velmar.double(source, (2, 3))) == [[1, 2, 3], [4, 5, 6]]
        assert contents(velmar.double(source, (2, 3, 1))) == [[1, 2, 3], [4, 5, 6]]

    def test_another_count(self):
        with raises(ShapeError, mismatch("6", "2, 2")):
            velmar.double(self.SIX, (2, 2))
        with raises(ShapeError, mismatch("2, 3", "2, 2")):
            velmar.double(memoryview(self.SIX).cast("B").cast("d", (2, 3)), (2, 2))
        with raises(ShapeError, mismatch("1", "2, 2")):
            velmar.double(array.array("d", [1]), (2, 2))
        with raises(ShapeError, mismatch("0", "2, 2")):
            velmar.double(array.array("d"), (2, 2))

    def test_another_shape(self):
        with raises(SizeError, mismatch("2, 3", "3, 2")):
            velmar.double(memoryview(self.SIX).cast("B").cast("d", (2, 3)), (3, 2))
        with raises(SizeError, mismatch("6, 1", "1, 6")):
            velmar.double(memoryview(self.SIX).cast("B").cast("d", (6, 1)), (6,))

    def test_no_elements_fit_every_size_without_elements(self):
        for size in ((0, 5), (5, 0), (0, 0), (2, 0, 4)):
            assert velmar.double(array.array("d"), size).size == size
        assert velmar.double(array.array("d"), (0,)).size == (1, 0)

    def test_one_element(self):
        for size in ((1,), (1, 1), (1, 1, 1)):
            assert contents(velmar.double(array.array("d", [5]), size)) == [[5.0]]
        assert velmar.double(memoryview(bytes(8)).cast("d", ()), (1, 1)).size == (1, 1)

    def test_a_large_size_is_compared_after_the_format(self):
        with raises(*incompatible("B", "d")):
            velmar.double(b"x", (2, 2))
        with raises(ValueError, "sequence passed to 'size' must not be empty."):
            velmar.double(b"x", ())


def let_go(source) -> None:
    """Raises while a buffer of the source is exported."""
    if isinstance(source, memoryview):
        source.release()
    else:
        source.append(1)


class TestRelease:
    """Nothing stays exported, whether the construction succeeds or fails."""

    ATTEMPTS = [
        ("success", velmar.uint8, {}),
        ("as_bools", velmar.logical, {}),
        ("format", velmar.double, {}),
        ("complex", velmar.uint8, {"is_complex": True}),
        ("count", velmar.uint8, {"size": (5, 5)}),
        ("same_count", velmar.uint8, {"size": (2, 3)}),
    ]

    @rows("cls, options", ATTEMPTS)
    @rows(
        "make",
        [
            ("bytearray", lambda: bytearray(b"123456")),
            ("array", lambda: array.array("B", b"123456")),
            ("memoryview", lambda: memoryview(b"123456")),
            ("two_dimensions", lambda: memoryview(b"123456").cast("B", (3, 2))),
        ],
    )
    def test_source_is_free_afterwards(self, cls, options, make):
        source = make()
        references = sys.getrefcount(source)
        for _ in range(50):
            with contextlib.suppress(BufferError, ShapeError, SizeError):
                cls(source, **options)
        gc.collect()
        assert sys.getrefcount(source) == references
        let_go(source)

    def test_a_released_memoryview(self):
        source = memoryview(b"12")
        source.release()
        with raises(ValueError, "operation forbidden on released memoryview object"):
            velmar.uint8(source)

    def test_memory_that_is_not_contiguous(self):
        with raises(BufferError, "memoryview: underlying buffer is not contiguous"):
            velmar.uint8(memoryview(b"123456")[::2])
        with raises(BufferError, "memoryview: underlying buffer is not contiguous"):
            velmar.uint8(memoryview(b"123456")[::-1])
        assert contents(velmar.uint8(memoryview(b"123456")[1:3])) == [[50, 51]]


class TestForeignFormats:
    """ctypes names the byte order in the format; every class refuses that."""

    @pytest.mark.parametrize(
        "name", ["c_double", "c_float", "c_int8", "c_uint8", "c_int", "c_bool"]
    )
    def test_ctypes(self, name):
        source = (getattr(ctypes, name) * 2)()
        given = memoryview(source).format
        for row in CLASS_ROWS:
            if given[0] == LETTERS[row.word]:  # some formats have no byte order
                assert row.cls(source).size == (1, 2)
                continue
            with raises(*incompatible(given, LETTERS[row.word])):
                row.cls(source)
        with raises(*not_complex(given)):
            velmar.double(source, is_complex=True)

    @each(INTEGER_ROWS)
    def test_ctypes_by_way_of_bytes(self, row):
        kind = getattr(ctypes, f"c_{row.word}")
        source = (kind * 2)(int(row.low), int(row.high))
        view = memoryview(bytes(source)).cast(LETTERS[row.word])
        assert contents(row.cls(view)) == [[int(row.low), int(row.high)]]

    @each_form
    def test_real_memory_for_complex_elements(self, row, is_complex):
        source = memory_of(row)
        if is_complex:
            with raises(*not_complex(format_of(row))):
                row.cls(source, is_complex=True)
        elif row.has_complex:
            memory = memoryview(row.cls([1, 2], is_complex=True))
            assert memory.itemsize == size_of_element(row, True)
            with raises(*incompatible(f"Z{LETTERS[row.word]}", LETTERS[row.word])):
                row.cls(memory)


@pytest.mark.skipif(sys.version_info < (3, 12), reason="no buffers of Python classes before 3.12")
class TestPythonClasses:
    class Exporter:
        def __init__(self, answer):
            self.answer = answer
            self.released = []

        def __buffer__(self, flags):
            self.flags = flags
            if isinstance(self.answer, Exception):
                raise self.answer
            return memoryview(self.answer)

        def __release_buffer__(self, buffer):
            self.released.append(buffer)

    def test_contents(self):
        source = self.Exporter(array.array("h", [1, 2, 3]))
        assert contents(velmar.int16(source)) == [[1, 2, 3]]
        assert source.flags == 0x9C
        assert len(source.released) == 1

    def test_refusals_release_once(self):
        for options in ({}, {"is_complex": True}, {"size": (2, 2)}):
            source = self.Exporter(b"123")
            with pytest.raises(BufferError):
                velmar.double(source, **options)
            assert len(source.released) == 1

    def test_its_own_refusal_comes_through(self):
        source = self.Exporter(KeyError("mine"))
        with raises(KeyError, "'mine'"):
            velmar.double(source)
        assert source.released == []

    def test_a_buffer_is_not_walked(self):
        class Both(self.Exporter, list):
            pass

        assert contents(velmar.uint8(Both(b"\x05"))) == [[5]]
