"""Mutation testing of the C++ sources: selects changes, tests them, reports. See script/mutate."""

import argparse
import collections
import hashlib
import itertools
import json
import os
import queue
import random
import shutil
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from known_faults import plant_known_faults
from marks import find_exempt
from places import places
from trial import NATIVE, Verdict, Workshop

ROOT = Path(__file__).resolve().parents[1]
FOLDER = ROOT / "build/mutate"
ENOUGH = 95.0  # percent


class Kills:
    """Earlier kills, kept in a file. They are valid as long as the sources are the same."""

    def __init__(self, file, sources, is_used):
        self.file = file
        digest = hashlib.sha256(repr(sorted(sources.texts.items())).encode()).hexdigest()
        before = json.loads(file.read_text()) if is_used and file.exists() else {}
        is_valid = before.get("sources") == digest
        self.kept = before if is_valid else {"sources": digest, "kills": {}}

    @staticmethod
    def name(change):
        return f"{change.file}:{change.start}:{change.end}:{change.new}"

    def find(self, change):
        found = self.kept["kills"].get(self.name(change))
        return Verdict(**found) if found else None

    def add(self, change, verdict):
        if verdict.outcome != "survived":
            self.kept["kills"][self.name(change)] = vars(verdict)
            self.file.write_text(json.dumps(self.kept))


class Sources:
    """The texts of a tree's sources, the places in them, and the changes that marks exempt."""

    def __init__(self, tree, names=()):
        folders = (tree / "src", tree / "velmardata")
        files = sorted(path for folder in folders for path in folder.rglob("*.[ch]pp"))
        files = [str(path.relative_to(tree)) for path in files]
        unknown = sorted(set(names) - set(files))
        if unknown:
            sys.exit(f"no C++ source below src or velmardata: {', '.join(unknown)}")
        self.texts = {file: (tree / file).read_text() for file in names or files}
        self.places, self.exempt, self.stale_marks = [], set(), []
        for file, text in self.texts.items():
            found = places(file, text)
            changes = [change for place in found for change in place]
            exempt, messages = find_exempt(file, text, changes)
            self.places += found
            self.exempt |= exempt
            self.stale_marks += messages

    def describe(self, change):
        number, before, after = change.lines(self.texts[change.file])
        before = "\n".join(f"    - {line.strip()}" for line in before.splitlines())
        after = "\n".join(f"    + {line.strip()}" for line in after.splitlines())
        return f"{change.file}:{number}\n{before}\n{after}"

    def marks_are_current(self):
        for message in self.stale_marks:
            print(message, file=sys.stderr)
        return not self.stale_marks


class Run:
    """Tests changes in free workshops until enough mutants have been counted."""

    def __init__(self, sources, workshops, kills, arguments):
        self.sources = sources
        self.kills = kills
        self.wanted = arguments.count
        self.deadline = time.monotonic() + 60 * arguments.minutes
        self.generator = random.Random(arguments.seed)
        self.marked = 0
        self.results = []
        self.free = queue.SimpleQueue()
        for workshop in workshops:
            self.free.put(workshop)

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
                return self.kills.find(change) or workshop.judge(change)
        finally:
            self.free.put(workshop)

    def test(self, pool):
        draw = self.drawn()
        # Another change replaces each one that does not compile.
        while changes := list(itertools.islice(draw, self.wanted - self.counted())):
            for change, verdict in zip(changes, pool.map(self.judge, changes), strict=True):
                if verdict is None:
                    return
                self.results.append((change, verdict))
                self.kills.add(change, verdict)
                by = f" by {verdict.by}: {verdict.where}" if verdict.by else ""
                print(f"{verdict.outcome}{by} ({verdict.seconds:.0f} s)", flush=True)
                print(self.sources.describe(change), flush=True)

    def report(self, seconds):
        """Prints the figures. True if the share of killed mutants is high enough."""
        outcomes = collections.Counter(verdict.outcome for _, verdict in self.results)
        killers = collections.Counter(v.by for _, v in self.results if v.outcome == "killed")
        counted = self.counted()
        survivors = [c for c, verdict in self.results if verdict.outcome == "survived"]
        print("\n== survived" + ("" if survivors else ": none"))
        for change in survivors:
            print(self.sources.describe(change))
        percent = 100 * outcomes["killed"] / counted if counted else 0.0
        tried = max(1, len(self.results))
        spent = sum(verdict.seconds for _, verdict in self.results)
        rows = [
            ("places that can be changed", len(self.sources.places)),
            ("changes that counted", counted),
            *((f"  killed by {by}", number) for by, number in killers.most_common()),
            ("  survived", outcomes["survived"]),
            ("did not compile, not counted", outcomes["uncompiled"]),
            ("drawn, but marked as equivalent", self.marked),
            ("seconds a change, of one job", f"{spent / tried:.1f}"),
            ("seconds a change, of all jobs", f"{seconds / tried:.1f}"),
            ("killed, percent", f"{percent:.1f}"),
        ]
        print("\n== mutants")
        for label, figure in rows:
            print(f"{label:34}{figure:>8}")
        return counted > 0 and percent >= ENOUGH


