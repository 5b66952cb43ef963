"""`real`, `imag`, `noncomplex` and their attributes: rows of numbers in storage order."""

from __future__ import annotations

import operator
import sys

import pytest
import velmar
from helpers.arrays import COMPLEX_ROWS, contents, exact, subscripted
from helpers.cases import each, each_form, rows
from helpers.failures import NOT_INITIALIZED, PARTIAL_ARRAY, STORAGE_GONE, raises
from helpers.memory_blocks import blocks_per_call, counts_blocks
from helpers.view_states import WITHOUT_STORAGE, bare_record

NOT_COMPLEX = "real() and imag() can be called only on a complex array."
COMPLEX = "noncomplex() must not be called on a complex array."

REAL_WAYS = [("real", lambda a: a.real()), ("_real", lambda a: a._real)]
IMAG_WAYS = [("imag", lambda a: a.imag()), ("_imag", lambda a: a._imag)]
DATA_WAYS = [("noncomplex", lambda a: a.noncomplex()), ("_data", lambda a: a._data)]

NESTED = [[1, 0, 1], [0, 0, 1]]
STORED = [1, 0, 0, 0, 1, 1]
COMPLEX_NESTED = [[1 + 2j, 3j, 5], [7, 9 + 4j, 11 + 6j]]
STORED_REALS, STORED_IMAGS = [1, 7, 0, 9, 5, 11], [2, 0, 3, 4, 0, 6]


def element(row, number):
    """A number as an element of the class."""
    return row.cls([number])[0][0]


def parts(row):
    return row.cls(COMPLEX_NESTED, is_complex=True)


class TestElements:
    @each_form
    def test_all_classes(self, row, is_complex):
        array = row.cls(NESTED, is_complex=is_complex)
        for _, way in REAL_WAYS if is_complex else DATA_WAYS:
            found = way(array)
            assert type(found) is row.cls
            assert found._is_complex is False
            assert exact(list(found)) == exact([element(row, number) for number in STORED])

    @each(COMPLEX_ROWS)
    def test_both_parts(self, row):
        for _, way in REAL_WAYS:
            assert exact(list(way(parts(row)))) == exact([element(row, n) for n in STORED_REALS])
        for _, way in IMAG_WAYS:
            assert exact(list(way(parts(row)))) == exact([element(row, n) for n in STORED_IMAGS])

    @pytest.mark.parametrize("shape", [(1, 1), (24, 1), (1, 24), (2, 3, 4), (4, 1, 3, 2)], ids=str)
    def test_storage_order(self, shape):
        count = 1
        for length in shape:
            count *= length
        numbers = list(range(count))
        real = velmar.int16(vector=numbers, size=shape)
        assert list(real.noncomplex()) == numbers
        both = velmar.int16(vector=[n - 1j * n for n in numbers], size=shape, is_complex=True)
        assert list(both.real()) == numbers
        assert list(both.imag()) == [-n for n in numbers]

    def test_one_dimension(self):
        array = velmar.double(vector=[1, 2, 3]).reshape([3])
        assert list(array.noncomplex()) == [1, 2, 3]

    def test_every_bit_of_long_integers(self):
        array = velmar.int64([2**62 + 1, -(2**63)], is_complex=True)
        assert list(array.real()) == [2**62 + 1, -(2**63)]
        assert list(velmar.uint64([2**64 - 1], is_complex=True)._real) == [2**64 - 1]
        assert list(velmar.uint64([2**64 - 1]).noncomplex()) == [2**64 - 1]

    def test_odd_floats(self):
        array = velmar.double(
            [complex(-0.0, float("nan")), complex(float("inf"), -0.0)], is_complex=True
        )
        assert exact(list(array.real())) == exact([-0.0, float("inf")])
        assert exact(list(array.imag())) == exact([float("nan"), -0.0])

    @pytest.mark.parametrize("size", [(0, 0), (0, 3), (3, 0), (2, 0, 4)], ids=str)
    @each_form
    def test_no_elements(self, row, is_complex, size):
        array = row.cls(size=size, is_complex=is_complex)
        for _, way in REAL_WAYS + IMAG_WAYS if is_complex else DATA_WAYS:
            found = way(array)
            assert (found.size, len(found), list(found)) == ((0,), 0, [])
            assert str(found) == "[]"
            assert found.get_bytewise_strides() == (found.itemsize, found.itemsize)
            assert found.buffer_info()[1] == 0

    def test_many(self):
        numbers = list(range(100_000))
        array = velmar.int32(
            vector=[complex(n, -n) for n in numbers], size=(100, 1000), is_complex=True
        )
        assert array.real().toarray().tolist() == numbers
        assert list(array.imag()) == [-n for n in numbers]


