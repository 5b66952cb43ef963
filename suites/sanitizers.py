"""The environment variables for a program that loads libraries with sanitizers, and its reports.

`python suites/sanitizers.py PROGRAM...` runs a Python program with the build in build/sanitize, and
prints the reports.
"""

import os
import subprocess
import sys

from suite import ROOT

ERRORS = ("ERROR:", "runtime error:", "AddressSanitizer:DEADLYSIGNAL")


def _runtime(name):
    command = ["g++", f"-print-file-name={name}"]
    found = subprocess.run(command, capture_output=True, text=True, check=True)
    return os.path.realpath(found.stdout.strip())


def settings(reports):
    """Reports go to files named `reports` and the number of the process. Old ones are removed."""
    reports.parent.mkdir(parents=True, exist_ok=True)
    for file in reports.parent.glob(f"{reports.name}.*"):
        file.unlink()
    options = f"halt_on_error=1:print_stacktrace=1:log_path={reports}"
    # The runtimes have to be loaded before the interpreter allocates or throws.
    runtimes = [_runtime(name) for name in ("libasan.so", "libubsan.so", "libstdc++.so.6")]
    return {
        "LD_PRELOAD": " ".join(runtimes),
        "PYTHONMALLOC": "malloc",
        "UBSAN_OPTIONS": options,
        # The interpreter does not free all its memory, so leaks are not reported. A failed
        # allocation returns a null pointer, as without the sanitizer.
        "ASAN_OPTIONS": f"{options}:detect_leaks=0:allocator_may_return_null=1",
    }


def settings_of_build(reports):
    """The same, and where Python finds the libraries in build/sanitize."""
    imported = f"{ROOT}/build/sanitize/lib{os.pathsep}{ROOT}/python"
    return settings(reports) | {"PYTHONPATH": imported}


def errors(reports):
    """The texts of the reports of errors. Other files have warnings about failed allocations."""
    files = sorted(reports.parent.glob(f"{reports.name}.*"))
    texts = [file.read_text(errors="replace") for file in files]
    return [text for text in texts if any(mark in text for mark in ERRORS)]


if __name__ == "__main__":
    reports = ROOT / "build/results/by_hand/report"
    environment = os.environ | settings_of_build(reports)
    status = subprocess.call([sys.executable, *sys.argv[1:]], env=environment)
    print(*errors(reports), sep="\n", end="")
    sys.exit(status)
