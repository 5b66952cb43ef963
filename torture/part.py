"""Shared by the programs of this folder: arguments, time limit, log, results."""

from __future__ import annotations

import argparse
import faulthandler
import itertools
import json
import sys
import time
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests" / "python"))  # for the package helpers

WORKING_FOLDER = ROOT / "build" / "torture"
LONGEST_AFTERTIME = 120  # seconds that a program can take beyond its time limit


def begin(description: str | None, **options: dict[str, Any]) -> argparse.Namespace:
    """The arguments of a program. A crash or a hang prints the Python traceback."""
    WORKING_FOLDER.mkdir(parents=True, exist_ok=True)
    steps = WORKING_FOLDER / f"{Path(sys.argv[0]).stem}.steps"
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--seconds", type=float, default=60, help="time limit")
    parser.add_argument("--seed", type=int, default=0, help="seed of the random choices")
    parser.add_argument("--first", type=int, default=0, help="number of the first trial")
    parser.add_argument("--log", default=steps, help="file that records each step before it runs")
    for name, settings in options.items():
        parser.add_argument(f"--{name}", **settings)
    arguments = parser.parse_args()
    arguments.end = time.monotonic() + arguments.seconds
    faulthandler.enable()
    faulthandler.dump_traceback_later(arguments.seconds + LONGEST_AFTERTIME, exit=True)
    return arguments


def try_all(trials: Any, arguments: argparse.Namespace) -> int:
    """Tries one thing after the other until the time is over. Returns the exit status.

    `trials.todo` has the things, `trials.try_out(thing, log)` adds to `trials.findings`, and
    `trials.figures(done)` returns the results. Findings are printed, then the results as the last
    line.
    """
    done = 0
    things = itertools.islice(enumerate(trials.todo), arguments.first, None)
    with open(arguments.log, "w", buffering=1) as log:
        for number, thing in things:
            if time.monotonic() > arguments.end:
                break
            log.seek(0)
            log.truncate()
            print(number, file=log)
            trials.try_out(thing, log)
            done += 1
    figures = {**trials.figures(done), "findings": len(trials.findings)}
    print(*trials.findings, json.dumps(figures), sep="\n", flush=True)
    return 1 if trials.findings else 0
