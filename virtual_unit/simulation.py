"""The control object of a unit: what `interfaces/simulation.xml` says, carried out on the unit's own Python objects.

Every object of the file is a noun, and a class here with a method for each of its methods.  These run on a thread of
their own, one after the other, so that they may wait for the daemon, which in turn needs the siblings' loop.

Nothing is told on the bus until somebody has subscribed.  From then on everything that happens leads to one look at the
whole state, and what differs from what was told last goes out as PropertiesChanged.
"""

import contextlib
import datetime
import functools
import math
import os
import queue
import threading

import dbus
import dbus.lowlevel
from gi.repository import GLib

from . import archive, evdev, faults, zones
from .client import SERVICE as CONTROLLER
from .declaration import INTROSPECTABLE, PEER, PROPERTIES, call_names
from .loop import on_loop, shared_loop
from .patience import PATIENCE
from .sibling import Refusal, Sibling
from .simulation_names import ROOT, SERVICE
from .syslog import SyslogReader
from .values import Typed, plain
from .video import KINDS
from .watch import Watch

_STATES = {0: "off", 1: "recording", 2: "paused"}
_PLAYER = {0: "stopped", 1: "playing", 2: "paused", -1: "broken"}


def refuse(text):
    """Answers the call with an error that says what is wrong with it."""
    raise Refusal("InvalidArgs", text)


def one_of(what, given, known):
    """The given name, which must be a known one."""
    if given not in known:
        refuse(f"no {what} '{given}'; there are: {', '.join(sorted(known))}")
    return given


def moment(text):
    """Seconds since the epoch of a time of day in UTC, or of a number behind "@"."""
    try:
        if text.startswith("@") and math.isfinite(float(text[1:])):
            return float(text[1:])
        parsed = datetime.datetime.fromisoformat(text)
    except ValueError:
        refuse(f"'{text}' is no time like 2026-07-14 09:30:00")
    return (parsed if parsed.tzinfo else parsed.replace(tzinfo=datetime.timezone.utc)).timestamp()


def _size(path):
    try:
        return os.path.getsize(path)
    except OSError:
        return 0


class Noun:
    """One object: its methods by their names in lower case, and `state`, the values of its properties."""

    def __init__(self, unit, simulation):
        self.unit, self.simulation = unit, simulation

    def state(self):
        """The value of every property."""
        raise NotImplementedError

    def need(self, sibling):
        """A sibling of the unit, which may have been made without."""
        found = getattr(self.unit, sibling)
        if found is None:
            raise Refusal("Failed", f"this unit has no {sibling} daemon")
        return found


class Whole(Noun):
    """The unit."""

    def state(self):
        return {"Name": self.unit.name, "Directory": self.unit.directory, "SystemBus": self.unit.system_address}

    def settle(self, seconds):
        """True when the daemon has dealt with everything in time."""
        return self.simulation.settle(seconds)

    def calls(self):
        """All calls so far."""
        return [(call.index, call.sibling, call.path, call.interface, call.member,
                 [_variant(argument) for argument in call.arguments]) for call in list(self.unit.calls)]

    def log(self):
        """All lines so far."""
        return [(line.priority, line.text) for line in self.unit.log.lines()]

    def save(self, path):
        """Keeps the unit in a file."""
        archive.save(self.unit, path)

    def load(self, path):
        """Goes back to what a file keeps."""
        archive.load(self.unit, path)

    def record(self, on):
        """Whoever records the buses learns of what happens beside them."""
        (self.unit.happenings.start if on else self.unit.happenings.stop)()


class Daemon(Noun):
    """The daemon's process."""

    def state(self):
        running = self.unit.daemon_alive
        return {"Running": running, "Pid": self.unit.pid if running else 0}

    def start(self):
        """Starts it."""
        if self.unit.daemon_alive:
            raise Refusal("Failed", "the daemon runs already")
        self.unit.start_daemon()
        return self.unit.pid

    def _end(self, end):
        if not self.unit.daemon_alive:
            raise Refusal("Failed", "the daemon does not run")
        return end()

    def stop(self):
        """Ends it in order."""
        return self._end(self.unit.stop_daemon)

    def kill(self):
        """Ends it at once."""
        return self._end(self.unit.kill)

    def restart(self):
        """Ends it and starts it."""
        if self.unit.daemon_alive:
            self.unit.stop_daemon()
        return self.start()


