"""What the command-line control shows of a controller that talks, ends and comes back; and an inspection by it."""

import datetime
import json
import os
import re
import signal

import pytest

from tests.integration.controllerctl_cases import (  # pylint: disable=unused-import
    CONTROL, DONE, PATH, REFUSED, SUCCESS, TIME_OUT, UNREACHABLE, Ended, Running, run, stand_in_fixture)
from virtual_unit import DIE, PATIENCE, REFUSE, SILENT, VirtualUnit
from virtual_unit.values import Typed

GONE = "the bus cannot be reached: "
REMOVED = "Storage was removed - unable to continue recording"


@pytest.fixture(autouse=True)
def no_faults(unit):
    """Each test starts with a stand-in that serves and has nothing switched on."""
    unit.faults.clear()
    unit.controller.revive()
    unit.controller.set_properties(PATH, {"MicEnabled": False, "SpkrVolume": 0, "GetTimezone": "UTC"}, emit=False)


# Monitor --------------------------------------------------------------------------------------------------------------

SIGNALS = [
    ("CaptureError", (-4, REMOVED), f'the recording was ended: "{REMOVED}" (-4)'),
    ("CaptureSizeLimitReached", (2, "d\u00fcse\n"),
     'the recording was saved at its size limit: video, "d\u00fcse\\n"'),
    ("PlaybackError", (-1, ""), 'the playback was ended: "" (-1)'),
    ("TimeChanged", (2026, 1, 2, 3, 4, 5, True),
     "the clock was set to 2026-01-02 03:04:05, daylight saving time on"),
    ("TimezoneChanged", ("London",), "the time zone was set to London"),
]
PROPERTIES = [
    ("MicEnabled", True, "microphone is on"), ("SpkrEnabled", True, "speaker is on"),
    ("SpkrVolume", -5, "volume is -5 %"), ("Sonde", True, "sonde is on"), ("KeypadBeepEnabled", True, "key beep is on"),
    ("VideoPlaybackRate", 2.5, "playback rate is 2.5"), ("AudioFiles", ["a \"b\""], 'AudioFiles is ["a \\"b\\""]'),
    ("GetDst", True, "daylight saving time is on"), ("GetTimezone", "Paris", 'time zone is "Paris"'),
    ("GetTimezoneList", [], "GetTimezoneList is []"), ("GetTimeSourceAvailable", 1, "GetTimeSourceAvailable is 1")]


def test_signals_are_told(unit):
    """Each in one line, with its arguments by their names, in words and as JSON."""
    with Running(unit, "monitor --count 5") as monitor, Running(unit, "monitor --json --count 5") as as_json:
        assert (monitor.said, as_json.said) == ("controllerctl: listening\n",) * 2
        for member, arguments, text in SIGNALS:
            unit.controller.emit(PATH, CONTROL, member, *arguments)
            assert monitor.line() == text
            told = run_line(as_json)
            assert (told["event"], told["name"], tuple(told["arguments"].values())) == ("signal", member, arguments)
        for ended in monitor.end(), as_json.end():
            assert (ended.status, ended.out, ended.errors) == (DONE, "", "")


def run_line(running):
    """The next line as an object, in the fields' order."""
    return json.loads(running.line())


def test_changes_are_told(unit):
    """Of every property, also when the controller does not say what it has become."""
    with Running(unit, "monitor") as monitor, Running(unit, "monitor --json") as as_json:
        for name, value, text in PROPERTIES:
            unit.controller.emit_changes(PATH, CONTROL, {name: value})
            assert monitor.line() == text
            assert run_line(as_json) == {"event": "property", "name": name, "value": value}
        unit.controller.emit_changes(PATH, CONTROL, {"MicEnabled": True, "SpkrVolume": 3}, ["Sonde"])
        assert [monitor.line() for _ in range(3)] == ["microphone is on", "volume is 3 %", "sonde has changed"]
        assert [run_line(as_json)["value"] for _ in range(3)] == [True, 3, None]


