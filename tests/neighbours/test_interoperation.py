"""Arrays given to each library and back: the tables of docs/neighbours.md, run row by row."""

import hashlib
import io
import pickle
from multiprocessing.shared_memory import SharedMemory
from pathlib import Path

import h5py
import numpy
import pandas
import polars
import pyarrow
import pytest
import velmar
import xarray
import zarr
from matplotlib.figure import Figure
from physical import as_numpy, in_memory, may_write
from PIL import Image
from scipy.io import loadmat, savemat

PAGE = Path(__file__).resolve().parents[2] / "docs" / "neighbours.md"

# Call; order of the memory in the result, or the exception; same memory or a copy; whether the
# result is writable; whether complex and complex integer elements are accepted, or their exception.
OUT = [
    ("memoryview(a)", "columns", "itself", "no", "yes", "yes"),
    ("bytes(a)", "rows", "copy", "no", "yes", "yes"),
    ("bytearray(a)", "rows", "copy", "yes", "yes", "yes"),
    ('m.tobytes("C")', "rows", "copy", "no", "yes", "yes"),
    ('m.tobytes("A")', "columns", "copy", "no", "yes", "yes"),
    ('b"".join([a])', "columns", "copy", "no", "yes", "yes"),
    ("io.BytesIO(a).getvalue()", "columns", "copy", "no", "yes", "yes"),
    ("pickle.PickleBuffer(a).raw()", "columns", "itself", "no", "yes", "yes"),
    ("file.write(a)", "TypeError", "-", "-", "TypeError", "TypeError"),
    ("hashlib.sha256(a)", "BufferError", "-", "-", "BufferError", "BufferError"),
    ("numpy.asarray(a)", "columns", "itself", "no", "yes", "RuntimeError"),
    ("numpy.array(a)", "columns", "copy", "yes", "yes", "RuntimeError"),
    ("numpy.ascontiguousarray(a)", "rows", "copy", "yes", "yes", "RuntimeError"),
    ("numpy.asarray(a) + 0", "columns", "copy", "yes", "yes", "RuntimeError"),
    ("numpy.ndarray(6, dtype, buffer=a)", "columns", "itself", "no", "yes", "yes"),
    ("numpy.frombuffer(a)", "BufferError", "-", "-", "BufferError", "BufferError"),
    ("numpy.from_dlpack(a)", "AttributeError", "-", "-", "AttributeError", "AttributeError"),
    ("pandas.DataFrame(a)", "numbers", "copy", "yes", "yes", "yes"),
    ("pandas.DataFrame(numpy.asarray(a))", "columns", "copy", "yes", "yes", "RuntimeError"),
    (
        "pandas.DataFrame(numpy.asarray(a), copy=False)",
        *("columns", "itself", "no", "yes", "RuntimeError"),
    ),
    ("pandas.Series(a[0])", "numbers", "copy", "yes", "yes", "yes"),
    ("pyarrow.py_buffer(a)", "columns", "itself", "no", "yes", "yes"),
    ("pyarrow.array(a)", "ArrowInvalid", "-", "-", "ArrowInvalid", "ArrowInvalid"),
    ("pyarrow.array(a[0])", "numbers", "copy", "no", "ArrowInvalid", "ArrowInvalid"),
    (
        "pyarrow.array(numpy.asarray(a)[:, 0])",
        *("columns", "itself", "no", "ArrowNotImplementedError", "RuntimeError"),
    ),
    (
        "pyarrow.Tensor.from_numpy(numpy.asarray(a))",
        *("columns", "itself", "no", "ArrowNotImplementedError", "RuntimeError"),
    ),
    ("polars.DataFrame(a)", "TypeError", "-", "-", "TypeError", "TypeError"),
    ("polars.Series(a[0])", "TypeError", "-", "-", "TypeError", "TypeError"),
    ("polars.from_numpy(numpy.asarray(a))", "columns", "itself", "no", "yes", "RuntimeError"),
    ("xarray.DataArray(a)", "columns", "itself", "no", "yes", "RuntimeError"),
    ("zarr.array(a)", "rows", "copy", "yes", "yes", "RuntimeError"),
    (
        "zarr.create_array({}, data=a)",
        *("AttributeError", "-", "-", "AttributeError", "AttributeError"),
    ),
    ("axes.imshow(a)", "columns", "copy", "-", "TypeError", "RuntimeError"),
    ("axes.plot(a)", "columns", "copy", "-", "real parts", "RuntimeError"),
    ("Image.fromarray(a)", "AttributeError", "-", "-", "AttributeError", "AttributeError"),
    ("Image.fromarray(numpy.asarray(a))", "rows", "copy", "no", "TypeError", "RuntimeError"),
    ('Image.frombytes("L", (3, 2), a)', "TypeError", "-", "-", "TypeError", "TypeError"),
    ('Image.frombytes("L", (3, 2), bytes(a))', "rows", "copy", "yes", "-", "-"),
    ('Image.frombuffer("L", (3, 2), a, "raw", "L", 0, 1)', "columns", "itself", "no", "-", "-"),
    ('group.create_dataset("x", data=a)', "rows", "copy", "yes", "yes", "RuntimeError"),
    ("dataset.write_direct(a)", "AttributeError", "-", "-", "AttributeError", "AttributeError"),
    ("block.buf[:48] = m", "ValueError", "-", "-", "ValueError", "ValueError"),
]

