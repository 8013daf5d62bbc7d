"""Files of the unit that other processes change, watched on the loop by inotify(7)."""

import ctypes
import os
import struct

from gi.repository import GLib

_MODIFY, _MOVED_TO, _CREATE, _DELETE, _IS_FOLDER = 0x2, 0x80, 0x100, 0x200, 0x40000000
_EVENTS = _MODIFY | _MOVED_TO | _CREATE | _DELETE
_HEAD = struct.Struct("iIII")
_libc = ctypes.CDLL(None, use_errno=True)


class Watch:
    """Calls `changed` with the path of each file of the folders that is made, written to or removed.  A folder that
    goes and comes again is watched again when the one above it is watched too.  For the loop thread."""

    def __init__(self, folders, changed):
        self._folders, self._changed = folders, changed
        self._watched = {}
        self._descriptor = _libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        if self._descriptor < 0:
            raise OSError(ctypes.get_errno(), "no inotify instance to be had")
        self._add_all()
        self._source = GLib.io_add_watch(self._descriptor, GLib.PRIORITY_DEFAULT, GLib.IO_IN, self._read)

    def _add_all(self):
        for folder in self._folders:
            number = _libc.inotify_add_watch(self._descriptor, os.fsencode(folder), _EVENTS)
            if number >= 0:
                self._watched[number] = folder

    def _read(self, *_):
        data, position = os.read(self._descriptor, 65536), 0
        while position < len(data):
            number, mask, _cookie, length = _HEAD.unpack_from(data, position)
            name = os.fsdecode(data[position + _HEAD.size:position + _HEAD.size + length].rstrip(b"\0"))
            position += _HEAD.size + length
            if mask & _IS_FOLDER and mask & _CREATE:
                self._add_all()
            if number in self._watched:
                self._changed(os.path.join(self._watched[number], name))
        return GLib.SOURCE_CONTINUE

    def close(self):
        """Watches no more."""
        GLib.source_remove(self._source)
        os.close(self._descriptor)
