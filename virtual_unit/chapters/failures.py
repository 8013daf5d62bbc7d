"""A sibling that fails in the middle of a call: the client gets its answer, and the daemon goes on."""

import time

from ..faults import DIE, SILENT
from .captures import check_daemon_goes_on, files, start

#: Seconds after which the daemon gives up a call: in this chapter, and when nothing is said.
BUS_TIMEOUT = 2
_USUAL_TIMEOUT = 25


def play(stage):
    """A sibling that dies, and one that never answers."""
    unit, pid = stage.unit, stage.unit.pid
    stage.tell("The video daemon dies just when it is told to start. What was prepared is taken back.")
    unit.faults.on("video", "StartRecording", DIE, times=1)
    start(stage, -1)
    stage.check("the video daemon is", unit.video.alive, False, "dead")
    stage.check("left behind", (list(unit.jobs.items), files(stage)), ([], []), "nothing")
    stage.happen("the video daemon is started again", unit.video.revive)
    check_daemon_goes_on(stage, pid)

    stage.tell("The jobs manager hangs: it never says where the file goes. The daemon of this chapter waits "
               f"{BUS_TIMEOUT} s for an answer, otherwise it would be {_USUAL_TIMEOUT} s.")
    before = list(unit.jobs.items), files(stage)
    unit.faults.on("jobs", "GetNewMediaPathComponents", SILENT, times=1)
    began = time.monotonic()
    start(stage, -4)
    waited = time.monotonic() - began
    stage.check("answered after the time-out", BUS_TIMEOUT <= waited < _USUAL_TIMEOUT, True, f"{waited:.1f} s")
    stage.check("left behind", (list(unit.jobs.items), files(stage)), before, "nothing")
    check_daemon_goes_on(stage, pid)
