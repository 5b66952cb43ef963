"""The operations that are timed over sizes, in the groups and order of docs/performance.md.

A new row calls use() for a statement on arrays, or build() for one that makes an array. The note
tells readers what the columns do differently. Keywords are columns: `numpy` is also numpy-F unless
that follows, and `rows` is array and list.
"""

from operation import ARRAY, ARROW, LIST, NUMPY, NUMPY_F, OURS, ROW, Operation

# Makers of `a` by column: arrays in resident memory.
DOUBLES = {
    OURS: "velmar.double(n)",
    NUMPY: "n.copy()",
    NUMPY_F: 'n.copy("F")',
    ARRAY: '[array("d", row.tobytes()) for row in n]',
    LIST: "n.tolist()",
    ARROW: (
        "pa.ListArray.from_arrays(np.arange(0, {count} + 1, {columns}, dtype='int32'),"
        " n.copy().ravel())"
    ),
}
FLAT_ARRAY = 'array("d", n.tobytes())'


def build(elements="", **changes):
    """An operation that makes an array from data, flat or n."""
    return Operation(elements=elements).changed(**changes)


def use(statement, makers=DOUBLES, **changes):
    """An operation with the same statement in all columns of the makers, except for the changes."""
    statements = dict.fromkeys(makers, statement)
    return Operation(statements, makers, elements="floats").changed(**changes)


NO_COPY = "NumPy exports the memory of its array; ours is a copy of what the view shows."

# Columns that do not have an operation.
NO_ARROW = {"pyarrow": None}
ONLY_NUMPY = {"rows": None, "pyarrow": None}

IN_ROWS = "a[:] = [row[:] for row in b]"
COPY_TO = "{}.copy_to(pa.default_cpu_memory_manager())"


def nested(elements, ours, theirs, letter, arrow):
    """An array of one class from nested lists. None: the column has no such type."""
    return build(
        elements,
        velmar=f"velmar.{ours}",
        numpy=f"np.array({theirs})",
        numpy_F=f'np.array({theirs}, order="F")',
        array=letter and f'[array("{letter}", row) for row in data]',
        list="[list(row) for row in data]",
        pyarrow=arrow and f"pa.array(data, type=pa.list_(pa.{arrow}()))",
    )


IS_COMPLEX = "double(data, is_complex=True)"
FLOAT64, INT32, UINT8 = "data, dtype=float", 'data, dtype="int32"', 'data, dtype="uint8"'
BY_COLUMN = dict.fromkeys((OURS, NUMPY, NUMPY_F), 'n.copy("F")')
BY_ROW = dict.fromkeys((OURS, NUMPY, NUMPY_F), "n")
COPIES = {"numpy": 'np.array(a, order="C")', "numpy_F": 'np.array(a, order="F")'}
FLAT = {OURS: "n.ravel()", NUMPY: "n.ravel()", ARRAY: FLAT_ARRAY, ARROW: "n.ravel()"}
GROUPS = {}
GROUPS["Making arrays"] = {
    "from nested floats": nested("floats", "double(data)", "data", "d", "float64"),
    "double from nested ints": nested("ints", "double(data)", FLOAT64, "d", "float64"),
    "int32 from nested ints": nested("ints", "int32(data)", INT32, "i", "int32"),
    "uint8 from nested ints": nested("small_ints", "uint8(data)", UINT8, "B", "uint8"),
    "logical from nested bools": nested("bools", "logical(data)", "data", "B", "bool_"),
    "from nested complex numbers": nested("complex", IS_COMPLEX, "data", None, None),
    "from a flat list": build(
        "floats",
        velmar="velmar.double(vector=flat)",
        numpy="np.array(flat)",
        array='array("d", flat)',
        list="list(flat)",
        pyarrow="pa.array(flat, type=pa.float64())",
    ),
    "from a flat list, with a size": build(
        "floats",
        note="Column by column here and in numpy-F, row by row in numpy.",
        velmar="velmar.double(vector=flat, size=({rows}, {columns}))",
        numpy="np.array(flat).reshape({rows}, {columns})",
        numpy_F='np.array(flat).reshape(({rows}, {columns}), order="F")',
    ),
    "zeros": build(
        velmar="velmar.double(size=({rows}, {columns}))",
        numpy="np.zeros(({rows}, {columns}))",
        numpy_F='np.zeros(({rows}, {columns}), order="F")',
        array='[array("d", bytes({columns} * 8)) for _ in range({rows})]',
        list="[[0.0] * {columns} for _ in range({rows})]",
        pyarrow="pa.repeat(0.0, {count})",
    ),
    "from flat memory": use(
        "velmar.double(a)",
        FLAT,
        numpy="np.array(a)",
        array='array("d", a)',
        pyarrow=COPY_TO.format("pa.array(a)"),
    ),
    "from memory by column": use("velmar.double(a)", BY_COLUMN, **COPIES),
    "from memory by row": use("velmar.double(a)", BY_ROW, **COPIES),
    "from an array of another class": use(
        "velmar.single(a)",
        numpy='a.astype("float32")',
        array='[array("f", row) for row in a]',
        list=None,
        pyarrow="a.cast(pa.list_(pa.float32()))",
    ),
}

