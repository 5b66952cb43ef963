# Runs in a fresh process for one operation: times all its columns over sizes, smallest first.
"""sweep.py KEY SECONDS LEAST SIZE...: prints one line of JSON for each size.

The samples of a column can take SECONDS in total; a sample takes at least LEAST seconds. A column
stops if its next size would need more than the remaining time; the other columns continue.
"""

import json
import statistics
import sys

import measure
from helpers.process_memory import resident_bytes
from operation import shape_of
from operation_list import OPERATIONS

# A statement that takes longer than this gets fewer samples.
LONG_SECONDS = 0.05
REPEATS, LONG_REPEATS = 7, 3
RUNS_TO_CALIBRATE = 3
DIGITS = 4


def repeats_for(seconds):
    return LONG_REPEATS if seconds > LONG_SECONDS else REPEATS


def cost_of(seconds, least_seconds):
    """Approximate time for calibration and samples of a statement that takes `seconds`."""
    return (repeats_for(seconds) + RUNS_TO_CALIBRATE) * max(seconds, least_seconds)


def spread_of(samples):
    """The upper quartile divided by the lower one: 1 if all samples are equal."""
    lower, _, upper = statistics.quantiles(samples, n=4, method="inclusive")
    return upper / lower


def rounded(figures):
    return {column: float(f"{value:.{DIGITS}g}") for column, value in figures.items()}


def sweep(operation, seconds, least_seconds, sizes):
    """Yields for each size medians, spreads of the samples, columns that stopped, memory peak."""
    left = dict.fromkeys(measure.columns_of(operation), seconds)
    each = {}  # median of a column at the latest size, for one element
    for size in sizes:
        costs = {column: cost_of(each[column] * size, least_seconds) for column in each}
        stopped = [column for column, cost in costs.items() if cost > left[column]]
        for column in stopped:
            del left[column], each[column]
        samplers = measure.samplers_for(
            operation, left, shape_of(size, operation.layout), least_seconds
        )
        repeats = {column: repeats_for(sampler.seconds) for column, sampler in samplers.items()}
        samples = measure.samples_of(samplers, repeats)
        medians = measure.medians_of(samples)
        for column, sampler in samplers.items():
            left[column] -= sampler.spent
            each[column] = medians[column] / size
        yield {
            "size": size,
            "medians": rounded(medians),
            "spreads": rounded({column: spread_of(found) for column, found in samples.items()}),
            "stopped": stopped,
            "peak_bytes": resident_bytes("VmHWM"),
        }


def main(key, seconds, least_seconds, *sizes):
    points = sweep(OPERATIONS[key], float(seconds), float(least_seconds), map(int, sizes))
    for point in points:
        print(json.dumps(point), flush=True)


if __name__ == "__main__":
    main(*sys.argv[1:])
