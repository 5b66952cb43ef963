"""script/setup: its parts, and the pinned packages that share .venv."""

import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
IN_VENV = ["build", "demo", "neighbours", "tests", "audit", "recipes", "tools"]


def pins_of(name):
    lines = (ROOT / f"script/requirements-{name}.txt").read_text().splitlines()
    return dict(line.split("==") for line in lines if not line.startswith("#"))


@pytest.mark.parametrize("name", IN_VENV)
def test_files_agree(name):
    """Otherwise each part would replace the packages of another one."""
    pins = pins_of(name)
    for other in IN_VENV:
        different = {key for key, pin in pins_of(other).items() if pins.get(key, pin) != pin}
        assert different == set(), other


def test_venv_has_the_files_of_this_test():
    text = (ROOT / "script/setup").read_text()
    (lists,) = re.findall(r"^packages_of\(\) \{.*?^\}", text, re.M | re.S)
    named = set(re.findall(r"requirements-(\w+)\.txt", lists))
    named |= {name for line in re.findall(r"%s\.txt\\n' (.*) ;;", lists) for name in line.split()}
    assert named == set(IN_VENV)


def test_unknown_part():
    run = subprocess.run(
        [ROOT / "script/setup", "build", "everything"], capture_output=True, text=True
    )
    assert run.returncode == 1 and run.stdout == ""
    assert run.stderr == "setup: usage: setup [build native demo tests examples lint]\n"
