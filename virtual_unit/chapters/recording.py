"""A recording, from its start to its end."""

import os
import stat

from .captures import OFF, PAUSED, PICTURE, RECORDING, check_size, files, newest_item, start, stop

_ROLL, _PITCH = 45, -20
_ABSOLUTE, _RELATIVE = 2750, 430

#: An address of another unit's hardware can be set at any time, so it is looked up before each value of the reel.
_REMOTE = "Get RemoteIP, Get RemoteDBusAddress, "

_START = (
    ("video", "Get RecordingState", "is nothing being recorded?"),
    ("jobs", "GetNewMediaPathComponents", "where does the file go?"),
    ("storage", "GetManagedObjects", "which storage is that?"),
    ("storage", "Get StorageIsBelowMinimumLevel", "has it room?"),
    ("hardware", "GetPowerSufficientForAction", "does the power suffice?"),
    ("video", "Get AutoRotateCapable, Get CameraRollAngleRaw", "how is the camera turned?"),
    ("video", "Get TiltsenseCapable, Get CameraPitchAngle", "how is it tilted?"),
    ("hardware", _REMOTE + "Get Connected", "is there a reel?"),
    ("hardware", _REMOTE + "Get Absolute", "how much cable is out?"),
    ("hardware", _REMOTE + "Get Mode", "is it measured from a point?"),
    ("hardware", _REMOTE + "Get Relative", "... and since that point?"),
    ("jobs", "AddVideoMedia", "the job gets the item"),
    ("video", "StartRecording", "go"),
)
_NEWS_RECORDING = (("video", "Get RecordingFilename", "which file?"), ("jobs", "UpdateMediaFileSizes", "how large?"))
_STOP = (
    ("video", "StopRecording", "end it"),
    ("video", "Get PreviousRecordingFilename", "which file was it?"),
    ("jobs", "UpdateMediaFileSizes", "how large has it become?"),
    ("video", "Get RecordingState", "after its news: is it off?"),
    ("video", "StopRecording", "to be sure; refused, as it is off"),
)
#: By controllerctl, which prints where the file is.
_WHERE = (("video", "Get RecordingState"), ("video", "Get RecordingFilename"))


def play(stage):
    """Start, pause, resume, growth and stop."""
    _start(stage)
    _pause(stage)
    _grow(stage)
    _stop(stage)


def _start(stage):
    unit = stage.unit
    stage.tell("A client starts a recording into the open job. "
               f"The camera is turned by {_ROLL} and tilted by {_PITCH}; {_ABSOLUTE} cm of cable are out, "
               f"{_RELATIVE} cm of them since the point that the operator has set.")
    unit.video.set("CameraRollAngleRaw", _ROLL)
    unit.video.set("CameraPitchAngle", _PITCH)
    unit.hardware.set_reel(connected=True, mode="relative", absolute=_ABSOLUTE, relative=_RELATIVE)
    unit.settle()
    start(stage)
    stage.check_asked(*_START, *_NEWS_RECORDING, by_command=_WHERE)
    stage.check("files, the hidden markers first", files(stage), [".0001-recActive", ".0001-recovery", "0001.mp4"])
    order = unit.video.orders.get("video")
    stage.check("picture ordered", order and (order.width, order.height, order.quality), PICTURE,
                f"{PICTURE[0]} x {PICTURE[1]} pixels, quality {PICTURE[2]}")
    _check_item(stage, newest_item(stage))


def _check_item(stage, item):
    folder = os.path.join(stage.unit.media, "job1", "media")
    stage.tell("What the jobs manager has been told, as the media item of the recording:")
    for what, name, expected in (
            ("type", "type", "video recording"),
            ("file", "path", f"{folder}/0001.mp4"),
            ("marker of a recording in progress", "rec_active", f"{folder}/.0001-recActive"),
            ("marker to mend it with", "recovery", f"{folder}/.0001-recovery"),
            ("picture that goes with it", "snapshot", f"{folder}/0001.jpeg")):
        stage.check(what, getattr(item, name), expected)
    stage.check("camera", item.angles, (True, _ROLL, True, _PITCH), f"turned {_ROLL}, tilted {_PITCH}")
    stage.check("reel", item.reel, (True, _ABSOLUTE, _RELATIVE),
                f"{_ABSOLUTE} cm absolute, {_RELATIVE} cm relative")
    for path in (item.rec_active, item.recovery):
        mode = stat.S_IMODE(os.stat(path).st_mode) if os.path.exists(path) else None
        stage.check(f"mode of {os.path.basename(path)}", mode, 0o300, "0300, for its owner alone")


def _pause(stage):
    stage.tell("The operator pauses it and goes on.")
    for member, state, word in (("VideoRecordPause", PAUSED, "paused"), ("VideoRecordResume", RECORDING, "recording")):
        stage.order(0, member)
        stage.check("the video daemon is", stage.unit.video.state(), state, word)


def _grow(stage):
    stage.tell("The video daemon says each time when the file has grown; the job's media item follows.")
    for size in (4096, 65536, 1048576):
        stage.happen(f"the file grows by {size} bytes", stage.unit.video.grow, size=size)
        check_size(stage, newest_item(stage))


def _stop(stage):
    stage.tell("The operator stops the recording.")
    stop(stage)
    stage.check_asked(("video", "Get RecordingState, Get RecordingFilename", "by the command: which file is it?"), *_STOP)
    stage.check("the video daemon is", stage.unit.video.state(), OFF, "off")
    stage.check("files left on the card", files(stage), ["0001.mp4"])
    check_size(stage, newest_item(stage))
    stage.check_signals()
