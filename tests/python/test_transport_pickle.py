"""Packed pickles: what register_pickle() changes in this process, and in pools and caches."""

import copy
import copyreg
import multiprocessing
import pickle
import shelve
import sys
from concurrent.futures import ProcessPoolExecutor

import pytest
import velmar
from helpers import process_workers as workers
from helpers.arrays import CLASS_ROWS, FORMS, contents, exact
from helpers.cases import each, each_form, needs, rows
from helpers.child_interpreter import run_script
from helpers.failures import STORAGE_GONE, raises
from helpers.view_states import WITHOUT_STORAGE
from velmar import transport

SECONDS = 120  # the longest wait for a result
PROTOCOLS = range(pickle.HIGHEST_PROTOCOL + 1)


@pytest.fixture
def registered():
    transport.register_pickle()
    yield
    transport.unregister_pickle()


def table():
    return velmar.double([[1, 2, 3], [4, 5, 6]])


class TestRegistration:
    def test_there_and_back(self):
        array = table()
        before = [pickle.dumps(array, protocol) for protocol in PROTOCOLS]
        transport.register_pickle()
        transport.register_pickle()
        try:
            packed = [pickle.dumps(array, protocol) for protocol in PROTOCOLS]
        finally:
            transport.unregister_pickle()
        assert [b"velmar.transport" in stored for stored in packed] == [True] * len(packed)
        assert [pickle.dumps(array, protocol) for protocol in PROTOCOLS] == before
        transport.unregister_pickle()
        # Both kinds can be read whether registered or not.
        assert all(pickle.loads(stored) == array for stored in packed + before)
        transport.register_pickle()
        try:
            assert all(pickle.loads(stored) == array for stored in packed + before)
        finally:
            transport.unregister_pickle()

    @each(CLASS_ROWS)
    def test_keeps_registrations_of_others(self, row, monkeypatch):
        def other(array):
            return row.cls, ()

        transport.register_pickle()
        monkeypatch.setitem(copyreg.dispatch_table, row.cls, other)
        transport.unregister_pickle()
        assert copyreg.dispatch_table[row.cls] is other

    def test_needs_no_other_library(self):
        outcome = run_script("""
            import sys

            class Nowhere:
                def find_spec(self, name, *_):
                    if name in ("numpy", "dask", "distributed", "joblib", "cloudpickle", "ray"):
                        raise ModuleNotFoundError(f"No module named {name!r}", name=name)

            sys.meta_path.insert(0, Nowhere())
            import pickle, velmar
            velmar.transport.register_pickle()
            packed = pickle.dumps(velmar.int8([1, 2]))
            velmar.transport.unregister_pickle()
            report([b"transport" in packed, str(pickle.loads(packed))])
        """)
        assert outcome.reported == [True, "[[1,2]]"]

    def test_readers_import_the_transport(self, registered):
        outcome = run_script(f"""
            import pickle, sys
            array = pickle.loads({pickle.dumps(velmar.int8([1, 2]))!r})
            report([repr(array), "velmar.transport" in sys.modules])
        """)
        assert outcome.reported == ["velmar.int8([[1,2]])", True]

    def test_other_byte_order(self, registered, monkeypatch):
        stored = pickle.dumps(velmar.int16([1, 2]))
        own = sys.byteorder
        other = "big" if own == "little" else "little"
        monkeypatch.setattr(sys, "byteorder", other)
        with raises(ValueError, f"header has byte order {own!r}; {other!r} expected."):
            pickle.loads(stored)


class TestPickles:
    @each_form
    @pytest.mark.parametrize("protocol", PROTOCOLS)
    def test_each_form(self, registered, row, is_complex, protocol):
        array = row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)
        for view in (array, array[1], array[::-1], array[1][:2], array[2:]):
            back = pickle.loads(pickle.dumps(view, protocol))
            assert type(back) is row.cls
            assert back._is_complex is is_complex
            expected = contents(view) if len(view.size) == 2 else [contents(view)]
            assert exact(contents(back)) == exact(expected)

    def test_view_as_it_is_now(self, registered):
        array = table()
        view = array[1:]
        assert contents(pickle.loads(pickle.dumps(view))) == [[4, 5, 6]]
        array[1][0] = 40
        assert contents(pickle.loads(pickle.dumps(view))) == [[40, 5, 6]]

    @pytest.mark.parametrize("copied", [copy.copy, copy.deepcopy])
    def test_copies(self, registered, copied):
        array = table()
        assert contents(copied(array[:1])) == [[1, 2, 3]]
        twice = copied([array, array]) if copied is copy.deepcopy else [copied(array)] * 2
        assert twice[0] is twice[1]
        twice[0][0][0] = 9
        assert array[0][0] == 1
        assert copied(velmar.int8(size=(0, 3))).size == (0, 3)

    def test_copies_before_and_after(self):
        array = table()
        sizes = [copy.copy(array[:1]).size]
        transport.register_pickle()
        sizes.append(copy.copy(array[:1]).size)
        transport.unregister_pickle()
        sizes.append(copy.copy(array[:1]).size)
        assert sizes == [(2, 3), (1, 3), (2, 3)]

    def test_shelf(self, registered, tmp_path):
        with shelve.open(str(tmp_path / "shelf")) as shelf:
            shelf["row"] = table()[1:]
        with shelve.open(str(tmp_path / "shelf")) as shelf:
            assert contents(shelf["row"]) == [[4, 5, 6]]

    def test_one_array_twice_is_one_array(self, registered):
        array = table()
        back = pickle.loads(pickle.dumps([array, {"again": array}]))
        assert back[0] is back[1]["again"]

    @rows("make", WITHOUT_STORAGE)
    def test_without_storage(self, registered, make):
        with raises(*STORAGE_GONE):
            pickle.dumps(make())


