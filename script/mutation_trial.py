"""Builds and tests one changed source at a time in a copy of the tree."""

import contextlib
import hashlib
import json
import os
import re
import resource
import shutil
import signal
import subprocess
import sys
import time
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass
from pathlib import Path

LEFT_OUT = {".git", ".venv", ".cache", "build", "dist", "__pycache__", ".hypothesis"}
PRODUCT = "velmarmultidimarrayforpython"
NATIVE = ("velmar_native_tests", "velmar_client_tests")
# With more build steps than this, building the native tests takes longer than the Python tests.
FEW_STEPS = 10
LONGEST_BUILD = 900
# Limits for mutants that allocate without bound or print forever.
MOST_MEMORY = 12 << 30
LARGEST_FILE = 1 << 30


@dataclass
class Verdict:
    """The result for a mutant: `outcome` is killed, survived or uncompiled."""

    outcome: str
    by: str = ""  # the suite, the compiler of the tests, a crash or a hang
    where: str = ""  # the first test that failed
    seconds: float = 0.0


def files_of(tree):
    for folder, folders, names in os.walk(tree):
        folders[:] = sorted(set(folders) - LEFT_OUT)
        for name in sorted(names):
            yield (Path(folder) / name).relative_to(tree)


def same(file, other):
    """Whether both files exist and have the same size and time, as copies have."""
    if not (file.exists() and other.exists()):
        return False
    a, b = file.stat(), other.stat()
    return (a.st_size, a.st_mtime_ns) == (b.st_size, b.st_mtime_ns)


def copy_sources(source, target):
    """Makes `target` equal to `source`. Copied files get a new time, so they are compiled again."""
    wanted = set(files_of(source))
    for name in wanted:
        data = (source / name).read_bytes()
        if not (target / name).exists() or (target / name).read_bytes() != data:
            (target / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source / name, target / name)
    for name in set(files_of(target)) - wanted:
        (target / name).unlink()


