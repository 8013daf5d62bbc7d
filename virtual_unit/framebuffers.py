"""The display: two framebuffer devices as files of real pixels, which the preloaded library puts in their place."""

import contextlib
import functools
import os
import struct

#: Layout of what FBIOGET_VSCREENINFO answers: the visible size, the virtual one, the offset and the bits of a pixel,
#: then 33 more numbers that nobody asks for.
_INFORMATION = struct.Struct("=7I132x")

VIDEO, INTERFACE = 0, 1
_DEFAULT_SIZE = (1280, 720)
_DEFAULT_BITS = {VIDEO: 24, INTERFACE: 32}
#: What stands around the visible window of a virtual screen.
_OUTSIDE = b"\xa5"


@functools.lru_cache(maxsize=4)
def video_picture(width, height):
    """What a camera might show: blue grows to the right, green downwards, red to the left."""
    ramp = bytes(x * 255 // max(width - 1, 1) for x in range(width))
    row = bytearray(3 * width)
    row[0::3], row[2::3] = ramp, ramp[::-1]
    rows = []
    for y in range(height):
        row[1::3] = bytes([y * 255 // max(height - 1, 1)]) * width
        rows.append(bytes(row))
    return b"".join(rows)


@functools.lru_cache(maxsize=4)
def interface_picture(width, height):
    """What an interface might show: an opaque bar at the top, a translucent panel at the left with buttons on it, a
    shadow that fades out to its right, and the clear video elsewhere."""
    bar, panel, fade = height // 10, width // 5, width // 20
    shadow = b"".join(bytes((0, 0, 0, 128 - 128 * x // max(fade, 1))) for x in range(fade))
    clear = bytes(4) * (width - panel - fade)
    margin = panel // 8
    edge = b"\x30\x20\x10\x80" * margin
    button = edge + b"\x20\xc0\xf0\xff" * (panel - 2 * margin) + edge
    plain = b"\x30\x20\x10\x80" * panel
    step = max(height // 8, 1)
    rows = [b"\x40\x40\x40\xff" * width] * bar
    rows += [(button if (y // step) % 2 else plain) + shadow + clear for y in range(bar, height)]
    return b"".join(rows)


class Framebuffers:
    """The devices are named by their number: 0 the video layer, 1 the interface layer.  Both are there from the start,
    1280 x 720, with a picture."""

    def __init__(self, directory):
        self.directory = self._directory = os.path.join(directory, "framebuffers")
        os.mkdir(self._directory)
        for device in (VIDEO, INTERFACE):
            self.set(device, *_DEFAULT_SIZE)

    @property
    def environment(self):
        """What the preloaded library has to know."""
        return {"CCU_FRAMEBUFFERS": self._directory}

    def path(self, device):
        """The file that holds a device's pixels."""
        return os.path.join(self._directory, f"fb{device}")

    def set(self, device, width, height, bits=None, xres_virtual=None, yres_virtual=None, xoffset=0, yoffset=0,
            pixels=None):
        """Gives a device its screen.  `pixels` are those of the visible window, row after row without padding; a
        picture when None.  The virtual screen is as large as it must be unless it is told to be larger."""
        bits = bits or _DEFAULT_BITS[device]
        xres_virtual = xres_virtual or xoffset + width
        yres_virtual = yres_virtual or yoffset + height
        if pixels is None:
            pixels = (video_picture if device == VIDEO else interface_picture)(width, height)
        pixel, length = bits // 8, width * bits // 8
        left, right = _OUTSIDE * (xoffset * pixel), _OUTSIDE * ((xres_virtual - xoffset - width) * pixel)
        outside = _OUTSIDE * (xres_virtual * pixel)
        rows = [left + pixels[y * length:(y + 1) * length] + right for y in range(height)]
        with open(self.path(device), "wb") as file:
            file.write(b"".join([outside * yoffset, *rows, outside * (yres_virtual - yoffset - height)]))
        self.announce(device, width, height, bits, xres_virtual, yres_virtual, xoffset, yoffset)

    def announce(self, device, width, height, bits, xres_virtual, yres_virtual, xoffset=0, yoffset=0):
        """Has a device tell of a screen, true or not."""
        with open(self.path(device) + ".info", "wb") as file:
            file.write(_INFORMATION.pack(width, height, xres_virtual, yres_virtual, xoffset, yoffset, bits))

    def screens(self):
        """Width, height, bits of a pixel and file of each device that tells of its screen."""
        screens = []
        for device in (VIDEO, INTERFACE):
            with contextlib.suppress(OSError, struct.error), open(self.path(device) + ".info", "rb") as file:
                width, height, *_, bits = _INFORMATION.unpack(file.read())
                screens.append((width, height, bits, self.path(device)))
        return screens

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
