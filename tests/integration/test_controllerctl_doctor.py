"""`controllerctl doctor`, on a unit that is well, and on one in which each thing in turn is broken."""

import contextlib
import dataclasses
import os
import re
import shutil
import socket
import struct
import time
import xml.etree.ElementTree as ElementTree

import dbus
import dbus.bus
import dbus.lowlevel
import pytest

from tests.integration.controllerctl_cases import DONE, REFUSED, UNREACHABLE, USAGE, run
from virtual_unit import PATIENCE, VirtualUnit
from virtual_unit.loop import shared_loop
from virtual_unit.values import append

ACTIONS = [f"org.freedesktop.timedate1.set-{what}" for what in ("time", "timezone", "ntp")]
PATIENTLY = f"--timeout {PATIENCE:.0f}"
#: What is looked at on a unit, in order.
CHECKS = ["bus", "controller", "video daemon", "storage daemon", "jobs daemon", "hardware daemon", "sync daemon",
          "settings daemon", "storage card", "storage internal", "FAT storage", "markers", "items", "clock", "polkit",
          "zones", "logs folder", "log", "mixer control HP DAC", "mixer control PCM", "mixer control PGA", "player",
          "sounds", "gpiochip", "microphone line", "speaker line", "framebuffer /dev/fb0", "framebuffer /dev/fb1",
          "keypad", "gpsd"]


class Peer:
    """A connection that has a name; without `answer` it never says anything."""

    def __init__(self, address, name, answer=None):
        self._answer = answer
        if answer is None:
            self._connection = dbus.bus.BusConnection(address)
            self._connection.request_name(name, dbus.bus.NAME_FLAG_DO_NOT_QUEUE)
        else:
            shared_loop().call(self._serve, address, name)

    def _serve(self, address, name):
        self._connection = dbus.bus.BusConnection(address, mainloop=shared_loop().dbus_loop)
        self._connection.set_exit_on_disconnect(False)
        self._connection.add_message_filter(self._filter)
        self._connection.request_name(name, dbus.bus.NAME_FLAG_DO_NOT_QUEUE)

    def _filter(self, connection, message):
        if message.get_type() != dbus.lowlevel.MESSAGE_TYPE_METHOD_CALL:
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        connection.send_message(self._answer(message))
        return dbus.lowlevel.HANDLER_RESULT_HANDLED

    def close(self):
        """The name is free again."""
        shared_loop().call(self._connection.close)


class Well:
    """A unit that is well in every way, with what the simulated one has not got by itself: polkit, a log, mounts."""

    def __init__(self, unit):
        self.unit = unit
        self.allowed = set(ACTIONS)
        self.log = os.path.join(unit.directory, "dev-log")
        self.mounts = os.path.join(unit.directory, "mounts")
        self.mount("tmpfs", unit.media, "rw")
        self.log_socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.log_socket.bind(self.log)
        self.polkit = None
        self.start_polkit()
        unit.gps.start()

    def mount(self, kind, point, options):
        """One mount is all that the kernel knows of."""
        with open(self.mounts, "w", encoding="utf-8") as file:
            point = point.replace(" ", "\\040")
            file.write(f"36 35 98:0 / {point} rw,noatime shared:1 - {kind} /dev/sda1 rw,{options}\n")

    def start_polkit(self):
        """Polkit allows what is in `allowed`."""
        def answer(message):
            (kind, details), action, _, flags, _ = message.get_args_list()
            assert kind == "system-bus-name" and details["name"] == message.get_sender() and flags == 0
            return append(dbus.lowlevel.MethodReturnMessage(message), "(bba{ss})",
                          [(str(action) in self.allowed, False, {})])
        self.polkit = Peer(self.unit.system_address, "org.freedesktop.PolicyKit1", answer)

    def ask(self, line="", patience=PATIENTLY, **variables):
        """What a doctor says."""
        return run(self.unit, f"doctor {patience} {line}", CCU_DEV_LOG=self.log, CCU_MOUNTS=self.mounts, **variables)

    def close(self):
        """Ends what is not the unit's."""
        self.polkit.close()
        self.log_socket.close()


