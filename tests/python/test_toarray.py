"""toarray(): an array.array of the numbers of one dimension, and its refusals."""

from __future__ import annotations

import array
import gc
import math
import sys

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, COMPLEX_ROWS, contents, every, exact, grid, line, subscripted
from helpers.buffer_requests import LETTERS
from helpers.cases import each, rows
from helpers.child_interpreter import run_script
from helpers.failures import STORAGE_GONE, must_fail, raises
from helpers.memory_blocks import blocks_per_call, counts_blocks
from helpers.view_states import WITHOUT_STORAGE, bare_record, call_method

CUBE = grid(3, 4, 5)
FAILED = "toarray() failed."
NOT_ONE_DIMENSION = "toarray() can be called only on a one-dimensional sequence."


def typecode_of(row):
    """The type code of the class; logical elements are bytes."""
    return "B" if row.kind == "logical" else LETTERS[row.word]


def printed_for(source):
    """The line that is printed when no array.array can be made of the source."""
    typecode = "B" if type(source) is velmar.logical else LETTERS[type(source).__name__]
    with pytest.raises((TypeError, OverflowError)) as caught:
        array.array(typecode, iter(source))
    return f"{caught.type.__name__}: {caught.value}\n"


def assert_fails(source, message, capfd):
    want = printed_for(source)
    capfd.readouterr()
    for _ in range(2):
        with raises(RuntimeError, message):
            source.toarray()
        assert capfd.readouterr() == ("", want)


def assert_gives(source, typecode, numbers, capfd):
    got = source.toarray()
    assert type(got) is array.array
    assert got.typecode == typecode
    assert exact(got.tolist()) == exact(numbers)
    assert capfd.readouterr() == ("", "")


class TestOneDimension:
    @each(CLASS_ROWS)
    def test_every_class(self, row, capfd):
        source = row.cls([[1, 0, 1], [0, 1, 1]])[1]
        numbers = [int(n) for n in contents(source)] if row.kind == "logical" else contents(source)
        assert_gives(source, typecode_of(row), numbers, capfd)

    @each(CLASS_ROWS)
    def test_limits(self, row, capfd):
        source = row.cls([[row.low, row.high]])[0]
        assert_gives(
            source,
            typecode_of(row),
            [0, 1] if row.kind == "logical" else [row.low, row.high],
            capfd,
        )

    def test_floats_of_all_kinds(self):
        numbers = [0.0, -0.0, math.inf, -math.inf, math.nan, 5e-324, 0.1]
        assert exact(velmar.double(numbers)[0].toarray().tolist()) == exact(numbers)
        single = velmar.single(numbers)[0]
        assert exact(single.toarray().tolist()) == exact(contents(single))

    def test_signaling_nan_becomes_quiet(self):
        bits = array.array("I", [0x7F800001, 0xFFA00123, 0x7FC00055])
        single = velmar.single(memoryview(bits).cast("B").cast("f"))[0]
        assert array.array("I", single.toarray().tobytes()).tolist() == [
            0x7FC00001,
            0xFFE00123,
            0x7FC00055,
        ]

    def test_logical_numbers_are_0_and_1(self):
        got = velmar.logical([[True, False, True]])[0].toarray()
        assert got == array.array("B", [1, 0, 1])
        assert got.itemsize == 1

    @rows(
        "chain",
        [
            ("row", [1, 2]),
            ("part", [1, 2, every(1, 4)]),
            ("reversed", [1, 2, every(step=-1)]),
            ("backwards", [0, -1, every(step=-2)]),
            ("slice_of_slice", [2, 0, every(1), every(step=-1)]),
            ("row_of_planes", [every(1, 3), 1, 3]),
            ("one", [2, 3, every(4)]),
        ],
    )
    def test_views(self, chain, capfd):
        source = subscripted(velmar.double(CUBE), chain)
        assert_gives(source, "d", contents(source), capfd)

    def test_yielded_rows(self):
        source = velmar.int16([[1, 2], [3, 4]])
        assert [row.toarray() for row in source] == [
            array.array("h", [1, 2]),
            array.array("h", [3, 4]),
        ]

    def test_extracted_parts(self, capfd):
        source = velmar.int8([[1 + 2j, 3 - 4j]], is_complex=True)
        assert_gives(source.real(), "b", [1, 3], capfd)
        assert_gives(source.imag(), "b", [2, -4], capfd)

    def test_array_of_one_dimension(self, capfd):
        source = velmar.double([1, 2, 3])
        source.reshape([3])
        assert_gives(source, "d", [1.0, 2.0, 3.0], capfd)
        assert_gives(source[1:], "d", [2.0, 3.0], capfd)

    def test_current_numbers_are_read(self):
        source = velmar.double([1, 2, 3])
        row = source[0]
        row.clone()
        memoryview(row)
        source[0][1] = 7
        assert row.toarray().tolist() == [1, 7, 3]

    def test_result_stands_alone(self):
        source = velmar.double([1, 2, 3])
        got = source[0].toarray()
        got[0] = 9
        source[0][1] = 8
        assert got.tolist() == [9, 2, 3]
        assert contents(source) == [[1, 8, 3]]
        del source
        gc.collect()
        got.append(4)
        assert got.tolist() == [9, 2, 3, 4]


