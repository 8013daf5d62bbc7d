"""The display: two framebuffer devices as files of real pixels, which the preloaded library puts in their place.

The unit draws into them what is to be seen (`picture.py`), but only when somebody looks: the daemon, whose preloaded
library asks at the unit's door before it says how large a screen is, and waits; and clients of the control object, by
reading `Screens`.  Until then a new screen is black and its interface clear.

A device that somebody else has given pixels, a test by `set` or a program that has written to the file, is theirs: the
unit draws no more into it until it gets its screen anew.
"""

import contextlib
import os
import socket
import struct
import traceback
from typing import NamedTuple

from gi.repository import GLib

from .loop import on_loop

#: Layout of what FBIOGET_VSCREENINFO answers: the visible size, the virtual one, the offset and the bits of a pixel,
#: then 33 more numbers that nobody asks for; and behind it whether the unit draws into the device.
_INFORMATION = struct.Struct("=7I132x?")

VIDEO, INTERFACE = 0, 1
_DEFAULT_SIZE = (1280, 720)
_DEFAULT_BITS = {VIDEO: 24, INTERFACE: 32}
#: What stands around the visible window of a virtual screen.
_OUTSIDE = b"\xa5"
#: When a device's file was changed last, in nanoseconds since the epoch, if that was done here: as nobody else would.
_OWN_TIME = 1


class Screen(NamedTuple):
    """What a device tells of its screen, and whether the unit draws into it."""
    width: int
    height: int
    xres_virtual: int
    yres_virtual: int
    xoffset: int
    yoffset: int
    bits: int
    drawn: bool = False

    @property
    def size(self):
        """Bytes of the whole virtual screen."""
        return self.xres_virtual * self.yres_virtual * self.bits // 8

    def surrounded(self, pixels):
        """The bytes of the whole virtual screen, with these in its window, row after row without padding."""
        if len(pixels) == self.size:
            return pixels
        pixel, length = self.bits // 8, self.width * self.bits // 8
        left, right = (_OUTSIDE * (count * pixel)
                       for count in (self.xoffset, self.xres_virtual - self.xoffset - self.width))
        outside = _OUTSIDE * (self.xres_virtual * pixel)
        rows = [left + pixels[y * length:(y + 1) * length] + right for y in range(self.height)]
        below = self.yres_virtual - self.yoffset - self.height
        return b"".join([outside * self.yoffset, *rows, outside * below])

    def window(self, content):
        """The pixels of the window, out of the bytes of the whole."""
        if (self.width, self.height) == (self.xres_virtual, self.yres_virtual):
            return content
        pixel, length = self.bits // 8, self.width * self.bits // 8
        starts = (((self.yoffset + y) * self.xres_virtual + self.xoffset) * pixel for y in range(self.height))
        return b"".join(content[start:start + length] for start in starts)


def screen_of(path):
    """The screen of the device with that file, None when it tells of none."""
    with contextlib.suppress(OSError, struct.error), open(path + ".info", "rb") as file:
        return Screen(*_INFORMATION.unpack(file.read()))
    return None


