"""The array classes. The type parameter of each is the result of an integer subscript.

A matrix of doubles is a `double[double[float]]`; its rows are `double[float]`, and a subscript of
a row gives a `float`. A complex matrix is a `double[double[complex]]`. If the number of dimensions
of a result is not known, its type is `double[Any]`, or `double` for short. Only type checkers
support the brackets: quote such an annotation, or begin the file with
`from __future__ import annotations`.
"""

from typing import Any, Generic, Literal, Self, final, overload

from typing_extensions import Buffer, TypeVar

from velmar import conversion as conversion
from velmar import look as look
from velmar import notebook as notebook
from velmar import npy as npy
from velmar import transport as transport
from velmar._array import Array, Flat, HasArrayMethod, Nested, SequenceLike, TwoDimensions, UpToTwo
from velmar.conversion import asarray as asarray
from velmar.conversion import asnumpy as asnumpy
from velmar.look import html as html
from velmar.look import summary as summary
from velmar.notebook import load_ipython_extension as load_ipython_extension
from velmar.notebook import unload_ipython_extension as unload_ipython_extension
from velmar.npy import load as load
from velmar.npy import save as save

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

__version__: str

_Item = TypeVar("_Item", default=Any)

@final
class MCPyIter(Generic[_Item]):
    """The result of iter(a). It does not keep the array alive; keep a reference to the array."""

    def __iter__(self) -> Self: ...
    def __next__(self) -> _Item:
        """The next view or number.

        Raises RuntimeError if the array no longer exists or the iterator was not made by iter(a).
        """

@final
class double(
    Array[
        _Item,
        _Item,
        float,
        float,
        double[float],
        double[double[float]],
        double[double[complex]],
        double[Any],
    ]
):
    """64-bit floating-point numbers; 8 bytes, format d."""

@final
class single(
    Array[
        _Item,
        _Item,
        float,
        float,
        single[float],
        single[single[float]],
        single[single[complex]],
        single[Any],
    ]
):
    """32-bit floating-point numbers; larger ones become infinity; 4 bytes, format f."""

@final
class int8(
    Array[
        _Item,
        _Item,
        int,
        int,
        int8[int],
        int8[int8[int]],
        int8[int8[complex]],
        int8[Any],
    ]
):
    """8-bit integers from -128 to 127; 1 byte, format b."""

@final
class uint8(
    Array[
        _Item,
        _Item,
        int,
        int,
        uint8[int],
        uint8[uint8[int]],
        uint8[uint8[complex]],
        uint8[Any],
    ]
):
    """8-bit integers from 0 to 255; 1 byte, format B."""

@final
class int16(
    Array[
        _Item,
        _Item,
        int,
        int,
        int16[int],
        int16[int16[int]],
        int16[int16[complex]],
        int16[Any],
    ]
):
    """16-bit integers from -32768 to 32767; 2 bytes, format h."""

@final
class uint16(
    Array[
        _Item,
        _Item,
        int,
        int,
        uint16[int],
        uint16[uint16[int]],
        uint16[uint16[complex]],
        uint16[Any],
    ]
):
    """16-bit integers from 0 to 65535; 2 bytes, format H."""

@final
class int32(
    Array[
        _Item,
        _Item,
        int,
        int,
        int32[int],
        int32[int32[int]],
        int32[int32[complex]],
        int32[Any],
    ]
):
    """32-bit integers from -2147483648 to 2147483647; 4 bytes, format i."""

@final
class uint32(
    Array[
        _Item,
        _Item,
        int,
        int,
        uint32[int],
        uint32[uint32[int]],
        uint32[uint32[complex]],
        uint32[Any],
    ]
):
    """32-bit integers from 0 to 4294967295; 4 bytes, format I."""

@final
class int64(
    Array[
        _Item,
        _Item,
        int,
        int,
        int64[int],
        int64[int64[int]],
        int64[int64[complex]],
        int64[Any],
    ]
):
    """64-bit integers from -9223372036854775808 to 9223372036854775807; 8 bytes, format q."""

@final
class uint64(
    Array[
        _Item,
        _Item,
        int,
        int,
        uint64[int],
        uint64[uint64[int]],
        uint64[uint64[complex]],
        uint64[Any],
    ]
):
    """64-bit integers from 0 to 18446744073709551615; 8 bytes, format Q."""

@final
class logical(
    Array[
        _Item,
        _Item,
        complex,
        int,
        logical[bool],
        logical[logical[bool]],
        logical[Any],
        logical[Any],
    ]
):
    """True or False, never complex; 1 byte, format ?. All numbers other than 0 become True."""

    @overload
    def __new__(
        cls,
        initializer: memoryview[Any] | HasArrayMethod,
        size: SequenceLike[int] | None = None,
        vector: None = None,
        is_complex: Literal[False] = False,
    ) -> logical[Any]:
        """An array of truth values. The arguments are those of the other classes; see double.

        Raises TypeError if is_complex is True.
        """

    @overload
    def __new__(
        cls,
        initializer: UpToTwo[complex] | None = None,
        size: TwoDimensions | None = None,
        vector: Flat[complex] | None = None,
        is_complex: Literal[False] = False,
    ) -> logical[logical[bool]]: ...
    @overload
    def __new__(
        cls,
        initializer: complex | Nested[complex] | Buffer | None = None,
        size: SequenceLike[int] | None = None,
        vector: Flat[complex] | None = None,
        is_complex: Literal[False] = False,
    ) -> logical[Any]: ...
