"""Runs one suite of tests, and makes the environments in which suites run."""

import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
ENVIRONMENTS = ROOT / "build/environments"
LONGEST = 1200  # seconds


def say(text):
    print(f"== {text}", file=sys.stderr, flush=True)


def run(*command, **options):
    return subprocess.run([str(part) for part in command], check=True, text=True, **options)


def fresh_results(name):
    """An empty folder for the results of the suites of one run."""
    folder = ROOT / "build/results" / name
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    return folder


def run_suite(results, name, command, settings=None, longest=LONGEST):
    """Runs a command in the root of the project, with these environment variables in addition.

    Writes its output to NAME.log and its exit status to NAME.status in the folder `results`.
    """
    start = time.monotonic()
    # The stack of a test that hangs comes with the signal.
    limited = ["timeout", "--signal=ABRT", "--kill-after=30", longest, *command]
    log = results / f"{name}.log"
    with log.open("w") as output:
        done = subprocess.run(
            [str(part) for part in limited],
            stdin=subprocess.DEVNULL,
            stdout=output,
            stderr=subprocess.STDOUT,
            cwd=ROOT,
            env=os.environ | (settings or {}),
        )
    (results / f"{name}.status").write_text(f"{done.returncode}\n")
    last = (log.read_text(errors="replace").splitlines() or [""])[-1]
    say(f"{name}, {time.monotonic() - start:.0f} s: {last}")


def pytest_command(results, name, python, *options):
    report = ("--junit-xml", results / f"{name}.xml")
    cache = ("-o", f"cache_dir={ENVIRONMENTS / name}.cache")
    return [python, "-P", "-m", "pytest", "-q", "-rs", *report, *cache, *options]


def run_pytest(results, name, python, *options, settings=None, longest=LONGEST):
    """Runs a suite of Python tests."""
    command = pytest_command(results, name, python, *options)
    run_suite(results, name, command, settings, longest)


def run_python_suites(results, python, options, settings, longest=LONGEST):
    """Tests that start processes are apart: the workers of pytest-xdist have threads.

    They run without the watchdog of pytest, too. It is a thread for each test, which can hold the
    lock of the sanitizer's allocator as it starts; a process forked then would wait for it forever.
    """
    in_workers = ["-n", os.cpu_count(), "--dist", "worksteal", "-m", "not processes"]
    alone = ["-m", "processes", "-o", "faulthandler_timeout=0"]
    for name, of_suite in (("python", in_workers), ("processes", alone)):
        of_suite = [*of_suite, *options]
        run_pytest(results, name, python, *of_suite, settings=settings, longest=longest)
    # Without any such test in the given files, pytest ends with status 5.
    status = results / "processes.status"
    if status.read_text().strip() == "5":
        for file in results.glob("processes.*"):
            file.unlink()


def without_passed_tests(lines):
    """The log of GoogleTest without the tests that passed silently, but with an unfinished one."""
    kept, started = [], []
    for line in lines:
        if line.startswith("[ RUN"):
            started = [line]
        elif line.startswith("[       OK"):
            started = []
        elif not line.startswith("[-----"):
            kept += [*started, line]
            started = []
    return kept + started


def run_native_suites(results, build, python, settings=None, longest=LONGEST, prefix=""):
    """Runs the native tests of a build, and those of its client, in an interpreter."""
    for module in ("native", "client"):
        name = prefix + module
        library = build / f"lib/velmar_{module}_tests.abi3.so"
        command = [python, "-P", "tests/native/run.py", library]
        command.append(f"--gtest_output=xml:{results / name}.xml")
        run_suite(results, name, command, settings, longest)
        log = results / f"{name}.log"
        lines = log.read_text(errors="replace").splitlines()
        log.write_text("\n".join([*without_passed_tests(lines), ""]))


def install(environment, *options, **settings):
    """Installs packages that script/setup has downloaded."""
    python = ENVIRONMENTS / environment / "bin/python"
    pip = [sys.executable, "-m", "pip", "--python", python, "install", "-qq", "--no-index"]
    run(*pip, "--find-links", ".cache/wheelhouse", *options, cwd=ROOT, **settings)


def make_environment(name, interpreter, wheel):
    """A fresh virtual environment with the test tools and the wheel. Returns its interpreter."""
    run(interpreter, "-m", "venv", "--clear", "--without-pip", ENVIRONMENTS / name)
    install(name, "-r", "script/requirements-tests.txt")
    try:
        install(name, "-r", "script/requirements-neighbours.txt", stderr=subprocess.DEVNULL)
    except subprocess.CalledProcessError:
        say(f"{name} has no NumPy: tests that need it are skipped")
    install(name, "--no-deps", wheel)
    return ENVIRONMENTS / name / "bin/python"


def find_interpreters():
    """Pairs of version and executable, lowest version first."""
    found = run("script/interpreters", cwd=ROOT, stdout=subprocess.PIPE).stdout
    return [tuple(line.split(" ", 1)) for line in found.splitlines()]


def test_example(results, name, folder, python, flags="", settings=None):
    """Builds the client of examples as a project of its own, and runs its tests as one suite."""
    shutil.rmtree(folder, ignore_errors=True)
    client = ROOT / "examples/native_client"
    settings = (settings or {}) | {"PYTHONPATH": str(folder)}
    find_kit = [python, "-P", "-m", "velmar", "--cmake-dir"]
    kit = run(*find_kit, stdout=subprocess.PIPE, env=os.environ | settings).stdout.strip()
    command = ["ctest", "--build-and-test", client, folder, "--build-generator", "Ninja"]
    command += ["--build-noclean", "--build-options", f"-DCMAKE_CXX_FLAGS=-Werror {flags}"]
    command += [f"-DPython_EXECUTABLE={python}", f"-Dvelmarmultidimarrayforpython_DIR={kit}"]
    command += ["--test-command", *pytest_command(results, name, python, client)]
    run_suite(results, name, command, settings)
