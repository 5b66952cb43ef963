"""Every operation of the module, as a function of an array that is made for it.

To add an operation, add a row to one of the tables. `f` is the form of the array, and has data for
arrays of its class. The results of two calls can be compared.
"""

from __future__ import annotations

import array
import contextlib
import copy
import functools
import io
import pickle
from collections.abc import Callable
from typing import Any, NamedTuple

import velmar

from helpers import capsule
from helpers.arrays import FORMS
from helpers.buffer_requests import LETTERS, ask, give_back
from helpers.capsule import there_and_back
from helpers.hostile_sequences import Scripted
from helpers.view_states import bare_record, call_method

# Memory that a call is required to keep.
RECORD = "record of a failed construction"
DICTIONARY = "dictionary of a complex buffer through the capsule"


class Operation(NamedTuple):
    name: str
    make: Callable[[], Any]  # makes the array
    of: Callable[[Any], Any]  # the operation on it
    kept: str = ""
    constructs: bool = False  # whether a class is called, which keeps a record if it fails

    def act(self) -> Any:
        return self.of(self.make())


class Shape(NamedTuple):
    """The size of arrays. Large ones get their memory in another way."""

    name: str
    rows: int
    columns: int


SMALL, MIDDLE, LARGE = Shape("small", 2, 3), Shape("middle", 48, 100), Shape("large", 2, 600_000)


class Form:
    """Real or complex arrays of one class and shape, and data for them."""

    def __init__(self, row: Any, is_complex: bool, shape: Shape):
        self.label = f"{'complex ' if is_complex else ''}{row.word}, {shape.name}"
        self.options = {"is_complex": True} if is_complex else {}
        self.type = row.cls
        self.cls = functools.partial(row.cls, **self.options)
        self.rows, self.columns = shape.rows, shape.columns
        self.size = (self.rows, self.columns)
        # More dimensions than are held without memory of their own.
        self.deep = (self.rows, *(1,) * 7, self.columns)
        self.numbers = [1] * (self.rows * self.columns)
        self.memory = array.array(LETTERS[row.word].replace("?", "B"), self.numbers)
        self.nested = [[1] * self.columns for _ in range(self.rows)]
        self.bytes = velmar.uint8(self.nested)

    def make(self) -> Any:
        return self.cls(size=self.size)

    def expired(self) -> Any:
        """A row whose array is gone."""
        return next(iter(self.make()))

    def source(self, made: Any) -> Any:
        return memoryview(made) if self.options else self.memory


Call = Callable[[Form, Any], Any]


def seen(value: Any) -> Any:
    """The value in a form that can be compared and that keeps no reference to an array."""
    if isinstance(value, memoryview):
        return value.format, value.shape, value.tobytes("A")
    if hasattr(value, "clone"):
        return type(value).__name__, value._is_complex, value.size, memoryview(value).tobytes("A")
    if isinstance(value, tuple | list):
        return [seen(item) for item in value]
    return repr(value)


def refused(call: Call) -> Call:
    """A call that has to fail; the result is the name of the error class."""

    def of(f: Form, a: Any) -> Any:
        try:
            call(f, a)
        except Exception as error:
            return type(error).__name__
        raise AssertionError("this call had to fail")

    return of


def quietly(call: Call) -> Call:
    """The same call without the error text that toarray() prints."""

    def of(f: Form, a: Any) -> Any:
        with contextlib.redirect_stderr(io.StringIO()):
            return call(f, a)

    return of


def changed(change: Call) -> Call:
    """The array after the change."""

    def of(f: Form, a: Any) -> Any:
        change(f, a)
        return a

    return of


def clone(made: Any) -> Any:
    return call_method(made, "clone")


def changed_clone(f: Form, made: Any) -> Any:
    cloned = clone(made)
    cloned[0][0] = 1
    return seen(cloned), seen(made)


def describe(f: Form, made: Any) -> Any:
    facts = made.size, made._size, made.itemsize, made.get_bytewise_strides()
    return *facts, made.buffer_info()[1], len(made), bool(made)


def reshaped_under(made: Any, *shape: int) -> Any:
    before = memoryview(made)
    made.reshape(*shape)
    return seen(before), seen(memoryview(made))


def requested(f: Form, made: Any) -> Any:
    answer = ask(made, 0x1C)
    give_back(answer)
    return answer.error


def raise_key_error() -> Any:
    raise KeyError("no item")


def raising() -> Scripted:
    """A sequence that raises a new error for every item: a kept one would keep the arrays alive."""
    return Scripted([raise_key_error, raise_key_error])


def nested_twos(depth: int) -> Any:
    return [nested_twos(depth - 1), nested_twos(depth - 1)] if depth else 1


TWOS = nested_twos(6)
TEXT = array.array("u", "ab")  # memory of a format without a class
CLIENT: list[Any] = []  # keeps the contents of one array shared


def shared(made: Any) -> Any:
    """The array, after a native client has taken its contents, which the client still has."""
    CLIENT[:] = [there_and_back(made)]
    return made


