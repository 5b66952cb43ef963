"""Expected errors: exact checks, and the errors that several files expect."""

from __future__ import annotations

import contextlib
from collections.abc import Callable, Iterator
from typing import Any, NamedTuple

import pytest
from velmarmultidimarrayforpython import ShapeError


class Failure(NamedTuple):
    """An expected error: the exact exception class and the whole message."""

    exception: type[Exception]
    message: str

    def error(self) -> Exception:
        return self.exception(self.message)


NOT_INITIALIZED = Failure(RuntimeError, "object not initialized.")
STORAGE_GONE = Failure(RuntimeError, "locked shared pointer is null.")
NULL_POINTER = Failure(RuntimeError, "null data pointer.")

# Data.
IS_NONE = Failure(TypeError, "value must not be 'None'.")
WRONG_TYPE = Failure(TypeError, "type does not match.")
NOT_NUMERIC = Failure(ValueError, "value passed to initializer must be numeric.")
UNEVEN = Failure(ValueError, "elements of array are of different lengths or types.")
NOT_RECTANGULAR = Failure(ValueError, "arrays must be rectangular.")
NESTED_VECTOR = Failure(TypeError, "value of 'vector' must be an unnested sequence.")
TWO_SOURCES = Failure(TypeError, "initializer and 'vector' must not both be specified.")
THREE_POSITIONS = Failure(
    TypeError,
    "more than two positional arguments must not be specified. A third will be treated as "
    "'vector', which must not be specified when an initializer is specified.",
)

# Memory.
NOT_WRITABLE = Failure(ValueError, "underlying buffer is not writable.")
NOT_C_CONTIGUOUS = Failure(ValueError, "underlying buffer not C-contiguous.")
DOES_NOT_FIT = Failure(BufferError, "input does not fit evenly into output type.")

# Subscripts.
NOT_AN_INDEX = Failure(RuntimeError, "index is not an integer or slice.")
TOO_MANY_INDICES = Failure(RuntimeError, "too many indices.")
ZERO_STEP = Failure(ValueError, "slice step cannot be zero.")
UNREADABLE_BOUND = Failure(
    TypeError, "slice indices must be integers or None or have an __index__ method"
)
UNREADABLE_ITEM = Failure(RuntimeError, "unable to set list item.")

# Assignments.
DIFFERENT_SHAPE = Failure(
    ValueError,
    "unable to perform assignment because the left and right sides have a different shape.",
)
NO_VALUES = Failure(ValueError, "slice is nonempty but values are empty.")
NO_ROOM = Failure(
    ValueError, "slice is empty, but number of elements assigned is greater than zero."
)
WRONG_COUNT = Failure(ValueError, "length of slice does not match number of elements.")
PAST_SLICE = Failure(RuntimeError, "unable to index into slice.")
OUTSIDE_STORAGE = Failure(RuntimeError, "unable to set value.")
SCALAR_EXPECTED = Failure(TypeError, "sequence passed when scalar was expected.")

# Methods.
PARTIAL_ARRAY = Failure(RuntimeError, "reshape() not supported for a partial array.")
NOT_DIMENSIONS = Failure(
    ValueError, "reshape() must be passed a nonempty sequence of nonnegative integers."
)


def different_count(product: int, count: int) -> Failure:
    """The refusal of a reshape() to another number of elements."""
    return Failure(
        ShapeError,
        f"number of elements specified by arguments to reshape() ({product}) "
        f"does not match current number ({count}).",
    )


def unreadable_length(index: int) -> Failure:
    return Failure(
        RuntimeError,
        f"Item {index} could not be retrieved from the value passed to reshape().",
    )


@contextlib.contextmanager
def raises(exception: type[BaseException], message: str) -> Iterator[None]:
    """Expect exactly this exception class, not a subclass, with exactly this message."""
    with pytest.raises(exception) as caught:
        yield
    assert caught.type is exception
    assert str(caught.value) == message


def must_fail(errors: Any, action: Callable, *arguments: Any) -> None:
    """Call the action, which must raise one of these errors.

    Unlike pytest.raises, it keeps neither the error nor a traceback, so that memory blocks and
    references can be counted around it.
    """
    try:
        action(*arguments)
    except errors:
        return
    raise AssertionError("the call succeeded")
