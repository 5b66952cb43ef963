# What run.py and sizes.py share: options, needed packages, the machine, the file of results.

import argparse
import contextlib
import json
import os
import platform
import sys
from importlib.util import find_spec
from pathlib import Path


def parser(description, quick, only):
    made = argparse.ArgumentParser(description=description)
    made.add_argument("--quick", action="store_true", help=quick)
    made.add_argument("--only", default="", metavar="TEXT", help=f"only {only} contains TEXT")
    made.add_argument("--json", metavar="FILE", help="also write the results to this file")
    return made


def require(script, *packages):
    for needed in packages:
        if find_spec(needed) is None:
            sys.exit(f"bench: {needed} cannot be imported; {script} sets everything up")


def processor():
    """The name of the processor model, or the architecture if the system does not tell it."""
    with contextlib.suppress(OSError), open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                return line.partition(":")[2].strip()
    return platform.machine()


def machine():
    import numpy

    return {
        "python": platform.python_version(),
        "numpy": numpy.__version__,
        "system": platform.platform(),
        "processor": processor(),
        "processors": os.cpu_count(),
    }


def print_head(machine, end):
    print(", ".join(f"{name} {value}" for name, value in machine.items()))
    print(f"medians; in brackets ours over theirs, so below 1 we are faster{end}")


def json_text(results, rows):
    """The results as JSON, with one line for each row of the list with this name."""
    start = {name: value for name, value in results.items() if name != rows}
    lines = ",\n".join(json.dumps(row) for row in results[rows])
    return f'{json.dumps(start)[:-1]}, "{rows}": [\n{lines}\n]}}\n'


def write_json(file, results, rows):
    if file:
        Path(file).write_text(json_text(results, rows), encoding="utf-8")
