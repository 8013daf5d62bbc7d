"""What a replay has come to, and what counts as the same."""

import calendar
import datetime
from dataclasses import asdict, dataclass, field

#: What tells the time, which goes on between a message and the look at the clock.
_TIMES = ("GetTime", "GetTimeSecs", "TimeChanged")
_SECONDS = 3


@dataclass(frozen=True)
class Difference:
    """Where the daemon did something else: `step` is the trace's, by its number, in whose place it was."""
    kind: str
    step: int
    what: str
    recorded: str = None
    replayed: str = None


@dataclass
class Outcome:
    """What a replay has come to."""
    compared: dict
    differences: list = field(default_factory=list)
    recorded_seconds: float = 0
    seconds: float = 0

    @property
    def same(self):
        """True when the daemon did all that it did in the trace, and nothing else."""
        return not self.differences

    def as_json(self):
        """The whole for programs."""
        return {"ok": self.same, "compared": self.compared, "differences": [asdict(one) for one in self.differences],
                "recorded_seconds": round(self.recorded_seconds, 3), "seconds": round(self.seconds, 3)}


def mapped(value, change):
    """A body with its texts changed."""
    if isinstance(value, str):
        return change(value)
    if isinstance(value, (list, tuple)):
        return type(value)(mapped(item, change) for item in value)
    if isinstance(value, dict):
        return {mapped(key, change): mapped(item, change) for key, item in value.items()}
    return value


def _moment(name, values):
    """Seconds of what tells the time."""
    if name == "GetTimeSecs":
        return values[0]
    return calendar.timegm(datetime.datetime(*values[:6]).timetuple())


def same(name, recorded, replayed):
    """Whether values of a message are the same, whatever time they tell."""
    if recorded == replayed:
        return True
    if name not in _TIMES or len(recorded) != len(replayed) or recorded[-1] != replayed[-1]:
        return False
    try:
        return abs(_moment(name, recorded) - _moment(name, replayed)) <= _SECONDS
    except (TypeError, ValueError):
        return False
