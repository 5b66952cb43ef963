"""Coverage-guided fuzzing of the sanitizer build (AddressSanitizer, UndefinedBehaviorSanitizer).

The engine is the libFuzzer of atheris, with the coverage of the native code. Without atheris the
inputs are random bytes, and the results say so.
"""

from __future__ import annotations

import ctypes
import random
import re
import subprocess
import sys
import warnings
from typing import Any

import part
import sanitized

PACKAGES = part.WORKING_FOLDER / "packages"
FIRST_INPUTS = 24
MOST_BYTES = 1024
MAP = 1 << 16  # the counters of coverage_map.cpp


def register_counters(engine: Any) -> None:
    """Registers the counters of the native code, and their places, with the engine."""
    library = ctypes.CDLL(str(sanitized.coverage_library()))
    counters = ctypes.addressof((ctypes.c_uint8 * MAP).in_dll(library, "coverage_counters"))
    places = ctypes.addressof((ctypes.c_size_t * (2 * MAP)).in_dll(library, "coverage_places"))
    core = ctypes.CDLL(engine.__file__)
    for function, start, size in (
        (core.__sanitizer_cov_8bit_counters_init, counters, MAP),
        (core.__sanitizer_cov_pcs_init, places, 2 * MAP * ctypes.sizeof(ctypes.c_size_t)),
    ):
        function(ctypes.c_void_p(start), ctypes.c_void_p(start + size))


def fuzz(target: Any, engine_arguments: list[str]) -> None:
    """In the child: does not return."""
    import atheris
    from atheris import core_with_libfuzzer

    register_counters(core_with_libfuzzer)
    atheris.Setup([sys.argv[0], *engine_arguments], target)
    atheris.Fuzz()


def throw_bytes(target: Any, seconds: float, seed: int) -> None:
    """Random inputs, if there is no engine."""
    rng, clock, count = random.Random(seed), part.Clock(seconds), 0
    while not clock.is_over():
        target(rng.randbytes(rng.randrange(8, MOST_BYTES)))
        count += 1
    print(f"#{count}\tDONE", file=sys.stderr)
    print(f"stat::number_of_executed_units: {count}", file=sys.stderr)


def run_child(arguments: Any) -> int:
    warnings.simplefilter("ignore")
    sys.unraisablehook = lambda _: None
    from fuzz_targets import TARGETS

    target = TARGETS[arguments.target]
    folder = part.WORKING_FOLDER / f"corpus-{arguments.target}"
    folder.mkdir(parents=True, exist_ok=True)
    rng = random.Random(arguments.seed)
    for i in range(FIRST_INPUTS):
        (folder / f"first-{i}").write_bytes(rng.randbytes(rng.randrange(40, MOST_BYTES)))
    try:
        import atheris  # noqa: F401
    except ImportError:
        throw_bytes(target, arguments.seconds, arguments.seed)
        return 0
    artifacts = part.WORKING_FOLDER / f"found-{arguments.target}-"
    options = [f"-max_total_time={max(int(arguments.seconds), 1)}", f"-seed={arguments.seed + 1}"]
    options += [f"-max_len={MOST_BYTES}", "-len_control=0", "-print_final_stats=1", "-timeout=60"]
    options += ["-rss_limit_mb=0", f"-artifact_prefix={artifacts}", str(folder)]
    fuzz(target, options)
    return 0


def number(pattern: str, text: str) -> int:
    found = re.findall(pattern, text)
    return int(found[-1]) if found else 0


def main() -> int:
    parser = part.parser(__doc__)
    parser.add_argument("--target", choices=["programs", "hostile", "buffers"], default="buffers")
    parser.add_argument("--child", action="store_true", help="run in this process, not in a child")
    arguments = parser.parse_args()
    part.prepare()
    sys.path.append(str(PACKAGES))
    if arguments.child:
        return run_child(arguments)
    name = f"fuzz-{arguments.target}"
    environment = sanitized.environment(name)
    clock = part.Clock(arguments.seconds)
    command = [sys.executable, *sys.argv, "--child"]
    log = part.WORKING_FOLDER / f"{name}.log"
    with open(log, "w") as file:
        done = subprocess.run(
            command, env=environment, stdout=subprocess.DEVNULL, stderr=file, check=False
        )
    text = log.read_text(errors="replace")
    reports = sanitized.reports(name)
    findings = list(reports)
    if "Disagreement" in text:
        findings.append(text[-3000:])
    elif done.returncode and not reports:
        findings.append(f"ended with {done.returncode}: {text[-3000:]}")
    figures = {
        "part": name,
        "seed": arguments.seed,
        "engine": "libFuzzer" if "INFO: Seed:" in text else "random bytes",
        "inputs": number(r"number_of_executed_units: (\d+)", text),
        "places covered": number(r"cov: (\d+)", text),
        "corpus": number(r"corp: (\d+)", text),
        "sanitizer reports": len(reports),
        "divergences": "Disagreement" in text,
        "seconds": clock.seconds(),
    }
    return part.finish(figures, findings)


if __name__ == "__main__":
    sys.exit(main())
