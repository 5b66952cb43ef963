"""Makes each allocation of the module and of its data library fail in turn, in every operation.

The operation has to raise MemoryError or the error that replaces it, or to return its usual result.
After an error the array has to be what it was, and the same operation on it then has to return its
usual result. Nothing may stay allocated.
"""

from __future__ import annotations

import collections
import ctypes
import gc
import json
import random
import subprocess
import sys
from pathlib import Path
from typing import Any

import part

DIED = "the interpreter died"
NO_SUCH = 10**9  # number of an allocation that is never made
MOST_LOOKS = 20  # what stays of each call shows in all of them; the interpreter keeps some blocks

# Errors that replace MemoryError in some operations.
STATED = {
    ("RuntimeError", "null data pointer."): "memory of a view",
    ("RuntimeError", "unable to set list item."): "a list of a slice",
    ("RuntimeError", "toarray() failed."): "an array.array",
    ("SystemError", "clone"): "a clone of a view: an error beside a result",
}


def library() -> Any:
    source = Path(__file__).with_suffix(".cpp")
    built = part.WORKING_FOLDER / "libfailing_allocations.so"
    if not built.exists() or built.stat().st_mtime < source.stat().st_mtime:
        flags = ["-std=c++20", "-O1", "-shared", "-fPIC", "-Wall", "-Wextra"]
        subprocess.run(["g++", *flags, str(source), "-o", str(built)], check=True)
    loaded = ctypes.CDLL(str(built))
    loaded.arm.argtypes = (ctypes.c_long,)
    loaded.count.restype = loaded.live.restype = ctypes.c_long
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


def state(array: Any) -> Any:
    from operations import seen

    return seen(array), array.get_bytewise_strides(), array.itemsize


class Trial:
    """Tests one operation with each of its allocations failing."""

    def __init__(self, operation: Any, allocations: Any, is_contended: bool):
        self.operation = operation
        self.name = operation.name
        self.allocations = allocations
        self.is_contended = is_contended  # by a thread that has blocks, too
        self.outcomes: collections.Counter[str] = collections.Counter()
        self.before = state(operation.make())
        self.prepare()
        self.level = allocations.live()
        self.blocks = max(self.blocks_of_failure(NO_SUCH)[1] for _ in range(MOST_LOOKS))
        self.outcomes.clear()

    def prepare(self) -> None:
        """Runs the operation as often as fail() does, without a failure."""
        made = self.operation.make()
        self.usual = self.result_of(made)
        self.after = state(made)
        self.once_more = self.result_of(made)
        self.after_that = state(made)

    def result_of(self, made: Any) -> Any:
        from operations import seen

        return seen(self.operation.of(made))

    def count(self) -> int:
        """How many allocations the operation makes."""
        made = self.operation.make()
        self.allocations.arm(0)
        given = self.operation.of(made)
        number = self.allocations.count()
        del given
        return number

    def blocks_of_failure(self, k: int) -> tuple[str | None, int]:
        """What fail() returns, and the memory blocks of the interpreter that stay."""
        before = sys.getallocatedblocks()
        found = self.fail(k)
        return found, sys.getallocatedblocks() - before

    def fail(self, k: int) -> str | None:
        """Text of the finding, or None."""
        made = self.operation.make()
        error = None
        self.allocations.arm(k)
        try:
            given = self.operation.of(made)
        except Exception as caught:
            error = stated(caught) or f"{type(caught).__name__}: {caught}"
            is_stated = stated(caught) is not None
        finally:
            has_failed = self.allocations.count() >= k
            self.allocations.arm(0)
        where = f"{self.name}: allocation {k}"
        if error is None:
            outcome = self.judge_result(given)
            wanted = self.after
            del given
        else:
            outcome = error if is_stated else None
            wanted = self.before
        if outcome is None:
            return f"{where}: unexpected: {error or 'result'}"
        self.outcomes[outcome if has_failed else "no such allocation"] += 1
        is_done = state(made) == wanted
        if not is_done and state(made) != self.refused_state(error):
            return f"{where}: {outcome}: the array is now {str(state(made))[:200]}"
        is_second = is_done and error is None
        wanted = (self.once_more, self.after_that) if is_second else (self.usual, self.after)
        if (self.result_of(made), state(made)) != wanted:
            return f"{where}: {outcome}: the operation does not give its usual result again"
        return None

    def refused_state(self, error: str | None) -> Any:
        """A call that has to fail can also fail for lack of memory, before it changes anything."""
        return self.before if error is None and isinstance(self.usual, str) else None

    def judge_result(self, given: Any) -> str | None:
        from operations import seen

        result = seen(given)
        if result == self.usual:
            return "the usual result"
        # A call that has to fail may fail because of missing memory instead.
        is_refusal = ": fails: " in self.name or isinstance(self.usual, str)
        if is_refusal and result in ("'MemoryError'", "'RuntimeError'", "'SystemError'"):
            return "another error of a call that has to fail"
        return None

    def fail_without_loss(self, k: int) -> str | None:
        """The same, and what is still allocated afterwards."""
        # A record of a failed construction is kept.
        allowed = self.blocks + self.operation.constructs
        for _ in range(MOST_LOOKS):
            found, lost = self.blocks_of_failure(k)
            if found or self.is_contended:
                return found
            level = self.allocations.live()
            if level != self.level:
                return f"{self.name}: allocation {k}: {level - self.level} blocks more than before"
            if lost <= allowed:
                return None
        return f"{self.name}: allocation {k}: {lost} blocks of the interpreter, not {allowed}"


def walk(arguments: Any) -> int:
    """In the child: runs every operation from number --first on."""
    import operations

    allocations = library()
    turned = allocations.install()
    assert turned >= 12, "the module's calls of the allocating functions were not found"
    clock, log = part.Clock(arguments.seconds), part.Log(arguments.log)
    shapes = operations.SMALL, operations.MIDDLE, operations.LARGE
    todo = operations.every_operation(shapes)
    random.Random(arguments.seed).shuffle(todo)
    findings: list[str] = []
    outcomes: collections.Counter[str] = collections.Counter()
    done = failed = 0
    gc.disable()
    gc.freeze()
    for number, operation in enumerate(todo[arguments.first :], arguments.first):
        if clock.is_over():
            break
        log.start(f"{number} {operation.name}")
        trial = Trial(operation, allocations, arguments.contended)
        for k in range(1, trial.count() + 1):
            log.write(str(k))
            found = trial.fail_without_loss(k)
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
