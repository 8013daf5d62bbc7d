"""Positioning: Debian's own gpsd with its shared-memory export, on a receiver that says what a test wants."""

import datetime
import fcntl
import json
import math
import os
import pty
import secrets
import select
import socket
import subprocess
import time
import tty

from .loop import spawn
from .patience import PATIENCE

_GPSD = "/usr/sbin/gpsd"
_NO_FIX, _2D, _3D = 1, 2, 3
_NONE, _PLAIN, _DIFFERENTIAL = 0, 1, 2

_NAMES = {(_NO_FIX, _NONE): "none", (_2D, _PLAIN): "2d", (_3D, _PLAIN): "3d", (_3D, _DIFFERENTIAL): "dgps"}

#: Of two-digit years and weeks that start again every 20 years gpsd makes dates of these years alone.
_YEARS = range(2021, 2070)

#: Times of one position, a second apart: gpsd reports a position at once when it knows how the receiver's bursts end.
_BURSTS = 4

#: Otherwise gpsd spends a second trying others.
_LINE = ("--speed", "38400", "--framing", "8N1")

#: What systemd hands over: first the socket on which gpsd takes orders, then those of its clients.
_HAND_OVER = 'LISTEN_PID=$$ LISTEN_FDS=2 exec "${@:3}" 3<&"$1" 4<&"$2"'


def sentence(text):
    """A line as receivers send it, from what stands between its "$" and its "*"."""
    checksum = 0
    for byte in text.encode():
        checksum ^= byte
    return f"${text}*{checksum:02X}\r\n"


def _angle(degrees, width, signs):
    minutes = round(abs(degrees) * 60, 5)
    return f"{int(minutes // 60):0{width}d}{minutes % 60:08.5f},{signs[degrees < 0]}"


def _burst(seconds, latitude, longitude, mode, status):
    """What a receiver sends each second; its last line tells gpsd that this is all."""
    moment = datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc)
    clock, date = moment.strftime("%H%M%S.%f")[:9], moment.strftime("%d%m%y")
    place = ",,," if latitude is None else f"{_angle(latitude, 2, 'NS')},{_angle(longitude, 3, 'EW')}"
    altitude = "30.0,M,40.0,M" if mode == _3D else ",M,,M"
    satellites = "01,02,03,04,05,06,07,08,,,,,1.8,1.0,1.5" if mode != _NO_FIX else ",,,,,,,,,,,,,,"
    validity, letter = ("V", "N") if mode == _NO_FIX else ("A", "AD"[status == _DIFFERENTIAL])
    lines = [f"GPRMC,{clock},{validity},{place},0.0,0.0,{date},,,{letter}",
             f"GPGSA,A,{mode},{satellites}",
             f"GPGGA,{clock},{place},{status},08,1.0,{altitude},,"]
    # The last one counts: an RMC keeps the altitude that was there before, a GGA without a position takes the fix away.
    return "".join(map(sentence, lines if latitude is not None else reversed(lines)))


def _seconds(when):
    """Seconds since the epoch of a datetime or a number."""
    seconds = when.timestamp() if isinstance(when, datetime.datetime) else float(when)
    if datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).year not in _YEARS:
        raise ValueError(f"gpsd understands times from {_YEARS[0]} to {_YEARS[-1]}, not {when}")
    return round(seconds, 2)


