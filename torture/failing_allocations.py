"""Makes each allocation of the module and of its data library fail in turn, in every operation.

The operation has to raise MemoryError or the error that replaces it, or to return its usual result.
Afterwards the same operation has to return its usual result.
"""

from __future__ import annotations

import collections
import ctypes
import json
import random
import subprocess
import sys
from pathlib import Path
from typing import Any

import part

# The module's own strings and vectors come from operator new. By default these allocations do not
# fail; --least-of-new makes those from a given size on fail, too.
NEVER = 2**62
DIED = "the interpreter died"

# Errors that replace MemoryError in some operations.
STATED = {
    ("RuntimeError", "null data pointer."): "memory of a view",
    ("SystemError", "clone"): "a clone of a view: an error beside a result",
}


def library() -> Any:
    source = Path(__file__).with_suffix(".cpp")
    built = part.WORKING_FOLDER / "libfailing_allocations.so"
    if not built.exists() or built.stat().st_mtime < source.stat().st_mtime:
        flags = ["-std=c++20", "-O1", "-shared", "-fPIC", "-Wall", "-Wextra"]
        subprocess.run(["g++", *flags, str(source), "-o", str(built)], check=True)
    loaded = ctypes.CDLL(str(built))
    loaded.arm.argtypes = (ctypes.c_long, ctypes.c_size_t)
    loaded.count.restype = ctypes.c_long
    return loaded


def stated(error: Exception) -> str | None:
    """The name of an error that a failed allocation may cause; None for other errors."""
    if isinstance(error, MemoryError):
        return "MemoryError"
    kind, text = type(error).__name__, str(error)
    for (wanted, part_of_text), name in STATED.items():
        if kind == wanted and part_of_text in text:
            return name
    return None


class Trial:
    """Tests one operation with each of its allocations failing."""

    def __init__(self, operation: Any, allocations: Any, least_of_new: int):
        from operations import seen

        self.act = lambda: seen(operation.act())
        self.name = operation.name
        self.allocations = allocations
        self.least_of_new = least_of_new
        self.outcomes: collections.Counter[str] = collections.Counter()
        self.usual = self.act()

    def count(self) -> int:
        self.allocations.arm(0, self.least_of_new)
        assert self.act() == self.usual
        return self.allocations.count()

    def fail(self, k: int) -> str | None:
        """Text of the finding, or None."""
        self.allocations.arm(k, self.least_of_new)
        outcome = "the usual result"
        try:
            given = self.act()
        except Exception as error:
            found = stated(error)
            outcome = found or f"{type(error).__name__}: {error}"
            given = self.usual if found else None
        finally:
            has_failed = self.allocations.count() >= k
            self.allocations.arm(0, self.least_of_new)
        if not has_failed:
            outcome = "no such allocation"
        elif outcome == "the usual result" and given != self.usual:
            outcome = "another error of a call that has to fail"
        self.outcomes[outcome] += 1
        if given != self.usual and not self.fails_anyhow(given):
            return f"{self.name}: allocation {k}: gave {str(given)[:80]} ({outcome})"
        if self.act() != self.usual:
            return f"{self.name}: does not give the same after allocation {k} had failed"
        return None

    def fails_anyhow(self, given: Any) -> bool:
        """An operation that has to fail may fail because of missing memory instead."""
        is_refusal = ": fails: " in self.name or isinstance(self.usual, str)
        return is_refusal and given in ("'MemoryError'", "'RuntimeError'", "'SystemError'")


def walk(arguments: Any) -> int:
    """In the child: runs every operation from number --first on."""
    import operations

    allocations = library()
    turned = allocations.install()
    assert turned >= 4, "the module's calls of the allocating functions were not found"
    clock, log = part.Clock(arguments.seconds), part.Log(arguments.log)
    shapes = operations.SMALL, operations.MIDDLE, operations.LARGE
    todo = operations.every_operation(shapes)
    random.Random(arguments.seed).shuffle(todo)
    findings: list[str] = []
    outcomes: collections.Counter[str] = collections.Counter()
    done = failed = 0
    for number, operation in enumerate(todo[arguments.first :], arguments.first):
        if clock.is_over():
            break
        log.start(f"{number} {operation.name}")
        trial = Trial(operation, allocations, arguments.least_of_new)
        for k in range(1, trial.count() + 1):
            log.write(str(k))
            found = trial.fail(k)
            failed += 1
            if found:
                findings.append(found)
        outcomes += trial.outcomes
        done += 1
    figures = {"operations": done, "of": len(todo), "failed allocations": failed}
    figures |= {"outcomes": dict(outcomes.most_common()), "slots": turned}
    return part.finish(figures, findings)


def run_child(arguments: Any, seconds: float, first: int, log: Path) -> tuple[dict, list[str], int]:
    """The results, the findings, and after a crash the number of the next operation, else -1."""
    command = [sys.executable, __file__, "--walk", "--seconds", str(seconds), "--log", str(log)]
    command += ["--seed", str(arguments.seed), "--first", str(first)]
    command += ["--least-of-new", str(arguments.least_of_new)]
    command += ["--contended"] if arguments.contended else []
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    lines = done.stdout.splitlines()
    if lines and lines[-1].startswith("{"):
        return json.loads(lines[-1]), lines[:-1], -1
    where = log.read_text().split("\n")
    number = int(where[0].split()[1]) if where[0] else first
    text = f"{DIED} ({done.returncode}) in {where[0]}, allocation {where[-2:][0]}: "
    return {}, [text + done.stderr[-1500:]], number + 1


def main() -> int:
    parser = part.parser(__doc__)
    parser.add_argument("--walk", action="store_true", help="run in this process, not in a child")
    parser.add_argument("--first", type=int, default=0, help="number of the first operation")
    parser.add_argument(
        "--least-of-new",
        type=int,
        default=NEVER,
        help="least size in bytes for which operator new fails",
    )
    arguments = parser.parse_args()
    part.prepare()
    if arguments.walk:
        with part.contention(arguments.contended):
            return walk(arguments)
    clock, first = part.Clock(arguments.seconds), 0
    findings: list[str] = []
    figures: dict[str, Any] = {}
    crashes = 0
    log = arguments.log or part.WORKING_FOLDER / "failing_allocations.log"
    while first >= 0 and crashes < 10:
        left = max(clock.end - part.time.monotonic(), 1)
        figures, found, first = run_child(arguments, left, first, log)
        findings += found
        crashes += first >= 0
    figures = {"part": "failing allocations", "seed": arguments.seed, **figures}
    return part.finish({**figures, "crashes": crashes, "seconds": clock.seconds()}, findings)


if __name__ == "__main__":
    sys.exit(main())
