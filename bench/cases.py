"""The jobs of the benchmark table, with the limits for our results.

A new row calls listed() for an operation of operation_list.py, job() for another statement on
arrays, build() for one that makes an object, or buffer() for one that makes an array from memory.
"""

from operation import ARRAY, BYTES, NUMPY, NUMPY_F, OTHERWISE, OURS, Kind, Limit, Shape
from operation_list import DOUBLES, FLAT_ARRAY, NO_ARROW, OPERATIONS, build, use

TEN, HUNDRED, THOUSAND, LARGE = (Shape(side, side) for side in (10, 100, 1000, 3162))
TALL, WIDE = Shape(1000, 100), Shape(100, 1000)
MILLION, LONG, TWO_ROWS = Shape(1, 10**6), Shape(1, 10**7), Shape(2, 5_000_000)


def listed(title, limit=None, shape=THOUSAND, **changes):
    """The operation over sizes with this title, changed."""
    return OPERATIONS[title].changed(limit=limit, shape=shape, **changes | NO_ARROW)


def job(statement, limit=None, shape=THOUSAND, **changes):
    """A statement on an array, of doubles unless the changes say otherwise."""
    return use(statement, limit=limit, shape=shape, **changes | NO_ARROW)


def buffer(shape, limit, maker="n.flatten()"):
    """Construction from memory of doubles, flat unless another maker is given."""
    makers = dict.fromkeys((OURS, NUMPY, NUMPY_F), maker) | {BYTES: "bytearray(n)"}
    return job(
        "velmar.double(a)",
        limit,
        shape,
        makers=makers | ({ARRAY: FLAT_ARRAY} if shape.rows == 1 else {}),
        numpy="np.array(a)",
        numpy_F='np.array(a, order="F")',
        array='array("d", a)',
        bytearray="bytes(a)",
    )


# Statements and makers that differ by column; those of int32 are made from whole floats.
INT32 = {
    OURS: 'velmar.int32(n.astype("int32"))',
    NUMPY: 'n.astype("int32")',
    NUMPY_F: 'n.astype("int32", order="F")',
    ARRAY: '[array("i", row.tobytes()) for row in n.astype("int32")]',
}
FLAT_INT32 = {
    "elements": "ints",
    "velmar": "velmar.int32(vector=flat)",
    "numpy": 'np.array(flat, dtype="int32")',
    "numpy_F": None,
    "array": 'array("i", flat)',
}
HELD = {"velmar": DOUBLES[OURS], "numpy": "np.array(n)", "numpy_F": None, "array": FLAT_ARRAY}
ZEROS = {"bytearray": "bytearray({count} * 8)"}
ONE_ROW = {"array": 'a[3] = array("d", data[0])', "list": "a[3] = data[0][:]"}
SIX_ROWS = {
    "array": 'a[2:8] = [array("d", row) for row in data[:6]]',
    "list": "a[2:8] = [row[:] for row in data[:6]]",
}
INT32_IN = {
    "makers_of_b": INT32,
    "elements": "whole_floats",
    "array": 'a[:] = [array("d", row) for row in b]',
    "list": None,
}
OF_INT32 = {
    "makers": INT32,
    "elements": "whole_floats",
    "numpy": "a.astype(float)",
    "array": '[array("d", row) for row in a]',
}
EQUAL = {"makers_of_b": DOUBLES, "numpy": "np.array_equal(a, b)"}
# A view exports a copy, so the others copy as well.
EXPORTED_ROW = {"numpy": "a[3].copy()", "rows": "a[3][:]"}
EXPORTED_ROWS = {
    "numpy": "a[100:200].copy()",
    "numpy_F": 'a[100:200].copy("F")',
    "rows": "[row[:] for row in a[100:200]]",
}
ONLY_NUMPY_F = {"numpy": None, "numpy_F": 'a.copy("F")', "rows": None}
# a.__reduce__()[1][1] is the fastest way to get a nested list of an array.
PICKLED_LIST = "velmar.double(pickle.loads(pickle.dumps(a.__reduce__()[1][1])))"
PICKLES = {"makers": DOUBLES | {OTHERWISE: DOUBLES[OURS]}, OTHERWISE: PICKLED_LIST}

