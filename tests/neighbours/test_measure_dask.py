"""The measurement of the Dask cluster runs, with a small table."""

import re

import measure_dask
import velmar
from with_dask import blocked_products, local_cluster, write_table
from with_numpy import to_numpy


def test_program(capsys):
    measure_dask.main(2000, 5)
    printed = re.sub(r"\d+ (ms|MiB)\b", r"N \1", capsys.readouterr().out)
    assert printed.splitlines() == [
        "A^T A of 2000 by 5, N MiB, by blocks:",
        "    in this process: N ms, of processors N ms",
        "    with workers of one thread: 1: N ms, of processors N ms",
        "    most memory of a worker, with Python and all libraries: N MiB",
        "    with workers of one thread: 2: N ms, of processors N ms",
        "    most memory of a worker, with Python and all libraries: N MiB",
    ]


def test_what_is_compared_is_the_same(tmp_path):
    file = tmp_path / "table.bin"
    write_table(file, 50, 4)
    here = measure_dask.without_a_cluster(file, 50, 4, 7)
    with local_cluster(1) as client:
        there = client.compute(blocked_products(file, 50, 4, 7)).result()
    assert type(there) is velmar.double
    assert abs(to_numpy(here) - to_numpy(there)).max() < 1e-9
