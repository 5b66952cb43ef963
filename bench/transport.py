# Compares packed and pickled arrays between processes; prints Markdown tables.

import argparse
import copy
import os
import pickle
import platform
import sys
from concurrent.futures import ProcessPoolExecutor
from contextlib import contextmanager
from functools import partial
from importlib.util import find_spec
from multiprocessing import get_context
from pathlib import Path

import measure
import velmar
from figure_text import ratio_text, table, time_text
from helpers.process_workers import same
from velmar import transport

SECONDS = 120  # timeout for a result
LONG_ENOUGH = 5
DASK = {"n_workers": 1, "threads_per_worker": 1, "dashboard_address": None}
MARKS = "<!-- figures -->", "<!-- end of figures -->"


def square(side):
    return velmar.double(vector=range(side * side), size=(side, side))


def zeros(side):
    return velmar.double(size=(side, side))


def through_pickle(array):
    return pickle.loads(pickle.dumps(array, pickle.HIGHEST_PROTOCOL))


def through_pack(array):
    return transport.unpack(*transport.pack(array))


@contextmanager
def registered(way, packed):
    """Registers until the end of the table. Yields the function for workers, or None."""
    register = getattr(transport, f"register_{way}") if packed else None
    if packed:
        register()
    yield register
    if packed:
        getattr(transport, f"unregister_{way}")()


# --- The tables. A function yields the jobs with their names; it closes what they need at its end.


def in_one_process(array, packed):
    side = len(array)
    way = through_pack if packed else through_pickle
    yield "double, 10 by 10", partial(way, square(10))
    yield f"double, {side} by {side}", partial(way, array)
    yield f"its rows from 1 on, a view, {side - 1} by {side}", partial(way, array[1:])
    single = velmar.single(array, is_complex=True)
    yield f"complex single, {side} by {side}", partial(way, single)
    int16 = velmar.int16(size=(side, side), is_complex=True)
    yield f"complex int16, {side} by {side}", partial(way, int16)
    yield f"logical, {side} by {side}", partial(way, velmar.logical(size=(side, side)))


def in_a_pool(array, packed):
    side = len(array)
    with (
        registered("multiprocessing", packed) as register,
        ProcessPoolExecutor(1, get_context("spawn"), register) as pool,
    ):

        def result(*call):
            return pool.submit(*call).result(SECONDS)

        yield f"argument and result, {side} by {side}", partial(result, same, array)
        yield f"result only, {side} by {side}", partial(result, zeros, side)
        yield "as many bytes there and back", partial(result, same, bytes(8 * side * side))


def after_register_pickle(array, packed):
    fork = get_context("fork")

    def in_pool():
        with fork.Pool(1, register) as pool:
            pool.apply_async(same, (array,)).get(SECONDS)

    def in_executor():
        with ProcessPoolExecutor(1, fork, register) as pool:
            pool.submit(same, array).result(SECONDS)

    with registered("pickle", packed) as register:
        yield "pickle, there and back", partial(through_pickle, array)
        yield "copy.copy", partial(copy.copy, array)
        yield "multiprocessing.Pool, forked", in_pool
        yield "ProcessPoolExecutor, forked", in_executor


def in_joblib(array, packed):
    import joblib

    def in_backend(backend, **settings):
        with joblib.parallel_config(backend, n_jobs=2, **settings):
            joblib.Parallel()(joblib.delayed(same)(a) for a in (array, array))

    with registered("pickle", packed) as register:
        yield "backend loky", partial(in_backend, "loky", initializer=register)
        yield "backend multiprocessing", partial(in_backend, "multiprocessing")
        yield "backend threading", partial(in_backend, "threading")
        yield "joblib.hash", partial(joblib.hash, array)


def in_dask_after_register_pickle(array, packed):
    from dask.tokenize import tokenize
    from distributed import Client

    def in_submit():
        if packed:
            client.run(register)
        client.submit(same, array, pure=False).result(SECONDS)

    with Client(**DASK) as client, registered("pickle", packed) as register:
        yield "token", partial(tokenize, array)
        yield "argument of submit, result fetched", in_submit


