"""Stand-in for the controller daemon itself, for tests of what calls it: answers what it is told to answer."""

from contextlib import contextmanager

from .client import SERVICE
from .loop import on_loop
from .sibling import Sibling

_SUCCESS = (0, "Ran successfully")
#: What methods answer by themselves; those of recordings and playback answer that they have succeeded.
_ANSWERS = {"Snapshot": ("/snapshot.jpeg", *_SUCCESS), "GetTime": (0, 0, 0, 0, 0, 0, False), "GetTimeSecs": (0, False),
            "GetTimezoneFromUTC": ""}
_CODED = ("VideoRecord", "VideoPlayback", "PhotoTalkRecord", "AutoLogRecord")


class Controller(Sibling):
    """Every property is kept as it was set, every method succeeds, or answers as `answer` says."""

    name = "controller"
    service = SERVICE

    def __init__(self, unit, address):
        self._answers = {}
        super().__init__(unit, address)

    @on_loop
    def answer(self, member, *values):
        """What a method answers from now on; without values, what it answers by itself."""
        self._answers.pop(member, None)
        if values:
            self._answers[member] = values[0] if len(values) == 1 else values

    def __getattr__(self, name):
        if not name.startswith("on_"):
            raise AttributeError(name)
        member = name.removeprefix("on_")
        return lambda _path, *arguments: self._answer_of(member, arguments)

    def _answer_of(self, member, arguments):
        if member in self._answers:
            return self._answers[member]
        if member == "Screenshot":
            return (f"{arguments[0]}/screenshot.png", *_SUCCESS)
        return _ANSWERS.get(member, _SUCCESS if member.startswith(_CODED) else None)


@contextmanager
def stand_in_controller(unit):
    """Puts the stand-in, `unit.controller`, in the place of the daemon of a unit that runs without one."""
    unit.controller = Controller(unit, unit.session_address)
    unit.controller.revive()
    try:
        yield unit.controller
    finally:
        unit.controller.die()