class TestAnotherClass:
    """A program can replace array.array before the import; its class gets an iterator."""

    REPLACED = """
        import array

        class Own(array.array):
            def __new__(cls, typecode, numbers):
                made = super().__new__(cls, typecode, numbers)
                made.source = type(numbers).__name__
                return made

        array.array = Own
        import velmar
        made = velmar.double([[1, 2], [3, 4]])[1].toarray()
        report([type(made).__name__, made.source, made.tolist()])
    """

    def test_subclass(self):
        name, source, numbers = run_script(self.REPLACED).reported
        assert (name, numbers) == ("Own", [3.0, 4.0])
        assert source == type(iter(velmar.double([1]))).__name__

    def test_function(self):
        script = """
            import array
            array.array = lambda typecode, numbers: [typecode, *numbers]
            import velmar
            report(velmar.double([[1, 2], [3, 4]])[1].toarray())
        """
        assert run_script(script).reported == ["d", 3.0, 4.0]


class TestWithoutElements:
    @rows(
        "source",
        [
            ("nothing", velmar.double()),
            ("no_rows", velmar.double(size=(0, 3))),
            ("no_planes", velmar.double(size=(0, 3, 4))),
            ("no_columns_of_a_row", velmar.double(size=(3, 0))[1]),
            ("empty_slice", velmar.double(CUBE)[2:2]),
            ("empty_slice_of_plane", velmar.double(CUBE)[1][4:]),
            ("empty_slice_of_row", line(3)[3:]),
            ("complex", velmar.double(is_complex=True)),
            ("complex_row", velmar.double(size=(1, 0), is_complex=True)[0]),
        ],
    )
    def test_gives_nothing(self, source, capfd):
        assert_gives(source, "d", [], capfd)

    @each(CLASS_ROWS)
    def test_every_class(self, row, capfd):
        assert_gives(row.cls(), typecode_of(row), [], capfd)

    def test_empty_rows_are_something(self, capfd):
        assert_fails(velmar.double(size=(2, 0)), NOT_ONE_DIMENSION, capfd)
        assert_fails(velmar.double(size=(2, 0))[1:], NOT_ONE_DIMENSION, capfd)


