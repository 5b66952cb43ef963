"""A model of the conversion of one Python value to an element of a class."""

from __future__ import annotations

import math
import struct
from typing import Any

from helpers.arrays import SINGLE_MAX, ElementClass
from helpers.failures import IS_NONE, WRONG_TYPE, Failure

TOO_LARGE = "Python int too large to convert to C long long"
INFINITY = float("inf")
# The result of truncating a nan, for the types where it is not 0.
NAN_PARTS = {"int32": -(2**31), "int64": -(2**63), "uint64": 2**63}


def convert(row: ElementClass, is_complex: bool, value: Any) -> Any:
    """The element that a subscript returns, or a Failure. `value` must not be a sequence."""
    if row.kind == "logical":
        return _logical(row, value)
    if row.kind == "float":
        return _complex_float(row, value) if is_complex else _real_float(row, value)
    return _complex_integer(row, value) if is_complex else _real_integer(row, value)


def assigned(row: ElementClass, is_complex: bool, value: Any) -> Any:
    """As `convert`, except that an assignment to a logical takes neither floats nor complex."""
    if row.kind == "logical" and _is(value, float):
        return _no_floats(row)
    if row.kind == "logical" and _is(value, complex):
        return _no_complex(row)
    return convert(row, is_complex, value)


def _is(value: Any, base: type) -> bool:
    return issubclass(type(value), base)  # isinstance would believe a lying __class__


def _plain(value: Any, base: type) -> Any:
    return base.__pos__(value)  # the number inside, whatever a subclass overrides


def _refusal(value: Any) -> Failure:
    return IS_NONE if value is None else WRONG_TYPE


def _no_floats(row: ElementClass) -> Failure:
    return Failure(TypeError, f"velmar.{row.word} does not accept floating-point values.")


def _no_complex(row: ElementClass) -> Failure:
    text = "does not accept complex values if 'is_complex' is not set to 'True'."
    return Failure(TypeError, f"velmar.{row.word} {text}")


def _unstorable(row: ElementClass, shown: str) -> Failure:
    return Failure(
        OverflowError, f"value ({shown}) cannot be stored in a variable of type {row.word}."
    )


def _integer(row: ElementClass, value: Any) -> int | Failure:
    """A Python int in the range of the class, converted through a 64-bit integer."""
    number = _plain(value, int)
    if row.kind == "unsigned":
        if number >= 2**64 or number < -(2**63):
            return Failure(OverflowError, TOO_LARGE)
    elif not -(2**63) <= number < 2**63:
        return Failure(OverflowError, TOO_LARGE)
    if row.kind in ("signed", "unsigned") and not row.low <= number <= row.high:
        return _unstorable(row, str(number))
    return number


def _truncated(row: ElementClass, number: float) -> int | Failure:
    """A double truncated to an integer class; a result outside its range fails."""
    if math.isnan(number):
        return NAN_PARTS.get(row.word, 0)
    # The refused doubles begin one beyond the limits, rounded to a double.
    if number <= float(row.low - 1) or number >= float(row.high + 1):
        return _unstorable(row, f"{number:g}")
    return int(number)


def to_single(number: float) -> float:
    """A double as a single; everything outside the range becomes positive infinity."""
    if math.isnan(number):
        return number
    if not -SINGLE_MAX <= number <= SINGLE_MAX:
        return INFINITY
    return struct.unpack("f", struct.pack("f", number))[0]


def integer_to_single(number: int) -> float:
    """An integer rounded once to 24 bits, ties to even."""
    unit = 1 << max(abs(number).bit_length() - 24, 0)
    quotient, rest = divmod(abs(number), unit)
    quotient += 2 * rest > unit or (2 * rest == unit and quotient % 2 == 1)
    return float(quotient * unit if number >= 0 else -quotient * unit)


def _from_integer(row: ElementClass, value: Any) -> float | Failure:
    number = _integer(row, value)
    if row.word == "double":
        return number if isinstance(number, Failure) else float(number)
    return INFINITY if isinstance(number, Failure) else integer_to_single(number)


def _real_float(row: ElementClass, value: Any) -> Any:
    if _is(value, float):
        number = _plain(value, float)
        return to_single(number) if row.word == "single" else number
    if _is(value, int):
        return _from_integer(row, value)
    return _no_complex(row) if _is(value, complex) else _refusal(value)


def _real_integer(row: ElementClass, value: Any) -> Any:
    if _is(value, int):
        return _integer(row, value)
    if _is(value, float):
        return _no_floats(row)
    return _no_complex(row) if _is(value, complex) else _refusal(value)


def _logical(row: ElementClass, value: Any) -> Any:
    for base in (float, complex):
        if _is(value, base):
            return _plain(value, base) != 0
    if not _is(value, int):
        return _refusal(value)
    number = _integer(row, value)
    return number if isinstance(number, Failure) else number != 0


def _parts(value: Any) -> tuple[float, float] | None:
    if _is(value, complex):
        number = _plain(value, complex)
        return number.real, number.imag
    return (_plain(value, float), 0.0) if _is(value, float) else None


def _complex_float(row: ElementClass, value: Any) -> Any:
    parts = _parts(value)
    if parts is not None:
        return complex(*(map(to_single, parts) if row.word == "single" else parts))
    real = _from_integer(row, value) if _is(value, int) else 0.0
    return real if isinstance(real, Failure) else complex(real, 0.0)


def _complex_integer(row: ElementClass, value: Any) -> Any:
    parts = _parts(value)
    if parts is None:
        real = _integer(row, value) if _is(value, int) else 0
        return real if isinstance(real, Failure) else complex(float(real), 0.0)
    kept = []
    for part in parts:
        number = _truncated(row, part)
        if isinstance(number, Failure):
            return number
        kept.append(float(number))
    return complex(*kept)