class TestTheRow:
    """The result is row 0 of a new array of one row."""

    def test_reads_as_one_dimension(self):
        row = velmar.double(NESTED).noncomplex()
        assert (row.size, row._size, len(row)) == ((6,), (6,), 6)
        assert str(row) == "[1.0,0.0,0.0,0.0,1.0,1.0]"
        assert repr(row) == "velmar.double([1.0,0.0,0.0,0.0,1.0,1.0])"
        assert exact([row[0], row[-1]]) == exact([1.0, 1.0])
        assert contents(row[1:5:3]) == [0, 1]
        assert 1 in row
        assert row.toarray().tolist() == STORED

    def test_has_storage_of_two(self):
        row = velmar.double(NESTED).noncomplex()
        assert row.get_bytewise_strides() == (8, 8)
        assert row.buffer_info()[1] == 6
        assert memoryview(row).shape == (1, 6)
        assert row.clone().size == (1, 6)
        assert row.__reduce__() == (velmar.double, ({}, STORED))

    def test_equality(self):
        row = velmar.double(NESTED).noncomplex()
        assert row == velmar.double([STORED])[0]
        assert row == velmar.double(NESTED)._data
        assert row != velmar.double([STORED])
        assert row != row.clone()
        assert row != velmar.single(NESTED).noncomplex()

    def test_cannot_be_reshaped(self):
        for row in (velmar.double(NESTED)._data, parts_of_double().real(), parts_of_double()._imag):
            for shape in ((6, 1), (1, 6), ([6],)):
                with raises(*PARTIAL_ARRAY):
                    row.reshape(*shape)

    def test_is_written(self):
        row = velmar.int16(NESTED).noncomplex()
        row[0] = 7
        row[1:3] = [8, 9]
        assert list(row) == [7, 8, 9, 0, 1, 1]
        with raises(IndexError, "index has an invalid value: 6"):
            row[6]

    def test_of_an_extracted_row(self):
        row = velmar.double(NESTED).noncomplex()
        again = row[2:].noncomplex()
        row[0] = 9
        assert list(again) == STORED

    def test_a_real_result_has_no_parts(self):
        real = parts_of_double().real()
        with raises(ValueError, NOT_COMPLEX):
            real.real()
        assert list(real.noncomplex()) == STORED_REALS


def parts_of_double():
    return velmar.double(COMPLEX_NESTED, is_complex=True)


class TestViews:
    """All of the storage is extracted, whatever part of it the view shows."""

    CHAINS = [
        ("row", [1]),
        ("rows", [slice(1, 2)]),
        ("no_rows", [slice(2, 2)]),
        ("backwards", [slice(None, None, -1)]),
        ("part_of_row", [0, slice(1, 2)]),
        ("row_of_rows", [slice(None, None, -1), 0]),
    ]

    @rows("chain", CHAINS)
    def test_whole_storage(self, chain):
        view = subscripted(velmar.double(NESTED), chain)
        shown = str(view)
        assert list(view.noncomplex()) == list(view._data) == STORED
        assert str(view) == shown
        view = subscripted(parts_of_double(), chain)
        assert list(view.real()) == list(view._real) == STORED_REALS
        assert list(view.imag()) == list(view._imag) == STORED_IMAGS
        assert view._is_complex is True

    def test_no_snapshot_is_made(self):
        array = velmar.double(NESTED)
        view = array[0]
        view.noncomplex()
        array.noncomplex()
        array[0][0] = 9
        assert contents(view.clone()) == [[9, 0, 1]]
        assert contents(array.clone()) == [[9, 0, 1], [0, 0, 1]]
        assert list(view.noncomplex()) == [9, 0, 0, 0, 1, 1]

    def test_of_yielded_rows(self):
        array = parts_of_double()
        for row in array:
            assert list(row.real()) == STORED_REALS


