"""The virtual unit: private buses, the simulated siblings and the unmodified daemon, all gone when it is left."""

import atexit
import contextlib
import functools
import os
import shutil
import signal
import sys
import tempfile
import threading
import time

from . import zones as zone_files
from .audio import Audio
from .bus import PrivateBus
from .client import Client
from .clock import Clock
from .daemon import Daemon, DaemonFailure
from .faults import CallLog, Faults
from .folders import LONGEST_FOLDER, folder_of_units
from .framebuffers import Framebuffers
from .gpio import Gpio
from .gps import Gps
from .happenings import Teller
from .hardware import Hardware
from .jobs import Jobs
from .keypad import InputDevices
from .loop import shared_loop
from .patience import PATIENCE
from .picture import Painter
from .settings import Settings
from .simulation import Simulation
from .storage import Storage
from .sync import Sync
from .syslog import SyslogReader
from .timedate import Timedate
from .video import Video

_SYSTEM_BUS_SIBLINGS = (Timedate,)
_SIBLINGS = (Storage, Video, Jobs, Settings, Hardware, Sync) + _SYSTEM_BUS_SIBLINGS

#: Names of everything that a unit simulates.
ALL_SIBLINGS = tuple(kind.name for kind in _SIBLINGS)
#: Their names by those that they own on the bus.
SERVICES = {kind.service: kind.name for kind in _SIBLINGS}

#: See `bus_timeout`.
AT_ONCE = 0

_running = []


def _end_all():
    for unit in list(_running):
        unit.discard()


def _end_by_signal(number, _frame):
    signal.signal(number, signal.SIG_IGN)  # a second one would cut the cleaning up short
    sys.exit(128 + number)


def _end_with_process():
    """Makes a SIGTERM unwind the program as an exception would, unless the program has its own idea of it."""
    atexit.unregister(_end_all)
    atexit.register(_end_all)
    in_main_thread = threading.current_thread() is threading.main_thread()
    if in_main_thread and signal.getsignal(signal.SIGTERM) is signal.SIG_DFL:
        signal.signal(signal.SIGTERM, _end_by_signal)


