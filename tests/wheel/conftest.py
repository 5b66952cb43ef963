"""The option that names the wheel under test."""

from pathlib import Path

import pytest


def pytest_addoption(parser):
    parser.addoption("--wheel", type=Path, required=True, help="the wheel to look at")


@pytest.fixture(scope="session")
def wheel(request):
    return request.config.getoption("--wheel")


@pytest.fixture(scope="session")
def unpacked(wheel, tmp_path_factory):
    """The folder with the wheel's files, as an installation would lay them out."""
    import zipfile

    folder = tmp_path_factory.mktemp("wheel")
    with zipfile.ZipFile(wheel) as archive:
        archive.extractall(folder)
    return folder
