"""Shows arrays as tables in IPython and in notebooks, after `%load_ext velmar`."""

from __future__ import annotations

from typing import Any

from velmar._memory import LETTERS
from velmar.look import html, summary

__all__ = ["load_ipython_extension", "unload_ipython_extension"]


def load_ipython_extension(ipython: Any) -> None:
    """Makes IPython show arrays as `velmar.html` and `velmar.summary` do; `%load_ext velmar` calls
    it.

    Only the shown elements are read, so the cost does not depend on the size of the array. `repr`
    and `print` do not change.
    """
    formatters = ipython.display_formatter.formatters
    for cls in LETTERS:
        formatters["text/html"].for_type(cls, _as_html)
        formatters["text/plain"].for_type(cls, _as_text)


def unload_ipython_extension(ipython: Any) -> None:
    """Undoes load_ipython_extension(); `%unload_ext velmar` calls it."""
    formatters = ipython.display_formatter.formatters
    for kind, function in (("text/html", _as_html), ("text/plain", _as_text)):
        for cls in LETTERS:
            if formatters[kind].type_printers.get(cls) is function:
                formatters[kind].pop(cls)


def _as_html(a: Any) -> str | None:
    try:
        return str(html(a))
    except RuntimeError:
        return None  # a view without an array; the text says so


def _as_text(a: Any, printer: Any, cycle: bool) -> None:
    try:
        text = summary(a)
    except RuntimeError as error:
        text = f"velmar.{type(a).__name__}: {error}"
    # Within a list or a dict, only the class and the shape.
    is_alone = len(printer.stack) == 1
    printer.text(text if is_alone else f"<{text.partition(chr(10))[0]}>")
