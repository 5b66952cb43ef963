"""Registered transport: multiprocessing, and Dask and Ray where they are installed."""

import copy
import copyreg
import multiprocessing
import os
import pickle
import sys
from concurrent.futures import ProcessPoolExecutor
from multiprocessing.reduction import ForkingPickler

import pytest
import velmar
from helpers import process_workers as workers
from helpers.arrays import FORMS, contents, exact, grid
from helpers.cases import each_form, needs, rows
from helpers.child_interpreter import run_script
from helpers.failures import STORAGE_GONE, raises
from helpers.view_states import WITHOUT_STORAGE
from velmar import transport

SECONDS = 120  # the longest wait for a result


@pytest.fixture
def registered():
    transport.register_multiprocessing()
    yield
    transport.unregister_multiprocessing()


def fills_64_bits():
    """Complex elements that do not survive a pickle."""
    header, _ = transport.pack(velmar.int64([0], is_complex=True))
    return transport.unpack(header, [b"\xff\xfe\xfd\xfc\xfb\xfa\xf9\x78" * 2])


def executor(method, **options):
    context = multiprocessing.get_context(method)
    return ProcessPoolExecutor(1, mp_context=context, **options)


class TestMultiprocessing:
    def test_pickles_of_its_own_only(self):
        array = velmar.double([[1, 2], [3, 4]])
        before = [pickle.dumps(array, n) for n in range(pickle.HIGHEST_PROTOCOL + 1)]
        own = bytes(ForkingPickler.dumps(array))
        transport.register_multiprocessing()
        transport.register_multiprocessing()
        try:
            packed = bytes(ForkingPickler.dumps(array))
            assert [pickle.dumps(array, n) for n in range(len(before))] == before
            assert b"transport" not in b"".join(before)
            assert contents(copy.deepcopy(array[:1])) == [[1.0, 2.0], [3.0, 4.0]]
        finally:
            transport.unregister_multiprocessing()
        assert b"velmar.transport" in packed
        assert pickle.loads(packed) == array
        assert b"velmar.transport" not in own == bytes(ForkingPickler.dumps(array))
        transport.unregister_multiprocessing()

    @each_form
    def test_each_form(self, registered, row, is_complex):
        array = row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)
        stored = ForkingPickler.dumps(array)
        assert b"transport" in bytes(stored)
        back = ForkingPickler.loads(stored)
        assert type(back) is row.cls
        assert exact(contents(back)) == exact(contents(array))

    def test_one_array_twice_is_one_array(self, registered):
        array = velmar.double([1, 2])
        back = ForkingPickler.loads(ForkingPickler.dumps([array, {"again": array}]))
        assert back[0] is back[1]["again"]

    @rows("make", WITHOUT_STORAGE)
    def test_without_storage(self, registered, make):
        with raises(*STORAGE_GONE):
            ForkingPickler.dumps(make())

    @pytest.mark.processes
    @pytest.mark.parametrize("method", ["spawn", "fork"])
    def test_pool(self, registered, method):
        arrays = [row.cls([[1, 0], [0, 1]], is_complex=is_complex) for row, is_complex in FORMS]
        arrays += [velmar.double(size=(0, 3)), velmar.double(grid(20, 3, 2)), fills_64_bits()]
        with executor(method, initializer=transport.register_multiprocessing) as pool:
            backs = list(pool.map(workers.same, arrays, timeout=SECONDS))
            assert contents(pool.submit(workers.same, arrays[0][1:]).result(SECONDS)) == [[0, 1]]
            texts = pool.submit(workers.texts, arrays).result(SECONDS)
            assert texts == [repr(array) for array in arrays]
        for back, array in zip(backs, arrays, strict=True):
            assert (type(back), back.size) == (type(array), array.size)
            assert memoryview(back).tobytes("A") == memoryview(array).tobytes("A")

    @pytest.mark.processes
    def test_spawned_processes_answer_in_pickles_if_not_told(self, registered):
        with executor("spawn") as pool:
            back = pool.submit(workers.same, velmar.double(size=(0, 3))).result(SECONDS)
        assert back.size == (0, 0)

    @pytest.mark.processes
    def test_pool_of_multiprocessing(self, registered):
        context = multiprocessing.get_context("spawn")
        pool = context.Pool(1, transport.register_multiprocessing)
        back = pool.apply_async(workers.same, (fills_64_bits(),)).get(SECONDS)
        # Not `with`, whose end kills a worker that can hold a lock of the pool.
        pool.close()
        pool.join()
        assert memoryview(back).tobytes("A") == memoryview(fills_64_bits()).tobytes("A")


