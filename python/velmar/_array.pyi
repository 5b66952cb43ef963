"""The common interface of the array classes, for type checkers only. It cannot be imported."""

from array import array
from typing import Any, ClassVar, Generic, Literal, Protocol, Self, TypeAlias, overload

from typing_extensions import Buffer, TypeVar

from velmar import MCPyIter

_T = TypeVar("_T")
_T_co = TypeVar("_T_co", covariant=True)

# The result of an integer subscript, twice. The covariant parameter distinguishes nested views. The
# invariant one distinguishes float from complex, because checkers accept a float as a complex.
_Item_co = TypeVar("_Item_co", covariant=True, default=Any)
_Item = TypeVar("_Item", default=Any)
# Numbers that a real array accepts in the constructor, and in assignments.
_Given = TypeVar("_Given", default=Any)
_Written = TypeVar("_Written", default=Any)
# The class itself as a row, a matrix, a complex matrix, and with unknown dimensions.
_Row = TypeVar("_Row", default=Any)
_Matrix = TypeVar("_Matrix", default=Any)
_ComplexMatrix = TypeVar("_ComplexMatrix", default=Any)
_Unknown = TypeVar("_Unknown", default=Any)

class SequenceLike(Protocol[_T_co]):
    def __len__(self) -> int: ...
    def __getitem__(self, key: int, /) -> _T_co: ...

class HasArrayMethod(Protocol):
    def __array__(self) -> Any: ...

Flat: TypeAlias = SequenceLike[_T]
UpToTwo: TypeAlias = _T | SequenceLike[_T | SequenceLike[_T]]
# Up to five levels. Not recursive, because a str is an endlessly nested sequence of itself.
Nested: TypeAlias = SequenceLike[
    _T | SequenceLike[_T | SequenceLike[_T | SequenceLike[_T | SequenceLike[_T]]]]
]
TwoDimensions: TypeAlias = tuple[int] | tuple[int, int]

# Matches only arrays for which the result of a subscript is not known.
class _Nothing: ...

_Unsure: TypeAlias = Array[Any, _Nothing]
_FloatRow: TypeAlias = Array[Any, float]
_IntegerRow: TypeAlias = Array[Any, int] | Array[Any, bool]
_RealRow: TypeAlias = _FloatRow | _IntegerRow
_ComplexRow: TypeAlias = Array[Any, complex]
# Any number of dimensions.
_Real: TypeAlias = _RealRow | Array[_Real, Any]
_Complex: TypeAlias = _ComplexRow | Array[_Complex, Any]
_RealRows: TypeAlias = Array[_Real, Any]
_ComplexRows: TypeAlias = Array[_Complex, Any]

