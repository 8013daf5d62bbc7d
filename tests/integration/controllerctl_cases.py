"""What each verb of the command-line control asks of the controller and tells, and how it is run in a virtual unit."""

import contextlib
import json
import os
import select
import shlex
import signal
import subprocess
from dataclasses import dataclass, field

import pytest

from interfaces.introspection import controller_members
from virtual_unit import PATIENCE
from virtual_unit.loop import spawn

PROGRAM = os.path.join(os.environ["CCU_BUILD_DIR"], "controllerctl", "controllerctl")
PATH = "/com/tavilon/common/Controller1"
CONTROL = "com.tavilon.common.Controller1.Control"
#: Whether what runs is counted, in a build for coverage, and how long a program may take to write that down.
_COUNTED = "CCU_COUNTED" in os.environ
_COUNTED_SECONDS = 10
SUCCESS = {"code": 0, "message": "Ran successfully"}

DONE, REFUSED, USAGE, UNREACHABLE, TIME_OUT = range(5)


@pytest.fixture(scope="module", name="unit")
def stand_in_fixture(stand_in):
    """A unit with nothing but the controller's stand-in, for a file that imports this."""
    return stand_in


@dataclass(frozen=True)
class Ended:
    """How a run ended."""
    status: int
    out: str
    errors: str

    @property
    def object(self):
        """The one object that was told as JSON."""
        assert self.out.endswith("\n") and self.out.count("\n") == 1, self
        return json.loads(self.out)


def environment(unit, **others):
    """That of a program on the unit; None as a value takes a variable away."""
    merged = {**unit.daemon.environment(), "CCU_SYSLOG_FILE": os.path.join(unit.directory, "ctl.log"), **others}
    return {name: value for name, value in merged.items() if value is not None}


def words_of(line):
    """A line of a shell, or the words themselves."""
    return shlex.split(line) if isinstance(line, str) else list(line)


def run(unit, line, cwd=None, text=True, **variables):
    """Runs the program to its end."""
    done = subprocess.run([PROGRAM, *words_of(line)], env=environment(unit, **variables), cwd=cwd or unit.directory,
                          stdin=subprocess.DEVNULL, capture_output=True, text=text, check=False,
                          timeout=PATIENCE)
    return Ended(done.returncode, done.stdout, done.stderr)


class Running:
    """A run that goes on, such as that of "monitor"; a context manager, ready when the program has said so, unless
    it is one that says nothing of that."""

    def __init__(self, unit, line, ready=True, **variables):
        ending = {"CCU_EXITS_ON_SIGUSR1": "1"} if _COUNTED else {}
        self._process = spawn([PROGRAM, *words_of(line)], env=environment(unit, **ending, **variables),
                              cwd=unit.directory, bufsize=0, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE)
        self._unread = {self._process.stdout: b"", self._process.stderr: b""}
        self.said = self._line_of(self._process.stderr) if ready else ""

    def _line_of(self, stream):
        """The next line of a stream, with its end; what there is when the stream ends before."""
        while b"\n" not in self._unread[stream]:
            if not select.select([stream], [], [], PATIENCE)[0]:
                raise TimeoutError(f"no further line; there is {self._unread[stream]!r}")
            chunk = stream.read(65536)
            if not chunk:
                break
            self._unread[stream] += chunk
        line, end, self._unread[stream] = self._unread[stream].partition(b"\n")
        return (line + end).decode()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if _COUNTED:  # what is killed writes nothing down
            self.send(signal.SIGUSR1)
            with contextlib.suppress(subprocess.TimeoutExpired):
                self._process.wait(_COUNTED_SECONDS)
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()
        self._process.stderr.close()

    def line(self):
        """The next line of the output."""
        return self._line_of(self._process.stdout).removesuffix("\n")

    def object(self):
        """The next line as what is told as JSON."""
        return json.loads(self.line())

    def send(self, number):
        """Sends it a signal."""
        self._process.send_signal(number)

    def close_output(self):
        """Goes away as a reader."""
        self._process.stdout.close()

    def wait(self):
        """Waits for its end, whatever it still tells; returns its status."""
        return self._process.wait(PATIENCE)

    def end(self):
        """Waits for its end, and returns what had not been read."""
        unread = list(self._unread.values())
        rest = self._process.communicate(timeout=PATIENCE)
        return Ended(self._process.returncode, *((first + last).decode() for first, last in zip(unread, rest)))


@dataclass(frozen=True)
class Case:
    """One command line.

    line     its words
    calls    (member, arguments) as the controller gets them, properties as "Get X" and "Set X"
    text     what it tells
    fields   the same as JSON
    answers  values of members and properties that the controller has
    """
    line: str
    calls: list
    text: str = ""
    fields: dict = field(default_factory=dict)
    answers: dict = field(default_factory=dict)

    def __str__(self):
        return self.line

    @property
    def coded(self):
        """Whether the answer is a code and a message."""
        return "code" in self.fields

    def prepare(self, unit):
        """Brings the stand-in into the state that the case speaks of."""
        for name, value in self.answers.items():
            if name.startswith("."):
                unit.controller.set_properties(PATH, {name[1:]: value}, emit=False)
            else:
                unit.controller.answer(name, *value)


