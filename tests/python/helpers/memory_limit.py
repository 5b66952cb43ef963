"""A mark for tests that limit the address space of a process, where such a limit works."""

from __future__ import annotations

import os

import pytest

from helpers.child_interpreter import run_script


def reason_without_limit() -> str:
    """Returns why a limit cannot be used here, or an empty string if it can."""
    if "asan" in os.environ.get("LD_PRELOAD", ""):
        return "the sanitizer needs unlimited address space"
    # An emulator of another machine accepts the limit and ignores it.
    outcome = run_script("""
        import mmap, resource

        resource.setrlimit(resource.RLIMIT_AS, (1 << 30, resource.getrlimit(resource.RLIMIT_AS)[1]))
        try:
            mmap.mmap(-1, 2 << 30).close()
        except OSError:
            report(True)
        else:
            report(False)
    """)
    return "" if outcome.reported else "a limit on the address space has no effect"


_reason = reason_without_limit()
needs_memory_limit = pytest.mark.skipif(bool(_reason), reason=_reason)
