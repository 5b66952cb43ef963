"""h5py: arrays written as data sets of an HDF5 file and read back."""

import tempfile
from pathlib import Path

import h5py
import velmar
from example_data import FIRST_YEAR, sea_temperatures
from with_numpy import from_numpy, from_parts, parts


def write(group, name, a, **options):
    """Writes an array as a data set; a complex integer array as a group of two parts."""
    if a._is_complex and not isinstance(a, velmar.double | velmar.single):
        pair = group.create_group(name)
        pair["real"], pair["imag"] = parts(a)
        return pair
    return group.create_dataset(name, data=a, **options)


def read(group, name, rows=slice(None)):
    """Reads an array, or some rows of it.

    Does not use velmar.double(group[name]), which would read the data set number by number.
    """
    stored = group[name]
    if isinstance(stored, h5py.Group):
        return from_parts(stored["real"][rows], stored["imag"][rows])
    return from_numpy(stored[rows])


def main():
    temperatures = sea_temperatures()
    with tempfile.TemporaryDirectory() as folder:
        file_name = Path(folder) / "sea.h5"
        with h5py.File(file_name, "w") as file:
            stored = write(file, "temperatures", temperatures, compression="gzip")
            stored.attrs["unit"] = "degrees Celsius"
            stored.attrs["first year"] = FIRST_YEAR
            write(file, "wave", velmar.int16([[-5 + 12j, 3 - 1j]], is_complex=True))
        with h5py.File(file_name) as file:
            print(f"{list(file), dict(file['temperatures'].attrs) = }")
            print(f"{read(file, 'temperatures') == temperatures = }")
            print(f"{read(file, 'temperatures', slice(0, 2)).size = }  (January and February)")
            print(f"{read(file, 'wave') = }")


if __name__ == "__main__":
    main()
