"""In the machine: the siblings of the virtual unit on the user's real bus, with storage that is what is mounted.

What is real here is not simulated: clock and zone, GPIO, sound, keypad, framebuffers and gpsd.
"""

import os
import socket
import sys
import threading

from gi.repository import GLib

from virtual_unit.faults import CallLog, Faults
from virtual_unit.happenings import Teller
from virtual_unit.hardware import Hardware
from virtual_unit.jobs import Jobs
from virtual_unit.loop import on_loop, shared_loop
from virtual_unit.settings import Settings
from virtual_unit.simulation import ROOT, Simulation
from virtual_unit.storage import Storage
from virtual_unit.sync import Sync
from virtual_unit.video import Video

_NOUNS = ("", "storage", "recording", "playback", "camera", "reel", "power", "cooling", "sibling", "fault", "settings",
          "job", "sync")
#: Milliseconds between two looks at what is mounted.
_LOOK = 200
#: What the camera takes: nobody looks at its pictures.
_PICTURE = b"\xff\xd8\xff\xd9"


class MountedStorage(Storage):
    """The storage daemon of the folders below /media: what is mounted there comes and goes by itself."""

    def _mounted(self):
        """Devices that are mounted there and not pulled out: their folders' names, with the folders."""
        internal = self.usual_mount_point("internal")
        found = {"internal": internal}
        with open("/proc/self/mounts", encoding="utf-8") as file:
            for line in file:
                device, folder = line.split()[:2]
                if os.path.dirname(folder) == os.path.dirname(internal) and os.path.exists(device):
                    found[os.path.basename(folder)] = folder
        return found

    def follow_mounts(self):
        """From now on."""
        self._follow_mounts()
        GLib.timeout_add(_LOOK, self._follow_mounts)

    def _follow_mounts(self):
        there = self._mounted()
        for device in set(self.devices()) - set(there):
            self.remove_device(device)
        for device in set(there) - set(self.devices()):
            self.add_device(device, there[device])
        return GLib.SOURCE_CONTINUE


class Board:
    """What siblings and control object know of the unit that they belong to."""

    name = "machine"
    system_address = "unix:path=/run/dbus/system_bus_socket"
    full_devices_file = "/dev/null"
    gives_up_at_once = False
    timedate = None

    def __init__(self, address, directory):
        self.directory = directory
        self.errors = []
        self.calls = CallLog()
        self.faults = Faults(self.calls)
        self.happenings = Teller(self)
        self.painter = self
        self.siblings = {}
        self.storage = self.jobs = None
        shared_loop().call(self._start, address)

    def _start(self, address):
        for kind in (MountedStorage, Video, Jobs, Settings, Hardware, Sync):
            sibling = kind(self, address)
            self.siblings[kind.name] = sibling
            setattr(self, kind.name, sibling)
            sibling.revive()
        self.jobs.open("internal", "inspection")
        self.storage.follow_mounts()
        BoardSimulation(self, address).revive()

    def mount_point(self, device):
        """Where a device is mounted."""
        return self.storage.mount_point(device)

    @staticmethod
    def snapshot(_width, _height, _quality):
        """The camera's picture."""
        return _PICTURE

    def stir(self):
        """Nobody watches."""

    def tell_call(self, call, fault):
        """Nobody listens."""

    def tell_signal(self, *signal):
        """Nobody listens."""


class BoardSimulation(Simulation):
    """The control object, without what is real here."""

    @on_loop
    def __init__(self, unit, address):
        super().__init__(unit, address)
        for path in set(self.nouns) - {f"{ROOT}/{noun}".rstrip("/") for noun in _NOUNS}:
            del self.nouns[path]
            self.remove_object(path)

    def settle(self, _seconds):
        """Not known here."""
        return False


def main(directory="/"):
    """Serves until it is ended, with media below a folder."""
    Board(os.environ["DBUS_SESSION_BUS_ADDRESS"], directory)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notify:
        notify.connect(os.environ["NOTIFY_SOCKET"])
        notify.send(b"READY=1")
    threading.Event().wait()


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
