"""The unit's display for a page: of each framebuffer the part that has changed, as a picture.

The page lays the interface over the video, as the unit's display does.  It gets the next picture when it has shown the
last one, and none when nothing has changed.
"""

import asyncio
import io
import os
import re
import struct
from dataclasses import dataclass

from PIL import Image, ImageChops

from ..framebuffers import upside_down

VIDEO, INTERFACE = 0, 1
#: Before each picture: the number that the page acknowledges, the layer, the layer's width and height, and the place.
HEAD = struct.Struct(">IHHHHH2x")

#: What FBIOGET_VSCREENINFO answers begins with: the visible size, the virtual one, the offset and the bits of a pixel.
_INFORMATION = struct.Struct("=7I")
#: By bits of a pixel, the order of bytes that the unit's display has.
_ORDER = {24: ("RGB", "BGR"), 32: ("RGBA", "BGRA")}


@dataclass(frozen=True, eq=False)
class Frame:
    """The pixels of a layer at one time, with those around the visible window."""
    width: int
    height: int
    line: int
    offset: int
    bits: int
    pixels: bytes
    is_video: bool

    def image(self, mode, order):
        """The visible window, as it is seen."""
        whole = Image.frombuffer(mode, (self.line, self.height), self.pixels, "raw", order, 0, 1)
        window = whole.crop((self.offset, 0, self.offset + self.width, self.height))
        return upside_down(window) if self.is_video else window

    @property
    def plain(self):
        """As an image in which every byte counts; RGBA would not do, whose differences are taken for transparent."""
        return self.image(*(("RGB", "RGB") if self.bits == 24 else ("CMYK", "CMYK")))

    @property
    def _shape(self):
        return self.width, self.height, self.line, self.offset, self.bits

    def changed(self, before):
        """The box in which it differs from the frame before, None when it does not."""
        if before is None or before._shape != self._shape:
            return (0, 0, self.width, self.height)
        if before.pixels == self.pixels:
            return None
        return ImageChops.difference(before.plain, self.plain).getbbox()

    def encode(self, layer, box):
        """The picture of a box."""
        picture = io.BytesIO()
        image = self.image(*_ORDER[self.bits]).crop(box)
        if layer == VIDEO:
            image.convert("RGB").save(picture, "JPEG", quality=88)
        else:
            image.save(picture, "PNG", compress_level=1)
        return picture.getvalue()


def read(path, is_video):
    """What the file of a framebuffer shows, of the video's one or of the interface's; None when it is none that the unit
    could show."""
    try:
        with open(path + ".info", "rb") as file:
            width, height, line, _, offset, skipped, bits = _INFORMATION.unpack(file.read(_INFORMATION.size))
        with open(path, "rb") as file:
            length = line * bits // 8
            pixels = os.pread(file.fileno(), height * length, skipped * length)
    except (OSError, struct.error):
        return None
    if bits not in _ORDER or len(pixels) < height * length or not 0 < width <= line - offset:
        return None
    return Frame(width, height, line, offset, bits, pixels, is_video)


def paths(screens):
    """The files of the layers, by their number, of what the control object says of the framebuffers."""
    found = {int(match[1]): path for *_, path in screens if (match := re.search(r"fb(\d+)$", path))}
    return {layer: path for layer, path in found.items() if layer in (VIDEO, INTERFACE)}


class Viewer:
    """One page that looks at the display."""

    def __init__(self, front, look):
        self._front = front  # the state of the noun, which somebody else keeps up to date
        self._look = look  # has the unit draw what there is to see now, which it does for those who ask
        self._unseen = True
        self._shown, self._paths = {}, {}
        self._stale = {VIDEO, INTERFACE}
        self._number = self._acknowledged = 0
        self._stirred = asyncio.Event()
        self._stirred.set()

    def note(self, changes):
        """The noun has changed."""
        if "Frames" in changes or "Screens" in changes:
            self._stale, self._unseen = {VIDEO, INTERFACE}, True
            self._stirred.set()

    def acknowledge(self, number):
        """The page has shown a picture."""
        self._acknowledged = number
        self._stirred.set()

    async def next(self):
        """Waits until there is something to show and the page has shown what it got; returns the message."""
        while True:
            await self._stirred.wait()
            self._stirred.clear()
            while self._acknowledged == self._number and self._stale:
                if self._unseen:
                    self._unseen = False
                    await self._look()
                message = await asyncio.to_thread(self._picture, self._stale.pop())
                if message is not None:
                    self._stirred.set()
                    return message

    def _picture(self, layer):
        # A layer whose information is being written is not among those that there are; its file tells what is so.
        self._paths.update(paths(self._front.get("Screens", ())))
        path, before = self._paths.get(layer), self._shown.get(layer)
        frame = read(path, layer == VIDEO) if path else None
        if frame is None:
            if before is None or os.path.exists(path) and os.path.exists(path + ".info"):
                return None  # it is being written; somebody will tell when it is whole
            self._shown[layer] = None
            return self._head(layer, 0, 0, 0, 0)
        box = frame.changed(before)
        if box is None:
            return None
        self._shown[layer] = frame
        return self._head(layer, frame.width, frame.height, *box[:2]) + frame.encode(layer, box)

    def _head(self, layer, *place):
        self._number = (self._number + 1) % 2 ** 32
        return HEAD.pack(self._number, layer, *place)
