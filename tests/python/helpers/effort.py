"""How much a run tries: all, or, with the profile "brief", less of what repeats itself."""

import os

IS_BRIEF = os.environ.get("HYPOTHESIS_PROFILE") == "brief"


def some_of(cases, step):
    """The cases, of a sequence; in a brief run the first and every step-th after it."""
    return cases[::step] if IS_BRIEF else cases
