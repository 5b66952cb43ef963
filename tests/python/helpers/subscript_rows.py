"""Refused subscripts and their errors, for the tests of reads and of writes."""

from __future__ import annotations

from decimal import Decimal
from fractions import Fraction

from helpers.failures import UNREADABLE_BOUND, ZERO_STEP, Failure
from helpers.scalar_values import LyingInt, RaisingIndex, WithIndex

LAST = 2**63 - 1

OUTSIDE = [  # on a length of 5; the message repeats the index as the caller wrote it
    ("length", 5, "5"),
    ("below_minus_length", -6, "-6"),
    ("far_above", 1000, "1000"),
    ("far_below", -1000, "-1000"),
    ("highest", LAST, "9223372036854775807"),
    ("lowest", -(2**63), "-9223372036854775808"),
    ("subclass", LyingInt(7), "7"),
]

REFUSED = [
    ("float", 1.0),
    ("none", None),
    ("tuple", (0, 1)),
    ("tuple_of_one", (0,)),
    ("empty_tuple", ()),
    ("ellipsis", ...),
    ("tuple_of_slices", (slice(None), slice(None))),
    ("string", "0"),
    ("bytes", b"0"),
    ("list", [0]),
    ("complex", 1j),
    ("object_with_index", WithIndex(0)),
    ("raising_index", RaisingIndex(KeyError())),
    ("range", range(1)),
    ("decimal", Decimal(0)),
    ("fraction", Fraction(0)),
    ("class_slice", slice),
    ("dict", {}),
]

OWN_ERROR = Failure(ZeroDivisionError, "from __index__")

BAD_SLICES = [  # the step is read first, and any fault of it has the same message
    ("zero", slice(None, None, 0), ZERO_STEP),
    ("false", slice(None, None, False), ZERO_STEP),
    ("zero_index", slice(None, None, WithIndex(0)), ZERO_STEP),
    ("float_step", slice(None, None, 1.0), ZERO_STEP),
    ("text_step", slice(None, None, "1"), ZERO_STEP),
    ("raising_step", slice(None, None, RaisingIndex(KeyError())), ZERO_STEP),
    ("memory_step", slice(None, None, RaisingIndex(MemoryError())), ZERO_STEP),
    ("zero_step_and_bad_start", slice("a", None, 0), ZERO_STEP),
    ("bad_step_and_bad_start", slice("a", "b", "c"), ZERO_STEP),
    ("float_start", slice(1.0, None), UNREADABLE_BOUND),
    ("text_start", slice("a", None, -1), UNREADABLE_BOUND),
    ("float_stop", slice(None, 1.0), UNREADABLE_BOUND),
    ("text_stop", slice(0, "b", 2), UNREADABLE_BOUND),
    ("start_before_stop", slice(1.0, RaisingIndex(KeyError())), UNREADABLE_BOUND),
    ("raising_start", slice(RaisingIndex(OWN_ERROR.error()), 1.0), OWN_ERROR),
    ("raising_stop", slice(0, RaisingIndex(OWN_ERROR.error())), OWN_ERROR),
]
