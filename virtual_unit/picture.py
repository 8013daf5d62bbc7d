"""What there is to be seen on the unit: the camera's picture of the pipe that it is in, and the overlay on it.

`Painter.scene` says what that is now, as values; `camera` and `overlay` draw it, for the framebuffers (and so the
display and the daemon's screenshots) and for the video daemon's snapshots.  Nothing is drawn before somebody asks.

The camera is at the reel's absolute distance, turned and tilted by its angles, with the lamps as bright as the
hardware daemon says.  The video daemon turns its picture back where "RotationEnabled" is set, in steps of
"RotationSteps" degrees or by "RotationOverrideAngle", and magnifies it by "CaptureZoom".  A camera that is lost, or has
no power, gives a blue picture; a film that is played back shows a pipe from its beginning on, as far as it has been
played; there is a black picture without live video or a video daemon.
"""

import ctypes
import datetime
import functools
import io
import math
import os
from dataclasses import dataclass
from typing import NamedTuple

_CAMERA, _BLUE, _BLACK = "camera", (10, 24, 150), (0, 0, 0)
#: The camera's own resolution; larger pictures are made of these.
_SENSOR = (640, 360)
#: Metres that the camera of a film moves in a second.
_FILM_SPEED = 0.1
#: Brightness of lamps at their half.
_HALF_LIGHT = 50
#: The overlay is laid out for a screen of this size, and has no text on one that is smaller than a tenth of it.
_LAYOUT = (1280, 720)
_FONT = "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf"
_BAND, _WHITE, _GREY, _AMBER, _RED = (0, 0, 0, 130), (255, 255, 255), (190, 200, 205), (255, 214, 92), (255, 59, 48)
_SIGNS = {"video": "REC", "photoTalk": "PHOTO TALK", "autolog": "AUTO LOG"}
_OFF, _RECORDING, _PAUSED = 0, 1, 2
_LONGEST_LINE = 60


@dataclass(frozen=True)
class View:
    """What the first framebuffer shows: the pipe, or a plain colour."""
    source: object = _CAMERA
    distance: float = 0.0
    roll: float = 0.0
    pitch: float = 0.0
    zoom: float = 1.0
    light: float = 1.0


@dataclass(frozen=True)
class Overlay:
    """What the second framebuffer shows over it, as texts; `signs` are those of recordings, with whether they pause."""
    moment: str = ""
    distance: str = ""
    counter: str = ""
    angles: str = ""
    signs: tuple = ()
    notice: str = ""
    remark: str = ""
    shown: bool = True


class Scene(NamedTuple):
    """What is to be seen, in the order of the framebuffers."""
    view: View
    overlay: Overlay


# What is to be seen ---------------------------------------------------------------------------------------------------


def _minutes(seconds):
    return f"{int(seconds) // 60:02}:{int(seconds) % 60:02}"


@functools.lru_cache(maxsize=4)
def _zone(path):
    import zoneinfo  # pylint: disable=import-outside-toplevel
    with open(path, "rb") as file:
        return zoneinfo.ZoneInfo.from_file(file)


def _angle(text):
    try:
        return float(text) if math.isfinite(float(text)) else 0.0
    except ValueError:
        return 0.0


def _line(text):
    """What there is room for, of a text from anywhere."""
    return text.partition("\n")[0][:_LONGEST_LINE]


def _shown_roll(video):
    """By how much the picture is turned, with what the video daemon has turned it back."""
    roll = video.get("CameraRollAngleRaw")
    if not video.get("RotationEnabled"):
        return float(roll)
    steps, override = _angle(video.get("RotationSteps")), _angle(video.get("RotationOverrideAngle"))
    return roll - (override or (round(roll / steps) * steps if steps else roll))


