"""Runs the suites of tests of one build. script/test has the options."""

import argparse
import os
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import sanitizers
from count import report
from suite import (
    ROOT,
    find_interpreters,
    fresh_results,
    install,
    make_environment,
    native_module,
    pytest,
    run,
    run_native_suite,
    run_python_suites,
    run_suite,
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
LEAST, LEAST_BY_SOME_FILES = (98, 95), (85, 80)


def profile_of(version, versions, is_all):
    """The profile of tests/python/conftest.py for one of the versions, lowest first."""
    in_full = {versions[0], versions[-1]} if is_all else {versions[0]}
    return "ci" if version in in_full else "brief"


class WheelRun:
    """The wheel on every CPython; with files, only these on the lowest CPython."""

    def __init__(self, results, files, is_all):
        self.results = results
        self.files = files
        self.is_all = is_all

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
                started.append(pool.submit(self.test_native, lowest))
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
        command = pytest(self.results, name, python, *self.files)
        run_suite(self.results, name, command, {"HYPOTHESIS_PROFILE": profile})

    def test_wheel(self):
        command = pytest(
            self.results, "wheel", sys.executable, "tests/wheel", "--wheel", self.wheel
        )
        run_suite(self.results, "wheel", command)

    def test_neighbours(self, interpreter):
        python = self.make_environment("neighbours", interpreter)
        install("neighbours", "-r", "script/requirements-examples.txt")
        files = [f"tests/python/test_{name}.py" for name in BESIDE_NEIGHBOURS]
        for name, of_suite in (("neighbours", ["tests/neighbours"]), ("beside_neighbours", files)):
            run_suite(self.results, name, pytest(self.results, name, python, *of_suite))

    def test_native(self, interpreter):
        for name in ("native", "client"):
            module = native_module(ROOT / "build/release", name)
            run_native_suite(self.results, name, module, interpreter)


class PresetRun:
    """A build for tests, on the lowest CPython."""

    def __init__(self, results, files, preset, profile, flags="", settings=None):
        self.results = results
        self.files = files
        self.preset = preset
        self.profile = profile
        self.flags = flags  # of the compiler, for the client of examples
        self.settings = settings or {}

    def test(self):
        python = self.build_and_install()
        with ThreadPoolExecutor() as pool:
            others = None if self.files else pool.submit(self.test_others, python)
            settings = self.settings | {"HYPOTHESIS_PROFILE": self.profile}
            run_python_suites(self.results, python, self.files, settings)
            if others:
                others.result()

    def build_and_install(self):
        native = "OFF" if self.files else "ON"
        with (self.results / "build.log").open("w") as log:
            run(
                "script/build", self.preset, f"-DVELMAR_NATIVE_TESTS={native}", cwd=ROOT, stdout=log
            )
        python = make_environment(self.preset, find_interpreters()[0][1])
        find_site = "import sysconfig; print(sysconfig.get_path('platlib'))"
        site = run(python, "-c", find_site, stdout=subprocess.PIPE).stdout.strip()
        with (self.results / "install.log").open("w") as log:
            run("cmake", "--install", ROOT / "build" / self.preset, "--prefix", site, stdout=log)
        for package in ("velmar", "vlexceptions"):
            shutil.copytree(ROOT / "python" / package, Path(site) / package, dirs_exist_ok=True)
        return python

    def test_others(self, python):
        for name in ("native", "client"):
            module = native_module(ROOT / "build" / self.preset, name)
            run_native_suite(self.results, name, module, python, self.settings)
        client = ROOT / "build/native_client" / self.preset
        test_example(self.results, "example", client, python, self.flags, self.settings)


def sanitized(results, files):
    flags = "-fsanitize=address,undefined -fno-sanitize-recover=all"
    settings = sanitizers.settings(results / "report")
    return PresetRun(results, files, "sanitize", "brief", flags, settings)


def covered(results, files):
    # At its end every process, also a child, adds its counts to the .gcda files beside the objects.
    for counts in (ROOT / "build/coverage").rglob("*.gcda"):
        counts.unlink()
    return PresetRun(results, files, "coverage", "brief" if files else "ci")


def report_coverage(results, files):
    """Prints the shares of lines and branches. Returns whether they are large enough."""
    least = LEAST_BY_SOME_FILES if files else LEAST
    program = [sys.executable, "checks/coverage_report.py", "build/coverage", "--least", *least]
    file = results / "coverage.txt"
    with file.open("w") as text, (results / "gcov.log").open("w") as log:
        command = [str(part) for part in program]
        done = subprocess.run(command, cwd=ROOT, stdout=text, stderr=log)
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
        sanitized(results, files).test()
    elif mode == "coverage":
        covered(results, files).test()
    else:
        WheelRun(results, files, mode == "all").test()
    is_good = report([results], with_logs=True)
    if mode == "coverage":
        is_good = report_coverage(results, files) and is_good
    return 0 if is_good else 1


if __name__ == "__main__":
    sys.exit(main())
