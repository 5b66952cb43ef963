"""save() and load(): files of NumPy's format, damaged files, and files of NumPy itself."""

from __future__ import annotations

import gzip
import io
import itertools
import math
import os
import struct
import sys
import tracemalloc

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, exact, grid
from helpers.cases import IS_BRIEF, each, rows
from helpers.failures import STORAGE_GONE, raises
from helpers.view_states import expired_row
from hypothesis import example, given
from hypothesis import strategies as st

NATIVE = "<" if sys.byteorder == "little" else ">"
CODES = {row.word: f"{row.kind[0]}{row.cls().itemsize}" for row in CLASS_ROWS}
CODES["logical"] = "b1"
CODES |= {word: code.replace("s", "i") for word, code in CODES.items()}
LETTERS = {row.word: memoryview(row.cls([[1]])).format for row in CLASS_ROWS}
# Class, is_complex, code, letter of struct.
FORMS = [
    *[(row.cls, False, CODES[row.word], LETTERS[row.word]) for row in CLASS_ROWS],
    (velmar.double, True, "c16", "d"),
    (velmar.single, True, "c8", "f"),
]
each_form_of_numpy = pytest.mark.parametrize(
    "cls, is_complex, code, letter", FORMS, ids=[form[2] for form in FORMS]
)


def value_at(letter, is_complex, i):
    if letter == "?":
        return i % 3 == 0
    if letter in "efd":
        return complex(i + 0.5, -i) if is_complex else i - 2.5
    return 1 + i * (1 + 2 ** (8 * struct.calcsize(letter) - 8)) % 100


def header(descr, fortran_order, shape):
    return repr({"descr": descr, "fortran_order": fortran_order, "shape": shape}) + "\n"


def file_of(text, data=b"", version=(1, 0), length=None):
    encoded = text.encode("latin-1" if version < (3, 0) else "utf-8")
    length = len(encoded) if length is None else length
    packed = struct.pack("<H" if version == (1, 0) else "<I", length)
    return b"\x93NUMPY" + bytes(version) + packed + encoded + data


def elements(letter, order, is_complex, shape, fortran_order):
    """The bytes of numbers that count up in the order of the nesting, and the nested list."""
    positions = list(itertools.product(*map(range, shape)))
    numbers = {at: value_at(letter, is_complex, i) for i, at in enumerate(positions)}
    if fortran_order:
        positions.sort(key=lambda at: at[::-1])
    parts = [numbers[at] for at in positions]
    if is_complex:
        parts = [part for x in parts for part in (x.real, x.imag)]

    def nested(at):
        if len(at) == len(shape):
            return numbers[at]
        return [nested((*at, i)) for i in range(shape[len(at)])]

    expected = nested(())
    for _ in range(2 - len(shape)):
        expected = [expected]
    return struct.pack(f"{order}{len(parts)}{letter}", *parts), expected


def loaded(data):
    return velmar.load(io.BytesIO(data))


def saved(a):
    file = io.BytesIO()
    velmar.save(file, a)
    return file.getvalue()


SHAPES = [(), (1,), (5,), (2, 3), (3, 1), (1, 4), (2, 3, 2), (2, 1, 3, 2)]


