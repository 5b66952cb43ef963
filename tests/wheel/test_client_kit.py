"""The parts of the wheel for native clients: folders, headers, and the module of the guide."""

import os
import re
import subprocess
import sys
import sysconfig
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
GUIDE = ROOT / "docs/native_clients.md"
# Strict warnings that clients may use; the settings of this project's build are not used.
STRICT = ["-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror"]
OF_PYTHON = ["-DPy_LIMITED_API=0x030B0000", "-isystem", sysconfig.get_path("include")]


def run_python(unpacked, *arguments, folder=None):
    """Run the interpreter with the files of the wheel and of `folder` on its path."""
    path = os.pathsep.join(str(entry) for entry in (unpacked, folder) if entry is not None)
    return subprocess.run(
        [sys.executable, "-P", *arguments],
        capture_output=True,
        text=True,
        env={**os.environ, "PYTHONPATH": path},
    )


def compile_cpp(source, unpacked, *options):
    command = ["g++", *STRICT, *OF_PYTHON, f"-I{unpacked}/velmar/include", *options, source]
    return subprocess.run(command, capture_output=True, text=True)


class TestFolders:
    @pytest.mark.parametrize(
        "option, folder, file",
        [
            ("--include-dir", "velmar/include", "velmar/client.hpp"),
            ("--cmake-dir", "velmar/cmake", "velmarmultidimarrayforpythonConfig.cmake"),
        ],
    )
    def test_printed(self, unpacked, option, folder, file):
        run = run_python(unpacked, "-m", "velmar", option)
        assert (run.stdout, run.stderr, run.returncode) == (f"{unpacked / folder}\n", "", 0)
        assert (unpacked / folder / file).is_file()

    @pytest.mark.parametrize("options", [(), ("--include-dir", "--cmake-dir"), ("--prefix",)])
    def test_exactly_one_is_asked_for(self, unpacked, options):
        run = run_python(unpacked, "-m", "velmar", *options)
        assert run.returncode == 2
        assert run.stdout == "" and "usage: python -m velmar" in run.stderr


@pytest.mark.parametrize("header", ["velmar/client.hpp", "velmardata/velmardata.hpp"])
def test_header_needs_nothing_before_it(unpacked, tmp_path, header):
    source = tmp_path / "header.cpp"
    source.write_text(f"#include <{header}>\nint main() {{ return 0; }}\n")
    compiled = compile_cpp(source, unpacked, "-fsyntax-only")
    assert (compiled.stderr, compiled.returncode) == ("", 0)


def test_table_can_be_included_before_and_after_python(unpacked, tmp_path):
    table, python = "#include <velmar/capsule_table.hpp>\n", "#include <Python.h>\n"
    for number, text in enumerate((table, table + python, python + table)):
        source = tmp_path / f"table{number}.cpp"
        source.write_text(text)
        compiled = compile_cpp(source, unpacked, "-fsyntax-only", "-std=c++17")
        assert (compiled.stderr, compiled.returncode) == ("", 0)


IMPORTS = "import velmar; from doubled import doubled"


@pytest.fixture(scope="module")
def folder(unpacked, tmp_path_factory):
    """The folder with the module that the guide prints in full, compiled without changes."""
    folder = tmp_path_factory.mktemp("guide")
    (module,) = re.findall(r"^```cpp\n(.*?PyMODINIT_FUNC.*?)^```$", GUIDE.read_text(), re.M | re.S)
    source = folder / "doubled.cpp"
    source.write_text(module)
    libraries = ["-lzrfoundation_velmardata", "-lzrfoundation_velmardata_standalone"]
    options = ["-shared", "-fPIC", f"-L{unpacked}", f"-Wl,-rpath,{unpacked}"]
    compiled = compile_cpp(
        source,
        unpacked,
        *options,
        "-o",
        folder / "doubled.abi3.so",
        "-Wl,--no-as-needed",
        *libraries,
    )
    assert (compiled.stderr, compiled.returncode) == ("", 0)
    return folder


class TestGuide:
    @pytest.mark.parametrize(
        "expression, printed",
        [
            ("doubled(velmar.double([[1, 2], [3, 4]]))", "velmar.double([[2.0,4.0],[6.0,8.0]])"),
            ("doubled(velmar.double([[1, 2], [3, 4]])[1])", "velmar.double([[6.0,8.0]])"),
            ("doubled(kept), kept", "(velmar.double([[10.0]]), velmar.double([[5.0]]))"),
        ],
    )
    def test_results(self, unpacked, folder, expression, printed):
        program = f"{IMPORTS}; kept = velmar.double(5); print(repr(({expression})))"
        run = run_python(unpacked, "-c", program, folder=folder)
        assert (run.stdout, run.stderr, run.returncode) == (f"{printed}\n", "", 0)

    @pytest.mark.parametrize(
        "argument, error",
        [
            ("velmar.int8(1)", "TypeError: real doubles wanted"),
            ("[1.0]", "TypeError: expected a velmar array, got <class 'list'>"),
            ("None", "TypeError: expected a velmar array, got <class 'NoneType'>"),
            ("velmar.double", "TypeError: expected a velmar array, got <class 'type'>"),
            (
                "memoryview(velmar.double(1))",
                "TypeError: expected a velmar array, got <class 'memoryview'>",
            ),
            (
                "iter(velmar.double(1))",
                "TypeError: expected a velmar array, got <class 'velmar.MCPyIter'>",
            ),
            ("list(velmar.double([[1], [2]]))[0]", "RuntimeError: locked shared pointer is null."),
        ],
    )
    def test_failures(self, unpacked, folder, argument, error):
        program = f"{IMPORTS}; doubled({argument})"
        run = run_python(unpacked, "-c", program, folder=folder)
        assert run.returncode == 1
        assert run.stderr.splitlines()[-1] == error

    def test_arrays_of_all_classes_are_arrays(self, unpacked, folder):
        program = f"""{IMPORTS}
names = "single int8 uint8 int16 uint16 int32 uint32 int64 uint64 logical".split()
for name in names:
    try:
        doubled(getattr(velmar, name)(1))
    except TypeError as error:
        assert str(error) == "real doubles wanted", error
print(len(names))"""
        run = run_python(unpacked, "-c", program, folder=folder)
        assert (run.stdout, run.stderr, run.returncode) == ("10\n", "", 0)
