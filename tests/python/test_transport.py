"""Packed arrays: header, frames and the unpacked array."""

import json
import math
import pickle
import sys

import pytest
import velmar
from helpers.arrays import COMPLEX_ROWS, INTEGER_ROWS, contents, every, exact, grid, subscripted
from helpers.cases import each, each_form, rows
from helpers.child_interpreter import run_script
from helpers.failures import NOT_INITIALIZED, STORAGE_GONE, raises
from helpers.memory_blocks import blocks_per_call, counts_blocks
from helpers.view_states import WITHOUT_STORAGE, bare_record
from velmar import transport

CUBE = grid(4, 5, 6)


def there_and_back(array):
    header, frames = transport.pack(array)
    return transport.unpack(json.loads(json.dumps(header)), [bytes(frame) for frame in frames])


def facts(array):
    """Class, complexity, shape and every element, each number with its type."""
    return type(array), array._is_complex, array.size, exact(contents(array))


class TestImport:
    def test_is_made_on_request_only(self):
        outcome = run_script(
            """
            import sys
            import velmar
            names = ["velmar.transport", "ctypes", "multiprocessing", "dask", "ray"]
            before = [name for name in names if name in sys.modules]
            import velmar.transport
            report([before, [name for name in names if name in sys.modules]])
            """
        )
        assert outcome.reported == [[], ["velmar.transport", "ctypes", "multiprocessing"]]

    def test_registers_nothing(self):
        outcome = run_script(
            """
            import copyreg
            from multiprocessing.reduction import ForkingPickler
            import velmar.transport
            tables = ForkingPickler._extra_reducers, copyreg.dispatch_table
            report([cls.__name__ for table in tables for cls in table if "velmar" in str(cls)])
            """
        )
        assert outcome.reported == []


class TestPack:
    @each_form
    def test_header(self, row, is_complex):
        header, frames = transport.pack(row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex))
        assert header == {
            "transport": 1,
            "class": row.word,
            "is_complex": is_complex,
            "size": (2, 3),
            "byteorder": sys.byteorder,
        }
        assert len(json.dumps(header)) < 120
        assert len(frames) == 1

    @each_form
    def test_frame(self, row, is_complex):
        array = row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)
        frame = transport.pack(array)[1][0]
        assert type(frame) is memoryview
        assert (frame.format, frame.ndim, frame.readonly) == ("B", 1, True)
        assert frame.nbytes == 6 * array.itemsize
        assert frame == memoryview(array).tobytes("A")

    def test_frame_of_an_array_is_its_memory(self):
        array = velmar.uint8([[1, 2], [3, 4]])
        frame = transport.pack(array)[1][0]
        assert frame.obj is array
        array[0][1] = 9
        assert bytes(frame) == b"\x01\x03\x09\x04"

    @rows(
        "chain, expected",
        [
            ("row", [0], b"\x01\x09"),
            ("rows", [every(0, 1)], b"\x01\x09"),
            ("all_rows", [every()], b"\x01\x03\x09\x04"),
            ("reversed_rows", [every(step=-1)], b"\x03\x01\x04\x09"),
            ("part_of_row", [0, every(1, 2)], b"\x09"),
        ],
    )
    def test_frame_of_a_view_follows_earlier_writes_only(self, chain, expected):
        array = velmar.uint8([[1, 2], [3, 4]])
        view = subscripted(array, chain)
        first = bytes(transport.pack(view)[1][0])
        array[0][1] = 9
        frame = transport.pack(view)[1][0]
        assert bytes(frame) == expected != first
        array[0][1] = 11
        assert bytes(frame) == expected

    @rows(
        "numbers, chain",
        [
            ("row", [[1, 2], [3, 4]], [0]),
            ("only_row", [[1, 2]], [0]),
            ("rows", [[1, 2], [3, 4]], [every(0, 1)]),
            ("part_of_row", [[1, 2], [3, 4]], [0, every(1, 2)]),
        ],
    )
    def test_exports_no_view(self, numbers, chain):
        array = velmar.uint8(numbers)
        view = subscripted(array, chain)
        transport.pack(view)
        array[0][1] = 9  # the memory of a view is a copy made at its first export
        assert memoryview(view).tolist()[0][-1] == 9

    def test_frame_keeps_its_array(self):
        frame = transport.pack(velmar.int16([[1, 2], [3, 4]]))[1][0]
        assert list(frame.cast("h")) == [1, 3, 2, 4]

    def test_frame_from_before_a_reshape(self):
        array = velmar.uint8([[1, 2], [3, 4]])
        header, frames = transport.pack(array)
        array.reshape(1, 4)
        assert contents(transport.unpack(header, frames)) == [[1, 2], [3, 4]]

    @rows(
        "value, kind",
        [
            ("list", [[1.0]], "list"),
            ("nothing", None, "NoneType"),
            ("memoryview", memoryview(b"1"), "memoryview"),
            ("class", velmar.double, "type"),
            ("iterator", iter(velmar.double([1])), "MCPyIter"),
        ],
    )
    def test_refuses_what_is_no_array(self, value, kind):
        with raises(TypeError, f"pack() takes an array of velmar, not {kind}."):
            transport.pack(value)

    @rows("make", WITHOUT_STORAGE)
    def test_without_storage(self, make):
        with raises(*STORAGE_GONE):
            transport.pack(make())

    def test_bare_record(self):
        with raises(*NOT_INITIALIZED):
            transport.pack(bare_record(velmar.double))


