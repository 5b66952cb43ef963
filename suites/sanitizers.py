"""The environment variables for a program that loads libraries with sanitizers, and its reports."""

import os
import subprocess

ERRORS = ("ERROR:", "runtime error:", "AddressSanitizer:DEADLYSIGNAL")


def _runtime(name):
    command = ["g++", f"-print-file-name={name}"]
    found = subprocess.run(command, capture_output=True, text=True, check=True)
    return os.path.realpath(found.stdout.strip())


def settings(reports):
    """Reports go to files named `reports` and the number of the process."""
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


def errors(reports):
    """The texts of the reports of errors. Other files have warnings about failed allocations."""
    files = sorted(reports.parent.glob(f"{reports.name}.*"))
    texts = [file.read_text(errors="replace") for file in files]
    return [text for text in texts if any(mark in text for mark in ERRORS)]
