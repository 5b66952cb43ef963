"""Sample values and formats for arrays built from the memory of other objects."""

from __future__ import annotations

from helpers.arrays import CLASS_ROWS, ElementClass
from helpers.failures import Failure

# Different letters with the same meaning.
SYNONYMS = {("?", "B"), ("B", "?")}

# The NumPy dtype of each class's elements.
DTYPES = {row.word: row.word for row in CLASS_ROWS} | {
    "double": "float64",
    "single": "float32",
    "logical": "bool",
}


def same_format(given: str, wanted: str, itemsize: int) -> bool:
    """Whether a letter means the same elements as `wanted`; a long is matched by its width."""
    if given in ("l", "L"):
        narrow, wide = ("i", "q") if given == "l" else ("I", "Q")
        return wanted == (narrow if itemsize == 4 else wide)
    return given == wanted or (given, wanted) in SYNONYMS


def incompatible(given: str, wanted: str) -> Failure:
    return Failure(
        BufferError,
        f"input buffer format ('{given}') is not compatible with output format ('{wanted}'); "
        "use a different input or output type",
    )


def not_complex(given: str) -> Failure:
    return Failure(
        BufferError,
        f"input buffer format ('{given}') does not begin with 'Z', but output type is complex",
    )


def values_of(row: ElementClass) -> list:
    """Two rows of three elements, the limits of the class among them."""
    if row.kind == "float":
        return [0.0, -0.5, row.high, row.low, 2.0**-20, -3.0]
    if row.kind == "logical":
        return [True, False, False, True, True, False]
    return [int(row.low), int(row.high), 0, 1, 2, 100]
