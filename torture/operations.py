"""Every operation of the module, as a function of an array that is made for it.

The results of two calls can be compared. `kept` names the memory that a call is required to keep,
for the search for leaks.
"""

from __future__ import annotations

import array
import contextlib
import copy
import io
import pickle
from collections.abc import Callable
from typing import Any, NamedTuple

import capsule
import velmar
from helpers.arrays import FORMS
from helpers.buffer_requests import LETTERS, ask, give_back
from helpers.view_states import bare_record, call_method

RECORD = "record of a failed construction"
DICTIONARY = "dictionary of a complex buffer through the capsule"


CLIENT: list[Any] = []  # keeps the contents of one array shared


class Operation(NamedTuple):
    name: str
    make: Callable[[], Any]  # makes the array
    of: Callable[[Any], Any]  # the operation on it
    kept: tuple[str, ...] = ()
    constructs: bool = False  # whether a class is called, which keeps a record if it fails

    def act(self) -> Any:
        return self.of(self.make())


def seen(value: Any) -> Any:
    """The value in a form that can be compared and that keeps no reference to an array."""
    if isinstance(value, memoryview):
        return value.format, value.shape, value.tobytes("A")
    if hasattr(value, "clone"):
        return type(value).__name__, value._is_complex, value.size, memoryview(value).tobytes("A")
    if isinstance(value, tuple | list):
        return [seen(item) for item in value]
    return repr(value)


def refused(call: Callable[[Any], Any]) -> Callable[[Any], Any]:
    """A call that has to fail; the result is the name of the error class."""

    def of(made: Any) -> Any:
        try:
            call(made)
        except Exception as error:
            return type(error).__name__
        raise AssertionError("this call had to fail")

    return of


class Shape(NamedTuple):
    """The size of arrays. Large ones get their memory in another way."""

    name: str
    rows: int
    columns: int

    @property
    def count(self) -> int:
        return self.rows * self.columns


SMALL, MIDDLE, LARGE = Shape("small", 2, 3), Shape("middle", 48, 100), Shape("large", 2, 600_000)


def quietly(call: Callable[[Any], Any]) -> Callable[[Any], Any]:
    """The same call without the error text that toarray() prints."""

    def quiet(made: Any) -> Any:
        with contextlib.redirect_stderr(io.StringIO()):
            return call(made)

    return quiet


def changed(change: Callable[[Any], Any]) -> Callable[[Any], Any]:
    """The array after the change."""

    def of(made: Any) -> Any:
        change(made)
        return made

    return of


