# What run.py and sizes.py share: options, needed packages, the machine, the file of results.

import argparse
import contextlib
import json
import os
import platform
import re
import sys
from importlib import import_module
from importlib.util import find_spec
from pathlib import Path

from operation import ARROW


def parser(program, description, quick, only):
    made = argparse.ArgumentParser(program, description=description)
    made.add_argument("--quick", action="store_true", help=quick)
    made.add_argument("--only", default="", metavar="TEXT", help=f"only {only} contains TEXT")
    made.add_argument("--json", metavar="FILE", help="also write the results to this file")
    return made


def processor():
    """The name of the processor model, or the architecture if the system does not tell it."""
    with contextlib.suppress(OSError):
        text = Path("/proc/cpuinfo").read_text(encoding="utf-8")
        if named := re.search(r"^model name\s*:\s*(.+)", text, re.MULTILINE):
            return named[1]
    return platform.machine()


def start(program, *packages):
    """Prints and returns versions, machine and load; exits if one of the packages is missing."""
    for needed in packages:
        if find_spec(needed) is None:
            sys.exit(f"bench: {needed} cannot be imported; {program} sets everything up")
    machine = {"python": platform.python_version()}
    for name in ("numpy", ARROW):
        if find_spec(name):
            machine[name] = import_module(name).__version__
    machine |= {
        "system": platform.platform(),
        "processor": processor(),
        "processors": os.cpu_count(),
        "load": round(os.getloadavg()[0], 2),
    }
    print(", ".join(f"{name} {value}" for name, value in machine.items()))
    print("medians; in brackets ours over theirs, so below 1 we are faster or smaller")
    return machine


def json_text(results, rows):
    """The results as JSON, with one line for each row of the list with this name."""
    start = {name: value for name, value in results.items() if name != rows}
    lines = ",\n".join(json.dumps(row) for row in results[rows])
    return f'{json.dumps(start)[:-1]}, "{rows}": [\n{lines}\n]}}\n'


def write_json(file, results, rows):
    if file:
        Path(file).write_text(json_text(results, rows), encoding="utf-8")