class TestLoad:
    @each_form_of_numpy
    @pytest.mark.parametrize("order", "<>")
    @pytest.mark.parametrize("fortran_order", [False, True])
    def test_forms(self, cls, is_complex, code, letter, order, fortran_order):
        for shape in SHAPES:
            data, expected = elements(letter, order, is_complex, shape, fortran_order)
            a = loaded(file_of(header(order + code, fortran_order, shape), data))
            assert type(a) is cls
            assert a._is_complex is is_complex
            assert exact(contents(a)) == exact(expected)

    @pytest.mark.parametrize("version", [(1, 0), (2, 0), (3, 0)])
    @pytest.mark.parametrize("pad", [b"", b" " * 500 + b"\n", b"\r\n \t"])
    def test_versions(self, version, pad):
        data, expected = elements("d", "<", False, (2, 3), False)
        file = file_of(header("<f8", False, (2, 3)) + pad.decode(), data, version)
        assert contents(loaded(file)) == expected

    @pytest.mark.parametrize("order", "<>")
    def test_half_precision(self, order):
        data, expected = elements("e", order, False, (2, 3), False)
        a = loaded(file_of(header(order + "f2", False, (2, 3)), data))
        assert type(a) is velmar.single
        assert exact(contents(a)) == exact(expected)

    @pytest.mark.parametrize("order", ["", "=", "|"])
    def test_order_of_the_machine(self, order):
        data, expected = elements("h", "=", False, (3,), False)
        assert contents(loaded(file_of(header(order + "i2", False, (3,)), data))) == expected
        assert contents(loaded(file_of(header(order + "u1", False, (1,)), b"\x07"))) == [[7]]

    @pytest.mark.parametrize(
        "text",
        [
            "{'descr': '<i2', 'fortran_order': False, 'shape': (3,), }",
            "{'shape': (3,), 'fortran_order': False, 'descr': '<i2'}",
            '{"descr":"<i2","fortran_order":False,"shape":(3,)}',
            "{'descr': '<i2', 'fortran_order': True, 'shape': (3L,), }",
            " { 'descr' : '<i2' , 'fortran_order' : False , 'shape' : ( 03 , ) , } ",
            "{\n'descr':\t'<i2',\r\n'fortran_order': False, 'shape': (3\n,)}",
        ],
    )
    def test_spellings(self, text):
        assert contents(loaded(file_of(text, struct.pack("<3h", 1, -2, 3)))) == [[1, -2, 3]]

    @pytest.mark.parametrize("shape", [(0,), (0, 0), (0, 3), (3, 0), (2, 0, 4)])
    @pytest.mark.parametrize("fortran_order", [False, True])
    def test_without_elements(self, shape, fortran_order):
        a = loaded(file_of(header("<c8", fortran_order, shape)))
        assert (type(a), a._is_complex) == (velmar.single, True)
        assert a.size == (shape if len(shape) > 1 else (1, 0))

    def test_is_not_bound_to_the_file(self):
        file = io.BytesIO(file_of(header("|u1", False, (2,)), b"ab"))
        a = velmar.load(file)
        file.getbuffer()[-1] = 0
        assert contents(a) == [[97, 98]]

    def test_any_byte_is_a_truth_value(self):
        assert contents(loaded(file_of(header("|b1", False, (3,)), b"\x00\x01\x02"))) == [
            [False, True, True]
        ]


class TestSave:
    def test_all_bytes_of_a_file(self):
        text = b"{'descr': '%sf8', 'fortran_order': True, 'shape': (2, 2)}" % NATIVE.encode()
        expected = b"\x93NUMPY\x01\x00\x76\x00" + text.ljust(117) + b"\n"
        expected += struct.pack("4d", 1, 3, 2, 4)
        assert saved(velmar.double([[1, 2], [3, 4]])) == expected

    @each_form_of_numpy
    def test_there_and_back(self, cls, is_complex, code, letter):
        for size in [(0, 0), (0, 3), (3, 0), (1, 1), (2, 3), (3, 2, 2), (1, 1, 5)]:
            _, nested = elements(letter, "=", is_complex, size, False)
            a = (
                cls(nested, is_complex=is_complex)
                if math.prod(size)
                else cls(size=size, is_complex=is_complex)
            )
            data = saved(a)
            assert len(data) == 128 + a.itemsize * math.prod(size)
            b = loaded(data)
            assert (type(b), b.size, b._is_complex) == (cls, size, is_complex)
            assert exact(contents(b)) == exact(contents(a))

    @each_form_of_numpy
    def test_header(self, cls, is_complex, code, letter):
        order = "|" if code[1:] == "1" else NATIVE
        for array, fortran_order in ((cls(size=(2, 3), is_complex=is_complex), True),):
            expected = header(order + code, fortran_order, (2, 3)).strip().encode()
            assert saved(array)[10:].startswith(expected)
            expected = header(order + code, False, (3,)).strip().encode()
            assert saved(array[1])[10:].startswith(expected)

    def test_view_as_it_is_now(self):
        a = velmar.double([[1, 2], [3, 4]])
        for view in (a[1], a[::-1], a[1][::-1], a[:], a):
            memoryview(view)  # keeps a snapshot
            view.clone()
            a[1][0] += 10
            back = loaded(saved(view))
            expected = contents(view)
            assert contents(back) == (expected if len(view.size) == 2 else [expected])

    def test_many_dimensions(self):
        a = velmar.int8(vector=[1, 2], size=(1,) * 99 + (2,))
        b = loaded(saved(a))
        assert b.size == a.size
        assert b == a

    def test_too_many_dimensions(self):
        a = velmar.int8(vector=[1, 2], size=(1,) * 30000 + (2,))
        with raises(ValueError, "save() cannot write 30001 dimensions."):
            saved(a)


