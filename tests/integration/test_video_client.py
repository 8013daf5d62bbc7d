"""The client of the video daemon, operation by operation, against the simulated one."""

import pytest

from tests.integration.client_cases import (
    CALL, OPEN, READ, Case, FailureTests, ListeningTests, check_declared, check_success, client_unit, untouched)
from tests.integration.client_driver import debug, error
from virtual_unit import CODE
from virtual_unit.values import Typed

PATH = "/com/tavilon/common/Video1"
CONTROL = "com.tavilon.common.Video1.Control"
PROPERTIES = "org.freedesktop.DBus.Properties"

# Orders ---------------------------------------------------------------------------------------------------------------

RECORDING = ("/media/a file.mp4", "/media/a%s-recovery", "/media/a.jpeg", 640, 480, 90)


def order_failed(member):
    """The lines of an order that did not get through."""

    def lines(step, result, text):
        return [error({OPEN: "sd_bus_open_user failed",
                       CALL: f"sd_bus_call_method {member} failed: {text} (r = {result})",
                       READ: f"sd_bus_message_read failed (r = {result})"}[step])]

    return lines


#: Member, arguments, their types, and the traffic line after "Videod: VideoDaemonDbusHandler::".
ORDERS = [
    ("StartRecording", RECORDING, "sssuuu",
     "StartRecord Video /media/a file.mp4, Recovery /media/a%s-recovery, Snapshot /media/a.jpeg, "
     "Snapshot width 640, height 480, quality 90"),
    ("StopRecording", (), "", "StopRecording"),
    ("PauseRecording", (), "", "PauseRecording"),
    ("ResumeRecording", (), "", "ResumeRecording"),
    ("StartPhotoTalk", RECORDING, "sssuuu",
     "PhotoTalkStart PhotoTalk /media/a file.mp4, Recovery /media/a%s-recovery, Snapshot /media/a.jpeg, "
     "Snapshot width 640, height 480, quality 90"),
    ("StopPhotoTalk", (), "", "PhotoTalkStop"),
    ("PausePhotoTalk", (), "", "PausePhotoTalk"),
    ("ResumePhotoTalk", (), "", "ResumePhotoTalk"),
    ("StartAutoLog", RECORDING, "sssuuu",
     "AutoLogStart Video /media/a file.mp4, Recovery /media/a%s-recovery, Snapshot /media/a.jpeg, "
     "Snapshot width 640, height 480, quality 90"),
    ("StopAutoLog", (), "", "AutoLogStop"),
    ("PauseAutoLog", (), "", "PauseAutoLog"),
    ("ResumeAutoLog", (), "", "ResumeAutoLog"),
    ("SetMotionDetectionPeriod", (4000000000,), "u", "SetMotionDetectionPeriod Period 4000000000"),
    ("Snapshot", ("/media/b.jpeg", 1, 2, 3), "suuu", "Snapshot /media/b.jpeg (1, 2) 3"),
    ("StopPlayback", (True,), "b", "StopPlayback exit=1"),
    ("StopPlayback", (False,), "b", "StopPlayback exit=0"),
    ("PausePlayback", (), "", "PausePlayback"),
    ("ResumePlayback", (), "", "ResumePlayback"),
    ("SeekPlayback", (-5,), "i", "SeekPlayback -5"),
]


def order(member, inputs, types, traffic, answer=0):
    """The case of an order that the video daemon answers with a number of its own."""
    return Case(f"video.{member}", (PATH, CONTROL, member, inputs), types, inputs, result=answer,
                traffic=[debug(traffic)], failed=order_failed(member), answer=CODE(answer))


START_PLAYBACK = order("StartPlayback", ("/media/a.mp4", 1.5), "sd",
                       "static int32_t Videod::VideoDaemonDbusHandler::StartPlayback(const std::string&, double) "
                       "/media/a.mp4 1.500000")
ORDER_CASES = [order(member, inputs, types, f"Videod: VideoDaemonDbusHandler::{traffic}")
               for member, inputs, types, traffic in ORDERS] + [START_PLAYBACK]
