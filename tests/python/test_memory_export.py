"""The memory of arrays in the buffer protocol: every field and every refusal."""

from __future__ import annotations

import ctypes
import sys

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, grid, line, subscripted
from helpers.buffer_requests import (
    ANY_CONTIGUOUS,
    C_CONTIGUOUS,
    F_CONTIGUOUS,
    FORMAT,
    INDIRECT,
    ND,
    SIMPLE,
    STRIDES,
    UNTOUCHED,
    WRITABLE,
    PyBuffer,
    ask,
    ask_slot,
    assert_fields,
    blank,
    expected,
    exported,
    format_of,
    give_back,
    memory_of,
    numbers,
    packed,
    slot_of,
)
from helpers.cases import each, each_form, rows
from helpers.failures import NOT_C_CONTIGUOUS, NOT_INITIALIZED, NOT_WRITABLE, NULL_POINTER, raises
from helpers.memory_blocks import blocks_per_call, counts_blocks
from helpers.view_states import WITHOUT_STORAGE, bare_record, expired_row

NESTED = [[1, 0, 1], [0, 1, 0]]
CUBE = grid(3, 4, 5)
KEPT_ROW = velmar.double(NESTED)[1]


def refusal_of(flags):
    """The error of the request, or None."""
    if flags & WRITABLE:
        return NOT_WRITABLE
    if flags & C_CONTIGUOUS == C_CONTIGUOUS:
        return NOT_C_CONTIGUOUS
    return None


class TestEveryRequest:
    def assert_all(self, source, flags_of_requests, **fields):
        references = sys.getrefcount(source)
        for flags in flags_of_requests:
            answer = ask_slot(source, flags)
            refusal = refusal_of(flags)
            if refusal is None:
                assert (answer.result, answer.error) == (0, None), flags
                assert_fields(answer.buffer, source, flags, **fields)
                assert sys.getrefcount(source) == references + 1
                give_back(answer)
            else:
                assert answer.failure == refusal, flags
                assert answer.buffer.obj is None
                assert answer.buffer.internal == UNTOUCHED
            assert sys.getrefcount(source) == references

    @each_form
    def test_of_every_class(self, row, is_complex):
        array = row.cls(NESTED, is_complex=is_complex)
        self.assert_all(array, range(0x200), **expected(NESTED, [2, 3], row, is_complex))

    @each_form
    def test_of_a_row_of_every_class(self, row, is_complex):
        array = row.cls(NESTED, is_complex=is_complex)
        self.assert_all(array[0], range(0x200), **expected(NESTED[:1], [1, 3], row, is_complex))

    @pytest.mark.parametrize("high", [1 << bit for bit in range(9, 31)], ids=hex)
    def test_other_bits_change_nothing(self, high):
        row = CLASS_ROWS[0]
        requests = [high | flags for flags in range(0, 0x200, 5)]
        self.assert_all(velmar.double(CUBE), requests, **expected(CUBE, [3, 4, 5], row))

    def test_the_sign_bit_changes_nothing(self):
        answer = ask_slot(velmar.double([1]), -(2**31) | WRITABLE)
        assert answer.failure == NOT_WRITABLE
        with exported(velmar.double([1]), -(2**31)) as buffer:
            assert buffer.ndim == 2


NAMED = [
    ("simple", SIMPLE),
    ("format", FORMAT),
    ("nd", ND),
    ("strides", STRIDES),
    ("f_contiguous", F_CONTIGUOUS),
    ("any_contiguous", ANY_CONTIGUOUS),
    ("indirect", INDIRECT),
    ("full_ro", INDIRECT | FORMAT),
    ("records_ro", STRIDES | FORMAT),
]


class TestRequestsThroughTheInterpreter:
    @rows("flags", NAMED)
    def test_accepted(self, flags):
        array = velmar.double(CUBE)
        with exported(array, flags) as buffer:
            assert_fields(buffer, array, flags, **expected(CUBE, [3, 4, 5], CLASS_ROWS[0]))

    @rows("flags", NAMED)
    def test_writable(self, flags):
        answer = ask(velmar.double(CUBE), flags | WRITABLE)
        assert answer.failure == NOT_WRITABLE
        assert answer.buffer.obj is None

    @rows("flags", NAMED)
    def test_c_contiguous(self, flags):
        answer = ask(velmar.double(CUBE), flags | C_CONTIGUOUS)
        assert answer.failure == NOT_C_CONTIGUOUS
        assert answer.buffer.obj is None

    @rows(
        "make",
        [
            ("one_row", lambda: velmar.double([1, 2, 3])),
            ("one_column", lambda: velmar.double([[1], [2]])),
            ("nothing", lambda: velmar.double()),
            ("one_number", lambda: velmar.double([1])),
            ("row", lambda: velmar.double(NESTED)[0]),
        ],
    )
    def test_c_contiguous_also_when_it_is(self, make):
        answer = ask(make(), C_CONTIGUOUS)
        assert answer.failure == NOT_C_CONTIGUOUS

    def test_writable_is_refused_first(self):
        answer = ask(velmar.double(CUBE), C_CONTIGUOUS | WRITABLE | FORMAT)
        assert answer.failure == NOT_WRITABLE

    def test_parts_of_c_contiguous_are_no_request_for_it(self):
        for flags in (0x20, 0x28, 0x30, 0x10, 0x18):
            answer = ask(velmar.double(CUBE), flags)
            assert answer.result == 0
            give_back(answer)


