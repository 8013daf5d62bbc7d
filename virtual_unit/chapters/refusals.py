"""A recording that is refused, by the daemon and by the bus library, and what that leaves behind: nothing."""

import contextlib

from ..client import DbusFailure
from ..faults import CODE
from .captures import files, start, stop

_ERROR = "org.freedesktop.DBus.Error."


@contextlib.contextmanager
def _recording(stage):
    start(stage)
    yield
    stop(stage)


@contextlib.contextmanager
def _low_storage(stage):
    stage.happen("the card runs low", stage.unit.storage.set_low, "card")
    yield
    stage.unit.storage.set_low("card", False)
    stage.unit.settle()


@contextlib.contextmanager
def _low_power(stage):
    stage.happen("the batteries run low", setattr, stage.unit.hardware, "power_sufficient", 0)
    yield
    stage.unit.hardware.power_sufficient = 1


@contextlib.contextmanager
def _no_job(stage):
    stage.happen("the current job is closed", stage.unit.jobs.close)
    yield
    stage.unit.jobs.open()


@contextlib.contextmanager
def _fault(stage, text, sibling, member, code):
    stage.show.event(text)
    fault = stage.unit.faults.on(sibling, member, CODE(code))
    yield
    fault.cancel()


_REFUSALS = (
    ("A recording is already running.", _recording, -8),
    ("The storage of the job has less room than it must keep.", _low_storage, -3),
    ("The power does not suffice.", _low_power, -2),
    ("No job is open.", _no_job, -7),
    ("The jobs manager does not take the media item.",
     lambda stage: _fault(stage, "the jobs manager's file system is read-only", "jobs", "AddVideoMedia", 3), -10),
    ("The video daemon does not start.",
     lambda stage: _fault(stage, "the encoder is busy", "video", "StartRecording", -5), -1),
)

#: What is called, with which arguments, and the error that it must be answered with.
_MALFORMED = (
    ("The quality is left out.", ("VideoRecordStart", "uu", 1920, 1080), "InvalidArgs"),
    ("There is no such member.", ("VideoRecordRewind",), "UnknownMethod"),
    ("A property is called, although its name begins like a method's.", ("GetDst",), "UnknownMethod"),
)


def _state(stage):
    """Everything that a refused call must leave as it was."""
    items = [(item.path, item.size) for item in stage.unit.jobs.items.values()]
    return {"files": files(stage), "media items": items, "recording": stage.unit.video.state()}


def play(stage):
    """Every refusal, with its reply."""
    for text, circumstances, code in _REFUSALS:
        stage.tell(text)
        with circumstances(stage):
            before = _state(stage)
            start(stage, code)
            stage.check("left behind", _state(stage), before, "nothing")
    stage.tell("Calls that do not fit the interface are refused by the bus library before the daemon sees them.")
    for text, call, error in _MALFORMED:
        stage.show.event(text)
        _check_error(stage, call, error)
    stage.check_signals()


def _check_error(stage, call, error):
    before = _state(stage)
    answer = stage.call_bus(*call)
    name = answer.name if isinstance(answer, DbusFailure) else answer
    stage.check("error", name, _ERROR + error)
    if isinstance(answer, DbusFailure):
        stage.check("its text", bool(answer.text), True, f'"{answer.text}"')
    stage.check("asked of the siblings", stage.calls, [], "nothing")
    stage.check("left behind", _state(stage), before, "nothing")
