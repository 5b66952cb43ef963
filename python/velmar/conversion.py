"""`asarray` makes arrays of the memory of other objects, `asnumpy` shows arrays to NumPy."""

import functools
import math
import re
import sys
from pickle import PickleBuffer
from typing import Any, NamedTuple

import velmar
from velmar._memory import LETTERS, array_from_bytes, exports_its_storage, singles_of, swapped

__all__ = ["asarray", "asnumpy"]

# A byte order, Z for complex, and the letter of the type. Records, text and repeats do not match.
_FORMAT = re.compile(r"([@=<>!^]?)(Z?)([?bBhHiIlLqQnNefd])")
# CPython 3.14 has letters of its own for complex numbers.
_COMPLEX_LETTERS = {"F": "Zf", "D": "Zd"}
# The class by the kind of number and the size. The width of C's long depends on the machine, so the
# size decides, not the letter.
_SIZES = {"b": (1,), "h": (2,), "i": (4,), "l": (4, 8), "q": (8,), "n": (4, 8)}
_SIGNED = {1: velmar.int8, 2: velmar.int16, 4: velmar.int32, 8: velmar.int64}
_UNSIGNED = {1: velmar.uint8, 2: velmar.uint16, 4: velmar.uint32, 8: velmar.uint64}
_OTHERS = {("?", 1): velmar.logical, ("f", 4): velmar.single, ("d", 8): velmar.double}
_HALF = ("e", 2)
_NUMPY_ATTRIBUTES = ("__array__", "__array_interface__", "__array_struct__")


class _Elements(NamedTuple):
    """What a format says. `cls` is the class of the parts; it is single for half precision."""

    cls: Any
    is_complex: bool
    is_swapped: bool
    is_half: bool
    is_that_of_class: bool  # the constructor takes such memory


def asarray(x: Any, cls: Any = None) -> Any:
    """An array of the class that fits the type of the elements of x.

    x -- an object with a buffer: array.array, bytes, memoryview, ctypes, NumPy; of any byte order,
        alignment and strides. Or an object with __array__ or __dlpack__, if NumPy is installed. Or
        an array, which comes back as it is. Or, with cls, all that cls accepts
    cls -- the class of the result. Elements of another class are converted as its constructor does

    The shape is that of x; one dimension of n becomes 1 by n, no dimension 1 by 1. Half precision
    becomes single, which holds all its values. Elements are copied once if their bytes are in the
    order of the machine and have no gaps, otherwise twice; an array of the wanted class is not
    copied. No element becomes a Python object, except of half precision and if cls is another
    class.

    Raises TypeError for elements of other types, and for data without a buffer if cls is None.
    Raises ValueError for a masked array with masked elements. With cls, raises what its constructor
    raises.
    """
    if cls is not None and not (isinstance(cls, type) and cls in LETTERS):
        raise TypeError(f"'cls' must be None or one of the eleven array classes, not {cls!r}.")
    if type(x) in LETTERS:
        return x if cls is None else _converted(x, cls)
    buffer = _buffer_of(x)
    if buffer is None:
        if cls is None:
            raise TypeError(
                f"asarray() needs 'cls' for {_name(x)}, which has no buffer. Name the class of its "
                "elements, for example cls=velmar.double."
            )
        if x is None:
            raise TypeError("asarray() needs data, not None.")
        return cls(initializer=x)
    found = _array_of_buffer(buffer, x)
    return found if cls is None else _converted(found, cls)


def _converted(a: Any, cls: Any) -> Any:
    if type(a) is cls:
        return a
    if math.prod(a.size):
        return cls(a, is_complex=a._is_complex)
    # Nested data cannot show the dimensions after one of length 0.
    return cls(size=_at_least_two(a.size), is_complex=a._is_complex)


def _at_least_two(shape: tuple[int, ...]) -> tuple[int, ...]:
    return (1,) * (2 - len(shape)) + shape


def _name(x: Any) -> str:
    cls = type(x)
    module = "" if cls.__module__ == "builtins" else f"{cls.__module__}."
    return f"'{module}{cls.__qualname__}'"


def _buffer_of(x: Any) -> memoryview | None:
    """The memory of x, or of NumPy's copy of it; None if x is a number or nested data."""
    _refuse_what_numpy_hides(x)
    try:
        return memoryview(x)
    except TypeError:
        reason: Exception | None = None
    except (BufferError, ValueError) as error:
        reason = error
    if isinstance(x, type):
        return None
    if any(hasattr(x, name) for name in _NUMPY_ATTRIBUTES):
        return _buffer_by_numpy(x, "asarray")
    if hasattr(x, "__dlpack__"):
        return _buffer_by_numpy(x, "from_dlpack")
    if reason is None:
        return None
    raise TypeError(
        f"asarray() cannot use the buffer of {_name(x)}: {reason}. Pass a copy of its elements."
    ) from reason


def _refuse_what_numpy_hides(x: Any) -> None:
    # The buffer of a masked array has no mask, and that of a single time is plain bytes.
    masked, numpy = sys.modules.get("numpy.ma"), sys.modules.get("numpy")
    if masked is not None and isinstance(x, masked.MaskedArray) and masked.is_masked(x):
        raise ValueError(
            f"asarray() would lose the mask of {_name(x)}. Pass x.filled(value) instead."
        )
    if numpy is not None and isinstance(x, numpy.datetime64 | numpy.timedelta64):
        raise _refused_by_numpy(x, x.dtype)