@pytest.fixture(scope="module", name="well")
def well_fixture():
    """A unit with the daemon, which each test leaves as it has found it."""
    with VirtualUnit() as unit:
        well = Well(unit)
        yield well
        well.close()


def verdicts(told):
    """Each check with its verdict."""
    return {item["check"]: item["verdict"] for item in told["checks"]}


def tree(folder):
    """Every file below a folder but its log, with size and time."""
    return {path: (os.lstat(path).st_size, os.lstat(path).st_mtime_ns)
            for parent, folders, names in os.walk(folder) for path in (os.path.join(parent, name) for name in
                                                                      (*folders, *names))
            if "give-up" not in path and not path.endswith(("ctl.log", "audio", "commands", "ccu-up"))}


def test_a_unit_that_is_well(well):
    """Everything is looked at and found well; nothing is changed, and no question is an order."""
    well.unit.settle()
    before, events, played = tree(well.unit.directory), well.unit.gpio.events, len(well.unit.audio.commands)
    mark = well.unit.calls.mark()
    told = well.ask("--json")
    answer = told.object
    assert (told.status, told.errors) == (DONE, "")
    assert [item["check"] for item in answer["checks"]] == CHECKS
    assert set(verdicts(answer).values()) == {"ok"}
    assert (answer["ok"], answer["message"]) == (True, "all is well") and "code" not in answer
    assert all((item["meaning"], item["remedy"]) == ("", "") and item["found"] for item in answer["checks"])
    asked = {call.member for call in well.unit.calls.since(mark)}
    assert {member for member in asked if not member.startswith("Get ")} == {"GetManagedObjects"}
    assert well.unit.gpio.events == events and tree(well.unit.directory) == before
    assert {command[1] for command in well.unit.audio.commands[played:]} == {"get"}
    assert well.ask().out.splitlines() == [f"ok       {item['check']}: {item['found']}" for item in answer["checks"]]


# One thing after another ----------------------------------------------------------------------------------------------

@contextlib.contextmanager
def replaced(path, make=None):
    """A file or folder is away, or something else stands in its place."""
    os.rename(path, path + ".away")
    if make is not None:
        make(path)
    yield
    if make is not None:
        os.rmdir(path) if os.path.isdir(path) else os.unlink(path)  # pylint: disable=expression-not-assigned
    os.rename(path + ".away", path)


def touch(path):
    """An empty file."""
    with open(path, "wb"):
        pass


@contextlib.contextmanager
def marker(well, name):
    """A marker beside no file."""
    path = os.path.join(well.unit.media, "job7", "media", name)
    os.makedirs(os.path.dirname(path))
    touch(path)
    yield
    shutil.rmtree(os.path.join(well.unit.media, "job7"))


@contextlib.contextmanager
def item_without_file(well):
    """A recording that a job knows of, and of which nothing but its marker is there."""
    path = os.path.join(well.unit.media, "job7", "media", "0815.mp4")
    with marker(well, ".0815-recActive"):
        shared_loop().call(well.unit.jobs.add_media, path, "video", ("", "", ""), (False, 0, False, 0, False, 0, 0))
        yield
    well.unit.jobs.items.clear()


@contextlib.contextmanager
def device(well, **changes):
    """The card says something else of itself."""
    path = well.unit.storage.device_path("card")
    before = {name: well.unit.storage.get_property(path, name) for name in changes}
    well.unit.storage.set_device("card", **changes)
    yield
    well.unit.storage.set_device("card", **before)


@contextlib.contextmanager
def mounted(well, kind, options, point=None):
    """Something else is mounted at the card's place."""
    well.mount(kind, point or well.unit.media, options)
    yield
    well.mount("tmpfs", well.unit.media, "rw")


