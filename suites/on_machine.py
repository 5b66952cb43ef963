"""Tests or packages the product for another machine, in an emulator: --on of the scripts."""

import argparse
import os
import sys
import time

from count import report
from machine import DEBIAN_NAMES, Machine
from suite import fresh_results, run, run_native_suites, run_python_suites, say

# Seconds of a suite and of a test, because the emulator is slow.
LONGEST, LONGEST_TEST = 3600, 1200


def test(machine, files):
    """All suites, or only these Python test files. Returns whether all tests passed."""
    start = time.monotonic()
    results = fresh_results(machine.name)
    python = machine.make_test_environment()
    wheel = machine.build_wheel(native=not files)
    machine.install("environment", "--no-index", "--no-deps", "--upgrade", wheel)
    run(python, "-P", "-m", "platform")
    limit = f"faulthandler_timeout={LONGEST_TEST}"
    options = ["--program-steps=10000", "-o", limit, *files]
    run_python_suites(results, python, options, {"HYPOTHESIS_PROFILE": "brief"}, LONGEST)
    if not files:
        run_native_suites(results, machine.folder / "build", python, longest=LONGEST)
    times = os.times()
    user, system = times.user + times.children_user, times.system + times.children_system
    seconds = time.monotonic() - start
    say(f"{seconds:.0f} s; processor time: {user:.0f} s user, {system:.0f} s system")
    return report([results], with_logs=True)


def package(machine):
    """Makes the wheel, and an environment with nothing installed. script/package does the rest."""
    machine.build_wheel(native=False)
    machine.make_environment("clean")
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
