"""Arrays too large for any memory: the message with its count and type."""

from __future__ import annotations

import pytest
import velmar
from helpers.cases import each_form
from helpers.failures import raises
from helpers.hostile_sequences import Scripted
from helpers.nesting_model import mismatch
from velmarmultidimarrayforpython import ShapeError, SizeError

BEYOND_64_BITS = 2**64 - 1
# Dimensions whose products, 2**64 + 1 and 2**64 + 2, are 1 and 2 in 64 bits.
WRAPS_TO_1 = (274177, 67280421310721)
WRAPS_TO_2 = (2 * 77158673929, 27 * 19 * 43 * 5419)


def too_large(count, word="double"):
    text = "unable to allocate memory for array with number of elements = "
    return f"{text}{count}; type = {word}"


def test_the_products_are_what_they_should_be():
    assert WRAPS_TO_1[0] * WRAPS_TO_1[1] == 2**64 + 1
    assert WRAPS_TO_2[0] * WRAPS_TO_2[1] == 2**64 + 2


class TestMoreElementsThanAnyBlockHolds:
    COUNTS = {
        "2**63": ((2**62, 2), 2**63),
        "2**63 in one row": ((2**62, 1, 2), 2**63),
        "3 * 2**62": ((2**62, 3), 3 * 2**62),
        "2**64 - 1": ((3, 6148914691236517205), 2**64 - 1),
        "2**64 - 2**32": ((2**32, 2**32 - 1), 2**64 - 2**32),
    }

    @each_form
    @pytest.mark.parametrize("size, count", COUNTS.values(), ids=COUNTS.keys())
    def test_rows(self, row, is_complex, size, count):
        message = too_large(count, row.word)
        with raises(MemoryError, message):
            row.cls(size=size, is_complex=is_complex)
        with raises(MemoryError, message):
            row.cls([1], size, is_complex=is_complex)
        with raises(MemoryError, message):
            row.cls(vector=[1], size=size, is_complex=is_complex)

    def test_whole_text(self):
        text = (
            "unable to allocate memory for array with number of elements = "
            "4611686018427387904; type = double"
        )
        with raises(MemoryError, text):
            velmar.double(size=(2**62,))

    def test_one_dimension(self):
        with raises(MemoryError, too_large(2**62)):
            velmar.double(size=(2**62,))
        with raises(MemoryError, too_large(2**63 - 1)):
            velmar.double(size=(2**63 - 1,))
        with raises(MemoryError, too_large(2**63 - 1, "logical")):
            velmar.logical(size=(2**63 - 1,))
        with raises(MemoryError, too_large(2**63 - 63, "logical")):
            velmar.logical(size=(2**63 - 63,))

    def test_first_count_beyond_the_limit_of_a_block(self):
        with raises(MemoryError, too_large(2**60)):
            velmar.double(size=(2**60,))
        with raises(MemoryError, too_large(2**59)):
            velmar.double(size=(2**59,), is_complex=True)
        with raises(MemoryError, too_large(2**62, "int8")):
            velmar.int8(size=(2**62,), is_complex=True)

    def test_before_the_data_is_looked_at(self):
        with raises(MemoryError, too_large(2**62)):
            velmar.double("text", (2**62,))
        with raises(MemoryError, too_large(2**62)):
            velmar.double(vector="text", size=(2**62,))


class TestMoreMemoryThanThereIs:
    """Counts within the limits that need more memory than any machine has."""

    @each_form
    def test_size(self, row, is_complex):
        with raises(MemoryError, too_large(2**58, row.word)):
            row.cls(size=(2**40, 2**18), is_complex=is_complex)

    @each_form
    def test_vector(self, row, is_complex):
        with raises(MemoryError, too_large(2**58, row.word)):
            row.cls(vector=Scripted([], lengths=[2**58]), is_complex=is_complex)


class TestProductsThatWrap:
    @each_form
    def test_to_nothing(self, row, is_complex):
        message = too_large(BEYOND_64_BITS, row.word)
        for size in ((2**32, 2**32), (2**62, 4), (2**22, 2**22, 2**20), (2**32, 2**33, 3)):
            with raises(MemoryError, message):
                row.cls(size=size, is_complex=is_complex)

    @each_form
    def test_to_one(self, row, is_complex):
        with raises(MemoryError, too_large(BEYOND_64_BITS, row.word)):
            row.cls(size=WRAPS_TO_1, is_complex=is_complex)

    @each_form
    def test_no_elements_for_a_product_that_wraps_to_nothing(self, row, is_complex):
        message = too_large(BEYOND_64_BITS, row.word)
        with raises(MemoryError, message):
            row.cls([], (2**32, 2**32), is_complex=is_complex)
        with raises(MemoryError, message):
            row.cls([[]], (2**32, 2**32), is_complex=is_complex)
        with raises(MemoryError, message):
            row.cls(vector=[], size=(2**32, 2**32), is_complex=is_complex)

    @each_form
    def test_two_elements_for_a_product_that_wraps_to_two(self, row, is_complex):
        message = too_large(BEYOND_64_BITS, row.word)
        with raises(MemoryError, message):
            row.cls([1, 0], WRAPS_TO_2, is_complex=is_complex)
        with raises(MemoryError, message):
            row.cls(vector=[1, 0], size=WRAPS_TO_2, is_complex=is_complex)

    def test_one_element_is_told_apart_by_the_dimensions(self):
        shown = "274177, 67280421310721"
        with raises(SizeError, mismatch("1", shown)):
            velmar.double([7], WRAPS_TO_1)
        with raises(SizeError, mismatch("1", shown)):
            velmar.double(vector=[7], size=WRAPS_TO_1)
        with raises(SizeError, mismatch("1, 1", shown)):
            velmar.double(7, WRAPS_TO_1)

    def test_nested_data_is_told_apart_by_the_dimensions(self):
        with raises(SizeError, mismatch("1, 2", "154317347858, 119537721")):
            velmar.double([[1, 2]], WRAPS_TO_2)

    def test_a_wrapped_count_is_what_data_is_counted_against(self):
        with raises(ShapeError, mismatch("1", "4294967296, 4294967296")):
            velmar.double([7], (2**32, 2**32))
        with raises(ShapeError, mismatch("2", "274177, 67280421310721")):
            velmar.double([7, 8], WRAPS_TO_1)
        with raises(ShapeError, mismatch("3", "274177, 67280421310721")):
            velmar.double(vector=[7, 8, 9], size=WRAPS_TO_1)
