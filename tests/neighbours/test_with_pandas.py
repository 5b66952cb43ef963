"""The example with pandas: frames from arrays and arrays from frames."""

import numpy as np
import pandas as pd
import pytest
import velmar
import with_pandas
from helpers.cases import each, rows
from samples import ROWS, nested
from with_pandas import from_frame, to_frame, view_as_frame


def exact(a):
    return np.asarray(a).tolist()


class TestFromFrame:
    @each(ROWS)
    def test_every_class(self, row):
        a = from_frame(pd.DataFrame(np.array(nested(row), row.dtype)))
        assert type(a) is row.cls
        assert exact(a) == nested(row)

    @rows(
        "frame, cls, expected",
        [
            (
                "mixed",
                pd.DataFrame({"x": [1, 2], "y": [0.5, 2.5]}),
                velmar.double,
                [[1, 0.5], [2, 2.5]],
            ),
            (
                "names",
                pd.DataFrame({"x": [1.5, 2], "y": [3, 4.5]}),
                velmar.double,
                [[1.5, 3], [2, 4.5]],
            ),
            (
                "some_columns",
                pd.DataFrame(np.arange(6.0).reshape(2, 3))[[0, 2]],
                velmar.double,
                [[0, 2], [3, 5]],
            ),
            (
                "filtered",
                pd.DataFrame({"x": [1, 2, 3]})[lambda f: f["x"] > 1],
                velmar.int64,
                [[2], [3]],
            ),
            (
                "sorted",
                pd.DataFrame({"x": [1, 2]}, index=[1, 0]).sort_index(),
                velmar.int64,
                [[2], [1]],
            ),
            ("empty", pd.DataFrame(np.empty((0, 3))), velmar.double, []),
        ],
    )
    def test_frames(self, frame, cls, expected):
        a = from_frame(frame)
        assert (type(a), a.size) == (cls, frame.shape)
        assert exact(a) == expected

    def test_missing_is_nan(self):
        a = from_frame(pd.DataFrame({"x": [1, None]}))
        assert a[0][0] == 1.0
        assert a[1][0] != a[1][0]

    def test_words_are_refused(self):
        with pytest.raises(TypeError, match="^no class holds elements of type "):
            from_frame(pd.DataFrame({"x": ["a", "b"]}))


class TestToFrame:
    @each(ROWS)
    def test_every_class(self, row):
        frame = to_frame(row.cls(nested(row)), ["x", "y", "z"], index=[5, 6])
        assert frame.dtypes.tolist() == [row.dtype] * 3
        assert frame.loc[6].tolist() == nested(row)[1]
        assert from_frame(frame) == row.cls(nested(row))

    def test_it_is_its_own(self):
        a = velmar.double([[1, 2], [3, 4]])
        frame = to_frame(a, ["x", "y"])
        frame.loc[0, "y"] = 20
        a[1][0] = 30
        assert (exact(frame), exact(a)) == ([[1, 20], [3, 4]], [[1, 2], [30, 4]])

    def test_complex(self):
        a = velmar.single([[1 + 2j, 3]], is_complex=True)
        assert to_frame(a, ["x", "y"])["x"].tolist() == [1 + 2j]


class TestViewAsFrame:
    def test_writes(self):
        a = velmar.double([[1, 2], [3, 4]])
        frame = view_as_frame(a, ["x", "y"])
        a[1][0] = 30
        assert exact(frame) == [[1, 2], [30, 4]]
        with pytest.raises(ValueError) as caught:
            frame.loc[0, "y"] = 20
        assert str(caught.value) == "assignment destination is read-only"
        assert exact(a) == [[1, 2], [30, 4]]

    def test_a_new_column_is_no_write(self):
        a = velmar.double([[1, 2], [3, 4]])
        frame = view_as_frame(a, ["x", "y"])
        frame["x"] = frame["x"] + frame["y"]
        assert (exact(frame), exact(a)) == ([[3, 2], [7, 4]], [[1, 2], [3, 4]])


def test_program(capsys):
    with_pandas.main()
    printed = capsys.readouterr().out
    assert "measures.size, type(measures) = ((342, 4), <class 'velmar.double'>)" in printed
    assert "means[0] = [38.79,18.35,189.95,3700.66,2.12]" in printed
