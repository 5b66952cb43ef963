"""Builds and tests one changed source at a time in a copy of the tree."""

import collections
import contextlib
import filecmp
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
from functools import partial
from pathlib import Path

LEFT_OUT = {".git", ".venv", ".cache", "build", "dist", "__pycache__", ".hypothesis"}
PRODUCT = "velmarmultidimarrayforpython"
NATIVE = ("velmar_native_tests", "velmar_client_tests")
# With more build steps than this, building the native tests takes longer than the Python tests.
FEW_STEPS = 10
LONGEST_BUILD = 900
# For mutants that allocate without bound or print forever.
LIMITS = {resource.RLIMIT_AS: 12 << 30, resource.RLIMIT_FSIZE: 1 << 30, resource.RLIMIT_CORE: 0}


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


def have_equal_times(file, other):
    a, b = file.stat(), other.stat()
    return (a.st_size, a.st_mtime_ns) == (b.st_size, b.st_mtime_ns)


def mirror(source, target, copy, is_same):
    """Makes `target` equal to `source`: copies the files that are not the same."""
    wanted = set(files_of(source))
    for name in wanted:
        if not ((target / name).exists() and is_same(source / name, target / name)):
            (target / name).parent.mkdir(parents=True, exist_ok=True)
            copy(source / name, target / name)
    for name in set(files_of(target)) - wanted:
        (target / name).unlink()


def copy_sources(source, target):
    """Copied files get a new time, so that they are compiled again."""
    mirror(source, target, shutil.copyfile, partial(filecmp.cmp, shallow=False))


def copy_build(source, target):
    """Copied files keep their times, so that nothing is out of date."""
    mirror(source, target, shutil.copy2, have_equal_times)


def limit_resources():
    for kind, amount in LIMITS.items():
        hard = resource.getrlimit(kind)[1]
        soft = amount if hard == resource.RLIM_INFINITY else min(amount, hard)
        resource.setrlimit(kind, (soft, hard))


def run_limited(command, log, seconds, **options):
    """The exit status; None if the command ran for so many seconds. Ends its children, too."""
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
    try:
        return process.wait(timeout=seconds)
    except subprocess.TimeoutExpired:
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
        # Limits in seconds for a suite and for one Python test; the time of each file of these.
        self.times = {"native": 3600, "python": 3600, "test": 600, "files": {}}

    def prepare(self, root):
        """Copies the sources of `root` and builds them."""
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
        if not self.ninja(PRODUCT, *self.native, jobs=os.cpu_count(), longest=4 * LONGEST_BUILD):
            sys.exit(f"the unchanged tree does not build; see {self.log}")
        copy_build(self.build, self.pristine)

    def measure(self, trusted=None):
        """Measures the tests on the unchanged tree. Exits if they do not pass.

        `trusted` is a result file of an earlier run of the Python tests, in JUnit format, to use
        instead of running them.
        """
        digest = hashlib.sha256()
        for name in files_of(self.tree):
            digest.update(str(name).encode() + b"\0" + (self.tree / name).read_bytes())
        file = self.tree.parent / "times.json"
        kept = json.loads(file.read_text()) if file.exists() else {}
        if kept.get("digest") == digest.hexdigest():
            self.times = kept
            return
        results = trusted or self.tree.parent / "results.xml"
        start = time.monotonic()
        kill = self.run_native()
        native = time.monotonic() - start
        if not (kill or trusted):
            kill = self.run_python(f"--junit-xml={results}")
        if kill:
            sys.exit(f"the unchanged tree fails: {kill.by} {kill.where}; see {self.log}")
        cases = [
            ("tests/python/" + case.get("classname").split(".")[2] + ".py", float(case.get("time")))
            for case in ElementTree.parse(results).getroot().iter("testcase")
        ]
        files = collections.Counter()
        for name, seconds in cases:
            files[name] += seconds
        # Generous, because other jobs run at the same time and the build is not optimised.
        self.times = {
            "native": 120 + 4 * native,
            "python": 120 + 4 * files.total(),
            "test": 40 + 5 * max(seconds for _, seconds in cases),
            "files": files,
            "digest": digest.hexdigest(),
        }
        file.write_text(json.dumps(self.times))

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
        return suites[0]() or suites[-1]() or Verdict("survived")

    def ninja(self, *targets, jobs=1, longest=LONGEST_BUILD):
        command = ["ninja", "-C", str(self.build), "-j", str(jobs), *targets]
        return run_limited(command, self.log, longest) == 0

    def steps(self, *targets):
        command = ["ninja", "-C", str(self.build), "-n", *targets]
        return subprocess.run(command, capture_output=True, text=True).stdout.count("\n[")

    def run_native(self):
        if self.native and not self.ninja(*self.native):
            return Verdict("killed", "compiler", "tests/compile or tests/native")
        for module in self.native:
            command = [self.python, "-P", "tests/native/run.py"]
            command += [str(self.build / f"lib/{module}.abi3.so"), "--gtest_fail_fast"]
            failed, began = r"^\[  FAILED  \] ([\w./]+)", r"^\[ RUN +\] (\S+)"
            if kill := self.run("native", command, failed, began):
                return kill
        return None

    def run_python(self, *options):
        quick_first = sorted(self.times["files"], key=self.times["files"].get)
        command = [self.python, "-P", "-u", "-m", "pytest", "-x", "-v", "--tb=no", *options]
        command += ["-o", f"cache_dir={self.tree.parent / 'pytest'}"]
        # The settings of pytest end the process when a test takes longer.
        command += ["-o", f"faulthandler_timeout={self.times['test']}", *quick_first]
        return self.run("python", command, r"^(?:FAILED|ERROR) (\S+)", r"^(tests/\S+)")

    def run(self, suite, command, failed, began):
        environment = dict(os.environ, PYTHONPATH=f"{self.build / 'lib'}:{self.tree / 'python'}")
        options = {"cwd": self.tree, "env": environment}
        status = run_limited(command, self.log, self.times[suite], **options)
        if status == 0:
            return None
        text = self.log.read_text(errors="replace")
        if suite == "python" and status in (4, 5):
            sys.exit(f"wrong arguments for pytest; see {self.log}")
        where = re.findall(failed, text, re.MULTILINE)[:1]
        last = re.findall(began, text, re.MULTILINE)[-1:]
        if status is None or re.search(r"Timeout \(\d+:\d\d:\d\d\)!", text):
            return Verdict("killed", "hang", "".join(last))
        if status < 0:
            name = signal.Signals(-status).name
            return Verdict("killed", "crash", " ".join([name, *last]))
        return Verdict("killed", suite, "".join(where or last))
