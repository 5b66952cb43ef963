"""Mutation testing of the C++ sources: selects changes, tests them, reports. See script/mutate."""

import argparse
import collections
import hashlib
import json
import os
import random
import shutil
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from mutation_places import places
from mutation_self_test import check_places, plant_known_faults
from mutation_trial import NATIVE, Verdict, Workshop

ROOT = Path(__file__).resolve().parents[1]
FOLDER = ROOT / "build/mutate"
EQUIVALENT = Path("script/equivalent_mutants.txt")
ENOUGH = 95.0  # percent
FIELDS = ("file", "line", "becomes", "reason")


class Kills:
    """Earlier kills, kept in a file. They are valid as long as the sources are the same."""

    def __init__(self, file, sources, is_used):
        self.file = file
        digest = hashlib.sha256(repr(sorted(sources.texts.items())).encode()).hexdigest()
        self.kept = {"sources": digest, "kills": {}}
        if is_used and file.exists():
            before = json.loads(file.read_text())
            if before["sources"] == digest:
                self.kept = before

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


def squeezed(text):
    return " ".join(text.split())


class Sources:
    """The texts of a tree's sources and the places in them."""

    def __init__(self, tree, names):
        folders = (tree / "src", tree / "velmardata")
        files = sorted(path for folder in folders for path in folder.rglob("*.[ch]pp"))
        files = [str(path.relative_to(tree)) for path in files]
        unknown = sorted(set(names) - set(files))
        if unknown:
            sys.exit(f"no C++ source below src or velmardata: {', '.join(unknown)}")
        self.texts = {file: (tree / file).read_text() for file in names or files}
        self.places = [place for file, text in self.texts.items() for place in places(file, text)]

    def lines(self, change):
        return change.lines(self.texts[change.file])

    def key(self, change):
        _, before, after = self.lines(change)
        return change.file, squeezed(before), squeezed(after)

    def describe(self, change):
        number, before, after = self.lines(change)
        before = "\n".join(f"    - {line.strip()}" for line in before.splitlines())
        after = "\n".join(f"    + {line.strip()}" for line in after.splitlines())
        return f"{change.file}:{number}\n{before}\n{after}"


def read_equivalent(file):
    """The keys of the listed equivalent mutants. The file has paragraphs of four fields."""
    keys = set()
    for paragraph in file.read_text().split("\n\n"):
        rows = [row for row in paragraph.splitlines() if row and not row.startswith("#")]
        if not rows:
            continue
        fields = dict(row.split(": ", 1) for row in rows)
        if tuple(fields) != FIELDS:
            sys.exit(f"{file}: this paragraph needs the fields {', '.join(FIELDS)}:\n{paragraph}")
        keys.add((fields["file"], squeezed(fields["line"]), squeezed(fields["becomes"])))
    return keys


def stale(equivalent, sources):
    """Listed keys for these sources, or for no source at all, that match no possible change."""
    possible = {sources.key(change) for place in sources.places for change in place}
    return sorted(
        key
        for key in equivalent - possible
        if key[0] in sources.texts or not (ROOT / key[0]).exists()
    )


def no_stale_changes(equivalent, sources):
    gone = stale(equivalent, sources)
    for file, line, becomes in gone:
        text = f"{EQUIVALENT}: this change no longer exists in {file}: {line} -> {becomes}"
        print(text, file=sys.stderr)
    return not gone


class Run:
    """Gives changes to the workshops until enough mutants have been counted."""

    def __init__(self, sources, equivalent, kills, arguments):
        self.sources = sources
        self.kills = kills
        self.equivalent = equivalent
        self.wanted = arguments.count
        self.deadline = time.monotonic() + 60 * arguments.minutes
        self.draw = self.drawn(random.Random(arguments.seed))
        self.results = []
        self.listed = self.under_way = 0
        self.lock = threading.Condition()

    def drawn(self, generator):
        """All places have the same probability, and so have all changes at a place."""
        order = list(self.sources.places)
        generator.shuffle(order)
        for place in order:
            yield generator.choice(place)

    def counted(self):
        return sum(verdict.outcome != "uncompiled" for _, verdict in self.results)

    def next(self):
        with self.lock:
            while self.under_way and self.counted() + self.under_way >= self.wanted:
                self.lock.wait()  # a mutant that does not compile is replaced by another one
            if self.counted() >= self.wanted or time.monotonic() > self.deadline:
                return None
            for change in self.draw:
                if self.sources.key(change) not in self.equivalent:
                    self.under_way += 1
                    return change
                self.listed += 1
            return None

    def finish(self, change, verdict):
        with self.lock:
            self.under_way -= 1
            self.results.append((change, verdict))
            self.kills.add(change, verdict)
            by = f" by {verdict.by}: {verdict.where}" if verdict.by else ""
            print(f"{verdict.outcome}{by} ({verdict.seconds:.0f} s)", flush=True)
            print(self.sources.describe(change), flush=True)
            self.lock.notify_all()

    def work(self, workshop):
        try:
            while (change := self.next()) is not None:
                self.finish(change, self.kills.find(change) or workshop.judge(change))
        except BaseException:
            with self.lock:  # make the other threads end without waiting for this one
                self.deadline, self.under_way = 0.0, self.under_way - 1
                self.lock.notify_all()
            raise

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
        each = seconds / len(self.results) if self.results else 0.0
        spent = sum(verdict.seconds for _, verdict in self.results) / max(1, len(self.results))
        rows = [
            ("places that can be changed", len(self.sources.places)),
            ("changes that counted", counted),
            *((f"  killed by {by}", number) for by, number in killers.most_common()),
            ("  survived", outcomes["survived"]),
            ("did not compile, not counted", outcomes["uncompiled"]),
            ("drawn, but listed as equivalent", self.listed),
            ("seconds a change, of one job", f"{spent:.1f}"),
            ("seconds a change, of all jobs", f"{each:.1f}"),
            ("killed, percent", f"{percent:.1f}"),
        ]
        print("\n== mutants")
        for label, figure in rows:
            print(f"{label:34}{figure:>8}")
        return counted > 0 and percent >= ENOUGH


