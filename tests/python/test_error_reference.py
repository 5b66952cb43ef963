"""The pages of errors list exactly the messages of the sources."""

import re
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PAGES = [ROOT / f"docs/errors_{name}.md" for name in ("construction", "use", "memory")]
TEXT = " ".join(" ".join(page.read_text(encoding="utf-8") for page in PAGES).split())
ENTRY = re.compile(r"^### (.+)$", re.MULTILINE)

# Texts with a blank that are not messages: all texts of a file, and single ones.
NO_MESSAGES_IN = {
    "dump.cpp": "labels of the diagnostic dump",
    "type_specs.cpp": "descriptions of methods and attributes",
}
NO_MESSAGES = {", is_complex=True)": "the end of a text form"}

# Entries with messages of Python or of another library.
OF_OTHERS = [
    "SystemError: <method 'clone' of 'velmar.double' objects> returned a result with an exception"
    " set",
    "TypeError: unhashable type: 'velmar.double'",
    "TypeError: unsupported operand type(s) for +: 'velmar.double' and 'int'",
    "TypeError: type 'velmar.double' is not an acceptable base type",
    "BufferError: memoryview: underlying buffer is not contiguous",
    "ValueError: ndarray is not contiguous",
    "SizeError and ShapeError",
    "TypeError: underlying buffer is not writable",
    "ValueError: assignment destination is read-only",
    "TypeError: cannot modify read-only memory",
    "BufferError: memoryview: underlying buffer is not C-contiguous",
    "TypeError: memoryview: casts are restricted to C-contiguous views",
    "TypeError: write() argument must be contiguous buffer, not velmar.double",
    "BufferError: Buffer must be single dimension",
    "TypeError: a bytes-like object is required",
    "NotImplementedError: multi-dimensional sub-views are not implemented",
    "NotImplementedError: memoryview: unsupported format Zd",
    "RuntimeError: Item size 2 for PEP 3118 buffer format string Zb does not match the dtype b item"
    " size 1.",
    "TypeError: Object of type double is not JSON serializable",
    "ModuleNotFoundError: No module named 'velmar'",
    "ImportError: module velmarmultidimarrayforpython does not support loading in subinterpreters",
    "SystemError: initialization of velmarmultidimarrayforpython raised unreported exception",
]

TOKEN = re.compile(
    r"""//[^\n]*|/\*.*?\*/|^\s*\#[^\n]*|'(?:\\.|[^'\\\n])*'|"((?:\\.|[^"\\\n])*)"|([^\s"])""",
    re.DOTALL | re.MULTILINE,
)


def literals(source):
    """The string literals of C++ code, adjacent ones joined, without comments and directives."""
    texts, isOpen = [], False
    for token in TOKEN.finditer(source):
        if token.group(1) is not None:
            if isOpen:
                texts[-1] += token.group(1)
            else:
                texts.append(token.group(1))
            isOpen = True
        elif token.group(2) is not None:
            isOpen = False
    return [text.replace('\\"', '"').replace("\\n", " ") for text in texts]


def messages():
    """Pairs of file and text that a user may see, whole or as parts around a value."""
    for folder in ("src", "velmardata"):
        for path in sorted((ROOT / folder).rglob("*.[ch]pp")):
            name = str(path.relative_to(ROOT))
            if path.name not in NO_MESSAGES_IN:
                for text in literals(path.read_text(encoding="utf-8")):
                    if " " in text.strip() and text not in NO_MESSAGES:
                        yield name, " ".join(text.split())


MESSAGES = sorted(set(messages()))


@pytest.mark.parametrize(
    "source, texts",
    [
        ('fail("one " + value + " two");', ["one ", " two"]),
        ('fail("one "\n     "two");', ["one two"]),
        ('// "no"\n/* "no"\n"no" */ f("yes"); // "no"', ["yes"]),
        ('#include "storage/view.hpp"\nf("a \\"b\\" c\\n");', ['a "b" c ']),
        ('char quote = \'"\'; f("yes");', ["yes"]),
    ],
)
def test_literals_are_found(source, texts):
    assert literals(source) == texts


def test_sources_were_read():
    assert len({name for name, _ in MESSAGES}) > 20
    assert len(MESSAGES) > 90
    known = [name for name, text in MESSAGES if text == "inequality operators not supported."]
    assert [Path(name).name for name in known] == ["comparison.cpp"]


@pytest.mark.parametrize("name, text", MESSAGES, ids=lambda value: value[:60])
def test_message_is_on_a_page(name, text):
    assert text in TEXT


ENTRIES = [entry for page in PAGES for entry in ENTRY.findall(page.read_text(encoding="utf-8"))]
# What an entry may have beside texts of the sources: values, and words of the interpreter.
VALUES = {"double", "int32", "uint8", "velmar", "is_complex", "f", "d", "Item", "item"}
VALUES |= {"maximum", "recursion", "depth", "exceeded"}


@pytest.mark.parametrize("entry", [entry for entry in ENTRIES if entry not in OF_OTHERS])
def test_entry_is_a_message_of_the_sources(entry):
    left = entry.partition(": ")[2] or entry
    parts = [text for _, text in MESSAGES if text in left]
    for text in sorted(parts, key=len, reverse=True):
        left = left.replace(text, " ")
    assert parts
    assert set(re.findall(r"[A-Za-z_]\w*", left)) <= VALUES


def test_others_are_entries():
    assert [entry for entry in OF_OTHERS if entry not in ENTRIES] == []


def test_entries_stand_once_a_page():
    for page in PAGES:
        entries = ENTRY.findall(page.read_text(encoding="utf-8"))
        assert len(entries) == len(set(entries))


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_every_group_of_entries_is_explained(page):
    """Text follows each heading or group of headings."""
    text = page.read_text(encoding="utf-8")
    groups = re.split(r"(?:^### .+\n\n?)+", text, flags=re.MULTILINE)[1:]
    assert groups
    for group in groups:
        assert re.match(r"[A-Z`*]", group), group[:80]
