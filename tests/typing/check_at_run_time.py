"""Checks at run time that accepted.py and refused.py are true of the module."""

import array
import ast
import contextlib
import io
import runpy
import sys
import typing
from pathlib import Path

import velmar

FOLDER = Path(__file__).resolve().parent
NUMBERS = {"float": float, "int": int, "bool": bool, "complex": complex}


def fits(value, stated):
    """Whether a value fits an annotation, given as a syntax tree. Any fits every value."""
    if isinstance(stated, ast.BinOp):
        return fits(value, stated.left) or fits(value, stated.right)
    if isinstance(stated, ast.Constant):
        return value is stated.value
    if isinstance(stated, ast.Name):
        return stated.id == "Any" or type(value) is NUMBERS[stated.id]
    name = ast.unparse(stated.value)
    if name == "tuple":
        return type(value) is tuple and all(type(item) is int for item in value)
    if name == "array.array":
        return type(value) is array.array and fits(value[0], stated.slice)
    if name == "velmar.MCPyIter":
        return type(value) is velmar.MCPyIter and fits(next(value), stated.slice)
    cls = getattr(velmar, name.removeprefix("velmar."))
    return type(value) is cls and (len(value) == 0 or fits(value[0], stated.slice))


def run_accepted():
    """Run accepted.py; returns the number of values that have the inferred type."""
    checked = []

    def assert_type(value, stated):
        if isinstance(stated, str):
            good = fits(value, ast.parse(stated, mode="eval").body)
        else:
            good = stated is typing.Any or type(value) is stated
        if not good:
            raise TypeError(f"{value!r} is no {stated}.")
        checked.append(stated)
        return value

    typing.assert_type = assert_type
    runpy.run_path(str(FOLDER / "accepted.py"))
    return len(checked)


def run_refused():
    """Run refused.py line by line; returns the number of refused lines that raise."""
    text = (FOLDER / "refused.py").read_text()
    lines, names, raised = text.splitlines(), {}, 0
    for statement in ast.parse(text).body:
        refused = "# type: ignore" in lines[statement.lineno - 1]
        code = compile(ast.Module([statement], []), "refused.py", "exec")
        try:
            with contextlib.redirect_stderr(io.StringIO()):  # toarray() prints the reason
                exec(code, names)
        except Exception:
            if not refused:
                raise
            raised += 1
        else:
            if refused:
                raise AssertionError(f"refused.py:{statement.lineno} does not raise.")
    return raised


def main():
    accepted, raised = run_accepted(), run_refused()
    print(f"{accepted} values are of the type that is stated, {raised} refused lines raise")
    return 0 if accepted and raised else 1


if __name__ == "__main__":
    sys.exit(main())
