"""The exported memory of a view: a copy of its elements, made once."""

from __future__ import annotations

import gc

import velmar
from helpers.arrays import CLASS_ROWS, as_rows, contents, every, grid, subscripted
from helpers.buffer_requests import (
    FORMAT,
    INDIRECT,
    STRIDES,
    assert_fields,
    expected,
    exported,
    memory_of,
)
from helpers.cases import rows
from helpers.failures import NULL_POINTER, raises

NESTED = [[1, 0, 1], [0, 1, 0]]
CUBE = grid(3, 4, 5)


CHAINS = [  # on 3 by 4 by 5, with the exported shape
    ("plane", [2], [4, 5]),
    ("row", [2, 3], [1, 5]),
    ("planes", [every(1, 3)], [2, 4, 5]),
    ("one_plane", [every(1, 2)], [1, 4, 5]),
    ("reversed_planes", [every(step=-1)], [3, 4, 5]),
    ("rows_of_plane", [1, every(0, 4, 2)], [2, 5]),
    ("part_of_row", [1, 2, every(2, 5)], [1, 3]),
    ("reversed_row", [1, 2, every(step=-1)], [1, 5]),
    ("slice_of_slice", [every(step=-1), every(1, None)], [2, 4, 5]),
    ("all", [every()], [3, 4, 5]),
    ("no_planes", [every(2, 2)], [0, 4, 5]),
    ("no_rows_of_plane", [1, every(4, 9)], [0, 4, 5]),  # the storage's shape with 0 first
    ("nothing_of_row", [1, 2, every(3, 1)], [0, 4, 5]),
]


class TestViews:
    @rows("chain, shape", CHAINS)
    def test_export_a_copy(self, chain, shape):
        array = velmar.double(CUBE)
        view = subscripted(array, chain)
        nested = contents(view)
        if nested:
            nested = as_rows(nested)
        fields = expected(nested, shape, CLASS_ROWS[0])
        with exported(view, INDIRECT | FORMAT) as buffer:
            assert_fields(buffer, view, FORMAT, **fields)
            assert buffer.buf != array.buffer_info()[0]

    @rows("chain, shape", CHAINS)
    def test_complex_copy(self, chain, shape):
        def level(nested):
            if isinstance(nested, list):
                return [level(item) for item in nested]
            return complex(nested, -nested)

        array = velmar.int16(level(CUBE), is_complex=True)
        view = subscripted(array, chain)
        nested = contents(view)
        if nested:
            nested = as_rows(nested)
        with exported(view, FORMAT) as buffer:
            assert_fields(buffer, view, FORMAT, **expected(nested, shape, CLASS_ROWS[4], True))

    @rows("chain, shape", CHAINS)
    def test_same_memory_at_each_export(self, chain, shape):
        array = velmar.double(CUBE)
        view = subscripted(array, chain)
        with exported(view) as first, exported(view, STRIDES) as second:
            address = first.buf
            assert second.buf == address
            before = memory_of(first)
            array[:] = [[[0.5] * 5] * 4] * 3
            assert memory_of(first) == before
        with exported(view) as third:
            assert third.buf == address
            assert memory_of(third) == before

    def test_each_view_has_its_own(self):
        array = velmar.double(NESTED)
        first, second = array[0], array[0]
        with exported(first) as one, exported(second) as other:
            assert one.buf != other.buf
        array[0][0] = 9
        third = array[0]
        assert memoryview(first).tolist() == memoryview(second).tolist() == [[1, 0, 1]]
        assert memoryview(third).tolist() == [[9, 0, 1]]
        assert memoryview(first[:]).tolist() == [[9, 0, 1]]

    def test_write_through_the_view_itself(self):
        row = velmar.double(NESTED)[0]
        view = memoryview(row)
        row[1] = 7
        assert view.tolist() == memoryview(row).tolist() == [[1, 0, 1]]
        assert contents(row) == [1, 7, 1]

    def test_export_sees_what_was_written_before(self):
        array = velmar.double(NESTED)
        row = array[0]
        row[1] = 7
        array[0][2] = 8
        assert memoryview(row).tolist() == [[1, 7, 8]]

    def test_clone_and_export_share_one_snapshot(self):
        array = velmar.double(NESTED)
        row = array[0]
        row.clone()
        array[0][1] = 7
        assert memoryview(row).tolist() == [[1, 0, 1]]
        other = array[1]
        memoryview(other)
        array[1][1] = 8
        assert contents(other.clone()) == [[0, 1, 0]]

    def test_clone_of_a_whole_array_does_not_change_its_memory(self):
        array = velmar.double(NESTED)
        array.clone()
        array[0][1] = 7
        assert memoryview(array).tolist() == [[1, 7, 1], [0, 1, 0]]

    def test_yielded_rows(self):
        array = velmar.double(CUBE)
        for plane, nested in zip(array, CUBE, strict=True):
            assert memoryview(plane).tolist() == nested
            assert [memoryview(row).tolist() for row in plane] == [[line_] for line_ in nested]

    def test_copy_outlives_the_storage(self):
        array = velmar.double(NESTED)
        row = list(array)[0]
        assert memoryview(row).tolist() == [[1, 0, 1]]
        del array
        gc.collect()
        assert memoryview(row).tolist() == [[1, 0, 1]]

    def test_snapshot_of_a_clone_is_not_exported_without_storage(self):
        array = velmar.double(NESTED)
        row = list(array)[0]
        row.clone()
        del array
        with raises(*NULL_POINTER):
            memoryview(row)
