"""Conversion of one Python value to one element: every class, every kind of value."""

from __future__ import annotations

import math

import pytest
import velmar
from helpers.arrays import COMPLEX_ROWS, INTEGER_ROWS, contents, exact
from helpers.cases import each, each_form
from helpers.conversion_model import TOO_LARGE, convert, integer_to_single, to_single
from helpers.failures import IS_NONE, WRONG_TYPE, Failure, raises
from helpers.scalar_values import (
    BOUNDARY_FLOATS,
    BOUNDARY_INTEGERS,
    VALUES,
    Float,
    LyingComplex,
    LyingFloat,
    LyingInt,
    WithIndex,
)

INF = math.inf
NAN = math.nan
COMPLEX = {"is_complex": True}


def no_floats(word):
    return f"velmar.{word} does not accept floating-point values."


def no_complex(word):
    return f"velmar.{word} does not accept complex values if 'is_complex' is not set to 'True'."


def unstorable(shown, word):
    return f"value ({shown}) cannot be stored in a variable of type {word}."


def names(rows):
    return [f"{row[0]}-{'complex-' if row[1] else ''}{number}" for number, row in enumerate(rows)]


def outcome(build):
    """The contents of the array that `build` returns, or its error, in a form to compare."""
    try:
        return exact(contents(build()))
    except Exception as error:
        return type(error), str(error)


def expected_outcomes(row, is_complex, value):
    """The outcomes of a single value as initializer and as vector."""
    element = convert(row, is_complex, value)
    if isinstance(element, Failure):
        return element, (ValueError, element.message)
    return exact([[element]]), exact([[element]])


def actual_outcomes(row, is_complex, value):
    return (
        outcome(lambda: row.cls([value], is_complex=is_complex)),
        outcome(lambda: row.cls(vector=[value], is_complex=is_complex)),
    )


class TestSweep:
    @each_form
    @pytest.mark.parametrize("value", VALUES.values(), ids=VALUES.keys())
    def test_every_kind_of_value(self, row, is_complex, value):
        expected = expected_outcomes(row, is_complex, value)
        assert actual_outcomes(row, is_complex, value) == expected
        assert outcome(lambda: row.cls([[value]], is_complex=is_complex)) == expected[0]
        assert outcome(lambda: row.cls((value,), None, None, is_complex)) == expected[0]
        if value is not None:
            scalar = outcome(lambda: row.cls(initializer=value, is_complex=is_complex))
            assert scalar == expected[0]

    @each_form
    def test_boundaries(self, row, is_complex):
        wrong = [
            (value, actual, expected)
            for value in [*BOUNDARY_INTEGERS, *BOUNDARY_FLOATS]
            for actual in [actual_outcomes(row, is_complex, value)]
            for expected in [expected_outcomes(row, is_complex, value)]
            if actual != expected
        ]
        assert wrong == []

    @each(COMPLEX_ROWS)
    def test_boundaries_of_both_parts(self, row):
        wrong = [
            (number, actual, expected)
            for value in BOUNDARY_FLOATS
            for number in (complex(value, 1.0), complex(1.0, value), complex(value, -value))
            for actual in [actual_outcomes(row, True, number)]
            for expected in [expected_outcomes(row, True, number)]
            if actual != expected
        ]
        assert wrong == []


