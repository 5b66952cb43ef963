"""load() of damaged, cut off and harmful files: ValueError, and no memory for what is not there."""

from __future__ import annotations

import math
import tracemalloc

import pytest
import velmar
from helpers.cases import rows
from helpers.failures import raises
from helpers.npy_files import Trickle, file_of, header, loaded
from hypothesis import example, given
from hypothesis import strategies as st

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