class Trickle(io.RawIOBase):
    """A file that reads and writes at most three bytes at a time."""

    def __init__(self, data=b""):
        self.file = io.BytesIO(data)

    def readable(self):
        return True

    def writable(self):
        return True

    def readinto(self, buffer):
        return self.file.readinto(memoryview(buffer)[:3])

    def write(self, data):
        return self.file.write(memoryview(data)[:3])


class TestFiles:
    MATRIX = velmar.double(grid(20, 30))

    @pytest.mark.parametrize("kind", [str, lambda path: path, os.fspath], ids=["str", "path", "os"])
    def test_names(self, tmp_path, kind):
        path = kind(tmp_path / "no suffix")
        velmar.save(path, self.MATRIX)
        assert [file.name for file in tmp_path.iterdir()] == ["no suffix"]
        assert velmar.load(path) == self.MATRIX

    def test_replaces_a_file(self, tmp_path):
        path = tmp_path / "a.npy"
        velmar.save(path, self.MATRIX)
        velmar.save(path, velmar.int8([1]))
        assert path.stat().st_size == 129
        assert velmar.load(path) == velmar.int8([1])

    @pytest.mark.parametrize("buffering", [0, -1])
    def test_several_arrays_in_a_file(self, tmp_path, buffering):
        path = tmp_path / "two.npy"
        with open(path, "wb", buffering=buffering) as file:
            file.write(b"first")
            velmar.save(file, self.MATRIX)
            velmar.save(file, velmar.int8([7]))
            assert not file.closed
        with open(path, "rb", buffering=buffering) as file:
            assert file.read(5) == b"first"
            assert velmar.load(file) == self.MATRIX
            assert velmar.load(file) == velmar.int8([7])
            assert file.read() == b""

    def test_compressed(self, tmp_path):
        path = tmp_path / "a.npy.gz"
        with gzip.open(path, "wb") as file:
            velmar.save(file, self.MATRIX)
        with gzip.open(path, "rb") as file:
            assert velmar.load(file) == self.MATRIX

    def test_unbuffered(self):
        file = Trickle()
        velmar.save(file, self.MATRIX)
        assert file.file.getvalue() == saved(self.MATRIX)
        assert velmar.load(Trickle(file.file.getvalue())) == self.MATRIX

    def test_pipe(self):
        read, write = os.pipe()
        with open(write, "wb") as file:
            velmar.save(file, velmar.int8([[1, 2]]))
        with open(read, "rb") as file:
            assert velmar.load(file) == velmar.int8([[1, 2]])

    def test_named_pipe_has_no_size(self, tmp_path):
        read, write = os.pipe()
        with open(write, "wb") as file:
            velmar.save(file, velmar.int8([[1, 2]]))
        try:
            assert velmar.load(f"/dev/fd/{read}") == velmar.int8([[1, 2]])
        finally:
            os.close(read)

    def test_anything_that_reads(self):
        class Reader:
            def __init__(self, data):
                self.read = io.BytesIO(data).read

        assert velmar.load(Reader(saved(self.MATRIX))) == self.MATRIX

    def test_nothing_is_opened_for_what_is_refused(self, tmp_path):
        path = tmp_path / "a.npy"
        for a in ([1], velmar.int8([1], is_complex=True), expired_row()):
            with pytest.raises((TypeError, RuntimeError)):
                velmar.save(path, a)
            assert not path.exists()

    def test_missing_file(self, tmp_path):
        with pytest.raises(FileNotFoundError):
            velmar.load(tmp_path / "absent.npy")

    @rows(
        "function, path, message",
        [
            ("save int", "save", 1, "save() needs the name of a file or an open file, not 'int'."),
            ("load int", "load", 1, "load() needs the name of a file or an open file, not 'int'."),
            (
                "load bytes",
                "load",
                b"a",
                "load() needs the name of a file or an open file, not 'bytes'.",
            ),
            (
                "load none",
                "load",
                None,
                "load() needs the name of a file or an open file, not 'NoneType'.",
            ),
            (
                "save text",
                "save",
                io.StringIO(),
                "save() needs a file that is open for bytes, not for text.",
            ),
            (
                "load text",
                "load",
                io.StringIO(),
                "load() needs a file that is open for bytes, not for text.",
            ),
        ],
    )
    def test_not_a_file(self, function, path, message):
        arguments = (path, velmar.int8()) if function == "save" else (path,)
        with raises(TypeError, message):
            getattr(velmar, function)(*arguments)

    def test_reader_of_text(self):
        class Reader:
            def read(self, count):
                return "text"

        with raises(TypeError, "load() needs a file that is open for bytes, not for text."):
            velmar.load(Reader())

    def test_writer_that_does_not_wait(self):
        class Full(Trickle):
            def write(self, data):
                return None

        with raises(BlockingIOError, "save() needs a file that waits until all bytes are written."):
            velmar.save(Full(), velmar.int8([1]))

    @rows(
        "a, exception, message",
        [
            (
                "list",
                [1],
                TypeError,
                "save() must be passed an array, not 'list': pass velmar.asarray(x).",
            ),
            ("class", velmar.int8, TypeError, "save() must be passed an array, not 'type': pass "
             "velmar.asarray(x)."),
            ("expired", expired_row(), *STORAGE_GONE),
        ],
    )  # fmt: skip
    def test_not_an_array(self, a, exception, message):
        with raises(exception, message):
            saved(a)

    @each([row for row in CLASS_ROWS if row.kind in ("signed", "unsigned")])
    def test_complex_integers(self, row):
        a = row.cls([[1, 2 + 3j]], is_complex=True)
        with raises(
            TypeError,
            f"save() cannot write complex {row.word} elements, because the format has no complex "
            "integers. Save velmar.asarray(a, velmar.double).",
        ):
            saved(a)
        assert contents(loaded(saved(velmar.asarray(a, velmar.double)))) == [[1, 2 + 3j]]