# Call; result, or the exception and its message; what to write instead, if anything.
IN = [
    ("velmar.double(n)", "[[1.0,2.0,3.0],[4.0,5.0,6.0]]", ""),
    ("velmar.double(n.T)", "[[1.0,4.0],[2.0,5.0],[3.0,6.0]]", ""),
    (
        "velmar.double(n[:, ::2])",
        "ValueError: ndarray is not contiguous",
        "velmar.asarray(n[:, ::2])",
    ),
    (
        "velmar.single(n)",
        "BufferError: input buffer format ('d') is not compatible with output format ('f'); "
        "use a different input or output type",
        "velmar.asarray(n, velmar.single)",
    ),
    (
        'velmar.double(n.astype(">f8"))',
        "BufferError: input buffer format ('>d') is not compatible with output format ('d'); "
        "use a different input or output type",
        'velmar.asarray(n.astype(">f8"))',
    ),
    (
        "velmar.double(n + 1j)",
        "BufferError: input buffer format ('Zd') is not compatible with output format ('d'); "
        "use a different input or output type",
        "velmar.asarray(n + 1j)",
    ),
    (
        "velmar.double(numpy.ma.masked_equal(n, 2))",
        "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
        "velmar.double(numpy.ma.masked_equal(n, 2).filled(numpy.nan))",
    ),
    (
        "velmar.double([numpy.int64(7)])",
        "TypeError: type does not match.",
        "velmar.double([numpy.int64(7).item()])",
    ),
    (
        "velmar.double([numpy.complex64(7)], is_complex=True)",
        "[[0j]]",
        "velmar.double([numpy.complex64(7).item()], is_complex=True)",
    ),
    ("velmar.double(f)", "[[1.0,4.0],[2.0,5.0]]", "velmar.asarray(f)"),
    (
        "velmar.double(f.rename(columns=str))",
        "RuntimeError: null data pointer.",
        "velmar.asarray(f.rename(columns=str))",
    ),
    ("velmar.double(s)", "[[8.0,7.0]]", "velmar.asarray(s)"),
    (
        "velmar.double(f[[0, 2]].to_numpy())",
        "ValueError: ndarray is not contiguous",
        "velmar.asarray(f[[0, 2]])",
    ),
    (
        'velmar.int64(s.astype("Int64"))',
        "TypeError: type does not match.",
        'velmar.asarray(s.astype("Int64"))',
    ),
    ("velmar.double(t)", "TypeError: type does not match.", "velmar.asarray(t)"),
    (
        "velmar.double(t.buffers()[1])",
        "BufferError: input buffer format ('b') is not compatible with output format ('d'); "
        "use a different input or output type",
        'velmar.double(memoryview(t.buffers()[1]).cast("d"))',
    ),
    (
        'velmar.double(memoryview(t[1:].buffers()[1]).cast("d"))',
        "[[7.0,8.0]]",
        "velmar.asarray(t[1:])",
    ),
    (
        "velmar.uint8(image)",
        "TypeError: type does not match.",
        "velmar.asarray(image)",
    ),
    (
        "velmar.uint8(image.tobytes(), size=(2, 3))",
        "[[1,3,5],[2,4,6]]",
        'velmar.uint8(memoryview(image.tobytes()).cast("B", (2, 3)))',
    ),
    ("velmar.double(p)", "RuntimeError: null data pointer.", "velmar.asarray(p)"),
    ('velmar.double(p["x"])', "[[1.0,4.0]]", ""),
    (
        "velmar.double(x)",
        "TypeError: len() of unsized object",
        "velmar.asarray(x)",
    ),
    (
        "velmar.double(z)",
        "TypeError: object of type 'Array' has no len()",
        "velmar.asarray(z)",
    ),
    (
        "velmar.double(z[...])",
        "BufferError: input buffer format ('<d') is not compatible with output format ('d'); "
        "use a different input or output type",
        "velmar.asarray(z[...])",
    ),
    (
        'velmar.double(loadmat(mat)["n"])',
        "BufferError: input buffer format ('<d') is not compatible with output format ('d'); "
        "use a different input or output type",
        'velmar.asarray(loadmat(mat)["n"])',
    ),
    ("velmar.double(dataset)", "[[1.0,2.0,3.0],[4.0,5.0,6.0]]", "velmar.asarray(dataset)"),
    (
        "velmar.double(block.buf[:16])",
        "BufferError: input buffer format ('B') is not compatible with output format ('d'); "
        "use a different input or output type",
        'velmar.double(block.buf[:16].cast("d"))',
    ),
]
INSTEAD = {
    "velmar.asarray(n[:, ::2])": "[[1.0,3.0],[4.0,6.0]]",
    "velmar.asarray(n, velmar.single)": "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
    'velmar.asarray(n.astype(">f8"))': "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
    "velmar.asarray(n + 1j)": "[[(1+1j),(2+1j),(3+1j)],[(4+1j),(5+1j),(6+1j)]]",
    "velmar.double(numpy.ma.masked_equal(n, 2).filled(numpy.nan))": (
        "[[1.0,nan,3.0],[4.0,5.0,6.0]]"
    ),
    "velmar.double([numpy.int64(7).item()])": "[[7.0]]",
    "velmar.double([numpy.complex64(7).item()], is_complex=True)": "[[(7+0j)]]",
    "velmar.asarray(f)": "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
    "velmar.asarray(f.rename(columns=str))": "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
    "velmar.asarray(s)": "[[7.0,8.0]]",
    "velmar.asarray(f[[0, 2]])": "[[1.0,3.0],[4.0,6.0]]",
    'velmar.asarray(s.astype("Int64"))': "[[7,8]]",
    "velmar.asarray(t)": "[[7.0,8.0]]",
    'velmar.double(memoryview(t.buffers()[1]).cast("d"))': "[[7.0,8.0]]",
    "velmar.asarray(t[1:])": "[[8.0]]",
    "velmar.asarray(image)": "[[1,2,3],[4,5,6]]",
    'velmar.uint8(memoryview(image.tobytes()).cast("B", (2, 3)))': "[[1,2,3],[4,5,6]]",
    "velmar.asarray(p)": "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
    "velmar.asarray(x)": "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
    "velmar.asarray(z)": "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
    "velmar.asarray(z[...])": "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
    'velmar.asarray(loadmat(mat)["n"])': "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
    "velmar.asarray(dataset)": "[[1.0,2.0,3.0],[4.0,5.0,6.0]]",
    'velmar.double(block.buf[:16].cast("d"))': "[[7.0,8.0]]",
}
MODULES = [hashlib, io, numpy, pandas, pickle, polars, pyarrow, velmar, xarray, zarr]
BY_COLUMNS, BY_ROWS = [1, 4, 2, 5, 3, 6], [1, 2, 3, 4, 5, 6]


