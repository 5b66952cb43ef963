"""asarray() by the standard library: buffers of every format, order and layout, and its errors."""

from __future__ import annotations

import array
import ctypes
import math
import struct
import sys

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, FORMS, contents, exact
from helpers.cases import each, each_form, rows
from helpers.child_interpreter import run_script
from helpers.failures import raises
from helpers.placed_memory import (
    CLASS_OF,
    LETTERS,
    NATIVE,
    Placed,
    exporter,
    flat_bytes,
    layouts,
    nested,
    value_at,
)
from hypothesis import example, given
from hypothesis import strategies as st


def check(prefix, letter, is_complex, shape, layout_name):
    """Export numbers in this way, and compare the array with them."""
    order = {"": NATIVE, "@": NATIVE, "=": NATIVE, "^": NATIVE, "!": ">"}.get(prefix, prefix)
    itemsize = struct.calcsize(f"={letter}") * (2 if is_complex else 1)
    source = exporter(
        f"{prefix}{'Z' if is_complex else ''}{letter}",
        itemsize,
        shape,
        layouts(shape)[layout_name],
        lambda position: flat_bytes(letter, order, [value_at(letter, is_complex, shape, position)]),
    )
    references = sys.getrefcount(source)
    a = velmar.asarray(source)
    assert sys.getrefcount(source) == references
    assert type(a) is CLASS_OF[letter]
    assert a._is_complex is is_complex
    while len(shape) > 2 and shape[-1] == 1:  # arrays drop such dimensions
        shape = shape[:-1]
    expected = nested(shape, lambda position: value_at(letter, is_complex, shape, position))
    for _ in range(2 - len(shape)):
        expected = [expected]
    assert exact(contents(a)) == exact(expected)


PREFIXES = ["", "@", "=", "^", "<", ">", "!"]
SHAPES = [(), (1,), (5,), (2, 3), (3, 1), (1, 4), (2, 3, 2), (2, 1, 3, 2)]
# Larger complex integers do not fit a complex number of Python.
COMPLEX_LETTERS = [letter for letter in LETTERS if letter not in "?qQ"]


class TestFormats:
    @pytest.mark.parametrize("prefix", PREFIXES)
    @pytest.mark.parametrize("letter", [*LETTERS, "e"])
    def test_real(self, prefix, letter):
        for shape in ((3,), (2, 3)):
            for name in layouts(shape):
                check(prefix, letter, False, shape, name)

    @pytest.mark.parametrize("prefix", PREFIXES)
    @pytest.mark.parametrize("letter", COMPLEX_LETTERS)
    def test_complex(self, prefix, letter):
        for shape in ((3,), (2, 3)):
            for name in layouts(shape):
                check(prefix, letter, True, shape, name)

    @pytest.mark.parametrize("shape", SHAPES, ids=str)
    @pytest.mark.parametrize("format", ["d", ">h", "=f", ">e", "?"])
    def test_shapes(self, shape, format):
        for name in layouts(shape):
            check(format[:-1], format[-1], False, shape, name)

    @pytest.mark.parametrize("shape", SHAPES, ids=str)
    @pytest.mark.parametrize("format", ["d", ">h", "=f"])
    def test_complex_shapes(self, shape, format):
        for name in layouts(shape):
            check(format[:-1], format[-1], True, shape, name)

    @given(
        prefix=st.sampled_from(PREFIXES),
        letter=st.sampled_from([*LETTERS, "e"]),
        is_complex=st.booleans(),
        shape=st.lists(st.integers(1, 4), max_size=4).map(tuple),
        layout_name=st.sampled_from(["rows", "columns", "gaps", "backwards"]),
    )
    def test_all_at_once(self, prefix, letter, is_complex, shape, layout_name):
        check(prefix, letter, is_complex and letter in COMPLEX_LETTERS, shape, layout_name)

    @pytest.mark.parametrize("letter", "lLnN")
    @pytest.mark.parametrize("size", [4, 8])
    def test_width_of_a_long_is_the_size_of_the_item(self, letter, size):
        if letter in "nN" and size != struct.calcsize("n"):
            pytest.skip("no such size_t here")
        value = 1000 if letter in "LN" else -1000
        memory = value.to_bytes(size, sys.byteorder, signed=value < 0) * 2
        for prefix in ("", NATIVE):
            source = Placed(memory, prefix + letter, size, (2,), (size,), 0)
            a = velmar.asarray(source)
            assert type(a).__name__ == f"{'u' if letter in 'LN' else ''}int{8 * size}"
            assert contents(a) == [[value, value]]

    @pytest.mark.parametrize("letter, expected", [("F", velmar.single), ("D", velmar.double)])
    def test_letters_of_3_14(self, letter, expected):
        part = {"F": "f", "D": "d"}[letter]
        for prefix, order in (("", NATIVE), ("<", "<"), (">", ">")):
            memory = struct.pack(f"{order}4{part}", 1, 2, 3, 4)
            itemsize = len(memory) // 2
            a = velmar.asarray(Placed(memory, prefix + letter, itemsize, (2,), (itemsize,), 0))
            assert type(a) is expected
            assert contents(a) == [[1 + 2j, 3 + 4j]]

    @pytest.mark.parametrize("value", [2.0**-24, 65504.0, -(2.0**-14), math.inf, -math.inf, -0.0])
    def test_half_precision_is_exact(self, value):
        # One element more than are converted at a time.
        halves = memoryview(struct.pack("e", value) * 65537).cast("B")
        a = velmar.asarray(Placed(bytes(halves), "e", 2, (65537,), (2,), 0))
        assert exact([a[0][0], a[0][65536]]) == exact([value, value])
        assert a.size == (1, 65537)

    def test_half_precision_without_numpy(self):
        outcome = run_script("""
            import struct, sys, velmar._memory
            sys.modules["numpy"] = None
            halves = [struct.pack("<H", i) for i in range(0x7C01)]
            a = velmar._memory.singles_of(memoryview(b"".join(halves)), sys.byteorder == "big")
            expected = [struct.unpack("<e", half)[0] for half in halves]
            report(a.cast("f").tolist() == expected)
        """)
        assert outcome.reported is True


