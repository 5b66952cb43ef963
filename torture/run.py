"""Runs all programs within a time limit, two at a time, and prints one table of results."""

from __future__ import annotations

import argparse
import json
import os
import re
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any, NamedTuple

import part

sys.path.append(str(part.ROOT / "suites"))
import sanitizers  # noqa: E402

LINES_SHOWN = 40
MOST_CRASHES = 10


class Task(NamedTuple):
    """One run of a program of this folder, and its share of the time."""

    title: str
    share: float
    command: str
    seed: int = 0  # is added to the seed of the run
    is_sanitized: bool = False


# In the order in which they start. Two run at a time, so the sum of the shares is 2.
TASKS = [
    Task("programs against the model, seed 1", 0.20, "walks --target=programs", seed=1),
    Task("programs against the model, seed 2", 0.10, "walks --target=programs", seed=2),
    Task("hostile walks", 0.15, "walks --target=hostile", seed=1),
    Task("fuzzer: programs against the model", 0.25, "fuzz --target=programs", is_sanitized=True),
    Task("fuzzer: outside buffers", 0.20, "fuzz --target=buffers", is_sanitized=True),
    Task("programs beside a busy thread", 0.15, "walks --target=programs --contended", seed=3),
    Task("hostile walks beside a busy thread", 0.15, "walks --target=hostile --contended", seed=4),
    Task("hostile walks under sanitizers", 0.15, "walks --target=hostile", 5, is_sanitized=True),
    Task("fuzzer: hostile walks", 0.15, "fuzz --target=hostile", is_sanitized=True),
    Task("failing allocations", 0.25, "failing_allocations"),
    Task("leaks", 0.25, "leaks"),
]


class Outcome(NamedTuple):
    task: Task
    seconds: float
    counts: tuple[int, int, int]  # crashes, reports and divergences
    figures: dict[str, Any]
    text: str


def figures_of(lines: list[str], errors: str) -> dict[str, Any]:
    """The last line of a program, which is removed, or what libFuzzer prints at its end."""
    if lines and lines[-1].startswith("{"):
        return json.loads(lines.pop())
    patterns = {
        "inputs": r"number_of_executed_units: (\d+)",
        "places covered": r"cov: (\d+)",
        "corpus": r"corp: (\d+)",
    }
    found = {name: re.findall(pattern, errors) for name, pattern in patterns.items()}
    numbers = {name: int(texts[-1]) for name, texts in found.items() if texts}
    return {"engine": "libFuzzer", **numbers} if numbers else {}


def run_task(task: Task, seed: int, seconds: float) -> Outcome:
    """Runs a program. After a crash it runs again, from the trial after the one that crashed."""
    start = time.monotonic()
    program, *options = task.command.split()
    name = f"{TASKS.index(task)}-{program}"
    log, steps = (part.WORKING_FOLDER / f"{name}.{end}" for end in ("log", "steps"))
    steps.write_text("")  # some programs have no trials
    command = [sys.executable, str(Path(__file__).with_name(f"{program}.py")), *options]
    command += [f"--log={steps}", f"--seed={seed + task.seed}"]
    reports = part.WORKING_FOLDER / "reports" / name
    settings = sanitizers.settings_of_build(reports) if task.is_sanitized else {}
    lines: list[str] = []
    crashes, divergences, first = 0, 0, 0
    while crashes < MOST_CRASHES:
        left = max(start + task.share * seconds - time.monotonic(), 1)
        limits = [f"--first={first}", f"--seconds={left:.1f}"]
        with log.open("w") as file:
            done = subprocess.run(
                [*command, *limits],
                env=os.environ | settings,
                stdout=subprocess.PIPE,
                stderr=file,
                text=True,
                errors="replace",
            )
        errors = log.read_text(errors="replace")
        printed = done.stdout.splitlines()
        figures = figures_of(printed, errors)
        divergences += figures.pop("findings", 0)
        lines += printed
        if figures and done.returncode in (0, 1):
            break
        is_divergence = "Disagreement: " in done.stdout  # of a target of the fuzzer
        divergences += is_divergence
        crashes += not is_divergence
        trial = steps.read_text(errors="replace").splitlines()
        last = [*trial[:2], *trial[-3:]]
        lines.append(f"ended with {done.returncode}; steps: {last}; see {log}: {errors[-1500:]}")
        if not trial:
            break
        first = int(trial[0]) + 1
    found = sanitizers.errors(reports) if task.is_sanitized else []
    counts = (crashes, len(found), divergences)
    print(f"== {task.title}: {'FOUND' if any(counts) else 'nothing found'}", flush=True)
    text = "\n".join([*found, *lines][:LINES_SHOWN])
    return Outcome(task, round(time.monotonic() - start, 1), counts, figures, text)


def shown(figures: dict[str, Any]) -> str:
    return ", ".join(f"{name} {value}" for name, value in figures.items())


def table(outcomes: list[Outcome]) -> str:
    lines = ["| part | seconds | crashes | reports | divergences | figures |"]
    lines += ["|---|--:|--:|--:|--:|---|"]
    for task, seconds, counts, figures, _ in outcomes:
        ends, grown = figures.pop("outcomes", {}), figures.pop("grown", {})
        kept = shown({name: value for name, value in figures.items() if value != 0})
        lines.append("| " + " | ".join(map(str, [task.title, seconds, *counts, kept])) + " |")
        for name, count in ends.items():
            lines.append(f"| - a failed allocation ends as: {name} | | | | | {count} times |")
        for name, facts in grown.items():
            lines.append(f"| - required to grow: {name} | | | | | {shown(facts)} |")
    return "\n".join(lines)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=float, default=600, help="time limit for everything")
    now = int(time.time()) // 60
    parser.add_argument("--seed", type=int, default=now, help="seed of all programs")
    arguments = parser.parse_args()
    part.WORKING_FOLDER.mkdir(parents=True, exist_ok=True)
    print(f"== seed {arguments.seed}", flush=True)
    with ThreadPoolExecutor(max_workers=2) as pool:
        running = [pool.submit(run_task, task, arguments.seed, arguments.seconds) for task in TASKS]
        outcomes = [task.result() for task in running]
    for one in outcomes:
        if any(one.counts):
            print(f"== {one.task.title}\n{one.text}")
    print(table(outcomes))
    totals = [sum(counts) for counts in zip(*(one.counts for one in outcomes), strict=True)]
    print("total: {} crashes, {} sanitizer reports, {} divergences".format(*totals))
    return 1 if any(totals) else 0


if __name__ == "__main__":
    raise SystemExit(main())
