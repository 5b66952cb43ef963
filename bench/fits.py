# Arithmetic on measured times over sizes: fits, ratios, and from which size on who is quicker.

import math
import statistics
from dataclasses import dataclass

# Ratios this near to 1 say nothing.
EQUAL_WITHIN = 1.1


@dataclass(frozen=True)
class Fit:
    """time = fixed + each * size; off is by what factor the worst point misses it."""

    fixed: float
    each: float
    off: float

    def at(self, size):
        return self.fixed + self.each * size


def fit_line(sizes, times):
    """The line with the least squares of relative errors, neither of its two numbers below 0.

    Every point counts alike: a nanosecond at size 1 matters as a millisecond does at the largest.
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
    """Ours over theirs by size, both dicts from size to seconds, where both are known."""
    return {size: ours[size] / theirs[size] for size in sorted(ours) if size in theirs}


def crossing(size, ratio, next_size, next_ratio):
    """The size between two at which the ratio is 1, on a line through both in logarithms."""
    part = math.log(ratio) / (math.log(ratio) - math.log(next_ratio))
    return math.exp(math.log(size) + part * (math.log(next_size) - math.log(size)))


def one_digit(number):
    """A number from 1 up with one significant digit, so that no more is said than is known."""
    power = 10 ** math.floor(math.log10(number))
    return round(number / power) * power


def smoothed(ratios_by_size):
    """The median of each ratio and the two beside it, so that one bad moment decides nothing."""
    sizes, values = list(ratios_by_size), list(ratios_by_size.values())
    inner = [statistics.median(values[i - 1 : i + 2]) for i in range(1, len(values) - 1)]
    return dict(zip(sizes, [*values[:1], *inner, *values[1:][-1:]], strict=True))


def decided(ratios_by_size):
    """The ratios that say who is quicker, smoothed."""
    return {
        size: ratio
        for size, ratio in smoothed(ratios_by_size).items()
        if max(ratio, 1 / ratio) > EQUAL_WITHIN
    }


def crossings(ratios_by_size):
    """The sizes at which the ratio goes through 1, looked for between ratios that are decided."""
    points = list(decided(ratios_by_size).items())
    pairs = zip(points, points[1:], strict=False)
    return [
        crossing(*point, *next_point)
        for point, next_point in pairs
        if (point[1] < 1) != (next_point[1] < 1)
    ]
