"""The memory of this process: on the heap of the C library, and resident."""

from __future__ import annotations

import ctypes


class _HeapFigures(ctypes.Structure):
    """struct mallinfo2 of the C library: ten counts, of which two matter here."""

    _fields_ = [
        ("before", ctypes.c_size_t * 4),
        ("hblkhd", ctypes.c_size_t),  # bytes in blocks that are mapped one by one
        ("between", ctypes.c_size_t * 2),
        ("uordblks", ctypes.c_size_t),  # bytes in all other blocks in use
        ("behind", ctypes.c_size_t * 2),
    ]


def heap_bytes() -> int:
    """Bytes that malloc has given out and that are not freed."""
    mallinfo2 = ctypes.CDLL(None).mallinfo2
    mallinfo2.restype = _HeapFigures
    figures = mallinfo2()
    return figures.uordblks + figures.hblkhd


def resident_bytes(field: str = "VmRSS") -> int:
    """Resident memory now, or another field of /proc/self/status."""
    with open("/proc/self/status", encoding="ascii") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1]) * 1024
    raise RuntimeError(f"no {field} in /proc/self/status")
