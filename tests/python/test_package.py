"""The package velmar: what it imports only when it is used, and its version."""

import importlib.metadata
import tomllib
from pathlib import Path

import pytest
import velmar
import velmarmultidimarrayforpython as module
from helpers.child_interpreter import run_script
from helpers.failures import raises

ROOT = Path(__file__).resolve().parents[2]
VERSION = tomllib.loads((ROOT / "pyproject.toml").read_text(encoding="utf-8"))["project"]["version"]
HELPERS = ["asarray", "asnumpy", "html", "load", "load_ipython_extension", "save", "summary"]
HELPERS += ["unload_ipython_extension"]
SUBMODULES = ["conversion", "look", "notebook", "npy", "transport"]


class TestNames:
    def test_import_loads_the_classes_alone(self):
        outcome = run_script("""
            import sys
            import velmarmultidimarrayforpython
            before = set(sys.modules)
            import velmar
            report(sorted(set(sys.modules) - before))
        """)
        assert outcome.reported == ["velmar"]

    @pytest.mark.parametrize("name", SUBMODULES)
    def test_modules_are_attributes(self, name):
        outcome = run_script(f"""
            import sys, velmar
            before = "velmar.{name}" in sys.modules
            found = velmar.{name}
            report([before, found is sys.modules["velmar.{name}"], "{name}" in vars(velmar)])
        """)
        assert outcome.reported == [False, True, True]

    @pytest.mark.parametrize("name", HELPERS)
    def test_helpers_are_kept_after_first_use(self, name):
        outcome = run_script(f"""
            import velmar
            before = "{name}" in vars(velmar)
            found = velmar.{name}
            report([before, vars(velmar)["{name}"] is found, found.__name__])
        """)
        assert outcome.reported == [False, True, name]

    def test_all_are_listed_before_they_are_imported(self):
        outcome = run_script("""
            import sys, velmar
            report([dir(velmar), [name for name in sys.modules if name.startswith("velmar.")]])
        """)
        listed, imported = outcome.reported
        assert imported == []
        assert listed == sorted(set(listed))
        assert {*HELPERS, *SUBMODULES, "__version__", "double"} <= set(listed)

    def test_star_imports_the_classes_alone(self):
        names = {}
        exec("from velmar import *", names)
        assert set(names) - {"__builtins__"} == set(velmar.__all__)

    @pytest.mark.parametrize("name", ["Summary", "_array", "include", "version"])
    def test_other_names(self, name):
        with raises(AttributeError, f"module 'velmar' has no attribute '{name}'"):
            getattr(velmar, name)


class TestVersion:
    def test_is_that_of_the_project(self):
        assert velmar.__version__ == VERSION

    def test_build_has_the_same(self):
        text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
        assert f"VERSION {VERSION} " in text

    def test_metadata_come_first(self, monkeypatch):
        asked = []
        monkeypatch.setattr(
            importlib.metadata, "version", lambda name: asked.append(name) or "1.2.3"
        )
        assert velmar._version() == "1.2.3"
        assert asked == ["velmarmultidimarrayforpython"]

    @pytest.fixture
    def not_installed(self, monkeypatch, tmp_path):
        """The folder of the module of a package without metadata."""

        def version(name):
            raise importlib.metadata.PackageNotFoundError(name)

        monkeypatch.setattr(importlib.metadata, "version", version)
        monkeypatch.setattr(module, "__file__", str(tmp_path / "module.abi3.so"))
        return tmp_path

    def test_file_of_the_build(self, not_installed):
        (not_installed / "velmarmultidimarrayforpython.version").write_text("4.5.6\n")
        assert velmar._version() == "4.5.6"

    def test_neither(self, not_installed):
        with raises(
            AttributeError,
            "module 'velmar' has no '__version__': the package has no metadata, and there is no "
            "file 'velmarmultidimarrayforpython.version' beside the module",
        ):
            velmar._version()
