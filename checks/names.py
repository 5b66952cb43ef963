"""Names of C++ as nm prints them with --demangle."""

import re
from typing import NamedTuple

OPERATOR = re.compile(r"\boperator(?:\(\)|\[\]|[^\w\s(\[]+|\b)")
# Other libraries: their namespaces, reserved names, CPython, placement new, and math.h.
FOREIGN = re.compile(
    r"(?:std|boost)::|__|_?Py(?!Init)\w*_|operator (?:new|delete)|is(?:canonical|signaling)\b"
)


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
    is_of_std = readable.startswith("decltype") and " std::" in readable
    return is_of_std or bool(FOREIGN.match(parse_name(readable).qualified))


def is_special_member(readable):
    """Destructors, and constructors and assignments that the compiler may write or leave out."""
    name = parse_name(readable)
    scope, _, member = name.qualified.rpartition("::")
    if member.startswith("~"):
        return True
    if member not in (scope.rpartition("::")[2], "operator=") or not scope:
        return False
    return re.sub(r" const|&", "", name.parameters) in ("", scope)