@pytest.fixture
def names(tmp_path):
    """The names in the expressions, except the array."""
    numbers = numpy.array([[1.0, 2, 3], [4, 5, 6]])
    savemat(tmp_path / "file.mat", {"n": numbers})
    block = SharedMemory(create=True, size=64)
    block.buf[:16] = numpy.array([7.0, 8.0]).tobytes()
    with h5py.File(tmp_path / "file.h5", "w") as group, open(tmp_path / "file.bin", "wb") as file:
        yield {
            **{module.__name__: module for module in MODULES},
            "Image": Image,
            "n": numbers,
            "f": pandas.DataFrame(numbers),
            "s": pandas.Series([7.0, 8.0], index=[1, 0]),
            "t": pyarrow.array([7.0, 8.0]),
            "image": Image.fromarray(numbers.astype("uint8")),
            "group": group,
            "dataset": group.create_dataset("numbers", data=numbers),
            "file": file,
            "axes": Figure().subplots(),
            "p": polars.from_numpy(numbers, schema=["x", "y", "z"]),
            "x": xarray.DataArray(numbers),
            "z": zarr.array(numbers),
            "loadmat": loadmat,
            "mat": tmp_path / "file.mat",
            "block": block,
        }
    block.close()
    block.unlink()


def run(call, names, cls, is_complex=False, dtype=None):
    """The array and the result of the call; None for a statement."""
    a = cls([[1, 2, 3], [4, 5, 6]], is_complex=is_complex)
    names = names | {"a": a, "m": memoryview(a), "dtype": numpy.dtype(dtype)}
    if " = " in call:
        exec(call, names)
        return a, None
    return a, eval(call, names)


