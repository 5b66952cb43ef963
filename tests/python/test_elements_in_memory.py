"""Elements that are copied, converted and compared in memory: rows beside the random cases."""

from __future__ import annotations

import array
import itertools
import operator
import struct
from collections.abc import Iterator
from typing import Any

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, FORMS, contents, grid
from helpers.capsule import there_and_back
from helpers.cases import each, each_form, rows, some_of
from helpers.child_interpreter import run_script
from helpers.element_sources import (
    PARTS,
    described,
    from_bytes,
    items,
    itself,
    outcome,
    plain,
    reads_equal,
)
from helpers.failures import raises
from helpers.lying_exporter import LyingExporter

# Real single elements and what they become in a copy: NaN keeps its sign and payload and becomes
# quiet, and infinity loses its sign.
SINGLE_BITS = {
    0x7FC00000: 0x7FC00000,
    0xFFC00000: 0xFFC00000,
    0x7FC00001: 0x7FC00001,
    0xFFFFFFFF: 0xFFFFFFFF,
    0x7FE12345: 0x7FE12345,
    0x7F800001: 0x7FC00001,
    0xFFA00000: 0xFFE00000,
    0xFF800000: 0x7F800000,
    0x7F800000: 0x7F800000,
    0x80000000: 0x80000000,
    0x80000001: 0x80000001,
    0xFF7FFFFF: 0xFF7FFFFF,
}


def single(bits: Any, shape: Any, is_complex: bool = False) -> Any:
    stored = struct.pack(f"{len(bits)}I", *bits)
    format, itemsize = (b"Zf", 8) if is_complex else (b"f", 4)
    return velmar.single(LyingExporter(stored, format, itemsize), size=shape, is_complex=is_complex)


def bits_of(array: Any, letter: str = "I") -> list[int]:
    memory = memoryview(array).tobytes("A")
    return list(struct.unpack(f"{len(memory) // struct.calcsize(letter)}{letter}", memory))


class TestNotANumber:
    """The bits of NaN. Python keeps those of a double; 0x12345 has no place in a single."""

    @pytest.mark.parametrize("is_complex", [False, True])
    @pytest.mark.parametrize("form", [itself, plain, items], ids=lambda form: form.__name__)
    def test_single(self, form, is_complex):
        given_, want = list(SINGLE_BITS), list(SINGLE_BITS.values())
        source = single(given_, (1, 12 >> is_complex), is_complex)
        assert bits_of(source) == given_
        options = {"is_complex": is_complex}
        assert bits_of(velmar.single(form(source), **options)) == want
        assert bits_of(velmar.single(vector=form(source[0]), **options)) == want
        target = velmar.single(size=source.size, **options)
        target[0] = form(source[0])
        assert bits_of(target) == want
        if form is itself:
            assert bits_of(source.clone()) == bits_of(source[0]) == want
            assert bits_of(source[:].clone()) == want
            assert bits_of(there_and_back(source[0])) == want

    @pytest.mark.parametrize("form", [itself, plain, items], ids=lambda form: form.__name__)
    def test_from_double(self, form):
        rows = {
            0x7FF8000000000000: 0x7FC00000,
            0xFFF8000000000000: 0xFFC00000,
            0x7FF8000020000000: 0x7FC00001,
            0xFFFC000000012345: 0xFFE00000,
            0x7FF0000020000000: 0x7FC00001,
        }
        doubles = array.array("d", struct.pack("5Q", *rows))
        source = velmar.double(doubles)
        assert bits_of(source, "Q") == bits_of(source.clone(), "Q") == list(rows)
        for right in (source[0], doubles, memoryview(doubles)):
            assert bits_of(velmar.single(vector=form(right))) == list(rows.values())
            target = velmar.single(size=(1, 5))
            target[0] = form(right)
            assert bits_of(target) == list(rows.values())


