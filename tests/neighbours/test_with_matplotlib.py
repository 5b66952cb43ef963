"""The example with matplotlib: the drawings show the elements, and the file is a PNG."""

import numpy as np
import pytest
import velmar
import with_matplotlib
from helpers.cases import each
from matplotlib.figure import Figure
from PIL import Image
from samples import ROWS, nested


@pytest.fixture
def axes():
    return Figure().subplots()


def test_lines(axes):
    a = velmar.double([[k, 10 * k] for k in range(12)])
    first, second = with_matplotlib.draw_lines(axes, a)
    assert first.get_ydata().tolist() == list(range(12))
    assert second.get_ydata().tolist() == list(range(0, 120, 10))


def test_points(axes):
    points = with_matplotlib.draw_points(axes, velmar.double([[0, 0, 1, 2], [0, 0, 3, 4]]))
    assert points.get_offsets().tolist() == [[1, 2], [3, 4]]


@each(ROWS[1:])  # the sea temperatures of the example are doubles
def test_image_of_every_class(axes, row):
    image = with_matplotlib.draw_image(axes, row.cls(nested(row)))
    assert image.get_array().tolist() == nested(row)
    assert image.origin == "upper"


def test_views(axes):
    a = velmar.double([[1, 2], [3, 4], [5, 6]])
    assert with_matplotlib.draw_image(axes, a[::-2]).get_array().tolist() == [[5, 6], [1, 2]]


def test_program(capsys, tmp_path):
    file = tmp_path / "new" / "picture.png"
    with_matplotlib.main(file)
    assert capsys.readouterr().out == f"The picture is in {file}\n"
    with Image.open(file) as image:
        assert (image.format, image.size) == ("PNG", (960, 320))
        assert len(np.unique(np.asarray(image).reshape(-1, 4), axis=0)) > 100