def _buffer_by_numpy(x: Any, function: str) -> memoryview:
    try:
        import numpy
    except ModuleNotFoundError as error:
        raise TypeError(
            f"asarray() needs NumPy for {_name(x)}, which has no buffer of its own. Install it, or "
            "pass nested lists and 'cls'."
        ) from error
    try:
        found = getattr(numpy, function)(x)
    except Exception as error:
        raise TypeError(
            f"asarray() cannot use {_name(x)}, because numpy.{function}() failed: {error}"
        ) from error
    _refuse_what_numpy_hides(found)
    try:
        return memoryview(found)
    except (BufferError, ValueError) as error:
        raise _refused_by_numpy(x, found.dtype) from error


def _refused_by_numpy(x: Any, dtype: Any) -> TypeError:
    return TypeError(
        f"asarray() cannot use {_name(x)} with elements of NumPy's type {dtype}, which no class can"
        " hold. Convert them first, for example with x.astype('int64') or x.astype('float32')."
    )


def _array_of_buffer(buffer: memoryview, x: Any) -> Any:
    elements = _elements_of(buffer.format, buffer.itemsize)
    if elements is None:
        raise _refused(buffer.format, x)
    cls, is_complex = elements.cls, elements.is_complex
    size = _at_least_two(buffer.shape)
    if not buffer.nbytes:
        return cls(size=size, is_complex=is_complex)
    if elements.is_that_of_class and buffer.contiguous:
        return cls(buffer, is_complex=is_complex)
    # Strides of both orders are allowed at once, for example for one dimension.
    row_major = not buffer.f_contiguous
    raw = PickleBuffer(buffer if buffer.contiguous else buffer.tobytes()).raw()
    if elements.is_half:
        raw = singles_of(raw, elements.is_swapped)
    elif elements.is_swapped:
        raw = swapped(raw, buffer.itemsize // (2 if is_complex else 1))
    return array_from_bytes(cls, is_complex, raw, size, row_major)


@functools.lru_cache(maxsize=256)
def _elements_of(text: str, itemsize: int) -> _Elements | None:
    """The meaning of the format of a buffer; None if no class can hold its elements."""
    match = _FORMAT.fullmatch(text[:-1] + _COMPLEX_LETTERS.get(text[-1:], text[-1:]))
    if match is None:
        return None
    order, z, letter = match.groups()
    size, odd = divmod(itemsize, 2 if z else 1)
    kind = letter.lower()
    is_half = (letter, size) == _HALF
    cls: Any = None
    if is_half:
        cls = velmar.single
    elif (letter, size) in _OTHERS:
        cls = _OTHERS[letter, size]
    elif size in _SIZES.get(kind, ()):
        cls = (_SIGNED if letter == kind else _UNSIGNED)[size]
    if cls is None or odd or (z and (is_half or cls is velmar.logical)):
        return None
    is_swapped = order in ((">", "!") if sys.byteorder == "little" else ("<",))
    return _Elements(cls, bool(z), is_swapped, is_half, text == z + LETTERS[cls])


def _refused(text: str, x: Any) -> TypeError:
    letter = text.lstrip("@=<>!^0123456789")[:1]
    if text.endswith("g"):
        remedy = (
            "Round them first: numpy.asarray(x).astype('float64'), or 'complex128' if they are"
            " complex."
        )
    elif letter == "O":
        remedy = "They are Python objects: pass numpy.asarray(x).tolist() and 'cls'."
    elif letter == "T":
        remedy = "They are records: pass one field, for example x['name'] of a NumPy array."
    elif letter == "c":
        remedy = "They are characters: pass memoryview(x).cast('B') for their codes."
    elif letter in ("s", "p", "u", "w"):
        remedy = "They are text: convert it to numbers first."
    else:
        remedy = "Convert them to numbers first."
    return TypeError(
        f"asarray() cannot use {_name(x)} with elements of format {text!r}, which no class can"
        f" hold. {remedy}"
    )


def asnumpy(a: Any) -> Any:
    """The elements of an array as a NumPy array with the shape a.size, which cannot be written to.

    a -- an array of any class, or a view. A row has one dimension

    A whole array is shown without a copy: later writes to it show in the result, and the result
    keeps it alive. A view is copied as it is now, column by column.

    Raises TypeError if a is not an array or has complex integers, which NumPy does not have;
    RuntimeError for a view whose array no longer exists; ModuleNotFoundError without NumPy.
    """
    if type(a) not in LETTERS:
        raise TypeError(f"asnumpy() must be passed an array, not {_name(a)}.")
    try:
        import numpy
    except ModuleNotFoundError as error:
        if error.name != "numpy":
            raise
        text = "asnumpy() needs the package 'numpy', which is not installed."
        raise ModuleNotFoundError(text, name="numpy") from error
    cls, size, is_complex = type(a), a.size, a._is_complex
    if is_complex and cls not in (velmar.double, velmar.single):
        raise TypeError(
            f"asnumpy() cannot show complex {cls.__name__} elements, because NumPy has no complex "
            "integers. Pass velmar.asarray(a, velmar.double)."
        )
    letters = {"f": "F", "d": "D"}[LETTERS[cls]] if is_complex else LETTERS[cls]
    if not math.prod(size):
        found = numpy.empty(size, letters)
        found.flags.writeable = False
        return found
    if not exports_its_storage(a):
        a = cls(a, is_complex=is_complex)
    return numpy.asarray(memoryview(a)).reshape(size, order="F")