GOOD = file_of(header("<f8", False, (2, 3)), bytes(48))
BAD_HEADER = "its header is not valid"
BAD_HEADERS = [
    "",
    "{}",
    "{'descr': '<f8', 'fortran_order': False}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2,), 'more': 1}",
    "{'descr': '<f8', 'descr': '<f8', 'fortran_order': False, 'shape': (2,)}",
    "{'descr': '<f8' 'fortran_order': False, 'shape': (2,)}",
    "{'descr': '<f8',, 'fortran_order': False, 'shape': (2,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2,)",
    "'descr': '<f8', 'fortran_order': False, 'shape': (2,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2,)}}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2,)} # {}",
    "{{'descr': '<f8', 'fortran_order': False, 'shape': (2,)}}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': 2}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': [2]}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (-2,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2.0,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (0x2,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2_0,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2 2,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (True,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': ('2',)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2,,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2,\\xb2)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (\\u0662,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (9223372036854775808,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (" + "9" * 5000 + ",)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': ((2,),)}",
    "{'descr': '<f8', 'fortran_order': 0, 'shape': (2,)}",
    "{'descr': '<f8', 'fortran_order': 'False', 'shape': (2,)}",
    "{'descr': False, 'fortran_order': False, 'shape': (2,)}",
    "{'descr': (2,), 'fortran_order': False, 'shape': (2,)}",
    "{'descr': '<f8', 'fortran_order': [], 'shape': (2,)}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': __import__('os')}",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2,) + (3,)}",
    "{'descr': '<f\\'8', 'fortran_order': False, 'shape': (2,)}",
    "{'descr': '<f8\", 'fortran_order': False, 'shape': (2,)}",
    "{b'descr': '<f8', 'fortran_order': False, 'shape': (2,)}",
    "\0",
    "{'descr': '<f8', 'fortran_order': False, 'shape': (2,)}\0",
    "{'descr': '<f8', 'fortran_order': False,\0 'shape': (2,)}",
    "{" * 30000 + "}" * 30000,
    "(" * 60000,
    "{'descr': " + "[" * 50000,
    "{'descr': '<f8', 'fortran_order': False, 'shape': " + "(" * 50000 + ")" * 5000 + "}",
    "{'shape': (" + "1" * 60000 + "x,)}",
    "{'shape': (" + " " * 60000 + "x,)}",
    "{" + " " * 60000 + "x}",
    "{'descr': '" + "<" * 60000,
]