LOOP = "for row in a:\n    for x in row:\n        pass"
GROUPS["Reading"] = {
    "read an element": use("a[{row}][{column}]", pyarrow="a[{row}][{column}].as_py()"),
    "take a row": use("a[{row}]"),
    "take a slice": use("a[{low}:{high}]", note="The column list copies references to rows."),
    "take a slice with a step": use("a[::2]", note="PyArrow copies every other row."),
    "take a slice of a slice": use("a[{low}:][::-1]"),
    "a row to a list": use(
        "list(a[5])", size_counts=ROW, numpy="a[5].tolist()", pyarrow="a[5].as_py()"
    ),
    "a row to array.array": use(
        "a[5].toarray()",
        size_counts=ROW,
        numpy='array("d", a[5].tobytes())',
        array="a[5][:]",
        list='array("d", a[5])',
        pyarrow='array("d", a[5].values)',
    ),
    "all to nested lists": use(
        "[list(row) for row in a]", numpy="a.tolist()", pyarrow="a.to_pylist()"
    ),
    "a loop over all": use(LOOP),
    "text in full": use(
        "str(a)",
        numpy="np.array2string(a, threshold=sys.maxsize)",
        pyarrow="a.values.to_string(window={count})",
    ),
}

GROUPS["Writing"] = {
    "write an element": use("a[{row}][{column}] = 1.5", **NO_ARROW),
    "write a row from a list": use(
        "a[5] = data[5]",
        size_counts=ROW,
        array='a[5] = array("d", data[5])',
        list="a[5] = data[5][:]",
        **NO_ARROW,
    ),
    "write all from nested lists": use(
        "a[:] = data",
        array='a[:] = [array("d", row) for row in data]',
        list="a[:] = [row[:] for row in data]",
        **NO_ARROW,
    ),
    # In array and list the rows are copied, because an assignment would share them.
    "write all from another array": use("a[:] = b", makers_of_b=DOUBLES, rows=IN_ROWS, **NO_ARROW),
}

JOINED = {
    "array": 'b"".join([row.tobytes() for row in a])',
    "list": None,
    "pyarrow": "a.values.buffers()[1].to_pybytes()",
}
GROUPS["Memory out"] = {
    "memoryview": use("memoryview(a)", rows=None, pyarrow="memoryview(a.values.buffers()[1])"),
    "memoryview of a view": use("memoryview(a[:])", note=NO_COPY, **ONLY_NUMPY),
    "bytes as stored": use('memoryview(a).tobytes("A")', numpy='a.tobytes("A")', **JOINED),
    "bytes row by row": use('memoryview(a).tobytes("C")', numpy='a.tobytes("C")', **JOINED),
    "to NumPy": use(
        "np.asarray(memoryview(a))",
        DOUBLES | {ARRAY: FLAT_ARRAY},
        note="The column list copies.",
        list="np.array(a)",
        pyarrow="a.values.to_numpy()",
    ),
}

PARTS = {
    "makers": DOUBLES | {OURS: "velmar.double(n, is_complex=True)"},
    "elements": "complex",
    "note": "The parts are copies in both columns, ours as one row.",
    **ONLY_NUMPY,
}
GROUPS["Arrays as a whole"] = {
    "a == b, all equal": use(
        "a == b",
        makers_of_b=DOUBLES,
        note="The columns list and array compare Python numbers.",
        numpy="(a == b).all()",
        pyarrow="a.equals(b)",
    ),
    "a copy": use(
        "a[:].clone()",
        numpy="a.copy()",
        numpy_F='a.copy("F")',
        rows="[row[:] for row in a]",
        pyarrow=COPY_TO.format("a"),
    ),
    "a pickle there and back": use(
        "pickle.loads(pickle.dumps(a))", note="Our pickle holds nested lists."
    ),
    "reshape, there and back": use(
        "a.reshape({columns}, {rows}).reshape({rows}, {columns})",
        numpy_F='a.reshape(({columns}, {rows}), order="F").reshape(({rows}, {columns}), order="F")',
        **ONLY_NUMPY,
    ),
    "the real part": use("a.real()", numpy='a.real.copy("K")', **PARTS),
    "the imaginary part": use("a.imag()", numpy='a.imag.copy("K")', **PARTS),
    "all elements as one row": use("a.noncomplex()", numpy='a.flatten("A")', **ONLY_NUMPY),
    "len(a)": use("len(a)"),
}

OPERATIONS = {title: one for group in GROUPS.values() for title, one in group.items()}