@contextlib.contextmanager
def dead(peer):
    """A sibling is not there."""
    peer.die()
    yield
    peer.revive()


@contextlib.contextmanager
def no_polkit(well):
    """Polkit is not there."""
    well.polkit.close()
    yield
    well.start_polkit()


@contextlib.contextmanager
def forbidden(well):
    """The rule does not allow to set the zone."""
    well.allowed.remove(ACTIONS[1])
    yield
    well.allowed.add(ACTIONS[1])


@contextlib.contextmanager
def zone(well, name):
    """Another zone is in force."""
    before = well.unit.timedate.timezone
    well.unit.timedate.set_property("/org/freedesktop/timedate1", "Timezone", name, emit=False)
    yield
    well.unit.timedate.set_property("/org/freedesktop/timedate1", "Timezone", before, emit=False)


@contextlib.contextmanager
def full_log(well):
    """The log's reader has stopped, and its socket is full."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK) as writer:
        writer.connect(well.log)
        with contextlib.suppress(BlockingIOError):
            while True:
                writer.send(b"x")
    yield
    well.log_socket.setblocking(False)
    with contextlib.suppress(BlockingIOError):
        while True:
            well.log_socket.recv(10)


@contextlib.contextmanager
def said(well, text):
    """The mixer says something else."""
    well.unit.audio.say(text)
    yield
    well.unit.audio.mend()


@contextlib.contextmanager
def owner(well, name):
    """The microphone's line says that another has it."""
    path = os.path.join(well.unit.gpio.directory, "gpiochip4", "14", "consumer")
    with open(path, encoding="utf-8") as file:
        before = file.read()
    with open(path, "w", encoding="utf-8") as file:
        file.write(name)
    yield
    with open(path, "w", encoding="utf-8") as file:
        file.write(before)


@contextlib.contextmanager
def screen(well, number, *shape):
    """A layer has another shape."""
    well.unit.framebuffers.announce(number, *shape)
    yield
    well.unit.framebuffers.set(number, 1280, 720)


@contextlib.contextmanager
def hushed(well):
    """A layer is no framebuffer."""
    well.unit.framebuffers.hush(0)
    yield
    well.unit.framebuffers.set(0, 1280, 720)


@contextlib.contextmanager
def no_section(well, section):
    """A section of the settings is gone."""
    kept = well.unit.settings.objects[well.unit.settings.section_path(section)]
    well.unit.settings.remove_section(section)
    yield
    well.unit.settings.objects[well.unit.settings.section_path(section)] = kept


@contextlib.contextmanager
def no_gpsd(well):
    """The receiver's daemon is not there."""
    well.unit.gps.stop()
    yield
    well.unit.gps.start()


@contextlib.contextmanager
def no_storage(well):
    """All storage is pulled out."""
    points = {name: well.unit.mount_point(name) for name in ("card", "internal")}
    for name in points:
        well.unit.storage.remove_device(name)
    yield
    for name, point in points.items():
        well.unit.storage.add_device(name, point)


def files(well, *names):
    """A path in the unit's folder."""
    return os.path.join(well.unit.directory, *names)


