"""Runs native tests inside this interpreter: run.py MODULE_FILE [GOOGLETEST_OPTION...]."""

import importlib.util
import sys
from importlib.machinery import ExtensionFileLoader
from pathlib import Path

PACKAGES = Path(__file__).resolve().parents[2] / "python"


def load(name, file):
    """Imports the extension `name` from `file`, which may contain more than one."""
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
    # The packages of this checkout come before installed ones.
    sys.path.insert(0, str(PACKAGES))
    if name == "velmar_native_tests":
        # The product is part of the test module. Import it first, because the tests need its
        # classes.
        load("velmarmultidimarrayforpython", file)
    else:
        # The built product is in the folder of this test module.
        sys.path.insert(0, str(Path(file).resolve().parent))
    return load(name, file).run(options)


if __name__ == "__main__":
    sys.exit(main())
