"""Every operation of helpers/operations.py: equal results each time, and no memory left behind."""

from __future__ import annotations

import pytest
from helpers.cases import each_form
from helpers.memory_blocks import blocks_per_call, counts_blocks
from helpers.operations import DICTIONARY, RECORD, SMALL, of_form, seen

BLOCKS = {"": 0, RECORD: 1, DICTIONARY: 2}  # that are required to stay


@each_form
def test_the_result_is_the_same_each_time(row, is_complex):
    for operation in of_form(row, is_complex, SMALL):
        assert seen(operation.act()) == seen(operation.act()), operation.name


@counts_blocks
@each_form
def test_only_the_required_memory_is_left_behind(row, is_complex):
    for operation in of_form(row, is_complex, SMALL):
        kept = blocks_per_call(operation.act)
        assert kept == pytest.approx(BLOCKS[operation.kept], abs=0.3), operation.name
