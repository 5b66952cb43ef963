# What run.py and sizes.py share: options, the machine, the file of results.

import argparse
import json
import os
import platform
import re
from importlib import metadata
from importlib.util import find_spec
from pathlib import Path

from operation import ARROW


def parser(program, description):
    made = argparse.ArgumentParser(program, description=description)
    made.add_argument("--quick", action="store_true", help="fewer and shorter samples")
    made.add_argument("--only", default="", metavar="TEXT", help="only rows whose name has TEXT")
    made.add_argument("--json", metavar="FILE", help="also write the results to this file")
    return made


def processor():
    """The name of the processor model, or the architecture if the system does not tell it."""
    text = Path("/proc/cpuinfo").read_text(encoding="utf-8")
    named = re.search(r"^model name\s*:\s*(.+)", text, re.MULTILINE)
    return named[1] if named else platform.machine()


def machine():
    """Text with the versions, the system, the processor and the load."""
    packages = [name for name in ("numpy", ARROW) if find_spec(name)]
    found = {
        "python": platform.python_version(),
        **{name: metadata.version(name) for name in packages},
        "system": platform.platform(),
        "processor": processor(),
        "processors": os.cpu_count(),
        "load": round(os.getloadavg()[0], 2),
    }
    return ", ".join(f"{name} {value}" for name, value in found.items())


def write_json(file, results, rows):
    """Writes the results, with one line for each row of the list with this name."""
    start = {name: value for name, value in results.items() if name != rows}
    lines = ",\n".join(json.dumps(row) for row in results[rows])
    text = f'{json.dumps(start)[:-1]}, "{rows}": [\n{lines}\n]}}\n'
    Path(file).write_text(text, encoding="utf-8")