def copy_build(source, target):
    """Makes one build folder equal to another, with all times, so that nothing is out of date."""
    wanted = {path.relative_to(source) for path in source.rglob("*") if path.is_file()}
    for name in wanted:
        if not same(source / name, target / name):
            (target / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(source / name, target / name)
    for path in target.rglob("*"):
        if path.is_file() and path.relative_to(target) not in wanted:
            path.unlink()


def limit_resources():
    for kind, amount in (
        (resource.RLIMIT_AS, MOST_MEMORY),
        (resource.RLIMIT_FSIZE, LARGEST_FILE),
        (resource.RLIMIT_CORE, 0),
    ):
        _, hard = resource.getrlimit(kind)
        limit = amount if hard == resource.RLIM_INFINITY else min(amount, hard)
        resource.setrlimit(kind, (limit, hard))


def watched(command, log, longest, quiet, **options):
    """Runs a command and returns its exit status.

    Kills it and its children, and returns None, if it prints nothing for `quiet` seconds or runs
    for more than `longest` seconds.
    """
    with open(log, "wb") as output:
        process = subprocess.Popen(
            command,
            stdin=subprocess.DEVNULL,
            stdout=output,
            stderr=subprocess.STDOUT,
            start_new_session=True,
            preexec_fn=limit_resources,
            **options,
        )
    start = spoke = time.monotonic()
    size = 0
    try:
        while True:
            try:
                return process.wait(timeout=0.2)
            except subprocess.TimeoutExpired:
                now = time.monotonic()
            if log.stat().st_size != size:
                size, spoke = log.stat().st_size, now
            if now - spoke > quiet or now - start > longest:
                return None
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()


class Workshop:
    """The folder of one job: a tree, its build, and a build of the unchanged sources."""

    def __init__(self, folder, python, native=NATIVE):
        self.tree = folder / "tree"
        self.build = folder / "tree/build/mutate"
        self.pristine = folder / "pristine"
        self.python = str(python)
        self.native = native
        self.log = folder / "log"
        self.python_order = []  # files of Python tests, quick ones first
        self.times = {}

    # Set-up.

    def prepare(self, root, jobs):
        copy_sources(root, self.tree)
        self.build.mkdir(parents=True, exist_ok=True)
        if self.pristine.exists():  # an interrupted run can leave a mutant
            copy_build(self.pristine, self.build)
        # Without warnings, because a change can leave a variable unused. The bounds checks of the
        # standard library replace the sanitizers.
        configure = [
            "cmake",
            *("-G", "Ninja", "-S", self.tree, "-B", self.build, "--log-level=ERROR"),
            "-DCMAKE_CXX_COMPILER=g++",
            "-DCMAKE_BUILD_TYPE=Debug",
            "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -w -D_GLIBCXX_ASSERTIONS",
            f"-DVELMAR_NATIVE_TESTS={'ON' if self.native else 'OFF'}",
            f"-DPython_EXECUTABLE={self.python}",
        ]
        subprocess.run(configure, check=True, stdout=subprocess.DEVNULL)
        if not self.ninja(PRODUCT, *self.native, jobs=jobs, longest=4 * LONGEST_BUILD):
            sys.exit(f"the unchanged tree does not build; see {self.log}")
        self.pristine.mkdir(parents=True, exist_ok=True)
        copy_build(self.build, self.pristine)

    def measure(self, trusted=()):
        """Measures the tests on the unchanged tree. Exits if they do not pass.

        `trusted` are result files of an earlier run of the Python tests, in JUnit format, to use
        instead of running them.
        """
        digest = hashlib.sha256()
        for name in files_of(self.tree):
            digest.update(str(name).encode() + b"\0" + (self.tree / name).read_bytes())
        file = self.tree.parent / "times.json"
        if file.exists():
            self.times = json.loads(file.read_text())
        if self.times.get("digest") == digest.hexdigest():
            return
        self.times = {"digest": digest.hexdigest(), "whole": 3600, "quiet": 600, "files": {}}
        results = trusted[0] if trusted else self.tree.parent / "results.xml"
        kill = self.run_native()
        if not (kill or trusted):
            kill = self.run_python(f"--junit-xml={results}")
        if kill:
            sys.exit(f"the unchanged tree fails: {kill.by} {kill.where}; see {self.log}")
        slowest = 0.0
        for case in ElementTree.parse(results).getroot().iter("testcase"):
            name = "tests/python/" + case.get("classname").split(".")[2] + ".py"
            seconds = float(case.get("time"))
            slowest = max(slowest, seconds)
            self.times["files"][name] = self.times["files"].get(name, 0.0) + seconds
        # Generous, because other jobs run at the same time and the build is not optimised.
        whole = sum(self.times["files"].values())
        self.times.update(whole=120 + 4 * whole, quiet=40 + 5 * slowest)
        file.write_text(json.dumps(self.times))

    # One mutant.

    def judge(self, change):
        """Builds and tests the tree with one change, then restores the tree and the build."""
        start = time.monotonic()
        file = self.tree / change.file
        text, stat = file.read_text(), file.stat()
        file.write_text(change.apply(text))
        try:
            verdict = self.first_kill()
        finally:
            file.write_text(text)
            os.utime(file, ns=(stat.st_atime_ns, stat.st_mtime_ns))
            copy_build(self.pristine, self.build)
        verdict.seconds = time.monotonic() - start
        return verdict

    def first_kill(self):
        if not self.ninja(PRODUCT):
            return Verdict("uncompiled")
        suites = [self.run_native, self.run_python]
        if self.native and self.steps(*self.native) > FEW_STEPS:
            suites.reverse()
        for suite in suites:
            kill = suite()
            if kill:
                return kill
        return Verdict("survived")

    def ninja(self, *targets, jobs=1, longest=LONGEST_BUILD):
        command = ["ninja", "-C", str(self.build), "-j", str(jobs), *targets]
        return watched(command, self.log, longest, longest) == 0

    def steps(self, *targets):
        command = ["ninja", "-C", str(self.build), "-n", *targets]
        return subprocess.run(command, capture_output=True, text=True).stdout.count("\n[")

    def run_native(self):
        if self.native and not self.ninja(*self.native):
            return Verdict("killed", "compiler", "tests/compile or tests/native")
        for module in self.native:
            command = [self.python, "-P", "tests/native/run.py"]
            command += [str(self.build / f"lib/{module}.abi3.so"), "--gtest_fail_fast"]
            kill = self.run("native", command, r"^\[  FAILED  \] ([\w./]+)", r"^\[ RUN +\] (\S+)")
            if kill:
                return kill
        return None

    def run_python(self, *options):
        command = [self.python, "-P", "-u", "-m", "pytest", "-x", "-v", "--tb=no", *options]
        command += ["-o", f"cache_dir={self.tree.parent / 'pytest'}", *self.python_order]
        return self.run("python", command, r"^(?:FAILED|ERROR) (\S+)", r"^(tests/\S+)")

    def run(self, suite, command, failed, began):
        environment = dict(os.environ, PYTHONPATH=f"{self.build / 'lib'}:{self.tree / 'python'}")
        status = watched(
            command,
            self.log,
            self.times["whole"],
            self.times["quiet"],
            cwd=self.tree,
            env=environment,
        )
        if status == 0:
            return None
        text = self.log.read_text(errors="replace")
        if suite == "python" and status in (4, 5):
            sys.exit(f"wrong arguments for pytest; see {self.log}")
        where = re.findall(failed, text, re.MULTILINE)[:1]
        last = re.findall(began, text, re.MULTILINE)[-1:]
        if status is None:
            return Verdict("killed", "hang", "".join(last))
        if status < 0:
            name = signal.Signals(-status).name
            return Verdict("killed", "crash", " ".join([name, *last]))
        return Verdict("killed", suite, "".join(where or last))
