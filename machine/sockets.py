"""The host's ends of the machine's sockets: the agent, QEMU's monitor, the console."""

import base64
import contextlib
import itertools
import json
import os
import select
import socket
import time


class Gone(Exception):
    """The machine has ended, or does not answer."""


def connect(folder, name):
    """A connection to a socket in a folder, whose path may be longer than a socket's name can be."""
    handle = os.open(folder, os.O_PATH | os.O_DIRECTORY)
    try:
        connection = socket.socket(socket.AF_UNIX)
        try:
            connection.connect(f"/proc/self/fd/{handle}/{name}")
        except OSError as error:
            connection.close()
            raise Gone(f"no machine answers in {folder}: {error.strerror}") from error
        return connection
    finally:
        os.close(handle)


class Lines:
    """Lines of JSON over a connection."""

    def __init__(self, connection):
        self._connection = connection
        self._rest = b""

    def fileno(self):
        """For select."""
        return self._connection.fileno()

    def close(self):
        """Ends the connection."""
        self._connection.close()

    def send(self, **words):
        """Sends one line."""
        with contextlib.suppress(BrokenPipeError):  # what is read next tells
            self._connection.sendall(json.dumps(words).encode() + b"\n")

    def receive(self, deadline=None):
        """The values of the lines that have come, after waiting for something to come; those that are none of ours,
        left over from a connection that was cut, are passed over."""
        left = None if deadline is None else max(deadline - time.monotonic(), 0)
        if not select.select([self._connection], [], [], left)[0]:
            raise TimeoutError("the machine does not answer in time")
        data = b""
        with contextlib.suppress(ConnectionResetError):
            data = self._connection.recv(65536)
        if not data:
            raise Gone("the machine has ended")
        *lines, self._rest = (self._rest + data).split(b"\n")
        found = []
        for line in lines:
            with contextlib.suppress(ValueError):
                found.append(json.loads(line))
        return found


class Monitor:
    """QEMU's own control: devices that come and go, keys, memory, the machine's state."""

    def __init__(self, folder):
        self._lines = Lines(connect(folder, "monitor"))
        self.do("qmp_capabilities")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._lines.close()

    def do(self, command, **arguments):
        """The answer to a command; RuntimeError when it is refused."""
        self._lines.send(execute=command, arguments=arguments)
        while True:
            for answer in self._lines.receive(time.monotonic() + 60):
                if "error" in answer:
                    raise RuntimeError(f"{command}: {answer['error']['desc']}")
                if "return" in answer:
                    return answer["return"]


class Order:
    """A command that runs in the machine, on a connection of its own: whoever closes it ends the command."""

    _numbers = itertools.count(1)

    def __init__(self, folder, **order):
        self._number = f"{os.getpid()}.{next(self._numbers)}"
        self._lines = Lines(connect(folder, "agent"))
        self._lines.send(id=self._number, **order)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._lines.close()

    def fileno(self):
        """For select."""
        return self._lines.fileno()

    def feed(self, data, last=False):
        """Gives the command something to read."""
        self._lines.send(id=self._number, stdin=base64.b64encode(data).decode(), last=last)

    def hear(self, deadline=None):
        """What has come of it: pairs of "out" or "err" and bytes, at last of "status" and a number."""
        told = []
        for words in self._lines.receive(deadline):
            if words.get("id") == self._number:
                told += [(name, value if name == "status" else base64.b64decode(value))
                         for name, value in words.items() if name != "id"]
        return told