def of_form(row: Any, is_complex: bool, shape: Shape) -> list[Operation]:
    """The operations on real or complex arrays of one class."""
    cls, options = row.cls, {"is_complex": True} if is_complex else {}
    rows, columns, count = shape.rows, shape.columns, shape.count
    numbers = [1] * count
    memory = array.array(LETTERS[row.word].replace("?", "B"), [1]) * count
    nested = [[1] * columns for _ in range(rows)]
    bytes_row = velmar.uint8(nested[0])
    size = (rows, columns)
    deep = (rows, *(1,) * 7, columns)  # more dimensions than are held without memory of their own

    def make() -> Any:
        return cls(size=size, **options)

    def source(made: Any) -> Any:
        return memoryview(made) if is_complex else memory

    walked_constructions = [
        ("of nested lists", lambda a: cls(nested, **options)),
        ("of a flat list and a size", lambda a: cls(numbers, size, **options)),
        ("of a vector", lambda a: cls(vector=numbers, **options)),
        ("of a vector and a size", lambda a: cls(vector=numbers, size=size, **options)),
        ("of a dictionary", lambda a: cls({"size": size, **options}, numbers)),
        ("of an array", lambda a: cls(a, **options)),
        ("of an array of another class", lambda a: cls(velmar.uint8(nested), **options)),
        ("of rows", lambda a: cls([a[0], a[1]], **options)),
        ("of a row as vector", lambda a: cls(vector=a[1], **options)),
        ("of memory as vector", lambda a: cls(vector=memory, **options)),
        ("pickle", lambda a: pickle.loads(pickle.dumps(a))),
        ("deepcopy", copy.deepcopy),
        ("a comparison", lambda a: (a == make(), a != cls(nested, **options))),
    ]
    walked = [
        ("a row of another class is written", changed(lambda a: a.__setitem__(0, bytes_row[0]))),
        ("memory is written", changed(lambda a: a.__setitem__(0, memory[:columns]))),
        ("a slice is written", changed(lambda a: a.__setitem__(slice(None), nested))),
        ("a row is written", changed(lambda a: a.__setitem__(0, nested[0]))),
        ("part of a row is written", changed(lambda a: a[0].__setitem__(slice(0, 2), [1, 0]))),
        ("a row is copied", changed(lambda a: a.__setitem__(0, a[1]))),
        ("a clone is written", changed_clone),
        ("str", lambda a: len(str(a))),
        ("repr", lambda a: len(repr(a[::-1]))),
        ("lists", lambda a: a.__reduce__()[1][0] == options),
        ("memory of a slice", lambda a: memoryview(a[::-1])),
        ("a clone of a slice", lambda a: call_method(a[::-1], "clone")),
        ("memory of a row", lambda a: memoryview(a[1])),
    ]
    constructions = [
        ("of nothing", lambda a: cls(**options)),
        ("of a size", lambda a: cls(size=size, **options)),
        ("of a deep size", lambda a: cls(size=deep, **options)),
        ("of a number", lambda a: cls(1, **options)),
        ("of memory", lambda a: cls(source(a), **options)),
        ("of memory and a size", lambda a: cls(source(a), size, **options)),
    ]
    plain = [
        ("a subscript", lambda a: a[1][2]),
        ("a slice", lambda a: a[::-1][0:1]),
        ("a number is written", changed(lambda a: a[0].__setitem__(1, 1))),
        ("a loop", kept_rows),
        ("a clone", lambda a: call_method(a, "clone")),
        ("memory", memoryview),
        ("a description", describe),
        ("a reshape", lambda a: a.reshape(columns, rows)),
        ("a deep reshape", lambda a: a.reshape(deep)),
        ("a reshape of a clone", lambda a: call_method(a, "clone").reshape(columns, rows)),
        ("a reshape under memory", lambda a: reshaped_under(a, columns, rows)),
        ("a deep reshape under memory", lambda a: reshaped_under(a, *deep)),
        ("a membership", lambda a: 1 in a[0]),
        ("the buffer protocol", requested),
        ("the capsule, there and back", capsule.there_and_back),
        ("the capsule, of a view", lambda a: capsule.there_and_back(a[1])),
        ("the capsule, after a look", lambda a: (a.buffer_info()[1], capsule.there_and_back(a))),
        ("the capsule, whether there is a buffer", capsule.has_buffer),
    ]
    twos = nested_twos(6)

    def make_twos() -> Any:
        return cls(size=(2,) * 6, **options)

    def write_backwards(made: Any) -> None:
        made[::-1] = twos

    prepared: list[tuple[str, Callable[[], Any], Callable[[Any], Any]]] = [
        ("the capsule, reshaped", lambda: make().reshape(deep), capsule.there_and_back),
        ("a reshape of shared", lambda: shared(make()), lambda a: a.reshape(columns, rows)),
        ("a deep reshape of shared", lambda: shared(make()), lambda a: a.reshape(deep)),
        ("six dimensions are written", make_twos, changed(write_backwards)),
        ("six shared ones are written", lambda: shared(make_twos()), changed(write_backwards)),
        ("six dimensions are copied", make_twos, lambda a: call_method(a[::-1], "clone")),
        ("six dimensions are compared", make_twos, lambda a: a[::-1] == a),
    ]
    if is_complex:
        plain += [("real", lambda a: a.real()), ("imag", lambda a: a._imag)]
        plain += [("noncomplex", refused(lambda a: a.noncomplex()))]
    else:
        plain += [("noncomplex", lambda a: a.noncomplex()), ("real", refused(lambda a: a.real()))]
        plain += [("toarray", quietly(lambda a: a[0].toarray()))]
    kept = (DICTIONARY,) if is_complex else ()
    found = [Operation(name, make, of) for name, of in plain]
    found += [Operation(name, make, of, (), True) for name, of in constructions]
    found += [Operation(name, maker, of) for name, maker, of in prepared]
    found.append(Operation("the capsule, of a buffer", make, of_buffer, kept, True))
    if shape is not LARGE:
        found += [Operation(name, make, of) for name, of in walked]
        found += [Operation(name, make, of, (), True) for name, of in walked_constructions]
    if shape is SMALL:
        found += failing(cls, options, make)
    label = ("complex " if is_complex else "") + row.word
    return [one._replace(name=f"{label}, {shape.name}: {one.name}") for one in found]


