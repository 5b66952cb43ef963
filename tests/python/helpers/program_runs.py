"""Runs random programs in module and model, and shortens a program on which they differ."""

from __future__ import annotations

import array
import ast
import copy
import pickle
import random
from collections.abc import Iterable
from dataclasses import dataclass, field
from typing import Any, TextIO

import velmar

from helpers import program_model
from helpers.arrays import CLASS_ROWS
from helpers.hostile_objects import has_endless_rows
from helpers.program_steps import next_step
from helpers.program_text import NAMES, Writer

STEPS_OF_A_PROGRAM = 250
STEPS_BETWEEN_LOOKS = 20  # a look compares all names of the program
LINES_SHOWN = 15
WORDS = {row.word for row in CLASS_ROWS}


def failure(error: BaseException) -> tuple:
    """What a program can see of an exception."""
    if isinstance(error, SystemError):  # the interpreter's, about a pending error
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
    """A value and its type, in a form that is equal for module and model."""
    name = name_of(type(value))
    if name in WORDS:
        return name, value.size if has_endless_rows(value) else attempt(repr, value)
    if name == "MCPyIter":
        return (name,)
    if name == "memoryview":
        facts = value.format, value.itemsize, value.shape, value.strides, value.readonly
        return name, facts, attempt(lambda: repr(value.tolist()))
    if isinstance(value, list | tuple):
        return (name, *map(describe, value))
    return (name, name_of(value)) if isinstance(value, type) else (name, repr(value))


def elements(array: Any) -> Any:
    """The elements, read with subscripts only."""
    if name_of(type(array)) not in WORDS:
        return describe(array)
    return [elements(array[i]) for i in range(len(array))]


def full_description(value: Any) -> Any:
    """All that can be read of a value without changing it."""
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
    """The line at which module and model differ, and the two results."""

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
        """The result of the line, and the values of its names afterwards."""
        result = attempt(lambda: describe(eval(code, names)))
        return result, [(name, describe(names.get(name))) for name in sorted(used)]

    def step(self, line: str) -> Divergence | None:
        tree = ast.parse(line)
        used = {node.id for node in ast.walk(tree) if isinstance(node, ast.Name)} & set(NAMES)
        mode = "eval" if isinstance(tree.body[0], ast.Expr) else "exec"
        code = compile(line, "<program>", mode)  # new each time, so never specialized
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
    """The program without the lines that are not needed for the divergence."""
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
    """The lines of a program, up to its end or the first divergence."""
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
        # Texts and lists of such an array take the model minutes.
        if found or any(map(has_endless_rows, run.module.values())):
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
        [f"program {name} differs from the model at step {len(lines)}", str(found), "last lines:"]
        + [f"    {line}" for line in last + lines[-LINES_SHOWN:]]
        + ["shrunk to:"]
        + [f"    {line}" for line in short]
        + [str(replay(short))]
    )
