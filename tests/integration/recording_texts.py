"""The lines that a recording leaves in the log, and what it asks of the siblings, for each kind of recording."""

import os
from dataclasses import dataclass

from virtual_unit.stage import ANSWERS as MESSAGES

ERROR, INFO, DEBUG = 3, 6, 7

EMIT = "int32_t Videod::VideoDaemonDbusHandler::EmitPropertiesChanged(const sdbus_utils::PropertyMap&)"
CAMERA = "void ControllerDaemon::GetCameraAngles(JobsManagerD::cameraAngles_t&)"
REEL = "void ControllerDaemon::GetReelDistances(JobsManagerD::reelDistance_t&)"

CARD = "/com/tavilon/common/StorageDaemon1/card"


def info(text):
    """A progress line."""
    return (INFO, text)


def debug(text):
    """A line of traffic."""
    return (DEBUG, text)


def error(text):
    """A failure line."""
    return (ERROR, text)


def reason(code):
    """The line of a call's answer."""
    return (INFO if code == 0 else ERROR, f"[CaptureError::ErrorReason] {MESSAGES[code]}")


def opened(operation):
    """The line of a value that was read from the hardware daemon on this machine."""
    return info(f"Opened local bus for {operation}")


CAMERA_LINES = [
    info(f"{CAMERA} GetAutoRotateCameraConnected: True"), info(f"{CAMERA} GetCameraRollAngle: 12"),
    info(f"{CAMERA} GetTiltsenseCameraConnected: True"), info(f"{CAMERA} GetCameraPitchAngle: -3"),
]
REEL_LINES = [
    opened("GetReelConnected"), info(f"{REEL} GetReelConnected reported True"),
    opened("GetReelDistanceAbsolute"), opened("GetReelDistanceSoftwareMode"), opened("GetReelDistanceRelative"),
    info(f"{REEL} Reel in relative mode. GetReelDistanceRelative: 234"),
    info(f"{REEL} reelDist: [valid, absCentimetres, relCentimetres] = [True, 1234, 234]"),
]
#: The address of a remote hardware daemon is read before each of the reel's values: the bus may change at any time.
REMOTE = [("hardware", "Get RemoteIP"), ("hardware", "Get RemoteDBusAddress")]


@dataclass(frozen=True)
class Paths:
    """The files of a recording."""
    media: str

    @property
    def _hidden(self):
        folder, name = os.path.split(self.media)
        return os.path.join(folder, "." + os.path.splitext(name)[0])

    @property
    def rec_active(self):
        """The marker of a recording in progress."""
        return self._hidden + "-recActive"

    @property
    def recovery(self):
        """What the video daemon mends a broken recording with."""
        return self._hidden + "-recovery"

    @property
    def snapshot(self):
        """The picture that goes with the recording."""
        return os.path.splitext(self.media)[0] + ".jpeg"

    @property
    def names(self):
        """The names of the markers and the file, sorted."""
        return sorted(map(os.path.basename, (self.rec_active, self.recovery, self.media)))


