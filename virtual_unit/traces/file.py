"""The file of a trace: a ZIP archive, or a folder, of what `busctl capture` and `journalctl -o json` write.

  session.pcap, system.pcap  what passed on the two buses; one of them may be missing
  log.jsonl                  the daemon's log in the journal's JSON, one entry a line; may be missing
  unit.tar.gz                the virtual unit when the recording began, as `./ccu snapshot` keeps it; otherwise missing

A file that is no archive is taken for the capture of a session bus.
"""

import io
import json
import os
import struct
import zipfile
from dataclasses import dataclass

import dpkt
from jeepney import HeaderFields, Message, MessageType
from jeepney.low_level import calc_msg_size

SESSION, SYSTEM = "session", "system"
LOG, UNIT = "log.jsonl", "unit.tar.gz"
#: By what the journal knows the daemon.
_IDENTIFIER = "controllerd"
#: What the reader of captures raises when one is none.
_BROKEN = (ValueError, struct.error, dpkt.Error)


class Unreadable(Exception):
    """A file that is no whole trace."""


@dataclass(frozen=True)
class Captured:
    """A message as it passed on a bus; `time` is in seconds since the epoch."""
    time: float
    bus: str
    message: Message

    def field(self, field):
        """A field of the header, None without it."""
        return self.message.header.fields.get(field)

    @property
    def kind(self):
        """A MessageType."""
        return self.message.header.message_type

    sender = property(lambda self: self.field(HeaderFields.sender))
    destination = property(lambda self: self.field(HeaderFields.destination))
    path = property(lambda self: self.field(HeaderFields.path))
    interface = property(lambda self: self.field(HeaderFields.interface) or "")
    member = property(lambda self: self.field(HeaderFields.member))
    error = property(lambda self: self.field(HeaderFields.error_name))
    signature = property(lambda self: self.field(HeaderFields.signature) or "")
    answered = property(lambda self: self.field(HeaderFields.reply_serial))
    serial = property(lambda self: self.message.header.serial)
    body = property(lambda self: tuple(self.message.body))

    @property
    def is_call(self):
        """True for a method call."""
        return self.kind is MessageType.method_call

    @property
    def is_signal(self):
        """True for a signal."""
        return self.kind is MessageType.signal


@dataclass(frozen=True)
class Logged:
    """A line of the daemon's log."""
    time: float
    level: int
    text: str


@dataclass
class Trace:
    """What a file holds; the messages are in the order of their times, as those of each bus are anyway."""
    messages: list
    log: list
    unit: bytes = None


# Reading --------------------------------------------------------------------------------------------------------------


def _message(name, number, time, data):
    try:
        length = calc_msg_size(data)
        if len(data) < length:
            raise Unreadable(f"{name} is cut in its message {number}; `busctl capture` cuts what is longer than --size")
        return Captured(float(time), os.path.basename(name).partition(".")[0], Message.from_buffer(data, fds=range(16)))
    except (ValueError, KeyError, IndexError, AssertionError, RecursionError, struct.error) as error:
        raise Unreadable(f"message {number} of {name} is none of D-Bus: {error}") from error


class _Whole(io.BytesIO):
    """What ends where its reader wants more has been cut."""

    def read(self, size=-1):
        data = super().read(size)
        if 0 < len(data) < size:
            raise ValueError("it is cut")
        return data


def is_whole(path):
    """Whether a capture ends with a whole message, not in the middle of one."""
    try:
        with open(path, "rb") as file:
            return bool(list(dpkt.pcap.UniversalReader(_Whole(file.read()))))
    except _BROKEN:
        return False


def _messages(name, data):
    """The messages of a capture; the bus is the first part of its name."""
    try:
        reader = dpkt.pcap.UniversalReader(_Whole(data))
        if reader.datalink() != dpkt.pcap.DLT_DBUS:
            raise Unreadable(f"{name} is a capture of link type {reader.datalink()}, not of D-Bus "
                             f"({dpkt.pcap.DLT_DBUS})")
        packets = list(reader)
    except _BROKEN as error:
        raise Unreadable(f"{name} is no whole capture: {error or 'it is cut'}") from error
    return [_message(name, number, time, packet) for number, (time, packet) in enumerate(packets, 1)]


def _text(value):
    """A journal's field; what is no UTF-8 is there as a list of bytes."""
    return bytes(value).decode("utf-8", "replace") if isinstance(value, list) else str(value)


def _log(name, data):
    lines = []
    for number, line in enumerate(data.decode("utf-8", "replace").splitlines(), 1):
        try:
            found = json.loads(line)
            if found.get("SYSLOG_IDENTIFIER", _IDENTIFIER) == _IDENTIFIER:
                lines.append(Logged(int(found["__REALTIME_TIMESTAMP"]) / 1e6, int(found.get("PRIORITY", 6)),
                                    _text(found["MESSAGE"])))
        except (ValueError, KeyError, TypeError, AttributeError) as error:
            raise Unreadable(f"line {number} of {name} is none of `journalctl -o json`: {error}") from error
    return lines


def _parts(path):
    """The parts of a trace by their names."""
    known = (f"{SESSION}.pcap", f"{SYSTEM}.pcap", LOG, UNIT)
    if os.path.isdir(path):
        parts = {}
        for name in known:
            if os.path.exists(os.path.join(path, name)):
                with open(os.path.join(path, name), "rb") as file:
                    parts[name] = file.read()
        return parts
    with open(path, "rb") as file:
        start = file.read(4)
    if start[:2] != b"PK":
        with open(path, "rb") as file:
            return {known[0]: file.read()}
    try:
        with zipfile.ZipFile(path) as archive:
            return {name: archive.read(name) for name in known if name in archive.namelist()}
    except (zipfile.BadZipFile, EOFError, ValueError, OSError, NotImplementedError) as error:
        raise Unreadable(f"{path} is no whole archive: {error}") from error


def read(path):
    """The trace of a file or folder; raises Unreadable, with what is wrong, and OSError."""
    parts = _parts(path)
    captures = [name for name in parts if name.endswith(".pcap")]
    if f"{SESSION}.pcap" not in captures:
        raise Unreadable(f"{path} has no {SESSION}.pcap")
    try:
        messages = [message for name in captures for message in _messages(name, parts[name])]
        log = _log(LOG, parts.get(LOG, b""))
    except Unreadable as error:
        raise Unreadable(f"{path}: {error}") from error
    if not messages:
        raise Unreadable(f"{path} is empty: nothing has passed on the bus")
    messages.sort(key=lambda captured: captured.time)  # stable: each bus keeps its order
    return Trace(messages, log, parts.get(UNIT))


# Writing --------------------------------------------------------------------------------------------------------------


def write(path, folder):
    """Makes one file of a folder's parts; it appears complete, in place of what is there."""
    part = path + ".part"
    try:
        with zipfile.ZipFile(part, "w", zipfile.ZIP_DEFLATED, compresslevel=1) as archive:
            for name in sorted(os.listdir(folder)):
                archive.write(os.path.join(folder, name), name)
        os.replace(part, path)
    finally:
        if os.path.exists(part):
            os.unlink(part)


def entry(time, level, text):
    """A line of the log as the journal has it."""
    return json.dumps({"__REALTIME_TIMESTAMP": str(int(time * 1e6)), "PRIORITY": str(level),
                       "SYSLOG_IDENTIFIER": _IDENTIFIER, "MESSAGE": text}) + "\n"
