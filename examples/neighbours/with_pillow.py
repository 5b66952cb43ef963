"""Pillow: an image to an array of rows, columns and channels, and an array to an image.

Usage: with_pillow.py [FILE.png]; the default is build/heat.png.
"""

import io
import sys
from pathlib import Path

import velmar
from example_data import sea_temperatures
from PIL import Image

PICTURE_FILE = Path(__file__).resolve().parents[2] / "build" / "heat.png"
MODES = {1: "L", 2: "LA", 3: "RGB", 4: "RGBA"}  # by the number of channels


def from_image(image):
    """An array of rows by columns by channels, or of rows by columns for a grey image."""
    if image.mode not in MODES.values():  # for example a palette, or eight pixels per byte
        image = image.convert("RGB" if image.mode != "1" else "L")
    shape = [image.height, image.width]
    if image.mode != "L":
        shape.append(len(image.getbands()))
    if 0 in shape:
        return velmar.uint8(size=shape)
    return velmar.uint8(memoryview(image.tobytes()).cast("B", shape))


def to_image(a):
    """An image with row 0 at the top. Uses bytes(a), which is in row order as Pillow needs."""
    shape = memoryview(a).shape
    if not isinstance(a, velmar.uint8) or a._is_complex or len(shape) > 3:
        raise TypeError("an image is a real uint8 array of two or three dimensions")
    channels = shape[2] if len(shape) == 3 else 1
    if channels not in MODES:
        raise ValueError(f"no image has {channels} channels")
    return Image.frombytes(MODES[channels], (shape[1], shape[0]), bytes(a))


def colour(temperature, low, high):
    """A colour from blue (low) to white to red (high)."""
    warmth = (temperature - low) / (high - low)
    return [
        round(255 * x)
        for x in (min(1, 2 * warmth), 1 - abs(2 * warmth - 1), min(1, 2 - 2 * warmth))
    ]


def heat(temperatures):
    """An image with one pixel for each temperature."""
    rows = [list(row) for row in temperatures]
    low, high = min(map(min, rows)), max(map(max, rows))
    return velmar.uint8([[colour(t, low, high) for t in row] for row in rows])


def main(file=PICTURE_FILE):
    pixels = heat(sea_temperatures())
    print(f"{pixels.size, pixels[0][0] = }")
    encoded = io.BytesIO()
    to_image(pixels).save(encoded, "PNG")
    decoded = from_image(Image.open(encoded))
    print(f"{len(encoded.getvalue()), decoded == pixels = }")

    upside_down = to_image(decoded[::-1])
    print(f"{upside_down.size, upside_down.getpixel((0, 11)) == tuple(pixels[0][0]) = }")
    Path(file).parent.mkdir(parents=True, exist_ok=True)
    to_image(decoded).resize((61 * 12, 12 * 12), Image.Resampling.NEAREST).save(file)
    print(f"The picture is in {file}")


if __name__ == "__main__":
    main(*sys.argv[1:])
