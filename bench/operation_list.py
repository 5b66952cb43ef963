# The operations that are timed over sizes, in the groups and order of docs/performance.md.
"""A note tells readers of the results what the columns do differently."""

from operation import (
    ARRAY,
    ARROW,
    COMPLEXES,
    DOUBLES,
    FLAT_ARRAY,
    NUMPY,
    NUMPY_F,
    OURS,
    Layout,
    bools,
    build,
    complexes,
    floats,
    ints,
    small_ints,
    use,
)

SHARES = "The column list shares the elements instead of converting them, so it is a lower bound."
NO_COPY = "NumPy exports the memory of its array; ours is a copy of what the view shows."
PARTS = "The parts are copies in both columns, ours as one row."

# Columns that do not have an operation.
NO_ARROW = {"pyarrow": None}
ONLY_NUMPY = {"array": None, "list": None, "pyarrow": None}

COPY_ROWS = "[row[:] for row in a]"
COPY_ROWS_OF_B = "a[:] = [row[:] for row in b]"
COPY_TO = "{}.copy_to(pa.default_cpu_memory_manager())"
BOTH_ORDERS = {"numpy": 'np.array(a, order="C")', "numpy_F": 'np.array(a, order="F")'}


def nested(key, title, elements, ours, theirs, letter, arrow):
    """An array of one class from nested lists. None: the column has no such type."""
    return build(
        key,
        title,
        elements,
        SHARES,
        velmar=f"velmar.{ours}",
        numpy=f"np.array({theirs})",
        numpy_F=f'np.array({theirs}, order="F")',
        array=letter and f'[array("{letter}", row) for row in data]',
        list="[list(row) for row in data]",
        pyarrow=arrow and f"pa.array(data, type=pa.list_(pa.{arrow}()))",
    )


FLOAT64, INT32, UINT8 = "data, dtype=float", 'data, dtype="int32"', 'data, dtype="uint8"'
COMPLEX = "double(data, is_complex=True)"
MAKING = (
    nested("floats", "from nested floats", floats, "double(data)", "data", "d", "float64"),
    nested("ints", "double from nested ints", ints, "double(data)", FLOAT64, "d", "float64"),
    nested("int32", "int32 from nested ints", ints, "int32(data)", INT32, "i", "int32"),
    nested("uint8", "uint8 from nested ints", small_ints, "uint8(data)", UINT8, "B", "uint8"),
    nested("logical", "logical from nested bools", bools, "logical(data)", "data", "B", "bool_"),
    nested("complex", "from nested complex numbers", complexes, COMPLEX, "data", None, None),
    build(
        "flat",
        "from a flat list",
        floats,
        SHARES,
        velmar="velmar.double(vector=flat)",
        numpy="np.array(flat)",
        array='array("d", flat)',
        list="list(flat)",
        pyarrow="pa.array(flat, type=pa.float64())",
    ),
    build(
        "flat_with_size",
        "from a flat list, with a size",
        floats,
        "Column by column here and in numpy-F, row by row in numpy.",
        velmar="velmar.double(vector=flat, size=({rows}, {columns}))",
        numpy="np.array(flat).reshape({rows}, {columns})",
        numpy_F='np.array(flat).reshape(({rows}, {columns}), order="F")',
    ),
    build(
        "zeros",
        "zeros",
        None,
        velmar="velmar.double(size=({rows}, {columns}))",
        numpy="np.zeros(({rows}, {columns}))",
        numpy_F='np.zeros(({rows}, {columns}), order="F")',
        array='[array("d", bytes({columns} * 8)) for _ in range({rows})]',
        list="[[0.0] * {columns} for _ in range({rows})]",
        pyarrow="pa.repeat(0.0, {count})",
    ),
    use(
        "flat_memory",
        "from flat memory",
        "velmar.double(a)",
        {OURS: "n.ravel()", NUMPY: "n.ravel()", ARRAY: FLAT_ARRAY, ARROW: "n.ravel()"},
        numpy="np.array(a)",
        array='array("d", a)',
        pyarrow=COPY_TO.format("pa.array(a)"),
    ),
    use(
        "memory_by_column",
        "from memory by column",
        "velmar.double(a)",
        dict.fromkeys((OURS, NUMPY, NUMPY_F), 'n.copy("F")'),
        **BOTH_ORDERS,
    ),
    use(
        "memory_by_row",
        "from memory by row",
        "velmar.double(a)",
        dict.fromkeys((OURS, NUMPY, NUMPY_F), "n"),
        **BOTH_ORDERS,
    ),
    use(
        "other_class",
        "from an array of another class",
        "velmar.single(a)",
        numpy='a.astype("float32")',
        array='[array("f", row) for row in a]',
        list=None,
        pyarrow="a.cast(pa.list_(pa.float32()))",
    ),
)

