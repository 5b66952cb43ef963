"""The parts of the wheel for native clients: folders and headers."""

import pytest
from client_builds import compile_cpp, run_python


class TestFolders:
    @pytest.mark.parametrize(
        "option, folder, file",
        [
            ("--include-dir", "velmar/include", "velmar/client.hpp"),
            ("--cmake-dir", "velmar/cmake", "velmarmultidimarrayforpythonConfig.cmake"),
            ("--library-dir", ".", "libzrfoundation_velmardata.so"),
            ("--library-dir", ".", "libzrfoundation_velmardata_standalone.so"),
        ],
    )
    def test_printed(self, unpacked, option, folder, file):
        run = run_python(unpacked, "-m", "velmar", option)
        assert (run.stdout, run.stderr, run.returncode) == (f"{unpacked / folder}\n", "", 0)
        assert (unpacked / folder / file).is_file()

    def test_version(self, wheel, unpacked):
        run = run_python(unpacked, "-m", "velmar", "--version")
        version = wheel.name.split("-")[1]
        assert (run.stdout, run.stderr, run.returncode) == (f"{version}\n", "", 0)

    @pytest.mark.parametrize(
        "options",
        [(), ("--include-dir", "--cmake-dir"), ("--library-dir", "--version"), ("--prefix",)],
    )
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
