"""Playback: which files are played, and what goes on to the video daemon."""

import math
import os

import pytest

from tests.integration.playback_texts import (
    GET_RATE, MESSAGES, PAUSE, RESUME, SEEK, SET_RATE, START, make_file, play, played, refused_lines, start_line,
    start_lines, start_order, start_playing, state_lines, stop_lines)
from tests.integration.recording_texts import VIDEO, Watch, debug, error, info
from virtual_unit import ABSENT, CODE, DIE, PATIENCE, REFUSE, SILENT, DbusFailure


# Start ----------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("rate", [1.0, 0.0, -2.0, 0.1, 1e300, math.inf, math.nan])
def test_a_start_passes_name_and_rate_on(unit, rate):
    path = make_file(unit)
    watch = Watch(unit)
    assert play(unit, path, rate) == (0, "Ran successfully")
    assert watch.calls == [("video", "StartPlayback")]
    name, passed = unit.calls.of("video", "StartPlayback")[0].arguments
    assert name == path and (passed == rate or math.isnan(passed) and math.isnan(rate))
    unit.settle()
    assert watch.lines == start_lines(path, rate) + state_lines(1)
    assert unit.video.get("PlaybackFilename") == path
    assert unit.client.announced == []


def test_the_reply_is_code_and_message(unit):
    for member, signature, arguments in (("Start", "sd", ("", 1.0)), ("Stop", "b", (True,)), ("Pause", "", ()),
                                         ("Resume", "", ()), ("Seek", "i", (1,))):
        reply = unit.client.call_async(f"VideoPlayback{member}", signature, *arguments).result(PATIENCE)
        assert reply.signature == "is"


#: Names that cannot be played, with FOLDER for the folder of the files and RELATIVE for its name from the daemon's own.
UNFIT = [
    ("FOLDER/none.mp4", "doesn't exist"),
    ("", "doesn't exist"),
    ("none.mp4", "doesn't exist"),
    ("FOLDER/100 %s%n%d.mp4", "doesn't exist"),
    ("FOLDER/file/a.mp4", "doesn't exist"),
    ("FOLDER/dangling", "doesn't exist"),
    ("FOLDER" + "/." * 1980 + "/none.mp4", "doesn't exist"),
    ("FOLDER/" + "0" * 256, "existence check failed: File name too long"),
    ("FOLDER" + "/." * 3000, "existence check failed: File name too long"),
    ("FOLDER/loop", "existence check failed: Too many levels of symbolic links"),
    ("RELATIVE/file", "isn't absolute"),
    ("RELATIVE/empty", "isn't absolute"),
    (".", "isn't absolute"),
    ("FOLDER", "can't get file size"),
    ("FOLDER/", "can't get file size"),
    ("/dev/null", "can't get file size"),
    ("FOLDER/empty", "file is zero length"),
    ("FOLDER/empty 100%s", "file is zero length"),
]


@pytest.mark.parametrize("name, why", UNFIT, ids=range(len(UNFIT)))
def test_what_cannot_be_played_never_reaches_the_video_daemon(unit, name, why):
    folder = unit.media
    for file, data in (("file", b"video"), ("empty", b""), ("empty 100%s", b"")):
        make_file(unit, file, data)
    os.symlink("loop", os.path.join(folder, "loop"))
    os.symlink("none.mp4", os.path.join(folder, "dangling"))
    relative = os.path.relpath(folder, os.readlink(f"/proc/{unit.pid}/cwd"))
    name = name.replace("FOLDER", folder).replace("RELATIVE", relative)
    watch = Watch(unit)
    assert play(unit, name) == (-2, "Playback file doesn't exist")
    assert watch.lines == refused_lines(name, why)
    assert watch.calls == []


@pytest.mark.parametrize("name", ["100 %s%n%d.mp4", "blank at the end ", "\u00e4 \u65e5\u672c.mp4", "no extension"])
def test_names_are_texts_and_never_formats(unit, name):
    path = make_file(unit, name)
    watch = Watch(unit)
    assert play(unit, path) == (0, MESSAGES[0])
    assert watch.lines[:4] == start_lines(path)


def test_a_name_of_four_thousand_characters(unit):
    folder = unit.media
    while len(folder) < 3850:
        folder = os.path.join(folder, "0" * 100)
    path = make_file(unit, "1" * (4000 - len(folder) - 1), folder=folder)
    assert len(path) == 4000
    watch = Watch(unit)
    assert play(unit, path) == (0, MESSAGES[0])
    assert watch.lines[:4] == start_lines(path)