OURS_AND_NUMPY = {column: DOUBLES[column] for column in (OURS, NUMPY)}
VECTOR = "velmar.double(vector=a)"
RESHAPES = "a.reshape(5_000_000, 2)\na.reshape(2, 5_000_000)"
BESIDE_TEN = {
    "makers": {OURS: DOUBLES[OURS], OTHERWISE: "velmar.double(n[:, :5].copy())"},
    OTHERWISE: "a.reshape(5, 2)\na.reshape(2, 5)",
}
FROM_MEMORY = {
    "makers": dict.fromkeys((OURS, NUMPY_F, ARRAY), FLAT_ARRAY),
    "numpy_F": "np.array(a)",
    "array": "a[:]",
}
FLAT = {"makers": dict.fromkeys((OURS, NUMPY_F), "n.flatten()"), "numpy_F": "np.array(a)[7]"}
REAL = {"numpy": "a.real.copy()", "numpy_F": None}
IMPORTS = {module: f"import {module}" for module in (OURS, NUMPY, ARRAY)} | {"numpy_F": None}
SINGLE = "velmar.single(a)"
INFINITE = "np.full_like(n, np.inf)"
INFINITE_LISTS = {OURS: f"{INFINITE}.tolist()", OTHERWISE: "n.tolist()"}
INFINITE_ARRAYS = {OURS: f"velmar.double({INFINITE})", OTHERWISE: DOUBLES[OURS]}

