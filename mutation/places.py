"""Finds the places in a C++ source that a mutant can change, in the syntax tree of tree-sitter."""

import re
from collections import defaultdict
from dataclasses import dataclass, field

import tree_sitter_cpp
from tree_sitter import Language, Parser, Query, QueryCursor

LANGUAGE = Language(tree_sitter_cpp.language())
QUERY = """
; Code that runs: bodies, initialisers of members, and values of variables. All other code declares.
[(compound_statement) (field_initializer_list)] @runs
(init_declarator value: (_) @runs)
(field_declaration default_value: (_) @runs)
(static_assert_declaration) @never
[(preproc_if condition: (_) @never) (preproc_elif condition: (_) @never)]

((if_statement condition: (_ value: (expression) @if)) @statement
  (#not-match? @statement "^if constexpr"))
(while_statement condition: (_ value: (expression) @loop))
(do_statement condition: (_ (expression) @loop))
(binary_expression operator: _ @operator)
(fold_expression operator: _ @operator)
(assignment_expression operator: _ @operator)
(update_expression . operator: _ @operator) ; not behind the operand
(unary_expression operator: "!" @operator)
((return_statement (_) @returned) (#any-of? @returned "true" "false" "-1" "0"))
(number_literal) @number
(string_literal) @message

(comment) @comment
"""
PARSER = Parser(LANGUAGE)
CURSOR = QueryCursor(Query(LANGUAGE, QUERY))
# The names of places in QUERY. If several fit a node, it gets the last one.
KINDS = ("number", "message", "operator", "returned", "loop", "if")
OPERATORS = {
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
    "++": ("--",),
    "--": ("++",),
    "!": ("",),
}
RETURNED = {"true": "false", "false": "true", "-1": "0", "0": "-1"}
INTEGER = re.compile(r"-?(\d+)[uUlL]*")
LETTER = re.compile(r"(?<!\\)[A-Za-z]")
# Between `class` and a name it would make tree-sitter take the class for a function.
EXPORT_MACRO = "VELMARDATA_EXPORT"


@dataclass(frozen=True)
class Change:
    """One edit of a file's text."""

    file: str
    text: str = field(repr=False)
    start: int
    end: int
    new: str

    @property
    def old(self):
        return self.text[self.start : self.end]

    def apply(self):
        return self.text[: self.start] + self.new + self.text[self.end :]

    def describe(self):
        """The number of the first changed line; the changed lines before and after."""
        first = self.text.rfind("\n", 0, self.start) + 1
        last = self.text.find("\n", self.end)
        after = self.text[first : self.start] + self.new + self.text[self.end : last]
        number = self.text.count("\n", 0, first) + 1
        lines = [f"{self.file}:{number}"]
        lines += [f"    - {line.strip()}" for line in self.text[first:last].splitlines()]
        lines += [f"    + {line.strip()}" for line in after.splitlines()]
        return "\n".join(lines)


def captures(text):
    """Dictionary from each name in QUERY to the nodes that it captures, in any order."""
    # Sources are ASCII, so positions in the tree are positions in the text.
    code = text.replace(EXPORT_MACRO, " " * len(EXPORT_MACRO)).encode("ascii")
    return defaultdict(list, CURSOR.captures(PARSER.parse(code).root_node))


def edits(node, kind):
    """Start, end and new text of each change of a node."""
    code = node.text.decode()
    start, end = node.byte_range
    news = ()
    if kind == "number" and (match := INTEGER.fullmatch(code)):
        start, end = start + match.start(1), start + match.end(1)
        number = int(match[1])
        news = [str(new) for new in (number + 1, number - 1) if new >= 0]
    elif kind == "message" and (letters := list(LETTER.finditer(code))):
        letter = letters[len(letters) // 2]
        start, end = start + letter.start(), start + letter.end()
        news = ["x" if letter[0] != "x" else "y"]
    elif kind == "operator":
        news = OPERATORS.get(code, ())
    elif kind == "returned":
        news = [RETURNED[code]]
    elif kind == "loop":
        news = ["false"]
    elif kind == "if":
        news = ["false", "true"]
    return [(start, end, new) for new in news]


def is_in(node, others):
    return any(other.start_byte <= node.start_byte < other.end_byte for other in others)


def places(file, text):
    """For each place, in the order of the text, the list of possible changes."""
    found = captures(text)
    kinds = {node: kind for kind in KINDS for node in found[kind]}
    changes = [
        [Change(file, text, *edit) for edit in edits(node, kind)]
        for node, kind in sorted(kinds.items(), key=lambda item: item[0].byte_range)
        if is_in(node, found["runs"]) and not is_in(node, found["never"])
    ]
    return [place for place in changes if place]
