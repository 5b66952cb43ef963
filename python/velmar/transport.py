"""Transfers arrays between processes as a small header and their exported memory.

pack() and unpack() work with any transport that carries bytes. The register_...() functions make
multiprocessing, pickle, Dask and Ray use them. Importing this module registers nothing.
"""

import copyreg
import math
import sys
from importlib import import_module
from multiprocessing.reduction import ForkingPickler
from pickle import PickleBuffer
from typing import Any

from velmar._memory import LETTERS, array_from_bytes, frame_of, size_of_element

__all__ = [
    "VERSION",
    "pack",
    "register_dask",
    "register_multiprocessing",
    "register_pickle",
    "register_ray",
    "unpack",
    "unregister_dask",
    "unregister_multiprocessing",
    "unregister_pickle",
    "unregister_ray",
]

VERSION = 1  # of the header and of the contents of the frames

_CLASSES = {cls.__name__: cls for cls in LETTERS}
_PLUGIN = "velmar.transport"  # the name of the Dask plugin that registers its workers


def pack(array: Any) -> tuple[dict[str, Any], list[memoryview]]:
    """The header, a dict of plain values, and a list with one frame, a memoryview of flat bytes.

    The frame holds the elements in storage order. For a whole array it is the memory of the array,
    for a view a copy of the current elements.
    """
    cls = type(array)
    if cls not in LETTERS:
        raise TypeError(f"pack() takes an array of velmar, not {cls.__name__}.")
    size = array.size
    frame = frame_of(array)
    if len(size) == 1:
        size = (1, *size) if size[0] else (0, 0)
    header = {
        "transport": VERSION,
        "class": cls.__name__,
        "is_complex": array._is_complex,
        "size": size,
        "byteorder": sys.byteorder,
    }
    return header, [frame]


def unpack(header: dict[str, Any], frames: list[Any] | tuple[Any, ...]) -> Any:
    """The array that was packed. Its elements are copied from the frame."""
    cls, size, is_complex = _checked(header)
    if not isinstance(frames, list | tuple):
        raise TypeError("frames is not a list or tuple.")
    if len(frames) != 1:
        raise ValueError(f"one frame expected, not {len(frames)}.")
    raw = PickleBuffer(frames[0]).raw()
    expected = math.prod(size) * size_of_element(cls, is_complex)
    if raw.nbytes != expected:
        raise ValueError(f"frame has {raw.nbytes} bytes; {expected} expected.")
    return array_from_bytes(cls, is_complex, raw, size)


def _checked(header: dict[str, Any]) -> tuple[Any, tuple[int, ...], bool]:
    """The class, the size and is_complex. Raises TypeError or ValueError for an invalid header."""
    if not isinstance(header, dict):
        raise TypeError("header is not a dict.")
    if header.get("transport") != VERSION:
        raise ValueError(f"header is of version {header.get('transport')!r}; {VERSION} expected.")
    for key in ("class", "is_complex", "size", "byteorder"):
        if key not in header:
            raise ValueError(f"header has no '{key}'.")
    if header["byteorder"] != sys.byteorder:
        raise ValueError(
            f"header has byte order {header['byteorder']!r}; {sys.byteorder!r} expected."
        )
    word, size, is_complex = header["class"], header["size"], header["is_complex"]
    if not isinstance(word, str) or word not in _CLASSES:
        raise ValueError(f"header has an unknown class: {word!r}.")
    if not isinstance(is_complex, bool) or (is_complex and word == "logical"):
        raise ValueError(f"header has an invalid 'is_complex' for {word}: {is_complex!r}.")
    if (
        not isinstance(size, list | tuple)
        or len(size) < 2
        or not all(type(length) is int and length >= 0 for length in size)
    ):
        raise ValueError(f"header has an invalid size: {size!r}.")
    return _CLASSES[word], tuple(size), is_complex


def register_multiprocessing() -> None:
    """Makes multiprocessing and concurrent.futures send arrays packed.

    This applies to what this process sends. Spawned processes send packed results if they call this
    function too: pass it to the pool as its initializer.
    """
    for cls in LETTERS:
        ForkingPickler.register(cls, _reduce)


def unregister_multiprocessing() -> None:
    """Undoes register_multiprocessing(): arrays are sent as pickles again."""
    for cls in LETTERS:
        ForkingPickler._extra_reducers.pop(cls, None)  # type: ignore[attr-defined]


