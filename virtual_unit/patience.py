"""How long to wait for what must come.

Waiting costs nothing when it comes, so there is one length for everything: long on an idle machine, and stretched by as
much as others have to wait for a processor of this one.  What must *not* come is never waited for.
"""

import os

#: Multiplies the patience of tests, demonstration and commands.
_STRETCH = "CCU_PATIENCE"
_SECONDS = 60


def _share():
    """How many want each processor, 1 when there is one for everybody."""
    return max(1.0, os.getloadavg()[0] / len(os.sched_getaffinity(0)))


#: Seconds after which what has not come is held to be missing.
PATIENCE = _SECONDS * _share() * float(os.environ.get(_STRETCH, "1"))