class Gps:
    """The unit's gpsd, which does not run from the start: `start` starts it, and so does the first fix.

    A fix stays until the next.  `fix_3d`, `fix_2d`, `dgps` and `no_fix` return when the shared memory shows it, so that
    whoever reads it from then on sees nothing older.  `when` is a time in seconds since the epoch or an aware
    datetime of the years 2021 to 2069, to hundredths; the machine's time when None.
    """

    def __init__(self, build_dir, directory):
        folder = os.path.join(build_dir, "virtual_unit", "preload")
        self._probe = os.path.join(folder, "libgpsd_probe.so")
        self._reader = os.path.join(folder, "gps_export")
        self._directory = directory
        self._key = hex(1 + secrets.randbelow(2**31 - 1))
        self._process = self._receiver = self._port = self._clients = None
        self._unread = b""
        #: The kind of the last fix and its place; None before the first.
        self.said = None
        #: Called with what the receiver is about to say.
        self.tell = lambda *_said: None

    @property
    def environment(self):
        """What the unit's programs have to know: which of the machine's shared memory is the unit's."""
        return {"GPSD_SHM_KEY": self._key}

    # Life -------------------------------------------------------------------------------------------------------------

    @property
    def running(self):
        """True while gpsd runs."""
        return self._process is not None and self._process.poll() is None

    @property
    def pid(self):
        """gpsd's process id, None when it was not started."""
        return self._process.pid if self._process else None

    def start(self, timeout=PATIENCE):
        """Starts gpsd with a receiver that says nothing yet; returns when it exports that."""
        if self.running:
            return
        self.stop()
        if not os.path.exists(_GPSD):
            raise FileNotFoundError("GPS needs the package gpsd")
        for path in (self._probe, self._reader):
            if not os.path.exists(path):
                raise FileNotFoundError(f"{path} has not been built")
        self._receiver, self._port = pty.openpty()
        tty.setraw(self._port)
        with self._listener("gpsd-orders") as orders, self._listener("gpsd-clients") as clients:
            self._spawn(orders.fileno(), clients.fileno())
        self._unread = b""
        self._clients = self._connect()
        self._next_report("DEVICES", time.monotonic() + timeout)

    def _listener(self, name):
        path = os.path.join(self._directory, name)
        if os.path.exists(path):
            os.unlink(path)
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(path)
            listener.listen()
            # Clear of the numbers at which gpsd expects its sockets.
            return socket.socket(fileno=fcntl.fcntl(listener.fileno(), fcntl.F_DUPFD_CLOEXEC, 10))

    def _spawn(self, *sockets):
        environment = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"), **self.environment,
            "LD_PRELOAD": self._probe,
            "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={self._directory}/no-bus"}
        gpsd = [_GPSD, "--foreground", "--nowait", "--readonly", *_LINE, os.ttyname(self._port)]
        # Asked to end, gpsd removes its shared memory, even when this process is killed.
        command = ["bash", "-c", _HAND_OVER, "bash", *map(str, sockets), "setpriv", "--pdeathsig", "TERM", "--", *gpsd]
        with open(os.path.join(self._directory, "gpsd.stderr"), "ab") as errors:
            self._process = spawn(command, env=environment, pass_fds=sockets, cwd=self._directory,
                                  stdin=subprocess.DEVNULL, stdout=errors, stderr=errors)

    def _connect(self):
        client = socket.socket(socket.AF_UNIX)
        client.connect(os.path.join(self._directory, "gpsd-clients"))
        client.sendall(b'?WATCH={"enable":true,"json":true}\n')
        return client

    def stop(self, timeout=PATIENCE):
        """Ends gpsd and takes its export away.  Can be called again."""
        if self._process is not None:
            self._process.terminate()
            try:
                self._process.wait(timeout)
            except subprocess.TimeoutExpired:
                self._process.kill()
                self._process.wait()
            # What a gpsd that was killed has left.
            subprocess.run(["ipcrm", "-M", self._key], check=False, stderr=subprocess.DEVNULL)
        if self._clients is not None:
            self._clients.close()
        for descriptor in (self._receiver, self._port):
            if descriptor is not None:
                os.close(descriptor)
        self._process = self._receiver = self._port = self._clients = None

    # What the receiver says -------------------------------------------------------------------------------------------

    def fix_3d(self, latitude, longitude, when=None):
        """A position, with altitude."""
        self._fix(_3D, _PLAIN, latitude, longitude, when)

    def fix_2d(self, latitude, longitude, when=None):
        """A position of too few satellites for an altitude."""
        self._fix(_2D, _PLAIN, latitude, longitude, when)

    def dgps(self, latitude, longitude, when=None):
        """A position that a reference station has corrected."""
        self._fix(_3D, _DIFFERENTIAL, latitude, longitude, when)

    def fix_without_position(self, when=None):
        """What some receivers send for a moment: a fix whose position fields are still empty."""
        self._fix(_3D, _PLAIN, None, None, when)

    def no_fix(self):
        """A receiver that looks for satellites."""
        self._fix(_NO_FIX, _NONE, None, None, None)

    def say_again(self, kind, latitude, longitude, when=None):
        """A fix as `said` had it."""
        mode, status = next(key for key, name in _NAMES.items() if name == kind)
        self._fix(mode, status, latitude, longitude, when)

    def say(self, *lines):
        """Has the receiver send lines; see `sentence`.  Does not wait."""
        self.start()
        os.write(self._receiver, "".join(lines).encode())

    def _fix(self, mode, status, latitude, longitude, when, timeout=PATIENCE):
        seconds = _seconds(time.time() if when is None else when)
        self.said = (_NAMES[mode, status], latitude, longitude)
        self.tell(*self.said, seconds)
        deadline = time.monotonic() + timeout
        wanted = (mode, status, seconds, latitude, longitude)
        while not _shows(self.exported(), wanted):
            self.say(*(_burst(seconds - ago, *wanted[3:], mode, status) for ago in reversed(range(_BURSTS))))
            while not _tells(self._next_report("TPV", deadline), mode, seconds):
                pass

    def _next_report(self, kind, deadline):
        while True:
            line, found, rest = self._unread.partition(b"\n")
            if not found:
                self._read_more(deadline)
                continue
            self._unread = rest
            report = json.loads(line)
            if report["class"] == kind:
                return report

    def _read_more(self, deadline):
        if not select.select([self._clients], [], [], max(deadline - time.monotonic(), 0))[0]:
            raise TimeoutError(f"gpsd has not reported what its receiver said; {self.exported()} is exported")
        more = self._clients.recv(65536)
        if not more:
            raise RuntimeError(f"gpsd has ended: {self.errors()}")
        self._unread += more

    # What comes of it -------------------------------------------------------------------------------------------------

    def exported(self):
        """(mode, status, seconds, latitude, longitude) of the shared memory; None without any."""
        done = subprocess.run([self._reader], env=self.environment, check=False, capture_output=True, text=True)
        if done.returncode != 0:
            return None
        mode, status, *others = done.stdout.split()
        return (int(mode), int(status), *map(float, others))

    @property
    def attachments(self):
        """How often the shared memory is attached, gpsd itself included."""
        with open("/proc/sysvipc/shm", encoding="ascii") as file:
            rows = [line.split() for line in file.readlines()[1:]]
        return sum(int(row[6]) for row in rows if int(row[0]) == int(self._key, 0))

    def errors(self):
        """What gpsd wrote to its standard error."""
        path = os.path.join(self._directory, "gpsd.stderr")
        if not os.path.exists(path):
            return ""
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()


def _tells(report, mode, seconds):
    """Whether gpsd tells its clients of this kind of fix, at this time if it tells one."""
    told = report.get("time")
    return report["mode"] == mode and (mode == _NO_FIX or told is None or _same_time(_parse_time(told), seconds))


def _parse_time(text):
    return datetime.datetime.fromisoformat(text).timestamp()


def _same_time(one, other):
    """Receivers tell hundredths."""
    return abs(one - other) < 0.005


def _shows(exported, wanted):
    """Whether the shared memory holds a fix; where there is none it matters not when and where the last one was."""
    if exported is None or exported[:2] != wanted[:2]:
        return False
    mode, _, seconds, *place = wanted
    return mode == _NO_FIX or _same_time(exported[2], seconds) and _same_place(exported[3:], place)


def _same_place(one, other):
    if None in other:
        return all(map(math.isnan, one))
    return math.dist(one, other) < 1e-6
