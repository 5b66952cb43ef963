"""Elements that are copied, converted and compared in memory: the same results as item by item.

Each random case runs twice: with arrays, array.array and memoryviews as they are, and with the same
data in a form without memory. `--element-cases 1000000` runs many more of them.
"""

from __future__ import annotations

import array
import functools
import math
import operator
import pickle
import random
from typing import Any

import velmar
from helpers.arrays import FORMS
from helpers.buffer_requests import LETTERS
from helpers.capsule import there_and_back
from helpers.cases import IS_BRIEF, rows
from helpers.element_sources import (
    OURS,
    Choices,
    anything,
    described,
    items,
    itself,
    nested,
    ours,
    outcome,
    own_memory,
    plain,
    plain_or_items,
    reads_equal,
    reshape_below,
    shape,
    shaped,
    subscript,
    view_of,
    whole,
)
from helpers.failures import NULL_POINTER
from hypothesis import given, settings
from hypothesis import strategies as st

NULL_DATA = (*NULL_POINTER, type(None))


def stored(array: Any) -> Any:
    """The elements that reads find, and those that a native client gets."""
    return described(array), described(there_and_back(array))


# --- Operations. Each makes its case from the choices and calls `form` on what is read.


def size_for(choices: Choices, source: Any) -> Any:
    kind = choices.below(6)
    if kind < 3:
        return None
    try:
        own = source.size if isinstance(source, OURS) else (len(source),)
    except Exception:
        own = (2, 3)
    return [own, own[::-1], (math.prod(own),)][kind - 3]


def construct(choices: Choices, form: Any) -> Any:
    kept: list = []
    row, is_complex = choices.pick(FORMS)
    source = ours(choices, kept) if choices.below(3) else nested(choices, kept)
    size = size_for(choices, source)
    given_ = form(source)
    return described(outcome(row.cls, given_, size, is_complex=is_complex))


def construct_vector(choices: Choices, form: Any) -> Any:
    kept: list = []
    row, is_complex = choices.pick(FORMS)
    source = anything(choices, kept)
    if choices.below(2):
        source = shaped(choices, kept, (choices.below(6),))
    size = size_for(choices, source)
    given_ = form(source)
    return described(outcome(row.cls, vector=given_, size=size, is_complex=is_complex))


def right_side(choices: Choices, kept: list, array: Any, view: Any, wanted: Any) -> Any:
    kind = choices.below(8)
    if kind < 3:
        try:
            return shaped(choices, kept, view[wanted].size)
        except Exception:
            return shaped(choices, kept, (2,))
    if kind == 3:
        return view_of(choices, array)
    if kind == 4:
        try:  # another part of the same shape
            return choices.pick([view[wanted][::-1], view[subscript(choices, len(view))]])
        except Exception:
            return array
    if kind == 5 and not array._is_complex and math.prod(array.size):
        return own_memory(choices, array)
    if kind == 6:
        part = view_of(choices, array)
        return choices.pick([[part, part], (part, [1, 2])])
    return anything(choices, kept)


def assign(choices: Choices, form: Any) -> Any:
    kept: list = []
    array = whole(choices, kept, shape(choices))
    view = view_of(choices, array)
    if choices.is_rare(12):
        reshape_below(choices, array)
    length = outcome(len, view)
    wanted = subscript(choices, length if isinstance(length, int) else 2)
    right = right_side(choices, kept, array, view, wanted)
    snapshot = outcome(array.clone) if choices.is_rare(8) else None
    given_ = form(right)
    done = outcome(operator.setitem, view, wanted, given_)
    return done, stored(array), described(snapshot)


def similar(choices: Choices, kept: list, view: Any) -> Any:
    """Another view of which most elements are those of the first."""
    kind = choices.below(7)
    if kind == 0:
        return view
    if kind == 1:
        return ours(choices, kept)
    try:
        if kind < 4:
            return view[:: choices.pick((-1, 1))]
        numbers = plain(view)
        made = type(view)(numbers, is_complex=type(view) in COMPLEX and bool(choices.below(2)))
        if len(view.size) == 1:
            made = made[0]
        if kind == 4:
            inner = made
            while len(inner.size) > 1:
                inner = inner[-1]
            inner[-1] = choices.pick((0, 1, 2, 3))
        kept.append(made)
        return made
    except Exception:
        return view


