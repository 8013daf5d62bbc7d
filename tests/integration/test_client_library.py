"""The client library for other programs, operation by operation: against the controller's stand-in and the daemon."""

import errno
import os

import pytest

from interfaces.introspection import controller_members
from tests.integration.client_cases import (
    OPEN, READ, Case, FailureTests, check_declared, check_success, untouched)
from tests.integration.client_driver import ClientDriver, Outcome, debug, error
from virtual_unit import AT_ONCE, VirtualUnit
from virtual_unit.controller import stand_in_controller

PATH = "/com/tavilon/common/Controller1"
CONTROL = "com.tavilon.common.Controller1.Control"
DRIVER = "controller_client_driver"
CLASS = "Controllerd: ControllerDaemonDbusHandler::"
LIST = "std::vector<std::__cxx11::basic_string<char> >&"
ANSWER = "int&, std::string&"
SIZE = "unsigned int, unsigned int, unsigned int"
TIME = (2026, 11, 21, 23, 59, 60, False)
UNTOUCHED_TIME = [77, 77, 77, 77, 77, 77, True]


def signature(operation, parameters):
    """The signature text of an operation."""
    return f"static int Controllerd::ControllerDaemonDbusHandler::{operation.partition('(')[0]}({parameters})"


def method_failed(text, call=None, line="{call}: Failed to call method:{text}\n", read=None):
    """The line of a method that failed; `call` is the name in the line of a failed call, if that is not the signature.
    """

    def lines(step, result, words):
        if step == OPEN:
            return [error(f"{text}: Cannot open bus")]
        if step == READ:
            return [error(words.format(result=result)) for words in read or [f"{text}: sd_bus_message_read failed"]]
        return [error(line.format(call=f"{CLASS}{call}" if call else text, text=words))]

    return lines


def named(operation, call=True):
    """The name in the line of a failed call: the operation's own if True, the signature if False."""
    return operation.partition("(")[0] if call is True else call or None


def order(operation, parameters, member, types="", inputs=(), call=True):
    """The case of a method that answers nothing."""
    return Case(f"controller.{operation}", (PATH, CONTROL, member, inputs), types, inputs, blind=True,
                failed=method_failed(signature(operation, parameters), named(operation, call)), program=DRIVER)


def coded(operation, parameters, member, types="", inputs=(), call=True, path=None, traffic=()):
    """The case of a method that answers with a code and a message, and perhaps with a path before them."""
    answer = ([path] if path else []) + [-7, "No current job %s"]
    text = signature(operation, ", ".join(filter(None, [parameters, "std::string&" if path else "", ANSWER])))
    return Case(f"controller.{operation}", (PATH, CONTROL, member, inputs), types, inputs, outs=answer,
                untouched=untouched(*(["s"] if path else []), "i", "s"),
                traffic=[debug(text + line) for line in traffic],
                failed=method_failed(text, named(operation, call)), program=DRIVER,
                prepare=lambda unit: unit.controller.answer(member, *answer))


def sized(operation, member):
    """The case of a method that takes the size of a picture, which its line repeats."""
    return coded(operation, SIZE, member, "uuu", (4294967295, 0, 90), f"{operation}(4294967295, 0) 90")


def asked(operation, parameters, member, types, inputs, answer, kept, **texts):
    """The case of a method that answers with data, given as out-arguments."""
    return Case(f"controller.{operation}", (PATH, CONTROL, member, inputs), types, inputs, outs=list(answer),
                untouched=kept, failed=method_failed(signature(operation, parameters), **texts),
                program=DRIVER, prepare=lambda unit: unit.controller.answer(member, *answer))


def property_failed(text, access):
    """The line of a property operation that failed."""
    return lambda _step, _result, words: [error(f"{text}: {access}failed {words}")]


def getter(operation, parameters, name, kind, value, access=""):
    """The case of a property that is read."""
    return Case(f"controller.{operation}", (PATH, CONTROL, f"Get {name}", ()), kind, outs=[value],
                untouched=untouched(kind), failed=property_failed(signature(operation, parameters), access),
                prepare=lambda unit: unit.controller.set_properties(PATH, {name: value}, emit=False), program=DRIVER)