LOOP = "for row in a:\n    for x in row:\n        pass"
READING = (
    use("element", "read an element", "a[{row}][{column}]", pyarrow="a[{row}][{column}].as_py()"),
    use("row", "take a row", "a[{row}]"),
    use(
        "slice",
        "take a slice",
        "a[{low}:{high}]",
        note="The column list copies references to rows.",
    ),
    use(
        "stepped_slice",
        "take a slice with a step",
        "a[::2]",
        note="PyArrow copies every other row.",
    ),
    use("slice_of_slice", "take a slice of a slice", "a[{low}:][::-1]"),
    use(
        "row_to_list",
        "a row to a list",
        "list(a[5])",
        layout=Layout.ROW,
        note=SHARES,
        numpy="a[5].tolist()",
        pyarrow="a[5].as_py()",
    ),
    use(
        "row_to_array",
        "a row to array.array",
        "a[5].toarray()",
        layout=Layout.ROW,
        numpy='array("d", a[5].tobytes())',
        array="a[5][:]",
        list='array("d", a[5])',
        pyarrow='array("d", a[5].values)',
    ),
    use(
        "to_lists",
        "all to nested lists",
        "[list(row) for row in a]",
        note=SHARES,
        numpy="a.tolist()",
        pyarrow="a.to_pylist()",
    ),
    use("loop", "a loop over all", LOOP),
    use(
        "text",
        "text in full",
        "str(a)",
        numpy="np.array2string(a, threshold=sys.maxsize)",
        pyarrow="a.values.to_string(window={count})",
    ),
)

WRITING = (
    use("write_element", "write an element", "a[{row}][{column}] = 1.5", **NO_ARROW),
    use(
        "write_row",
        "write a row from a list",
        "a[5] = data[5]",
        layout=Layout.ROW,
        note=SHARES,
        array='a[5] = array("d", data[5])',
        list="a[5] = data[5][:]",
        **NO_ARROW,
    ),
    use(
        "write_all",
        "write all from nested lists",
        "a[:] = data",
        note=SHARES,
        array='a[:] = [array("d", row) for row in data]',
        list="a[:] = [row[:] for row in data]",
        **NO_ARROW,
    ),
    # In array and list the rows are copied, because an assignment would share them.
    use(
        "write_array",
        "write all from another array",
        "a[:] = b",
        makers_of_b=DOUBLES,
        array=COPY_ROWS_OF_B,
        list=COPY_ROWS_OF_B,
        **NO_ARROW,
    ),
)

ARROW_BYTES = "a.values.buffers()[1].to_pybytes()"
ARRAY_BYTES = 'b"".join([row.tobytes() for row in a])'
MEMORY = (
    use(
        "memoryview",
        "memoryview",
        "memoryview(a)",
        array=None,
        list=None,
        pyarrow="memoryview(a.values.buffers()[1])",
    ),
    use("view_memoryview", "memoryview of a view", "memoryview(a[:])", note=NO_COPY, **ONLY_NUMPY),
    use(
        "stored_bytes",
        "bytes as stored",
        'memoryview(a).tobytes("A")',
        numpy='a.tobytes("A")',
        array=ARRAY_BYTES,
        list=None,
        pyarrow=ARROW_BYTES,
    ),
    use(
        "bytes_by_row",
        "bytes row by row",
        'memoryview(a).tobytes("C")',
        numpy='a.tobytes("C")',
        array=ARRAY_BYTES,
        list=None,
        pyarrow=ARROW_BYTES,
    ),
    use(
        "to_numpy",
        "to NumPy",
        "np.asarray(memoryview(a))",
        DOUBLES | {ARRAY: FLAT_ARRAY},
        note="The column list copies.",
        list="np.array(a)",
        pyarrow="a.values.to_numpy()",
    ),
)

WHOLE = (
    use(
        "equal",
        "a == b, all equal",
        "a == b",
        makers_of_b=DOUBLES,
        note="The columns list and array compare Python numbers.",
        numpy="(a == b).all()",
        pyarrow="a.equals(b)",
    ),
    use(
        "clone",
        "a copy",
        "a[:].clone()",
        note=SHARES,
        numpy="a.copy()",
        numpy_F='a.copy("F")',
        array=COPY_ROWS,
        list=COPY_ROWS,
        pyarrow=COPY_TO.format("a"),
    ),
    use(
        "pickle",
        "a pickle there and back",
        "pickle.loads(pickle.dumps(a))",
        note="Our pickle holds nested lists.",
    ),
    use(
        "reshape",
        "reshape, there and back",
        "a.reshape({columns}, {rows}).reshape({rows}, {columns})",
        numpy_F='a.reshape(({columns}, {rows}), order="F").reshape(({rows}, {columns}), order="F")',
        **ONLY_NUMPY,
    ),
    use(
        "real",
        "the real part",
        "a.real()",
        COMPLEXES,
        complexes,
        note=PARTS,
        numpy='a.real.copy("K")',
    ),
    use(
        "imag",
        "the imaginary part",
        "a.imag()",
        COMPLEXES,
        complexes,
        note=PARTS,
        numpy='a.imag.copy("K")',
    ),
    use(
        "noncomplex",
        "all elements as one row",
        "a.noncomplex()",
        numpy='a.flatten("A")',
        **ONLY_NUMPY,
    ),
    use("length", "len(a)", "len(a)"),
)

GROUPS = {
    "Making arrays": MAKING,
    "Reading": READING,
    "Writing": WRITING,
    "Memory out": MEMORY,
    "Arrays as a whole": WHOLE,
}
OPERATIONS = {operation.key: operation for group in GROUPS.values() for operation in group}
