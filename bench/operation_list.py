# The operations that are timed over sizes, in the groups and order of docs/performance.md.
"""A note tells readers of the results what the columns do differently."""

from operation import (
    ARROW,
    COMPLEXES,
    DOUBLES,
    Layout,
    bools,
    build,
    complexes,
    floats,
    ints,
    small_ints,
    use,
    whole,
)
from rows import ARRAY, LIST, NUMPY, NUMPY_F, OURS

SHARES = "The column list shares the elements instead of converting them, so it is a lower bound."
NO_COPY = "NumPy exports the memory of its array; ours is a copy of what the view shows."
ARROW_COPY = "{}.copy_to(pa.default_cpu_memory_manager())"


def nested(key, title, elements, ours, theirs, letter, arrow):
    """An array of one class from nested lists."""
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


COMPLEX = "double(data, is_complex=True)"
INT32, UINT8 = 'data, dtype="int32"', 'data, dtype="uint8"'
FLOAT64 = "data, dtype=float"
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
    whole(
        "flat_memory",
        "from flat memory",
        floats,
        {
            OURS: "n.ravel()",
            NUMPY: "n.ravel()",
            ARRAY: 'array("d", n.tobytes())',
            ARROW: "n.ravel()",
        },
        velmar="velmar.double(a)",
        numpy="np.array(a)",
        numpy_F=None,
        array='array("d", a)',
        pyarrow=ARROW_COPY.format("pa.array(a)"),
    ),
    whole(
        "memory_by_column",
        "from memory by column",
        floats,
        dict.fromkeys((OURS, NUMPY, NUMPY_F), 'n.copy("F")'),
        velmar="velmar.double(a)",
        numpy='np.array(a, order="C")',
        numpy_F='np.array(a, order="F")',
    ),
    whole(
        "memory_by_row",
        "from memory by row",
        floats,
        dict.fromkeys((OURS, NUMPY, NUMPY_F), "n"),
        velmar="velmar.double(a)",
        numpy='np.array(a, order="C")',
        numpy_F='np.array(a, order="F")',
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
OF_ROWS = "The column list copies references to rows."
ARROW_COPIES = "PyArrow copies every other row."
READING = (
    use("element", "read an element", "a[{row}][{column}]", pyarrow="a[{row}][{column}].as_py()"),
    use("row", "take a row", "a[{row}]"),
    use(
        "slice",
        "take a slice",
        "a[{low}:{high}]",
        note=OF_ROWS,
    ),
    use(
        "stepped_slice",
        "take a slice with a step",
        "a[::2]",
        note=ARROW_COPIES,
    ),
    use("slice_of_slice", "take a slice of a slice", "a[{low}:][::-1]"),
    use(
        "row_to_list",
        "a row to a list",
        "list(a[5])",
        Layout.ROW,
        note=SHARES,
        numpy="a[5].tolist()",
        pyarrow="a[5].as_py()",
    ),
    use(
        "row_to_array",
        "a row to array.array",
        "a[5].toarray()",
        Layout.ROW,
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

ROW_OF_ARRAY = 'a[5] = array("d", data[5])'
ROWS_OF_ARRAY = 'a[:] = [array("d", row) for row in data]'
WRITING = (
    use("write_element", "write an element", "a[{row}][{column}] = 1.5", pyarrow=None),
    use(
        "write_row",
        "write a row from a list",
        "a[5] = data[5]",
        Layout.ROW,
        note=SHARES,
        array=ROW_OF_ARRAY,
        list="a[5] = data[5][:]",
        pyarrow=None,
    ),
    use(
        "write_all",
        "write all from nested lists",
        "a[:] = data",
        note=SHARES,
        array=ROWS_OF_ARRAY,
        list="a[:] = [row[:] for row in data]",
        pyarrow=None,
    ),
    use(
        "write_array",
        "write all from another array",
        "a[:] = b",
        twin=True,
        array="a[:] = [row[:] for row in b]",
        list="a[:] = [row[:] for row in b]",
        pyarrow=None,
    ),
)

FLAT_ARRAY = 'array("d", n.tobytes())'
ARROW_MEMORY = "memoryview(a.values.buffers()[1])"
ARROW_BYTES = "a.values.buffers()[1].to_pybytes()"
ARRAY_BYTES = 'b"".join([row.tobytes() for row in a])'
MEMORY = (
    use("memoryview", "memoryview", "memoryview(a)", array=None, list=None, pyarrow=ARROW_MEMORY),
    use(
        "view_memoryview",
        "memoryview of a view",
        "memoryview(a[:])",
        note=NO_COPY,
        array=None,
        list=None,
        pyarrow=None,
    ),
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
    whole(
        "to_numpy",
        "to NumPy",
        floats,
        {column: DOUBLES[column] for column in (OURS, NUMPY, NUMPY_F, LIST, ARROW)}
        | {ARRAY: FLAT_ARRAY},
        "The column list copies.",
        velmar="np.asarray(memoryview(a))",
        numpy="np.asarray(memoryview(a))",
        array="np.asarray(memoryview(a))",
        list="np.array(a)",
        pyarrow="a.values.to_numpy()",
    ),
)

PARTS = "The parts are copies in both columns, ours as one row."
WHOLE = (
    use(
        "equal",
        "a == b, all equal",
        "a == b",
        twin=True,
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
        array="[row[:] for row in a]",
        list="[row[:] for row in a]",
        pyarrow=ARROW_COPY.format("a"),
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
        array=None,
        list=None,
        pyarrow=None,
    ),
    whole(
        "real",
        "the real part",
        complexes,
        COMPLEXES,
        PARTS,
        velmar="a.real()",
        numpy='a.real.copy("K")',
    ),
    whole(
        "imag",
        "the imaginary part",
        complexes,
        COMPLEXES,
        PARTS,
        velmar="a.imag()",
        numpy='a.imag.copy("K")',
    ),
    use(
        "noncomplex",
        "all elements as one row",
        "a.noncomplex()",
        numpy='a.flatten("A")',
        array=None,
        list=None,
        pyarrow=None,
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