def register_pickle() -> None:
    """Makes everything in this process that pickles or copies arrays use packed arrays.

    This includes pickle, copy, shelve, multiprocessing, concurrent.futures, joblib and cloudpickle.
    Such pickles need velmar.transport where they are read, and machines of the same byte order.
    Pickles that were made before can still be read.
    """
    for cls in LETTERS:
        copyreg.pickle(cls, _reduce)


def unregister_pickle() -> None:
    """Undoes register_pickle(): the classes pickle themselves again."""
    for cls in LETTERS:
        if copyreg.dispatch_table.get(cls) is _reduce:
            del copyreg.dispatch_table[cls]


def _reduce(array: Any) -> tuple[Any, tuple[dict[str, Any], list[bytes]]]:
    # As bytes, which every pickle protocol supports; PickleBuffer requires protocol 5.
    header, frames = pack(array)
    return unpack, (header, [frame.tobytes() for frame in frames])


def _pack_for_pickling(array: Any) -> tuple[dict[str, Any], list[PickleBuffer]]:
    """pack() with frames that pickle can transfer out of band."""
    header, frames = pack(array)
    return header, [PickleBuffer(frame) for frame in frames]


def _module(function: str, name: str) -> Any:
    """Imports a module of an optional library for the named function."""
    package = name.partition(".")[0]
    try:
        return import_module(name)
    except ModuleNotFoundError as error:
        if error.name != package:
            raise
    text = f"{function}() needs the package '{package}', which is not installed."
    raise ModuleNotFoundError(text, name=package)


def register_dask(client: Any = None) -> None:
    """Makes Dask send arrays packed, and tells Dask the size and the token of an array.

    Every process that uses arrays must call this function. With a client, it also registers the
    client's workers, including those that start later.
    """
    protocol = _module("register_dask", "distributed.protocol")
    for cls in LETTERS:
        protocol.dask_serialize.register(cls, _pack_for_pickling)
        protocol.dask_deserialize.register(cls, unpack)
        _module("register_dask", "dask.sizeof").sizeof.register(cls, _bytes_held)
        _module("register_dask", "dask.base").normalize_token.register(cls, _token)
    if client is None:
        return

    class Registration(import_module("distributed").WorkerPlugin):  # type: ignore[misc]
        name = _PLUGIN

        def setup(self, worker: Any) -> None:
            register_dask()

        def teardown(self, worker: Any) -> None:
            unregister_dask()

    client.register_plugin(Registration())


def unregister_dask(client: Any = None) -> None:
    """Undoes register_dask() in this process and, with a client, in its workers."""
    protocol = _module("unregister_dask", "distributed.protocol")
    if client is not None:
        client.unregister_worker_plugin(_PLUGIN)
    for table in (
        protocol.dask_serialize,
        protocol.dask_deserialize,
        _module("unregister_dask", "dask.sizeof").sizeof,
        _module("unregister_dask", "dask.base").normalize_token,
    ):
        for cls in LETTERS:
            table._lookup.pop(cls, None)


def _bytes_held(array: Any) -> int:
    # The whole storage, because a view keeps all of it alive.
    return int(array.itemsize * array.buffer_info()[1])


def _token(array: Any) -> Any:
    hash_of = import_module("dask.hashing").hash_buffer_hex
    header, frames = pack(array)
    return "velmar", sorted(header.items()), [hash_of(frame) for frame in frames]


def register_ray() -> None:
    """Makes Ray send arrays packed, to its workers and to its object store.

    This applies to what this process sends. Workers send packed results if they call this function
    too: pass it to ray.init() as their setup hook.
    """
    register_serializer = _module("register_ray", "ray.util").register_serializer
    for cls in LETTERS:
        register_serializer(cls, serializer=_pack_for_pickling, deserializer=_unpack_pair)


def unregister_ray() -> None:
    """Undoes register_ray(): arrays from this process are sent as pickles again."""
    deregister_serializer = _module("unregister_ray", "ray.util").deregister_serializer
    for cls in LETTERS:
        deregister_serializer(cls)


def _unpack_pair(packed: tuple[dict[str, Any], list[Any]]) -> Any:
    return unpack(*packed)
