"""python-dbusmock template of the controller: a healthy unit, and a menu of what can go wrong with one.

    python3 -m dbusmock --template /usr/share/python-dbusmock/templates/tavilon_controller.py

Members, types, result codes with their messages, refusals and which changes are announced are read from the interface
file.  What the unit does stands here: it answers, refuses and signals as the daemon does, "TimeChanged" and
"TimezoneChanged" from private connections too, but has no siblings, and makes no pictures and no recordings.

On org.freedesktop.DBus.Mock there are, besides dbusmock's own methods:

    Scenarios() -> a{ss}                 the menu
    Scenario(s name)                     what of the menu happens now, and lasts until "healthy"
    AnswerCode(s member, i code)         the member answers with this code and its message; with 0 as by itself again
    Refuse(s member, s text)             the member is refused with one of its texts; with "" it is not any more
    EmitCode(s signal, i code)           the signal is emitted, with the message that belongs to the code
    SetFix(d latitude, d longitude, i seconds)   GPS has a fix

Parameters, all of them optional: "interface", the interface file; "zones", the table of the zones; "media" and "logs",
the folders of what snapshots and screenshots are said to be in; "sounds", the names of "AudioFiles".
"""

import calendar
import csv
import math
import os
import re
import time
import xml.etree.ElementTree as ElementTree

import dbus
import dbus.lowlevel
import dbus.service
from dbusmock import MOCK_IFACE, DBusMockObject

BUS_NAME = "com.tavilon.common.Controller1"
MAIN_OBJ = "/com/tavilon/common/Controller1"
MAIN_IFACE = BUS_NAME + ".Control"
SYSTEM_BUS = False

_HERE = os.path.dirname(os.path.abspath(__file__))
_DOC = "{http://www.freedesktop.org/dbus/1.0/doc.dtd}"
_ERROR = "org.freedesktop.DBus.Error."
_FAILED = _ERROR + "Failed"
_TYPES = {"b": dbus.Boolean, "d": dbus.Double, "i": dbus.Int32, "s": dbus.String,
          "as": lambda values: dbus.Array(values, signature="s")}

OFF, RUNNING, PAUSED = 0, 1, 2
#: The recordings in the order in which they are ended, with the type that "CaptureSizeLimitReached" tells.
KINDS = {"AutoLog": 0, "Video": 2, "PhotoTalk": 1}
_ABSENT, _INVALID = -113, -22  # negated errnos of a timedated that is not there, and that refuses
_HOUR = 3600
_CLOCK_END = 9223372036 - 30 * 365 * 86400  # from 2232 on the kernel refuses
_PLAYER_END = 60000

#: What can go wrong: the attributes of `Unit` that say so, and what a client sees of it.
SCENARIOS = {
    "healthy": ({}, "everything works; what is recorded or played goes on"),
    "no job": ({"path": -7}, "starts and snapshots are answered -7"),
    "no folder": ({"path": -4}, "starts and snapshots are answered -4"),
    "low power": ({"power": False}, "starts are answered -2"),
    "storage low": ({"storage": -3}, "recordings end with CaptureError -3; starts are answered -3"),
    "storage read-only": ({}, "recordings end with CaptureError -4"),
    "storage removed": ({"storage": -1}, "recordings end with CaptureError -4, playback with PlaybackError -3; starts "
                                         "are answered -1"),
    "no storage daemon": ({"storage": -1}, "starts are answered -1"),
    "media item rejected": ({"media_item": False}, "starts are answered -10"),
    "camera refuses": ({"camera": False}, "what the video daemon has to do is answered -1"),
    "no video daemon": ({"camera": False, "video": False}, "starts are answered -8, everything else of recording and "
                                                           "playback -1"),
    "no hardware daemon": ({"hardware": False, "power": False}, "starts are answered -2; the sonde is refused"),
    "no timedated": ({"timedated": False}, "clock and zone are refused; dst is false"),
    "sync": ({"syncing": True}, "clock and zone cannot be set"),
    "size limit": ({}, "recordings are told by CaptureSizeLimitReached, and end"),
    "player gives up": ({}, "playback ends with PlaybackError -1: its file is gone"),
}