PROGRESS = Case(
    "video.GetPlaybackProgress", (PATH, CONTROL, "GetPlaybackProgress", ()), "",
    outs=[False, True, False, 0.25, 5000000000, 4000000000], untouched=untouched("b", "b", "b", "d", "x", "x"),
    traffic=[debug("Videod: VideoDaemonDbusHandler::GetPlaybackPosition")], failed=order_failed("GetPlaybackProgress"),
    prepare=lambda unit: unit.video.set_properties(
        PATH, {"PlaybackState": 2, "PlaybackRate": 0.25, "PlaybackDuration": 5000000000,
               "PlaybackPosition": 4000000000}))

# Properties -----------------------------------------------------------------------------------------------------------

#: Property, type, operation for what is got when it is not "Get" and the property's name, and whether it can be set.
PROPERTY_TABLE = [
    ("TiltsenseCapable", "b", "GetTiltsenseCameraConnected", False),
    ("AutoRotateCapable", "b", "GetAutoRotateCameraConnected", False),
    ("CameraRollAngle", "s", "GetCameraRollAngle(string)", False),
    ("CameraRollAngleRaw", "i", "GetCameraRollAngle(int32)", False),
    ("CameraPitchAngle", "i", None, False),
    ("RotationOverrideAngle", "s", None, True),
    ("RotationEnabled", "b", None, True),
    ("RotationSteps", "s", None, True),
    ("CaptureZoom", "d", None, True),
    ("CaptureZoomMin", "d", None, False),
    ("CaptureZoomMax", "d", None, False),
    ("CapturePanX", "d", None, True),
    ("CapturePanXMin", "d", None, False),
    ("CapturePanXMax", "d", None, False),
    ("CapturePanY", "d", None, True),
    ("CapturePanYMin", "d", None, False),
    ("CapturePanYMax", "d", None, False),
    ("PlaybackRate", "d", None, True),
    ("PlaybackDuration", "x", None, False),
    ("PlaybackPosition", "x", None, False),
    ("RecordingState", "i", None, False),
    ("PlaybackState", "i", None, False),
    ("PhotoTalkState", "i", None, False),
    ("AutoLogState", "i", None, False),
    ("RecordingFilename", "s", None, False),
    ("PlaybackFilename", "s", None, False),
    ("PhotoTalkFilename", "s", None, False),
    ("AutoLogFilename", "s", None, False),
    ("PreviousRecordingFilename", "s", None, False),
    ("PreviousPhotoTalkFilename", "s", None, False),
    ("PreviousAutoLogFilename", "s", None, False),
    ("SystemMicMute", "b", None, True),
    ("StreamJpegQuality", "i", None, True),
    ("StreamTcpQueueSize", "i", None, True),
    ("TcpLiveStreamEnabled", "b", None, True),
    ("CaptureAutogain", "b", None, True),
    ("CaptureBrightness", "i", None, True),
    ("CaptureContrast", "i", None, True),
    ("CaptureHue", "i", None, True),
    ("CaptureSaturation", "i", None, True),
    ("DisplayContent", "s", None, False),
]
VALUES = {"b": (False, True), "i": (-2147483648,), "x": (-9007199254740993,), "d": (-0.125,),
          "s": ("d\u00fcse %s 9\"",)}
CAPTURES = ["", "video", "a %d b"]


def getter(operation, name, kind, value, **others):
    """The case of a property that is read."""
    given = {"inputs": (), "untouched": untouched(kind), "told": True, **others}
    return Case(f"video.{operation}", (PATH, CONTROL, f"Get {name}", ()), kind, outs=[value],
                prepare=lambda unit: unit.video.set(name, value, emit=False), **given)


def setter(name, kind, value):
    """The case of a property that is written."""
    return Case(f"video.Set{name}", (PATH, CONTROL, f"Set {name}", (value,)), kind, (value,), told=True, blind=True)


GETTERS = [getter(operation or f"Get{name}", name, kind, value)
           for name, kind, operation, _ in PROPERTY_TABLE for value in VALUES[kind]]
SETTERS = [setter(name, kind, value)
           for name, kind, _, writable in PROPERTY_TABLE if writable for value in VALUES[kind]]
CAPTURE_LISTS = [getter("GetCaptures", name, "as", CAPTURES, inputs=(selector,), untouched=[[]])
                 for selector, name in enumerate(("InactiveCaptures", "ActiveCaptures", "PausedCaptures"))]

