"""Random programs, or random operations with hostile objects, until the time is over.

`--target programs` compares random programs with the model.

`--target hostile` checks what must hold after each step. There, exceptions are not findings.
Findings are errors that the interpreter reports about the module (a result together with an error,
no result and no error), and arrays whose text, length, subscripts and memory disagree.
"""

from __future__ import annotations

import collections
import random
import sys

import part
from helpers.hostile_walk import Walk, expect_noise
from helpers.program_runs import STEPS_OF_A_PROGRAM, random_program, report

STEPS_OF_A_WALK = 400
MOST_FINDINGS = 3


def program(name: str, log: part.Log) -> tuple[dict[str, int], str | None]:
    lines, found = random_program(name, STEPS_OF_A_PROGRAM, log.file)
    return {"steps": len(lines)}, report(name, lines, found) if found else None


def hostile(name: str, log: part.Log) -> tuple[dict[str, int], str | None]:
    walk = Walk(random.Random(name), log.file)
    found = walk.run(STEPS_OF_A_WALK)
    return {"steps": walk.done, "acts of harm": walk.harm.done}, found and f"walk {name}: {found}"


TARGETS = {"programs": program, "hostile": hostile}


def main() -> int:
    arguments = part.begin(__doc__, target={"choices": [*TARGETS], "default": "programs"})
    if arguments.target == "hostile":
        expect_noise()
    log = part.Log(arguments.log)
    findings: list[str] = []
    counts = collections.Counter(programs=0)
    with part.contention(arguments.contended) as rounds:
        while not arguments.clock.is_over() and len(findings) < MOST_FINDINGS:
            name = f"{arguments.seed}/{counts['programs']}"
            log.start(f"{arguments.target} {name}")
            numbers, found = TARGETS[arguments.target](name, log)
            counts.update(numbers, programs=1)
            findings += [found] if found else []
    figures = {**counts, "divergences": len(findings), "rounds of the other thread": rounds[0]}
    return part.finish(arguments.target, arguments, figures, findings)


if __name__ == "__main__":
    sys.exit(main())
