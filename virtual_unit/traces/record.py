"""`record`: keeps what passes on the buses of a unit that runs, and the daemon's log, in a file."""

import contextlib
import os
import secrets
import select
import shutil
import subprocess
import tempfile
import threading
import time

from jeepney import DBusAddress, new_signal
from jeepney.io.blocking import open_dbus_connection

from ..client import DbusFailure
from ..loop import spawn
from ..patience import PATIENCE
from ..syslog import SyslogReader
from . import file

#: More than any message has.
_SIZE = 128 * 1024 ** 2
_POLL_SECONDS = 0.005
_READY = b"Monitoring bus message stream"
_MARK = DBusAddress("/", interface="com.tavilon.common.VirtualUnit1.Recording")


class _Capture:
    """`busctl capture` of one bus into a file."""

    def __init__(self, address, path):
        self._address, self._path = address, path
        reader, writer = os.pipe()
        with open(path, "wb") as output:
            self._process = spawn(["busctl", f"--address={address}", f"--size={_SIZE}", "capture"],
                                  stdin=subprocess.DEVNULL, stdout=output, stderr=writer)
        os.close(writer)
        self._said = reader

    def wait_ready(self):
        """Waits until nothing is missed any more."""
        said = b""
        while _READY not in said:
            chunk = os.read(self._said, 4096) if select.select([self._said], [], [], PATIENCE)[0] else b""
            if not chunk:
                raise RuntimeError(f"the bus {self._address} cannot be recorded: {said.decode(errors='replace')}")
            said += chunk

    def finish(self):
        """Ends the capture when everything that has been sent is in it."""
        with contextlib.suppress(OSError):  # the bus has gone
            self._wait_written()
        self.stop()

    def _wait_written(self):
        mark = f"end {secrets.token_hex(8)}"
        with open_dbus_connection(self._address) as connection:
            connection.send(new_signal(_MARK, "Ends", "s", (mark,)))
            deadline = time.monotonic() + PATIENCE
            with open(self._path, "rb") as captured:
                captured.seek(0, os.SEEK_END)
                captured.seek(max(captured.tell() - 65536, 0))
                said = b""
                while not (mark.encode() in said and file.is_whole(self._path)):
                    if self._process.poll() is not None or time.monotonic() > deadline:
                        return
                    time.sleep(_POLL_SECONDS)
                    said = said[-4096:] + captured.read()

    def stop(self):
        """Ends the capture.  Can be called again."""
        if self._process.poll() is None:
            self._process.kill()
        self._process.wait()
        if self._said is not None:
            os.close(self._said)
        self._said = None


class Recorder:
    """Records one unit, from its making until `finish`; what it has so far lies in a folder of its own.

    switch  called with True when the recording has begun, and with False before it ends: the unit is to tell what
            happens beside the buses
    save    called with the file in which the unit as it is then is to be kept; not needed for a unit whose daemon is
            started later
    """

    def __init__(self, buses, log_path, switch, save=lambda _path: None):
        self._folder = tempfile.mkdtemp(prefix="trace-")
        self._switch = switch
        self._captures = []
        self._stop = threading.Event()
        self._log = SyslogReader(log_path)
        self._log.clear()
        self._follower = threading.Thread(target=self._follow_log, name="virtual-unit-trace", daemon=True)
        try:
            for name, address in buses.items():
                self._captures.append(_Capture(address, self.part(f"{name}.pcap")))
            for capture in self._captures:
                capture.wait_ready()
            self._follower.start()
            save(self.part(file.UNIT))
            switch(True)
        except BaseException:
            self.discard()
            raise

    def part(self, name):
        """Where a part of the trace lies."""
        return os.path.join(self._folder, name)

    def _follow_log(self):
        with open(self.part(file.LOG), "w", encoding="utf-8") as lines:
            self._log.follow(lambda line: lines.write(file.entry(time.time(), line.priority, line.text)), self._stop,
                             _POLL_SECONDS)

    def finish(self, path):
        """Ends the recording and keeps it in a file."""
        try:
            with contextlib.suppress(DbusFailure):  # the unit has gone
                self._switch(False)
            for capture in self._captures:
                capture.finish()
            self._stop.set()
            self._follower.join()
            file.write(path, self._folder)
        finally:
            self.discard()

    def discard(self):
        """Ends the recording.  Can be called again."""
        self._stop.set()
        if self._follower.ident is not None:
            self._follower.join()
        for capture in self._captures:
            capture.stop()
        shutil.rmtree(self._folder, ignore_errors=True)