def setter(operation, name, kind, value, access):
    """The case of a property that is written."""
    parameters = {"b": "bool", "i": "int", "d": "double"}[kind]
    return Case(f"controller.{operation}", (PATH, CONTROL, f"Set {name}", (value,)), kind, (value,), blind=True,
                failed=property_failed(signature(operation, parameters), access), program=DRIVER)


def constant(access, name):
    """How a line names the access to a property."""
    return f"sdbus_utils::{access}Property CONTROLLER_DAEMON_PROP_{name} "


def switch(operation, name, kind, text, values, get_access=None):
    """The cases of a property that is read and written."""
    parameter = {"b": "bool&", "i": "int&", "d": "double&"}[kind]
    access = constant("Get", text) if get_access is None else get_access
    return [getter(f"Get{operation}", parameter, name, kind, value, access) for value in values] + \
        [setter(f"Set{operation}", name, kind, value, constant("Set", text)) for value in values]


def recording(operation, member):
    """The cases of one kind of recording."""
    return [sized(f"Start{operation}", f"{member}Start"), coded(f"Stop{operation}", "", f"{member}Stop"),
            coded(f"Pause{operation}", "", f"{member}Pause", call=False),
            coded(f"Resume{operation}", "", f"{member}Resume", call=False)]


CODE_LINE = f"{CLASS}GetTime: Failed to read reply CODE: {{result}}\n"
SEEN = [False, True]
FILES = [[], ["beep.wav", "", "d\u00fcse %s.wav"]]

#: The time in seconds says more than others when all went well: `test_the_time_in_seconds_is_told`.
SECONDS = asked("GetTime(time_t)", "time_t&, bool&, bool", "GetTimeSecs", "b", (True,), (1795305599, False), [77, True],
                call="GetTime", read=[CODE_LINE, f"{CLASS}GetTime: Failed to read reply\n"])

CASES = [
    order("SetTime(LocalDateTime)", "Controllerd::LocalDateTime, bool", "SetTime", "iiiiiibb",
          (*TIME, False)),
    # The lines of the times in seconds name the other overload's member.
    order("SetTime(time_t)", "time_t, bool", "SetTimeSecs", "ib", (2147483647, True)),
    order("SetTime(time_t)", "time_t, bool", "SetTimeSecs", "ib", (-2147483648, False)),
    order("SetTimeGPS", "", "SetTimeGPS"),
    asked("GetTime(LocalDateTime)", "Controllerd::LocalDateTime&, bool", "GetTime", "b", (False,), TIME,
          UNTOUCHED_TIME, call="GetTime", read=[CODE_LINE]),
    order("SetDST", "bool", "SetDst", "b", (True,)),
    getter("GetDST", "bool&", "GetDst", "b", False, constant("Get", "GET_DST")),
    order("SetTimezone(string)", "std::string", "SetTimezone", "s", ("CCU/d\u00fcse %s",)),
    order("SetTimezone(int)", "int, bool", "SetTimezoneUTC", "ib", (-34200, True), call=False),
    order("SetTimezoneGPS", "", "SetTimezoneGPS", call=False),
    asked("GetTimezoneFromUTC", "std::string&, int, bool", "GetTimezoneFromUTC", "ib", (3600, False), ("Berlin",),
          ["untouched"], line="{call}: Failed to call method: {text}"),
    *switch("MicrophoneEnabled", "MicEnabled", "b", "MIC_ENABLED", SEEN, get_access=""),
    *switch("SpeakerEnabled", "SpkrEnabled", "b", "SPKR_ENABLED", SEEN),
    *switch("SpeakerVolume", "SpkrVolume", "i", "SPKR_VOLUME", [-5, 2147483647]),
    order("PlayAudio", "std::string", "PlayAudio", "s", ("d\u00fcse %s.wav",), call=False),
    # In the words of the speaker's setter.
    *[getter("GetAudioFiles", LIST, "AudioFiles", "as", files, constant("Set", "SPKR_ENABLED")) for files in FILES],
    *switch("SondeEnabled", "Sonde", "b", "SONDE", SEEN),
    *switch("KeypadBeepEnabled", "KeypadBeepEnabled", "b", "KEYPAD_BEEP_ENABLED", SEEN),
    *switch("PlaybackRate", "VideoPlaybackRate", "d", "VIDEO_PLAYBACK_RATE", [-2.5, 0.0]),
    coded("StartPlayback", "std::string&, double&", "VideoPlaybackStart", "sd", ("/media/d\u00fcse %s.mp4", -0.5)),
    coded("StopPlayback", "bool", "VideoPlaybackStop", "b", (True,)),
    coded("SeekPlayback", "int&", "VideoPlaybackSeek", "i", (-2147483648,)),
    coded("PausePlayback", "", "VideoPlaybackPause", call=False),
    coded("ResumePlayback", "", "VideoPlaybackResume", call=False),
    *recording("Recording", "VideoRecord"),
    *recording("PhotoTalk", "PhotoTalkRecord"),
    *recording("AutoLog", "AutoLogRecord"),
    coded("TakeSnapshot", SIZE, "Snapshot", "uuu", (640, 480, 4294967295), "TakeSnapshot(640, 480) 4294967295",
          path="/media/0001.jpeg"),
    coded("TakeScreenshot", "std::string&", "Screenshot", "s", ("/tmp/d\u00fcse %s",), path="/tmp/screenshot.png",
          traffic=[" called dirpath = /tmp/d\u00fcse %s"]),
]
#: What a property of each type is read into, and a value of it.
READ_INTO = {"b": ("bool&", True), "i": ("int&", -3), "u": ("unsigned int&", 4294967295), "d": ("double&", -2.5),
             "s": ("std::string&", "CCU/London"), "as": (LIST, ["CCU/London", "UTC"])}
