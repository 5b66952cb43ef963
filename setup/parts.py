"""Fills .venv and .cache/wheelhouse with the packages that the parts of script/setup need.

script/setup runs this in the root, with the interpreter that .venv is made with. Arguments: the
list of interpreters as script/interpreters prints it, and the parts.
"""

import fcntl
import subprocess
import sys
from pathlib import Path
from typing import NamedTuple

VENV, CACHE = Path(".venv"), Path(".cache")
STAMPS = VENV / "parts"  # so that a new .venv has none
WHEELHOUSE = CACHE / "wheelhouse"


class Part(NamedTuple):
    """The NAMEs of script/requirements-NAME.txt with the pinned packages."""

    purpose: str = ""
    in_venv: tuple[str, ...] = ()
    downloads: tuple[str, ...] = ()  # to .cache/wheelhouse


PARTS = {
    "build": Part("the build tools (cmake, ninja, scikit-build-core)", ("build",)),
    "demo": Part("NumPy and matplotlib", ("demo", "neighbours")),
    "tests": Part(
        "the test tools (pytest, hypothesis, NumPy, abi3audit, tools of the recipes)",
        ("tests", "neighbours", "audit", "recipes"),
        ("tests", "neighbours"),
    ),
    "examples": Part(downloads=("examples",)),
    "lint": Part("the linters (clang-format, clang-tidy, ruff, shellcheck)", ("tools",)),
}


def say(text):
    print(f"== {text}", flush=True)


def requirements(name):
    return Path(f"script/requirements-{name}.txt")


def requirement_options(names):
    return [f"--requirement={requirements(name)}" for name in names]


def inputs_of(name, interpreters):
    """A part is set up again when one of these changes."""
    part = PARTS[name]
    files = [Path(__file__), *map(requirements, part.in_venv + part.downloads)]
    used = interpreters if part.downloads else sys.executable
    return "".join([*(file.read_text() for file in files), used])


def is_set_up(name, interpreters):
    stamp = STAMPS / name
    is_complete = WHEELHOUSE.is_dir() or not PARTS[name].downloads
    return is_complete and stamp.exists() and stamp.read_text() == inputs_of(name, interpreters)


def wanted_parts(names):
    """The parts with Python packages, in the order in which they are set up."""
    return [name for name in PARTS if name == "build" or name in names]


def pip(*options, **settings):
    subprocess.run([VENV / "bin/python", "-m", "pip", *options], check=True, **settings)


def make_venv():
    say(f"making {VENV} with {sys.executable}")
    subprocess.run([sys.executable, "-m", "venv", "--clear", VENV], check=True)
    STAMPS.mkdir()
    # CPython 3.11 adds an old one.
    pip("uninstall", "-qq", "-y", "setuptools", stderr=subprocess.DEVNULL)


def fetch(interpreter, names, **settings):
    """Downloads packages for an interpreter."""
    options = ["-qq", "--only-binary", ":all:", "-d", WHEELHOUSE, *requirement_options(names)]
    pip("--python", interpreter, "download", *options, **settings)


def fetch_for_tests(version, interpreter):
    """NumPy has no wheel for some versions."""
    say(f"fetching the test packages of CPython {version} ({interpreter})")
    try:
        fetch(interpreter, PARTS["tests"].downloads, stderr=subprocess.DEVNULL)
    except subprocess.CalledProcessError:
        fetch(interpreter, ["tests"])
        say(f"CPython {version} is tested without NumPy: it has no wheel for this version")


def set_up(name, interpreters):
    (STAMPS / name).unlink(missing_ok=True)
    part = PARTS[name]
    if part.in_venv:
        say(f"installing {part.purpose} into {VENV}")
        # Without bytecode, which Python writes at the first import.
        pip("install", "-qq", "--no-compile", *requirement_options(part.in_venv))
    if name == "tests":
        for line in interpreters.splitlines():
            fetch_for_tests(*line.split(" ", 1))
    elif part.downloads:
        say(f"fetching the packages of the {name}")
        fetch(sys.executable, part.downloads)
    (STAMPS / name).write_text(inputs_of(name, interpreters))


def main():
    interpreters, *names = sys.argv[1:]
    parts = wanted_parts(names)
    if all(is_set_up(name, interpreters) for name in parts):
        return
    # Lock, because two concurrent runs would damage .venv. A run that has nothing to do needs none,
    # and does not wait for one that sets up other parts.
    CACHE.mkdir(exist_ok=True)
    with (CACHE / "setup.lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not is_set_up("build", interpreters):
            make_venv()
        for name in parts:
            if not is_set_up(name, interpreters):
                set_up(name, interpreters)


if __name__ == "__main__":
    try:
        main()
    except subprocess.CalledProcessError:
        sys.exit(1)  # pip has said what failed
