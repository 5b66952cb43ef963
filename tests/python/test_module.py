"""The module: its names and their order, its classes and its exceptions."""

import collections.abc
import gc
import importlib
import struct
import sys
import weakref

import pytest
import velmar
import velmarmultidimarrayforpython as module
import vlexceptions
from helpers.arrays import CLASS_ROWS
from helpers.cases import each
from helpers.child_interpreter import run_script
from helpers.failures import raises

NAME = "velmarmultidimarrayforpython"
ARRAY_CLASSES = [
    "double",
    "single",
    "int8",
    "uint8",
    "int16",
    "uint16",
    "int32",
    "uint32",
    "int64",
    "uint64",
    "logical",
]
PUBLISHED = [*ARRAY_CLASSES, "MCPyIter", "ShapeError", "SizeError"]
RECORD_SIZE = object.__basicsize__ + struct.calcsize("P")

NEVER_THERE = [
    "__init__",
    "__call__",
    "__bool__",
    "__int__",
    "__float__",
    "__index__",
    "__add__",
    "__mul__",
    "__iadd__",
    "__contains__",
    "__reversed__",
    "__next__",
    "__dict__",
    "__weakref__",
]

METHOD = type(list.append)
METHOD_DOCS = {
    "reshape": "reshape changes the dimensions of an N-dimensional array"
    " while preserving the values",
    "buffer_info": "buffer_info returns a two-element tuple containing the address of the buffer"
    " and the number of elements",
    "get_bytewise_strides": "get_bytewise_strides returns a tuple containing the bytewise strides",
    "clone": "clone returns an independent copy of the input object",
    "real": "real returns the real part of the input object as a 1-by-N array",
    "imag": "imag returns the imaginary part of the input object as a 1-by-N array",
    "noncomplex": "noncomplex returns the the input object (which must be noncomplex)"
    " as a 1-by-N array",
    "toarray": "toarray returns an array.array initialized from the input object",
    "tomemoryview": "tomemoryview returns a memoryview initialized from the input object",
    "__reduce__": "__reduce__ pickles the input object",
}
ATTRIBUTE = type(type.__dict__["__dict__"])
ATTRIBUTE_DOCS = {
    "size": "dimensions",
    "_size": "dimensions",
    "itemsize": "size of an element in bytes",
    "_real": "real part of elements; equivalent to real()",
    "_imag": "imaginary part of elements; equivalent to imag()",
    "_data": "elements in storage order; equivalent to noncomplex()",
    "_is_complex": "whether array is complex",
}

# Bits of a class's flags word.
IMMUTABLE_TYPE = 1 << 8
HEAP_TYPE = 1 << 9
BASE_TYPE = 1 << 10
HAVE_GC = 1 << 14


def own_names(namespace) -> list[str]:
    return [name for name in vars(namespace) if not name.startswith("__")]


class TestModule:
    def test_name_and_doc(self):
        assert module.__name__ == NAME
        assert module.__doc__ == NAME

    def test_published_names_in_order(self):
        assert own_names(module) == [*PUBLISHED, "_capi"]

    def test_has_no_function(self):
        for name in PUBLISHED:
            assert isinstance(getattr(module, name), type), name

    def test_capsule(self):
        assert type(module._capi).__name__ == "PyCapsule"
        assert f'"{NAME}._capi"' in repr(module._capi)

    def test_file_serves_every_interpreter_of_the_stable_interface(self):
        assert module.__file__.endswith(f"{NAME}.abi3.so")

    def test_reload_keeps_the_classes(self):
        before = [getattr(module, name) for name in PUBLISHED]
        reloaded = importlib.reload(module)
        assert [getattr(reloaded, name) for name in PUBLISHED] == before

    def test_import_after_removal_gives_the_same_classes(self):
        outcome = run_script("""
            import sys
            import velmarmultidimarrayforpython as first
            del sys.modules["velmarmultidimarrayforpython"]
            import velmarmultidimarrayforpython as second
            report([first.double is second.double, first.ShapeError is second.ShapeError])
        """)
        assert outcome.reported == [True, True]
        assert outcome.error_lines == []

    def test_module_stays_at_shutdown(self):
        outcome = run_script("""
            import atexit
            import velmarmultidimarrayforpython as module
            kept = module.double([[1, 2], [3, 4]])
            rows = [kept[0], kept[::-1]]
            atexit.register(lambda: report(str(rows[1])))
        """)
        assert outcome.reported == "[[3.0,4.0],[1.0,2.0]]"
        assert outcome.error_lines == []


