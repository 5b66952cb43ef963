"""Prints what failed in the suites of result folders, then the total.

The total is `N passed, N failed, N skipped`. The status is 0 if none failed.

A suite is three files: NAME.status has the exit status of its runner, NAME.xml the results in
JUnit format, NAME.log the output. A suite counts as one failure if it has no results, or no failed
test but a status other than 0. Each report of a sanitizer counts as one failure, too.
"""

import argparse
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

REPORTS = ("ERROR: AddressSanitizer", "runtime error:", "AddressSanitizer:DEADLYSIGNAL")
LAST_LINES = 15  # of the log of a suite that ended without a failed test


def count_suite(status_file):
    """Returns how many tests passed, failed and were skipped, and lines that say what failed."""
    passed = failed = skipped = 0
    lines = []
    results = status_file.with_suffix(".xml")
    if results.exists():
        for suite in ElementTree.parse(results).getroot().iter("testsuite"):
            bad = int(suite.get("failures", 0)) + int(suite.get("errors", 0))
            left_out = int(suite.get("skipped", 0)) + int(suite.get("disabled", 0))
            passed += int(suite.get("tests")) - bad - left_out
            failed += bad
            skipped += left_out
            for case in suite.iterfind("testcase"):
                if case.find("failure") is not None or case.find("error") is not None:
                    lines.append(f"{case.get('classname')}::{case.get('name')}")
    status = status_file.read_text().strip()
    if failed == 0 and (passed == 0 or status != "0"):
        failed = 1
        lines.append(f"ended with status {status}; its last lines:")
        log = status_file.with_suffix(".log").read_text(errors="replace")
        lines += log.splitlines()[-LAST_LINES:]
    return passed, failed, skipped, lines


def sanitizer_reports(folder):
    for file in sorted(folder.glob("report.*")):
        text = file.read_text(errors="replace")
        if any(mark in text for mark in REPORTS):
            yield text


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folders", nargs="+", type=Path)
    parser.add_argument("--logs", action="store_true", help="print the output of each suite")
    arguments = parser.parse_args()
    total_passed = total_failed = total_skipped = 0
    what_failed = []
    for folder in arguments.folders:
        for status_file in sorted(folder.glob("*.status")):
            passed, failed, skipped, lines = count_suite(status_file)
            what_failed += [f"{folder.name}/{status_file.stem}: {line}" for line in lines]
            total_passed += passed
            total_failed += failed
            total_skipped += skipped
            if arguments.logs:
                print(f"== {status_file.stem}: {passed} good, {failed} bad, {skipped} skipped")
                print(status_file.with_suffix(".log").read_text(errors="replace").rstrip())
        for report in sanitizer_reports(folder):
            total_failed += 1
            what_failed += [f"{folder.name}: {line}" for line in report.splitlines()[:LAST_LINES]]
            if arguments.logs:
                print(report)
    print(*what_failed, sep="\n", end="\n" if what_failed else "")
    print(f"{total_passed} passed, {total_failed} failed, {total_skipped} skipped")
    return 1 if total_failed or not total_passed else 0


if __name__ == "__main__":
    sys.exit(main())
