"""Runs scripts in a child interpreter, for code that could end the interpreter."""

from __future__ import annotations

import json
import subprocess
import sys
import textwrap
from typing import Any, NamedTuple


class Outcome(NamedTuple):
    """The value passed to report(), and the lines printed on standard error."""

    reported: Any
    error_lines: list[str]


PROLOGUE = """
import json

def report(value):
    print("REPORT " + json.dumps(value), flush=True)
"""


def run_script(script: str) -> Outcome:
    """Run the script. It must end without an error and call report() exactly once."""
    done = subprocess.run(
        [sys.executable, "-c", PROLOGUE + textwrap.dedent(script)],
        capture_output=True,
        text=True,
        timeout=120,
        check=False,
    )
    everything = f"{done.stdout}\n{done.stderr}"
    assert done.returncode >= 0, f"the interpreter died of signal {-done.returncode}: {everything}"
    assert done.returncode == 0, everything
    reports = [text for text in done.stdout.splitlines() if text.startswith("REPORT ")]
    assert len(reports) == 1, everything
    return Outcome(json.loads(reports[0].removeprefix("REPORT ")), done.stderr.splitlines())
