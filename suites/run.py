"""Runs the suites of tests of one build. script/test has the options."""

import argparse
import os
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

import sanitizers
from count import report
from suite import (
    ROOT,
    find_interpreters,
    fresh_results,
    install,
    make_environment,
    run,
    run_logged,
    run_native_suites,
    run_pytest,
    run_python_suites,
    say,
    test_example,
)

# Files that also test arrays beside other libraries where these are installed.
BESIDE_NEIGHBOURS = (
    "documentation_blocks",
    "transport_registered",
    "transport_pickle",
    "notebook",
    "bench_operations",
)
# The least shares of lines and branches. The Python tests alone reach less, because some code is
# for native clients only.
LEAST, LEAST_BY_SOME_FILES = ("98", "95"), ("85", "80")


def profile_of(version, versions, is_all):
    """The profile of tests/python/conftest.py for one of the versions, lowest first."""
    in_full = {versions[0], versions[-1]} if is_all else {versions[0]}
    return "ci" if version in in_full else "brief"


@dataclass
class WheelRun:
    """The wheel on every CPython; with files, only these on the lowest CPython."""

    results: Path
    files: list[str]
    is_all: bool

    def test(self):
        build = ["script/wheel", "--native-tests"] if self.is_all else ["script/wheel"]
        self.wheel = run(*build, cwd=ROOT, stdout=subprocess.PIPE).stdout.strip()
        interpreters = find_interpreters()[: 1 if self.files else None]
        lowest_version, lowest = interpreters[0]
        versions = [version for version, _ in interpreters]
        jobs = [
            (version, interpreter, profile_of(version, versions, self.is_all))
            for version, interpreter in interpreters
        ]
        # The longest suites come first, so that no processor waits at the end.
        jobs.sort(key=lambda job: job[2] != "ci")
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            started = [pool.submit(self.test_on, *job) for job in jobs]
            if not self.files:
                started.append(pool.submit(self.test_wheel))
            if self.is_all:
                python = ROOT / f"build/environments/python-{lowest_version}/bin/python"
                started.append(pool.submit(self.test_neighbours, lowest))
                release = ROOT / "build/release"
                started.append(pool.submit(run_native_suites, self.results, release, lowest))
                client = ROOT / "build/native_client/test"
                started.append(pool.submit(test_example, self.results, "example", client, python))
            for job in started:
                job.result()

    def make_environment(self, name, interpreter):
        python = make_environment(name, interpreter)
        install(name, "--no-deps", self.wheel)
        return python

    def test_on(self, version, interpreter, profile):
        name = f"python-{version}"
        python = self.make_environment(name, interpreter)
        settings = {"HYPOTHESIS_PROFILE": profile}
        run_pytest(self.results, name, python, *self.files, settings=settings)

    def test_wheel(self):
        options = ["tests/wheel", "--wheel", self.wheel]
        run_pytest(self.results, "wheel", sys.executable, *options)

    def test_neighbours(self, interpreter):
        python = self.make_environment("neighbours", interpreter)
        install("neighbours", "-r", "script/requirements-examples.txt")
        run_pytest(self.results, "neighbours", python, "tests/neighbours")
        files = [f"tests/python/test_{name}.py" for name in BESIDE_NEIGHBOURS]
        run_pytest(self.results, "beside_neighbours", python, *files)


def install_preset(results, preset, is_native):
    """Builds a preset. Returns an interpreter, the lowest CPython, with the module and packages."""
    native = "ON" if is_native else "OFF"
    build_log = results / "build.log"
    run_logged(build_log, "script/build", preset, f"-DVELMAR_NATIVE_TESTS={native}")
    python = make_environment(preset, find_interpreters()[0][1])
    find_site = "import sysconfig; print(sysconfig.get_path('platlib'))"
    site = run(python, "-c", find_site, stdout=subprocess.PIPE).stdout.strip()
    install_log = results / "install.log"
    run_logged(install_log, "cmake", "--install", f"build/{preset}", "--prefix", site)
    for package in ("velmar", "vlexceptions"):
        shutil.copytree(ROOT / "python" / package, Path(site) / package, dirs_exist_ok=True)
    return python


def test_preset(results, files, preset, profile, flags="", settings=None):
    """A build for tests. `flags` are for the compiler of the client of examples."""
    settings = settings or {}
    python = install_preset(results, preset, is_native=not files)

    def test_others():
        run_native_suites(results, ROOT / "build" / preset, python, settings)
        client = ROOT / "build/native_client" / preset
        test_example(results, "example", client, python, flags, settings)

    with ThreadPoolExecutor() as pool:
        others = None if files else pool.submit(test_others)
        variables = settings | {"HYPOTHESIS_PROFILE": profile}
        run_python_suites(results, python, files, variables)
        if others:
            others.result()


def test_sanitized(results, files):
    flags = "-fsanitize=address,undefined -fno-sanitize-recover=all"
    settings = sanitizers.settings(results / "report")
    test_preset(results, files, "sanitize", "brief", flags, settings)


def test_covered(results, files):
    # At its end every process, also a child, adds its counts to the .gcda files beside the objects.
    for counts in (ROOT / "build/coverage").rglob("*.gcda"):
        counts.unlink()
    test_preset(results, files, "coverage", "brief" if files else "ci")


def report_coverage(results, files):
    """Prints the shares of lines and branches. Returns whether they are large enough."""
    least = LEAST_BY_SOME_FILES if files else LEAST
    program = ["checks/coverage_report.py", "build/coverage", "--least", *least]
    file = results / "coverage.txt"
    with file.open("w") as text, (results / "gcov.log").open("w") as log:
        done = subprocess.run([sys.executable, *program], cwd=ROOT, stdout=text, stderr=log)
    for line in file.read_text().splitlines():
        if not files or line.startswith(("lines:", "branches:")):
            print(line)
    if files:
        say(f"lines and branches that did not run: see {file}")
    return done.returncode == 0


def main():
    parser = argparse.ArgumentParser()
    modes = parser.add_mutually_exclusive_group()
    for mode in ("all", "sanitize", "coverage"):
        modes.add_argument(f"--{mode}", dest="mode", action="store_const", const=mode)
    parser.add_argument("files", nargs="*")
    arguments = parser.parse_args()
    mode, files = arguments.mode, arguments.files
    results = fresh_results(mode if mode in ("sanitize", "coverage") else "test")
    if mode == "sanitize":
        test_sanitized(results, files)
    elif mode == "coverage":
        test_covered(results, files)
    else:
        WheelRun(results, files, mode == "all").test()
    is_good = report([results], with_logs=True)
    if mode == "coverage":
        is_good = report_coverage(results, files) and is_good
    return 0 if is_good else 1


if __name__ == "__main__":
    sys.exit(main())