SIBLINGS = ("video", "storage", "jobs", "hardware", "sync", "settings")
#: What is broken, the check that tells it, its verdict, and what it says.
BROKEN = {
    **{f"no {name} daemon": (lambda well, name=name: dead(getattr(well.unit, name)), f"{name} daemon", "missing",
                             "nobody has its name") for name in SIBLINGS},
    "no section": (lambda well: no_section(well, "audio"), "settings daemon", "wrong",
                   "audio/micEnabled is missing; audio/speakerEnabled is missing; audio/speakerVolume is missing"),
    "not mounted": (lambda well: device(well, IsMounted=False, MountPoint=""), "storage card", "missing",
                    "it is not mounted"),
    "read-only": (lambda well: device(well, ReadOnly=True), "storage card", "wrong", "nothing can be written to"),
    "full": (lambda well: device(well, StorageIsBelowMinimumLevel=True), "storage card", "wrong", "it is full"),
    "no mount point": (lambda well: replaced(well.unit.media), "storage card", "wrong", "is no folder"),
    "no storage": (no_storage, "storage", "missing", "knows of none"),
    "FAT of another": (lambda well: mounted(well, "vfat", "uid=4321,gid=0"), "FAT storage", "wrong",
                       f"is mounted without uid={os.getuid()}"),
    "FAT of a prefix": (lambda well: mounted(well, "vfat", f"uid={os.getuid()}5"), "FAT storage", "wrong",
                        "without uid="),
    "FAT elsewhere": (lambda well: mounted(well, "msdos", "uid=4321", "/media/a stick"), "FAT storage", "wrong",
                      "/media/a stick is mounted without"),
    "recActive": (lambda well: marker(well, ".0815-recActive"), "markers", "wrong", "/job7/media/.0815-recActive"),
    "recovery": (lambda well: marker(well, ".0815-recovery"), "markers", "wrong", "/job7/media/.0815-recovery"),
    "item": (item_without_file, "items", "wrong", "/job7/media/0815.mp4"),
    "no timedated": (lambda well: dead(well.unit.timedate), "clock", "missing", "does not tell the zone"),
    "foreign zone": (lambda well: zone(well, "Europe/Berlin"), "clock", "wrong", "Europe/Berlin"),
    "no polkit": (no_polkit, "polkit", "missing", "does not run"),
    "no rule": (forbidden, "polkit", "wrong", f"does not allow {ACTIONS[1]}"),
    "no logs folder": (lambda well: replaced(well.unit.logs_folder), "logs folder", "missing", "No such file"),
    "logs file": (lambda well: replaced(well.unit.logs_folder, touch), "logs folder", "wrong", "no folder"),
    "no log": (lambda well: replaced(well.log), "log", "missing", "No such file"),
    "dead log": (lambda well: replaced(well.log, touch), "log", "wrong", "Connection refused"),
    "full log": (full_log, "log", "wrong", "its reader has stopped"),
    "no control": (lambda well: replaced(files(well, "audio", "mixer", "HP DAC")), "mixer control HP DAC", "missing",
                   "knows no such control"),
    "odd mixer": (lambda well: said(well, "Mono: Playback 3\n"), "mixer control PCM", "missing", "no such control"),
    "no player": (lambda well: replaced(files(well, "audio", "bin", "aplay")), "player", "missing", "no aplay"),
    "no sounds": (lambda well: replaced(well.unit.audio.sounds_folder, os.mkdir), "sounds", "missing", "there is none"),
    "no chip": (lambda well: replaced(files(well, "gpio", "gpiochip4")), "gpiochip", "missing", "No such file"),
    "no line": (lambda well: replaced(files(well, "gpio", "gpiochip4", "13")), "speaker line", "missing", "line 13"),
    "line of another": (lambda well: owner(well, "thief\n"), "microphone line", "wrong", 'belongs to "thief"'),
    "no video layer": (lambda well: replaced(files(well, "framebuffers", "fb0")), "framebuffer /dev/fb0", "missing",
                       "No such file"),
    "no framebuffer": (hushed, "framebuffer /dev/fb0", "wrong", "it is no framebuffer"),
    "video's format": (lambda well: screen(well, 0, 1280, 720, 32, 1280, 720), "framebuffer /dev/fb0", "wrong",
                       "1280 x 720 pixels of 32 bits, not of 24"),
    "interface's format": (lambda well: screen(well, 1, 1280, 720, 16, 1280, 720), "framebuffer /dev/fb1", "wrong",
                           "1280 x 720 pixels of 16 bits, not of 32"),
    "two sizes": (lambda well: screen(well, 1, 640, 480, 32, 640, 480), "framebuffers", "wrong", "not of one size"),
    "no gpsd": (no_gpsd, "gpsd", "missing", "shares no memory"),
}


