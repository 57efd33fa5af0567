"""How long the lab waits for what must come. Where time is virtual the clock runs ahead while the machine waits for its disk, so
that seconds say little there: it waits for many more of them, which cost nothing."""

import os

FACTOR = 100 if os.environ.get("SNOOPD6_VIRTUAL_TIME") else 1


def seconds(usual):
    return usual * FACTOR
