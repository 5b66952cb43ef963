"""Exports under every buffer request, checked by the exporter and the test of the interpreter."""

from __future__ import annotations

import itertools

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, grid
from helpers.buffer_requests import LETTERS
from helpers.cases import each, rows
from helpers.outside_buffers import values_of

exporters = pytest.importorskip("_testbuffer")

# Single bits and the combinations that have names.
PARTS = ["ND", "STRIDES", "C_CONTIGUOUS", "F_CONTIGUOUS", "ANY_CONTIGUOUS", "INDIRECT"]
SHAPES = [(2, 3), (3, 2), (1, 6), (6, 1), (2, 3, 4), (1, 1, 5), (2, 1, 2)]


def all_requests():
    """Every word of flags, and its text."""
    for count in range(len(PARTS) + 1):
        for parts in itertools.combinations(PARTS, count):
            for extra in ([], ["FORMAT"], ["WRITABLE"], ["FORMAT", "WRITABLE"]):
                flags = 0
                for name in [*parts, *extra]:
                    flags |= getattr(exporters, f"PyBUF_{name}")
                yield flags


REQUESTS = sorted(set(all_requests()))


def answer(exporter, flags):
    """The fields that a consumer gets, or None for a refusal."""
    try:
        got = exporters.ndarray(exporter, getbuf=flags)
    except (BufferError, ValueError):
        return None
    fields = ("format", "itemsize", "nbytes", "ndim", "readonly", "shape", "strides", "suboffsets")
    return {name: getattr(got, name) for name in fields}


def counterparts(shape):
    """Our array, and the interpreter's exporter with the same elements in the same order."""
    ours = velmar.double(grid(*shape))
    in_memory = list(ours.noncomplex())
    return ours, exporters.ndarray(
        in_memory, shape=list(shape), format="d", flags=exporters.ND_FORTRAN
    )


class TestEveryRequest:
    def test_there_are_as_many_as_there_should_be(self):
        assert len(REQUESTS) == 72

    @pytest.mark.parametrize("shape", SHAPES, ids=str)
    def test_the_same_fields_as_the_interpreters_exporter(self, shape):
        """Shape and strides come with every answer, also when nobody asks for them."""
        ours, theirs = counterparts(shape)
        refused = exporters.PyBUF_WRITABLE | (
            exporters.PyBUF_C_CONTIGUOUS ^ exporters.PyBUF_STRIDES
        )
        for flags in REQUESTS:
            expected = None
            if not flags & refused:
                expected = answer(theirs, flags | exporters.PyBUF_STRIDES)
                assert expected is not None
            assert answer(ours, flags) == expected, hex(flags)


class TestVerified:
    """The check of every field and element that the interpreter's own tests use."""

    @pytest.fixture(name="verify")
    def fixture_verify(self):
        # Some distributions have the interpreter without its tests.
        case = pytest.importorskip("test.test_buffer").TestBufferProtocol("verify")
        case.setUp()
        return case.verify

    @each(CLASS_ROWS)
    def test_every_class(self, verify, row):
        source = row.cls(values_of(row), size=(2, 3))
        for result in (
            memoryview(source),
            exporters.ndarray(source, getbuf=exporters.PyBUF_FULL_RO),
        ):
            verify(
                result,
                obj=source,
                itemsize=source.itemsize,
                fmt=LETTERS[row.word],
                readonly=True,
                ndim=2,
                shape=source.size,
                strides=source.get_bytewise_strides(),
                lst=contents(source),
            )

    @pytest.mark.parametrize("shape", SHAPES, ids=str)
    @rows(
        "view_of",
        [
            ("whole", lambda array: array),
            ("slice", lambda array: array[::-1]),
            ("part", lambda array: array[:1]),
        ],
    )
    def test_every_shape(self, verify, shape, view_of):
        source = view_of(velmar.double(grid(*shape)))
        result = memoryview(source)
        verify(
            result,
            obj=source,
            itemsize=8,
            fmt="d",
            readonly=True,
            ndim=len(source.size),
            shape=source.size,
            strides=strides_of(source.size),
            lst=contents(source),
        )


def strides_of(shape):
    """Strides in bytes of doubles in column-major order."""
    return tuple(itertools.accumulate((8, *shape[:-1]), lambda a, b: a * b))
