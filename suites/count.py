"""Adds up the suites in folders of build/results. Prints the failed tests and, as the last line,
`N passed, N failed, N skipped`. The status is 0 if none failed.

A suite is three files: NAME.status has the exit status of its runner, NAME.xml the results in
JUnit format, NAME.log the output. A suite counts as one failure if it has no results, or no failed
test but a status other than 0. Each report of a sanitizer counts as one failure, too.
"""

import sys
import xml.etree.ElementTree as ElementTree
from collections import Counter
from pathlib import Path

import sanitizers

LAST_LINES = 15  # of the log of a suite that ended without a failed test


def result_of(case):
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    # GoogleTest does not run disabled tests.
    is_skipped = case.find("skipped") is not None or case.get("status") == "notrun"
    return "skipped" if is_skipped else "passed"


def count_suite(status_file):
    """Returns how many tests passed, failed and were skipped, and lines that say what failed."""
    results = status_file.with_suffix(".xml")
    cases = ElementTree.parse(results).getroot().iter("testcase") if results.exists() else ()
    named = [(result_of(case), f"{case.get('classname')}::{case.get('name')}") for case in cases]
    counts = Counter(result for result, _ in named)
    lines = [name for result, name in named if result == "failed"]
    status = status_file.read_text().strip()
    if not counts["failed"] and (not counts["passed"] or status != "0"):
        counts["failed"] = 1
        lines.append(f"ended with status {status}; its last lines:")
        log = status_file.with_suffix(".log").read_text(errors="replace")
        lines += log.splitlines()[-LAST_LINES:]
    return counts, lines


def report(folders, with_logs=False):
    """Prints what failed and the total. Returns whether tests passed and none failed."""
    total, what_failed = Counter(), []
    for folder in folders:
        for status_file in sorted(folder.glob("*.status")):
            counts, lines = count_suite(status_file)
            total += counts
            what_failed += [f"{folder.name}/{status_file.stem}: {line}" for line in lines]
            if with_logs:
                good, bad, skipped = (counts[key] for key in ("passed", "failed", "skipped"))
                print(f"== {status_file.stem}: {good} good, {bad} bad, {skipped} skipped")
                print(status_file.with_suffix(".log").read_text(errors="replace").rstrip())
        for text in sanitizers.errors(folder / "report"):
            total["failed"] += 1
            what_failed += [f"{folder.name}: {line}" for line in text.splitlines()[:LAST_LINES]]
            if with_logs:
                print(text)
    print(*what_failed, sep="\n", end="\n" if what_failed else "")
    print(", ".join(f"{total[key]} {key}" for key in ("passed", "failed", "skipped")))
    return total["passed"] > 0 and total["failed"] == 0


if __name__ == "__main__":
    sys.exit(0 if report([Path(name) for name in sys.argv[1:]]) else 1)
