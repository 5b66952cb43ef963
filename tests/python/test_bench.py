"""The benchmark: its arithmetic, its texts and tables, and the page made of them."""

from __future__ import annotations

import json
import re
import sys
from pathlib import Path

from helpers.cases import rows

ROOT = Path(__file__).resolve().parents[2]
sys.path.append(str(ROOT / "bench"))

import console  # noqa: E402
import figure_text  # noqa: E402
import ratios  # noqa: E402
import report  # noqa: E402
import run  # noqa: E402
import sizes  # noqa: E402
from operation import Kind, Limit, Operation, Shape  # noqa: E402

TICKS = {"1e-9": "1 ns", "1e-8": "10 ns", "1e-5": "10 us", "0.1": "100 ms", "10": "10 s"}
LINE = [1, 10, 100, 1000, 10_000]


class TestTexts:
    @rows(
        "seconds, text",
        [
            ("seconds", 1.234, "1.23 s"),
            ("one second", 1.0, "1 s"),
            ("milliseconds", 0.01234, "12.3 ms"),
            ("microseconds", 4.2e-6, "4.2 us"),
            ("nanoseconds", 9.5e-8, "95 ns"),
            ("less than one", 2.5e-10, "0.25 ns"),
            *[(f"tick {text}", float(power), text) for power, text in TICKS.items()],
        ],
    )
    def test_time(self, seconds, text):
        assert figure_text.time_text(seconds) == text

    @rows(
        "value, kind, text",
        [
            ("a time", 0.01, Kind.TIME, "10 ms"),
            ("an import", 0.005, Kind.IMPORT, "5 ms"),
            ("a peak", 2.345, Kind.PEAK, "2.35 x"),
            ("a growth", 1.0, Kind.GROWTH, "1.00 x"),
            ("bytes", 683.4, Kind.HELD, "683 B"),
            ("megabytes", 16_800_000, Kind.HELD, "16.8 MB"),
        ],
    )
    def test_figure(self, value, kind, text):
        assert figure_text.figure(value, kind) == text

    @rows("ratio, text", [("small", 0.374, "0.37"), ("below ten", 9.99, "9.99"), ("ten", 10, "10")])
    def test_ratio(self, ratio, text):
        assert figure_text.ratio_text(ratio) == text

    @rows(
        "count, text",
        [
            ("one", 1, "1"),
            ("written out", 3000, "3000"),
            ("a power", 10_000, "10^4"),
            ("a multiple", 30_000_000, "3x10^7"),
            ("two digits", 25_000, "2.5x10^4"),
        ],
    )
    def test_count(self, count, text):
        assert figure_text.count_text(count) == text

    @rows(
        "title, anchor",
        [
            ("words", "from nested floats", "from-nested-floats"),
            ("marks", "a == b, all equal", "a--b-all-equal"),
            ("brackets", "len(a)", "lena"),
        ],
    )
    def test_slug(self, title, anchor):
        assert figure_text.slug(title) == anchor


class TestRatios:
    def test_ratios_where_both_are_known(self):
        known = {10: {"velmar": 4.0, "numpy": 2.0, "list": 1.0}, 1: {"velmar": 2.0, "numpy": 4.0}}
        known[100] = {"velmar": 1.0}
        points = [{"size": size, "medians": medians} for size, medians in known.items()]
        assert ratios.ratios_of({"points": points}) == {1: 0.5, 10: 2.0}

    @rows(
        "values, smooth",
        [
            ("none", [], []),
            ("one", [3], [3]),
            ("two", [3, 1], [3, 1]),
            ("an outlier", [1, 9, 1, 1], [1, 1, 1, 1]),
            ("a step", [1, 1, 9, 9], [1, 1, 9, 9]),
        ],
    )
    def test_smoothed(self, values, smooth):
        found = ratios.smoothed(dict(enumerate(values)))
        assert found == dict(enumerate(smooth))

    @rows(
        "values, sizes",
        [
            ("about equal", [1.05, 0.95, 1.0], []),
            ("both sides", [0.8, 0.9, 1.0, 1.2], [1, 10, 1000]),
            ("one disturbance", [1, 1, 9, 1], []),
        ],
    )
    def test_decided(self, values, sizes):
        found = ratios.decided({10**power: value for power, value in enumerate(values)})
        assert list(found) == sizes


