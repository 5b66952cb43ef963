"""Builds with clang++ and tests what it built. script/compilers has the options."""

import os
import sys

from count import report
from suite import (
    ROOT,
    find_interpreters,
    fresh_results,
    make_environment,
    run_native_suites,
    run_pytest,
    say,
    test_example,
)
from wheel import build_wheel

FLAGS = {"clang": "", "libcxx": "-stdlib=libc++"}
WHEEL_TESTS = {
    "client_kit": ["tests/wheel/test_client_kit.py", "tests/wheel/test_native_clients_page.py"],
    "recipes": ["tests/wheel/test_recipes.py"],
}


def test_with(results, name, flags, native):
    folder = ROOT / "build/compilers" / name
    settings = {"CXX": "clang++", "CXXFLAGS": flags}
    definitions = {"CMAKE_CXX_COMPILER": "clang++", "CMAKE_CXX_FLAGS": flags}
    options = {"native": native, "definitions": definitions, "settings": settings}
    wheel = build_wheel(folder, folder / "build", **options)
    say(f"{name}: built without a warning")
    python = make_environment(f"compilers-{name}", find_interpreters()[0][1], wheel)

    for suite, tests in WHEEL_TESTS.items():
        if not (flags and suite == "recipes"):  # the recipes have flags of their own
            options = [*tests, "--wheel", wheel]
            run_pytest(results, f"{name}_{suite}", sys.executable, *options, settings=settings)
    test_example(results, f"{name}_example", folder / "example", python, flags, settings)
    options = ["-n", os.cpu_count(), "--dist", "worksteal"]
    brief = settings | {"HYPOTHESIS_PROFILE": "brief"}
    run_pytest(results, f"{name}_python", python, *options, settings=brief)
    if native:
        run_native_suites(results, folder / "build", python, prefix=f"{name}_")


def main():
    results = fresh_results("compilers")
    for name, flags in FLAGS.items():
        test_with(results, name, flags, native=sys.argv[1:] == ["--native"])
    return 0 if report([results], with_logs=True) else 1


if __name__ == "__main__":
    sys.exit(main())