def cannot_read(reason):
    return f"load() cannot read this file: {reason}."


def no_class(code, remedy=""):
    return f"no class can hold its elements of type '{code}'{remedy}"


ROUND = ". Save numpy.load(path).astype('float64') or .astype('complex128') instead"


class TestDamaged:
    @pytest.mark.parametrize("text", BAD_HEADERS, ids=range(len(BAD_HEADERS)))
    @pytest.mark.parametrize("version", [(2, 0), (3, 0)])
    def test_headers(self, text, version):
        if version < (3, 0) and not all(ord(letter) < 256 for letter in text):
            return
        with raises(ValueError, cannot_read(BAD_HEADER)):
            loaded(file_of(text, bytes(100), version))

    @rows(
        "data, reason",
        [
            ("empty", b"", "it ends in the header"),
            ("pickle", b"\x80\x04K\x01.", "it is not a .npy file"),
            ("archive", b"PK\x03\x04", "it is not a .npy file"),
            ("signature", b"\x93NUMPX" + GOOD[6:], "it is not a .npy file"),
            (
                "version 0",
                b"\x93NUMPY\x00\x00" + GOOD[8:],
                "it has version 0.0 of the format, not 1.0 to 3.0",
            ),
            (
                "version 4",
                b"\x93NUMPY\x04\x01" + GOOD[8:],
                "it has version 4.1 of the format, not 1.0 to 3.0",
            ),
            (
                "long header",
                file_of(header("<f8", False, (2,)) + " " * 70000, bytes(16), (2, 0)),
                "its header has 70056 bytes; at most 65535 are allowed",
            ),
            (
                "false length",
                file_of("{}", b"", (2, 0), 2**32 - 1),
                "its header has 4294967295 bytes; at most 65535 are allowed",
            ),
            ("header cut off", file_of("{}", b"", (1, 0), 3), "it ends in the header"),
            ("bad utf-8", file_of("", b"", (3, 0), 1) + b"\xff", BAD_HEADER),
            ("elements", GOOD[:-1], "it has 47 bytes of elements; 48 expected"),
            (
                "huge",
                file_of(header("<f8", False, (2**40, 2**20))),
                f"it has 0 bytes of elements; {2**63} expected",
            ),
            (
                "hugest",
                file_of(header("<c16", True, (2**63 - 1,) * 3), bytes(5)),
                f"it has 5 bytes of elements; {16 * (2**63 - 1) ** 3} expected",
            ),
            (
                "dimensions",
                file_of(header("|u1", False, (1,) * 65), b"a"),
                "it has 65 dimensions, more than NumPy supports",
            ),
        ],
    )
    def test_files(self, data, reason):
        with raises(ValueError, cannot_read(reason)):
            loaded(data)
        with raises(ValueError, cannot_read(reason)):
            velmar.load(Trickle(data))

    @pytest.mark.parametrize("shape", [(0, 2**63 - 1), (2**62, 2**62, 0), (2**62, 0, 2**62)])
    def test_huge_without_elements(self, shape):
        for fortran_order in (False, True):
            assert loaded(file_of(header("<f8", fortran_order, shape))).size == shape

    @pytest.mark.parametrize(
        "descr, reason",
        [
            ("|O", "its elements are pickled Python objects, which can run any code"),
            ("O", "its elements are pickled Python objects, which can run any code"),
            ("|O8", "its elements are pickled Python objects, which can run any code"),
            ([("a", "<i4"), ("b", "<f8")], "its elements are records. Save one field of them"),
            ("<f16", no_class("<f16", ROUND)),
            ("<c32", no_class("<c32", ROUND)),
            *[
                (code, no_class(code))
                for code in ("<U5", "|S3", "<M8", "|V8", "<f3", "<i16", "|b2", "f8x", "<", "")
            ],
            *[(code, no_class(code)) for code in ("<<f8", "!f8", "float64", "d", "<F8", "<i-8")],
            ("<M8[ns]", no_class("<M8[ns]")),
            ("x" * 500, no_class("x" * 80)),
        ],
    )
    def test_elements(self, descr, reason):
        with raises(ValueError, cannot_read(reason)):
            loaded(file_of(header(descr, False, (2,)), bytes(100)))

    def test_every_length(self):
        assert loaded(GOOD).size == (2, 3)
        for length in range(len(GOOD)):
            with pytest.raises(ValueError) as caught:
                loaded(GOOD[:length])
            assert type(caught.value) is ValueError
            with pytest.raises(ValueError):
                velmar.load(Trickle(GOOD[:length]))

    @pytest.mark.parametrize("known", [True, False])
    def test_allocates_nothing_for_what_is_not_there(self, known, tmp_path):
        path = tmp_path / "false.npy"
        path.write_bytes(file_of(header("<f8", False, (2**33,)), bytes(1000)))
        largest = []

        class Reader:
            def __init__(self, file):
                self.file = file

            def read(self, count):
                largest.append(count)
                return self.file.read(count)

        with open(path, "rb") as file:
            tracemalloc.start()
            try:
                with raises(
                    ValueError,
                    cannot_read(f"it has 1000 bytes of elements; {2**36} expected"),
                ):
                    velmar.load(file if known else Reader(file))
                assert tracemalloc.get_traced_memory()[1] < 3 * 2**20
            finally:
                tracemalloc.stop()
        assert max(largest, default=0) <= 2**20

    def test_reader_that_gives_too_much(self):
        class Reader:
            def read(self, count):
                return GOOD

        with raises(ValueError, cannot_read(f"8 bytes were asked for, but {len(GOOD)} read")):
            velmar.load(Reader())

    @given(
        st.lists(st.tuples(st.integers(0, 80), st.binary(max_size=3)), max_size=4),
        st.sampled_from([(1, 0), (2, 0), (3, 0)]),
        st.sampled_from(["<f8", ">c8", "|b1", "<f2"]),
    )
    def test_changed_bytes(self, changes, version, descr):
        data = file_of(header(descr, True, (2, 3)), bytes(range(96)), version)
        for place, new in changes:
            data = data[:place] + new + data[place + len(new) :]
        self.loads_or_refuses(data)

    @given(st.text(max_size=80))
    @example("{'descr': '<f8', 'fortran_order': False, 'shape': (2,)}\x0b")
    def test_random_headers(self, text):
        self.loads_or_refuses(file_of(text.encode("ascii", "replace").decode(), bytes(99)))

    @given(
        st.lists(
            st.sampled_from(
                ["'descr'", "'fortran_order'", "'shape'", ":", ",", " ", "(", ")", "[", "]", "{"]
                + ["}", "'<f8'", "'|O'", "True", "False", "2", "3L", "-1", "\0", "None", "'", '"']
            ),
            max_size=20,
        ).map("".join)
    )
    def test_random_tokens(self, text):
        self.loads_or_refuses(file_of("{" + text + "}", bytes(99)))

    @given(st.binary(max_size=200))
    def test_random_bytes(self, data):
        self.loads_or_refuses(data)
        self.loads_or_refuses(b"\x93NUMPY" + data)

    @staticmethod
    def loads_or_refuses(data):
        try:
            a = loaded(data)
        except ValueError as error:
            assert type(error) is ValueError
            assert str(error).startswith("load() cannot read this file: ")
        else:
            assert math.prod(a.size) * min(a.itemsize, 2) <= len(data)


