"""Runs the suites of tests of one build. script/test has the options."""

import argparse
import os
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor

import sanitizers
from count import report
from machine import DEBIAN_NAMES, Machine
from suite import (
    ENVIRONMENTS,
    ROOT,
    find_interpreters,
    fresh_results,
    install,
    make_environment,
    run,
    run_native_suites,
    run_pytest,
    run_python_suites,
    say,
    test_example,
)
from wheel import build_wheel

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
# Compiler flags of the builds with clang++.
CLANG_FLAGS = {"clang": "", "libcxx": "-stdlib=libc++"}
CLANG_WHEEL_TESTS = {
    "client_kit": ["tests/wheel/test_client_kit.py", "tests/wheel/test_native_clients_page.py"],
    "recipes": ["tests/wheel/test_recipes.py"],
}
# Seconds of a suite and of a test in an emulator, which is slow.
LONGEST_EMULATED, LONGEST_TEST_EMULATED = 3600, 1200


def profile_of(version, versions, is_all):
    """The profile of tests/python/conftest.py for one of the versions, lowest first."""
    in_full = {versions[0], versions[-1]} if is_all else {versions[0]}
    return "ci" if version in in_full else "brief"


def test_release(results, files, is_all):
    """The wheel on every CPython; with files, only these on the lowest CPython."""
    wheel = build_wheel(native=is_all)
    interpreters = find_interpreters()[: 1 if files else None]
    lowest_version, lowest = interpreters[0]
    versions = [version for version, _ in interpreters]
    profiles = {version: profile_of(version, versions, is_all) for version in versions}

    def test_on(version, interpreter):
        name = f"python-{version}"
        python = make_environment(name, interpreter, wheel)
        settings = {"HYPOTHESIS_PROFILE": profiles[version]}
        run_pytest(results, name, python, *files, settings=settings)

    def test_neighbours():
        python = make_environment("neighbours", lowest, wheel)
        install("neighbours", "-r", "script/requirements-examples.txt")
        run_pytest(results, "neighbours", python, "tests/neighbours")
        beside = [f"tests/python/test_{name}.py" for name in BESIDE_NEIGHBOURS]
        run_pytest(results, "beside_neighbours", python, *beside)

    # The longest suites come first, so that no processor waits at the end.
    longest_first = sorted(interpreters, key=lambda pair: profiles[pair[0]] != "ci")
    jobs = [(test_on, *pair) for pair in longest_first]
    if not files:
        jobs.append((run_pytest, results, "wheel", sys.executable, "tests/wheel", "--wheel", wheel))
    if is_all:
        python = ENVIRONMENTS / f"python-{lowest_version}/bin/python"
        client = ROOT / "build/native_client/test"
        jobs.append((test_neighbours,))
        jobs.append((run_native_suites, results, ROOT / "build/release", lowest))
        jobs.append((test_example, results, "example", client, python))
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for job in [pool.submit(*job) for job in jobs]:
            job.result()


def test_preset(results, files, preset, profile, flags="", settings=None):
    """A build for tests, on the lowest CPython. `flags` are for the client of examples."""
    settings = settings or {}
    build = ROOT / "build" / preset
    wheel = build_wheel(results, build, preset, native=not files)
    python = make_environment(preset, find_interpreters()[0][1], wheel)

    def test_others():
        run_native_suites(results, build, python, settings)
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


def test_clang(results, name, flags, is_native):
    folder = ROOT / "build/compilers" / name
    settings = {"CXX": "clang++", "CXXFLAGS": flags}
    definitions = {"CMAKE_CXX_COMPILER": "clang++", "CMAKE_CXX_FLAGS": flags}
    options = {"native": is_native, "definitions": definitions, "settings": settings}
    wheel = build_wheel(folder, folder / "build", **options)
    say(f"{name}: built without a warning")
    python = make_environment(f"compilers-{name}", find_interpreters()[0][1], wheel)

    for suite, tests in CLANG_WHEEL_TESTS.items():
        if not (flags and suite == "recipes"):  # the recipes have flags of their own
            options = [*tests, "--wheel", wheel]
            run_pytest(results, f"{name}_{suite}", sys.executable, *options, settings=settings)
    test_example(results, f"{name}_example", folder / "example", python, flags, settings)
    options = ["-n", os.cpu_count(), "--dist", "worksteal"]
    brief = settings | {"HYPOTHESIS_PROFILE": "brief"}
    run_pytest(results, f"{name}_python", python, *options, settings=brief)
    if is_native:
        run_native_suites(results, folder / "build", python, prefix=f"{name}_")


def test_on_machine(results, files, machine):
    """The wheel for another machine, in an emulator."""
    machine.prepare()
    start = time.monotonic()
    python = machine.make_test_environment()
    wheel = machine.build_wheel(native=not files)
    machine.install("environment", "--no-index", "--no-deps", "--upgrade", wheel)
    run(python, "-P", "-m", "platform")
    limit = f"faulthandler_timeout={LONGEST_TEST_EMULATED}"
    options = ["--program-steps=10000", "-o", limit, *files]
    brief = {"HYPOTHESIS_PROFILE": "brief"}
    run_python_suites(results, python, options, brief, LONGEST_EMULATED)
    if not files:
        run_native_suites(results, machine.folder / "build", python, longest=LONGEST_EMULATED)
    times = os.times()
    user, system = times.user + times.children_user, times.system + times.children_system
    seconds = time.monotonic() - start
    say(f"{seconds:.0f} s; processor time: {user:.0f} s user, {system:.0f} s system")


def main():
    parser = argparse.ArgumentParser()
    parser.set_defaults(mode="test")
    modes = parser.add_mutually_exclusive_group()
    for mode in ("all", "sanitize", "coverage", "compilers"):
        modes.add_argument(f"--{mode}", dest="mode", action="store_const", const=mode)
    modes.add_argument("--on", choices=DEBIAN_NAMES)
    parser.add_argument("--native", action="store_true", help="with --compilers: native tests, too")
    parser.add_argument("files", nargs="*")
    arguments = parser.parse_args()
    mode, files = arguments.mode, arguments.files
    results = fresh_results(arguments.on or ("test" if mode == "all" else mode))
    if arguments.on:
        test_on_machine(results, files, Machine(arguments.on))
    elif mode == "sanitize":
        test_sanitized(results, files)
    elif mode == "coverage":
        test_covered(results, files)
    elif mode == "compilers":
        for name, flags in CLANG_FLAGS.items():
            test_clang(results, name, flags, arguments.native)
    else:
        test_release(results, files, mode == "all")
    is_good = report([results], with_logs=True)
    if mode == "coverage":
        is_good = report_coverage(results, files) and is_good
    return 0 if is_good else 1


if __name__ == "__main__":
    sys.exit(main())
