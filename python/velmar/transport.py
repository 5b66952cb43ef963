"""Arrays as a small header and their exported memory, for the ways between processes.

Nothing happens on import. pack() and unpack() serve any way that carries bytes; register_...() tell
multiprocessing, Dask and Ray to use them in place of pickles. Plain pickle stays as it is.
"""

import ctypes
import math
import struct
import sys
from importlib import import_module
from multiprocessing.reduction import ForkingPickler
from pickle import PickleBuffer
from typing import Any

import velmar

__all__ = [
    "VERSION",
    "pack",
    "register_dask",
    "register_multiprocessing",
    "register_ray",
    "unpack",
    "unregister_dask",
    "unregister_multiprocessing",
    "unregister_ray",
]

VERSION = 1  # of the header and of what the frames hold

_LETTERS: dict[Any, Any] = {
    velmar.double: "d",
    velmar.single: "f",
    velmar.int8: "b",
    velmar.uint8: "B",
    velmar.int16: "h",
    velmar.uint16: "H",
    velmar.int32: "i",
    velmar.uint32: "I",
    velmar.int64: "q",
    velmar.uint64: "Q",
    velmar.logical: "?",
}
_CLASSES = {cls.__name__: cls for cls in _LETTERS}
_MOST_DIMENSIONS_OF_A_MEMORYVIEW = 64
_PLUGIN = "velmar.transport"  # what Dask calls the registration on its workers


class _Buffer(ctypes.Structure):
    """Py_buffer, as the stable interface fixes it."""

    _fields_ = [
        ("buf", ctypes.c_void_p),
        ("obj", ctypes.c_void_p),
        ("len", ctypes.c_ssize_t),
        ("itemsize", ctypes.c_ssize_t),
        ("readonly", ctypes.c_int),
        ("ndim", ctypes.c_int),
        ("format", ctypes.c_char_p),
        ("shape", ctypes.POINTER(ctypes.c_ssize_t)),
        ("strides", ctypes.POINTER(ctypes.c_ssize_t)),
        ("suboffsets", ctypes.POINTER(ctypes.c_ssize_t)),
        ("internal", ctypes.c_void_p),
    ]


def _function(name: str, result: Any, *parameters: Any) -> Any:
    # A prototype of our own: the one on ctypes.pythonapi belongs to everybody.
    return ctypes.PYFUNCTYPE(result, *parameters)((name, ctypes.pythonapi))


_get_buffer = _function(
    "PyObject_GetBuffer", ctypes.c_int, ctypes.py_object, ctypes.POINTER(_Buffer), ctypes.c_int
)
_release_buffer = _function("PyBuffer_Release", None, ctypes.POINTER(_Buffer))
_memoryview_of = _function("PyMemoryView_FromBuffer", ctypes.py_object, ctypes.POINTER(_Buffer))


def pack(array: Any) -> tuple[dict[str, Any], list[memoryview]]:
    """The header, a dict of plain values, and the list of frames, memoryviews of flat bytes.

    The one frame holds the elements in storage order. That of a whole array is its memory itself,
    that of a view a copy of what it shows now.
    """
    cls = type(array)
    if cls not in _LETTERS:
        raise TypeError(f"pack() takes an array of velmar, not {cls.__name__}.")
    size, is_complex = array.size, array._is_complex
    count = math.prod(size)
    if not count:
        frame = memoryview(b"")
    else:
        if not _exports_its_storage(array) or len(size) > _MOST_DIMENSIONS_OF_A_MEMORYVIEW:
            array = cls(array, is_complex=is_complex)
            array.reshape([count])
        frame = PickleBuffer(array).raw()
    if len(size) == 1:
        size = (1, count) if count else (0, 0)
    header = {
        "transport": VERSION,
        "class": cls.__name__,
        "is_complex": is_complex,
        "size": size,
        "byteorder": sys.byteorder,
    }
    return header, [frame]


def _exports_its_storage(array: Any) -> bool:
    """Whether array is a whole one.

    The export of a view is a copy made once, which a later write leaves out of date. Of views only
    a slice that leaves nothing out is exported here: nothing else tells it from its array.
    """
    address, count = array.buffer_info()
    size = array.size
    if math.prod(size) != count or len(size) != len(array.get_bytewise_strides()):
        return False
    exported = _Buffer()
    try:
        _get_buffer(array, exported, 0)
    except RuntimeError:
        return False  # a view that cannot be copied; copying it for the frame will say why
    _release_buffer(exported)
    return bool(exported.buf == address)