def _text(element, path=""):
    found = element.find(path) if path else element
    return " ".join("".join(found.itertext()).split()) if found is not None else ""


def _codes(element):
    """The messages of a list of codes."""
    return {int(code): message for code, _, message in
            (_text(item, f"{_DOC}term").partition(" ") for item in element.iter(f"{_DOC}item"))}


class Member:
    """One member, with what the file says of it; `refusals` are those of a call, of reading or of writing."""

    def __init__(self, element, lists):
        doc = element.find(f"{_DOC}doc")
        self.kind, self.name = element.tag, element.get("name")
        self.type, self.writable = element.get("type", ""), element.get("access") == "readwrite"
        args = element.findall("arg")
        self.inputs = "".join(arg.get("type") for arg in args if arg.get("direction") == "in")
        self.outputs = "".join(arg.get("type") for arg in args if arg.get("direction", "out") == "out")
        self.announces = doc.get("announces") == "yes"
        self.codes = _codes(args[0]) if self.kind == "signal" and args else {}
        if self.kind == "method" and self.outputs.endswith("is"):
            self.codes = lists[doc.get("section")]
        self.refusals = {"reading": [], "writing": [], "": []}
        for error in doc.iter(f"{_DOC}error"):
            way = _text(error, f"{_DOC}definition").partition(":")[0]
            way = way if way in self.refusals else "reading" if self.kind == "property" else ""
            self.refusals[way].append(_text(error, f"{_DOC}term"))


class Interface:
    """The interface file."""

    def __init__(self, path):
        self.element = ElementTree.parse(path).getroot().find("interface")
        lists = {item.get("title"): _codes(item) for item in self.element.find(f"{_DOC}doc").iter(f"{_DOC}list")}
        self.members = {item.get("name"): Member(item, lists) for item in self.element
                        if item.tag in ("method", "property", "signal")}
        for item in list(self.element.iter()):
            for doc in item.findall(f"{_DOC}doc"):
                item.remove(doc)

    def of(self, kind):
        """The members of a kind."""
        return [member for member in self.members.values() if member.kind == kind]

    def member(self, name, has):
        """The member of the name, which must have codes or refusals."""
        found = self.members.get(name)
        if found is None or not has(found):
            raise _mistake(f"'{name}' is none of {', '.join(item.name for item in self.members.values() if has(item))}")
        return found


def _error(name, text):
    return dbus.exceptions.DBusException(text, name=name)


def _mistake(text):
    return _error(_ERROR + "InvalidArgs", text)


def _found(*places):
    for place in places:
        if os.path.exists(os.path.join(_HERE, place)):
            return os.path.join(_HERE, place)
    raise _mistake(f"none of {', '.join(places)} is there, seen from {_HERE}: say where it is")


class Zones:
    """The zones of a unit: "CCU/NAME" is standard time all year, "CCU/DST/NAME" has daylight saving."""

    def __init__(self, path):
        with open(path, encoding="utf-8", newline="") as file:
            self.rows = {row["zone"]: row for row in csv.DictReader(file, delimiter="\t")}
        self.names = sorted([*self.rows, "UTC"])

    def installed(self, zone):
        """What timedated says of a whole name."""
        bare = zone.removeprefix("CCU/").removeprefix("DST/")
        return zone in ("UTC", "CCU/UTC") or bare in self.rows and zone in (f"CCU/{bare}", f"CCU/DST/{bare}")

    def best(self, measure):
        """The first zone by name of those with the smallest measure."""
        return min(self.rows, key=lambda name: measure(self.rows[name]))

    def rule(self, zone):
        """The zone in the language of the C library's TZ."""
        row = self.rows.get(zone.rpartition("/")[2])
        offset, southern = (int(row["offset"]), float(row["latitude"]) < 0) if row else (0, False)

        def clock(seconds):
            return f"{'-' if seconds < 0 else ''}{abs(seconds) // 3600}:{abs(seconds) // 60 % 60}:{abs(seconds) % 60}"

        standard = f"LST{clock(-offset)}"
        if "DST" not in zone or row is None:
            return standard
        start, end = ("M10.1.0/2", "M4.1.0/3") if southern else (
            f"M3.5.0/{clock(_HOUR + offset)}", f"M10.5.0/{clock(2 * _HOUR + offset)}")
        return f"{standard}LDT{clock(-offset - _HOUR)},{start},{end}"


