"""multiprocessing.shared_memory: several processes read an array, or some columns, from a block."""

import multiprocessing
from concurrent.futures import ProcessPoolExecutor
from multiprocessing.shared_memory import SharedMemory

from example_data import MEASURES, penguin_measures
from velmar import transport


def put(a):
    """A new block with the elements of an array in storage order, and the arguments for take()."""
    header, [frame] = transport.pack(a)
    block = SharedMemory(create=True, size=max(frame.nbytes, 1))
    block.buf[: frame.nbytes] = frame
    return block, (block.name, header, frame.nbytes)


def take(name, header, used, columns=None):
    """An array with a copy of the elements in a block, or of the columns first to last - 1."""
    *rest, width = header["size"]
    first, last = columns or (0, width)
    of_column = used // width if width else 0  # bytes; columns lie side by side
    block = SharedMemory(name)
    try:
        with block.buf[first * of_column : last * of_column] as part:
            return transport.unpack(header | {"size": (*rest, last - first)}, [part])
    finally:
        block.close()


def largest(description, columns):
    """The largest number of each column; runs in another process."""
    a = take(*description, columns=columns)
    return [max(row[k] for row in a) for k in range(len(a[0]))]


def main():
    measures = penguin_measures()
    block, description = put(measures)
    print(f"{description[1:] = }")
    try:
        print(f"{take(*description) == measures = }")
        context = multiprocessing.get_context("spawn")
        with ProcessPoolExecutor(2, mp_context=context) as pool:
            jobs = [pool.submit(largest, description, pair) for pair in ((0, 2), (2, 4))]
            found = [number for job in jobs for number in job.result()]
    finally:
        block.close()
        block.unlink()
    for name, number in zip(MEASURES, found, strict=True):
        print(f"    largest {name}: {number}")


if __name__ == "__main__":
    main()