class TestAccepted:
    """Rows: class, other arguments, value, the element that a read returns."""

    ROWS = [
        ("int8", {}, 127, 127),
        ("int8", {}, -128, -128),
        ("int8", {}, True, 1),
        ("int8", {}, LyingInt(5), 5),
        ("uint8", {}, 255, 255),
        ("int64", {}, 2**63 - 1, 2**63 - 1),
        ("int64", {}, -(2**63), -(2**63)),
        ("uint64", {}, 2**64 - 1, 2**64 - 1),
        ("uint64", {}, False, 0),
        ("int64", COMPLEX, 1.0, 1 + 0j),
        ("int64", COMPLEX, -(2**63), -9.223372036854775808e18 + 0j),
        ("int8", COMPLEX, -128.9, -128 + 0j),
        ("int8", COMPLEX, 127.9, 127 + 0j),
        ("int8", COMPLEX, -128.9 + 127.9j, -128 + 127j),
        ("uint8", COMPLEX, -0.5, 0j),
        ("uint8", COMPLEX, -0.999, 0j),
        ("uint8", COMPLEX, 255.9, 255 + 0j),
        ("int32", COMPLEX, -2147483648.9, -2147483648 + 0j),
        ("uint64", COMPLEX, 2**64 - 1, 1.8446744073709552e19 + 0j),
        ("uint64", COMPLEX, 18446744073709549568.0, 18446744073709549568 + 0j),
        ("int64", COMPLEX, 9223372036854774784.0, 9223372036854774784 + 0j),
        ("int64", COMPLEX, -9223372036854774784.0, -9223372036854774784 + 0j),
        ("int8", COMPLEX, NAN, 0j),
        ("uint8", COMPLEX, NAN, 0j),
        ("int16", COMPLEX, NAN, 0j),
        ("uint16", COMPLEX, NAN, 0j),
        ("uint32", COMPLEX, NAN, 0j),
        ("int32", COMPLEX, NAN, -2147483648 + 0j),
        ("int64", COMPLEX, NAN, -9223372036854775808 + 0j),
        ("uint64", COMPLEX, NAN, 9223372036854775808 + 0j),
        ("int32", COMPLEX, complex(1, NAN), complex(1, -2147483648)),
        ("double", {}, 5, 5.0),
        ("double", {}, True, 1.0),
        ("double", {}, -0.0, -0.0),
        ("double", {}, NAN, NAN),
        ("double", {}, -INF, -INF),
        ("double", {}, 2**63 - 1, 9.223372036854775807e18),
        ("double", {}, 2**53 + 1, 9007199254740992.0),
        ("double", {}, LyingFloat(2.5), 2.5),
        ("double", COMPLEX, 5, 5 + 0j),
        ("double", COMPLEX, -0.0, complex(-0.0, 0.0)),
        ("double", COMPLEX, complex(-0.0, -0.0), complex(-0.0, -0.0)),
        ("double", COMPLEX, LyingComplex(1, -2), 1 - 2j),
        ("double", COMPLEX, None, 0j),
        ("double", COMPLEX, Float(), 0j),
        ("double", COMPLEX, WithIndex(), 0j),
        ("single", {}, 0.1, 0.10000000149011612),
        ("single", {}, 10**400, INF),
        ("single", {}, -(10**400), INF),
        ("single", {}, 2**63, INF),
        ("single", {}, -(2**63) - 1, INF),
        ("single", {}, -(2**63), -9.223372036854775808e18),
        ("single", {}, -1e300, INF),
        ("single", {}, 1e300, INF),
        ("single", {}, -INF, INF),
        ("single", {}, INF, INF),
        ("single", {}, NAN, NAN),
        ("single", {}, 3.4028234663852886e38, 3.4028234663852886e38),
        ("single", {}, -3.4028234663852886e38, -3.4028234663852886e38),
        ("single", {}, 3.402823466385289e38, INF),
        ("single", {}, -3.402823466385289e38, INF),
        ("single", {}, -1e-50, -0.0),
        ("single", {}, 16777217, 16777216.0),
        ("single", {}, 2**60 + 2**36 + 1, float(2**60 + 2**37)),  # rounded once, not twice
        ("single", COMPLEX, -(10**400), complex(INF, 0)),
        ("single", COMPLEX, -1e300, complex(INF, 0)),
        ("single", COMPLEX, complex(-1e300, -1e300), complex(INF, INF)),
        ("single", COMPLEX, complex(0.1, NAN), complex(0.10000000149011612, NAN)),
        ("single", COMPLEX, None, 0j),
        ("uint8", COMPLEX, None, 0j),
        ("int64", COMPLEX, WithIndex(), 0j),
        ("int64", COMPLEX, Float(), 0j),
        ("logical", {}, 0, False),
        ("logical", {}, -3, True),
        ("logical", {}, 2**63 - 1, True),
        ("logical", {}, LyingInt(5), True),
        ("logical", {}, 0.0, False),
        ("logical", {}, -0.0, False),
        ("logical", {}, 0.5, True),
        ("logical", {}, 5e-324, True),
        ("logical", {}, NAN, True),
        ("logical", {}, LyingFloat(0.0), False),
        ("logical", {}, 0j, False),
        ("logical", {}, 1j, True),
        ("logical", {}, complex(0, NAN), True),
        ("logical", {}, complex(NAN, 0), True),
    ]

    @pytest.mark.parametrize("word, kwargs, value, element", ROWS, ids=names(ROWS))
    def test_rows(self, word, kwargs, value, element):
        cls = getattr(velmar, word)
        assert exact(contents(cls([value], **kwargs))) == exact([[element]])
        assert exact(contents(cls(vector=[value], **kwargs))) == exact([[element]])

    def test_several_logical_values(self):
        assert contents(velmar.logical([0.0, 0.5, NAN])) == [[False, True, True]]


