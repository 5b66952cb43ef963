"""Runs all programs within a time limit, two at a time, and prints one table of results."""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import Any, NamedTuple

import part
import sanitized

LONGEST_AFTERTIME = 120  # seconds that a program can take beyond its time limit
LINES_SHOWN = 40


class Task(NamedTuple):
    """One run of a program of this folder, and its share of the time of a lane."""

    title: str
    program: str
    options: tuple[str, ...]
    share: float
    is_sanitized: bool = False


def lanes(seed: int) -> list[list[Task]]:
    """The lanes run in parallel; the tasks of a lane run one after the other."""
    return [
        [
            Task("programs against the model, seed 1", "programs", (f"--seed={seed + 1}",), 0.20),
            Task("fuzzer: programs against the model", "fuzz", ("--target=programs",), 0.25),
            Task("programs beside a busy thread", "programs", (f"--seed={seed + 3}", "-c"), 0.15),
            Task("hostile walks under sanitizers", "hostile", (f"--seed={seed + 5}",), 0.15, True),
            Task("failing allocations", "failing_allocations", (f"--seed={seed}",), 0.25),
        ],
        [
            Task("programs against the model, seed 2", "programs", (f"--seed={seed + 2}",), 0.10),
            Task("hostile walks", "hostile", (f"--seed={seed + 1}",), 0.15),
            Task("fuzzer: outside buffers", "fuzz", ("--target=buffers",), 0.20),
            Task(
                "hostile walks beside a busy thread", "hostile", (f"--seed={seed + 4}", "-c"), 0.15
            ),
            Task("fuzzer: hostile walks", "fuzz", ("--target=hostile",), 0.15),
            Task("leaks", "leaks", (f"--seed={seed}",), 0.25),
        ],
    ]


class Outcome(NamedTuple):
    task: Task
    figures: dict[str, Any]
    crashes: int
    reports: int
    divergences: int
    text: str


def run_task(task: Task, number: str, seconds: float) -> Outcome:
    name = f"{number}-{task.program}"
    log, steps = (part.WORKING_FOLDER / f"{name}.{end}" for end in ("log", "steps"))
    options = ["--contended" if option == "-c" else option for option in task.options]
    command = [sys.executable, str(Path(__file__).with_name(f"{task.program}.py")), *options]
    command += [f"--seconds={seconds:.1f}", f"--log={steps}"]
    environment = sanitized.environment(name) if task.is_sanitized else dict(os.environ)
    with open(log, "w") as file:
        try:
            done = subprocess.run(
                command,
                env=environment,
                stdout=subprocess.PIPE,
                stderr=file,
                text=True,
                timeout=seconds + LONGEST_AFTERTIME,
                check=False,
            )
            printed, status = done.stdout, done.returncode
        except subprocess.TimeoutExpired as error:
            output = error.stdout or b""
            printed = output.decode(errors="replace") if isinstance(output, bytes) else output
            status = -1
    return outcome(task, printed, status, name, steps)


def outcome(task: Task, printed: str, status: int, name: str, steps: Path) -> Outcome:
    lines = printed.splitlines()
    ended = bool(lines) and lines[-1].startswith("{")
    figures = json.loads(lines[-1]) if ended else {}
    found = sanitized.reports(name) if task.is_sanitized else []
    text = "\n".join([*found, *(lines[:-1] if ended else lines)][:LINES_SHOWN])
    crashes = figures.get("crashes", 0) if ended else 1
    if not ended:
        last = steps.read_text(errors="replace").splitlines()[-5:] if steps.exists() else []
        text += f"\nended with {status}; last steps: {last}; see {name}.log"
    reports = len(found) + figures.get("sanitizer reports", 0)
    divergences = figures.get("findings", 0) - crashes if ended else 0
    return Outcome(task, figures, crashes, reports, max(divergences - reports, 0), text)


LEFT_OUT = {"part", "seed", "findings", "seconds", "crashes", "divergences", "sanitizer reports"}
LEFT_OUT |= {"grown", "outcomes", "slots", "most references a call"}


def shown_figures(figures: dict[str, Any]) -> str:
    kept = {name: value for name, value in figures.items() if name not in LEFT_OUT}
    return ", ".join(f"{name} {value}" for name, value in kept.items() if value != 0)


def table(outcomes: list[Outcome]) -> str:
    lines = ["| part | seconds | crashes | reports | divergences | figures |"]
    lines += ["|---|--:|--:|--:|--:|---|"]
    for one in outcomes:
        row = [one.task.title, one.figures.get("seconds", "-"), one.crashes, one.reports]
        row += [one.divergences, shown_figures(one.figures)]
        lines.append("| " + " | ".join(map(str, row)) + " |")
        for name, count in one.figures.get("outcomes", {}).items():
            lines.append(f"| - a failed allocation ends as: {name} | | | | | {count} times |")
        for name, facts in one.figures.get("grown", {}).items():
            shown = ", ".join(f"{fact} {value}" for fact, value in facts.items())
            lines.append(f"| - required to grow: {name} | | | | | {shown} |")
    return "\n".join(lines)


def run_lanes(seed: int, seconds: float) -> list[Outcome]:
    outcomes: list[Outcome] = []

    def run_lane(number: int, tasks: list[Task]) -> None:
        for place, task in enumerate(tasks):
            done = run_task(task, f"{number}{place}", task.share * seconds)
            print(f"== {task.title}: {'nothing found' if is_clean(done) else 'FOUND'}", flush=True)
            outcomes.append(done)

    threads = [
        threading.Thread(target=run_lane, args=(number, tasks))
        for number, tasks in enumerate(lanes(seed))
    ]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    order = [task.title for tasks in lanes(seed) for task in tasks]
    return sorted(outcomes, key=lambda one: order.index(one.task.title))


def is_clean(one: Outcome) -> bool:
    return not (one.crashes or one.reports or one.divergences)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=float, default=600, help="time limit for everything")
    parser.add_argument(
        "--seed", type=int, default=int(time.time()) // 60, help="seed of all programs"
    )
    arguments = parser.parse_args()
    part.WORKING_FOLDER.mkdir(parents=True, exist_ok=True)
    print(f"== seed {arguments.seed}", flush=True)
    outcomes = run_lanes(arguments.seed, arguments.seconds)
    for one in outcomes:
        if not is_clean(one):
            print(f"== {one.task.title}\n{one.text}")
    print(table(outcomes))
    totals = [sum(counts) for counts in zip(*(one[2:5] for one in outcomes), strict=True)]
    print("total: {} crashes, {} sanitizer reports, {} divergences".format(*totals))
    return 1 if any(totals) else 0


if __name__ == "__main__":
    sys.exit(main())