def _distance(row, latitude, longitude):
    """The haversine of the angle between a zone and a place, which grows with the distance."""
    here, there = math.radians(latitude), math.radians(float(row["latitude"]))
    east = math.radians(float(row["longitude"]) - longitude)
    return math.sin((there - here) / 2) ** 2 + math.cos(here) * math.cos(there) * math.sin(east / 2) ** 2


class Unit:
    """A unit without a daemon.  `do_NAME` is what a method does, `get_NAME` and `set_NAME` what a property does that is
    more than kept."""

    def __init__(self, mock, parameters):
        self.mock = mock
        self.interface = Interface(parameters.get("interface") or _found(
            f"{MAIN_IFACE}.xml", f"../../dbus-1/interfaces/{MAIN_IFACE}.xml"))
        self.zones = Zones(parameters.get("zones") or _found(
            "tavilon_controller_zones.tsv", "../virtual_unit/zone_table.tsv"))
        self.media = parameters.get("media", "/mnt/media/job1/media")
        self.logs = parameters.get("logs", "/mnt/ccu-data/logs")
        self.forced, self.refused = {}, {}
        self.states = dict.fromkeys(KINDS, OFF)
        self.player, self.stems, self.ahead, self.fix = OFF, 0, 0, None
        self.values = {"VideoPlaybackRate": 1.0, "KeypadBeepEnabled": False, "Sonde": False, "MicEnabled": True,
                       "SpkrEnabled": False, "SpkrVolume": 50, "GetTimezoneList": self.zones.names,
                       "AudioFiles": list(parameters.get("sounds", ["shutter.wav", "beep.wav", "warning.wav"]))}
        self.path, self.storage, self.power, self.media_item = 0, 0, True, True
        self.video = self.camera = self.hardware = self.timedated = True
        self.syncing = False
        self.put_in_force("CCU/London")

    # What clients hear ------------------------------------------------------------------------------------------------

    def emit(self, name, *values):
        """From the connection that owns the name."""
        self.mock.EmitSignal(MAIN_IFACE, name, self.interface.members[name].outputs, values)

    def emit_code(self, name, code):
        """A code, with its message."""
        self.emit(name, code, self.interface.members[name].codes[code])

    def emit_apart(self, name, *values):
        """From a connection of its own: no proxy object that follows the owner of the name hears it."""
        message = dbus.lowlevel.SignalMessage(MAIN_OBJ, MAIN_IFACE, name)
        message.append(*values, signature=self.interface.members[name].outputs)
        connection = dbus.SessionBus(private=True)
        connection.set_exit_on_disconnect(False)
        connection.send_message(message)
        connection.flush()
        connection.close()

    def announce(self, name):
        """The new value of a property."""
        self.mock.EmitSignal(dbus.PROPERTIES_IFACE, "PropertiesChanged", "sa{sv}as", [
            MAIN_IFACE, {name: self.read(name)}, dbus.Array(signature="s")])

    def refusal(self, name, number=0, way="", **others):
        """The error of a member by its number in the file; `others` fill in what varies."""
        text = self.interface.members[name].refusals[way][number]
        if "code" in others:
            text = re.sub(r"-\d+$", str(others["code"]), text)
        if "given" in others:
            text = text.replace("NAME", others["given"], 1)
        return _error(_FAILED, text)

    # Members ----------------------------------------------------------------------------------------------------------

    def read(self, name):
        """The value of a property, of its type."""
        if (name, "reading") in self.refused:
            raise _error(_FAILED, self.refused[name, "reading"])
        value = getattr(self, f"get_{name}")() if hasattr(self, f"get_{name}") else self.values[name]
        return _TYPES[self.interface.members[name].type](value)

    def write(self, name, value):
        """A new value of a property."""
        if (name, "writing") in self.refused:
            raise _error(_FAILED, self.refused[name, "writing"])
        if hasattr(self, f"set_{name}"):
            getattr(self, f"set_{name}")(value)
        else:
            self.values[name] = value
        if self.interface.members[name].announces and (name, "reading") not in self.refused:
            self.announce(name)

    def call(self, name, arguments):
        """What a method answers."""
        member = self.interface.members[name]
        if (name, "") in self.refused:
            raise _error(_FAILED, self.refused[name, ""])
        if name in self.forced:
            path = ("",) if member.outputs == "sis" else ()
            return (*path, self.forced[name], member.codes[self.forced[name]])
        kind, _, act = name.partition("Record")
        answer = self.record(kind, act) if kind in KINDS and act else getattr(self, f"do_{name}")(*arguments)
        if not member.codes or isinstance(answer, tuple):
            return answer
        return answer, member.codes[answer]

    def record(self, kind, act):
        """An order to one of the recordings; returns the code."""
        before, after = {"Start": (OFF, RUNNING), "Stop": (None, OFF), "Pause": (RUNNING, PAUSED),
                         "Resume": (PAUSED, RUNNING)}[act]
        state = self.states[kind]
        code = 0
        if act == "Start":
            code = self.check_start(state)
        elif not self.camera or state == OFF or before not in (state, None):
            code = -1
        if code == 0:
            self.states[kind] = after
        return code

    def check_start(self, state):
        """The checks in their order."""
        if not self.video or state != OFF:
            return -8
        return self.next_path() or self.storage or (0 if self.power else -2) or \
            (0 if self.media_item else -10) or (0 if self.camera else -1)

    def next_path(self):
        """A code; a number is given to the next file unless there is none."""
        self.stems += self.path == 0
        return self.path

    def do_Snapshot(self, width, height, quality):
        """A picture that the camera could take; none is made."""
        codes = self.interface.members["Snapshot"].codes
        if self.next_path() < 0:
            return "", self.path, codes[self.path]
        fits = 0 < width <= 4096 and 0 < height <= 4096 and 0 < quality <= 100
        code = 0 if self.camera and fits else -1
        return f"{self.media}/{self.stems:04}.jpeg", code, codes[code]

    def do_Screenshot(self, folder):
        """The name that the file would have."""
        if folder and not os.path.isdir(folder):
            return folder, -1, "Bad directory"
        name = time.strftime("screenshot_%Y-%m-%d-%H-%M-%S.png", time.localtime(self.now()))
        return f"{folder or self.logs}/{name}", 0, self.interface.members["Screenshot"].codes[0]

    def do_VideoPlaybackStart(self, filename, rate):
        """The file must be there, and not be empty."""
        if not (os.path.isabs(filename) and os.path.isfile(filename) and os.path.getsize(filename)):
            return -2
        if not self.camera:
            return -1
        self.player, self.values["VideoPlaybackRate"] = RUNNING, float(rate)
        return 0

    def move_player(self, allowed, after=None):
        """An order to the player."""
        if not self.camera or not allowed:
            return -1
        self.player = self.player if after is None else after
        return 0

    def do_VideoPlaybackStop(self, _restart_live):
        """Something must be played."""
        return self.move_player(self.player != OFF, OFF)

    def do_VideoPlaybackPause(self):
        """Something must be playing."""
        return self.move_player(self.player == RUNNING, PAUSED)

    def do_VideoPlaybackResume(self):
        """Something must be paused."""
        return self.move_player(self.player == PAUSED, RUNNING)

    def do_VideoPlaybackSeek(self, position):
        """Something must be played, and be that long."""
        return self.move_player(self.player != OFF and 0 <= position <= _PLAYER_END)

    def get_VideoPlaybackRate(self):
        """The video daemon's."""
        if not self.video:
            raise self.refusal("VideoPlaybackRate", way="reading")
        return self.values["VideoPlaybackRate"]

    def set_VideoPlaybackRate(self, rate):
        """The video daemon's."""
        if not self.video:
            raise self.refusal("VideoPlaybackRate", way="writing")
        self.values["VideoPlaybackRate"] = rate

    def get_Sonde(self):
        """False when it cannot be asked for."""
        return self.hardware and self.values["Sonde"]

    def set_Sonde(self, enabled):
        """The hardware daemon's."""
        if not self.hardware:
            raise self.refusal("Sonde", way="writing")
        self.values["Sonde"] = enabled

    def get_SpkrVolume(self):
        """What the mixer makes of a percentage, having 127 steps: 75 is 76."""
        return (200 * -(-self.values["SpkrVolume"] * 127 // 100) + 127) // 254

    def set_SpkrVolume(self, percent):
        """The mixer keeps within its limits, and takes nothing below zero."""
        self.values["SpkrVolume"] = min(percent, 100) if percent >= 0 else self.values["SpkrVolume"]

    def do_PlayAudio(self, name):
        """Nothing is heard."""
        if name not in self.values["AudioFiles"]:
            raise self.refusal("PlayAudio")

    # Clock and zone: those of the C library, as on a unit -------------------------------------------------------------

    def now(self):
        """Seconds since the epoch."""
        return time.time() + self.ahead

    def put_in_force(self, zone):
        """Local time becomes the zone's."""
        self.zone = zone
        os.environ["TZ"] = self.zones.rule(zone)
        time.tzset()

    @property
    def dst(self):
        """As far as it is known."""
        return self.timedated and "DST" in self.zone

    def whole_name(self, bare, dst):
        """A zone in one of its forms."""
        return f"CCU/{'DST/' if dst else ''}{bare}"

    def can_set(self):
        """Nothing is being recorded or synchronised."""
        return not (self.syncing or self.video and RUNNING in self.states.values())

    def timedated_code(self, allowed):
        """What timedated answers."""
        return _ABSENT if not self.timedated else 0 if allowed else _INVALID

    def tell_time(self, moment):
        """That the clock or the zone was set."""
        self.emit_apart("TimeChanged", *time.localtime(moment)[:6], self.dst)

    def change_zone(self, zone):
        """Asks timedated for a zone, tells of it, and returns the code."""
        code = self.timedated_code(self.zones.installed(zone))
        if code == 0:
            self.put_in_force(zone)
            self.emit_apart("TimezoneChanged", zone)
            self.tell_time(self.now())
        return code

    def set_clock(self, seconds):
        """Asks timedated for a time; returns the code."""
        code = self.timedated_code(0 < seconds < _CLOCK_END)
        if code == 0:
            self.ahead = seconds - time.time()
        return code

    def do_GetTime(self, local):
        """The fields, by the zone or by UTC."""
        return (*(time.localtime if local else time.gmtime)(self.now())[:6], self.dst)

    def do_GetTimeSecs(self, _local):
        """As much as an int32 holds."""
        return min(int(self.now()), 2 ** 31 - 1), self.dst

    def do_SetTime(self, year, month, day, hour, minute, second, dst, local):
        """The zone first, whose form decides what the fields mean; both are told of when both are done."""
        if not self.can_set():
            raise self.refusal("SetTime")
        zone = ""
        code = 0
        if dst != self.dst:
            zone = self.whole_name(self.zone.rpartition("/")[2], dst)
            code = self.timedated_code(self.zones.installed(zone))
            if code == 0:
                self.put_in_force(zone)
        if code == 0:
            year, month = year + (month - 1) // 12, (month - 1) % 12 + 1
            try:
                if local:
                    seconds = time.mktime((year, month, day, hour, minute, second, 0, 0, int(dst)))
                else:
                    seconds = calendar.timegm((year, month, 1, hour, minute, second)) + (day - 1) * 86400
            except (OverflowError, ValueError):
                seconds = 0
            code = self.set_clock(seconds)
        if code < 0:
            raise self.refusal("SetTime", 1)
        if zone:
            self.emit_apart("TimezoneChanged", zone)
        self.tell_time(seconds)

    def do_SetTimeSecs(self, seconds, local):
        """Without `local`, the reading in UTC is taken for one in the zone's standard time."""
        if not self.can_set():
            raise self.refusal("SetTimeSecs")
        seconds = seconds if local else time.mktime((*time.gmtime(seconds)[:8], 0))
        if self.set_clock(seconds) == 0:
            self.tell_time(seconds)

    def do_SetDst(self, dst):
        """The other form of the zone, if it has one."""
        if not self.can_set():
            raise self.refusal("SetDst")
        if not self.timedated:
            raise self.refusal("SetDst", 1)
        code = 0 if dst == self.dst else self.change_zone(self.whole_name(self.zone.rpartition("/")[2], dst))
        if code < 0:
            raise self.refusal("SetDst", 2, code=code)

    def do_SetTimezone(self, name):
        """In the form that is in force, or by its whole name; a part of a name passes the first check."""
        if not self.can_set():
            raise self.refusal("SetTimezone")
        zone = name if "CCU/" in name else self.whole_name(name, self.dst)
        if not any(zone.rpartition("/")[2] in known for known in self.zones.rows) and not zone.endswith("/UTC"):
            raise self.refusal("SetTimezone", 1, given=name)
        code = self.change_zone(zone)
        if code < 0:
            raise self.refusal("SetTimezone", 2, code=code)

    def do_SetTimeGPS(self):
        """The second of the fix."""
        self.check_fix("SetTimeGPS")
        if self.set_clock(self.fix[2]) == 0:
            self.tell_time(self.fix[2])

    def do_SetTimezoneGPS(self):
        """The nearest zone."""
        self.check_fix("SetTimezoneGPS")
        nearest = self.zones.best(lambda row: _distance(row, *self.fix[:2]))
        if self.change_zone(self.whole_name(nearest, self.dst)) < 0:
            raise self.refusal("SetTimezoneGPS", 2)

    def check_fix(self, name):
        """Refuses when the time cannot be set, or there is no fix."""
        if not self.can_set():
            raise self.refusal(name)
        if self.fix is None:
            raise self.refusal(name, 1)

    def do_GetTimezoneFromUTC(self, offset, dst):
        """The zone with the nearest offset."""
        return self.whole_name(self.zones.best(
            lambda row: abs(int(row["offset"]) + (_HOUR if dst else 0) - offset)), self.dst)

    def do_SetTimezoneUTC(self, offset, dst):
        """Not held back by a recording."""
        if self.change_zone(self.do_GetTimezoneFromUTC(offset, dst)) < 0:
            raise self.refusal("SetTimezoneUTC")

    def get_GetDst(self):
        """From the name of the zone in force."""
        if not self.timedated:
            raise self.refusal("GetDst", way="reading", code=_ABSENT)
        return self.dst

    def get_GetTimezone(self):
        """The bare name."""
        if not self.timedated:
            raise self.refusal("GetTimezone", way="reading", code=_ABSENT)
        return self.zone.rpartition("/")[2]

    def get_GetTimeSourceAvailable(self):
        """A number."""
        return int(self.can_set())

    # The menu ---------------------------------------------------------------------------------------------------------

    def happen(self, scenario):
        """What of the menu happens."""
        if scenario not in SCENARIOS:
            raise _mistake(f"no scenario '{scenario}'; there are: {', '.join(SCENARIOS)}")
        if scenario == "healthy":
            self.forced, self.refused, self.fix = {}, {}, None
            self.path, self.storage, self.power, self.media_item = 0, 0, True, True
            self.video = self.camera = self.hardware = self.timedated = True
            self.syncing = False
        for name, value in SCENARIOS[scenario][0].items():
            setattr(self, name, value)
        for kind, number in KINDS.items():
            if scenario == "size limit":
                self.end(kind, "CaptureSizeLimitReached", number)
            elif scenario.startswith("storage "):
                self.end(kind, "CaptureError", -3 if scenario == "storage low" else -4)
            if kind == "Video" and scenario in ("storage removed", "player gives up") and self.player != OFF:
                self.player = OFF
                self.emit_code("PlaybackError", -3 if scenario == "storage removed" else -1)

    def end(self, kind, signal, code):
        """A recording ends, if there is one, and is told of."""
        if self.states[kind] != OFF:
            self.states[kind] = OFF
            self.emit_code(signal, code)

    # What the daemon's bus library answers before any of its code runs ------------------------------------------------

    def guard(self, message):
        """The error and text by which a call is refused, or nothing."""
        interface, name = message.get_interface(), message.get_member()
        if message.get_path() != MAIN_OBJ:
            known = MAIN_OBJ.startswith(message.get_path().rstrip("/") + "/") or interface == dbus.PEER_IFACE
            return None if known else ("UnknownObject", f"Unknown object '{message.get_path()}'.")
        if interface == dbus.PROPERTIES_IFACE:
            return self.guard_property(name, message.get_args_list())
        if interface in (None, MOCK_IFACE, dbus.PEER_IFACE, dbus.INTROSPECTABLE_IFACE):
            return None
        if name not in self.mock.methods.get(interface, ()):
            return "UnknownMethod", f"Unknown method {name} or interface {interface}."
        expected = str(self.mock.methods[interface][name][0])
        if message.get_signature() != expected:
            return "InvalidArgs", f"Invalid arguments '{message.get_signature()}' to call {interface}.{name}(), " \
                                  f"expecting '{expected}'."
        return None

    def guard_property(self, access, arguments):
        """The same of an access to properties."""
        if not arguments or access == "GetAll":
            return None if not arguments or arguments[0] in ("", MAIN_IFACE, MOCK_IFACE) else (
                "UnknownInterface", f"Unknown interface '{arguments[0]}'.")
        interface, name = arguments[:2]
        member = self.interface.members.get(name)
        if interface != MAIN_IFACE or member is None or member.kind != "property":
            return "UnknownProperty", f"Unknown interface {interface} or property {name}."
        if access == "Set" and not member.writable:
            return "PropertyReadOnly", f"Property '{name}' is not writable."
        if access == "Set":
            value = arguments[2]
            got = dbus.lowlevel.Message.guess_signature(type(value)(value))
            if got != member.type:
                return "InvalidArgs", f"Incorrect parameters for property '{name}', expected '{member.type}', " \
                                      f"got '{got}'."
        return None


def _filter(mock):
    def check(connection, message):
        if message.get_type() != dbus.lowlevel.MESSAGE_TYPE_METHOD_CALL:
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        refused = mock.tavilon_unit.guard(message)
        if refused is None:
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        connection.send_message(dbus.lowlevel.ErrorMessage(message, _ERROR + refused[0], refused[1]))
        return dbus.lowlevel.HANDLER_RESULT_HANDLED
    return check


def _introspect(mock):
    """What dbusmock says of itself, with the interface as its file has it."""
    root = ElementTree.fromstring(DBusMockObject.Introspect(mock, mock.path, mock.connection))
    for item in root.findall("interface"):
        if item.get("name") == MAIN_IFACE:
            root.remove(item)
    root.append(mock.tavilon_unit.interface.element)
    return ElementTree.tostring(root, encoding="unicode")


def load(mock, parameters):
    """Makes the mock object a controller."""
    fresh = not hasattr(mock, "tavilon_unit")
    mock.tavilon_unit = unit = Unit(mock, parameters)
    if fresh:  # not once more when dbusmock resets
        mock.connection.add_message_filter(_filter(mock))

    def method(name):
        return lambda mock, *arguments: mock.tavilon_unit.call(name, arguments)

    for member in unit.interface.of("method"):
        mock.AddMethod(MAIN_IFACE, member.name, member.inputs, member.outputs, method(member.name))
    names = [member.name for member in unit.interface.of("property")]
    mock.AddMethod(dbus.PROPERTIES_IFACE, "Get", "ss", "v", lambda mock, _interface, name: unit.read(name))
    mock.AddMethod(dbus.PROPERTIES_IFACE, "Set", "ssv", "",
                   lambda mock, _interface, name, value: unit.write(name, value))
    mock.AddMethod(dbus.PROPERTIES_IFACE, "GetAll", "s", "a{sv}", lambda mock, interface: dbus.Dictionary(
        {name: unit.read(name) for name in names if interface != MOCK_IFACE}, signature="sv"))
    mock.AddMethod(dbus.INTROSPECTABLE_IFACE, "Introspect", "", "s", _introspect)
    for name in ("MicEnabled", "SpkrEnabled", "SpkrVolume"):  # as at every start
        unit.announce(name)


# The mock's own methods -----------------------------------------------------------------------------------------------


@dbus.service.method(MOCK_IFACE, in_signature="", out_signature="a{ss}")
def Scenarios(_mock):
    """The menu: names, and what a client sees."""
    return {name: text for name, (_, text) in SCENARIOS.items()}


@dbus.service.method(MOCK_IFACE, in_signature="s", out_signature="")
def Scenario(mock, name):
    """Has something of the menu happen; several add up, until "healthy"."""
    mock.tavilon_unit.happen(name)


def _check_code(unit, kind, member, code):
    codes = unit.interface.member(member, lambda item: item.kind == kind and item.codes).codes
    if code not in codes:
        raise _mistake(f"{member} has no code {code}; it has: {', '.join(map(str, codes))}")


@dbus.service.method(MOCK_IFACE, in_signature="si", out_signature="")
def AnswerCode(mock, member, code):
    """Has a member answer with a code and do nothing; with 0 it answers as by itself again."""
    unit = mock.tavilon_unit
    _check_code(unit, "method", member, code)
    unit.forced.pop(member, None)
    if code != 0:
        unit.forced[str(member)] = int(code)


@dbus.service.method(MOCK_IFACE, in_signature="ss", out_signature="")
def Refuse(mock, member, text):
    """Has a member refused with one of the texts that the interface file knows; with "" it is refused no more."""
    unit = mock.tavilon_unit
    refusals = unit.interface.member(member, lambda item: any(item.refusals.values())).refusals
    ways = [way for way, texts in refusals.items() if text in texts]
    if text and not ways:
        raise _mistake(f"{member} is not refused with '{text}', but with: {sum(refusals.values(), [])}")
    for way in ways or refusals:
        unit.refused.pop((str(member), way), None)
        if text:
            unit.refused[str(member), way] = str(text)


@dbus.service.method(MOCK_IFACE, in_signature="si", out_signature="")
def EmitCode(mock, signal, code):
    """Emits one of the signals that carry a code, with the code's message."""
    unit = mock.tavilon_unit
    _check_code(unit, "signal", signal, code)
    unit.emit_code(signal, code)


@dbus.service.method(MOCK_IFACE, in_signature="ddi", out_signature="")
def SetFix(mock, latitude, longitude, seconds):
    """GPS knows a place in degrees and a time in seconds since the epoch."""
    mock.tavilon_unit.fix = (latitude, longitude, seconds)