COMPLEX = [row.cls for row, is_complex in FORMS if is_complex]


def check_comparison(choices: Choices) -> None:
    kept: list = []
    a = ours(choices, kept)
    b = similar(choices, kept, a)
    want = outcome(reads_equal, a, b)
    got = outcome(operator.eq, a, b)
    assert got == want, (got, want, described_or_text(a), described_or_text(b))
    inverted = not want if isinstance(want, bool) else want
    assert outcome(operator.ne, a, b) == inverted


def described_or_text(view: Any) -> Any:
    return outcome(repr, view)


def check_snapshots(choices: Choices) -> None:
    """Clones, exports and contents for clients hold what reading the view's elements gives."""
    kept: list = []
    array = whole(choices, kept, shape(choices))
    view = view_of(choices, array)
    try:
        numbers = plain(view)
        size = view.size
    except Exception:
        return
    if 0 in size or outcome(len, view) == 0:
        return
    want = outcome(type(view), numbers, is_complex=array._is_complex)
    is_refused = isinstance(want, tuple)  # complex 64-bit integers near the limits
    pickled = outcome(pickle.dumps, view)
    takes = [view.clone, lambda: memoryview(view), lambda: there_and_back(view)]
    start = choices.below(3)
    for take in takes[start:] + takes[:start]:
        if view is array and take is not takes[0]:
            continue  # the elements themselves
        made = outcome(take)
        assert isinstance(made, tuple) == is_refused
        if is_refused:
            assert made == [(SystemError, want[1], want[0]), NULL_DATA, want][takes.index(take)]
            continue
        memory = memoryview(made)
        assert memory.shape == (size if len(size) > 1 else (1, *size))
        assert memory.tobytes() == memoryview(want).tobytes()
    assert outcome(pickle.dumps, view) == pickled


def check_rows(choices: Choices) -> None:
    """toarray() gives what array.array makes of the items."""
    kept: list = []
    row = ours(choices, kept)
    try:
        while len(row.size) > 1:
            row = row[choices.below(len(row))]
        typecode = "B" if isinstance(row, velmar.logical) else LETTERS[type(row).__name__]
        want = array.array(typecode, iter(row))
    except Exception:  # complex numbers, and rows that cannot be read
        return
    got = row.toarray()
    assert (got.typecode, got.tobytes()) == (want.typecode, want.tobytes())


def check_ways(operation: Any, choices: Choices) -> None:
    got = operation(choices, itself)
    second = choices.again()
    form = items if choices.taken[0] % 3 == 0 else plain_or_items
    want = operation(second, form)
    assert got == want


each_check = rows(
    "check, share",
    [  # shares in a hundred cases
        ("assignments", functools.partial(check_ways, assign), 35),
        ("constructions", functools.partial(check_ways, construct), 20),
        ("vectors", functools.partial(check_ways, construct_vector), 15),
        ("comparisons", check_comparison, 15),
        ("snapshots", check_snapshots, 10),
        ("rows", check_rows, 5),
    ],
)


EXAMPLES = (3 if IS_BRIEF else 30) * settings.default.max_examples


class TestRandomCases:
    @each_check
    def test_shrinkable(self, check, share):
        @settings(
            max_examples=share * settings.default.max_examples // 100 * (2 if IS_BRIEF else 20)
        )
        @given(st.data())
        def run(data):
            check(Choices(lambda end: data.draw(integers_below(end))))

        run()

    @each_check
    def test_many(self, check, share, request):
        count = request.config.getoption("--element-cases") * share // 100
        seed = request.config.getoption("--program-seed")
        for number in range(count):
            source = random.Random(f"{seed}-{number}")
            try:
                check(Choices(source.randrange))
            except Exception as error:
                raise AssertionError(f"case {number} of seed {seed}") from error


@functools.cache
def integers_below(end: int) -> Any:
    return st.integers(0, end - 1)
