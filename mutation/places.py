"""Finds the places in a C++ source that a mutant can change, in the syntax tree of tree-sitter."""

import re
from dataclasses import dataclass

import tree_sitter_cpp
from tree_sitter import Language, Parser

PARSER = Parser(Language(tree_sitter_cpp.language()))

TURNED = {
    "<": ("<=", ">="),
    "<=": ("<", ">"),
    ">": (">=", "<="),
    ">=": (">", "<"),
    "==": ("!=",),
    "!=": ("==",),
    "&&": ("||",),
    "||": ("&&",),
    "+": ("-",),
    "-": ("+",),
    "*": ("/",),
    "/": ("*",),
    "%": ("/",),
    "+=": ("-=",),
    "-=": ("+=",),
}
STEPS = {"++": ("--",), "--": ("++",)}
NEGATION = {"!": ("",)}
OTHER_RETURN = {"true": "false", "false": "true", "-1": "0", "0": "-1"}
OPERATORS = {
    "binary_expression": TURNED,
    "fold_expression": TURNED,
    "assignment_expression": TURNED,
    "update_expression": STEPS,
    "unary_expression": NEGATION,
}
INTEGER = re.compile(r"-?(\d+)[uUlL]*")
LETTER = re.compile(r"(?<!\\)[A-Za-z]")

# Code that runs: bodies, initialisers of members, and values of variables. All other code declares.
BODIES = {"compound_statement", "field_initializer_list"}
VALUES = {("init_declarator", "value"), ("field_declaration", "default_value")}
NOT_AT_RUN_TIME = {"comment", "static_assert_declaration", "char_literal", "raw_string_literal"}
# Between `class` and a name it would make tree-sitter take the class for a function.
EXPORT_MACRO = "VELMARDATA_EXPORT"
CONDITION_OF_PREPROCESSOR = {("preproc_if", "condition"), ("preproc_elif", "condition")}


@dataclass(frozen=True)
class Change:
    """One edit of a file's text."""

    file: str
    start: int
    end: int
    new: str

    def old(self, text):
        return text[self.start : self.end]

    def apply(self, text):
        return text[: self.start] + self.new + text[self.end :]

    def lines(self, text):
        """The number of the first changed line; the changed lines before and after."""
        first = text.rfind("\n", 0, self.start) + 1
        last = text.find("\n", self.end)
        before = text[first:last]
        after = text[first : self.start] + self.new + text[self.end : last]
        return text.count("\n", 0, first) + 1, before, after


def parse(text):
    """The root of the syntax tree. Sources are ASCII, so positions in it are positions in text."""
    text = text.replace(EXPORT_MACRO, " " * len(EXPORT_MACRO))
    return PARSER.parse(text.encode("ascii")).root_node


def word(node):
    return node.text.decode("ascii")


def condition_edits(node):
    """Conditions become true or false, except those of `if constexpr`."""
    condition = node.child_by_field_name("condition")
    if any(child.type == "constexpr" for child in node.children):
        return
    value = condition.child_by_field_name("value") or condition.named_child(0)
    # A name that the condition declares is used later.
    if value.type != "declaration" and not re.search(r"[^=!<>]=[^=]", word(value)):
        news = ("false", "true") if node.type == "if_statement" else ("false",)
        yield [(value.start_byte, value.end_byte, new) for new in news]


def operator_edits(node):
    operator = node.child_by_field_name("operator")
    is_postfix = node.type == "update_expression" and node.children[0] != operator
    news = () if is_postfix else OPERATORS[node.type].get(word(operator), ())
    if news:
        yield [(operator.start_byte, operator.end_byte, new) for new in news]


def integer_edits(node):
    match = INTEGER.fullmatch(word(node))
    if match:
        start, end = (node.start_byte + offset for offset in match.span(1))
        number = int(match[1])
        yield [(start, end, str(new)) for new in (number + 1, number - 1) if new >= 0]


def message_edits(node):
    """Replaces the letter in the middle of a string literal."""
    letters = list(LETTER.finditer(word(node)))
    if letters:
        letter = letters[len(letters) // 2]
        start = node.start_byte + letter.start()
        yield [(start, start + 1, "x" if letter[0] != "x" else "y")]


def edits(node, runs=False):
    """For each place in the node, a list of edits: start, end and new text."""
    if node.type in NOT_AT_RUN_TIME:
        return
    runs = runs or node.type in BODIES
    if runs:
        if node.type == "return_statement" and word(node)[7:-1] in OTHER_RETURN:
            value = node.named_child(0)
            yield [(value.start_byte, value.end_byte, OTHER_RETURN[word(value)])]
            return
        if node.type in ("if_statement", "while_statement", "do_statement"):
            yield from condition_edits(node)
        elif node.type in OPERATORS:
            yield from operator_edits(node)
        elif node.type == "number_literal":
            yield from integer_edits(node)
        elif node.type == "string_literal":
            yield from message_edits(node)
    for index, child in enumerate(node.children):
        role = (node.type, node.field_name_for_child(index))
        if role not in CONDITION_OF_PREPROCESSOR:
            yield from edits(child, runs or role in VALUES)


def places(file, text):
    """For each place, in the order of the text, the list of possible changes."""
    found = sorted(edits(parse(text)), key=lambda place: place[0][:2])
    return [[Change(file, *edit) for edit in place] for place in found]
