"""The environment for the sanitizer build, and its reports."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import part

LIBRARIES = Path(os.environ.get("SANITIZED_LIBRARIES", part.ROOT / "build" / "sanitize" / "lib"))
REPORTS = part.WORKING_FOLDER / "reports"


def _runtime(name: str) -> str:
    command = ["g++", f"-print-file-name={name}"]
    found = subprocess.run(command, capture_output=True, text=True, check=True)
    return str(Path(found.stdout.strip()).resolve())


def environment(name: str) -> dict[str, str]:
    """Preloads the runtimes, which have to be loaded before the interpreter allocates."""
    REPORTS.mkdir(parents=True, exist_ok=True)
    for report in REPORTS.glob(f"{name}.*"):
        report.unlink()
    preload = [_runtime(each) for each in ("libasan.so", "libubsan.so", "libstdc++.so.6")]
    options = f"halt_on_error=1:print_stacktrace=1:log_path={REPORTS / name}"
    return {
        **os.environ,
        "LD_PRELOAD": " ".join(preload),
        "PYTHONMALLOC": "malloc",
        "PYTHONPATH": os.pathsep.join([str(LIBRARIES), str(part.ROOT / "python")]),
        "ASAN_OPTIONS": f"{options}:detect_leaks=0:allocator_may_return_null=1",
        "UBSAN_OPTIONS": options,
    }


def reports(name: str) -> list[str]:
    """The reports of errors. The same files also have warnings about failed allocations."""
    texts = [report.read_text(errors="replace") for report in sorted(REPORTS.glob(f"{name}.*"))]
    return [text for text in texts if "ERROR:" in text or "runtime error:" in text]


if __name__ == "__main__":  # runs a program of this folder with the sanitizer build
    sys.exit(subprocess.call([sys.executable, *sys.argv[1:]], env=environment("by_hand")))