class Storage(Noun):
    """Storage devices."""

    def state(self):
        storage = self.unit.storage
        if storage is None:
            return {"Devices": {}, "Primary": ""}
        devices = {}
        for device in storage.devices():
            item = storage.objects[storage.device_path(device)]
            devices[device] = {**item.variants(""), "Full": Typed("b", device in storage.full)}
        return {"Devices": devices, "Primary": storage.primary}

    def _known(self, device):
        return one_of("device", device, self.need("storage").devices())

    def add(self, device):
        """Plugs one in."""
        if device in self.need("storage").devices():
            refuse(f"{device} is plugged in already")
        if not device.isidentifier():
            refuse(f"'{device}' cannot be the name of a device")
        self.unit.storage.plug_in(device)

    def remove(self, device, keep_files):
        """Pulls one out."""
        self.need("storage").pull_out(self._known(device), keep_files)

    def unmount(self, device):
        """Unmounts one."""
        self.need("storage").unmount(self._known(device))

    def mount(self, device):
        """Mounts one."""
        storage = self.need("storage")
        storage.mount(self._known(device), storage.usual_mount_point(device))

    def low(self, device, on):
        """Has one run low."""
        self.need("storage").set_low(self._known(device), on)

    def readonly(self, device, on):
        """Has one refuse to be written."""
        self.need("storage").set_read_only(self._known(device), on)

    def fill(self, device, on):
        """Fills one."""
        self.need("storage").set_full(self._known(device), on)


class Recording(Noun):
    """The three kinds of recording."""

    def state(self):
        video = self.unit.video
        return {"Recordings": {} if video is None else {
            name: {"State": Typed("s", _STATES[video.state(name)]), "File": Typed("s", video.get(kind.filename)),
                   "PreviousFile": Typed("s", video.get(f"Previous{kind.filename}")),
                   "Size": Typed("t", _size(video.get(kind.filename)))} for name, kind in KINDS.items()}}

    def _running(self, kind):
        if self.need("video").state(one_of("kind of recording", kind, KINDS)) == 0:
            raise Refusal("Failed", f"{kind} is not recording")
        return self.unit.video

    def grow(self, size, kind):
        """Lets the file grow."""
        self._running(kind).grow(kind, size)

    def limit(self, kind):
        """The file nears its limit."""
        self._running(kind).grow(kind, approaching_limit=True)

    def end(self, kind):
        """It ends by itself."""
        self._running(kind).end(kind)


class Playback(Noun):
    """The player."""

    def state(self):
        video = self.unit.video
        if video is None:
            return {}
        return {"State": _PLAYER[video.get("PlaybackState")],
                **{name: video.get(f"Playback{wire}") for name, wire in
                   (("File", "Filename"), ("Position", "Position"), ("Duration", "Duration"), ("Rate", "Rate"))}}

    def _playing(self):
        if self.need("video").get("PlaybackState") <= 0:
            raise Refusal("Failed", "nothing is played")
        return self.unit.video

    def break_(self):
        """It gives up."""
        self._playing().break_playback()

    def move(self, position):
        """It comes to a position."""
        if not 0 <= position <= self._playing().get("PlaybackDuration"):
            refuse(f"the position is to be 0 to {self.unit.video.get('PlaybackDuration')}")
        self.unit.video.set("PlaybackPosition", position)


class Camera(Noun):
    """The camera head."""

    def state(self):
        video, hardware = self.unit.video, self.unit.hardware
        state = {} if video is None else {
            "Roll": video.get("CameraRollAngleRaw"), "Pitch": video.get("CameraPitchAngle"),
            "Zoom": video.get("CaptureZoom"), "Content": video.get("DisplayContent")}
        return state if hardware is None else {**state, "Connected": bool(hardware.video_status),
                                               "Sonde": hardware.sonde}

    def connect(self, on):
        """Its picture comes or goes."""
        self.need("hardware").set_video_status(int(on))

    def roll(self, degrees):
        """It turns."""
        self.need("video").turn(roll=degrees)

    def pitch(self, degrees):
        """It tilts."""
        self.need("video").turn(pitch=degrees)

    def sonde(self, on):
        """Its sonde is switched."""
        self.need("hardware").sonde = on