class TestThereAndBack:
    @each_form
    def test_each_form(self, row, is_complex):
        numbers = [[1, 1j, 0], [0, 1 + 1j, 1]] if is_complex else [[1, 0, 1], [0, 1, 1]]
        array = row.cls(numbers, is_complex=is_complex)
        back = there_and_back(array)
        assert facts(back) == facts(array)
        assert back == array

    @pytest.mark.parametrize(
        "size",
        [(1, 1), (1, 4), (4, 1), (2, 3, 2), (2, 1, 3), (1, 1, 5), (3, 2, 1, 2), (40, 30)]
        + [(0, 0), (0, 3), (3, 0), (1, 0), (2, 0, 4), (2, 3, 0), (0, 1, 1, 2), (2**40, 0)],
        ids=str,
    )
    @pytest.mark.parametrize("is_complex", [False, True], ids=["real", "complex"])
    def test_shapes(self, size, is_complex):
        numbers = range(math.prod(size))
        array = velmar.int16(vector=numbers, size=size, is_complex=is_complex)
        back = there_and_back(array)
        assert (back.size, back._is_complex) == (array.size, is_complex)
        assert memoryview(back).tobytes("A") == memoryview(array).tobytes("A")

    @pytest.mark.parametrize("count", [64, 65, 70])
    def test_more_dimensions_than_a_memoryview_has(self, count):
        size = (*[1] * (count - 2), 2, 3)
        array = velmar.int32(vector=range(6), size=size)
        back = there_and_back(array)
        assert back.size == size
        assert repr(back) == repr(array)

    @pytest.mark.parametrize("count, size", [(0, (0, 0)), (3, (1, 3))])
    def test_one_dimension_becomes_a_row(self, count, size):
        array = velmar.double(vector=range(count))
        array.reshape([count])
        back = there_and_back(array)
        assert back.size == size
        assert contents(back) == [[0.0, 1.0, 2.0]][: size[0]]

    def test_floats_to_the_bit(self):
        generator = bytes(range(256)) * 8  # with not-a-numbers of all kinds
        for cls, letter in ((velmar.double, "d"), (velmar.single, "f")):
            array = cls(memoryview(generator).cast(letter))
            assert memoryview(there_and_back(array)).tobytes("A") == generator

    @each(INTEGER_ROWS)
    def test_complex_integers_to_the_bit(self, row):
        # A Python complex cannot hold these; a pickle loses bits or cannot be loaded.
        header, _ = transport.pack(row.cls([0, 0], is_complex=True))
        frame = bytes(range(250, 256)) * (4 * row.cls(0).itemsize // 6 + 1)
        frame = frame[: 4 * row.cls(0).itemsize]
        array = transport.unpack(header, [frame])
        assert memoryview(there_and_back(array)).tobytes("A") == frame
        assert contents(array.real().clone())[0][0] == int.from_bytes(
            frame[: row.cls(0).itemsize], sys.byteorder, signed=row.kind == "signed"
        )

    def test_logical_elements_are_true_or_false(self):
        header, _ = transport.pack(velmar.logical([0, 0, 0]))
        back = transport.unpack(header, [b"\x00\x01\x80"])
        assert back == velmar.logical([0, 1, 1])
        assert memoryview(back).tobytes("A") == b"\x00\x01\x01"

    @each_form
    def test_stands_alone(self, row, is_complex):
        array = row.cls([[0, 0]], is_complex=is_complex)
        header, frames = transport.pack(array)
        back = transport.unpack(header, frames)
        array[0][0] = 1
        back[0][1] = 1
        assert contents(array) == [[1, 0]]
        assert contents(back) == [[0, 1]]


class TestViews:
    @rows(
        "chain",
        [
            ("plane", [2]),
            ("row", [2, 3]),
            ("last_row", [-1, -1]),
            ("plane_of_planes", [every(1, 3), 1]),
            ("row_of_reversed_rows", [1, every(step=-1), 0]),
        ],
    )
    def test_of_integers_comes_back_as_its_pickle(self, chain):
        view = subscripted(velmar.double(CUBE), chain)
        assert facts(there_and_back(view)) == facts(pickle.loads(pickle.dumps(view)))

    @rows(
        "chain, expected",
        [  # a pickle ignores the last slice of each of these
            ("planes", [every(1, 3)], CUBE[1:3]),
            ("all_planes", [every()], CUBE),
            ("reversed_planes", [every(step=-1)], CUBE[::-1]),
            ("rows_of_plane", [2, every(1, 3)], CUBE[2][1:3]),
            ("part_of_row", [1, 2, every(2, 5)], [CUBE[1][2][2:5]]),
            ("reversed_row", [1, 2, every(step=-1)], [CUBE[1][2][::-1]]),
            ("slice_of_slice", [every(step=-1), every(1, 3)], CUBE[::-1][1:3]),
        ],
    )
    def test_of_slices_comes_back_as_it_is(self, chain, expected):
        view = subscripted(velmar.double(CUBE), chain)
        back = there_and_back(view)
        assert contents(back) == expected == contents(view.clone())
        assert len(chain) == 3 or back == view

    @rows(
        "size, chain, expected",
        [
            ("no_rows", (2, 3), [every(1, 1)], (0, 3)),
            ("no_columns", (3, 0), [every(0, 2)], (2, 0)),
            ("row_without_numbers", (2, 0), [1], (0, 0)),
            ("part_of_row", (2, 3), [1, every(3, 3)], (0, 0)),
            ("plane", (2, 3, 0), [1], (3, 0)),
        ],
    )
    def test_without_elements(self, size, chain, expected):
        back = there_and_back(subscripted(velmar.single(size=size), chain))
        assert type(back) is velmar.single
        assert back.size == expected

    @each_form
    def test_row(self, row, is_complex):
        view = row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)[1]
        back = there_and_back(view)
        assert facts(back) == facts(row.cls([[0, 1, 1]], is_complex=is_complex))

    def test_yielded_by_a_loop(self):
        array = velmar.int8([[[1, 2], [3, 4]], [[5, 6], [7, 8]]])
        assert [contents(there_and_back(plane)) for plane in array] == contents(array)
        assert [contents(there_and_back(row)) for row in array[1]] == [[[5, 6]], [[7, 8]]]

    def test_complex_elements_of_64_bits_go_through_double(self):
        header, _ = transport.pack(velmar.int64([0], is_complex=True))
        for number, expected in ((2**62 + 1, 2**62), (2**53 + 1, 2**53), (-(2**60) - 1, -(2**60))):
            frame = number.to_bytes(8, sys.byteorder, signed=True) + bytes(8)
            array = transport.unpack(header, [frame])
            assert list(there_and_back(array).real()) == [number]
            assert list(there_and_back(array[0]).real()) == [expected]
            assert list(there_and_back(array[:]).real()) == [expected]

    @pytest.mark.parametrize("chain", [[0], [every()], [0, every()]], ids=str)
    def test_complex_element_that_does_not_fit_when_it_is_copied(self, chain):
        view = subscripted(velmar.int64([2**63 - 1], is_complex=True), chain)
        message = "value (9.22337e+18) cannot be stored in a variable of type int64."
        with raises(OverflowError, message):
            transport.pack(view)

    @each(COMPLEX_ROWS)
    def test_parts(self, row):
        array = row.cls([[1, 1j], [1 + 1j, 0]], is_complex=True)
        assert contents(there_and_back(array.imag())) == [[0, 1, 1, 0]]


