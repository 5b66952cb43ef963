"""Runs the jobs of the benchmark and prints one table: medians, ratios, limits. A cell is a
neighbour's median and, in brackets, ours divided by it: below 1 we are faster or smaller.
"""

import sys
from dataclasses import asdict

import console
from cases import CASES
from figure_text import aligned, cells, limit_cells
from measure import BENCH, medians_of, run_fresh, samplers_for, samples_of
from operation import ARROW, COLUMNS, OURS, Kind

TABLE_COLUMNS = tuple(column for column in COLUMNS if column != ARROW)

# Allowed in addition for a construction of any size: arenas of the allocator, pages of code.
PEAK_CONSTANT_BYTES = 1 << 20

# Samples of each column; in a quick run a third of them. Times have more while the seconds for
# their row last: the machine changes its speed several times a second, and many short turns put
# every change into all columns.
REPEATS = {Kind.TIME: 9, Kind.IMPORT: 15, Kind.PEAK: 3, Kind.GROWTH: 3, Kind.HELD: 3}
ROW_SECONDS = 1.0
# The first run of a sample finds the caches full of another column's data. A sample has so many
# runs that this counts little, unless they take longer than the most.
SAMPLE_RUNS, LEAST_SECONDS, MOST_SECONDS = 20, 0.002, 0.02

# The child times its own import, so that the start of the interpreter is not included.
IMPORT_PROGRAM = "import timeit; print(timeit.timeit({statement!r}, number=1))"


def result_of(name, job, medians):
    """A row of the results: the medians of a job, and whether its limit holds."""
    ratios = {peer: medians[OURS] / medians[peer] for peer in medians if peer != OURS}
    holds = None
    if job.limit:
        judged = ratios[job.limit.peer] if job.limit.peer else medians[OURS]
        if job.kind is Kind.PEAK:
            judged -= PEAK_CONSTANT_BYTES / job.element_bytes
        holds = judged <= job.limit.ratio
    return {
        "name": name,
        "figures": job.kind.value,
        "medians": medians,
        "ratios": ratios,
        "limit": job.limit and asdict(job.limit),
        "holds": holds,
    }


def line_of(name, figures, limit, verdict):
    return f"{name:33} {aligned(figures)}  {limit:27} {verdict}"


def line_of_result(row):
    figures = cells(row["medians"], TABLE_COLUMNS, Kind(row["figures"]))
    return line_of(row["name"], figures, *limit_cells(row))


def fresh_sampler(name, job, column):
    """Takes a sample in a fresh process: of an import, or of memory."""
    program = (BENCH / "memory.py", name, column)
    if job.kind is Kind.IMPORT:
        program = ("-c", IMPORT_PROGRAM.format(statement=job.statements[column]))
    settings = {"PYTHONMALLOC": "malloc"} if job.kind is Kind.HELD else {}
    return lambda: run_fresh(*program, **settings)


def timed_samplers(job):
    samplers = samplers_for(job, job.statements, job.shape, LEAST_SECONDS)
    for sampler in samplers.values():
        sampler.runs = max(sampler.runs, min(SAMPLE_RUNS, int(MOST_SECONDS / sampler.seconds)))
    return samplers


def measured(name, job, quick):
    """The median of every column of the job."""
    columns = job.statements
    repeats = REPEATS[job.kind]
    if job.kind is Kind.TIME:
        samplers = timed_samplers(job)
        turn = sum(sampler.seconds * sampler.runs for sampler in samplers.values())
        repeats = max(repeats, int(ROW_SECONDS / turn))
    else:
        samplers = {column: fresh_sampler(name, job, column) for column in columns}
    if quick:
        repeats //= 3
    return medians_of(samples_of(samplers, dict.fromkeys(columns, repeats)))


def main():
    parser = console.parser("script/bench", __doc__)
    parser.add_argument("--check", action="store_true", help="exit status 1 if a limit is missed")
    arguments = parser.parse_args()
    machine = console.machine()
    print(machine)
    print("\n" + line_of("operation", TABLE_COLUMNS, "at most", "verdict"))
    rows = []
    for name, job in CASES.items():
        if arguments.only in name:
            rows.append(result_of(name, job, measured(name, job, arguments.quick)))
            print(line_of_result(rows[-1]), flush=True)
    held = [row["holds"] for row in rows if row["limit"]]
    print(f"\n{sum(held)} of {len(held)} limits hold")
    if arguments.json:
        console.write_json(arguments.json, {"machine": machine, "rows": rows}, "rows")
    return 1 if arguments.check and not all(held) else 0


if __name__ == "__main__":
    sys.exit(main())
