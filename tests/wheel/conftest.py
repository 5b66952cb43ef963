"""The option that names the wheel under test."""

from pathlib import Path

import pytest


def pytest_addoption(parser):
    parser.addoption("--wheel", type=Path, required=True, help="the wheel to test")


@pytest.fixture(scope="session")
def wheel(request):
    return request.config.getoption("--wheel")


@pytest.fixture(scope="session")
def unpacked(wheel, tmp_path_factory):
    """The folder with the files of the wheel, as after an installation."""
    import zipfile

    folder = tmp_path_factory.mktemp("wheel")
    with zipfile.ZipFile(wheel) as archive:
        archive.extractall(folder)
    return folder
