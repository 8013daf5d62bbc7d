"""controllerctl as a user of a unit types it: the command line of a call, and the reply that comes of it."""

import json
import os
import re
import shlex
import subprocess

from .client import DbusFailure
from .loop import spawn
from .patience import PATIENCE

_KINDS = {"Video": [], "PhotoTalk": ["--kind", "photo-talk"], "AutoLog": ["--kind", "auto-log"]}
_RECORD = re.compile("(Video|PhotoTalk|AutoLog)Record(Start|Stop|Pause|Resume)")


def _switch(value):
    return "on" if value else "off"


def _picture(width, height, quality):
    return ["--width", str(width), "--height", str(height), "--quality", str(quality)]


def _zone(zone):
    return [] if zone else ["--utc"]


def _flag(name, given):
    return [name] if given else []


def _fields(year, month, day, hour, minute, second, dst, local):
    moment = f"{year}-{month:02}-{day:02} {hour:02}:{minute:02}:{second:02}"
    return ["time", "set", moment, "--dst", _switch(dst), *_zone(local)]


#: The words of each member's command, made from its arguments.
_WORDS = {
    "Snapshot": lambda *picture: ["snapshot", *_picture(*picture)],
    "Screenshot": lambda folder: ["screenshot", folder],
    "VideoPlaybackStart": lambda path, rate: ["play", "start", path, "--rate", str(rate)],
    "VideoPlaybackStop": lambda live: ["play", "stop", *_flag("--no-live", not live)],
    "VideoPlaybackPause": lambda: ["play", "pause"],
    "VideoPlaybackResume": lambda: ["play", "resume"],
    "VideoPlaybackSeek": lambda position: ["play", "seek", str(position)],
    "PlayAudio": lambda name: ["sound", "play", name],
    "GetTime": lambda local: ["time", "get", *_zone(local)],
    "SetTime": _fields,
    "SetTimeSecs": lambda seconds, local: ["time", "set", f"@{seconds}"],
    "SetTimeGPS": lambda: ["time", "set-gps"],
    "SetDst": lambda dst: ["dst", "set", _switch(dst)],
    "SetTimezone": lambda name: ["timezone", "set", name],
    "SetTimezoneUTC": lambda offset, dst: ["timezone", "set", "--offset", str(offset), *_flag("--dst", dst)],
    "SetTimezoneGPS": lambda: ["timezone", "set-gps"],
    "GetTimezoneFromUTC": lambda offset, dst: ["timezone", "from-utc", str(offset), *_flag("--dst", dst)],
    "MicEnabled": lambda on: ["mic", _switch(on)],
    "SpkrEnabled": lambda on: ["speaker", _switch(on)],
    "SpkrVolume": lambda percent: ["volume", str(percent)],
    "Sonde": lambda on: ["sonde", _switch(on)],
    "KeypadBeepEnabled": lambda on: ["key-beep", _switch(on)],
    "VideoPlaybackRate": lambda rate: ["play", "rate", str(rate)],
}

#: What a member answers, by the names of the command's JSON; a path is left out when there is none.
_CODED = ("code", "message")
_ANSWERS = {
    **{f"VideoPlayback{order}": _CODED for order in ("Start", "Stop", "Pause", "Resume", "Seek")},
    "Snapshot": ("path", *_CODED), "Screenshot": ("path", *_CODED),
    "GetTime": ("year", "month", "day", "hour", "minute", "second", "dst"), "GetTimezoneFromUTC": ("timezone",),
}


def words_of(member, arguments):
    """The words behind "controllerctl" that call a member, or set a property, in this way."""
    recording = _RECORD.fullmatch(member)
    if recording is None:
        return _WORDS[member](*arguments)
    kind, action = recording.groups()
    return ["record", action.lower(), *_KINDS[kind], *_picture(*arguments)] if arguments else \
        ["record", action.lower(), *_KINDS[kind]]


def command(member, arguments):
    """The command line as a user types it."""
    return shlex.join(["controllerctl", *words_of(member, arguments)])


class Control:
    """Runs controllerctl on a unit; its log stays with it."""

    def __init__(self, build_dir, unit):
        self._program = os.path.join(build_dir, "controllerctl", "controllerctl")
        self._unit = unit

    def run(self, member, arguments):
        """The tuple of the reply's values; raises DbusFailure, which has no name here, when the unit refuses."""
        variables = {**self._unit.daemon.environment(), "CCU_SYSLOG_FILE": f"{self._unit.directory}/control.log"}
        variables.pop("SYSTEMD_BUS_TIMEOUT", None)  # the daemon's own patience
        # One of the daemon's group: when the user interrupts it ends with the daemon, wherever it is just then.
        process = spawn([self._program, "--json", *words_of(member, arguments)], process_group=self._unit.pid or 0,
                        env=variables, cwd=self._unit.directory, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                        stderr=subprocess.PIPE, text=True)
        output, errors = process.communicate(timeout=2 * PATIENCE)
        if not output:
            raise RuntimeError(f"{command(member, arguments)}: status {process.returncode}, {errors}")
        told = json.loads(output)
        if not told["ok"] and told["code"] is None:
            raise DbusFailure("", told["message"])
        names = _CODED if _RECORD.fullmatch(member) else _ANSWERS.get(member, ())
        return tuple(told.get(name, "") for name in names)