PLAIN: dict[str, Call] = {
    "a subscript": lambda f, a: a[1][2],
    "a slice": lambda f, a: a[::-1][0:1],
    "a number is written": changed(lambda f, a: a[0].__setitem__(1, 1)),
    "a loop": lambda f, a: [row.size for row in a],
    "a clone": lambda f, a: clone(a),
    "memory": lambda f, a: memoryview(a),
    "a description": describe,
    "a reshape": lambda f, a: a.reshape(f.columns, f.rows),
    "a deep reshape": lambda f, a: a.reshape(f.deep),
    "a reshape of a clone": lambda f, a: clone(a).reshape(f.columns, f.rows),
    "a reshape under memory": lambda f, a: reshaped_under(a, f.columns, f.rows),
    "a deep reshape under memory": lambda f, a: reshaped_under(a, *f.deep),
    "a membership": lambda f, a: 1 in a[0],
    "the buffer protocol": requested,
    "the capsule, there and back": lambda f, a: there_and_back(a),
    "the capsule, of a view": lambda f, a: there_and_back(a[1]),
    "the capsule, after a look": lambda f, a: (a.buffer_info()[1], there_and_back(a)),
    "the capsule, whether there is a buffer": lambda f, a: capsule.has_buffer(a),
}
OF_REAL: dict[str, Call] = {
    "noncomplex": lambda f, a: a.noncomplex(),
    "real": refused(lambda f, a: a.real()),
    "toarray": quietly(lambda f, a: a[0].toarray()),
}
OF_COMPLEX: dict[str, Call] = {
    "real": lambda f, a: a.real(),
    "imag": lambda f, a: a._imag,
    "noncomplex": refused(lambda f, a: a.noncomplex()),
}
OF_DEEP: dict[str, Call] = {"the capsule, reshaped": lambda f, a: there_and_back(a)}
OF_SHARED: dict[str, Call] = {
    "a reshape of shared": lambda f, a: a.reshape(f.columns, f.rows),
    "a deep reshape of shared": lambda f, a: a.reshape(f.deep),
}
OF_TWOS: dict[str, Call] = {
    "six dimensions are written": changed(lambda f, a: a.__setitem__(slice(None, None, -1), TWOS)),
    "six dimensions are copied": lambda f, a: clone(a[::-1]),
    "six dimensions are compared": lambda f, a: a[::-1] == a,
}
OF_SHARED_TWOS: dict[str, Call] = {
    "six shared ones are written": OF_TWOS["six dimensions are written"]
}
CONSTRUCTIONS: dict[str, Call] = {
    "of nothing": lambda f, a: f.cls(),
    "of a size": lambda f, a: f.cls(size=f.size),
    "of a deep size": lambda f, a: f.cls(size=f.deep),
    "of a number": lambda f, a: f.cls(1),
    "of memory": lambda f, a: f.cls(f.source(a)),
    "of memory and a size": lambda f, a: f.cls(f.source(a), f.size),
}
OF_BUFFER: dict[str, Call] = {
    "the capsule, of a buffer": lambda f, a: capsule.from_buffer(memoryview(a))
}
# Calls that read element by element, which takes too long for large arrays.
WALKED: dict[str, Call] = {
    "a row of another class is written": changed(lambda f, a: a.__setitem__(0, f.bytes[0])),
    "memory is written": changed(lambda f, a: a.__setitem__(0, f.memory[: f.columns])),
    "a slice is written": changed(lambda f, a: a.__setitem__(slice(None), f.nested)),
    "a row is written": changed(lambda f, a: a.__setitem__(0, f.nested[0])),
    "part of a row is written": changed(lambda f, a: a[0].__setitem__(slice(0, 2), [1, 0])),
    "a row is copied": changed(lambda f, a: a.__setitem__(0, a[1])),
    "a clone is written": changed_clone,
    "str": lambda f, a: len(str(a)),
    "repr": lambda f, a: len(repr(a[::-1])),
    "lists": lambda f, a: a.__reduce__()[1][0] == f.options,
    "memory of a slice": lambda f, a: memoryview(a[::-1]),
    "a clone of a slice": lambda f, a: clone(a[::-1]),
    "memory of a row": lambda f, a: memoryview(a[1]),
}
WALKED_CONSTRUCTIONS: dict[str, Call] = {
    "of nested lists": lambda f, a: f.cls(f.nested),
    "of a flat list and a size": lambda f, a: f.cls(f.numbers, f.size),
    "of a vector": lambda f, a: f.cls(vector=f.numbers),
    "of a vector and a size": lambda f, a: f.cls(vector=f.numbers, size=f.size),
    "of a dictionary": lambda f, a: f.type({"size": f.size, **f.options}, f.numbers),
    "of an array": lambda f, a: f.cls(a),
    "of an array of another class": lambda f, a: f.cls(velmar.uint8(f.nested)),
    "of rows": lambda f, a: f.cls([a[0], a[1]]),
    "of a row as vector": lambda f, a: f.cls(vector=a[1]),
    "of memory as vector": lambda f, a: f.cls(vector=f.memory),
    "pickle": lambda f, a: pickle.loads(pickle.dumps(a)),
    "deepcopy": lambda f, a: copy.deepcopy(a),
    "a comparison": lambda f, a: (a == f.make(), a != f.cls(f.nested)),
}
# Calls that fail. Failed constructions keep the record.
FAILING_CONSTRUCTIONS: dict[str, Call] = {
    "an unknown keyword": lambda f, a: f.cls(shape=1),
    "a text": lambda f, a: f.cls("text"),
    "uneven lists": lambda f, a: f.cls([[1], [1, 1]]),
    "a size without end": lambda f, a: f.cls(size=(2**62, 2)),
    "a size that wraps": lambda f, a: f.cls(size=(2**32, 2**32)),
    "a size of another count": lambda f, a: f.cls([1, 1], (2, 2)),
    "lists of uneven depth": lambda f, a: f.cls([[[1]], [1]]),
    "memory of another format": lambda f, a: f.cls(TEXT),
    "a vector and an initializer": lambda f, a: f.cls([1], None, [1]),
    "a vector of lists": lambda f, a: f.cls(vector=[[1]]),
    "an item that raises": lambda f, a: f.cls(raising()),
}
# These make one more array, which needs memory of its own.
FAILING_WITH_ARRAY: dict[str, Call] = {
    "an order": lambda f, a: a < f.make(),
    "a row without its array": lambda f, a: f.expired()[0],
    "text of such a row": lambda f, a: str(f.expired()),
    "a clone of such a row": lambda f, a: clone(f.expired()),
    "memory of such a row": lambda f, a: memoryview(f.expired()),
    "a bare record": lambda f, a: len(bare_record(f.type)),
}
FAILING: dict[str, Call] = {
    "an index": lambda f, a: a[5],
    "an odd index": lambda f, a: a["x"],
    "a step of 0": lambda f, a: a[::0],
    "a write of another shape": lambda f, a: a.__setitem__(0, [1]),
    "a write of too much": lambda f, a: a.__setitem__(slice(0, 1), [1] * 9),
    "a write to an odd index": lambda f, a: a[0].__setitem__("x", 1),
    "a write of what raises": lambda f, a: a.__setitem__(slice(None), raising()),
    "a deletion": lambda f, a: a.__delitem__(0),
    "a reshape": lambda f, a: a.reshape(7, 7),
    "a reshape of what raises": lambda f, a: a.reshape(raising()),
    "a reshape of a row": lambda f, a: a[0].reshape(3),
    "a hash": lambda f, a: hash(a),
    "an iterator of nothing": lambda f, a: next(velmar.MCPyIter()),
    "toarray": quietly(lambda f, a: a.toarray()),
    "memory to write to": lambda f, a: ask(a, 1).error is None or a[9],
    "the capsule, of no array": lambda f, a: capsule.from_python(7),
    "the capsule, of a null pointer": lambda f, a: capsule.to_python(None),
}


