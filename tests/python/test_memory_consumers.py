"""Consumers of an array's memory: the interpreter's own, its test exporter, and NumPy."""

from __future__ import annotations

import array
import ctypes
import io
import struct
import sys
import zlib

import pytest
import velmar
from helpers.arrays import (
    CLASS_ROWS,
    COMPLEX_ROWS,
    as_rows,
    contents,
    every,
    exact,
    grid,
    subscripted,
)
from helpers.buffer_requests import LETTERS, column_major, format_of, packed
from helpers.cases import each, each_form, rows
from helpers.failures import NOT_C_CONTIGUOUS, NOT_WRITABLE, raises
from helpers.outside_buffers import DTYPES

NESTED = [[1, 0, 1, 1], [0, 1, 0, 1], [1, 1, 0, 0]]
CUBE = grid(3, 4, 5)


CHAINS = [  # on 3 by 4 by 5
    ("array", []),
    ("plane", [2]),
    ("row", [2, 3]),
    ("planes", [every(1, 3)]),
    ("reversed_planes", [every(step=-1)]),
    ("rows_of_plane", [1, every(0, 4, 3)]),
    ("part_of_row", [1, 2, every(2, 5)]),
    ("reversed_row", [1, 2, every(step=-1)]),
]


def numbers_of(row, is_complex=False):
    """Twelve numbers as 3 by 4, with the limits of the class."""
    limits = [row.low, row.high]
    if row.word in ("int64", "uint64") and is_complex:
        limits = [-(2**53) if row.low else 0, 2**53]
    flat = [*limits, 1, 0, 1, 1, 0, 0, 1, 0, 1, 1]
    if is_complex:
        flat = [complex(number, i % 2) for i, number in enumerate(flat)]
    return [flat[0:4], flat[4:8], flat[8:12]]


def flat_of(nested):
    """The numbers in the order of the nesting."""
    if not isinstance(nested, list):
        return [nested]
    return [number for item in nested for number in flat_of(item)]


class TestBytes:
    """The interpreter copies the elements in the order of the nesting."""

    @each_form
    def test_bytes_of_an_array(self, row, is_complex):
        nested = numbers_of(row, is_complex)
        source = row.cls(nested, is_complex=is_complex)
        flat = flat_of(nested)
        assert bytes(source) == bytearray(source) == packed(flat, row, is_complex)

    @each_form
    def test_storage_order(self, row, is_complex):
        nested = numbers_of(row, is_complex)
        source = row.cls(nested, is_complex=is_complex)
        flat = packed(column_major(nested, [3, 4]), row, is_complex)
        assert memoryview(source).tobytes(order="F") == flat
        assert memoryview(source).tobytes(order="A") == flat

    @rows("chain", CHAINS)
    def test_bytes_of_a_view(self, chain):
        source = subscripted(velmar.double(CUBE), chain)
        assert bytes(source) == packed(flat_of(as_rows(contents(source))), CLASS_ROWS[0])

    def test_nothing(self):
        for source in (velmar.double(), velmar.double(size=(2, 0)), velmar.double([1])[0][1:]):
            assert bytes(source) == b""


class TestStandardModules:
    @each_form
    def test_from_buffer_copy(self, row, is_complex):
        numbers = numbers_of(row, is_complex)[0]
        source = row.cls(numbers, is_complex=is_complex)
        want = packed(numbers, row, is_complex)
        for one in (source, source[0]):
            assert bytes((ctypes.c_char * len(want)).from_buffer_copy(one)) == want

    def test_from_buffer_copy_of_a_column(self):
        source = velmar.double([[1], [2], [3]])
        assert list((ctypes.c_double * 3).from_buffer_copy(source)) == [1, 2, 3]

    @rows("chain", [("array", []), ("row", [0])])
    def test_what_writes_is_refused(self, chain):
        source = subscripted(velmar.double(NESTED), chain)
        for ask in (
            lambda: (ctypes.c_double * 2).from_buffer(source),
            lambda: io.BytesIO(b"12345678").readinto(source),
            lambda: struct.pack_into("d", source, 0, 1.0),
        ):
            with pytest.raises(TypeError):
                ask()
        assert as_rows(contents(source)) == NESTED[: len(as_rows(contents(source)))]

    @each(CLASS_ROWS)
    def test_struct(self, row):
        letter = LETTERS[row.word]
        numbers = numbers_of(row)[0]
        source = row.cls(numbers)[0]
        assert struct.unpack_from(f"=4{letter}", source) == tuple(contents(source))
        itemsize = struct.calcsize("=" + letter)
        assert struct.unpack_from(f"=2{letter}", source, itemsize) == tuple(contents(source))[1:3]
        assert [number for (number,) in struct.iter_unpack("=" + letter, source)] == contents(
            source
        )

    @each([row for row in CLASS_ROWS if row.kind != "logical"])
    def test_array(self, row):
        source = row.cls(numbers_of(row))
        got = array.array(LETTERS[row.word])
        got.frombytes(bytes(source))
        assert got.tolist() == flat_of(contents(source))
        del got[:]
        got.frombytes(memoryview(source[2]).cast("B"))
        assert got.tolist() == contents(source[2])

    def test_array_of_bytes(self):
        got = array.array("b")
        got.frombytes(velmar.int8([1, -2, 3]))
        assert got.tolist() == [1, -2, 3]

    def test_files_and_sums(self):
        source = velmar.uint16([1, 2, 515])[0]
        flat = packed([1, 2, 515], CLASS_ROWS[5])
        assert io.BytesIO(source).getvalue() == flat
        assert zlib.crc32(source) == zlib.crc32(flat)
        assert b"-".join([source, source]) == flat + b"-" + flat

    def test_memoryview_of_a_memoryview(self):
        source = velmar.double(CUBE)
        outer = memoryview(memoryview(source))
        assert outer.obj is source
        assert outer.tolist() == CUBE

    def test_memoryview_with_elements_one_by_one(self):
        view = memoryview(velmar.double(CUBE))
        assert [view[2, 3, 4], view[0, 0, 0], view[-1, -2, 3]] == [59.0, 0.0, 53.0]
        assert len(view) == 3


