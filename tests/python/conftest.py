"""Settings of hypothesis for all tests: the same examples in every run, unless asked otherwise."""

import os

from hypothesis import HealthCheck, settings

# No deadline: the sanitizers slow everything down.
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
settings.load_profile(os.environ.get("HYPOTHESIS_PROFILE", "ci"))
