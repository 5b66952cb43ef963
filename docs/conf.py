"""How Sphinx makes HTML pages of the Markdown in this folder; `script/docs` runs it."""

import posixpath
import re
import shutil
import tomllib
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
METADATA = tomllib.loads((ROOT / "pyproject.toml").read_text(encoding="utf-8"))["project"]

project = METADATA["name"]
version = release = METADATA["version"]
html_title = f"velmar {release}"

extensions = ["myst_parser", "sphinx_copybutton"]
# The README of each folder is for readers of the sources; index.md opens these pages.
exclude_patterns = ["README.md", "drawings/README.md", "plots/README.md"]
nitpicky = True
keep_warnings = True

# The copy button of a block with prompts copies the code alone: neither prompts nor output.
copybutton_exclude = ".linenos, .go, .gt, .gr"
copybutton_prompt_text = r">>> |\.\.\. ?"
copybutton_prompt_is_regexp = True
copybutton_copy_empty_lines = False

# Headings are link targets on a git host; here they are the same ones.
myst_heading_anchors = 3
# The quotes of a message are to be found as they are printed.
smartquotes = False

html_theme = "furo"
html_static_path = ["static"]
html_css_files = ["style.css"]
html_js_files = ["page.js"]
html_copy_source = False
html_show_sphinx = False
html_show_copyright = False
html_use_index = False
pygments_style = "friendly"
pygments_dark_style = "github-dark"

# Files outside of this folder that become pages, so that links to them work. The copies are written
# to FILES at the start of a build.
FILES = Path(__file__).resolve().parent / "sources"
LANGUAGES = {
    ".py": "python",
    ".cpp": "cpp",
    ".hpp": "cpp",
    ".toml": "toml",
    ".build": "meson",
    "CMakeLists.txt": "cmake",
}
LINK = re.compile(r"(?<!!)\[([^\]]*)\]\(([^)#:\s]+)(#[^)\s]*)?\)")
LAST_BLANK_LINE = re.compile(r"\n\n```$", re.MULTILINE)


def language_of(file):
    return LANGUAGES.get(file.name) or LANGUAGES.get(file.suffix)


def files_that_become_pages():
    yield from (ROOT / name for name in ("CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md"))
    yield from (ROOT / name / "README.md" for name in ("bench", "script", "torture"))
    for file in sorted((ROOT / "examples").rglob("*")):
        if file.is_file() and (file.suffix == ".md" or language_of(file)):
            yield file


PAGES_OF_FILES = list(files_that_become_pages())
# The files that the examples read.
DOWNLOADS = [*ROOT.glob("examples/data/*.csv"), *ROOT.glob("examples/data/*.bin")]


def page_name(file):
    """The name of the page of a file, without its suffix .md."""
    return f"sources/{file.relative_to(ROOT).as_posix().removesuffix('.md')}"


def with_links_of_pages(text, folder, page):
    """The text of a page with links to other pages; links to other files show the file name.

    `folder` is the folder that the links are relative to. A link whose words are the name of a
    Markdown file gets no words, so that it shows the title of the page: readers of HTML do not have
    the file.
    """

    def new_link(found):
        words, path, anchor = found[1], found[2], found[3] or ""
        target = Path(posixpath.normpath(folder / path))
        if not target.exists() or not target.is_relative_to(ROOT):
            return found[0]  # code that looks like a link
        if target.is_relative_to(ROOT / "docs"):
            if target.suffix != ".md" or target.name == "README.md":
                return found[0]
            name = target.relative_to(ROOT / "docs").as_posix()
        elif target in PAGES_OF_FILES:
            name = f"{page_name(target)}.md"
        elif target in DOWNLOADS:
            name = posixpath.relpath(target, ROOT / "docs")
        else:
            return f"`{target.relative_to(ROOT).as_posix()}`"
        if words.endswith(".md"):
            words = ""
        return f"[{words}]({posixpath.relpath(name, posixpath.dirname(page) or '.')}{anchor})"

    return LINK.sub(new_link, text)


def write_files(_app):
    shutil.rmtree(FILES, ignore_errors=True)
    for file in PAGES_OF_FILES:
        text = file.read_text(encoding="utf-8")
        if file.suffix != ".md":
            path = file.relative_to(ROOT).as_posix()
            text = f"# {file.name}\n\n`{path}`\n\n``````{language_of(file)}\n{text}``````\n"
        page = FILES.parent / f"{page_name(file)}.md"
        page.parent.mkdir(parents=True, exist_ok=True)
        page.write_text(f"---\norphan: true\n---\n{text}", encoding="utf-8")


def adapt(_app, page, source):
    text = source[0]
    folder = FILES.parent
    if page.startswith("sources/"):
        folder = (ROOT / page.removeprefix("sources/")).parent
    if not language_of(Path(page)):
        text = with_links_of_pages(text, folder, page)
    # Doctest ends the output of an example at a blank line.
    source[0] = LAST_BLANK_LINE.sub("\n```", text)


def setup(app):
    app.connect("builder-inited", write_files)
    app.connect("source-read", adapt)
    return {"parallel_read_safe": True}
