"""Runs all programs within a time limit, two at a time, and prints one table of results."""

from __future__ import annotations

import argparse
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any, NamedTuple

import part
import sanitized

LINES_SHOWN = 40


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
    Task("fuzzer: programs against the model", 0.25, "fuzz --target=programs"),
    Task("fuzzer: outside buffers", 0.20, "fuzz --target=buffers"),
    Task("programs beside a busy thread", 0.15, "walks --target=programs --contended", seed=3),
    Task("hostile walks beside a busy thread", 0.15, "walks --target=hostile --contended", seed=4),
    Task("hostile walks under sanitizers", 0.15, "walks --target=hostile", 5, is_sanitized=True),
    Task("fuzzer: hostile walks", 0.15, "fuzz --target=hostile"),
    Task("failing allocations", 0.25, "failing_allocations"),
    Task("leaks", 0.25, "leaks"),
]


class Outcome(NamedTuple):
    task: Task
    figures: dict[str, Any]
    crashes: int
    reports: int
    divergences: int
    text: str

    def is_clean(self) -> bool:
        return not (self.crashes or self.reports or self.divergences)


def run_task(task: Task, seed: int, seconds: float) -> Outcome:
    program, *options = task.command.split()
    name = f"{TASKS.index(task)}-{program}"
    log, steps = (part.WORKING_FOLDER / f"{name}.{end}" for end in ("log", "steps"))
    command = [str(Path(__file__).with_name(f"{program}.py")), *options, f"--log={steps}"]
    command += [f"--seed={seed + task.seed}", f"--seconds={task.share * seconds:.1f}"]
    ended = part.run_child(command, log, sanitized.environment(name) if task.is_sanitized else None)
    found = sanitized.reports(name) if task.is_sanitized else []
    text = "\n".join([*found, *ended.lines][:LINES_SHOWN])
    if not ended.figures:
        last = steps.read_text(errors="replace").splitlines()[-5:] if steps.exists() else []
        text += f"\nended with {ended.status}; last steps: {last}; see {name}.log"
    crashes = ended.figures.get("crashes", 0) if ended.figures else 1
    reports = len(found) + ended.figures.get("sanitizer reports", 0)
    divergences = max(ended.figures.get("findings", 0) - crashes - reports, 0)
    outcome = Outcome(task, ended.figures, crashes, reports, divergences, text)
    print(f"== {task.title}: {'nothing found' if outcome.is_clean() else 'FOUND'}", flush=True)
    return outcome


LEFT_OUT = {"part", "seed", "findings", "seconds", "crashes", "divergences", "sanitizer reports"}
LEFT_OUT |= {"grown", "outcomes", "slots", "most references a call"}


def shown(figures: dict[str, Any]) -> str:
    return ", ".join(f"{name} {value}" for name, value in figures.items())


def table(outcomes: list[Outcome]) -> str:
    lines = ["| part | seconds | crashes | reports | divergences | figures |"]
    lines += ["|---|--:|--:|--:|--:|---|"]
    for one in outcomes:
        row = [one.task.title, one.figures.get("seconds", "-"), *one[2:5]]
        kept = {name: value for name, value in one.figures.items() if value != 0}
        row.append(shown({name: kept[name] for name in kept if name not in LEFT_OUT}))
        lines.append("| " + " | ".join(map(str, row)) + " |")
        for name, count in one.figures.get("outcomes", {}).items():
            lines.append(f"| - a failed allocation ends as: {name} | | | | | {count} times |")
        for name, facts in one.figures.get("grown", {}).items():
            lines.append(f"| - required to grow: {name} | | | | | {shown(facts)} |")
    return "\n".join(lines)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=float, default=600, help="time limit for everything")
    parser.add_argument(
        "--seed", type=int, default=int(time.time()) // 60, help="seed of all programs"
    )
    arguments = parser.parse_args()
    part.WORKING_FOLDER.mkdir(parents=True, exist_ok=True)
    print(f"== seed {arguments.seed}", flush=True)
    with ThreadPoolExecutor(max_workers=2) as pool:
        running = [pool.submit(run_task, task, arguments.seed, arguments.seconds) for task in TASKS]
        outcomes = [task.result() for task in running]
    for one in outcomes:
        if not one.is_clean():
            print(f"== {one.task.title}\n{one.text}")
    print(table(outcomes))
    totals = [sum(counts) for counts in zip(*(one[2:5] for one in outcomes), strict=True)]
    print("total: {} crashes, {} sanitizer reports, {} divergences".format(*totals))
    return 1 if any(totals) else 0


if __name__ == "__main__":
    raise SystemExit(main())