@pytest.mark.parametrize("what", BROKEN)
def test_one_thing_is_broken(well, what):
    """It is told, with what it means and what to do; the rest stays well, but for what hangs on it."""
    breaking, check, verdict, text = BROKEN[what]
    with breaking(well):
        told, words = well.ask("--json"), well.ask("--color always")
    answer = told.object
    [found] = [item for item in answer["checks"] if item["check"] == check]
    assert found["verdict"] == verdict and text in found["found"], answer
    assert found["meaning"] and found["remedy"]
    assert (told.status, words.status, answer["ok"], answer["exit"]) == (REFUSED, REFUSED, False, REFUSED)
    bad = [name for name, verdict in verdicts(answer).items() if verdict != "ok"]
    assert answer["code"] is None and answer["message"] == f"{len(bad)} of {len(answer['checks'])} checks have failed"
    allowed = {"no storage daemon": {"storage"}, "no mount point": {"logs folder"}, "item": {"markers"},
               "no chip": {"microphone line", "speaker line"},
               "odd mixer": {"mixer control HP DAC", "mixer control PGA"}}
    assert set(bad) <= {check} | allowed.get(what, set()), answer
    lines = words.out.splitlines()
    at = lines.index(f"\x1b[{ {'missing': '33', 'wrong': '1;31'}[verdict]}m{verdict}\x1b[0m"
                     f"{' ' * (9 - len(verdict))}{check}: {found['found']}")
    assert lines[at + 1:at + 3] == [f"{' ' * 9}so: {found['meaning']}", f"{' ' * 9}do: {found['remedy']}"]
    assert set(verdicts(well.ask("--json").object).values()) == {"ok"}


@pytest.mark.parametrize("kind, options", [("vfat", f"gid=0,uid={os.getuid()},fmask=0022"), ("ext4", "uid=4321")])
def test_storage_of_the_units_user(well, kind, options):
    """Is well, and so is what is no FAT."""
    with mounted(well, kind, options):
        assert set(verdicts(well.ask("--json").object).values()) == {"ok"}
    with mounted(well, "vfat", "uid=4321", "/boot/firmware"):
        assert set(verdicts(well.ask("--json").object).values()) == {"ok"}


def test_markers_of_a_recording_that_goes_on(well):
    """Are no leftovers; those of another are."""
    run(well.unit, "record start")
    assert verdicts(well.ask("--json").object)["markers"] == "ok"
    with marker(well, ".0815-recActive"):
        assert verdicts(well.ask("--json").object)["markers"] == "wrong"
    run(well.unit, "record stop")
    well.unit.settle()
    assert verdicts(well.ask("--json").object)["markers"] == "ok"


def past(folder):
    """A clock that stands where one without a battery starts."""
    with open(os.path.join(folder, "clock"), "wb") as file:
        file.write(struct.pack("=q", -int(time.time() - 10 ** 9) * 10 ** 9))
    return {"CCU_CLOCK": file.name}


def zones(folder, *names):
    """Zone files of an image that lacks some or all."""
    for name in names:
        touch(os.path.join(folder, name))
    return {"CCU_ZONES": str(folder)}


def silent_bus(folder):
    """One that takes connections, and does nothing with them."""
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(os.path.join(folder, "bus"))
    listener.listen()
    return {"DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={listener.getsockname()}", "silent": listener}


#: What of the system is another, the check that tells it, its verdict, and what it says.
SYSTEMS = {
    "the past": (past, "clock", "wrong", "it stands in the year 2001"),
    "no zones": (zones, "zones", "missing", "there is none in /usr/share/zoneinfo/CCU/"),
    "no summer": (lambda folder: zones(folder, "Paris"), "zones", "missing",
                  "there is none in /usr/share/zoneinfo/CCU/DST"),
    "no system bus": (lambda folder: {"DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={folder}/bus"}, "system bus", "missing",
                      "No such file or directory"),
    "a silent system bus": (silent_bus, "system bus", "wrong", "it does not answer"),
}


