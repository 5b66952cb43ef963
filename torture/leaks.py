"""Repeats every operation until its memory is constant, or grows by the same amount each time.

All memory of the interpreter comes from malloc here, which counts the bytes in use, so a leak of
one byte per call is detected. The reference counts of the classes are checked, too: every new array
and view keeps one reference to its class.
"""

from __future__ import annotations

import collections
import ctypes
import gc
import json
import os
import random
import subprocess
import sys
from collections.abc import Callable
from typing import Any

import part

CALLS = 50  # per batch
MOST_BATCHES = 30
MOST_LOOKS = 3  # a real leak shows in each of them
SMALLEST = 24  # bytes of the smallest block
UNSPLIT = 16  # bytes that malloc adds to a block if the rest is too small for a block
ROUNDING = 4  # the same, in bytes per call, if it happens in some calls only
RESIDENT_CALLS = 4000  # calls for the check of resident memory
PAGE = os.sysconf("SC_PAGESIZE")
SLACK = 64  # pages that the allocator can take in addition


class _Usage(ctypes.Structure):
    """struct mallinfo2; hblkhd has the bytes of mapped blocks, uordblks those of other blocks."""

    _fields_ = [
        *((f"before_{i}", ctypes.c_size_t) for i in range(4)),
        ("hblkhd", ctypes.c_size_t),
        *((f"between_{i}", ctypes.c_size_t) for i in range(2)),
        ("uordblks", ctypes.c_size_t),
        *((f"behind_{i}", ctypes.c_size_t) for i in range(2)),
    ]


_usage = ctypes.CDLL(None).mallinfo2
_usage.restype = _Usage


def in_use() -> int:
    """Bytes that are allocated and not freed."""
    gc.collect()
    usage = _usage()
    return usage.uordblks + usage.hblkhd


def resident() -> int:
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * PAGE


def repeat(act: Callable[[], Any], calls: int) -> None:
    for _ in range(calls):
        act()


