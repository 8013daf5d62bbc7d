"""Times that a page counts on by itself: of recordings, and of the zone that is in force."""

import time
import zoneinfo
from datetime import datetime, timezone

from ..zones import file_of

_DAY = 86_400


class Stopwatch:
    """How long a recording has lasted, its pauses left out."""

    def __init__(self):
        self._seconds, self._since, self._state = 0.0, None, None

    def follow(self, state):
        """The recording is in a state: off, recording or paused."""
        now, before, self._state = time.monotonic(), self._state, state
        if before is None and state != "off":
            self._seconds = None  # it has begun before anybody looked
        if self._seconds is None and state != "off":
            return
        if state == "recording" and before != "recording":
            self._seconds = 0.0 if before in (None, "off") else self._seconds
            self._since = now
        elif state != "recording" and self._since is not None:
            self._seconds += now - self._since
            self._since = None
        elif self._seconds is None:
            self._seconds = 0.0

    def read(self):
        """The seconds so far, None where they are not known, and whether they run."""
        if self._since is None:
            return [self._seconds, False]
        return [self._seconds + time.monotonic() - self._since, True]


def offsets(folder, zone, now):
    """By how many seconds a zone is ahead of UTC, from the day before a time on and for the year behind it: pairs of
    the time from which on it is, and the seconds.  UTC where the zone is not to be had."""
    try:
        with open(file_of(folder, zone), "rb") as file:
            rules = zoneinfo.ZoneInfo.from_file(file)
    except (OSError, ValueError):
        rules = timezone.utc

    def ahead(moment):
        return int(datetime.fromtimestamp(moment, rules).utcoffset().total_seconds())

    try:
        first = int(now) - _DAY
        found = [[first, ahead(first)]]
        for day in range(first, first + 366 * _DAY, _DAY):
            if ahead(day + _DAY) != ahead(day):
                low, high = day, day + _DAY
                while high - low > 1:
                    middle = (low + high) // 2
                    low, high = (middle, high) if ahead(middle) == ahead(low) else (low, middle)
                found.append([high, ahead(high)])
    except (OverflowError, ValueError, OSError):  # a clock in a year that Python does not know
        return [[0, 0]]
    return found
