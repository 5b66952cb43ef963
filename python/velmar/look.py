"""`html` and `summary` show the class, the shape and some elements of an array as a table.

They read only the elements that they show, so the cost does not depend on the size of the array.
"""

from __future__ import annotations

from collections.abc import Iterator
from html import escape as _escaped
from math import prod
from typing import TYPE_CHECKING, Any, NamedTuple

import velmar

if TYPE_CHECKING:
    from velmar._array import Array  # pyright: ignore[reportMissingModuleSource]

__all__ = ["Html", "html", "summary"]

_CLASSES = (
    velmar.double,
    velmar.single,
    velmar.int8,
    velmar.uint8,
    velmar.int16,
    velmar.uint16,
    velmar.int32,
    velmar.uint32,
    velmar.int64,
    velmar.uint64,
    velmar.logical,
)
_GAP = "..."
# The characters that a number may need in addition to its digits: sign, point, zeros.
_ROOM = 4


class Html(str):
    """HTML text that notebooks display as a table."""

    __slots__ = ()

    def _repr_html_(self) -> str:
        return str(self)


class _Limits(NamedTuple):
    """The maximum that is shown; None for `digits` shows all digits."""

    rows: int
    columns: int
    pages: int
    digits: int | None


class _Page(NamedTuple):
    """The shown part of two dimensions. Omitted columns appear as a cell in each row, omitted rows
    as a row.
    """

    label: str
    column_labels: list[str]
    row_labels: list[str]
    rows: list[list[str]]


def html(
    a: Array[Any],
    *,
    title: str | None = None,
    rows: int = 10,
    columns: int = 8,
    pages: int = 4,
    digits: int | None = 6,
) -> Html:
    """A small HTML table of an array or a view. Notebooks display it as a table.

    a -- an array of any class, or a view
    title -- a text above the table
    rows, columns, pages -- the maximum of each; those in the middle are omitted. A page shows the
        last two dimensions for one choice of the subscripts before them
    digits -- the number of significant digits. A number whose exact text is at most four
        characters longer is shown exactly. None shows all numbers exactly

    Raises TypeError if a is not an array, ValueError for limits that are not positive integers,
    and RuntimeError for a view whose array no longer exists.
    """
    limits = _checked("html", a, rows, columns, pages, digits)
    lines = ["<div>"]
    if title is not None:
        lines.append(f"<p><strong>{_escaped(title)}</strong></p>")
    lines.append(f"<p>{_escaped(_heading(a))}</p>")
    for page in _pages(a, limits):
        lines += [f"<p>{_escaped(page)}</p>"] if isinstance(page, str) else _page_as_html(page)
    lines.append("</div>")
    return Html("\n".join(lines))


def summary(
    a: Array[Any],
    *,
    title: str | None = None,
    rows: int = 10,
    columns: int = 8,
    pages: int = 4,
    digits: int | None = 6,
) -> str:
    """The same as `html`, as plain text for printing."""
    limits = _checked("summary", a, rows, columns, pages, digits)
    lines = [] if title is None else [title]
    lines.append(_heading(a))
    for page in _pages(a, limits):
        lines += [page] if isinstance(page, str) else _page_as_text(page)
    return "\n".join(lines)


def _checked(
    name: str, a: object, rows: int, columns: int, pages: int, digits: int | None
) -> _Limits:
    if not isinstance(a, _CLASSES):
        raise TypeError(f"{name}() must be passed an array, not {type(a).__name__!r}.")
    limits = _Limits(rows, columns, pages, digits)
    for word, value in limits._asdict().items():
        if word == "digits" and value is None:
            continue
        if not isinstance(value, int) or value < 1:
            wanted = "a positive integer or None" if word == "digits" else "a positive integer"
            raise ValueError(f"value of {word!r} must be {wanted}.")
    return limits