CASES = {
    "import": build(limit=Limit(0.1, NUMPY), kind=Kind.IMPORT, **IMPORTS),
    "1000x1000 from floats": listed("from nested floats", Limit(0.6, NUMPY_F)),
    "1000x1000 from ints": listed("double from nested ints", Limit(0.8, NUMPY_F)),
    "10x10 from floats": listed("from nested floats", Limit(1.0, NUMPY_F, aim=0.5), TEN),
    "10x10 from ints": listed("double from nested ints", shape=TEN),
    "1000x1000 int32": listed("int32 from nested ints"),
    "1000x1000 uint8": listed("uint8 from nested ints"),
    "1000x1000 logical": listed("logical from nested bools"),
    "1000x1000 complex": listed("from nested complex numbers"),
    "vector of 1e6 floats": listed("from a flat list", shape=MILLION, numpy_F=None),
    "vector of 1e6 int32": listed("from a flat list", shape=MILLION, **FLAT_INT32),
    "vector of an array.array": job(VECTOR, Limit(1.3, NUMPY_F), MILLION, **FROM_MEMORY),
    "1x1 from a number": build(
        velmar="velmar.double(1.5)", numpy="np.array([[1.5]])", numpy_F=None, list="[[1.5]]"
    ),
    "size=(10, 10)": listed("zeros", Limit(2.7, NUMPY_F), TEN, **ZEROS),
    "size=(1000, 1000)": listed("zeros", Limit(3.0, BYTES), **ZEROS),
    "size=(3162, 3162)": listed("zeros", Limit(1.6, NUMPY_F), LARGE, **ZEROS),
    "a[3][7], 100x100": job("a[3][7]", Limit(1.0, NUMPY, aim=0.6), HUNDRED),
    "a[3], 100x100": job("a[3]", Limit(1.5, NUMPY), HUNDRED),
    "a[2:8], 100x100": job("a[2:8]", Limit(1.5, NUMPY), HUNDRED),
    "a[::2], 1000x100": job("a[::2]", shape=TALL),
    "a[2:8][3], 100x100": job("a[2:8][3]", shape=HUNDRED),
    "a[::2][1:6], 1000x100": job("a[::2][1:6]", shape=TALL),
    "list(a[3]), 100x1000": job("list(a[3])", shape=WIDE, numpy="a[3].tolist()"),
    "str(a), 100x100": listed("text in full", Limit(0.25, NUMPY), HUNDRED),
    "a[3][7] = 1.5, 100x100": job("a[3][7] = 1.5", Limit(1.0, NUMPY, aim=0.6), HUNDRED),
    "a[3] = data[0], 100x1000": job("a[3] = data[0]", Limit(0.6, NUMPY), shape=WIDE, **ONE_ROW),
    "a[2:8] = data[:6], 100x1000": job("a[2:8] = data[:6]", shape=WIDE, **SIX_ROWS),
    "a[3] = b[3], 1000x1000": job(
        "a[3] = b[3]", Limit(1.5, NUMPY_F), makers_of_b=DOUBLES, rows="a[3] = b[3][:]"
    ),
    "a[:] = b, 1000x1000": listed("write all from another array", Limit(1.3, NUMPY_F)),
    "a[:] = b of int32, 1000x1000": listed(
        "write all from another array", Limit(1.3, NUMPY_F), **INT32_IN
    ),
    "all elements, 1000x1000": listed("a loop over all", Limit(1.0, NUMPY)),
    "a == b, 10x10": job("a == b", Limit(0.2, NUMPY_F), TEN, **EQUAL),
    "a == b, 1000x1000": job("a == b", Limit(1.3, NUMPY_F), **EQUAL),
    # An array keeps its snapshot; each a[:] is a new view without one.
    "a[:].clone(), 10x10": listed("a copy", Limit(2.5, NUMPY_F), TEN),
    "a[:].clone(), 1000x1000": listed("a copy", Limit(1.2, NUMPY_F)),
    "a[:].clone(), 3162x3162": listed("a copy", Limit(1.2, NUMPY_F), LARGE, **ONLY_NUMPY_F),
    "velmar.single(a), 1000x1000": listed("from an array of another class", Limit(1.6, NUMPY_F)),
    "double of int32, 1000x1000": job("velmar.double(a)", Limit(2.5, NUMPY_F), **OF_INT32),
    "infinities from lists": job(SINGLE, Limit(1.2, OTHERWISE), makers=INFINITE_LISTS),
    "infinities, an array": job(SINGLE, Limit(1.2, OTHERWISE), makers=INFINITE_ARRAYS),
    "pickle, 1000x1000": listed("a pickle there and back", Limit(1.1, OTHERWISE), **PICKLES),
    "buffer, 100 doubles": buffer(Shape(1, 100), Limit(2.0, NUMPY_F)),
    "buffer, 1e6 doubles": buffer(MILLION, Limit(3.0, BYTES)),
    "buffer, 1000x1000 by column": buffer(THOUSAND, Limit(3.0, BYTES), 'n.copy("F")'),
    "buffer, 1e7 doubles": buffer(LONG, Limit(3.0, BYTES)),
    "buffer, 3162x3162 by column": buffer(LARGE, Limit(3.0, BYTES), 'n.copy("F")'),
    "buffer, 3162x1000 by row": buffer(Shape(3162, 1000), Limit(0.6, NUMPY_F), "n.copy()"),
    "first read of 1e7 doubles": job("velmar.double(a)[0][7]", Limit(1.1, NUMPY_F), LONG, **FLAT),
    "memoryview(a)": listed("memoryview", Limit(1.0, NUMPY), HUNDRED, numpy_F=None),
    "memoryview(a[3]), 1000x1000": job("memoryview(a[3])", Limit(2.0, NUMPY_F), **EXPORTED_ROW),
    "memoryview(a[100:200]), 1000x1000": job(
        "memoryview(a[100:200])", Limit(1.7, NUMPY_F), **EXPORTED_ROWS
    ),
    "two reshapes of 1e7": job(RESHAPES, Limit(3.0, NUMPY), TWO_ROWS, makers=OURS_AND_NUMPY),
    "reshapes, 1e7 and ten": job(RESHAPES, Limit(2.0, OTHERWISE), TWO_ROWS, **BESIDE_TEN),
    "real(), 1000x1000": listed("the real part", Limit(4.0, NUMPY), **REAL),
    "peak, 1000x1000 from floats": listed("from nested floats", Limit(4.0), kind=Kind.PEAK),
    "peak, 1000x1000 from ints": listed("double from nested ints", Limit(4.0), kind=Kind.PEAK),
    "peak, 1000x1000 int32": listed("int32 from nested ints", kind=Kind.PEAK, item_bytes=4),
    "peak, a[:].clone()": listed("a copy", Limit(1.2), kind=Kind.GROWTH, rows=None),
    "held, 1000x1000": build(
        "floats", limit=Limit(1.1 * 8_000_000), shape=THOUSAND, kind=Kind.HELD, **HELD
    ),
    "held, 1x1": build("floats", limit=Limit(560), shape=Shape(1, 1), kind=Kind.HELD, **HELD),
}
