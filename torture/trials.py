"""Tries every operation in a child, and starts the child again after an operation that ended it.

What is tried is an object of the program: `todo` has its operations, `try_out(operation, log)` adds
to `findings`, and `figures()` are its results.
"""

from __future__ import annotations

import gc
import os
import sys
from collections.abc import Callable
from pathlib import Path
from typing import Any

import part

MOST_CRASHES = 10


def walk(name: str, trials: Any, arguments: Any) -> int:
    """In the child: tries the operations from number --first on."""
    log, done = part.Log(arguments.log), 0
    gc.disable()
    gc.freeze()
    for number, operation in enumerate(trials.todo[arguments.first :], arguments.first):
        if arguments.clock.is_over():
            break
        log.start(f"{number} {operation.name}")
        trials.try_out(operation, log)
        done += 1
    figures = {"operations": done, "of": len(trials.todo), **trials.figures()}
    return part.finish(name, arguments, figures, trials.findings)


def main(
    name: str,
    description: str | None,
    make: Callable[[Any], Any],
    settings: dict[str, str] | None = None,
) -> int:
    """Runs the program `name`; `settings` are environment variables of the child."""
    first_option = {"type": int, "default": 0, "help": "number of the first operation"}
    arguments = part.begin(description, walk=part.IN_THIS_PROCESS, first=first_option)
    if arguments.walk:
        with part.contention(arguments.contended):
            return walk(name, make(arguments), arguments)
    first, crashes = arguments.first, 0
    findings: list[str] = []
    figures: dict[str, Any] = {}
    errors = part.WORKING_FOLDER / f"{Path(sys.argv[0]).stem}.log"
    steps = arguments.log or errors.with_suffix(".steps")
    command = [sys.argv[0], "--walk", f"--log={steps}", f"--seed={arguments.seed}"]
    command += ["--contended"] if arguments.contended else []
    while not figures and crashes < MOST_CRASHES:
        steps.write_text("")
        options = [f"--first={first}", f"--seconds={max(arguments.clock.left(), 1)}"]
        ended = part.run_child([*command, *options], errors, {**os.environ, **(settings or {})})
        findings += ended.lines
        figures = ended.figures
        if not figures:
            step = steps.read_text().splitlines() or [f"# {first}"]
            text = f"the interpreter died ({ended.status}) in {step[0]}, last step {step[-1]}: "
            findings.append(text + ended.errors[-1500:])
            first = int(step[0].split()[1]) + 1
            crashes += 1
    return part.finish(name, arguments, {**figures, "crashes": crashes}, findings)