class Reel(Noun):
    """The cable reel."""

    def state(self):
        hardware = self.unit.hardware
        if hardware is None:
            return {}
        reel = hardware.reel
        return {**reel, "Distance": reel["Relative" if reel["Mode"] == "relative" else "Absolute"] / 100}

    def connect(self, on):
        """It is there, or lost."""
        self.need("hardware").set_reel(connected=on)

    def distance(self, metres):
        """The cable is moved."""
        if not abs(metres) < 10_000:
            refuse("the counter shows less than 10000 m")
        self.need("hardware").move_reel(round(metres * 100))

    def mode(self, mode):
        """Another distance is shown."""
        self.need("hardware").set_reel(mode=one_of("mode", mode, ("absolute", "relative")))

    def zero(self):
        """The relative distance begins here."""
        self.need("hardware").set_reel(relative=0)


class Power(Noun):
    """Batteries and supply."""

    def state(self):
        hardware = self.unit.hardware
        if hardware is None:
            return {}
        power = hardware.power
        return {"Sufficient": hardware.power_sufficient == 1, "Charge": power["BatteryChargePercentages"],
                "Voltage": power["BatteryVoltages"], "LowWarnings": power["LowBatteryWarnings"],
                "Level": power["SystemPowerLevel"], "Source": power["ActivePowerSource"]}

    def low(self, on):
        """It suffices no more, or again."""
        self.need("hardware").set_power_low(on)

    def charge(self, right, left):
        """The batteries are charged."""
        if not (0 <= right <= 100 and 0 <= left <= 100):
            refuse("a battery is charged to 0 to 100 percent")
        self.need("hardware").set_power(BatteryChargePercentages=(right, left))

    def source(self, source):
        """Another one is active."""
        self.need("hardware").set_power(ActivePowerSource=source)


class Cooling(Noun):
    """The fan."""

    def state(self):
        hardware = self.unit.hardware
        if hardware is None:
            return {}
        return {"Temperature": hardware.cooling["CpuTemp"], "FanSpeed": hardware.cooling["FanSpeed"],
                "Mode": hardware.cooling["FanCtrlMode"]}

    def temperature(self, degrees):
        """What is cooled comes to a temperature."""
        self.need("hardware").set_cooling(CpuTemp=degrees)

    def fan(self, percent):
        """It turns."""
        if percent > 100:
            refuse("the fan turns at 0 to 100 percent")
        self.need("hardware").set_cooling(FanSpeed=percent)


class Gps(Noun):
    """gpsd and its receiver."""

    def state(self):
        gps = self.unit.gps
        kind, latitude, longitude = gps.said if gps.running and gps.said else ("none", None, None)
        return {"Running": gps.running, "Fix": kind, "Latitude": latitude or 0.0, "Longitude": longitude or 0.0}

    def _place(self, say, latitude, longitude, when):
        if not (-90 <= latitude <= 90 and -180 <= longitude <= 180):
            refuse("a place has -90 to 90 degrees north and -180 to 180 degrees east")
        try:
            say(latitude, longitude, moment(when) if when else None)
        except ValueError as error:
            refuse(str(error))

    def fix(self, *place):
        """A whole fix."""
        self._place(self.unit.gps.fix_3d, *place)

    def fix2d(self, *place):
        """One without altitude."""
        self._place(self.unit.gps.fix_2d, *place)

    def dgps(self, *place):
        """A corrected one."""
        self._place(self.unit.gps.dgps, *place)

    def lose(self):
        """None any more."""
        self.unit.gps.no_fix()

    def stop(self):
        """gpsd ends."""
        self.unit.gps.stop()


