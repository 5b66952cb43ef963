# Times statements, with the samples of the columns interleaved, and runs programs in new processes.

import gc
import json
import os
import pickle
import statistics
import subprocess
import sys
import timeit
from array import array
from importlib import import_module
from importlib.util import find_spec
from pathlib import Path

from operation import ARROW, ELEMENTS

BENCH = Path(__file__).resolve().parent
sys.path.append(str(BENCH.parent / "tests" / "python"))  # for the package helpers


def columns_of(operation):
    """The columns of an operation whose packages are installed."""
    return [column for column in operation.statements if column != ARROW or find_spec(ARROW)]


def names_for(operation, shape):
    """What all columns of an operation can use: modules, and those of n, data, flat it needs."""
    import numpy
    import velmar

    names = {"array": array, "np": numpy, "pickle": pickle, "sys": sys, "velmar": velmar}
    if ARROW in columns_of(operation):
        names["pa"] = import_module(ARROW)
    if not operation.elements:
        return names
    generator = names["np"].random.default_rng(shape.rows * shape.columns)
    n = names["n"] = eval(ELEMENTS[operation.elements], {"generator": generator, "shape": shape})
    if operation.uses("data"):
        names["data"] = n.tolist()
    if operation.uses("flat"):
        names["flat"] = n.ravel().tolist()
    return names


def statement_and_names(operation, column, shape, names):
    """The statement of a column, and a dict of its names."""
    words = shape.words()
    own = dict(names)
    for name, makers in (("a", operation.makers), ("b", operation.makers_of_b)):
        if column in makers:
            own[name] = eval(makers[column].format(**words), dict(names))
    return operation.statements[column].format(**words), own


class Sampler:
    """One column of an operation, compiled, with the number of runs in one sample."""

    def __init__(self, statement, names, least_seconds):
        # The names are fast local variables in every column.
        setup = "\n".join(f"{name} = names['{name}']" for name in names)
        self.timer = timeit.Timer(statement, setup, globals={"names": names})
        self.runs = 1
        self.spent = 0.0  # seconds of all runs so far
        self.total()  # warm-up: the first run is slow because it touches new pages
        while (seconds := min(self.total(), self.total())) < least_seconds:
            growth = least_seconds / max(seconds, 1e-9)
            self.runs = int(self.runs * min(10, max(2, growth * 1.1)))
        self.seconds = seconds / self.runs  # of one run, approximately

    def total(self):
        seconds = self.timer.timeit(self.runs)
        self.spent += seconds
        return seconds

    def __call__(self):
        return self.total() / self.runs


def samplers_for(operation, columns, shape, least_seconds):
    names = names_for(operation, shape) if columns else {}
    return {
        column: Sampler(*statement_and_names(operation, column, shape, names), least_seconds)
        for column in columns
    }


def samples_of(samplers, repeats):
    """Samples by column; `repeats` says how many of each. Garbage is not collected meanwhile.

    The columns are sampled in turn, so that a slow moment affects all of them.
    """
    samples = {column: [] for column in samplers}
    gc.collect()
    gc.disable()
    try:
        for turn in range(max(repeats.values(), default=0)):
            for column, sampler in samplers.items():
                if turn < repeats[column]:
                    samples[column].append(sampler())
    finally:
        gc.enable()
    return samples


def medians_of(samples):
    return {column: statistics.median(values) for column, values in samples.items()}


def run_fresh(*arguments, **settings):
    """Runs Python with these arguments and yields the values that it prints, each a line of JSON.

    The settings are added to its environment.
    """
    command = [sys.executable, *map(str, arguments)]
    environment = os.environ | settings
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True, env=environment) as child:
        yield from map(json.loads, child.stdout)
    if child.returncode:
        raise subprocess.CalledProcessError(child.returncode, command)
