"""An import that cannot get the class array.array raises and never ends the interpreter."""

import sys

import pytest
from helpers.child_interpreter import run_script

NAME = "velmarmultidimarrayforpython"
NO_MODULE = "unable to import array module."
NO_CLASS = "unable to retrieve array.array class."
NOT_CALLABLE = "array.array class is not callable."

# The only lines that a failed import may print.
ALLOWED_LINES = {
    "Could not initialize module.",
    "Could not initialize type.",
    "Could not initialize MCPyIter_Type.",
}

MISSING_FINDER = """
class Finder:
    def find_spec(self, name, path=None, target=None):
        if name == "array":
            raise {error}("not today")

sys.modules.pop("array", None)
sys.meta_path.insert(0, Finder())
"""
RAISING_MODULE = """
class Raising(types.ModuleType):
    def __getattr__(self, name):
        raise KeyError(name)

sys.modules["array"] = Raising("array")
"""
FAKE_MODULE = 'sys.modules["array"] = types.ModuleType("array")\n'

# label, code that changes the module `array` before the import, message
FAILURES = [
    ("blocked", 'sys.modules["array"] = None', NO_MODULE),
    ("not_found", MISSING_FINDER.format(error="ModuleNotFoundError"), NO_MODULE),
    ("broken", MISSING_FINDER.format(error="ZeroDivisionError"), NO_MODULE),
    ("interrupted", MISSING_FINDER.format(error="KeyboardInterrupt"), NO_MODULE),
    ("without_class", FAKE_MODULE, NO_CLASS),
    ("attribute_raises", RAISING_MODULE, NO_CLASS),
    ("number", FAKE_MODULE + 'sys.modules["array"].array = 123456789', NOT_CALLABLE),
    ("object", FAKE_MODULE + 'sys.modules["array"].array = object()', NOT_CALLABLE),
    ("none", FAKE_MODULE + 'sys.modules["array"].array = None', NOT_CALLABLE),
]

IMPORT = f"""
import gc, sys, types

def chain_of(error):
    chain = []
    while error is not None:
        chain.append([type(error).__name__, str(error)])
        error = error.__cause__ or error.__context__
    return chain

def attempt(name):
    try:
        __import__(name)
    except BaseException as error:
        return chain_of(error)
    return []

name = "{NAME}"
finders = list(sys.meta_path)
"""

failures = pytest.mark.parametrize(
    "hindrance, message",
    [row[1:] for row in FAILURES],
    ids=[row[0] for row in FAILURES],
)


def check_chain(chain, message):
    """The chain is the interpreter's SystemError about a pending error, then that error."""
    assert chain[0] == ["SystemError", f"initialization of {NAME} raised unreported exception"]
    if chain[1:] or sys.version_info >= (3, 12):  # 3.11 may lose the cause
        assert chain[1] == ["RuntimeError", message]


class TestEntryPoint:
    """The entry point, called as the interpreter calls it, but without an import."""

    CALL = """
import ctypes, importlib.util
path = importlib.util.find_spec(name).origin
entry = getattr(ctypes.PyDLL(path), "PyInit_" + name)
entry.restype = ctypes.c_void_p
entry.argtypes = []
try:
    chain, is_module = [], bool(entry())
except BaseException as error:
    chain, is_module = chain_of(error), None
gc.collect()
report([chain, is_module])
"""

    @failures
    def test_error_is_left_pending(self, hindrance, message):
        outcome = run_script(IMPORT + self.CALL.replace("try:", hindrance + "\ntry:", 1))
        assert outcome.reported == [[["RuntimeError", message]], None]
        assert set(outcome.error_lines) <= ALLOWED_LINES

    def test_no_error_when_all_is_well(self):
        outcome = run_script(IMPORT + self.CALL)
        assert outcome.reported == [[], True]
        assert outcome.error_lines == []


class TestArrayIsUnusable:
    @failures
    def test_import_raises(self, hindrance, message):
        outcome = run_script(
            IMPORT
            + hindrance
            + """
chain = attempt(name)
gc.collect()
report([chain, name in sys.modules])
"""
        )
        chain, is_listed = outcome.reported
        check_chain(chain, message)
        assert not is_listed
        assert set(outcome.error_lines) <= ALLOWED_LINES

    @failures
    def test_second_import_raises_too(self, hindrance, message):
        outcome = run_script(
            IMPORT
            + hindrance
            + """
report([attempt(name), attempt(name)])
"""
        )
        for chain in outcome.reported:
            assert chain[0][0] == "SystemError"
        check_chain(outcome.reported[0], message)
        assert set(outcome.error_lines) <= ALLOWED_LINES

    @failures
    def test_import_with_array_restored_works_or_raises(self, hindrance, message):
        outcome = run_script(
            IMPORT
            + hindrance
            + """
first = attempt(name)
sys.meta_path[:] = finders
sys.modules.pop("array", None)
second = attempt(name)
text = None
if not second:
    module = sys.modules[name]
    text = repr(module.double([[1, 2], [3, 4]])[0]) if hasattr(module, "double") else ""
gc.collect()
report([first, second, text])
"""
        )
        first, second, text = outcome.reported
        check_chain(first, message)
        if second:
            assert second[0][0] in ("ImportError", "SystemError", "RuntimeError")
        else:
            assert text == "velmar.double([1.0,2.0])"
        assert set(outcome.error_lines) <= ALLOWED_LINES

    @pytest.mark.parametrize("package", ["velmar", "vlexceptions"])
    def test_packages_raise(self, package):
        outcome = run_script(
            IMPORT
            + f"""
sys.modules["array"] = None
report([attempt("{package}"), "{package}" in sys.modules])
"""
        )
        chain, is_listed = outcome.reported
        check_chain(chain, NO_MODULE)
        assert not is_listed


class TestArrayIsUsable:
    def test_any_callable_will_do(self):
        outcome = run_script(
            IMPORT
            + FAKE_MODULE
            + """
sys.modules["array"].array = lambda *arguments: None
chain = attempt(name)
report([chain, str(sys.modules[name].int8([1, 2]))])
"""
        )
        assert outcome.reported == [[], "[[1,2]]"]
        assert outcome.error_lines == []

    def test_import_brings_the_array_module_in(self):
        outcome = run_script(
            IMPORT
            + """
sys.modules.pop("array", None)
chain = attempt(name)
report([chain, "array" in sys.modules])
"""
        )
        assert outcome.reported == [[], True]
        assert outcome.error_lines == []