class TestOrderOfChecks:
    """The order: no array, no record, no elements, flags."""

    def test_no_object(self):
        buffer = blank()
        with raises(*NOT_INITIALIZED):
            slot_of(velmar.double)(None, buffer, WRITABLE)
        assert buffer.obj is None

    def test_no_object_and_no_record(self):
        with raises(*NOT_INITIALIZED):
            slot_of(velmar.double)(None, None, WRITABLE)

    @each(CLASS_ROWS)
    def test_bare_record(self, row):
        record = bare_record(row.cls)
        for flags in (SIMPLE, WRITABLE, C_CONTIGUOUS, FORMAT):
            answer = ask(record, flags)
            assert answer.failure == NOT_INITIALIZED
            assert answer.buffer.obj is None
        with raises(*NOT_INITIALIZED):
            slot_of(row.cls)(id(record), None, SIMPLE)
        with raises(*NOT_INITIALIZED):
            record.tomemoryview()

    def test_no_record(self):
        array = velmar.double(NESTED)
        for source in (array, array[0], expired_row()):
            with raises(RuntimeError, "null pointer to view object null."):
                slot_of(velmar.double)(id(source), None, WRITABLE)

    @rows("make", WITHOUT_STORAGE)
    def test_no_elements(self, make):
        source = make()
        references = sys.getrefcount(source)
        for flags in (SIMPLE, WRITABLE, C_CONTIGUOUS, FORMAT):
            answer = ask(source, flags)
            assert answer.failure == NULL_POINTER
            assert answer.buffer.obj is None
        assert sys.getrefcount(source) == references
        for call in (memoryview, bytes, type(source).tomemoryview):
            with raises(*NULL_POINTER):
                call(source)

    def test_elements_that_do_not_go_through_a_double(self):
        array = velmar.int64([[1, 2**63 - 1]], is_complex=True)
        with raises(*NULL_POINTER):
            memoryview(array[0])
        answer = ask(array[0], WRITABLE)
        assert answer.failure == NULL_POINTER
        array[0][1] = 5
        with exported(array[0]) as buffer:
            assert memory_of(buffer) == packed([1, 5], CLASS_ROWS[8], True)
        with exported(array) as buffer:
            assert buffer.len == 32

    def test_whole_array_goes_out_without_a_conversion(self):
        array = velmar.int64([[1, 2**63 - 1]], is_complex=True)
        with exported(array) as buffer:
            assert numbers(ctypes.cast(buffer.buf, ctypes.POINTER(ctypes.c_int64)), 4) == [
                1,
                0,
                2**63 - 1,
                0,
            ]


