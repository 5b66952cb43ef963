"""Coverage-guided fuzzing of the sanitizer build (AddressSanitizer, UndefinedBehaviorSanitizer).

The engine is the libFuzzer of atheris, with the coverage of the native code. Without atheris the
inputs are random bytes, and the results say so.
"""

from __future__ import annotations

import ctypes
import json
import math
import random
import sys
import time
from collections.abc import Callable
from typing import Any

import part
from helpers.arrays import CLASS_ROWS, contents
from helpers.buffer_requests import ask, give_back, memory_of, numbers
from helpers.hostile_objects import any_exporter, has_endless_rows
from helpers.hostile_walk import Walk, expect_noise
from helpers.lying_exporter import LyingExporter
from helpers.program_runs import Run
from helpers.program_steps import next_step
from helpers.program_text import Writer

FIRST_INPUTS = 24
LONGEST_INPUT = 1024  # bytes
MAP = 1 << 16  # the counters of coverage_map.cpp
MOST_STEPS = 40  # of an input


class Disagreement(Exception):
    """A finding that the fuzzer has to report."""


class Bytes(random.Random):
    """The random numbers of a target: from the input, and pseudo-random ones after its end."""

    def __init__(self, data: bytes):
        super().__init__(0)
        self.data, self.place = data, 0

    def is_over(self) -> bool:
        return self.place >= len(self.data)

    def getrandbits(self, k: int) -> int:
        if self.is_over():
            return super().getrandbits(k)
        size = (k + 7) // 8
        taken = self.data[self.place : self.place + size]
        self.place += size
        return int.from_bytes(taken.ljust(size, b"\0"), "little") & ((1 << k) - 1)

    def random(self) -> float:
        return self.getrandbits(16) / (1 << 16)


def follow(rng: Bytes, step: Callable[[], Any], look: Callable[[], Any]) -> None:
    """Performs steps until the bytes are used up, and then looks at everything."""
    for _ in range(MOST_STEPS):
        if rng.is_over():
            break
        report(step())
    report(look())


def report(found: Any) -> None:
    if found:
        raise Disagreement(str(found))


def programs(data: bytes) -> None:
    """Runs a program in the module and in the model."""
    rng, run = Bytes(data), Run()
    writer = Writer(rng, run.model)
    follow(rng, lambda: run.step(next_step(writer)[1]), run.look)


def hostile(data: bytes) -> None:
    """Runs a walk with hostile objects."""
    rng = Bytes(data)
    walk = Walk(rng)
    follow(rng, walk.step, walk.disagreement)


def buffers(data: bytes) -> None:
    """Imports memory with any description, and exports it with any flags."""
    rng = Bytes(data)
    row = rng.choice(CLASS_ROWS)
    is_complex = row.has_complex and rng.randrange(3) == 0
    exporter = any_exporter(LyingExporter, rng, row, is_complex)
    options: dict[str, Any] = {"is_complex": True} if is_complex else {}
    if rng.randrange(4) == 0:
        options["size"] = [rng.randrange(6) for _ in range(rng.randrange(1, 4))]
    try:
        array = row.cls(exporter, **options)
    except Exception:
        array = row.cls([[1, 0, 1], [0, 1, 0]], is_complex=is_complex)
    look_at(array)
    for _ in range(rng.randrange(1, 6)):
        is_whole = rng.randrange(3) > 0 or has_endless_rows(array)
        part_of_it = array if is_whole else array[any_slice(rng)]
        answer = ask(part_of_it, rng.getrandbits(rng.choice([5, 9, 16])))
        if answer.error is None:
            check(answer.buffer)
            give_back(answer)
        if rng.randrange(3) == 0:
            count = array.buffer_info()[1]
            array.reshape(rng.choice([[count], [count, 1], [1, count]]))


def any_slice(rng: random.Random) -> slice:
    bounds = [None, 0, 1, 2, -1, 5, 2**63 - 1, -(2**63)]
    step = rng.choice([None, 1, -1, 2, 2**63 - 1])
    return slice(rng.choice(bounds), rng.choice(bounds), step)


def look_at(array: Any) -> None:
    if has_endless_rows(array):
        return
    repr(array)
    found, size = contents(array), array.size
    if len(found) != size[0] or len(array) != size[0]:
        report(f"{array}: length {len(array)}, size {size}")
    if 0 not in size and "nan" not in repr(array) and array.clone() != array:
        report(f"{array} is not like its clone")


def check(buffer: Any) -> None:
    """All exported bytes must be readable, and the description must be consistent."""
    memory_of(buffer)
    if buffer.shape and buffer.ndim > 0:
        count = math.prod(numbers(buffer.shape, buffer.ndim))
        if count * buffer.itemsize != buffer.len:
            report(f"{count} elements of {buffer.itemsize} bytes in {buffer.len}")
    if buffer.strides:
        numbers(buffer.strides, buffer.ndim)


TARGETS = {"programs": programs, "hostile": hostile, "buffers": buffers}


def register_counters(engine: Any) -> None:
    """Registers the counters of the native code, and their places, with the engine."""
    library = ctypes.CDLL("libcoverage_map.so")  # which the module has loaded
    counters = ctypes.addressof((ctypes.c_uint8 * MAP).in_dll(library, "coverage_counters"))
    places = ctypes.addressof((ctypes.c_size_t * (2 * MAP)).in_dll(library, "coverage_places"))
    core = ctypes.CDLL(engine.__file__)
    for function, start, size in (
        (core.__sanitizer_cov_8bit_counters_init, counters, MAP),
        (core.__sanitizer_cov_pcs_init, places, 2 * MAP * ctypes.sizeof(ctypes.c_size_t)),
    ):
        function(ctypes.c_void_p(start), ctypes.c_void_p(start + size))


def throw_bytes(target: Any, arguments: Any) -> None:
    """Random inputs, if there is no engine."""
    rng, count = random.Random(arguments.seed), 0
    while time.monotonic() < arguments.end:
        target(rng.randbytes(rng.randrange(8, LONGEST_INPUT)))
        count += 1
    print(json.dumps({"engine": "random bytes", "inputs": count}))


def main() -> None:
    arguments = part.begin(__doc__, target={"choices": TARGETS, "default": "buffers"})
    expect_noise()
    target = TARGETS[arguments.target]
    folder = part.WORKING_FOLDER / f"corpus-{arguments.target}"
    folder.mkdir(parents=True, exist_ok=True)
    rng = random.Random(arguments.seed)
    for i in range(FIRST_INPUTS):
        (folder / f"first-{i}").write_bytes(rng.randbytes(rng.randrange(40, LONGEST_INPUT)))
    sys.path += map(str, part.ROOT.glob("build/environments/torture/lib/*/site-packages"))
    try:
        import atheris
        from atheris import core_with_libfuzzer
    except ImportError:
        return throw_bytes(target, arguments)
    register_counters(core_with_libfuzzer)
    artifacts = part.WORKING_FOLDER / f"found-{arguments.target}-"
    options = [f"-max_total_time={max(int(arguments.seconds), 1)}", f"-seed={arguments.seed + 1}"]
    options += [
        f"-max_len={LONGEST_INPUT}",
        "-len_control=0",
        "-print_final_stats=1",
        "-timeout=60",
    ]
    options += ["-rss_limit_mb=0", f"-artifact_prefix={artifacts}", str(folder)]
    atheris.Setup([sys.argv[0], *options], target)
    atheris.Fuzz()  # does not return


if __name__ == "__main__":
    main()