class VirtualUnit:
    """A camera unit on a development machine.  To be used as a context manager, or with `start` and `stop`.

    build_dir    build tree of the daemon; $CCU_BUILD_DIR when None
    daemon       False starts everything but the daemon, which `start_daemon` does later
    environment  variables for the daemon over those that it gets anyway; None as a value takes one away
    directory    existing folder in which the unit's own folder is made
    siblings     names of what is simulated
    bus          False gives a unit whose session bus address leads nowhere
    bus_timeout  seconds after which the daemon gives up a call, as $SYSTEMD_BUS_TIMEOUT; AT_ONCE for a daemon, and
                 other programs with its environment, whose wait ends when a call meets a fault of the kind SILENT
    name         by which commands choose the unit among others
    zones        folder of the zone files, which need not exist; the build tree's, which all units share, when None

    `stop`, and so the end of the `with` block, raises DaemonFailure when the daemon has ended by itself, could not be
    ended or a sanitizer has reported something, and RuntimeError when the simulation itself has failed.
    """

    def __init__(self, build_dir=None, daemon=True, environment=None, directory=None, siblings=ALL_SIBLINGS, bus=True,
                 bus_timeout=None, zones=None, name=""):
        self.name = name
        self.build_dir = os.path.abspath(build_dir or os.environ.get("CCU_BUILD_DIR", ""))
        self._with_daemon = daemon
        self._environment = dict(environment or {})
        self.gives_up_at_once = bus_timeout == AT_ONCE
        if bus_timeout not in (None, AT_ONCE):
            self._environment.setdefault("SYSTEMD_BUS_TIMEOUT", str(bus_timeout))
        self._parent = directory
        self._wanted = siblings
        self._with_bus = bus
        self._siblings = {}
        self._settled = {}
        self._listening = None, []  # of the daemon: its process and connections
        self._buses = {}
        self.zones_folder = os.path.abspath(zones or os.path.join(self.build_dir, "zones"))
        self.directory = None
        self.calls = CallLog()
        self.faults = Faults(self.calls)
        self.faults.changed = self.stir
        self.happenings = Teller(self)
        self.clock = self.simulation = None
        self.errors = []
        self.painter = Painter(self)
        self.client = self.log = self.daemon = self.framebuffers = self.gps = None
        self.gpio = self.audio = self.input = None
        self.video = self.storage = self.jobs = self.settings = self.hardware = self.sync = self.timedate = None

    # Life -------------------------------------------------------------------------------------------------------------

    def __enter__(self):
        return self.start()

    def __exit__(self, kind, error, _trace):
        if error is None:
            self.stop()
            return
        report = self.report()
        problems = self.discard()
        error.add_note("\n".join(["The virtual unit at that time:", report, *problems]))

    def start(self):
        """Brings everything up; leaves nothing behind when that fails."""
        _running.append(self)
        _end_with_process()
        try:
            self._start()
        except BaseException as error:
            if self.daemon is not None:
                error.add_note(self.report())
            self.discard()
            raise
        return self

    def _start(self):
        self.directory = tempfile.mkdtemp(prefix="ccu-", dir=self._parent or folder_of_units())
        if len(self.directory) > LONGEST_FOLDER:
            raise ValueError(f"{self.directory} is too long for the sockets in it")
        for kind in (("session",) if self._with_bus else ()) + ("system",):
            self._buses[kind] = self._make_bus(kind)
        for bus in self._buses.values():
            bus.wait_ready()
        self.framebuffers = Framebuffers(self.directory, self.painter)
        self.framebuffers.changed = self.stir
        self.gps = Gps(self.build_dir, self.directory)
        self.clock = Clock(self.directory)
        self.clock.changed = self._note_clock
        self.gpio = Gpio(self.directory)
        self.audio = Audio(self.directory)
        self.input = InputDevices(self.directory)
        self.gps.tell = functools.partial(self.happenings.tell, "gps")
        self.keypad.tell = functools.partial(self.happenings.tell, "keypad")
        os.mkdir(self.logs_folder)
        self.point_local_time(zone_files.INITIAL)
        self.daemon = Daemon(self.build_dir, self.directory, {
            "DBUS_SESSION_BUS_ADDRESS": self.session_address, "DBUS_SYSTEM_BUS_ADDRESS": self.system_address,
            **self.framebuffers.environment, **self.gpio.environment, **self.audio.environment,
            **self.input.environment, **self.gps.environment, **self.clock.environment,
            "CCU_FULL_DISKS": self.full_devices_file, "CCU_LOGS": self.logs_folder,
            "CCU_ZONES": self.zones_folder, "CCU_LOCALTIME": self.local_time_link,
            "CCU_GIVE_UP": self._give_up_folder if self.gives_up_at_once else None,
            **self._environment})
        if self.gives_up_at_once:
            os.mkdir(self._give_up_folder)
        self.log = SyslogReader(self.daemon.log_path)
        shared_loop().call(self._start_siblings)
        if self._with_bus:
            self.client = Client(self.session_address)
        if self._with_daemon:
            self.daemon.start()

    def _make_bus(self, kind):
        return PrivateBus(self.directory, kind)

    def _start_siblings(self):
        for kind in _SIBLINGS:
            on_system_bus = kind in _SYSTEM_BUS_SIBLINGS
            if kind.name not in self._wanted or not (on_system_bus or self._with_bus):
                continue
            sibling = kind(self, self.system_address if on_system_bus else self.session_address)
            self._siblings[kind.name] = sibling
            setattr(self, kind.name, sibling)
            sibling.revive()
        if self._with_bus:
            self.simulation = Simulation(self, self.session_address)
            self.simulation.revive()

    def remember(self):
        """Notes the siblings' state for `renew`."""
        for sibling in self._siblings.values():
            sibling.remember()

    def renew(self):
        """Makes the unit as new for another test, all but its processes and other devices than the display: the
        siblings are what they were when that was noted, media and logs are empty, the zone is that of the start, and
        calls, faults, signals and log are forgotten.  Nobody is told.  The daemon goes on, or is started again where
        it was stopped; one that has ended by itself is a DaemonFailure, as in `stop`."""
        self.faults.clear()
        self.daemon.check()
        for sibling in self._siblings.values():
            sibling.revive()
        if self._with_daemon and not self.daemon_alive:
            self.daemon.start()
        self.settle()
        if self.errors:
            raise RuntimeError("the simulation has failed:\n" + "\n".join(self.errors))
        for sibling in self._siblings.values():
            sibling.renew()
        for folder in (os.path.join(self.directory, "media"), self.logs_folder):
            shutil.rmtree(folder, ignore_errors=True)
        for folder in (*filter(None, map(self.mount_point, ("internal", "card"))), self.logs_folder):
            os.makedirs(folder)
        self.point_local_time(zone_files.INITIAL)
        with contextlib.suppress(FileNotFoundError):
            os.unlink(self.full_devices_file)
        self.framebuffers.renew()
        self.clock.follow()
        self.calls.clear()
        self.log.clear()
        self.client.clear()

    def stop(self):
        """Ends everything and removes every trace; raises when something went wrong meanwhile."""
        report = self.report()
        problems = self.discard()
        if problems:
            raise DaemonFailure("\n".join(problems + [report]))
        if self.errors:
            raise RuntimeError("the simulation has failed:\n" + "\n".join(self.errors))

    def discard(self):
        """Ends everything and removes every trace; returns what went wrong with the daemon.  Can be called again."""
        self.happenings.stop()
        self.faults.clear()
        problems = []
        try:
            if self.daemon is not None:
                problems = self.daemon.discard(self._release)
            self._release()
            if self.client is not None:
                self.client.close()
        finally:
            if self.gps is not None:
                self.gps.stop()
            for device in (self.audio, self.gpio, self.framebuffers):
                if device is not None:
                    device.close()
            for bus in self._buses.values():
                bus.stop()
            if self.directory is not None:
                shutil.rmtree(self.directory, ignore_errors=True)
        if self in _running:
            _running.remove(self)
        return problems

    def _release(self):
        """Frees whoever waits for a part of the unit."""
        for sibling in (*self._siblings.values(), *filter(None, [self.simulation])):
            sibling.die()
        if self.audio is not None:
            self.audio.mend()

    # The daemon -------------------------------------------------------------------------------------------------------

    def start_daemon(self, wait=True, timeout=PATIENCE):
        """Starts the daemon and waits until it is ready."""
        self.daemon.start(wait, timeout)
        self.happenings.tell_process()
        self.stir()

    def stop_daemon(self, number=signal.SIGTERM, timeout=PATIENCE):
        """Ends the daemon by a signal; returns its exit status, negative when the signal itself ended it."""
        return self.daemon.stop(number, timeout)

    def kill(self):
        """Ends the daemon at once."""
        return self.daemon.kill()

    def wait_exit(self, timeout=PATIENCE):
        """Waits for the daemon to end by itself; returns its exit status."""
        return self.daemon.wait_exit(timeout)

    @property
    def ready(self):
        """True once the daemon has said READY=1."""
        return self.daemon.ready

    @property
    def daemon_alive(self):
        """True while the daemon runs."""
        return self.daemon.alive

    @property
    def pid(self):
        """The daemon's process id."""
        return self.daemon.pid

    # What is told of it -----------------------------------------------------------------------------------------------

    @property
    def siblings(self):
        """What is simulated, by its name."""
        return dict(self._siblings)

    def stir(self):
        """Something has happened that those who watch the unit may want to know."""
        if self.simulation is not None:
            self.simulation.stir()

    def _note_clock(self):
        self.happenings.tell("clock", self.clock.offset_usec)
        self.stir()

    def tell_call(self, call, fault):
        """A sibling has got a call, which has met a fault or None."""
        if self.simulation is not None:
            self.simulation.tell_call(call, fault)

    def tell_signal(self, sender, path, interface, member, arguments):
        """A sibling has sent a signal."""
        if self.simulation is not None and sender != self.simulation.name:
            self.simulation.tell_signal(sender, path, interface, member, arguments)

    def watched_folders(self):
        """The folders in which the daemon and its tools change files that show what they do."""
        return [self.directory, *self.gpio.folders, *self.audio.folders, self.framebuffers.directory]

    # The unit ---------------------------------------------------------------------------------------------------------

    @property
    def session_address(self):
        """Address of the private session bus; of a socket that is not there without one."""
        bus = self._buses.get("session")
        return bus.address if bus else f"unix:path={self.directory}/no-bus"

    @property
    def session_bus_pid(self):
        """Process id of the user bus."""
        return self._buses["session"].pid

    @property
    def system_address(self):
        """Address of the private system bus."""
        return self._buses["system"].address

    @property
    def media(self):
        """Mount point of the removable storage."""
        return self.mount_point("card")

    @property
    def keypad(self):
        """The unit's keypad; `unit.input` has the other input devices."""
        return self.input.keypad

    @property
    def logs_folder(self):
        """The folder that is /mnt/ccu-data/logs to the daemon."""
        return os.path.join(self.directory, "logs")

    @property
    def full_devices_file(self):
        """The file that tells the daemon where nothing new can be made."""
        return os.path.join(self.directory, "full-devices")

    @property
    def local_time_link(self):
        """The link that is /etc/localtime to the daemon."""
        return os.path.join(self.directory, "localtime")

    def point_local_time(self, zone):
        """Has the daemon's local time be that of a zone like "CCU/London"; UTC when the zone has no file."""
        zone_files.point(self.local_time_link, zone_files.file_of(self.zones_folder, zone))

    def mount_point(self, device):
        """Mount point of a storage device, also of a unit without a storage daemon; None without such a device."""
        if self.storage is not None:
            return self.storage.mount_point(device)
        return os.path.join(self.directory, "media", device) if device in ("internal", "card") else None

    def stop_bus(self, kind="session"):
        """Ends one of the buses under everybody's feet."""
        self._buses[kind].stop()

    def renew_bus(self):
        """A new session bus at the address of the one that has ended, with the siblings and a new client on it."""
        self._buses["session"] = self._make_bus("session").wait_ready()
        for sibling in self._siblings.values():
            if not isinstance(sibling, _SYSTEM_BUS_SIBLINGS):
                sibling.die()
                sibling.revive()
        self.simulation.die()
        self.simulation.revive()
        self.client.close()
        self.client = Client(self.session_address)

    @property
    def _give_up_folder(self):
        return os.path.join(self.directory, "give-up")

    def give_up(self, pid):
        """Ends the wait of a process, if it is one whose waits can be ended: see preload/give_up.c."""
        with contextlib.suppress(OSError):
            pipe = os.open(os.path.join(self._give_up_folder, str(pid)), os.O_WRONLY | os.O_NONBLOCK | os.O_CLOEXEC)
            os.write(pipe, b"!")
            os.close(pipe)

    def settle(self, timeout=PATIENCE):
        """Waits until the daemon has dealt with every signal of the siblings and every signal of its own has arrived.

        Siblings that have emitted something since the last time ping each of the daemon's connections, so the ping
        stands behind their signals in the queue of the connection that listens to them.  That is repeated while the
        daemon's work causes further signals.  What was typed before is dealt with too: the daemon answers pings only
        when it is done with what it has read.  Where nobody has emitted anything, the client's own ping shows that.
        """
        self.happenings.flush()
        self.input.wait_read(timeout)
        done = False
        while not done:
            emitted = self._emissions()
            names = [name for name, count in emitted.items() if count != self._settled.get(name)]
            if names or not self.ready:
                self._ping_from(names, timeout)
            self.client.sync(timeout)
            self._settled = emitted
            done = emitted == self._emissions()

    def _emissions(self):
        return {name: sibling.emissions for name, sibling in self._siblings.items()
                if not isinstance(sibling, _SYSTEM_BUS_SIBLINGS)}

    def _ping_from(self, names, timeout):
        """Has siblings ping the daemon: those of the names, all when one of them is dead, any when there are none."""
        able = [name for name in self._emissions() if self._siblings[name].alive]
        if not set(names) <= set(able):
            names = able
        connections = self._connections()
        for name in names or able[:1]:
            self._ping_all(self._siblings[name], connections, timeout)

    def _connections(self):
        """The daemon's; asked once when it is ready, since those that listen last as long as it does."""
        if self._listening[0] != self.pid:
            connections = self.client.connections_of(self.pid)
            if not self.ready:
                return connections
            self._listening = self.pid, connections
        return self._listening[1]

    @staticmethod
    def _ping_all(sibling, connections, timeout):
        """Pings each connection and waits for the answers; a sibling that dies meanwhile gets none."""
        left = threading.Semaphore(0)
        sibling.ping(connections, lambda _reply: left.release())
        deadline = time.monotonic() + timeout
        for connection in connections:
            while sibling.alive and not left.acquire(timeout=0.1):
                if time.monotonic() > deadline:
                    raise TimeoutError(f"the daemon's connection {connection} did not answer within {timeout} s")

    def report(self):
        """What is worth reading when a test has failed: the daemon's log, its standard error and the calls."""
        log = self.log.format() if self.log else ""
        errors = self.daemon.errors() if self.daemon else ""
        return f"-- log\n{log}\n-- standard error\n{errors}\n-- calls\n{self.calls!r}"
