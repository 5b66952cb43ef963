"""Calls with a surprise, a table of docs/neighbours.md; writes, caches, remedies for formats."""

import ctypes
import warnings
from operator import itemgetter
from pathlib import Path

import dask.base
import joblib
import numpy
import pandas
import pytest
import scipy.linalg
import scipy.stats
import sklearn.linear_model
import sklearn.model_selection
import velmar
from helpers.capsule import there_and_back
from matplotlib.figure import Figure
from test_interoperation import table_of_page
from velmar import transport

ROOT = Path(__file__).resolve().parents[2]

# Call; its value, or the exception and its message; what to write instead, and the value of that.
ROWS = [
    (
        "len(axes.plot(row))",
        "3",
        "len(axes.plot(numpy.asarray(a)[0]))",
        "1",
    ),
    (
        "scipy.stats.pearsonr(row, a[1]).statistic",
        "ValueError: `x` and `y` must have length at least 2.",
        "scipy.stats.pearsonr(*numpy.asarray(a)).statistic.round(3)",
        "1.0",
    ),
    (
        "LinearRegression().fit(t, row).coef_",
        "ValueError: Found input variables with inconsistent numbers of samples: [3, 1]",
        "LinearRegression().fit(t, numpy.asarray(a)[0]).coef_.round(3)",
        "[1. 1.]",
    ),
    (
        "len(train_test_split(t))",
        "RuntimeError: index is not an integer or slice.",
        "len(train_test_split(numpy.asarray(t)))",
        "2",
    ),
    (
        "joblib.hash(a[0:1]) == joblib.hash(a[1:2])",
        "True",
        "joblib.hash(a[0:1].clone()) == joblib.hash(a[1:2].clone())",
        "False",
    ),
    (
        "tokenize(a[0:1]) == tokenize(a[1:2])",
        "True",
        "tokenize(a[0:1].clone()) == tokenize(a[1:2].clone())",
        "False",
    ),
    (
        "Parallel(2)(delayed(len)(a[k:]) for k in (0, 1))",
        "[2, 2]",
        "Parallel(2)(delayed(len)(a[k:].clone()) for k in (0, 1))",
        "[2, 1]",
    ),
    ("numpy.size(a)", "(2, 3)", "numpy.size(numpy.asarray(a))", "6"),
    (
        "numpy.reshape(a, (3, 2))",
        "ValueError: reshape() does not accept keyword arguments.",
        "numpy.reshape(numpy.asarray(a), (3, 2)).shape",
        "(3, 2)",
    ),
    (
        "a[numpy.int64(1)]",
        "RuntimeError: index is not an integer or slice.",
        "a[int(numpy.int64(1))]",
        "[4.0,5.0,6.0]",
    ),
    (
        "pandas.Series(velmar.double([[1, 2], [3, 4]]))",
        "RuntimeError: locked shared pointer is null.",
        "len(pandas.Series(a))",
        "2",
    ),
]


@pytest.fixture
def names():
    # Another test may have registered arrays in this process.
    transport.unregister_dask()
    transport.unregister_pickle()
    a = velmar.double([[1, 2, 3], [4, 5, 6]])
    return {
        "LinearRegression": sklearn.linear_model.LinearRegression,
        "Parallel": joblib.Parallel,
        "a": a,
        "axes": Figure().subplots(),
        "delayed": joblib.delayed,
        "joblib": joblib,
        "numpy": numpy,
        "pandas": pandas,
        "row": a[0],
        "scipy": scipy,
        "t": velmar.double([[0, 0], [1, 0], [1, 1]]),
        "tokenize": dask.base.tokenize,
        "train_test_split": sklearn.model_selection.train_test_split,
        "velmar": velmar,
    }


class TestRows:
    @pytest.mark.parametrize("call, expected", [row[:2] for row in ROWS])
    def test_call(self, names, call, expected):
        try:
            got = str(eval(call, names))
        except Exception as error:
            got = f"{type(error).__name__}: {error}"
        assert got == expected

    @pytest.mark.parametrize("call, expected", [row[2:] for row in ROWS])
    def test_instead(self, names, call, expected):
        assert str(eval(call, names)) == expected

    def test_page(self):
        assert table_of_page("Calls with a surprise") == [row[:3] for row in ROWS]


