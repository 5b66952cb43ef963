"""Every example in the documentation prints what the page says."""

import doctest
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PAGES = [ROOT / "README.md", ROOT / "python/description.md", *sorted((ROOT / "docs").glob("*.md"))]


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_examples(page):
    outcome = doctest.testfile(str(page), module_relative=False, encoding="utf-8")
    assert outcome.failed == 0


def test_pages_have_examples():
    parser = doctest.DocTestParser()
    counts = {page: len(parser.get_examples(page.read_text(encoding="utf-8"))) for page in PAGES}
    assert counts[ROOT / "README.md"] > 0
    assert sum(counts.values()) > 100, counts
