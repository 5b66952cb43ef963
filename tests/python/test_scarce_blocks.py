"""Operations on large arrays with memory for only some of the blocks that they need."""

from __future__ import annotations

import pytest
from helpers.cases import some_of
from helpers.child_interpreter import run_script
from helpers.memory_limit import needs_memory_limit

pytestmark = needs_memory_limit

# Each attempt is a process with a limit on its address space, in megabytes.
SCRIPT = """
import array, os, resource, sys
import velmar

count = 2**19
numbers = array.array("d", [1.0]) * count
listed = numbers.tolist()
rows = [listed[: count // 2], listed[count // 2 :]]
grid = memoryview(numbers.tobytes()).cast("B").cast("d", (2, count // 2))
cloned = velmar.double(numbers)
cloned.clone()

def attempt(megabytes, operation, answer):
    subject = velmar.double(numbers)
    with open("/proc/self/statm") as file:
        used = int(file.read().split()[0]) * resource.getpagesize()
    limits = resource.getrlimit(resource.RLIMIT_AS)
    resource.setrlimit(resource.RLIMIT_AS, (used + (megabytes << 20), limits[1]))
    try:
        result = operation(subject)
        text = "success"
    except BaseException as error:
        text = f"{type(error).__name__}: {error}"
    resource.setrlimit(resource.RLIMIT_AS, limits)
    os.write(answer, text.encode())

def outcome(megabytes, operation):
    reading, writing = os.pipe()
    child = os.fork()
    if child == 0:
        attempt(megabytes, operation, writing)
        sys.exit(0)
    os.close(writing)
    status = os.waitpid(child, 0)[1]
    with open(reading, "rb") as answer:
        return answer.read().decode() if status == 0 else f"status {status}"
"""

NO_BLOCK = (
    "MemoryError: unable to allocate memory for array with number of elements = {}; type = double"
)
MISMATCH = "{}: dimensions of initializer ({}) do not match dimensions specified by 'size' ({})."
ROWS = {
    "size": "velmar.double(size=(count,))",
    "vector": "velmar.double(vector=listed)",
    "vector_and_size": "velmar.double(vector=listed, size=(2, count // 2))",
    "nested": "velmar.double(rows)",
    "flat_and_size": "velmar.double(listed, (2, count // 2))",
    "buffer": "velmar.double(numbers)",
    "buffer_of_rows": "velmar.double(grid)",
    "noncomplex": "subject.noncomplex()",
    "clone_again": "cloned.clone()",
}


def outcomes_of(operation):
    """The outcomes of the operation, with more and more memory."""
    return run_script(
        f"{SCRIPT}\noperation = lambda subject: {operation}\n"
        "report([outcome(megabytes, operation) for megabytes in range(1, 31, 2)])"
    ).reported


@pytest.mark.parametrize("operation", some_of([*ROWS.values()], 3), ids=some_of([*ROWS], 3))
def test_some_blocks_cannot_be_had(operation):
    outcomes = outcomes_of(operation)
    assert set(outcomes) == {NO_BLOCK.format(524288), "success"}
    # More memory never turns a success into a failure.
    assert outcomes == sorted(outcomes)


# `size` is reserved before the data is read; the two are compared last.
MISMATCH_ROWS = {
    "too_large_for_the_rows": (
        "velmar.double(rows, (4, count // 2))",
        [
            NO_BLOCK.format(1048576),
            NO_BLOCK.format(524288),
            MISMATCH.format("ShapeError", "2, 262144", "4, 262144"),
        ],
    ),
    "too_small_for_the_buffer": (
        "velmar.double(numbers, (3,))",
        [NO_BLOCK.format(524288), MISMATCH.format("ShapeError", "524288", "1, 3")],
    ),
}


@pytest.mark.parametrize("operation, stages", MISMATCH_ROWS.values(), ids=MISMATCH_ROWS.keys())
def test_size_that_does_not_match(operation, stages):
    outcomes = outcomes_of(operation)
    assert set(outcomes) == set(stages)
    assert outcomes == sorted(outcomes, key=stages.index)