class Painter:
    """Sees what there is on a unit, and draws it."""

    def __init__(self, unit):
        self._unit = unit
        self._library = os.path.join(unit.build_dir, "virtual_unit", "preload", "libpipe.so")
        #: How many pictures have been asked for so far, each layer and each snapshot for one.
        self.drawn = 0

    def _video(self):
        video = self._unit.video
        return video if video is not None and video.alive else None

    def _reel(self):
        hardware = self._unit.hardware
        return hardware.reel if hardware is not None and hardware.alive else None

    def _view(self):
        """The first layer, and what is to be said of it in the overlay."""
        video, hardware = self._video(), self._unit.hardware
        if video is None:
            return View(_BLACK), "NO VIDEO"
        content = video.get("DisplayContent")
        if content == "playback" and video.get("PlaybackState") < 0:
            return View(_BLACK), "PLAYBACK ERROR"
        if content == "playback":
            return View(distance=video.get("PlaybackPosition") / 1000 * _FILM_SPEED), ""
        if content != "live":
            return View(_BLACK), ""
        if hardware is not None and not (hardware.video_status and hardware.has_camera_power):
            return View(_BLUE), "NO SIGNAL"
        return View(distance=hardware.reel["Absolute"] / 100 if hardware is not None else 0.0, roll=_shown_roll(video),
                    pitch=float(video.get("CameraPitchAngle")), zoom=video.get("CaptureZoom"),
                    light=hardware.lamps / _HALF_LIGHT if hardware is not None else 1.0), ""

    def _setting(self, section, key, usual):
        """A setting, or the usual one where there is none."""
        settings = self._unit.settings
        return usual if settings is None or section not in settings.sections() else settings.value(section, key)

    def _distance(self):
        """The counter's text, and what it counts."""
        reel, feet = self._reel(), self._setting("reel", "units", "metres") == "feet"
        if reel is None or not reel["Connected"]:
            return "--.-- " + ("ft" if feet else "m"), ""
        relative = reel["Mode"] == "relative"
        centimetres = reel["Relative" if relative else "Absolute"]
        return f"{centimetres / 30.48:.1f} ft" if feet else f"{centimetres / 100:.2f} m", "REL" if relative else "ABS"

    def _signs(self, video):
        return tuple((f"{sign} {_minutes(video.recorded_seconds(kind))}", video.state(kind) == _PAUSED)
                     for kind, sign in _SIGNS.items() if video.state(kind) != _OFF)

    def _now(self):
        """The unit's local time."""
        try:
            zone = _zone(os.path.realpath(self._unit.local_time_link))
        except (OSError, ValueError):
            zone = datetime.timezone.utc
        try:
            return f"{datetime.datetime.fromtimestamp(self._unit.clock.now(), zone):%Y-%m-%d  %H:%M}"
        except (OverflowError, ValueError, OSError):
            return "----------  --:--"

    def scene(self):
        """What is to be seen now."""
        view, notice = self._view()
        video = self._video()
        if not self._setting("overlay", "enabled", True):
            return Scene(view, Overlay(shown=False))
        distance, counter = self._distance()
        overlay = {"moment": self._now(), "distance": distance, "counter": counter, "notice": notice}
        if video is not None:
            playing = video.get("DisplayContent") == "playback" and video.get("PlaybackState") > 0
            position, duration = (_minutes(video.get(f"Playback{name}") / 1000) for name in ("Position", "Duration"))
            state = "PLAY" if video.get("PlaybackState") == 1 else "PAUSE"
            film = _line(os.path.basename(video.get("PlaybackFilename")))
            overlay.update(
                signs=self._signs(video), remark=_line(video.get("OverlayUserText")[2]),
                angles=f"{state}  {film}  {position} / {duration}" if playing else
                f"ROLL {video.get('CameraRollAngleRaw')}°   TILT {video.get('CameraPitchAngle')}°")
        return Scene(view, Overlay(**overlay))

    def seconds_left(self):
        """How long a scene lasts in which nothing happens but that time goes by."""
        video, now = self._video(), self._unit.clock.now()
        running = [video.recorded_seconds(kind) for kind in _SIGNS if video.state(kind) == _RECORDING] if video else []
        return min([60 - now % 60, *(1 - seconds % 1 for seconds in running)])

    def fail(self, text):
        """Notes that something could not be drawn."""
        self._unit.errors.append(text)

    # Pictures ---------------------------------------------------------------------------------------------------------

    def layer(self, part, width, height):
        """A view or an overlay as an image."""
        self.drawn += 1
        return camera(self._library, part, width, height) if isinstance(part, View) else overlay(part, width, height)

    def snapshot(self, width, height, quality):
        """The whole as a JPEG."""
        scene = self.scene()
        self.drawn += 1
        return _jpeg(self._library, scene, width, height, quality)


# Drawing --------------------------------------------------------------------------------------------------------------
# Pillow is loaded by whoever asks for the first picture: most units never draw one.


@functools.cache
def _pipe(library):
    draw = ctypes.CDLL(library).draw_pipe
    draw.argtypes = [ctypes.c_char_p, ctypes.c_int, ctypes.c_int] + [ctypes.c_double] * 5
    draw.restype = None
    return draw


def _within(least, most, value):
    """The value, or the nearest that makes sense."""
    return max(least, min(most, value))