def cpython_testbuffer():
    return pytest.importorskip("_testbuffer")


class TestTestbuffer:
    """The interpreter's test module for buffers, which checks every buffer that it gets."""

    @each(CLASS_ROWS)
    def test_every_class(self, row):
        source = row.cls(numbers_of(row))
        got = cpython_testbuffer().ndarray(source, getbuf=cpython_testbuffer().PyBUF_FULL_RO)
        assert exact(got.tolist()) == exact(contents(source))
        assert (got.shape, got.strides) == (source.size, source.get_bytewise_strides())
        assert (got.format, got.itemsize) == (format_of(row), source.itemsize)
        assert (got.readonly, got.f_contiguous, got.c_contiguous) == (True, True, False)
        assert (got.suboffsets, got.obj is source) == ((), True)

    @each(COMPLEX_ROWS)
    def test_complex_classes(self, row):
        nested = numbers_of(row, True)
        source = row.cls(nested, is_complex=True)
        got = cpython_testbuffer().ndarray(source, getbuf=cpython_testbuffer().PyBUF_FULL_RO)
        assert (got.shape, got.strides) == (source.size, source.get_bytewise_strides())
        assert (got.format, got.itemsize) == (format_of(row, True), source.itemsize)
        flat = flat_of(nested)
        assert got.tobytes() == packed(flat, row, True)

    @rows("chain", CHAINS)
    def test_views(self, chain):
        source = subscripted(velmar.double(CUBE), chain)
        got = cpython_testbuffer().ndarray(source, getbuf=cpython_testbuffer().PyBUF_FULL_RO)
        assert got.tolist() == as_rows(contents(source))
        assert got.ndim == max(2, 3 - sum(isinstance(item, int) for item in chain))

    @pytest.mark.parametrize(
        "name, accepted",
        [
            ("SIMPLE", True),
            ("ND", True),
            ("STRIDES", True),
            ("INDIRECT", True),
            ("F_CONTIGUOUS", True),
            ("ANY_CONTIGUOUS", True),
            ("CONTIG_RO", True),
            ("STRIDED_RO", True),
            ("RECORDS_RO", True),
            ("FULL_RO", True),
            ("C_CONTIGUOUS", False),
            ("WRITABLE", False),
            ("CONTIG", False),
            ("STRIDED", False),
            ("RECORDS", False),
            ("FULL", False),
        ],
    )
    def test_requests(self, name, accepted):
        source = velmar.double(CUBE)
        flags = getattr(cpython_testbuffer(), f"PyBUF_{name}")
        before = sys.getrefcount(source)
        if accepted:
            got = cpython_testbuffer().ndarray(source, getbuf=flags)
            assert sys.getrefcount(source) == before + 1
            assert (got.ndim, got.nbytes) == (3, 480)
            del got
        else:
            with raises(*(NOT_C_CONTIGUOUS if name == "C_CONTIGUOUS" else NOT_WRITABLE)):
                cpython_testbuffer().ndarray(source, getbuf=flags)
        assert sys.getrefcount(source) == before

    @pytest.mark.parametrize("order", ["C", "F", "A"])
    def test_contiguous_copies(self, order):
        source = velmar.double(CUBE)
        got = cpython_testbuffer().py_buffer_to_contiguous(
            source, order, cpython_testbuffer().PyBUF_FULL_RO
        )
        flat = flat_of(CUBE)
        if order != "C":
            flat = column_major(CUBE, [3, 4, 5])
        assert got == packed(flat, CLASS_ROWS[0])
        if order != "A":
            one = cpython_testbuffer().get_contiguous(
                source, cpython_testbuffer().PyBUF_READ, order
            )
            assert one.tolist() == CUBE

    def test_addresses_of_elements(self):
        source = velmar.int32([[1, 2, 3], [4, 5, 6]])
        got = cpython_testbuffer().ndarray(source, getbuf=cpython_testbuffer().PyBUF_FULL_RO)
        places = [cpython_testbuffer().get_pointer(got, [i, j]) for i in range(2) for j in range(3)]
        assert places == [1, 2, 3, 4, 5, 6]

    def test_same_memory_as_a_clone(self):
        source = velmar.double(CUBE)
        assert cpython_testbuffer().cmp_contig(source, source.clone())
        assert cpython_testbuffer().is_contiguous(source, "F")
        assert not cpython_testbuffer().is_contiguous(source, "C")
        assert cpython_testbuffer().is_contiguous(source[1][1], "C")


