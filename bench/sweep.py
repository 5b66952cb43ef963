"""sweep.py TITLE SECONDS LEAST SIZE...: times all columns of an operation, in a fresh process.

It begins with the smallest size, and at the end it prints the results as JSON. The samples of a
column can take SECONDS in total; a sample takes at least LEAST seconds. A column stops if its next
size would need more than the remaining time; the other columns continue.
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
    return {column: float(f"{value:.4g}") for column, value in figures.items()}


def sweep(operation, seconds, least_seconds, sizes):
    """The figures at each size, the sizes at which columns stopped, and the peak of memory."""
    left = dict.fromkeys(measure.columns_of(operation), seconds)
    each = {}  # median of a column at the latest size, for one element
    points, stopped = [], {}
    for size in sizes:
        for column, median in list(each.items()):
            if cost_of(median * size, least_seconds) > left[column]:
                stopped[column] = size
                del left[column], each[column]
        if not left:
            break
        shape = shape_of(size, operation.size_counts)
        samplers = measure.samplers_for(operation, left, shape, least_seconds)
        repeats = {column: repeats_for(sampler.seconds) for column, sampler in samplers.items()}
        samples = measure.samples_of(samplers, repeats)
        medians = measure.medians_of(samples)
        spreads = {column: spread_of(found) for column, found in samples.items()}
        for column, median in medians.items():
            left[column] -= cost_of(median, least_seconds)
            each[column] = median / size
        points.append({"size": size, "medians": rounded(medians), "spreads": rounded(spreads)})
    return {"points": points, "stopped": stopped, "peak_bytes": resident_bytes("VmHWM")}


def main(title, seconds, least_seconds, *sizes):
    found = sweep(OPERATIONS[title], float(seconds), float(least_seconds), map(int, sizes))
    print(json.dumps(found))


if __name__ == "__main__":
    main(*sys.argv[1:])