HEADER, FRAMES = transport.pack(velmar.int16([[1, 2, 3], [4, 5, 6]]))
COMPLEX = {**HEADER, "is_complex": True, "size": (1, 3)}
FOREIGN = {"little": "big", "big": "little"}[sys.byteorder]


def without(key):
    return {name: value for name, value in HEADER.items() if name != key}


class TestFrames:
    @rows(
        "frame_of",
        [
            ("bytes", bytes),
            ("bytearray", bytearray),
            ("pickle_buffer", pickle.PickleBuffer),
            ("shorts", lambda frame: frame.cast("h")),
            ("rows", lambda frame: memoryview(bytes(frame)).cast("B", (3, 4))),
            ("array", lambda frame: velmar.int16([[1, 2, 3], [4, 5, 6]])),
            ("at_an_odd_address", lambda frame: memoryview(b"-" + frame + b"-")[1:-1]),
        ],
    )
    @pytest.mark.parametrize("header", [HEADER, COMPLEX], ids=["real", "complex"])
    def test_kinds(self, header, frame_of):
        back = transport.unpack(header, (frame_of(FRAMES[0]),))
        assert back.size == header["size"]
        assert memoryview(back).tobytes("A") == bytes(FRAMES[0])

    @pytest.mark.parametrize("header", [HEADER, COMPLEX], ids=["real", "complex"])
    def test_is_released_after_unpacking(self, header):
        frame = bytearray(FRAMES[0])
        transport.unpack(header, [frame])
        frame.append(0)  # raises while the memory is exported
        with pytest.raises(ValueError):
            transport.unpack(header, [frame])
        frame.append(0)


