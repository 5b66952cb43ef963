"""Compares random programs with the model until the time is over."""

from __future__ import annotations

import sys

import part
from helpers.program_runs import STEPS_OF_A_PROGRAM, random_program, report

MOST_FINDINGS = 3


def main() -> int:
    arguments = part.parser(__doc__).parse_args()
    part.prepare()
    clock = part.Clock(arguments.seconds)
    log = part.Log(arguments.log)
    findings: list[str] = []
    programs = steps = 0
    with part.contention(arguments.contended) as rounds:
        while not clock.is_over() and len(findings) < MOST_FINDINGS:
            name = f"{arguments.seed}/{programs}"
            log.start(f"program {name}")
            lines, found = random_program(name, STEPS_OF_A_PROGRAM, log.file)
            programs += 1
            steps += len(lines)
            if found:
                findings.append(report(name, lines, found))
    figures = {
        "part": "programs",
        "seed": arguments.seed,
        "programs": programs,
        "steps": steps,
        "divergences": len(findings),
        "rounds of the other thread": rounds[0],
        "seconds": clock.seconds(),
    }
    return part.finish(figures, findings)


if __name__ == "__main__":
    sys.exit(main())
