"""Tests of how suites are chosen, logged and counted."""

import machine
import pytest
from count import count_suite
from run import profile_of
from suite import without_passed_tests

PASSED = '<testcase classname="a" name="one"/>'
FAILED = '<testcase classname="a" name="two"><failure/></testcase>'
ERROR = '<testcase classname="a" name="three"><error/></testcase>'
SKIPPED = '<testcase classname="a" name="four"><skipped/></testcase>'
DISABLED = '<testcase classname="a" name="five" status="notrun"/>'
# Exit status and results of a suite; how many passed, failed and were skipped; what failed.
SUITES = [
    ("0", PASSED + SKIPPED + DISABLED, (1, 0, 2), []),
    ("1", PASSED + FAILED + ERROR, (1, 2, 0), ["a::two", "a::three"]),
    ("134", PASSED, (1, 1, 0), ["ended with status 134; its last lines:", "the log"]),
    ("5", SKIPPED, (0, 1, 1), ["ended with status 5; its last lines:", "the log"]),
    ("0", None, (0, 1, 0), ["ended with status 0; its last lines:", "the log"]),
]


@pytest.mark.parametrize("status, cases, expected, failed", SUITES)
def test_totals(status, cases, expected, failed, tmp_path):
    (tmp_path / "suite.status").write_text(f"{status}\n")
    (tmp_path / "suite.log").write_text("the log\n")
    if cases is not None:
        (tmp_path / "suite.xml").write_text(f"<testsuite>{cases}</testsuite>")
    counts, lines = count_suite(tmp_path / "suite.status")
    assert (counts["passed"], counts["failed"], counts["skipped"]) == expected
    assert lines == failed


VERSIONS = ["3.11.2", "3.12.1", "3.13.0"]
# A version, whether all suites run, and the profile.
PROFILES = [
    ("3.11.2", False, "ci"),
    ("3.12.1", False, "brief"),
    ("3.13.0", False, "brief"),
    ("3.11.2", True, "ci"),
    ("3.12.1", True, "brief"),
    ("3.13.0", True, "ci"),
]


@pytest.mark.parametrize("version, is_all, profile", PROFILES)
def test_profiles(version, is_all, profile):
    assert profile_of(version, VERSIONS, is_all) == profile


STARTED, ENDED, WRONG = "[ RUN      ] A.b", "[       OK ] A.b (0 ms)", "[  FAILED  ] A.b (0 ms)"
# Lines of a log, and those that stay.
LOGS = [
    ([STARTED, ENDED, "[  PASSED  ] 1 test."], ["[  PASSED  ] 1 test."]),
    ([STARTED, "wrong", WRONG], [STARTED, "wrong", WRONG]),
    ([STARTED, "a warning", ENDED], [STARTED, "a warning"]),
    ([STARTED, ENDED, STARTED], [STARTED]),
    (["[----------] 1 test"], []),
]


@pytest.mark.parametrize("lines, kept", LOGS)
def test_logs(lines, kept):
    assert without_passed_tests(lines) == kept


COMPILER, EMULATOR = "s390x-linux-gnu-g++", "qemu-s390x"
# The commands of this computer, and the Debian packages that are missing.
TOOLS = [
    ([], ["g++-s390x-linux-gnu", "qemu-user"]),
    ([COMPILER], ["qemu-user"]),
    (["qemu-aarch64", COMPILER], ["qemu-user"]),
    ([EMULATOR], ["g++-s390x-linux-gnu"]),
    ([COMPILER, EMULATOR], []),
    ([COMPILER, f"{EMULATOR}-static"], []),
]


@pytest.mark.parametrize("commands, missing", TOOLS)
def test_missing_tools(commands, missing, monkeypatch):
    monkeypatch.setattr(machine.shutil, "which", lambda name: name if name in commands else None)
    assert machine.missing_tools("s390x") == missing


def test_what_is_made_again(tmp_path, monkeypatch):
    monkeypatch.setattr(machine, "ROOT", tmp_path)
    of_machine = machine.Machine("s390x")
    root = of_machine.folder / "root"
    root.mkdir(parents=True)
    made = []

    def make(inputs):
        of_machine.make_once("root", inputs, lambda: made.append(inputs))

    for inputs in ("first", "first", "second", "second", "first"):
        make(inputs)
    assert made == ["first", "second", "first"]
    root.rmdir()
    make("first")
    assert made == ["first", "second", "first", "first"]