class Framebuffers:
    """The devices are named by their number: 0 the video layer, 1 the interface layer.  Both are there from the start,
    1280 x 720, for the unit to draw into."""

    def __init__(self, directory, painter):
        self.directory = self._directory = os.path.join(directory, "framebuffers")
        self._painter = painter
        #: What each device shows of a scene, None once that is known to be another; and whether it was drawn at all.
        self._shown, self._drawn = [None, None], [False, False]
        #: The devices whose scene has become another since `outdated` was asked.
        self._outdated = set()
        #: Called after something has been drawn.
        self.changed = lambda: None
        os.mkdir(self._directory)
        self.renew()
        self._door_path = os.path.join(directory, "display")
        self._door = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | socket.SOCK_NONBLOCK | socket.SOCK_CLOEXEC)
        self._door.bind(self._door_path)
        self._door.listen()
        self._source = GLib.io_add_watch(self._door.fileno(), GLib.PRIORITY_HIGH, GLib.IO_IN, self._answer_door)

    @on_loop
    def close(self):
        """Lets nobody wait any more."""
        if self._door is not None:
            GLib.source_remove(self._source)
            self._door.close()
            self._door = None

    @property
    def environment(self):
        """What the preloaded library has to know."""
        return {"CCU_FRAMEBUFFERS": self._directory, "CCU_DISPLAY": self._door_path}

    def path(self, device):
        """The file that holds a device's pixels."""
        return os.path.join(self._directory, f"fb{device}")

    @on_loop
    def renew(self):
        """Makes both devices what they are from the start, whatever has become of them."""
        for device in (VIDEO, INTERFACE):
            if os.path.isdir(self.path(device)):  # since reads were to fail
                os.rmdir(self.path(device))
            self.set(device, *_DEFAULT_SIZE)

    # Screens ----------------------------------------------------------------------------------------------------------

    @on_loop
    def set(self, device, width, height, bits=None, xres_virtual=None, yres_virtual=None, xoffset=0, yoffset=0,
            pixels=None):
        """Gives a device its screen.  `pixels` are those of the visible window, row after row without padding; the unit
        draws them when None.  The virtual screen is as large as it must be unless it is told to be larger."""
        usual = _DEFAULT_BITS[device]
        screen = Screen(width, height, xres_virtual or xoffset + width, yres_virtual or yoffset + height, xoffset,
                        yoffset, bits or usual, pixels is None and bits in (None, usual))
        with open(self.path(device), "wb") as file:
            if pixels is None:
                file.truncate(screen.size)
            else:
                file.write(screen.surrounded(pixels))
        self._tell(device, screen)
        self._shown[device], self._drawn[device] = None, False
        self._mark(device)

    def announce(self, device, width, height, bits, xres_virtual, yres_virtual, xoffset=0, yoffset=0):
        """Has a device tell of a screen, true or not."""
        self._tell(device, Screen(width, height, xres_virtual, yres_virtual, xoffset, yoffset, bits))

    def _tell(self, device, screen):
        told = self.path(device) + ".info"
        with open(told + ".new", "wb") as file:
            file.write(_INFORMATION.pack(*screen))
        os.replace(told + ".new", told)  # whoever asks meanwhile is told of the screen of before

    def screens(self):
        """Width, height, bits of a pixel and file of each device that tells of its screen."""
        found = ((screen_of(self.path(device)), self.path(device)) for device in (VIDEO, INTERFACE))
        return [(screen.width, screen.height, screen.bits, path) for screen, path in found if screen is not None]

    def hush(self, device):
        """Has a device refuse to tell of its screen, as one that is no framebuffer."""
        os.unlink(self.path(device) + ".info")

    def cut(self, device, length):
        """Ends a device after so many bytes."""
        os.truncate(self.path(device), length)

    def break_reads(self, device):
        """Has every read of a device fail; it can still be opened and tells of its screen."""
        os.unlink(self.path(device))
        os.mkdir(self.path(device))

    def remove(self, device):
        """Takes a device away."""
        os.unlink(self.path(device))

    def adopt(self):
        """Takes the files as they are for what was written here."""
        for device in (VIDEO, INTERFACE):
            self._shown[device], self._drawn[device] = None, False
            with contextlib.suppress(FileNotFoundError):
                self._mark(device)

    # Drawing ----------------------------------------------------------------------------------------------------------

    def _mark(self, device):
        os.utime(self.path(device), ns=(_OWN_TIME, _OWN_TIME))

    def _is_marked(self, device):
        try:
            return os.stat(self.path(device)).st_mtime_ns == _OWN_TIME
        except OSError:
            return False

    def was_drawn(self, device):
        """Whether the last who wrote to a device was the unit, drawing."""
        return self._drawn[device] and self._is_marked(device)

    def disown(self):
        """Leaves the devices that others have written to for good to them."""
        for device in (VIDEO, INTERFACE):
            screen = screen_of(self.path(device))
            if screen is not None and screen.drawn and not self._is_marked(device):
                self._tell(device, screen._replace(drawn=False))

    @on_loop
    def draw(self):
        """Has the devices show what is to be seen now, those that are the unit's to draw into."""
        scene = self._painter.scene()
        self._compare(scene)
        self.disown()
        for device in (VIDEO, INTERFACE):
            screen = screen_of(self.path(device))
            if screen is None or not screen.drawn or self._shown[device] == scene[device]:
                continue
            image = self._painter.layer(scene[device], screen.width, screen.height)
            pixels = upside_down(image).tobytes("raw", "BGR") if device == VIDEO else image.tobytes("raw", "BGRA")
            with open(self.path(device), "r+b") as file:
                file.write(screen.surrounded(pixels))
            self._mark(device)
            self._shown[device], self._drawn[device] = scene[device], True
            self.changed()

    def outdated(self):
        """The devices that have shown what is not to be seen any more, each told once until it is drawn again."""
        if any(self._shown):
            self._compare(self._painter.scene())
        found, self._outdated = self._outdated, set()
        return found

    def _compare(self, scene):
        for device in (VIDEO, INTERFACE):
            if self._shown[device] not in (None, scene[device]):
                self._shown[device] = None
                self._outdated.add(device)

    def seconds_left(self):
        """When to ask `outdated` again if nothing else happens; None while nobody has looked since the last time."""
        return self._painter.seconds_left() if self._shown[INTERFACE] is not None else None

    def _answer_door(self, *_):
        """Draws before whoever has come is let go."""
        with contextlib.suppress(OSError), self._door.accept()[0]:
            try:
                self.draw()
            except Exception:  # pylint: disable=broad-except
                self._painter.fail(traceback.format_exc())
        return GLib.SOURCE_CONTINUE


def upside_down(image):
    """A picture as the video layer holds it, and one of the video layer as it is seen: it stands upside down, one row
    too low, so that its top row is not seen and that of the display is black."""
    from PIL import Image  # pylint: disable=import-outside-toplevel
    turned = Image.new(image.mode, image.size)
    turned.paste(image.transpose(Image.Transpose.FLIP_TOP_BOTTOM), (0, 1))
    return turned
