"""Types of velmar.transport; the documentation is in the module itself."""

from typing import Any

from typing_extensions import Buffer

from velmar._array import Array

__all__ = [
    "VERSION",
    "pack",
    "register_dask",
    "register_multiprocessing",
    "register_pickle",
    "register_ray",
    "unpack",
    "unregister_dask",
    "unregister_multiprocessing",
    "unregister_pickle",
    "unregister_ray",
]

VERSION: int

def pack(array: Array[Any]) -> tuple[dict[str, Any], list[memoryview]]: ...
def unpack(header: dict[str, Any], frames: list[Any] | tuple[Buffer, ...]) -> Any: ...
def register_multiprocessing() -> None: ...
def unregister_multiprocessing() -> None: ...
def register_pickle() -> None: ...
def unregister_pickle() -> None: ...
def register_dask(client: Any = None) -> None: ...
def unregister_dask(client: Any = None) -> None: ...
def register_ray() -> None: ...
def unregister_ray() -> None: ...
