"""The panel of a unit as a page: a client of its control object and of the daemon, which serves one WebSocket a page.

It is a process of its own.  What it decodes, blends and waits for then never holds up the siblings, whose answers the
daemon is measured by; it can see nothing of the unit but what any client sees; and it ends, or fails, alone.
"""


class NoPanel(Exception):
    """The panel of a unit has not started."""
