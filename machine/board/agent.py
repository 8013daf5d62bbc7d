#!/usr/bin/python3
"""Runs in the machine what the host asks for, over a port of its own: one command at a time, as root.

Both sides write lines of JSON.  Each has the number of its request, so that neither takes what is left of an
interrupted one for its own.
"""

import base64
import json
import os
import selectors
import signal
import subprocess
import time

PORT = "/dev/virtio-ports/ccu.agent"
CHUNK = 32768


class Agent:
    """The port, and the command that runs."""

    def __init__(self):
        self._port = os.open(PORT, os.O_RDWR)
        self._selector = selectors.DefaultSelector()
        self._request = self._process = None
        self._rest = b""

    def _say(self, **words):
        data = json.dumps({"id": self._request, **words}).encode() + b"\n"
        while data:
            data = data[os.write(self._port, data):]

    def _begin(self, order):
        self._end()
        self._request = order["id"]
        if "clock" in order:  # a machine that was kept in a file has slept
            time.clock_settime(time.CLOCK_REALTIME, order["clock"])
            self._say(status=0)
            return
        try:
            self._process = subprocess.Popen(  # pylint: disable=consider-using-with
                order["run"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd="/root",
                env={**os.environ, **order.get("environment", {})}, start_new_session=True)
        except OSError as error:
            self._say(err=base64.b64encode(f"{order['run'][0]}: {error.strerror}\n".encode()).decode())
            self._say(status=127)
            return
        self._selector.register(self._process.stdout, selectors.EVENT_READ, "out")
        self._selector.register(self._process.stderr, selectors.EVENT_READ, "err")

    def _feed(self, order):
        if self._process is None or order["id"] != self._request or self._process.stdin.closed:
            return
        try:
            self._process.stdin.write(base64.b64decode(order["stdin"]))
            self._process.stdin.flush()
            if order.get("last"):
                self._process.stdin.close()
        except BrokenPipeError:  # it wants no more
            self._process.stdin.close()

    def _end(self):
        """Ends the command, of which nobody wants to hear any more."""
        if self._process is not None:
            os.killpg(self._process.pid, signal.SIGKILL)
            self._forget()

    def _forget(self):
        for stream in (self._process.stdout, self._process.stderr):
            if stream in self._selector.get_map():
                self._selector.unregister(stream)
            stream.close()
        status = self._process.wait()
        self._process = None
        return status

    def _hear(self):
        data = os.read(self._port, CHUNK)
        if not data:  # the host has hung up
            self._end()
            self._rest = b""
            time.sleep(0.05)
            return
        *lines, self._rest = (self._rest + data).split(b"\n")
        for line in lines:
            order = json.loads(line)
            (self._feed if "stdin" in order else self._begin)(order)

    def _tell(self, stream, name):
        data = os.read(stream.fileno(), CHUNK)
        if data:
            self._say(**{name: base64.b64encode(data).decode()})
            return
        self._selector.unregister(stream)
        if len(self._selector.get_map()) == 1:  # the port alone
            status = self._forget()
            self._say(status=status if status >= 0 else 128 - status)

    def serve(self):
        """For ever."""
        self._selector.register(self._port, selectors.EVENT_READ, None)
        while True:
            for key, _ in self._selector.select():
                if key.data is None:
                    self._hear()
                elif key.fileobj in self._selector.get_map():
                    self._tell(key.fileobj, key.data)


Agent().serve()