class TestFailures:
    @each(CLASS_ROWS)
    def test_whole_arrays(self, row, capfd):
        assert_fails(row.cls([[1, 0], [0, 1]]), NOT_ONE_DIMENSION, capfd)
        assert_fails(row.cls([1]), NOT_ONE_DIMENSION, capfd)

    @rows(
        "chain",
        [
            ("array", []),
            ("plane", [1]),
            ("planes", [every(1, 3)]),
            ("one_plane", [every(1, 2)]),
            ("rows_of_plane", [0, every(step=-1)]),
        ],
    )
    def test_more_dimensions(self, chain, capfd):
        assert_fails(subscripted(velmar.double(CUBE), chain), NOT_ONE_DIMENSION, capfd)

    @each(COMPLEX_ROWS)
    def test_complex_numbers(self, row, capfd):
        source = row.cls([[1, 2j]], is_complex=True)
        assert_fails(source[0], FAILED, capfd)
        assert_fails(source[0][1:], FAILED, capfd)
        assert_fails(source, NOT_ONE_DIMENSION, capfd)

    def test_exact_print(self, capfd):
        with raises(RuntimeError, NOT_ONE_DIMENSION):
            velmar.double([1]).toarray()
        assert capfd.readouterr() == ("", "TypeError: must be real number, not velmar.double\n")
        with raises(RuntimeError, FAILED):
            velmar.double([1j], is_complex=True)[0].toarray()
        assert capfd.readouterr() == ("", "TypeError: must be real number, not complex\n")

    def test_error_has_no_cause_or_context(self, capfd):
        with pytest.raises(RuntimeError) as caught:
            velmar.double([1]).toarray()
        assert caught.value.__cause__ is None
        assert caught.value.__context__ is None
        capfd.readouterr()

    @rows("make", WITHOUT_STORAGE)
    def test_without_storage(self, make, capfd):
        with raises(*STORAGE_GONE):
            call_method(make(), "toarray")
        assert capfd.readouterr() == ("", "")

    def test_storage_gone_after_an_export(self, capfd):
        source = velmar.double([[1, 2], [3, 4]])
        row = list(source)[0]
        memoryview(row)
        row.clone()
        del source
        with raises(*STORAGE_GONE):
            call_method(row, "toarray")
        assert capfd.readouterr() == ("", "")

    @each(CLASS_ROWS)
    def test_bare_record(self, row, capfd):
        with raises(RuntimeError, "object not initialized."):
            bare_record(row.cls).toarray()
        assert capfd.readouterr() == ("", "")

    def test_takes_no_arguments(self):
        with pytest.raises(TypeError):
            line(3).toarray("d")


class TestPrinting:
    """The failure is printed through sys.excepthook, which a program may replace."""

    def test_goes_through_the_hook(self, monkeypatch, capfd):
        seen = []
        monkeypatch.setattr(sys, "excepthook", lambda *report: seen.append(report[:2]))
        with raises(RuntimeError, NOT_ONE_DIMENSION):
            velmar.double([1]).toarray()
        assert [(cls, str(value)) for cls, value in seen] == [
            (TypeError, "must be real number, not velmar.double")
        ]
        assert capfd.readouterr() == ("", "")

    def test_hook_that_reshapes(self, monkeypatch, capfd):
        source = velmar.double([1, 2, 3])
        monkeypatch.setattr(sys, "excepthook", lambda *_: source.reshape([3]))
        with raises(RuntimeError, FAILED):
            source.toarray()
        assert source.toarray().tolist() == [1, 2, 3]
        assert capfd.readouterr() == ("", "")

    def test_hook_that_drops_the_array(self, monkeypatch):
        held = [velmar.double(CUBE)]
        plane = list(held[0])[1]
        seen = []

        def hook(*report):
            seen.append(str(report[1]))
            held.clear()

        monkeypatch.setattr(sys, "excepthook", hook)
        with raises(RuntimeError, NOT_ONE_DIMENSION):
            plane.toarray()
        assert seen == ["must be real number, not velmar.double"]
        with raises(*STORAGE_GONE):
            plane.toarray()


def failing_toarray(source):
    must_fail(RuntimeError, source.toarray)


class TestReferences:
    @counts_blocks
    @rows(
        "action",
        [
            ("row", lambda: velmar.double([1000.5, 2000.5])[0].toarray()),
            ("nothing", lambda: velmar.double().toarray()),
            ("array", lambda: failing_toarray(velmar.double([1000.5, 2000.5]))),
            ("complex", lambda: failing_toarray(velmar.double([1000j], is_complex=True)[0])),
            ("expired", lambda: failing_toarray(list(velmar.double([1000.5]))[0])),
        ],
    )
    def test_nothing_is_left_behind(self, action, monkeypatch):
        monkeypatch.setattr(sys, "excepthook", lambda *_: None)
        assert blocks_per_call(action) < 0.05

    def test_source_is_given_back(self, monkeypatch):
        monkeypatch.setattr(sys, "excepthook", lambda *_: None)
        source = velmar.double([[1, 2], [3, 4]])
        row = source[0]
        before = sys.getrefcount(source), sys.getrefcount(row)
        for _ in range(10):
            row.toarray()
            failing_toarray(source)
        assert (sys.getrefcount(source), sys.getrefcount(row)) == before
