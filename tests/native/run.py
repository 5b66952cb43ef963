"""Runs native tests inside this interpreter: run.py MODULE_FILE [GOOGLETEST_OPTION...]."""

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
    name = Path(file).name.partition(".")[0]
    # What is installed elsewhere stays out of the way.
    sys.path.insert(0, str(PACKAGES))
    if name == "velmar_native_tests":
        # The product inside the test module, initialised as any import would do it: the tests then
        # find the classes in place.
        load("velmarmultidimarrayforpython", file)
    else:
        # A test module that holds no product finds the built one beside itself.
        sys.path.insert(0, str(Path(file).resolve().parent))
    return load(name, file).run(options)


if __name__ == "__main__":
    sys.exit(main())
