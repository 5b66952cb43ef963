"""The wheel: its files, their exports, imports and libraries, and the stable ABI."""

import json
import re
import subprocess
import sys
from pathlib import Path

import pytest

MODULE = "velmarmultidimarrayforpython.abi3.so"
DATA_LIBRARY = "libzrfoundation_velmardata.so"
FACTORY_LIBRARY = "libzrfoundation_velmardata_standalone.so"
LIBRARIES = [MODULE, DATA_LIBRARY, FACTORY_LIBRARY]
ROOT = Path(__file__).resolve().parents[2]
OF_THE_SYSTEM = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6"}
# The headers for native clients.
HEADERS = {
    f"velmardata/{header.name}": header
    for header in (ROOT / "velmardata/include/velmardata").glob("*.hpp")
} | {
    f"velmar/{name}.hpp": ROOT / f"python/velmar/include/velmar/{name}.hpp"
    for name in ("capsule_table", "client")
}
CMAKE_FILES = {
    "velmarmultidimarrayforpythonConfig.cmake",
    "velmarmultidimarrayforpythonConfigVersion.cmake",
}
KIT_OF_CLIENTS = {f"velmar/include/{name}" for name in HEADERS} | {
    f"velmar/cmake/{name}" for name in CMAKE_FILES
}


def lines_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()


def dynamic_entries(file, tag):
    """The values in brackets of one tag of the dynamic section of a library."""
    pattern = re.compile(rf"\({tag}\).*\[(.*)\]")
    return [found[1] for found in map(pattern.search, lines_of("readelf", "-d", file)) if found]


def needed_by(file):
    """The libraries that a library needs, except those of every system."""
    names = set(dynamic_entries(file, "NEEDED")) - OF_THE_SYSTEM
    return {name for name in names if not name.startswith("ld-linux")}


def symbols(file, kind):
    """The names, without versions, that a library defines or leaves undefined."""
    return {line.split()[-1].split("@")[0] for line in lines_of("nm", "-D", kind, file)}


class TestFiles:
    def test_exact_contents(self, unpacked):
        files = {str(file.relative_to(unpacked)) for file in unpacked.rglob("*") if file.is_file()}
        names = ("__init__.py", "__init__.pyi", "py.typed")
        packages = {f"{package}/{name}" for package in ("velmar", "vlexceptions") for name in names}
        modules = ("__main__", "_memory", "conversion", "look", "notebook", "npy", "transport")
        packages |= {f"velmar/{name}.py" for name in modules}
        stubs = ("_array", "_memory", "conversion", "notebook", "npy", "transport")
        packages |= {f"velmar/{name}.pyi" for name in stubs}
        packages.add("velmarmultidimarrayforpython-stubs/__init__.pyi")
        outside_metadata = {file for file in files if ".dist-info/" not in file}
        assert outside_metadata == packages | set(LIBRARIES) | KIT_OF_CLIENTS

    @pytest.mark.parametrize("name", sorted(HEADERS))
    def test_headers_are_those_of_the_build(self, unpacked, name):
        assert (unpacked / "velmar/include" / name).read_bytes() == HEADERS[name].read_bytes()

    def test_tag(self, wheel, unpacked):
        assert re.search(r"-cp311-abi3-\w+\.whl$", wheel.name)
        (metadata,) = unpacked.glob("*.dist-info/WHEEL")
        tags = [line for line in metadata.read_text().splitlines() if line.startswith("Tag:")]
        assert tags and all(tag.startswith("Tag: cp311-abi3-") for tag in tags)


class TestLinks:
    @pytest.mark.parametrize("library", LIBRARIES)
    def test_looks_beside_itself_only(self, unpacked, library):
        file = unpacked / library
        assert set(dynamic_entries(file, "RUNPATH")) <= {"$ORIGIN"}
        assert dynamic_entries(file, "RPATH") == []

    @pytest.mark.parametrize("library", LIBRARIES)
    def test_needs_nothing_but_these_and_the_system(self, unpacked, library):
        assert needed_by(unpacked / library) <= {DATA_LIBRARY, FACTORY_LIBRARY}

    def test_module_is_linked_to_both_data_libraries_beside_it(self, unpacked):
        assert needed_by(unpacked / MODULE) == {DATA_LIBRARY, FACTORY_LIBRARY}
        assert dynamic_entries(unpacked / MODULE, "RUNPATH") == ["$ORIGIN"]


class TestNames:
    def test_module_exports_its_entry_point_and_three_names_for_debugging(self, unpacked):
        assert symbols(unpacked / MODULE, "--defined-only") == {
            "PyInit_velmarmultidimarrayforpython",
            "MCPyArray_Buffer_Type_Slot",
            "_ZNK11MCppPyArray14writeToOstreamERSo",
            "_ZNK14MDArrayWrapper14writeToOstreamERSo",
        }

    @pytest.mark.parametrize("library", [DATA_LIBRARY, FACTORY_LIBRARY])
    def test_data_libraries_export_nothing_of_python(self, unpacked, library):
        names = symbols(unpacked / library, "--defined-only")
        assert names
        assert not [name for name in names if name.lstrip("_").startswith("Py")]

    @pytest.mark.parametrize("library", [DATA_LIBRARY, FACTORY_LIBRARY])
    def test_data_libraries_do_not_know_python(self, unpacked, library):
        names = symbols(unpacked / library, "--undefined-only")
        assert not [name for name in names if name.lstrip("_").startswith("Py")]

    def test_no_reference_count_macro(self, unpacked):
        # The inlined macros that drop a reference import this name.
        imported = symbols(unpacked / MODULE, "--undefined-only")
        assert "Py_DecRef" in imported
        assert "_Py_Dealloc" not in imported


def test_abi3audit(wheel, tmp_path):
    report = tmp_path / "report.json"
    audit = subprocess.run(
        [Path(sys.executable).with_name("abi3audit"), "--strict", "--report", "-o", report, wheel],
        capture_output=True,
        text=True,
    )
    assert audit.returncode == 0, audit.stdout + audit.stderr
    (entry,) = json.loads(report.read_text())["specs"].values()
    audited = {item["name"]: item["result"] for item in entry["wheel"]}
    assert audited[MODULE]["is_abi3"] is True
    assert audited[MODULE]["baseline"] == "3.11"
    assert audited[MODULE]["non_abi3_symbols"] == []
    assert audited[MODULE]["future_abi3_objects"] == {}
