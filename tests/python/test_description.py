"""What describes an array: size, itemsize, strides and the address of its memory."""

from __future__ import annotations

import gc
import math

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, every, grid, line, subscripted
from helpers.buffer_requests import (
    column_major_strides,
    exported,
    memory_of,
    packed,
    size_of_element,
)
from helpers.cases import each, each_form, rows
from helpers.failures import NOT_INITIALIZED, STORAGE_GONE, TOO_MANY_INDICES, raises
from helpers.memory_blocks import blocks_per_call, counts_blocks
from helpers.view_states import WITHOUT_STORAGE, bare_record, call_method

CUBE = grid(3, 4, 5)
ATTRIBUTES = ["size", "_size", "itemsize"]
METHODS = ["buffer_info", "get_bytewise_strides"]


def assert_size(source, want):
    for name in ("size", "_size"):
        got = getattr(source, name)
        assert got == want
        assert type(got) is tuple
        assert all(type(length) is int for length in got)


SHAPES = [
    (1, 1),
    (1, 5),
    (5, 1),
    (2, 3),
    (1, 1, 2),
    (2, 1, 3),
    (3, 4, 5),
    (2, 3, 1, 4, 2),
    (0, 0),
    (0, 3),
    (3, 0),
    (2, 0, 4),
    (2**40, 0),
    (0, 2**62, 2**62),
    (1,) * 69 + (2,),
]


class TestWholeArrays:
    @pytest.mark.parametrize("shape", SHAPES, ids=lambda shape: str(shape)[:30])
    def test_shapes(self, shape):
        array = velmar.int32(size=shape)
        assert_size(array, shape)
        assert len(array) == array.size[0]
        assert array.itemsize == 4
        assert array.buffer_info()[1] == math.prod(shape)

    @each_form
    def test_classes(self, row, is_complex):
        array = row.cls(size=(2, 3, 4), is_complex=is_complex)
        itemsize = size_of_element(row, is_complex)
        assert_size(array, (2, 3, 4))
        assert array.itemsize == itemsize
        assert array.get_bytewise_strides() == (itemsize, 2 * itemsize, 6 * itemsize)
        assert array.buffer_info()[1] == 24

    @pytest.mark.parametrize("shape", SHAPES[:11], ids=str)
    def test_strides(self, shape):
        array = velmar.double(size=shape)
        assert array.get_bytewise_strides() == tuple(column_major_strides(list(shape), 8))

    def test_strides_behind_an_empty_dimension(self):
        assert velmar.double(size=(2, 0, 4)).get_bytewise_strides() == (8, 16, 0)
        assert velmar.double(size=(0, 3)).get_bytewise_strides() == (8, 0)
        assert velmar.double().get_bytewise_strides() == (8, 0)
        assert velmar.double(size=(3, 0)).get_bytewise_strides() == (8, 24)

    def test_numbers_are_new_in_each_call(self):
        array = velmar.double(CUBE)
        assert array.size is not array.size
        assert array.get_bytewise_strides() is not array.get_bytewise_strides()


VIEWS = [  # on 3 by 4 by 5
    ("plane", [2], (4, 5)),
    ("row", [2, 3], (5,)),
    ("planes", [every(1, 3)], (2, 4, 5)),
    ("one_plane", [every(1, 2)], (1, 4, 5)),
    ("reversed_planes", [every(step=-2)], (2, 4, 5)),
    ("rows_of_plane", [1, every(0, 4, 3)], (2, 5)),
    ("part_of_row", [1, 2, every(2, 5)], (3,)),
    ("reversed_row", [1, 2, every(step=-1)], (5,)),
    ("slice_of_slice", [every(step=-1), every(1, None)], (2, 4, 5)),
    ("integer_of_slice", [every(1, 3), 1], (4, 5)),
    ("all", [every()], (3, 4, 5)),
    ("no_planes", [every(2, 2)], (0, 4, 5)),
    ("no_rows_of_plane", [1, every(4, 9)], (0, 5)),
    ("nothing_of_row", [1, 2, every(3, 1)], (0,)),
]


class TestViews:
    @rows("chain, shape", VIEWS)
    def test_size(self, chain, shape):
        view = subscripted(velmar.double(CUBE), chain)
        assert_size(view, shape)
        assert len(view) == view.size[0]

    def test_size_of_small_views(self):
        assert velmar.double([[1, 2, 3], [4, 5, 6]])[0].size == (3,)
        assert velmar.double(size=(5, 2))[1:4].size == (3, 2)
        assert velmar.double(size=(3, 0))[1].size == (0,)
        assert velmar.double(size=(3, 0))[1:].size == (2, 0)

    @rows("chain, shape", VIEWS)
    def test_other_facts_are_those_of_the_storage(self, chain, shape):
        for array in (velmar.double(CUBE), velmar.int16(size=(3, 4, 5), is_complex=True)):
            view = subscripted(array, chain)
            assert view.itemsize == array.itemsize
            assert view.get_bytewise_strides() == array.get_bytewise_strides()
            assert view.buffer_info() == array.buffer_info()
            assert view.buffer_info()[1] == 60
            assert view.size == shape

    def test_yielded_views(self):
        array = velmar.double(CUBE)
        for plane in array:
            assert_size(plane, (4, 5))
            assert plane.buffer_info() == array.buffer_info()
            assert plane.itemsize == 8
            for row in plane:
                assert_size(row, (5,))
                assert row.get_bytewise_strides() == (8, 24, 96)

    def test_nothing_is_materialised(self):
        array = velmar.double(CUBE)
        view = array[1]
        view.buffer_info(), view.get_bytewise_strides(), view.size, view.itemsize
        array[1][0][0] = 99
        assert memoryview(view)[0, 0] == 99


