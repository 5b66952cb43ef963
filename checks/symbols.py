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
from pathlib import Path

from sources import ROOMS, is_above, room_of

ROOT = Path(__file__).resolve().parents[1]
BUILD = ROOT / "build/lint-objects"
KEPT_FUNCTIONS = "checks/kept_functions.txt"
PUBLIC_HEADERS = "velmardata/include/"

# An always-inlined function is never called and would look unused: replace that attribute by one
# that changes nothing. With -g1, nm finds the files of functions.
FLAGS = "-O0 -g1 -DNDEBUG -ffunction-sections -fdata-sections -Dalways_inline=unused"
CONFIGURE = [
    *("cmake", "-G", "Ninja", "-S", str(ROOT), "-B", str(BUILD), "--log-level=ERROR"),
    *("-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_BUILD_TYPE=Debug"),
    "-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON",  # each source has to include what it needs
    f"-DCMAKE_CXX_FLAGS_DEBUG={FLAGS}",
    "-DCMAKE_SHARED_LINKER_FLAGS=-Wl,--gc-sections",
    "-DCMAKE_MODULE_LINKER_FLAGS=-Wl,--gc-sections",
    f"-DPython_EXECUTABLE={sys.executable}",
]
# A line of nm. The file is that of the definition; only functions have one.
SYMBOL = re.compile(r".{16} (\w) (.+?)(?:\t(.+):\d+)?")
# Letters of nm: functions with local, global and weak names.
FUNCTIONS = "tTW"
OPERATOR = re.compile(r"\boperator(?:\(\)|\[\]|<=>|<<?=?|[^\w\s(\[<]+|\b)")


def without_template_arguments(text):
    shorter = re.sub("<[^<>]*>", "", text)
    return text if shorter == text else without_template_arguments(shorter)


def parse_name(readable):
    """The qualified name and the parameters, both without template arguments, and whether it is a
    template. What is inside a function, such as a local class, gets the name of that function.
    """
    text = readable.replace("(anonymous namespace)", "{anonymous}").replace("(auto)", "")
    operator = OPERATOR.search(text)
    text = OPERATOR.sub("\0", text)  # names of operators contain brackets
    name, bracket, parameters = without_template_arguments(text).partition("(")
    is_template = not text.startswith(name + bracket)
    head, is_operator, conversion = name.partition("\0")
    head = head.rpartition(" ")[2]  # drops the type of the result
    if is_operator:
        head += operator[0] + conversion.rstrip()
    return head, parameters.rpartition(")")[0], is_template


def source_name(readable):
    """All instances and overloads of a template have one name; other names keep the parameters."""
    name, _, is_template = parse_name(readable)
    return name.replace("{anonymous}", "(anonymous namespace)") if is_template else readable


def is_special_member(readable):
    """Destructors, and constructors and assignments that the compiler may write or leave out."""
    name, parameters, _ = parse_name(readable)
    scope, _, member = name.rpartition("::")
    if member.startswith("~"):
        return True
    if member not in (scope.rpartition("::")[2], "operator=") or not scope:
        return False
    return re.sub(" const|&", "", parameters) in ("", scope)


def run(*command, cwd=ROOT):
    """What the command prints; CalledProcessError with that if it fails."""
    options = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "text": True}
    return subprocess.run(command, check=True, cwd=cwd, **options).stdout


def read_symbols(file):
    """The set of (letter, name in C++, file) of all symbols but those that other projects define.
    Undefined symbols have the letter U.
    """
    text = run("nm", "--demangle", "--line-numbers", str(file)).replace(f"\t{ROOT}/", "\t")
    symbols = [SYMBOL.fullmatch(line).groups(default="") for line in text.splitlines()]
    return {symbol for symbol in symbols if symbol[0] == "U" or not symbol[2].startswith("/")}


def compile_headers(command):
    """Emits the inline functions in our headers. The command compiles any one source of src."""
    headers = [*(ROOT / "src").rglob("*.hpp"), *(ROOT / "velmardata/source").rglob("*.hpp")]
    source, compiled = BUILD / "all_headers.cpp", BUILD / "all_headers.o"
    # python.hpp has to come first.
    names = ["module/python.hpp", *sorted(map(str, headers))]
    source.write_text("".join(f'#include "{name}"\n' for name in names))
    flags = [*shlex.split(command.partition(" -o ")[0]), "-fkeep-inline-functions"]
    run(*flags, "-o", str(compiled), "-c", str(source), cwd=BUILD)
    return compiled


def order_findings(objects):
    """Each room may use what it defines itself and what lower rooms define."""
    rooms = {source: room_of(source) for source in sorted(objects) if room_of(source)}
    definers = {}
    # From the highest room down: the lowest room that defines a symbol stays.
    for source in sorted(rooms, key=lambda source: ROOMS.index(rooms[source]), reverse=True):
        for letter, name, _ in objects[source]:
            if letter.isupper() and letter != "U":
                definers[name] = rooms[source]
    for source, room in rooms.items():
        for letter, name, _ in sorted(objects[source]):
            if letter == "U" and name in definers and is_above(definers[name], room):
                used = source_name(name)
                yield f"{source}: {room} uses {used}, which {definers[name]} above it defines"


def read_kept():
    """Dictionary from a name to its line number in kept_functions.txt. Entries have a reason."""
    text = (ROOT / KEPT_FUNCTIONS).read_text(encoding="utf-8")
    entries = re.finditer("^function: (.*)\nreason: ", text, re.MULTILINE)
    return {entry[1]: text.count("\n", 0, entry.start()) + 1 for entry in entries}


def unused_findings(objects, linked, kept):
    """`linked` are the names in the libraries, `kept` is from read_kept()."""
    found, used = {}, set()
    for source, symbols in sorted(objects.items()):
        for letter, name, definition in symbols:
            # The compiler makes parts of a lambda by itself, and warns about an unused lambda. It
            # can leave out special members, and clients use the functions of public headers.
            is_for_clients = PUBLIC_HEADERS in definition
            is_made = letter == "W" and (is_special_member(name) or is_for_clients)
            if letter in FUNCTIONS and definition and "{lambda" not in name and not is_made:
                found.setdefault(source_name(name), source)
                if name in linked:
                    used.add(source_name(name))
    for name, source in sorted(found.items()):
        if name not in used and name not in kept:
            yield f"{source}: nothing uses {name}"
    for name, number in kept.items():
        if name not in found:
            yield f"{KEPT_FUNCTIONS}:{number}: there is no function {name}"
        elif name in used:
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
    linked = {name for file in BUILD.glob("lib/*.so") for _, name, _ in read_symbols(file)}
    of_module = next(entry["command"] for entry in entries if "/src/module/" in entry["file"])
    objects[Path("the headers")] = read_symbols(compile_headers(of_module))
    yield from order_findings(objects)
    yield from unused_findings(objects, linked, read_kept())


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
