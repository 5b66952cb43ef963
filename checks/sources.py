"""Checks of the text of the C++ sources: rooms, banned names, lists of sources, shape of files.

Prints one line for each finding and ends with status 1 if there is any.
"""

import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
# The rooms of src, lowest first. A room may use itself and the rooms before it.
ROOMS = ("module", "storage", "elements", "construct", "indexing", "operations", "module/entry")
PYTHON_DOOR = Path("src/module/python.hpp")

# PyRef uses Py_IncRef and Py_DecRef; the macros would access the fields of the object.
MACROS = r"\b(Py_X?(?:INCREF|DECREF|SETREF|NewRef)|Py_CLEAR|Py_RETURN_\w+)\b"
COUNTING = r"\b(Py_IncRef|Py_DecRef)\b"
# An out-parameter for failure; the result of a function says whether it failed.
BOOL_OUT_PARAMETER = r"[(,]\s*(bool\s*&(?!&)\s*\w*)"
# A pattern in the code, the finding, and the files that it is for.
BANNED = [
    (MACROS, "uses {}, which is banned", ""),
    (COUNTING, "uses {}; only PyRef may", r"src/(?!module/py_ref\.hpp)"),
    (BOOL_OUT_PARAMETER, "has the parameter {}; report failure through the result", "src/"),
]
INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]+)[">]', re.MULTILINE)
COMMENT_OR_TEXT = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"', re.DOTALL)
USING = re.compile(r"^\s*using (?:\w+::)+(\w+);", re.MULTILINE)
LONGEST_FILE = {"src": 400, "velmardata": 400, "tests": 500}


def room_of(path):
    """The room of a path from the root of the project or from src; None if it is in no room."""
    folder = path.parent.as_posix().removeprefix("src/")
    return folder if folder in ROOMS else None


def is_above(room, other):
    """Whether `other` may not use `room`."""
    return ROOMS.index(room) > ROOMS.index(other)


def check_include(file, quote, name):
    if name == "Python.h" and file != PYTHON_DOOR:
        yield f"includes Python.h; only {PYTHON_DOOR} may"
    if file.parts[0] == "velmardata":
        folders = (ROOT / file.parent, ROOT / "velmardata/include")
        if quote == '"' and not any((folder / name).exists() for folder in folders):
            yield f'includes "{name}", which is outside the data library'
    elif file.parts[0] == "src" and quote == '"':
        room, target = room_of(file), room_of(Path(name))
        if target is None or not (ROOT / "src" / name).exists():
            yield f'includes "{name}", which is not a path below src'
        elif room is not None and is_above(target, room):
            yield f'includes "{name}", but the room {target} is above {room}'


def check_shape(file, text):
    lines = text.splitlines()
    longest = LONGEST_FILE[file.parts[0]]
    if len(lines) > longest:
        yield f"has {len(lines)} lines; split at {longest}"
    if not lines or not lines[0].startswith(("// ", "/* ")):
        yield "does not begin with a comment that says its role"
    if not text.isascii():
        yield "has characters outside ASCII"
    if file.suffix == ".hpp" and "\n#pragma once\n" not in text:
        yield "has no #pragma once"


def check_file(file):
    text = (ROOT / file).read_text(encoding="utf-8")
    yield from check_shape(file, text)
    for quote, name in INCLUDE.findall(text):
        yield from check_include(file, quote, name)
    code = COMMENT_OR_TEXT.sub(" ", text)
    for pattern, finding, files in BANNED:
        if re.match(files, str(file)):
            for found in sorted(set(re.findall(pattern, code))):
                yield finding.format(found)
    # A using declaration of a header is for the files that include it.
    for name in USING.findall(code) if file.suffix == ".cpp" else ():
        if not re.search(rf"(?<!::)\b{name}\b", code):
            yield f"has a using declaration for {name} and does not use it"
    if file.parts[0] == "src" and room_of(file) is None:
        yield "is in no room of checks/sources.py"


def check_lists():
    """Every source is in the list of its CMakeLists.txt: a test off the list would never run."""
    for folder in (Path("src"), Path("velmardata"), Path("tests/native")):
        words = (ROOT / folder / "CMakeLists.txt").read_text().split()
        listed = {word.strip("()") for word in words}
        for source in sorted((ROOT / folder).rglob("*.cpp")):
            name = source.relative_to(ROOT / folder)
            if str(name) not in listed:
                yield folder / name, f"is not in the list of {folder}/CMakeLists.txt"


def main():
    findings = list(check_lists())
    for folder in ("src", "velmardata", "tests"):
        for path in sorted((ROOT / folder).rglob("*.[ch]pp")):
            file = path.relative_to(ROOT)
            findings += [(file, finding) for finding in check_file(file)]
    for file, finding in findings:
        print(f"{file}: {finding}")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