class Array(Generic[_Item_co, _Item, _Given, _Written, _Row, _Matrix, _ComplexMatrix, _Unknown]):
    # Not a real base class: each of the eleven classes has these methods. __new__ returns a type
    # parameter; mypy rejects that in the declaration, but infers the right types from it.
    @overload
    def __new__(  # type: ignore[misc]
        cls,
        initializer: memoryview[Any] | HasArrayMethod,
        size: SequenceLike[int] | None = None,
        vector: None = None,
        is_complex: bool = False,
    ) -> _Unknown:
        """An array of numbers, with at least two dimensions.

        initializer -- a number (1 by 1), a flat sequence (1 by N), nested sequences (row by row),
            or an object with a buffer, which is copied without conversion
        size -- the dimensions, a sequence of non-negative ints. Flat data fills them column by
            column; without data the elements are zeros
        vector -- a flat sequence, instead of the initializer
        is_complex -- True for complex elements; must be True or False

        Raises ShapeError if the number of elements does not match size, SizeError if only the
        dimensions do not match; ValueError for nesting that is not rectangular and for text;
        TypeError for numbers of a kind that the class does not accept and for wrong arguments;
        OverflowError for numbers outside the element's range; BufferError for a buffer of another
        format than that of the class; MemoryError.
        """

    @overload
    def __new__(  # type: ignore[misc]
        cls,
        initializer: UpToTwo[_Given] | None = None,
        size: TwoDimensions | None = None,
        vector: Flat[_Given] | None = None,
        is_complex: Literal[False] = False,
    ) -> _Matrix: ...
    @overload
    def __new__(  # type: ignore[misc]
        cls,
        initializer: UpToTwo[complex] | None = None,
        size: TwoDimensions | None = None,
        vector: Flat[complex] | None = None,
        *,
        is_complex: Literal[True],
    ) -> _ComplexMatrix: ...
    @overload
    def __new__(  # type: ignore[misc]
        cls,
        initializer: _Given | Nested[_Given] | Buffer | None = None,
        size: SequenceLike[int] | None = None,
        vector: Flat[_Given] | None = None,
        is_complex: Literal[False] = False,
    ) -> _Unknown: ...
    @overload
    def __new__(  # type: ignore[misc]
        cls,
        initializer: complex | Nested[complex] | Buffer | None = None,
        size: SequenceLike[int] | None = None,
        vector: Flat[complex] | None = None,
        *,
        is_complex: bool,
    ) -> _Unknown: ...
    @overload
    def __new__(  # type: ignore[misc]
        cls,
        initializer: complex | Nested[complex] | Buffer | None,
        size: SequenceLike[int] | None,
        vector: Flat[complex] | None,
        is_complex: bool,
    ) -> _Unknown: ...
    def __len__(self) -> int:
        """The length of the dimension to which the next subscript applies."""

    @overload
    def __getitem__(self, key: int, /) -> _Item_co:
        """a[i] fixes a dimension, a[i:j:k] selects part of it; both are views of the same elements.

        An integer for the last dimension gives a number: float, int, bool or complex. The
        subscript after a slice applies to the same dimension: a[1:3][0] is row 1. a[i, j] is not
        supported.

        Raises IndexError for an index out of range, RuntimeError for any other kind of subscript
        and for a view whose array no longer exists, ValueError for a step of 0.
        """

    @overload
    def __getitem__(self, key: slice, /) -> Self: ...
    @overload
    def __setitem__(self: _RealRow, key: int, value: _Written, /) -> None:
        """Writes to the elements that all views share, without broadcasting.

        The value is a number for an element, otherwise a sequence: nested like the row for a[i],
        flat for a slice of a row, with any rectangular nesting for a slice of rows.

        Raises ValueError if the shape or the number of elements does not match, TypeError and
        OverflowError for numbers that the class cannot hold. After an error the elements are
        unchanged, except for a slice of rows, which keeps the numbers written before the error.
        """

    @overload
    def __setitem__(self: _RealRow, key: slice, value: Flat[_Written], /) -> None: ...
    @overload
    def __setitem__(self: _ComplexRow, key: int, value: complex, /) -> None: ...
    @overload
    def __setitem__(self: _ComplexRow, key: slice, value: Flat[complex], /) -> None: ...
    @overload
    def __setitem__(self: _RealRows, key: int, value: Nested[_Written], /) -> None: ...
    @overload
    def __setitem__(self: _RealRows, key: slice, value: _Written | Nested[_Written], /) -> None: ...
    @overload
    def __setitem__(self: _ComplexRows, key: int, value: Nested[complex], /) -> None: ...
    @overload
    def __setitem__(
        self: _ComplexRows,
        key: slice,
        value: complex | Nested[complex],
        /,
    ) -> None: ...
    def __iter__(self) -> MCPyIter[_Item_co]:
        """Iterates over the dimension to which the next subscript applies.

        Neither the iterator nor its rows keep the array alive. Keep a reference to the array;
        otherwise a row raises RuntimeError.
        """

    def __eq__(self, other: object, /) -> bool:
        """Whether the class, the nesting and all numbers are equal; a single bool."""

    __hash__: ClassVar[None]  # type: ignore[assignment]  # pyright: ignore[reportIncompatibleMethodOverride]
    def __buffer__(self, flags: int, /) -> memoryview:
        """Read-only memory, column by column. A view exports a copy, made once for each view."""

    def __reduce__(self) -> tuple[type[Self], tuple[dict[str, bool], list[Any]]]:
        """The class and its arguments: a dict of keywords and the elements as nested lists."""

    @overload
    def reshape(self: _Unsure, *dimensions: int) -> _Unknown:
        """Changes the dimensions of the array in place; returns the array itself.

        The elements keep their storage order, column by column. The change applies to all views.
        The dimensions are non-negative ints, or one sequence of them.

        Raises ShapeError if the number of elements differs, ValueError for arguments that are not
        dimensions, RuntimeError for a row (clone it first).
        """

    @overload
    def reshape(self: _RealRows, rows: int, columns: int, /) -> _Matrix: ...
    @overload
    def reshape(self: _ComplexRows, rows: int, columns: int, /) -> _ComplexMatrix: ...
    @overload
    def reshape(self, *dimensions: int) -> _Unknown: ...
    @overload
    def reshape(self, dimensions: SequenceLike[int], /) -> _Unknown: ...
    # A row is a view with one dimension, but its clone is a matrix; so the overloads overlap.
    @overload
    def clone(self: _Unsure) -> _Unknown:  # type: ignore[overload-overlap]
        """An independent array with the elements of this array or view; a row becomes 1 by N.

        Each object reads its elements only once: a second clone equals the first, even after a
        write in between. After a write, clone a new view, a[:].

        Raises SystemError (from RuntimeError) for a row whose array no longer exists.
        """

    @overload
    def clone(self: _RealRow) -> _Matrix: ...  # type: ignore[overload-overlap]
    @overload
    def clone(self: _ComplexRow) -> _ComplexMatrix: ...  # type: ignore[overload-overlap]
    @overload
    def clone(self) -> Self: ...
    def real(self: _Complex) -> _Row:
        """The real parts of all elements of the storage, as a row in storage order.

        Raises ValueError for an array that is not complex, MemoryError.
        """

    def imag(self: _Complex) -> _Row:
        """The imaginary parts of all elements of the storage, as a row in storage order.

        Raises ValueError for an array that is not complex, MemoryError.
        """

    def noncomplex(self: _Real) -> _Row:
        """All elements of the storage, as a row in storage order.

        Raises ValueError for a complex array, MemoryError.
        """

    @overload
    def toarray(self: _Unsure) -> array[Any]:
        """An array.array with the numbers of a row, which must be real.

        Raises RuntimeError for anything else; the reason is printed to standard error.
        """

    @overload
    def toarray(self: _FloatRow) -> array[float]: ...
    @overload
    def toarray(self: _IntegerRow) -> array[int]: ...
    def tomemoryview(self) -> memoryview:
        """The same as memoryview(a): read-only, column by column.

        Raises RuntimeError for a view that can no longer be copied.
        """

    def buffer_info(self) -> tuple[int, int]:
        """The address of the storage and the number of its elements, also for a view."""

    def get_bytewise_strides(self) -> tuple[int, ...]:
        """The distance in bytes between neighbours in each dimension of the storage."""

    @property
    def size(self) -> tuple[int, ...]:
        """The dimensions of the array or view; (3,) for a row of three."""

    @property
    def _size(self) -> tuple[int, ...]:
        """The same as size."""

    @property
    def itemsize(self) -> int:
        """The size of an element in bytes; of both parts if it is complex."""

    @property
    def _is_complex(self) -> bool:
        """Whether the elements are complex."""

    @property
    def _real(self) -> _Row:
        """The same as real(); each access creates a new array."""

    @property
    def _imag(self) -> _Row:
        """The same as imag(); each access creates a new array."""

    @property
    def _data(self) -> _Row:
        """The same as noncomplex(); each access creates a new array."""
