"""Measures the cluster of with_dask.py: time for each number of workers, and memory of a worker.

Usage: measure_dask.py [ROWS [COLUMNS]]; the default is a small table. Times are the best of three.
"""

import sys
import tempfile
import time
from pathlib import Path

import velmar
from with_dask import (
    MEBIBYTE,
    add,
    blocked_products,
    local_cluster,
    products,
    read_rows,
    write_table,
)


def show(what, run, processor_time):
    """Prints the best of three runs: the elapsed time and the processor time of all workers."""
    elapsed, spent = [], []
    for _ in range(3):
        started, had = time.perf_counter(), processor_time()
        run()
        elapsed.append(1000 * (time.perf_counter() - started))
        spent.append(1000 * (processor_time() - had))
    print(f"    {what}: {min(elapsed):.0f} ms, of processors {min(spent):.0f} ms")


def peak_memory():
    import resource  # not available on every system

    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024


def without_a_cluster(file, rows, columns, block_rows):
    total = velmar.double(size=(columns, columns))
    for first in range(0, rows, block_rows):
        chunk = read_rows(file, columns, first, min(block_rows, rows - first))
        total = add(total, products(chunk))
    return total


def measure_workers(file, rows, columns, block_rows):
    print(f"A^T A of {rows} by {columns}, {file.stat().st_size / MEBIBYTE:.0f} MiB, by blocks:")
    table = file, rows, columns, block_rows
    show("in this process", lambda: without_a_cluster(*table), time.process_time)
    for workers in (1, 2):
        with local_cluster(workers, allowance=128 * MEBIBYTE) as client:
            show(
                f"with workers of one thread: {workers}",
                lambda client=client: client.compute(blocked_products(*table)).result(),
                lambda client=client: sum(client.run(time.process_time).values()),
            )
            most = max(client.run(peak_memory).values()) // MEBIBYTE
            print(f"    most memory of a worker, with Python and all libraries: {most} MiB")


def main(rows=100_000, columns=100):
    block_rows = max(1, 8 * MEBIBYTE // (8 * columns))
    with tempfile.TemporaryDirectory() as folder:
        file = Path(folder) / "table.bin"
        write_table(file, rows, columns)
        measure_workers(file, rows, columns, block_rows)


if __name__ == "__main__":
    main(*map(int, sys.argv[1:]))
