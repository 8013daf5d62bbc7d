"""A screenshot: what the display shows, as a file that a person can look at."""

import os
import shutil
import struct

from ..stage import ANSWERS

#: Size of the simulated display, in pixels.
_SIZE = (1280, 720)
_NAME = "demo-screenshot.png"


def play(stage):
    """A screenshot to look at, and two that cannot be taken."""
    _take(stage)
    _refuse(stage)
    stage.check_signals()


def _size(path):
    """Width and height of a PNG file, None when it is none."""
    with open(path, "rb") as file:
        head = file.read(24)
    return struct.unpack(">II", head[16:24]) if head[:8] == b"\x89PNG\r\n\x1a\n" and head[12:16] == b"IHDR" else None


def _take(stage):
    stage.tell("Support asks for a picture of the display: the daemon reads the video layer and the interface layer from "
               "their framebuffers, lays one over the other and writes a PNG into the folder that the client names.")
    reply = stage.call("Screenshot", stage.unit.directory)
    path = reply[0] if isinstance(reply, tuple) else ""
    stage.check("reply", reply[1:] if path else reply, (0, ANSWERS[0]))
    stage.check("the file is a PNG of the display's size", path and _size(path), _SIZE,
                f"{_SIZE[0]} x {_SIZE[1]} pixels")
    kept = os.path.join(os.environ.get("CCU_BUILD_DIR") or stage.unit.directory, _NAME)
    if path:
        shutil.copyfile(path, kept)
    stage.tell(f"Look at it: {os.path.relpath(kept)}")


def _refuse(stage):
    unit = stage.unit
    stage.tell("A folder that does not exist is refused, and so are layers that do not fit together; no file is left.")
    missing = os.path.join(unit.directory, "missing")
    stage.check("reply", stage.call("Screenshot", missing), ("", -1, "Bad directory"),
                '-1 "Bad directory"')
    folder = os.path.join(unit.directory, "shots")
    os.mkdir(folder)
    stage.happen("the interface layer changes its size", unit.framebuffers.set, 1, 640, 480)
    reply = stage.call("Screenshot", folder)
    stage.check("reply", reply[1:] if isinstance(reply, tuple) else reply, (-1, ANSWERS[-1]))
    stage.check("files", os.listdir(folder), [], "none")
