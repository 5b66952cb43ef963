"""Types of velmar.npy; the documentation is in the module itself."""

from os import PathLike
from typing import Any, Protocol

from velmar._array import Array

__all__ = ["load", "save"]

class _Readable(Protocol):
    def read(self, count: int, /) -> bytes: ...

class _Writable(Protocol):
    def write(self, data: memoryview, /) -> object: ...

def save(path: str | PathLike[str] | _Writable, a: Array[Any]) -> None: ...
def load(path: str | PathLike[str] | _Readable) -> Any: ...
