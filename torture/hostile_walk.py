"""A walk: random operations on arrays with hostile objects, and the checks after each step."""

from __future__ import annotations

import copy
import ctypes
import gc
import operator
import pickle
import random
import sys
from collections.abc import Callable
from typing import Any

import part
from helpers.arrays import CLASS_ROWS, contents
from helpers.buffer_requests import ask, give_back
from helpers.view_states import bare_record, call_method
from hostile_objects import (
    Cycle,
    Harm,
    HostileComplex,
    HostileFloat,
    HostileInt,
    HostileList,
    HostileNumber,
    HostileSequence,
    hostile_exporter,
)

MOST_HELD = 12
BEYOND_64_BITS = "Python int too large to convert to C ssize_t"
ODD = [None, "text", b"\x01\x02", 2**70, -(2**70), 2**63 - 1, -(2**63), float("nan"), 1j, object()]
ODD += [True, [], {}, (), range(3), slice(None), slice(None, None, 0), Ellipsis, 10**30, -0.0]

_ask_for_error = ctypes.pythonapi.PyErr_Occurred
_ask_for_error.restype = ctypes.c_void_p


def is_required(error: BaseException | None) -> bool:
    """Whether this is one of two required errors that come together with a result: an index beyond
    64 bits, and a clone that fails."""
    while error is not None:
        if isinstance(error, OverflowError) and str(error) == BEYOND_64_BITS:
            return True
        if isinstance(error, SystemError) and "clone" in str(error):
            return error.__cause__ is not None
        error = error.__cause__ or error.__context__
    return False


