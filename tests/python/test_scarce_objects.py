"""Operations in which one allocation of an object fails, tried for each allocation."""

from __future__ import annotations

import sys
from pathlib import Path

import pytest
from helpers.cases import some_of
from helpers.child_interpreter import run_script

pytest.importorskip("_testcapi")

NO_OBJECT = "RuntimeError: unable to initialize C object."
NO_VIEW = "RuntimeError: object not initialized."
NO_DATA = "RuntimeError: null data pointer."
NO_ITEM = "RuntimeError: unable to set list item."
NO_ARRAY = "RuntimeError: toarray() failed."
NO_ENTRY = "RuntimeError: unable to insert 'is_complex' value into dict."
NO_INT = "RuntimeError: unable to construct Python object from integer."
NO_TUPLE = "RuntimeError: unable to set arg tuple."
# Messages of a failed import of the class array.array; all others are the interpreter's.
ENTRY_FAILURES = {
    "MemoryError",
    "RuntimeError: unable to import array module.",
    "RuntimeError: unable to retrieve array.array class.",
}
# 3.13 can crash at the next collection after a class was only half made, also with its own modules.
# The module has then printed this line.
HALF_MADE_CLASS = {"Could not initialize type."} if sys.version_info >= (3, 13) else set()
# The clone is made although its elements could not be copied.
HOLLOW_CLONE = "SystemError: returned a result with an exception set"
# From 3.12 on the interpreter does not check every call, and the pending error is raised.
HALF_CLONED = {"MemoryError", NO_OBJECT, NO_VIEW, HOLLOW_CLONE}

# Each attempt is a process of its own.
SUBJECTS = """
import array, gc, os, resource, sys, tempfile
import _testcapi, velmar

resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

def real():
    return velmar.double([[1, 2, 3], [4, 5, 6]])

def complex_():
    return velmar.double([[1, 2j], [3, 4]], is_complex=True)

def hollow():  # without elements in memory, each item is asked for
    return velmar.double(size=(2, 0))

def long():  # lengths and strides are not among the ints that CPython preallocates
    return velmar.double(size=(300, 2))

def deep():  # more dimensions than the tuples that CPython keeps for reuse have items
    return velmar.double(size=(1,) * 24 + (2,))

def wide():  # its text is made in parts; its elements need no objects
    return velmar.logical(size=(1, 11000))
"""
ATTEMPTS = """
def in_short(error):
    text = str(error)
    if isinstance(error, SystemError):
        text = text[text.index("returned"):]
    return f"{type(error).__name__}: {text}".removesuffix(": ")

def attempt(which, answer):
    subject = make()
    operation(make())  # what is made once in a process is there
    expected = repr(operation(make()))
    error = None
    limits = (which, which + 1)
    gc.collect()  # of what was made before no memory is kept for objects to come
    _testcapi.set_nomemory(*limits)
    try:
        result = operation(subject)
    except BaseException as caught:
        error = caught
    _testcapi.remove_mem_hooks()
    assert repr(make()) == made
    if error is None:
        try:
            assert repr(result) == expected, (repr(result), expected)
        except RuntimeError as caught:  # of a clone that nothing could be put into
            error = caught
    if error is not None:
        assert repr(operation(make())) == expected
    os.write(answer, in_short(error).encode() if error else b"success")

def outcome(which):
    with tempfile.TemporaryFile() as said:
        reading, writing = os.pipe()
        child = os.fork()
        if child == 0:
            os.dup2(said.fileno(), 2)
            attempt(which, writing)
            sys.exit(0)
        os.close(writing)
        status = os.waitpid(child, 0)[1]
        with open(reading, "rb") as answer:
            text = answer.read().decode()
        said.seek(0)
        words = said.read().decode()
    return text if status == 0 else words.splitlines()[0] if words else f"status {status}"

made = repr(make())
gc.freeze()
outcomes = []
while outcomes[-4:] != ["success"] * 4 and len(outcomes) < 2000:
    outcomes.append(outcome(len(outcomes) * step))
report(outcomes)
"""

