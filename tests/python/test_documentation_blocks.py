"""Runs the blocks of the documentation that test_documentation.py does not run."""

import __future__

import ast
import contextlib
import doctest
import importlib.util
import io
import json
import re
import subprocess
import sys
from pathlib import Path

import pytest
import velmar

ROOT = Path(__file__).resolve().parents[2]
PAGES = {
    page.name: page.read_text(encoding="utf-8") for page in sorted((ROOT / "docs").glob("*.md"))
}
FENCE = re.compile(r"^```(\S*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)

# The languages of blocks and the pages that may have them; None means every page. The tests of the
# wheel compile the blocks of the page on native clients.
KINDS = {
    "python": None,
    "sh": None,
    "text": {"examples.md"},
    "{toctree}": {"index.md"},
    "cpp": {"native_clients.md"},
    "cmake": {"native_clients.md"},
}


NUMBERS = {"double": float, "single": float, "logical": bool}
NUMBERS |= {f"{sign}int{bits}": int for sign in ("", "u") for bits in (8, 16, 32, 64)}


def blocks_of(text, kind):
    return [block for found, block in FENCE.findall(text) if found == kind]


def is_prompted(block):
    return block.startswith(">>> ")


PLAIN = [
    name
    for name, text in PAGES.items()
    if not all(is_prompted(block) for block in blocks_of(text, "python"))
]
COMMANDS = [
    pytest.param(line, id=f"{name}: {line[:40]}")
    for name, text in PAGES.items()
    for block in blocks_of(text, "sh")
    for line in block.splitlines()
]


def missing_modules(code):
    """The modules that the code imports and that are not installed."""
    names = {
        name.partition(".")[0]
        for node in ast.walk(ast.parse(code))
        for name in (
            [alias.name for alias in node.names]
            if isinstance(node, ast.Import)
            else [node.module or ""]
            if isinstance(node, ast.ImportFrom)
            else []
        )
    }
    return sorted(name for name in names if name and importlib.util.find_spec(name) is None)


def replay(block, names):
    """Run the examples of a block and ignore what they print, which doctest compares."""
    for example in doctest.DocTestParser().get_examples(block):
        with contextlib.redirect_stdout(io.StringIO()), contextlib.suppress(Exception):
            exec(compile(example.source, "<example>", "single"), names)


def type_of(value):
    """The type that a type checker infers: a number, or a class nested once per dimension."""
    if type(value).__module__ != "velmar":
        return type(value).__name__
    number = complex if value._is_complex else NUMBERS[type(value).__name__]
    name = f"velmar.{type(value).__name__}"
    return "".join(f"{name}[" for _ in value.size) + number.__name__ + "]" * len(value.size)


def any_or(text, value):
    """The text, or the type of the value if the text does not name the type of elements."""
    return type_of(value) if text == f"velmar.{type(value).__name__}[Any]" else text


def run_plain(block, names):
    """Run lines without prompts; yield each result with the comment on its line."""
    lines = block.splitlines()
    flags = __future__.annotations.compiler_flag if "import annotations" in block else 0

    def run(statement):
        code = ast.Module([statement], [])
        exec(compile(code, "<block>", "exec", flags, dont_inherit=True), names)

    def value_of(expression):
        return eval(compile(ast.Expression(expression), "<block>", "eval"), names)

    for node in ast.parse(block).body:
        comment = lines[node.end_lineno - 1][node.end_col_offset :].strip()
        comment = comment.removeprefix("#").strip()
        call = ast.unparse(node.value.func) if is_call(node) else ""
        if comment.startswith("refused: "):
            with pytest.raises(Exception):  # noqa: B017
                run(node)
            yield "refused", "refused"
        elif call == "reveal_type":
            value = value_of(node.value.args[0])
            yield type_of(value), any_or(comment, value)
        elif isinstance(node, ast.Expr) and comment:
            yield repr(value_of(node.value)), comment
        else:
            run(node)


def is_call(node):
    return isinstance(node, ast.Expr) and isinstance(node.value, ast.Call)


@pytest.mark.parametrize("name", PAGES)
class TestForm:
    def test_blocks_are_of_a_kind_that_is_run(self, name):
        found = {kind for kind, _ in FENCE.findall(PAGES[name])}
        allowed = {kind for kind, pages in KINDS.items() if pages is None or name in pages}
        assert found - allowed == set()

    def test_every_fence_is_closed(self, name):
        fences = re.findall(r"^```", PAGES[name], re.MULTILINE)
        assert len(fences) == 2 * len(FENCE.findall(PAGES[name]))

    def test_no_block_hides_in_an_indent(self, name):
        text = FENCE.sub("", PAGES[name])
        assert re.findall(r"(?:^|\n)\n(    .*)", text) == []

    def test_length_and_letters(self, name):
        assert PAGES[name].isascii()
        assert len(PAGES[name].splitlines()) <= 500


@pytest.mark.parametrize("name", PLAIN)
def test_plain_blocks_give_what_their_comments_say(name):
    """Blocks that need a library that is not installed, or names of such a block, are skipped."""
    names = {"__name__": "__page__"}
    missing = set()
    compared = 0
    for block in blocks_of(PAGES[name], "python"):
        if is_prompted(block):
            replay(block, names)
            continue
        missing |= set(missing_modules(block))
        if missing_modules(block):
            continue
        try:
            for value, comment in run_plain(block, names):
                assert value == comment
                compared += 1
        except NameError:
            if not missing:
                raise
    if missing:
        pytest.skip(f"no {', '.join(sorted(missing))} here; compared without: {compared}")
    assert compared > 0


@pytest.mark.parametrize(
    "block, outcome",
    [
        ("1 + 1   # 2", [("2", "2")]),
        ("x = 3   # no value\nx * 2   # 7", [("6", "7")]),
        ("(1,\n 2)   # (1, 2)", [("(1, 2)", "(1, 2)")]),
        ("1 + 1\n# a remark", []),
        ("@str\ndef f(): pass\nf[:5]   # '<func'", [("'<func'", "'<func'")]),
        ("reveal_type(1)   # int", [("int", "int")]),
        ("int('x')   # refused: no number", [("refused", "refused")]),
    ],
)
def test_plain_lines_are_told_apart(block, outcome):
    assert list(run_plain(block, {})) == outcome


@pytest.mark.parametrize("line", COMMANDS)
def test_commands_name_what_exists(line):
    presets = json.loads((ROOT / "CMakePresets.json").read_text())["configurePresets"]
    lists = [ROOT / "CMakeLists.txt", *ROOT.glob("cmake/*"), *ROOT.glob("*/CMakeLists.txt")]
    settings = "".join(path.read_text() for path in lists)
    assert (
        line.split()[0] in ("apt-get", "cmake", "pip", "python")
        or (ROOT / line.split()[0]).is_file()
    )
    for script in re.findall(r"\bscript/\w+", line):
        assert (ROOT / script).is_file()
    for preset in re.findall(r"--preset (\S+)", line):
        assert preset in [known["name"] for known in presets]
    for setting in re.findall(r"(?:-D|cmake\.define\.)(\w+)=", line):
        assert setting in settings or setting == "velmarmultidimarrayforpython_DIR"
    for option in re.findall(r"python -m velmar (\S+?)\)", line):
        run = subprocess.run([sys.executable, "-m", "velmar", option], capture_output=True)
        assert run.returncode == 0


LINK = re.compile(r"(?<!!)\[[^\]]*\]\(([^)#:\s]*)(?:#([^)\s]+))?\)")
LINKED = {ROOT / "docs" / name: text for name, text in PAGES.items()}
for name in ("README.md", "CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md"):
    LINKED[ROOT / name] = (ROOT / name).read_text(encoding="utf-8")


def anchors_of(text):
    """The link targets that a git host makes of headings."""
    titles = re.findall(r"^#+ (.+)$", FENCE.sub("", text), re.MULTILINE)
    kept = (re.sub(r"[^\w\- ]", "", title.replace("\\", "").lower()) for title in titles)
    return {title.replace(" ", "-") for title in kept}


@pytest.mark.parametrize("page", LINKED, ids=lambda page: page.name)
def test_links_lead_to_files_and_headings(page):
    for file, anchor in LINK.findall(FENCE.sub("", LINKED[page])):
        target = (page.parent / file).resolve() if file else page
        assert target.exists(), file
        assert not anchor or anchor in anchors_of(target.read_text(encoding="utf-8")), anchor


class TestIndex:
    def test_every_page_is_listed_once(self):
        listed = [
            line
            for block in blocks_of(PAGES["index.md"], "{toctree}")
            for line in block.splitlines()
            if line and not line.startswith(":")
        ]
        pages = {name.removesuffix(".md") for name in PAGES} - {"README", "index"}
        assert sorted(listed) == sorted(pages)

    def test_drawings_are_used_and_there(self):
        shown = {
            path for text in PAGES.values() for path in re.findall(r"\]\((drawings/\S+?)\)", text)
        }
        there = {f"drawings/{path.name}" for path in (ROOT / "docs/drawings").glob("*.svg")}
        assert shown - {"drawings/README.md"} == there

    @pytest.mark.parametrize(
        "word, page",
        [
            ("install", "installation.md"),
            ("jupyter", "cookbook.md"),
            ("csv", "cookbook.md"),
            ("fortran", "memory_order.md"),
            ("transpose", "cookbook.md"),
            ("fromfile", "cookbook.md"),
            ("matlab", "cookbook.md"),
        ],
    )
    def test_words_that_readers_search_for_are_in_headings(self, word, page):
        headings = re.findall(r"^#+ .+$", FENCE.sub("", PAGES[page]), re.MULTILINE)
        assert any(word in heading.lower() for heading in headings)

    def test_output_of_the_tour(self):
        (shown,) = blocks_of(PAGES["examples.md"], "text")
        tour = [sys.executable, "-P", str(ROOT / "examples" / "tour.py")]
        output = subprocess.run(tour, capture_output=True, text=True, check=True).stdout
        assert len(shown.splitlines()) > 10
        assert output.startswith(shown)

    def test_every_example_is_linked(self):
        programs = [*ROOT.glob("examples/*.py"), *ROOT.glob("examples/neighbours/*.py")]
        links = {file for file, _ in LINK.findall(PAGES["examples.md"])}
        assert programs
        assert {f"../{program.relative_to(ROOT)}" for program in programs} <= links

    def test_a_page_that_is_said_to_have_a_drawing_has_one(self):
        said = re.findall(r"\]\((\w+\.md)\) has a\s+drawing", "".join(PAGES.values()))
        assert said and all("](drawings/" in PAGES[name] for name in said)


class TestReference:
    def test_every_method_and_attribute_has_a_place(self):
        names = [name for name in vars(velmar.double) if not name.startswith("__")]
        assert len(names) == 16
        text = PAGES["reference.md"]
        assert [name for name in names if f"{name}(" not in text and f"`{name}`" not in text] == []

    @pytest.mark.parametrize("name", ["MCPyIter", "logical", "double", "single"])
    def test_every_class_has_a_place(self, name):
        assert f"velmar.{name}" in PAGES["reference.md"]

    @pytest.mark.parametrize("bits", [8, 16, 32, 64])
    def test_ranges_of_integers(self, bits):
        text = PAGES["reference.md"]
        for name, low, high in (
            (f"int{bits}", -(2 ** (bits - 1)), 2 ** (bits - 1) - 1),
            (f"uint{bits}", 0, 2**bits - 1),
        ):
            row = re.search(rf"^\| `velmar\.{name}` \|.*$", text, re.MULTILINE).group()
            printed = [ast.unparse(ast.parse(end)) for end in re.findall(r"-?[\d*]+(?: - 1)?", row)]
            assert {low, high} <= {eval(end) for end in printed}
