"""Runs the native tests inside this interpreter: run.py MODULE_FILE [GOOGLETEST_OPTION...]."""

import importlib.util
import sys
from importlib.machinery import ExtensionFileLoader
from pathlib import Path

PACKAGES = Path(__file__).resolve().parents[2] / "python"


def load(name, file):
    """Imports the extension `name` from `file`, which may hold more than one."""
    spec = importlib.util.spec_from_file_location(
        name, file, loader=ExtensionFileLoader(name, file)
    )
    module = importlib.util.module_from_spec(spec)
    sys.modules[name] = module
    spec.loader.exec_module(module)
    return module


def main():
    file, *options = sys.argv[1:]
    sys.path.insert(0, str(PACKAGES))
    # The product inside the test module, initialised as any import would do it: the tests then find
    # the classes in place. What is installed elsewhere stays out of the way.
    load("velmarmultidimarrayforpython", file)
    return load("velmar_native_tests", file).run(options)


if __name__ == "__main__":
    sys.exit(main())
