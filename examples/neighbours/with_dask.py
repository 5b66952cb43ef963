"""Dask: least squares over a table on disk that no task could hold, block by block on a cluster.

The table has a record a row, of doubles; its last column is explained by the others. Arrays are the
chunks: read by a task, kept by a worker, sent to others, and the result. NumPy multiplies them.

Usage: with_dask.py [ROWS [COLUMNS [WORKERS]]]; without numbers, a small table. Linux: the allowance
of memory is a limit that the kernel keeps.
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
    """Random numbers; the last in a row is 1 times the first plus 2 times the second plus ..."""
    random = np.random.default_rng(1)
    weights = np.arange(1.0, columns)
    with open(file, "wb") as stream:
        for first in range(0, rows, block_rows):
            known = random.normal(size=(min(block_rows, rows - first), columns - 1))
            stream.write(np.column_stack([known, known @ weights]))


def read_rows(file, columns, first, count):
    """A chunk: some rows of the table, put into the order of columns on the way in."""
    with open(file, "rb") as stream:
        stream.seek(first * columns * 8)
        data = stream.read(count * columns * 8)
    return velmar.double(memoryview(data).cast("d", (count, columns)))


def products(chunk):
    """The sums of products of all pairs of columns: A^T A of these rows."""
    n = to_numpy(chunk)
    return from_numpy(n.T @ n)


def add(*matrices):
    return from_numpy(sum(map(to_numpy, matrices)))


def blocked_products(file, rows, columns, block_rows):
    """The task whose result is A^T A of the table: chunks, their products, and sums in a tree."""
    sums = [
        delayed(products)(delayed(read_rows)(file, columns, first, min(block_rows, rows - first)))
        for first in range(0, rows, block_rows)
    ]
    while len(sums) > 1:
        sums = [delayed(add)(*sums[k : k + 4]) for k in range(0, len(sums), 4)]
    return sums[0]


def fit(of_products):
    """The weights that explain the last column best."""
    n = to_numpy(of_products)
    return from_numpy(np.linalg.solve(n[:-1, :-1], n[:-1, -1]))


class Allowance(WorkerPlugin):
    """Lets a worker, and so its one task, have no more memory than it has now and these bytes.

    What is beyond that is refused by the kernel, and a task ends in MemoryError.
    """

    def __init__(self, allowance):
        self.allowance = allowance

    def setup(self, worker):
        import resource  # not on every system

        status = Path("/proc/self/status").read_text().split()
        held = int(status[status.index("VmData:") + 1]) * 1024
        resource.setrlimit(resource.RLIMIT_DATA, (held + self.allowance, resource.RLIM_INFINITY))


@contextmanager
def local_cluster(workers=2, allowance=None):
    """A client of workers of one thread each, on this machine only; arrays travel as memory."""
    with (
        LocalCluster(
            n_workers=workers,
            threads_per_worker=1,
            host="127.0.0.1",
            dashboard_address=":0",
            memory_limit=None,
            silence_logs=logging.CRITICAL,  # a task that fails is told of by its result
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
