# Run in a fresh process for one column of one row: how much memory one object holds.
"""Prints bytes for each object, held.py ROW COLUMN: many are made, and memory looked at twice.

With PYTHONMALLOC=malloc every Python object is on the heap as well, so the heap's own count tells
all, to the byte and with what malloc adds. What is mapped beside the heap is seen in the resident
memory only, so the larger of the two counts.
"""

import ctypes
import gc
import os
import sys

from cases import CASES
from measure import modules
from peak import resident_bytes

# Many small objects, some large ones: what a first use sets up must not show.
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


def make_and_export(statement, names):
    made = eval(statement, names)
    memoryview(made).release()
    return made


def main(row, column):
    assert os.environ.get("PYTHONMALLOC") == "malloc", "the heap would not hold the objects"
    case = next(case for case in CASES if case.name == row)
    statement = compile(case.statements[column], "<statement>", "eval")
    names = modules() | {"data": case.data()}
    first = make_and_export(statement, names)  # and kept, so that nothing of it is used again
    objects = [None] * min(MOST_OBJECTS, TOTAL_BYTES // case.element_bytes)
    gc.collect()
    heap, resident = heap_bytes(), resident_bytes("VmRSS")
    for i in range(len(objects)):
        objects[i] = make_and_export(statement, names)
    grown = max(heap_bytes() - heap, resident_bytes("VmRSS") - resident)
    assert len(first) == len(objects[-1])
    print(grown / len(objects))


if __name__ == "__main__":
    main(*sys.argv[1:])