def test_what_others_tell_is_not_told(unit):
    """Neither other objects' signals, nor other interfaces'; what a later controller tells is."""
    with Running(unit, "monitor --json") as monitor:
        unit.controller.emit("/elsewhere", CONTROL, "CaptureError", -1, "no", signature="is")
        unit.controller.emit(PATH, "com.tavilon.common.Other", "CaptureError", -1, "no", signature="is")
        unit.controller.emit(PATH, "org.freedesktop.DBus.Properties", "PropertiesChanged", "com.tavilon.common.Other",
                             {"MicEnabled": Typed("b", True)}, [], signature="sa{sv}as")
        unit.controller.emit(PATH, CONTROL, "Later", "yes", 2, {"a": 1}, True, signature="sia{si}b")
        assert run_line(monitor) == {"event": "signal", "name": "Later",
                                     "arguments": {"argument0": "yes", "argument1": 2, "argument2": None,
                                                   "argument3": True}}


def test_a_monitor_sees_the_controller_come_and_go(unit):
    """And hears the next one."""
    unit.controller.die()
    with Running(unit, "monitor") as monitor:
        for _ in range(2):
            unit.controller.revive()
            assert monitor.line() == "the controller has started"
            unit.controller.emit(PATH, CONTROL, "TimezoneChanged", "London")
            assert monitor.line() == "the time zone was set to London"
            unit.controller.die()
            assert monitor.line() == "the controller has stopped"
        monitor.close_output()
        unit.controller.revive()
        assert monitor.wait() == -signal.SIGPIPE


@pytest.mark.parametrize("line", ["monitor", "wait CaptureError", "wait MicEnabled on"])
def test_a_bus_that_goes(make_unit, line):
    """Is told and ends it; so does one that is not there."""
    own = make_unit(daemon=False, siblings=())
    with Running(own, line) as watching:
        own.stop_bus()
        ended = watching.end()
        assert (ended.status, ended.out) == (UNREACHABLE, "") and ended.errors.startswith(f"controllerctl: {GONE}")
    told = run(own, line + " --json")
    assert told.object == {"ok": False, "exit": UNREACHABLE, "code": None, "message": GONE + os.strerror(111)}
    assert (told.status, told.errors) == (UNREACHABLE, f"controllerctl: {GONE}{os.strerror(111)}\n")


# Wait -----------------------------------------------------------------------------------------------------------------


def test_a_signal_is_waited_for(unit):
    """Others go by."""
    with Running(unit, "wait CaptureError") as waiting, Running(unit, "wait --json CaptureError") as as_json:
        assert (waiting.said, as_json.said) == ("controllerctl: waiting\n",) * 2
        unit.controller.emit(PATH, CONTROL, "PlaybackError", -1, "no")
        unit.controller.emit_changes(PATH, CONTROL, {"MicEnabled": True})
        unit.controller.emit(PATH, CONTROL, "CaptureError", -4, REMOVED)
        ended = waiting.end()
        assert (ended.status, ended.out) == (DONE, f'CaptureError code=-4 message="{REMOVED}"\n')
        assert as_json.end().object == {"ok": True, "exit": DONE, "event": "signal", "name": "CaptureError",
                                        "arguments": {"code": -4, "message": REMOVED}}


def test_a_change_is_waited_for(unit):
    """Of that property, to whatever it is."""
    with Running(unit, "wait MicEnabled --json") as waiting:
        unit.controller.emit(PATH, CONTROL, "TimezoneChanged", "x")
        unit.controller.emit_changes(PATH, CONTROL, {"Sonde": True})
        unit.controller.emit_changes(PATH, CONTROL, {"MicEnabled": False})
        assert waiting.end().object == {"ok": True, "exit": DONE, "event": "property", "name": "MicEnabled",
                                        "value": False}


@pytest.mark.parametrize("name, word, value, text", [("MicEnabled", "true", True, "on"), ("SpkrVolume", "70", 70, "70"),
                                                     ("GetTimezone", "New York", "New York", '"New York"')])
def test_a_value_is_waited_for(unit, name, word, value, text):
    """Other values go by; a change that is told without its value is looked at; one that is there ends it at once."""
    line = ["wait", name, word]
    mark = unit.calls.mark()
    with Running(unit, line) as waiting:
        unit.controller.emit_changes(PATH, CONTROL, {name: type(value)()})
        unit.controller.emit_changes(PATH, CONTROL, {}, [name])
        unit.calls.wait_for("controller", f"Get {name}", count=2, since=mark)
        unit.controller.set_property(PATH, name, value)
        ended = waiting.end()
        assert (ended.status, ended.out) == (DONE, f"{name}={text}\n")
    told = run(unit, [*line, "--timeout", "0", "--json"])
    assert told.object == {"ok": True, "exit": DONE, "event": "property", "name": name, "value": value}