def under_dask(array, packed):
    from dask.tokenize import tokenize
    from distributed import Client, wait

    with Client(**DASK) as client:
        if packed:
            transport.register_dask(client)
        submit = partial(client.submit, pure=False)
        scatter = partial(client.scatter, array, hash=False)
        yield "token", partial(tokenize, array)
        yield "scatter, a job on it", lambda: wait(submit(len, scatter()), timeout=SECONDS)
        yield "result fetched", lambda: submit(zeros, len(array)).result(SECONDS)
        yield "argument of submit, result fetched", lambda: submit(same, array).result(SECONDS)


def under_ray(array, packed):
    os.environ["RAY_AUTH_MODE"] = "disabled"
    import ray

    environment = {"env_vars": {"PYTHONPATH": os.pathsep.join(sys.path)}}
    if packed:
        environment["worker_process_setup_hook"] = transport.register_ray
    ray.init(
        num_cpus=1,
        include_dashboard=False,
        log_to_driver=False,
        object_store_memory=max(100 * 2**20, 20 * 8 * len(array) ** 2),
        runtime_env=environment,
    )
    if packed:
        transport.register_ray()
    task = ray.remote(same)
    yield "put and get", lambda: ray.get(ray.put(array))
    yield "argument and result of a task", lambda: ray.get(task.remote(array))
    ray.shutdown()


# The package that a table needs, and its title.
TABLES = {
    in_one_process: ("velmar", "there and back in one process"),
    in_a_pool: ("velmar", "ProcessPoolExecutor, one spawned process"),
    after_register_pickle: (
        "velmar",
        "register_pickle(), {0} by {0}; processes are started in this time",
    ),
    in_joblib: ("joblib", "joblib, two arrays to two jobs and back, {0} by {0}"),
    in_dask_after_register_pickle: ("distributed", "Dask after register_pickle(), {0} by {0}"),
    under_dask: ("distributed", "Dask, one worker process, {0} by {0}"),
    under_ray: ("ray", "Ray, one worker, {0} by {0}"),
}


def best_of(job, repeats):
    """The best time of some runs; of fewer runs if they take long."""
    sampler = measure.Sampler("job()", {"job": job}, least_seconds=0)
    repeats = min(repeats, 1 + int(LONG_ENOUGH / sampler.seconds))
    return min(measure.samples_of({job: sampler}, {job: repeats})[job])


def table_of(jobs_of, package, title, side, repeats):
    if find_spec(package) is None:
        return f"{package} is not installed."
    took = {}
    for packed in (False, True):
        for name, job in jobs_of(square(side), packed):
            took.setdefault(name, []).append(best_of(job, repeats))
    rows = [
        [name, time_text(pickled), time_text(packed), ratio_text(pickled / packed, digits=1)]
        for name, (pickled, packed) in took.items()
    ]
    return table([title.format(side), "pickled", "packed", "ratio"], rows)


def written_into(page, figures):
    """The text of the page with these results between its marks, which must be there."""
    before, rest = page.split(MARKS[0])
    _, after = rest.split(MARKS[1])
    return f"{before}{MARKS[0]}\n\n{figures}\n\n{MARKS[1]}{after}"


def main():
    parser = argparse.ArgumentParser(description="Compares packed and pickled arrays.")
    add = parser.add_argument
    add("--side", type=int, default=1000, help="rows and columns of the arrays")
    add("--repeats", type=int, default=9)
    add("--only", nargs="+", help="the functions of this file that measure")
    add("--page", type=Path, help="a page to write the results into, between its two marks")
    options = parser.parse_args()
    figures = [
        f"Best of up to {options.repeats} runs; CPython {platform.python_version()}, "
        f"{os.cpu_count()} cores, load {os.getloadavg()[0]:.1f} from other work at the start."
    ]
    print(figures[0], end="\n\n")
    for jobs_of, (package, title) in TABLES.items():
        if not options.only or jobs_of.__name__ in options.only:
            figures.append(table_of(jobs_of, package, title, options.side, options.repeats))
            print(figures[-1], end="\n\n", flush=True)
    if options.page:
        page = options.page.read_text(encoding="utf-8")
        options.page.write_text(written_into(page, "\n\n".join(figures)), encoding="utf-8")


if __name__ == "__main__":
    main()