def _heading(a: Array[Any]) -> str:
    shape = a.size
    name = f"{type(a).__module__}.{type(a).__name__}"
    dimensions = f"a row of {shape[0]}" if len(shape) == 1 else " by ".join(map(str, shape))
    parts = [name, dimensions]
    if a._is_complex:
        parts.append("complex")
    if prod(shape) == 0:
        parts.append("no elements")
    return ", ".join(parts)


def _shown(length: int, limit: int) -> list[int | None]:
    """The positions that are shown; None in the middle stands for the omitted ones."""
    if length <= limit:
        return list(range(length))
    behind = limit // 2
    return [*range(limit - behind), None, *range(length - behind, length)]


def _pages(a: Array[Any], limits: _Limits) -> Iterator[_Page | str]:
    """The pages of an array, with a text in place of the omitted ones."""
    shape = a.size
    if prod(shape) == 0:
        return
    count = prod(shape[:-2])
    numbers = _shown(count, limits.pages)
    for number in numbers:
        if number is None:
            left_out = count - len(numbers) + 1
            yield f"{_GAP} {left_out} more {'page' if left_out == 1 else 'pages'}"
        else:
            yield _page(a, _position(number, shape[:-2]), limits)


def _position(number: int, lengths: tuple[int, ...]) -> list[int]:
    """The subscripts of a page; the last one varies fastest."""
    position: list[int] = []
    for length in reversed(lengths):
        number, index = divmod(number, length)
        position.append(index)
    return position[::-1]


def _page(a: Any, position: list[int], limits: _Limits) -> _Page:
    page = a
    for index in position:
        page = page[index]
    *lengths, width = page.size
    columns = _shown(width, limits.columns)

    def cells(row: Any) -> list[str]:
        return [_GAP if i is None else _number(row[i], limits.digits) for i in columns]

    if lengths:
        chosen = _shown(lengths[0], limits.rows)
        rows = [[_GAP] * len(columns) if i is None else cells(page[i]) for i in chosen]
        row_labels = _labels(chosen)
    else:
        rows, row_labels = [cells(page)], [""]
    label = "".join(f"[{index}]" for index in position)
    return _Page(label, _labels(columns), row_labels, rows)


def _labels(positions: list[int | None]) -> list[str]:
    return [_GAP if position is None else str(position) for position in positions]


def _number(value: complex, digits: int | None) -> str:
    """The exact text of a number if it is short, otherwise `digits` significant digits."""
    text = repr(value)
    if digits is None or isinstance(value, int):
        return text
    if isinstance(value, complex):
        return text if len(text) <= 2 * (digits + _ROOM) else f"({value:.{digits}g})"
    return text if len(text) <= digits + _ROOM else f"{value:.{digits}g}"


def _page_as_text(page: _Page) -> list[str]:
    table = [["", *page.column_labels]]
    table += [[label, *cells] for label, cells in zip(page.row_labels, page.rows, strict=True)]
    widths = [max(map(len, column)) for column in zip(*table, strict=True)]
    lines = [page.label] if page.label else []
    for cells in table:
        padded = [cell.rjust(width) for cell, width in zip(cells, widths, strict=True)]
        lines.append("  ".join(padded))
    return lines


def _page_as_html(page: _Page) -> list[str]:
    def row(label: str, cells: list[str], tag: str) -> str:
        return (
            f"<tr>{label}" + "".join(f"<{tag}>{_escaped(cell)}</{tag}>" for cell in cells) + "</tr>"
        )

    lines = ['<table style="text-align: right; border-spacing: 1em 0">']
    if page.label:
        lines.append(f'<caption style="text-align: left">{_escaped(page.label)}</caption>')
    lines += ["<thead>", row("<td></td>", page.column_labels, "th"), "</thead>", "<tbody>"]
    for label, cells in zip(page.row_labels, page.rows, strict=True):
        lines.append(row(f"<th>{_escaped(label)}</th>", cells, "td"))
    return [*lines, "</tbody>", "</table>"]
