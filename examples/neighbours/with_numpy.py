"""NumPy: arrays to NumPy without a copy, back with one copy, and complex integers as two parts."""

import numpy as np
import velmar
from example_data import sea_temperatures
from velmar import transport

CLASSES = {
    "float64": velmar.double,
    "float32": velmar.single,
    "complex128": velmar.double,
    "complex64": velmar.single,
    "bool": velmar.logical,
    "int8": velmar.int8,
    "uint8": velmar.uint8,
    "int16": velmar.int16,
    "uint16": velmar.uint16,
    "int32": velmar.int32,
    "uint32": velmar.uint32,
    "int64": velmar.int64,
    "uint64": velmar.uint64,
}


def to_numpy(a):
    """A NumPy array on the memory of an array: column-major, read-only, without a copy."""
    return np.asarray(memoryview(a))


def from_numpy(n):
    """An array of the class for n's element type."""
    if n.dtype.name not in CLASSES:
        raise TypeError(f"no class holds elements of type {n.dtype}")
    # The constructor accepts only native byte order and contiguous memory.
    n = n.astype(n.dtype.newbyteorder("="), copy=False)
    if not n.flags.c_contiguous:
        n = np.asfortranarray(n)
    return CLASSES[n.dtype.name](n, is_complex=n.dtype.kind == "c")


def parts(c):
    """The real and imaginary parts of a complex array of any class, as views of its memory."""
    m = memoryview(c)
    pairs = np.ndarray((2, *m.shape), np.dtype(m.format[1:]), buffer=c, order="F")
    return pairs[0], pairs[1]


def from_parts(real, imag):
    """A complex array of two NumPy arrays of the same type, bit for bit, without Python numbers."""
    if real.dtype != imag.dtype or real.shape != imag.shape:
        raise TypeError("the parts differ in type or shape")
    pairs = np.empty((2, *np.atleast_2d(real).shape), real.dtype, order="F")
    pairs[0], pairs[1] = real, imag
    header, _ = transport.pack(CLASSES[real.dtype.name](is_complex=True))
    return transport.unpack(header | {"size": pairs.shape[1:]}, [pairs])


def main():
    temperatures = sea_temperatures()
    n = to_numpy(temperatures)
    print("Out, no copy:")
    print(f"    {n.shape, n.strides, n.flags.f_contiguous, n.flags.writeable = }")
    print(f"    {n.ctypes.data == temperatures.buffer_info()[0] = }")
    print(f"    {n.mean(axis=1).round(2) = }")

    print("Back, one copy: the yearly means of the coldest and the warmest year")
    years = from_numpy(np.sort(n.mean(axis=0)).round(2)[[0, -1]])
    print(f"    {years = }")

    print("Complex: the spectrum over the months of each year, 7 by 61")
    spectrum = from_numpy(np.fft.rfft(n, axis=0))
    print(f"    {spectrum._is_complex, spectrum.size = }")
    print(f"    {np.allclose(np.fft.irfft(to_numpy(spectrum), axis=0), n) = }")

    print("Complex integers: the yearly wave in hundredths of a degree; NumPy sees the two parts")
    wave = (to_numpy(spectrum)[1] * 100 / 6).round()
    waves = from_parts(wave.real.astype("int16"), wave.imag.astype("int16"))
    print(f"    {waves[0][:3] = !s}")
    real, imag = parts(waves)
    print(f"    {real.dtype, real.shape, real[0, :3], imag[0, :3] = }")


if __name__ == "__main__":
    main()