@functools.lru_cache(maxsize=2)
def _sensed(library, view, width, height):
    pixels = ctypes.create_string_buffer(width * height * 3)
    _pipe(library)(pixels, width, height, _within(-1e5, 1e5, view.distance), math.radians(view.roll),
                   math.radians(_within(-60, 60, view.pitch)), _within(0.1, 100, view.zoom), _within(0, 10, view.light))
    return pixels.raw


@functools.lru_cache(maxsize=2)
def camera(library, view, width, height):
    """The camera's picture in RGB; `library` is the file of the one that is made of `pipe.c`."""
    from PIL import Image  # pylint: disable=import-outside-toplevel
    if view.source != _CAMERA:
        return Image.new("RGB", (width, height), view.source)
    part = min(1, _SENSOR[0] / width, _SENSOR[1] / height)
    size = max(round(width * part), 1), max(round(height * part), 1)
    sensed = Image.frombytes("RGB", size, _sensed(library, view, *size))
    return sensed.resize((width, height), Image.Resampling.BICUBIC)


@functools.lru_cache(maxsize=16)
def _font(size):
    from PIL import ImageFont  # pylint: disable=import-outside-toplevel
    return ImageFont.truetype(_FONT, size)


class _Sheet:
    """A transparent picture to write on, in the measures of the layout."""

    def __init__(self, width, height):
        from PIL import Image, ImageDraw  # pylint: disable=import-outside-toplevel
        self._scale = min(width / _LAYOUT[0], height / _LAYOUT[1])
        self.width, self.height = width / self._scale, height / self._scale
        self.image = Image.new("RGBA", (width, height))
        self._draw = ImageDraw.Draw(self.image)

    @property
    def is_legible(self):
        """Whether there is room for text."""
        return self._scale >= 0.1

    def _measured(self, *values):
        return [round(value * self._scale) for value in values]

    def band(self, top, bottom):
        """Darkens what is behind a line of text."""
        top, bottom = self._measured(top, bottom)
        self._draw.rectangle([0, top, self.image.width, bottom - 1], fill=_BAND)

    def text(self, x, y, text, size, colour, anchor):
        """Writes a text; returns where it begins and ends."""
        font, place = _font(max(round(size * self._scale), 1)), self._measured(x, y)
        self._draw.text(place, text, font=font, fill=colour, anchor=anchor, stroke_width=round(1.5 * self._scale),
                        stroke_fill=(0, 0, 0))
        begin, _, end, _ = self._draw.textbbox(place, text, font=font, anchor=anchor)
        return begin / self._scale, end / self._scale

    def sign(self, x, y, paused):
        """The red dot of a recording, or the two bars of one that pauses, to the left of a place."""
        if paused:
            for left in (x - 22, x - 10):
                self._draw.rectangle(self._measured(left, y - 12, left + 7, y + 12), fill=_AMBER)
        else:
            self._draw.ellipse(self._measured(x - 25, y - 12, x - 1, y + 12), fill=_RED)


@functools.lru_cache(maxsize=2)
def overlay(texts, width, height):
    """The overlay in RGBA."""
    sheet = _Sheet(width, height)
    if not texts.shown or not sheet.is_legible:
        return sheet.image
    right, bottom = sheet.width - 32, sheet.height
    sheet.band(0, 60)
    sheet.band(bottom - 84, bottom)
    sheet.text(32, 30, texts.moment, 30, _WHITE, "lm")
    end = right
    for text, paused in texts.signs:
        begin, _ = sheet.text(end, 30, text, 30, _AMBER if paused else _WHITE, "rm")
        sheet.sign(begin - 12, 30, paused)
        end = begin - 72
    _, end = sheet.text(32, bottom - 42, texts.distance, 52, _AMBER, "lm")
    sheet.text(end + 20, bottom - 34, texts.counter, 24, _GREY, "lm")
    sheet.text(right, bottom - 42, texts.angles, 26, _GREY, "rm")
    sheet.text(sheet.width / 2, bottom - 120, texts.remark, 30, _WHITE, "mm")
    sheet.text(sheet.width / 2, bottom / 2, texts.notice, 56, _WHITE, "mm")
    return sheet.image


def blend(bottom, top):
    """One image over the other, which has an alpha channel."""
    bottom = bottom.copy()
    bottom.paste(top, mask=top)
    return bottom


@functools.lru_cache(maxsize=4)
def _jpeg(library, scene, width, height, quality):
    file = io.BytesIO()
    blend(camera(library, scene.view, width, height), overlay(scene.overlay, width, height)).save(
        file, "JPEG", quality=quality)
    return file.getvalue()
