"""Random programs, or random operations with hostile objects, until the time is over.

`--target programs` compares random programs with the model.

`--target hostile` checks what must hold after each step. There, exceptions are not findings.
Findings are errors that the interpreter reports about the module (a result together with an error,
no result and no error), and arrays whose text, length, subscripts and memory disagree.
"""

from __future__ import annotations

import collections
import gc
import itertools
import random
import sys
import threading
from typing import Any, TextIO

import part
import velmar
from helpers.hostile_walk import Walk, expect_noise
from helpers.program_runs import STEPS_OF_A_PROGRAM, random_program, report

STEPS_OF_A_WALK = 400
MOST_FINDINGS = 3
SHORTEST_SWITCH = 1e-6  # seconds until a thread has to release the interpreter


def program(name: str, log: TextIO) -> tuple[dict[str, int], str | None]:
    lines, found = random_program(name, STEPS_OF_A_PROGRAM, log)
    return {"steps": len(lines)}, report(name, lines, found) if found else None


def hostile(name: str, log: TextIO) -> tuple[dict[str, int], str | None]:
    walk = Walk(random.Random(name), log)
    found = walk.run(STEPS_OF_A_WALK)
    return {"steps": walk.done, "acts of harm": walk.harm.done}, found and f"walk {name}: {found}"


TARGETS = {"programs": program, "hostile": hostile}


class Walks:
    """Programs or walks, each from a seed of its own."""

    def __init__(self, arguments: Any):
        self.target = TARGETS[arguments.target]
        names = (f"{arguments.seed}/{number}" for number in itertools.count())
        self.todo = itertools.takewhile(lambda _: len(self.findings) < MOST_FINDINGS, names)
        self.findings: list[str] = []
        self.counts: collections.Counter[str] = collections.Counter()
        self.rounds = 0

    def try_out(self, name: str, log: TextIO) -> None:
        counts, found = self.target(name, log)
        self.counts.update(counts)
        self.findings += [found] if found else []

    def figures(self, done: int) -> dict[str, int]:
        return {"programs": done, **self.counts, "rounds of the other thread": self.rounds}


def be_busy(stop: threading.Event, walks: Walks) -> None:
    """In a second thread: collects garbage and runs Python code."""
    shared = velmar.double([[1, 2, 3], [4, 5, 6]])
    while not stop.is_set():
        cycle: list[Any] = [shared[0], iter(shared), memoryview(shared)]
        cycle.append(cycle)
        rows = [list(row) for row in shared]
        shared[0], shared[1] = rows[1], rows[0]
        del cycle
        gc.collect()
        walks.rounds += 1


def main() -> int:
    target = {"choices": TARGETS, "default": "programs"}
    contended = {"action": "store_true", "help": "run a second, busy thread"}
    arguments = part.begin(__doc__, target=target, contended=contended)
    if arguments.target == "hostile":
        expect_noise()
    walks = Walks(arguments)
    if not arguments.contended:
        return part.try_all(walks, arguments)
    sys.setswitchinterval(SHORTEST_SWITCH)
    stop = threading.Event()
    thread = threading.Thread(target=be_busy, args=(stop, walks))
    thread.start()
    try:
        return part.try_all(walks, arguments)
    finally:
        stop.set()
        thread.join()


if __name__ == "__main__":
    sys.exit(main())