def test_a_value_is_waited_for_over_a_restart(unit):
    """A controller may come back with it and say nothing of it."""
    unit.controller.die()
    mark = unit.calls.mark()
    with Running(unit, "wait MicEnabled on") as waiting:
        unit.faults.on("controller", "Get MicEnabled", kind=DIE, times=1)
        unit.controller.revive()
        unit.calls.wait_for("controller", "Get MicEnabled", since=mark)
        unit.controller.set_properties(PATH, {"MicEnabled": True}, emit=False)
        unit.controller.revive()
        assert waiting.end().out == "MicEnabled=on\n"


@pytest.mark.parametrize("line", ["wait CaptureError", "wait MicEnabled", "wait MicEnabled on"])
@pytest.mark.parametrize("alive", [True, False])
def test_the_time_of_waiting(unit, line, alive):
    """Has an end, with a controller and without."""
    if not alive:
        unit.controller.die()
    told = run(unit, line + " --timeout 0.01 --json")
    assert told.object == {"ok": False, "exit": TIME_OUT, "code": None, "message": "the time has passed"}
    assert (told.status, told.errors) == (TIME_OUT, "controllerctl: waiting\ncontrollerctl: the time has passed\n")


@pytest.mark.parametrize("kind, seconds, status, message", [
    (REFUSE, 3600, REFUSED, "refused: refused by the simulation"), (SILENT, 0.1, TIME_OUT, "the time has passed")],
    ids=["refused", "silent"])
def test_a_value_that_cannot_be_told(unit, kind, seconds, status, message):
    """Ends it when the unit refuses it; a controller that is silent has its time."""
    unit.faults.on("controller", "Get MicEnabled", kind=kind)
    told = run(unit, f"wait MicEnabled on --timeout {seconds}")
    assert (told.status, told.out) == (status, "")
    assert told.errors == f"controllerctl: waiting\ncontrollerctl: {message}\n"


def test_a_later_refusal(unit):
    """Ends nothing: what comes up may not be able to tell the value yet."""
    mark = unit.calls.mark()
    with Running(unit, "wait MicEnabled on") as waiting:
        unit.calls.wait_for("controller", "Get MicEnabled", since=mark)  # the first look, which may not be refused
        unit.controller.die()
        unit.faults.on("controller", "Get MicEnabled", kind=REFUSE)
        unit.controller.revive()
        unit.calls.wait_for("controller", "Get MicEnabled", count=2, since=mark)
        unit.controller.emit_changes(PATH, CONTROL, {}, ["MicEnabled"])
        unit.calls.wait_for("controller", "Get MicEnabled", count=3, since=mark)
        unit.controller.emit_changes(PATH, CONTROL, {"MicEnabled": True})
        assert waiting.end() == Ended(DONE, "MicEnabled=on\n", "")


def test_a_look_at_a_silent_controller(unit):
    """Is limited to the time of waiting, even to none, or else it would outlast the test."""
    unit.faults.on("controller", "Get MicEnabled", kind=SILENT)
    told = run(unit, "wait MicEnabled on --timeout 0", SYSTEMD_BUS_TIMEOUT="1h")
    assert (told.status, told.errors) == (TIME_OUT, "controllerctl: waiting\ncontrollerctl: the time has passed\n")


@pytest.mark.parametrize("own", ["2s", "2.0", "0 min 2000000 us"])
def test_a_smaller_time_out_of_calls(unit, own):
    """Stays as the user has it; a longer time of waiting does not outlast it."""
    mark = unit.calls.mark()
    unit.faults.on("controller", "Get MicEnabled", kind=SILENT)
    with Running(unit, "wait MicEnabled on --timeout 3600", SYSTEMD_BUS_TIMEOUT=own) as waiting:
        unit.calls.wait_for("controller", "Get MicEnabled", since=mark)
        unit.controller.emit_changes(PATH, CONTROL, {"MicEnabled": True})
        assert waiting.end() == Ended(DONE, "MicEnabled=on\n", "")


