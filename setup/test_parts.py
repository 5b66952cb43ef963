"""script/setup: its parts, and the pinned packages that share .venv."""

import shutil
import subprocess
from pathlib import Path

import parts
import pytest

ROOT = Path(__file__).resolve().parents[1]
IN_VENV = sorted({name for part in parts.PARTS.values() for name in part.in_venv})


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


# Parts as arguments, and those that are set up.
WANTED = [
    (["build"], ["build"]),
    (["demo"], ["build", "demo"]),
    (["native"], ["build"]),
    (["lint", "tests"], ["build", "tests", "lint"]),
]


@pytest.mark.parametrize("names, wanted", WANTED)
def test_wanted_parts(names, wanted):
    assert parts.wanted_parts(names) == wanted


# A part, what changes after it was set up, and whether that is set up again.
CHANGES = [
    ("build", "nothing", False),
    ("build", "script/requirements-build.txt", True),
    ("build", "script/requirements-demo.txt", False),
    ("build", "interpreters", False),
    ("demo", ".cache/wheelhouse", False),
    ("tests", "nothing", False),
    ("tests", "script/requirements-audit.txt", True),
    ("tests", "interpreters", True),
    ("tests", ".cache/wheelhouse", True),
    ("tests", ".venv/parts/tests", True),
]


@pytest.mark.parametrize("name, changed, is_again", CHANGES)
def test_what_is_set_up_again(name, changed, is_again, tmp_path, monkeypatch):
    shutil.copytree(ROOT / "script", tmp_path / "script")
    for folder in (".venv/parts", ".cache/wheelhouse"):
        (tmp_path / folder).mkdir(parents=True)
    monkeypatch.chdir(tmp_path)
    (parts.STAMPS / name).write_text(parts.inputs_of(name, "3.11.2 python"))
    file = Path(changed)
    if file.suffix == ".txt":
        file.write_text("pytest==1")
    elif file.is_dir():
        file.rmdir()
    else:
        file.unlink(missing_ok=True)
    interpreters = "3.12.1 python" if changed == "interpreters" else "3.11.2 python"
    assert parts.is_set_up(name, interpreters) != is_again


def test_unknown_part():
    run = subprocess.run(
        [ROOT / "script/setup", "build", "everything"], capture_output=True, text=True
    )
    assert run.returncode == 1 and run.stdout == ""
    assert run.stderr == "setup: usage: setup [build native demo tests examples lint]\n"
