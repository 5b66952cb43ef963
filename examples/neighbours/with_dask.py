"""Dask: least squares for a table on disk that is larger than the memory of a task.

The table has one record of doubles per row. The last column is a linear combination of the others.
A local cluster processes it block by block. All chunks and results are arrays, which workers keep
and send to each other; NumPy multiplies them.

Usage: with_dask.py [ROWS [COLUMNS [WORKERS]]]; the default is a small table. The memory limit of
the tasks works on Linux.
"""

import logging
import sys
import tempfile
import time
from contextlib import contextmanager
from pathlib import Path

import numpy as np
import velmar
from dask import delayed
from distributed import Client, LocalCluster, WorkerPlugin
from velmar import transport
from with_numpy import from_numpy, to_numpy

MEBIBYTE = 2**20


def write_table(file, rows, columns, block_rows=10_000):
    """Random numbers. The last one in a row is 1 * the first + 2 * the second + ..."""
    random = np.random.default_rng(1)
    weights = np.arange(1.0, columns)
    with open(file, "wb") as stream:
        for first in range(0, rows, block_rows):
            known = random.normal(size=(min(block_rows, rows - first), columns - 1))
            stream.write(np.column_stack([known, known @ weights]))


def read_rows(file, columns, first, count):
    """A chunk: some rows of the table, converted from row order to column order."""
    with open(file, "rb") as stream:
        stream.seek(first * columns * 8)
        data = stream.read(count * columns * 8)
    return velmar.double(memoryview(data).cast("d", (count, columns)))


def products(chunk):
    """A^T A of these rows: the sums of products of all pairs of columns."""
    n = to_numpy(chunk)
    return from_numpy(n.T @ n)


def add(*matrices):
    return from_numpy(sum(map(to_numpy, matrices)))


def blocked_products(file, rows, columns, block_rows):
    """The task for A^T A of the table: reads chunks, multiplies them and adds up in a tree."""
    sums = [
        delayed(products)(delayed(read_rows)(file, columns, first, min(block_rows, rows - first)))
        for first in range(0, rows, block_rows)
    ]
    while len(sums) > 1:
        sums = [delayed(add)(*sums[k : k + 4]) for k in range(0, len(sums), 4)]
    return sums[0]


def fit(of_products):
    """The weights of the columns that fit the last column best."""
    n = to_numpy(of_products)
    return from_numpy(np.linalg.solve(n[:-1, :-1], n[:-1, -1]))


class Allowance(WorkerPlugin):
    """Limits a worker, and so its only task, to its current memory plus `allowance` bytes.

    The kernel refuses more memory, and the task ends with MemoryError.
    """

    def __init__(self, allowance):
        self.allowance = allowance

    def setup(self, worker):
        import resource  # not available on every system

        status = Path("/proc/self/status").read_text().split()
        held = int(status[status.index("VmData:") + 1]) * 1024
        resource.setrlimit(resource.RLIMIT_DATA, (held + self.allowance, resource.RLIM_INFINITY))


@contextmanager
def local_cluster(workers=2, allowance=None):
    """A client for workers with one thread each, on this machine only; arrays are sent packed."""
    with (
        LocalCluster(
            n_workers=workers,
            threads_per_worker=1,
            host="127.0.0.1",
            dashboard_address=":0",
            memory_limit=None,
            silence_logs=logging.CRITICAL,  # the result of a task reports its failure
        ) as cluster,
        Client(cluster) as client,
    ):
        transport.register_dask(client)
        if allowance:
            client.register_plugin(Allowance(allowance))
        yield client


def main(rows=400_000, columns=50, workers=2):
    block_rows = max(1, 8 * MEBIBYTE // (8 * columns))
    with tempfile.TemporaryDirectory() as folder:
        file = Path(folder) / "table.bin"
        write_table(file, rows, columns)
        print(f"The table: {rows} by {columns}, {file.stat().st_size / MEBIBYTE:.0f} MiB.")
        with local_cluster(workers, allowance=128 * MEBIBYTE) as client:
            started = time.perf_counter()
            of_products = client.compute(blocked_products(file, rows, columns, block_rows)).result()
            print(f"Products of the columns, by blocks: {time.perf_counter() - started:.2f} s.")
            print(f"The weights: {fit(of_products)[0][:3]} ...")
            whole = client.submit(read_rows, file, columns, 0, rows)
            print(f"All rows in one task: {whole.exception()!r}")


if __name__ == "__main__":
    main(*map(int, sys.argv[1:]))
