"""The array classes under the names that their text forms and pickles carry."""

from velmarmultidimarrayforpython import (
    MCPyIter,
    double,
    int8,
    int16,
    int32,
    int64,
    logical,
    single,
    uint8,
    uint16,
    uint32,
    uint64,
)

__all__ = [
    "MCPyIter",
    "double",
    "int8",
    "int16",
    "int32",
    "int64",
    "logical",
    "single",
    "uint8",
    "uint16",
    "uint32",
    "uint64",
]


def __getattr__(name: str) -> object:
    # Few programs look at arrays as tables, and all of them pay for an import.
    if name not in ("html", "summary"):
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    from velmar import look

    globals().update(html=look.html, summary=look.summary)
    return globals()[name]


def __dir__() -> list[str]:
    return sorted({*globals(), "html", "summary"})
