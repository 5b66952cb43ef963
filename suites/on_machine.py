"""Tests or packages the product for another machine, in an emulator: --on of the scripts."""

import argparse
import os
import subprocess
import sys
import time

from count import report
from machine import DEBIAN_NAMES, Machine
from suite import (
    ROOT,
    fresh_results,
    run,
    run_logged,
    run_native_suites,
    run_python_suites,
    say,
)

# Seconds of a suite and of a test, because the emulator is slow.
LONGEST, LONGEST_TEST = 3600, 1200
DESCRIBE = """\
import platform, sys
print(f"CPython {platform.python_version()}, {platform.machine()}, {sys.byteorder}-endian")
"""


def describe(python):
    return run(python, "-P", "-c", DESCRIBE, stdout=subprocess.PIPE).stdout.strip()


def test(machine, files):
    """All suites, or only these Python test files. Returns whether all tests passed."""
    start = time.monotonic()
    results = fresh_results(machine.name)
    python = machine.make_test_environment()
    wheel = machine.build_wheel()
    machine.install("environment", "--no-index", "--no-deps", "--upgrade", wheel)
    say(f"running the Python tests in {describe(python)}")
    limit = f"faulthandler_timeout={LONGEST_TEST}"
    options = ["--program-steps=10000", "-o", limit, *files]
    run_python_suites(results, python, options, {"HYPOTHESIS_PROFILE": "brief"}, LONGEST)
    if not files:
        build = machine.folder / "build"
        say("building and running the native tests")
        run_logged(results / "build.log", "cmake", "--build", build)
        run_native_suites(results, build, python, longest=LONGEST)
    times = os.times()
    user, system = times.user + times.children_user, times.system + times.children_system
    seconds = time.monotonic() - start
    say(f"{seconds:.0f} s; processor time: {user:.0f} s user, {system:.0f} s system")
    return report([results], with_logs=True)


def package(machine):
    """Makes the wheel in dist, installs it alone and runs the examples of the README."""
    built = machine.build_wheel()
    dist = ROOT / "dist"
    for old in dist.glob(f"*_{machine.name}.whl"):
        old.unlink()
    run("auditwheel", "repair", "--wheel-dir", dist, built)
    wheel = next(dist.glob(f"*_{machine.name}.whl"))
    say("checking")
    run("abi3audit", "--strict", wheel)
    run("check-wheel-contents", wheel)
    run("twine", "check", "--strict", wheel)
    python = machine.make_environment("clean")
    pip = (sys.executable, "-m", "pip", "--python", python, "install", "-qq", "--no-index")
    run(*pip, "--no-deps", "--no-compile", wheel)
    run(python, "-P", "-m", "doctest", "README.md", cwd=ROOT)
    say(f"{describe(python)} with the wheel alone: the README is right")
    say(f"made {wheel.relative_to(ROOT)}")
    return True


def main():
    parser = argparse.ArgumentParser(usage="script/test|package --on MACHINE [FILE...]")
    parser.add_argument("command", choices=["test", "package"])
    parser.add_argument("machine", choices=DEBIAN_NAMES)
    parser.add_argument("files", nargs="*")
    arguments = parser.parse_args()
    machine = Machine(arguments.machine)
    machine.prepare()
    is_test = arguments.command == "test"
    return 0 if (test(machine, arguments.files) if is_test else package(machine)) else 1


if __name__ == "__main__":
    sys.exit(main())
