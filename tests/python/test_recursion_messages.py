"""What is said where nesting is deeper than the interpreter recurses: each walk names itself."""

import pytest
import velmar

DEEP = 100_000
EXCEEDED = "maximum recursion depth exceeded while "


def said_by(action):
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
        assert said_by(lambda: velmar.double(loop)) == EXCEEDED + "flattening nested sequences"

    def test_of_a_written_row(self):
        loop = []
        loop.append(loop)
        array = velmar.double([[1, 2], [3, 4]])

        def write():
            array[0] = loop

        assert said_by(write) == EXCEEDED + "flattening nested sequences"

    @pytest.mark.parametrize("text", [str, repr])
    def test_of_the_text(self, text, deep_array):
        assert said_by(lambda: text(deep_array)) == EXCEEDED + "making a nested list of an array"

    def test_of_a_comparison(self, deep_array):
        assert said_by(lambda: deep_array == deep_array) == EXCEEDED + "comparing arrays"
