"""PyArrow: the memory of an array as a buffer and as the columns of a table, and back."""

import pyarrow as pa
import velmar
from example_data import MEASURES, penguin_measures
from pyarrow import feather

# Without logical: its elements are bytes, Arrow's booleans are bits.
TYPES = {
    "d": (velmar.double, pa.float64()),
    "f": (velmar.single, pa.float32()),
    "b": (velmar.int8, pa.int8()),
    "B": (velmar.uint8, pa.uint8()),
    "h": (velmar.int16, pa.int16()),
    "H": (velmar.uint16, pa.uint16()),
    "i": (velmar.int32, pa.int32()),
    "I": (velmar.uint32, pa.uint32()),
    "q": (velmar.int64, pa.int64()),
    "Q": (velmar.uint64, pa.uint64()),
}


def to_table(a, names):
    """A table on the memory of a matrix. Each column of the matrix is a column, without a copy."""
    m = memoryview(a)
    if m.ndim != 2 or m.format not in TYPES:
        raise TypeError(f"no table of {m.ndim} dimensions with elements of format {m.format}")
    buffer, length = pa.py_buffer(a), m.shape[0]
    if length == 0:
        return pa.table([pa.array([], TYPES[m.format][1]) for _ in names], names=names)
    columns = [
        pa.Array.from_buffers(TYPES[m.format][1], length, [None, buffer.slice(k * m.strides[1])])
        for k in range(m.shape[1])
    ]
    return pa.table(columns, names=names)


def from_table(table):
    """An array of a table whose columns have the same type and no missing values."""
    types = {str(field.type) for field in table.schema}
    letter = next((key for key, (_, of_column) in TYPES.items() if {str(of_column)} == types), None)
    if letter is None:
        raise TypeError("the columns are not numbers of one type")
    stored = bytearray()
    for column in table.columns:
        if column.null_count:
            raise ValueError("a column has gaps, and arrays have none")
        for chunk in column.chunks:
            if len(chunk):  # a slice of a column has an offset into its buffer
                numbers = memoryview(chunk.buffers()[1]).cast("B").cast(letter)
                stored += numbers[chunk.offset : chunk.offset + len(chunk)]
    size = (table.num_rows, table.num_columns)
    return TYPES[letter][0](memoryview(stored).cast(letter), size=size)


def main():
    measures = penguin_measures()
    buffer = pa.py_buffer(measures)
    print("The memory, column by column, as an immutable buffer:")
    print(f"    {buffer.size, buffer.is_mutable = }")
    print(f"    {buffer.address == measures.buffer_info()[0] = }")
    back = velmar.double(memoryview(buffer).cast("d"), size=measures.size)
    print(f"    {back == measures = }")

    print("As a table, still that memory:")
    table = to_table(measures, MEASURES)
    print(f"    {table.schema.names, table.num_rows = }")
    print(f"    {table['body_mass_g'].chunk(0).buffers()[1].address - buffer.address = }")

    print("Written as a Feather file, read, sliced, and taken in:")
    file = pa.BufferOutputStream()
    feather.write_feather(table, file, compression="uncompressed")
    read = feather.read_table(pa.BufferReader(file.getvalue()))
    print(f"    {from_table(read) == measures = }")
    print(f"    {from_table(read.slice(340)) = !s}")


if __name__ == "__main__":
    main()
