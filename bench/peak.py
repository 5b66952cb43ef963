# Run in a fresh process for one column of one row: by how much a construction raises the peak.
"""Prints the growth of the resident peak in sizes of the elements: peak.py ROW COLUMN.

The input lists are there before, so they are not in it; what lives on and what was temporary is.
"""

import gc
import sys

from cases import CASES
from measure import modules


def resident_bytes(field):
    with open("/proc/self/status", encoding="ascii") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1]) * 1024
    raise RuntimeError(f"no {field} in /proc/self/status")


def forget_the_peak_so_far():
    """Sets the peak to what is resident now; where that is refused, the figure may be too high."""
    try:
        with open("/proc/self/clear_refs", "w", encoding="ascii") as control:
            control.write("5")
    except OSError:
        pass


def main(row, column):
    case = next(case for case in CASES if case.name == row)
    names = modules()
    statement = compile(case.statements[column], "<statement>", "eval")
    names["data"] = [[1, 2], [3, 4]]
    eval(statement, names)  # so that what is set up at first use is not counted
    names["data"] = case.data()
    gc.collect()
    forget_the_peak_so_far()
    before = resident_bytes("VmRSS")
    result = eval(statement, names)
    grown = resident_bytes("VmHWM") - before
    assert len(result) == len(names["data"])
    print(grown / case.element_bytes)


if __name__ == "__main__":
    main(*sys.argv[1:])
