"""Makes each allocation of the module and of its data library fail in turn, in every operation.

The operation has to raise MemoryError or the error that replaces it, or to return its usual result.
After an error the array has to be what it was, and the same operation on it then has to return its
usual result. Nothing may stay allocated.
"""

from __future__ import annotations

import collections
import ctypes
import gc
import random
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any, TextIO

import part
from helpers.operations import LARGE, MIDDLE, SMALL, Operation, every_operation, seen

NO_SUCH = 10**9  # number of an allocation that is never made
MOST_LOOKS = 20  # what stays of each call shows in all of them; the interpreter keeps some blocks

# Errors that replace MemoryError in some operations.
STATED = {
    ("RuntimeError", "null data pointer."): "memory of a view",
    ("RuntimeError", "unable to set list item."): "a list of a slice",
    ("RuntimeError", "toarray() failed."): "an array.array",
    ("SystemError", "clone"): "a clone of a view: an error beside a result",
}

# The functions of failing_allocations.cpp that replace others, in calls of the libraries under test
# and, for the operators, of the functions of libstdc++ that they call.
LIBRARIES = ("velmarmultidimarrayforpython.abi3", "libzrfoundation_velmardata.so", "libstdc++.so")
OPERATORS = {"_Znwm": "new", "_Znam": "new"}
OPERATORS |= dict.fromkeys(("_ZdlPv", "_ZdlPvm", "_ZdaPv", "_ZdaPvm"), "delete")


def loaded_files() -> dict[str, int]:
    """The paths of the files in memory, and the address at which each begins."""
    found: dict[str, int] = {}
    for line in Path("/proc/self/maps").read_text().splitlines():
        addresses, *_, path = line.split(maxsplit=5)
        found.setdefault(path, int(addresses.split("-")[0], 16))
    return found


def slots(path: str) -> Iterator[tuple[int, str]]:
    """The offset of each relocation slot for a function, and the name of the function."""
    command = ["readelf", "--relocs", "--wide", path]
    printed = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    for line in printed.splitlines():
        columns = line.split()  # offset, info, type, value, name and version
        if len(columns) > 4 and columns[2].endswith(("_JUMP_SLOT", "_GLOB_DAT")):
            yield int(columns[0], 16), columns[4].partition("@")[0]


def turn_slots(replacements: Any) -> int:
    """Sets the slots of the loaded libraries to the functions counted_*. Returns their number."""
    turned = 0
    for path, begin in loaded_files().items():
        if not any(name in path for name in LIBRARIES):
            continue
        for offset, name in slots(path):
            function = getattr(replacements, f"counted_{OPERATORS.get(name, name)}", None)
            if function and (name in OPERATORS or "libstdc++" not in path):
                replacements.turn(begin + offset, function)
                turned += 1
    return turned


def library() -> Any:
    source = Path(__file__).with_suffix(".cpp")
    built = part.WORKING_FOLDER / "libfailing_allocations.so"
    if not built.exists() or built.stat().st_mtime < source.stat().st_mtime:
        flags = ["-std=c++20", "-O1", "-shared", "-fPIC", "-Wall", "-Wextra"]
        subprocess.run(["g++", *flags, str(source), "-o", str(built)], check=True)
    loaded = ctypes.CDLL(str(built))
    loaded.turn.argtypes = (ctypes.c_void_p, ctypes.c_void_p)
    loaded.arm.argtypes = (ctypes.c_long,)
    loaded.count.restype = loaded.live.restype = ctypes.c_long
    return loaded


def stated(error: Exception) -> str | None:
    """The name of an error that a failed allocation may cause; None for other errors."""
    if isinstance(error, MemoryError):
        return "MemoryError"
    for (kind, text), name in STATED.items():
        if type(error).__name__ == kind and text in str(error):
            return name
    return None


def state(array: Any) -> Any:
    return seen(array), array.get_bytewise_strides(), array.itemsize


class Trial:
    """Tests one operation with each of its allocations failing."""

    def __init__(self, operation: Operation, allocations: Any):
        self.operation = operation
        self.name = operation.name
        self.allocations = allocations
        self.outcomes: collections.Counter[str] = collections.Counter()
        self.before = state(operation.make())
        self.count = 0  # allocations of the last call
        self.prepare()
        self.level = allocations.live()
        self.blocks = max(self.blocks_of_failure(NO_SUCH)[1] for _ in range(MOST_LOOKS))
        self.outcomes.clear()

    def prepare(self) -> None:
        """Runs the operation as often as fail() does, without a failure."""
        made = self.operation.make()
        self.usual = seen(self.operation.of(made))
        self.after = state(made)
        self.once_more = seen(self.operation.of(made))
        self.after_that = state(made)

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
            outcome = stated(caught)
            error = outcome or f"{type(caught).__name__}: {caught}"
        finally:
            self.count = self.allocations.count()
            self.allocations.arm(0)
        where = f"{self.name}: allocation {k}"
        if error is None:
            outcome = self.judge_result(seen(given))
            del given
        if outcome is None:
            return f"{where}: unexpected: {error or 'result'}"
        self.outcomes[outcome if self.count >= k else "no such allocation"] += 1
        now = state(made)
        is_done = error is None and now == self.after
        # A call that has to fail can also fail for lack of memory, before it changes anything.
        may_be_unchanged = error is not None or isinstance(self.usual, str)
        if not is_done and not (may_be_unchanged and now == self.before):
            return f"{where}: {outcome}: the array is now {str(now)[:200]}"
        wanted = (self.once_more, self.after_that) if is_done else (self.usual, self.after)
        if (seen(self.operation.of(made)), state(made)) != wanted:
            return f"{where}: {outcome}: the operation does not give its usual result again"
        return None

    def judge_result(self, result: Any) -> str | None:
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
            if found:
                return found
            level = self.allocations.live()
            if level != self.level:
                return f"{self.name}: allocation {k}: {level - self.level} blocks more than before"
            if lost <= allowed:
                return None
        return f"{self.name}: allocation {k}: {lost} blocks of the interpreter, not {allowed}"


class FailingAllocations:
    """Trials of all operations."""

    def __init__(self, seed: int):
        self.allocations = library()
        turned = turn_slots(self.allocations)
        assert turned >= 12, "the module's calls of the allocating functions were not found"
        self.todo = every_operation((SMALL, MIDDLE, LARGE))
        random.Random(seed).shuffle(self.todo)
        self.findings: list[str] = []
        self.outcomes: collections.Counter[str] = collections.Counter()
        self.failed = 0

    def try_out(self, operation: Operation, log: TextIO) -> None:
        trial = Trial(operation, self.allocations)
        for k in range(1, trial.count + 1):
            print(f"{operation.name}: allocation {k}", file=log)
            found = trial.fail_without_loss(k)
            self.failed += 1
            if found:
                self.findings.append(found)
        self.outcomes += trial.outcomes

    def figures(self, done: int) -> dict[str, Any]:
        figures = {"operations": done, "of": len(self.todo), "failed allocations": self.failed}
        return {**figures, "outcomes": dict(self.outcomes.most_common())}


if __name__ == "__main__":
    arguments = part.begin(__doc__)
    trials = FailingAllocations(arguments.seed)
    gc.disable()
    gc.freeze()
    sys.exit(part.try_all(trials, arguments))
