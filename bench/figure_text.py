# Formats times, ratios, limits and counts for tables and pages.

import re

from operation import OURS, Kind

WIDTH = 15  # of a column on the screen


def time_text(seconds):
    for unit, scale in (("s", 1), ("ms", 1e3), ("us", 1e6)):
        if seconds * scale >= 1:
            return f"{seconds * scale:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"


def figure(value, kind=Kind.TIME):
    if kind in (Kind.PEAK, Kind.GROWTH):
        return f"{value:.2f} x"
    if kind is Kind.HELD:
        return f"{value / 1e6:.4g} MB" if value >= 1e6 else f"{value:.0f} B"
    return time_text(value)


def ratio_text(ratio, digits=2):
    return f"{ratio:.{digits}f}" if ratio < 10 else f"{ratio:.0f}"


def cells(medians, columns, kind=Kind.TIME):
    """The medians of the columns, each with the ratio of ours to it; "-" for an unknown one."""
    for column in columns:
        text = figure(medians[column], kind) if column in medians else "-"
        if column != OURS and {column, OURS} <= medians.keys():
            text += f" ({ratio_text(medians[OURS] / medians[column])})"
        yield text


def limit_cells(row):
    """The limit of a row of job results, with the ratio that it is for, and the verdict."""
    if not (limit := row["limit"]):
        return "-", "-"
    kind, peer = Kind(row["figures"]), limit["peer"]
    if peer:
        text = f"{limit['ratio']:g} of {peer} ({ratio_text(row['ratios'][peer])})"
    else:
        text = figure(limit["ratio"], kind) + (" and 1 MiB" if kind is Kind.PEAK else "")
    verdict = "holds" if row["holds"] else "MISSED"
    if limit["aim"]:
        text += f", aim {limit['aim']:g}"
        verdict += ", aim met" if row["ratios"][peer] <= limit["aim"] else ""
    return text, verdict


def aligned(texts):
    """One line of a table on the screen: names of columns, or cells."""
    return " ".join(text.rjust(WIDTH) for text in texts)


def count_text(count):
    """Numbers below 10000 as they are; larger ones as 10^6, 3x10^6."""
    if count < 10_000:
        return str(count)
    first, power = f"{count:.2g}".split("e+")
    return ("" if first == "1" else f"{first}x") + f"10^{int(power)}"


def slug(title):
    """The anchor of a section of a page, which is also the name of its picture."""
    return re.sub(r"[^\w -]", "", title.lower()).replace(" ", "-")


def table(head, rows, numbers=0):
    """A Markdown table; the last `numbers` columns are aligned to the right."""
    rule = ["---"] * (len(head) - numbers) + ["---:"] * numbers
    return "\n".join(f"| {' | '.join(line)} |" for line in [head, rule, *rows])