class TestMalformed:
    @rows(
        "header, frames, exception, message",
        [
            ("no_dict", [], FRAMES, TypeError, "header is not a dict."),
            ("empty", {}, FRAMES, ValueError, "header is of version None; 1 expected."),
            (
                "later",
                {**HEADER, "transport": 2},
                FRAMES,
                ValueError,
                "header is of version 2; 1 expected.",
            ),
            ("no_class", without("class"), FRAMES, ValueError, "header has no 'class'."),
            ("no_size", without("size"), FRAMES, ValueError, "header has no 'size'."),
            ("no_order", without("byteorder"), FRAMES, ValueError, "header has no 'byteorder'."),
            ("real_or", without("is_complex"), FRAMES, ValueError, "header has no 'is_complex'."),
            (
                "foreign",
                {**HEADER, "byteorder": FOREIGN},
                FRAMES,
                ValueError,
                f"header has byte order '{FOREIGN}'; '{sys.byteorder}' expected.",
            ),
            ("frames_none", HEADER, None, TypeError, "frames is not a list or tuple."),
            ("frames_bytes", HEADER, b"1", TypeError, "frames is not a list or tuple."),
            ("no_frame", HEADER, [], ValueError, "one frame expected, not 0."),
            ("two_frames", HEADER, FRAMES * 2, ValueError, "one frame expected, not 2."),
            ("short", HEADER, [b"1"], ValueError, "frame has 1 bytes; 12 expected."),
            ("long", COMPLEX, [bytes(13)], ValueError, "frame has 13 bytes; 12 expected."),
            (
                "text",
                HEADER,
                ["1"],
                TypeError,
                "a bytes-like object is required, not 'str'",
            ),
            (
                "gaps",
                HEADER,
                [memoryview(bytes(24))[::2]],
                BufferError,
                "cannot extract raw buffer from non-contiguous buffer",
            ),
            (
                "enormous",
                {**HEADER, "size": (2**62, 2**62)},
                FRAMES,
                ValueError,
                f"frame has 12 bytes; {2**125} expected.",
            ),
            (
                "enormous_without_elements",
                {**HEADER, "size": (2**64, 0)},
                [b""],
                ValueError,
                "size cannot contain negative dimensions. Use nonnegative integers for dimensions.",
            ),
        ],
    )
    def test_rows(self, header, frames, exception, message):
        with raises(exception, message):
            transport.unpack(header, frames)

    @pytest.mark.parametrize("word", ["float", "MCPyIter", "", None, ["int8"], velmar.int8])
    def test_class(self, word):
        with raises(ValueError, f"header has an unknown class: {word!r}."):
            transport.unpack({**HEADER, "class": word}, FRAMES)

    @pytest.mark.parametrize("size", [None, 6, "23", (), (6,), (2, -3), (2, 3.0), (True, 6)])
    def test_size(self, size):
        with raises(ValueError, f"header has an invalid size: {size!r}."):
            transport.unpack({**HEADER, "size": size}, FRAMES)

    @pytest.mark.parametrize("word, value", [("int16", 1), ("int16", None), ("logical", True)])
    def test_complexity(self, word, value):
        with raises(ValueError, f"header has an invalid 'is_complex' for {word}: {value!r}."):
            transport.unpack({**HEADER, "class": word, "is_complex": value}, FRAMES)


class TestReferences:
    @counts_blocks
    @rows(
        "array",
        [
            ("real", velmar.double([[1000.5, 2], [3, 4]])),
            ("complex", velmar.int32([1000, 2000j], is_complex=True)),
            ("row", velmar.int32([[1000, 2000]])[0]),
            ("reversed", velmar.int32([[1000], [2000]])[::-1]),
            ("nothing", velmar.double()),
        ],
    )
    def test_nothing_is_left_behind(self, array):
        before = sys.getrefcount(array)
        assert blocks_per_call(lambda: transport.unpack(*transport.pack(array))) < 0.05
        assert sys.getrefcount(array) == before
