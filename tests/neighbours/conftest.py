"""Makes the examples and the helpers importable, and prints the versions of the libraries."""

import sys
from importlib.metadata import version
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "examples" / "neighbours"))
sys.path.insert(0, str(ROOT / "tests" / "python"))  # for the package of helpers
NEIGHBOURS = [
    *("numpy", "scipy", "pandas", "polars", "pyarrow", "xarray", "zarr", "h5py", "matplotlib"),
    *("pillow", "scikit-learn", "joblib", "dask", "distributed"),
]


def pytest_report_header():
    return "neighbours: " + ", ".join(f"{name} {version(name)}" for name in NEIGHBOURS)
