"""Reader of the file that the syslog capture library writes."""

import os
import re
import threading
import time
from dataclasses import dataclass

from .patience import PATIENCE

_POLL_SECONDS = 0.005
_ESCAPE = re.compile(r"\\(.)", re.DOTALL)
_ESCAPED = {"n": "\n", "t": "\t", "\\": "\\"}


@dataclass(frozen=True)
class LogLine:
    """One message as syslog(3) would have delivered it: its level (0 emergency .. 7 debug) and its text.

    callers  where it was logged, the innermost first, as "FILE+OFFSET"; only with CCU_SYSLOG_CALLERS
    """
    priority: int
    text: str
    callers: tuple = ()


def _parse(record):
    priority, text, *callers = record.split("\t")
    text = _ESCAPE.sub(lambda match: _ESCAPED[match.group(1)], text)
    return LogLine(int(priority), text, tuple(callers))


class SyslogReader:
    """The messages of the unit's processes, in the order in which they were logged."""

    def __init__(self, path):
        self.path = path
        self._lines = []
        self._position = 0
        self._lock = threading.Lock()

    def lines(self):
        """All messages since the start of the unit."""
        with self._lock:
            if os.path.exists(self.path):
                with open(self.path, "rb") as file:
                    file.seek(self._position)
                    data = file.read()
                complete = data[:data.rfind(b"\n") + 1]
                self._position += len(complete)
                records = complete.decode("utf-8", "surrogateescape").split("\n")[:-1]
                self._lines.extend(_parse(record) for record in records)
            return list(self._lines)

    def clear(self):
        """Forgets the messages so far."""
        self.lines()
        with self._lock:
            self._lines.clear()

    def truncate(self):
        """Forgets the messages and gives their room back, for as long as nobody logs."""
        with self._lock:
            os.truncate(self.path, 0)
            self._position = 0
            self._lines.clear()

    def mark(self):
        """The number of messages so far, for `since`."""
        return len(self.lines())

    def since(self, mark):
        """The messages from the mark on."""
        return self.lines()[mark:]

    def texts(self, since=0, priority=None):
        """The texts alone, of one level if it is given."""
        return [line.text for line in self.since(since) if priority in (None, line.priority)]

    def wait_for(self, text, timeout=PATIENCE, since=0):
        """Waits for a message that contains the text and returns the first one."""
        deadline = time.monotonic() + timeout
        while True:
            found = next((line for line in self.since(since) if text in line.text), None)
            if found is not None:
                return found
            if time.monotonic() > deadline:
                raise TimeoutError(f"{text!r} was not logged within {timeout} s; the log was:\n{self.format(since)}")
            time.sleep(_POLL_SECONDS)

    def follow(self, callback, stop, interval=0.1):
        """Hands every message to the callback, past ones first, until the event `stop` is set."""
        position = 0
        while True:
            last = stop.wait(interval)
            lines = self.since(position)
            position += len(lines)
            for line in lines:
                callback(line)
            if last:
                return

    def format(self, since=0):
        """The messages as text, one a line."""
        return "\n".join(f"<{line.priority}> {line.text}" for line in self.since(since))
