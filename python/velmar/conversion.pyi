"""Types of velmar.conversion; the documentation is in the module itself."""

from typing import Any, TypeVar, overload

from velmar import double, int8, int16, int32, int64, logical, single, uint8, uint16, uint32, uint64
from velmar._array import Array

__all__ = ["asarray", "asnumpy"]

_Cls = TypeVar(
    "_Cls",
    double[Any],
    single[Any],
    int8[Any],
    uint8[Any],
    int16[Any],
    uint16[Any],
    int32[Any],
    uint32[Any],
    int64[Any],
    uint64[Any],
    logical[Any],
)
_Same = TypeVar("_Same", bound=Array[Any])

@overload
def asarray(x: _Same, cls: None = None) -> _Same: ...
@overload
def asarray(x: Any, cls: type[_Cls]) -> _Cls: ...
@overload
def asarray(x: Any, cls: None = None) -> Any: ...

# NumPy is optional, so its types cannot be named here.
def asnumpy(a: Array[Any]) -> Any: ...
