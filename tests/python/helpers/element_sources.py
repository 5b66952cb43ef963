"""Random arrays, views and other sequences of numbers, and the same data without memory.

The module copies, converts and compares elements in memory where it can. It reads other sequences
item by item. `plain` and `Items` turn a source into a sequence of the second kind.
"""

from __future__ import annotations

import array
import contextlib
import ctypes
import functools
import math
import struct
from collections.abc import Callable
from typing import Any

from helpers.arrays import CLASS_ROWS, FORMS, ElementClass
from helpers.buffer_requests import LETTERS
from helpers.capsule import there_and_back
from helpers.lying_exporter import LyingExporter
from helpers.scalar_values import BOUNDARY_FLOATS, BOUNDARY_INTEGERS

OURS = tuple(row.cls for row in CLASS_ROWS)


class Choices:
    """The random numbers that decide a case. `again` makes the same case a second time."""

    def __init__(self, source: Callable[[int], int]):
        self._source = source
        self.taken: list[int] = []

    def below(self, end: int) -> int:
        self.taken.append(self._source(end))
        return self.taken[-1]

    def pick(self, options: Any) -> Any:
        return options[self.below(len(options))]

    def is_rare(self, end: int) -> bool:
        return self.below(end) == end - 1

    def again(self) -> Choices:
        numbers = iter(self.taken)
        return Choices(lambda end: next(numbers))


# --- The same data, item by item


def plain(source: Any) -> Any:
    """The source as nested lists and tuples of numbers, read by subscripts."""
    if isinstance(source, (list, tuple)):
        return type(source)(map(plain, source))
    if isinstance(source, (*OURS, array.array, memoryview)):
        return [plain(source[i]) for i in range(len(source))]
    return source


class Items:
    """A sequence that passes every request on to the source, errors included."""

    def __init__(self, source: Any):
        self.source = source

    def __len__(self) -> int:
        return len(self.source)

    def __getitem__(self, index: int) -> Any:
        return items(self.source[index])


def items(source: Any) -> Any:
    is_sequence = isinstance(source, (*OURS, array.array, memoryview, list, tuple))
    return Items(source) if is_sequence else source


def itself(source: Any) -> Any:
    return source


def plain_or_items(source: Any) -> Any:
    try:
        return plain(source)
    except Exception:  # what cannot be read fails the same way behind Items
        return items(source)


def outcome(action: Any, *arguments: Any, **options: Any) -> Any:
    """What a call returns, or the class and the text of its error; partial() finds pending ones."""
    try:
        return functools.partial(action, *arguments, **options)()
    except Exception as error:
        cause = error.__cause__ if isinstance(error, SystemError) else None
        return type(error), str(cause or error), type(cause)


def described(made: Any) -> Any:
    """Everything that can be seen of an array, its elements to the bit."""
    if not isinstance(made, OURS):
        return made
    memory = memoryview(made)
    return type(made), made._is_complex, made.size, memory.shape, memory.tobytes()


def reads_equal(a: Any, b: Any) -> bool:
    """Whether two arrays or rows yield equal items."""
    if type(a) is not type(b):
        return False
    first, second = iter(a), iter(b)
    while True:
        try:
            x = next(first)
        except (StopIteration, RuntimeError):
            x = None
        try:
            y = next(second)
        except (StopIteration, RuntimeError):
            y = None
        if x is None or y is None:
            return x is y
        if isinstance(x, OURS) or isinstance(y, OURS):
            if not (isinstance(x, OURS) and isinstance(y, OURS) and reads_equal(x, y)):
                return False
        elif x != y:
            return False


# --- Elements as bytes

_DOUBLE_NANS = [0x7FF8 << 48, 0xFFF8 << 48, 0x7FF8000020000001, 0xFFFC000000000123]
_DOUBLE_NANS += [0x7FF0000000000001, 0xFFF4000000000000]  # signalling
_SINGLE_NANS = [0x7FC00000, 0xFFC00000, 0x7FC00001, 0xFFE12345, 0x7F800001, 0xFFA00000]
_TAME = [0.0, 1.0, 2.0, 0.5, -0.0, -1.0, 100.0, -3.25]
_WILD = [*BOUNDARY_FLOATS, math.inf, -math.inf, 1e300, -1e300, 5e-324, -5e-324, 1e-46, 1e39]
_WILD += [2.0**53, 2.0**53 + 2, 16777217.0, 0.1, 128.5, -128.9, 255.9, -0.9]


def _singles(numbers: list[float]) -> list[bytes]:
    return [struct.pack("f", number) for number in numbers if not 3.5e38 < abs(number) < math.inf]


