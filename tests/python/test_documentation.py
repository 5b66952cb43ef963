"""Every example in the documentation prints what the page says."""

import codeop
import doctest
import re
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PAGES = [ROOT / "README.md", ROOT / "python/description.md", *sorted((ROOT / "docs").glob("*.md"))]

PROMPTED = re.compile(r"^>>> .*(?:\n\.\.\..*)*", re.MULTILINE)

# The pages show a little-endian machine: what they show, and what is right on a big-endian one.
ON_BIG_ENDIAN = {
    "errors_memory.md": {
        "'<d'": "'>d'",
        "'>d'": "'<d'",
        "__ctype_be__": "__ctype_le__",
        "(2210294483, 3306940588)": "(986720696, 2140296990)",
    },
    "first_hour.md": {"'0100020003000400'": "'0001000200030004'"},
    "transport.md": {"'byteorder': 'little'": "'byteorder': 'big'"},
}


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_examples(page):
    text = page.read_text(encoding="utf-8")
    others = ON_BIG_ENDIAN.get(page.name, {})
    assert all(shown in text for shown in others)
    if others and sys.byteorder == "big":
        text = re.sub("|".join(map(re.escape, others)), lambda found: others[found[0]], text)
    names = {"__name__": "__main__"}
    examples = doctest.DocTestParser().get_doctest(text, names, page.name, str(page), 0)
    assert doctest.DocTestRunner().run(examples).failed == 0


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_a_prompt_accepts_each_example(page):
    """A compound statement needs an empty line at its end, which the page shows as `...`."""
    for example in PROMPTED.findall(page.read_text(encoding="utf-8")):
        source = re.sub(r"^(>>> |\.\.\. ?)", "", example, flags=re.MULTILINE)
        assert codeop.compile_command(source, symbol="single"), example


def test_pages_have_examples():
    parser = doctest.DocTestParser()
    counts = {page: len(parser.get_examples(page.read_text(encoding="utf-8"))) for page in PAGES}
    assert counts[ROOT / "README.md"] > 0
    assert sum(counts.values()) > 100, counts
