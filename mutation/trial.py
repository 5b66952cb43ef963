"""Builds and tests one changed source at a time in a copy of the tree."""

import collections
import contextlib
import filecmp
import os
import re
import shutil
import signal
import subprocess
import sys
import time
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass
from pathlib import Path

LEFT_OUT = {".git", ".venv", ".cache", "build", "dist", ".hypothesis"}
PRODUCT = "velmarmultidimarrayforpython"
NATIVE = ("velmar_native_tests", "velmar_client_tests")
LONGEST_BUILD = 900
# For mutants that allocate without bound or print forever: bytes.
LIMITED = ["prlimit", f"--as={12 << 30}:", f"--fsize={1 << 30}:", "--core=0:"]


@dataclass
class Verdict:
    """The result for a mutant: `outcome` is killed, survived or uncompiled."""

    outcome: str
    by: str = ""  # the suite, the compiler of the tests, a crash or a hang
    where: str = ""  # the first test that failed
    seconds: float = 0.0

    def __str__(self):
        return f"{self.outcome} by {self.by}: {self.where}" if self.by else self.outcome


def copy_sources(source, target):
    """Makes the trees equal. Copied files get a new time, so that they are compiled again."""

    def copy_changed(file, copied):
        if not (os.path.exists(copied) and filecmp.cmp(file, copied, shallow=False)):
            shutil.copyfile(file, copied)

    def left_out(folder, _):
        return LEFT_OUT if Path(folder) == source else ()

    shutil.copytree(source, target, ignore=left_out, copy_function=copy_changed, dirs_exist_ok=True)
    for file in target.rglob("*"):
        if file.is_file() and not (source / file.relative_to(target)).exists():
            file.unlink()


def copy_build(source, target):
    """The files keep their times, so that nothing is out of date."""
    shutil.copytree(source, target, dirs_exist_ok=True)


def run_limited(command, log, seconds, **options):
    """The exit status; None if the command ran for so many seconds. Ends its children, too."""
    with open(log, "wb") as output:
        process = subprocess.Popen(
            [*LIMITED, *command],
            stdin=subprocess.DEVNULL,
            stdout=output,
            stderr=subprocess.STDOUT,
            start_new_session=True,
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

    def __init__(self, folder):
        self.tree = folder / "tree"
        self.build = folder / "build"
        self.pristine = folder / "pristine"
        self.log = folder / "log"
        # Limits in seconds for a suite and for one Python test; the time of each file of these.
        self.times = {"native": 3600, "python": 3600, "test": 600, "files": {}}

    def prepare(self, root):
        """Copies the sources of `root` and builds them."""
        copy_sources(root, self.tree)
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
            "-DVELMAR_NATIVE_TESTS=ON",
            f"-DPython_EXECUTABLE={sys.executable}",
        ]
        subprocess.run(configure, check=True, stdout=subprocess.DEVNULL)
        build = ["ninja", "--quiet", "-C", self.build, "-j", str(os.cpu_count())]
        subprocess.run([*build, PRODUCT, *NATIVE], check=True)
        copy_build(self.build, self.pristine)

    def measure(self, results=None):
        """Measures the tests on the unchanged tree. Exits if they do not pass.

        `results` is a file of an earlier run of the Python tests, in JUnit format, to use instead
        of running them.
        """
        start = time.monotonic()
        kill = self.run_native()
        native = time.monotonic() - start
        if not results:
            results = self.tree.parent / "results.xml"
            kill = kill or self.run_python(f"--junit-xml={results}")
        if kill:
            sys.exit(f"the unchanged tree fails: {kill.by} {kill.where}; see {self.log}")
        files, longest = collections.Counter(), 0.0
        for case in ElementTree.parse(results).iter("testcase"):
            seconds = float(case.get("time"))
            files[f"tests/python/{case.get('classname').split('.')[2]}.py"] += seconds
            longest = max(longest, seconds)
        # Generous, because other jobs run at the same time and the build is not optimised.
        self.times = {
            "native": 120 + 4 * native,
            "python": 120 + 4 * files.total(),
            "test": 40 + 5 * longest,
            "files": files,
        }

    def judge(self, change):
        """Builds and tests the tree with one change, then restores the tree and the build."""
        start = time.monotonic()
        file = self.tree / change.file
        before = file.stat()
        file.write_text(change.apply())
        try:
            verdict = self.first_kill(change)
        finally:
            file.write_text(change.text)
            os.utime(file, ns=(before.st_atime_ns, before.st_mtime_ns))
            copy_build(self.pristine, self.build)
        verdict.seconds = time.monotonic() - start
        return verdict

    def first_kill(self, change):
        if not self.ninja(PRODUCT):
            return Verdict("uncompiled")
        suites = [self.run_native, self.run_python]
        if change.file.endswith(".hpp"):  # compiling the native tests takes longer than Python's
            suites.reverse()
        return suites[0]() or suites[1]() or Verdict("survived")

    def ninja(self, *targets):
        command = ["ninja", "-C", self.build, "-j1", *targets]
        return run_limited(command, self.log, LONGEST_BUILD) == 0

    def run_native(self):
        if not self.ninja(*NATIVE):
            return Verdict("killed", "compiler", "tests/compile or tests/native")
        for module in NATIVE:
            library = self.build / f"lib/{module}.abi3.so"
            command = ["tests/native/run.py", library, "--gtest_fail_fast"]
            if kill := self.run("native", command, r"^\[ +(?:RUN|FAILED) +\] ([^\s,]+)"):
                return kill
        return None

    def run_python(self, *options):
        quick_first = sorted(self.times["files"], key=self.times["files"].get)
        command = ["-u", "-m", "pytest", "-x", "-v", "--tb=no", *options]
        command += ["-o", f"cache_dir={self.tree.parent / 'pytest'}"]
        # The settings of pytest end the process when a test takes longer.
        command += ["-o", f"faulthandler_timeout={self.times['test']}", *quick_first]
        return self.run("python", command, r"^(?:ERROR |FAILED )?(tests/\S+)")

    def run(self, suite, command, test):
        """The verdict if a test fails: the last one in the log that fits the pattern `test`."""
        environment = dict(os.environ, PYTHONPATH=f"{self.build / 'lib'}:{self.tree / 'python'}")
        command = [sys.executable, "-P", *command]
        options = {"cwd": self.tree, "env": environment}
        status = run_limited(command, self.log, self.times[suite], **options)
        if status == 0:
            return None
        text = self.log.read_text(errors="replace")
        if suite == "python" and status in (4, 5):
            sys.exit(f"wrong arguments for pytest; see {self.log}")
        last = re.findall(test, text, re.MULTILINE)[-1:]
        if status is None or re.search(r"Timeout \(\d+:\d\d:\d\d\)!", text):
            return Verdict("killed", "hang", *last)
        if status < 0:
            return Verdict("killed", "crash", " ".join([signal.Signals(-status).name, *last]))
        return Verdict("killed", suite, *last)
