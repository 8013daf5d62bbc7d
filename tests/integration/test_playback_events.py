"""What ends a playback early: a player that gave up, and a storage that goes away."""

import os

import pytest

from tests.integration.playback_texts import (
    BROKEN_SIGNAL, FILENAME_CALL, INVALID, NOTHING_PLAYED, REMOVED_SIGNAL, checked_lines, emitted_line, gone_lines,
    make_file, play, start_playing, state_lines, take_away)
from tests.integration.recording_texts import KINDS, VIDEO, Watch, error, info, lines_of, signals_of
from virtual_unit import CODE, REFUSE, Typed

_VIDEO_PATH, _VIDEO_CONTROL = "/com/tavilon/common/Video1", "com.tavilon.common.Video1.Control"
_DEVICE = "com.tavilon.common.StorageDaemon1.Device"
_MANAGER = "/com/tavilon/common/StorageDaemon1"


# What the video daemon tells ------------------------------------------------------------------------------------------


@pytest.mark.parametrize("state", [0, 1, 2, 3, -2, 17, 2147483647])
def test_states_are_told_and_do_no_work(unit, state):
    watch = Watch(unit)
    unit.video.emit_changes(_VIDEO_PATH, _VIDEO_CONTROL, {"PlaybackState": state})
    unit.settle()
    assert watch.lines == state_lines(state)
    assert watch.calls == []


def test_a_state_of_another_type_is_passed_over(unit):
    watch = Watch(unit)
    unit.video.emit_changes(_VIDEO_PATH, _VIDEO_CONTROL, {"PlaybackState": Typed("s", "-1")})
    unit.settle()
    assert (watch.lines, watch.calls) == ([], [])


def test_a_player_that_gave_up_a_file_that_is_gone_is_stopped(unit):
    path = start_playing(unit)
    os.remove(path)
    watch = Watch(unit)
    unit.video.break_playback()
    assert signals_of(unit) == [BROKEN_SIGNAL]
    assert watch.calls == [FILENAME_CALL, ("video", "StopPlayback")]
    assert unit.calls.of("video", "StopPlayback")[0].arguments == (False,)
    assert watch.lines == [*state_lines(-1, [*gone_lines(path), emitted_line("Unknown runtime error")]),
                           *state_lines(0)]
    assert unit.video.get("PlaybackFilename") == ""


def test_a_player_that_gave_up_a_file_that_is_there_is_left_alone(unit):
    path = start_playing(unit)
    watch = Watch(unit)
    unit.video.break_playback()
    assert signals_of(unit) == []
    assert watch.calls == [FILENAME_CALL]
    assert watch.lines == state_lines(-1, checked_lines(info(f"{INVALID} playback file {path} is still mounted")))
    assert unit.video.get("PlaybackState") == -1


def test_a_player_that_gave_up_without_a_file(unit):
    watch = Watch(unit)
    unit.video.break_playback()
    assert signals_of(unit) == []
    assert watch.lines == state_lines(-1, NOTHING_PLAYED)


def test_a_player_that_gave_up_and_does_not_tell_its_file(unit):
    start_playing(unit)
    unit.faults.on("video", "Get PlaybackFilename", kind=REFUSE)
    watch = Watch(unit)
    unit.video.break_playback()
    assert signals_of(unit) == []
    assert watch.calls == [FILENAME_CALL]
    assert watch.lines == state_lines(-1, checked_lines(error(f"{INVALID} Failed to get video playback filename")))


def test_a_stop_that_is_refused_counts_as_ordered(unit):
    path = start_playing(unit)
    os.remove(path)
    unit.faults.on("video", "StopPlayback", kind=CODE(-1))
    watch = Watch(unit)
    unit.video.break_playback()
    assert signals_of(unit) == [BROKEN_SIGNAL]
    assert watch.lines == state_lines(-1, [*gone_lines(path, done=False), emitted_line("Unknown runtime error")])


@pytest.mark.parametrize("name, words", [("loop", "Too many levels of symbolic links"),
                                         ("0" * 300, "File name too long")])
def test_a_file_that_cannot_be_looked_up_is_gone(unit, name, words):
    os.symlink("loop", os.path.join(unit.media, "loop"))
    start_playing(unit)
    path = os.path.join(unit.media, name)
    unit.video.set("PlaybackFilename", path, emit=False)
    watch = Watch(unit)
    unit.video.break_playback()
    assert signals_of(unit) == [BROKEN_SIGNAL]
    gone = gone_lines(path)
    assert watch.lines[:-4] == state_lines(-1, [
        gone[0], error(f"TryFsExists - Filesystem error checking for existence of {path}: {words}.\n"), *gone[1:],
        emitted_line("Unknown runtime error")])


# What the storage daemon tells ----------------------------------------------------------------------------------------


REMOVALS = {
    "unmounted": lambda unit, device: unit.storage.unmount(device),
    "unmounted, with its mount point": lambda unit, device: unit.storage.set_device(device, IsMounted=False),
    "pulled out": lambda unit, device: unit.storage.remove_device(device),
}


def own_lines(watch):
    """The new lines but those of the recordings, which look after themselves, and of the storage client."""
    others = tuple(f"{handler} no {kind.state_word} recording" for kind in KINDS
                   for handler in (kind.storage, kind.removed))
    return [line for line in watch.lines if not line[1].startswith(others + ("[StorageDaemonDbusHandler]",))]


def own_calls(watch):
    """The new calls but those of the recordings."""
    return [call for call in watch.calls if call not in [kind.state_call for kind in KINDS]]


