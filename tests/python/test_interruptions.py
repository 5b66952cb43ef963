"""Long walks in C look for signals.

A walk that does not look never ends in these tests: its sequence has 2**62 items, or a loop in C,
which does not look either, repeats it without end. The child process is then killed.
"""

from __future__ import annotations

import pytest
from helpers.cases import rows
from helpers.child_interpreter import run_script

SCRIPT = """
import collections, functools, itertools, operator, signal, velmar

ticks = 0

class Stop(Exception):
    pass

def tick(number, frame):
    global ticks
    ticks += 1
    if ticks == LAST:
        raise Stop

def repeat(function, argument):
    collections.deque(map(function, itertools.repeat(argument)), maxlen=0)

def interrupted(action):
    signal.signal(signal.SIGALRM, tick)
    signal.setitimer(signal.ITIMER_REAL, 0.02, 0.02)
    try:
        action()
    except BaseException as error:
        return type(error).__name__
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, signal.SIG_IGN)
    return None
"""


def outcome(action, last=1, before="", after="True"):
    setup = f"LAST = {last}\n{before}\n"
    report = f"report([interrupted(lambda: {action}), ticks, {after}])"
    return run_script(SCRIPT + setup + report).reported


ENDLESS = "range(2**62)"
WALKS = [
    ("initializer", f"velmar.int8({ENDLESS})"),
    ("second_level", f"velmar.int8([{ENDLESS}])"),
    ("with_size", f"velmar.int8({ENDLESS}, (1, 3))"),
    ("complex", f"velmar.double({ENDLESS}, is_complex=True)"),
    ("logical", f"velmar.logical({ENDLESS})"),
    ("row", f"operator.setitem(velmar.int8(size=(2, 3)), 0, {ENDLESS})"),
    ("slice", f"operator.setitem(velmar.int8(size=(2, 3))[0], slice(None), {ENDLESS})"),
    ("rows", f"operator.setitem(velmar.int8(size=(2, 3)), slice(None), {ENDLESS})"),
    ("finite", "repeat(velmar.int32, range(5000))"),
    ("many_short_ones", "repeat(velmar.int32, [range(2)] * 3000)"),
    ("ranges_in_tuples", "repeat(velmar.int32, ((range(2),),) * 3000)"),
    ("vector", "repeat(functools.partial(velmar.int32, None, None), range(5000))"),
    ("size", "repeat(functools.partial(velmar.int8, None), [1] * 5000)"),
    ("reshape", "repeat(velmar.int8([1]).reshape, [1] * 5000)"),
]

LONG = "velmar.double(size=(1, 5000))"
TEXTS = [
    ("row", f"{LONG}[0]"),
    ("rows", "velmar.int8(size=(3000, 1))"),
    ("empty_rows", "velmar.int8(size=(3000, 0))"),
    ("slice", f"{LONG}[0][::-1]"),
    ("slice_of_rows", "velmar.logical(size=(3000, 2))[1:]"),
    ("planes", "velmar.int8(size=(2, 3, 700))"),
]


class TestInterrupt:
    @rows("walk", WALKS)
    def test_a_walk_ends(self, walk):
        assert outcome(walk) == ["Stop", 1, True]

    @pytest.mark.parametrize("text", ["str", "repr"])
    @rows("array", TEXTS)
    def test_a_text_ends(self, text, array):
        assert outcome(f"repeat({text}, {array})") == ["Stop", 1, True]

    def test_control_c(self):
        handler = "tick = signal.default_int_handler"
        got = outcome(f"velmar.int8({ENDLESS})", before=handler)
        assert got == ["KeyboardInterrupt", 0, True]

    def test_handlers_that_return_do_not_end_it(self):
        assert outcome(f"velmar.int8({ENDLESS})", last=4) == ["Stop", 4, True]
        assert outcome(f"repeat(str, {LONG})", last=4) == ["Stop", 4, True]


class TestNothingIsLost:
    def test_the_array_is_what_it_was(self):
        for action, before in (
            (f"operator.setitem(a, 0, {ENDLESS})", "a = velmar.int8([[1, 2], [3, 4]])"),
            ("repeat(a.reshape, [4, 1] + [1] * 5000)", "a = velmar.int8([[1, 2], [3, 4]])"),
        ):
            got = outcome(action, before=before, after="[list(a.noncomplex()), len(str(a)) > 4]")
            assert got == ["Stop", 1, [[1, 3, 2, 4], True]]

    def test_a_pending_error_is_not_seen_by_the_handler(self):
        """With the error of the subscript pending, the calls in the handler would fail."""
        got = outcome(
            f"operator.setitem(a, 2**70, {ENDLESS})",
            last=3,
            before="a = velmar.int8([[1, 2], [3, 4]])",
            after="str(a)",
        )
        assert got == ["Stop", 3, "[[1,2],[3,4]]"]

    def test_a_pending_error_is_still_pending_after_the_looks(self):
        before = """
a = velmar.int32(size=(1, 200000))
causes = set()

def write():
    while ticks < 20:
        try:
            functools.partial(operator.setitem, a, 2**70, range(200000))()
        except SystemError as error:
            causes.add(type(error.__cause__).__name__)
"""
        got = outcome("write()", last=-1, before=before, after="[sorted(causes), a[0][-1]]")
        assert got[0] is None
        assert got[2] == [["OverflowError"], 199999]

    def test_texts_are_whole(self):
        before = """
numbers = [[k / 7 for k in range(20000)], [-float(k) for k in range(20000)]]
a = velmar.double(numbers)
whole = str(numbers).replace(" ", "")

def texts():
    while ticks < 20:
        assert str(a) == whole
"""
        assert outcome("texts()", last=-1, before=before)[0] is None
