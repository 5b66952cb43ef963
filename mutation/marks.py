"""Reads the comments in the sources that exempt changes which no test can detect.

A mark is "REASON, so no test detects a change." or "REASON, so no test detects a change of WHAT."
WHAT is a list of the following; without it, all changes are exempt:

- `code`: changes within this code;
- `code` to `other`: the change that turns this code into the other;
- the condition, the condition to `true`: its replacement as a whole.

A mark after code is for the changes of its line. Any other mark is for the statement, expression,
declaration or function that follows.
"""

import re

from places import captures

PHRASE = re.compile("no test detects a change", re.IGNORECASE)
MARK = re.compile(r"(?<=\w, so )no test detects a change(?: of ((?:[^`.]|`[^`]*`)+))?\.")
WHAT = re.compile(r"(the condition|`[^`]+`)(?: to `([^`]+)`)?")
EVERYTHING = ("", "")


def comment_blocks(text):
    """Lists of comments that continue each other: in lines that follow, from the same column."""
    blocks = []
    for comment in sorted(captures(text)["comment"], key=lambda node: node.byte_range):
        row, column = comment.start_point
        before = comment.prev_sibling
        if before and before.type == "comment" and before.start_point == (row - 1, column):
            blocks[-1].append(comment)
        else:
            blocks.append([comment])
    return blocks


def scope_of(block, text):
    """The positions that a mark in this block is for."""
    start = block[0].start_byte
    line_start = text.rfind("\n", 0, start) + 1
    if text[line_start:start].strip():
        return range(line_start, start)
    marked = block[-1].next_named_sibling
    return range(*marked.byte_range) if marked else range(0)


def read_marks(text):
    """Line number, scope and list of (what, new code) of each mark."""
    for block in comment_blocks(text):
        words = " ".join(comment.text.decode().lstrip("/ ") for comment in block)
        for phrase in PHRASE.finditer(words):
            match = MARK.match(words, phrase.start())
            changes = []
            if match:
                changes = WHAT.findall(match[1]) if match[1] else [EVERYTHING]
            yield block[0].start_point.row + 1, scope_of(block, text), changes


def fits(what, new, change):
    if not what:
        return True
    if what == "the condition":
        values = ("true", "false")
        is_condition = change.new in values and change.old not in values
        return is_condition and new in ("", change.new)
    code = what.strip("`")
    for start in range(max(0, change.end - len(code)), change.start + 1):
        after = code[: change.start - start] + change.new + code[change.end - start :]
        if change.text.startswith(code, start) and new in ("", after):
            return True
    return False


def find_exempt(file, text, changes):
    """The set of changes that marks exempt, and a message for each mark that exempts nothing."""
    exempt, messages = set(), []
    for line, scope, wanted in read_marks(text):
        if not wanted:
            messages.append(f"{file}:{line}: mutation/marks.py has the form of this comment")
        for what, new in wanted:
            found = {c for c in changes if c.start in scope and fits(what, new, c)}
            exempt |= found
            if not found:
                shown = f" of {what}" + (f" to `{new}`" if new else "") if what else ""
                messages.append(f"{file}:{line}: no change{shown} is possible here")
    return exempt, messages
