"""Counts the memory blocks of the interpreter and the references that a call leaves behind."""

from __future__ import annotations

import gc
import sys
from typing import Any

import pytest

counts_blocks = pytest.mark.skipif(
    sys.getallocatedblocks() == 0, reason="this allocator does not count blocks"
)


def blocks_per_call(action: Any, calls: int = 200) -> float:
    """The memory blocks that one call leaves behind, on average.

    A leak occurs in every round, so the least of three rounds excludes what the interpreter caches.
    A round without blocks is the last one, because a collection walks through the whole heap.
    """
    kept = []
    for _ in range(3):
        gc.collect()
        before = sys.getallocatedblocks()
        for _ in range(calls):
            action()
        gc.collect()
        kept.append((sys.getallocatedblocks() - before) / calls)
        if kept[-1] == 0:
            break
    return min(kept, key=abs)


def references_per_call(thing: Any, action: Any, calls: int = 100) -> float:
    """The references to `thing` that one call leaves behind, on average."""
    gc.collect()
    before = sys.getrefcount(thing)
    for _ in range(calls):
        action()
    gc.collect()
    return (sys.getrefcount(thing) - before) / calls
