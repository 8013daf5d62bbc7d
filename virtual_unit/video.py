"""The video daemon: three recordings, snapshots and the player."""

import os
import time
from dataclasses import dataclass

from .loop import on_loop
from .sibling import Sibling

_PATH = "/com/tavilon/common/Video1"
_INTERFACE = _PATH[1:].replace("/", ".") + ".Control"

OFF, RECORDING, PAUSED = 0, 1, 2
STOPPED, PLAYING, PLAYBACK_PAUSED, PLAYBACK_BROKEN = 0, 1, 2, -1

_DONE, _REFUSED = 0, -1

#: The largest picture that the camera can take, in pixels.
LARGEST_PICTURE = (4096, 4096)

_FIRST_BYTES = b"\x00\x00\x00\x18ftypmp42" + bytes(1012)

_INITIAL = {
    "TiltsenseCapable": True, "AutoRotateCapable": True, "CameraRollAngle": "12", "CameraRollAngleRaw": 12,
    "CameraPitchAngle": -3, "RotationOverrideAngle": "0", "RotationSteps": "90",
    "CaptureZoom": 1.0, "CaptureZoomMin": 1.0, "CaptureZoomMax": 8.0,
    "CapturePanXMin": -1.0, "CapturePanXMax": 1.0, "CapturePanYMin": -1.0, "CapturePanYMax": 1.0,
    "PlaybackRate": 1.0, "StreamJpegQuality": 80, "StreamTcpQueueSize": 16, "CaptureAutogain": True,
    "CaptureBrightness": 50, "CaptureContrast": 50, "CaptureHue": 50, "CaptureSaturation": 50,
    "DisplayContent": "live", "InactiveCaptures": ["video", "photoTalk", "autolog"],
    "OverlayUserText": (0, 0, "", 0, ""),
}


@dataclass(frozen=True)
class Kind:
    """One kind of recording: its name in the capture lists, in the members and in the grew signal."""
    capture: str
    member: str
    grew: str

    @property
    def state(self):
        """Name of the state property."""
        return f"{self.member}State"

    @property
    def filename(self):
        """Name of the property that holds the file being written."""
        return f"{self.member}Filename"


KINDS = {
    "video": Kind("video", "Recording", "VideoGrew"),
    "photoTalk": Kind("photoTalk", "PhotoTalk", "PhotoTalkGrew"),
    "autolog": Kind("autolog", "AutoLog", "AutoLogGrew"),
}


@dataclass(frozen=True)
class Order:
    """How a recording was ordered."""
    path: str
    recovery: str
    snapshot: str
    width: int
    height: int
    quality: int


