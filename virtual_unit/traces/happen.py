"""What a trace tells of a virtual unit's devices and files, happening again in another unit."""

import contextlib
import os
import shutil

from .file import Unreadable

_KEYPAD = ("key", "type", "plug", "unplug")
_FILES = {"mkdir": lambda path: os.makedirs(path, exist_ok=True), "remove": os.unlink, "rmdir": os.rmdir,
          "rename": os.rename, "truncate": os.truncate, "rmtree": shutil.rmtree}


def happen(unit, places, what, arguments, content):
    """Lets something happen in a unit, whose folders stand in `places` behind those that the contents of files name."""
    if what == "gps":
        unit.gps.say_again(*arguments)
    elif what == "keypad" and arguments[0] in _KEYPAD:
        getattr(unit.keypad, arguments[0])(*arguments[1:])
    elif what == "write" or what in _FILES:
        _change_file(unit.directory, places, what, arguments, content)


def _change_file(folder, places, what, arguments, content):
    paths = [os.path.join(folder, part) for part in arguments if isinstance(part, str)]
    if any(not os.path.normpath(path).startswith(folder + "/") for path in paths):
        raise Unreadable(f"the trace has {arguments[0]}, which is no file of a unit")
    if what == "write":
        for there, here in places:
            content = content.replace(there.encode(), here.encode())
        os.makedirs(os.path.dirname(paths[0]), exist_ok=True)
        with open(paths[0], "wb") as file:
            file.write(content)
    else:
        with contextlib.suppress(OSError):  # as it may have failed when it was recorded
            _FILES[what](*paths, *arguments[len(paths):])
