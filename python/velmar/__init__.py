"""The array classes, under the module name that their text forms and pickles use."""

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
    # Imports look.py on first use, because most programs do not need it.
    if name not in ("html", "summary"):
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    from velmar import look

    globals().update(html=look.html, summary=look.summary)
    return globals()[name]


def __dir__() -> list[str]:
    return sorted({*globals(), "html", "summary"})
