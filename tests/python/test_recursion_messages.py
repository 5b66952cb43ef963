"""Nesting deeper than the recursion limit: the message names the operation."""

import pytest
import velmar
from helpers.child_interpreter import run_script

DEEP = 100_000
EXCEEDED = "maximum recursion depth exceeded while "


def message_of(action):
    with pytest.raises(RecursionError) as caught:
        action()
    assert caught.type is RecursionError
    return str(caught.value)


@pytest.fixture(scope="module")
def deep_array():
    return velmar.int8(size=(1,) * DEEP + (2,))


class TestWords:
    def test_of_construction(self):
        loop = []
        loop.append(loop)
        assert message_of(lambda: velmar.double(loop)) == EXCEEDED + "flattening nested sequences"

    def test_of_a_written_row(self):
        loop = []
        loop.append(loop)
        array = velmar.double([[1, 2], [3, 4]])

        def write():
            array[0] = loop

        assert message_of(write) == EXCEEDED + "flattening nested sequences"

    @pytest.mark.parametrize("text", [str, repr])
    def test_of_the_text(self, text, deep_array):
        assert message_of(lambda: text(deep_array)) == EXCEEDED + "making a nested list of an array"

    def test_of_a_comparison(self):
        # Walked, because its elements are outside the storage.
        row = outside(2000)  # each level looks at all dimensions
        assert message_of(lambda: row == row) == EXCEEDED + "comparing arrays"


def outside(dimensions):
    """A view of that many dimensions whose elements a reshape has left outside the storage."""
    array = velmar.int8(size=(2,) + (1,) * (dimensions - 1) + (2,))
    row = array[1]
    array.reshape((1,) * dimensions + (4,))
    return row


class TestEqualShapes:
    """Arrays are compared without recursion, with elements and without."""

    @pytest.mark.parametrize("last, other", [(0, 0), (2, 2), (0, 2), (2, 0)])
    def test_any_depth(self, last, other):
        array, second = (velmar.int8(size=(1,) * DEEP + (length,)) for length in (last, other))
        assert (array == second) is (last == other)
        assert (array != second) is (last != other)
        assert array != velmar.int8(size=(1,) * (DEEP - 1) + (last,))

    def test_slices_without_elements(self):
        array = velmar.int8(size=(1,) * DEEP + (0,))
        assert array[::-1] == array[0:1]
        assert array[1:] == array[:0]
        assert array[1:] != array


# A comparison has its own limit. An interpreter that counts C and Python calls together reaches its
# limit first.
DEEP_COMPARISONS = """
import sys, threading, velmar

def compare(dimensions):
    array = velmar.int8(size=(2,) + (1,) * (dimensions - 1) + (2,))
    row = array[1]
    array.reshape((1,) * dimensions + (4,))
    try:
        return row == row
    except RecursionError as error:
        return str(error)

sys.setrecursionlimit(100000)
threading.stack_size(512 << 20)
results = []
thread = threading.Thread(target=lambda: results.extend(map(compare, [1000, 1001])))
thread.start()
thread.join()
report(results)
"""


def test_comparison_counts_its_own_levels():
    assert run_script(DEEP_COMPARISONS).reported == [True, EXCEEDED + "comparing arrays"]
