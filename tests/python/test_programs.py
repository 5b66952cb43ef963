"""Random programs over arrays: after each line the module and its model must agree.

To add an operation, write its lines in helpers/program_steps.py and its model in
helpers/program_model.py. A longer run: --program-steps 100000 --program-seed 3.
"""

from __future__ import annotations

import contextlib
import itertools
import operator
import random

import pytest
from helpers import program_model, program_values
from helpers.cases import some_of
from helpers.conversion_model import convert
from helpers.nesting_model import storage_order
from helpers.program_model import Array
from helpers.program_runs import (
    LINES_SHOWN,
    Run,
    first_divergence,
    random_program,
    replay,
    report,
    shrunk,
)
from helpers.program_steps import STEPS, next_step
from helpers.program_storage import Storage
from helpers.program_text import Writer


class TestPrograms:
    def test_module_and_model_agree(self, request):
        option = request.config.getoption
        with contextlib.ExitStack() as stack:
            path = option("--program-log")
            log = stack.enter_context(open(path, "w")) if path else None
            found = first_divergence(option("--program-seed"), option("--program-steps"), log)
        if found:
            pytest.fail(report(*found), pytrace=False)


def follow_writes(self):
    self._snapshot = None
    return rules["clone"](self)


def compose_writes(self, storage, item, value):
    if self._slice is not None:
        item = program_model.composed(self._slice, item)
    rules["write_numbers"](self, storage, item, value)


def stay_strong(self, integers, item, *, weak):
    return rules["view"](self, integers, item, weak=False)


def pass_weakness_on(self, integers, item, *, weak):
    return rules["view"](self, integers, item, weak=weak or self._is_weak)


def keep_the_slice(self):
    return type(self), (
        {"is_complex": True} if self._storage().is_complex else {},
        self._contents(),
    )


def take_all_or_nothing(self, storage, item, value):
    before = list(storage.elements)
    try:
        rules["write_rows"](self, storage, item, value)
    except Exception:
        storage.elements[:] = before
        raise


def look_at_each_entry(self, position, element):
    if any(not 0 <= p < length for p, length in zip(position, self.shape, strict=False)):
        raise RuntimeError("unable to set value.")
    rules["write"](self, position, element)


def keep_empty_shapes(self):
    dimensions, elements = rules["materialized"](self)
    return ([len(self), 0], []) if not elements else (dimensions, elements)


def compare_contents(self, other):
    return type(self) is type(other) and self._contents() == other._contents()


def write_in_the_view(self, storage):
    return len(self)


def forget_when_reshaped(self, *args, **kwargs):
    result = rules["reshape"](self, *args, **kwargs)
    self._snapshot = None
    return result


def reshape_rows(self, *args, **kwargs):
    """Keeps the order of the nesting instead of the order in the storage."""
    storage = self._storage()
    strides, elements = storage.strides, list(storage.elements)
    places = itertools.product(*map(range, storage.shape))
    in_rows = [elements[sum(map(operator.mul, place, strides))] for place in places]
    rules["reshape"](self, *args, **kwargs)
    storage.elements[:] = storage_order(storage.shape, in_rows)
    return self


def keep_ones(given):
    shape = rules["new_shape"](given)
    return [*shape, *[1] * (len(given) - len(shape))]


def make_two_dimensions(given):
    shape = rules["new_shape"](given)
    return [1, *shape] if len(shape) == 1 else shape


def extract_what_is_seen(self, part):
    rules["extracted"](self, part)
    elements = self._flattened(self._contents())[1]
    whole = self._new(Storage(False, [1, len(elements)], [part(each) for each in elements]))
    return whole._view((0,), None, weak=False)


def extract_a_whole_array(self, part):
    elements = [part(element) for element in self._storage().elements]
    return self._new(Storage(False, [1, len(elements)], elements))


def export_what_is_now(self):
    self._copy = self._snapshot = None
    return rules["memory"](self)


def take_any_order_for_storage_order(value):
    found = rules["outside"](value)
    return found and found._replace(is_storage_order=True)


