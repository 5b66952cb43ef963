"""Runs both type checkers on the examples of docs/types.md: they must refuse what it says."""

import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

PAGE = Path(__file__).resolve().parents[2] / "docs/types.md"
REVEALED = re.compile(r"reveal_type\(.*\)\s+# (.+)$")


def examples():
    """The blocks of the page that are not interactive sessions."""
    blocks = re.findall(r"^```python\n(.*?)^```$", PAGE.read_text(), re.MULTILINE | re.DOTALL)
    return [block for block in blocks if ">>>" not in block]


def expected(text):
    """The lines that must be refused and the types that must be revealed, as the page says."""
    lines = text.splitlines()
    refused = {number for number, line in enumerate(lines, 1) if "# refused: " in line}
    found = ((number, REVEALED.match(line)) for number, line in enumerate(lines, 1))
    return refused, {number: match[1] for number, match in found if match}


def of_mypy(file):
    command = ["mypy", "--strict", "--no-error-summary", "--hide-error-context", file]
    output = subprocess.run(command, capture_output=True, text=True).stdout
    refused, revealed = set(), {}
    for line in output.splitlines():
        match = re.match(r".*?:(\d+): (?:error: |note: Revealed type is \"(.*)\")", line)
        if match and match[2]:
            revealed[int(match[1])] = match[2]
        elif match:
            refused.add(int(match[1]))
    return refused, revealed


def of_pyright(file):
    command = ["pyright", "--pythonpath", sys.executable, "--outputjson", file]
    output = subprocess.run(command, capture_output=True, text=True).stdout
    refused, revealed = set(), {}
    for found in json.loads(output)["generalDiagnostics"]:
        number = found["range"]["start"]["line"] + 1
        if found["severity"] == "error":
            refused.add(number)
        elif match := re.match(r'Type of ".*" is "(.*)"', found["message"]):
            # This checker prints names without their module.
            revealed[number] = re.sub(r"\b(double|int8)\b", r"velmar.\1", match[1])
    return refused, revealed


def main():
    refused, revealed, good = 0, 0, True
    with tempfile.TemporaryDirectory() as folder:
        for text in examples():
            file = Path(folder, "example.py")
            file.write_text(text)
            wanted = expected(text)
            for checker in (of_mypy, of_pyright):
                seen = checker(file)
                if seen != wanted:
                    good = False
                    print(f"{checker.__name__}: {seen}\nthe page: {wanted}\n{text}")
            refused, revealed = refused + len(wanted[0]), revealed + len(wanted[1])
    print(f"{refused} lines of {PAGE.name} are refused, {revealed} types are as it says")
    return 0 if good and refused and revealed else 1


if __name__ == "__main__":
    sys.exit(main())
