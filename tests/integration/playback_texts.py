"""The lines that snapshots and playback leave in the log, and what they ask of the siblings."""

import os

from tests.integration.recording_texts import (
    CAMERA_LINES, EMIT, ERROR, INFO, REEL_LINES, REMOTE, debug, error, info, reason)

SNAPSHOT = ("static DbusHelper::CaptureErrorCode ControllerDaemon::SnapshotCapture::Snapshot"
            "(uint32_t, uint32_t, uint32_t, std::string&)")

_PLAYBACK = "ControllerDaemon::VideoPlayback::"
_CODE = "static DbusHelper::PlaybackErrorCode " + _PLAYBACK
_PROPERTY = "(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, sd_bus_error*)"
START = _CODE + "VideoPlaybackStart(const std::string&, double)"
STOP = _CODE + "VideoPlaybackStop(bool)"
PAUSE = _CODE + "VideoPlaybackPause()"
RESUME = _CODE + "VideoPlaybackResume()"
SEEK = _CODE + "VideoPlaybackSeek(int32_t)"
GET_RATE = f"static int {_PLAYBACK}GetVideoPlaybackRate{_PROPERTY}"
SET_RATE = f"static int {_PLAYBACK}SetVideoPlaybackRate{_PROPERTY}"
STATE = f"static void {_PLAYBACK}VideoPlaybackStateChangedHandler(int32_t)"
INVALID = f"static bool {_PLAYBACK}StopAndCancelInvalidPlaybacks()"

MESSAGES = {
    0: "Ran successfully",
    -1: "Unknown error",
    -2: "Playback file doesn't exist",
}
BROKEN_SIGNAL = ("PlaybackError", (-1, "Unknown runtime error"))
REMOVED_SIGNAL = ("PlaybackError", (-3, "Storage was removed - unable to continue playback"))

FILENAME_CALL = ("video", "Get PlaybackFilename")

#: What a snapshot asks, in its order, of a unit with every camera feature and a reel in relative mode.
SNAPSHOT_CALLS = [
    ("jobs", "GetNewMediaPathComponents"),
    ("video", "Snapshot"),
    ("video", "Get AutoRotateCapable"),
    ("video", "Get CameraRollAngleRaw"),
    ("video", "Get TiltsenseCapable"),
    ("video", "Get CameraPitchAngle"),
    *REMOTE, ("hardware", "Get Connected"),
    *REMOTE, ("hardware", "Get Absolute"),
    *REMOTE, ("hardware", "Get Mode"),
    *REMOTE, ("hardware", "Get Relative"),
    ("jobs", "AddSnapshotMedia"),
]


# Snapshots ------------------------------------------------------------------------------------------------------------


def first_picture(unit):
    """The path of the first snapshot of a fresh unit."""
    return os.path.join(unit.media, "job1", "media", "0001.jpeg")


def ordered_lines(path, width=640, height=480, quality=90):
    """The lines of a snapshot up to its order."""
    return [info(f"{SNAPSHOT} called"), info("Controller - StorageManager::GetFilepathComponents"),
            debug("GetNewMediaPathComponents"), info(f"Snapshot file {path} ok"),
            info(f"{SNAPSHOT} Snapshot Filepath {path}"),
            debug(f"Videod: VideoDaemonDbusHandler::Snapshot {path} ({width}, {height}) {quality}")]


def snapshot_lines(path, code=0, text="Succeeded", **order):
    """All lines of a snapshot that was written; the code and its text are the jobs manager's."""
    return [*ordered_lines(path, **order), info(f"{SNAPSHOT} Stopped snapshot"), *CAMERA_LINES, *REEL_LINES,
            debug("AddSnapshotMediaItem"),
            error("libjobsdaemon::JobsManager::AddSnapshotMediaItem: sd_bus_message_read ok. "
                  f"rtnCode = {code}, Error - {text}"),
            *([error(f"{SNAPSHOT}: Failed to add snapshot media item. Error: {text}")] if code else []), reason(0)]


# Playback -------------------------------------------------------------------------------------------------------------


def played(code):
    """The line of a playback call's answer."""
    return (INFO if code == 0 else ERROR, f"[PlaybackError::ErrorReason] {MESSAGES[code]}")


def start_line(name, rate):
    """The first line of a start; rates have six decimals in the log."""
    return info(f"{START} VideoPlaybackStart {name} {rate:f}")


def refused_lines(name, why, rate=1.0):
    """All lines of a start that a file is not fit for."""
    return [start_line(name, rate), info(f"{START} VideoPlaybackStart(): filename {name} {why}"), played(-2)]


def start_order(name, rate):
    """The line of the order to the video daemon."""
    return debug("static int32_t Videod::VideoDaemonDbusHandler::StartPlayback(const std::string&, double) "
                 f"{name} {rate:f}")


def start_lines(name, rate=1.0):
    """All lines of a start that succeeds."""
    return [start_line(name, rate), start_order(name, rate), info(f"{START} VideoPlaybackStart(): Started playback"),
            played(0)]


def stop_lines(live, done=True):
    """The lines of a stop, without its answer."""
    return [info(f"{STOP} called restartLive={int(live)}"),
            debug(f"Videod: VideoDaemonDbusHandler::StopPlayback exit={int(live)}"),
            info("Video::StopPlayback(): Stopped playback") if done else
            error("Video::StopPlayback(): Failed to stop playback\n")]


def state_lines(state, between=()):
    """The lines of a state that the video daemon announced, with those of what it causes."""
    return [debug(f"{EMIT} VIDEO_DAEMON_PROP_PLAYBACK_STATE"), info(f"{STATE} enter"),
            info(f"{STATE} video playback state -> {state}"), *between, info(f"{STATE} enter")]


def checked_lines(*lines):
    """The lines of a check whether the playback can go on."""
    return [info(f"{INVALID} enter"), *lines, info(f"{INVALID} leave")]


NOTHING_PLAYED = checked_lines(info(f"{INVALID} empty playback filename"))


def gone_lines(name, done=True):
    """The lines of a check that cancels."""
    return checked_lines(error(f"{INVALID} playback file {name} is no longer mounted - cancelling playback"),
                         *stop_lines(False, done))


def emitted_line(text):
    """The line of the signal."""
    return error(f"[Playback::EmitError] {text}")


def make_file(unit, name="a.mp4", data=b"video", folder=None):
    """A file to play; returns its path."""
    folder = folder or unit.media
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, name)
    with open(path, "wb") as file:
        file.write(data)
    return path


def play(unit, name, rate=1.0):
    """Orders a start; returns its answer."""
    return unit.client.call("VideoPlaybackStart", "sd", name, rate)


def start_playing(unit, **file):
    """Plays a file, which must succeed, and waits until the news have been dealt with; returns its path."""
    path = make_file(unit, **file)
    assert play(unit, path) == (0, MESSAGES[0])
    unit.settle()
    return path


def take_away(unit, device="card"):
    """The files of a storage device are not there any more, as it was pulled out; nobody says so yet."""
    mount = unit.mount_point(device)
    os.rename(mount, mount + "-pulled")
