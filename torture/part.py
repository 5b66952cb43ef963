"""Shared by the programs of this folder: arguments, time limit, log, second thread, children."""

from __future__ import annotations

import argparse
import contextlib
import faulthandler
import gc
import io
import json
import subprocess
import sys
import threading
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any, NamedTuple

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests" / "python"))  # for the package helpers

WORKING_FOLDER = ROOT / "build" / "torture"
SHORTEST_SWITCH = 1e-6  # seconds until a thread has to release the interpreter
LONGEST_AFTERTIME = 120  # seconds that a program can take beyond its time limit
IN_THIS_PROCESS = {"action": "store_true", "help": "run in this process, not in a child"}


def begin(description: str | None, **options: dict[str, Any]) -> argparse.Namespace:
    """The arguments of a program, and its clock. A crash or a hang prints the Python traceback."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--seconds", type=float, default=60, help="time limit")
    parser.add_argument("--seed", type=int, default=0, help="seed of the random choices")
    parser.add_argument("--log", type=Path, help="file that records each step before it runs")
    parser.add_argument("--contended", action="store_true", help="run a second, busy thread")
    for name, settings in options.items():
        parser.add_argument(f"--{name}", **settings)
    arguments = parser.parse_args()
    arguments.clock = Clock(arguments.seconds)
    faulthandler.enable()
    faulthandler.dump_traceback_later(arguments.seconds + LONGEST_AFTERTIME, exit=True)
    WORKING_FOLDER.mkdir(parents=True, exist_ok=True)
    return arguments


class Clock:
    """The time limit."""

    def __init__(self, seconds: float):
        self.start = time.monotonic()
        self.limit = seconds

    def is_over(self) -> bool:
        return self.left() <= 0

    def left(self) -> float:
        return self.start + self.limit - time.monotonic()

    def seconds(self) -> float:
        return round(time.monotonic() - self.start, 1)


def _be_busy(stop: threading.Event, rounds: list[int]) -> None:
    import velmar

    shared = velmar.double([[1, 2, 3], [4, 5, 6]])
    while not stop.is_set():
        cycle: list[Any] = [shared[0], iter(shared), memoryview(shared)]
        cycle.append(cycle)
        rows = [list(row) for row in shared]
        shared[0], shared[1] = rows[1], rows[0]
        del cycle
        gc.collect()
        rounds[0] += 1


@contextlib.contextmanager
def contention(is_wanted: bool) -> Iterator[list[int]]:
    """Runs a thread that collects garbage and runs Python code; yields the count of its rounds."""
    rounds, stop = [0], threading.Event()
    if not is_wanted:
        yield rounds
        return
    before = sys.getswitchinterval()
    sys.setswitchinterval(SHORTEST_SWITCH)
    thread = threading.Thread(target=_be_busy, args=(stop, rounds), daemon=True)
    thread.start()
    try:
        yield rounds
    finally:
        stop.set()
        thread.join()
        sys.setswitchinterval(before)


class Log:
    """Writes the steps of the current program to a file before they run."""

    def __init__(self, path: Path | None):
        self.file = open(path, "w") if path else io.StringIO()  # noqa: SIM115

    def start(self, title: str) -> None:
        self.file.seek(0)
        self.file.truncate()
        self.write(f"# {title}")

    def write(self, text: str) -> None:
        print(text, file=self.file, flush=True)


class Ended(NamedTuple):
    """How a child ended: its figures, none after a crash, and the lines that it printed before."""

    figures: dict[str, Any]
    lines: list[str]
    status: int
    errors: str  # the text on standard error


def run_child(command: list[str], log: Path, environment: dict[str, str] | None = None) -> Ended:
    """Runs a program of this folder. The log receives its standard error."""
    faulthandler.cancel_dump_traceback_later()  # the child has the same limit
    with open(log, "w") as file:
        done = subprocess.run(
            [sys.executable, *command],
            env=environment,
            stdout=subprocess.PIPE,
            stderr=file,
            text=True,
            errors="replace",
            check=False,
        )
    lines = done.stdout.splitlines()
    figures = json.loads(lines.pop()) if lines and lines[-1].startswith("{") else {}
    return Ended(figures, lines, done.returncode, log.read_text(errors="replace"))


def finish(
    name: str, arguments: argparse.Namespace, figures: dict[str, Any], findings: list[str]
) -> int:
    """Prints the findings, then the results as the last line. Returns the exit status."""
    for finding in findings:
        print(finding)
    figures = {"part": name, "seed": arguments.seed, **figures}
    figures |= {"seconds": arguments.clock.seconds(), "findings": len(findings)}
    print(json.dumps(figures), flush=True)
    return 1 if findings else 0