OVERLAY = ("one %s", 1, -2, 3, "two")
OVERLAY_ON_THE_BUS = (1, -2, "one %s", 3, "two")
SET_OVERLAY_TEXT = ("static int32_t Videod::VideoDaemonDbusHandler::SetOverlayUserText(const std::string&, int32_t, "
                    "int32_t, int32_t, const std::string&)")
OVERLAY_CASES = [
    Case("video.SetOverlayUserText", (PATH, CONTROL, "Set OverlayUserText", (OVERLAY_ON_THE_BUS,)), "(iisis)", OVERLAY,
         blind=True,
         failed=lambda _step, result, _text: [error(f"{SET_OVERLAY_TEXT}: Failed to set property:{result}")]),
    Case("video.GetOverlayUserText", (PATH, CONTROL, "Get OverlayUserText", ()), "(iisis)", outs=list(OVERLAY),
         untouched=untouched("s", "i", "i", "i", "s"),
         failed=lambda _step, result, text: [
             error(f"sd_bus_get_property OverlayUserText failed {text} (r = {result})")],
         prepare=lambda unit: unit.video.set("OverlayUserText", OVERLAY_ON_THE_BUS, emit=False)),
]

CASES = ORDER_CASES + [PROGRESS] + GETTERS + SETTERS + CAPTURE_LISTS + OVERLAY_CASES


UNIT_FIXTURE = client_unit("video")


@pytest.mark.parametrize("case", CASES, ids=str)
def test_operation(unit, driver, case):
    """Member, types, arguments, result, out-arguments and lines."""
    check_declared(case)
    check_success(unit, driver, case)


@pytest.mark.parametrize("answer", [-1, -77, 5])
@pytest.mark.parametrize("case", ORDER_CASES, ids=str)
def test_the_answer_of_an_order_is_passed_on(unit, driver, case, answer):
    """The video daemon's own refusal is the result, and is not logged."""
    rule = unit.faults.on("video", kind=CODE(answer))
    outcome = driver.run(case.operation, *case.inputs)
    rule.cancel()
    assert (outcome.result, outcome.outs, outcome.lines) == (answer, [], case.traffic)


class TestFailures(FailureTests):
    """Every operation that fails."""

    CASES = CASES


@pytest.mark.parametrize("selector", [-2147483648, -1, 3, 2147483647])
def test_unknown_capture_list(unit, driver, selector):
    """Fails without a call, and the list is empty all the same."""
    mark = unit.calls.mark()
    outcome = driver.run("video.GetCaptures", selector)
    assert (outcome.result, outcome.outs, outcome.lines) == (-1, [[], "untouched"], [])
    assert not unit.calls.since(mark)


def test_a_property_that_cannot_be_set(unit, driver):
    """The video daemon's own words reach the caller."""
    node = unit.video.objects[PATH].declared.properties["CaptureZoom"]
    node.access = "read"
    try:
        outcome = driver.run("video.SetCaptureZoom", 2.0)
    finally:
        node.access = "readwrite"
    assert outcome.result < 0 and "CaptureZoom" in outcome.outs[0] and not outcome.lines


# Signals --------------------------------------------------------------------------------------------------------------

EMIT_TEXT = "int32_t Videod::VideoDaemonDbusHandler::EmitPropertiesChanged(const sdbus_utils::PropertyMap&)"
STATES = [("RecordingState", "VIDEO_DAEMON_PROP_RECORDING_STATE"),
          ("PhotoTalkState", "VIDEO_DAEMON_PROP_PHOTO_TALK_STATE"),
          ("AutoLogState", "VIDEO_DAEMON_PROP_AUTO_LOG_STATE"), ("PlaybackState", "VIDEO_DAEMON_PROP_PLAYBACK_STATE")]
GREW = [("VideoGrew", "VideoGrown"), ("PhotoTalkGrew", "PhotoTalkGrown"), ("AutoLogGrew", "AutoLogGrown")]


LISTENS_TO = "video"


def next_after(unit, listener):
    """The lines so far, with a signal sent and seen to mark their end."""
    unit.video.emit(PATH, CONTROL, "AutoLogGrew", "end", True)
    assert listener.signal() == ("AutoLogGrown", ["end", True])
    return listener.log.lines()


