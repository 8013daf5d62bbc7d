"""systemd-timedated itself under a unit, where it can do the machine no harm.

The unit's system bus is the first process of a user, a mount and a process namespace of its own, and starts timedated
there when it is asked for.  To these two and to the daemon, which joins them,

  /etc                  is the unit's folder `etc`, with a `localtime` and an `adjtime` that are the unit's own
  /usr/share/zoneinfo   is the machine's, and has the unit's zone files as CCU

The user namespace is there for root as well: it owns nothing that counts, so the kernel refuses its root the clock.
What is in the namespaces ends with the bus, and the mounts with that.
"""

import glob
import os
import select
import shutil
import signal
import socket
import struct

from . import namespaces, zones
from .bus import PrivateBus
from .patience import PATIENCE
from .unit import ALL_SIBLINGS, VirtualUnit

TIMEDATED = "/lib/systemd/systemd-timedated"

_ZONEINFO = "/usr/share/zoneinfo"
_TOOLS = {"unshare": "util-linux", "nsenter": "util-linux", "mount": "mount", "dbus-daemon": "dbus",
          TIMEDATED: "systemd"}

#: What programs read of /etc when they start.
_OF_ETC = ("passwd", "group", "nsswitch.conf", "ld.so.cache", "machine-id")

_SERVICE = f"""[D-BUS Service]
Name=org.freedesktop.timedate1
Exec={TIMEDATED}
User=root
"""

#: $1 is the unit's folder, the rest the command.
_FURNISH = f"""set -e
mount --rbind {_ZONEINFO} "$1/machine-zoneinfo"
mount --bind "$1/zoneinfo" {_ZONEINFO}
mount --bind "$1/etc" /etc
shift
exec "$@"
"""

_END_SECONDS = PATIENCE


# What the machine must have -------------------------------------------------------------------------------------------


def missing():
    """What this machine lacks, one text each that says what would help; empty when it can do everything."""
    lacking = [f"{tool} is missing: apt-get install {package}"
               for tool, package in _TOOLS.items() if shutil.which(tool) is None]
    if not os.path.isdir(_ZONEINFO):
        lacking.append(f"{_ZONEINFO} is missing: apt-get install tzdata")
    return lacking or [text for text in [namespaces.refusal()] if text]


# The unit -------------------------------------------------------------------------------------------------------------


class _NamespaceBus(PrivateBus):
    """A bus that is the first process of its namespaces."""

    def __init__(self, directory, kind, environment, services):
        variables = [f"{name}={value}" for name, value in environment.items()]
        launcher = [*namespaces.UNSHARE, "env", *variables, "sh", "-c", _FURNISH, "sh", directory]
        super().__init__(directory, kind, launcher, services)

    def stop(self):
        """Ends the bus and everything in its namespaces."""
        first = self._first_process()
        if first is not None:
            signal.pidfd_send_signal(first, signal.SIGKILL)
            # The kernel lets it go after all others, and the process that waits for it takes its leave of it.
            select.select([first], [], [], _END_SECONDS)
            os.close(first)
            self.wait(_END_SECONDS)
        super().stop()

    def _first_process(self):
        """A handle of the dbus-daemon itself; the process that we have started only waits for it."""
        with socket.socket(socket.AF_UNIX) as connection:
            try:
                connection.connect(self.address.partition("path=")[2].partition(",")[0])
                credentials = connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i"))
                return os.pidfd_open(struct.unpack("3i", credentials)[0])
            except OSError:
                return None


class RealTimedatedUnit(VirtualUnit):
    """A unit whose timedated is the real one.  `missing` says whether the machine can have it.

    Options are those of VirtualUnit but for `daemon` and `siblings`: the daemon runs, and nobody stands in for
    timedated.
    """

    def __init__(self, environment=None, **options):
        # The libraries' own stand-ins for what is real here.
        without = {"CCU_LOCALTIME": None, "CCU_ZONES": None, "TZ": None}
        super().__init__(daemon=False, siblings=tuple(name for name in ALL_SIBLINGS if name != "timedate"),
                         environment={**without, **(environment or {})}, **options)

    def _start(self):
        super()._start()
        self.daemon.launcher = self.inside()
        self.start_daemon()

    def _make_bus(self, kind):
        if kind != "system":
            return super()._make_bus(kind)
        self._make_etc()
        self._make_zoneinfo()
        services = os.path.join(self.directory, "services")
        os.mkdir(services)
        with open(os.path.join(services, "org.freedesktop.timedate1.service"), "w", encoding="utf-8") as file:
            file.write(_SERVICE)
        environment = {
            "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={self.directory}/system.socket",
            "SYSTEMD_LOG_TARGET": "console",  # the bus's standard error, not the machine's journal
            "SYSTEMD_TIMEDATED_NTP_SERVICES": "",  # there is no systemd here that could start or stop them
        }
        return _NamespaceBus(self.directory, kind, environment, services)

    def _make_etc(self):
        folder = os.path.join(self.directory, "etc")
        os.mkdir(folder)
        for name in _OF_ETC:
            if os.path.exists(f"/etc/{name}"):
                shutil.copyfile(f"/etc/{name}", os.path.join(folder, name))
        with open(os.path.join(folder, "adjtime"), "w", encoding="utf-8") as file:
            file.write("0.0 0 0.0\n0\nUTC\n")
        self.point_etc_localtime(zones.INITIAL)

    def _make_zoneinfo(self):
        for name in ("zoneinfo", "machine-zoneinfo"):
            os.mkdir(os.path.join(self.directory, name))
        entries = {os.path.basename(entry): os.path.join(self.directory, "machine-zoneinfo", os.path.basename(entry))
                   for entry in glob.glob(f"{_ZONEINFO}/*")}
        for name, target in {**entries, "CCU": self.zones_folder}.items():
            os.symlink(target, os.path.join(self.directory, "zoneinfo", name))

    def inside(self):
        """The command by which another command is run where timedated runs."""
        return ["nsenter", f"--target={self._buses['system'].pid}", "--user", "--mount", "--preserve-credentials", "--"]

    @property
    def etc_localtime(self):
        """Where the link leads that is /etc/localtime to timedated and to the daemon."""
        return os.readlink(os.path.join(self.directory, "etc", "localtime"))

    def point_etc_localtime(self, zone):
        """Re-points that link behind timedated's back, as a package's script or an operator does."""
        zones.point(os.path.join(self.directory, "etc", "localtime"), f"{_ZONEINFO}/{zone}")
