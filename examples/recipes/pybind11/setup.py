"""Builds doubled with pybind11 and setuptools; the rest of the settings is in pyproject.toml."""

import subprocess
import sys

from pybind11.setup_helpers import Pybind11Extension
from setuptools import setup


def folder_of(option):
    command = [sys.executable, "-m", "velmar", option]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


setup(
    ext_modules=[
        Pybind11Extension(
            "doubled",
            ["doubled.cpp"],
            include_dirs=[folder_of("--include-dir")],
            library_dirs=[folder_of("--library-dir")],
            libraries=["zrfoundation_velmardata", "zrfoundation_velmardata_standalone"],
            # The module is installed beside the libraries.
            runtime_library_dirs=["$ORIGIN"],
            cxx_std=20,
        )
    ],
)
