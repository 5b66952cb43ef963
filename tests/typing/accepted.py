"""The types that checkers must infer; check_at_run_time.py compares them with the values."""

import array
import copy
import io
import mmap
import pickle
from fractions import Fraction
from typing import Any, assert_type

import velmar
import velmarmultidimarrayforpython as module
import vlexceptions
from velmar import look

flag = len(look.__all__) > 0

# Making arrays: at least two dimensions, whatever the nesting.
m = velmar.double([[1, 2, 3], [4, 5, 6.5]])
assert_type(m, "velmar.double[velmar.double[float]]")
assert_type(velmar.double(), "velmar.double[velmar.double[float]]")
assert_type(velmar.double(None), "velmar.double[velmar.double[float]]")
assert_type(velmar.double(1), "velmar.double[velmar.double[float]]")
assert_type(velmar.double([1, 2.5]), "velmar.double[velmar.double[float]]")
assert_type(velmar.double((1, 2), (2, 1)), "velmar.double[velmar.double[float]]")
assert_type(velmar.double(size=(2, 3)), "velmar.double[velmar.double[float]]")
assert_type(velmar.double(size=(3,)), "velmar.double[velmar.double[float]]")
assert_type(velmar.double(vector=range(6), size=(2, 3)), "velmar.double[velmar.double[float]]")
assert_type(velmar.double(array.array("d", [1, 2])), "velmar.double[velmar.double[float]]")
assert_type(velmar.double(m), "velmar.double[velmar.double[float]]")
assert_type(velmar.double(m[0]), "velmar.double[velmar.double[float]]")
assert_type(velmar.double([m[0], m[1][::-1]]), "velmar.double[velmar.double[float]]")
assert_type(velmar.double([1], is_complex=False), "velmar.double[velmar.double[float]]")
assert_type(velmar.double([1], None, None, False), "velmar.double[velmar.double[float]]")
assert_type(velmar.uint8(b"\x00\x02"), "velmar.uint8[velmar.uint8[int]]")
assert_type(velmar.uint8(bytearray(2)), "velmar.uint8[velmar.uint8[int]]")
assert_type(velmar.logical([0.5, 1j, True]), "velmar.logical[velmar.logical[bool]]")
assert_type(velmar.single([1.5]), "velmar.single[velmar.single[float]]")
assert_type(velmar.int8([True, 2]), "velmar.int8[velmar.int8[int]]")
assert_type(velmar.int16(velmar.int8([1])), "velmar.int16[velmar.int16[int]]")
assert_type(velmar.uint16(1), "velmar.uint16[velmar.uint16[int]]")
assert_type(velmar.int32(1), "velmar.int32[velmar.int32[int]]")
assert_type(velmar.uint32(1), "velmar.uint32[velmar.uint32[int]]")
assert_type(velmar.int64(1), "velmar.int64[velmar.int64[int]]")
assert_type(velmar.uint64(1), "velmar.uint64[velmar.uint64[int]]")

# Complex elements.
c = velmar.int8([[1 + 2j, 3], [4.5, 5]], is_complex=True)
assert_type(c, "velmar.int8[velmar.int8[complex]]")
assert_type(velmar.double(vector=[1j], is_complex=True), "velmar.double[velmar.double[complex]]")
assert_type(velmar.double(size=(2, 2), is_complex=True), "velmar.double[velmar.double[complex]]")
assert_type(velmar.double(c, is_complex=True), "velmar.double[velmar.double[complex]]")

# More than two dimensions, or an unknown number: the type of a subscript is open.
cube = velmar.double([[[1, 2], [3, 4]], [[5, 6], [7, 8]]])
assert_type(cube, "velmar.double[Any]")
assert_type(cube[0], Any)
assert_type(cube[0:1], "velmar.double[Any]")
assert_type(velmar.double([[[1], [2]]]), "velmar.double[Any]")
assert_type(velmar.double(size=(2, 3, 4)), "velmar.double[Any]")
assert_type(velmar.double(size=[2, 3]), "velmar.double[Any]")
assert_type(velmar.double(range(6), size=[2, 3]), "velmar.double[Any]")
assert_type(velmar.int16(memoryview(bytes(8)).cast("h")), "velmar.int16[Any]")
assert_type(velmar.uint8(mmap.mmap(-1, 4), size=[2, 2]), "velmar.uint8[Any]")
assert_type(velmar.double([1], is_complex=flag), "velmar.double[Any]")
assert_type(velmar.double([1j], None, None, True), "velmar.double[Any]")
assert_type(velmar.logical(size=[1, 2]), "velmar.logical[Any]")

