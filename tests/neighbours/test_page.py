"""docs/neighbours.md: its code gives the results in the comments, its versions are the pins."""

import ast
import re
from importlib.metadata import requires, version
from pathlib import Path

import pytest
from packaging.requirements import Requirement

ROOT = Path(__file__).resolve().parents[2]
PAGE = (ROOT / "docs" / "neighbours.md").read_text(encoding="ascii")
PINS = dict(
    line.split("==")
    for line in (ROOT / "script" / "requirements-examples.txt").read_text().splitlines()
    if not line.startswith("#")
)


def commented_lines():
    """Run the blocks in order; yield source, value and comment of each expression."""
    names = {}
    for block in re.findall(r"^```python\n(.*?)^```$", PAGE, re.MULTILINE | re.DOTALL):
        lines = block.splitlines()
        for node in ast.parse(block).body:
            comment = lines[node.end_lineno - 1][node.end_col_offset :].strip("# ")
            source = ast.get_source_segment(block, node)
            if isinstance(node, ast.Expr) and comment:
                yield source, repr(eval(source, names)), comment
            else:
                exec(source, names)


def test_code():
    found = list(commented_lines())
    assert [(source, value) for source, value, _ in found] == [
        (source, comment) for source, _, comment in found
    ]
    assert len(found) > 10


@pytest.mark.parametrize("name, pinned", PINS.items())
class TestPins:
    def test_version(self, name, pinned):
        assert version(name) == pinned

    def test_all_that_it_needs_is_pinned(self, name, pinned):
        needed = [Requirement(text) for text in requires(name) or []]
        wanted = [one for one in needed if not one.marker or one.marker.evaluate({"extra": ""})]
        pins = {re.sub("[-_.]+", "-", pin).lower(): number for pin, number in PINS.items()}
        for one in wanted:
            key = re.sub("[-_.]+", "-", one.name).lower()
            assert one.specifier.contains(pins[key], prereleases=True)


@pytest.mark.parametrize(
    "library, name",
    [
        ("NumPy", "numpy"),
        ("SciPy", "scipy"),
        ("scikit-learn", "scikit-learn"),
        ("joblib", "joblib"),
        ("pandas", "pandas"),
        ("polars", "polars"),
        ("xarray", "xarray"),
        ("zarr", "zarr"),
        ("PyArrow", "pyarrow"),
        ("Matplotlib", "matplotlib"),
        ("Pillow", "pillow"),
        ("h5py", "h5py"),
        ("Dask, distributed", "dask"),
        ("Dask, distributed", "distributed"),
    ],
)
def test_page_names_the_version(library, name):
    assert f"\n| {library} | {PINS[name]} |\n" in PAGE
