"""html() and summary(): their texts, their limits and their cost."""

import inspect
import math
import re
from html.parser import HTMLParser

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, COMPLEX_ROWS
from helpers.cases import each
from helpers.child_interpreter import run_script
from helpers.failures import raises
from velmar import look

LOOKS = pytest.mark.parametrize("show", [velmar.html, velmar.summary])


def lines(*texts):
    return "\n".join(texts)


def numbered(*size):
    """An array whose elements are numbered in the order of the nesting."""
    a = velmar.int32(size=size)
    count = math.prod(size)
    a[0 : size[0]] = range(count)
    return a


MATRIX = velmar.double([[1, 2.5, 1 / 3], [4, 5, 6]])

SUMMARIES = [
    (
        "matrix",
        MATRIX,
        {},
        lines(
            "velmar.double, 2 by 3",
            "     0    1         2",
            "0  1.0  2.5  0.333333",
            "1  4.0  5.0       6.0",
        ),
    ),
    (
        "row",
        MATRIX[1],
        {},
        lines("velmar.double, a row of 3", "    0    1    2", "  4.0  5.0  6.0"),
    ),
    (
        "part of a row",
        MATRIX[1][1:],
        {},
        lines("velmar.double, a row of 2", "    0    1", "  5.0  6.0"),
    ),
    (
        "slice of rows, backwards",
        MATRIX[::-1],
        {},
        lines(
            "velmar.double, 2 by 3",
            "     0    1         2",
            "0  4.0  5.0       6.0",
            "1  1.0  2.5  0.333333",
        ),
    ),
    (
        "one dimension",
        velmar.int8([1, 2]).reshape([2]),
        {},
        lines("velmar.int8, a row of 2", "  0  1", "  1  2"),
    ),
    (
        "logical",
        velmar.logical([[1, 0]]),
        {},
        lines("velmar.logical, 1 by 2", "      0      1", "0  True  False"),
    ),
    (
        "complex",
        velmar.int8([1 + 2j, 3], is_complex=True),
        {},
        lines("velmar.int8, 1 by 2, complex", "        0       1", "0  (1+2j)  (3+0j)"),
    ),
    (
        "complex, long numbers",
        velmar.double([[1 / 3 - 2j / 3]], is_complex=True),
        {},
        lines(
            "velmar.double, 1 by 1, complex", "                      0", "0  (0.333333-0.666667j)"
        ),
    ),
    ("nothing", velmar.uint8(), {}, "velmar.uint8, 0 by 0, no elements"),
    ("no columns", velmar.single(size=(2, 0, 3)), {}, "velmar.single, 2 by 0 by 3, no elements"),
    ("empty slice", MATRIX[2:], {}, "velmar.double, 0 by 3, no elements"),
    ("empty part of a row", MATRIX[0][3:], {}, "velmar.double, a row of 0, no elements"),
    (
        "title",
        velmar.int8(1),
        {"title": "one"},
        lines("one", "velmar.int8, 1 by 1", "   0", "0  1"),
    ),
    (
        "pages",
        numbered(2, 2, 2),
        {},
        lines(
            "velmar.int32, 2 by 2 by 2",
            *("[0]", "   0  1", "0  0  1", "1  2  3"),
            *("[1]", "   0  1", "0  4  5", "1  6  7"),
        ),
    ),
    (
        "pages left out",
        numbered(3, 2, 1, 2),
        {"pages": 3},
        lines(
            "velmar.int32, 3 by 2 by 1 by 2",
            *("[0][0]", "   0  1", "0  0  1"),
            *("[0][1]", "   0  1", "0  2  3"),
            "... 3 more pages",
            *("[2][1]", "    0   1", "0  10  11"),
        ),
    ),
    (
        "one page of two",
        numbered(2, 1, 2),
        {"pages": 1},
        lines("velmar.int32, 2 by 1 by 2", "[0]", "   0  1", "0  0  1", "... 1 more page"),
    ),
    (
        "rows and columns left out",
        numbered(6, 100),
        {"rows": 3, "columns": 4},
        lines(
            "velmar.int32, 6 by 100",
            "       0    1  ...   98   99",
            "  0    0    1  ...   98   99",
            "  1  100  101  ...  198  199",
            "...  ...  ...  ...  ...  ...",
            "  5  500  501  ...  598  599",
        ),
    ),
    (
        "just not left out",
        numbered(2, 3),
        {"rows": 2, "columns": 3},
        lines("velmar.int32, 2 by 3", "   0  1  2", "0  0  1  2", "1  3  4  5"),
    ),
    (
        "one of each",
        numbered(2, 3),
        {"rows": 1, "columns": 1},
        lines("velmar.int32, 2 by 3", "       0  ...", "  0    0  ...", "...  ...  ..."),
    ),
]


