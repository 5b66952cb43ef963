"""What holds for all tests: settings of hypothesis, options, a heap that collections pass over."""

import gc
import os

from hypothesis import HealthCheck, settings

# The same examples in every run, unless asked otherwise. No deadline: the sanitizers slow all down.
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
# For runs that are there for what a path does, not for its numbers.
settings.register_profile("brief", settings.get_profile("ci"), max_examples=40)
settings.load_profile(os.environ.get("HYPOTHESIS_PROFILE", "ci"))


def pytest_collection_finish():
    # Thousands of tests are thousands of objects, which every collection would look through.
    gc.collect()
    gc.freeze()


def pytest_addoption(parser):
    group = parser.getgroup("random programs")
    group.addoption(
        "--program-steps", type=int, default=8000, help="steps of the random programs in all"
    )
    group.addoption("--program-seed", type=int, default=0, help="where the random programs start")
    group.addoption("--program-log", help="a file for each line before it runs, should one crash")
