# Runs the jobs of the benchmark and prints one table: medians, ratios, limits.
"""Times the arrays against their neighbours. A cell of the table is a neighbour's median and, in
brackets, ours divided by it: below 1 we are faster.
"""

import sys
from dataclasses import asdict

import console
from cases import CASES
from figure_text import aligned, cells, limit_text
from measure import BENCH, medians_of, run_fresh, samplers_for, samples_of
from operation import ARROW, COLUMNS, OURS, Kind

PROGRAM = "script/bench"
TABLE_COLUMNS = tuple(column for column in COLUMNS if column != ARROW)

# Allowed in addition for a construction of any size: arenas of the allocator, pages of code.
PEAK_CONSTANT_BYTES = 1 << 20

# Samples of each column; in a quick run a third of them.
REPEATS = {Kind.TIME: 9, Kind.IMPORT: 15, Kind.PEAK: 3, Kind.GROWTH: 3, Kind.HELD: 3}

# The child measures its own import, so that the start of the interpreter is not included.
IMPORT_PROGRAM = """
import time
start = time.perf_counter()
{statement}
print(time.perf_counter() - start)
"""


class Result:
    """The medians of one job, and whether its limit holds."""

    def __init__(self, job, medians):
        self.job, self.medians = job, medians
        peers = [column for column in TABLE_COLUMNS[1:] if column in medians]
        self.ratios = {peer: medians[OURS] / medians[peer] for peer in peers}
        self.holds, self.limit_cell, self.verdict = None, "", ""
        if job.limit:
            self.judge(job.limit)

    def judge(self, limit):
        held = self.ratios[limit.peer] if limit.peer else self.medians[OURS]
        if self.job.kind is Kind.PEAK:
            held -= PEAK_CONSTANT_BYTES / self.job.element_bytes
        self.holds = held <= limit.ratio
        self.verdict = "holds" if self.holds else "MISSED"
        self.limit_cell = limit_text(limit, self.job.kind)
        if limit.aim:
            self.limit_cell += f", aim {limit.aim:g}"
            self.verdict += ", aim met" if held <= limit.aim else ""

    def line(self):
        figures = cells(self.medians, TABLE_COLUMNS, self.job.kind)
        return line_of(self.job.title, figures, self.limit_cell, self.verdict)

    def as_dict(self):
        words = self.job.shape.words()
        statements = self.job.statements.items()
        return {
            "name": self.job.title,
            "figures": self.job.kind.value,
            "statements": {column: text.format(**words) for column, text in statements},
            "medians": self.medians,
            "ratios": self.ratios,
            "limit": self.job.limit and asdict(self.job.limit),
            "holds": self.holds,
        }


def line_of(name, figures, limit, verdict):
    return f"{name:33} {aligned(*figures)}  {limit:25} {verdict}".rstrip()


def fresh_sampler(job, column):
    """Takes a sample in a fresh process: of an import, or of memory."""
    program = (BENCH / "memory.py", job.title, column)
    if job.kind is Kind.IMPORT:
        program = ("-c", IMPORT_PROGRAM.format(statement=job.statements[column]))
    settings = {"PYTHONMALLOC": "malloc"} if job.kind is Kind.HELD else {}

    def sample():
        [value] = run_fresh(*program, **settings)
        return value

    return sample


def measured(job, quick):
    """The median of every column of the job."""
    columns = job.statements
    if job.kind is Kind.TIME:
        samplers = samplers_for(job, columns, job.shape, 0.002 if quick else 0.02)
    else:
        samplers = {column: fresh_sampler(job, column) for column in columns}
    if job.kind is Kind.IMPORT:
        samples_of(samplers, dict.fromkeys(columns, 1))  # writes byte code, warms the file cache
    repeats = REPEATS[job.kind] // (3 if quick else 1)
    return medians_of(samples_of(samplers, dict.fromkeys(columns, repeats)))


def main():
    parser = console.parser(PROGRAM, __doc__, "fewer and shorter samples", "rows whose name")
    parser.add_argument("--check", action="store_true", help="exit status 1 if a limit is missed")
    arguments = parser.parse_args()
    machine = console.start(PROGRAM, "velmar", "numpy")
    print("\n" + line_of("operation", TABLE_COLUMNS, "at most", "verdict"))
    results = []
    for job in CASES:
        if arguments.only in job.title:
            results.append(Result(job, measured(job, arguments.quick)))
            print(results[-1].line(), flush=True)
    judged = [result for result in results if result.holds is not None]
    missed = [result for result in judged if not result.holds]
    print(f"\n{len(judged) - len(missed)} of {len(judged)} limits hold")
    rows = [result.as_dict() for result in results]
    console.write_json(arguments.json, {"machine": machine, "rows": rows}, "rows")
    return 1 if arguments.check and missed else 0


if __name__ == "__main__":
    sys.exit(main())