def walk_buffers(value):
    return None


def read_each_entry(self, position):
    if any(not 0 <= p < length for p, length in zip(position, self.shape, strict=False)):
        raise RuntimeError("null data pointer.")
    return rules["read"](self, position)


def report_errors_in_comparison(walk):
    return next(walk, program_model.NOTHING)


rules = {
    "clone": Array.clone,
    "write_numbers": Array._write_numbers,
    "view": Array._view,
    "write_rows": Array._write_rows,
    "write": Storage.write,
    "materialized": Array._materialized,
    "reshape": Array.reshape,
    "new_shape": program_model.new_shape,
    "extracted": Array._extracted,
    "memory": Array._memory,
    "outside": program_values.outside,
    "read": Storage.read,
}
BROKEN_RULES = [  # owner and name of a rule of the model, and a wrong replacement
    (Array, "clone", follow_writes),
    (Array, "_write_numbers", compose_writes),
    (Array, "_view", stay_strong),
    (Array, "_view", pass_weakness_on),
    (Array, "__reduce__", keep_the_slice),
    (Array, "_write_rows", take_all_or_nothing),
    (Storage, "write", look_at_each_entry),
    (Array, "_materialized", keep_empty_shapes),
    (Array, "_equals", compare_contents),
    (Array, "_length_for_writes", write_in_the_view),
    (program_model, "assigned", convert),
    (Array, "reshape", forget_when_reshaped),
    (Array, "reshape", reshape_rows),
    (program_model, "new_shape", keep_ones),
    (program_model, "new_shape", make_two_dimensions),
    (Array, "_extracted", extract_what_is_seen),
    (Array, "_extracted", extract_a_whole_array),
    (Array, "_memory", export_what_is_now),
    (program_values, "outside", take_any_order_for_storage_order),
    (program_values, "outside", walk_buffers),
    (Storage, "read", read_each_entry),
    (program_model, "_next_or_nothing", report_errors_in_comparison),
]


class TestTheCheck:
    """The programs must find every rule in which module and model differ."""

    @pytest.mark.parametrize(
        "owner, name, rule",
        [pytest.param(*row, id=row[-1].__name__) for row in some_of(BROKEN_RULES, 6)],
    )
    def test_a_broken_rule_is_found(self, monkeypatch, owner, name, rule):
        monkeypatch.setattr(owner, name, rule)
        found = first_divergence(seed=1, steps=20_000)
        assert found is not None

    def test_what_is_found_is_shown_and_shrunk(self, monkeypatch):
        monkeypatch.setattr(Array, "clone", follow_writes)
        name, lines, found = first_divergence(seed=1, steps=20_000)
        short = shrunk(lines, found.line)
        assert replay(short)
        assert 3 <= len(short) <= 8  # an array, a clone, a write, another clone
        shown = report(name, lines, found)
        assert f"program {name} differs" in shown
        assert all(line in shown for line in [*lines[-LINES_SHOWN:], *short])

    def test_a_program_is_the_same_every_time(self):
        assert random_program("5/0", 100)[0] == random_program("5/0", 100)[0]

    def test_every_step_is_taken_and_most_lines_make_sense(self):
        run = Run()
        writer = Writer(random.Random(2), run.model)
        made = {maker.__name__: [] for _, maker in STEPS}
        for _ in range(4000):
            maker, line = next_step(writer)
            found = run.step(line)
            assert found is None
            made[maker.__name__].append(run.gave)
        assert all(any(made[name]) for name in made if name != "delete_item")
        assert made["delete_item"] and not any(made["delete_item"])
        given = [gave for of_maker in made.values() for gave in of_maker]
        assert 0.6 < sum(given) / len(given) < 0.9

    def test_texts_of_countless_rows_are_not_made(self):
        run = Run()
        assert run.step("a = velmar.double(size=(2**31, 0))") is None
        assert run.outcome("a", {"a"}, run.module)[1] == [("a", ("double", (2**31, 0)))]
        assert run.outcome("a", {"a"}, run.model) == run.outcome("a", {"a"}, run.module)
