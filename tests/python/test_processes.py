"""Arrays and exceptions of the module that go to other processes and back."""

import multiprocessing
import os
from concurrent.futures import ProcessPoolExecutor
from multiprocessing import reduction

import pytest
import velmar
import vlexceptions
from helpers import process_workers as workers
from helpers.arrays import FORMS, contents, exact, grid
from helpers.failures import STORAGE_GONE, raises
from helpers.view_states import expired_row

# A worker of pytest-xdist has several threads. A process that is forked from one of them can hang.
pytestmark = pytest.mark.processes

PROCESSES = 2
SECONDS = 60  # the longest wait for a result


class ClassicPool:
    """multiprocessing.Pool."""

    def __init__(self, method):
        self.pool = multiprocessing.get_context(method).Pool(PROCESSES)

    def call(self, function, *arguments):
        return self.pool.apply_async(function, arguments).get(SECONDS)

    def map(self, function, values):
        return self.pool.map_async(function, values).get(SECONDS)

    def close(self):
        self.pool.close()
        self.pool.join()


class FuturesPool:
    """concurrent.futures.ProcessPoolExecutor."""

    def __init__(self, method):
        context = multiprocessing.get_context(method)
        self.pool = ProcessPoolExecutor(PROCESSES, mp_context=context)

    def call(self, function, *arguments):
        return self.pool.submit(function, *arguments).result(SECONDS)

    def map(self, function, values):
        return list(self.pool.map(function, values, timeout=SECONDS))

    def close(self):
        self.pool.shutdown()


KINDS = [(pool, method) for pool in (ClassicPool, FuturesPool) for method in ("spawn", "fork")]


@pytest.fixture(
    scope="module",
    params=KINDS,
    ids=[f"{pool.__name__}-{method}" for pool, method in KINDS],
)
def pool(request):
    kind, method = request.param
    made = kind(method)
    yield made
    made.close()


class TestArrays:
    def test_work_is_done_elsewhere(self, pool):
        assert os.getpid() not in pool.map(workers.process_number, range(4))

    def test_argument_and_result(self, pool):
        array = velmar.int32([[1, 2, 3], [4, 5, 6]])
        back = pool.call(workers.scaled, array, 10)
        assert type(back) is velmar.int32
        assert contents(back) == [[10, 20, 30], [40, 50, 60]]
        assert contents(array) == [[1, 2, 3], [4, 5, 6]]

    def test_each_form(self, pool):
        arrays = [row.cls([[1, 0], [0, 1]], is_complex=is_complex) for row, is_complex in FORMS]
        assert pool.call(workers.texts, arrays) == [repr(array) for array in arrays]
        backs = pool.map(workers.same, arrays)
        assert [type(back) for back in backs] == [type(array) for array in arrays]
        assert exact([contents(back) for back in backs]) == exact(
            [contents(array) for array in arrays]
        )
        assert backs == arrays

    def test_made_in_the_process(self, pool):
        back = pool.call(workers.made, "int8", [[1j, 2], [3, 4]], True)
        assert repr(back) == "velmar.int8([[1j,(2+0j)],[(3+0j),(4+0j)]], is_complex=True)"

    def test_many(self, pool):
        arrays = [velmar.double(grid(3, 4 + i)) for i in range(40)]
        assert pool.map(workers.same, arrays) == arrays

    def test_large(self, pool):
        array = velmar.double(grid(200, 300))
        assert contents(pool.call(workers.same, array)) == grid(200, 300)

    def test_rows_arrive_as_arrays_of_one_row(self, pool):
        array = velmar.double([[1, 2, 3], [4, 5, 6]])
        assert pool.map(workers.row_total, [array[0], array[1]]) == [6.0, 15.0]
        assert pool.map(workers.row_total, array) == [6.0, 15.0]

    def test_final_slice_arrives_whole_and_its_clone_as_it_is(self, pool):
        array = velmar.int8([[1, 2], [3, 4], [5, 6]])
        assert contents(pool.call(workers.same, array[:1])) == [[1, 2], [3, 4], [5, 6]]
        assert contents(pool.call(workers.same, array[:1].clone())) == [[1, 2]]
        assert contents(pool.call(workers.reversed_rows, array)) == [[1, 2], [3, 4], [5, 6]]
        back = pool.call(workers.reversed_rows_cloned, array)
        assert contents(back) == [[5, 6], [3, 4], [1, 2]]

    def test_without_elements(self, pool):
        for size in ((0, 0), (1, 0), (3, 0)):
            array = velmar.logical(size=size)
            assert pool.call(workers.same, array) == array
        assert str(pool.call(workers.same, velmar.double(size=(0, 3)))) == "[]"


class TestErrors:
    def test_shape_error(self, pool):
        with raises(
            vlexceptions.ShapeError,
            "dimensions of initializer (3) do not match dimensions specified by 'size' (3, 2).",
        ):
            pool.call(workers.wrong_count, 3)

    def test_size_error(self, pool):
        with raises(
            vlexceptions.SizeError,
            "dimensions of initializer (1, 3) do not match dimensions specified by 'size' (3, 1).",
        ):
            pool.call(workers.wrong_shape, 3)

    def test_shape_error_in_a_map(self, pool):
        with pytest.raises(vlexceptions.ShapeError):
            pool.map(workers.wrong_count, [2, 3])

    def test_names_the_line_of_the_worker(self, pool):
        with pytest.raises(vlexceptions.ShapeError) as caught:
            pool.call(workers.wrong_count, 2)
        assert "in wrong_count" in str(caught.value.__cause__)

    def test_shape_error_as_a_result(self, pool):
        (error,) = pool.call(workers.wrong_count_caught, 2)
        assert type(error) is vlexceptions.ShapeError
        assert str(error).endswith("'size' (2, 2).")

    def test_index_error(self, pool):
        with raises(IndexError, "index has an invalid value: 2"):
            pool.call(workers.wrong_index, velmar.double([[1], [2]]))

    def test_pool_goes_on(self, pool):
        with pytest.raises(vlexceptions.ShapeError):
            pool.call(workers.wrong_count, 2)
        assert contents(pool.call(workers.same, velmar.int8([1]))) == [[1]]

    def test_row_without_storage_as_an_argument(self, pool):
        with raises(*STORAGE_GONE):
            pool.call(workers.same, expired_row())
        assert contents(pool.call(workers.same, velmar.int8([1]))) == [[1]]

    def test_row_without_storage_as_a_result(self):
        # Only with an executor: a Pool calls repr() of a result that it cannot send, and hangs.
        with ProcessPoolExecutor(1, mp_context=multiprocessing.get_context("spawn")) as executor:
            with raises(*STORAGE_GONE):
                executor.submit(workers.row_without_storage).result(SECONDS)
            back = executor.submit(workers.same, velmar.int8([1])).result(SECONDS)
            assert contents(back) == [[1]]


class TestConnections:
    def test_pipe(self):
        ours, theirs = multiprocessing.Pipe()
        with ours, theirs:
            array = velmar.int16([[1, 2j]], is_complex=True)
            ours.send(array)
            assert theirs.poll(SECONDS)
            assert theirs.recv() == array

    def test_pickler_of_the_processes(self):
        array = velmar.single([[0.1, 2], [3, 4]])
        back = reduction.ForkingPickler.loads(reduction.ForkingPickler.dumps(array))
        assert exact(contents(back)) == exact(contents(array))
