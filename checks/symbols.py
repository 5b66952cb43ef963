"""Checks on compiled objects: the order of the rooms, and functions that nothing uses.

Builds src and velmardata without optimisation, with one linker section for each function, and links
the module and the two data libraries without the sections that are not reachable. Prints one line
for each finding and ends with status 1 if there is any:

- a room uses a symbol that only a higher room defines;
- a function of the project is in none of the libraries and not in kept_functions.txt;
- kept_functions.txt lists a function that is linked or does not exist.

The compiler emits no inline function that its source does not use. One more source, which includes
all headers of the project, is therefore compiled such that every inline function is emitted. A
template without any instance stays invisible.
"""

import json
import os
import re
import shlex
import subprocess
import sys
from collections import defaultdict
from pathlib import Path

from names import is_foreign, is_special_member, parse_name, source_name
from rooms import ROOMS, is_above, room_of

ROOT = Path(__file__).resolve().parents[1]
BUILD = ROOT / "build/lint-objects"
KEPT_FUNCTIONS = "checks/kept_functions.txt"
PUBLIC_HEADERS = ROOT / "velmardata/include/velmardata"
DATA_NAMESPACES = {"foundation", "velmardata", "standalone", "velmar", "data", "impl", "detail"}

# An always-inlined function is never called and would look unused: replace that attribute by one
# that changes nothing.
FLAGS = "-O0 -DNDEBUG -ffunction-sections -fdata-sections -Dalways_inline=unused"
CONFIGURE = [
    *("cmake", "-G", "Ninja", "-S", str(ROOT), "-B", str(BUILD), "--log-level=ERROR"),
    *("-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_BUILD_TYPE=Debug"),
    "-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON",  # each source has to include what it needs
    f"-DCMAKE_CXX_FLAGS_DEBUG={FLAGS}",
    "-DCMAKE_SHARED_LINKER_FLAGS=-Wl,--gc-sections",
    "-DCMAKE_MODULE_LINKER_FLAGS=-Wl,--gc-sections",
    f"-DPython_EXECUTABLE={ROOT / '.venv/bin/python'}",
]
# Letters of nm: functions with local, global and weak names.
FUNCTIONS = "tTW"


def run(*command, cwd=ROOT):
    """What the command prints; CalledProcessError with that if it fails."""
    options = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "text": True}
    return subprocess.run(command, check=True, cwd=cwd, **options).stdout


def read_symbols(file):
    """The set of (letter, name in C++) of a file's symbols; undefined ones have the letter U."""
    lines = run("nm", "--demangle", str(file)).splitlines()
    return {(line[17], line[19:]) for line in lines if not is_foreign(line[19:])}


def inline_functions(command):
    """Names of the inline functions in our headers. The command compiles any one source of src."""
    headers = [*(ROOT / "src").rglob("*.hpp"), *(ROOT / "velmardata/source").rglob("*.hpp")]
    source = BUILD / "all_headers.cpp"
    # python.hpp has to come first.
    names = ["module/python.hpp", *sorted(map(str, headers))]
    source.write_text("".join(f'#include "{name}"\n' for name in names))
    words = [*shlex.split(command), "-fkeep-inline-functions"]
    words[words.index("-c") + 1] = str(source)
    words[words.index("-o") + 1] = str(source.with_suffix(".o"))
    run(*words, cwd=BUILD)
    return {name for letter, name in read_symbols(source.with_suffix(".o")) if letter in FUNCTIONS}


def order_findings(objects):
    """Each room may use what it defines itself and what lower rooms define."""
    definers, users = defaultdict(set), defaultdict(set)
    for source, symbols in objects.items():
        room = room_of(source)
        for letter, name in symbols if room else ():
            if letter == "U":
                users[name].add((source, room))
            elif letter.isupper():
                definers[name].add(room)
    for name, places in sorted(users.items()):
        for source, room in sorted(places):
            if definers[name] and all(is_above(definer, room) for definer in definers[name]):
                definer = min(definers[name], key=ROOMS.index)
                used = source_name(name)
                yield f"{source}: {room} uses {used}, which {definer} above it defines"


def is_for_clients(readable, public_words):
    """Whether a function with its body in a header is in a public header of the data library."""
    parts = parse_name(readable).qualified.split("::")
    own = [part for part in parts if part not in DATA_NAMESPACES]
    return parts[0] in DATA_NAMESPACES and bool(own) and own[0] in public_words


def find_functions(objects, inline):
    """Dictionary from the name of each function of the project to the first source that has it."""
    public_words = set(re.findall(r"\w+", "".join(f.read_text() for f in PUBLIC_HEADERS.iterdir())))
    rows = {(letter, name, str(source)) for source in objects for letter, name in objects[source]}
    rows |= {("W", name, "the headers") for name in inline}
    found = {}
    for letter, name, source in sorted(rows, key=lambda row: row[2]):
        # The compiler makes parts of a lambda by itself, and warns about an unused lambda. It can
        # leave out special members, and clients use the functions of public headers.
        is_made = letter == "W" and (is_special_member(name) or is_for_clients(name, public_words))
        if letter in FUNCTIONS and "{lambda" not in name and not is_made:
            found.setdefault(name, source)
    return found


def read_kept():
    """Dictionary from a name to its line number in kept_functions.txt; each entry has a reason."""
    kept = {}
    lines = (ROOT / KEPT_FUNCTIONS).read_text(encoding="utf-8").splitlines()
    for number, line in enumerate(lines, 1):
        if line.startswith("function: "):
            reason = lines[number] if number < len(lines) else ""
            if not reason.startswith("reason: "):
                raise SystemExit(f"{KEPT_FUNCTIONS}:{number}: the reason has to follow")
            kept[line.removeprefix("function: ")] = number
    return kept


def unused_findings(found, linked, kept):
    """`found` is from find_functions(), `kept` from read_kept(); `linked` are names."""
    linked = {source_name(name) for name in linked & set(found)}
    places = {}
    for name, source in found.items():
        places.setdefault(source_name(name), source)
    for name, source in sorted(places.items()):
        if name not in linked and name not in kept:
            yield f"{source}: nothing uses {name}"
    for name, number in kept.items():
        if name not in places:
            yield f"{KEPT_FUNCTIONS}:{number}: there is no function {name}"
        elif name in linked:
            yield f"{KEPT_FUNCTIONS}:{number}: {name} is used; remove the entry"


def check():
    run(*CONFIGURE)
    run("cmake", "--build", str(BUILD), "--parallel", str(os.cpu_count()))
    # Not a search for files: the objects of renamed sources stay in the folder.
    entries = json.loads((BUILD / "compile_commands.json").read_text())
    objects = {
        Path(entry["file"]).relative_to(ROOT): read_symbols(BUILD / entry["output"])
        for entry in entries
    }
    linked = {name for file in BUILD.glob("lib/*.so") for _, name in read_symbols(file)}
    of_module = next(entry["command"] for entry in entries if "/src/module/" in entry["file"])
    found = find_functions(objects, inline_functions(of_module))
    yield from order_findings(objects)
    yield from unused_findings(found, linked, read_kept())


def main():
    try:
        findings = list(check())
    except subprocess.CalledProcessError as error:
        findings = [error.output, f"does not build: {' '.join(error.cmd)}"]
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
