"""Tells native clients where the headers and the CMake files of this installation are."""

import argparse
from pathlib import Path

PACKAGE = Path(__file__).absolute().parent


def main() -> None:
    parser = argparse.ArgumentParser(prog="python -m velmar", description=__doc__)
    wanted = parser.add_mutually_exclusive_group(required=True)
    wanted.add_argument(
        "--include-dir",
        action="store_const",
        const=PACKAGE / "include",
        dest="folder",
        help="print the folder of <velmar/client.hpp> and <velmardata/velmardata.hpp>",
    )
    wanted.add_argument(
        "--cmake-dir",
        action="store_const",
        const=PACKAGE / "cmake",
        dest="folder",
        help="print the folder for -Dvelmarmultidimarrayforpython_DIR=...",
    )
    print(parser.parse_args().folder)


if __name__ == "__main__":
    main()