def prepared(jobs=1, trust=False, native=NATIVE):
    """Builds the workshops of all jobs, and measures the suites in the first one."""
    results = sorted((ROOT / "build/results/test").glob("python-*.xml")) if trust else []
    first, *others = [
        Workshop(FOLDER / f"job-{number}", sys.executable, native) for number in range(jobs)
    ]
    start = time.monotonic()
    first.prepare(ROOT)
    for workshop in others:
        workshop.prepare(first.tree)
    built = time.monotonic()
    first.measure(*results[:1])
    for workshop in others:
        workshop.times = first.times
    tested = time.monotonic()
    print(f"built unchanged in {built - start:.0f} s, tested in {tested - built:.0f} s", flush=True)
    return [first, *others]


def mutate(arguments):
    native = () if arguments.python_only else NATIVE
    workshops = prepared(arguments.jobs, arguments.trust, native)
    sources = Sources(workshops[0].tree, arguments.files)
    is_current = sources.marks_are_current()
    kills = Kills(FOLDER / "kills.json", Sources(workshops[0].tree), arguments.again)
    run = Run(sources, workshops, kills, arguments)
    start = time.monotonic()
    with ThreadPoolExecutor(len(workshops)) as pool:
        run.test(pool)
    return run.report(time.monotonic() - start) and is_current


def list_changes(files):
    sources = Sources(ROOT, files)
    for place in sources.places:
        for change in place:
            print(sources.describe(change))
    print(f"{len(sources.places)} places")
    return sources.marks_are_current()


def parsed():
    parser = argparse.ArgumentParser(prog="script/mutate")
    add = parser.add_argument
    add("--count", type=int, default=60, help="number of changes that compile")
    add("--seed", type=int, default=0, help="another random selection")
    add("--minutes", type=float, default=600, help="start no change after this time")
    add("--jobs", type=int, default=1, help="changes at a time; each job has a tree and a build")
    add("--trust", action="store_true", help="script/test has just passed: use its times")
    add("--again", action="store_true", help="if no source has changed, repeat no killed mutant")
    add("--python-only", action="store_true", help="do not build or run the native tests")
    add("--list", action="store_true", help="print all changes; status 1 if a mark exempts none")
    add("--self-test", action="store_true", help="plant faults with a known outcome")
    add("--clean", action="store_true", help="remove build/mutate first")
    add("files", nargs="*", metavar="FILE", help="change only these sources")
    return parser.parse_args()


def main():
    os.chdir(ROOT)
    arguments = parsed()
    if arguments.clean:
        shutil.rmtree(FOLDER, ignore_errors=True)
    if arguments.list:
        passed = list_changes(arguments.files)
    elif arguments.self_test:
        passed = plant_known_faults(prepared()[0])
    else:
        passed = mutate(arguments)
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