class TestWithNumpy:
    numpy = None

    @pytest.fixture(autouse=True)
    def needs_numpy(self):
        self.numpy = pytest.importorskip("numpy")

    @each_form_of_numpy
    def test_files_of_numpy(self, cls, is_complex, code, letter):
        numpy = self.numpy
        for shape in SHAPES if not IS_BRIEF else SHAPES[:5]:
            _, nested = elements(letter, "=", is_complex, shape, False)
            source = numpy.array(nested, code).reshape(shape)
            for order in "<>":
                x = source.astype(source.dtype.newbyteorder(order))
                for y in (x, numpy.asfortranarray(x)):
                    for version in ((1, 0), (2, 0), (3, 0)):
                        file = io.BytesIO()
                        numpy.lib.format.write_array(file, y, version)
                        a = loaded(file.getvalue())
                        assert type(a) is cls
                        assert exact(contents(a)) == exact(nested)

    @each_form_of_numpy
    def test_files_for_numpy(self, cls, is_complex, code, letter):
        for size in [(0, 3), (1, 1), (2, 3), (3, 2, 2)]:
            _, nested = elements(letter, "=", is_complex, size, False)
            a = cls(nested, is_complex=is_complex) if size[0] else cls(size=size)
            back = self.numpy.load(io.BytesIO(saved(a)))
            assert back.shape == size
            assert exact(back.tolist()) == exact(nested)
            if size[0]:
                assert back.dtype.str[1:] == code
                part = self.numpy.load(io.BytesIO(saved(a[0])))
                assert part.shape == size[1:]
                assert exact(part.tolist()) == exact(nested[0])

    def test_memory_map(self, tmp_path):
        velmar.save(tmp_path / "a.npy", velmar.double(grid(3, 4)))
        shown = self.numpy.load(tmp_path / "a.npy", mmap_mode="r")
        assert shown.tolist() == grid(3, 4)
        assert shown.ctypes.data % 64 == 0

    @pytest.mark.parametrize(
        "descr", ["O", "U3", "S3", "M8[s]", "longdouble", [("a", "i4")], "m8", "V3"]
    )
    def test_refused_files(self, descr, tmp_path):
        self.numpy.save(tmp_path / "a.npy", self.numpy.zeros(3, descr))
        with pytest.raises(ValueError, match="^load\\(\\) cannot read this file: "):
            velmar.load(tmp_path / "a.npy")

    def test_remedies(self, tmp_path):
        path = tmp_path / "a.npy"
        self.numpy.save(path, self.numpy.array([1.5], "longdouble"))
        self.numpy.save(path, self.numpy.load(path).astype("float64"))
        assert velmar.load(path) == velmar.double([1.5])
