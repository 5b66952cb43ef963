"""Repeats every operation until its memory is constant, or grows by the same amount each time.

All memory of the interpreter comes from malloc here, which counts the bytes in use, so a leak of
one byte per call is detected. The reference counts of the classes are checked, too: every new array
and view keeps one reference to its class.
"""

from __future__ import annotations

import ctypes
import gc
import os
import random
import sys
from collections.abc import Callable
from typing import Any, TextIO

import part
import velmar
from helpers.memory_blocks import references_per_call
from helpers.operations import DICTIONARY, MIDDLE, RECORD, SMALL, Operation, every_operation
from helpers.process_memory import heap_bytes, resident_bytes

CALLS = 50  # per batch
MOST_BATCHES = 30
MOST_LOOKS = 3  # a real leak shows in each of them
SMALLEST = 24  # bytes of the smallest block
UNSPLIT = 16  # bytes that malloc adds to a block if the rest is too small for a block
ROUNDING = 4  # the same, in bytes per call, if it happens in some calls only
RESIDENT_CALLS = 4000  # calls for the check of resident memory
PAGE = os.sysconf("SC_PAGESIZE")
SLACK = 64  # pages that the allocator can take in addition

# Of this process, which starts again with them. The cache of freed blocks would count as in use.
SETTINGS = {"PYTHONMALLOC": "malloc", "MALLOC_ARENA_MAX": "1"}
SETTINGS |= {"GLIBC_TUNABLES": "glibc.malloc.tcache_count=0"}


def repeat(act: Callable[[], Any], calls: int) -> None:
    for _ in range(calls):
        act()


def bytes_in_use() -> int:
    gc.collect()
    return heap_bytes()


def bytes_per_call(act: Callable[[], Any]) -> float:
    """Bytes that each call keeps: the minimum over the last batches, because a leak is in each."""
    repeat(act, CALLS // 5)
    growths: list[int] = []
    before = bytes_in_use()
    while len(growths) < MOST_BATCHES:
        repeat(act, CALLS)
        after = bytes_in_use()
        growths.append(after - before)
        before = after
        if is_level(growths[-1]) or (len(growths) > 2 and is_steady(growths[-3:])):
            break
    return min(growths[-3:], key=abs) / CALLS


def is_level(growth: int) -> bool:
    """Whether a batch left memory as it was. If memory shrank, older blocks were freed in it."""
    return abs(growth) < CALLS


def is_steady(growths: list[int]) -> bool:
    """Whether every batch grows by about the same, and each call by at least the smallest block."""
    return min(growths) >= CALLS * SMALLEST and max(growths) - min(growths) < CALLS * ROUNDING


def chunk(size: int) -> int:
    """Bytes that malloc uses for a request of this size."""
    return max((size + 8 + 15) // 16 * 16, 32)


def keep_dictionary() -> None:
    """Makes a dictionary as the module does, first empty, then filled. It is never freed."""
    made: dict[str, bool] = {}
    made["is_complex"] = True
    ctypes.pythonapi.Py_IncRef(ctypes.py_object(made))


def chosen(seed: int) -> list[Operation]:
    """The operations in random order, but first some of each kind that keeps memory."""
    todo = every_operation((SMALL, MIDDLE))
    # With thousands of numbers, pickle and deepcopy need many calls, even for a plain list.
    slow = ("middle: pickle", "middle: deepcopy")
    todo = [one for one in todo if not one.name.endswith(slow)]
    random.Random(seed).shuffle(todo)
    # A few operations that keep a record are enough; most of the time is for the others.
    records = [one for one in todo if one.kept == RECORD]
    few = len(records) // 4
    others = sorted((one for one in todo if one.kept != RECORD), key=lambda one: not one.kept)
    return [*records[:few], *others, *records[few:]]


class Leaks:
    """Looks for leaks in one operation after the other."""

    def __init__(self, seed: int):
        self.todo = chosen(seed)
        self.findings: list[str] = []
        self.expected = {"": 0, RECORD: chunk(velmar.double.__basicsize__)}
        self.expected[DICTIONARY] = round(bytes_per_call(keep_dictionary))
        self.level = 0  # operations that keep nothing
        self.grown: dict[str, dict[str, Any]] = {}

    def try_out(self, operation: Operation, log: TextIO) -> None:
        print(operation.name, file=log)
        wanted = self.expected[operation.kept]
        slack = UNSPLIT + ROUNDING if wanted else 1
        growth = 0.0
        for _ in range(MOST_LOOKS):
            growth = bytes_per_call(operation.act)
            if abs(growth - wanted) <= slack:
                break
        if abs(growth - wanted) > slack:
            self.findings.append(f"{operation.name}: {growth} bytes a call, expected {wanted}")
        elif wanted:
            facts = {"bytes a call": round(growth), "operations": 0}
            self.grown.setdefault(operation.kept, facts)["operations"] += 1
        else:
            self.level += 1
        kept = references_per_call(type(operation.make()), operation.act, CALLS)
        if kept < 0 or kept != int(kept):
            self.findings.append(f"{operation.name}: {kept} references a call")

    def figures(self, done: int) -> dict[str, Any]:
        one = velmar.double(size=(2, 3))
        text = "reference to the class, of each array and view"
        self.grown[text] = kept_reference(velmar.double, lambda: one[0])
        text = "reference to MCPyIter, of each iterator"
        self.grown[text] = kept_reference(velmar.MCPyIter, lambda: iter(one))
        figures = {"operations": done, "of": len(self.todo), "level": self.level}
        growth = self.resident_growth()
        return {**figures, "grown": self.grown, "resident growth in pages": growth}

    def resident_growth(self) -> int:
        """Pages by which resident memory grows over a mix of operations that must not grow."""
        mix = [operation.act for operation in self.todo if not operation.kept][:40]
        for act in mix:
            repeat(act, 10)
        gc.collect()
        before = resident_bytes()
        for act in mix:
            repeat(act, RESIDENT_CALLS // len(mix))
        gc.collect()
        pages = (resident_bytes() - before) // PAGE
        if pages > SLACK:
            text = f"resident memory grew by {pages} pages over {RESIDENT_CALLS} calls"
            self.findings.append(text)
        return pages


def kept_reference(cls: type, act: Callable[[], Any]) -> dict[str, Any]:
    """What a call keeps that has to keep a reference to a class, and no memory."""
    kept = references_per_call(cls, act, CALLS)
    return {"bytes a call": int(bytes_per_call(act)), "references a call": kept}


if __name__ == "__main__":
    if not SETTINGS.items() <= os.environ.items():
        os.execve(sys.executable, sys.orig_argv, os.environ | SETTINGS)
    arguments = part.begin(__doc__)
    trials = Leaks(arguments.seed)
    gc.disable()
    gc.freeze()
    sys.exit(part.try_all(trials, arguments))
