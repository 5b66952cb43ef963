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

import re
import subprocess
import sys
from collections import defaultdict
from typing import NamedTuple

from objects import ROOT, is_foreign, make_objects, parse_name, source_name
from rooms import ROOMS, is_above, room_of

KEPT_FUNCTIONS = "checks/kept_functions.txt"
PUBLIC_HEADERS = ROOT / "velmardata/include/velmardata"
DATA_NAMESPACES = {"foundation", "velmardata", "standalone", "velmar", "data", "impl", "detail"}


class Function(NamedTuple):
    name: str  # all instances of a template have one name
    scope: str  # the source of a function that is local to it; empty for others


class Use(NamedTuple):
    is_linked: bool
    place: str  # the first source that has it


def order_findings(objects):
    """Each room may use what it defines itself and what lower rooms define."""
    definers, users = defaultdict(set), defaultdict(set)
    for (source, _), symbols in objects.symbols.items():
        room = room_of(source)
        for symbol in symbols:
            if room is None or symbol.is_local or is_foreign(objects.readable[symbol.name]):
                continue
            if symbol.is_undefined:
                users[symbol.name].add((source, room))
            else:
                definers[symbol.name].add(room)
    findings = set()
    for name, places in users.items():
        for source, room in places:
            if definers[name] and all(is_above(definer, room) for definer in definers[name]):
                used = source_name(objects.readable[name])
                definer = min(definers[name], key=ROOMS.index)
                findings.add(f"{source}: {room} uses {used}, which {definer} above it defines")
    return sorted(findings)


def is_special_member(name):
    """Destructors, and constructors and assignments that the compiler may write or leave out."""
    scope, _, member = name.qualified.rpartition("::")
    if member.startswith("~"):
        return True
    if member not in (scope.rpartition("::")[2], "operator=") or not scope:
        return False
    return re.sub(r" const|&", "", name.parameters) in ("", scope)


def is_for_clients(name, public_words):
    """Whether a function with its body in a header is in a public header of the data library."""
    parts = name.qualified.split("::")
    own = [part for part in parts if part not in DATA_NAMESPACES]
    return parts[0] in DATA_NAMESPACES and bool(own) and own[0] in public_words


def find_functions(objects):
    """Dictionary from each Function of the project to its Use."""
    public_words = set(re.findall(r"\w+", "".join(f.read_text() for f in PUBLIC_HEADERS.iterdir())))
    found = {}

    def add(symbol, place, is_linked):
        readable = objects.readable[symbol.name]
        name = parse_name(readable)
        # The compiler makes parts of a lambda by itself, and warns about an unused lambda.
        if "{lambda" in readable or symbol.name in objects.foreign or is_foreign(readable):
            return
        if symbol.letter == "W" and (is_special_member(name) or is_for_clients(name, public_words)):
            return
        # A template can have instances that are local because of an argument.
        is_local = symbol.is_local and ("{anonymous}" in name.qualified or not name.is_template)
        function = Function(source_name(readable), place if is_local else "")
        known = found.get(function, Use(False, place))
        found[function] = Use(known.is_linked or is_linked, min(known.place, place))

    for (source, file), symbols in objects.symbols.items():
        for symbol in symbols:
            if symbol.is_function and symbol.is_local:
                add(symbol, str(source), (file, symbol.section) not in objects.removed)
            elif symbol.is_function:
                add(symbol, str(source), symbol.name in objects.linked)
    for symbol in objects.inline:
        add(symbol, "the headers", symbol.name in objects.linked)
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


def unused_findings(found, kept):
    """`found` is from find_functions(), `kept` from read_kept()."""
    states = defaultdict(set)
    for function, use in sorted(found.items()):
        states[function.name].add(use.is_linked)
        if not use.is_linked and function.name not in kept:
            yield f"{use.place}: nothing uses {function.name}"
    for name, number in kept.items():
        if not states[name]:
            yield f"{KEPT_FUNCTIONS}:{number}: there is no function {name}"
        elif states[name] == {True}:
            yield f"{KEPT_FUNCTIONS}:{number}: {name} is used; remove the entry"


def main():
    try:
        objects = make_objects()
    except subprocess.CalledProcessError as error:
        print(error.output)
        print(f"does not build: {' '.join(error.cmd)}")
        return 1
    findings = order_findings(objects)
    findings += unused_findings(find_functions(objects), read_kept())
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
