# Compares packed and pickled arrays between processes; prints Markdown tables.

import argparse
import copy
import os
import pickle
import platform
import sys
import timeit
from concurrent.futures import ProcessPoolExecutor
from functools import partial
from multiprocessing import get_context
from pathlib import Path

import velmar
from figure_text import ratio_text, table, time_text
from velmar import transport

MARKS = "<!-- figures -->", "<!-- end of figures -->"


def square(side):
    return velmar.double(vector=range(side * side), size=(side, side))


def zeros(side):
    return velmar.double(size=(side, side))


def same(value):
    return value


def through_pickle(array):
    return pickle.loads(pickle.dumps(array, pickle.HIGHEST_PROTOCOL))


def through_pack(array):
    return transport.unpack(*transport.pack(array))


def registered(register, packed):
    """Registers if arrays are to be packed. Returns the function for workers, or None."""
    if packed:
        register()
        return register
    return None


# --- The tables, with their titles. A function yields the jobs with their names, and at its end it
# closes what it opened. It is called twice, the second time for packed arrays.


def in_one_process(array, packed):
    """there and back in one process"""
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
    """ProcessPoolExecutor, one spawned process"""
    side = len(array)
    register = registered(transport.register_multiprocessing, packed)
    with ProcessPoolExecutor(1, get_context("spawn"), register) as pool:
        yield f"argument and result, {side} by {side}", lambda: pool.submit(same, array).result()
        yield f"result only, {side} by {side}", lambda: pool.submit(zeros, side).result()
        plain = bytes(8 * side * side)
        yield "as many bytes there and back", lambda: pool.submit(same, plain).result()


def after_register_pickle(array, packed):
    """register_pickle(), {0} by {0}; processes are started in this time"""
    fork = get_context("fork")
    register = registered(transport.register_pickle, packed)

    def in_pool():
        with fork.Pool(1, register) as pool:
            pool.apply(same, (array,))

    def in_executor():
        with ProcessPoolExecutor(1, fork, register) as pool:
            pool.submit(same, array).result()

    yield "pickle, there and back", partial(through_pickle, array)
    yield "copy.copy", partial(copy.copy, array)
    yield "multiprocessing.Pool, forked", in_pool
    yield "ProcessPoolExecutor, forked", in_executor


def in_joblib(array, packed):
    """joblib, two arrays to two jobs and back, {0} by {0}"""
    import joblib

    def in_backend(backend, **settings):
        with joblib.parallel_config(backend, n_jobs=2, **settings):
            joblib.Parallel()(joblib.delayed(same)(a) for a in (array, array))

    register = registered(transport.register_pickle, packed)
    yield "backend loky", partial(in_backend, "loky", initializer=register)
    yield "backend multiprocessing", partial(in_backend, "multiprocessing")
    yield "backend threading", partial(in_backend, "threading")
    yield "joblib.hash", partial(joblib.hash, array)


def under_dask(array, packed):
    """Dask, one worker process, {0} by {0}"""
    from dask.tokenize import tokenize
    from distributed import Client, wait

    with Client(n_workers=1, threads_per_worker=1, dashboard_address=None) as client:
        submit = partial(client.submit, pure=False)
        scatter = partial(client.scatter, array, hash=False)
        if packed:
            transport.register_pickle()
            client.run(transport.register_pickle)
        yield "register_pickle(): token", partial(tokenize, array)
        yield "register_pickle(): argument, result", lambda: submit(same, array).result()
        if packed:
            transport.unregister_pickle()
            client.run(transport.unregister_pickle)
            transport.register_dask(client)
        yield "token", partial(tokenize, array)
        yield "scatter, a job on it", lambda: wait(submit(len, scatter()))
        yield "result fetched", lambda: submit(zeros, len(array)).result()
        yield "argument of submit, result fetched", lambda: submit(same, array).result()


def under_ray(array, packed):
    """Ray, one worker, {0} by {0}"""
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


TABLES = (in_one_process, in_a_pool, after_register_pickle, in_joblib, under_dask, under_ray)


def best_of_each(jobs_of, side, packed, repeats):
    for name, job in jobs_of(square(side), packed):
        job()  # warm-up: starts processes, touches new pages
        yield name, min(timeit.repeat(job, number=1, repeat=repeats))
    transport.unregister_pickle()
    transport.unregister_multiprocessing()


def table_of(jobs_of, side, repeats):
    try:
        found = [list(best_of_each(jobs_of, side, packed, repeats)) for packed in (False, True)]
    except ModuleNotFoundError as error:
        return f"{error.name} is not installed."
    rows = [
        [name, time_text(pickled), time_text(packed), ratio_text(pickled / packed, digits=1)]
        for (name, pickled), (_, packed) in zip(*found, strict=True)
    ]
    return table([jobs_of.__doc__.format(side), "pickled", "packed", "ratio"], rows)


def write_into(page, figures):
    """Replaces what is between the marks of the page, which must be there."""
    before, rest = page.read_text(encoding="utf-8").split(MARKS[0])
    _, after = rest.split(MARKS[1])
    page.write_text(f"{before}{MARKS[0]}\n\n{figures}\n\n{MARKS[1]}{after}", encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description="Compares packed and pickled arrays.")
    add = parser.add_argument
    add("--side", type=int, default=1000, help="rows and columns of the arrays")
    add("--repeats", type=int, default=9)
    add("--only", nargs="+", help="the functions of this file that measure")
    add("--page", type=Path, help="a page to write the results into, between its two marks")
    options = parser.parse_args()
    figures = [
        f"Best of {options.repeats} runs; CPython {platform.python_version()}, "
        f"{os.cpu_count()} cores, load {os.getloadavg()[0]:.1f} from other work at the start."
    ]
    print(figures[0], end="\n\n")
    for jobs_of in TABLES:
        if not options.only or jobs_of.__name__ in options.only:
            figures.append(table_of(jobs_of, options.side, options.repeats))
            print(figures[-1], end="\n\n", flush=True)
    if options.page:
        write_into(options.page, "\n\n".join(figures))


if __name__ == "__main__":
    main()