def _coded(line, member, *arguments, path=None):
    fields = {"path": path, **SUCCESS} if path else SUCCESS
    return Case(line, [(member, arguments)], path or "", fields)


def _recordings():
    size = (1920, 1080, 90)
    for kind, prefix in ("", "Video"), (" --kind photo-talk", "PhotoTalk"), (" --kind auto-log", "AutoLog"):
        yield _coded("record start" + kind, f"{prefix}RecordStart", *size)
        for step in "stop", "pause", "resume":
            yield _coded(f"record {step}{kind}", f"{prefix}Record{step.capitalize()}")
    yield _coded("record start --kind video --width 0 --height 4294967295 --quality 100", "VideoRecordStart",
                 0, 4294967295, 100)


def _setting(verb, name, key, values):
    """Reading and writing of a property; `values` has each value with how it is given and told. What was written is read,
    since the unit may hold something else."""
    for word, value in values:
        yield Case(verb, [(f"Get {name}", ())], word, {key: value}, {f".{name}": value})
        yield Case(f"{verb} {word}", [(f"Set {name}", (value,)), (f"Get {name}", ())], "", {key: value})


def _relative(verb, name, key, changes):
    """Writing by what holds before; `changes` has how it is given, with the value before and after. Both are asked for."""
    for word, before, after in changes:
        yield Case(f"{verb} {word}", [(f"Get {name}", ()), (f"Set {name}", (after,)), (f"Get {name}", ())], told(after),
                   {key: after}, {f".{name}": before})


def told(value):
    """How a value is told."""
    return {True: "on", False: "off"}[value] if isinstance(value, bool) else str(value)


def _list(line, name, key):
    values = ["London", "d\u00fcse \"%s\"", ""]
    yield Case(line, [(f"Get {name}", ())], "\n".join(values), {key: values}, {f".{name}": values})


SWITCH = [("on", True), ("off", False)]
_TIME = (2026, 11, 2, 3, 4, 5, True)
_TIME_FIELDS = dict(zip(("year", "month", "day", "hour", "minute", "second", "dst"), _TIME))


def _times():
    for option, local in ("", True), (" --utc", False):
        yield Case("time get" + option, [("GetTime", (local,))], "2026-11-02 03:04:05",
                   {**_TIME_FIELDS, "local": local}, {"GetTime": _TIME})
        yield Case(f"time set '2026-11-02 03:04:05' --dst on{option}", [("SetTime", (*_TIME, local))])
    yield Case("time set 2026-11-02T03:04", [("Get GetDst", ()), ("SetTime", (*_TIME[:5], 0, True, True))],
               answers={".GetDst": True})
    yield Case("time set 2028-02-29T23:59:60 --dst off", [("SetTime", (2028, 2, 29, 23, 59, 60, False, True))])
    for seconds, word in ((-2147483648, "@-2147483648"), (2147483647, "@2147483647"), (1793588645, "2026-11-02T03:04:05Z"),
                          (1793588645, "2026-11-02T04:04:05.75+01:00"), (1793588645, "'2026-11-01 21:34:05-05:30'"),
                          (1793588640, "2026-11-02t03:04z")):
        yield Case(f"time set {word}", [("SetTimeSecs", (seconds, True)), ("GetTimeSecs", (True,))],
                   answers={"GetTimeSecs": (seconds, True)})
    for seconds in -2147483648, 2147483647:
        yield Case("time get --seconds", [("GetTimeSecs", (True,))], str(seconds), {"seconds": seconds, "dst": True},
                   {"GetTimeSecs": (seconds, True)})
    yield Case("time set-gps", [("SetTimeGPS", ())])
    yield Case("dst get", [("Get GetDst", ())], "on", {"dst": True}, {".GetDst": True})
    for word, value in SWITCH:
        yield Case(f"dst set {word}", [("SetDst", (value,)), ("Get GetDst", ())], "", {"dst": value}, {".GetDst": value})