@dataclass(frozen=True)
class Kind:
    """A kind of recording: what it calls itself, and how it is spelled where the kinds differ."""
    name: str  # at the simulated video daemon
    prefix: str  # of the members and operations
    member: str  # at the video daemon
    constant: str  # of the state's line
    suffix: str
    media_type: str
    adder: str
    adder_operation: str
    path_operation: str
    path_word: str  # opens the line of the path
    limit: tuple
    order_text: str  # of the order to the video daemon
    stop_text: str
    state_word: str
    word: str
    stopped_text: str
    filepath_word: str
    threshold_failed: str
    threshold_true: str

    def __str__(self):
        return self.name

    # Signatures -------------------------------------------------------------------------------------------------------

    @property
    def capture(self):
        """The class."""
        return f"ControllerDaemon::{self.prefix}Capture::"

    def _code(self, operation, types=""):
        return f"static DbusHelper::CaptureErrorCode {self.capture}{self.prefix}Record{operation}({types})"

    start = property(lambda self: self._code("Start", "uint32_t, uint32_t, uint32_t"))
    stop = property(lambda self: self._code("Stop"))
    cancel = property(lambda self: self._code("Cancel"))
    pause = property(lambda self: self._code("Pause"))
    resume = property(lambda self: self._code("Resume"))
    state = property(lambda self: f"static void {self.capture}{self.prefix}RecordStateChangedHandler(int32_t)")
    grown = property(lambda self: f"static void {self.capture}{self.prefix}GrownHandler(std::string, bool)")
    storage = property(lambda self: f"static void {self.capture}StoragePropertiesChangedHandler(std::string, "
                                    "const sdbus_utils::PropertyMap&)")
    removed = property(lambda self: f"static void {self.capture}StorageRemovedHandler(std::string, "
                                    "const std::vector<std::__cxx11::basic_string<char> >&)")
    invalid = property(lambda self: f"static void {self.capture}StopAndCancelInvalidRecordings()")
    update = property(lambda self: f"static void {self.capture}UpdateMediaItem(const std::string&)")

    # Calls ------------------------------------------------------------------------------------------------------------

    state_call = property(lambda self: ("video", f"Get {self.member}State"))
    filename_call = property(lambda self: ("video", f"Get {self.member}Filename"))
    previous_call = property(lambda self: ("video", f"Get Previous{self.member}Filename"))
    start_call = property(lambda self: ("video", f"Start{self.member}"))
    stop_call = property(lambda self: ("video", f"Stop{self.member}"))
    add_call = property(lambda self: ("jobs", self.adder))

    @property
    def start_calls(self):
        """What a start asks, in its order, of a unit with every camera feature and a reel in relative mode."""
        return [
            self.state_call,
            ("jobs", "GetNewMediaPathComponents"),
            ("storage", "GetManagedObjects"),
            ("storage", "Get StorageIsBelowMinimumLevel"),
            ("hardware", "GetPowerSufficientForAction"),
            ("video", "Get AutoRotateCapable"),
            ("video", "Get CameraRollAngleRaw"),
            ("video", "Get TiltsenseCapable"),
            ("video", "Get CameraPitchAngle"),
            *REMOTE, ("hardware", "Get Connected"),
            *REMOTE, ("hardware", "Get Absolute"),
            *REMOTE, ("hardware", "Get Mode"),
            *REMOTE, ("hardware", "Get Relative"),
            self.add_call,
            self.start_call,
        ]

    @property
    def started_calls(self):
        """What the video daemon's news that it records makes the daemon ask."""
        return [self.filename_call, ("jobs", "UpdateMediaFileSizes")]

    @property
    def stop_calls(self):
        """What a stop asks."""
        return [self.stop_call, self.previous_call, ("jobs", "UpdateMediaFileSizes")]

    @property
    def stopped_calls(self):
        """... and the news that it is off: the check orders one more stop, which the video daemon refuses."""
        return [self.state_call, self.stop_call]

    # Lines ------------------------------------------------------------------------------------------------------------

    def path_lines(self, paths):
        """The lines of allocating the path."""
        return [info("Controller - StorageManager::GetFilepathComponents"), debug("GetNewMediaPathComponents"),
                info(f"{self.path_word} file {paths.media} ok"), info(f"{self.start} RecordingFile {paths.media}\n")]

    @staticmethod
    def storage_lines(low=False):
        """The lines of the storage check."""
        return [info(f"GetPathFromFilename() ok {CARD}"), info(f"StorageSpaceBelowMiniumThreshold = {int(low)}")]

    def power_line(self, word="sufficient"):
        """The line of the power check."""
        return debug(f"{self.prefix}Capture::{self.prefix}RecordStart: GetPowerSufficientForAction reported {word} "
                     "power.")

    def added(self, code=0, text="Succeeded"):
        """The lines of adding the media item."""
        return [debug(self.adder_operation),
                error(f"libjobsdaemon::JobsManager::{self.adder_operation}: sd_bus_message_read ok. "
                      f"rtnCode = {code}, Error - {text}")]

    def order_line(self, paths, width=1920, height=1080, quality=90):
        """The line of the order to the video daemon."""
        return debug(f"Videod: VideoDaemonDbusHandler::{self.order_text} {paths.media}, Recovery {paths.recovery}, "
                     f"Snapshot {paths.snapshot}, Snapshot width {width}, height {height}, quality {quality}")

    def start_lines(self, paths):
        """All lines of a start that succeeds."""
        return [info(f"{self.start} called"), *self.path_lines(paths), *self.storage_lines(), self.power_line(),
                *CAMERA_LINES, *REEL_LINES, *self.added(), self.order_line(paths),
                info(f"{self.start}: Started recording"), reason(0)]

    def state_lines(self, state):
        """The lines of a state that the video daemon announced."""
        return [debug(f"{EMIT} {self.constant}"), info(f"{self.state} called"),
                info(f"{self.state} {self.state_word} record state -> {state}")]

    def started_lines(self):
        """The lines of the video daemon's news that it records."""
        return [*self.state_lines(1), debug("UpdateMediaFileSizes")]

    @property
    def stop_order_line(self):
        """The line of the order to stop."""
        return debug(f"Videod: VideoDaemonDbusHandler::{self.stop_text}")

    def stop_lines(self):
        """The lines of a stop that succeeds, without its answer."""
        return [debug(f"{self.stop}: called"), self.stop_order_line, info(f"{self.stop} {self.stopped_text}"),
                debug("UpdateMediaFileSizes")]

    @property
    def off_line(self):
        """The line of a check that finds the recording off."""
        return error(f"{self.invalid} Failed to get {self.word} state from video-daemon, or recording is 'off'. "
                     "Cancelling anyway...")

    def stopped_lines(self):
        """The lines of the video daemon's news that it is off."""
        return [*self.state_lines(0), info(f"{self.invalid} enter"), self.off_line, debug(f"{self.cancel}: called"),
                self.stop_order_line, error(f"{self.cancel} Failed to stop recording"), info(f"{self.invalid} leave")]

    def no_progress_line(self, handler):
        """The line of a storage event without such a recording."""
        return info(f"{handler} no {self.state_word} recording in progress")

    # Deeds ------------------------------------------------------------------------------------------------------------

    def first_paths(self, unit):
        """The files of the first recording of a fresh unit."""
        return Paths(os.path.join(unit.media, "job1", "media", f"0001{self.suffix}"))

    def order(self, unit, operation, *arguments):
        """Calls one of the kind's members; returns its answer."""
        return unit.client.call(f"{self.prefix}Record{operation}", "u" * len(arguments), *arguments)

    def start_recording(self, unit):
        """Starts a recording that must succeed, and waits until its news have been dealt with; returns its files."""
        assert self.order(unit, "Start", 1920, 1080, 90) == (0, MESSAGES[0])
        unit.settle()
        return Paths(unit.video.orders[self.name].path)


