"""Tables of rows whose first entry is the row's name."""

from __future__ import annotations

from typing import Any

import pytest


def rows(names: str, table: list[tuple]) -> Any:
    """Parametrize a test by the entries behind the first, which becomes the row's id."""
    single = "," not in names
    values = [row[1] if single else row[1:] for row in table]
    return pytest.mark.parametrize(names, values, ids=[row[0] for row in table])