class TestReferences:
    def test_each_buffer_holds_one(self):
        array = velmar.double(NESTED)
        before = sys.getrefcount(array)
        answers = [ask(array, INDIRECT) for _ in range(100)]
        assert sys.getrefcount(array) == before + 100
        for answer in answers:
            give_back(answer)
        assert sys.getrefcount(array) == before

    @rows("chain", [("array", []), ("row", [0]), ("rows", [slice(None, None, -1)])])
    def test_memoryviews(self, chain):
        source = subscripted(velmar.double(NESTED), chain)
        before = sys.getrefcount(source)
        with memoryview(source) as view:
            assert view.obj is source
            assert sys.getrefcount(source) == before + 1
            with view.toreadonly() as other:
                assert other.obj is source
        assert sys.getrefcount(source) == before

    @counts_blocks
    @rows(
        "action",
        [
            ("array", lambda: memoryview(velmar.double(NESTED))),
            ("row", lambda: memoryview(velmar.double(NESTED)[1])),
            ("same_view", lambda: memoryview(KEPT_ROW)),
            ("refused", lambda: ask(velmar.double(NESTED), WRITABLE)),
            ("refused_row", lambda: ask(velmar.double(NESTED)[1], C_CONTIGUOUS)),
            ("expired", lambda: ask(expired_row(), SIMPLE)),
            ("too_large", lambda: ask(velmar.int64([2**63 - 1], is_complex=True)[0], 0)),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        assert blocks_per_call(action) < 0.05


class TestMemoryview:
    def test_two_by_three(self):
        array = velmar.double([[1, 2, 3], [4, 5, 6]])
        view = memoryview(array)
        assert view.readonly
        assert (view.shape, view.strides, view.suboffsets) == ((2, 3), (8, 16), ())
        assert (view.format, view.itemsize, view.nbytes, view.ndim) == ("d", 8, 48, 2)
        assert (view.f_contiguous, view.c_contiguous, view.contiguous) == (True, False, True)
        assert view.tolist() == [[1, 2, 3], [4, 5, 6]]
        assert view.tobytes(order="A") == packed([1, 4, 2, 5, 3, 6], CLASS_ROWS[0])
        with pytest.raises(TypeError):
            view[0, 0] = 1.0

    @each(CLASS_ROWS)
    def test_real_classes(self, row):
        array = row.cls([[[1, 0], [0, 1], [1, 1]]] * 4)
        view = memoryview(array)
        assert view.tolist() == contents(array)
        assert view.strides == array.get_bytewise_strides()
        assert view == memoryview(array.clone())

    @each_form
    def test_tomemoryview(self, row, is_complex):
        array = row.cls(NESTED, is_complex=is_complex)
        for source, shape in ((array, (2, 3)), (array[1], (1, 3)), (array[::-1], (2, 3))):
            view = source.tomemoryview()
            assert type(view) is memoryview
            assert view.obj is source
            assert view.shape == shape
            assert view.format == format_of(row, is_complex)
            assert view.readonly

    def test_takes_no_arguments(self):
        with pytest.raises(TypeError):
            velmar.double([1]).tomemoryview(1)

    def test_live_writes_to_an_array(self):
        array = velmar.double(NESTED)
        view, row = memoryview(array), array[1]
        array[0][1] = 7
        row[2] = 8
        array[1][:2] = [5, 6]
        assert view.tolist() == [[1, 7, 1], [5, 6, 8]]

    def test_live_writes_to_every_class(self):
        for row in CLASS_ROWS:
            array = row.cls(size=(2, 2))
            view = memoryview(array)
            array[1][0] = True
            assert view.tolist() == [[0, 0], [1, 0]]

    def test_live_writes_of_complex_elements(self):
        array = velmar.single(size=(2, 2), is_complex=True)
        view = memoryview(array)
        array[1][0] = 1 - 2j
        assert view.tobytes(order="A") == packed([0j, 1 - 2j, 0j, 0j], CLASS_ROWS[1], True)


class TestManyDimensions:
    @pytest.mark.parametrize("count", [3, 63, 64])
    def test_up_to_64(self, count):
        array = velmar.int8(vector=[1, 2], size=(*(1,) * (count - 1), 2))
        view = memoryview(array)
        assert view.shape == array.size == (*(1,) * (count - 1), 2)
        assert view.strides == (1,) * count

    @pytest.mark.parametrize("count", [65, 70, 300])
    def test_more_than_a_memoryview_has(self, count):
        array = velmar.int8(vector=[1, 2], size=(*(1,) * (count - 1), 2))
        before = sys.getrefcount(array)
        for call in (memoryview, velmar.int8.tomemoryview):
            with raises(ValueError, "memoryview: number of dimensions must not exceed 64"):
                call(array)
        assert sys.getrefcount(array) == before
        with exported(array) as buffer:
            assert buffer.ndim == count
            assert numbers(buffer.shape, count) == [*[1] * (count - 1), 2]
            assert memory_of(buffer) == b"\x01\x02"
        with exported(array[0]) as buffer:
            assert buffer.ndim == count - 1

    def test_after_subscripts_few_are_left(self):
        array = velmar.int8(vector=[1, 2], size=(*(1,) * 65, 2))
        assert memoryview(subscripted(array, [0] * 65)).tolist() == [[1, 2]]


EMPTY = [
    ("nothing", lambda: velmar.double(), [0, 0]),
    ("no_rows", lambda: velmar.double(size=(0, 3)), [0, 3]),
    ("no_columns", lambda: velmar.double(size=(3, 0)), [3, 0]),
    ("inner", lambda: velmar.double(size=(2, 0, 4)), [2, 0, 4]),
    ("huge", lambda: velmar.double(size=(2**40, 0)), [2**40, 0]),
    ("row_without_columns", lambda: velmar.double(size=(3, 0))[1], [0, 0]),
    ("rows_without_columns", lambda: velmar.double(size=(3, 0))[1:], [0, 0]),
    ("slice_of_nothing", lambda: velmar.double()[:], [0, 0]),
    ("nothing_of_a_row", lambda: line(4)[2:2], [0, 4]),
]


class TestWithoutElements:
    @rows("make, shape", EMPTY)
    def test_fields(self, make, shape):
        source = make()
        with exported(source, FORMAT) as buffer:
            assert_fields(buffer, source, FORMAT, shape=shape, itemsize=8, letters="d", memory=b"")

    @rows("make, shape", EMPTY)
    def test_memoryview(self, make, shape):
        view = memoryview(make())
        assert view.shape == tuple(shape)
        assert view.nbytes == 0
        assert view.tobytes() == b""

    def test_refusals_are_the_same(self):
        for flags, refusal in ((WRITABLE, NOT_WRITABLE), (C_CONTIGUOUS, NOT_C_CONTIGUOUS)):
            for source in (velmar.double(), velmar.double(size=(3, 0))[0]):
                assert ask(source, flags).failure == refusal


def test_record_is_as_large_as_the_interpreter_has_it():
    view = memoryview(b"ab")
    with exported(view, FORMAT | ND) as buffer:
        assert (buffer.len, buffer.itemsize, buffer.readonly, buffer.ndim) == (2, 1, 1, 1)
        assert buffer.format == b"B"
    assert ctypes.sizeof(PyBuffer) == 80
