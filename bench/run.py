# Runs the jobs of the benchmark and prints one table: medians, ratios, limits.
"""A cell is a neighbour's median and, in brackets, ours divided by it: below 1 we are faster."""

import argparse
import contextlib
import json
import os
import platform
import sys
from importlib.util import find_spec

from cases import CASES
from figure_text import figure, ratio_text
from measure import measure
from rows import OURS, PEAK_CONSTANT_BYTES, PEERS, Kind

NAME_WIDTH = 33
OURS_WIDTH = 8
PEER_WIDTH = 15
LIMIT_WIDTH = 26


class Result:
    """The medians of one row, and whether its limit holds."""

    def __init__(self, case, medians):
        self.case = case
        self.medians = medians
        ours = medians[OURS]
        self.ratios = {peer: ours / medians[peer] for peer in PEERS if peer in medians}
        self.holds = None
        self.meets_aim = None
        if case.limit:
            allowance = 0.0
            if case.kind is Kind.PEAK:
                allowance = PEAK_CONSTANT_BYTES / case.element_bytes
            held = self.ratios[case.limit.peer] if case.limit.peer else ours - allowance
            self.holds = held <= case.limit.ratio
            self.meets_aim = case.limit.aim is not None and held <= case.limit.aim

    def peer_cell(self, peer):
        if peer not in self.medians:
            return "-"
        return f"{figure(self.medians[peer], self.case.kind)} ({ratio_text(self.ratios[peer])})"

    def limit_cell(self):
        limit = self.case.limit
        if not limit:
            return ""
        if limit.peer:
            text = f"{limit.ratio:g} of {limit.peer}"
        elif self.case.kind is Kind.PEAK:
            text = f"{limit.ratio:g} x + 1 MiB"
        else:
            text = figure(limit.ratio, self.case.kind)
        return text + (f", aim {limit.aim:g}" if limit.aim is not None else "")

    def verdict(self):
        if self.holds is None:
            return ""
        if not self.holds:
            return "MISSED"
        return "holds, aim met" if self.meets_aim else "holds"

    def line(self):
        cells = [self.case.name.ljust(NAME_WIDTH)]
        cells.append(figure(self.medians[OURS], self.case.kind).rjust(OURS_WIDTH))
        cells += [self.peer_cell(peer).rjust(PEER_WIDTH) for peer in PEERS]
        cells += [f" {self.limit_cell()}".ljust(LIMIT_WIDTH), self.verdict()]
        return " ".join(cells).rstrip()

    def as_dict(self):
        limit = self.case.limit
        return {
            "name": self.case.name,
            "figures": self.case.kind.value,
            "statements": self.case.statements,
            "medians": self.medians,
            "ratios": self.ratios,
            "limit": {"ratio": limit.ratio, "peer": limit.peer, "aim": limit.aim}
            if limit
            else None,
            "holds": self.holds,
        }


def header():
    cells = ["operation".ljust(NAME_WIDTH), OURS.rjust(OURS_WIDTH)]
    cells += [peer.rjust(PEER_WIDTH) for peer in PEERS]
    return " ".join([*cells, " at most".ljust(LIMIT_WIDTH), "verdict"])


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


def parse_arguments():
    parser = argparse.ArgumentParser(description="Times the arrays against their neighbours.")
    parser.add_argument("--quick", action="store_true", help="fewer and shorter samples")
    parser.add_argument("--check", action="store_true", help="exit status 1 if a limit is missed")
    parser.add_argument(
        "--only", default="", metavar="TEXT", help="only rows whose name contains TEXT"
    )
    parser.add_argument("--json", metavar="FILE", help="also write the results to this file")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    for needed in ("velmar", "numpy"):
        if find_spec(needed) is None:
            sys.exit(f"bench: {needed} cannot be imported; script/bench sets everything up")
    print(", ".join(f"{name} {value}" for name, value in machine().items()))
    print("medians; in brackets ours over theirs, so below 1 we are faster or smaller\n")
    print(header())
    results = []
    for case in CASES:
        if arguments.only in case.name:
            results.append(Result(case, measure(case, arguments.quick)))
            print(results[-1].line(), flush=True)
    judged = [result for result in results if result.holds is not None]
    missed = [result for result in judged if not result.holds]
    print(f"\n{len(judged) - len(missed)} of {len(judged)} limits hold")
    if arguments.json:
        rows = [result.as_dict() for result in results]
        with open(arguments.json, "w", encoding="utf-8") as file:
            json.dump({"machine": machine(), "rows": rows}, file, indent=1)
    return 1 if arguments.check and missed else 0


if __name__ == "__main__":
    sys.exit(main())
