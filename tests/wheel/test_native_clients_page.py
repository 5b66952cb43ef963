"""The blocks of docs/native_clients.md: each is compiled, and its calls give what it says."""

import re
import subprocess
import sys
from pathlib import Path

import pytest
from client_builds import STRICT, build_module, run_python

PAGE = (Path(__file__).resolve().parents[2] / "docs/native_clients.md").read_text()
COMPLETE, *BLOCKS = re.findall(r"^```cpp\n(.*?)^```$", PAGE, re.M | re.S)
(LISTS,) = re.findall(r"^```cmake\n(.*?)^```$", PAGE, re.M | re.S)
# The first comment of a function: `// call -> result`.
CALL = re.compile(r"^// (\w+\(.*\)) -> (.*)$", re.MULTILINE)
FUNCTION = re.compile(r"^PyObject\* (\w+)\(PyObject\* object\) \{$", re.MULTILINE)
CALLS = [call for block in BLOCKS for call in CALL.findall(block)]


def module_of_blocks():
    """The complete module with the functions of all blocks in place of its function."""
    includes = sorted(
        {line for block in BLOCKS for line in re.findall(r"^#include .*\n", block, re.M)}
    )
    functions = [re.sub(r"^#include .*\n", "", block, flags=re.M) for block in BLOCKS]
    own = re.search(r"^PyObject\* doubled\(.*?^}\n", COMPLETE, re.M | re.S).group()
    row = re.search(r'\{"doubled", guarded<doubled>.*?\},', COMPLETE).group()
    rows = [row.replace("doubled", name) for name in FUNCTION.findall("".join(BLOCKS))]
    text = COMPLETE.replace(own, "\n".join(functions)).replace(row, "\n".join(rows))
    text = text.replace("namespace vd", "".join(includes) + "namespace vd", 1)
    return text.replace("PyInit_doubled", "PyInit_blocks").replace('"doubled"', '"blocks"')


def test_every_function_has_a_call():
    assert {call.partition("(")[0] for call, _ in CALLS} == set(FUNCTION.findall("".join(BLOCKS)))


@pytest.fixture(scope="module")
def folder(unpacked, tmp_path_factory):
    folder = tmp_path_factory.mktemp("page")
    build_module(module_of_blocks(), "blocks", unpacked, folder)
    return folder


@pytest.mark.parametrize("call, result", CALLS, ids=[call for call, _ in CALLS])
def test_calls(unpacked, folder, call, result):
    program = f"""import velmar
from blocks import *
try:
    print(repr({call}))
except Exception as error:
    print(f"{{type(error).__name__}}: {{error}}".rstrip())"""
    run = run_python(unpacked, "-c", program, folder=folder)
    assert (run.stdout, run.stderr, run.returncode) == (f"{result}\n", "", 0)


def test_arguments_stay_as_they_are(unpacked, folder):
    program = """import velmar
from blocks import *
a = velmar.double([[1, 2], [3, 4]])
for function in (complexPairs, columnSums, rowSums, sumInTwoThreads):
    function(a)
print(a == velmar.double([[1, 2], [3, 4]]))"""
    run = run_python(unpacked, "-c", program, folder=folder)
    assert (run.stdout, run.stderr, run.returncode) == ("True\n", "", 0)


IMPORTS = "import velmar; from doubled import doubled"


@pytest.fixture(scope="module")
def complete(unpacked, tmp_path_factory):
    """The folder with the module that the page prints in full, built as the page says."""
    folder = tmp_path_factory.mktemp("complete")
    (folder / "doubled.cpp").write_text(COMPLETE)
    (folder / "CMakeLists.txt").write_text(LISTS)
    configure = ["-G", "Ninja", "-S", folder, "-B", folder / "build"]
    configure += [f"-DCMAKE_CXX_FLAGS={' '.join(STRICT)}", f"-DPython_EXECUTABLE={sys.executable}"]
    configure += [f"-Dvelmarmultidimarrayforpython_DIR={unpacked}/velmar/cmake"]
    for arguments in (configure, ["--build", folder / "build"]):
        run = subprocess.run(["cmake", *arguments], capture_output=True, text=True)
        assert run.returncode == 0, run.stdout + run.stderr
    return folder / "build"


class TestCompleteModule:
    @pytest.mark.parametrize(
        "expression, printed",
        [
            ("doubled(velmar.double([[1, 2], [3, 4]]))", "velmar.double([[2.0,4.0],[6.0,8.0]])"),
            ("doubled(velmar.double([[1, 2], [3, 4]])[1])", "velmar.double([[6.0,8.0]])"),
            ("doubled(kept), kept", "(velmar.double([[10.0]]), velmar.double([[5.0]]))"),
        ],
    )
    def test_results(self, unpacked, complete, expression, printed):
        program = f"{IMPORTS}; kept = velmar.double(5); print(repr(({expression})))"
        run = run_python(unpacked, "-c", program, folder=complete)
        assert (run.stdout, run.stderr, run.returncode) == (f"{printed}\n", "", 0)

    @pytest.mark.parametrize(
        "argument, error",
        [
            ("velmar.int8(1)", "TypeError: expected real doubles"),
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
    def test_failures(self, unpacked, complete, argument, error):
        program = f"{IMPORTS}; doubled({argument})"
        run = run_python(unpacked, "-c", program, folder=complete)
        assert run.returncode == 1
        assert run.stderr.splitlines()[-1] == error

    def test_arrays_of_all_classes_are_arrays(self, unpacked, complete):
        program = f"""{IMPORTS}
names = "single int8 uint8 int16 uint16 int32 uint32 int64 uint64 logical".split()
for name in names:
    try:
        doubled(getattr(velmar, name)(1))
    except TypeError as error:
        assert str(error) == "expected real doubles", error
print(len(names))"""
        run = run_python(unpacked, "-c", program, folder=complete)
        assert (run.stdout, run.stderr, run.returncode) == ("10\n", "", 0)
