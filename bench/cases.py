# The jobs of the benchmark table, with the limits for our results.
"""A new row calls listed() for an operation that operation_list.py has, job() for another statement
on arrays, made() for one that makes an object, or buffer() for one that makes an array from memory.
"""

from operation import (
    ARRAY,
    BYTES,
    DOUBLES,
    FLAT_ARRAY,
    NUMPY,
    NUMPY_F,
    OTHERWISE,
    OURS,
    Kind,
    Limit,
    Shape,
    build,
    use,
)
from operation_list import NO_ARROW, OPERATIONS

TEN, HUNDRED, THOUSAND, LARGE = (Shape(side, side) for side in (10, 100, 1000, 3162))
TALL, WIDE = Shape(1000, 100), Shape(100, 1000)
MILLION, LONG, TWO_ROWS = Shape(1, 10**6), Shape(1, 10**7), Shape(2, 5_000_000)


def listed(key, name, limit=None, shape=THOUSAND, **changes):
    """The operation over sizes with this key, changed."""
    return OPERATIONS[key].changed(title=name, limit=limit, shape=shape, **changes | NO_ARROW)


def job(statement, limit=None, shape=HUNDRED, name=None, **changes):
    """A statement on an array, of doubles unless the changes say otherwise."""
    name = name or f"{statement}, {shape}"
    return use(name, statement, limit=limit, shape=shape, **changes | NO_ARROW)


def made(name, limit=None, shape=TEN, elements="", **changes):
    """A job that makes an object. The column numpy-F is left out."""
    return build(name, elements, limit=limit, shape=shape, **changes, numpy_F=None)


