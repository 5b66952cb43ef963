# Arithmetic on times over sizes: fits, ratios, and the sizes at which the quicker side changes.

import itertools
import math
import statistics
from dataclasses import dataclass

from operation import ARRAY, ARROW, LIST, NUMPY, NUMPY_F, OURS

# Our times are compared with the first of these columns that has the operation.
FAIREST = (NUMPY_F, NUMPY, ARRAY, LIST, ARROW)
# Ratios this close to 1 count as equal.
EQUAL_WITHIN = 1.1


@dataclass(frozen=True)
class Fit:
    """time = fixed + each * size; `off` is the factor between the fit and the worst point."""

    fixed: float
    each: float
    off: float

    def at(self, size):
        return self.fixed + self.each * size


def fit_line(sizes, times):
    """The line with the least sum of squared relative errors; both numbers are at least 0.

    Relative errors give all points the same weight, from nanoseconds to milliseconds: the sum of
    (fixed * f + each * e - 1)^2 with f = 1 / time and e = size / time.
    """
    pairs = [(1 / time, size / time) for size, time in zip(sizes, times, strict=True)]
    f, e = (sum(column) for column in zip(*pairs, strict=True))
    ff, ee = (sum(value**2 for value in column) for column in zip(*pairs, strict=True))
    fe = sum(one * other for one, other in pairs)
    fixed = each = -1.0
    if len(set(sizes)) > 1:
        determinant = ff * ee - fe**2
        fixed, each = (f * ee - e * fe) / determinant, (ff * e - fe * f) / determinant
    if each < 0:
        fixed, each = f / ff, 0.0
    elif fixed < 0:
        fixed, each = 0.0, e / ee
    misses = [fixed * one + each * other for one, other in pairs]
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


def crossing(size, ratio, next_size, next_ratio):
    """The size between two points at which the ratio is 1, by logarithmic interpolation."""
    part = math.log(ratio) / (math.log(ratio) - math.log(next_ratio))
    return math.exp(math.log(size) + part * (math.log(next_size) - math.log(size)))


def one_digit(number):
    """A number from 1 up, rounded to one significant digit, the accuracy of the measurement."""
    power = 10 ** math.floor(math.log10(number))
    return round(number / power) * power


def smoothed(ratios_by_size):
    """The median of each ratio and its two neighbours, so that one disturbance has no effect."""
    sizes, values = list(ratios_by_size), list(ratios_by_size.values())
    inner = [statistics.median(values[i - 1 : i + 2]) for i in range(1, len(values) - 1)]
    return dict(zip(sizes, [*values[:1], *inner, *values[1:][-1:]], strict=True))


def decided(ratios_by_size):
    """The smoothed ratios that differ enough from 1 to tell which side is quicker."""
    return {
        size: ratio
        for size, ratio in smoothed(ratios_by_size).items()
        if max(ratio, 1 / ratio) > EQUAL_WITHIN
    }


def crossings(ratios_by_size):
    """The sizes at which the ratio crosses 1, between decided ratios."""
    points = list(decided(ratios_by_size).items())
    return [
        crossing(*point, *next_point)
        for point, next_point in itertools.pairwise(points)
        if (point[1] < 1) != (next_point[1] < 1)
    ]