#: Properties of the interface that have no case above: the operation has their name, and no words of its own.
CASES += [getter("Get" + member.name.removeprefix("Get"), READ_INTO[member.signature][0], member.name, member.signature,
                 READ_INTO[member.signature][1])
          for member in controller_members()
          if member.access == "read" and f"Get {member.name}" not in {case.call[2] for case in CASES}]
#: Each operation once.
OPERATIONS = list({case.operation: case for case in [*CASES, SECONDS]}.values())


@pytest.fixture(scope="module", name="unit")
def unit_fixture():
    """A unit with nothing but the controller's stand-in."""
    with VirtualUnit(daemon=False, siblings=(), bus_timeout=AT_ONCE) as started, stand_in_controller(started):
        yield started


@pytest.fixture(scope="module", name="driver")
def driver_fixture(unit):
    """One driver for all operations."""
    with ClientDriver(unit, program=DRIVER) as started:
        yield started


@pytest.mark.parametrize("case", CASES, ids=str)
def test_operation(unit, driver, case):
    """Member, types, arguments, result, out-arguments and lines."""
    check_declared(case)
    check_success(unit, driver, case)


class TestFailures(FailureTests):
    """Every operation that fails."""

    CASES = OPERATIONS


def test_every_operation_has_a_case(driver):
    """None is left out."""
    assert {name for name in driver.operations() if name.startswith("controller.")} == \
        {case.operation for case in OPERATIONS}


@pytest.mark.parametrize("seconds, told", [(0, "0"), (2147483647, "2147483647"), (-1, "18446744073709551615")])
@pytest.mark.parametrize("dst", [False, True])
def test_the_time_in_seconds_is_told(unit, driver, seconds, told, dst):
    """The answer is logged."""
    check_declared(SECONDS)
    unit.controller.answer("GetTimeSecs", seconds, dst)
    outcome = driver.run(SECONDS.operation, *SECONDS.inputs)
    assert outcome.result >= 0 and outcome.outs == [seconds, dst]
    assert outcome.lines == [debug(f"{CLASS}GetTime: Reply: time: {told}  dst:{int(dst)}\n")]


@pytest.mark.parametrize("seconds", [2147483648, -2147483649, 2**40])
def test_a_time_that_does_not_travel(unit, driver, seconds):
    """No clock is set to another time than asked for: the call fails before it is made."""
    mark = unit.calls.mark()
    outcome = driver.run("controller.SetTime(time_t)", seconds, True)
    text = os.strerror(errno.ERANGE)
    assert outcome == Outcome(-errno.ERANGE, [], [error(f"{CLASS}SetTime: Failed to call method:{text}\n")])
    assert not unit.calls.since(mark)


