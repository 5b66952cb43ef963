"""Lists that the garbage collector empties while the module fills them.

Up to 3.11 the interpreter may collect at any allocation, also in the middle of a call.
"""

from __future__ import annotations

import gc
import sys

import pytest
import velmar
from helpers.failures import UNREADABLE_ITEM

COLLECTS_INSIDE = sys.version_info < (3, 12)
TAKEN_APART = UNREADABLE_ITEM.message if COLLECTS_INSIDE else None


@pytest.fixture
def taking_apart():
    """Let every collection empty the lists of the given lengths, and collect often."""
    lengths = []

    def empty_lists(phase, info):
        for item in gc.get_objects():
            if type(item) is list and len(item) in lengths:
                item.clear()

    gc.collect()
    gc.freeze()  # collections skip the objects that exist now
    threshold = gc.get_threshold()
    gc.callbacks.append(empty_lists)
    gc.set_threshold(1)
    yield lengths.append
    gc.set_threshold(*threshold)
    gc.callbacks.remove(empty_lists)


def error_of(action):
    try:
        action()
    except RuntimeError as error:
        return str(error)
    return None


def test_list_of_rows(taking_apart):
    array = velmar.int8(size=(333, 2))
    assert error_of(lambda: str(array)) is None
    taking_apart(333)
    assert error_of(lambda: str(array)) == TAKEN_APART


def test_list_of_the_rows_of_a_slice(taking_apart):
    view = velmar.int8(size=(333, 2))[1:312]
    taking_apart(311)
    assert error_of(lambda: str(view)) == TAKEN_APART


def test_list_of_elements_where_one_is_out_of_reach(taking_apart):
    array = velmar.double(size=(4, 333))
    row = array[3]
    array.reshape(2, 666)
    assert error_of(lambda: str(row)) == "null data pointer."
    taking_apart(666)
    said = set()
    kept = []
    for _ in range(20):
        kept.append([])  # moves the collection to another object
        try:
            raise KeyError  # an error during another one becomes an object at once
        except KeyError:
            said.add(error_of(lambda: str(row)))
    if COLLECTS_INSIDE:
        assert UNREADABLE_ITEM.message in said
        said.remove(UNREADABLE_ITEM.message)
    assert said <= {"null data pointer."}
