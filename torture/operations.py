"""Every operation of the module as a function that makes its own input.

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


class Operation(NamedTuple):
    name: str
    act: Callable[[], Any]
    kept: tuple[str, ...] = ()


def seen(value: Any) -> Any:
    """The value in a form that can be compared and that keeps no reference to an array."""
    if isinstance(value, memoryview):
        return value.format, value.shape, value.tobytes("A")
    if hasattr(value, "clone"):
        return type(value).__name__, value._is_complex, value.size, memoryview(value).tobytes("A")
    if isinstance(value, tuple | list):
        return [seen(item) for item in value]
    return repr(value)


def refused(call: Callable[[], Any]) -> Callable[[], Any]:
    """A call that has to fail; the result is the name of the error class."""

    def act() -> Any:
        try:
            call()
        except Exception as error:
            return type(error).__name__
        raise AssertionError("this call had to fail")

    return act


class Shape(NamedTuple):
    """The size of arrays. Large ones get their memory in another way."""

    name: str
    rows: int
    columns: int

    @property
    def count(self) -> int:
        return self.rows * self.columns


SMALL, MIDDLE, LARGE = Shape("small", 2, 3), Shape("middle", 48, 100), Shape("large", 2, 600_000)


def quietly(act: Callable[[], Any]) -> Callable[[], Any]:
    """The same call without the error text that toarray() prints."""

    def quiet() -> Any:
        with contextlib.redirect_stderr(io.StringIO()):
            return act()

    return quiet


def of_form(row: Any, is_complex: bool, shape: Shape) -> list[Operation]:
    """The operations on real or complex arrays of one class."""
    cls, options = row.cls, {"is_complex": True} if is_complex else {}
    rows, columns, count = shape.rows, shape.columns, shape.count
    numbers = [1] * count
    memory = array.array(LETTERS[row.word].replace("?", "B"), [1]) * count
    nested = [[1] * columns for _ in range(rows)]
    bytes_row = velmar.uint8(nested[0])
    size = (rows, columns)

    def make() -> Any:
        return cls(size=size, **options)

    def changed(change: Callable[[Any], Any]) -> Callable[[], Any]:
        def act() -> Any:
            made = make()
            change(made)
            return made

        return act

    def expired() -> Any:
        return next(iter(make()))

    def source() -> Any:
        return memoryview(make()) if is_complex else memory

    walked = [
        ("of nested lists", lambda: cls(nested, **options)),
        ("of a flat list and a size", lambda: cls(numbers, size, **options)),
        ("of a vector", lambda: cls(vector=numbers, **options)),
        ("of a vector and a size", lambda: cls(vector=numbers, size=size, **options)),
        ("of a dictionary", lambda: cls({"size": size, **options}, numbers)),
        ("of an array", lambda: cls(cls(nested, **options), **options)),
        ("of an array of another class", lambda: cls(velmar.uint8(nested), **options)),
        ("of rows", lambda: cls([make()[0], make()[1]], **options)),
        ("of a row as vector", lambda: cls(vector=make()[1], **options)),
        ("of memory as vector", lambda: cls(vector=memory, **options)),
        ("a row of another class is written", changed(lambda a: a.__setitem__(0, bytes_row[0]))),
        ("memory is written", changed(lambda a: a.__setitem__(0, memory[:columns]))),
        ("a slice is written", changed(lambda a: a.__setitem__(slice(None), nested))),
        ("a row is written", changed(lambda a: a.__setitem__(0, nested[0]))),
        ("part of a row is written", changed(lambda a: a[0].__setitem__(slice(0, 2), [1, 0]))),
        ("a row is copied", changed(lambda a: a.__setitem__(0, a[1]))),
        ("a clone is written", lambda: changed_clone(make())),
        ("str", lambda: len(str(make()))),
        ("repr", lambda: len(repr(make()[::-1]))),
        ("lists", lambda: make().__reduce__()[1][0] == options),
        ("pickle", lambda: pickle.loads(pickle.dumps(make()))),
        ("deepcopy", lambda: copy.deepcopy(make())),
        ("a comparison", lambda: (make() == make(), make() != cls(nested, **options))),
        ("memory of a slice", lambda: memoryview(make()[::-1])),
        ("a clone of a slice", lambda: call_method(make()[::-1], "clone")),
        ("memory of a row", lambda: memoryview(make()[1])),
    ]
    plain = [
        ("of nothing", lambda: cls(**options)),
        ("of a size", make),
        ("of a number", lambda: cls(1, **options)),
        ("of memory", lambda: cls(source(), **options)),
        ("of memory and a size", lambda: cls(source(), size, **options)),
        ("a subscript", lambda: make()[1][2]),
        ("a slice", lambda: make()[::-1][0:1]),
        ("a number is written", changed(lambda a: a[0].__setitem__(1, 1))),
        ("a loop", lambda: kept_rows(make())),
        ("a clone", lambda: call_method(make(), "clone")),
        ("memory", lambda: memoryview(make())),
        ("a description", lambda: describe(make())),
        ("a reshape", lambda: make().reshape(columns, rows)),
        ("a reshape of a clone", lambda: call_method(make(), "clone").reshape(columns, rows)),
        ("a reshape under memory", lambda: reshaped_under(make(), columns, rows)),
        ("a membership", lambda: 1 in make()[0]),
        ("the buffer protocol", lambda: requested(make())),
        ("the capsule, there and back", lambda: capsule.there_and_back(make())),
        ("the capsule, of a view", lambda: capsule.there_and_back(make()[1])),
    ]
    if is_complex:
        plain += [("real", lambda: make().real()), ("imag", lambda: make()._imag)]
        plain += [("noncomplex", refused(lambda: make().noncomplex()))]
    else:
        plain += [("noncomplex", lambda: make().noncomplex()), ("real", refused(make().real))]
        plain += [("toarray", lambda: make()[0].toarray())]
    kept = (DICTIONARY,) if is_complex else ()
    found = [Operation(name, act) for name, act in plain]
    found.append(Operation("the capsule, of a buffer", lambda: of_buffer(make()), kept))
    if shape is not LARGE:
        found += [Operation(name, act) for name, act in walked]
    if shape is SMALL:
        found += failing(cls, options, make, expired)
    label = ("complex " if is_complex else "") + row.word
    return [Operation(f"{label}, {shape.name}: {o.name}", o.act, o.kept) for o in found]


def failing(
    cls: type, options: dict[str, Any], make: Callable[[], Any], expired: Callable[[], Any]
) -> list[Operation]:
    """Calls that fail. Failed constructions keep the record."""
    constructions = {
        "an unknown keyword": lambda: cls(shape=1, **options),
        "a text": lambda: cls("text", **options),
        "uneven lists": lambda: cls([[1], [1, 1]], **options),
        "a size without end": lambda: cls(size=(2**62, 2), **options),
        "a size that wraps": lambda: cls(size=(2**32, 2**32), **options),
        "a size of another count": lambda: cls([1, 1], (2, 2), **options),
        "lists of uneven depth": lambda: cls([[[1]], [1]], **options),
        "memory of another format": lambda: cls(array.array("u", "ab"), **options),
        "a vector and an initializer": lambda: cls([1], None, [1], **options),
        "a vector of lists": lambda: cls(vector=[[1]], **options),
        "an item that raises": lambda: cls(Raising(), **options),
    }
    others = {
        "an index": lambda: make()[5],
        "an odd index": lambda: make()["x"],
        "a step of 0": lambda: make()[::0],
        "a write of another shape": lambda: make().__setitem__(0, [1]),
        "a write of too much": lambda: make().__setitem__(slice(0, 1), [1] * 9),
        "a write to an odd index": lambda: make()[0].__setitem__("x", 1),
        "a write of what raises": lambda: make().__setitem__(slice(None), Raising()),
        "a deletion": lambda: make().__delitem__(0),
        "a reshape": lambda: make().reshape(7, 7),
        "a reshape of what raises": lambda: make().reshape(Raising()),
        "a reshape of a row": lambda: make()[0].reshape(3),
        "an order": lambda: make() < make(),
        "a hash": lambda: hash(make()),
        "an iterator of nothing": lambda: next(velmar.MCPyIter()),
        "a row without its array": lambda: expired()[0],
        "text of such a row": lambda: str(expired()),
        "a clone of such a row": lambda: call_method(expired(), "clone"),
        "memory of such a row": lambda: memoryview(expired()),
        "a bare record": lambda: len(bare_record(cls)),
        "toarray": quietly(lambda: make().toarray()),
        "memory to write to": lambda: ask(make(), 1).error is None or make()[9],
        "the capsule, of no array": lambda: capsule.from_python(7),
        "the capsule, of a null pointer": lambda: capsule.to_python(None),
    }
    found = [
        Operation(f"fails: {name}", refused(call), (RECORD,))
        for name, call in constructions.items()
    ]
    return found + [Operation(f"fails: {name}", refused(call)) for name, call in others.items()]


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
