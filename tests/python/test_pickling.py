"""Pickling and copying: the result of __reduce__, and the restored array."""

import copy
import math
import pickle
import random
import struct

import pytest
import velmar
from helpers.arrays import (
    CLASS_ROWS,
    COMPLEX_ROWS,
    as_rows,
    contents,
    every,
    exact,
    grid,
    line,
    subscripted,
)
from helpers.cases import each, each_form, rows
from helpers.failures import NOT_INITIALIZED, STORAGE_GONE, raises
from helpers.memory_blocks import blocks_per_call, counts_blocks, references_per_call
from helpers.view_states import WITHOUT_STORAGE, bare_record

CUBE = grid(4, 5, 6)
PROTOCOLS = range(pickle.HIGHEST_PROTOCOL + 1)


def through(protocol):
    return lambda value: pickle.loads(pickle.dumps(value, protocol))


def through_pure_python(value):
    return pickle._loads(pickle._dumps(value))


ROADS = {
    **{f"protocol_{number}": through(number) for number in PROTOCOLS},
    "pure_python": through_pure_python,
    "copy": copy.copy,
    "deepcopy": copy.deepcopy,
}
each_road = pytest.mark.parametrize("road", ROADS.values(), ids=ROADS.keys())


class TestReduce:
    @each(CLASS_ROWS)
    def test_real(self, row):
        cls, arguments = row.cls([[1, 0], [0, 1]]).__reduce__()
        assert cls is row.cls
        assert type(arguments) is tuple
        assert len(arguments) == 2
        assert arguments[0] == {}
        kind = {"float": float, "logical": bool}.get(row.kind, int)
        assert exact(arguments[1]) == exact([[kind(1), kind(0)], [kind(0), kind(1)]])

    @each(COMPLEX_ROWS)
    def test_complex(self, row):
        cls, arguments = row.cls([[1, 2j]], is_complex=True).__reduce__()
        assert cls is row.cls
        assert type(arguments) is tuple
        assert len(arguments) == 2
        assert list(arguments[0].items()) == [("is_complex", True)]
        assert exact(arguments[1]) == exact([[1 + 0j, 2j]])

    @rows(
        "make, expected",
        [
            ("double", lambda: velmar.double([[1, 2]]), (velmar.double, ({}, [[1.0, 2.0]]))),
            ("logical", lambda: velmar.logical([1, 0]), (velmar.logical, ({}, [[True, False]]))),
            (
                "complex_int32",
                lambda: velmar.int32([1, 2j], is_complex=True),
                (velmar.int32, ({"is_complex": True}, [[1 + 0j, 2j]])),
            ),
            ("scalar", lambda: velmar.uint8(7), (velmar.uint8, ({}, [[7]]))),
            ("column", lambda: velmar.int8([[1], [2]]), (velmar.int8, ({}, [[1], [2]]))),
            ("nothing", lambda: velmar.double(), (velmar.double, ({}, []))),
            ("no_rows", lambda: velmar.double(size=(0, 3)), (velmar.double, ({}, []))),
            ("no_columns", lambda: velmar.double(size=(2, 0)), (velmar.double, ({}, [[], []]))),
            ("inner", lambda: velmar.double(size=(2, 0, 4)), (velmar.double, ({}, [[], []]))),
            (
                "complex_nothing",
                lambda: velmar.int8(is_complex=True),
                (velmar.int8, ({"is_complex": True}, [])),
            ),
            (
                "storage_order",
                lambda: velmar.int8([1, 2, 3, 4, 5, 6], size=(2, 3)),
                (velmar.int8, ({}, [[1, 3, 5], [2, 4, 6]])),
            ),
        ],
    )
    def test_rows(self, make, expected):
        assert make().__reduce__() == expected

    def test_each_call_gives_new_containers(self):
        array = velmar.double([[1, 2]])
        for container in array.__reduce__()[1]:
            container.clear()
        assert array.__reduce__() == (velmar.double, ({}, [[1.0, 2.0]]))

    def test_is_taken_for_every_protocol(self):
        array = velmar.int8([[1j, 2]], is_complex=True)
        for protocol in PROTOCOLS:
            assert array.__reduce_ex__(protocol) == array.__reduce__()

    def test_follows_writes_and_not_the_snapshot_of_a_clone(self):
        array = velmar.int8([[1, 2], [3, 4]])
        array.clone()
        array[1][0] = 9
        assert array.__reduce__()[1][1] == [[1, 2], [9, 4]]
        assert contents(copy.copy(array)) == [[1, 2], [9, 4]]

    def test_takes_no_arguments(self):
        with pytest.raises(TypeError):
            line(3).__reduce__(2)