class TestArrayClasses:
    def test_table_of_the_tests_has_every_class(self):
        assert [row.word for row in CLASS_ROWS] == ARRAY_CLASSES

    @each(CLASS_ROWS)
    def test_names(self, row):
        cls = getattr(module, row.word)
        assert cls.__name__ == row.word
        assert cls.__qualname__ == row.word
        assert cls.__module__ == "velmar"
        assert repr(cls) == f"<class 'velmar.{row.word}'>"

    @each(CLASS_ROWS)
    def test_name_in_messages_of_the_interpreter(self, row):
        with pytest.raises(TypeError, match=rf"'velmar\.{row.word}'"):
            row.cls([1]) + 1

    @each(CLASS_ROWS)
    def test_doc_is_none(self, row):
        assert row.cls.__doc__ is None

    @each(CLASS_ROWS)
    def test_base_is_object(self, row):
        assert row.cls.__bases__ == (object,)
        assert type(row.cls) is type

    @each(CLASS_ROWS)
    def test_record(self, row):
        assert row.cls.__basicsize__ == RECORD_SIZE
        assert row.cls.__itemsize__ == 0
        assert row.cls.__dictoffset__ == 0
        assert row.cls.__weakrefoffset__ == 0

    @each(CLASS_ROWS)
    def test_flags(self, row):
        flags = row.cls.__flags__
        assert flags & HEAP_TYPE
        assert not flags & (BASE_TYPE | HAVE_GC | IMMUTABLE_TYPE)

    @each(CLASS_ROWS)
    def test_cannot_be_subclassed(self, row):
        with raises(TypeError, f"type 'velmar.{row.word}' is not an acceptable base type"):
            type("Derived", (row.cls,), {})

    @each(CLASS_ROWS)
    def test_slots(self, row):
        own = set(vars(row.cls))
        assert own >= {"__new__", "__len__", "__getitem__", "__repr__", "__str__"}
        assert own >= {"__setitem__", "__delitem__", "__iter__"}
        assert own >= {"__eq__", "__ne__", "__lt__", "__le__", "__gt__", "__ge__", "__hash__"}
        for absent in NEVER_THERE:
            assert absent not in own, absent

    @each(CLASS_ROWS)
    def test_methods(self, row):
        methods = [name for name, value in vars(row.cls).items() if type(value) is METHOD]
        assert methods == list(METHOD_DOCS)
        for name, doc in METHOD_DOCS.items():
            assert getattr(row.cls, name).__doc__ == doc
            assert getattr(row.cls, name).__objclass__ is row.cls

    @each(CLASS_ROWS)
    def test_attributes(self, row):
        attributes = [name for name, value in vars(row.cls).items() if type(value) is ATTRIBUTE]
        assert attributes == list(ATTRIBUTE_DOCS)
        for name, doc in ATTRIBUTE_DOCS.items():
            assert getattr(row.cls, name).__doc__ == doc
            assert getattr(row.cls, name).__objclass__ is row.cls

    @each(CLASS_ROWS)
    def test_attributes_cannot_be_set(self, row):
        array = row.cls([1])
        for name in ATTRIBUTE_DOCS:
            with pytest.raises(AttributeError):
                setattr(array, name, None)
            with pytest.raises(AttributeError):
                delattr(array, name)

    @each(CLASS_ROWS)
    def test_names_of_its_own_are_methods_and_attributes(self, row):
        assert own_names(row.cls) == [*list(METHOD_DOCS)[:-1], *ATTRIBUTE_DOCS]

    @each(CLASS_ROWS)
    def test_exports_memory(self, row):
        array = row.cls([1])
        with memoryview(array) as view:
            assert view.obj is array
        if sys.version_info >= (3, 12):
            assert isinstance(array, collections.abc.Buffer)
            assert set(vars(row.cls)) >= {"__buffer__", "__release_buffer__"}

    @each(CLASS_ROWS)
    def test_is_unhashable(self, row):
        assert row.cls.__hash__ is None
        assert not isinstance(row.cls([1]), collections.abc.Hashable)

    @each(CLASS_ROWS)
    def test_is_iterable_and_no_iterator(self, row):
        assert isinstance(row.cls([1]), collections.abc.Iterable)
        assert not isinstance(row.cls([1]), collections.abc.Iterator)

    @each(CLASS_ROWS)
    def test_instance_is_of_the_class_real_or_complex(self, row):
        assert type(row.cls([1])) is row.cls
        if row.has_complex:
            assert type(row.cls([1], is_complex=True)) is row.cls

    @each(CLASS_ROWS)
    def test_instance_has_no_room_for_attributes(self, row):
        array = row.cls([1])
        with pytest.raises(AttributeError):
            array.anything = 1
        with pytest.raises(TypeError):
            weakref.ref(array)
        assert not gc.is_tracked(array)