def _parts(row: ElementClass) -> tuple[list[bytes], list[bytes]]:
    """Ordinary elements of a class, and those near the limits of some class, as bytes."""
    if row.word == "double":
        nans = [struct.pack("Q", bits) for bits in _DOUBLE_NANS]
        return [struct.pack("d", number) for number in _TAME], nans + [
            struct.pack("d", number) for number in _WILD
        ]
    if row.word == "single":
        nans = [struct.pack("I", bits) for bits in _SINGLE_NANS]
        return _singles(_TAME), nans + _singles(_WILD)
    if row.kind == "logical":
        return [b"\0", b"\1"], [b"\0", b"\1", b"\2", b"\xff"]
    numbers = [row.low, row.low + 1, row.high - 1, row.high, 2**53 + 1, 16777217, -(2**53) - 1]
    numbers += BOUNDARY_INTEGERS
    letter = LETTERS[row.word]
    wild = [struct.pack(letter, int(n)) for n in numbers if row.low <= n <= row.high]
    return [struct.pack(letter, n) for n in (0, 1, 2, 3, 100)], wild


PARTS = {row.word: _parts(row) for row in CLASS_ROWS}


def memory(choices: Choices, row: ElementClass, count: int) -> bytes:
    """Parts of elements: mostly ordinary ones, with at most one other, or any."""
    tame, wild = PARTS[row.word]
    kind = choices.below(4)
    table = wild if kind == 3 else tame
    start, step = choices.below(len(table)), 1 + choices.below(5)
    parts = [table[(start + k * step) % len(table)] for k in range(count)]
    if kind == 2 and count:
        parts[choices.below(count)] = choices.pick(wild)
    return b"".join(parts)


# --- Arrays and views


def shape(choices: Choices) -> tuple[int, ...]:
    if choices.is_rare(20):
        return choices.pick(((3, 17), (40, 2), (1, 70), (2, 33, 2)))
    count = choices.pick((2, 2, 3, 1, 4))
    return tuple(choices.pick((2, 3, 1, 4, 5, 0)[: 6 if count < 4 else 3]) for _ in range(count))


def from_bytes(
    row: ElementClass, is_complex: bool, stored: bytes, dimensions: tuple[int, ...]
) -> Any:
    """An array with these bytes in storage order, at least one element."""
    letter = LETTERS[row.word].encode()
    exporter = LyingExporter(
        stored, b"Z" + letter if is_complex else letter, len(stored) // math.prod(dimensions)
    )
    return row.cls(exporter, size=dimensions, is_complex=is_complex)


def whole(
    choices: Choices, kept: list, dimensions: tuple[int, ...], form: Any = None
) -> tuple[Any, ...]:
    """A new array, with a choice of what happened to it before; `kept` owns what has to live."""
    row, is_complex = form or choices.pick(FORMS)
    count = math.prod(dimensions)
    if count == 0:
        made = row.cls(size=dimensions, is_complex=is_complex)
    else:
        stored = memory(choices, row, 2 * count if is_complex else count)
        made = from_bytes(row, is_complex, stored, dimensions)
    history = choices.below(8)
    if history == 4:
        kept.append(memoryview(made))
    elif history == 5:
        kept.append(there_and_back(made))
    elif history == 6:
        kept.append(made)
        made = there_and_back(made)
    elif history == 7:
        with contextlib.suppress(SystemError):  # a complex 64-bit integer can be refused
            kept.append(functools.partial(made.clone)())  # partial() looks for pending errors
    kept.append(made)
    return made


def bound(choices: Choices, length: int) -> int | None:
    number = choices.below(2 * length + 4)
    return None if number == 0 else number - length - 2


def subscript(choices: Choices, length: int) -> int | slice:
    if length and choices.below(2):
        return choices.below(2 * length) - length
    step = choices.pick((None, 1, 2, -1, -2, 3, -3))
    if choices.below(2):
        return slice(None, None, step)
    return slice(bound(choices, length), bound(choices, length), step)


def view_of(choices: Choices, made: Any) -> Any:
    """A view through up to four subscripts, one of which can be an iteration."""
    view = made
    for _ in range(choices.pick((0, 1, 2, 3, 4))):
        is_line = len(view.size) == 1
        if choices.is_rare(8) and not is_line and len(view):
            view = choices.pick(list(view))
            if choices.below(2):
                break
            continue
        wanted = subscript(choices, len(view))
        if is_line and isinstance(wanted, int):
            break
        part = view[wanted]
        try:
            len(part)
        except RuntimeError:  # a slice of a yielded view, which nothing can be read from
            if choices.below(2):
                break
        view = part
        if not isinstance(wanted, int) and choices.is_rare(3):
            break
        try:
            view.size  # noqa: B018 - it may fail
        except RuntimeError:
            break
    return view