VIEWS = [  # chains on 4 by 5 by 6, and the list that is pickled
    ("plane", [2], CUBE[2]),
    ("row", [2, 3], CUBE[2][3]),
    ("last_row", [-1, -1], CUBE[3][4]),
    ("plane_of_planes", [every(1, 3), 1], CUBE[2]),
    ("row_of_reversed_rows", [1, every(step=-1), 0], CUBE[1][4]),
    # A final slice is not applied: its dimension is pickled whole.
    ("planes", [every(1, 3)], CUBE),
    ("reversed_planes", [every(step=-1)], CUBE),
    ("no_planes", [every(2, 2)], CUBE),
    ("rows_of_plane", [2, every(1, 3)], CUBE[2]),
    ("part_of_row", [1, 2, every(2, 5)], CUBE[1][2]),
    ("no_numbers", [1, 2, every(5, 2)], CUBE[1][2]),
    ("slice_of_slice", [every(step=-1), every(1, 3)], CUBE),
    ("slice_behind_a_replaced_slice", [every(1, 3), 1, every(0, 1)], CUBE[2]),
]


class TestViews:
    @rows("chain, expected", VIEWS)
    def test_reduce(self, chain, expected):
        view = subscripted(velmar.double(CUBE), chain)
        assert view.__reduce__() == (velmar.double, ({}, expected))

    @rows("chain, expected", VIEWS)
    @each_road
    def test_round_trip(self, road, chain, expected):
        view = subscripted(velmar.double(CUBE), chain)
        assert contents(road(view)) == as_rows(expected)

    @each_form
    def test_row_comes_back_as_one_by_n(self, row, is_complex):
        view = row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)[1]
        back = pickle.loads(pickle.dumps(view))
        assert repr(back) == repr(row.cls([[0, 1, 1]], is_complex=is_complex))

    def test_yielded_rows(self):
        array = velmar.double([[1, 2], [3, 4]])
        copies = [copy.copy(row) for row in array]
        del array
        assert [contents(one) for one in copies] == [[[1.0, 2.0]], [[3.0, 4.0]]]


class TestRoundTrip:
    @each_form
    @each_road
    def test_each_form(self, road, row, is_complex):
        array = row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)
        back = road(array)
        assert type(back) is row.cls
        assert back is not array
        assert repr(back) == repr(array)
        assert exact(contents(back)) == exact(contents(array))
        assert back == array

    @pytest.mark.parametrize(
        "shape",
        [(1, 1), (1, 4), (4, 1), (2, 3, 2), (2, 1, 3), (1, 1, 5), (3, 2, 1, 2), (40, 30)],
        ids=str,
    )
    @each_road
    def test_shapes(self, road, shape):
        assert contents(road(velmar.double(grid(*shape)))) == grid(*shape)

    @rows(
        "size, expected",
        [
            ("0_0", (0, 0), "[]"),
            ("0_3", (0, 3), "[]"),
            ("1_0", (1, 0), "[[]]"),
            ("3_0", (3, 0), "[[],[],[]]"),
            ("2_0_4", (2, 0, 4), "[[],[]]"),
            ("2_3_0", (2, 3, 0), "[[[],[],[]],[[],[],[]]]"),
        ],
    )
    @each_road
    def test_without_elements(self, road, size, expected):
        for is_complex in (False, True):
            back = road(velmar.int16(size=size, is_complex=is_complex))
            assert str(back) == expected
            assert ("is_complex" in repr(back)) is is_complex

    @each(CLASS_ROWS)
    @each_road
    def test_extremes(self, road, row):
        array = row.cls([[row.low, row.high, 0, 1]])
        assert exact(contents(road(array))) == exact(contents(array))

    @each_road
    def test_floats_that_are_not_numbers(self, road):
        array = velmar.double([[math.nan, math.inf, -math.inf, -0.0]])
        assert exact(contents(road(array))) == exact(contents(array))

    @each_road
    def test_single_loses_nothing(self, road):
        generator = random.Random(11)
        words = [generator.getrandbits(23) | exponent << 23 for exponent in range(255)]
        values = [struct.unpack("f", struct.pack("I", word))[0] for word in words]
        array = velmar.single(vector=values)
        assert exact(contents(road(array))) == exact([values])

    @each_road
    def test_complex_of_64_bits_goes_through_double(self, road):
        array = velmar.int64([2**60 + 1, -3j], is_complex=True)
        assert exact(contents(road(array))) == exact([[complex(2**60), complex(0, -3)]])

    @each_road
    def test_stands_alone(self, road):
        array = velmar.int16([[1, 2], [3, 4]])
        back = road(array)
        back[0][0] = 50
        array[1][1] = 60
        assert contents(back) == [[50, 2], [3, 4]]
        assert contents(array) == [[1, 2], [3, 60]]


class TestInContainers:
    def test_one_array_twice_is_one_array(self):
        array = velmar.double([1, 2])
        back = pickle.loads(pickle.dumps([array, {"again": array}]))
        assert back[0] is back[1]["again"]
        first, second = copy.deepcopy([array, array])
        assert first is second

    def test_array_and_its_row_are_two_arrays(self):
        array = velmar.double([[1, 2], [3, 4]])
        whole, row = pickle.loads(pickle.dumps((array, array[0])))
        whole[0][0] = 9
        assert contents(row) == [[1.0, 2.0]]

    def test_copy_of_a_list_keeps_the_array(self):
        listed = [velmar.double([1, 2])]
        assert copy.copy(listed)[0] is listed[0]
        assert copy.deepcopy(listed)[0] is not listed[0]


