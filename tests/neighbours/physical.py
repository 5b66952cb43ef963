"""Objects of the libraries made from arrays: elements in the order of memory, and writability."""

import h5py
import numpy as np
import pandas as pd
import polars as pl
import pyarrow as pa
import xarray as xr
import zarr
from matplotlib.image import AxesImage
from PIL import Image


def as_numpy(result):
    """The result as NumPy sees its memory; plain bytes are flat."""
    if isinstance(result, pd.DataFrame | pd.Series | pl.DataFrame | pa.Tensor | pa.Array):
        return result.to_numpy()
    if isinstance(result, xr.DataArray):
        return result.values
    if isinstance(result, zarr.Array):
        return result[...]
    if isinstance(result, AxesImage):
        return result.get_array()
    if isinstance(result, h5py.Dataset):
        return stored(result)
    if isinstance(result, Image.Image):
        return np.frombuffer(result.tobytes(), "uint8")
    if isinstance(result, list):  # lines of a plot
        return np.concatenate([line.get_ydata() for line in result])
    return result


def stored(dataset):
    """The bytes of a data set in its file."""
    dataset.file.flush()
    with open(dataset.file.filename, "rb") as file:
        file.seek(dataset.id.get_offset())
        return np.frombuffer(file.read(dataset.nbytes), dataset.dtype)


def in_memory(result, dtype):
    """The elements in the order of the memory."""
    got = as_numpy(result)
    if not isinstance(got, np.ndarray):  # an object with bytes
        got = np.frombuffer(memoryview(got).tobytes("A"), dtype)
    return got.ravel(order="K").tolist()


def may_write(result):
    if isinstance(result, h5py.Dataset | zarr.Array):
        return True
    if isinstance(result, Image.Image):
        return not result.readonly
    if isinstance(result, pa.Buffer | pa.Tensor):
        return result.is_mutable
    if isinstance(result, pa.Array):
        return False  # Arrow arrays never change
    if isinstance(result, pd.DataFrame):
        try:
            result.iloc[0, 0] = result.iloc[0, 0]
        except ValueError:
            return False
        return True
    if isinstance(result, pd.Series):
        result.iloc[0] = result.iloc[0]
        return True
    got = as_numpy(result)
    return got.flags.writeable if isinstance(got, np.ndarray) else not memoryview(got).readonly