class TestRedefinedItems:
    """A program can replace the methods of a class; its items are then asked for one by one."""

    def test_getitem(self):
        assert run_script("""
            import velmar

            row, target = velmar.double([[1, 2], [3, 4]])[1], velmar.double(size=(1, 2))
            read = velmar.double.__getitem__
            velmar.double.__getitem__ = lambda self, index: 10 * read(self, index)
            made = [velmar.double(row), velmar.double(vector=row), velmar.single(vector=row)]
            target[0] = row
            made += [target, row.clone(), velmar.double([row, [0, 0]])]
            velmar.double.__getitem__ = read
            made.append(velmar.double(row))
            report([str(array) for array in made])
        """).reported == [
            "[[30.0,40.0]]",
            "[[30.0,40.0]]",
            "[[30.0,40.0]]",
            "[[30.0,40.0]]",
            "[[3.0,4.0]]",
            "[[30.0,40.0],[0.0,0.0]]",
            "[[3.0,4.0]]",
        ]

    def test_len(self):
        assert run_script("""
            import velmar

            row, target = velmar.double([[1, 2], [3, 4]])[1], velmar.double(size=(2, 1))
            length = velmar.double.__len__
            velmar.double.__len__ = lambda self: 1
            made = [velmar.double(row), velmar.double(vector=row), velmar.single(row)]
            target[0] = row
            made += [target, row.clone(), velmar.double([row, [9]])]
            velmar.double.__len__ = length
            made.append(velmar.double(row))
            report([str(array) for array in made])
        """).reported == [
            "[[3.0]]",
            "[[3.0]]",
            "[[3.0]]",
            "[[3.0],[0.0]]",
            "[[3.0,4.0]]",
            "[[3.0],[9.0]]",
            "[[3.0,4.0]]",
        ]


def sources_of(row: Any, is_complex: bool) -> Iterator[Any]:
    """Rows of three equal elements, for each element that matters in some conversion."""
    zero, one = PARTS[row.word][0][:2]
    for part in [*PARTS[row.word][0], *PARTS[row.word][1]]:
        for element in [part + zero, one + part] if is_complex else [part]:
            yield from_bytes(row, is_complex, element * 3, (1, 3))[0]


class TestEveryPair:
    """Elements of each class to each class, near the limits of every class."""

    @each_form
    def test_conversions(self, row, is_complex):
        for source in sources_of(row, is_complex):
            numbers = plain(source)
            for target, to_complex in some_of(FORMS, 4):
                for part, same in ((source, numbers), (source[::-2], numbers[::-2])):
                    done = []
                    for right in (part, same):
                        array = target.cls(size=(2, len(same)), is_complex=to_complex)
                        status = outcome(operator.setitem, array, 1, right)
                        made = outcome(target.cls, right, is_complex=to_complex)
                        vector = outcome(target.cls, vector=right, is_complex=to_complex)
                        done.append([status, *map(described, (array, made, vector))])
                    assert done[0] == done[1], (target.word, to_complex, numbers[0])

    @each(CLASS_ROWS)
    def test_comparisons(self, row):
        forms = [False, True] if row.has_complex else [False]
        sources = [some_of(list(sources_of(row, is_complex)), 3) for is_complex in forms]
        for a, b in itertools.product(itertools.chain(*sources), repeat=2):
            want = reads_equal(a, b)
            assert ((a == b), (a != b)) == (want, not want), (a, b)


class TestLongRows:
    """One element among many, at both ends of the pieces in which rows are worked through."""

    LENGTH = 70000
    PLACES = [0, 31, 2047, 2048, 65535, 65536, 69999]

    @pytest.mark.parametrize("place", PLACES)
    @pytest.mark.parametrize("step", [1, -1])
    @rows(
        "source, target, number, shown",
        [
            ("signed", velmar.int32, velmar.int16, -32769, "-32769"),
            ("wrapping", velmar.uint32, velmar.int8, 2**32 - 1, "4294967295"),
            ("sign", velmar.int64, velmar.uint16, -1, "-1"),
        ],
    )
    def test_a_refusal(self, source, target, number, shown, step, place):
        text = f"value ({shown}) cannot be stored in a variable of type {target.__name__}."
        row = source(size=(1, self.LENGTH))[0]
        row[place] = number
        with raises(OverflowError, text):
            target(row[::step])
        with raises(ValueError, text):
            target(vector=row[::step])
        written = target(size=(1, self.LENGTH))
        with raises(OverflowError, text):
            written[0] = row[::step]
        assert written == target(size=(1, self.LENGTH))
        row[place] = 100
        written[0] = row[::step]
        assert written[0][place if step == 1 else -1 - place] == 100
        assert sum(memoryview(written).cast("B")) == 100

    @pytest.mark.parametrize("place", PLACES)
    @each_form
    def test_a_difference(self, row, is_complex, place):
        a = row.cls(size=(self.LENGTH, 1), is_complex=is_complex)
        b = row.cls(size=(self.LENGTH, 1), is_complex=is_complex)
        real = row.cls(size=(self.LENGTH, 1))
        assert a == b == real == a[::-1]
        b[place][0] = 1
        for x, y in ((a, b), (real, b), (a[::-1], b[::-1]), (a[::-1], b)):
            assert x != y
            assert y != x
        assert b == b[:]
        assert b.clone() == b