class TestBufferInfo:
    @each_form
    def test_elements_are_there(self, row, is_complex):
        numbers = [1, 0, 1, 1, 0, 0]
        array = row.cls(numbers, size=(2, 3), is_complex=is_complex)
        address, count = array.buffer_info()
        assert (type(address), type(count)) == (int, int)
        assert count == 6
        with exported(array) as buffer:
            assert buffer.buf == address
            assert memory_of(buffer) == packed(
                [complex(n) for n in numbers] if is_complex else numbers, row, is_complex
            )

    def test_stays(self):
        array = velmar.double(CUBE)
        before = array.buffer_info()
        array[0][0][0] = 9
        array.clone()
        memoryview(array)
        assert array.buffer_info() == before
        array.reshape(12, 5)
        assert array.buffer_info() == before

    def test_clones_have_their_own(self):
        array = velmar.double(CUBE)
        clones = [array.clone(), array.clone(), array[:].clone()]
        assert len({one.buffer_info()[0] for one in (array, *clones)}) == 4
        assert {one.buffer_info()[1] for one in clones} == {60}
        assert array[1].clone().buffer_info()[1] == 20

    def test_follows_writes(self):
        array = velmar.double([[1, 2], [3, 4]])
        address = array.buffer_info()[0]
        array[1][0] = 7
        with exported(array) as buffer:
            assert buffer.buf == address
            assert memory_of(buffer) == packed([1, 7, 2, 4], CLASS_ROWS[0])


class TestAfterReshape:
    def test_one_dimension(self):
        array = velmar.double([1, 2, 3, 4, 5])
        array.reshape([5])
        assert_size(array, (5,))
        assert array.get_bytewise_strides() == (8,)
        assert array.buffer_info()[1] == 5
        assert_size(array[1:3], (2,))
        with exported(array) as buffer:
            assert (buffer.ndim, buffer.shape[0], buffer.strides[0]) == (1, 5, 8)

    def test_views_describe_the_new_shape(self):
        array = velmar.double(CUBE)
        plane, planes = array[1], array[1:3]
        array.reshape(4, 15)
        assert_size(plane, (15,))
        assert_size(planes, (2, 15))
        assert plane.get_bytewise_strides() == planes.get_bytewise_strides() == (8, 32)
        array.reshape(3, 2, 5, 2)
        assert_size(plane, (2, 5, 2))
        assert_size(planes, (2, 2, 5, 2))

    def test_no_dimension_left(self):
        array = velmar.double(CUBE)
        plane = array[1]
        array.reshape([60])
        assert_size(plane, ())

    @rows(
        "chain",
        [("row", [1, 2]), ("part_of_row", [1, 2, every(1, 3)]), ("deep", [0, 0, every(step=-1)])],
    )
    def test_more_subscripts_than_dimensions(self, chain):
        array = velmar.double(CUBE)
        view = subscripted(array, chain)
        array.reshape([60])
        for name in ("size", "_size"):
            with raises(*TOO_MANY_INDICES):
                getattr(view, name)
        assert view.itemsize == 8
        assert view.get_bytewise_strides() == (8,)
        assert view.buffer_info() == array.buffer_info()
        array.reshape(3, 4, 5)
        assert view.size == subscripted(array, chain).size

    def test_no_dimension_left_for_the_slice(self):
        array = velmar.double(CUBE)
        view = array[1][1:3]
        array.reshape([60])
        for name in ("size", "_size"):
            with raises(*TOO_MANY_INDICES):
                getattr(view, name)


class TestFailures:
    @rows("make", WITHOUT_STORAGE)
    def test_without_storage(self, make):
        view = make()
        for name in ATTRIBUTES:
            with raises(*STORAGE_GONE):
                getattr(view, name)
        for name in METHODS:
            with raises(*STORAGE_GONE):
                call_method(view, name)

    def test_storage_gone_after_an_export(self):
        array = velmar.double(CUBE)
        row = list(array)[1]
        memoryview(row)
        assert row.itemsize == 8
        del array
        gc.collect()
        with raises(*STORAGE_GONE):
            row.size  # noqa: B018 - reading it must fail
        with raises(*STORAGE_GONE):
            row.buffer_info()

    @each(CLASS_ROWS)
    def test_bare_record(self, row):
        record = bare_record(row.cls)
        for name in ATTRIBUTES:
            with raises(*NOT_INITIALIZED):
                getattr(record, name)
        for name in METHODS:
            with raises(*NOT_INITIALIZED):
                call_method(record, name)

    @pytest.mark.parametrize("name", ATTRIBUTES)
    def test_attributes_are_read_only(self, name):
        array = velmar.double(CUBE)
        for source in (array, array[0], bare_record(velmar.double)):
            with pytest.raises(AttributeError):
                setattr(source, name, (3, 4, 5))
            with pytest.raises(AttributeError):
                delattr(source, name)
        assert contents(array) == CUBE

    @pytest.mark.parametrize("name", METHODS)
    def test_methods_take_no_arguments(self, name):
        with pytest.raises(TypeError):
            getattr(line(3), name)(0)
        with pytest.raises(TypeError):
            getattr(line(3), name)(dimension=0)

    @counts_blocks
    @rows(
        "action",
        [
            ("size", lambda: velmar.double(size=(1000, 0)).size),
            ("size_of_slice", lambda: velmar.double(size=(1000, 0))[300:].size),
            ("itemsize", lambda: velmar.double([1]).itemsize),
            ("strides", lambda: velmar.double(size=(300, 2)).get_bytewise_strides()),
            ("info", lambda: velmar.double(size=(300, 2)).buffer_info()),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        assert blocks_per_call(action) < 0.05