@pytest.mark.parametrize("signal, told", GREW)
@pytest.mark.parametrize("near", [True, False])
def test_growth(unit, listener, signal, told, near):
    """The file's path and the flag, and no line."""
    unit.video.emit(PATH, CONTROL, signal, "/media/a %s", near)
    assert listener.signal() == (told, ["/media/a %s", near])
    assert not listener.log.lines()


@pytest.mark.parametrize("signal, told", GREW)
@pytest.mark.parametrize("types, body", [("", ()), ("s", ("x",)), ("bs", (True, "x")), ("si", ("x", 1))])
def test_growth_that_cannot_be_read(unit, listener, signal, told, types, body):
    """One line, no callback, and the next signal is heard."""
    unit.video.emit(PATH, CONTROL, signal, *body, signature=types)
    unit.video.emit(PATH, CONTROL, signal, "/media/next", False)
    assert listener.signal() == (told, ["/media/next", False])
    assert listener.log.lines() == [error("sd_bus_message_read failed (r = -6)")]


def state_line(constant):
    """The line of one changed state."""
    return debug(f"{EMIT_TEXT} {constant}")


@pytest.mark.parametrize("name, constant", STATES)
@pytest.mark.parametrize("state", [0, 1, 2, 3, -1])
def test_one_state(unit, listener, name, constant, state):
    """A state that changed reaches its subscribers alone."""
    unit.video.emit_changes(PATH, CONTROL, {name: state})
    assert listener.signal() == (f"{name}Changed", [state])
    assert next_after(unit, listener) == [state_line(constant)]


def test_all_states_in_one_change(unit, listener):
    """In the order of the client's table, not of the names nor of the message."""
    unit.video.emit_changes(PATH, CONTROL, {"PlaybackState": 4, "PlaybackFilename": "x", "AutoLogState": 3,
                                            "RecordingState": 1, "PhotoTalkState": 2})
    assert [listener.signal() for _ in STATES] == [(f"{name}Changed", [index + 1])
                                                   for index, (name, _) in enumerate(STATES)]
    assert next_after(unit, listener) == [state_line(constant) for _, constant in STATES]


@pytest.mark.parametrize("changes", [
    {}, {"PlaybackFilename": "x"}, {"RecordingState": Typed("u", 1)}, {"RecordingState": Typed("s", "1")},
    {"RecordingState": Typed("a{sv}", {"RecordingState": Typed("i", 1)})}, {"recordingState": Typed("i", 1)},
    {f"Unknown{number}": Typed("i", number) for number in range(10000)}], ids=["empty", "other", "uint32", "string",
                                                                               "nested", "case", "many"])
def test_changes_that_concern_nobody(unit, listener, changes):
    """No callback and no line."""
    unit.video.emit_changes(PATH, CONTROL, changes)
    assert not next_after(unit, listener)


@pytest.mark.parametrize("types, body", [("", ()), ("s", (CONTROL,)), ("i", (1,)), ("ss", (CONTROL, "x")),
                                         ("sa{ss}as", (CONTROL, {"RecordingState": "1"}, []))])
def test_changes_that_cannot_be_read(unit, listener, types, body):
    """One line, and the next change is heard."""
    unit.video.emit(PATH, PROPERTIES, "PropertiesChanged", *body, signature=types)
    unit.video.emit_changes(PATH, CONTROL, {"RecordingState": 2})
    assert listener.signal() == ("RecordingStateChanged", [2])
    assert listener.log.lines() == [error("ParseProperties failed (r = -6)"),
                                    state_line("VIDEO_DAEMON_PROP_RECORDING_STATE")]


@pytest.mark.parametrize("path, interface, member", [
    ("/com/tavilon/common/Other", CONTROL, "VideoGrew"), (PATH, "com.tavilon.common.Other", "VideoGrew"),
    (PATH, CONTROL, "VideoShrank")])
def test_signals_of_others(unit, listener, path, interface, member):
    """Only the video daemon's object, interface and members are followed."""
    unit.video.emit(path, interface, member, "x", True, signature="sb")
    assert not next_after(unit, listener)


class TestListening(ListeningTests):
    """That does not begin."""