class TestOwnersOfMemory:
    @rows(
        "x, expected",
        [
            ("bytes", b"\x00\xff", velmar.uint8([0, 255])),
            ("no bytes", b"", velmar.uint8(size=(1, 0))),
            ("bytearray", bytearray(b"ab"), velmar.uint8([97, 98])),
            ("array", array.array("h", [-1, 2]), velmar.int16([-1, 2])),
            ("long", array.array("q", [-1, 2]), velmar.int64([-1, 2])),
            ("no array", array.array("d"), velmar.double(size=(1, 0))),
            ("cast", memoryview(bytes(12)).cast("h", (2, 3)), velmar.int16(size=(2, 3))),
            ("part", memoryview(b"abcdef")[::-2], velmar.uint8([102, 100, 98])),
            ("number", ctypes.c_short(-7), velmar.int16([[-7]])),
            ("ctypes", (ctypes.c_double * 2)(1, 2), velmar.double([1, 2])),
            (
                "ctypes in rows",
                ((ctypes.c_int * 2) * 3)((1, 2), (3, 4), (5, 6)),
                velmar.int32([[1, 2], [3, 4], [5, 6]]),
            ),
            (
                "ctypes, big",
                (ctypes.c_float.__ctype_be__ * 2)(1.5, -2),
                velmar.single([1.5, -2]),
            ),
            (
                "ctypes, little",
                (ctypes.c_uint64.__ctype_le__ * 2)(1, 2**64 - 1),
                velmar.uint64([1, 2**64 - 1]),
            ),
            ("ctypes, bool", (ctypes.c_bool * 2)(True, False), velmar.logical([True, False])),
        ],
    )
    def test_rows(self, x, expected):
        a = velmar.asarray(x)
        assert (type(a), a.size) == (type(expected), expected.size)
        assert a == expected

    @each_form
    def test_memory_of_arrays(self, row, is_complex):
        a = row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)
        b = velmar.asarray(memoryview(a))
        assert b == a and b is not a
        assert velmar.asarray(memoryview(a)[::-1]) == a[::-1].clone()

    @pytest.mark.parametrize("shape", [(0, 3), (3, 0), (2, 0, 4)])
    def test_without_elements(self, shape):
        strides = [8] * len(shape)
        for format in ("d", ">d", "Zf"):
            a = velmar.asarray(Placed(b"", format, 8, shape, strides, 0))
            assert a.size == shape
            assert a._is_complex is (format == "Zf")

    def test_is_a_copy(self):
        x = array.array("d", [1, 2])
        a = velmar.asarray(x)
        x[0] = 9
        assert contents(a) == [[1.0, 2.0]]
        x.append(3)  # no export is left


