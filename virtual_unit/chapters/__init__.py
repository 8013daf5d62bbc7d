"""The chapters of the demo, in the order in which they are shown.

A chapter is a function of a Stage in a module of its own.  Each gets a fresh unit with the daemon running, so none
depends on another; what differs from an ordinary unit stands in its entry here.
"""

from dataclasses import dataclass, field
from typing import Callable

from . import clock, failures, incidents, kinds, members, playback, recording, refusals, screenshot, snapshot, start


@dataclass(frozen=True)
class Chapter:
    """One chapter: its heading, its function and the options of its unit."""
    title: str
    play: Callable
    options: dict = field(default_factory=dict)


CHAPTERS = (
    Chapter("The unit comes up", start.play),
    Chapter("What the daemon offers", members.play),
    Chapter("A recording, from its start to its end", recording.play),
    Chapter("A recording that is refused", refusals.play),
    Chapter("A recording that must end early", incidents.play),
    Chapter("Three kinds of recording", kinds.play),
    Chapter("A snapshot into the job", snapshot.play),
    Chapter("A screenshot", screenshot.play),
    Chapter("Playback of a recording", playback.play),
    Chapter("Clock and time zone", clock.play),
    Chapter("A sibling that fails in the middle of a call", failures.play, {"bus_timeout": failures.BUS_TIMEOUT}),
)
