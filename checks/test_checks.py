"""Tests of what the checks report about sources, symbols and coverage."""

from pathlib import Path

import pytest
import sources
import symbols
from coverage_report import Line, made_by_conditions, uncovered

HIGH, LOW = 'includes "indexing/high.hpp"', 'includes "indexing/low.hpp"'

# A source of a room, and what is reported about it.
SOURCES = [
    ("", None),
    ("#include <vector>\n", None),
    ('#include "module/support.hpp"\n', None),
    ('#include "indexing/high.hpp"\n', f"{HIGH}, but the room indexing is above storage"),
    ('#include "indexing/low.hpp"\n', f"{LOW}, which is not a path below src"),
    ("#include <Python.h>\n", "includes Python.h; only src/module/python.hpp may"),
    ("void f() { Py_INCREF(a); }\n", "uses Py_INCREF, which is banned"),
    ("void f() { Py_IncRef(a); }\n", "uses Py_IncRef; only PyRef may"),
    ('// Py_INCREF\nconst char* a = "Py_INCREF";\n', None),
    ("void f(bool& good);\n", "has the parameter bool& good; report failure through the result"),
    ("void f(bool&& good);\n", None),
    ("using std::move;\n", "has a using declaration for move and does not use it"),
    ("using std::move;\nauto a = move(b);\n", None),
    ("// \u00e9\n", "has characters outside ASCII"),
    ("int a;\n" * 400, "has 401 lines; split at 400"),
]
# What c++filt prints, the name of the source, and whether it is a special member.
NAMES = [
    ("f(int)", "f(int)", False),
    ("A::f(int) const", "A::f(int) const", False),
    ("void A::f<int>(std::vector<int>)", "A::f", False),
    ("bool (anonymous namespace)::f<int>(int)", "(anonymous namespace)::f", False),
    ("bool operator< <int>(A<int> const&)", "operator<", False),
    ("bool operator==<int>(A<int> const&)", "operator==", False),
    ("A::operator bool() const", "A::operator bool() const", False),
    ("A::~A()", "A::~A()", True),
    ("A::A(A const&)", "A::A(A const&)", True),
    ("A::A(int)", "A::A(int)", False),
    ("A<int>::operator=(A<int>&&)", "A::operator=", True),
]
ROOMS = [
    ("src/storage/view.hpp", "storage"),
    ("module/support.hpp", "module"),
    ("src/module/entry/guard.hpp", "module/entry"),
    ("src/version.hpp", None),
    ("src/cellar/view.hpp", None),
]


@pytest.mark.parametrize("text, finding", SOURCES)
def test_sources(text, finding, tmp_path, monkeypatch):
    for name in ("src/module/support.hpp", "src/indexing/high.hpp", "src/storage/sample.cpp"):
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).write_text(f"// A role.\n{text}", encoding="utf-8")
    monkeypatch.setattr(sources, "ROOT", tmp_path)
    expected = [finding] if finding else []
    assert list(sources.check_file(Path("src/storage/sample.cpp"))) == expected


@pytest.mark.parametrize("readable, name, is_special", NAMES)
def test_names(readable, name, is_special):
    assert symbols.source_name(readable) == name
    assert symbols.is_special_member(readable) == is_special


@pytest.mark.parametrize("path, room", ROOMS)
def test_rooms(path, room):
    assert sources.room_of(Path(path)) == room