@pytest.mark.processes
class TestPools:
    """The arguments are sent by this process, the results by the workers."""

    EMPTY = velmar.double(size=(0, 3))  # a pickle of the class loses this shape

    @pytest.mark.parametrize("method", ["spawn", "fork"])
    def test_executor(self, registered, method):
        context = multiprocessing.get_context(method)
        arrays = [row.cls([[1, 0], [0, 1]], is_complex=is_complex) for row, is_complex in FORMS]
        with ProcessPoolExecutor(
            1, mp_context=context, initializer=transport.register_pickle
        ) as pool:
            backs = list(pool.map(workers.same, arrays, timeout=SECONDS))
            empty = pool.submit(workers.same, self.EMPTY).result(SECONDS)
            part = pool.submit(workers.same, table()[1:]).result(SECONDS)
        for back, array in zip(backs, arrays, strict=True):
            assert (type(back), back) == (type(array), array)
        assert (empty.size, part.size) == ((0, 3), (1, 3))

    def test_pool_of_multiprocessing(self, registered):
        context = multiprocessing.get_context("spawn")
        pool = context.Pool(1, transport.register_pickle)
        assert pool.apply_async(workers.same, (self.EMPTY,)).get(SECONDS).size == (0, 3)
        # Not `with`, whose end kills a worker that can hold a lock of the pool.
        pool.close()
        pool.join()

    def test_results_of_spawned_processes_that_are_not_told(self, registered):
        with ProcessPoolExecutor(1, mp_context=multiprocessing.get_context("spawn")) as pool:
            part, empty = pool.map(workers.same, [table()[1:], self.EMPTY], timeout=SECONDS)
        assert (part.size, empty.size) == ((1, 3), (0, 0))


@needs("joblib")
class TestJoblib:
    @pytest.mark.parametrize("backend", ["loky", "multiprocessing", "threading"])
    def test_backends(self, registered, backend):
        from joblib import Parallel, delayed, parallel_config

        told = {"initializer": transport.register_pickle} if backend == "loky" else {}
        arrays = [velmar.double(size=(0, 3)), table()[1:], velmar.int8([2j], is_complex=True)]
        with parallel_config(backend, n_jobs=2, **told):
            backs = Parallel(timeout=SECONDS)(delayed(workers.same)(a) for a in arrays)
        assert [back.size for back in backs] == [(0, 3), (1, 3), (1, 1)]
        assert contents(backs[1:]) == contents(arrays[1:])

    def test_hash(self):
        import joblib

        array = table()
        before = joblib.hash(array[0:1]) == joblib.hash(array[1:2])
        transport.register_pickle()
        try:
            hashes = [joblib.hash(a) for a in (array, array[0:1], array[1:2], array[0][0:2])]
            hashes += [joblib.hash(velmar.single(array)), joblib.hash(velmar.double(size=(0, 3)))]
            again = joblib.hash(array[0:1].clone())
            nested = joblib.hash({"a": [array[0:1]]}) == joblib.hash({"a": [array[1:2]]})
        finally:
            transport.unregister_pickle()
        assert before is True
        assert len(set(hashes)) == 6
        assert again == hashes[1]
        assert nested is False
        assert joblib.hash(array[0:1]) == joblib.hash(array[1:2])

    def test_memory(self, tmp_path):
        from joblib import Memory

        array = table()
        parts = [array[0:1], array[1:2], array[1:2].clone(), array[0:1]]
        firsts = []
        for register in (False, True):
            first = Memory(tmp_path / str(register), verbose=0).cache(first_number)
            if register:
                transport.register_pickle()
            try:
                firsts.append([first(part) for part in parts])
            finally:
                transport.unregister_pickle()
        wrong, right = firsts
        assert wrong == [1.0, 1.0, 4.0, 1.0]
        assert right == [1.0, 4.0, 4.0, 1.0]


def first_number(array):
    return array[0][0]


@needs("distributed")
class TestDask:
    def test_token(self):
        from dask.base import tokenize

        array = table()
        before = tokenize(array[0:1]) == tokenize(array[1:2])
        transport.register_pickle()
        try:
            tokens = [tokenize(a) for a in (array, array[0:1], array[1:2], velmar.single(array))]
            again = tokenize(array[0:1].clone())
        finally:
            transport.unregister_pickle()
        assert before is True
        assert len(set(tokens)) == 4
        assert again == tokens[1]
        assert tokenize(array[0:1]) == tokenize(array[1:2])

    def test_processes(self, registered):
        from distributed import Client, LocalCluster

        with (
            LocalCluster(
                n_workers=1, threads_per_worker=1, processes=True, dashboard_address=None
            ) as cluster,
            Client(cluster) as client,
        ):
            sizes = []
            for told in (False, True):
                if told:
                    client.run(transport.register_pickle)
                arrays = [table()[1:], velmar.double(size=(0, 3))]
                futures = [client.submit(workers.same, a, pure=False) for a in arrays]
                futures.append(client.submit(workers.same, client.scatter(arrays[0]), pure=False))
                sizes.append([future.result(SECONDS).size for future in futures])
        assert sizes == [[(1, 3), (0, 0), (1, 3)], [(1, 3), (0, 3), (1, 3)]]
