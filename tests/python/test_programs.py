"""Random programs over arrays: after each line the module and a model of it must agree.

An operation takes part when program_steps.py writes lines with it and program_model.py answers
them. Many more steps than the ordinary run has: --program-steps 100000 --program-seed 3.
"""

from __future__ import annotations

import array
import ast
import contextlib
import copy
import itertools
import operator
import pickle
import random
from collections.abc import Iterable
from dataclasses import dataclass, field
from typing import Any, TextIO

import program_model
import program_values
import pytest
import velmar
from arrays import CLASS_ROWS
from conversion_model import convert
from effort import some_of
from nesting_model import storage_order
from program_model import Array, Storage
from program_steps import STEPS, next_step
from program_text import NAMES, Writer

STEPS_OF_A_PROGRAM = 250
STEPS_BETWEEN_LOOKS = 20  # at everything that the program holds
LINES_SHOWN = 15
WORDS = {row.word for row in CLASS_ROWS}


def failure(error: BaseException) -> tuple:
    """What a program can tell of an exception."""
    if isinstance(error, SystemError):  # the interpreter's own, over what was left pending
        cause = error.__cause__
        return "raised", SystemError, type(cause), str(cause)
    return "raised", type(error), str(error)


def attempt(function: Any, *arguments: Any) -> tuple:
    try:
        return "gave", function(*arguments)
    except Exception as error:
        return failure(error)


def name_of(cls: type) -> str:
    return cls.__name__.rpartition(".")[2]


def describe(value: Any) -> Any:
    """A value with its type, in a form that is the same for the module and for the model."""
    name = name_of(type(value))
    if name in WORDS:
        return name, attempt(repr, value)
    if name == "MCPyIter":
        return (name,)
    if name == "memoryview":
        facts = value.format, value.itemsize, value.shape, value.strides, value.readonly
        return name, facts, attempt(lambda: repr(value.tolist()))
    if isinstance(value, list | tuple):
        return (name, *map(describe, value))
    return (name, name_of(value)) if isinstance(value, type) else (name, repr(value))


def elements(array: Any) -> Any:
    """What subscripts alone find."""
    if name_of(type(array)) not in WORDS:
        return describe(array)
    return [elements(array[i]) for i in range(len(array))]


def full_description(value: Any) -> Any:
    """All that can be asked of a value without changing it."""
    if isinstance(value, list):
        return [full_description(item) for item in value]
    if name_of(type(value)) not in WORDS:
        return describe(value)
    asked = [describe, len, str, elements, lambda array: describe(list(array)), lambda a: a == a]
    asked += [lambda a: a.size, lambda a: describe(a._real if a._is_complex else a._data)]
    answers = [attempt(ask, value) for ask in asked]
    return answers, attempt(lambda array: describe(array.__reduce__()), value)


@dataclass
class Divergence:
    """The line at which module and model part, and what each of them says."""

    line: str
    module: Any
    model: Any

    def __str__(self) -> str:
        return f"at: {self.line}\nmodule: {self.module}\nmodel:  {self.model}"


@dataclass
class Run:
    """One program, run line by line in the module and in the model."""

    module: dict[str, Any] = field(
        default_factory=lambda: {"velmar": velmar, "pickle": pickle, "copy": copy, "array": array}
    )
    model: dict[str, Any] = field(default_factory=program_model.namespace)
    gave: bool = False  # whether the last line ended without an exception

    def outcome(self, code: Any, used: set[str], names: dict[str, Any]) -> tuple:
        """What the line gives, and what the names in it stand for afterwards."""
        result = attempt(lambda: describe(eval(code, names)))
        return result, [(name, describe(names.get(name))) for name in sorted(used)]

    def step(self, line: str) -> Divergence | None:
        tree = ast.parse(line)
        used = {node.id for node in ast.walk(tree) if isinstance(node, ast.Name)} & set(NAMES)
        mode = "eval" if isinstance(tree.body[0], ast.Expr) else "exec"
        code = compile(line, "<program>", mode)  # anew each time, so that it stays unspecialized
        module = self.outcome(code, used, self.module)
        model = self.outcome(code, used, self.model)
        self.gave = module[0][0] == "gave"
        return None if module == model else Divergence(line, module, model)

    def look(self) -> Divergence | None:
        """Compare everything."""
        for name in NAMES:
            module = full_description(self.module.get(name))
            model = full_description(self.model.get(name))
            if module != model:
                return Divergence(f"(looking at {name})", module, model)
        return None


def replay(lines: Iterable[str]) -> Divergence | None:
    run = Run()
    for line in lines:
        found = run.step(line)
        if found:
            return found
    return run.look()


def shrunk(lines: list[str], at: str) -> list[str]:
    """The program without the lines that the divergence at this line does not need."""
    size = max(len(lines) // 2, 1)
    while True:
        start, shorter = 0, False
        while start < len(lines):
            fewer = lines[:start] + lines[start + size :]
            still = replay(fewer)
            if still and still.line == at:
                lines, shorter = fewer, True
            else:
                start += size
        if size == 1 and not shorter:
            return lines
        size = max(size // 2, 1)


def random_program(
    seed: str, steps: int, log: TextIO | None = None
) -> tuple[list[str], Divergence | None]:
    """The lines of a program up to its end, or up to where module and model part."""
    run = Run()
    writer = Writer(random.Random(seed), run.model)
    lines: list[str] = []
    for count in range(1, steps + 1):
        lines.append(next_step(writer)[1])
        if log:
            print(lines[-1], file=log, flush=True)
        found = run.step(lines[-1])
        if not found and (count % STEPS_BETWEEN_LOOKS == 0 or count == steps):
            found = run.look()
        if found:
            return lines, found
    return lines, None


def first_divergence(
    seed: int, steps: int, log: TextIO | None = None
) -> tuple[str, list[str], Divergence] | None:
    for number, start in enumerate(range(0, steps, STEPS_OF_A_PROGRAM)):
        name = f"{seed}/{number}"
        if log:
            print(f"# program {name}", file=log)
        lines, found = random_program(name, min(STEPS_OF_A_PROGRAM, steps - start), log)
        if found:
            return name, lines, found
    return None


def report(name: str, lines: list[str], found: Divergence) -> str:
    short = shrunk(lines, found.line)
    last = [f"... {len(lines) - LINES_SHOWN} lines before"] if len(lines) > LINES_SHOWN else []
    return "\n".join(
        [f"program {name} parts from the model at step {len(lines)}", str(found), "last lines:"]
        + [f"    {line}" for line in last + lines[-LINES_SHOWN:]]
        + ["shrunk to:"]
        + [f"    {line}" for line in short]
        + [str(replay(short))]
    )


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
    """The elements in the order of the nesting stay, and not those in the storage."""
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
BROKEN_RULES = [  # where the rule stands, and one that is not the module's
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
    """A program would not be worth running if it missed a rule that the module breaks."""

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
        assert f"program {name} parts" in shown
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