class TestErrorPending:
    """An index beyond 64 bits leaves its error pending while the right side is read."""

    @pytest.mark.parametrize("target", [velmar.double, velmar.uint8], ids=["double", "uint8"])
    @rows(
        "right",
        [
            ("row", lambda: velmar.double([[7, 8]])[0]),
            ("other_class", lambda: velmar.int8([[7, 8]])[0]),
            ("minus_one", lambda: velmar.int8([[-1, 8]])[0]),
            ("buffer", lambda: array.array("d", [7, 8])),
            ("buffer_of_integers", lambda: array.array("b", [7, 8])),
            ("memoryview", lambda: memoryview(array.array("d", [7, 8]))),
        ],
    )
    def test_assignment(self, right, target):
        arrays = [target([[0, 1], [2, 3]]), target([[0, 1], [2, 3]])]
        done = [
            outcome(operator.setitem, arrays[0], 2**70, right()),
            outcome(operator.setitem, arrays[1], 2**70, plain(right())),
        ]
        assert done[0] == done[1]
        assert issubclass(done[0][0], (SystemError, OverflowError, TypeError))
        assert contents(arrays[0]) == contents(arrays[1])

    def test_assignment_of_itself(self):
        target = velmar.double(grid(2, 2))
        got = outcome(operator.setitem, target, 2**70, target[0])
        assert got[0] is SystemError
        assert got[2] is OverflowError
        assert contents(target) == [[0, 1], [0, 1]]


class TestMemory:
    """Who sees a write, and where the elements lie."""

    def test_writes_to_clones_while_the_source_keeps_its_snapshot(self):
        source = velmar.double(grid(2, 3))
        for view in (source, source[1], source[::-1]):
            want = memoryview(view.clone()).tolist()
            first, second, client = view.clone(), view.clone(), there_and_back(view[:])
            exported = memoryview(view[:])
            first[0] = [-1.0] * 3
            client[0] = [-2.0] * 3
            assert memoryview(second).tolist() == want
            assert memoryview(view.clone()).tolist() == want
            assert exported.tolist() == want
            assert contents(source) == grid(2, 3)

    def test_a_clone_keeps_the_first_snapshot(self):
        source = velmar.double(grid(2, 3))
        source.clone()[0] = [9.0] * 3
        source[1] = source[0]
        assert contents(source) == [[0, 1, 2], [0, 1, 2]]
        assert contents(source.clone()) == grid(2, 3)

    @pytest.mark.parametrize("is_handed_out", [False, True])
    def test_an_export_of_a_whole_array_sees_writes(self, is_handed_out):
        source, other = velmar.double(grid(2, 3)), velmar.int8([[7, 8, 9]])
        memory, part = memoryview(source), memoryview(source[:])
        kept = there_and_back(source) if is_handed_out else None
        source[0] = other[0]
        source[1] = source[0][::-1]
        assert memory.tolist() == [[7, 8, 9], [9, 8, 7]]
        assert part.tolist() == grid(2, 3)
        assert kept is None or contents(kept) == grid(2, 3)

    def test_a_client_before_the_first_look(self):
        source = velmar.double(grid(2, 3))
        kept = there_and_back(source)
        source[1] = source[0]
        assert memoryview(source).tolist() == [[0, 1, 2], [0, 1, 2]]
        assert contents(kept) == grid(2, 3)

    @pytest.mark.parametrize("count", [6, 6 << 18], ids=["small", "huge_pages"])
    def test_the_address_stays(self, count):
        source = velmar.double(size=(count // 3, 3))
        address = source.buffer_info()
        assert address[1] == count
        steps = [
            lambda: source[0][0],
            lambda: operator.setitem(source, 0, [1, 2, 3]),
            lambda: operator.setitem(source, 1, source[0]),
            lambda: source.reshape(3, count // 3),
            lambda: there_and_back(source),
            lambda: operator.setitem(source[0], 0, 5),
            lambda: memoryview(source).release(),
            lambda: source.clone(),
            lambda: source == source,
            lambda: operator.setitem(source, 0, source[1]),
        ]
        for step in steps:
            step()
            assert source.buffer_info() == address

    def test_arrays_without_elements_lie_apart(self):
        made = [velmar.double(size=(0, k)) for k in range(4)] + [velmar.int8(), velmar.int8()]
        assert len({source.buffer_info()[0] for source in made}) == len(made)
