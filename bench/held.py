# Runs in a fresh process for one column of one row: measures the memory that one object holds.
"""held.py ROW COLUMN: makes many objects and prints the bytes that each of them holds.

With PYTHONMALLOC=malloc all Python objects are on the heap, and the counts of the heap are exact,
including the overhead of malloc. Memory that is mapped outside the heap shows only in the resident
memory. The result is the larger of the two.
"""

import ctypes
import gc
import os
import sys

from cases import CASES
from measure import modules
from peak import resident_bytes

# Enough objects to make the memory of one-time setup negligible.
TOTAL_BYTES = 64_000_000
MOST_OBJECTS = 50_000


class HeapFigures(ctypes.Structure):
    """struct mallinfo2 of the C library: ten counts, of which two matter here."""

    _fields_ = [
        ("before", ctypes.c_size_t * 4),
        ("hblkhd", ctypes.c_size_t),  # bytes in blocks that are mapped one by one
        ("between", ctypes.c_size_t * 2),
        ("uordblks", ctypes.c_size_t),  # bytes in all other blocks in use
        ("behind", ctypes.c_size_t * 2),
    ]


def heap_bytes():
    mallinfo2 = ctypes.CDLL(None).mallinfo2
    mallinfo2.restype = HeapFigures
    figures = mallinfo2()
    return figures.uordblks + figures.hblkhd


def make_and_use(statement, names):
    """An object that was read and has exported its memory, as those of most users."""
    made = element = eval(statement, names)
    while not isinstance(element, float):
        element = element[0]
    memoryview(made).release()
    return made


def main(row, column):
    assert os.environ.get("PYTHONMALLOC") == "malloc", "the heap would not hold the objects"
    case = next(case for case in CASES if case.name == row)
    statement = compile(case.statements[column], "<statement>", "eval")
    names = modules() | {"data": case.data()}
    first = make_and_use(statement, names)  # keep it, so that its memory is not reused
    objects = [None] * min(MOST_OBJECTS, TOTAL_BYTES // case.element_bytes)
    gc.collect()
    heap, resident = heap_bytes(), resident_bytes("VmRSS")
    for i in range(len(objects)):
        objects[i] = make_and_use(statement, names)
    grown = max(heap_bytes() - heap, resident_bytes("VmRSS") - resident)
    assert len(first) == len(objects[-1])
    print(grown / len(objects))


if __name__ == "__main__":
    main(*sys.argv[1:])
