"""memory.py JOB COLUMN: measures the memory of a statement, in a fresh process.

It prints the growth of the resident peak, in sizes of the elements, or the bytes that one object
holds. A peak includes the result and temporary memory, but not the input, which is made before.

To measure what an object holds, many are made. run.py sets PYTHONMALLOC=malloc, so all Python
objects are on the heap, and the counts of the heap are exact, including the overhead of malloc.
Memory that is mapped outside the heap shows only in the resident memory. The result is the larger
of the two.
"""

import gc
import sys
from pathlib import Path

import measure
from cases import CASES
from helpers.process_memory import heap_bytes, resident_bytes
from operation import Kind, Shape

# Enough objects to make the memory of one-time setup negligible.
TOTAL_BYTES = 64_000_000
MOST_OBJECTS = 50_000


def ready(job, column, shape):
    """The compiled statement and its names. An array `a` was read and has exported its memory."""
    [(_, statement, names)] = measure.prepared(job, [column], shape)
    if "a" in names:
        memoryview(names["a"])[0, 0]
    return compile(statement, "<statement>", "eval"), names


def peak_of(job, column):
    eval(*ready(job, column, Shape(2, 2)))  # so that one-time setup is not counted
    statement, names = ready(job, column, job.shape)
    gc.collect()
    Path("/proc/self/clear_refs").write_text("5", encoding="ascii")  # resets the peak
    before = resident_bytes("VmRSS")
    result = eval(statement, names)
    grown = resident_bytes("VmHWM") - before
    assert len(result) == job.shape.rows
    return grown / job.element_bytes


def make_and_use(statement, names):
    """An object that was read and has exported its memory, as those of most users."""
    made = element = eval(statement, names)
    while not isinstance(element, float):
        element = element[0]
    memoryview(made).release()
    return made


def bytes_held(job, column):
    statement, names = ready(job, column, job.shape)
    first = make_and_use(statement, names)  # keep it, so that its memory is not reused
    objects = [None] * min(MOST_OBJECTS, TOTAL_BYTES // job.element_bytes)
    gc.collect()
    heap, resident = heap_bytes(), resident_bytes("VmRSS")
    for i in range(len(objects)):
        objects[i] = make_and_use(statement, names)
    grown = max(heap_bytes() - heap, resident_bytes("VmRSS") - resident)
    assert len(first) == len(objects[-1])
    return grown / len(objects)


def main(name, column):
    job = CASES[name]
    print(bytes_held(job, column) if job.kind is Kind.HELD else peak_of(job, column))


if __name__ == "__main__":
    main(*sys.argv[1:])