class TestIndependence:
    @pytest.mark.parametrize("is_complex", [False, True])
    def test_writes_do_not_pass(self, is_complex):
        array = velmar.int16([[1, 2], [3, 4]], is_complex=is_complex)
        row = array.real() if is_complex else array.noncomplex()
        array[0][0] = 9
        row[3] = 8
        assert list(row) == [1, 3, 2, 8]
        assert contents(array) == [[9, 2], [3, 4]]
        assert row.buffer_info()[0] != array.buffer_info()[0]

    def test_each_call_makes_another(self):
        array = velmar.double(NESTED)
        first, second = array._data, array._data
        assert first is not second
        first[0] = 5
        assert list(second) == STORED

    def test_the_result_outlives_the_source(self):
        row = velmar.double(NESTED).noncomplex()
        others = [velmar.double([[9] * 6]) for _ in range(10)]
        assert list(row) == STORED
        assert len(others) == 10

    def test_the_source_may_be_reshaped(self):
        array = velmar.double(NESTED)
        row = array.noncomplex()
        array.reshape(6, 1)
        assert list(row) == list(array.noncomplex()) == STORED
        assert row.size == (6,)


class TestRefusals:
    @each_form
    def test_the_wrong_kind(self, row, is_complex):
        array = row.cls(NESTED, is_complex=is_complex)
        ways, message = (DATA_WAYS, COMPLEX) if is_complex else (REAL_WAYS + IMAG_WAYS, NOT_COMPLEX)
        for target in (array, array[0], array[::-1], row.cls(is_complex=is_complex)):
            for name, way in ways:
                with raises(ValueError, message):
                    way(target)
                if name.startswith("_"):
                    with raises(ValueError, message):
                        hasattr(target, name)
                    with raises(ValueError, message):
                        getattr(target, name, None)

    @rows("make", WITHOUT_STORAGE)
    def test_without_storage(self, make):
        view = make()
        kinds = (REAL_WAYS + IMAG_WAYS, DATA_WAYS)
        for name, way in kinds[not view._is_complex]:
            with raises(*STORAGE_GONE):
                way(view)
            if name.startswith("_"):
                with raises(*STORAGE_GONE):
                    hasattr(view, name)

    @rows("make", WITHOUT_STORAGE)
    def test_the_wrong_kind_before_the_storage(self, make):
        view = make()
        for _, way in DATA_WAYS if view._is_complex else REAL_WAYS + IMAG_WAYS:
            with raises(ValueError, COMPLEX if view._is_complex else NOT_COMPLEX):
                way(view)

    @pytest.mark.parametrize("name", ["real", "imag", "noncomplex"])
    def test_methods_take_no_arguments(self, name):
        with pytest.raises(TypeError):
            getattr(velmar.double(1), name)(1)
        with pytest.raises(TypeError):
            getattr(velmar.double(1), name)(a=1)

    @pytest.mark.parametrize("name", ["_real", "_imag", "_data", "_is_complex"])
    def test_attributes_are_only_read(self, name):
        for array in (velmar.double(1), velmar.double(1, is_complex=True)):
            with pytest.raises(AttributeError):
                setattr(array, name, 1)
            with pytest.raises(AttributeError):
                delattr(array, name)

    @pytest.mark.parametrize(
        "name", ["real", "imag", "noncomplex", "_real", "_imag", "_data", "_is_complex"]
    )
    @each_form
    def test_before_construction(self, row, is_complex, name):
        if is_complex:
            return
        record = bare_record(row.cls)
        with raises(*NOT_INITIALIZED):
            if name.startswith("_"):
                getattr(record, name)
            else:
                operator.methodcaller(name)(record)


class TestIsComplex:
    @each_form
    def test_whole_and_view(self, row, is_complex):
        array = row.cls(NESTED, is_complex=is_complex)
        for target in (
            array,
            array[0],
            array[::-1],
            array[0][1:],
            next(iter(array)),
            array.clone(),
        ):
            assert target._is_complex is is_complex

    def test_by_class_and_not_by_content(self):
        assert velmar.double(1, is_complex=True)._is_complex is True
        assert velmar.double(1, is_complex=False)._is_complex is False
        assert velmar.double(is_complex=True)._is_complex is True

    @rows("make", WITHOUT_STORAGE)
    def test_needs_no_storage(self, make):
        assert type(make()._is_complex) is bool


class TestReferences:
    @counts_blocks
    @rows(
        "action",
        [
            ("real", lambda: parts_of_double().real()),
            ("imag", lambda: parts_of_double()._imag),
            ("data", lambda: velmar.double(NESTED)._data),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        assert abs(blocks_per_call(action)) < 0.5

    def test_references_of_the_source(self):
        array = velmar.double(NESTED)
        references = sys.getrefcount(array)
        rows_of_it = [array.noncomplex() for _ in range(5)]
        with pytest.raises(ValueError):
            array.real()
        assert sys.getrefcount(array) == references
        assert len(rows_of_it) == 5
