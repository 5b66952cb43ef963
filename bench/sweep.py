# Runs in a fresh process for one operation: times all its columns over sizes, smallest first.
"""sweep.py KEY SECONDS LEAST SIZE...: prints one line of JSON for each size, then the memory peak.

The samples of a column can take SECONDS in total; a sample takes at least LEAST seconds. A column
stops if its next size would need more than the remaining time; the other columns continue.
"""

import gc
import json
import statistics
import sys
import time
from contextlib import contextmanager
from importlib.util import find_spec

from measure import Sampler, make, modules
from operation import ARROW, shape_of
from operation_list import OPERATIONS
from peak import resident_bytes

# A statement that takes longer than this gets fewer samples.
LONG_SECONDS = 0.05
REPEATS, LONG_REPEATS = 7, 3
RUNS_TO_CALIBRATE = 3


def repeats_for(seconds):
    return LONG_REPEATS if seconds > LONG_SECONDS else REPEATS


def cost_of(seconds, least_seconds):
    """Approximate time for calibration and samples of a statement that takes `seconds`."""
    return (repeats_for(seconds) + RUNS_TO_CALIBRATE) * max(seconds, least_seconds)


def spread_of(samples):
    """The upper quartile divided by the lower one: 1 if all samples are equal."""
    lower, _, upper = statistics.quantiles(samples, n=4, method="inclusive")
    return upper / lower


def all_modules():
    names = modules()
    if find_spec(ARROW):
        names["pa"] = __import__(ARROW)
    return names


def columns_of(operation, names):
    return [column for column in operation.statements if column != ARROW or "pa" in names]


def elements_for(operation, shape, names):
    """Those of n, data and flat that the operation uses."""
    if operation.elements is None:
        return {}
    generator = names["np"].random.default_rng(shape.rows * shape.columns)
    n = operation.elements(generator, (shape.rows, shape.columns))
    elements = {"n": n}
    if operation.uses("data"):
        elements["data"] = n.tolist()
    if operation.uses("flat"):
        elements["flat"] = n.ravel().tolist()
    return elements


def statement_and_names(operation, column, shape, names):
    """The statement of a column, and a dict of its names."""
    words = shape.words()
    own = dict(names)
    if column in operation.makers:
        maker = operation.makers[column].format(**words)
        own["a"] = make(maker, names)
        if operation.twin:
            own["b"] = make(maker, names)
    return operation.statements[column].format(**words), own


class Sweep:
    """The columns of one operation, with the remaining time of each."""

    def __init__(self, operation, seconds, least_seconds):
        self.operation = operation
        self.least_seconds = least_seconds
        self.modules = all_modules()
        self.left = dict.fromkeys(columns_of(operation, self.modules), seconds)
        self.latest = {}  # column -> (size, median)

    def would_go_beyond(self, column, size):
        if column not in self.latest:
            return False
        latest_size, median = self.latest[column]
        return cost_of(median * size / latest_size, self.least_seconds) > self.left[column]

    def stop_columns(self, size):
        stopped = [column for column in self.left if self.would_go_beyond(column, size)]
        for column in stopped:
            del self.left[column]
        return stopped

    def samplers(self, size):
        shape = shape_of(size, self.operation.layout)
        names = self.modules | elements_for(self.operation, shape, self.modules)
        samplers = {}
        for column in self.left:
            statement, own = statement_and_names(self.operation, column, shape, names)
            with self.charged_to(column):
                samplers[column] = Sampler(statement, own, self.least_seconds)
        return samplers

    def samples(self, samplers):
        """Samples the columns in turn; slow columns get fewer samples."""
        samples = {column: [] for column in samplers}
        for turn in range(REPEATS):
            for column, sampler in samplers.items():
                if turn < repeats_for(sampler.seconds):
                    with self.charged_to(column):
                        samples[column].append(sampler())
        return samples

    @contextmanager
    def charged_to(self, column):
        start = time.perf_counter()
        yield
        self.left[column] -= time.perf_counter() - start

    def measure(self, size):
        """The results for one size: medians, spreads of the samples, columns that stopped."""
        stopped = self.stop_columns(size)
        samples = {}
        if self.left:
            samplers = self.samplers(size)
            gc.collect()
            gc.disable()
            samples = self.samples(samplers)
            gc.enable()
        medians = {column: statistics.median(values) for column, values in samples.items()}
        self.latest |= {column: (size, median) for column, median in medians.items()}
        spreads = {column: spread_of(values) for column, values in samples.items()}
        return {"size": size, "medians": medians, "spreads": spreads, "stopped": stopped}


def main(key, seconds, least_seconds, *sizes):
    sweep = Sweep(OPERATIONS[key], float(seconds), float(least_seconds))
    for size in sizes:
        print(json.dumps(sweep.measure(int(size))), flush=True)
    print(json.dumps({"peak_bytes": resident_bytes("VmHWM")}))


if __name__ == "__main__":
    main(*sys.argv[1:])