def failing(cls: type, options: dict[str, Any], make: Callable[[], Any]) -> list[Operation]:
    """Calls that fail. Failed constructions keep the record."""

    def expired() -> Any:
        return next(iter(make()))

    constructions = {
        "an unknown keyword": lambda a: cls(shape=1, **options),
        "a text": lambda a: cls("text", **options),
        "uneven lists": lambda a: cls([[1], [1, 1]], **options),
        "a size without end": lambda a: cls(size=(2**62, 2), **options),
        "a size that wraps": lambda a: cls(size=(2**32, 2**32), **options),
        "a size of another count": lambda a: cls([1, 1], (2, 2), **options),
        "lists of uneven depth": lambda a: cls([[[1]], [1]], **options),
        "memory of another format": lambda a: cls(array.array("u", "ab"), **options),
        "a vector and an initializer": lambda a: cls([1], None, [1], **options),
        "a vector of lists": lambda a: cls(vector=[[1]], **options),
        "an item that raises": lambda a: cls(Raising(), **options),
    }
    others = {
        "an index": lambda a: a[5],
        "an odd index": lambda a: a["x"],
        "a step of 0": lambda a: a[::0],
        "a write of another shape": lambda a: a.__setitem__(0, [1]),
        "a write of too much": lambda a: a.__setitem__(slice(0, 1), [1] * 9),
        "a write to an odd index": lambda a: a[0].__setitem__("x", 1),
        "a write of what raises": lambda a: a.__setitem__(slice(None), Raising()),
        "a deletion": lambda a: a.__delitem__(0),
        "a reshape": lambda a: a.reshape(7, 7),
        "a reshape of what raises": lambda a: a.reshape(Raising()),
        "a reshape of a row": lambda a: a[0].reshape(3),
        "an order": lambda a: a < make(),
        "a hash": hash,
        "an iterator of nothing": lambda a: next(velmar.MCPyIter()),
        "a row without its array": lambda a: expired()[0],
        "text of such a row": lambda a: str(expired()),
        "a clone of such a row": lambda a: call_method(expired(), "clone"),
        "memory of such a row": lambda a: memoryview(expired()),
        "a bare record": lambda a: len(bare_record(cls)),
        "toarray": quietly(lambda a: a.toarray()),
        "memory to write to": lambda a: ask(a, 1).error is None or a[9],
        "the capsule, of no array": lambda a: capsule.from_python(7),
        "the capsule, of a null pointer": lambda a: capsule.to_python(None),
    }
    found = [
        Operation(f"fails: {name}", make, refused(call), (RECORD,), True)
        for name, call in constructions.items()
    ]
    return found + [
        Operation(f"fails: {name}", make, refused(call), (), name in CONSTRUCTING)
        for name, call in others.items()
    ]


# Others that make one more array, which needs memory of its own.
CONSTRUCTING = (
    "an order",
    "a row without its array",
    "text of such a row",
    "a clone of such a row",
    "memory of such a row",
    "a bare record",
)


class Raising:
    """A sequence that raises for every item."""

    def __len__(self) -> int:
        return 2

    def __getitem__(self, index: int) -> Any:
        raise KeyError(index)


def changed_clone(made: Any) -> Any:
    clone = call_method(made, "clone")
    clone[0][0] = 1
    return seen(clone), seen(made)


def kept_rows(made: Any) -> Any:
    return [row.size for row in made]


def describe(made: Any) -> Any:
    facts = made.size, made._size, made.itemsize, made.get_bytewise_strides()
    return *facts, made.buffer_info()[1], len(made), bool(made)


def reshaped_under(made: Any, *shape: int) -> Any:
    before = memoryview(made)
    made.reshape(*shape)
    return seen(before), seen(memoryview(made))


def requested(made: Any) -> Any:
    answer = ask(made, 0x1C)
    give_back(answer)
    return answer.error


def shared(made: Any) -> Any:
    """The array, after a native client has taken its contents, which the client still has."""
    CLIENT[:] = [capsule.there_and_back(made)]
    return made


def nested_twos(depth: int) -> Any:
    return [nested_twos(depth - 1), nested_twos(depth - 1)] if depth else 1


def of_buffer(made: Any) -> Any:
    return capsule.from_buffer(memoryview(made))


def every_operation(shapes: tuple[Shape, ...], forms: list[Any] | None = None) -> list[Operation]:
    """The operations on all classes, real and complex; for large arrays on two classes only."""
    found: list[Operation] = []
    for shape in shapes:
        for row, is_complex in forms or FORMS:
            if shape is LARGE and row.word not in ("double", "uint8"):
                continue
            found += of_form(row, is_complex, shape)
    return found
