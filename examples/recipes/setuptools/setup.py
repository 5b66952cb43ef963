"""Builds doubled with setuptools; the rest of the settings is in pyproject.toml."""

import subprocess
import sys

from setuptools import Extension, setup


def folder_of(option):
    command = [sys.executable, "-m", "velmar", option]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


setup(
    ext_modules=[
        Extension(
            "doubled",
            ["doubled.cpp"],
            include_dirs=[folder_of("--include-dir")],
            library_dirs=[folder_of("--library-dir")],
            libraries=["zrfoundation_velmardata", "zrfoundation_velmardata_standalone"],
            # The module is installed beside the libraries.
            runtime_library_dirs=["$ORIGIN"],
            extra_compile_args=["-std=c++20"],
            # One file for all CPython versions from 3.11.
            define_macros=[("Py_LIMITED_API", "0x030B0000")],
            py_limited_api=True,
        )
    ],
    options={"bdist_wheel": {"py_limited_api": "cp311"}},
)