class TestRefused:
    """Rows: class, other arguments, value, exception of the initializer, message."""

    ROWS = [
        ("int8", {}, 128, OverflowError, unstorable("128", "int8")),
        ("int8", {}, -129, OverflowError, unstorable("-129", "int8")),
        ("int8", {}, 2**63, OverflowError, TOO_LARGE),
        ("uint8", {}, -1, OverflowError, unstorable("-1", "uint8")),
        ("uint8", {}, 256, OverflowError, unstorable("256", "uint8")),
        ("uint8", {}, 2**64 - 1, OverflowError, unstorable("18446744073709551615", "uint8")),
        ("uint8", {}, 2**64, OverflowError, TOO_LARGE),
        ("uint32", {}, -(2**63), OverflowError, unstorable("-9223372036854775808", "uint32")),
        ("uint32", {}, -(2**63) - 1, OverflowError, TOO_LARGE),
        ("uint64", {}, 2**64, OverflowError, TOO_LARGE),
        ("uint64", {}, -1, OverflowError, unstorable("-1", "uint64")),
        ("int64", {}, 2**63, OverflowError, TOO_LARGE),
        ("int64", {}, 1.0, TypeError, no_floats("int64")),
        ("int8", {}, 1.5, TypeError, no_floats("int8")),
        ("int8", {}, NAN, TypeError, no_floats("int8")),
        ("uint16", {}, LyingFloat(1.0), TypeError, no_floats("uint16")),
        ("int8", {}, 1j, TypeError, no_complex("int8")),
        ("int8", {}, 1 + 0j, TypeError, no_complex("int8")),
        ("int8", {}, None, *IS_NONE),
        ("int8", {}, WithIndex(), *WRONG_TYPE),
        ("int8", COMPLEX, 128.5, OverflowError, unstorable("128.5", "int8")),
        ("int8", COMPLEX, 128, OverflowError, unstorable("128", "int8")),
        ("int8", COMPLEX, -129.0, OverflowError, unstorable("-129", "int8")),
        ("int8", COMPLEX, 300 + 400j, OverflowError, unstorable("300", "int8")),
        ("int8", COMPLEX, 1 + 400j, OverflowError, unstorable("400", "int8")),
        ("int8", COMPLEX, complex(NAN, 400), OverflowError, unstorable("400", "int8")),
        ("int32", COMPLEX, 1e20, OverflowError, unstorable("1e+20", "int32")),
        ("int32", COMPLEX, 123456789012.0, OverflowError, unstorable("1.23457e+11", "int32")),
        ("int16", COMPLEX, -INF, OverflowError, unstorable("-inf", "int16")),
        ("uint16", COMPLEX, INF, OverflowError, unstorable("inf", "uint16")),
        ("uint8", COMPLEX, -1.0, OverflowError, unstorable("-1", "uint8")),
        ("uint8", COMPLEX, -1, OverflowError, unstorable("-1", "uint8")),
        ("uint8", COMPLEX, 2**64, OverflowError, TOO_LARGE),
        ("int64", COMPLEX, -(2.0**63), OverflowError, unstorable("-9.22337e+18", "int64")),
        ("int64", COMPLEX, 2.0**63, OverflowError, unstorable("9.22337e+18", "int64")),
        ("uint64", COMPLEX, 2.0**64, OverflowError, unstorable("1.84467e+19", "uint64")),
        ("int64", COMPLEX, 2**63, OverflowError, TOO_LARGE),
        ("double", {}, 10**400, OverflowError, TOO_LARGE),
        ("double", {}, 2**63, OverflowError, TOO_LARGE),
        ("double", {}, -(2**63) - 1, OverflowError, TOO_LARGE),
        ("double", {}, None, *IS_NONE),
        ("double", {}, 1j, TypeError, no_complex("double")),
        ("double", {}, Float(), *WRONG_TYPE),
        ("double", {}, WithIndex(), *WRONG_TYPE),
        ("double", {}, {1}, *WRONG_TYPE),
        ("double", COMPLEX, 10**400, OverflowError, TOO_LARGE),
        ("single", {}, 1j, TypeError, no_complex("single")),
        ("single", {}, None, *IS_NONE),
        ("single", {}, object(), *WRONG_TYPE),
        ("logical", {}, 2**64, OverflowError, TOO_LARGE),
        ("logical", {}, -(2**63) - 1, OverflowError, TOO_LARGE),
        ("logical", {}, None, *IS_NONE),
        ("logical", {}, WithIndex(), *WRONG_TYPE),
    ]

    @pytest.mark.parametrize("word, kwargs, value, exception, message", ROWS, ids=names(ROWS))
    def test_rows(self, word, kwargs, value, exception, message):
        cls = getattr(velmar, word)
        with raises(exception, message):
            cls([value], **kwargs)
        with raises(exception, message):
            cls([[value]], **kwargs)
        with raises(ValueError, message):  # a vector always raises ValueError
            cls(vector=[value], **kwargs)

    @each(INTEGER_ROWS)
    def test_messages_name_the_class(self, row):
        with raises(TypeError, no_floats(row.word)):
            row.cls([1.0])
        with raises(TypeError, no_complex(row.word)):
            row.cls([1j])

    def test_whole_texts(self):
        with raises(OverflowError, "value (128) cannot be stored in a variable of type int8."):
            velmar.int8([128])
        with raises(TypeError, "velmar.int8 does not accept floating-point values."):
            velmar.int8([1.0])
        text = "does not accept complex values if 'is_complex' is not set to 'True'."
        with raises(TypeError, f"velmar.int8 {text}"):
            velmar.int8([1j])
        with raises(OverflowError, "Python int too large to convert to C long long"):
            velmar.uint64([2**64])


class TestModel:
    """The arithmetic of the model."""

    def test_an_integer_is_rounded_once(self):
        assert integer_to_single(16777217) == 16777216.0
        assert integer_to_single(16777219) == 16777220.0
        assert integer_to_single(-16777219) == -16777220.0
        assert integer_to_single(2**63 - 1) == 2.0**63
        assert integer_to_single(2**60 + 2**36) == 2.0**60
        assert integer_to_single(2**60 + 2**36 + 1) == 2.0**60 + 2.0**37
        assert integer_to_single(0) == 0.0

    def test_a_single_that_is_too_large_loses_its_sign(self):
        assert to_single(-1e39) == INF
        assert to_single(0.1) == 0.10000000149011612
