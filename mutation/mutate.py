"""Mutation testing of the C++ sources: selects changes, tests them, reports. See script/mutate."""

import argparse
import collections
import hashlib
import itertools
import json
import queue
import random
import shutil
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from marks import find_exempt
from places import Change, places
from trial import Verdict, Workshop

ROOT = Path(__file__).resolve().parents[1]
FOLDER = ROOT / "build/mutate"
ENOUGH = 95.0  # percent

# Faults for --self-test: file, text that occurs there once, its replacement, expected outcome.
# Every test that takes the length of an array runs this code. One replacement changes nothing.
LENGTH = "src/indexing/view_composition.cpp"
SUPPORT = "src/module/support.hpp"
ACTIVE = "const std::size_t active = view.chain().integers().size();"
KNOWN = [
    (LENGTH, "return storage->shape()[active];", "return storage->shape()[active] + 1;", "killed"),
    (LENGTH, ACTIVE, "__builtin_trap(); " + ACTIVE, "killed by crash"),
    (LENGTH, ACTIVE, "while (true) {} " + ACTIVE, "killed by hang"),
    (LENGTH, ACTIVE, "auto active = ;", "uncompiled"),
    (LENGTH, ACTIVE, ACTIVE.replace("active = ", "active = 0 + "), "survived"),
    (SUPPORT, "slice step cannot be zero.", "slice step can be zero.", "killed"),
]
LONGEST_TEST = 20  # seconds; a longer one counts as a hang here


class Sources:
    """The texts of a tree's sources, the places in them, and the changes that marks exempt."""

    def __init__(self, tree, names=()):
        folders = (tree / "src", tree / "velmardata")
        paths = sorted(path for folder in folders for path in folder.rglob("*.[ch]pp"))
        self.texts = {str(path.relative_to(tree)): path.read_text() for path in paths}
        if unknown := set(names) - set(self.texts):
            sys.exit(f"no C++ source below src or velmardata: {', '.join(sorted(unknown))}")
        self.places, self.exempt, self.marks_are_current = [], set(), True
        for file in names or self.texts:
            found = places(file, self.texts[file])
            changes = [change for place in found for change in place]
            exempt, messages = find_exempt(file, self.texts[file], changes)
            self.places += found
            self.exempt |= exempt
            for message in messages:
                self.marks_are_current = False
                print(message, file=sys.stderr)


class Run:
    """Tests changes in free workshops until enough mutants have been counted."""

    def __init__(self, sources, workshops, arguments, folder=FOLDER):
        self.sources = sources
        self.wanted = arguments.count
        self.start = time.monotonic()
        self.deadline = self.start + 60 * arguments.minutes
        self.generator = random.Random(arguments.seed)
        self.marked = 0
        self.results = []
        self.free = queue.SimpleQueue()
        for workshop in workshops:
            self.free.put(workshop)
        # Earlier verdicts. They are valid as long as the sources are the same.
        digest = hashlib.sha256(repr(sources.texts).encode()).hexdigest()
        self.kills_file = folder / f"kills-{digest}.json"
        is_kept = arguments.again and self.kills_file.exists()
        self.kills = json.loads(self.kills_file.read_text()) if is_kept else {}

    def drawn(self):
        """All places have the same probability, and so have all changes at a place."""
        order = list(self.sources.places)
        self.generator.shuffle(order)
        for place in order:
            change = self.generator.choice(place)
            if change in self.sources.exempt:
                self.marked += 1
            else:
                yield change

    def counted(self):
        return sum(verdict.outcome != "uncompiled" for _, verdict in self.results)

    def judge(self, change):
        """None after the deadline."""
        workshop = self.free.get()
        try:
            if time.monotonic() < self.deadline:
                known = self.kills.get(str(change))
                return Verdict(**known) if known else workshop.judge(change)
        finally:
            self.free.put(workshop)

    def test(self):
        draw = self.drawn()
        with ThreadPoolExecutor(self.free.qsize()) as pool:
            # Another change replaces each one that does not compile.
            while changes := list(itertools.islice(draw, self.wanted - self.counted())):
                for change, verdict in zip(changes, pool.map(self.judge, changes), strict=True):
                    if verdict is None:
                        return
                    self.add(change, verdict)

    def add(self, change, verdict):
        self.results.append((change, verdict))
        if verdict.outcome != "survived":
            self.kills[str(change)] = vars(verdict)
            self.kills_file.write_text(json.dumps(self.kills))
        print(f"{verdict} ({verdict.seconds:.0f} s)")
        print(change.describe(), flush=True)

    def report(self):
        """Prints the figures. True if the share of killed mutants is high enough."""
        outcomes = collections.Counter(verdict.outcome for _, verdict in self.results)
        killers = collections.Counter(v.by for _, v in self.results if v.outcome == "killed")
        counted = self.counted()
        print("\n== survived" + ("" if outcomes["survived"] else ": none"))
        for change, verdict in self.results:
            if verdict.outcome == "survived":
                print(change.describe())
        percent = 100 * outcomes["killed"] / counted if counted else 0.0
        tried = max(1, len(self.results))
        elapsed = time.monotonic() - self.start
        spent = sum(verdict.seconds for _, verdict in self.results)
        rows = [
            ("places that can be changed", len(self.sources.places)),
            ("changes that counted", counted),
            *((f"  killed by {by}", number) for by, number in killers.most_common()),
            ("  survived", outcomes["survived"]),
            ("did not compile, not counted", outcomes["uncompiled"]),
            ("drawn, but marked as equivalent", self.marked),
            ("seconds a change, of one job", f"{spent / tried:.1f}"),
            ("seconds a change, of all jobs", f"{elapsed / tried:.1f}"),
            ("killed, percent", f"{percent:.1f}"),
        ]
        print("\n== mutants")
        for label, figure in rows:
            print(f"{label:34}{figure:>8}")
        return counted > 0 and percent >= ENOUGH