def bytes_a_call(act: Callable[[], Any]) -> float:
    """Bytes that each call keeps: the minimum over the last batches, because a leak is in each."""
    repeat(act, CALLS // 5)
    growths: list[int] = []
    before = in_use()
    while len(growths) < MOST_BATCHES:
        repeat(act, CALLS)
        after = in_use()
        growths.append(after - before)
        before = after
        if growths[-1] < CALLS or (len(growths) > 2 and is_steady(growths[-3:])):
            break
    return min(growths[-3:], key=abs) / CALLS


def is_steady(growths: list[int]) -> bool:
    """Whether every batch grows by about the same, and each call by at least the smallest block."""
    return min(growths) >= CALLS * SMALLEST and max(growths) - min(growths) < CALLS * ROUNDING


def chunk(size: int) -> int:
    """Bytes that malloc uses for a request of this size."""
    return max((size + 8 + 15) // 16 * 16, 32)


def expected_bytes(operation: Any, record: int, dictionary: int) -> int:
    import operations

    sizes = {operations.RECORD: record, operations.DICTIONARY: dictionary}
    return sum(sizes[name] for name in operation.kept)


def size_of_dictionary() -> int:
    """Bytes of {"is_complex": True}, made as in the module: first empty, then filled."""
    kept: list[Any] = []
    kept.extend([None] * 200)
    for i in range(100):
        kept[i] = {}
        kept[i]["is_complex"] = True
    before = in_use()
    for i in range(100, 200):
        kept[i] = {}
        kept[i]["is_complex"] = True
    return round((in_use() - before) / 100)


def settles_slowly(operation: Any) -> bool:
    """With thousands of numbers, pickle and deepcopy need many calls, even for a plain list."""
    return ", middle: " in operation.name and operation.name.endswith(("pickle", "deepcopy"))


def references_a_call(cls: type, act: Callable[[], Any]) -> float:
    before = sys.getrefcount(cls)
    repeat(act, CALLS)
    gc.collect()
    return (sys.getrefcount(cls) - before) / CALLS


def walk(arguments: Any) -> int:
    import velmar

    import operations

    clock, log = part.Clock(arguments.seconds), part.Log(arguments.log)
    todo = operations.every_operation((operations.SMALL, operations.MIDDLE))
    todo = [operation for operation in todo if not settles_slowly(operation)]
    random.Random(arguments.seed).shuffle(todo)
    todo.sort(key=lambda operation: not operation.kept)  # first those that keep memory
    # A few operations that keep a record are enough; most of the time is for the others.
    records = [one for one in todo if operations.RECORD in one.kept]
    others = [one for one in todo if operations.RECORD not in one.kept]
    todo = [*records[: len(records) // 4], *others, *records[len(records) // 4 :]]
    record, dictionary = chunk(velmar.double.__basicsize__), size_of_dictionary()
    findings: list[str] = []
    grown: dict[str, dict[str, Any]] = {}
    references: collections.Counter[float] = collections.Counter()
    level, done = 0, 0
    gc.disable()
    gc.freeze()
    for operation in todo:
        if clock.is_over():
            break
        log.start(operation.name)
        wanted = expected_bytes(operation, record, dictionary)
        slack = UNSPLIT + ROUNDING if wanted else 1
        growth = 0.0
        for _ in range(MOST_LOOKS):
            growth = bytes_a_call(operation.act)
            if abs(growth - wanted) <= slack:
                break
        done += 1
        if abs(growth - wanted) > slack:
            findings.append(f"{operation.name}: {growth} bytes a call, expected {wanted}")
        elif not wanted:
            level += 1
        else:
            name = " + ".join(operation.kept)
            entry = grown.setdefault(name, {"bytes a call": round(growth), "operations": 0})
            entry["operations"] += 1
        word = operation.name.split(",")[0].split()[-1]
        kept = references_a_call(getattr(velmar, word), operation.act)
        references[kept] += 1
        if kept < 0 or kept != int(kept):
            findings.append(f"{operation.name}: {kept} references a call")
    one = velmar.double(size=(2, 3))
    grown["reference to the class, of each array and view"] = {
        "bytes a call": int(bytes_a_call(lambda: one[0])),
        "references a call": references_a_call(velmar.double, lambda: one[0]),
    }
    grown["reference to MCPyIter, of each iterator"] = {
        "bytes a call": int(bytes_a_call(lambda: iter(one))),
        "references a call": references_a_call(velmar.MCPyIter, lambda: iter(one)),
    }
    pages = resident_growth(todo, clock, findings)
    figures = {
        "operations": done,
        "of": len(todo),
        "level": level,
        "grown": grown,
        "most references a call": max(references, default=0),
        "resident growth in pages": pages,
        "seconds": clock.seconds(),
    }
    return part.finish(figures, findings)


def resident_growth(todo: list[Any], clock: part.Clock, findings: list[str]) -> int:
    """Pages by which resident memory grows over a mix of operations that must not grow."""
    mix = [operation.act for operation in todo if not operation.kept][:40]
    for act in mix:
        repeat(act, 10)
    gc.collect()
    before = resident()
    for act in mix:
        repeat(act, RESIDENT_CALLS // len(mix))
    gc.collect()
    pages = (resident() - before) // PAGE
    if pages > SLACK:
        findings.append(f"resident memory grew by {pages} pages over {RESIDENT_CALLS} calls")
    return pages


def main() -> int:
    parser = part.parser(__doc__)
    parser.add_argument("--walk", action="store_true", help="run in this process, not in a child")
    arguments = parser.parse_args()
    part.prepare()
    if arguments.walk:
        with part.contention(arguments.contended):
            return walk(arguments)
    environment = {**os.environ, "PYTHONMALLOC": "malloc", "MALLOC_ARENA_MAX": "1"}
    environment["GLIBC_TUNABLES"] = "glibc.malloc.tcache_count=0"  # the cache would count as in use
    command = [sys.executable, *sys.argv, "--walk"]
    done = subprocess.run(command, env=environment, capture_output=True, text=True, check=False)
    lines = done.stdout.splitlines()
    if not lines or not lines[-1].startswith("{"):
        text = f"the interpreter died ({done.returncode}): {done.stderr[-2000:]}"
        return part.finish({"part": "leaks", "crashes": 1}, [*lines, text])
    figures = {"part": "leaks", "seed": arguments.seed, **json.loads(lines[-1])}
    return part.finish(figures, lines[:-1])


if __name__ == "__main__":
    sys.exit(main())