def numpy():
    return pytest.importorskip("numpy")


COMPLEX_DTYPES = {"double": "complex128", "single": "complex64"}


class TestNumpy:
    @each(CLASS_ROWS)
    def test_every_class(self, row):
        source = row.cls(numbers_of(row))
        got = numpy().asarray(memoryview(source))
        assert got.dtype == DTYPES[row.word]
        assert (got.shape, got.strides) == (source.size, source.get_bytewise_strides())
        assert got.flags.f_contiguous
        assert not got.flags.writeable
        assert exact(got.tolist()) == exact(contents(source))
        assert got.ctypes.data == source.buffer_info()[0]

    @each([row for row in COMPLEX_ROWS if row.word in COMPLEX_DTYPES])
    def test_complex_classes(self, row):
        source = row.cls(numbers_of(row, True), is_complex=True)
        got = numpy().asarray(memoryview(source))
        assert got.dtype == COMPLEX_DTYPES[row.word]
        assert (got.shape, got.strides) == (source.size, source.get_bytewise_strides())
        assert got.flags.f_contiguous
        assert exact(got.tolist()) == exact(contents(source))
        assert got.ctypes.data == source.buffer_info()[0]

    @each([row for row in COMPLEX_ROWS if row.word not in COMPLEX_DTYPES])
    def test_complex_integers_are_refused(self, row):
        source = row.cls(numbers_of(row, True), is_complex=True)
        before = sys.getrefcount(source)
        with pytest.raises((RuntimeError, ValueError)):
            numpy().asarray(memoryview(source))
        assert sys.getrefcount(source) == before

    @rows("chain", CHAINS)
    def test_views(self, chain):
        source = subscripted(velmar.double(CUBE), chain)
        for got in (numpy().asarray(memoryview(source)), numpy().asarray(source)):
            assert got.tolist() == as_rows(contents(source))
            assert got.flags.f_contiguous

    @each(CLASS_ROWS)
    def test_without_a_memoryview(self, row):
        source = row.cls(numbers_of(row))
        got = numpy().asarray(source)
        assert got.dtype == DTYPES[row.word]
        assert exact(got.tolist()) == exact(contents(source))

    @pytest.mark.parametrize("size", [(0, 0), (0, 3), (3, 0), (2, 0, 4)], ids=str)
    def test_nothing(self, size):
        got = numpy().asarray(memoryview(velmar.int16(size=size)))
        assert (got.shape, got.dtype) == (size, "int16")

    def test_shares_the_memory_of_an_array(self):
        source = velmar.double(CUBE)
        got = numpy().asarray(memoryview(source))
        source[2][3][4] = -1
        assert got[2, 3, 4] == -1
        with pytest.raises(ValueError, match="read-only"):
            got[0, 0, 0] = 1

    def test_many_elements(self):
        source = velmar.double(vector=range(30000), size=(30, 20, 50))
        got = numpy().asarray(memoryview(source))
        want = numpy().arange(30000.0).reshape((30, 20, 50), order="F")
        assert (got == want).all()
        assert got[7, 11, 13] == source[7][11][13]

    def test_after_a_reshape(self):
        source = velmar.double(CUBE)
        early = numpy().asarray(memoryview(source))
        source.reshape(10, 6)
        late = numpy().asarray(memoryview(source))
        assert early.tolist() == CUBE
        assert late.tolist() == contents(source)
        assert (late == early.reshape((10, 6), order="F")).all()
