# Arithmetic on times over sizes: fits, ratios, and the sizes at which the quicker side changes.

import itertools
import math
from statistics import fmean, median
from typing import NamedTuple

from operation import ARRAY, ARROW, LIST, NUMPY, NUMPY_F, OURS

# Our times are compared with the first of these columns that has the operation.
FAIREST = (NUMPY_F, NUMPY, ARRAY, LIST, ARROW)
# Ratios this close to 1 count as equal.
EQUAL_WITHIN = 1.1


class Fit(NamedTuple):
    """time = fixed + each * size; `off` is the factor between the fit and the worst point."""

    fixed: float
    each: float
    off: float

    def at(self, size):
        return self.fixed + self.each * size


def fit_line(sizes, times):
    """The line with the least sum of squared relative errors; both numbers are at least 0.

    Relative errors give all points the same weight, from nanoseconds to milliseconds.
    """
    weights = [time**-2 for time in times]
    mean_size, mean_time = fmean(sizes, weights), fmean(times, weights)
    square = fmean([(size - mean_size) ** 2 for size in sizes], weights)
    points = list(zip(sizes, times, strict=True))
    product = fmean([(size - mean_size) * (time - mean_time) for size, time in points], weights)
    each = max(0.0, product / square) if square else 0.0
    fixed = mean_time - each * mean_size
    if fixed < 0:  # the best line through zero
        fixed = 0.0
        each = fmean([time / size for size, time in points], [(n / t) ** 2 for n, t in points])
    misses = [(fixed + each * size) / time for size, time in points]
    return Fit(fixed, each, max(max(miss, 1 / miss) for miss in misses))


def times_of(row, column):
    """The medians of a column by size."""
    medians = {point["size"]: point["medians"] for point in row["points"]}
    return {size: found[column] for size, found in medians.items() if column in found}


def fairest_peer(row):
    return next((column for column in FAIREST if times_of(row, column)), None)


def ratios_of(row):
    """Our times divided by those of the fairest peer, at sizes that both have."""
    ours, theirs = times_of(row, OURS), times_of(row, fairest_peer(row))
    return {size: ours[size] / theirs[size] for size in sorted(ours) if size in theirs}


def one_digit(number):
    """A number from 1 up, rounded to one significant digit, the accuracy of the measurement."""
    power = 10 ** math.floor(math.log10(number))
    return round(number / power) * power


def smoothed(ratios_by_size):
    """The median of each ratio and its two neighbours, so that one disturbance has no effect."""
    sizes, values = list(ratios_by_size), list(ratios_by_size.values())
    inner = [median(values[i - 1 : i + 2]) for i in range(1, len(values) - 1)]
    return dict(zip(sizes, [*values[:1], *inner, *values[1:][-1:]], strict=True))


def decided(ratios_by_size):
    """The smoothed ratios that differ enough from 1 to tell which side is quicker."""
    ratios = smoothed(ratios_by_size).items()
    return {size: ratio for size, ratio in ratios if max(ratio, 1 / ratio) > EQUAL_WITHIN}


def crossings(ratios_by_size):
    """The sizes at which the ratio crosses 1, between decided ratios.

    Logarithmic interpolation: size and ratio are lines in a picture with logarithmic axes.
    """
    points = decided(ratios_by_size).items()
    for (size, ratio), (next_size, next_ratio) in itertools.pairwise(points):
        if (ratio < 1) != (next_ratio < 1):
            part = math.log(ratio) / math.log(ratio / next_ratio)
            yield size * (next_size / size) ** part