def test_a_link_to_a_file_is_played_under_its_own_name(unit):
    target = make_file(unit)
    link = os.path.join(unit.media, "link.mp4")
    os.symlink(target, link)
    assert play(unit, link) == (0, MESSAGES[0])
    assert unit.calls.of("video", "StartPlayback")[0].arguments == (link, 1.0)


def failed_start_lines(path, *between):
    """The lines of a start that the video daemon does not make."""
    return [start_line(path, 1.0), start_order(path, 1.0), *between,
            error(f"{START} VideoPlaybackStart(): Failed to start playback\n"), played(-1)]


def test_a_start_that_the_video_daemon_refuses(unit):
    path = make_file(unit)
    unit.faults.on("video", "StartPlayback", kind=CODE(-4))
    watch = Watch(unit)
    assert play(unit, path) == (-1, "Unknown error")
    assert watch.lines == failed_start_lines(path)


@pytest.mark.parametrize("kind", [ABSENT, REFUSE, DIE, SILENT], ids=lambda fault: fault.kind)
def test_a_start_that_the_video_daemon_does_not_answer(unit, kind):
    path = make_file(unit)
    unit.faults.on("video", "StartPlayback", kind=kind)
    watch = Watch(unit)
    assert play(unit, path) == (-1, "Unknown error")
    lines = watch.lines
    assert lines[2][1].startswith("sd_bus_call_method StartPlayback failed: ")
    assert lines == failed_start_lines(path, lines[2])


def test_a_positive_answer_of_the_video_daemon_is_a_success(unit):
    unit.video.on_StartPlayback = lambda *_order: 1
    assert play(unit, make_file(unit)) == (0, MESSAGES[0])


def test_a_second_start_is_the_video_daemons_to_judge(unit):
    start_playing(unit)
    second = make_file(unit, "b.mp4")
    watch = Watch(unit)
    assert play(unit, second) == (0, MESSAGES[0])
    assert watch.calls == [("video", "StartPlayback")]


def test_a_recording_is_played_while_the_next_one_runs(unit):
    first = VIDEO.start_recording(unit).media
    assert VIDEO.order(unit, "Stop")[0] == 0
    VIDEO.start_recording(unit)
    assert play(unit, first) == (0, MESSAGES[0])
    assert unit.video.state() == 1


# Stop, pause, resume and seek -----------------------------------------------------------------------------------------


def order_lines(signature, order, verb, done, arguments="", traffic=""):
    """The lines of an order: those before its outcome, and that of either outcome."""
    before = [info(f"{signature} called{arguments}"), debug(f"Videod: VideoDaemonDbusHandler::{order}{traffic}")]
    return before, info(f"Video::{order}(): {done}"), error(f"Video::{order}(): Failed to {verb} playback\n")


def stop_order(live):
    """The same of a stop."""
    return stop_lines(live)[:2], stop_lines(live)[2], stop_lines(live, done=False)[2]


ORDERS = {
    "pause": ("VideoPlaybackPause", "", (), order_lines(PAUSE, "PausePlayback", "pause", "Paused playback"), 2),
    "seek": ("VideoPlaybackSeek", "i", (4711,),
             order_lines(SEEK, "SeekPlayback", "seek", "seek playback ok", traffic=" 4711"), None),
    "stop": ("VideoPlaybackStop", "b", (False,), stop_order(False), 0),
    "stop to live": ("VideoPlaybackStop", "b", (True,), stop_order(True), 0),
}
RESUME_ORDER = ("VideoPlaybackResume", "", (), order_lines(RESUME, "ResumePlayback", "resume", "Resumed playback"), 1)


def check_order(unit, order):
    """Gives an order that succeeds and compares all that comes of it."""
    member, signature, arguments, (before, done, _), state = order
    watch = Watch(unit)
    assert unit.client.call(member, signature, *arguments) == (0, "Ran successfully")
    unit.settle()
    name = before[1][1].split("::")[1].split()[0]
    assert watch.calls == [("video", name)]
    assert unit.calls.of("video", name)[-1].arguments == arguments
    assert watch.lines == [*before, done, played(0), *(state_lines(state) if state is not None else [])]
    assert unit.client.announced == []


