"""Storage order: nested data is reordered column-major, flat data is adopted as it lies."""

from __future__ import annotations

import array
import math

import pytest
import velmar
from helpers.arrays import contents, exact
from helpers.cases import IS_BRIEF, each_form
from helpers.nesting_model import in_storage_order, nested, normalized, storage_order


def distinct_elements(row, is_complex, count):
    """`count` values of the class that repeat late, so that a misplaced element is found."""
    if row.kind == "logical":
        return [number * number % 7 in (1, 4) for number in range(count)]
    numbers = [number % 113 for number in range(count)]
    if is_complex:
        return [complex(number, (number * 5 + 3) % 101) for number in numbers]
    return [number + 0.5 for number in numbers] if row.kind == "float" else numbers


class TestStatedOrders:
    """A nested array equals the flat one with its elements in storage order."""

    ROWS = {
        "2 by 3": ([[1, 2, 3], [4, 5, 6]], (2, 3), [1, 4, 2, 5, 3, 6]),
        "3 by 2": ([[1, 2], [3, 4], [5, 6]], (3, 2), [1, 3, 5, 2, 4, 6]),
        "1 by 3": ([[1, 2, 3]], (1, 3), [1, 2, 3]),
        "3 by 1": ([[1], [2], [3]], (3, 1), [1, 2, 3]),
        "2 by 2 by 2": (
            [[[1, 2], [3, 4]], [[5, 6], [7, 8]]],
            (2, 2, 2),
            [1, 5, 3, 7, 2, 6, 4, 8],
        ),
        "2 by 1 by 2": ([[[1, 2]], [[3, 4]]], (2, 1, 2), [1, 3, 2, 4]),
        "1 by 2 by 2": ([[[1, 2], [3, 4]]], (1, 2, 2), [1, 3, 2, 4]),
    }

    @pytest.mark.parametrize("data, size, stored", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, data, size, stored):
        assert contents(velmar.int8(data)) == data
        assert contents(velmar.int8(stored, size)) == data
        assert contents(velmar.int8(vector=stored, size=size)) == data

    def test_flat_data_with_size_is_not_reordered(self):
        flat = velmar.double([1, 2, 3, 4, 5, 6], size=(2, 3))
        assert contents(flat) == [[1, 3, 5], [2, 4, 6]]
        assert contents(velmar.double(vector=[1, 2, 3, 4, 5, 6], size=(2, 3))) == contents(flat)

    def test_complex_elements_move_whole(self):
        data = [[1 + 2j, 3 + 4j], [5 + 6j, 7 + 8j]]
        for cls in (velmar.double, velmar.single, velmar.int8, velmar.uint64):
            assert contents(cls(data, is_complex=True)) == data

    def test_one_element_of_any_nesting(self):
        for data in (7, [7], [[7]], [[[[7]]]]):
            assert contents(velmar.int8(data)) == [[7]]

    def test_no_elements(self):
        assert contents(velmar.int8([[], []])) == [[], []]
        assert contents(velmar.int8([], (2, 0, 3))) == [[], []]


class TestReordering:
    """Shapes around the block sizes of the reordering, for every element size."""

    SHAPES = [
        (2, 2),
        (1, 100),
        (100, 1),
        (7, 8),
        (8, 7),
        (16, 16),
        (31, 33),
        (64, 65),
        (3, 130),
        (130, 3),
        (2, 3, 4),
        (4, 3, 2),
        (17, 9, 5),
        (1, 40, 3),
        (40, 1, 3),
        (3, 1, 40),
        (2, 33, 1, 17),
        (2,) * 9,
        (1, 2) * 4,
    ]

    @each_form
    @pytest.mark.parametrize("shape", SHAPES, ids=lambda shape: "x".join(map(str, shape)))
    def test_nested_and_flat_agree(self, row, is_complex, shape):
        elements = distinct_elements(row, is_complex, math.prod(shape))
        expected = exact(nested(normalized(shape), elements))
        made = row.cls(nested(shape, elements), is_complex=is_complex)
        assert exact(contents(made)) == expected
        stored = storage_order(shape, elements)
        made = row.cls(stored, shape, is_complex=is_complex)
        assert exact(contents(made)) == expected
        made = row.cls(vector=stored, size=shape, is_complex=is_complex)
        assert exact(contents(made)) == expected

    @pytest.mark.parametrize(
        "letter, cls",
        [("b", velmar.int8), ("h", velmar.int16), ("f", velmar.single), ("d", velmar.double)],
    )
    def test_memory_at_any_address(self, letter, cls):
        rows, columns = 11, 150
        expected = nested((rows, columns), [number % 113 for number in range(rows * columns)])
        content = b"".join(array.array(letter, row).tobytes() for row in expected)
        for offset in range(64):
            memory = memoryview(bytearray(offset) + content)[offset:]
            made = cls(memory.cast(letter, (rows, columns)))
            assert contents(made) == expected, offset

    @pytest.mark.parametrize(
        "letter, cls, shape",
        [
            ("f", velmar.single, (1453, 1459)),
            ("d", velmar.double, (1031, 1033)),
            ("d", velmar.double, (350003, 3)),
        ],
    )
    def test_memory_larger_than_a_cache(self, letter, cls, shape):
        rows, columns = shape
        flat = array.array(letter, range(rows * columns))
        made = cls(memoryview(flat.tobytes()).cast("B").cast(letter, shape))
        stored = memoryview(made).tobytes("F")
        for column in range(columns):
            begin = column * rows * flat.itemsize
            expected = flat[column::columns].tobytes()
            assert stored[begin : begin + len(expected)] == expected, column
        assert len(stored) == len(flat) * flat.itemsize

    LARGE = [(150, 200), (20, 30, 50)] if IS_BRIEF else [(300, 400), (40, 50, 60)]

    @each_form
    @pytest.mark.parametrize("shape", LARGE, ids=lambda shape: "x".join(map(str, shape)))
    def test_large(self, row, is_complex, shape):
        elements = distinct_elements(row, is_complex, math.prod(shape))
        made = row.cls(nested(shape, elements), is_complex=is_complex)
        assert str(made) == str(nested(shape, elements)).replace(" ", "")


class TestModel:
    """The two orders of the model, which the tests above use."""

    def test_storage_order(self):
        assert storage_order((2, 3), [1, 2, 3, 4, 5, 6]) == [1, 4, 2, 5, 3, 6]
        assert storage_order((2, 2, 2), [1, 2, 3, 4, 5, 6, 7, 8]) == [1, 5, 3, 7, 2, 6, 4, 8]

    def test_in_storage_order_undoes_it(self):
        for shape in [(2, 3), (3, 1, 4), (2, 3, 4, 5)]:
            elements = list(range(math.prod(shape)))
            stored = storage_order(shape, elements)
            assert in_storage_order(shape, stored) == nested(shape, elements)