class TestWords:
    @rows(
        "values, text",
        [
            ("equal", [1, 1.05], "About as fast as numpy at every size."),
            ("below", [0.5, 1, 0.6], "Faster than numpy at every size where the two differ."),
            ("above", [2, 3, 4], "Slower than numpy at every size where the two differ."),
            ("up to", [0.5, 0.5, 2], "Faster than numpy up to size 10, slower from size 100 on."),
            ("from", [2, 1, 0.5], "Slower than numpy up to size 1, faster from size 100 on."),
            (
                "mixed",
                [2, 2, 0.5, 0.5, 2, 2],
                "Faster than numpy at some sizes, slower at others.",
            ),
        ],
    )
    def test_comparison(self, values, text):
        by_size = {10**power: value for power, value in enumerate(values)}
        assert report.comparison_text(by_size, "numpy") == text

    @rows(
        "times, text",
        [
            ("flat", [9e-8, 1e-7, 9.5e-8, 9e-8, 1.2e-7], "95 ns at any size"),
            ("hardly flat", [1e-7, 1e-7, 1e-7, 1e-7, 2.9e-7], "100 ns at any size"),
            ("growing", [1e-7, 1e-7, 4e-6, 5e-6, 1e-3], "100 ns at 1, 100 ns an element at 10^4"),
        ],
    )
    def test_growth(self, times, text):
        assert report.growth_text(dict(zip(LINE, times, strict=True))) == text

    @rows("numbers, rule", [("none", 0, "| --- | --- |"), ("one", 1, "| --- | ---: |")])
    def test_table(self, numbers, rule):
        assert (
            figure_text.table(["a", "b"], [["1", "-"]], numbers) == f"| a | b |\n{rule}\n| 1 | - |"
        )


def result_row(**others):
    row = {"title": "from floats", "group": "Making arrays", "note": "A floor."}
    row |= {"statements": {"velmar": "f(data)", "numpy": "g(data)", "list": "g(data)"}}
    row |= {"size_counts": "elements of the array", "stopped": {}, "peak_bytes": 2e9}
    times = {"velmar": 1e-6, "numpy": 2e-6, "list": 4e-6}
    points = [{"size": size, "medians": times, "spreads": {"velmar": 1.1}} for size in LINE]
    return row | {"points": points} | others


class TestPage:
    SIZES = {
        "machine": "python 3.11.2, processors 2",
        "least_seconds": 0.01,
        "minutes": 12.5,
        "operations": [result_row()],
    }
    JOBS = {
        "rows": [
            {
                "name": "10x10",
                "figures": Kind.TIME.value,
                "medians": {"velmar": 1e-6, "numpy-F": 4e-6},
                "ratios": {"numpy-F": 0.25},
                "limit": {"ratio": 0.6, "peer": "numpy-F", "aim": None},
                "holds": True,
            },
            {
                "name": "no limit",
                "figures": Kind.PEAK.value,
                "medians": {"velmar": 1, "numpy": 2},
                "limit": None,
                "holds": None,
            },
        ]
    }

    @rows(
        "line",
        [
            ("machine", "Machine: python 3.11.2, processors 2."),
            ("overview", "| [from floats](#from-floats) | 0.50 | 0.50 | 0.50 | - | - |"),
            ("job", "| 10x10 | 1 us | - | 4 us (0.25) | 0.6 of numpy-F (0.25) | holds |"),
            ("job_without_limit", "| no limit | 1.00 x | 2.00 x (0.50) | - | - | - |"),
            (
                "statements_and_picture",
                "velmar: `f(data)`; numpy, list: `g(data)`."
                " ![Time against size, from floats](plots/from-floats.svg)",
            ),
            ("group", "![Making arrays, ratios to NumPy](plots/making-arrays.svg)"),
            ("fold", "<details><summary>Calls and diagram</summary>"),
            (
                "words",
                "Faster than numpy at every size where the two differ."
                " velmar: 1 us at any size; numpy: 2 us at any size. A floor.",
            ),
            ("samples", "  3 where a run takes longer than 50 ms."),
            ("cost", "- The run took 12.5 minutes and 2 GB of memory."),
        ],
    )
    def test_lines(self, line):
        assert line in report.page_of(self.SIZES, self.JOBS).splitlines()

    def test_never_slower_and_much_slower(self):
        times = {"velmar": 9e-6, "numpy": 2e-6}
        slow = [{"size": size, "medians": times, "spreads": {}} for size in LINE]
        text = report.judgement([result_row(), result_row(title="pickle", points=slow)])
        assert text == (
            "NumPy has 2 of the operations that were measured:\n\n"
            "- 1 are faster here, or about equal, at every size: from floats.\n"
            "- 1 are more than 3 times slower at the largest size: pickle."
        )

    def test_page_in_docs_is_that_of_the_results(self):
        results = [ROOT / "bench/results" / name for name in ("sizes.json", "table.json")]
        page = report.page_of(*(json.loads(file.read_text("utf-8")) for file in results))
        assert (ROOT / "docs/performance.md").read_text("utf-8") == page

    def test_pictures_in_docs_are_those_of_the_page(self):
        page = (ROOT / "docs/performance.md").read_text("utf-8")
        named = re.findall(r"\(plots/([^)]+)\)", page)
        assert sorted(named) == sorted(file.name for file in (ROOT / "docs/plots").glob("*.svg"))