VIDEO = Kind(
    name="video", prefix="Video", member="Recording", constant="VIDEO_DAEMON_PROP_RECORDING_STATE", suffix=".mp4",
    media_type="video recording", adder="AddVideoMedia", adder_operation="AddVideoMediaItem",
    path_operation="GetNextVideoRecordingPath: Failed to get new video file path", path_word="Video",
    limit=(2, "Video file size limit reached."), order_text="StartRecord Video", stop_text="StopRecording",
    state_word="video", word="video", stopped_text="Stopped video recording", filepath_word="videoFilepath",
    threshold_failed="GetStorageSpaceBelowMinimumThreshold() failed",
    threshold_true="StorageSpaceBelowMiniumThreshold() is true - failed to start recording")
PHOTO_TALK = Kind(
    name="photoTalk", prefix="PhotoTalk", member="PhotoTalk", constant="VIDEO_DAEMON_PROP_PHOTO_TALK_STATE",
    suffix="-photoTalk.mp4", media_type="photoTalk recording", adder="AddPhotoTalkMedia",
    adder_operation="AddPhotoTalkMediaItem",
    path_operation="GetNextPhotoTalkPath: Failed to get new photoTalk file path", path_word="Phototalk",
    limit=(1, "PhotoTalk file size limit reached."), order_text="PhotoTalkStart PhotoTalk",
    stop_text="PhotoTalkStop", state_word="photoTalk", word="photoTalk", stopped_text="Stopped photoTalk recording",
    filepath_word="photoTalkFilepath", threshold_failed="GetStorageSpaceBelowMinimumThreshold() failed",
    threshold_true="StorageSpaceBelowMiniumThreshold is true - failed to start recording")
AUTO_LOG = Kind(
    name="autolog", prefix="AutoLog", member="AutoLog", constant="VIDEO_DAEMON_PROP_AUTO_LOG_STATE",
    suffix="-autolog.mp4", media_type="autolog recording", adder="AddAutologMedia",
    adder_operation="AddAutologMediaItem", path_operation="GetNextAutoLogPath: Failed to get new autolog file path",
    path_word="Autolog", limit=(0, "Autolog file size limit reached."), order_text="AutoLogStart Video",
    stop_text="AutoLogStop", state_word="autoLog", word="autolog", stopped_text="Stopped autoLog",
    filepath_word="autologFilepath", threshold_failed="BelowMinimumThreshold() failed",
    threshold_true="StorageSpaceBelowMiniumThreshold is true - failed to start recording")

#: In the order in which they hear of the siblings' news.
KINDS = [AUTO_LOG, VIDEO, PHOTO_TALK]


def others(kind, handler):
    """The lines and calls of the other kinds about a storage event, before and after the kind's own."""
    def of(kinds):
        return ([each.no_progress_line(getattr(each, handler)) for each in kinds],
                [each.state_call for each in kinds])

    position = KINDS.index(kind)
    return of(KINDS[:position]), of(KINDS[position + 1:])


def lines_of(unit, since=0):
    """What the daemon has logged since the mark, as (priority, text)."""
    return [(line.priority, line.text) for line in unit.log.since(since)]


class Watch:
    """What a step adds to the log and to the calls."""

    def __init__(self, unit):
        self._unit = unit
        self._log, self._calls = unit.log.mark(), unit.calls.mark()

    @property
    def lines(self):
        """The new lines."""
        return lines_of(self._unit, self._log)

    @property
    def calls(self):
        """The new calls."""
        return self._unit.calls.members(since=self._calls)


def signals_of(unit):
    """The daemon's own signals as (member, arguments)."""
    unit.settle()
    return [(signal.member, tuple(signal.args)) for signal in unit.client.announced]


def left_over(unit):
    """Every file in the job's media folder, markers included."""
    folder = os.path.join(unit.media, "job1", "media")
    return sorted(os.listdir(folder)) if os.path.isdir(folder) else []
