# The rows of the benchmark table, with the limit that our figure has to keep.

from rows import (
    ARRAY,
    BY_HAND,
    BYTES,
    LIST,
    NUMPY,
    NUMPY_F,
    OURS,
    Case,
    Kind,
    at_most,
    build,
    build_flat,
    flat,
    nested,
    peak,
    random_bool,
    random_byte,
    random_complex,
    random_float,
    random_int,
    use,
    zeros,
)

IMPORTS = {OURS: "import velmar", NUMPY: "import numpy", ARRAY: "import array"}
NUMBER = {OURS: "velmar.double(1.5)", NUMPY: "np.array([[1.5]])", LIST: "[[1.5]]"}

FLOATS_10 = nested(10, 10, random_float)
FLOATS_1000 = nested(1000, 1000, random_float)
INTS_10 = nested(10, 10, random_int)
INTS_1000 = nested(1000, 1000, random_int)
BYTES_1000 = nested(1000, 1000, random_byte)
BOOLS_1000 = nested(1000, 1000, random_bool)
COMPLEX_1000 = nested(1000, 1000, random_complex)
FLAT_FLOATS = flat(1_000_000, random_float)
FLAT_INTS = flat(1_000_000, random_int)

FLOAT64 = "data, dtype=float"
INT32 = 'data, dtype="int32"'
UINT8 = 'data, dtype="uint8"'
IS_COMPLEX = "double(data, is_complex=True)"
FULL_TEXT = "np.array2string(a, threshold=sys.maxsize)"
LOOPS = "for row in a:\n    for x in row:\n        pass"

# What is spelled otherwise elsewhere. NESTED_LIST is the quickest way that there is to have one.
NESTED_LIST = "a.__reduce__()[1][1]"
ROUND_TRIP = "pickle.loads(pickle.dumps({}))"
ONE_ROW = {"array": 'a[3] = array("d", data[0])', "list": "a[3] = data[0][:]"}
SIX_ROWS = {
    "array": 'a[2:8] = [array("d", row) for row in data[:6]]',
    "list": "a[2:8] = [row[:] for row in data[:6]]",
}
COPIES = {
    "numpy": "a.copy()",
    "array": "[row[:] for row in a]",
    "list": "[row[:] for row in a]",
    "by_hand": f"velmar.double({NESTED_LIST})",
}
PICKLES = {"by_hand": f"velmar.double({ROUND_TRIP.format(NESTED_LIST)})"}

CASES = (
    Case("import", IMPORTS, at_most(0.1, NUMPY), kind=Kind.IMPORT),
    build("1000x1000 from floats", FLOATS_1000, "double(data)", at_most(0.6, NUMPY_F)),
    build("1000x1000 from ints", INTS_1000, "double(data)", at_most(0.8, NUMPY_F), FLOAT64),
    build("10x10 from floats", FLOATS_10, "double(data)", at_most(1.0, NUMPY_F, aim=0.5)),
    build("10x10 from ints", INTS_10, "double(data)", theirs=FLOAT64),
    build("1000x1000 int32", INTS_1000, "int32(data)", theirs=INT32, letter="i"),
    build("1000x1000 uint8", BYTES_1000, "uint8(data)", theirs=UINT8, letter="B"),
    build("1000x1000 logical", BOOLS_1000, "logical(data)", letter="B"),
    build("1000x1000 complex", COMPLEX_1000, IS_COMPLEX, letter=None),
    build_flat("vector of 1e6 floats", FLAT_FLOATS, "double(vector=data)"),
    build_flat("vector of 1e6 int32", FLAT_INTS, "int32(vector=data)", theirs=INT32, letter="i"),
    Case("1x1 from a number", NUMBER),
    zeros(10, 10),
    zeros(1000, 1000, at_most(3.0, BYTES)),
    use("a[3][7]", at_most(1.0, NUMPY, aim=0.6)),
    use("a[3]", at_most(1.5, NUMPY)),
    use("a[2:8]", at_most(1.5, NUMPY)),
    use("a[::2]", rows=1000),
    use("a[2:8][3]"),
    use("a[::2][1:6]", rows=1000),
    use("list(a[3])", columns=1000, numpy="a[3].tolist()"),
    use("str(a)", at_most(0.25, NUMPY), numpy=FULL_TEXT),
    use("a[3][7] = 1.5", at_most(1.0, NUMPY, aim=0.6)),
    use("a[3] = data[0]", at_most(0.6, NUMPY), columns=1000, **ONE_ROW),
    use("a[2:8] = data[:6]", columns=1000, **SIX_ROWS),
    use(LOOPS, at_most(1.0, NUMPY), 1000, 1000, name="all elements"),
    use("a == b", at_most(3.0, ARRAY), 1000, 1000, twin=True, numpy="(a == b).all()"),
    # An array makes its snapshot once; a[:] is a view without one each time.
    use("a[:].clone()", at_most(1.2, BY_HAND), 1000, 1000, **COPIES),
    use(ROUND_TRIP.format("a"), at_most(1.2, BY_HAND), 1000, 1000, name="pickle", **PICKLES),
    peak("peak, 1000x1000 from floats", FLOATS_1000, 8_000_000, "double(data)", at_most(4.0)),
    peak("peak, 1000x1000 from ints", INTS_1000, 8_000_000, "double(data)", at_most(4.0), FLOAT64),
    peak("peak, 1000x1000 int32", INTS_1000, 4_000_000, "int32(data)", None, INT32, "i"),
)
