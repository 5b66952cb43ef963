# The jobs of the benchmark table, with the limits for our results.

from rows import (
    ARRAY,
    BYTES,
    DOUBLE_MAKERS,
    INT32_MAKERS,
    LIST,
    NUMPY,
    NUMPY_F,
    OTHERWISE,
    OURS,
    Case,
    Kind,
    at_most,
    buffer,
    build,
    build_flat,
    flat,
    growth,
    held,
    nested,
    peak,
    random_bool,
    random_byte,
    random_complex,
    random_float,
    random_int,
    use,
    whole,
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

# Statements that differ by column. NESTED_LIST is the fastest way to get a nested list of an array.
NESTED_LIST = "a.__reduce__()[1][1]"
ROUND_TRIP = "pickle.loads(pickle.dumps({}))"
ONE_ROW = {"array": 'a[3] = array("d", data[0])', "list": "a[3] = data[0][:]"}
SIX_ROWS = {
    "array": 'a[2:8] = [array("d", row) for row in data[:6]]',
    "list": "a[2:8] = [row[:] for row in data[:6]]",
}
COPY = {"numpy": "a.copy()", "numpy_F": 'a.copy("F")'}
COPIES = COPY | {"array": "[row[:] for row in a]", "list": "[row[:] for row in a]"}
EQUAL = {"second": DOUBLE_MAKERS, "numpy": "np.array_equal(a, b)"}
# Of array and list the rows are copied, since an assignment would share them.
COPIED_IN = {"array": "a[:] = [row[:] for row in b]", "list": "a[:] = [row[:] for row in b]"}
CONVERTED_IN = {"array": 'a[:] = [array("d", row) for row in b]', "list": None}
ROW_COPIED_IN = {"array": "a[3] = b[3][:]", "list": "a[3] = b[3][:]"}
TO_SINGLE = {
    "numpy": 'a.astype("float32")',
    "array": '[array("f", row) for row in a]',
    "list": None,
}
TO_DOUBLE = {"numpy": "a.astype(float)", "array": '[array("d", row) for row in a]', "list": None}
# A view exports a copy, so the others copy as well.
EXPORTED_ROW = {"numpy": "a[3].copy()", "array": "a[3][:]", "list": "a[3][:]"}
EXPORTED_ROWS = {
    "numpy": "a[100:200].copy()",
    "numpy_F": 'a[100:200].copy("F")',
    "array": "[row[:] for row in a[100:200]]",
    "list": "[row[:] for row in a[100:200]]",
}
PICKLES = {"ours_otherwise": f"velmar.double({ROUND_TRIP.format(NESTED_LIST)})"}

# Arrays are made from random data, so all their memory is resident.
RANDOM = "np.random.default_rng(1).random({})"
EXPORTED = {OURS: f"velmar.double({RANDOM.format((100, 100))})", NUMPY: RANDOM.format((100, 100))}
LONG = {
    OURS: f"velmar.double({RANDOM.format((2, 5_000_000))})",
    NUMPY: RANDOM.format((2, 5_000_000)),
}
LONG_AND_SHORT = {OURS: LONG[OURS], OTHERWISE: f"velmar.double({RANDOM.format((2, 5))})"}
RESHAPES = "a.reshape(5_000_000, 2)\na.reshape(2, 5_000_000)"
OF_TEN = {"name": "reshapes, 1e7 and ten", "ours_otherwise": "a.reshape(5, 2)\na.reshape(2, 5)"}
COMPLEX = f"{RANDOM.format((1000, 1000))} * (1 + 2j)"
OF_COMPLEX = {OURS: f"velmar.double({COMPLEX}, is_complex=True)", NUMPY: COMPLEX}
LARGE = {
    OURS: f"velmar.double({RANDOM.format((3162, 3162))})",
    NUMPY_F: f"np.asfortranarray({RANDOM.format((3162, 3162))})",
}
LONG_ARRAY = f'array("d", {RANDOM.format(1_000_000)}.tobytes())'
OF_LONG_ARRAY = dict.fromkeys((OURS, NUMPY_F, ARRAY), LONG_ARRAY)
MEMORY_1E7 = dict.fromkeys((OURS, NUMPY_F), RANDOM.format(10_000_000))
INFINITE = "np.full((1000, 1000), np.inf)"
FINITE = RANDOM.format((1000, 1000))
INFINITE_LISTS = {OURS: f"{INFINITE}.tolist()", OTHERWISE: f"{FINITE}.tolist()"}
INFINITE_ARRAYS = {OURS: f"velmar.double({INFINITE})", OTHERWISE: f"velmar.double({FINITE})"}
OF_BYTES = at_most(3.0, BYTES)

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
    whole(
        "velmar.double(vector=a)",
        OF_LONG_ARRAY,
        at_most(1.3, NUMPY_F),
        "vector of an array.array",
        numpy_F="np.array(a)",
        array="a[:]",
    ),
    Case("1x1 from a number", NUMBER),
    zeros(10, 10, at_most(2.7, NUMPY_F)),
    zeros(1000, 1000, at_most(3.0, BYTES)),
    zeros(3162, 3162, at_most(1.6, NUMPY_F)),
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
    use("a[3] = b[3]", at_most(1.5, NUMPY_F), 1000, 1000, second=DOUBLE_MAKERS, **ROW_COPIED_IN),
    use("a[:] = b", at_most(1.3, NUMPY_F), 1000, 1000, second=DOUBLE_MAKERS, **COPIED_IN),
    use(
        "a[:] = b",
        at_most(1.3, NUMPY_F),
        1000,
        1000,
        "a[:] = b of int32",
        random_int,
        DOUBLE_MAKERS,
        INT32_MAKERS,
        **CONVERTED_IN,
    ),
    use(LOOPS, at_most(1.0, NUMPY), 1000, 1000, name="all elements"),
    use("a == b", at_most(0.2, NUMPY_F), 10, 10, **EQUAL),
    use("a == b", at_most(1.3, NUMPY_F), 1000, 1000, **EQUAL),
    # An array keeps its snapshot; each a[:] is a new view without one.
    use("a[:].clone()", at_most(2.5, NUMPY_F), 10, 10, **COPIES),
    use("a[:].clone()", at_most(1.2, NUMPY_F), 1000, 1000, **COPIES),
    whole(
        "a[:].clone()",
        LARGE,
        at_most(1.2, NUMPY_F),
        "a[:].clone(), 3162x3162",
        numpy_F='a.copy("F")',
    ),
    use("velmar.single(a)", at_most(1.6, NUMPY_F), 1000, 1000, **TO_SINGLE),
    use(
        "velmar.double(a)",
        at_most(2.5, NUMPY_F),
        1000,
        1000,
        "double of int32",
        random_int,
        INT32_MAKERS,
        **TO_DOUBLE,
    ),
    whole("velmar.single(a)", INFINITE_LISTS, at_most(1.2, OTHERWISE), "infinities from lists"),
    whole("velmar.single(a)", INFINITE_ARRAYS, at_most(1.2, OTHERWISE), "infinities, an array"),
    use(ROUND_TRIP.format("a"), at_most(1.1, OTHERWISE), 1000, 1000, name="pickle", **PICKLES),
    buffer("100 doubles", 100, limit=at_most(2.0, NUMPY_F)),
    buffer("1e6 doubles", 10**6, limit=OF_BYTES),
    buffer("1000x1000 by column", 10**6, (1000, 1000), "F", OF_BYTES),
    buffer("1e7 doubles", 10**7, limit=OF_BYTES),
    buffer("3162x3162 by column", 3162**2, (3162, 3162), "F", OF_BYTES),
    buffer("3162x1000 by row", 3162 * 1000, (3162, 1000), "C", at_most(0.6, NUMPY_F)),
    whole(
        "velmar.double(a)[0][7]",
        MEMORY_1E7,
        at_most(1.1, NUMPY_F),
        "first read of 1e7 doubles",
        numpy_F="np.array(a)[7]",
    ),
    whole("memoryview(a)", EXPORTED, at_most(1.0, NUMPY)),
    use("memoryview(a[3])", at_most(2.0, NUMPY_F), 1000, 1000, **EXPORTED_ROW),
    use("memoryview(a[100:200])", at_most(1.7, NUMPY_F), 1000, 1000, **EXPORTED_ROWS),
    whole(RESHAPES, LONG, at_most(3.0, NUMPY), "two reshapes of 1e7"),
    whole(RESHAPES, LONG_AND_SHORT, at_most(2.0, OTHERWISE), **OF_TEN),
    whole("a.real()", OF_COMPLEX, at_most(4.0, NUMPY), "real(), 1000x1000", numpy="a.real.copy()"),
    peak("peak, 1000x1000 from floats", FLOATS_1000, 8_000_000, "double(data)", at_most(4.0)),
    peak("peak, 1000x1000 from ints", INTS_1000, 8_000_000, "double(data)", at_most(4.0), FLOAT64),
    peak("peak, 1000x1000 int32", INTS_1000, 4_000_000, "int32(data)", None, INT32, "i"),
    growth("peak, a[:].clone()", "a[:].clone()", at_most(1.2), 1000, 1000, **COPY),
    held(1000, 1000, at_most(1.1 * 8_000_000)),
    held(1, 1, at_most(560)),
)
