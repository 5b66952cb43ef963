"""How much a run tries: all, or, with the profile "brief", less of what repeats itself."""

import os

IS_BRIEF = os.environ.get("HYPOTHESIS_PROFILE") == "brief"