# label, function that makes `a`, operation, all outcomes other than success
ROWS = [
    ("construct", "real", "type(a)([[1, 2], [3, 4]])", {"MemoryError", NO_OBJECT}),
    ("vector", "real", "type(a)(vector=[1, 2], size=(2, 1))", {"MemoryError", NO_OBJECT}),
    ("complex", "real", "type(a)([1j], is_complex=True)", {"MemoryError", NO_OBJECT}),
    ("dict", "real", "type(a)({'is_complex': True}, [1j])", {"MemoryError", NO_OBJECT}),
    ("sequence", "real", "type(a)((range(2), [3, True]))", {"MemoryError", NO_OBJECT}),
    (
        "assign_array",
        "real",
        "a[0].__setitem__(slice(0, 3), a[1])",
        {"MemoryError", NO_OBJECT, NO_DATA},
    ),
    ("deep_slice", "real", "str(a[0:2][1][0:2])", {"MemoryError", NO_OBJECT, NO_ITEM}),
    ("from_buffer", "real", "type(a)(array.array('d', [1, 2]))", {"MemoryError", NO_OBJECT}),
    ("str", "real", "str(a)", {"MemoryError"}),
    ("str_in_parts", "wide", "str(a)", {"MemoryError"}),
    ("repr_complex", "complex_", "repr(a)", {"MemoryError"}),
    ("repr_slice", "complex_", "repr(a[0][0:2])", {"MemoryError", NO_OBJECT, NO_ITEM}),
    ("row", "real", "a[1]", {"MemoryError", NO_OBJECT}),
    ("element", "complex_", "a[0][1]", {"MemoryError", NO_OBJECT}),
    ("slice", "real", "a[0:2][0:1]", {"MemoryError", NO_OBJECT}),
    ("assign_row", "real", "a.__setitem__(0, [7, 8, 9])", {"MemoryError"}),
    ("assign_slice", "real", "a.__setitem__(slice(0, 1), [[7, 8, 9]])", {"MemoryError"}),
    ("loop", "real", "[str(row) for row in a]", {"MemoryError", NO_OBJECT}),
    ("loop_elements", "complex_", "list(a[0])", {"MemoryError", NO_OBJECT}),
    ("contains", "real", "[4, 5, 6] in a", {"MemoryError", NO_OBJECT}),
    ("equal", "real", "a == type(a)(vector=[1, 2])", {"MemoryError", NO_OBJECT}),
    ("clone", "complex_", "a.clone()", HALF_CLONED),
    ("clone_slice", "real", "a[0:1].clone()", HALF_CLONED | {NO_ITEM}),
    ("reduce", "complex_", "a.__reduce__()", {"MemoryError", NO_ENTRY}),
    ("memoryview", "real", "a.tomemoryview().tolist()", {"MemoryError"}),
    ("view_export", "real", "bytes(a[0:1])", {"MemoryError", NO_OBJECT, NO_DATA}),
    ("toarray", "real", "a[1].toarray()", {"MemoryError", NO_OBJECT, NO_TUPLE, NO_ARRAY}),
    ("strides", "real", "a.get_bytewise_strides()", {"MemoryError"}),
    ("strides_long", "long", "a.get_bytewise_strides()", {"MemoryError"}),
    ("strides_deep", "deep", "a.get_bytewise_strides()", {"MemoryError"}),
    ("size", "real", "a.size", {"MemoryError"}),
    ("size_long", "long", "a.size", {"MemoryError", NO_INT}),
    ("size_deep", "deep", "a.size", {"MemoryError"}),
    ("size_slice", "long", "a[0:290].size", {"MemoryError", NO_OBJECT, NO_INT}),
    ("_size", "real", "a._size", {"MemoryError"}),
    ("itemsize", "real", "a.itemsize", {"MemoryError"}),
    ("reshape", "real", "a.reshape([3, 2])", {"MemoryError"}),
    ("real", "complex_", "a.real()", {"MemoryError", NO_OBJECT}),
    ("imag", "complex_", "a.imag()", {"MemoryError", NO_OBJECT}),
    ("noncomplex", "real", "a.noncomplex()", {"MemoryError", NO_OBJECT}),
    ("_data", "real", "a._data", {"MemoryError", NO_OBJECT}),
    ("_real", "complex_", "a._real", {"MemoryError", NO_OBJECT}),
    ("buffer_info", "real", "a.buffer_info()[1]", {"MemoryError"}),
    ("buffer_info_long", "long", "a.buffer_info()[1]", {"MemoryError"}),
]


