"""Random operations on arrays with hostile objects; checks what must hold after each step.

Exceptions are not findings. Findings are errors that the interpreter reports about the module (a
result together with an error, no result and no error), and arrays whose text, length, subscripts
and memory disagree.
"""

from __future__ import annotations

import sys
import warnings

import part
from hostile_walk import Walk

STEPS_OF_A_WALK = 400
MOST_FINDINGS = 3


def main() -> int:
    arguments = part.parser(__doc__).parse_args()
    part.prepare()
    warnings.simplefilter("ignore")
    sys.unraisablehook = lambda _: None  # finalizers raise on purpose
    clock, log = part.Clock(arguments.seconds), part.Log(arguments.log)
    findings: list[str] = []
    walks = steps = harm = 0
    with part.contention(arguments.contended) as rounds:
        while not clock.is_over() and len(findings) < MOST_FINDINGS:
            name = f"{arguments.seed}/{walks}"
            log.start(f"walk {name}")
            walk = Walk(name, log)
            for _ in range(STEPS_OF_A_WALK):
                steps += 1
                found = walk.step() or (walk.disagreement() if steps % 10 == 0 else None)
                if found:
                    findings.append(f"walk {name}: {found}")
                    break
            walks += 1
            harm += walk.harm.done
    figures = {
        "part": "hostile",
        "seed": arguments.seed,
        "programs": walks,
        "steps": steps,
        "acts of harm": harm,
        "divergences": len(findings),
        "rounds of the other thread": rounds[0],
        "seconds": clock.seconds(),
    }
    return part.finish(figures, findings)


if __name__ == "__main__":
    sys.exit(main())
