"""Python values of every kind for single elements; none of them is a sequence."""

from __future__ import annotations

import collections
import datetime
import decimal
import enum
import fractions
import math
import types


class LyingInt(int):
    """The module must use the number itself, not these methods."""

    def __index__(self):
        return 77

    __int__ = __neg__ = __index__

    def __float__(self):
        return 77.0

    def __bool__(self):
        return False

    def __eq__(self, other):
        return False

    __hash__ = int.__hash__


class LyingFloat(float):
    def __float__(self):
        return 77.0

    def __int__(self):
        return 77

    __index__ = __int__

    def __bool__(self):
        return False

    def __eq__(self, other):
        return True

    __hash__ = float.__hash__


class LyingComplex(complex):
    def __complex__(self):
        return 77j

    def __float__(self):
        return 77.0

    def __bool__(self):
        return False

    real = 77.0
    imag = 77.0


class WithIndex:
    """Not an int, but convertible to one."""

    def __init__(self, value=1):
        self.value = value

    def __index__(self):
        return self.value


class CalledIndex:
    """Calls a function when asked for an integer."""

    def __init__(self, function):
        self.function = function

    def __index__(self):
        return self.function()


class RaisingIndex:
    """Raises this error when asked for an integer."""

    def __init__(self, error):
        self.error = error

    def __index__(self):
        raise self.error.with_traceback(None)  # tests share the error


class Float:
    def __float__(self):
        return 1.0


class Complex:
    def __complex__(self):
        return 1j


class Everything(WithIndex, Float, Complex):
    def __int__(self):
        return 1

    def __len__(self):
        return 1

    def __iter__(self):
        return iter([1])


class Raising:
    """Its conversions raise; none of them may be called."""

    def __index__(self):
        raise AssertionError("called")

    __float__ = __complex__ = __int__ = __bool__ = __len__ = __iter__ = __eq__ = __index__
    __hash__ = None


class Posing:
    """A float for isinstance(), but not by its type."""

    @property
    def __class__(self):
        return float


class Side(enum.IntEnum):
    TWO = 2
    THREE = 3


class Flag(enum.IntFlag):
    SET = 4


class Plain(enum.Enum):
    ONE = 1


INTEGERS = {
    "0": 0,
    "1": 1,
    "-1": -1,
    "100": 100,
    "True": True,
    "False": False,
    "LyingInt(5)": LyingInt(5),
    "LyingInt(0)": LyingInt(0),
    "LyingInt(-5)": LyingInt(-5),
    "LyingInt(2**70)": LyingInt(2**70),
    "IntEnum": Side.THREE,
    "IntFlag": Flag.SET,
    "2**53+1": 2**53 + 1,
    "2**100": 2**100,
    "-2**100": -(2**100),
    "10**400": 10**400,
    "-10**400": -(10**400),
    "2**40000": 2**40000,
}

FLOATS = {
    "0.0": 0.0,
    "-0.0": -0.0,
    "0.5": 0.5,
    "-0.5": -0.5,
    "1.0": 1.0,
    "1.5": 1.5,
    "-1.0": -1.0,
    "0.1": 0.1,
    "-3.75": -3.75,
    "128.5": 128.5,
    "-128.9": -128.9,
    "123456.7": 123456.7,
    "1234567.0": 1234567.0,
    "1e20": 1e20,
    "-1e20": -1e20,
    "1e-30": 1e-30,
    "1e-45": 1e-45,
    "-1e-50": -1e-50,
    "5e-324": 5e-324,
    "1e300": 1e300,
    "-1e300": -1e300,
    "nan": math.nan,
    "inf": math.inf,
    "-inf": -math.inf,
    "LyingFloat(2.5)": LyingFloat(2.5),
    "LyingFloat(-0.0)": LyingFloat(-0.0),
    "LyingFloat(nan)": LyingFloat("nan"),
}

COMPLEXES = {
    "0j": 0j,
    "-0-0j": complex(-0.0, -0.0),
    "1j": 1j,
    "1+0j": 1 + 0j,
    "2.5-3.5j": 2.5 - 3.5j,
    "-0.5-0.5j": -0.5 - 0.5j,
    "-128.9-128.9j": -128.9 - 128.9j,
    "both out of range": complex(1e20, -2e20),
    "imaginary out of range": complex(1.0, 1e20),
    "real out of range": complex(-1e20, 1.0),
    "1e300-1e300j": complex(1e300, -1e300),
    "inf and nan": complex(math.inf, math.nan),
    "nan and inf": complex(math.nan, math.inf),
    "0 and nan": complex(0.0, math.nan),
    "nan and 0": complex(math.nan, 0.0),
    "nan and -inf": complex(math.nan, -math.inf),
    "LyingComplex(1-2j)": LyingComplex(1, -2),
    "LyingComplex(0j)": LyingComplex(0, 0),
}

OTHERS = {
    "None": None,
    "object": object(),
    "Ellipsis": ...,
    "NotImplemented": NotImplemented,
    "int as a class": int,
    "function": len,
    "module": math,
    "Index": WithIndex(),
    "Float": Float(),
    "Complex": Complex(),
    "Everything": Everything(),
    "Raising": Raising(),
    "Posing": Posing(),
    "Enum": Plain.ONE,
    "Fraction": fractions.Fraction(1, 2),
    "whole Fraction": fractions.Fraction(3),
    "Decimal": decimal.Decimal("1.5"),
    "whole Decimal": decimal.Decimal(2),
    "date": datetime.date(2020, 1, 1),
    "set": {1},
    "frozenset": frozenset([1]),
    "dict": {0: 1},
    "empty dict": {},
    "dict subclass": collections.OrderedDict({0: 1}),
    "mapping proxy": types.MappingProxyType({0: 1}),
    "iterator": iter([1]),
    "generator": (i for i in [1]),
    "dict keys": {1: 1}.keys(),
}

VALUES = {**INTEGERS, **FLOATS, **COMPLEXES, **OTHERS}

# The last accepted and the first refused values of every class, as int and as double.
BITS = (7, 8, 15, 16, 31, 32, 63, 64)
BOUNDARY_INTEGERS = sorted(
    sign * 2**bits + step for bits in BITS for sign in (-1, 1) for step in (-2, -1, 0, 1, 2)
)
_EDGES = [sign * 2.0**bits + step for bits in BITS for sign in (-1, 1) for step in (-1.0, 0.0, 1.0)]
BOUNDARY_FLOATS = sorted(
    {
        near
        for edge in [*_EDGES, -1.0, 0.0, 3.4028234663852886e38, -3.4028234663852886e38]
        for near in (edge, math.nextafter(edge, math.inf), math.nextafter(edge, -math.inf))
    }
)
