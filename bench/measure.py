# Measures statements, imports and peaks of memory, with the samples of the columns interleaved.

import gc
import itertools
import os
import statistics
import subprocess
import sys
import textwrap
import time
from pathlib import Path

from rows import Kind

PROGRAMS = {
    Kind.PEAK: Path(__file__).resolve().parent / "peak.py",
    Kind.GROWTH: Path(__file__).resolve().parent / "peak.py",
    Kind.HELD: Path(__file__).resolve().parent / "held.py",
}

# The child measures its own import, so that the start of the interpreter is not included.
IMPORT_PROGRAM = """
import time
start = time.perf_counter()
{statement}
print(time.perf_counter() - start)
"""

# The names of the row are parameters, and therefore fast local variables in every column.
SAMPLE_PROGRAM = """
def sample(repeats_, clock_, {names}):
    start_ = clock_()
    for _ in repeats_:
{body}
    return clock_() - start_
"""


def modules():
    """The names that all statements can use."""
    import array
    import pickle

    import numpy
    import velmar

    return {
        "velmar": velmar,
        "np": numpy,
        "array": array.array,
        "pickle": pickle,
        "sys": sys,
    }


class Sampler:
    """One column of a row, compiled, with the number of runs in one sample."""

    def __init__(self, statement, names, least_seconds):
        scope = {}
        body = textwrap.indent(statement, " " * 8)
        exec(SAMPLE_PROGRAM.format(names=", ".join(names), body=body), scope)
        self.function = scope["sample"]
        self.names = names
        self.runs = 1
        self.total()  # warm-up: the first run is slow because it touches new pages
        while (seconds := min(self.total(), self.total())) < least_seconds:
            growth = least_seconds / max(seconds, 1e-9)
            self.runs = int(self.runs * min(10, max(2, growth * 1.1)))
        self.seconds = seconds / self.runs  # of one run, approximately

    def total(self):
        repeats = itertools.repeat(None, self.runs)
        return self.function(repeats, time.perf_counter, **self.names)

    def __call__(self):
        return self.total() / self.runs


def medians_of(samplers, repeats):
    """Samples all columns in turn, so that a slow moment affects all of them."""
    samples = {column: [] for column in samplers}
    for _ in range(repeats):
        for column, sampler in samplers.items():
            samples[column].append(sampler())
    return {column: statistics.median(values) for column, values in samples.items()}


def make(maker, names):
    return eval(maker, dict(names))


def measure_times(case, repeats, least_seconds):
    names = modules()
    if case.data:
        names["data"] = case.data()
    samplers = {}
    for column, statement in case.statements.items():
        own = dict(names)
        if case.makers:
            own["a"] = make(case.makers[column], names)
        if case.second:
            own["b"] = make(case.second[column], names | {"data": case.data()})
        samplers[column] = Sampler(statement, own, least_seconds)
    gc.collect()
    gc.disable()
    try:
        return medians_of(samplers, repeats)
    finally:
        gc.enable()


def run_child(*arguments, **settings):
    command = [sys.executable, *arguments]
    environment = os.environ | settings
    child = subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True, env=environment)
    return float(child.stdout)


def measure_imports(case, repeats):
    def sampler(statement):
        return lambda: run_child("-c", IMPORT_PROGRAM.format(statement=statement))

    samplers = {column: sampler(statement) for column, statement in case.statements.items()}
    medians_of(samplers, 1)  # writes the byte code and warms the file cache
    return medians_of(samplers, repeats)


def measure_memory(case, repeats):
    settings = {"PYTHONMALLOC": "malloc"} if case.kind is Kind.HELD else {}

    def sampler(column):
        return lambda: run_child(str(PROGRAMS[case.kind]), case.name, column, **settings)

    return medians_of({column: sampler(column) for column in case.statements}, repeats)


def measure(case, quick):
    """The median of every column of the row."""
    if case.kind is Kind.IMPORT:
        return measure_imports(case, 5 if quick else 15)
    if case.kind in PROGRAMS:
        return measure_memory(case, 1 if quick else 3)
    return measure_times(case, 3 if quick else 9, 0.002 if quick else 0.02)
