"""Where units have their folders."""

import os
import tempfile

#: Where Debian has a file system in memory, not by its other name: umockdev takes what is below /dev for devices.
#: And what must be free there: several units at a time, with what tests record and draw in them, and their files.
MEMORY, _ROOM, _FILES = "/run/shm", 2 * 1024 ** 3, 20_000

#: The longest folder that leaves room for a socket's name in the 108 bytes of a Unix socket's address.
LONGEST_FOLDER = 80


def folder_of_units():
    """Where units make their folders unless they are told: short enough for the sockets in them, in memory if there is
    room, unless the user wants them elsewhere."""
    if not any(map(os.environ.get, ("TMPDIR", "TEMP", "TMP"))) and _has_room(MEMORY):
        return MEMORY
    return within_reach(tempfile.gettempdir())


def within_reach(folder):
    """The folder, or another where the name of that one leaves no room for a unit's sockets."""
    return folder if len(folder) < LONGEST_FOLDER - len("/ccu-12345678") else "/tmp"


def _has_room(folder):
    try:
        state = os.statvfs(folder)
    except OSError:
        return False
    has_room = state.f_bavail * state.f_frsize >= _ROOM and state.f_favail >= _FILES
    return has_room and os.access(folder, os.W_OK | os.X_OK)