ABSENT = """
import sys
from velmar import transport

class Nowhere:
    def find_spec(self, name, *_):
        if name in ("distributed", "ray"):
            raise ModuleNotFoundError(f"No module named {name!r}", name=name)

sys.meta_path.insert(0, Nowhere())
seen = []
for name in ("dask", "ray"):
    for function in ("register", "unregister"):
        try:
            getattr(transport, f"{function}_{name}")()
        except ModuleNotFoundError as error:
            seen.append([str(error), error.name])
report(seen)
"""


def test_says_what_is_not_installed():
    assert run_script(ABSENT).reported == [
        [f"{function}_{name}() needs the package '{package}', which is not installed.", package]
        for name, package in (("dask", "distributed"), ("ray", "ray"))
        for function in ("register", "unregister")
    ]


@pytest.fixture
def dask_registered():
    transport.register_dask()
    yield
    transport.unregister_dask()


@pytest.fixture(scope="module")
def client():
    from distributed import Client, LocalCluster

    with (
        LocalCluster(
            n_workers=1, threads_per_worker=1, processes=True, dashboard_address=None
        ) as cluster,
        Client(cluster) as client,
    ):
        transport.register_dask(client)
        transport.register_dask(client)
        yield client
        transport.unregister_dask(client)


@needs("distributed")
class TestDaskTables:
    @each_form
    def test_goes_through_bytes(self, dask_registered, row, is_complex):
        from distributed.protocol.serialize import deserialize_bytes, serialize_bytes

        array = row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)
        back = deserialize_bytes(serialize_bytes(array))
        assert type(back) is row.cls
        assert exact(contents(back)) == exact(contents(array))

    def test_header_and_frame_are_those_of_pack(self, dask_registered):
        from distributed.protocol import serialize

        array = velmar.uint8([[1, 2], [3, 4]])
        header, frames = serialize(array)
        assert header["serializer"] == "dask"
        assert header["sub-header"] == transport.pack(array)[0]
        array[0][0] = 9
        assert [bytes(frame) for frame in frames] == [b"\x09\x03\x02\x04"]

    def test_large_frames_are_split_and_merged(self, dask_registered):
        from distributed.protocol.serialize import merge_and_deserialize, serialize_and_split

        array = velmar.int16(vector=range(3000), size=(30, 100))
        header, frames = serialize_and_split(array, size=1000)
        assert len(frames) == 6
        copies = [bytearray(frame) for frame in frames]
        assert merge_and_deserialize(header, copies) == array

    @pytest.mark.parametrize("size", [(0, 0), (0, 3), (2, 0, 4)], ids=str)
    def test_without_elements(self, dask_registered, size):
        from distributed.protocol.serialize import deserialize_bytes, serialize_bytes

        assert deserialize_bytes(serialize_bytes(velmar.int8(size=size))).size == size

    def test_frames_can_be_pickled(self, dask_registered):
        from distributed.protocol import dask_deserialize, dask_serialize

        array = velmar.single([[1j, 2]], is_complex=True)
        buffers = []
        stored = pickle.dumps(dask_serialize(array), protocol=5, buffer_callback=buffers.append)
        assert [buffer.raw().nbytes for buffer in buffers] == [16]
        header, frames = pickle.loads(stored, buffers=buffers)
        assert dask_deserialize.dispatch(velmar.single)(header, frames) == array

    def test_memory_is_that_of_the_storage(self, dask_registered):
        from dask.sizeof import sizeof

        array = velmar.double(size=(100, 10))
        assert sizeof(array) == sizeof(array[0]) == 8 * 1000
        assert sizeof(velmar.int8(size=(3, 3), is_complex=True)) == 2 * 9

    def test_token_is_of_class_shape_and_elements(self, dask_registered):
        from dask.tokenize import tokenize

        array = velmar.int8([[1, 0], [0, 1]])
        token = tokenize(array)
        assert token == tokenize(array.clone()) == tokenize(array[:])
        others = [
            velmar.int8([[1, 0], [1, 1]]),
            velmar.uint8([[1, 0], [0, 1]]),
            velmar.int8([1, 0, 0, 1]),
            velmar.int8([[1, 0], [0, 1]], is_complex=True),
            array[::-1],
        ]
        assert len({token, *map(tokenize, others)}) == 6
        array[0][0] = 0
        assert tokenize(array) != token

    def test_unregistered(self):
        from distributed.protocol import serialize

        array = velmar.int8([[1, 2]])
        before = pickle.dumps(array)
        transport.register_dask()
        assert serialize(array)[0]["serializer"] == "dask"
        assert pickle.dumps(array) == before
        transport.unregister_dask()
        transport.unregister_dask()
        assert serialize(array)[0]["serializer"] == "pickle"