HIGH_ROOM, LOW_ROOM = Path("src/indexing/high.cpp"), Path("src/storage/low.cpp")
USED = "src/storage/low.cpp: storage uses f(int), which indexing above it defines"
# The symbols of two objects, and the finding about their order.
ORDERS = [
    ([("U", "f(int)")], [("T", "f(int)")], None),
    ([("T", "f(int)")], [("U", "f(int)")], USED),
    ([("T", "f(int)")], [("U", "f(int)"), ("W", "f(int)")], None),
    ([("t", "f(int)")], [("U", "f(int)")], None),
]
KEPT = "checks/kept_functions.txt:7"
FOR_CLIENTS = "velmardata/include/velmardata/array.hpp"
# The symbols of an object, those of the libraries, the kept functions, and the findings.
UNUSED = [
    ([("T", "f(int)")], ["f(int)"], [], []),
    ([("T", "f(int)")], [], [], [f"{LOW_ROOM}: nothing uses f(int)"]),
    ([("t", "f(int)")], [], [], [f"{LOW_ROOM}: nothing uses f(int)"]),
    ([("T", "f(int)")], [], ["f(int)"], []),
    ([("T", "f(int)")], ["f(int)"], ["f(int)"], [f"{KEPT}: f(int) is used; remove the entry"]),
    ([], [], ["f(int)"], [f"{KEPT}: there is no function f(int)"]),
    ([("W", "int f<int>()"), ("W", "int f<char>()")], ["int f<char>()"], [], []),
    ([("W", "A::A(A const&)"), ("W", "f()::{lambda()#1}::operator()()")], [], [], []),
    ([("W", "Array::getType() const", FOR_CLIENTS)], [], [], []),
    ([("B", "variable"), ("U", "f(int)")], [], [], []),
]


def symbols_of(rows):
    """A row without a file is for a symbol that low.cpp defines."""
    return {(*row, "src/storage/low.cpp")[:3] for row in rows}


@pytest.mark.parametrize("high, low, finding", ORDERS)
def test_order_of_rooms(high, low, finding):
    objects = {HIGH_ROOM: symbols_of(high), LOW_ROOM: symbols_of(low)}
    assert list(symbols.order_findings(objects)) == ([finding] if finding else [])


@pytest.mark.parametrize("functions, linked, kept, findings", UNUSED)
def test_unused_functions(functions, linked, kept, findings):
    objects = {LOW_ROOM: symbols_of(functions)}
    assert list(symbols.unused_findings(objects, set(linked), dict.fromkeys(kept, 7))) == findings


# What nm prints behind the address, and the symbol of it.
LINES = [
    ("T f(int)\t/project/src/a.hpp:3", {("T", "f(int)", "src/a.hpp")}),
    ("U f(int)\t/usr/include/memory:3", {("U", "f(int)", "/usr/include/memory")}),
    ("W f<int>(g)\t/usr/include/memory:3", set()),
    ("B variable", {("B", "variable", "")}),
]


@pytest.mark.parametrize("line, expected", LINES)
def test_symbols(line, expected, monkeypatch):
    monkeypatch.setattr(symbols, "ROOT", Path("/project"))
    monkeypatch.setattr(symbols, "run", lambda *_: f"{'':17}{line}\n")
    assert symbols.read_symbols("a.o") == expected


# Whether each branch of a line is an exceptional exit, and which of them are of conditions.
BRANCHES = [
    ([], []),
    ([False, False], [0, 1]),
    ([False, True], []),  # a call
    ([False, True, False, False], [2, 3]),
    ([False, False, False, True, False, False], [0, 1, 4, 5]),
]
# Counts of a line, and the gap that is reported.
GAPS = [
    ((0, [0, 0]), ["a.cpp:3: line: if (a)"]),
    ((5, [5, 0]), ["a.cpp:3: branch 2 of 2: if (a)"]),
    ((5, [4, 1]), []),
    ((5, []), []),
]


@pytest.mark.parametrize("throws, expected", BRANCHES)
def test_branches_of_conditions(throws, expected):
    branches = [{"throw": throw, "count": index} for index, throw in enumerate(throws)]
    assert made_by_conditions(branches) == expected


@pytest.mark.parametrize("counts, expected", GAPS)
def test_gaps(counts, expected):
    line = Line("if (a)")
    line.add(*counts)
    assert list(uncovered({"a.cpp": {3: line}})) == expected