class TestWritesIntoReadOnlyMemory:
    """SciPy passes the address to LAPACK, which does not know that the memory is read-only."""

    @pytest.mark.parametrize("through", [lambda a: a, numpy.asarray], ids=["array", "numpy"])
    def test_array(self, through):
        a = velmar.double([[4, 3], [6, 3]])
        scipy.linalg.inv(through(a), overwrite_a=True)
        assert a == velmar.double([[-0.5, 0.5], [1, -2 / 3]])

    def test_copy_is_safe(self):
        a = velmar.double([[4, 3], [6, 3]])
        scipy.linalg.inv(numpy.array(a), overwrite_a=True)
        assert a == velmar.double([[4, 3], [6, 3]])

    def test_default_is_safe(self):
        a = velmar.double([[4, 3], [6, 3]])
        scipy.linalg.inv(a)
        assert a == velmar.double([[4, 3], [6, 3]])

    def test_python_and_a_native_client_then_differ(self):
        """A clone of a view that is kept holds its elements twice. SciPy changes only those that
        Python reads.
        """
        a = velmar.double([[4, 3], [6, 3]])
        view = a[:]
        read = view.clone()
        scipy.linalg.inv(read, overwrite_a=True)
        of_client = there_and_back(read)
        assert (read[0][0], of_client[0][0]) == (-0.5, 4)


class TestCaches:
    def test_joblib_memory_returns_the_result_of_another_view(self, tmp_path):
        a = velmar.double([[1, 2], [3, 4]])
        first_row = joblib.Memory(tmp_path, verbose=0).cache(first_row_of)
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", UserWarning)  # of joblib: the test is not importable
            assert [first_row(a[0:1]), first_row(a[1:2])] == [[1, 2], [1, 2]]
            assert [first_row(a[k : k + 1].clone()) for k in (0, 1)] == [[1, 2], [3, 4]]


def first_row_of(a):
    return list(itemgetter(0)(a))


NUMBERS = numpy.array([[1.0, 2, 3], [4, 5, 6]])
ERRORS = ROOT / "docs" / "errors_memory.md"
FORMATS = {
    "f": NUMBERS.astype("float32"),
    ">d": NUMBERS.astype(">f8"),
    "<d": NUMBERS.view(NUMBERS.dtype.newbyteorder("<")),
    "=d": numpy.frombuffer(b"x" + NUMBERS.tobytes(), "d", offset=1).reshape(2, 3),  # unaligned
}


class TestRemediesForFormats:
    """The remedies that docs/errors_memory.md gives for memory of a format that is refused."""

    @pytest.mark.parametrize("order", ["C", "F"])
    @pytest.mark.parametrize("letters, x", FORMATS.items(), ids=list(FORMATS))
    def test_numpy(self, letters, x, order):
        if letters != "=d":
            x = x.copy(order)
        assert memoryview(x).format == letters
        with pytest.raises(BufferError):
            velmar.double(x)
        assert velmar.double(x.astype("float64")) == velmar.double(NUMBERS)
        assert velmar.asarray(x, velmar.double) == velmar.double(NUMBERS)

    @pytest.mark.parametrize("order", ["C", "F"])
    @pytest.mark.parametrize("letters", ["<d", "=d"])
    def test_spelled_order_without_numpy(self, letters, order):
        x = FORMATS[letters] if letters == "=d" else FORMATS[letters].copy(order)
        expression = 'memoryview(m.tobytes()).cast("d", m.shape)'
        assert f"`{expression}`" in ERRORS.read_text(encoding="ascii")
        assert velmar.double(eval(expression, {"m": memoryview(x)})) == velmar.double(NUMBERS)

    @pytest.mark.parametrize(
        "expression", ['numpy.array(x, "float64")', 'memoryview(bytes(x)).cast("d", m.shape)']
    )
    def test_ctypes(self, expression):
        x = (ctypes.c_double * 3 * 2)((1, 2, 3), (4, 5, 6))
        m = memoryview(x)
        with pytest.raises(BufferError):
            velmar.double(x)
        assert f"`{expression}`" in ERRORS.read_text(encoding="ascii")
        got = eval(expression, {"numpy": numpy, "x": x, "m": m})
        assert velmar.double(got) == velmar.double(NUMBERS)

    def test_the_cast_that_the_page_warns_of_gives_other_numbers(self):
        m = memoryview(NUMBERS.astype(">f8"))
        assert velmar.double(m.cast("B").cast("d")) != velmar.double(NUMBERS.ravel())
