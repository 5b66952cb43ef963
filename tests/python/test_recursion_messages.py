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
        # Without elements: those in memory are compared without recursion.
        array = velmar.int8(size=(1,) * DEEP + (0,))
        assert message_of(lambda: array == array) == EXCEEDED + "comparing arrays"


# A comparison has its own limit. An interpreter that counts C and Python calls together reaches its
# limit first.
DEEP_COMPARISONS = """
import sys, threading, velmar

def compare(dimensions):
    array = velmar.int8(size=(1,) * (dimensions - 1) + (0,))
    try:
        return array == array
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
