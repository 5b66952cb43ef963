# Times statements, with the samples of the columns interleaved, and runs programs in new processes.

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


def prepared(operation, columns, shape):
    """Yields for each column its name, its statement and a dict of the names that this can use."""
    import numpy
    import velmar

    names = {"array": array, "np": numpy, "pickle": pickle, "sys": sys, "velmar": velmar}
    if ARROW in columns:
        names["pa"] = import_module(ARROW)
    words = shape.words()
    if operation.elements:
        sources = {"generator": numpy.random.default_rng(words["count"]), "shape": shape}
        n = names["n"] = eval(ELEMENTS[operation.elements], sources)
        if operation.uses("data"):
            names["data"] = n.tolist()
        if operation.uses("flat"):
            names["flat"] = n.ravel().tolist()
    for column in columns:
        own = dict(names)
        for name, makers in (("a", operation.makers), ("b", operation.makers_of_b)):
            if column in makers:
                own[name] = eval(makers[column].format(**words), dict(names))
        yield column, operation.statements[column].format(**words), own


class Sampler:
    """One column of an operation, compiled, with the number of runs in one sample.

    A call takes a sample: the seconds of one run. Garbage is not collected meanwhile.
    """

    def __init__(self, statement, names, least_seconds):
        # The names are fast local variables in every column.
        setup = "\n".join(f"{name} = names['{name}']" for name in names)
        self.timer = timeit.Timer(statement, setup, globals={"names": names})
        self.runs = 1
        self()  # warm-up: the first run is slow because it touches new pages
        while (seconds := min(self(), self())) * self.runs < least_seconds:
            self.runs = min(10 * self.runs, 1 + int(1.1 * least_seconds / seconds))
        self.seconds = seconds  # of one run, approximately

    def __call__(self):
        return self.timer.timeit(self.runs) / self.runs


def samplers_for(operation, columns, shape, least_seconds):
    return {
        column: Sampler(statement, names, least_seconds)
        for column, statement, names in prepared(operation, columns, shape)
    }


def samples_of(samplers, repeats):
    """Samples by column; `repeats` says how many of each.

    The columns are sampled in turn, so that a slow moment affects all of them.
    """
    samples = {column: [] for column in samplers}
    for turn in range(max(repeats.values())):
        for column, sampler in samplers.items():
            if turn < repeats[column]:
                samples[column].append(sampler())
    return samples


def medians_of(samples):
    return {column: statistics.median(values) for column, values in samples.items()}


def run_fresh(*arguments, **settings):
    """Runs Python with these arguments and returns the value that it prints as JSON.

    The settings are added to its environment.
    """
    command = [sys.executable, *map(str, arguments)]
    return json.loads(subprocess.check_output(command, env=os.environ | settings))
