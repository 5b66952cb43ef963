"""Reports which lines and branches of src and velmardata ran in a coverage build.

Status 1 below the least shares. Reads the counts of every object in the build folder through gcov.
A line is covered if it ran in any object and in any instance of a template. Only branches of
conditions are counted: not the branch between the normal and the exceptional exit of a call, and
not the choice of a handler. Lines of brackets alone are not counted. Instances of a template that
have the same number of branches in a line are added up.

gcovr cannot give these shares: it counts the normal exit of each call as a branch that was taken,
and with GCC 12 it does not see the lines of a lambda in a template.
"""

import argparse
import json
import os
import re
import subprocess
import sys
from collections import Counter, defaultdict
from itertools import pairwise
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
MEASURED = ("src/", "velmardata/")
BRACKETS = re.compile(r"[\s{}();,]*(//.*)?")
# The compiler makes branches here to choose the handler of an exception.
NO_CONDITION = re.compile(r".*\bcatch \(.*")


class Line:
    def __init__(self, text):
        self.text = text
        self.count = 0
        # How often each branch ran, by the number of branches in an instance and its index.
        self.branches = Counter()

    def add(self, count, branches):
        self.count += count
        self.branches.update({(len(branches), i): count for i, count in enumerate(branches)})

    def branch_counts(self):
        return [count for _, count in sorted(self.branches.items())]


def made_by_conditions(branches):
    """The counts without exceptional exits of calls and the normal exits that belong to them."""
    return [
        branch["count"]
        for branch, following in pairwise([*branches, {"throw": False}])
        if not branch["throw"] and not following["throw"]
    ]


def run_gcov(build_folder):
    """Yields name from the root and lines of each file that went into each object."""
    # An object that no process loaded has only these notes and no counts: nothing in it ran.
    notes = sorted(build_folder.rglob("*.gcno"))
    command = ["gcov", "--json-format", "--stdout", "--branch-probabilities", *notes]
    done = subprocess.run(command, stdout=subprocess.PIPE, check=True)
    for document in map(json.loads, done.stdout.splitlines()):
        for file in document["files"]:
            path = os.path.join(document["current_working_directory"], file["file"])
            yield os.path.relpath(path, ROOT), file["lines"]


def read(build_folder):
    """Returns file -> line number -> Line."""
    files, sources = defaultdict(dict), {}
    for name, counted in run_gcov(build_folder):
        if not name.startswith(MEASURED):
            continue
        source = sources.setdefault(name, (ROOT / name).read_text().splitlines())
        for entry in counted:
            number = entry["line_number"]
            text = source[number - 1].strip()
            # The code of a line with only a bracket is destructor calls of the compiler.
            if not BRACKETS.fullmatch(text):
                branches = made_by_conditions(entry["branches"])
                is_handler = NO_CONDITION.fullmatch(text)
                line = files[name].setdefault(number, Line(text))
                line.add(entry["count"], [] if is_handler else branches)
    return files


def uncovered(files):
    for name, lines in sorted(files.items()):
        for number, line in sorted(lines.items()):
            counts = line.branch_counts()
            missing = [str(i + 1) for i, count in enumerate(counts) if count == 0]
            if line.count == 0:
                yield f"{name}:{number}: line: {line.text}"
            elif missing:
                which = f"{','.join(missing)} of {len(counts)}"
                yield f"{name}:{number}: branch {which}: {line.text}"


def shares(lines):
    """What was counted, how many of these ran, how many there are, and the percentage."""
    branches = [count for line in lines for count in line.branch_counts()]
    for what, counts in (("lines", [line.count for line in lines]), ("branches", branches)):
        covered, total = sum(count > 0 for count in counts), len(counts)
        yield what, covered, total, 100 * covered / total if total else 100.0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build_folder", type=Path)
    parser.add_argument("--least", type=float, nargs=2, default=(98, 95), help="lines, branches")
    arguments = parser.parse_args()
    files = read(arguments.build_folder)
    for name, lines in sorted(files.items()):
        texts = [
            f"{what} {covered:5}/{total:<5} {percent:5.1f} %"
            for what, covered, total, percent in shares(lines.values())
        ]
        print(f"{name:50} {'   '.join(texts)}")
    all_lines = [line for lines in files.values() for line in lines.values()]
    passed = bool(all_lines)
    for row, least in zip(shares(all_lines), arguments.least, strict=True):
        what, covered, total, percent = row
        passed = passed and percent >= least
        print(f"{what}: {percent:.2f} % ({covered} of {total}), at least {least:g} %")
    for gap in uncovered(files):
        print(gap)
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
