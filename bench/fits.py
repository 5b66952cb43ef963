# Arithmetic on times over sizes: fits, ratios, and the sizes at which the quicker side changes.

import math
import statistics
from dataclasses import dataclass

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

    Relative errors give all points the same weight, from nanoseconds to milliseconds.
    """
    weights = [1 / time**2 for time in times]
    w = sum(weights)
    wn = sum(weight * size for weight, size in zip(weights, sizes, strict=True))
    wnn = sum(weight * size**2 for weight, size in zip(weights, sizes, strict=True))
    wt = sum(1 / time for time in times)
    wnt = sum(size / time for size, time in zip(sizes, times, strict=True))
    determinant = w * wnn - wn**2
    fixed = each = -1.0
    if len(set(sizes)) > 1:
        fixed = (wt * wnn - wnt * wn) / determinant
        each = (w * wnt - wn * wt) / determinant
    if each < 0:
        fixed, each = wt / w, 0.0
    elif fixed < 0:
        fixed, each = 0.0, wnt / wnn
    fit = Fit(fixed, each, 1.0)
    misses = [fit.at(size) / time for size, time in zip(sizes, times, strict=True)]
    return Fit(fixed, each, max(max(miss, 1 / miss) for miss in misses))


def ratios(ours, theirs):
    """Ours divided by theirs, at sizes that both have. Both are dicts from size to seconds."""
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
    pairs = zip(points, points[1:], strict=False)
    return [
        crossing(*point, *next_point)
        for point, next_point in pairs
        if (point[1] < 1) != (next_point[1] < 1)
    ]
