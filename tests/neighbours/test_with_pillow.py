"""The example with Pillow: orientation, channels and every mode of an image."""

import io
import re

import pytest
import velmar
import with_pillow
from helpers.cases import rows
from PIL import Image
from with_pillow import from_image, to_image

RED, GREEN, BLUE, WHITE = [255, 0, 0], [0, 255, 0], [0, 0, 255], [255, 255, 255]
PIXELS = [[RED, GREEN, BLUE], [WHITE, [1, 2, 3], [4, 5, 6]]]


def encoded(image, form):
    file = io.BytesIO()
    image.save(file, form)
    return file


class TestOut:
    def test_places_and_channels(self):
        image = to_image(velmar.uint8(PIXELS))
        assert (image.mode, image.size) == ("RGB", (3, 2))
        got = [[list(image.getpixel((x, y))) for x in range(3)] for y in range(2)]
        assert got == PIXELS

    @rows(
        "channels, mode",
        [("grey_and_alpha", 2, "LA"), ("colours", 3, "RGB"), ("with_alpha", 4, "RGBA")],
    )
    def test_modes(self, channels, mode):
        pixel = [10, 20, 30, 40][:channels]
        image = to_image(velmar.uint8([[pixel, [0] * channels]]))
        assert (image.mode, image.getpixel((0, 0))) == (mode, tuple(pixel))

    def test_grey(self):
        image = to_image(velmar.uint8([[1, 2, 3], [4, 5, 6]]))
        assert (image.mode, image.size, image.getpixel((2, 0))) == ("L", (3, 2), 3)

    def test_views(self):
        a = velmar.uint8(PIXELS)
        assert from_image(to_image(a[::-1])) == velmar.uint8(PIXELS[::-1])
        row = to_image(a[0])  # 3 pixels of 3 numbers: two dimensions, so grey
        assert (row.mode, row.size, row.getpixel((0, 0))) == ("L", (3, 3), 255)

    @rows(
        "make, error, text",
        [
            (
                "int8",
                lambda: velmar.int8([[1]]),
                TypeError,
                "an image is a real uint8 array of two or three dimensions",
            ),
            (
                "complex",
                lambda: velmar.uint8([[1]], is_complex=True),
                TypeError,
                "an image is a real uint8 array of two or three dimensions",
            ),
            (
                "four_dimensions",
                lambda: velmar.uint8(size=(2, 2, 2, 2)),
                TypeError,
                "an image is a real uint8 array of two or three dimensions",
            ),
            (
                "five_channels",
                lambda: velmar.uint8(size=(2, 2, 5)),
                ValueError,
                "no image has 5 channels",
            ),
        ],
    )
    def test_refused(self, make, error, text):
        with pytest.raises(error) as caught:
            to_image(make())
        assert str(caught.value) == text


class TestIn:
    @pytest.mark.parametrize("form", ["PNG", "BMP", "TIFF"])
    def test_bytes_of_a_file(self, form):
        image = Image.new("RGB", (3, 2))
        for y, row in enumerate(PIXELS):
            for x, pixel in enumerate(row):
                image.putpixel((x, y), tuple(pixel))
        assert from_image(Image.open(encoded(image, form))) == velmar.uint8(PIXELS)

    @rows(
        "mode, colour, expected",
        [
            ("grey", "L", 7, [[7, 7]]),
            ("bits", "1", 1, [[255, 255]]),
            ("palette", "P", 0, [[[0, 0, 0], [0, 0, 0]]]),
            ("printing", "CMYK", (0, 255, 255, 0), [[RED, RED]]),
            ("alpha", "RGBA", (1, 2, 3, 4), [[[1, 2, 3, 4], [1, 2, 3, 4]]]),
            ("grey_alpha", "LA", (1, 4), [[[1, 4], [1, 4]]]),
        ],
    )
    def test_modes(self, mode, colour, expected):
        assert from_image(Image.new(mode, (2, 1), colour)) == velmar.uint8(expected)

    def test_nothing(self):
        assert from_image(Image.new("RGB", (0, 2))).size == (2, 0, 3)

    def test_there_and_back(self):
        a = velmar.uint8(PIXELS)
        assert from_image(Image.open(encoded(to_image(a), "PNG"))) == a


def test_heat():
    assert with_pillow.heat(velmar.double([[1, 2, 3]])) == velmar.uint8([[BLUE, WHITE, RED]])


def test_program(capsys, tmp_path):
    file = tmp_path / "heat.png"
    with_pillow.main(file)
    printed = capsys.readouterr().out
    assert re.search(r"decoded == pixels = \(\d+, True\)", printed)
    assert "upside_down.getpixel((0, 11)) == tuple(pixels[0][0]) = ((61, 12), True)" in printed
    with Image.open(file) as image:
        assert image.size == (732, 144)
        got = [[list(image.getpixel((12 * x, 12 * y))) for x in range(61)] for y in range(12)]
    assert velmar.uint8(got) == with_pillow.heat(with_pillow.sea_temperatures())
