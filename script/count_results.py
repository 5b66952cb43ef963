"""Prints the total of the suites in result folders, `N passed, M failed`; status 0 if all passed.

A suite is three files: NAME.status has the exit status of its runner, NAME.xml the results in
JUnit format, NAME.log the output. A suite counts as one failure if it has no results, or no failed
test but a status other than 0. Each report of a sanitizer counts as one failure, too.
"""

import argparse
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

REPORTS = ("ERROR: AddressSanitizer", "runtime error:", "AddressSanitizer:DEADLYSIGNAL")


def count_suite(status_file):
    """Returns how many tests of a suite passed and how many failed."""
    passed = failed = 0
    results = status_file.with_suffix(".xml")
    if results.exists():
        for suite in ElementTree.parse(results).getroot().iter("testsuite"):
            bad = int(suite.get("failures", 0)) + int(suite.get("errors", 0))
            left_out = int(suite.get("skipped", 0)) + int(suite.get("disabled", 0))
            passed += int(suite.get("tests")) - bad - left_out
            failed += bad
    ended_well = status_file.read_text().strip() == "0"
    if failed == 0 and (passed == 0 or not ended_well):
        failed = 1
    return passed, failed


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
    total_passed = total_failed = 0
    for folder in arguments.folders:
        for status_file in sorted(folder.glob("*.status")):
            passed, failed = count_suite(status_file)
            total_passed += passed
            total_failed += failed
            if arguments.logs:
                print(f"== {status_file.stem}: {passed} good, {failed} bad")
                print(status_file.with_suffix(".log").read_text(errors="replace").rstrip())
        for report in sanitizer_reports(folder):
            total_failed += 1
            if arguments.logs:
                print(report)
    print(f"{total_passed} passed, {total_failed} failed")
    return 1 if total_failed or not total_passed else 0


if __name__ == "__main__":
    sys.exit(main())
