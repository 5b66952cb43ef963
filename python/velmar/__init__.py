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


# Helpers and the modules that have them. They are imported on first use, because most programs do
# not need them.
_HELPERS = {
    "asarray": "conversion",
    "asnumpy": "conversion",
    "html": "look",
    "load": "npy",
    "load_ipython_extension": "notebook",
    "save": "npy",
    "summary": "look",
    "unload_ipython_extension": "notebook",
}
_SUBMODULES = ("conversion", "look", "notebook", "npy", "transport")


def _version() -> str:
    from importlib.metadata import PackageNotFoundError, version
    from pathlib import Path

    import velmarmultidimarrayforpython as module

    try:
        return version(module.__name__)
    except PackageNotFoundError:
        pass
    # Not installed: the build writes the version beside the module.
    file = Path(module.__file__).with_name(f"{module.__name__}.version")
    try:
        return file.read_text(encoding="ascii").strip()
    except OSError:
        raise AttributeError(
            f"module {__name__!r} has no '__version__': the package has no metadata, and there is"
            f" no file {file.name!r} beside the module"
        ) from None


def __getattr__(name: str) -> object:
    from importlib import import_module

    if name == "__version__":
        found: object = _version()
    elif name in _SUBMODULES:
        found = import_module(f"{__name__}.{name}")
    elif name in _HELPERS:
        found = getattr(import_module(f"{__name__}.{_HELPERS[name]}"), name)
    else:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    globals()[name] = found
    return found


def __dir__() -> list[str]:
    return sorted({*globals(), *_HELPERS, *_SUBMODULES, "__version__"})
