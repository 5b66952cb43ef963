"""The boundary between the interpreter and the module: exceptions, and threads that are ended."""

from __future__ import annotations

import pytest
import velmar
from helpers.child_interpreter import run_script
from helpers.failures import raises


def test_a_row_that_became_longer_than_any_list():
    array = velmar.int8(size=(1, 0))
    row = array[0]
    array.reshape(0, 2**62)
    shape = "unable to perform assignment because the left and right sides have a different shape."
    with raises(ValueError, shape):
        row[:] = [1]
    assert array.size == (0, 2**62)
    assert array.reshape(1, 0).size == (1, 0)


# At exit, a thread that waits inside an operation is ended when it asks for the interpreter: its
# stack is unwound through the module. The finalizer gives it time to ask.
AT_EXIT = """
import threading, time, velmar

started = threading.Event()

class Slow:
    def __len__(self):
        return 10**6

    def __getitem__(self, index):
        started.set()
        time.sleep(0.001)
        return 1

class Waiting:
    def __del__(self, sleep=time.sleep):
        sleep(0.2)

slow, waiting = Slow(), Waiting()
act = {operation}
threading.Thread(target=act, daemon=True).start()
assert started.wait(60)
report("at the end")
"""
# The thread ends itself, with the same unwinding. It does not hold the interpreter's lock then,
# because ctypes has released it.
BY_ITSELF = """
import ctypes, os, threading, time, velmar

class Ending:
    def __len__(self):
        return 1

    def __getitem__(self, index):
        ctypes.CDLL(None).pthread_exit(None)

slow = Ending()
thread = threading.Thread(target={operation}, daemon=True)
thread.start()
while os.path.exists(f"/proc/self/task/{{thread.native_id}}"):
    time.sleep(0.001)
report("at the end")
"""
OPERATIONS = {
    "construction": "lambda: velmar.double(slow)",
    "size": "lambda: velmar.double(size=slow)",
    "assignment": "lambda: velmar.double([[1, 2]]).__setitem__(0, slow)",
    "reshape": "lambda: velmar.double([[1, 2]]).reshape(slow)",
}


@pytest.mark.parametrize("script", [AT_EXIT, BY_ITSELF], ids=["at_exit", "by_itself"])
@pytest.mark.parametrize("operation", OPERATIONS.values(), ids=OPERATIONS.keys())
def test_a_thread_can_be_ended_inside_an_operation(operation, script):
    outcome = run_script(script.format(operation=operation))
    assert outcome.reported == "at the end"
    assert outcome.error_lines == []
