"""The recipes of examples/recipes: each builds a wheel, and its module works beside the package."""

import importlib.util
import os
import re
import shutil
import subprocess
import sys
import zipfile
from pathlib import Path

import pytest
from client_builds import run_python

ROOT = Path(__file__).resolve().parents[2]
RECIPES = ROOT / "examples/recipes"
PAGE = (ROOT / "docs/native_clients.md").read_text()
# The folder, the modules and programs that it needs, and the tag of its wheel.
ONE_VERSION = f"cp3{sys.version_info.minor}"
ROWS = [
    ("setuptools", ["setuptools"], ["g++"], "cp311-abi3"),
    ("scikit_build_core", ["scikit_build_core"], ["g++", "cmake", "ninja"], "cp311-abi3"),
    (
        "meson",
        ["mesonpy", "mesonbuild"],
        ["g++", "meson", "ninja", "patchelf"],
        f"{ONE_VERSION}-abi3",
    ),
    ("pybind11", ["setuptools", "pybind11"], ["g++"], f"{ONE_VERSION}-{ONE_VERSION}"),
    (
        "nanobind",
        ["scikit_build_core", "nanobind"],
        ["g++", "cmake", "ninja"],
        f"{ONE_VERSION}-{ONE_VERSION}",
    ),
]
# Settings that make the builds quick.
QUICK = {
    "CFLAGS": "-O0",
    "CXXFLAGS": "-O0",
    "SKBUILD_CMAKE_BUILD_TYPE": "Debug",
    "CMAKE_ARGS": "-DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0",
}
BUILD = """import importlib, sys
backend = importlib.import_module(sys.argv[1])
print(backend.build_wheel(sys.argv[2]))"""


def missing_tools(modules, programs):
    names = [name for name in modules if importlib.util.find_spec(name) is None]
    return names + [name for name in programs if shutil.which(name) is None]


def test_every_recipe_has_a_row():
    assert {row[0] for row in ROWS} == {path.name for path in RECIPES.iterdir() if path.is_dir()}


@pytest.mark.parametrize("name", ["setuptools", "scikit_build_core", "meson"])
def test_module_is_that_of_the_page(name):
    (block,) = re.findall(r"^```cpp\n(.*?PyInit_doubled.*?)^```$", PAGE, re.M | re.S)
    assert (RECIPES / name / "doubled.cpp").read_text() == block


@pytest.fixture(scope="module", params=ROWS, ids=[row[0] for row in ROWS])
def built(request, unpacked, tmp_path_factory):
    """A recipe's name, wheel and tag, and a folder with this wheel and the package."""
    name, modules, programs, tag = request.param
    if missing := missing_tools(modules, programs):
        pytest.skip(f"not installed: {', '.join(missing)}")
    folder = tmp_path_factory.mktemp(name)
    source = shutil.copytree(RECIPES / name, folder / "source")
    backend = re.search(r'build-backend = "(.*)"', (source / "pyproject.toml").read_text())[1]
    run = subprocess.run(
        [sys.executable, "-P", "-c", BUILD, backend, folder],
        cwd=source,
        capture_output=True,
        text=True,
        env={**os.environ, **QUICK, "PYTHONPATH": str(unpacked)},
    )
    assert run.returncode == 0, run.stdout + run.stderr
    (wheel,) = folder.glob("*.whl")
    site = shutil.copytree(unpacked, folder / "site")
    with zipfile.ZipFile(wheel) as archive:
        archive.extractall(site)
    return name, wheel, tag, site


def test_wheel(built, unpacked):
    _, wheel, tag, site = built
    assert wheel.name.startswith(f"doubled-0.1.0-{tag}-")
    with zipfile.ZipFile(wheel) as archive:
        names = archive.namelist()
    files = [name for name in names if ".dist-info/" not in name]
    assert len(files) == 1 and re.fullmatch(r"doubled\.\S+\.so", files[0])
    metadata = (site / "doubled-0.1.0.dist-info/METADATA").read_text()
    assert "Requires-Dist: velmarmultidimarrayforpython~=0.1.0\n" in metadata
    entries = subprocess.run(
        ["readelf", "-d", site / files[0]], check=True, capture_output=True, text=True
    )
    # The settings of an interpreter can add a folder of its own.
    (searched,) = re.findall(r"\((?:RUNPATH|RPATH)\).*\[(.*)\]", entries.stdout)
    assert "$ORIGIN" in searched.split(":") and str(unpacked) not in searched


# The module is imported first, so that it finds the libraries by itself.
PROGRAM = """from doubled import doubled
import velmar
a = velmar.double([[1, 2], [3, 4]])
print(doubled(a), doubled(a[1]), a)
for wrong in (velmar.int8(1), [1.0]):
    try:
        doubled(wrong)
    except TypeError as error:
        print(str(error).splitlines()[0])"""
# pybind11 and nanobind report wrong arguments by themselves.
OWN_REFUSAL = (
    "doubled(): incompatible function arguments. The following argument types are supported:"
)


def test_module(built):
    name, _, _, site = built
    run = run_python(site, "-c", PROGRAM)
    refusal = "expected a velmar array, got <class 'list'>"
    assert (run.stderr, run.returncode) == ("", 0)
    assert run.stdout.splitlines() == [
        "[[2.0,4.0],[6.0,8.0]] [[6.0,8.0]] [[1.0,2.0],[3.0,4.0]]",
        "expected real doubles",
        OWN_REFUSAL if name in ("pybind11", "nanobind") else refusal,
    ]