def buffer(name, shape, limit, maker="n.flatten()"):
    """Construction from memory of doubles, flat unless another maker is given."""
    makers = dict.fromkeys((OURS, NUMPY, NUMPY_F), maker) | {BYTES: "bytearray(n)"}
    return job(
        "velmar.double(a)",
        limit,
        shape,
        f"buffer, {name}",
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
HELD = {"elements": "floats", "velmar": DOUBLES[OURS], "numpy": "np.array(n)", "array": FLAT_ARRAY}
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
IMPORTS = {module: f"import {module}" for module in (OURS, NUMPY, ARRAY)}
SINGLE = "velmar.single(a)"
INFINITE = "np.full_like(n, np.inf)"
INFINITE_LISTS = {OURS: f"{INFINITE}.tolist()", OTHERWISE: "n.tolist()"}
INFINITE_ARRAYS = {OURS: f"velmar.double({INFINITE})", OTHERWISE: DOUBLES[OURS]}

CASES = (
    made("import", Limit(0.1, NUMPY), kind=Kind.IMPORT, **IMPORTS),
    listed("floats", "1000x1000 from floats", Limit(0.6, NUMPY_F)),
    listed("ints", "1000x1000 from ints", Limit(0.8, NUMPY_F)),
    listed("floats", "10x10 from floats", Limit(1.0, NUMPY_F, aim=0.5), TEN),
    listed("ints", "10x10 from ints", shape=TEN),
    listed("int32", "1000x1000 int32"),
    listed("uint8", "1000x1000 uint8"),
    listed("logical", "1000x1000 logical"),
    listed("complex", "1000x1000 complex"),
    listed("flat", "vector of 1e6 floats", shape=MILLION, numpy_F=None),
    listed("flat", "vector of 1e6 int32", shape=MILLION, **FLAT_INT32),
    job(VECTOR, Limit(1.3, NUMPY_F), MILLION, "vector of an array.array", **FROM_MEMORY),
    made(
        "1x1 from a number", velmar="velmar.double(1.5)", numpy="np.array([[1.5]])", list="[[1.5]]"
    ),
    listed("zeros", "size=(10, 10)", Limit(2.7, NUMPY_F), TEN, **ZEROS),
    listed("zeros", "size=(1000, 1000)", Limit(3.0, BYTES), **ZEROS),
    listed("zeros", "size=(3162, 3162)", Limit(1.6, NUMPY_F), LARGE, **ZEROS),
    job("a[3][7]", Limit(1.0, NUMPY, aim=0.6)),
    job("a[3]", Limit(1.5, NUMPY)),
    job("a[2:8]", Limit(1.5, NUMPY)),
    job("a[::2]", shape=TALL),
    job("a[2:8][3]"),
    job("a[::2][1:6]", shape=TALL),
    job("list(a[3])", shape=WIDE, numpy="a[3].tolist()"),
    listed("text", "str(a), 100x100", Limit(0.25, NUMPY), HUNDRED),
    job("a[3][7] = 1.5", Limit(1.0, NUMPY, aim=0.6)),
    job("a[3] = data[0]", Limit(0.6, NUMPY), shape=WIDE, **ONE_ROW),
    job("a[2:8] = data[:6]", shape=WIDE, **SIX_ROWS),
    job("a[3] = b[3]", Limit(1.5, NUMPY_F), THOUSAND, makers_of_b=DOUBLES, rows="a[3] = b[3][:]"),
    listed("write_array", "a[:] = b, 1000x1000", Limit(1.3, NUMPY_F)),
    listed("write_array", "a[:] = b of int32, 1000x1000", Limit(1.3, NUMPY_F), **INT32_IN),
    listed("loop", "all elements, 1000x1000", Limit(1.0, NUMPY)),
    job("a == b", Limit(0.2, NUMPY_F), TEN, **EQUAL),
    job("a == b", Limit(1.3, NUMPY_F), THOUSAND, **EQUAL),
    # An array keeps its snapshot; each a[:] is a new view without one.
    listed("clone", "a[:].clone(), 10x10", Limit(2.5, NUMPY_F), TEN),
    listed("clone", "a[:].clone(), 1000x1000", Limit(1.2, NUMPY_F)),
    listed("clone", "a[:].clone(), 3162x3162", Limit(1.2, NUMPY_F), LARGE, **ONLY_NUMPY_F),
    listed("other_class", "velmar.single(a), 1000x1000", Limit(1.6, NUMPY_F)),
    job(
        "velmar.double(a)", Limit(2.5, NUMPY_F), THOUSAND, "double of int32, 1000x1000", **OF_INT32
    ),
    job(SINGLE, Limit(1.2, OTHERWISE), THOUSAND, "infinities from lists", makers=INFINITE_LISTS),
    job(SINGLE, Limit(1.2, OTHERWISE), THOUSAND, "infinities, an array", makers=INFINITE_ARRAYS),
    listed("pickle", "pickle, 1000x1000", Limit(1.1, OTHERWISE), **PICKLES),
    buffer("100 doubles", Shape(1, 100), Limit(2.0, NUMPY_F)),
    buffer("1e6 doubles", MILLION, Limit(3.0, BYTES)),
    buffer("1000x1000 by column", THOUSAND, Limit(3.0, BYTES), 'n.copy("F")'),
    buffer("1e7 doubles", LONG, Limit(3.0, BYTES)),
    buffer("3162x3162 by column", LARGE, Limit(3.0, BYTES), 'n.copy("F")'),
    buffer("3162x1000 by row", Shape(3162, 1000), Limit(0.6, NUMPY_F), "n.copy()"),
    job("velmar.double(a)[0][7]", Limit(1.1, NUMPY_F), LONG, "first read of 1e7 doubles", **FLAT),
    listed("memoryview", "memoryview(a)", Limit(1.0, NUMPY), HUNDRED, numpy_F=None),
    job("memoryview(a[3])", Limit(2.0, NUMPY_F), THOUSAND, **EXPORTED_ROW),
    job("memoryview(a[100:200])", Limit(1.7, NUMPY_F), THOUSAND, **EXPORTED_ROWS),
    job(RESHAPES, Limit(3.0, NUMPY), TWO_ROWS, "two reshapes of 1e7", makers=OURS_AND_NUMPY),
    job(RESHAPES, Limit(2.0, OTHERWISE), TWO_ROWS, "reshapes, 1e7 and ten", **BESIDE_TEN),
    listed("real", "real(), 1000x1000", Limit(4.0, NUMPY), **REAL),
    listed("floats", "peak, 1000x1000 from floats", Limit(4.0), kind=Kind.PEAK),
    listed("ints", "peak, 1000x1000 from ints", Limit(4.0), kind=Kind.PEAK),
    listed("int32", "peak, 1000x1000 int32", kind=Kind.PEAK, item_bytes=4),
    listed("clone", "peak, a[:].clone()", Limit(1.2), kind=Kind.GROWTH, rows=None),
    made("held, 1000x1000", Limit(1.1 * 8_000_000), THOUSAND, kind=Kind.HELD, **HELD),
    made("held, 1x1", Limit(560), Shape(1, 1), kind=Kind.HELD, **HELD),
)