def test_words_for_what_is_not_known(unit):
    """A later controller's signals, and known ones with other arguments, are shown as they come."""
    with Running(unit, "monitor") as monitor:
        unit.controller.emit(PATH, CONTROL, "Later", "yes", 2, signature="si")
        assert monitor.line() == 'Later argument0="yes" argument1=2'
        unit.controller.emit(PATH, CONTROL, "CaptureError", "odd", signature="s")
        assert monitor.line() == 'CaptureError code="odd"'


def test_times(unit):
    """Stand before each line, in the caller's zone, and in JSON."""
    shape = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}"
    with Running(unit, "monitor --timestamps", TZ="Etc/GMT-5") as monitor, \
            Running(unit, "monitor --json --timestamps") as as_json:
        before = datetime.datetime.now(datetime.timezone(datetime.timedelta(hours=5)))
        unit.controller.emit_changes(PATH, CONTROL, {"SpkrVolume": 3})
        [stamp] = re.fullmatch(f"({shape})  volume is 3 %", monitor.line()).groups()
        seen = datetime.datetime.fromisoformat(stamp + "+05:00")
        assert before - datetime.timedelta(seconds=1) < seen < before + datetime.timedelta(seconds=PATIENCE)
        told = as_json.object()
        assert re.fullmatch(shape, told.pop("time"))
        assert told == {"event": "property", "name": "SpkrVolume", "value": 3}


def test_colors(unit):
    """Are for those who want them."""
    with Running(unit, "monitor --color always") as monitor:
        unit.controller.emit(PATH, CONTROL, "CaptureError", -1, "no")
        assert monitor.line() == '\x1b[1;31mthe recording was ended: "no" (-1)\x1b[0m'


# The daemon -----------------------------------------------------------------------------------------------------------


@pytest.fixture(scope="module", name="daemon_unit")
def daemon_unit_fixture():
    """A unit with the daemon."""
    with VirtualUnit() as started:
        yield started


CAPTURES = {"video": "video", "photo-talk": "photoTalk", "auto-log": "autolog"}


@pytest.mark.parametrize("kind", CAPTURES)
def test_a_recording_by_the_daemon(daemon_unit, kind):
    """From its start to its end, and a second start that is refused."""
    for step in "start", "pause", "resume", "stop":
        told = run(daemon_unit, f"record {step} --kind {kind} --json")
        file = {"file": daemon_unit.video.orders[CAPTURES[kind]].path} if step in ("start", "stop") else {}
        assert told.object == {"ok": True, "exit": DONE, **SUCCESS, **file}
        daemon_unit.settle()
        if step == "start":
            again = run(daemon_unit, f"record start --kind {kind}")
            assert (again.status, again.out) == (REFUSED, "")
            assert again.errors == "controllerctl: refused with -8: Not in correct state to perform record action\n"


def test_a_stop_of_nothing(daemon_unit):
    """Says so behind the words of the unit, which stay as they are in JSON."""
    told, as_json = run(daemon_unit, "record stop"), run(daemon_unit, "record stop --json")
    assert (told.status, told.errors) == (REFUSED, "controllerctl: refused with -1: Unknown error (nothing is being "
                                                   "recorded)\n")
    assert as_json.object == {"ok": False, "exit": REFUSED, "code": -1, "message": "Unknown error"}


def interrupt(running):
    """Ctrl-C."""
    running.send(signal.SIGINT)
    return running.end()


@pytest.mark.parametrize("kind", CAPTURES)
def test_a_recording_that_is_waited_for(daemon_unit, kind):
    """Shows its growth and its pause, and is saved when the user interrupts."""
    capture = CAPTURES[kind]
    with Running(daemon_unit, f"record start --wait --json --kind {kind}", ready=False) as running:
        path = running.object()["file"]
        assert path == daemon_unit.video.orders[capture].path
        daemon_unit.video.grow(capture, size=1_000_000)
        shown = running.object()
        assert {**shown, "seconds": 0} == {"event": "recording", "kind": kind, "state": "recording", "file": path,
                                           "seconds": 0, "bytes": os.path.getsize(path)}
        run(daemon_unit, f"record pause --kind {kind}")
        while shown["state"] != "paused":
            shown = running.object()
        ended = interrupt(running)
    assert ended.status == DONE and json.loads(ended.out.splitlines()[-1]) == {
        "ok": True, "exit": DONE, **SUCCESS, "file": path}
    assert daemon_unit.video.state(capture) == 0


