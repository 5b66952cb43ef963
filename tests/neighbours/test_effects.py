"""The table of calls with a surprise in docs/neighbours.md, run row by row; writes and caches."""

import warnings
from operator import itemgetter

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
        """A clone holds its elements twice; SciPy changes only those that Python reads."""
        a = velmar.double([[4, 3], [6, 3]])
        read = a[:].clone()
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