def _timezones():
    yield Case("timezone get", [("Get GetTimezone", ())], "d\u00fcse", {"timezone": "d\u00fcse"},
               {".GetTimezone": "d\u00fcse"})
    for given, sent in (("New York", "New York"), ("CCU/New York", "CCU/New York"), ("new york", "New York"),
                        ("NEW_YORK", "New York"), ("Rome", "Rome"), ("rome", "Rome")):
        yield Case(f"timezone set '{given}'",
                   [("Get GetTimezoneList", ()), ("SetTimezone", (sent,)), ("Get GetTimezone", ())],
                   "" if given == sent else sent + " there", {"timezone": sent.removeprefix("CCU/") + " there" * (given != sent)},
                   {".GetTimezoneList": ["London", "New York", "Rome"],
                    ".GetTimezone": sent.removeprefix("CCU/") + " there" * (given != sent)})
    for option, arguments in ("--offset -34200 --dst", (-34200, True)), ("--offset 0", (0, False)):
        yield Case(f"timezone set {option}", [("SetTimezoneUTC", arguments), ("Get GetTimezone", ())], "Azores",
                   {"timezone": "Azores"}, {".GetTimezone": "Azores"})
    yield from _list("timezone list", "GetTimezoneList", "timezones")
    yield Case("timezone set-gps", [("SetTimezoneGPS", ())])
    for option, dst in ("", False), (" --dst", True):
        yield Case("timezone from-utc -3600" + option, [("GetTimezoneFromUTC", (-3600, dst))], "Azores",
                   {"timezone": "Azores"}, {"GetTimezoneFromUTC": ("Azores",)})


CASES = [
    _coded("snapshot", "Snapshot", 1920, 1080, 90, path="/snapshot.jpeg"),
    _coded("snapshot --width 640 --height=480 --quality 1", "Snapshot", 640, 480, 1, path="/snapshot.jpeg"),
    _coded("screenshot", "Screenshot", "", path="/screenshot.png"),
    _coded("screenshot '/d\u00fcse %s'", "Screenshot", "/d\u00fcse %s", path="/d\u00fcse %s/screenshot.png"),
    *_recordings(),
    _coded("play start '/d\u00fcse %s.mp4'", "VideoPlaybackStart", "/d\u00fcse %s.mp4", 1.0),
    _coded("play start /status --rate -0.5", "VideoPlaybackStart", "/status", -0.5),
    _coded("play start ''", "VideoPlaybackStart", "", 1.0),
    _coded("play stop", "VideoPlaybackStop", True),
    _coded("play stop --no-live", "VideoPlaybackStop", False),
    _coded("play pause", "VideoPlaybackPause"),
    _coded("play resume", "VideoPlaybackResume"),
    _coded("play seek -2147483648", "VideoPlaybackSeek", -2147483648),
    *_setting("play rate", "VideoPlaybackRate", "rate", [("-2.5", -2.5), ("0.25", 0.25)]),
    *_setting("mic", "MicEnabled", "microphone", SWITCH),
    *_setting("speaker", "SpkrEnabled", "speaker", SWITCH),
    *_setting("volume", "SpkrVolume", "volume", [("0", 0), ("100", 100), ("200", 200)]),
    *_relative("volume", "SpkrVolume", "volume", [("+10", 50, 60), ("-10", 50, 40), ("+10", 95, 100), ("-10", 5, 0)]),
    *_relative("mic", "MicEnabled", "microphone", [("toggle", False, True), ("toggle", True, False)]),
    *_setting("sonde", "Sonde", "sonde", SWITCH),
    *_setting("key-beep", "KeypadBeepEnabled", "keyBeep", SWITCH),
    *_list("sound list", "AudioFiles", "sounds"),
    Case("sound play status", [("PlayAudio", ("status",))]),
    Case("sound play -- --d\u00fcse", [("PlayAudio", ("--d\u00fcse",))]),
    *_times(),
    *_timezones(),
]
#: Each verb once, with and without a value where that makes a difference.
VERBS = list({(case.line.split(" ")[0], *(member for member, _ in case.calls)): case for case in CASES}.values())

#: Every property that the status tells, with its key and a value.
STATUS = {"GetTimezone": ("timezone", "London"), "GetDst": ("dst", False), "GetTimeSourceAvailable": ("timeSource", 1),
          "MicEnabled": ("microphone", True), "SpkrEnabled": ("speaker", False), "SpkrVolume": ("volume", 70),
          "Sonde": ("sonde", True), "KeypadBeepEnabled": ("keyBeep", False), "VideoPlaybackRate": ("rate", 1.5)}
#: Those whose key is their own name, the others having one that is told in the manual: a value, and how it is told.
NAMED_ALIKE = {member.name: (member.name[0].lower() + member.name[1:], *{"b": (True, "on"), "s": ("x", "x")}.get(
    member.signature, (7, "7"))) for member in controller_members()
    if member.kind == "property" and not member.signature.startswith("a") and member.name not in STATUS}
STATUS.update((name, (key, value)) for name, (key, value, _) in NAMED_ALIKE.items())


def prepare_status(unit):
    """Gives every property its value of STATUS."""
    unit.controller.set_properties(PATH, {name: value for name, (_, value) in STATUS.items()}, emit=False)
    unit.controller.answer("GetTime", 2026, 1, 2, 3, 4, 5, False)