@pytest.mark.parametrize("what", SYSTEMS)
def test_the_system_is_another(well, tmp_path, what):
    """It is told, and what it means."""
    making, check, verdict, text = SYSTEMS[what]
    variables = making(tmp_path)
    listener = variables.pop("silent", None)
    told = well.ask("--json", patience=PATIENTLY if listener is None else "--timeout 0.1", **variables)
    if listener is not None:
        listener.close()
    [found] = [item for item in told.object["checks"] if item["check"] == check]
    assert (told.status, found["verdict"], found["found"]) == (REFUSED, verdict, text), told.out
    assert found["meaning"] and found["remedy"]


# Bus and controller ---------------------------------------------------------------------------------------------------

def test_no_bus(well):
    """Is the worst; what needs none is looked at all the same."""
    told = well.ask("--json", DBUS_SESSION_BUS_ADDRESS=f"unix:path={well.unit.directory}/no-bus")
    found = verdicts(told.object)
    assert told.status == UNREACHABLE and found["bus"] == "missing"
    assert (found["clock"], found["gpiochip"]) == ("ok", "ok") and "controller" not in found


def test_no_controller(own_unit):
    """It ends, and another program has its name."""
    own_unit.stop_daemon()
    told = run(own_unit, f"doctor --json {PATIENTLY}")
    found = {item["check"]: item for item in told.object["checks"]}
    assert (told.status, found["controller"]["verdict"]) == (UNREACHABLE, "missing")
    assert "belongs to nobody" in found["microphone line"]["found"]
    thief = Peer(own_unit.session_address, "com.tavilon.common.Controller1",
                 lambda message: dbus.lowlevel.ErrorMessage(message, "org.freedesktop.DBus.Error.Failed", "no"))
    told = run(own_unit, f"doctor --json {PATIENTLY}")
    thief.close()
    found = {item["check"]: item for item in told.object["checks"]}
    assert (told.status, found["controller"]["verdict"]) == (UNREACHABLE, "wrong")
    assert "another program has its name: " in found["controller"]["found"]


def test_nobody_answers(own_unit):
    """Siblings that hang, a polkit that hangs and a mixer that hangs are told, and hang no doctor."""
    peers = []
    for name in SIBLINGS:
        sibling = getattr(own_unit, name)
        sibling.die()
        peers.append(Peer(own_unit.session_address, sibling.service))
    peers.append(Peer(own_unit.system_address, "org.freedesktop.PolicyKit1"))
    own_unit.audio.hold("amixer")
    told = run(own_unit, "doctor --json --timeout 0.05")
    own_unit.audio.release("amixer")
    for peer in peers:
        peer.close()
    found = verdicts(told.object)
    assert told.status == REFUSED or found["controller"] != "ok"
    assert {name: found[f"{name} daemon"] for name in SIBLINGS} == dict.fromkeys(SIBLINGS, "wrong")
    assert found["polkit"] == "wrong" and found["mixer control PCM"] == "wrong"


@pytest.mark.parametrize("line", ["doctor now", "doctor --timeout", "doctor --timeout soon", "doctor --color red"])
def test_wrong_usage(well, line):
    """Is refused, and nobody is asked."""
    mark = well.unit.calls.mark()
    assert run(well.unit, line).status == USAGE
    assert not well.unit.calls.since(mark)


# What siblings must have ----------------------------------------------------------------------------------------------

