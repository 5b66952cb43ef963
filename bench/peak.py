# Runs in a fresh process for one column of one row: measures the memory peak of a statement.
"""peak.py ROW COLUMN: prints the growth of the resident peak, divided by the size of the elements.

Includes the result and temporary memory, but not the input, which is made before.
"""

import gc
import sys

from cases import CASES
from measure import make, modules


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


def names_of(case, column, data):
    """The names of the statement. An array `a` has been read and has exported its memory."""
    names = modules() | {"data": data}
    if case.makers:
        names["a"] = make(case.makers[column], names)
        memoryview(names["a"])[0, 0]
    return names


def main(row, column):
    case = next(case for case in CASES if case.name == row)
    statement = compile(case.statements[column], "<statement>", "eval")
    eval(
        statement, names_of(case, column, [[1, 2], [3, 4]])
    )  # so that one-time setup is not counted
    names = names_of(case, column, case.data())
    gc.collect()
    forget_the_peak_so_far()
    before = resident_bytes("VmRSS")
    result = eval(statement, names)
    grown = resident_bytes("VmHWM") - before
    assert len(result) == len(names["data"])
    print(grown / case.element_bytes)


if __name__ == "__main__":
    main(*sys.argv[1:])
