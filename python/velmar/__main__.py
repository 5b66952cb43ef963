"""Tells native clients where the headers, libraries and CMake files of this installation are."""

import argparse
from pathlib import Path

import velmarmultidimarrayforpython

import velmar

PACKAGE = Path(__file__).absolute().parent
# The libraries are beside the extension module: also in a build folder, which has no package.
LIBRARIES = Path(velmarmultidimarrayforpython.__file__).absolute().parent


def main() -> None:
    parser = argparse.ArgumentParser(prog="python -m velmar", description=__doc__)
    wanted = parser.add_mutually_exclusive_group(required=True)

    def add_folder(option: str, folder: Path, text: str) -> None:
        wanted.add_argument(
            option,
            action="store_const",
            const=folder,
            dest="answer",
            help=f"print the folder {text}",
        )

    add_folder(
        "--include-dir",
        PACKAGE / "include",
        "of <velmar/client.hpp> and <velmardata/velmardata.hpp>",
    )
    add_folder("--library-dir", LIBRARIES, "of the two libraries to link")
    add_folder("--cmake-dir", PACKAGE / "cmake", "for -Dvelmarmultidimarrayforpython_DIR=...")
    wanted.add_argument("--version", action="store_true", help="print the version")
    arguments = parser.parse_args()
    print(velmar.__version__ if arguments.version else arguments.answer)


if __name__ == "__main__":
    main()