def result(*limit, kind=Kind.TIME, **medians):
    """The row of results of a job with these medians."""
    job = Operation(shape=Shape(250, 50), limit=Limit(*limit), kind=kind)
    return run.result_of("job", job, medians)


class TestTableOfLimits:
    @rows(
        "ours, limit, verdict",
        [
            ("aim", 0.25, "0.6 of numpy (0.25), aim 0.3", "holds, aim met"),
            ("limit", 0.5, "0.6 of numpy (0.50), aim 0.3", "holds"),
            ("over", 0.7, "0.6 of numpy (0.70), aim 0.3", "MISSED"),
        ],
    )
    def test_verdict(self, ours, limit, verdict):
        row = result(0.6, "numpy", 0.3, velmar=ours, numpy=1.0)
        assert figure_text.limit_cells(row) == (limit, verdict)

    def test_line(self):
        line = run.line_of_result(result(0.6, "numpy", velmar=1e-6, numpy=4e-6))
        cells = "job 1 us 4 us (0.25) - - - - - 0.6 of numpy (0.25) holds"
        assert " ".join(line.split()) == cells

    @rows(
        "limit, kind, ours, text, holds",
        [
            ("a peak", 4.0, Kind.PEAK, 5.0, "4.00 x and 1 MiB", True),
            ("a peak just with the constant", 4.0, Kind.PEAK, 14.0, "4.00 x and 1 MiB", True),
            ("a peak over both", 4.0, Kind.PEAK, 15.0, "4.00 x and 1 MiB", False),
            ("a growth", 1.2, Kind.GROWTH, 1.2, "1.20 x", True),
            ("a growth over it", 1.2, Kind.GROWTH, 1.21, "1.20 x", False),
            ("held", 560, Kind.HELD, 560, "560 B", True),
        ],
    )
    def test_limit_without_a_peer(self, limit, kind, ours, text, holds):
        row = result(limit, kind=kind, velmar=ours)
        assert row["holds"] is holds
        assert figure_text.limit_cells(row) == (text, "holds" if holds else "MISSED")


class TestTableOfSizes:
    COLUMNS = ("velmar", "numpy", "list")

    def test_header(self):
        header = sizes.line_of("size", self.COLUMNS)
        assert header.split() == ["size", "velmar", "numpy", "list"]

    @rows(
        "medians, cells",
        [
            (
                "all",
                {"velmar": 1e-6, "numpy": 4e-6, "list": 1e-7},
                "10^4 1 us 4 us (0.25) 100 ns (10)",
            ),
            ("one stopped", {"velmar": 1e-6, "list": 1e-7}, "10^4 1 us - 100 ns (10)"),
            ("ours stopped", {"numpy": 4e-6, "list": 1e-7}, "10^4 - 4 us 100 ns"),
        ],
    )
    def test_line(self, medians, cells):
        line = sizes.line_of("10^4", figure_text.cells(medians, self.COLUMNS))
        assert " ".join(line.split()) == cells
        assert len(line) == len(sizes.line_of("size", self.COLUMNS))

    def test_results_have_a_line_for_each_operation(self, tmp_path):
        results = {"minutes": 10, "operations": [result_row(), result_row(title="from ints")]}
        console.write_json(tmp_path / "results.json", results, "operations")
        text = (tmp_path / "results.json").read_text("utf-8")
        assert json.loads(text) == results
        assert len(text.splitlines()) == 4
