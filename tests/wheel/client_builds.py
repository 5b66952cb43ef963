"""Compiles native clients against the unpacked wheel, and runs Python with them."""

import os
import subprocess
import sys
import sysconfig

# As for CMake, these variables give another compiler and further options.
COMPILER = [os.environ.get("CXX", "g++"), *os.environ.get("CXXFLAGS", "").split()]
# Strict warnings that clients may use; the settings of this project's build are not used.
STRICT = ["-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror"]
OF_PYTHON = ["-DPy_LIMITED_API=0x030B0000", "-isystem", sysconfig.get_path("include")]
LIBRARIES = ["-lzrfoundation_velmardata", "-lzrfoundation_velmardata_standalone"]


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
    command = [*COMPILER, *STRICT, *OF_PYTHON, f"-I{unpacked}/velmar/include", *options, source]
    return subprocess.run(command, capture_output=True, text=True)


def build_module(text, name, unpacked, folder):
    """Compile the source of an extension module into the folder."""
    source = folder / f"{name}.cpp"
    source.write_text(text)
    module = folder / f"{name}.abi3.so"
    search = [f"-L{unpacked}", f"-Wl,-rpath,{unpacked}", "-Wl,--no-as-needed"]
    compiled = compile_cpp(
        source, unpacked, "-shared", "-fPIC", "-pthread", "-o", module, *search, *LIBRARIES
    )
    assert (compiled.stderr, compiled.returncode) == ("", 0)