@needs("distributed")
class TestDaskCluster:
    # A pickle loses such shapes, so the result shows that the array was sent packed.
    def test_argument_and_result(self, client):
        scattered = client.scatter(velmar.double(size=(0, 3)))
        assert client.submit(workers.same, scattered).result(SECONDS).size == (0, 3)

    def test_results_depend_on_results(self, client):
        first = client.submit(workers.scaled, velmar.int32([[1, 2], [3, 4]]), 10)
        second = client.submit(workers.reversed_rows, first)
        assert contents(second.result(SECONDS)) == [[30, 40], [10, 20]]

    def test_in_containers(self, client):
        arrays = {"a": [velmar.int8([[1j]], is_complex=True), velmar.logical([1, 0])]}
        scattered = client.scatter([arrays], hash=False)
        assert client.submit(workers.same, scattered[0]).result(SECONDS) == arrays

    def test_workers_that_come_later(self, client):
        client.cluster.scale(2)
        client.wait_for_workers(2, timeout=SECONDS)
        told = client.run(registered_with_dask)
        assert list(told.values()) == [True, True]

    def test_unregistered(self, client):
        transport.unregister_dask(client)
        assert set(client.run(registered_with_dask).values()) == {False}
        array = velmar.int8([[1, 2]])
        assert client.submit(workers.same, client.scatter(array)).result(SECONDS) == array
        transport.register_dask(client)
        assert set(client.run(registered_with_dask).values()) == {True}


def registered_with_dask():
    from distributed.protocol import dask_serialize

    return velmar.double in dask_serialize._lookup


@pytest.fixture(scope="module")
def ray():
    with pytest.MonkeyPatch.context() as patch:
        patch.setenv("RAY_AUTH_MODE", "disabled")
        import ray

        ray.init(
            num_cpus=1,
            include_dashboard=False,
            object_store_memory=100 * 2**20,
            runtime_env={
                "env_vars": {"PYTHONPATH": os.pathsep.join(sys.path)},
                "worker_process_setup_hook": transport.register_ray,
            },
        )
        transport.register_ray()
        yield ray
        transport.unregister_ray()
        ray.shutdown()


@needs("ray")
class TestRay:
    @each_form
    def test_through_the_object_store(self, ray, row, is_complex):
        array = row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)
        back = ray.get(ray.put(array))
        assert type(back) is row.cls
        assert exact(contents(back)) == exact(contents(array))

    def test_argument_and_result(self, ray):
        same = ray.remote(workers.same)
        array = velmar.int64(size=(0, 3), is_complex=True)
        back = ray.get(same.remote([array, 1]), timeout=SECONDS)[0]
        assert (back.size, back._is_complex) == ((0, 3), True)

    def test_large(self, ray):
        array = velmar.double(vector=range(200000), size=(400, 500))
        assert ray.get(ray.remote(workers.same).remote(array), timeout=SECONDS) == array

    def test_pickle_stays_as_it_is(self, ray):
        array = velmar.int8([[1, 2]])
        assert b"transport" not in pickle.dumps(array)
        assert not set(copyreg.dispatch_table) & {velmar.int8, velmar.double}

    def test_unregistered(self, ray):
        transport.unregister_ray()
        assert ray.get(ray.put(velmar.double(size=(0, 3)))).size == (0, 0)
        transport.register_ray()
        assert ray.get(ray.put(velmar.double(size=(0, 3)))).size == (0, 3)
