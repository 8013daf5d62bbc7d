"""The unit's clock: that of the machine, moved by what is written in a file that `preload/local_time.c` reads."""

import mmap
import os
import struct
import time

_OFFSET = struct.Struct("=q")
_PER_SECOND, _PER_USEC = 1_000_000_000, 1000


class Clock:
    """Tells the machine's time until it is set, and goes on from there."""

    def __init__(self, directory):
        self.path = os.path.join(directory, "clock")
        with open(self.path, "wb") as file:
            file.write(bytes(_OFFSET.size))
        with open(self.path, "r+b") as file:
            self._map = mmap.mmap(file.fileno(), _OFFSET.size)
        #: Called after each change.
        self.changed = lambda: None

    @property
    def environment(self):
        """What the preloaded library has to know."""
        return {"CCU_CLOCK": self.path}

    @property
    def _offset(self):
        return _OFFSET.unpack_from(self._map)[0]

    @_offset.setter
    def _offset(self, nanoseconds):
        _OFFSET.pack_into(self._map, 0, nanoseconds)
        self.changed()

    @property
    def offset_usec(self):
        """Microseconds by which it is ahead of the machine's."""
        return self._offset // _PER_USEC

    @property
    def is_machines(self):
        """True until it is set."""
        return self._offset == 0

    def now(self):
        """Seconds since the epoch."""
        return (time.time_ns() + self._offset) / _PER_SECOND

    def now_usec(self):
        """Microseconds since the epoch."""
        return (time.time_ns() + self._offset) // _PER_USEC

    def set_usec(self, usec):
        """It is this time now, in microseconds since the epoch."""
        try:
            self._offset = usec * _PER_USEC - time.time_ns()
        except struct.error:
            raise OverflowError("this clock cannot be so far from the machine's") from None

    def set(self, seconds):
        """It is this time now, in seconds since the epoch."""
        self.set_usec(round(seconds * _PER_SECOND) // _PER_USEC)

    def follow(self):
        """It is the machine's again."""
        self._offset = 0