def reshape_below(choices: Choices, made: Any) -> None:
    count = math.prod(made.size)
    if count == 0:
        return
    lengths = [k for k in range(1, count + 1) if count % k == 0]
    first = choices.pick(lengths)
    rest = count // first
    second = choices.pick([k for k in lengths if rest % k == 0])
    made.reshape(first, second, rest // second)


def ours(choices: Choices, kept: list) -> Any:
    """An array or view of any class; rarely reshaped behind the view, or without its storage."""
    own: list = []
    made = whole(choices, own, shape(choices))
    view = view_of(choices, made)
    if choices.is_rare(12):
        reshape_below(choices, made)
    if not choices.is_rare(40):
        kept.extend(own)
    return view


def shaped(choices: Choices, kept: list, dimensions: tuple[int, ...], form: Any = None) -> Any:
    """A view of exactly these dimensions of a new array."""
    kind = choices.below(5)
    if not dimensions or kind == 0 and len(dimensions) >= 2:
        return whole(choices, kept, dimensions or (1, 1), form)
    first, *rest = dimensions
    if kind == 1:
        return whole(choices, kept, (1 + choices.below(2), first, *rest), form)[0]
    if kind == 2:
        return whole(choices, kept, (2, 2 * first, *rest), form)[1][::2]
    if kind == 3:
        return whole(choices, kept, (2, first, *rest), form)[-1][::-1]
    return list(whole(choices, kept, (2, first, *rest), form))[1]


# --- Other sources


class Subclass(array.array):
    """Not an array.array itself: its items could be redefined."""


def buffer(choices: Choices) -> Any:
    """An array.array or a memoryview of numbers, also of formats without a class."""
    code = choices.pick("dfbBhHiIlLqQ")
    word = {"l": "int64", "L": "uint64"}.get(code) or next(
        word for word, letter in LETTERS.items() if letter == code
    )
    row = next(row for row in CLASS_ROWS if row.word == word)
    stored = memory(choices, row, choices.pick((3, 2, 4, 1, 5, 0)))
    kind = choices.below(9)
    if kind < 3:
        return array.array(code, stored)
    if kind == 3:
        return choices.pick([array.array("u", "ab"), Subclass(code, stored)])
    if kind == 4:
        return memoryview(array.array(code, stored))[:: choices.pick((1, 2, -1, -2, 3))]
    if kind == 5:
        return memoryview(stored).cast(choices.pick("Bbc?"))
    if kind == 6:
        whole_words = stored * 8
        return memoryview(whole_words).cast(choices.pick("PnNlLqQd"))[:4]
    if kind == 7:
        item = struct.calcsize(code)
        return memoryview(b"\0" + stored)[1:].cast(code)[: len(stored) // item]
    if len(stored) == 0:
        return memoryview(b"")
    return memoryview(stored).cast("B", (1, len(stored)))


def number(choices: Choices) -> Any:
    return choices.pick([1, 0, 2, 1.5, True, -1, 300, 2j, math.nan, 2**63, None, "a"])


def nested(choices: Choices, kept: list) -> Any:
    """A list or tuple of sources, mostly of the same one."""
    kind = choices.below(4)
    if kind == 0:
        child = ours(choices, kept)
        children = [child] * choices.pick((2, 1, 3))
    elif kind == 1:
        child = shaped(choices, kept, (2,))
        children = [child, choices.pick(([1, 2], (0, 1), [1.0, 2], [2, 1j]))]
    elif kind == 2:
        dimensions = choices.pick(((2,), (3,), (2, 2), (1, 3), (2, 0)))
        children = [shaped(choices, kept, dimensions) for _ in range(choices.pick((2, 3, 1)))]
    else:
        some = (lambda: ours(choices, kept), lambda: buffer(choices), lambda: number(choices))
        children = [choices.pick(some)() for _ in range(choices.pick((2, 1, 3, 0)))]
    if choices.is_rare(6):
        children = [children, children]
    return tuple(children) if choices.below(2) else children


def anything(choices: Choices, kept: list) -> Any:
    kind = choices.below(6)
    if kind < 3:
        return ours(choices, kept)
    return nested(choices, kept) if kind == 3 else buffer(choices)


def own_memory(choices: Choices, made: Any) -> Any:
    """A memoryview over the memory that an array shows, which has to stay alive."""
    address, count = made.buffer_info()
    letter = LETTERS[type(made).__name__]
    size = count * made.itemsize
    numbers = memoryview((ctypes.c_char * size).from_address(address)).cast("B").cast(letter)
    return numbers[bound(choices, count) : bound(choices, count) : choices.pick((1, 2, -1))]
