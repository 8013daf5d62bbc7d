"""A private message bus: our own configuration, a socket in the unit's folder, no service activation but our own."""

import contextlib
import os
import select
import subprocess
import threading

from .loop import spawn
from .patience import PATIENCE

_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>{kind}</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <!-- Answers that nobody has asked for get through, so that a test can see them. -->
    <allow send_type="method_return" send_requested_reply="false"/>
    <allow send_type="error" send_requested_reply="false"/>
    <allow receive_type="method_return" receive_requested_reply="false"/>
    <allow receive_type="error" receive_requested_reply="false"/>
  </policy>
{services}{limits}
</busconfig>
"""

_LIMITS = {
    "max_incoming_bytes": 1000000000,
    "max_outgoing_bytes": 1000000000,
    "max_message_size": 1000000000,
    "max_completed_connections": 3000,
    "max_incomplete_connections": 500,
    "max_connections_per_user": 3000,
    "max_names_per_connection": 50000,
    "max_match_rules_per_connection": 50000,
    "max_replies_per_connection": 50000,
    "service_start_timeout": 120000,
    "auth_timeout": 240000,
}


class PrivateBus:
    """One dbus-daemon of type "session" or "system"; `address` is valid once `wait_ready` has returned.

    launcher  command that the dbus-daemon is started by
    services  folder of the service files of what the bus starts itself; nothing is started when None
    limits    of the bus, by name, over those that nobody reaches
    """

    def __init__(self, directory, kind, launcher=(), services=None, limits=None):
        self.kind = kind
        self.address = f"unix:path={directory}/{kind}.socket"
        limits = "\n".join(f'  <limit name="{name}">{value}</limit>'
                           for name, value in {**_LIMITS, **(limits or {})}.items())
        configuration = os.path.join(directory, f"{kind}.conf")
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(_CONFIGURATION.format(
                kind=kind, socket=f"{directory}/{kind}.socket", limits=limits,
                services=f"  <servicedir>{services}</servicedir>\n" if services else ""))
        self._complaints = os.path.join(directory, f"{kind}.stderr")
        reader, writer = os.pipe()
        self._ready = reader
        self._stop_lock = threading.Lock()
        try:
            with open(self._complaints, "wb") as complaints:
                self._process = spawn(
                    [*launcher, "dbus-daemon", "--nofork", "--nopidfile", f"--print-address={writer}",
                     f"--config-file={configuration}"],
                    pass_fds=(writer,), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=complaints)
        except BaseException:
            os.close(reader)
            raise
        finally:
            os.close(writer)

    @property
    def pid(self):
        """Process id of the dbus-daemon."""
        return self._process.pid

    def wait_ready(self, timeout=PATIENCE):
        """Waits until the bus listens."""
        text = b""
        try:
            while not text.endswith(b"\n"):
                if not select.select([self._ready], [], [], timeout)[0]:
                    raise TimeoutError(f"the {self.kind} bus did not start within {timeout} s")
                chunk = os.read(self._ready, 4096)
                if not chunk:
                    status = self._process.wait()
                    raise RuntimeError(f"the {self.kind} bus ended with {status}: {self._read_complaints()}")
                text += chunk
        finally:
            self._close_ready()
        # Of the place alone, as on a unit: a bus that comes later at the same place has another identity.
        self.address = text.decode().strip().partition(",guid=")[0]
        return self

    def _read_complaints(self):
        with open(self._complaints, encoding="utf-8", errors="replace") as file:
            return file.read()

    def _close_ready(self):
        reader, self._ready = self._ready, None
        if reader is not None:
            os.close(reader)

    def wait(self, timeout):
        """Gives a bus that is ending that many seconds for it."""
        with contextlib.suppress(subprocess.TimeoutExpired):
            self._process.wait(timeout)

    def stop(self):
        """Ends the bus and reaps it; every connection to it is cut. Can be called again."""
        with self._stop_lock:
            self._close_ready()
            self._process.kill()
            self._process.wait()
