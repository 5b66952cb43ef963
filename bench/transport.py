# Compares packed and pickled arrays between processes; prints Markdown tables.

import argparse
import copy
import importlib.util
import os
import pickle
import platform
import sys
import time
from concurrent.futures import ProcessPoolExecutor
from multiprocessing import get_context
from pathlib import Path

import velmar
from velmar import transport

SECONDS = 120  # timeout for a result
LONG_ENOUGH = 5
MARKS = "<!-- figures -->", "<!-- end of figures -->"


def identity(array):
    return array


def made(side):
    return velmar.double(size=(side, side))


def seconds_of(action, repeats):
    """The best time of some runs after a warm-up; fewer runs if they take long."""
    action()
    seconds = []
    while len(seconds) < repeats and sum(seconds) < LONG_ENOUGH:
        start = time.perf_counter()
        action()
        seconds.append(time.perf_counter() - start)
    return min(seconds)


def text_of(seconds):
    for unit, size in (("s", 1), ("ms", 1e-3)):
        if seconds >= size:
            return f"{seconds / size:.3g} {unit}"
    return f"{seconds * 1e6:.3g} us"


def ratio_of(pickled, packed):
    ratio = pickled / packed
    return f"{ratio:.1f}" if ratio < 10 else f"{ratio:.0f}"


def table(title, rows):
    """A Markdown table; a row is a name, the seconds pickled and the seconds packed."""
    lines = [f"| {title} | pickled | packed | ratio |", "|---|---|---|---|"]
    for name, *took in rows:
        lines.append(f"| {name} | {' | '.join(map(text_of, took))} | {ratio_of(*took)} |")
    return "\n".join(lines)


def through_pickle(array):
    return pickle.loads(pickle.dumps(array, pickle.HIGHEST_PROTOCOL))


def through_pack(array):
    return transport.unpack(*transport.pack(array))


def in_one_process(side, repeats):
    whole = velmar.double(vector=range(side * side), size=(side, side))
    arrays = [
        ("double, 10 by 10", velmar.double(vector=range(100), size=(10, 10))),
        (f"double, {side} by {side}", whole),
        (f"its rows from 1 on, a view, {side - 1} by {side}", whole[1:]),
        (f"complex single, {side} by {side}", velmar.single(whole, is_complex=True)),
        (f"complex int16, {side} by {side}", velmar.int16(size=(side, side), is_complex=True)),
        (f"logical, {side} by {side}", velmar.logical(size=(side, side))),
    ]
    rows = []
    for name, array in arrays:
        took = [
            seconds_of(lambda way=way, array=array: way(array), repeats)
            for way in (through_pickle, through_pack)
        ]
        rows.append((name, *took))
    return table("there and back in one process", rows)


def in_a_pool(side, repeats):
    array = velmar.double(vector=range(side * side), size=(side, side))
    rows = [(f"argument and result, {side} by {side}", lambda pool: pool.submit(identity, array))]
    rows.append((f"result only, {side} by {side}", lambda pool: pool.submit(made, side)))
    plain = bytes(8 * side * side)
    rows.append(("as many bytes there and back", lambda pool: pool.submit(identity, plain)))
    took = {name: [] for name, _ in rows}
    for initializer in (None, transport.register_multiprocessing):
        if initializer is not None:
            initializer()
        with ProcessPoolExecutor(1, get_context("spawn"), initializer) as pool:
            for name, submit in rows:
                took[name].append(
                    seconds_of(lambda pool=pool, f=submit: f(pool).result(SECONDS), repeats)
                )
    transport.unregister_multiprocessing()
    return table("ProcessPoolExecutor, one spawned process", [(name, *took[name]) for name in took])


def both_ways(jobs, repeats):
    """Rows of jobs, before and after register_pickle(). A job gets the function for the workers."""
    took = {name: [] for name, _ in jobs}
    for register in (None, transport.register_pickle):
        if register is not None:
            register()
        for name, job in jobs:
            took[name].append(seconds_of(lambda job=job, told=register: job(told), repeats))
    transport.unregister_pickle()
    return [(name, *took[name]) for name in took]


def after_register_pickle(side, repeats):
    array = velmar.double(vector=range(side * side), size=(side, side))

    def in_executor(register):
        with ProcessPoolExecutor(1, get_context("fork"), register) as pool:
            return pool.submit(identity, array).result(SECONDS)

    def in_pool(register):
        with get_context("fork").Pool(1, register) as pool:
            return pool.apply_async(identity, (array,)).get(SECONDS)

    jobs = [
        ("pickle, there and back", lambda register: through_pickle(array)),
        ("copy.copy", lambda register: copy.copy(array)),
        ("multiprocessing.Pool, forked", in_pool),
        ("ProcessPoolExecutor, forked", in_executor),
    ]
    title = f"register_pickle(), {side} by {side}; processes are started in this time"
    return table(title, both_ways(jobs, repeats))


