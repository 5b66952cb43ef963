"""Compiled objects for the checks of symbols.py: the build, its symbols, and their names."""

import json
import os
import re
import shlex
import subprocess
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parents[1]
BUILD = ROOT / "build/lint-objects"

# An always-inlined function is never called and would look unused: replace that attribute by one
# that changes nothing.
FLAGS = "-O0 -DNDEBUG -ffunction-sections -fdata-sections -Dalways_inline=unused"
LINK_FLAGS = "-Wl,--gc-sections,--print-gc-sections"

REMOVED = re.compile(r"removing unused section '(\.text\.[^'\[]+)[^']*' in file '([^']+)'")
SYSTEM_INCLUDE = re.compile(r"^\s*#\s*include\s+(<[^>]+>)", re.MULTILINE)
FOREIGN_SCOPES = {"std", "boost", "__gnu_cxx", "__cxxabiv1"}
OPERATOR = re.compile(r"\boperator(?:\(\)|\[\]|[^\w\s(\[]+|\b)")


class Symbol(NamedTuple):
    name: str  # as the linker writes it
    letter: str  # the class that nm gives: T is a function, t a local one, W a weak one
    section: str

    @property
    def is_undefined(self):
        return self.section == "*UND*"

    @property
    def is_local(self):
        return self.letter.islower() and self.letter not in "iuvw"

    @property
    def is_function(self):
        return self.letter in "tTW" and self.section.startswith(".text")


class Objects(NamedTuple):
    symbols: dict  # (source below the root, object) -> list of Symbol
    removed: set  # (object, section) of what the linker removed
    linked: set  # the names in the linked libraries
    inline: list  # Symbols of all inline functions in the headers of the project
    foreign: set  # the names of inline functions in other headers
    readable: dict  # name -> name in C++


def run(command, **options):
    """What the command prints; CalledProcessError with that if it fails."""
    environment = {**os.environ, "LC_ALL": "C"}
    return subprocess.run(
        command, text=True, check=True, stdout=subprocess.PIPE, env=environment, **options
    ).stdout


def read_symbols(file):
    lines = run(["nm", "--format=sysv", str(file)]).splitlines()
    rows = [[column.strip() for column in line.split("|")] for line in lines]
    return [Symbol(row[0], row[2], row[6]) for row in rows if len(row) == 7 and row[0] != "Name"]


def build_all():
    """Builds the libraries and returns what the linker printed about removed sections."""
    for library in BUILD.glob("lib/*"):
        library.unlink()  # the linker reports only when it runs
    run(
        [
            *("cmake", "-G", "Ninja", "-S", str(ROOT), "-B", str(BUILD), "--log-level=ERROR"),
            *("-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_BUILD_TYPE=Debug"),
            "-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON",  # each source has to include what it needs
            f"-DCMAKE_CXX_FLAGS_DEBUG={FLAGS}",
            f"-DCMAKE_SHARED_LINKER_FLAGS={LINK_FLAGS}",
            f"-DCMAKE_MODULE_LINKER_FLAGS={LINK_FLAGS}",
            f"-DPython_EXECUTABLE={ROOT / '.venv/bin/python'}",
        ],
        stderr=subprocess.STDOUT,
    )
    jobs = str(os.cpu_count())
    log = run(["cmake", "--build", str(BUILD), "--parallel", jobs], stderr=subprocess.STDOUT)
    return {(BUILD / file, section) for section, file in REMOVED.findall(log)}


def start_compiling(name, includes, command):
    """Compiles a source made of includes, with all of their inline functions emitted."""
    source = BUILD / f"{name}.cpp"
    source.write_text("".join(f"#include {include}\n" for include in includes))
    words = shlex.split(command) + ["-fkeep-inline-functions"]
    words[words.index("-c") + 1] = str(source)
    words[words.index("-o") + 1] = str(source.with_suffix(".o"))
    return subprocess.Popen(
        words, cwd=BUILD, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT
    )


def inline_functions(command):
    """Symbols of the inline functions in headers of the project, and names of those in others.

    The command compiles any one source of src.
    """
    headers = sorted((ROOT / "src").rglob("*.hpp"))
    headers += sorted((ROOT / "velmardata/source").rglob("*.hpp"))
    foreign = {name for header in headers for name in SYSTEM_INCLUDE.findall(header.read_text())}
    python = '"module/python.hpp"'  # has to come first
    jobs = {
        "foreign_headers": [python, *sorted(foreign - {"<Python.h>"})],
        "all_headers": [python, *(f'"{header}"' for header in headers)],
    }
    running = {name: start_compiling(name, jobs[name], command) for name in jobs}
    found = {}
    for name, process in running.items():
        output, _ = process.communicate()
        if process.returncode:
            raise subprocess.CalledProcessError(process.returncode, process.args, output)
        found[name] = [symbol for symbol in read_symbols(BUILD / f"{name}.o") if symbol.is_function]
    foreign_names = {symbol.name for symbol in found["foreign_headers"]}
    return [s for s in found["all_headers"] if s.name not in foreign_names], foreign_names


def make_objects():
    """Builds, and reads all symbols. CalledProcessError if something does not compile."""
    removed = build_all()
    # Not a search for files: the objects of renamed sources stay in the folder.
    commands = json.loads((BUILD / "compile_commands.json").read_text())
    symbols = {}
    for entry in commands:
        source, file = Path(entry["file"]).relative_to(ROOT), BUILD / entry["output"]
        symbols[source, file] = read_symbols(file)
    if not {file for file, _ in removed} & {file for _, file in symbols}:
        raise RuntimeError("the linker reports no removed sections; these checks need GNU ld")
    linked = {symbol.name for file in BUILD.glob("lib/*.so") for symbol in read_symbols(file)}
    of_module = next(e["command"] for e in commands if "/src/module/" in e["file"])
    inline, foreign = inline_functions(of_module)
    names = {symbol.name for found in [*symbols.values(), inline] for symbol in found}
    return Objects(symbols, removed, linked, inline, foreign, demangle(names))


def demangle(names):
    names = sorted(names)
    return dict(zip(names, run(["c++filt"], input="\n".join(names)).splitlines(), strict=True))


class Name(NamedTuple):
    qualified: str  # without template arguments
    parameters: str  # the same
    is_template: bool


def without_template_arguments(text):
    depth, rest = 0, []
    for letter in text:
        if letter == "<":
            depth += 1
        elif letter == ">":
            depth -= 1
        elif depth == 0:
            rest.append(letter)
    return "".join(rest)


def parse_name(readable):
    """What is inside a function, such as a local class, gets the name of that function."""
    text = readable.replace("(anonymous namespace)", "{anonymous}").replace("(auto)", "")
    operator = OPERATOR.search(text)
    text = OPERATOR.sub("\0", text)  # names of operators contain brackets
    plain = without_template_arguments(text)
    name, bracket, parameters = plain.partition("(")
    is_template = not text.startswith(name + bracket)
    head, is_operator, conversion = name.partition("\0")
    head = head.rpartition(" ")[2]  # drops the type of the result
    if is_operator:
        head += operator.group() + conversion.rstrip()
    return Name(head, parameters.rpartition(")")[0], is_template)


def source_name(readable):
    """All instances and overloads of a template have one name; other names keep the parameters."""
    name = parse_name(readable)
    if not name.is_template:
        return readable
    return name.qualified.replace("{anonymous}", "(anonymous namespace)")


def is_foreign(readable):
    return parse_name(readable).qualified.partition("::")[0] in FOREIGN_SCOPES
