"""A walk: random operations on arrays with hostile objects, and the checks after each step.

To add an operation, add a method to Walk and a row to OPERATIONS. Its random arguments come from
hostile_objects.py.
"""

from __future__ import annotations

import copy
import functools
import gc
import operator
import pickle
import random
import sys
import warnings
from collections.abc import Callable
from typing import Any, TextIO

from helpers.arrays import contents
from helpers.buffer_requests import ask, give_back
from helpers.hostile_objects import Choices, Cycle, HostileSequence, raise_pending_error
from helpers.view_states import bare_record, call_method

STEPS_BETWEEN_LOOKS = 10
BEYOND_64_BITS = "Python int too large to convert to C ssize_t"


def expect_noise() -> None:
    """Hides warnings, and the errors that finalizers of hostile objects raise on purpose."""
    warnings.simplefilter("ignore")
    sys.unraisablehook = lambda _: None


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


# The name of an operation, its weight as a step, and its weight as an act of harm. Acts run while
# the module uses a hostile object, and can change the array in use.
OPERATIONS = [
    ("construct", 6, 1),
    ("subscript", 6, 1),
    ("write", 6, 1),
    ("reshape", 3, 2),
    ("iterate", 3, 1),
    ("look", 3, 0),
    ("compare", 3, 1),
    ("duplicate", 2, 1),
    ("extract", 2, 0),
    ("export", 3, 1),
    ("request", 2, 0),
    ("read_held", 3, 1),
    ("odd_record", 1, 0),
    ("drop", 1, 1),
    ("forget_all", 1, 1),
    ("collect", 0, 1),
    ("make_garbage", 1, 0),
    ("misuse_types", 1, 0),
    ("call_with_anything", 1, 0),
]


class Walk(Choices):
    """Random operations."""

    def __init__(self, rng: random.Random, log: TextIO | None = None):
        super().__init__(rng)
        self.log = log
        self.done = 0  # steps
        self.steps: list[Callable[[], Any]] = []
        for name, as_step, as_act in OPERATIONS:
            self.steps += [getattr(self, name)] * as_step
            self.harm.acts += [getattr(self, name)] * as_act

    def construct(self) -> Any:
        options = {"is_complex": True} if self.rng.randrange(3) == 0 else {}
        cls, roll = functools.partial(self.any_class(), **options), self.rng.randrange(8)
        if roll < 4:
            return self.keep(cls(self.data()))
        if roll == 4:
            return self.keep(cls(self.data(), self.size()))
        if roll == 5:
            return self.keep(cls(size=self.size()))
        if roll == 6:
            return self.keep(cls(vector=self.data()))
        arguments = {"size": self.size(), self.rng.choice(["vector", "x", ""]): self.data()}
        return self.keep(cls(arguments, self.data()))

    def subscript(self) -> Any:
        found: Any = self.array()
        for _ in range(self.rng.randint(1, 4)):
            found = found[self.item()]
        return self.keep(found)

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
            self.keep(next(walk))
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
            return self.keep(call_method(array, "clone"))
        if form == 1:
            return self.keep(copy.deepcopy(array))
        if form == 2:
            return self.keep(pickle.loads(pickle.dumps(array, self.rng.randrange(6))))
        reduced = array.__reduce__()
        return self.keep(reduced[0](*reduced[1]))

    def extract(self) -> Any:
        names = ["real", "imag", "noncomplex", "_real", "_imag", "_data", "size", "itemsize"]
        names += ["_size", "_is_complex", "get_bytewise_strides", "toarray", "buffer_info"]
        found = getattr(self.array(), self.rng.choice(names))
        found = found() if callable(found) and not hasattr(found, "clone") else found
        return self.keep(found)

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
        cls = self.any_class()
        make = self.rng.choice([bare_record, cls.__new__, object.__new__])
        self.keep(make(cls))

    def drop(self) -> Any:
        pool = self.rng.choice([self.arrays, self.held])
        if pool:
            pool.pop(self.rng.randrange(len(pool)))

    def forget_all(self) -> Any:
        self.rng.choice([self.arrays, self.held]).clear()

    def collect(self) -> Any:
        gc.collect()

    def make_garbage(self) -> Any:
        Cycle(self.harm, [*self.arrays[-2:], *self.held[-1:]])
        if self.rng.randrange(4) == 0:
            gc.collect()

    def misuse_types(self) -> Any:
        cls = self.any_class()
        other = self.any_class()
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

    def run(self, steps: int) -> str | None:
        """Performs steps up to the first finding, and returns its text."""
        for _ in range(steps):
            found = self.step()
            if not found and self.done % STEPS_BETWEEN_LOOKS == 0:
                found = self.disagreement()
            if found:
                return found
        return None

    def step(self) -> str | None:
        self.done += 1
        action = self.rng.choice(self.steps)
        if self.log:
            print(action.__name__, file=self.log, flush=True)
        try:
            action()
        except SystemError as error:
            if not is_required(error):
                return f"{action.__name__}: SystemError: {error}"
        except Exception:
            pass
        try:
            raise_pending_error()
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