def test_a_recording_in_words(daemon_unit):
    """Is a line a growth, and at last its file."""
    with Running(daemon_unit, "record start --wait", ready=False) as running:
        line = re.compile(r"recording \d:\d\d, 1\.0 [kM]B, (.*\.mp4)")
        path = line.fullmatch(running.line()).group(1)
        daemon_unit.video.grow(size=1_000_000)
        assert line.fullmatch(running.line()).group(1) == path
        ended = interrupt(running)
    assert (ended.status, ended.out.splitlines()[-1], ended.errors) == (DONE, path, "")


def test_a_recording_that_others_end(daemon_unit):
    """Ends the waiting, as what it is: a stop by somebody else, or a storage that is gone."""
    with Running(daemon_unit, "record start --wait", ready=False) as running:
        running.line()
        run(daemon_unit, "record stop")
        ended = running.end()
        assert (ended.status, ended.errors) == (DONE, "controllerctl: the recording has been ended\n")
    with Running(daemon_unit, "record start --wait --json", ready=False) as running:
        running.line()
        daemon_unit.video.grow(approaching_limit=True)
        ended = running.end()
        assert ended.status == DONE and "size limit" in json.loads(ended.out.splitlines()[-1])["message"]
    with Running(daemon_unit, "record start --wait --json", ready=False) as running:
        running.line()
        daemon_unit.storage.remove_device("card")
        ended = running.end()
    told = json.loads(ended.out.splitlines()[-1])
    assert (ended.status, told["code"], told["message"]) == (REFUSED, -4, REMOVED)
    daemon_unit.settle()
    daemon_unit.storage.add_device("card", os.path.join(daemon_unit.directory, "media", "card"))


def test_a_refused_start_is_not_waited_for(daemon_unit):
    """It ends at once."""
    daemon_unit.jobs.close()
    told = run(daemon_unit, "record start --wait")
    daemon_unit.jobs.open()
    message = "refused with -7: No current job - unable to record"
    assert (told.status, told.errors) == (REFUSED, f"controllerctl: {message}\n")


def test_siblings_are_followed(daemon_unit):
    """What they say, that their properties have changed, and that they come and go; and the controller as ever."""
    with Running(daemon_unit, "monitor --follow-siblings") as monitor, \
            Running(daemon_unit, "monitor --follow-siblings --json") as as_json:
        assert monitor.said == as_json.said == "controllerctl: listening\n"
        daemon_unit.video.set("PlaybackRate", 2.5)
        assert monitor.line() == "the video daemon: PlaybackRate is 2.5"
        assert as_json.object() == {"event": "sibling", "sibling": "video", "path": "/com/tavilon/common/Video1",
                                    "name": "PlaybackRate", "value": 2.5}
        daemon_unit.hardware.emit("/com/tavilon/common/Halvex1", "com.tavilon.common.Halvex1.Control", "KeyPressEvent",
                                  30, 1)
        assert monitor.line() == "the hardware daemon: KeyPressEvent 30 1"
        assert as_json.object()["arguments"] == [30, 1]
        daemon_unit.sync.die()
        assert monitor.line() == "the sync daemon has stopped"
        assert as_json.object() == {"event": "sibling", "sibling": "sync", "running": False}
        daemon_unit.sync.revive()
        assert monitor.line() == "the sync daemon has started"
        as_json.line()
        run(daemon_unit, "volume 21")
        assert monitor.line() == "volume is 21 %"
        assert as_json.object() == {"event": "property", "name": "SpkrVolume", "value": 21}
        daemon_unit.storage.remove_device("internal")
        lines = [monitor.line()]
        while not lines[-1].startswith("the storage daemon: InterfacesRemoved"):
            lines.append(monitor.line())
        daemon_unit.storage.add_device("internal", os.path.join(daemon_unit.directory, "media", "internal"))