def inspect(unit):
    """Has the daemon use all that it uses of its siblings."""
    unit.settings.change("keyBeep", {"enabled": True})
    for kind, capture in ("video", "video"), ("photo-talk", "photoTalk"), ("auto-log", "autolog"):
        for step in "start", "pause", "resume", "stop":
            assert run(unit, f"record {step} --kind {kind}").status == DONE
            unit.video.grow(capture) if step == "start" else None  # pylint: disable=expression-not-assigned
            unit.settle()
        assert run(unit, f"record start --kind {kind}").status == DONE
        unit.storage.set_low("card")
        unit.settle()
        unit.storage.set_low("card", False)
        assert run(unit, f"record start --kind {kind}").status == DONE
        unit.storage.unmount("card")
        unit.settle()
        unit.storage.mount("card", os.path.join(unit.directory, "media", "card"))
    fault = unit.faults.on("video", "StartRecording")
    assert run(unit, "record start").status == REFUSED
    fault.cancel()
    picture = run(unit, "snapshot").out.removesuffix("\n")
    for line in (f"play start {picture}", "play pause", "play resume", "play seek 1", "play rate 2", "play rate"):
        assert run(unit, line).status == DONE
    unit.video.break_playback()
    unit.settle()
    for line in ("play stop", "sonde on", "sonde", "mic off", "time set '2026-01-02 03:04:05'"):
        run(unit, line)
    unit.client.get("GetTimeSourceAvailable")
    unit.keypad.press(30)
    unit.settle()


def complaints(unit):
    """The members that a doctor misses."""
    told = run(unit, f"doctor --json {PATIENTLY}").object
    return {member for item in told["checks"] for member in re.findall(r"\w+\.(\w+) is missing", item["found"])}


#: What the daemon reads in signals and lists of objects, and when a recording has ended by itself.
NOT_ASKED_FOR = {"PlaybackState", "ReadOnly", "MountPoint", "IsMounted"}


def test_needs_are_what_the_daemon_uses(own_unit):
    """No less and no more: what a unit's siblings are asked in an inspection is what is missed when it is not there."""
    mark = own_unit.calls.mark()
    inspect(own_unit)
    used = {call.member.removeprefix("Get ").removeprefix("Set ") for call in own_unit.calls.since(mark)
            if call.sibling not in ("settings", "timedate")}
    for name in SIBLINGS:
        for item in getattr(own_unit, name).objects.values():
            elements = [ElementTree.Element("interface", name=element.get("name"))
                        for element in item.declared.elements]
            item.declared = dataclasses.replace(item.declared, elements=elements)
    assert complaints(own_unit) == used | NOT_ASKED_FOR


@pytest.mark.parametrize("change, text", [
    (lambda member: member.set("name", "Renamed"), "Control.Snapshot is missing"),
    (lambda member: member.remove(member[0]), "Control.Snapshot is (uuu) -> i instead of (suuu) -> i"),
    (lambda member: member[-1].set("type", "s"), "Control.Snapshot is (suuu) -> s instead of (suuu) -> i")],
    ids=["missing", "arguments", "answer"])
def test_a_member_that_is_another(well, change, text):
    """Is told with what it should be."""
    [item] = well.unit.video.objects.values()
    kept = item.declared
    elements = [ElementTree.fromstring(ElementTree.tostring(element)) for element in kept.elements]
    change(next(member for element in elements for member in element if member.get("name") == "Snapshot"))
    item.declared = dataclasses.replace(kept, elements=elements)
    told = well.ask("--json").object
    item.declared = kept
    [found] = [item for item in told["checks"] if item["check"] == "video daemon"]
    assert (found["verdict"], found["found"]) == ("wrong", text)


def test_a_setting_of_another_type(well):
    """Is none."""
    settings = well.unit.settings
    path = settings.section_path("audio")
    kept = settings.objects[path].declared
    declared = dataclasses.replace(kept, properties={
        **kept.properties, "speakerVolume": dataclasses.replace(kept.properties["speakerVolume"], signature="u")})
    settings.objects[path].declared = declared
    told = well.ask("--json").object
    settings.objects[path].declared = kept
    [found] = [item for item in told["checks"] if item["check"] == "settings daemon"]
    assert (found["verdict"], found["found"]) == ("wrong", "audio/speakerVolume is of another type")
