"""What subscripts of the last dimension return in every class, and what len() counts."""

import math
import operator

import velmar
from helpers.arrays import CLASS_ROWS, COMPLEX_ROWS, exact, grid, line
from helpers.cases import each, rows

LAST = 2**63 - 1
NUMBER_TYPES = {"float": float, "signed": int, "unsigned": int, "logical": bool}


class TestNumber:
    @each(CLASS_ROWS)
    def test_limits(self, row):
        array = row.cls([row.low, 1, row.high])[0]
        for index, expected in enumerate([row.low, 1, row.high]):
            got = array[index]
            assert type(got) is NUMBER_TYPES[row.kind]
            assert got == expected

    @each(COMPLEX_ROWS)
    def test_complex(self, row):
        low = -2 if row.low < 0 else 2
        array = row.cls([[complex(1, low), complex(low, 3)], [4, 0]], is_complex=True)
        expected = [[complex(1, low), complex(low, 3)], [complex(4, 0), complex(0, 0)]]
        for i in (0, 1):
            for j in (0, 1):
                got = array[i][j]
                assert type(got) is complex
                assert got == expected[i][j]

    @each(COMPLEX_ROWS)
    def test_complex_limits(self, row):
        array = row.cls([row.high, row.low], is_complex=True)[0]
        for index, expected in enumerate([row.high, row.low]):
            got = array[index]
            assert type(got) is complex
            assert got.real == float(expected)
            assert got.imag == 0.0

    @rows(
        "cls, value, expected",
        [
            ("double", velmar.double, 0.1, 0.1),
            ("single", velmar.single, 0.1, 0.10000000149011612),
            ("int8_negative", velmar.int8, -1, -1),
            ("int16_negative", velmar.int16, -2, -2),
            ("int32_negative", velmar.int32, -3, -3),
            ("int64_negative", velmar.int64, -4, -4),
            ("int64_beyond_53_bits", velmar.int64, 2**53 + 1, 2**53 + 1),
            ("uint8_above_signed", velmar.uint8, 200, 200),
            ("uint16_above_signed", velmar.uint16, 40000, 40000),
            ("uint32_above_signed", velmar.uint32, 3000000000, 3000000000),
            ("uint64_above_signed", velmar.uint64, 2**63 + 1, 2**63 + 1),
            ("logical_true", velmar.logical, 7, True),
            ("logical_false", velmar.logical, 0, False),
        ],
    )
    def test_rows(self, cls, value, expected):
        assert exact(cls([value])[0][0]) == exact(expected)

    @rows(
        "cls, value, expected",
        [
            ("single", velmar.single, 0.1 + 0.2j, 0.10000000149011612 + 0.20000000298023224j),
            ("int64_loses", velmar.int64, 2**53 + 1, complex(2**53)),
            ("uint64_loses", velmar.uint64, 2**64 - 1, complex(2.0**64)),
            ("uint64_above_signed", velmar.uint64, 2**63, complex(2.0**63)),
        ],
    )
    def test_complex_rows(self, cls, value, expected):
        assert exact(cls([value], is_complex=True)[0][0]) == exact(expected)

    @rows(
        "value",
        [
            ("nan", math.nan),
            ("infinite", math.inf),
            ("minus_infinite", -math.inf),
            ("minus_zero", -0.0),
            ("smallest", 5e-324),
        ],
    )
    def test_special_floats(self, value):
        assert exact(velmar.double([value])[0][0]) == exact(value)
        for element in (complex(value, 1.0), complex(1.0, value)):
            assert exact(velmar.double([element], is_complex=True)[0][0]) == exact(element)

    def test_logical_is_a_singleton(self):
        array = velmar.logical([1, 0])[0]
        assert array[0] is True
        assert array[1] is False


LENGTHS = [
    ("nothing", lambda: velmar.double(), 0),
    ("scalar", lambda: velmar.double(5), 1),
    ("row", lambda: velmar.double([1, 2, 3]), 1),
    ("column", lambda: velmar.double([[1], [2], [3]]), 3),
    ("row_view", lambda: velmar.double([1, 2, 3])[0], 3),
    ("no_rows", lambda: velmar.double(size=(0, 3)), 0),
    ("empty_rows", lambda: velmar.double(size=(3, 0)), 3),
    ("empty_row", lambda: velmar.double(size=(3, 0))[1], 0),
    ("second_dimension", lambda: velmar.double(grid(3, 4))[1], 4),
    ("third_dimension", lambda: velmar.double(grid(3, 4, 5))[1][-1], 5),
    ("slice", lambda: line(9)[2:5], 3),
    ("slice_of_rows", lambda: velmar.double(grid(3, 4))[1:], 2),
    ("empty_slice", lambda: line(9)[5:2], 0),
    ("slice_of_slice", lambda: line(9)[::2][1:4], 3),
    ("complex", lambda: velmar.double(grid(3, 4), is_complex=True)[2], 4),
    ("huge", lambda: velmar.double(size=(LAST, 0)), LAST),
]


class TestLength:
    @rows("make, expected", LENGTHS)
    def test_rows(self, make, expected):
        array = make()
        assert len(array) == expected
        assert array.__len__() == expected
        assert operator.length_hint(array) == expected

    @each(CLASS_ROWS)
    def test_every_class(self, row):
        array = row.cls([[1, 0, 1], [0, 1, 1]])
        assert [len(array), len(array[0]), len(array[0][1:]), len(array[1:])] == [2, 3, 2, 1]