def raises(error):
    found = getattr(pyarrow, error, None) or getattr(__import__("builtins"), error)
    return pytest.raises(found)


class TestOut:
    @pytest.mark.parametrize("call, seen, memory, writes, _, __", OUT, ids=[row[0] for row in OUT])
    def test_real(self, names, call, seen, memory, writes, _, __):
        cls, dtype = (velmar.uint8, "u1") if "Image" in call else (velmar.double, "f8")
        if seen.endswith(("Error", "Invalid")):
            with raises(seen):
                run(call, names, cls)
            return
        a, result = run(call, names, cls, dtype=dtype)
        got = in_memory(result, dtype)
        if seen == "numbers":
            assert as_numpy(run(call, names, velmar.int8)[1]).dtype == "int64"
        else:
            assert got == (BY_COLUMNS if seen == "columns" else BY_ROWS)[: len(got)]
        if writes != "-":
            assert may_write(result) is (writes == "yes")
        a[0][0] = 99
        assert (in_memory(result, dtype)[0] == 99) is (memory == "itself")

    @pytest.mark.parametrize("kind", ["complex", "complex integers"])
    @pytest.mark.parametrize("row", OUT, ids=[row[0] for row in OUT])
    def test_complex(self, names, row, kind):
        is_integer = kind == "complex integers"
        call, outcome = row[0], row[5 if is_integer else 4]
        cls, dtype = (velmar.int8, "i2") if is_integer else (velmar.double, "c16")
        if outcome == "-":
            assert "Image" in call  # images have no complex pixels
        elif outcome == "yes":
            a, result = run(call, names, cls, True, dtype)
            got = as_numpy(result)
            if is_integer and not isinstance(got, numpy.ndarray):
                assert memoryview(got).nbytes == 12
            else:
                assert len(in_memory(result, dtype)) in (3, 6)
        elif outcome == "real parts":
            with pytest.warns(numpy.exceptions.ComplexWarning):
                result = run(call, names, cls, True)[1]
            assert in_memory(result, dtype) == BY_COLUMNS
        else:
            with raises(outcome):
                run(call, names, cls, True, dtype)


class TestIn:
    @pytest.mark.parametrize("call, expected, _", IN, ids=[row[0] for row in IN])
    def test_calls(self, names, call, expected, _):
        try:
            got = str(eval(call, names))
        except Exception as error:
            got = f"{type(error).__name__}: {error}"
        assert got == expected

    @pytest.mark.parametrize("call, expected", INSTEAD.items(), ids=list(INSTEAD))
    def test_what_to_write_instead(self, names, call, expected):
        assert str(eval(call, names)) == expected

    def test_every_call_to_write_is_tested(self):
        assert list(dict.fromkeys(row[2] for row in IN if row[2])) == list(INSTEAD)


def table_of_page(heading):
    """The rows of the first table below a heading, as lists of cells without backquotes."""
    lines = iter(PAGE.read_text(encoding="ascii").split(f"\n## {heading}\n")[1].splitlines())
    table = []
    for line in lines:
        if line.startswith("|"):
            table.append([cell.strip().strip("`") for cell in line.strip("|").split(" | ")])
        elif table:
            break
    return [tuple(row) for row in table[2:]]


class TestPage:
    def test_out(self):
        assert table_of_page("What libraries get from an array") == OUT

    def test_in(self):
        page = table_of_page("What an array accepts from libraries")
        assert page == [(call, expected, instead or "-") for call, expected, instead in IN]