class TestArrays:
    @each(CLASS_ROWS)
    def test_comes_back(self, row):
        a = row.cls([[1, 0], [0, 1]])
        for x in (a, a[0], a[::-1]):
            assert velmar.asarray(x) is x
            assert velmar.asarray(x, row.cls) is x

    @pytest.mark.parametrize("row, is_complex", FORMS, ids=str)
    def test_is_converted(self, row, is_complex):
        a = velmar.int8([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)
        b = velmar.asarray(a, row.cls)
        assert b == row.cls([[1, 0, 1], [0, 1, 1]], is_complex=is_complex)

    def test_row_is_converted_as_it_is_now(self):
        a = velmar.int8([[1, 2], [3, 4]])
        row = a[1]
        assert velmar.asarray(row, velmar.double) == velmar.double([3, 4])
        a[1][0] = 30
        assert velmar.asarray(row, velmar.double) == velmar.double([30, 4])

    @pytest.mark.parametrize("size", [(0, 3), (3, 0), (2, 0, 3)])
    def test_without_elements(self, size):
        assert velmar.asarray(velmar.int8(size=size), velmar.double).size == size
        assert velmar.asarray(velmar.int8(size=(2, 0))[0], velmar.double).size == (1, 0)


class TestClass:
    @rows(
        "x, cls, expected",
        [
            ("list", [[1, 2], [3, 4]], velmar.int8, velmar.int8([[1, 2], [3, 4]])),
            ("number", 2.5, velmar.double, velmar.double(2.5)),
            ("range", range(3), velmar.uint16, velmar.uint16([0, 1, 2])),
            ("buffer of the class", array.array("b", [1]), velmar.int8, velmar.int8([1])),
            ("buffer of another", array.array("b", [-1, 2]), velmar.double, velmar.double([-1, 2])),
            (
                "floats to logical",
                array.array("d", [0, 0.5]),
                velmar.logical,
                velmar.logical([0, 1]),
            ),
            ("bytes", b"\x01\x02", velmar.int32, velmar.int32([1, 2])),
            ("nothing", array.array("b"), velmar.double, velmar.double(size=(1, 0))),
        ],
    )
    def test_rows(self, x, cls, expected):
        a = velmar.asarray(x, cls)
        assert (type(a), a.size) == (cls, expected.size)
        assert a == expected

    @rows(
        "x, cls, exception, message",
        [
            ("a float", float, [1], TypeError, None),
            ("an instance", velmar.int8([1]), [1], TypeError, None),
            ("the iterator", velmar.MCPyIter, [1], TypeError, None),
            (
                "too large",
                velmar.int8,
                array.array("h", [300]),
                OverflowError,
                "value (300) cannot be stored in a variable of type int8.",
            ),
            ("none", velmar.int8, None, TypeError, "asarray() needs data, not None."),
            ("dict", velmar.int8, {"size": (1, 1)}, TypeError, "type does not match."),
            (
                "text",
                velmar.double,
                "ab",
                ValueError,
                "value passed to initializer must be numeric.",
            ),
            (
                "complex to logical",
                velmar.logical,
                velmar.int8([1], is_complex=True),
                TypeError,
                "logical arrays must not be complex.",
            ),
        ],
    )
    def test_refused(self, x, cls, exception, message):
        cls, x = x, cls
        if message is None:
            message = f"'cls' must be None or one of the eleven array classes, not {cls!r}."
        with raises(exception, message):
            velmar.asarray(x, cls)


class Record(ctypes.Structure):
    _fields_ = [("a", ctypes.c_int)]


def cannot_use(name, format, remedy):
    return (
        f"asarray() cannot use '{name}' with elements of format {format!r}, which no class can"
        f" hold. {remedy}"
    )


ROUND = "Round them first: numpy.asarray(x).astype('float64'), or 'complex128' if they are complex."
PLAIN = "Convert them to numbers first."
CODES = "They are characters: pass memoryview(x).cast('B') for their codes."
TEXT = "They are text: convert it to numbers first."
OBJECTS = "They are Python objects: pass numpy.asarray(x).tolist() and 'cls'."
RECORDS = "They are records: pass one field, for example x['name'] of a NumPy array."
REFUSED = [
    *[(format, 16, ROUND) for format in ("g", "<g", ">Zg")],
    *[(format, 8, OBJECTS) for format in ("O", "@O")],
    *[(format, 1, CODES) for format in ("c", "<c")],
    *[(format, 4, TEXT) for format in ("u", "w", "2s", "s", "<5w", "p")],
    ("T{<i:a:}", 4, RECORDS),
    *[(format, 8, PLAIN) for format in ("P", "z", "X{}", "&d", "2d", "dd", "d ", " d", "16x")],
    *[(format, 2, PLAIN) for format in ("Z?", "Z", "ZZd", "<>h", "<", "\x7f")],
    # Sizes that do not fit the letter.
    *[(format, 3, PLAIN) for format in ("d", "i", "e", "Zb", "?", "l", "n", "B")],
    *[(format, 4, PLAIN) for format in ("d", "q", "Ze", "h", "Zf", "b")],
    *[(format, 16, PLAIN) for format in ("d", "Zf", "q", "L", "F")],
    ("Zl", 6, PLAIN),
]


class TestRefused:
    @pytest.mark.parametrize("format, size, remedy", REFUSED)
    def test_formats(self, format, size, remedy):
        for count in (1, 0):
            source = Placed(bytes(size), format, size, (count,), (size,), 0)
            with raises(TypeError, cannot_use("helpers.placed_memory.Placed", format, remedy)):
                velmar.asarray(source)

    def test_every_single_letter(self):
        known = set("?bBhHiIlLqQnNefdFD")
        for code in range(1, 128):
            taken = set()
            for size in (1, 2, 4, 8, 16):
                source = Placed(bytes(size), chr(code), size, (1,), (size,), 0)
                try:
                    taken.add(velmar.asarray(source).itemsize)
                except TypeError as error:
                    assert "which no class can hold" in str(error)
            assert bool(taken) is (chr(code) in known), chr(code)

    @given(st.text(st.characters(min_codepoint=1, max_codepoint=126), max_size=6))
    @example("")
    def test_any_format(self, format):
        for size in (1, 8):
            source = Placed(bytes(size), format, size, (1,), (size,), 0)
            try:
                a = velmar.asarray(source)
            except TypeError as error:
                assert "which no class can hold" in str(error)
            else:
                assert a.size == (1, 1) and a.itemsize in (size, 4)

    @rows(
        "x, name, format, remedy",
        [
            ("text", array.array("u", "ab"), "array.array", None, TEXT),
            ("record", (Record * 2)(), "test_asarray.Record_Array_2", None, RECORDS),
            ("characters", (ctypes.c_char * 2)(), "CTYPES", None, CODES),
            ("pointer", (ctypes.c_void_p * 2)(), "CTYPES", None, PLAIN),
        ],
    )
    def test_owners(self, x, name, format, remedy):
        if name == "CTYPES":
            name = f"{type(x).__module__}.{type(x).__qualname__}"
        with raises(TypeError, cannot_use(name, memoryview(x).format, remedy)):
            velmar.asarray(x)
        with raises(TypeError, cannot_use(name, memoryview(x).format, remedy)):
            velmar.asarray(x, velmar.double)

    @pytest.mark.parametrize(
        "x, name",
        [
            ([1, 2], "list"),
            ((), "tuple"),
            (3, "int"),
            (2j, "complex"),
            ("ab", "str"),
            (None, "NoneType"),
            ({}, "dict"),
            (velmar.double, "type"),
            (iter(velmar.double([1])), "velmar.MCPyIter"),
        ],
    )
    def test_without_a_buffer(self, x, name):
        with raises(
            TypeError,
            f"asarray() needs 'cls' for '{name}', which has no buffer. Name the class of its "
            "elements, for example cls=velmar.double.",
        ):
            velmar.asarray(x)

    def test_released(self):
        m = memoryview(b"ab")
        m.release()
        with raises(
            TypeError,
            "asarray() cannot use the buffer of 'memoryview': operation forbidden on released "
            "memoryview object. Pass a copy of its elements.",
        ):
            velmar.asarray(m)

    def test_without_numpy(self):
        outcome = run_script("""
            import sys, velmar
            sys.modules["numpy"] = None
            class Table:
                def __array__(self):
                    raise AssertionError
            class Tensor:
                def __dlpack__(self):
                    raise AssertionError
            seen = []
            for x in (Table(), Tensor(), Table):
                try:
                    velmar.asarray(x)
                except TypeError as error:
                    seen.append(str(error))
            try:
                velmar.asnumpy(velmar.double())
            except ModuleNotFoundError as error:
                seen.append([str(error), error.name])
            report(seen)
        """)
        needs = (
            "asarray() needs NumPy for '__main__.{}', which has no buffer of its own. Install it, "
            "or pass nested lists and 'cls'."
        )
        assert outcome.reported == [
            needs.format("Table"),
            needs.format("Tensor"),
            "asarray() needs 'cls' for 'type', which has no buffer. Name the class of its "
            "elements, for example cls=velmar.double.",
            ["asnumpy() needs the package 'numpy', which is not installed.", "numpy"],
        ]
