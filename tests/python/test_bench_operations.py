"""The benchmark over sizes: shapes, the time of a sweep, and equal work in all columns."""

from __future__ import annotations

import itertools
import json
import re
import sys
from pathlib import Path

import pytest
from helpers.cases import rows

sys.path.append(str(Path(__file__).resolve().parents[2] / "bench"))

import measure  # noqa: E402
import operation  # noqa: E402
import sweep  # noqa: E402
from cases import CASES  # noqa: E402
from figure_text import slug  # noqa: E402
from operation_list import GROUPS, OPERATIONS  # noqa: E402

# Jobs that take less than a second in a test.
SMALL_JOBS = [
    title
    for title, job in CASES.items()
    if job.element_bytes < 1_000_000 and job.kind is not operation.Kind.IMPORT
]


class TestSizes:
    @rows(
        "size, size_counts, rows, columns",
        [
            ("one", 1, operation.WHOLE, 1, 1),
            ("below ten", 3, operation.WHOLE, 1, 3),
            ("ten", 10, operation.WHOLE, 1, 10),
            ("a square", 100, operation.WHOLE, 10, 10),
            ("thirty to one", 3000, operation.WHOLE, 10, 300),
            ("the largest", 10**7, operation.WHOLE, 1000, 10_000),
            ("a row", 300, operation.ROW, 10, 300),
        ],
    )
    def test_shape(self, size, size_counts, rows, columns):
        assert operation.shape_of(size, size_counts) == operation.Shape(rows, columns)

    @rows(
        "most, size_counts, steps, expected",
        [
            ("whole", 100, operation.WHOLE, (1, 3), [1, 3, 10, 30, 100]),
            ("between", 250, operation.WHOLE, (1, 3), [1, 3, 10, 30, 100]),
            ("rows", 1000, operation.ROW, (1, 3), [1, 3, 10, 30, 100]),
            ("powers", 1000, operation.WHOLE, (1,), [1, 10, 100, 1000]),
            ("none", 9, operation.ROW, (1, 3), []),
        ],
    )
    def test_sizes(self, most, size_counts, steps, expected):
        assert operation.sizes_up_to(most, size_counts, steps) == expected

    @rows("size", [(str(n), n) for n in (1, 3, 10, 30, 100, 1000)])
    def test_words_stay_inside_the_array(self, size):
        shape = operation.shape_of(size, operation.WHOLE)
        words = shape.words()
        assert words["count"] == size
        assert 0 <= words["row"] < shape.rows and 0 <= words["column"] < shape.columns
        assert 0 <= words["low"] < words["high"] <= shape.rows

    @rows(
        "seconds, cost",
        [("quick", 1e-7, 10 * 0.02), ("long", 0.04, 10 * 0.04), ("very long", 0.2, 6 * 0.2)],
    )
    def test_cost_of_a_size(self, seconds, cost):
        assert sweep.cost_of(seconds, 0.02) == pytest.approx(cost)

    @rows("values, spread", [("same", [2.0] * 7, 1), ("one off", [1, 1, 1, 1, 9.0], 1)])
    def test_spread(self, values, spread):
        assert sweep.spread_of(values) == spread

    @rows("value, figure", [("long", 1.23456e-7, 1.235e-07), ("short", 0.5, 0.5)])
    def test_rounded(self, value, figure):
        assert sweep.rounded({"velmar": value}) == {"velmar": figure}


class TestSweep:
    def found(self, capsys, *arguments):
        pytest.importorskip("numpy")
        sweep.main(*arguments)
        return json.loads(capsys.readouterr().out)

    def test_a_point_for_each_size(self, capsys):
        found = self.found(capsys, "len(a)", "5", "0.0001", "1", "3")
        assert [point["size"] for point in found["points"]] == [1, 3]
        for point in found["points"]:
            assert {"velmar", "numpy", "numpy-F", "array", "list"} <= set(point["medians"])
            assert all(0 < median < 1e-3 for median in point["medians"].values())
            assert all(spread >= 1 for spread in point["spreads"].values())
        assert found["stopped"] == {}
        assert found["peak_bytes"] > 1_000_000

    def test_columns_without_time_stop(self, capsys):
        found = self.found(capsys, "the real part", "0", "0.0001", "1", "3")
        [point] = found["points"]
        assert point["size"] == 1
        assert set(point["medians"]) == {"velmar", "numpy", "numpy-F"}
        assert found["stopped"] == {"velmar": 3, "numpy": 3, "numpy-F": 3}

    @rows(
        "left, stops",
        [("enough", 1.1, False), ("hardly", 1.01, False), ("too little", 0.99, True)],
    )
    def test_next_size_is_judged_by_the_latest(self, left, stops, monkeypatch):
        class Known:
            """A sampler of a column that takes 10 us for each element."""

            def __init__(self, shape):
                self.seconds = 1e-5 * shape.rows * shape.columns

            def __call__(self):
                return self.seconds

        monkeypatch.setattr(
            measure,
            "samplers_for",
            lambda _, columns, shape, __: dict.fromkeys(columns, Known(shape)),
        )
        # The first size takes ten times 0.02 s, the second 0.1 s, its six runs 0.6 s.
        found = sweep.sweep(OPERATIONS["len(a)"], 0.2 + 0.6 * left, 0.02, [1000, 10_000])
        assert len(found["points"]) == (1 if stops else 2)
        assert set(found["stopped"].values()) == ({10_000} if stops else set())


class TestOperations:
    """All columns of an operation give the same result, where results can be compared."""

    def test_pictures_have_names_of_their_own(self):
        titles = [*GROUPS, *itertools.chain(*GROUPS.values())]
        assert len({slug(title) for title in titles}) == len(titles)

    def numbers(self, value):
        """All numbers of a result, sorted: the columns differ in the order of elements."""
        import numpy

        if isinstance(value, str):
            value = [float(number) for number in re.findall(r"[-+]?\d+\.?\d*(?:e[-+]\d+)?", value)]
        elif isinstance(value, bytes):
            value = numpy.frombuffer(value)
        elif isinstance(value, memoryview):
            value = numpy.frombuffer(value.tobytes("A"))
        elif hasattr(value, "clone"):
            value = numpy.asarray(memoryview(value))
        elif hasattr(value, "to_pylist"):
            value = value.to_pylist()
        elif hasattr(value, "as_py"):
            value = value.as_py()
        return numpy.sort(numpy.asarray(value), axis=None)

    def outcome(self, statement, names):
        """The value of an expression, or what a statement leaves in `a`."""
        try:
            code = compile(statement, "<statement>", "eval")
        except SyntaxError:
            exec(statement, names)
            return names["a"]
        return eval(code, names)

    def check_columns(self, tested, shape):
        numpy = pytest.importorskip("numpy")
        prepared = measure.prepared(tested, measure.columns_of(tested), shape)
        found = {
            column: self.numbers(self.outcome(statement, names))
            for column, statement, names in prepared
        }
        ours = found.pop("velmar")
        found.pop("bytearray", None)
        assert len(found) > 0
        for column, theirs in found.items():
            assert ours.shape == theirs.shape, column
            assert numpy.allclose(ours, theirs, rtol=1e-6, atol=1e-6), column

    @pytest.mark.parametrize("size", [1, 3, 300])
    @pytest.mark.parametrize("title", OPERATIONS)
    def test_columns_agree(self, title, size):
        tested = OPERATIONS[title]
        self.check_columns(tested, operation.shape_of(size, tested.size_counts))

    @pytest.mark.parametrize("title", SMALL_JOBS)
    def test_columns_of_jobs_agree(self, title):
        self.check_columns(CASES[title], CASES[title].shape)
