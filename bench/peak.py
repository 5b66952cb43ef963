# Runs in a fresh process for one column of one row: measures the memory peak of a construction.
"""peak.py ROW COLUMN: prints the growth of the resident peak, divided by the size of the elements.

Includes the result and temporary memory, but not the input lists, which are made before.
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
    """Resets the peak to the memory resident now. If that fails, the result can be too high."""
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
    eval(statement, names)  # so that one-time setup is not counted
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
