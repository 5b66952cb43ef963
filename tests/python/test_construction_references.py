"""What a construction leaves behind: nothing if it succeeds, one record if it fails."""

from __future__ import annotations

import pytest
import velmar
from helpers.failures import must_fail
from helpers.memory_blocks import blocks_per_call, counts_blocks, references_per_call


class Unconvertible:
    """A scalar that every real class refuses."""


class Broken:
    """A sequence whose items raise."""

    def __len__(self):
        return 2

    def __getitem__(self, index):
        raise KeyError(index)


class BrokenLength(Broken):
    """A sequence whose length raises."""

    def __len__(self):
        raise KeyError("length")


SUCCEEDING = {
    "nothing": lambda: velmar.double(),
    "size": lambda: velmar.double(size=(20, 30)),
    "scalar": lambda: velmar.double(1234.5),
    "flat": lambda: velmar.double([1000.5, 2000, True]),
    "flat and size": lambda: velmar.double([1000.5, 2000.5], size=(2, 1)),
    "nested": lambda: velmar.int32([[1000, 2000], [3000, 4000]]),
    "complex": lambda: velmar.int32([[1000, 2000], [3000j, 4000j]], is_complex=True),
    "silent zero": lambda: velmar.double([Unconvertible()], is_complex=True),
    "vector": lambda: velmar.double(vector=[1000.5, 2000.5]),
    "vector and size": lambda: velmar.double(vector=(1000.5, 2000.5), size=(2, 1)),
    "vector of a generated sequence": lambda: velmar.double(vector=range(1000, 1010)),
    "dict": lambda: velmar.double({"size": (2, 1)}, [1000.5, 2000.5]),
    "array": lambda: velmar.double(velmar.double([[1000.5], [2000.5]])),
    "logical": lambda: velmar.logical([1000.5, 1j, 5000]),
}

FAILING = {
    "unknown keyword": lambda: velmar.double(shape=1),
    "unknown keyword in the dict": lambda: velmar.double({"shape": 1}),
    "is_complex": lambda: velmar.double([1000.5], is_complex=1000),
    "logical": lambda: velmar.logical([1000.5], is_complex=True),
    "both": lambda: velmar.double([1000.5], None, [2000.5]),
    "size is no sequence": lambda: velmar.double(size=1000),
    "size is empty": lambda: velmar.double(size=[]),
    "size item is no int": lambda: velmar.double(size=[1000, 1000.5]),
    "size item is negative": lambda: velmar.double(size=[1000, -1000]),
    "size item is huge": lambda: velmar.double(size=[1000, 2**70]),
    "size item cannot be had": lambda: velmar.double(size=Broken()),
    "size length cannot be had": lambda: velmar.double(size=BrokenLength()),
    "size too large": lambda: velmar.double(size=(2**62, 2)),
    "size wraps": lambda: velmar.double(size=(2**32, 2**32)),
    "element": lambda: velmar.double([1000.5, Unconvertible()]),
    "element out of range": lambda: velmar.int8([[1], [1000]]),
    "element beyond 64 bits": lambda: velmar.uint8([2**70]),
    "complex element out of range": lambda: velmar.int8([1000j], is_complex=True),
    "uneven": lambda: velmar.double([1000.5, [2000.5]]),
    "not rectangular": lambda: velmar.double([[[1000.5]], [2000.5]]),
    "fewer elements than dimensions say": lambda: velmar.double([[[], []], [[1], [2]]]),
    "text": lambda: velmar.double(["text"]),
    "item cannot be had": lambda: velmar.double([Broken(), Broken()]),
    "length cannot be had": lambda: velmar.double([[1, 2], BrokenLength()]),
    "wrong count": lambda: velmar.double([1000.5, 2000.5], (2, 2)),
    "wrong shape": lambda: velmar.double([[1000.5, 2000.5]], (2, 1)),
    "dict, wrong count": lambda: velmar.double({"size": (2, 2)}, [1000.5, 2000.5]),
    "vector is no sequence": lambda: velmar.double(vector=1000.5),
    "vector is text": lambda: velmar.double(vector="text"),
    "vector item": lambda: velmar.double(vector=[1000.5, Unconvertible()]),
    "vector item is a sequence": lambda: velmar.double(vector=[1000.5, [2000.5]]),
    "vector item cannot be had": lambda: velmar.double(vector=Broken()),
    "vector length cannot be had": lambda: velmar.double(vector=BrokenLength()),
    "vector of a wrong count": lambda: velmar.double(vector=[1000.5], size=(2, 2)),
}


@counts_blocks
class TestBlocks:
    @pytest.mark.parametrize("call", SUCCEEDING.values(), ids=SUCCEEDING.keys())
    def test_success_keeps_nothing(self, call):
        assert blocks_per_call(call) == pytest.approx(0, abs=0.05)

    @pytest.mark.parametrize("call", FAILING.values(), ids=FAILING.keys())
    def test_failure_loses_one_record_is_kept(self, call):
        """The record is allocated before any argument is read, and is never freed."""
        assert blocks_per_call(lambda: must_fail(Exception, call)) == pytest.approx(1, abs=0.05)


class TestClassReferences:
    """Every record keeps its reference to the class, also if the construction fails."""

    def test_success(self):
        assert references_per_call(velmar.double, lambda: velmar.double([1])) == 1

    def test_failure(self):
        call = FAILING["unknown keyword"]
        must_fail(Exception, call)
        assert references_per_call(velmar.double, lambda: must_fail(Exception, call)) == 1
