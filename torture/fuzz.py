"""Coverage-guided fuzzing of the sanitizer build (AddressSanitizer, UndefinedBehaviorSanitizer).

The engine is the libFuzzer of atheris, with the coverage of the native code. Without atheris the
inputs are random bytes, and the results say so.
"""

from __future__ import annotations

import ctypes
import random
import re
import sys
from typing import Any

import part
import sanitized

FIRST_INPUTS = 24
MOST_BYTES = 1024
MAP = 1 << 16  # the counters of coverage_map.cpp


def register_counters(engine: Any) -> None:
    """Registers the counters of the native code, and their places, with the engine."""
    library = ctypes.CDLL(str(sanitized.LIBRARIES / "libcoverage_map.so"))
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
    while not arguments.clock.is_over():
        target(rng.randbytes(rng.randrange(8, MOST_BYTES)))
        count += 1
    print(f"stat::number_of_executed_units: {count}", file=sys.stderr)


def run_target(arguments: Any) -> int:
    from fuzz_targets import TARGETS
    from helpers.hostile_walk import expect_noise

    expect_noise()
    target = TARGETS[arguments.target]
    folder = part.WORKING_FOLDER / f"corpus-{arguments.target}"
    folder.mkdir(parents=True, exist_ok=True)
    rng = random.Random(arguments.seed)
    for i in range(FIRST_INPUTS):
        (folder / f"first-{i}").write_bytes(rng.randbytes(rng.randrange(40, MOST_BYTES)))
    sys.path.append(str(part.WORKING_FOLDER / "packages"))
    try:
        import atheris
        from atheris import core_with_libfuzzer
    except ImportError:
        throw_bytes(target, arguments)
        return 0
    register_counters(core_with_libfuzzer)
    artifacts = part.WORKING_FOLDER / f"found-{arguments.target}-"
    options = [f"-max_total_time={max(int(arguments.seconds), 1)}", f"-seed={arguments.seed + 1}"]
    options += [f"-max_len={MOST_BYTES}", "-len_control=0", "-print_final_stats=1", "-timeout=60"]
    options += ["-rss_limit_mb=0", f"-artifact_prefix={artifacts}", str(folder)]
    atheris.Setup([sys.argv[0], *options], target)
    atheris.Fuzz()  # does not return
    return 0


def number(pattern: str, text: str) -> int:
    found = re.findall(pattern, text)
    return int(found[-1]) if found else 0


def main() -> int:
    target = {"choices": ["programs", "hostile", "buffers"], "default": "buffers"}
    arguments = part.begin(__doc__, target=target, child=part.IN_THIS_PROCESS)
    if arguments.child:
        return run_target(arguments)
    name = f"fuzz-{arguments.target}"
    log = part.WORKING_FOLDER / f"{name}.log"
    ended = part.run_child([*sys.argv, "--child"], log, sanitized.environment(name))
    reports = sanitized.reports(name)
    findings = list(reports)
    if "Disagreement" in ended.errors:
        findings.append(ended.errors[-3000:])
    elif ended.status and not reports:
        findings.append(f"ended with {ended.status}: {ended.errors[-3000:]}")
    figures = {
        "engine": "libFuzzer" if "INFO: Seed:" in ended.errors else "random bytes",
        "inputs": number(r"number_of_executed_units: (\d+)", ended.errors),
        "places covered": number(r"cov: (\d+)", ended.errors),
        "corpus": number(r"corp: (\d+)", ended.errors),
        "sanitizer reports": len(reports),
        "divergences": "Disagreement" in ended.errors,
    }
    return part.finish(name, arguments, figures, findings)


if __name__ == "__main__":
    sys.exit(main())
