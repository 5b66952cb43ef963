"""How Sphinx makes HTML pages of the Markdown in this folder; `script/docs` runs it."""

import re
import tomllib
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
METADATA = tomllib.loads((ROOT / "pyproject.toml").read_text(encoding="utf-8"))["project"]

project = METADATA["name"]
version = release = METADATA["version"]
html_title = f"velmar {release}"

extensions = ["myst_parser", "sphinx_copybutton"]
# The README of each folder is for readers of the sources; index.md opens these pages.
exclude_patterns = ["README.md", "*/README.md"]
nitpicky = True
keep_warnings = True

# Headings are link targets on a git host; here they are the same ones.
myst_heading_anchors = 3
# The quotes of a message are to be found as they are printed.
smartquotes = False

html_theme = "furo"
html_static_path = ["static"]
html_css_files = ["style.css"]
html_copy_source = False
html_show_sphinx = False
html_show_copyright = False
pygments_style = "friendly"
pygments_dark_style = "github-dark"

LINK_OUTSIDE = re.compile(r"\[[^\]]*\]\(\.\./([^)]+)\)")
LAST_BLANK_LINE = re.compile(r"\n\n```$", re.MULTILINE)


def adapt(app, page, source):
    # A link out of this folder is for readers on a git host; here the path itself is shown.
    text = LINK_OUTSIDE.sub(r"`\1`", source[0])
    # Doctest ends the output of an example at a blank line.
    source[0] = LAST_BLANK_LINE.sub("\n```", text)


def setup(app):
    app.connect("source-read", adapt)
    return {"parallel_read_safe": True}
