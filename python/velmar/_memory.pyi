"""Types of velmar._memory; the documentation is in the module itself."""

from typing import Any

LETTERS: dict[Any, Any]
MOST_DIMENSIONS_OF_A_MEMORYVIEW: int

def size_of_element(cls: Any, is_complex: bool) -> int: ...
def frame_of(array: Any) -> memoryview: ...
def exports_its_storage(array: Any) -> bool: ...
def array_from_bytes(
    cls: Any,
    is_complex: bool,
    raw: memoryview,
    size: tuple[int, ...],
    row_major: bool = False,
) -> Any: ...
