# Times and ratios over sizes, from the results of an operation.

from statistics import median

from operation import ARRAY, ARROW, LIST, NUMPY, NUMPY_F, OURS

# Our times are compared with the first of these columns that has the operation.
FAIREST = (NUMPY_F, NUMPY, ARRAY, LIST, ARROW)
# Ratios this close to 1 count as equal.
EQUAL_WITHIN = 1.1


def times_of(row, column):
    """The medians of a column by size."""
    medians = {point["size"]: point["medians"] for point in row["points"]}
    return {size: found[column] for size, found in medians.items() if column in found}


def fairest_peer(row):
    return next(column for column in FAIREST if times_of(row, column))


def ratios_of(row):
    """Our times divided by those of the fairest peer, at sizes that both have."""
    ours, theirs = times_of(row, OURS), times_of(row, fairest_peer(row))
    return {size: ours[size] / theirs[size] for size in sorted(ours) if size in theirs}


def smoothed(ratios_by_size):
    """The median of each ratio and its two neighbours, so that one disturbance has no effect."""
    sizes, values = list(ratios_by_size), list(ratios_by_size.values())
    inner = [median(values[i - 1 : i + 2]) for i in range(1, len(values) - 1)]
    return dict(zip(sizes, [*values[:1], *inner, *values[1:][-1:]], strict=True))


def decided(ratios_by_size):
    """The smoothed ratios that differ enough from 1 to tell which side is quicker."""
    ratios = smoothed(ratios_by_size).items()
    return {size: ratio for size, ratio in ratios if max(ratio, 1 / ratio) > EQUAL_WITHIN}