class Video(Sibling):
    """Changes are emitted before the call that causes them is answered, as the real daemon does."""

    name = "video"
    service = "com.tavilon.common.Video1"

    def __init__(self, unit, address):
        #: The last Order of each kind that was started.
        self.orders = {}
        #: How long each kind of recording had run when it last paused, and since when it runs, None when it does not.
        self.recorded = {}
        self.motion_detection_period = None
        super().__init__(unit, address)

    def initial_values(self, path):
        return _INITIAL

    def get(self, name):
        """The plain value of a property."""
        return self.get_property(_PATH, name)

    def set(self, name, value, emit=True):
        """Sets a property from outside, as the camera or the operator would."""
        self.set_property(_PATH, name, value, emit)

    def state(self, kind="video"):
        """State of a recording: OFF, RECORDING or PAUSED."""
        return self.get(KINDS[kind].state)

    def recorded_seconds(self, kind="video"):
        """How long a recording has run."""
        seconds, since = self.recorded.get(kind, (0.0, None))
        return seconds if since is None else seconds + max(time.monotonic() - since, 0)

    @on_loop
    def grow(self, kind="video", size=4096, approaching_limit=False):
        """The recording's file grows by that many bytes, which is announced."""
        path = self.get(KINDS[kind].filename)
        if path and size and os.path.isdir(os.path.dirname(path)):  # not on a storage that is gone
            with open(path, "ab") as file:
                file.write(bytes(size))
        self.emit(_PATH, _INTERFACE, KINDS[kind].grew, path, approaching_limit)

    @on_loop
    def change(self, kind, state, **others):
        """Puts a recording into a state, with the capture lists and other properties that go with it, in one change."""
        states = {name: self.get(item.state) for name, item in KINDS.items()}
        seconds = self.recorded_seconds(kind) if states[kind] != OFF else 0.0
        self.recorded[kind] = (seconds, time.monotonic() if state == RECORDING else None)
        states[kind] = state
        lists = {wanted: [name for name, value in states.items() if value == number]
                 for wanted, number in (("InactiveCaptures", OFF), ("ActiveCaptures", RECORDING),
                                        ("PausedCaptures", PAUSED))}
        self.set_properties(_PATH, {KINDS[kind].state: state, **lists, **others})

    @on_loop
    def lose_recordings(self):
        """The process has ended with its recordings: the one that comes back knows of none, and their files stay."""
        self.orders.clear()
        for kind in KINDS:
            self.change(kind, OFF, **{KINDS[kind].filename: "", f"Previous{KINDS[kind].filename}": ""})

    @on_loop
    def end(self, kind="video"):
        """A recording ends by itself."""
        self._stop(KINDS[kind])

    @on_loop
    def turn(self, roll=None, pitch=None):
        """The camera head is turned or tilted to an angle in degrees."""
        self.set_properties(_PATH, {
            **({} if roll is None else {"CameraRollAngleRaw": roll, "CameraRollAngle": str(roll)}),
            **({} if pitch is None else {"CameraPitchAngle": pitch})})

    def _has_room(self, path):
        return self.unit.storage is None or self.unit.storage.has_room(path)

    def _start(self, kind, *order):
        order = Order(*order)
        if self.get(kind.state) != OFF or not os.path.isdir(os.path.dirname(order.path)) or \
                not self._has_room(order.path):
            return _REFUSED
        with open(order.path, "wb") as file:
            file.write(_FIRST_BYTES)
        self.orders[kind.capture] = order
        self.change(kind.capture, RECORDING, **{kind.filename: order.path})
        return _DONE

    def _stop(self, kind):
        if self.get(kind.state) == OFF:
            return _REFUSED
        recovery = self.orders[kind.capture].recovery if kind.capture in self.orders else ""
        if recovery and os.path.exists(recovery):
            os.remove(recovery)
        self.change(kind.capture, OFF, **{f"Previous{kind.filename}": self.get(kind.filename), kind.filename: ""})
        return _DONE

    def _move(self, kind, before, after):
        if self.get(kind.state) != before:
            return _REFUSED
        self.change(kind.capture, after)
        return _DONE

    # Behaviours; those of the three recordings are made below --------------------------------------------------------

    def on_Snapshot(self, _path, path, width, height, quality):
        """Writes what the display shows as a picture of that size."""
        fits = 0 < width <= LARGEST_PICTURE[0] and 0 < height <= LARGEST_PICTURE[1] and 0 < quality <= 100
        if not fits or not os.path.isdir(os.path.dirname(path)) or not self._has_room(path):
            return _REFUSED
        with open(path, "wb") as file:
            file.write(self.unit.painter.snapshot(width, height, quality))
        return _DONE

    def on_SetMotionDetectionPeriod(self, _path, period):
        """Notes the period."""
        self.motion_detection_period = period
        return _DONE

    def on_StartPlayback(self, _path, file_name, rate):
        """Plays a file that exists, from its beginning."""
        if not os.path.isfile(file_name):
            return _REFUSED
        self.set_properties(_PATH, {"PlaybackState": PLAYING, "PlaybackFilename": file_name, "PlaybackRate": rate,
                                    "PlaybackPosition": 0, "PlaybackDuration": 60000, "DisplayContent": "playback"})
        return _DONE

    def on_StopPlayback(self, _path, exit_to_live):
        """Ends the playback; the display shows the live picture again if that is wished, else nothing."""
        if self.get("PlaybackState") == STOPPED:
            return _REFUSED
        self.set_properties(_PATH, {"PlaybackState": STOPPED, "PlaybackFilename": "", "PlaybackPosition": 0,
                                    "PlaybackDuration": 0, "DisplayContent": "live" if exit_to_live else "none"})
        return _DONE

    @on_loop
    def break_playback(self):
        """The player gives up, for example as it cannot read its file; it still has the file's name."""
        self.set("PlaybackState", PLAYBACK_BROKEN)

    def _move_playback(self, before, after):
        if self.get("PlaybackState") != before:
            return _REFUSED
        self.set("PlaybackState", after)
        return _DONE

    def on_PausePlayback(self, _path):
        """Holds the picture."""
        return self._move_playback(PLAYING, PLAYBACK_PAUSED)

    def on_ResumePlayback(self, _path):
        """Plays on."""
        return self._move_playback(PLAYBACK_PAUSED, PLAYING)

    def on_SeekPlayback(self, _path, position):
        """Moves within the file."""
        if self.get("PlaybackState") == STOPPED or not 0 <= position <= self.get("PlaybackDuration"):
            return _REFUSED
        self.set("PlaybackPosition", position)
        return _DONE

    def on_GetPlaybackProgress(self, _path):
        """Playing, paused, at the end; rate, duration and position."""
        state, position, duration = (self.get(f"Playback{name}") for name in ("State", "Position", "Duration"))
        return (state == PLAYING, state == PLAYBACK_PAUSED, state != STOPPED and position == duration,
                self.get("PlaybackRate"), duration, position)


def _make_recording_behaviours(kind):
    setattr(Video, f"on_Start{kind.member}", lambda self, _path, *order: self._start(kind, *order))
    setattr(Video, f"on_Stop{kind.member}", lambda self, _path: self._stop(kind))
    setattr(Video, f"on_Pause{kind.member}", lambda self, _path: self._move(kind, RECORDING, PAUSED))
    setattr(Video, f"on_Resume{kind.member}", lambda self, _path: self._move(kind, PAUSED, RECORDING))


for _kind in KINDS.values():
    _make_recording_behaviours(_kind)