class Walk:
    """Arrays, views, iterators and memory, and random operations on them."""

    def __init__(self, seed: str, log: part.Log):
        self.rng = random.Random(seed)
        self.log = log
        self.harm = Harm(self.rng)
        self.held: list[Any] = []
        self.arrays: list[Any] = []
        self.steps: list[Callable[[], Any]] = [
            *[self.construct] * 6,
            *[self.subscript] * 6,
            *[self.write] * 6,
            *[self.reshape] * 3,
            *[self.iterate] * 3,
            *[self.look] * 3,
            *[self.compare] * 3,
            *[self.duplicate] * 2,
            *[self.extract] * 2,
            *[self.export] * 3,
            *[self.request] * 2,
            *[self.read_held] * 3,
            self.odd_record,
            self.drop,
            self.forget_all,
            self.make_garbage,
            self.misuse_types,
            self.call_with_anything,
        ]
        # Called while the module uses a hostile object; can change the array in use.
        self.harm.acts = [
            self.drop,
            self.forget_all,
            gc.collect,
            self.write,
            self.reshape,
            self.reshape,
            self.subscript,
            self.construct,
            self.duplicate,
            self.export,
            self.iterate,
            self.read_held,
            self.compare,
        ]

    # Random choices.

    def array(self) -> Any:
        if not self.arrays or self.rng.randrange(30) == 0:
            row = self.rng.choice(CLASS_ROWS)
            self.keep_array(row.cls([[1, 0, 1], [0, 1, 0]]))
        return self.rng.choice(self.arrays)

    def keep_array(self, array: Any) -> Any:
        self.arrays.append(array)
        if len(self.arrays) > MOST_HELD:
            self.arrays.pop(self.rng.randrange(len(self.arrays)))
        return array

    def keep(self, thing: Any) -> Any:
        self.held.append(thing)
        if len(self.held) > MOST_HELD:
            self.held.pop(self.rng.randrange(len(self.held)))
        return thing

    def number(self) -> Any:
        roll, value = self.rng.randrange(12), self.rng.choice([0, 1, 1, 2, 5, -1, 300, 2**40])
        if roll > 3:
            return self.rng.choice([value, value, float(value), bool(value)])
        if roll == 3:
            return self.rng.choice(ODD)
        if roll == 2:
            return HostileNumber(self.harm, value)
        made: Any = self.rng.choice([HostileInt, HostileFloat, HostileComplex])(value)
        made.harm = self.harm
        return made

    def data(self, depth: int = 0) -> Any:
        roll = self.rng.randrange(14)
        if roll == 0:
            return self.number()
        if roll == 1:
            return hostile_exporter(self.harm)
        if roll == 2 and self.arrays:
            return self.rng.choice(self.arrays)
        if roll == 3 and self.held:
            return self.rng.choice(self.held)
        lengths = self.rng.choice([0, 1, 2, 2, 3, 3, 6])
        deeper = depth < 3 and self.rng.randrange(3) > 0
        items = [self.data(depth + 1) if deeper else self.number() for _ in range(lengths)]
        if roll < 8:
            return items
        if roll < 11:
            return HostileSequence(self.harm, items)
        if roll == 11:
            return tuple(items)
        made = HostileList(items)
        made.harm = self.harm
        return made

    def item(self) -> Any:
        roll = self.rng.randrange(10)
        if roll < 5:
            return self.rng.randint(-4, 4)
        if roll == 5:
            return HostileNumber(self.harm, self.rng.randint(-3, 3))
        if roll == 6:
            made: Any = HostileInt(self.rng.randint(-3, 3))
            made.harm = self.harm
            return made
        if roll == 7:
            return self.rng.choice(ODD)
        bounds = [None, None, 0, 1, 2, -1, -2, 5, 2**70, HostileNumber(self.harm, 1)]
        return slice(*(self.rng.choice(bounds) for _ in range(3)))

    def size(self) -> Any:
        lengths: list[Any] = [
            self.rng.choice([0, 1, 2, 3, 3]) for _ in range(self.rng.randrange(5))
        ]
        roll = self.rng.randrange(8)
        if roll == 0 and lengths:
            odd = [2**45, 2**62, 2**63, -1, 2**70, "x", None, HostileNumber(self.harm, 2)]
            lengths[-1] = self.rng.choice(odd)
        if roll == 1:
            return HostileSequence(self.harm, lengths)
        return self.rng.choice([tuple(lengths), lengths])

    # Operations.

    def construct(self) -> Any:
        cls = self.rng.choice(CLASS_ROWS).cls
        options: dict[str, Any] = {}
        if self.rng.randrange(3) == 0:
            options["is_complex"] = True
        roll = self.rng.randrange(8)
        if roll < 4:
            return self.keep_array(cls(self.data(), **options))
        if roll == 4:
            return self.keep_array(cls(self.data(), self.size(), **options))
        if roll == 5:
            return self.keep_array(cls(size=self.size(), **options))
        if roll == 6:
            return self.keep_array(cls(vector=self.data(), **options))
        arguments = {"size": self.size(), self.rng.choice(["vector", "x", ""]): self.data()}
        return self.keep_array(cls(arguments, self.data(), **options))

    def subscript(self) -> Any:
        found: Any = self.array()
        for _ in range(self.rng.randint(1, 4)):
            found = found[self.item()]
        if hasattr(found, "clone"):
            self.keep_array(found)
        return found

    def write(self) -> Any:
        array = self.array()
        if self.rng.randrange(12) == 0:
            del array[self.item()]
        while self.rng.randrange(3) == 0:
            array = array[self.item()]
        array[self.item()] = self.data() if self.rng.randrange(2) else self.number()

    def reshape(self) -> Any:
        array = self.array()
        count = array.buffer_info()[1]
        shapes = [[count], [1, count], [count, 1], [max(count // 2, 1), 2], [2, 3], [3, 2], [6, 1]]
        shape: Any = self.rng.choice(shapes)
        if self.rng.randrange(5) == 0:
            shape = self.size()
        if self.rng.randrange(4) == 0:
            return array.reshape(HostileSequence(self.harm, list(shape)))
        return array.reshape(*shape) if self.rng.randrange(2) else array.reshape(shape)

    def iterate(self) -> Any:
        array = self.array()
        walk = self.keep(iter(array))
        for _ in range(self.rng.randrange(4)):
            self.keep_array(next(walk))
        if self.rng.randrange(3) == 0:
            for row in array:
                self.harm.strike(20)
                row[0] = self.number()

    def look(self) -> Any:
        array = self.array()
        words = [str, repr, len, list, bool, hash, format, sys.getsizeof, dir, id]
        return self.rng.choice(words)(array)

    def compare(self) -> Any:
        other = self.array() if self.rng.randrange(3) else self.data()
        array = self.array()
        if self.rng.randrange(8) == 0:
            return self.number() in array
        return array == other if self.rng.randrange(2) else other != array

    def duplicate(self) -> Any:
        array = self.array()
        form = self.rng.randrange(4)
        if form == 0:
            return self.keep_array(call_method(array, "clone"))
        if form == 1:
            return self.keep_array(copy.deepcopy(array))
        if form == 2:
            return self.keep_array(pickle.loads(pickle.dumps(array, self.rng.randrange(6))))
        reduced = array.__reduce__()
        return self.keep_array(reduced[0](*reduced[1]))

    def extract(self) -> Any:
        names = ["real", "imag", "noncomplex", "_real", "_imag", "_data", "size", "itemsize"]
        names += ["_size", "_is_complex", "get_bytewise_strides", "toarray", "buffer_info"]
        found = getattr(self.array(), self.rng.choice(names))
        found = found() if callable(found) and not hasattr(found, "clone") else found
        return self.keep_array(found) if hasattr(found, "clone") else found

    def export(self) -> Any:
        array = self.array()
        return self.keep(memoryview(array) if self.rng.randrange(2) else array.tomemoryview())

    def request(self) -> Any:
        """Uses the buffer protocol with any flags."""
        flags = self.rng.choice([0, 4, 8, 0x18, 0x1C, 0x38, 0x58, 0x98, 0x118, 0x9C, 1])
        answer = ask(self.array(), flags if self.rng.randrange(9) else self.rng.getrandbits(9))
        if answer.error is None:
            self.harm.strike(30)
            give_back(answer)

    def read_held(self) -> Any:
        if not self.held:
            return None
        found = self.rng.choice(self.held)
        if isinstance(found, memoryview):
            found.tobytes("A")
            return found.tolist()
        return next(found)

    def odd_record(self) -> Any:
        cls = self.rng.choice(CLASS_ROWS).cls
        make = self.rng.choice([bare_record, cls.__new__, object.__new__])
        self.keep_array(make(cls))

    def drop(self) -> Any:
        pool = self.rng.choice([self.arrays, self.held])
        if pool:
            pool.pop(self.rng.randrange(len(pool)))

    def forget_all(self) -> Any:
        self.rng.choice([self.arrays, self.held]).clear()

    def make_garbage(self) -> Any:
        Cycle(self.harm, [*self.arrays[-2:], *self.held[-1:]])
        if self.rng.randrange(4) == 0:
            gc.collect()

    def misuse_types(self) -> Any:
        cls = self.rng.choice(CLASS_ROWS).cls
        other = self.rng.choice(CLASS_ROWS).cls
        name = self.rng.choice(["clone", "reshape", "__len__", "__getitem__", "__setitem__"])
        roll = self.rng.randrange(5)
        if roll == 0:
            return type("Derived", (cls,), {})(self.data())
        if roll == 1:
            return getattr(cls, name)(self.number())
        if roll == 2:
            return cls.__init__(self.array(), self.data())
        if roll == 3:
            self.array().__class__ = other
        return cls.__new__(other)

    def call_with_anything(self) -> Any:
        names = ["clone", "reshape", "toarray", "tomemoryview", "buffer_info", "__reduce__", "real"]
        names += ["__getitem__", "__setitem__", "__delitem__", "__eq__", "__lt__", "__iter__"]
        given = [self.data() for _ in range(self.rng.randrange(3))]
        options = {self.rng.choice(["order", "size", ""]): self.data()} if given[1:] else {}
        return operator.methodcaller(self.rng.choice(names), *given, **options)(self.array())

    # Checks.

    def step(self) -> str | None:
        action = self.rng.choice(self.steps)
        self.log.write(action.__name__)
        try:
            action()
        except SystemError as error:
            if not is_required(error):
                return f"{action.__name__}: SystemError: {error}"
        except Exception:
            pass
        try:
            _ask_for_error()  # raises the error that an action left pending
        except Exception as error:
            if not is_required(error):
                return f"{action.__name__} left an error pending: {error!r}"
        return None

    def disagreement(self) -> str | None:
        """Text about an array whose length, subscripts, text and memory disagree, or None."""
        acts, self.harm.acts = self.harm.acts, []
        try:
            for array in list(self.arrays):
                found = disagreement(array)
                if found:
                    return found
        finally:
            self.harm.acts = acts
        return None


def disagreement(array: Any) -> str | None:
    try:
        text, length, size = str(array), len(array), array.size
        nested, stored = contents(array), array.buffer_info()[1]
    except Exception:
        return None  # the storage is gone, or smaller since a reshape
    if length != size[0] or len(nested) != length:
        return f"{text}: length {length}, size {size}, items {len(nested)}"
    kind = type(array).__name__.removeprefix("velmar.")
    if array._is_complex or kind == "logical" or stored == 0:
        return None
    try:
        listed = memoryview(array[:]).tolist()
    except RuntimeError:
        return None  # a slice of a view from an iterator has no storage
    if len(size) > 1 and 0 not in size and repr(listed) != repr(nested):
        return f"{text}: subscripts give {nested}, memory {listed}"
    return None
