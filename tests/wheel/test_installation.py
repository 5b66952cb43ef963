"""docs/installation.md: its commands install the wheel offline and remove it; its names."""

import os
import re
import subprocess
import sys
import tomllib
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PAGE = (ROOT / "docs" / "installation.md").read_text(encoding="ascii")
WHEEL_OF_PAGE = re.compile(r"velmarmultidimarrayforpython-\S+\.whl")


def commands(heading):
    """The lines of the first block of commands below a heading."""
    (section,) = re.findall(rf"^## {heading}\n(.*?)(?=^## |\Z)", PAGE, re.MULTILINE | re.DOTALL)
    return re.search(r"^```sh\n(.*?)^```$", section, re.MULTILINE | re.DOTALL)[1].splitlines()


@pytest.fixture(scope="module")
def environment(tmp_path_factory):
    folder = tmp_path_factory.mktemp("environment")
    subprocess.run([sys.executable, "-m", "venv", folder], check=True)
    return folder


def run(command, environment, wheel):
    kept = {name: value for name, value in os.environ.items() if not name.startswith("PYTHON")}
    path = f"{environment / 'bin'}:{os.environ['PATH']}"
    return subprocess.run(
        WHEEL_OF_PAGE.sub(str(wheel.resolve()), command),
        shell=True,
        cwd=environment,
        env=kept | {"PATH": path, "PIP_NO_INDEX": "1"},
        capture_output=True,
        text=True,
        stdin=subprocess.DEVNULL,
    )


def packages(environment):
    (site,) = environment.glob("lib/python*/site-packages")
    return {entry.name for entry in site.iterdir()}


def test_install_use_and_uninstall(environment, wheel):
    before = packages(environment)
    offline, check = commands("Install without a network")[0], commands("Install a wheel")[1]
    installed = run(offline, environment, wheel)
    assert installed.returncode == 0, installed.stderr
    (printed,) = re.findall(r"second command prints `([^`]+)`", PAGE)
    assert run(check, environment, wheel).stdout == f"{printed}\n"
    removed = run(f"{commands('Update and uninstall')[0]} --yes", environment, wheel)
    assert removed.returncode == 0, removed.stderr
    assert packages(environment) == before


def test_everything_that_is_installed_is_listed(unpacked):
    """The table of the page has a row for each entry of the wheel."""
    listed = re.findall(r"^\| `([^`]+?)/?` \|", PAGE.split("## What is installed")[1], re.MULTILINE)
    found = {entry.name for entry in unpacked.iterdir() if not entry.name.endswith(".dist-info")}
    assert {name for name in found if not any(Path(name).match(row) for row in listed)} == set()
    assert {row for row in listed if not any(Path(name).match(row) for name in found)} == set()


def test_the_wheel_of_the_page_has_the_version_of_the_project(wheel):
    version = tomllib.loads((ROOT / "pyproject.toml").read_text())["project"]["version"]
    names = WHEEL_OF_PAGE.findall(PAGE)
    assert names
    for name in names:
        assert name.startswith(f"velmarmultidimarrayforpython-{version}-cp311-abi3-manylinux_")


def test_description_has_no_links_to_files_outside_of_the_wheel(unpacked):
    (metadata,) = unpacked.glob("*.dist-info/METADATA")
    _, description = metadata.read_text(encoding="utf-8").split("\n\n", 1)
    assert "# velmarmultidimarrayforpython" in description
    assert re.findall(r"\]\((?!https://)[^)]*\)", description) == []


def test_files_that_the_description_names_are_in_the_sources():
    named = re.findall(r"\(`([^`]+)`\)", (ROOT / "python" / "description.md").read_text())
    assert len(named) == 4
    assert [name for name in named if not (ROOT / name).exists()] == []
