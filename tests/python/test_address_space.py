"""Operations on large arrays in a process whose address space is limited, step by step."""

from __future__ import annotations

from helpers.cases import rows, some_of
from helpers.child_interpreter import run_script
from helpers.memory_limit import needs_memory_limit

pytestmark = needs_memory_limit

# Each attempt is a process of its own. Limits are in megabytes; the arrays have 50.
SCRIPT = """
import array, os, resource, zlib
import velmar

count = (50 << 20) // 8
numbers = array.array("d", range(1, 1025)) * (count // 1024)
subject = velmar.double(numbers)

def digest(memory):
    return [zlib.crc32(memory), list(subject.size)]

def attempt(megabytes, operation):
    limits = resource.getrlimit(resource.RLIMIT_AS)
    resource.setrlimit(resource.RLIMIT_AS, (megabytes << 20, limits[1]))
    try:
        operation()
        text = "success"
    except BaseException as error:
        text = f"{type(error).__name__}: {error}"
    resource.setrlimit(resource.RLIMIT_AS, limits)
    return text

def outcome(megabytes, operation, isWrite):
    reading, writing = os.pipe()
    child = os.fork()
    if child == 0:
        text = attempt(megabytes, operation)
        if (text != "success" or not isWrite) and digest(memoryview(subject)) != before:
            text += ", and the array is another"
        os.write(writing, text.encode())
        os._exit(0)
    os.close(writing)
    status = os.waitpid(child, 0)[1]
    with open(reading, "rb") as answer:
        return answer.read().decode() if status == 0 else f"status {status}"
"""

NO_BLOCK = "MemoryError: unable to allocate memory for array with number of elements = "
NO_MEMORY = "MemoryError: "
CLONE_BESIDE_AN_ERROR = (
    "SystemError: <method 'clone' of 'velmar.double' objects> returned a result with an exception"
    " set"
)
WRONG_COUNT = (
    "ValueError: unable to perform assignment because the left and right sides have a different "
    "shape."
)

# Setup, operation, and what it may report beside success.
READS = [
    ("size", "", "velmar.double(size=(count,))", [NO_BLOCK]),
    ("buffer", "", "velmar.double(numbers)", [NO_BLOCK]),
    (
        "buffer_with_a_long_dimension",
        "grid = memoryview(memoryview(numbers).cast('B')).cast('d', (2, len(numbers) // 4, 2))",
        "velmar.double(grid)",
        [NO_BLOCK],
    ),
    ("list", "values = [1.5] * count", "velmar.double(values)", [NO_BLOCK]),
    ("vector", "values = [1.5] * count", "velmar.double(vector=values)", [NO_BLOCK]),
    ("rows", "values = [[1.5] * (count // 2)] * 2", "velmar.double(values)", [NO_BLOCK]),
    ("array", "", "velmar.double(subject)", [NO_BLOCK]),
    ("conversion", "", "velmar.single(subject)", [NO_BLOCK]),
    ("noncomplex", "", "subject.noncomplex()", [NO_BLOCK]),
    ("real", "", "subject.real", [NO_BLOCK]),
    ("clone", "", "subject.clone()", [NO_BLOCK, CLONE_BESIDE_AN_ERROR]),
    ("comparison", "", "subject == subject[:]", []),
    ("memoryview", "", "memoryview(subject)", []),
    ("memoryview_of_a_part", "", "memoryview(subject[0][::2])", [NO_BLOCK, NO_MEMORY]),
    ("long_size", "", "velmar.double(size=range(1, 2**40))", [NO_MEMORY]),
    ("long_reshape", "", "subject.reshape(range(1, 2**40))", [NO_MEMORY]),
]
WRITES = [
    ("reshape", "", "subject.reshape(2, len(subject[0]) // 2)", [NO_BLOCK]),
    (
        "reshape_of_a_clone",
        "other = subject.clone()",
        "subject.reshape(2, count // 2)",
        [NO_BLOCK],
    ),
    (
        "row_of_another",
        "other = velmar.double(numbers)",
        "subject.__setitem__(0, other[0])",
        [NO_BLOCK],
    ),
    ("row_of_itself", "", "subject.__setitem__(0, subject[0][::-1])", [NO_BLOCK]),
    ("slice", "", "subject[0].__setitem__(slice(None), [1])", [WRONG_COUNT]),
    (
        "shared",
        "other, twin = subject.clone(), subject.clone()",
        "other[0].__setitem__(0, 5.0)",
        [NO_BLOCK],
    ),
]


def outcomes_of(setup, operation, is_write, limits):
    return run_script(
        # A memoryview would keep memory in the array.
        f"{SCRIPT}\n{setup}\nbefore = digest(memoryview(subject.noncomplex()))\n"
        f"operation = lambda: {operation}\n"
        f"report([outcome(megabytes, operation, {is_write}) for megabytes in {list(limits)}])"
    ).reported


STEPS = range(160, 500, 20)


class TestSteps:
    @rows("setup, operation, failures", READS)
    def test_reads(self, setup, operation, failures):
        self.check(setup, operation, failures, False)

    @rows("setup, operation, failures", WRITES)
    def test_writes(self, setup, operation, failures):
        self.check(setup, operation, failures, True)

    def check(self, setup, operation, failures, is_write):
        outcomes = outcomes_of(setup, operation, is_write, some_of([*STEPS], 3))
        for text in outcomes:
            assert text == "success" or any(text.startswith(start) for start in failures), text
            assert not text.endswith("is another")
        assert outcomes[-1] in ("success", WRONG_COUNT, NO_MEMORY), "not enough for any success"


# The operation with so much more address space, in megabytes, than the process has.
PEAK = """
def outcome_with(megabytes, operation):
    with open("/proc/self/statm") as file:
        used = int(file.read().split()[0]) * resource.getpagesize() >> 20
    return attempt(used + megabytes, operation)
"""
PEAKS = [
    (
        "middle_dimension",  # the elements take 32 megabytes
        "grid = memoryview(bytes(32 * 10**6)).cast('d', (2, 10**6, 2))",
        "velmar.double(grid)",
        42,
    ),
    (
        "outer_dimensions",
        "grid = memoryview(bytes(32 * 10**6)).cast('d', (2, 10**6, 2, 1))",
        "velmar.double(grid)",
        42,
    ),
    ("slice", "line = velmar.int8(size=(1, 10**7))[0]", "line.__setitem__(slice(None), [1])", 8),
    (
        "long_step",
        "line = velmar.int8(size=(1, 10**7))[0]",
        "line.__setitem__(slice(0, 10**7, 2), [1])",
        8,
    ),
    (
        "rows",
        "tall = velmar.int8(size=(10**7, 1))",
        "tall.__setitem__(slice(None), [1])",
        8,
    ),
    # A list of 16 megabytes, and a text of 12.
    ("text", "line = velmar.logical(size=(1, 2 * 10**6))", "str(line)", 38),
    ("text_of_a_row", "line = velmar.logical(size=(1, 2 * 10**6))[0]", "repr(line)", 38),
    ("text_of_a_slice", "line = velmar.logical(size=(1, 2 * 10**6))[0][::-1]", "repr(line)", 38),
]


class TestPeaks:
    @rows("setup, operation, megabytes", PEAKS)
    def test_rows(self, setup, operation, megabytes):
        text = run_script(
            f"{SCRIPT}\n{PEAK}\ndel numbers, subject\n{setup}\n"
            f"report(outcome_with({megabytes}, lambda: {operation}))"
        ).reported
        assert not text.startswith("MemoryError"), text
