"""What holds for all tests here: the examples can be imported, and the libraries are named."""

import sys
from importlib.metadata import version
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "examples" / "neighbours"))
NEIGHBOURS = ["numpy", "pandas", "pyarrow", "matplotlib", "pillow", "h5py", "dask", "distributed"]


def pytest_report_header():
    return "neighbours: " + ", ".join(f"{name} {version(name)}" for name in NEIGHBOURS)
