"""What changes in a unit beside its buses, told on them for those who record it, so that it has its place among calls
and signals: files that this process makes, changes and takes away (media, devices, faults), keys, GPS and clock."""

import json
import os
import sys
import threading
import zlib

from .loop import shared_loop

_WRITING = os.O_WRONLY | os.O_RDWR | os.O_CREAT | os.O_TRUNC
#: Operations on files, by what Python's audit calls them.
_OPERATIONS = {"os.mkdir": "mkdir", "os.remove": "remove", "os.rmdir": "rmdir", "os.rename": "rename",
               "os.truncate": "truncate", "shutil.rmtree": "rmtree"}
#: What a unit has in its folder for itself: nothing of it reaches the daemon, or by another way.
_OWN = ("syslog", "stderr", "notify", "control.log", "clock", "input", "give-up", "gpsd", "session", "system", "up",
        "localtime", "snapshot-", "sanitizer")

_tellers = []
_hooked = False


def _hook(event, arguments):
    for teller in list(_tellers) if event in _OPERATIONS or event in ("open", "subprocess.Popen") else ():
        teller.note(event, arguments)


class Teller:
    """Tells of one unit, from `start` on; before it does nothing.

    What the siblings' loop brings about is told over the connection of the sibling that sends something next: so it
    stands before that on the bus.
    """

    def __init__(self, unit):
        self._unit = unit
        self._lock = threading.Lock()
        self._pending = []  # what, arguments, and the content or the path of the file that has it
        self._asked = set()

    @property
    def active(self):
        """True while somebody records the unit."""
        return self in _tellers

    def start(self):
        """From now on everything is told; first what cannot be seen otherwise."""
        global _hooked  # pylint: disable=global-statement
        if not _hooked:
            sys.addaudithook(_hook)
            _hooked = True
        if not self.active:
            _tellers.append(self)
        self.tell("folder", self._unit.directory)
        self.tell("clock", self._unit.clock.offset_usec)
        self.tell_process()

    def stop(self):
        """Nothing is told any more.  Can be called again."""
        self._asked.clear()
        self._pending.clear()
        if self.active:
            _tellers.remove(self)

    # Telling ----------------------------------------------------------------------------------------------------------

    def tell(self, what, *details):
        """Tells of one happening, behind those before."""
        if self.active:
            with self._lock:
                self._read_files()
                self._pending.append((what, json.dumps(details), b""))
            if not shared_loop().is_current:
                self.flush()

    def tell_process(self):
        """Which process the daemon is."""
        if self._unit.daemon_alive:
            self.tell("daemon", self._unit.pid)

    def is_new(self, connection):
        """True once for each connection to a bus, while somebody records."""
        new = self.active and connection not in self._asked
        if new:
            self._asked.add(connection)
        return new

    def flush(self, connection=None):
        """Tells what has happened; to be called before anything else is sent, with the connection that sends it."""
        if self._pending:
            with self._lock:
                self._read_files()
                happened, self._pending = self._pending, []
            self._unit.simulation.tell_happenings(happened, connection)

    def _read_files(self):
        """Takes over what is in the files that were written."""
        for place, (what, path, content) in enumerate(self._pending):
            if content is None:
                content = b""
                if os.path.isfile(path):
                    with open(path, "rb") as file:
                        content = zlib.compress(file.read(), 1)
                self._pending[place] = (what, json.dumps([self._within(path)]), content)

    # Files ------------------------------------------------------------------------------------------------------------

    def _within(self, path):
        """A path from the unit's folder on; None when it is not in there, or one of the unit's own."""
        try:
            path = os.fsdecode(path)
        except TypeError:
            return None
        prefix = self._unit.directory + "/"
        rest = path[len(prefix):] if path.startswith(prefix) else ""
        return rest if rest and not rest.startswith(_OWN) else None

    def note(self, event, arguments):
        """Something is about to be done by this process."""
        if event == "subprocess.Popen":
            self.flush()
        elif event == "open":
            path, _mode, flags = arguments
            if isinstance(flags, int) and flags & _WRITING and self._within(path) is not None:
                with self._lock:
                    entry = ("write", os.fsdecode(path), None)
                    self._pending = [one for one in self._pending if one != entry] + [entry]
        else:
            paths = [self._within(path) for path in arguments[:2 if event == "os.rename" else 1]]
            if None not in paths:
                self.tell(_OPERATIONS[event], *paths, *([arguments[1]] if event == "os.truncate" else []))