@pytest.mark.parametrize("removal", REMOVALS)
def test_a_storage_that_goes_takes_its_playback_with_it(unit, removal):
    path = start_playing(unit)
    take_away(unit)
    watch = Watch(unit)
    REMOVALS[removal](unit, "card")
    assert signals_of(unit) == [REMOVED_SIGNAL]
    assert own_calls(watch) == [FILENAME_CALL, ("video", "StopPlayback")]
    assert own_lines(watch) == [*gone_lines(path),
                                emitted_line("Storage was removed - unable to continue playback"), *state_lines(0)]
    assert unit.video.get("PlaybackState") == 0
    assert unit.video.get("DisplayContent") == "none"


@pytest.mark.parametrize("removal", REMOVALS)
def test_a_paused_playback_goes_as_well(unit, removal):
    start_playing(unit)
    assert unit.client.call("VideoPlaybackPause")[0] == 0
    take_away(unit)
    REMOVALS[removal](unit, "card")
    assert signals_of(unit) == [REMOVED_SIGNAL]


@pytest.mark.parametrize("removal", REMOVALS)
def test_another_storage_that_goes_leaves_the_playback_alone(unit, removal):
    path = start_playing(unit)
    watch = Watch(unit)
    REMOVALS[removal](unit, "internal")
    assert signals_of(unit) == []
    assert own_calls(watch) == [FILENAME_CALL]
    assert own_lines(watch) == checked_lines(info(f"{INVALID} playback file {path} is still mounted"))
    assert unit.video.get("PlaybackState") == 1


@pytest.mark.parametrize("removal", REMOVALS)
def test_a_storage_that_goes_while_nothing_is_played(unit, removal):
    watch = Watch(unit)
    REMOVALS[removal](unit, "card")
    assert signals_of(unit) == []
    assert own_calls(watch) == [FILENAME_CALL]
    assert own_lines(watch) == NOTHING_PLAYED


@pytest.mark.parametrize("change", [{"IsMounted": True}, {"IsMounted": Typed("i", 0)}, {"ReadOnly": True}, {},
                                    {"StorageIsBelowMinimumLevel": True}, {"FreeSpace": 0}, {"MountPoint": ""}])
def test_other_changes_of_a_storage_are_no_business_of_playback(unit, change):
    path = start_playing(unit)
    os.remove(path)
    watch = Watch(unit)
    unit.storage.emit_changes(unit.storage.device_path("card"), _DEVICE, change)
    assert signals_of(unit) == []
    assert (own_calls(watch), own_lines(watch)) == ([], [])


def test_playback_comes_after_the_video_recording_and_before_photo_talk(unit):
    mark = unit.log.mark()
    unit.storage.remove_device("card")
    unit.settle()
    classes = [text.split("ControllerDaemon::")[1].split("::")[0] for _, text in lines_of(unit, mark)
               if "ControllerDaemon::" in text]
    assert list(dict.fromkeys(classes)) == ["AutoLogCapture", "VideoCapture", "VideoPlayback", "PhotoTalkCapture"]


def test_storage_that_is_unmounted_and_then_pulled_out_is_one_error(unit):
    start_playing(unit)
    take_away(unit)
    unit.storage.unmount("card")
    unit.storage.remove_device("card")
    assert signals_of(unit) == [REMOVED_SIGNAL]
    assert len(unit.calls.of("video", "StopPlayback")) == 1


@pytest.mark.parametrize("first, second, signal", [("storage", "player", REMOVED_SIGNAL),
                                                   ("player", "storage", BROKEN_SIGNAL)])
def test_a_removal_that_the_player_notices_too_is_one_error(unit, first, second, signal):
    path = start_playing(unit)
    take_away(unit)
    news = {"storage": lambda: unit.storage.remove_device("card"), "player": unit.video.break_playback}
    for who in (first, second):
        news[who]()
        unit.settle()
    assert signals_of(unit) == [signal]
    assert len(unit.calls.of("video", "StopPlayback")) == 1
    assert path not in unit.video.get("PlaybackFilename")


def test_playback_and_recording_on_a_storage_that_goes_are_two_errors_in_order(unit):
    path = make_file(unit)
    VIDEO.start_recording(unit)
    assert play(unit, path)[0] == 0
    take_away(unit)
    unit.storage.remove_device("card")
    assert signals_of(unit) == [("CaptureError", (-4, "Storage was removed - unable to continue recording")),
                                REMOVED_SIGNAL]
    assert (unit.video.state(), unit.video.get("PlaybackState")) == (0, 0)


def test_a_file_on_another_storage_plays_on_while_the_recording_is_lost(unit):
    start_playing(unit, folder=unit.mount_point("internal"))
    VIDEO.start_recording(unit)
    take_away(unit)
    unit.storage.remove_device("card")
    assert signals_of(unit) == [("CaptureError", (-4, "Storage was removed - unable to continue recording"))]
    assert (unit.video.state(), unit.video.get("PlaybackState")) == (0, 1)


def test_an_object_that_is_no_device_any_more_runs_the_check_too(unit):
    start_playing(unit)
    take_away(unit)
    unit.storage.emit(_MANAGER, "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved",
                      unit.storage.device_path("card"), [_DEVICE])
    assert signals_of(unit) == [REMOVED_SIGNAL]


def test_a_daemon_that_is_restarted_leaves_the_playback_alone(own_unit):
    path = start_playing(own_unit)
    own_unit.stop_daemon()
    own_unit.start_daemon()
    own_unit.settle()
    assert own_unit.video.get("PlaybackState") == 1
    take_away(own_unit)
    own_unit.storage.remove_device("card")
    assert signals_of(own_unit) == [REMOVED_SIGNAL]
    assert path not in own_unit.video.get("PlaybackFilename")