# Subscripts, lengths, loops.
assert_type(m[1], "velmar.double[float]")
assert_type(m[-1][2], float)
assert_type(m[::-1], "velmar.double[velmar.double[float]]")
assert_type(m[0:2][1], "velmar.double[float]")
assert_type(m[1][0:2], "velmar.double[float]")
assert_type(m[1][0:2][0], float)
assert_type(c[0][1], complex)
assert_type(velmar.logical([1])[0][0], bool)
assert_type(velmar.uint64([1])[0][0], int)
assert_type(len(m), int)
assert_type([x for row in m for x in row][0], float)
assert_type(next(iter(m)), "velmar.double[float]")
assert_type(iter(m[0]), "velmar.MCPyIter[float]")
assert_type(next(iter(c[0])), complex)
assert_type(list(m[0])[0], float)
assert_type(max(m[0]), float)
assert_type(list(reversed(m[0]))[0], float)
assert_type(2.0 in m[0], bool)
assert_type(m == m, bool)
assert_type(m != 1, bool)

# Writes.
m[0][1] = 7
m[0][1] = 7.5
m[0] = [1, 2, 3]
m[0] = m[1]
m[0][0:2] = (1, 2)
m[0:2] = [1, 2, 3, 4, 5, 6]
m[0:2] = [[1, 2, 3], [4, 5, 6]]
m[:] = m[::-1]
m[0:1][0:1] = m[0:1]
velmar.double(1)[0:1] = 2
c[0][1] = 1j
c[0] = [1, 2j]
c[0][:] = [1, 2j]
c[:] = [1, 2j, 3, 4]
flags = velmar.logical([[0, 1]])
flags[0][1] = 1
flags[0] = [True, 0]
cube[0][1][1] = 3
cube[0] = [[1, 2], [3, 4]]

# Methods and attributes.
assert_type(m.clone(), "velmar.double[velmar.double[float]]")
assert_type(m[0].clone(), "velmar.double[velmar.double[float]]")
assert_type(c[0].clone(), "velmar.int8[velmar.int8[complex]]")
assert_type(flags[0].clone(), "velmar.logical[velmar.logical[bool]]")
assert_type(cube.clone(), "velmar.double[Any]")
assert_type(copy.copy(m), "velmar.double[velmar.double[float]]")
assert_type(c.real(), "velmar.int8[int]")
assert_type(c[0].imag(), "velmar.int8[int]")
assert_type(c._real, "velmar.int8[int]")
assert_type(c._imag, "velmar.int8[int]")
assert_type(m.noncomplex(), "velmar.double[float]")
assert_type(cube.noncomplex(), "velmar.double[float]")
assert_type(m[0]._data, "velmar.double[float]")
assert_type(m.noncomplex()[0], float)
assert_type(m.clone().reshape(3, 2), "velmar.double[velmar.double[float]]")
assert_type(c.clone().reshape(1, 4), "velmar.int8[velmar.int8[complex]]")
assert_type(m.clone().reshape(1, 2, 3), "velmar.double[Any]")
assert_type(m.clone().reshape([6]), "velmar.double[Any]")
assert_type(m[0].toarray(), "array.array[float]")
assert_type(c.real().toarray(), "array.array[int]")
assert_type(flags[0].toarray(), "array.array[int]")
assert_type(m.tomemoryview().readonly, bool)
assert_type(memoryview(m).strides, "tuple[int, ...] | None")
assert_type(bytes(m), bytes)
assert_type(m.buffer_info(), "tuple[int, int]")
assert_type(m.get_bytewise_strides(), "tuple[int, ...]")
assert_type(m.size, "tuple[int, ...]")
assert_type(m._size, "tuple[int, ...]")
assert_type(m.itemsize, int)
assert_type(m._is_complex, bool)
assert_type(pickle.loads(pickle.dumps(m)), Any)

# The classes are the same in both modules, and so are the exceptions.
same: "type[velmar.double[Any]]" = module.double
assert_type(module.int8([1]), "velmar.int8[velmar.int8[int]]")
error: vlexceptions.SizeError = module.SizeError("text")

# Tables.
assert_type(velmar.html(m, title="m", rows=3, digits=None), look.Html)
assert_type(velmar.summary(m[0]), str)

# Conversion.
assert_type(velmar.asarray(m), "velmar.double[velmar.double[float]]")
assert_type(velmar.asarray(m[0]), "velmar.double[float]")
assert_type(velmar.asarray(b"ab"), Any)
assert_type(velmar.asarray([1, 2], velmar.int8), "velmar.int8[Any]")
assert_type(velmar.asarray(m, cls=velmar.single), "velmar.single[Any]")
velmar.save(stored := io.BytesIO(), m)
stored.seek(0)
assert_type(velmar.load(stored), Any)
assert_type(velmar.__version__, str)


# Annotations. A name without brackets stands for arrays of any kind and dimensions.
def total(rows: "velmar.double[velmar.double[float]]") -> float:
    return sum(sum(row) for row in rows)


def first(rows: velmar.double) -> float:
    return float(rows[0][0])


assert_type(total(m), float)
assert_type(first(m) + first(cube[0]), float)
assert_type(total(cube[0]), float)
assert_type(Fraction(velmar.int32([[3]])[0][0]), Fraction)