# The results of pickle.dumps(array, protocol) in version 0.1.0.
STORED = [
    (
        "double_0",
        lambda: velmar.double([[1, 2.5], [3, -0.0]]),
        b"cvelmar\ndouble\np0\n((dp1\n(lp2\n(lp3\nF1.0\naF2.5\naa(lp4\nF3.0\naF-0.0\naatp5\nRp6\n.",
    ),
    (
        "logical_2",
        lambda: velmar.logical([True, False]),
        b"\x80\x02cvelmar\nlogical\nq\x00}q\x01]q\x02]q\x03(\x88\x89ea\x86q\x04Rq\x05.",
    ),
    (
        "complex_int16_4",
        lambda: velmar.int16([[1 - 2j], [3]], is_complex=True),
        b"\x80\x04\x95x\x00\x00\x00\x00\x00\x00\x00\x8c\x06velmar\x94\x8c\x05int16\x94\x93\x94}"
        b"\x94\x8c\nis_complex\x94\x88s]\x94(]\x94\x8c\x08builtins\x94\x8c\x07complex\x94\x93\x94"
        b"G?\xf0\x00\x00\x00\x00\x00\x00G\xc0\x00\x00\x00\x00\x00\x00\x00\x86\x94R\x94a]\x94h\t"
        b"G@\x08\x00\x00\x00\x00\x00\x00G\x00\x00\x00\x00\x00\x00\x00\x00\x86\x94R\x94ae\x86\x94"
        b"R\x94.",
    ),
]


class TestStoredPickles:
    @rows("make, stored", STORED)
    def test_old_pickle_is_read(self, make, stored):
        back = pickle.loads(stored)
        assert type(back) is type(make())
        assert repr(back) == repr(make())

    @pytest.mark.parametrize("row", CLASS_ROWS, ids=lambda row: row.word)
    def test_class_is_found_by_the_name_it_is_published_under(self, row):
        assert f"velmar\n{row.word}\n".encode() in pickle.dumps(row.cls([1]), 0)


class TestFailures:
    @rows("make", WITHOUT_STORAGE)
    @pytest.mark.parametrize(
        "action",
        [lambda view: view.__reduce__(), pickle.dumps, copy.copy, copy.deepcopy],
        ids=["reduce", "pickle", "copy", "deepcopy"],
    )
    def test_without_storage(self, action, make):
        view = make()
        for _ in range(2):
            with raises(*STORAGE_GONE):
                action(view)

    @each(CLASS_ROWS)
    def test_bare_record(self, row):
        for action in (lambda record: record.__reduce__(), pickle.dumps, copy.copy):
            with raises(*NOT_INITIALIZED):
                action(bare_record(row.cls))

    @rows(
        "cls, element, text",
        [
            ("int64", velmar.int64, 2**63 - 1, "value (9.22337e+18)"),
            ("int64_lowest", velmar.int64, -(2**63), "value (-9.22337e+18)"),
            ("uint64", velmar.uint64, 2**64 - 1, "value (1.84467e+19)"),
        ],
    )
    def test_complex_element_that_does_not_fit_when_it_comes_back(self, cls, element, text):
        stored = pickle.dumps(cls([element], is_complex=True))
        word = cls.__name__
        with raises(OverflowError, f"{text} cannot be stored in a variable of type {word}."):
            pickle.loads(stored)

    def test_more_rows_than_memory_holds(self):
        with pytest.raises(MemoryError):
            velmar.double(size=(2**62, 0)).__reduce__()

    @pytest.mark.parametrize("protocol", PROTOCOLS[2:])
    def test_iterator(self, protocol):
        with raises(TypeError, "cannot pickle 'velmar.MCPyIter' object"):
            pickle.dumps(iter(velmar.double([1])), protocol)


def failing_reduce(array):
    try:
        array.__reduce__()
    except RuntimeError:
        return
    raise AssertionError("the array was reduced")


class TestReferences:
    @counts_blocks
    @rows(
        "action",
        [
            ("reduce", lambda: velmar.double([[1000.5, 2000.5], [3, 4]]).__reduce__()),
            ("row", lambda: velmar.double([[1000.5, 2000.5], [3, 4]])[1].__reduce__()),
            ("complex", lambda: velmar.int32([1000, 2000j], is_complex=True).__reduce__()),
            ("nothing", lambda: velmar.double().__reduce__()),
            ("without_storage", lambda: failing_reduce(list(velmar.double([1000.5]))[0])),
            ("pickle", lambda: pickle.loads(pickle.dumps(velmar.double([1000.5])))),
            ("copy", lambda: copy.deepcopy(velmar.int8([[100j], [1]], is_complex=True))),
        ],
    )
    def test_nothing_is_left_behind(self, action):
        assert blocks_per_call(action) < 0.05

    @each(CLASS_ROWS)
    def test_class_gains_no_reference(self, row):
        array = row.cls([[1, 0], [0, 1]])
        assert references_per_call(row.cls, array.__reduce__) == 0