def test_values_of_every_type_by_siblings(daemon_unit):
    """Are told as JSON has them, containers in one piece."""
    signature = "ybnqiuxtdsoga{ia{sv}}(ybas)v"
    values = [255, True, -2 ** 15, 2 ** 16 - 1, -2 ** 31, 2 ** 32 - 1, -2 ** 63, 2 ** 64 - 1, 0.25, "text", "/a/path",
              "a{sv}", {7: {"of it": Typed("au", [1, 2])}}, (1, False, ["a", "b"]), Typed("(ss)", ("one", "two"))]
    with Running(daemon_unit, "monitor --follow-siblings --json") as as_json, \
            Running(daemon_unit, "monitor --follow-siblings") as monitor:
        daemon_unit.hardware.emit("/com/tavilon/common/Halvex1", "com.tavilon.common.Halvex1.Control", "Later", *values,
                                  signature=signature)
        assert as_json.object()["arguments"] == [
            *values[:12], {"7": {"of it": [1, 2]}}, [1, False, ["a", "b"]], ["one", "two"]]
        assert monitor.line().endswith(' "/a/path" "a{sv}" {"7":{"of it":[1,2]}} [1,false,["a","b"]] ["one","two"]')


def test_pictures_and_playback_by_the_daemon(daemon_unit):
    """Paths come back, files are there and are played."""
    picture = run(daemon_unit, "snapshot").out.removesuffix("\n")
    screen = run(daemon_unit, "screenshot .").out.removesuffix("\n")
    assert os.path.isfile(picture) and os.path.isfile(screen)
    assert os.path.dirname(screen) == os.path.realpath(daemon_unit.directory) + "/."
    for line in f"play start {picture}", "play seek 5", "play pause", "play resume", "play rate 2.5", "play stop":
        assert run(daemon_unit, line).status == DONE, line
    assert run(daemon_unit, "play rate").out == "2.5\n"
    told = run(daemon_unit, "play start nothing")
    assert (told.status, told.errors) == (REFUSED, "controllerctl: refused with -2: Playback file doesn't exist\n")


def test_clock_and_zone_by_the_daemon(daemon_unit):
    """Are set, told, and refused while something is recorded. The zone's changes come from a connection of their own.
    """
    with Running(daemon_unit, "monitor") as monitor, Running(daemon_unit, "wait TimezoneChanged") as waiting:
        assert run(daemon_unit, "timezone set New_York").status == DONE
        assert waiting.end().out == 'TimezoneChanged timezone="CCU/New_York"\n'
        lines = [monitor.line()]
        while not lines[-1].startswith("the time zone was set"):
            lines.append(monitor.line())
    assert run(daemon_unit, "timezone get").out == "New_York\n"
    assert "New_York" in run(daemon_unit, "timezone list").out.splitlines()
    assert run(daemon_unit, "dst get").out == "off\n"
    assert run(daemon_unit, "time set '2026-01-02 03:04:05'").status == DONE
    assert daemon_unit.timedate.timezone.endswith("New_York")
    assert run(daemon_unit, "time get --json").object["local"] is True
    assert run(daemon_unit, "timezone from-utc 0").out == "CCU/Dublin\n"
    run(daemon_unit, "record start")
    assert run(daemon_unit, "time set @1").status == REFUSED
    run(daemon_unit, "record stop")


def test_the_daemon_is_restarted(make_unit):
    """Between calls, under a monitor and under a wait: all go on."""
    unit = make_unit()
    with Running(unit, "monitor") as monitor, Running(unit, "wait CaptureError") as waiting:
        unit.stop_daemon()
        assert monitor.line() == "the controller has stopped"
        assert run(unit, "record start").status == UNREACHABLE
        unit.start_daemon()
        assert monitor.line() == "the controller has started"
        assert [monitor.line() for _ in range(3)] == ["microphone is on", "speaker is off", "volume is 50 %"]
        assert run(unit, "record start").status == DONE
        unit.storage.remove_device("card")
        assert waiting.end().out == f'CaptureError code=-4 message="{REMOVED}"\n'
        assert monitor.line() == f'the recording was ended: "{REMOVED}" (-4)'
