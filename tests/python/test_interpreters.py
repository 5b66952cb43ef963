"""More than one interpreter in a process: one after the other, and beside each other."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import sys
import sysconfig

import pytest
import velmarmultidimarrayforpython
from helpers.child_interpreter import run_script

EMBEDDING = """
#include <Python.h>

int main(int argc, char** argv) {
  for (int round = 0; round < 3; ++round) {
    Py_Initialize();
    if (argc < 2 || PyRun_SimpleString(argv[1]) != 0) return 1;
    if (Py_FinalizeEx() != 0) return 2;
  }
  return 0;
}
"""

# What stays alive until the interpreter ends is part of the test.
USE = """
import array, pickle
import velmar
from velmarmultidimarrayforpython import ShapeError

a = velmar.double([[1, 2], [3, 4]])
assert type(a) is velmar.double and isinstance(a[0], velmar.double)
assert str(a) == "[[1.0,2.0],[3.0,4.0]]" and list(a[1]) == [3.0, 4.0]
assert a == a.clone() == pickle.loads(pickle.dumps(a))
a[0] = array.array("d", [5, 6])
assert velmar.double(array.array("d", [1])) == velmar.double([1])
assert memoryview(a).tolist() == [[5.0, 6.0], [3.0, 4.0]]
assert a[0].toarray().tolist() == [5.0, 6.0]
try:
    a.reshape(5, 1)
except ShapeError as error:
    refusal = error
kept = [a, a[0], iter(a), memoryview(a), refusal]
"""


@pytest.fixture(name="program", scope="module")
def fixture_program(tmp_path_factory):
    """A native program that runs a script three times, each time in a new interpreter."""
    compiler = shutil.which("cc")
    headers = sysconfig.get_path("include")
    if compiler is None or not os.path.exists(f"{headers}/Python.h"):
        pytest.skip("no compiler, or no headers of the interpreter")
    folder = tmp_path_factory.mktemp("embedding")
    source, program = folder / "embedding.c", folder / "embedding"
    source.write_text(EMBEDDING)
    libraries = sysconfig.get_config_var("LIBDIR")
    name = f"python{sysconfig.get_config_var('LDVERSION')}"
    command = [compiler, f"-I{headers}", str(source), "-o", str(program)]
    command += [f"-L{libraries}", f"-Wl,-rpath,{libraries}", f"-l{name}"]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        pytest.skip(f"the interpreter has no shared library to link with: {done.stderr}")
    if machine_of(program) != machine_of(velmarmultidimarrayforpython.__file__):
        pytest.skip("the compiler makes programs for another machine")
    return program


def machine_of(path):
    """The word size, byte order and machine in the header of a program or library."""
    with open(path, "rb") as file:
        header = file.read(20)
    return header[4:6], header[18:20]


def test_interpreters_one_after_the_other(program):
    own = "assert type(a[0].toarray()) is array.array"  # that of this interpreter
    script = f"import sys\nsys.path = {sys.path!r}\n{USE}\n{own}\nprint('used', flush=True)"
    environment = {**os.environ, "PYTHONHOME": sys.base_prefix}
    done = subprocess.run(
        [program, script], capture_output=True, text=True, env=environment, check=False
    )
    assert done.returncode == 0, done.stderr
    assert done.stdout.split() == ["used"] * 3


SUBINTERPRETER = """
import array, sys
try:
    import _interpreters

    def make(isIsolated):
        return _interpreters.create("isolated" if isIsolated else "legacy")

    def run(interpreter, code):
        failure = _interpreters.exec(interpreter, code)
        return failure and failure.formatted
except ImportError:
    import _xxsubinterpreters

    def make(isIsolated):
        return _xxsubinterpreters.create(isolated=isIsolated)

    def run(interpreter, code):
        try:
            _xxsubinterpreters.run_string(interpreter, code)
        except _xxsubinterpreters.RunFailedError as error:
            return str(error)
import velmar

use = f"import sys; sys.path = {sys.path!r}" + USE + (
    f"assert id(velmar.double) == {id(velmar.double)}, 'another class'; "
    f"assert id(type(a[0].toarray())) == {id(array.array)}, 'another array.array'"
)
report([run(make(isIsolated), use) for isIsolated in (False, True)])
"""


def has_subinterpreters():
    names = ("_interpreters", "_xxsubinterpreters")
    return any(name in sys.builtin_module_names or _can_import(name) for name in names)


def _can_import(name):
    try:
        __import__(name)
    except ImportError:
        return False
    return True


@pytest.mark.skipif(not has_subinterpreters(), reason="no way to make interpreters here")
def test_subinterpreters_share_the_classes_unless_isolated():
    """Only from 3.12 on can an interpreter be so isolated that it refuses the import."""
    script = f"import json\nUSE = json.loads({json.dumps(json.dumps(USE))})\n{SUBINTERPRETER}"
    shared, isolated = run_script(script).reported
    assert shared is None
    if sys.version_info < (3, 12):
        assert isolated is None
    else:
        assert isolated.endswith(
            "module velmarmultidimarrayforpython does not support loading in subinterpreters"
        )
