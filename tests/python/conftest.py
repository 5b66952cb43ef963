"""Settings for all tests: profiles of hypothesis, options, and a frozen heap."""

import gc
import os

import pytest
from hypothesis import HealthCheck, settings

# The profile "ci" has the same examples in every run. No deadline: the sanitizers are slow.
settings.register_profile(
    "ci",
    derandomize=True,
    deadline=None,
    database=None,
    print_blob=True,
    suppress_health_check=[HealthCheck.too_slow],
)
settings.register_profile(
    "search", settings.get_profile("ci"), derandomize=False, max_examples=1000
)
# Fewer examples, for the sanitizers and the interpreters between the oldest and the newest.
settings.register_profile("brief", settings.get_profile("ci"), max_examples=40)
settings.load_profile(os.environ.get("HYPOTHESIS_PROFILE", "ci"))


@pytest.fixture(autouse=True, scope="module")
def frozen_heap():
    """Collections skip the objects of the tests and of their reports, which are many."""
    gc.collect()
    gc.freeze()


def pytest_addoption(parser):
    group = parser.getgroup("random programs")
    group.addoption(
        "--program-steps", type=int, default=8000, help="total steps of the random programs"
    )
    group.addoption("--program-seed", type=int, default=0, help="seed of the random programs")
    group.addoption("--program-log", help="file that gets each line before it runs")
    is_brief = os.environ.get("HYPOTHESIS_PROFILE") == "brief"
    parser.getgroup("random elements").addoption(
        "--element-cases",
        type=int,
        default=1000 if is_brief else 7000,
        help="random cases of test_ways_of_elements.py, beside those of hypothesis",
    )