@pytest.mark.parametrize(
    "subject, operation, failures",
    [pytest.param(*row, id=label) for label, *row in some_of(ROWS, 3)],
)
def test_no_memory_for_one_object(subject, operation, failures):
    outcomes = run_script(
        f"{SUBJECTS}\nstep = 1\nmake = {subject}\noperation = lambda a: {operation}\n{ATTEMPTS}"
    ).reported
    assert outcomes[-4:] == ["success"] * 4
    assert set(outcomes) <= failures | {"success"}
    if failures != {"MemoryError"}:
        assert set(outcomes) & failures


# The functions for native clients.
CLIENT = f"""
sys.path.append({str(Path(__file__).parent)!r})
from helpers.capsule import bare_from_buffer, from_buffer, there_and_back
from ctypes import byref, c_int

number = byref(c_int())

def converted(a):  # the tuple of one item that byref() leaves would be used again
    return bare_from_buffer(a, number)
"""
CLIENT_ROWS = {
    "adopted": ("real", "there_and_back(a)", {NO_OBJECT}),
    "converted": ("real", "from_buffer(a)", {NO_OBJECT}),
    "converted_complex": ("complex_", "from_buffer(a)", {NO_OBJECT}),
    "converted_without_a_spare_tuple": ("real", "converted(a)", {NO_OBJECT}),
    "converted_by_items": ("hollow", "from_buffer(a)", {NO_OBJECT, NO_DATA}),
}


@pytest.mark.parametrize(
    "subject, operation, failures", CLIENT_ROWS.values(), ids=CLIENT_ROWS.keys()
)
def test_no_memory_for_one_object_of_a_client(subject, operation, failures):
    outcomes = run_script(
        f"{SUBJECTS}{CLIENT}step = 1\nmake = {subject}\n"
        f"operation = lambda a: {operation}\n{ATTEMPTS}"
    ).reported
    assert outcomes[-4:] == ["success"] * 4
    # An ArgumentError means that ctypes itself had no memory.
    own = {text for text in outcomes if not text.startswith("ArgumentError: ")}
    assert own == failures | {"MemoryError", "success"}


# Calls the entry point again in a process that has imported the module; every 17th object fails.
ENTRY_POINT = """
import ctypes, importlib.util, velmarmultidimarrayforpython as module

entry = getattr(ctypes.PyDLL(module.__spec__.origin), "PyInit_" + module.__name__)
entry.restype = ctypes.c_void_p
entry.argtypes = []

def call():
    return bool(entry())
"""


# And each object near the beginning and the end: those of the module and of the capsule.
NEARBY = """
last = max(index for index, text in enumerate(outcomes) if text != "success") * step
nearby = [outcome(which) for which in [*range(8), *range(last - 4, last + step + 1)]]
report([outcomes, nearby])
"""


def test_no_memory_for_one_object_of_the_module():
    attempts = ATTEMPTS.replace("report(outcomes)", NEARBY)
    outcomes, nearby = run_script(
        f"{SUBJECTS}{ENTRY_POINT}step = 17\nmake = int\noperation = lambda a: call()\n{attempts}"
    ).reported
    assert outcomes[-4:] == ["success"] * 4
    assert len(outcomes) > 20
    assert set(outcomes) <= ENTRY_FAILURES | HALF_MADE_CLASS | {"success"}
    assert nearby[-1] == "success"
    assert set(nearby) == ENTRY_FAILURES | {"success"}


# What the entry point prints without memory for one of its first objects.
WORDS = """
def words(which):
    with tempfile.TemporaryFile() as said:
        child = os.fork()
        if child == 0:
            os.dup2(said.fileno(), 2)
            _testcapi.set_nomemory(which, which + 1)
            try:
                call()
            except BaseException:
                pass
            _testcapi.remove_mem_hooks()
            os._exit(0)
        assert os.waitpid(child, 0)[1] == 0
        said.seek(0)
        return said.read().decode()

call()  # makes what is made once in a process
report([words(which) for which in range(40)])
"""


def test_no_memory_for_the_module_itself():
    words = run_script(SUBJECTS + ENTRY_POINT + WORDS).reported
    assert words.count("Could not initialize module.\n") >= 1
    assert set(words) <= {"", "Could not initialize module.\n", "Could not initialize type.\n"}
