"""The example with Dask: arrays sent through a cluster, and a table too large for a worker."""

import numpy as np
import pytest
import velmar
import vlexceptions
import with_dask
from dask.sizeof import sizeof
from distributed.protocol import serialize
from helpers.cases import each, rows
from samples import FLOATS, INTEGERS, ROWS, nested, state
from with_dask import MEBIBYTE, blocked_products, fit, local_cluster, read_rows, write_table
from with_numpy import from_parts, to_numpy

ROW_COUNT, COLUMNS = 250_000, 48  # 92 MiB
ALLOWANCE = 64 * MEBIBYTE


@pytest.fixture(scope="module")
def client():
    with local_cluster(2, ALLOWANCE) as one:
        yield one


@pytest.fixture(scope="module")
def big_table(tmp_path_factory):
    file = tmp_path_factory.mktemp("dask") / "table.bin"
    write_table(file, ROW_COUNT, COLUMNS)
    assert file.stat().st_size == ROW_COUNT * COLUMNS * 8 > ALLOWANCE
    yield file
    file.unlink()


def itself(a):
    return a


def sent(client, a):
    """The array after a trip to a worker and back."""
    return client.submit(itself, client.scatter(a)).result()


class TestArgumentsAndResults:
    @each(ROWS)
    def test_every_class(self, client, row):
        a = row.cls(nested(row))
        assert state(sent(client, a)) == state(a)

    @each(FLOATS)
    def test_complex(self, client, row):
        a = row.cls([[1 + 2j, -3j], [4, 5]], is_complex=True)
        assert state(sent(client, a)) == state(a)

    @each(INTEGERS)
    def test_complex_integers(self, client, row):
        limits = np.array([[row.low, row.high]], row.dtype)
        a = from_parts(limits, limits[:, ::-1].copy())
        assert state(sent(client, a)) == state(a)

    @rows(
        "a, expected",
        [
            ("row", velmar.double([[1, 2], [3, 4]])[1], [[3, 4]]),
            ("slice", velmar.double([[1, 2], [3, 4], [5, 6]])[::-2], [[5, 6], [1, 2]]),
            ("part_of_row", velmar.double([[1, 2, 3]])[0][1:], [[2, 3]]),
        ],
    )
    def test_views_arrive_as_arrays(self, client, a, expected):
        assert sent(client, a) == velmar.double(expected)

    @pytest.mark.parametrize("size", [(0, 0), (0, 3), (3, 0), (2, 3, 4)], ids=str)
    def test_shapes(self, client, size):
        a = velmar.int32(vector=range(int(np.prod(size))), size=size)
        assert state(sent(client, a)) == state(a)

    def test_from_worker_to_worker(self, client):
        first, second = client.scheduler_info()["workers"]
        made = client.submit(velmar.double, [[1, 2], [3, 4]], workers=[first])
        sums = client.submit(with_dask.add, made, made, workers=[second])
        assert sums.result() == velmar.double([[2, 4], [6, 8]])
        places = client.who_has([made, sums])
        assert (places[sums.key], first in places[made.key]) == ((second,), True)

    @rows(
        "a, expected",
        [
            ("array", velmar.double([[1, 2], [3, 4]]), [[1, 2], [3, 4]]),
            ("slice", velmar.double([[1, 2], [3, 4], [5, 6]])[::-2], [[1, 2], [3, 4], [5, 6]]),
            ("no_rows", velmar.double(size=(0, 3)), []),
        ],
    )
    def test_inside_a_call_they_are_pickled(self, client, a, expected):
        got = client.submit(itself, a).result()
        assert got == velmar.double(expected)
        assert got.size == velmar.double(expected).size

    def test_errors_come_back(self, client):
        with pytest.raises(vlexceptions.ShapeError) as caught:
            client.submit(velmar.double, [1, 2, 3], size=(2, 2)).result()
        assert str(caught.value) == (
            "dimensions of initializer (3) do not match dimensions specified by 'size' (2, 2)."
        )

    def test_memory_travels_not_a_pickle(self, client):
        a = velmar.double(vector=range(1000), size=(10, 100))

        def how():
            header, frames = serialize(velmar.double(vector=range(1000), size=(10, 100)))
            return header["serializer"], sum(memoryview(frame).nbytes for frame in frames)

        assert set(client.run(how).values()) == {("dask", 8000)}
        assert sizeof(a) == 8000


class TestBlocks:
    def test_products_of_a_table_beyond_the_allowance(self, client, big_table):
        task = blocked_products(big_table, ROW_COUNT, COLUMNS, MEBIBYTE // (8 * COLUMNS))
        got = client.compute(task).result()
        table = np.memmap(big_table, "float64", "r", shape=(ROW_COUNT, COLUMNS))
        assert np.allclose(to_numpy(got), table.T @ table, rtol=1e-9, atol=1e-3)
        assert to_numpy(fit(got))[0] == pytest.approx(np.arange(1, COLUMNS), rel=1e-9)

    def test_the_table_is_beyond_the_allowance(self, client, big_table):
        whole = client.submit(read_rows, big_table, COLUMNS, 0, ROW_COUNT)
        with pytest.raises(MemoryError):
            whole.result()
        part = client.submit(read_rows, big_table, COLUMNS, ROW_COUNT - 2, 2)
        table = np.memmap(big_table, "float64", "r", shape=(ROW_COUNT, COLUMNS))
        assert to_numpy(part.result()).tolist() == table[-2:].tolist()

    @pytest.mark.parametrize("rows, block_rows", [(1, 5), (5, 5), (6, 5), (23, 1), (40, 7)])
    def test_blocks(self, client, tmp_path, rows, block_rows):
        file = tmp_path / "table.bin"
        write_table(file, rows, 4, block_rows=3)
        n = np.fromfile(file).reshape(rows, 4)
        assert n[:, 3] == pytest.approx(n[:, 0] + 2 * n[:, 1] + 3 * n[:, 2])
        got = client.compute(blocked_products(file, rows, 4, block_rows)).result()
        assert (type(got), got.size) == (velmar.double, (4, 4))
        assert to_numpy(got) == pytest.approx(n.T @ n)


def test_program(capsys):
    with_dask.main(100_000, 120, 1)
    printed = capsys.readouterr().out
    assert "The table: 100000 by 120, 92 MiB." in printed
    assert "All rows in one task: MemoryError" in printed
    weights = next(line for line in printed.splitlines() if line.startswith("The weights: "))
    assert [float(x) for x in weights[14:].split("]")[0].split(",")] == pytest.approx([1, 2, 3])