class Clock(Noun):
    """Clock and zone."""

    def state(self):
        timedate = self.unit.timedate
        return {"Offset": self.unit.clock.offset_usec,
                **({} if timedate is None else {"Zone": timedate.timezone, "Ntp": timedate.keeps_network_time})}

    def set(self, when):
        """Another time."""
        self.unit.clock.set(moment(when))

    def advance(self, seconds):
        """A little later."""
        self.unit.clock.set(self.unit.clock.now() + seconds)

    def follow(self):
        """That of the machine."""
        self.unit.clock.follow()

    def zone(self, zone):
        """Another zone."""
        full = zone if zone == "UTC" or zone.startswith("CCU/") else f"CCU/{zone}"
        if not zones.is_installed(self.unit.zones_folder, full):
            refuse(f"no zone '{zone}' on this unit")
        self.need("timedate").timezone = full

    def ntp(self, on):
        """Kept by the network or not."""
        self.need("timedate").keeps_network_time = on


class Key(Noun):
    """The keypad."""

    def state(self):
        keypad = self.unit.keypad
        return {"Plugged": keypad.plugged, "Down": [evdev.name_of(code) for code in sorted(keypad.down)]}

    def _do(self, key, *steps):
        code = evdev.code_of(key)
        if code is None:
            refuse(f"no key '{key}'" + evdev.suggestion(key))
        if not self.unit.keypad.opened:
            raise Refusal("Failed", "nobody listens to the keypad")
        for step in steps:
            getattr(self.unit.keypad, step)(code)

    def type(self, key):
        """Down and up."""
        self._do(key, "press", "release")

    def press(self, key):
        """Down."""
        self._do(key, "press")

    def release(self, key):
        """Up."""
        self._do(key, "release")

    def repeat(self, key):
        """Still down."""
        self._do(key, "repeat")

    def unplug(self):
        """It goes."""
        if not self.unit.keypad.plugged:
            raise Refusal("Failed", "the keypad is pulled out already")
        self.unit.keypad.unplug()

    def plug(self):
        """It comes."""
        if self.unit.keypad.plugged:
            raise Refusal("Failed", "the keypad is plugged in already")
        self.unit.keypad.plug()


class Front(Noun):
    """What there is to see and to hear."""

    def state(self):
        unit = self.unit
        hardware, volume = unit.hardware, unit.audio.volume
        return {"Microphone": bool(unit.gpio.mic.value), "Speaker": bool(unit.gpio.speaker.value),
                "Volume": -1 if volume is None else volume,
                "Leds": dict(hardware.leds) if hardware else {}, "Beeps": list(hardware.beeps) if hardware else [],
                "Played": [(one.path, one.pid, one.ended) for one in unit.audio.played],
                "Screens": unit.framebuffers.screens(), "Frames": list(self.simulation.frames)}

    def hold(self, on):
        """Sounds last."""
        (self.unit.audio.hold if on else self.unit.audio.release)("aplay")


class Siblings(Noun):
    """The daemons beside the controller."""

    def state(self):
        return {"States": {name: "dead" if not sibling.alive else "hanging" if self._hang(name) else "alive"
                           for name, sibling in self.unit.siblings.items()}}

    def _hang(self, name):
        return [rule for rule in self.unit.faults.rules() if rule.hangs(name)]

    def _known(self, name):
        return self.unit.siblings[one_of("sibling", name, self.unit.siblings)]

    def die(self, name):
        """One crashes."""
        self._known(name).die()

    def hang(self, name):
        """One hangs."""
        self._known(name)
        if not self._hang(name):
            self.unit.faults.on(name, kind=faults.SILENT)

    def return_(self, name):
        """One is back."""
        sibling = self._known(name)
        for rule in self._hang(name):
            rule.cancel()
        sibling.revive()


class Fault(Noun):
    """What calls meet."""

    def state(self):
        return {"Faults": [(rule.number, rule.sibling, rule.member or "any", rule.kind.kind.replace(" ", "-"),
                            rule.left, rule.hits, float(rule.kind.value)) for rule in self.unit.faults.rules()]}

    def add(self, name, member, kind, times, value):
        """A new one."""
        one_of("sibling", name, self.unit.siblings)
        if member != "any":
            one_of(f"member of {name}", member, {*call_names(name), "any"})
        one_of("kind of fault", kind, faults.KINDS)
        if kind == "code" and value != int(value):
            refuse("a code is a whole number")
        if kind == "late" and value <= 0:
            refuse("a late answer needs --value, the seconds")
        met = faults.Fault(kind.replace("-", " "), int(value) if kind == "code" else value)
        return self.unit.faults.on(name, None if member == "any" else member, met, times or None).number

    def remove(self, number):
        """One ends."""
        found = {str(rule.number): rule for rule in self.unit.faults.rules()}
        found[one_of("fault", str(number), found)].cancel()

    def clear(self):
        """All end."""
        self.unit.faults.clear()