def prepared(jobs, trust=False, native=NATIVE):
    """Builds the workshops of all jobs, and measures the suites in the first one."""
    trusted = sorted((ROOT / "build/results/test").glob("python-*.xml")) if trust else []
    folders = [FOLDER / f"job-{number}" for number in range(jobs)]
    workshops = [Workshop(folder, sys.executable, native) for folder in folders]
    start = time.monotonic()
    cores = os.cpu_count() or 1
    for workshop in workshops:
        source = ROOT if workshop is workshops[0] else workshops[0].tree
        workshop.tree.mkdir(parents=True, exist_ok=True)
        workshop.prepare(source, cores)
    built = time.monotonic()
    workshops[0].measure(trusted)
    times = workshops[0].times
    tests = [f"tests/python/{path.name}" for path in (ROOT / "tests/python").glob("test_*.py")]
    order = sorted(tests, key=lambda name: (times["files"].get(name, 0.0), name))
    for workshop in workshops:
        workshop.times, workshop.python_order = times, order
    tested = time.monotonic()
    print(f"built unchanged in {built - start:.0f} s, tested in {tested - built:.0f} s", flush=True)
    return workshops


def mutate(arguments):
    native = () if arguments.python_only else NATIVE
    workshops = prepared(arguments.jobs, arguments.trust, native)
    sources = Sources(workshops[0].tree, arguments.files)
    equivalent = read_equivalent(workshops[0].tree / EQUIVALENT)
    is_current = no_stale_changes(equivalent, sources)
    kills = Kills(FOLDER / "kills.json", Sources(workshops[0].tree, []), arguments.again)
    run = Run(sources, equivalent, kills, arguments)
    start = time.monotonic()
    with ThreadPoolExecutor(len(workshops)) as pool:
        for future in [pool.submit(run.work, workshop) for workshop in workshops]:
            future.result()
    return run.report(time.monotonic() - start) and is_current


def list_places(arguments):
    sources = Sources(ROOT, arguments.files)
    for place in sources.places:
        for change in place:
            print(sources.describe(change))
    print(f"{len(sources.places)} places")
    return no_stale_changes(read_equivalent(ROOT / EQUIVALENT), sources)


def parsed():
    parser = argparse.ArgumentParser(prog="script/mutate")
    parser.add_argument("--count", type=int, default=60, help="number of changes that compile")
    parser.add_argument("--seed", type=int, default=0)
    parser.add_argument(
        "--minutes", type=float, default=600, help="start no change after this time"
    )
    parser.add_argument(
        "--jobs",
        type=int,
        default=1,
        help="copies of the tree that are built and tested at the same time",
    )
    parser.add_argument(
        "--trust", action="store_true", help="script/test has just passed: use its times"
    )
    parser.add_argument(
        "--again",
        action="store_true",
        help="if no source has changed, do not repeat mutants that an earlier run killed",
    )
    parser.add_argument(
        "--python-only", action="store_true", help="do not build or run the native tests"
    )
    parser.add_argument(
        "--list",
        action="store_true",
        help="print all possible changes; status 1 if an equivalent one is none of them",
    )
    parser.add_argument(
        "--self-test", action="store_true", help="plant faults with a known outcome"
    )
    parser.add_argument("--clean", action="store_true", help="remove build/mutate first")
    parser.add_argument("files", nargs="*", metavar="FILE")
    return parser.parse_args()


def main():
    os.chdir(ROOT)
    arguments = parsed()
    if arguments.clean:
        shutil.rmtree(FOLDER, ignore_errors=True)
    if arguments.list:
        return 0 if list_places(arguments) else 1
    if arguments.self_test:
        return 0 if check_places() and plant_known_faults(prepared(1)[0]) else 1
    return 0 if mutate(arguments) else 1


if __name__ == "__main__":
    sys.exit(main())