class TestSummary:
    @pytest.mark.parametrize(
        "a, options, expected", [row[1:] for row in SUMMARIES], ids=[row[0] for row in SUMMARIES]
    )
    def test_rows(self, a, options, expected):
        assert velmar.summary(a, **options) == expected

    @each(CLASS_ROWS)
    def test_names_each_class(self, row):
        assert velmar.summary(row.cls([[1]])).startswith(f"velmar.{row.word}, 1 by 1\n")

    @each(COMPLEX_ROWS)
    def test_says_complex(self, row):
        text = velmar.summary(row.cls([[1]], is_complex=True))
        assert text == f"velmar.{row.word}, 1 by 1, complex\n        0\n0  (1+0j)"

    def test_is_a_plain_text(self):
        assert type(velmar.summary(MATRIX)) is str


NUMBERS = [
    (velmar.double, 0.1, 6, "0.1"),
    (velmar.double, -0.0, 6, "-0.0"),
    (velmar.double, 1 / 3, 6, "0.333333"),
    (velmar.double, 1 / 3, 2, "0.33"),
    (velmar.double, 1 / 3, None, "0.3333333333333333"),
    (velmar.double, 12345678.0, 6, "12345678.0"),
    (velmar.double, 123456789.0, 6, "1.23457e+08"),
    (velmar.double, 1e-300, 6, "1e-300"),
    (velmar.double, math.inf, 1, "inf"),
    (velmar.double, -math.inf, 1, "-inf"),
    (velmar.double, math.nan, 1, "nan"),
    (velmar.single, 0.1, 6, "0.1"),
    (velmar.single, 0.1, None, "0.10000000149011612"),
    (velmar.uint64, 2**64 - 1, 1, "18446744073709551615"),
    (velmar.int64, -(2**63), 1, "-9223372036854775808"),
    (velmar.logical, True, 1, "True"),
]


class TestNumbers:
    @pytest.mark.parametrize("cls, value, digits, expected", NUMBERS)
    def test_rows(self, cls, value, digits, expected):
        assert velmar.summary(cls([value]), digits=digits).split()[-1] == expected


class Cells(HTMLParser):
    """Parses tables into rows of texts and checks that every tag is closed."""

    def __init__(self, text):
        super().__init__()
        self.open, self.tables, self.outside, self.captions = [], [], [], []
        self.feed(text)
        self.close()
        assert self.open == []

    def handle_starttag(self, tag, attributes):
        self.open.append(tag)
        if tag == "table":
            self.tables.append([])
        elif tag == "tr":
            self.tables[-1].append([])
        elif tag in ("td", "th"):
            self.tables[-1][-1].append("")

    def handle_endtag(self, tag):
        assert self.open.pop() == tag

    def handle_data(self, data):
        if not data.strip():
            return
        if self.open[-1] in ("td", "th"):
            self.tables[-1][-1][-1] += data
        else:
            (self.captions if self.open[-1] == "caption" else self.outside).append(data)


def read_summary(text):
    """The lines outside the tables of a summary, the captions and the cells."""
    outside, captions, tables = [], [], []
    for line in text.split("\n"):
        if re.fullmatch(r"(\[\d+\])+", line):
            captions.append(line)
        elif line.startswith(("velmar.", "... ")) and "  " not in line:
            outside.append(line)
        else:
            tables.append(re.split(r"\s\s+", line.strip()))
    return outside, captions, tables


class TestHtml:
    @pytest.mark.parametrize(
        "a, options",
        [row[1:3] for row in SUMMARIES if "title" not in row[2]],
        ids=[row[0] for row in SUMMARIES if "title" not in row[2]],
    )
    def test_has_what_the_summary_has(self, a, options):
        page = Cells(velmar.html(a, **options))
        outside, captions, rows = read_summary(velmar.summary(a, **options))
        assert page.outside == outside
        assert page.captions == captions
        assert [[cell for cell in row if cell] for table in page.tables for row in table] == rows

    def test_text_in_full(self):
        assert velmar.html(velmar.int8([[[1, 2]], [[3, 4]]]), pages=1, title="<&>\"'") == lines(
            "<div>",
            "<p><strong>&lt;&amp;&gt;&quot;&#x27;</strong></p>",
            "<p>velmar.int8, 2 by 1 by 2</p>",
            '<table style="text-align: right; border-spacing: 1em 0">',
            '<caption style="text-align: left">[0]</caption>',
            "<thead>",
            "<tr><td></td><th>0</th><th>1</th></tr>",
            "</thead>",
            "<tbody>",
            "<tr><th>0</th><td>1</td><td>2</td></tr>",
            "</tbody>",
            "</table>",
            "<p>... 1 more page</p>",
            "</div>",
        )

    def test_notebooks_show_it(self):
        source = velmar.html(MATRIX)
        assert isinstance(source, str)
        assert type(source._repr_html_()) is str
        assert source._repr_html_() == source