class Settings(Noun):
    """What the operator has set."""

    def state(self):
        settings = self.unit.settings
        return {"Sections": {} if settings is None else
                {section: settings.objects[settings.section_path(section)].variants("")
                 for section in settings.sections()}}

    def set(self, section, key, value):
        """Changes a key."""
        settings = self.need("settings")
        item = settings.objects[settings.section_path(one_of("section", section, settings.sections()))]
        kind = item.declared.properties[one_of(f"key of {section}", key, item.values)].signature
        settings.change(section, {key: _as_type(kind, value)})

    def reset(self, section):
        """Goes back to the defaults."""
        settings = self.need("settings")
        settings.reset(one_of("section", section, settings.sections()))


class Job(Noun):
    """The job and its media."""

    def state(self):
        jobs = self.unit.jobs
        if jobs is None:
            return {"Current": ("", ""), "Media": []}
        return {"Current": jobs.current or ("", ""), "Media": [
            {name: Typed("t" if name == "Size" else "s", value) for name, value in
             (("Id", item.media_id), ("Type", item.type), ("Device", item.device), ("Job", item.job),
              ("Path", item.path), ("Size", item.size))} for item in list(jobs.items.values())]}

    def open(self, device, job):
        """Opens one."""
        if not job or "/" in job or job.startswith("."):
            refuse(f"'{job}' cannot be the name of a job")
        one_of("mounted device", device, [one for one in self.need("storage").devices()
                                          if self.unit.mount_point(one)])
        self.need("jobs").open(device, job)

    def close(self):
        """None is open any more."""
        self.need("jobs").close()


class Sync(Noun):
    """The sync daemon."""

    def state(self):
        return {} if self.unit.sync is None else {"Active": self.unit.sync.active, "Status": self.unit.sync.status}

    def active(self, on):
        """Syncs go on, or none does."""
        self.need("sync").set_active(on)

    def finish(self):
        """All end."""
        self.need("sync").finish()


_NOUNS = {"": Whole, "daemon": Daemon, "storage": Storage, "recording": Recording, "playback": Playback,
          "camera": Camera, "reel": Reel, "power": Power, "cooling": Cooling, "gps": Gps, "clock": Clock, "key": Key,
          "front": Front, "sibling": Siblings, "fault": Fault, "settings": Settings, "job": Job, "sync": Sync}
_FRONT = f"{ROOT}/front"
#: Words that a method cannot be named, or that are two.
_METHODS = {"Break": "break_", "Return": "return_"}
#: What a plain value is in a variant.
_VARIANTS = {bool: "b", int: "x", float: "d", str: "s"}
_WORDS = {"on": True, "true": True, "yes": True, "off": False, "false": False, "no": False}


def _variant(value):
    """A plain value as a variant, with variants in it where it holds others than texts."""
    if isinstance(value, Typed):
        return value
    if isinstance(value, dict):
        return Typed("a{sv}", {str(key): _variant(item) for key, item in value.items()})
    if isinstance(value, (list, tuple)):
        texts = all(isinstance(item, str) for item in value)
        return Typed("as", value) if texts else Typed("av", [_variant(item) for item in value])
    return Typed(_VARIANTS[type(value)], value)


def _as_type(kind, value):
    """A value as a simple D-Bus type; texts are what people type."""
    try:
        if not isinstance(value, str) or kind == "s":
            return {"b": bool, "s": str, "d": float}.get(kind, int)(value)
        return _WORDS[value.lower()] if kind == "b" else float(value) if kind == "d" else int(value)
    except (KeyError, ValueError):
        refuse(f"'{value}' is no value of the type {kind}")