def unpack(header: dict[str, Any], frames: list[Any] | tuple[Any, ...]) -> Any:
    """The array that pack() was given; its elements are copied out of the frame, all at once."""
    cls, size, is_complex = _checked(header)
    if not isinstance(frames, list | tuple):
        raise TypeError("frames is not a list or tuple.")
    if len(frames) != 1:
        raise ValueError(f"one frame expected, not {len(frames)}.")
    raw = PickleBuffer(frames[0]).raw()
    itemsize = struct.calcsize(_LETTERS[cls]) * (2 if is_complex else 1)
    expected = math.prod(size) * itemsize
    if raw.nbytes != expected:
        raise ValueError(f"frame has {raw.nbytes} bytes; {expected} expected.")
    if not expected:
        return cls(size=size, is_complex=is_complex)
    if is_complex:
        return _complex_from_bytes(cls, raw, size, itemsize)
    return cls(raw.cast(_LETTERS[cls]), size=size)


def _checked(header: dict[str, Any]) -> tuple[Any, tuple[int, ...], bool]:
    """Class, size and complexity, as a sound header gives them."""
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


def _complex_from_bytes(cls: Any, raw: memoryview, size: tuple[int, ...], itemsize: int) -> Any:
    # memoryview.cast() knows no complex format, so the memoryview is made from the C structure.
    exported = _Buffer()
    _get_buffer(raw, exported, 0)
    try:
        elements = _Buffer(
            buf=exported.buf,
            len=raw.nbytes,
            itemsize=itemsize,
            readonly=1,
            ndim=1,
            format=b"Z" + _LETTERS[cls].encode(),
            shape=ctypes.pointer(ctypes.c_ssize_t(raw.nbytes // itemsize)),
            strides=ctypes.pointer(ctypes.c_ssize_t(itemsize)),
        )
        with _memoryview_of(elements) as buffer:
            return cls(buffer, size=size, is_complex=True)
    finally:
        _release_buffer(exported)


def register_multiprocessing() -> None:
    """Let arrays go packed to and from processes of multiprocessing and concurrent.futures.

    It concerns what this process sends. Spawned processes send results packed if they call it too:
    give it to the pool as its initializer.
    """
    for cls in _LETTERS:
        ForkingPickler.register(cls, _reduce)


def unregister_multiprocessing() -> None:
    """Let arrays go as pickles again."""
    for cls in _LETTERS:
        ForkingPickler._extra_reducers.pop(cls, None)  # type: ignore[attr-defined]


def _reduce(array: Any) -> tuple[Any, tuple[dict[str, Any], list[bytes]]]:
    # As bytes: the pickler of the processes keeps to a protocol that takes no other memory.
    header, frames = pack(array)
    return unpack, (header, [frame.tobytes() for frame in frames])


def _pack_for_pickling(array: Any) -> tuple[dict[str, Any], list[PickleBuffer]]:
    """Frames that can also be pickled, and then go out of band."""
    header, frames = pack(array)
    return header, [PickleBuffer(frame) for frame in frames]


def _module(function: str, name: str) -> Any:
    """A module of a library that need not be installed."""
    package = name.partition(".")[0]
    try:
        return import_module(name)
    except ModuleNotFoundError as error:
        if error.name != package:
            raise
    text = f"{function}() needs the package '{package}', which is not installed."
    raise ModuleNotFoundError(text, name=package)


def register_dask(client: Any = None) -> None:
    """Let arrays go packed between the processes of Dask, and tell Dask their memory and tokens.

    All processes that meet arrays need it. With a client its workers are told too, also those
    that come later.
    """
    protocol = _module("register_dask", "distributed.protocol")
    for cls in _LETTERS:
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
    """Let arrays go as pickles again, from this process and from the workers of the client."""
    protocol = _module("unregister_dask", "distributed.protocol")
    if client is not None:
        client.unregister_worker_plugin(_PLUGIN)
    for table in (
        protocol.dask_serialize,
        protocol.dask_deserialize,
        _module("unregister_dask", "dask.sizeof").sizeof,
        _module("unregister_dask", "dask.base").normalize_token,
    ):
        for cls in _LETTERS:
            table._lookup.pop(cls, None)


def _bytes_held(array: Any) -> int:
    # All the storage that the array or view keeps alive; each element is there twice.
    return int(2 * array.itemsize * array.buffer_info()[1])


def _token(array: Any) -> Any:
    hash_of = import_module("dask.hashing").hash_buffer_hex
    header, frames = pack(array)
    return "velmar", sorted(header.items()), [hash_of(frame) for frame in frames]


def register_ray() -> None:
    """Let arrays go packed to the workers of Ray and into its object store.

    It concerns what this process sends. Workers send results packed if they call it too: give it
    to ray.init() as their setup hook.
    """
    register_serializer = _module("register_ray", "ray.util").register_serializer
    for cls in _LETTERS:
        register_serializer(cls, serializer=_pack_for_pickling, deserializer=_unpack_pair)


def unregister_ray() -> None:
    """Let arrays that leave this process go as pickles again."""
    deregister_serializer = _module("unregister_ray", "ray.util").deregister_serializer
    for cls in _LETTERS:
        deregister_serializer(cls)


def _unpack_pair(packed: tuple[dict[str, Any], list[Any]]) -> Any:
    return unpack(*packed)
