"""Targets that the configuration refuses."""

import platform
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]


@pytest.mark.skipif(platform.machine() != "x86_64", reason="the option is for x86-64 compilers")
def test_32_bit_target(tmp_path):
    run = subprocess.run(
        [
            *("cmake", "-G", "Ninja", "-S", ROOT, "-B", tmp_path, "-DCMAKE_CXX_FLAGS=-m32"),
            "-DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY",  # there are no libraries to link
        ],
        capture_output=True,
        text=True,
    )
    assert run.returncode == 1
    messages = [line.strip() for line in run.stderr.splitlines() if line.startswith("  ")]
    assert messages == ["A 64-bit target is needed, but pointers have 4 bytes."]
