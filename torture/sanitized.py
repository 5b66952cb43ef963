"""The environment for the sanitizer build, and its reports."""

from __future__ import annotations

import os
import subprocess
import sys

import part

sys.path.append(str(part.ROOT / "suites"))
import sanitizers  # noqa: E402

REPORTS = part.WORKING_FOLDER / "reports"


def environment(name: str) -> dict[str, str]:
    """Of a run of this name, whose reports are removed first."""
    REPORTS.mkdir(parents=True, exist_ok=True)
    for report in REPORTS.glob(f"{name}.*"):
        report.unlink()
    imported = f"{part.ROOT}/build/sanitize/lib{os.pathsep}{part.ROOT}/python"
    return os.environ | sanitizers.settings(REPORTS / name) | {"PYTHONPATH": imported}


def reports(name: str) -> list[str]:
    """The texts of the reports of errors."""
    return sanitizers.errors(REPORTS / name)


if __name__ == "__main__":  # runs a program of this folder with the sanitizer build
    status = subprocess.call([sys.executable, *sys.argv[1:]], env=environment("by_hand"))
    print(*reports("by_hand"), sep="\n", end="")
    sys.exit(status)
