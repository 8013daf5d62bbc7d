"""What clients do and see, case by case, played on the daemon in a virtual unit and on its python-dbusmock template.

As a program it prints the table of the cases: what is seen on each, once where it is the same.
"""

import contextlib

import os
import re
import subprocess
import sys
import tempfile

from interfaces.introspection import controller_members, members
from tests.integration.lender import Lender
from virtual_unit import ABSENT, AT_ONCE, CODE, DbusFailure, VirtualUnit
from virtual_unit.client import INTERFACE, PATH, SERVICE
from virtual_unit.values import Typed

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
TEMPLATE = os.path.join(ROOT, "interfaces", "tavilon_controller.py")
MOCK = "org.freedesktop.DBus.Mock"

SIZE = ("uuu", 1920, 1080, 90)
KINDS = ("Video", "PhotoTalk", "AutoLog")
#: The names of the kinds in the video daemon's captures.
CAPTURES = {"Video": "video", "PhotoTalk": "photoTalk", "AutoLog": "autolog"}
#: A moment after noon.
NOON = 1_773_144_060
#: A place and a moment that GPS tells: Rome.
FIX = (41.9, 12.5, 1_700_000_000)
PROPERTIES = "org.freedesktop.DBus.Properties"
#: What reading all properties is noted as.
ALL = f"{PATH} {PROPERTIES} GetAll s {INTERFACE}"


def _refuse_orders(unit):
    for kind in ("Recording", "PhotoTalk", "AutoLog", "Playback"):
        for order in ("Start", "Stop", "Pause", "Resume", "Seek"):
            unit.faults.on("video", order + kind, kind=CODE(-1))
    unit.faults.on("video", "Snapshot", kind=CODE(-1))


def _grow(unit):
    for kind in ("autolog", "video", "photoTalk"):
        if unit.video.state(kind):
            unit.video.grow(kind, approaching_limit=True)
            unit.settle()


def _give_up(unit):
    os.remove(unit.video.get("PlaybackFilename"))
    unit.video.break_playback()


#: What makes a scenario of the template happen on a unit.
DEEDS = {
    "no job": lambda unit: unit.jobs.close(),
    "no folder": lambda unit: unit.jobs.answer_code("GetNewMediaPathComponents", 2),
    "low power": lambda unit: setattr(unit.hardware, "power_sufficient", 0),
    "storage low": lambda unit: unit.storage.set_low("card"),
    "storage read-only": lambda unit: unit.storage.set_read_only("card"),
    "storage removed": lambda unit: unit.storage.pull_out("card"),
    "no storage daemon": lambda unit: unit.faults.on("storage", kind=ABSENT),
    "media item rejected": lambda unit: [unit.jobs.answer_code(f"Add{kind}Media", 11)
                                         for kind in ("Video", "PhotoTalk", "Autolog")],
    "camera refuses": _refuse_orders,
    "no video daemon": lambda unit: unit.faults.on("video", kind=ABSENT),
    "no hardware daemon": lambda unit: unit.faults.on("hardware", kind=ABSENT),
    "no timedated": lambda unit: unit.faults.on("timedate", kind=ABSENT),
    "sync": lambda unit: unit.sync.set_active(True),
    "size limit": _grow,
    "player gives up": _give_up,
    "healthy": lambda unit: (unit.faults.clear(), setattr(unit.hardware, "power_sufficient", 1)),
}

#: What makes a unit refuse with a text that no scenario brings about.
BREAKS = {
    "SoundManager::SetMicEnabled failed": lambda unit: unit.gpio.mic.fail("write"),
    "SoundManager::GetMicEnabled failed": lambda unit: unit.gpio.mic.fail("read"),
    "SoundManager::SetSpkrEnabled failed": lambda unit: unit.gpio.speaker.fail("write"),
    "SoundManager::GetSpkrEnabled failed": lambda unit: unit.gpio.speaker.fail("read"),
    "SoundManager::SetSpkrVolume failed": lambda unit: unit.audio.refuse_processes(),
    "SoundManager::GetSpkrVolume failed": lambda unit: unit.audio.say(""),
}