def of_form(row: Any, is_complex: bool, shape: Shape) -> list[Operation]:
    """The operations on real or complex arrays of one class."""
    f = Form(row, is_complex, shape)
    found: list[Operation] = []

    def add(calls: dict[str, Call], make: Callable[[], Any] = f.make, **facts: Any) -> None:
        for name, call in calls.items():
            of = functools.partial(call, f)
            found.append(Operation(f"{f.label}: {name}", make, of, **facts))

    def add_failing(calls: dict[str, Call], **facts: Any) -> None:
        add({f"fails: {name}": refused(call) for name, call in calls.items()}, **facts)

    def make_twos() -> Any:
        return f.cls(size=(2,) * 6)

    add(PLAIN | (OF_COMPLEX if is_complex else OF_REAL))
    add(OF_DEEP, lambda: f.make().reshape(f.deep))
    add(OF_SHARED, lambda: shared(f.make()))
    add(OF_TWOS, make_twos)
    add(OF_SHARED_TWOS, lambda: shared(make_twos()))
    add(CONSTRUCTIONS, constructs=True)
    add(OF_BUFFER, kept=DICTIONARY if is_complex else "", constructs=True)
    if shape is not LARGE:
        add(WALKED)
        add(WALKED_CONSTRUCTIONS, constructs=True)
    if shape is SMALL:
        add_failing(FAILING_CONSTRUCTIONS, kept=RECORD, constructs=True)
        add_failing(FAILING_WITH_ARRAY, constructs=True)
        add_failing(FAILING)
    return found


def every_operation(shapes: tuple[Shape, ...]) -> list[Operation]:
    """The operations on all classes, real and complex; for large arrays on two classes only."""
    return [
        operation
        for shape in shapes
        for row, is_complex in FORMS
        if shape is not LARGE or row.word in ("double", "uint8")
        for operation in of_form(row, is_complex, shape)
    ]
