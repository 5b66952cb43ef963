"""Tests of the places that can be changed, the marks that exempt changes, and the selection."""

from argparse import Namespace

import pytest
from marks import find_exempt
from mutate import Run, Sources
from places import places
from trial import Verdict

LESS = [("a < 1", "false"), ("a < 1", "true"), ("<", "<="), ("<", ">="), ("1", "2"), ("1", "0")]

# Code in a function, and the changes of it.
IN_FUNCTIONS = [
    ('// a < b, 1, "text"', []),
    ('/* 1 + 1 */ static_assert(sizeof(int) == 4, "int");', []),
    ("x = 'a';", []),
    ("x = 0x10 + y++;", [("+", "-")]),
    ("if (a < 1) f();", LESS),
    ("if (int* b = f(a); a < 1) f();", LESS),
    ("if (int* b = f(a)) f();", []),
    ("if constexpr (!a) f();", [("!", "")]),
    ("while (a != b) --a;", [("a != b", "false"), ("!=", "=="), ("--", "++")]),
    ("do { a += b; } while (f());", [("+=", "-="), ("f()", "false")]),
    ("x = a && !b;", [("&&", "||"), ("!", "")]),
    ("auto&& x = a % -2L;", [("%", "/"), ("2", "3"), ("2", "1")]),
    ("return false;", [("false", "true")]),
    ("return -1;", [("-1", "0")]),
    ("return 0;", [("0", "-1")]),
    ("return nullptr;", []),
    ('f("a\\nxc", "");', [("x", "y")]),
    ("std::vector<std::vector<int>> x; *x;", []),
    ("auto f = [](int a) { return a - b; };", [("-", "+")]),
]
# Code outside functions.
DECLARATIONS = [
    ("#include <vector>\n#define ONE(x) (x + 1)\n#if 1 < 2\n#endif\n", []),
    ("int declared(int first = 7, std::vector<int> more = {});", []),
    ("template <int N = 3> struct S { bool operator<(const S& other) const; int m[2]; };", []),
    ("enum E { A = 1 };", []),
    ("using F = S<4>;", []),
    ("struct S { int m = 5; };", [("5", "6"), ("5", "4")]),
    ('constexpr const char* word = "cat";', [("a", "x")]),
    ("S::S(int size) : m(size * n) {}", [("*", "/")]),
    ("constexpr int table[] = {1};", [("1", "2"), ("1", "0")]),
]
ROWS = [*((f"int f() {{ {code} }}", found) for code, found in IN_FUNCTIONS), *DECLARATIONS]


def changes_of(text):
    return [change for place in places("sample.cpp", text) for change in place]


def shown(changes):
    return sorted((change.old, change.new) for change in changes)


@pytest.mark.parametrize("code, expected", ROWS)
def test_places(code, expected):
    assert shown(changes_of(code)) == sorted(expected)


SO = "A reason, so no test detects a change"
FORM = "mutation/marks.py has the form of this comment"
# Code in a function, the changes that a mark exempts, and the message about the mark.
MARKED = [
    (f"x = 1;  // {SO}.\ny = 2;", [("1", "2"), ("1", "0")], None),
    (f"x = 3;  // A\ny = 1;  // {SO}.", [("1", "2"), ("1", "0")], None),
    (f"// {SO}.\nx = 1; y = 2;", [("1", "2"), ("1", "0")], None),
    ("// A\n// reason, so no test\n// detects a change.\nx = 1;", [("1", "2"), ("1", "0")], None),
    (f"// {SO} of `<`.\nif (a < 1) f();", LESS[2:4], None),
    (f"// {SO} of `0` to `1`, or `<`.\nif (a < 0) f();", LESS[2:4] + [("0", "1")], None),
    (f"// {SO} of the condition.\nif (a < 1) f();", LESS[:2], None),
    (f"// {SO} of the condition to `true`.\nif (a < 1) f();", LESS[1:2], None),
    (f"// {SO} of `b + c`.\nx = a - b + c;", [("+", "-")], None),
    (f"// {SO} of `b + c` to `b - c`.\nx = a - b + c;", [("+", "-")], None),
    (f"// {SO}.\nf();", [], "no change is possible here"),
    (f"// {SO} of `>`.\nif (a < 1) f();", [], "no change of `>` is possible here"),
    (f"// {SO} of `1` to `3`.\nx = 1;", [], "no change of `1` to `3` is possible here"),
    (f"// {SO} of `1`.\nx = 10;", [], "no change of `1` is possible here"),
    (f"// {SO} of 1.\nx = 1;", [], FORM),
    (f"// {SO}\nx = 1;", [], FORM),
    ("// No test detects a change.\nx = 1;", [], FORM),
]


@pytest.mark.parametrize("code, expected, message", MARKED)
def test_marks(code, expected, message):
    text = f"void f() {{\n{code}\n}}\n"
    exempt, messages = find_exempt("sample.cpp", text, changes_of(text))
    assert shown(exempt) == sorted(expected)
    assert messages == ([f"sample.cpp:2: {message}"] if message else [])


def test_a_mark_above_a_function_is_for_all_of_it():
    text = f"// {SO}.\nint f() {{\n  a = 1;\n  return 0;\n}}\nint x = 2;\n"
    exempt, _ = find_exempt("sample.cpp", text, changes_of(text))
    assert shown(exempt) == [("0", "-1"), ("1", "0"), ("1", "2")]


KILLED, SURVIVED, UNCOMPILED = "killed", "survived", "uncompiled"
# Wanted number, minutes, the outcomes of all trials, how many are made, whether enough are killed.
RUNS = [
    (2, 1, [KILLED, KILLED, KILLED], 2, True),
    (2, 1, [KILLED, UNCOMPILED, UNCOMPILED, KILLED], 4, True),
    (2, 1, [KILLED, SURVIVED], 2, False),
    (20, 1, [KILLED] * 19 + [SURVIVED], 20, True),  # 95 percent
    (60, 1, [KILLED] * 22, 22, True),  # the places of the source
    (2, 0, [KILLED], 0, False),
]


@pytest.mark.parametrize("wanted, minutes, outcomes, made, passed", RUNS)
def test_runs(wanted, minutes, outcomes, made, passed, tmp_path):
    (tmp_path / "src").mkdir()
    exempt = f"// {SO}.\nint a = 1;\n"
    (tmp_path / "src/a.cpp").write_text(exempt + "int b = 1;\n" * 22)
    verdicts = map(Verdict, outcomes)
    workshop = Namespace(judge=lambda change: next(verdicts))
    arguments = Namespace(count=wanted, minutes=minutes, seed=0, again=False)
    run = Run(Sources(tmp_path), [workshop], arguments, tmp_path)
    run.test()
    assert len(run.results) == made
    assert run.report() == passed
