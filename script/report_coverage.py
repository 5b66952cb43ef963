"""Reports which lines and branches of src and velmardata ran in a coverage build.

Status 1 below the least shares. Reads the counts of every object in the build folder through gcov.
A line is covered if it ran in any object and in any instance of a template. Only branches of
conditions are counted: not the branch between the normal and the exceptional exit of a call, and
not the choice of a handler. Lines of brackets alone are not counted. Instances of a template that
have the same number of branches in a line are added up.
"""

import argparse
import json
import os
import re
import subprocess
import sys
from collections import defaultdict
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
MEASURED = ("src/", "velmardata/")
BRACKETS = re.compile(r"[\s{}();,]*(//.*)?")
# The compiler makes branches here to choose the handler of an exception.
NO_CONDITION = re.compile(r".*\bcatch \(.*")


def run_gcov(notes):
    """Yields name from the root and lines of each measured file of one object."""
    # An object that no process loaded has only the .gcno file: nothing in it ran.
    data = notes.with_suffix(".gcda")
    command = ["gcov", "--json-format", "--stdout", "--branch-probabilities"]
    command += ["--source-prefix", str(ROOT), "--relative-only"]
    done = subprocess.run(
        [*command, str(data if data.exists() else notes)], stdout=subprocess.PIPE, check=True
    )
    for document in done.stdout.splitlines():
        for file in json.loads(document)["files"]:
            name = os.path.relpath(file["file"], ROOT)
            if name.startswith(MEASURED):
                yield name, file["lines"]


def made_by_conditions(branches):
    """The counts without exceptional exits of calls and the normal exits that belong to them."""
    counts = []
    for index, branch in enumerate(branches):
        normal_exit = index + 1 < len(branches) and branches[index + 1]["throw"]
        if not branch["throw"] and not normal_exit:
            counts.append(branch["count"])
    return counts


class Line:
    def __init__(self):
        self.count = 0
        self.branches = {}  # number of branches in an instance -> count of each branch

    def add(self, line):
        self.count += line["count"]
        counts = made_by_conditions(line["branches"])
        if counts:
            before = self.branches.get(len(counts), [0] * len(counts))
            self.branches[len(counts)] = [sum(pair) for pair in zip(before, counts, strict=True)]

    def branch_counts(self):
        return [count for number in sorted(self.branches) for count in self.branches[number]]


def read(build_folder):
    """Returns file -> line number -> Line."""
    files = defaultdict(lambda: defaultdict(Line))
    notes = sorted(build_folder.rglob("*.gcno"))
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for measured in pool.map(lambda file: list(run_gcov(file)), notes):
            for name, lines in measured:
                for line in lines:
                    files[name][line["line_number"]].add(line)
    for name, lines in files.items():
        source = (ROOT / name).read_text().splitlines()
        for number, line in lines.items():
            line.text = source[number - 1].strip()
            if NO_CONDITION.fullmatch(line.text):
                line.branches = {}
        # The code of a line with only a bracket is destructor calls of the compiler.
        files[name] = {n: line for n, line in lines.items() if not BRACKETS.fullmatch(line.text)}
    return files


def uncovered(files):
    for name, lines in sorted(files.items()):
        for number, line in sorted(lines.items()):
            counts = line.branch_counts()
            if line.count == 0:
                yield f"{name}:{number}: line: {line.text}"
            elif not all(counts):
                missing = [str(i + 1) for i, count in enumerate(counts) if count == 0]
                which = f"{','.join(missing)} of {len(counts)}"
                yield f"{name}:{number}: branch {which}: {line.text}"


def tally(lines):
    """Returns the number of lines, of covered lines, of branches, and of taken branches."""
    branches = [count for line in lines for count in line.branch_counts()]
    return (
        len(lines),
        sum(line.count > 0 for line in lines),
        len(branches),
        sum(count > 0 for count in branches),
    )


def share(covered, total):
    return 100 * covered / total if total else 100.0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build_folder", type=Path)
    parser.add_argument(
        "--least", type=float, nargs=2, default=(98, 95), metavar=("LINES", "BRANCHES")
    )
    arguments = parser.parse_args()
    least_lines, least_branches = arguments.least
    files = read(arguments.build_folder)
    for name, lines in sorted(files.items()):
        total, covered, branches, taken = tally(list(lines.values()))
        print(
            f"{name:50} lines {covered:5}/{total:<5} {share(covered, total):5.1f} %"
            f"   branches {taken:5}/{branches:<5} {share(taken, branches):5.1f} %"
        )
    total, covered, branches, taken = tally(
        [line for one in files.values() for line in one.values()]
    )
    line_share, branch_share = share(covered, total), share(taken, branches)
    print(f"lines: {line_share:.2f} % ({covered} of {total}), at least {least_lines:g} %")
    print(f"branches: {branch_share:.2f} % ({taken} of {branches}), at least {least_branches:g} %")
    for gap in uncovered(files):
        print(gap)
    return 1 if not total or line_share < least_lines or branch_share < least_branches else 0


if __name__ == "__main__":
    sys.exit(main())