def test_many_threads_call_at_once(unit, driver):
    """Each gets its own answers, each call is made once, and nothing stays open."""
    threads, calls = 8, 200
    driver.run("together.TakeScreenshot", 2, 1)
    descriptors, mark = driver.descriptors(), unit.calls.mark()
    unit.controller.answer("Screenshot")
    assert driver.run("together.TakeScreenshot", threads, calls).result == 0
    folders = {call.arguments for call in unit.calls.since(mark)}
    assert folders == {(f"/{thread}/{call}",) for thread in range(threads) for call in range(calls)}
    assert len(unit.calls.since(mark)) == threads * calls
    assert driver.descriptors() == descriptors


def test_a_worker_calls_meanwhile(unit, driver):
    """One call after the other, each followed by what belongs to it, and nothing stays open."""
    calls = 200
    driver.run("meanwhile.TakeScreenshot", 1)
    descriptors, mark = driver.descriptors(), unit.calls.mark()
    unit.controller.answer("Screenshot")
    assert driver.run("meanwhile.TakeScreenshot", calls).result == 0
    folders = [call.arguments for call in unit.calls.since(mark) if call.member == "Screenshot"]
    assert folders == [(f"/{call}",) for call in range(calls)]
    assert driver.descriptors() == descriptors


def test_a_listener_is_ended_from_outside(driver):
    """Whether it has begun to wait or not."""
    driver.run("meanwhile.Cancel", 1)
    descriptors = driver.descriptors()
    outcome = driver.run("meanwhile.Cancel", 50)
    assert (outcome.result, outcome.lines) == (0, [])
    assert driver.descriptors() == descriptors


# The daemon -----------------------------------------------------------------------------------------------------------

@pytest.fixture(scope="module", name="daemon_unit")
def daemon_unit_fixture():
    """A unit with the daemon."""
    with VirtualUnit() as started:
        yield started


@pytest.fixture(scope="module", name="daemon_driver")
def daemon_driver_fixture(daemon_unit):
    """One driver for all operations."""
    with ClientDriver(daemon_unit, program=DRIVER) as started:
        yield started


@pytest.mark.parametrize("case", OPERATIONS, ids=str)
def test_the_daemon_knows_every_operation(daemon_driver, case):
    """It has the member, with these types and this access: it does what it is asked, or has its own reason not to."""
    outcome = daemon_driver.run(case.operation, *case.inputs)
    assert outcome.result >= 0 or outcome.result == -errno.EACCES, outcome


SUCCESS = [0, "Ran successfully"]
STEPS = ["Start", "Pause", "Resume", "Stop"]


@pytest.mark.parametrize("kind", ["Recording", "PhotoTalk", "AutoLog"])
def test_a_recording_by_the_daemon(daemon_unit, daemon_driver, kind):
    """From its start to its end, through the library alone."""
    for step in STEPS:
        inputs = (640, 480, 90) if step == "Start" else ()
        outcome = daemon_driver.run(f"controller.{step}{kind}", *inputs)
        assert (outcome.result >= 0, outcome.outs, outcome.lines) == (True, SUCCESS, [])
        daemon_unit.settle()


def test_a_refusal_by_the_daemon(daemon_unit, daemon_driver):
    """The call succeeds, the code tells of the refusal."""
    daemon_unit.hardware.power_sufficient = 0
    outcome = daemon_driver.run("controller.StartRecording", 640, 480, 90)
    daemon_unit.hardware.power_sufficient = 1
    assert outcome.result >= 0 and outcome.outs == [-2, "Power is too low - unable to record"]
    assert not outcome.lines


def test_pictures_and_playback_by_the_daemon(daemon_unit, daemon_driver):
    """Paths come back, files are there and are played."""
    outcome = daemon_driver.run("controller.TakeSnapshot", 640, 480, 90)
    assert outcome.outs[1:] == SUCCESS and os.path.exists(outcome.outs[0])
    shot = daemon_driver.run("controller.TakeScreenshot", daemon_unit.directory)
    assert shot.outs[1:] == SUCCESS and os.path.dirname(shot.outs[0]) == daemon_unit.directory
    assert os.path.exists(shot.outs[0])
    for operation, *inputs in [("StartPlayback", outcome.outs[0], 1.0), ("SeekPlayback", 5), ("PausePlayback",),
                               ("ResumePlayback",), ("StopPlayback", True)]:
        assert daemon_driver.run(f"controller.{operation}", *inputs).outs == SUCCESS, operation
    assert daemon_driver.run("controller.SetPlaybackRate", 2.5).result >= 0
    assert daemon_driver.run("controller.GetPlaybackRate").outs == [2.5]
