"""What all array classes have. This is for type checkers: there is no such module to import."""

from array import array
from typing import Any, ClassVar, Generic, Literal, Protocol, Self, TypeAlias, overload

from typing_extensions import Buffer, TypeVar

from velmar import MCPyIter

_T = TypeVar("_T")
_T_co = TypeVar("_T_co", covariant=True)

# What an integer subscript gives, twice: views of views are told apart by the first, and by the
# second a float from a complex, which checkers take for a wider float.
_Item_co = TypeVar("_Item_co", covariant=True, default=Any)
_Item = TypeVar("_Item", default=Any)
# Numbers that a real array takes when it is made, and when it is written to.
_Given = TypeVar("_Given", default=Any)
_Written = TypeVar("_Written", default=Any)
# The class itself: rows and matrices, and arrays of unknown dimensions.
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
# Up to five levels. No recursion: a str is a sequence of itself for ever.
Nested: TypeAlias = SequenceLike[
    _T | SequenceLike[_T | SequenceLike[_T | SequenceLike[_T | SequenceLike[_T]]]]
]
TwoDimensions: TypeAlias = tuple[int] | tuple[int, int]

# Fits where it is not known what a subscript gives, and nowhere else.
class _Nothing: ...

_Unsure: TypeAlias = Array[Any, _Nothing]
_FloatRow: TypeAlias = Array[Any, float]
_IntegerRow: TypeAlias = Array[Any, int] | Array[Any, bool]
_RealRow: TypeAlias = _FloatRow | _IntegerRow
_ComplexRow: TypeAlias = Array[Any, complex]
# Of any number of dimensions.
_Real: TypeAlias = _RealRow | Array[_Real, Any]
_Complex: TypeAlias = _ComplexRow | Array[_Complex, Any]
_RealRows: TypeAlias = Array[_Real, Any]
_ComplexRows: TypeAlias = Array[_Complex, Any]

class Array(Generic[_Item_co, _Item, _Given, _Written, _Row, _Matrix, _ComplexMatrix, _Unknown]):
    # There is no such class: all eleven have these themselves. What a call makes is a parameter of
    # this one, which mypy does not like in the declaration and reads right in the use.
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
            or an object that exports memory, which is copied and not converted
        size -- the dimensions: a sequence of ints from 0 up. Flat data fills them column by
            column; without data the elements are zeros
        vector -- a flat sequence, in place of the initializer
        is_complex -- True for complex elements; nothing but True and False is taken

        Raises ShapeError if the number of elements is another than size says, SizeError if only
        the dimensions are others; ValueError for nesting that is not rectangular and for text;
        TypeError for numbers of a kind that the class does not take and for wrong arguments;
        OverflowError for numbers beyond the element's range; BufferError for memory of another
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
        """The length of the dimension that the next subscript addresses."""

    @overload
    def __getitem__(self, key: int, /) -> _Item_co:
        """a[i] fixes a dimension, a[i:j:k] narrows it; both are views of the same elements.

        An integer that fixes the last dimension gives a number: float, int, bool or complex.
        A slice does not go on to the next dimension: a[1:3][0] is row 1. There is no a[i, j].

        Raises IndexError for a position that is not there, RuntimeError for any other kind of
        subscript and for a view whose array is gone, ValueError for a step of 0.
        """

    @overload
    def __getitem__(self, key: slice, /) -> Self: ...
    @overload
    def __setitem__(self: _RealRow, key: int, value: _Written, /) -> None:
        """Writes to the elements that all views share, without broadcasting.

        The right side is a number for an element, else a sequence: nested like the row for
        a[i], flat for a slice of a row, in any rectangular nesting for a slice of rows.

        Raises ValueError for another shape or another number of elements, TypeError and
        OverflowError for numbers that the class cannot hold; nothing is written then, but a
        slice of rows has been filled as far as the numbers went.
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
        """Walks the dimension that the next subscript addresses.

        Neither the iterator nor its rows keep the array alive: keep a name for it, or a row
        raises RuntimeError.
        """

    def __eq__(self, other: object, /) -> bool:
        """Whether class, nesting and all numbers agree; one bool."""

    __hash__: ClassVar[None]  # type: ignore[assignment]  # pyright: ignore[reportIncompatibleMethodOverride]
    def __buffer__(self, flags: int, /) -> memoryview:
        """Read-only memory, column by column; that of a view is a copy made once."""

    def __reduce__(self) -> tuple[type[Self], tuple[dict[str, bool], list[Any]]]:
        """The class and its arguments: the keywords and the elements as nested lists."""

    @overload
    def reshape(self: _Unsure, *dimensions: int) -> _Unknown:
        """Lays other dimensions over the same elements, in place; returns the array itself.

        No element moves: the order is that of storage, column by column. All views see it.
        The dimensions are ints from 0 up, or one sequence of them.

        Raises ShapeError for another number of elements, ValueError for arguments that are no
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
    # Views of rows are rows, but their clones are matrices; so the overloads overlap.
    @overload
    def clone(self: _Unsure) -> _Unknown:  # type: ignore[overload-overlap]
        """An array of its own with the elements that are seen here; a row comes out 1 by N.

        The elements are read once for each object: a second clone of it is like the first,
        whatever was written in between. Clone a fresh view, a[:], after a write.

        Raises SystemError (from RuntimeError) for a row whose array is gone.
        """

    @overload
    def clone(self: _RealRow) -> _Matrix: ...  # type: ignore[overload-overlap]
    @overload
    def clone(self: _ComplexRow) -> _ComplexMatrix: ...  # type: ignore[overload-overlap]
    @overload
    def clone(self) -> Self: ...
    def real(self: _Complex) -> _Row:
        """The real parts of all elements of the storage, as one row in storage order.

        Raises ValueError for an array that is not complex, MemoryError.
        """

    def imag(self: _Complex) -> _Row:
        """The imaginary parts of all elements of the storage, as one row in storage order.

        Raises ValueError for an array that is not complex, MemoryError.
        """

    def noncomplex(self: _Real) -> _Row:
        """All elements of the storage, as one row in storage order.

        Raises ValueError for a complex array, MemoryError.
        """

    @overload
    def toarray(self: _Unsure) -> array[Any]:
        """An array.array of the numbers of one row, which must be real.

        Raises RuntimeError for anything else; the reason is on standard error.
        """

    @overload
    def toarray(self: _FloatRow) -> array[float]: ...
    @overload
    def toarray(self: _IntegerRow) -> array[int]: ...
    def tomemoryview(self) -> memoryview:
        """The same as memoryview(a): read-only, column by column.

        Raises RuntimeError for a view that cannot be copied any more.
        """

    def buffer_info(self) -> tuple[int, int]:
        """The address of the storage and the number of its elements, also of a view."""

    def get_bytewise_strides(self) -> tuple[int, ...]:
        """For each dimension of the storage the bytes from one position to the next."""

    @property
    def size(self) -> tuple[int, ...]:
        """The dimensions of what is seen: (3,) of a row of three."""

    @property
    def _size(self) -> tuple[int, ...]:
        """The same as size."""

    @property
    def itemsize(self) -> int:
        """Bytes of an element; of both parts if it is complex."""

    @property
    def _is_complex(self) -> bool:
        """Whether the elements are complex."""

    @property
    def _real(self) -> _Row:
        """The same as real(), made anew at each look."""

    @property
    def _imag(self) -> _Row:
        """The same as imag(), made anew at each look."""

    @property
    def _data(self) -> _Row:
        """The same as noncomplex(), made anew at each look."""
