"""Finds the places in a C++ source that a mutant can change.

This is not a parser. It relies on the format that lint enforces: binary operators have a space on
both sides; angle brackets of templates, pointers and references do not.
"""

import re
from dataclasses import dataclass

COMMENT_OR_TEXT = re.compile(
    r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<![\w])\'(?:\\.|[^\'\\\n])+\''
    r"|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*",
    re.DOTALL | re.MULTILINE,
)
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
OPERATOR = re.compile(r"(?<=\s)(?:[<>=!]=|&&|\|\||[+-]=|[<>+\-*/%])(?=\s)")
STEP = re.compile(r"(?<!operator)(?:\+\+|--)(?=[\w*])")
NEGATION = re.compile(r"(?<=[\s(])!(?=[\w:(*])")
INTEGER = re.compile(r"(?<![\w.])\d+(?=[uUlL]*(?![\w.]))")
RETURN = re.compile(r"(?<=\breturn )(?:true|false|-1|0|nullptr)(?=;)")
OTHER_RETURN = {"true": "false", "false": "true", "-1": "0", "0": "-1"}
BRANCH = re.compile(r"\b(if|while) \(")
# Declarations in conditions, and conditions of if constexpr, are not replaced.
NO_PLAIN_CONDITION = re.compile(r"[^=!<>]=[^=]")
TYPE_HEAD = re.compile(r"^\s*(?:class|struct|union)\b(?![^{]*\))")
NO_BODY_HEAD = re.compile(r"^\s*(?:inline\s+)?(?:namespace|enum|extern)\b")
NO_VALUE_HEAD = re.compile(r"^\s*(?:using|typedef|friend|concept|requires)\b")


@dataclass(frozen=True)
class Change:
    """One edit of a file's text."""

    file: str
    start: int
    end: int
    new: str

    def apply(self, text):
        return text[: self.start] + self.new + text[self.end :]

    def lines(self, text):
        """The number of the first changed line; the changed lines before and after."""
        first = text.rfind("\n", 0, self.start) + 1
        last = text.find("\n", self.end)
        before = text[first:last]
        after = text[first : self.start] + self.new + text[self.end : last]
        return text.count("\n", 0, first) + 1, before, after


def blanked(text):
    """The text with comments, preprocessor lines and contents of literals as spaces."""

    def blank(match):
        found = match.group()
        if found.startswith('"'):
            return '"' + " " * (len(found) - 2) + '"'
        return "".join(c if c == "\n" else " " for c in found)

    code = COMMENT_OR_TEXT.sub(blank, text)
    for match in reversed(list(re.finditer(r"\bstatic_assert\s*\(", code))):
        end = closing(code, match.end() - 1)
        code = code[: match.start()] + re.sub(r"[^\n]", " ", code[match.start() : end]) + code[end:]
    return code


def closing(code, opening):
    """The position after the bracket that closes the one at `opening`."""
    depth = 0
    for match in re.compile(r"[()\[\]{}]").finditer(code, opening):
        depth += 1 if match.group() in "([{" else -1
        if depth == 0:
            return match.end()
    return len(code)


def without_template(head):
    """A declaration without its template parameter list."""
    match = re.match(r"\s*template\s*<", head)
    while match:
        depth, place = 1, match.end()
        while depth and place < len(head):
            depth += {"<": 1, ">": -1}.get(head[place], 0)
            place += 1
        head = head[place:]
        match = re.match(r"\s*template\s*<", head)
    return head


def bodies(code):
    """Spans of code that runs: function bodies, initialisers of members and of variables."""
    place = start = 0
    while place < len(code):
        letter = code[place]
        if letter == "(":
            place = closing(code, place)
            continue
        if letter == "{":
            raw = code[start:place]
            head = without_template(raw)
            if TYPE_HEAD.match(head) or (NO_BODY_HEAD.match(head) and "(" not in head):
                if re.match(r"\s*enum\b", head):
                    place = closing(code, place) - 1
                start = place = place + 1
                continue
            end = closing(code, place)
            yield from member_initialisers(code, start, place)
            yield place, end
            # The text after the braces can belong to the same statement: `int x{2}, y = 3;`.
            start = place = end
            continue
        if letter == ";":
            yield from initial_value(code, start, place)
        if letter in ";}":
            start = place + 1
        place += 1


def member_initialisers(code, start, end):
    match = re.compile(r"\)(?:\s*noexcept)?\s*:(?!:)").search(code, start, end)
    if match:
        yield match.end(), end


def initial_value(code, start, end):
    head = without_template(code[start:end])
    if NO_VALUE_HEAD.match(head) or "operator" in head:
        return
    match = re.search(r"\s=\s(?!default|delete|0$)", head)
    if match and "(" not in head[: match.start()]:
        yield end - len(head) + match.start(), end


def condition_changes(code, start, end):
    """Conditions become true or false."""
    for match in BRANCH.finditer(code, start, end):
        first, last = match.end(), closing(code, match.end() - 1) - 1
        semicolon = code.find(";", first, last)
        if semicolon >= 0:
            first = semicolon + 2
        condition = code[first:last]
        if NO_PLAIN_CONDITION.search(condition):
            # The declared name is used later, so the condition cannot be replaced.
            continue
        always = [] if match.group(1) == "while" else [(first, last, "true")]
        yield [(first, last, "false"), *always]


def operator_changes(code, start, end):
    for match in OPERATOR.finditer(code, start, end):
        yield [(match.start(), match.end(), new) for new in TURNED[match.group()]]
    for match in STEP.finditer(code, start, end):
        yield [(match.start(), match.end(), "--" if match.group() == "++" else "++")]
    for match in NEGATION.finditer(code, start, end):
        yield [(match.start(), match.end(), "")]


def constant_changes(code, start, end):
    returned = set()
    for match in RETURN.finditer(code, start, end):
        returned.update(range(match.start(), match.end()))
        if match.group() in OTHER_RETURN:
            yield [(match.start(), match.end(), OTHER_RETURN[match.group()])]
    for match in INTEGER.finditer(code, start, end):
        if match.start() not in returned:
            number = int(match.group())
            news = [number + 1] if number == 0 else [number + 1, number - 1]
            yield [(match.start(), match.end(), str(new)) for new in news]


def message_changes(text, code, start, end):
    """Replaces the letter in the middle of each string literal."""
    for match in re.compile(r'"( *)"').finditer(code, start, end):
        content = text[match.start(1) : match.end(1)]
        letters = [at for at in re.finditer(r"(?<!\\)[A-Za-z]", content)]
        if letters:
            at = letters[len(letters) // 2]
            new = "x" if at.group() != "x" else "y"
            place = match.start(1) + at.start()
            yield [(place, place + 1, new)]


def places(file, text):
    """For each place, in the order of the text, the list of possible changes."""
    code = blanked(text)
    found = []
    for start, end in bodies(code):
        found += condition_changes(code, start, end)
        found += operator_changes(code, start, end)
        found += constant_changes(code, start, end)
        found += message_changes(text, code, start, end)
    found.sort(key=lambda edits: edits[0][:2])
    return [[Change(file, *edit) for edit in edits] for edits in found]
