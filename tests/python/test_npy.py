"""save() and load(): files of NumPy's format, of each form, and files of NumPy itself."""

from __future__ import annotations

import gzip
import io
import math
import os
import struct

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, exact, grid
from helpers.cases import IS_BRIEF, each, rows
from helpers.failures import STORAGE_GONE, raises
from helpers.npy_files import (
    NATIVE,
    SHAPES,
    Trickle,
    each_form_of_numpy,
    elements,
    file_of,
    header,
    loaded,
    saved,
)
from helpers.view_states import expired_row


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