ARGUMENTS = [
    ({"rows": 0}, "value of 'rows' must be a positive integer."),
    ({"rows": -1}, "value of 'rows' must be a positive integer."),
    ({"columns": 2.0}, "value of 'columns' must be a positive integer."),
    ({"pages": None}, "value of 'pages' must be a positive integer."),
    ({"pages": "4"}, "value of 'pages' must be a positive integer."),
    ({"digits": 0}, "value of 'digits' must be a positive integer or None."),
    ({"digits": 1.5}, "value of 'digits' must be a positive integer or None."),
]


@LOOKS
class TestFailures:
    @pytest.mark.parametrize("options, message", ARGUMENTS)
    def test_limits(self, show, options, message):
        with raises(ValueError, message):
            show(MATRIX, **options)

    @pytest.mark.parametrize(
        "value, name",
        [([[1]], "list"), (None, "NoneType"), (velmar.double, "type"), (iter(MATRIX), "MCPyIter")],
    )
    def test_no_array(self, show, value, name):
        with raises(TypeError, f"{show.__name__}() must be passed an array, not '{name}'."):
            show(value)

    def test_row_whose_array_is_gone(self, show):
        (row,) = list(velmar.double([[1, 2]]))
        with raises(RuntimeError, "locked shared pointer is null."):
            show(row)

    def test_view_that_a_reshape_left_outside(self, show):
        a = velmar.int8([[1, 2], [3, 4]])
        row = a[1]
        a.reshape(1, 4)
        with raises(RuntimeError, "null data pointer."):
            show(row)


@LOOKS
class TestViews:
    def test_row_of_a_loop(self, show):
        first, second = MATRIX
        assert show(second) == show(MATRIX[1])

    def test_writes_are_seen(self, show):
        a = velmar.int8([[1, 2], [3, 4]])
        view = a[1]
        before = show(view)
        a[1][0] = 30
        assert show(view) != before
        assert show(view) == show(a[1])

    def test_nothing_is_remembered(self, show):
        # A clone or an export would keep a snapshot of the view.
        a = velmar.int8([[1, 2], [3, 4]])
        view = a[1]
        show(view)
        a[1][0] = 30
        assert view.clone()[0][0] == 30


class Endless:
    """Stands for an array of any size and counts its subscripts."""

    _is_complex = False

    def __init__(self, size, counts):
        self.size, self.counts = size, counts

    def __getitem__(self, index):
        assert type(index) is int and 0 <= index < self.size[0]
        self.counts.append(index)
        return Endless(self.size[1:], self.counts) if len(self.size) > 1 else index


@LOOKS
class TestCost:
    @pytest.mark.parametrize(
        "size, most",
        [
            ((10**12,), 8),
            ((10**12, 10**12), 10 + 80),
            ((10**12,) * 3, 4 * (1 + 10 + 80)),
            ((10**3,) * 40, 4 * (38 + 10 + 80)),
        ],
        ids=["row", "matrix", "cube", "many"],
    )
    def test_follows_from_what_is_shown(self, show, size, most, monkeypatch):
        monkeypatch.setattr(look, "_CLASSES", (Endless,))
        counts = []
        text = show(Endless(size, counts))
        assert len(counts) == most
        assert len(text) < 20_000


class TestModule:
    def test_comes_with_the_first_look(self):
        outcome = run_script("""
            import sys, velmar
            before = "velmar.look" in sys.modules
            first = velmar.summary
            report([before, "velmar.look" in sys.modules, vars(velmar)["summary"] is first])
        """)
        assert outcome.reported == [False, True, True]

    def test_is_listed_before_it_comes(self):
        outcome = run_script("""
            import sys, velmar
            names = dir(velmar)
            found = [name in names for name in ("double", "html", "summary", "__all__")]
            report(found + ["velmar.look" in sys.modules])
        """)
        assert outcome.reported == [True, True, True, True, False]

    def test_star_takes_the_classes_alone(self):
        names = {}
        exec("from velmar import *", names)
        assert "html" not in names and "summary" not in names and "double" in names

    def test_other_names_are_not_there(self):
        with raises(AttributeError, "module 'velmar' has no attribute 'Summary'"):
            _ = velmar.Summary

    def test_both_take_the_same(self):
        parameters = [inspect.signature(show).parameters for show in (velmar.html, velmar.summary)]
        assert list(parameters[0].values()) == list(parameters[1].values())