class TestIteratorClass:
    def test_names(self):
        assert module.MCPyIter.__name__ == "MCPyIter"
        assert module.MCPyIter.__qualname__ == "MCPyIter"
        assert module.MCPyIter.__module__ == "velmar"

    def test_doc(self):
        assert module.MCPyIter.__doc__ == "Internal iterator object"

    def test_base_is_object(self):
        assert module.MCPyIter.__bases__ == (object,)

    def test_record_and_flags(self):
        assert module.MCPyIter.__basicsize__ == RECORD_SIZE
        assert module.MCPyIter.__itemsize__ == 0
        flags = module.MCPyIter.__flags__
        assert flags & HEAP_TYPE
        assert not flags & (BASE_TYPE | HAVE_GC | IMMUTABLE_TYPE)

    def test_cannot_be_subclassed(self):
        with raises(TypeError, "type 'velmar.MCPyIter' is not an acceptable base type"):
            type("Derived", (module.MCPyIter,), {})

    def test_has_no_new_of_its_own(self):
        assert "__new__" not in vars(module.MCPyIter)

    def test_slots(self):
        assert set(vars(module.MCPyIter)) >= {"__iter__", "__next__"}
        assert issubclass(module.MCPyIter, collections.abc.Iterator)


EXCEPTIONS = pytest.mark.parametrize("name", ["ShapeError", "SizeError"])


class TestExceptions:
    @EXCEPTIONS
    def test_names(self, name):
        exception = getattr(module, name)
        assert exception.__name__ == name
        assert exception.__module__ == "vlexceptions"
        assert repr(exception) == f"<class 'vlexceptions.{name}'>"

    @EXCEPTIONS
    def test_base_is_exception_alone(self, name):
        assert getattr(module, name).__bases__ == (Exception,)

    @EXCEPTIONS
    def test_has_nothing_of_its_own(self, name):
        exception = getattr(module, name)
        assert exception.__doc__ is None
        assert set(vars(exception)) <= {"__module__", "__doc__", "__weakref__"}

    def test_are_two_classes(self):
        assert module.ShapeError is not module.SizeError

    def test_are_what_the_constructor_raises(self):
        with pytest.raises(Exception) as caught:  # noqa: B017 - the class is tested below
            module.double([1, 2, 3], size=(2, 2))
        assert caught.type is module.ShapeError
        with pytest.raises(Exception) as caught:  # noqa: B017 - the class is tested below
            module.double([[1, 2], [3, 4]], size=(1, 4))
        assert caught.type is module.SizeError


class TestPackages:
    @pytest.mark.parametrize("name", [*ARRAY_CLASSES, "MCPyIter"])
    def test_velmar_has_the_classes(self, name):
        assert getattr(velmar, name) is getattr(module, name)

    def test_velmar_has_nothing_else(self):
        assert sorted(velmar.__all__) == sorted([*ARRAY_CLASSES, "MCPyIter"])

    @EXCEPTIONS
    def test_vlexceptions_has_the_exceptions(self, name):
        assert getattr(vlexceptions, name) is getattr(module, name)

    def test_vlexceptions_has_nothing_else(self):
        assert sorted(vlexceptions.__all__) == ["ShapeError", "SizeError"]

    @pytest.mark.parametrize("name", PUBLISHED)
    def test_class_is_found_under_the_name_that_it_carries(self, name):
        published = getattr(module, name)
        home = importlib.import_module(published.__module__)
        assert getattr(home, published.__qualname__) is published
