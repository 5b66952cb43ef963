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
from collections import defaultdict
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
        self.branches = {}  # number of branches in an instance -> count of each branch

    def add(self, count, branches):
        self.count += count
        before = self.branches.get(len(branches), [0] * len(branches))
        self.branches[len(branches)] = [sum(pair) for pair in zip(before, branches, strict=True)]

    def branch_counts(self):
        return [count for number in sorted(self.branches) for count in self.branches[number]]


def run_gcov(notes):
    """Yields name from the root and lines of each file that went into one object."""
    # An object that no process loaded has only the .gcno file: nothing in it ran.
    data = notes.with_suffix(".gcda")
    command = ["gcov", "--json-format", "--stdout", "--branch-probabilities"]
    command.append(str(data if data.exists() else notes))
    done = subprocess.run(command, stdout=subprocess.PIPE, check=True)
    for document in map(json.loads, done.stdout.splitlines()):
        for file in document["files"]:
            path = os.path.join(document["current_working_directory"], file["file"])
            yield os.path.relpath(path, ROOT), file["lines"]


def made_by_conditions(branches):
    """The counts without exceptional exits of calls and the normal exits that belong to them."""
    throws = [branch["throw"] for branch in branches] + [False]
    return [
        branch["count"]
        for index, branch in enumerate(branches)
        if not throws[index] and not throws[index + 1]
    ]


def read(build_folder):
    """Returns file -> line number -> Line."""
    files, sources = defaultdict(dict), {}
    for notes in sorted(build_folder.rglob("*.gcno")):
        for name, counted in run_gcov(notes):
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


class Share:
    """How many of some counts are not zero."""

    def __init__(self, counts):
        self.covered, self.total = sum(count > 0 for count in counts), len(counts)
        self.percent = 100 * self.covered / self.total if self.total else 100.0


def shares(lines):
    branches = [count for line in lines for count in line.branch_counts()]
    return {"lines": Share([line.count for line in lines]), "branches": Share(branches)}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build_folder", type=Path)
    parser.add_argument("--least", type=float, nargs=2, default=(98, 95), help="lines, branches")
    arguments = parser.parse_args()
    files = read(arguments.build_folder)
    for name, lines in sorted(files.items()):
        texts = [
            f"{what} {share.covered:5}/{share.total:<5} {share.percent:5.1f} %"
            for what, share in shares(lines.values()).items()
        ]
        print(f"{name:50} {'   '.join(texts)}")
    total = shares([line for lines in files.values() for line in lines.values()])
    passed = total["lines"].total > 0
    for (what, share), least in zip(total.items(), arguments.least, strict=True):
        passed = passed and share.percent >= least
        counts = f"{share.covered} of {share.total}"
        print(f"{what}: {share.percent:.2f} % ({counts}), at least {least:g} %")
    for gap in uncovered(files):
        print(gap)
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