class Side:
    """Somebody who has the service's name; what a client does there and sees of it is noted line by line."""

    def __init__(self, client, folder):
        self.client = client
        self.file = os.path.join(folder, "clip.mp4")
        self.seen = []
        os.makedirs(folder, exist_ok=True)
        with open(self.file, "w", encoding="utf-8") as file:
            file.write("video")

    def happen(self, scenario):
        """Makes a scenario happen."""
        raise NotImplementedError

    def refuse(self, member, text):
        """Has a member refused."""
        raise NotImplementedError

    def fix(self, latitude, longitude, seconds):
        """Gives GPS a fix."""
        raise NotImplementedError

    def restart(self):
        """Starts anew."""
        raise NotImplementedError

    def settle(self):
        """Waits for every signal."""
        raise NotImplementedError

    def call(self, member, signature="", *arguments):
        """Calls a method."""
        self.note(member, lambda: self.client.call(member, signature, *arguments))

    def get(self, *names):
        """Reads properties."""
        for name in names:
            self.note(f"Get {name}", lambda name=name: self.client.get(name))

    def set(self, name, signature, value):
        """Writes a property."""
        self.note(f"Set {name}", lambda: self.client.set(name, signature, value))

    def raw(self, *request):
        """Calls anything."""
        self.note(" ".join(map(str, request[1:])), lambda: self.client.call_on(*request))

    def note(self, what, act):
        """Notes what an act is answered, and which signals it has caused."""
        try:
            answer = self.plain(what, act())
        except DbusFailure as failure:
            answer = f"{failure.name.removeprefix('org.freedesktop.DBus.Error.')}: {failure.text}"
        self.seen.append(f"{what} = {answer}")
        self.hear(exact=what in ("SetTime", "SetTimeSecs", "SetTimeGPS"))

    def hear(self, exact=False):
        """Notes the signals that have come; a time to the second where it is exact, and not that of now."""
        self.settle()
        signals = [signal for signal in self.client.signals if signal.interface != MOCK]
        if signals:
            owner = self.client.call_bus("GetNameOwner", "s", SERVICE)
            for signal in signals:
                sender = "the owner" if signal.sender == owner else "another connection"
                values = signal.args if exact else self.plain(signal.member, signal.args)
                self.seen.append(f"  {signal.member}{values} from {sender}")
            self.client.clear()

    def plain(self, what, answer):
        """An answer without what differs from unit to unit: where files are, and minutes and seconds of the clock."""
        if what == "GetTimeSecs":
            answer = (answer[0] // 3600, *answer[1:])
        if what in ("GetTime", "TimeChanged"):
            answer = (*answer[:4], answer[-1])
        if what == "Get AudioFiles":  # they are in no order
            answer = sorted(answer)
        if what == ALL:
            answer = {**answer[0], "AudioFiles": sorted(answer[0]["AudioFiles"])}
        return re.sub(r"'/[^']*/(\d+\.jpeg|screenshot_)[^']*'", r"'.../\1'", repr(answer).replace(self.file, "FILE"))


class DaemonSide(Side):
    """The daemon in a virtual unit."""

    def __init__(self, unit):
        super().__init__(unit.client, unit.media)
        self.unit = unit
        self.touched = False

    def put_back(self):
        """Devices and GPS are not renewed with the unit."""
        if not self.touched:
            return
        for device in (self.unit.gpio.mic, self.unit.gpio.speaker, self.unit.audio):
            device.mend()
        for name, signature, value in (("MicEnabled", "b", True), ("SpkrEnabled", "b", False), ("SpkrVolume", "i", 50),
                                       ("KeypadBeepEnabled", "b", False)):
            self.client.set(name, signature, value)
        self.unit.gps.stop()

    def set(self, name, signature, value):
        self.touched = True
        super().set(name, signature, value)

    def happen(self, scenario):
        DEEDS[scenario](self.unit)

    def refuse(self, member, text):
        self.touched = True
        BREAKS[text](self.unit)

    def fix(self, latitude, longitude, seconds):
        self.touched = True
        self.unit.gps.fix_3d(latitude, longitude, seconds)

    def restart(self):
        self.unit.stop_daemon()
        self.client.clear()
        self.unit.start_daemon()

    def settle(self):
        self.unit.settle()
        settle_bus(self.client)


class MockSide(Side):
    """The template in python-dbusmock."""

    def _mock(self, member, signature, *arguments):
        self.client.call_on(SERVICE, PATH, MOCK, member, signature, *arguments)

    def happen(self, scenario):
        self._mock("Scenario", "s", scenario)

    def refuse(self, member, text):
        self._mock("Refuse", "ss", member, text)

    def fix(self, latitude, longitude, seconds):
        self._mock("SetFix", "ddi", latitude, longitude, seconds)

    def restart(self):
        self._mock("Reset", "")

    def settle(self):
        self.client.sync()
        settle_bus(self.client)


def settle_bus(client):
    """What was in the bus's hands before has been dealt with: a message read in one turn of its loop before those that
    are read in the next."""
    for _ in range(3):
        client.call_bus("GetId")


@contextlib.contextmanager
def running_mock():
    """A session bus with the template on it."""
    with VirtualUnit(daemon=False, siblings=()) as unit:
        environment = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": unit.session_address, "PYTHONDONTWRITEBYTECODE": "1"}
        process = subprocess.Popen(["/usr/bin/python3", "-m", "dbusmock", "--session", "--template", TEMPLATE],
                                   env=environment, stdout=subprocess.DEVNULL)
        try:
            unit.client.wait_until(lambda: len(unit.client.signals) >= 3 or process.poll() is not None)
            yield unit
        finally:
            process.kill()
            process.wait()


@contextlib.contextmanager
def daemon_sides():
    """Makes sides of the daemon, always the same and as new."""
    lender = Lender(bus_timeout=AT_ONCE)

    @contextlib.contextmanager
    def lend():
        with lender.lend() as unit:
            unit.settle()
            unit.client.clear()
            side = DaemonSide(unit)
            yield side
            side.put_back()

    try:
        yield lend
    finally:
        lender.close()


@contextlib.contextmanager
def mock_sides():
    """Makes sides of the template, always the same and as new."""
    with running_mock() as unit, tempfile.TemporaryDirectory(prefix="ccu-") as folder:
        @contextlib.contextmanager
        def lend():
            unit.client.call_on(SERVICE, PATH, MOCK, "Reset")
            settle_bus(unit.client)
            unit.client.clear()
            yield MockSide(unit.client, folder)

        yield lend


# The cases ------------------------------------------------------------------------------------------------------------

CASES = {}


def case(name):
    """Takes a function in as a case."""
    def add(function):
        assert name not in CASES
        CASES[name] = function
        return function
    return add


#: The members that have a case of their own, here with nothing wrong; every other one is in one of those below.
HEALTHY = {
    "Snapshot": SIZE, "VideoPlaybackStop": ("b", True), "VideoPlaybackSeek": ("i", 10), "VideoPlaybackPause": ("",),
    "VideoPlaybackResume": ("",), "PlayAudio": ("s", "beep.wav"), "GetTime": ("b", True), "GetTimeSecs": ("b", True),
    "SetTimezone": ("s", "Berlin"), "SetDst": ("b", True), "SetTimezoneUTC": ("ib", -18000, False),
    "GetTimezoneFromUTC": ("ib", 20000, True), "SetTime": ("iiiiiibb", 2026, 1, 31, 12, 5, 0, False, True),
    "SetTimeSecs": ("ib", 1_800_000_300, True), "SetTimeGPS": ("",), "SetTimezoneGPS": ("",), "Screenshot": ("s", ""),
}
for _name, _arguments in HEALTHY.items():
    case(_name)(lambda side, name=_name, arguments=_arguments: side.call(name, *arguments))
for _member in controller_members():
    if _member.kind == "property":
        case(_member.name)(lambda side, name=_member.name: side.get(name))


def start_all(side):
    """Starts all kinds."""
    for kind in KINDS:
        side.call(f"{kind}RecordStart", *SIZE)


for _kind in KINDS:
    @case(f"a recording of {_kind}")
    def _(side, kind=_kind):
        for act in ("Stop", "Pause", "Resume"):
            side.call(f"{kind}Record{act}")
        for act, *arguments in (("Start", *SIZE), ("Start", *SIZE), ("Pause",), ("Pause",), ("Resume",), ("Resume",),
                                ("Stop",), ("Stop",)):
            side.call(f"{kind}Record{act}", *arguments)
        side.call("Snapshot", *SIZE)


@case("a playback")
def _(side):
    side.call("VideoPlaybackStart", "sd", side.file, 2.0)
    side.get("VideoPlaybackRate")
    for act, *arguments in (("Resume",), ("Pause",), ("Pause",), ("Resume",), ("Seek", "i", 500), ("Seek", "i", -1),
                            ("Stop", "b", False), ("Stop", "b", False), ("Seek", "i", 1)):
        side.call(f"VideoPlayback{act}", *arguments)
    side.set("VideoPlaybackRate", "d", 0.5)
    side.get("VideoPlaybackRate")


@case("files that cannot be played")
def _(side):
    for name in (os.path.dirname(side.file), "", "clip.mp4", "/nowhere/clip.mp4"):
        side.call("VideoPlaybackStart", "sd", name, 1.0)
    with open(side.file, "w", encoding="utf-8"):
        pass
    side.call("VideoPlaybackStart", "sd", side.file, 1.0)


@case("pictures that cannot be taken")
def _(side):
    side.call("Snapshot", "uuu", 0, 1080, 90)
    side.call("Screenshot", "s", "/nowhere")


#: What is refused in a scenario: a start, what can be done to a recording, a snapshot, playback, rate, sonde.
for _scenario in ("no job", "no folder", "low power", "storage low", "storage read-only", "storage removed",
                  "no storage daemon", "media item rejected", "camera refuses", "no video daemon",
                  "no hardware daemon"):
    @case(f"{_scenario}, then everything")
    def _(side, scenario=_scenario):
        side.happen(scenario)
        side.hear()
        start_all(side)
        for act in ("Pause", "Resume", "Stop"):
            side.call(f"VideoRecord{act}")
        side.call("Snapshot", *SIZE)
        if scenario != "storage removed":
            side.call("VideoPlaybackStart", "sd", side.file, 1.0)
        side.call("VideoPlaybackPause")
        side.get("VideoPlaybackRate", "Sonde", "GetTimeSourceAvailable")
        side.set("VideoPlaybackRate", "d", 2.0)
        side.set("Sonde", "b", True)
        side.call("SetTimezone", "s", "Paris")

for _scenario in ("storage low", "storage read-only", "storage removed", "size limit", "player gives up"):
    @case(f"{_scenario} while everything runs")
    def _(side, scenario=_scenario):
        start_all(side)
        side.call("VideoPlaybackStart", "sd", side.file, 1.0)
        side.happen(scenario)
        side.hear()
        side.call("VideoRecordStop")
        side.call("VideoPlaybackStop", "b", True)


@case("the checks of a start in their order")
def _(side):
    for scenario in ("camera refuses", "media item rejected", "low power", "storage low", "no job"):
        side.happen(scenario)
        side.call("VideoRecordStart", *SIZE)


@case("low power, healthy again")
def _(side):
    side.happen("low power")
    side.call("VideoRecordStart", *SIZE)
    side.happen("healthy")
    side.call("VideoRecordStart", *SIZE)


def order_times(side):
    """Everything that clock and zone can be asked for."""
    side.call("SetTime", *HEALTHY["SetTime"])
    side.call("SetTimeSecs", "ib", 1_700_000_100, True)
    side.call("SetTimezone", "s", "Athens")
    side.call("SetDst", "b", True)
    side.call("SetTimezoneUTC", "ib", 3600, False)
    side.call("SetTimeGPS")
    side.call("SetTimezoneGPS")
    side.call("GetTime", "b", True)
    side.get("GetDst", "GetTimezone", "GetTimeSourceAvailable")


for _scenario in ("no timedated", "sync"):
    @case(f"clock and zone: {_scenario}")
    def _(side, scenario=_scenario):
        side.fix(*FIX)
        side.happen(scenario)
        order_times(side)
        side.raw(SERVICE, PATH, PROPERTIES, "GetAll", "s", INTERFACE)


@case("clock and zone: GPS has a fix")
def _(side):
    side.fix(*FIX)
    order_times(side)


@case("clock and zone: during a recording, and a pause")
def _(side):
    side.call("VideoRecordStart", *SIZE)
    order_times(side)
    side.call("VideoRecordPause")
    order_times(side)


@case("zones in both forms")
def _(side):
    for zone in ("Berlin", "Auckland", "CCU/DST/Alaska", "Denver", "Berl", "Nowhere", "UTC", "CCU/DST/Chatham", "CCU/x",
                 "Kathmandu"):
        side.call("SetTimezone", "s", zone)
        side.get("GetTimezone", "GetDst")
    for dst in (True, False, False):
        side.call("SetDst", "b", dst)
    side.call("SetTimezone", "s", "CCU/UTC")
    side.call("SetDst", "b", True)


#: Seconds before and after both changes of a summer, in north and south.
for _zone, _seconds in {"DST/Berlin": (1774745999, 1774746001, 1792889999, 1792890001),
                        "DST/Denver": (1774745999, 1774746001, 1792889999, 1792890001),
                        "DST/Lord_Howe": (1774745999, 1775316600, 1791046169, 1791046172, 1775310170, 1775316000),
                        "DST/Alaska": (1775329199, 1775329201, 1791050399, 1791050401),
                        "DST/Auckland": (1775311199, 1775311201, 1790431199, 1791036001)}.items():
    @case(f"the clock around changes of {_zone}")
    def _(side, zone=_zone, moments=_seconds):
        side.call("SetTimezone", "s", f"CCU/{zone}")
        for seconds in moments:
            side.call("SetTimeSecs", "ib", seconds, True)  # what is told is that moment, and not a later one


@case("the clock by fields")
def _(side):
    for fields in ((2026, 7, 1, 12, 5, 0, True, True), (2026, 1, 1, 12, 5, 0, True, True),
                   (2026, 13, 1, 12, 5, 0, False, True), (2026, 13, 32, 25, 5, 0, False, False),
                   (1960, 1, 1, 0, 0, 0, False, False), (2300, 1, 1, 0, 0, 0, False, False),
                   (2100, 6, 1, 0, 5, 0, True, False), (2026, 6, 1, 0, 5, 0, False, False)):
        side.call("SetTime", "iiiiiibb", *fields)
        side.call("GetTime", "b", False)
        side.call("GetTimeSecs", "b", False)
    for seconds, local in ((1_782_000_000, False), (0, True), (-5, True), (2 ** 31 - 1, True)):
        side.call("SetTimeSecs", "ib", seconds, local)
    side.call("GetTime", "b", True)


@case("properties that are written")
def _(side):
    for name, signature, *values in (
            ("MicEnabled", "b", False, False, True), ("SpkrEnabled", "b", True), ("KeypadBeepEnabled", "b", True, True),
            ("Sonde", "b", True), ("SpkrVolume", "i", 75, 150, -1, 0, 33), ("VideoPlaybackRate", "d", 1.5)):
        for value in values:
            side.set(name, signature, value)
            side.get(name)


for _member, _way, _write in (("MicEnabled", "Get", ("b", True)), ("MicEnabled", "Set", ("b", True)),
                              ("SpkrEnabled", "Get", ("b", True)), ("SpkrEnabled", "Set", ("b", True)),
                              ("SpkrVolume", "Get", ("i", 20)), ("SpkrVolume", "Set", ("i", 20))):
    @case(f"{_member} fails to be {'read' if _way == 'Get' else 'written'}")
    def _(side, member=_member, way=_way, write=_write):
        side.refuse(member, f"SoundManager::{way}{member} failed")
        if (member, way) != ("SpkrVolume", "Set"):  # who can start no process cannot read the volume either
            side.get(member)
        side.set(member, *write)


@case("a sound that is not there")
def _(side):
    side.call("PlayAudio", "s", "bell")


@case("what the bus library refuses")
def _(side):
    side.call("VideoRecordStart", "uu", 1, 1)
    side.call("VideoRecordStart", "uus", 1, 1, "high")
    side.call("VideoRecordStop", "b", True)
    side.call("VideoRecordRewind")
    side.call("CaptureError", "is", 1, "x")
    side.call("GetDst")
    side.get("Volume", "VideoRecordStart")
    side.set("Volume", "i", 1)
    side.set("AudioFiles", "as", ["x"])
    side.set("SpkrVolume", "s", "loud")
    side.set("MicEnabled", "i", 1)
    side.raw(SERVICE, PATH, PROPERTIES, "Get", "ss", "com.example", "Volume")
    side.raw(SERVICE, PATH, PROPERTIES, "GetAll", "s", "com.example")
    side.raw(SERVICE, PATH, PROPERTIES, "Set", "ssv", "com.example", "Volume", Typed("i", 1))
    side.raw(SERVICE, PATH, "com.example", "VideoRecordStop")
    side.raw(SERVICE, "/x", INTERFACE, "VideoRecordStop")


@case("a start")
def _(side):
    side.restart()
    side.hear()


@case("introspection")
def _(side):
    text = side.client.introspect()
    found = members(text, INTERFACE)
    side.seen.append(f"documentation: {'doc.dtd' in text}")
    side.seen += [f"{member.kind} {member.name} {member.inputs} {member.outputs} {member.signature} {member.access} "
                  f"{member.annotations}" for member in found]


@case("all properties at once")
def _(side):
    side.raw(SERVICE, PATH, PROPERTIES, "GetAll", "s", INTERFACE)


def seen(lend, name):
    """What is seen in a case, on a side that is lent for it."""
    with lend() as side:
        side.client.call("SetTimeSecs", "ib", NOON, True)  # far from the next hour, in every zone
        side.settle()
        side.client.clear()
        CASES[name](side)
        return side.seen


def table():
    """The cases in words: what is the same on both sides stands there once."""
    differ = 0
    with daemon_sides() as daemon, mock_sides() as mock:
        for name in CASES:
            columns = seen(daemon, name), seen(mock, name)
            differ += columns[0] != columns[1]
            print(f"\n{name}: {'the same' if columns[0] == columns[1] else 'DIFFERS'}")
            for title, lines in zip(("daemon", "template"), columns if columns[0] != columns[1] else columns[:1]):
                for line in lines:
                    print(f"    {title + ' | ' if columns[0] != columns[1] else ''}{line}")
    print(f"\n{len(CASES)} cases, {differ} of which differ")
    return differ


if __name__ == "__main__":
    sys.exit(bool(table()))