@pytest.mark.parametrize("name", ORDERS)
def test_orders_go_to_the_video_daemon(unit, name):
    start_playing(unit)
    check_order(unit, ORDERS[name])


def test_resume_goes_to_the_video_daemon(unit):
    start_playing(unit)
    check_order(unit, ORDERS["pause"])
    check_order(unit, RESUME_ORDER)


@pytest.mark.parametrize("order", [*ORDERS.values(), RESUME_ORDER], ids=[*ORDERS, "resume"])
def test_orders_that_the_video_daemon_refuses(unit, order):
    member, signature, arguments, (before, _, failed), _ = order
    watch = Watch(unit)
    assert unit.client.call(member, signature, *arguments) == (-1, "Unknown error")
    assert watch.lines == [*before, failed, played(-1)]
    assert len(watch.calls) == 1


@pytest.mark.parametrize("position", [0, -1, 2147483647, -2147483648])
def test_positions_are_passed_on_as_they_are(unit, position):
    unit.video.on_SeekPlayback = lambda _path, _position: 0
    assert unit.client.call("VideoPlaybackSeek", "i", position) == (0, MESSAGES[0])
    assert unit.calls.of("video", "SeekPlayback")[0].arguments == (position,)


@pytest.mark.parametrize("live, content", [(True, "live"), (False, "none")])
def test_stop_returns_to_the_live_picture_if_that_is_wished(unit, live, content):
    start_playing(unit)
    assert unit.client.call("VideoPlaybackStop", "b", live) == (0, MESSAGES[0])
    assert unit.video.get("DisplayContent") == content


# The rate -------------------------------------------------------------------------------------------------------------


def refused(function, *call):
    """The error that a call is refused with."""
    with pytest.raises(DbusFailure) as caught:
        function(*call)
    return caught.value.name, caught.value.text


@pytest.mark.parametrize("rate", [1.0, -0.25, 0.0, 64.0])
def test_the_rate_is_read_from_the_video_daemon(unit, rate):
    unit.video.set("PlaybackRate", rate, emit=False)
    watch = Watch(unit)
    assert unit.client.get("VideoPlaybackRate") == rate
    assert watch.calls == [("video", "Get PlaybackRate")]
    assert watch.lines == []


@pytest.mark.parametrize("rate", [2.0, -0.25, 0.1, 1e300, math.inf])
def test_the_rate_is_written_to_the_video_daemon_and_announced_by_it_alone(unit, rate):
    watch = Watch(unit)
    unit.client.set("VideoPlaybackRate", "d", rate)
    unit.settle()
    assert unit.video.get("PlaybackRate") == rate
    assert watch.calls == [("video", "Set PlaybackRate")]
    assert watch.lines == [info(f"{SET_RATE} called"),
                           info(f"{SET_RATE} SetVideoPlaybackRate playback_rate = {rate:f}")]
    assert unit.client.announced == []


@pytest.mark.parametrize("kind", [ABSENT, REFUSE, DIE, SILENT], ids=lambda fault: fault.kind)
def test_a_rate_that_cannot_be_read_or_written_is_a_failure_in_the_lines_words(unit, kind):
    for member in ("Get PlaybackRate", "Set PlaybackRate"):
        unit.faults.on("video", member, kind=kind)
    watch = Watch(unit)
    failed = "org.freedesktop.DBus.Error.Failed"
    assert refused(unit.client.get, "VideoPlaybackRate") == (failed, "Video::GetPlaybackRate failed")
    assert watch.lines == [error(f"{GET_RATE} Video::GetPlaybackRate failed")]
    watch = Watch(unit)
    assert refused(unit.client.set, "VideoPlaybackRate", "d", 2.0) == (failed, "Video::SetPlaybackRate failed")
    assert watch.lines == [
        info(f"{SET_RATE} called"), info(f"{SET_RATE} SetVideoPlaybackRate playback_rate = 2.000000"),
        error(f"{SET_RATE} Video::SetPlaybackRate failed")]


def test_a_rate_of_another_type_is_refused_by_the_bus_library(unit):
    watch = Watch(unit)
    assert refused(unit.client.set, "VideoPlaybackRate", "i", 2)[0] == "org.freedesktop.DBus.Error.InvalidArgs"
    assert (watch.lines, watch.calls) == ([], [])