class Simulation(Sibling):
    """Serves the control object.  It is no sibling of the daemon: its calls are neither noted nor met by faults."""

    name = "simulation"
    service = SERVICE

    def __init__(self, unit, address):
        super().__init__(unit, address)
        self.nouns = {ROOT + f"/{noun}".rstrip("/"): kind(unit, self) for noun, kind in _NOUNS.items()}
        self.frames = [0, 0]
        self._subscribers = {}
        self._life = 0  # counts the connections
        self._stirred = False
        self._work = queue.SimpleQueue()
        self._worker = self._watch = self._log = self._process = self._alarm = None
        self._follows_controller = -1

    # Calls ------------------------------------------------------------------------------------------------------------

    def _serve(self, connection, message):
        if message.get_interface() in (PEER, INTROSPECTABLE, PROPERTIES):
            self._send(connection, message, self._answer(message))
        elif message.get_path() == ROOT and message.get_member() in ("Subscribe", "Unsubscribe"):
            self._note_subscriber(message.get_member() == "Subscribe", str(message.get_sender()))
            self._send(connection, message, self._answer(message))
        else:
            if self._worker is None:
                self._worker = threading.Thread(target=self._run, name="virtual-unit-control", daemon=True)
                self._worker.start()
            self._work.put((self._life, message))

    def _run(self):
        while (order := self._work.get()) is not None:
            if order[1].get_member() == "Settle":  # what ends the wait may be the next order
                threading.Thread(target=self._carry_through, args=order, daemon=True).start()
            else:
                self._carry_through(*order)

    def _carry_through(self, life, message):
        # Without the connection: the last reference to one must not be dropped here while the loop works on it.
        shared_loop().call(self._finish, life, message, self._answer(message))

    def _finish(self, life, message, reply):
        if life == self._life and self.alive:
            self.look()  # what a call has changed is told before it is answered
            self._send(self._connection, message, reply)

    def refresh(self, path):
        if path in self.nouns:
            self.objects[path].values.update(self.nouns[path].state())

    def _carry_out(self, message):
        if message.get_interface() == PROPERTIES and message.get_path() == _FRONT and (
                message.get_member() == "GetAll" or "Screens" in message.get_args_list()):
            self.unit.framebuffers.draw()
        try:
            return super()._carry_out(message)
        except (OSError, OverflowError, archive.Unreadable) as error:
            raise Refusal("Failed", str(error)) from error

    def behaviour(self, path, member):
        if member in ("Subscribe", "Unsubscribe"):
            return lambda _path: None
        method = getattr(self.nouns[path], _METHODS.get(member, member.lower()))
        return lambda _path, *arguments: method(*arguments)

    @on_loop
    def die(self):
        self._life += 1
        self._subscribers.clear()
        if self._watch is not None:
            self._watch.close()
        self._watch = self._process = None
        self._set_alarm(None)
        if self._worker is not None:
            self._work.put(None)
            self._worker = None
        super().die()

    def settle(self, seconds):
        """True when the daemon has dealt with everything within the seconds."""
        try:
            self.unit.settle(max(min(seconds, PATIENCE), 0))
        except TimeoutError:
            return False
        return True

    # State ------------------------------------------------------------------------------------------------------------

    @on_loop
    def look(self):
        """Tells the subscribers of all that has changed."""
        self._stirred = False
        if not (self._subscribers and self.alive):
            return
        self._follow_process()
        self._follow_pictures()
        for path in self.nouns:
            changed = self._news_of(path)
            if changed:
                self.emit_changes(path, self.objects[path].declared.interfaces[0], changed)

    def _news_of(self, path):
        """What is another than it was when it was told."""
        self.refresh(path)
        told, values = self._told[path], self.objects[path].values
        changed = {name: value for name, value in values.items() if told[name] != value}
        told.update(changed)
        return changed

    def stir(self):
        """Something has happened; to be called on any thread, and costs nothing while nobody is subscribed."""
        if self._subscribers and not self._stirred:
            self._stirred = True
            GLib.idle_add(self._look_once)

    def _look_once(self):
        if self._stirred:
            self.look()
        return GLib.SOURCE_REMOVE

    # Subscribers ------------------------------------------------------------------------------------------------------

    def _note_subscriber(self, wants, sender):
        if not wants:
            watch = self._subscribers.pop(sender, None)
            if watch is not None:
                watch.cancel()
            return
        if sender in self._subscribers:
            return
        if not self._subscribers:
            self._begin_to_tell()
        self._subscribers[sender] = self._connection.watch_name_owner(
            sender, functools.partial(self._note_owner, sender))

    def _note_owner(self, sender, owner):
        if not owner:
            self._note_subscriber(False, sender)

    def _begin_to_tell(self):
        for path in self.nouns:
            self.refresh(path)
        self._told = {path: dict(self.objects[path].values) for path in self.nouns}
        self._log = SyslogReader(self.unit.daemon.log_path)
        self._log.clear()
        self.unit.framebuffers.outdated()  # for those only who look from now on
        if self._watch is None:
            self._watch = Watch(self.unit.watched_folders(), self._note_file)
        if self._follows_controller != self._life:
            self._follows_controller = self._life
            self._connection.add_match_string(f"type='signal',sender='{CONTROLLER}'")

    def _note_file(self, path):
        if path == self.unit.daemon.log_path:
            self._tell_log()
            return
        for device in (0, 1):
            if path == self.unit.framebuffers.path(device) and not self.unit.framebuffers.was_drawn(device):
                self.frames[device] += 1
        self.stir()

    def _tell_log(self):
        if self._subscribers:
            for line in self._log.lines():
                self.emit(ROOT, SERVICE, "Logged", line.priority, line.text)
            self._log.clear()

    def _follow_pictures(self):
        """Has those who have looked at the display be told, once, when there is something else to be seen."""
        for device in self.unit.framebuffers.outdated():
            self.frames[device] += 1
        self._set_alarm(self.unit.framebuffers.seconds_left())

    def _set_alarm(self, seconds):
        if self._alarm is not None:
            GLib.source_remove(self._alarm)
        self._alarm = None if seconds is None else GLib.timeout_add(int(seconds * 1000) + 1, self._ring)

    def _ring(self):
        self._alarm = None
        self.look()
        return GLib.SOURCE_REMOVE

    def _follow_process(self):
        """Has the daemon's end be noticed."""
        pid = self.unit.pid
        if pid is None or pid == self._process or not self.unit.daemon_alive:
            return
        self._process = pid
        with contextlib.suppress(ProcessLookupError):
            handle = os.pidfd_open(pid)
            GLib.io_add_watch(handle, GLib.PRIORITY_DEFAULT, GLib.IO_IN, self._note_end)

    def _note_end(self, handle, _condition):
        os.close(handle)
        self._process = None
        self.stir()
        return GLib.SOURCE_REMOVE

    # What happens -----------------------------------------------------------------------------------------------------

    @on_loop
    def tell_happenings(self, happened, connection=None):
        """Tells of what has happened beside the bus, over the connection of another sibling if one is given."""
        connection = connection or self._connection
        for what, arguments, content in happened if connection else ():
            message = dbus.lowlevel.SignalMessage(ROOT, SERVICE, "Happened")
            message.append(what, arguments, dbus.ByteArray(content), signature="ssay")
            connection.send_message(message)
            connection.flush()

    def tell_call(self, call, fault):
        """Tells of a call to a sibling."""
        if self._subscribers:
            self.emit(ROOT, SERVICE, "Called", call.sibling, call.path, call.interface, call.member,
                      [_variant(argument) for argument in call.arguments], fault.kind if fault else "")

    def tell_signal(self, sender, path, interface, member, arguments):
        """Tells of a signal of a sibling or of the controller."""
        if self._subscribers:
            self.emit(ROOT, SERVICE, "Emitted", sender, path, interface or "", member,
                      [_variant(argument) for argument in arguments])

    def _filter(self, connection, message):
        is_signal = message.get_type() == dbus.lowlevel.MESSAGE_TYPE_SIGNAL
        if is_signal and str(message.get_path()).startswith("/com/tavilon/common/Controller1"):
            self.tell_signal("controller", str(message.get_path()), message.get_interface(), str(message.get_member()),
                             [plain(argument) for argument in message.get_args_list()])
        return super()._filter(connection, message)
