"""The example with PyArrow: buffers, tables on the memory of arrays, and arrays of tables."""

import gc

import numpy as np
import pyarrow as pa
import pytest
import velmar
import with_pyarrow
from helpers.cases import each, rows
from samples import NUMBERS, ROWS, nested
from velmar import transport
from with_pyarrow import TYPES, from_table, to_table


class TestBuffer:
    @each(ROWS)
    def test_there_and_back(self, row):
        a = row.cls(nested(row))
        buffer = pa.py_buffer(a)
        assert (buffer.address, buffer.is_mutable) == (a.buffer_info()[0], False)
        assert buffer.to_pybytes() == memoryview(a).tobytes("A")
        flat = memoryview(buffer).cast("B").cast(row.letter)
        assert np.asarray(row.cls(flat, size=(2, 3))).tolist() == nested(row)

    @each(NUMBERS)
    def test_complex(self, row):
        a = row.cls([[1 + 2j, 0], [3j, 4]], is_complex=True)
        header, _ = transport.pack(a)
        assert transport.unpack(header, [pa.py_buffer(a)]) == a

    @pytest.mark.parametrize("size", [(0, 0), (0, 3), (3, 0)], ids=str)
    def test_nothing(self, size):
        assert pa.py_buffer(velmar.double(size=size)).size == 0

    def test_keeps_the_memory(self):
        buffer = pa.py_buffer(velmar.double([[1, 2], [3, 4]]))
        gc.collect()
        assert memoryview(buffer).cast("d").tolist() == [1, 3, 2, 4]


class TestToTable:
    @each(NUMBERS)
    def test_every_class(self, row):
        a = row.cls(nested(row))
        got = to_table(a, ["x", "y", "z"])
        assert got.schema.types == [TYPES[row.letter][1]] * 3
        assert got.to_pydict() == {
            name: [line[k] for line in nested(row)] for k, name in enumerate("xyz")
        }
        addresses = [column.chunk(0).buffers()[1].address for column in got.columns]
        first, step = a.buffer_info()[0], a.get_bytewise_strides()[1]
        assert addresses == [first, first + step, first + 2 * step]
        assert from_table(got) == a

    def test_a_later_write_shows(self):
        a = velmar.double([[1, 2]])
        got = to_table(a, ["x", "y"])
        a[0][1] = 7
        assert got["y"].to_pylist() == [7]

    def test_a_row(self):
        got = to_table(velmar.int8([[1, 2], [3, 4]])[1], ["x", "y"])
        assert got.to_pydict() == {"x": [3], "y": [4]}

    def test_no_rows(self):
        got = to_table(velmar.int16(size=(0, 2)), ["x", "y"])
        assert (got.num_rows, got.schema.types) == (0, [pa.int16()] * 2)
        assert from_table(got).size == (0, 2)

    @rows(
        "a, text",
        [
            (
                "logical",
                velmar.logical([[1]]),
                "no table of 2 dimensions with elements of format ?",
            ),
            (
                "complex",
                velmar.double([[1j]], is_complex=True),
                "no table of 2 dimensions with elements of format Zd",
            ),
            (
                "cube",
                velmar.double(size=(2, 2, 2)),
                "no table of 3 dimensions with elements of format d",
            ),
        ],
    )
    def test_refused(self, a, text):
        with pytest.raises(TypeError) as caught:
            to_table(a, ["x", "y"])
        assert str(caught.value) == text


def two_chunks():
    return pa.table({"x": pa.chunked_array([[1.0], [2.0, 3.0]]), "y": pa.array([4.0, 5.0, 6.0])})


def empty_chunk_without_memory():
    nothing = pa.Array.from_buffers(pa.float64(), 0, [None, None])
    return pa.table({"x": pa.chunked_array([nothing, pa.array([1.0])])})


class TestFromTable:
    @rows(
        "make, expected",
        [
            ("no_memory", empty_chunk_without_memory, [[1]]),
            ("chunks", two_chunks, [[1, 4], [2, 5], [3, 6]]),
            ("slice", lambda: two_chunks().slice(1, 2), [[2, 5], [3, 6]]),
            (
                "filtered",
                lambda: two_chunks().filter(pa.array([True, False, True])),
                [[1, 4], [3, 6]],
            ),
            (
                "empty_chunk",
                lambda: pa.concat_tables([two_chunks().slice(3), two_chunks()]),
                [[1, 4], [2, 5], [3, 6]],
            ),
        ],
    )
    def test_tables(self, make, expected):
        assert from_table(make()) == velmar.double(expected)

    @rows(
        "columns, error, text",
        [
            (
                "gaps",
                {"x": pa.array([1.0, None])},
                ValueError,
                "a column has gaps, and arrays have none",
            ),
            (
                "two_types",
                {"x": pa.array([1.0]), "y": pa.array([1])},
                TypeError,
                "the columns are not numbers of one type",
            ),
            ("words", {"x": pa.array(["a"])}, TypeError, "the columns are not numbers of one type"),
            (
                "booleans",
                {"x": pa.array([True])},
                TypeError,
                "the columns are not numbers of one type",
            ),
            ("no_columns", {}, TypeError, "the columns are not numbers of one type"),
        ],
    )
    def test_refused(self, columns, error, text):
        with pytest.raises(error) as caught:
            from_table(pa.table(columns))
        assert str(caught.value) == text


def test_program(capsys):
    with_pyarrow.main()
    printed = capsys.readouterr().out
    assert "buffer.address == measures.buffer_info()[0] = True" in printed
    assert "address - buffer.address = 8208" in printed
    assert "from_table(read) == measures = True" in printed
    assert "from_table(read.slice(340)) = [[50.8,19.0,210.0,4100.0],[50.2,18.7," in printed
