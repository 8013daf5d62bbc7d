"""The driver program of the clients in a virtual unit: runs client operations one by one, or listens to a sibling."""

import itertools
import json
import os
import select
import subprocess
import time
from dataclasses import dataclass

from virtual_unit import PATIENCE
from virtual_unit.loop import spawn
from virtual_unit.syslog import LogLine, SyslogReader

#: What out-arguments hold before a call.
UNTOUCHED = {"b": True, "i": 77, "s": "untouched", "as": ["untouched"]}

_numbers = itertools.count()


def error(text):
    """A failure line."""
    return LogLine(3, text)


def info(text):
    """A progress line."""
    return LogLine(6, text)


def debug(text):
    """A traffic line."""
    return LogLine(7, text)


@dataclass(frozen=True)
class Outcome:
    """What an operation did: its result, its out-arguments and the lines that it logged."""
    result: int
    outs: list
    lines: list


class ClientDriver:
    """One process of a driver program; to be used as a context manager.

    program      its name
    environment  variables over those of the unit; None as a value takes one away
    """

    def __init__(self, unit, environment=None, program="client_driver"):
        log_path = os.path.join(unit.directory, f"driver-{next(_numbers)}.log")
        merged = {**unit.daemon.environment(), "CCU_SYSLOG_FILE": log_path, **(environment or {})}
        self.log = SyslogReader(log_path)
        self._unread = b""
        self._process = spawn([os.path.join(os.environ["CCU_BUILD_DIR"], "tests", "driver", program)],
                              cwd=unit.directory, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              env={name: value for name, value in merged.items() if value is not None})

    def __enter__(self):
        return self

    def __exit__(self, kind, _error, _trace):
        status = self.close()
        if kind is None and status != 0:
            raise AssertionError(f"the driver ended with {status}")

    def close(self):
        """Ends the input and waits for the process; returns its exit status."""
        self._process.stdin.close()
        try:
            return self._process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self._process.kill()
            return self._process.wait()
        finally:
            self._process.stdout.close()

    def run(self, operation, *inputs):
        """Runs one operation, named as in "video.PauseRecording"."""
        mark = self.log.mark()
        answer = self._ask(operation, inputs)
        return Outcome(answer["result"], answer["out"], self.log.since(mark))

    def operations(self):
        """All operations by name, with the D-Bus types of their inputs."""
        return self._ask("list", ())["out"][0]

    def listeners(self):
        """The names of the clients that listen."""
        return [name.partition(".")[2] for name in self._ask("list", ())["out"][1]]

    def listen(self, client):
        """Starts listening to a sibling, for as long as the driver lives; returns the result."""
        return self._ask(f"listen.{client}", ())["result"]

    def signal(self):
        """Waits for the next signal of the client; returns its name and its arguments."""
        told = self._read()
        return told["signal"], told["arguments"]

    def descriptors(self, kind=""):
        """The number of open file descriptors, or of those of a kind such as "socket"."""
        folder = f"/proc/{self._process.pid}/fd"
        return sum(os.readlink(f"{folder}/{name}").startswith(kind) for name in os.listdir(folder))

    def _ask(self, operation, inputs):
        request = json.dumps({"operation": operation, "in": list(inputs)})
        self._process.stdin.write(request.encode() + b"\n")
        self._process.stdin.flush()
        answer = self._read()
        if "error" in answer:
            raise ValueError(f"{operation}{inputs}: {answer['error']}")
        return answer

    def _read(self):
        deadline = time.monotonic() + PATIENCE
        while b"\n" not in self._unread:
            if not select.select([self._process.stdout], [], [], max(0, deadline - time.monotonic()))[0]:
                raise TimeoutError(f"the driver did not answer; its log was:\n{self.log.format()}")
            chunk = os.read(self._process.stdout.fileno(), 65536)
            if not chunk:
                raise RuntimeError(f"the driver ended with {self._process.wait()}; its log was:\n{self.log.format()}")
            self._unread += chunk
        line, _, self._unread = self._unread.partition(b"\n")
        return json.loads(line)
