"""Builds with clang++ and tests what it built. script/compilers has the options."""

import os
import sys

from count import report
from suite import (
    ONLY_MODULE,
    ROOT,
    build_wheel,
    find_interpreters,
    fresh_results,
    install,
    make_environment,
    native_module,
    pytest,
    run_native_suite,
    run_suite,
    say,
    test_example,
)

FLAGS = {"clang": "", "libcxx": "-stdlib=libc++"}
CLIENT_KIT = ("tests/wheel/test_client_kit.py", "tests/wheel/test_native_clients_page.py")


def test_with(results, name, flags, native):
    folder = ROOT / "build/compilers" / name
    settings = {"CXX": "clang++", "CXXFLAGS": flags}
    definitions = {"CMAKE_CXX_COMPILER": "clang++", "CMAKE_CXX_FLAGS": flags}
    wheel = build_wheel(folder, definitions, settings, () if native else ONLY_MODULE)
    say(f"{name}: built without a warning")
    python = make_environment(f"compilers-{name}", find_interpreters()[0][1])
    install(f"compilers-{name}", "--no-deps", wheel)

    def run_wheel_tests(suite, *files):
        command = pytest(results, suite, sys.executable, *files, "--wheel", wheel)
        run_suite(results, suite, command, settings)

    run_wheel_tests(f"{name}_client_kit", *CLIENT_KIT)
    if not flags:  # the recipes have flags of their own
        run_wheel_tests(f"{name}_recipes", "tests/wheel/test_recipes.py")
    test_example(results, f"{name}_example", folder / "example", python, flags, settings)
    command = pytest(results, f"{name}_python", python, "-n", os.cpu_count(), "--dist", "worksteal")
    run_suite(results, f"{name}_python", command, settings | {"HYPOTHESIS_PROFILE": "brief"})
    for module in native:
        path = native_module(folder / "build", module)
        run_native_suite(results, f"{name}_{module}", path, python)


def main():
    native = ("native", "client") if sys.argv[1:] == ["--native"] else ()
    results = fresh_results("compilers")
    for name, flags in FLAGS.items():
        test_with(results, name, flags, native)
    return 0 if report([results], with_logs=True) else 1


if __name__ == "__main__":
    sys.exit(main())
