"""Shared by the programs of this folder: arguments, time limit, log, second thread, output."""

from __future__ import annotations

import argparse
import contextlib
import faulthandler
import gc
import json
import sys
import threading
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests" / "python"))  # for the package helpers

WORKING_FOLDER = ROOT / "build" / "torture"
SHORTEST_SWITCH = 1e-6  # seconds until a thread has to release the interpreter


def parser(description: str | None) -> argparse.ArgumentParser:
    made = argparse.ArgumentParser(description=description)
    made.add_argument("--seconds", type=float, default=60, help="time limit")
    made.add_argument("--seed", type=int, default=0, help="seed of the random choices")
    made.add_argument("--log", type=Path, help="file that records each step before it runs")
    made.add_argument("--contended", action="store_true", help="run a second, busy thread")
    return made


class Clock:
    """The time limit."""

    def __init__(self, seconds: float):
        self.start = time.monotonic()
        self.end = self.start + seconds

    def is_over(self) -> bool:
        return time.monotonic() >= self.end

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
        self.file = None if path is None else open(path, "w")  # noqa: SIM115

    def start(self, title: str) -> None:
        if self.file:
            self.file.seek(0)
            self.file.truncate()
            self.write(f"# {title}")

    def write(self, text: str) -> None:
        if self.file:
            print(text, file=self.file, flush=True)

    def flush(self) -> None:
        if self.file:
            self.file.flush()


def prepare() -> None:
    """Call it first. Makes a crash print the Python traceback."""
    faulthandler.enable()
    WORKING_FOLDER.mkdir(parents=True, exist_ok=True)


def finish(figures: dict[str, Any], findings: list[str]) -> int:
    """Prints the findings, then the results as the last line. Returns the exit status."""
    for finding in findings:
        print(finding)
    print(json.dumps({**figures, "findings": len(findings)}), flush=True)
    return 1 if findings else 0
