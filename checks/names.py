"""Names of C++ as nm prints them with --demangle."""

import re

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