def in_joblib(side, repeats):
    import joblib

    array = velmar.double(vector=range(side * side), size=(side, side))

    def in_backend(backend, **told):
        with joblib.parallel_config(backend, n_jobs=2, **told):
            joblib.Parallel()(joblib.delayed(identity)(a) for a in (array, array))

    def in_loky(register):
        in_backend("loky", initializer=register)

    jobs = [
        ("backend loky", in_loky),
        ("backend multiprocessing", lambda register: in_backend("multiprocessing")),
        ("backend threading", lambda register: in_backend("threading")),
        ("joblib.hash", lambda register: joblib.hash(array)),
    ]
    return table(
        f"joblib, two arrays to two jobs and back, {side} by {side}", both_ways(jobs, repeats)
    )


def in_dask_after_register_pickle(side, repeats):
    from dask.tokenize import tokenize
    from distributed import Client, LocalCluster

    array = velmar.double(vector=range(side * side), size=(side, side))
    options = {"n_workers": 1, "threads_per_worker": 1, "dashboard_address": None}
    with LocalCluster(**options) as cluster, Client(cluster) as client:

        def in_submit(register):
            if register is not None:
                client.run(register)
            return client.submit(identity, array, pure=False).result(SECONDS)

        jobs = [
            ("token", lambda register: tokenize(array)),
            ("argument of submit, result fetched", in_submit),
        ]
        rows = both_ways(jobs, repeats)
    return table(f"Dask after register_pickle(), {side} by {side}", rows)


def under_dask(side, repeats):
    from dask.tokenize import tokenize
    from distributed import Client, LocalCluster, wait

    array = velmar.double(vector=range(side * side), size=(side, side))
    jobs = [
        ("token", lambda client: tokenize(array)),
        ("scatter, a job on it", lambda client: job_on_scattered(client, array, wait)),
        ("result fetched", lambda client: client.submit(made, side, pure=False).result(SECONDS)),
        (
            "argument of submit, result fetched",
            lambda client: client.submit(identity, array, pure=False).result(SECONDS),
        ),
    ]
    took = {name: [] for name, _ in jobs}
    options = {"n_workers": 1, "threads_per_worker": 1, "dashboard_address": None}
    with LocalCluster(**options) as cluster, Client(cluster) as client:
        for register in (None, transport.register_dask):
            if register is not None:
                register(client)
            for name, job in jobs:
                took[name].append(seconds_of(lambda job=job: job(client), repeats))
    return table(
        f"Dask, one worker process, {side} by {side}", [(name, *took[name]) for name in took]
    )


def job_on_scattered(client, array, wait):
    wait(client.submit(len, client.scatter(array, hash=False), pure=False), timeout=SECONDS)


def under_ray(side, repeats):
    os.environ["RAY_AUTH_MODE"] = "disabled"
    import ray

    array = velmar.double(vector=range(side * side), size=(side, side))
    took = {"put and get": [], "argument and result of a task": []}
    environment = {"env_vars": {"PYTHONPATH": os.pathsep.join(sys.path)}}
    hook = {"worker_process_setup_hook": transport.register_ray}
    for registered in (False, True):
        ray.init(
            num_cpus=1,
            include_dashboard=False,
            log_to_driver=False,
            object_store_memory=max(100 * 2**20, 20 * 8 * side * side),
            runtime_env=environment | (hook if registered else {}),
        )
        if registered:
            transport.register_ray()
        same = ray.remote(identity)
        took["put and get"].append(seconds_of(lambda: ray.get(ray.put(array)), repeats))
        took["argument and result of a task"].append(
            seconds_of(lambda same=same: ray.get(same.remote(array)), repeats)
        )
        ray.shutdown()
    return table(f"Ray, one worker, {side} by {side}", [(name, *took[name]) for name in took])


def written_into(page, figures):
    """The text of the page with these results between its marks."""
    before, _, rest = page.partition(MARKS[0])
    _, found, after = rest.partition(MARKS[1])
    if not found:
        raise ValueError(f"the page has no lines {MARKS[0]} and {MARKS[1]}.")
    return f"{before}{MARKS[0]}\n\n{figures}\n\n{MARKS[1]}{after}"


def main():
    parser = argparse.ArgumentParser(
        description="Compares packed and pickled arrays between processes."
    )
    parser.add_argument("--side", type=int, default=1000, help="rows and columns of the arrays")
    parser.add_argument("--repeats", type=int, default=9)
    parser.add_argument("--only", nargs="+", help="the functions of this file that measure")
    parser.add_argument("--page", type=Path, help="a page to write the results into")
    options = parser.parse_args()
    figures = [
        f"Best of up to {options.repeats} runs; CPython {platform.python_version()}, "
        f"{os.cpu_count()} cores, load {os.getloadavg()[0]:.1f} from other work at the start."
    ]
    print(figures[0], end="\n\n")
    for package, measure in (
        ("velmar", in_one_process),
        ("velmar", in_a_pool),
        ("velmar", after_register_pickle),
        ("joblib", in_joblib),
        ("distributed", in_dask_after_register_pickle),
        ("distributed", under_dask),
        ("ray", under_ray),
    ):
        if options.only and measure.__name__ not in options.only:
            continue
        if importlib.util.find_spec(package) is None:
            figures.append(f"{package} is not installed.")
        else:
            figures.append(measure(options.side, options.repeats))
        print(figures[-1], end="\n\n", flush=True)
    if options.page:
        page = options.page.read_text(encoding="utf-8")
        options.page.write_text(written_into(page, "\n\n".join(figures)), encoding="utf-8")


if __name__ == "__main__":
    main()