def prepared(arguments):
    """Builds the workshops of all jobs, and measures the suites in the first one."""
    results = (ROOT / "build/results/test").glob("python-*.xml") if arguments.trust else []
    workshops = [Workshop(FOLDER / f"job-{job}") for job in range(arguments.jobs)]
    first = workshops[0]
    start = time.monotonic()
    for workshop in workshops:
        workshop.prepare(ROOT if workshop is first else first.tree)
    built = time.monotonic()
    first.measure(min(results, default=None))
    for workshop in workshops:
        workshop.times = first.times
    tested = time.monotonic()
    print(f"built unchanged in {built - start:.0f} s, tested in {tested - built:.0f} s", flush=True)
    return workshops


def mutate(arguments):
    workshops = prepared(arguments)
    sources = Sources(workshops[0].tree, arguments.files)
    run = Run(sources, workshops, arguments)
    run.test()
    return run.report() and sources.marks_are_current


def plant_known_faults(workshop):
    workshop.times["test"] = min(LONGEST_TEST, workshop.times["test"])
    good = True
    for file, old, new, expected in KNOWN:
        text = (workshop.tree / file).read_text()
        before, _ = text.split(old)
        start = len(before)
        verdict = workshop.judge(Change(file, text, start, start + len(old), new))
        fits = str(verdict).startswith(expected)
        good = good and fits
        print(f"{'as expected' if fits else 'WRONG'}: {new}: {verdict}", flush=True)
    return good


def list_changes(arguments):
    sources = Sources(ROOT, arguments.files)
    for change in itertools.chain(*sources.places):
        print(change.describe())
    print(f"{len(sources.places)} places")
    return sources.marks_are_current


def main():
    parser = argparse.ArgumentParser(prog="script/mutate")
    add = parser.add_argument
    add("--count", type=int, default=60, help="number of changes that compile")
    add("--seed", type=int, default=0, help="another random selection")
    add("--minutes", type=float, default=600, help="start no change after this time")
    add("--jobs", type=int, default=1, help="changes at a time; each job has a tree and a build")
    add("--trust", action="store_true", help="script/test has just passed: use its times")
    add("--again", action="store_true", help="if no source has changed, repeat no killed mutant")
    add("--list", action="store_true", help="print all changes; status 1 if a mark exempts none")
    add("--self-test", action="store_true", help="plant faults with a known outcome")
    add("--clean", action="store_true", help="remove build/mutate first")
    add("files", nargs="*", metavar="FILE", help="change only these sources")
    arguments = parser.parse_args()
    if arguments.clean:
        shutil.rmtree(FOLDER, ignore_errors=True)
    if arguments.list:
        passed = list_changes(arguments)
    elif arguments.self_test:
        passed = plant_known_faults(prepared(arguments)[0])
    else:
        passed = mutate(arguments)
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
