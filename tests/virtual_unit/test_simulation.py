"""The control object of a unit: what is done over the bus is done to the unit, and every change is told."""

import os
import re
import subprocess
import threading
import time

import dbus.lowlevel
import pytest

from virtual_unit import PATIENCE, SILENT, Client, DbusFailure, Typed, VirtualUnit
from virtual_unit.declaration import PROPERTIES, call_names
from virtual_unit.loop import on_loop
from virtual_unit.simulation_names import ROOT, SERVICE
from virtual_unit.values import plain
from virtual_unit.verbs import SIBLINGS, choices_of, nouns, with_default_verb

_INVALID = "org.freedesktop.DBus.Error.InvalidArgs"


class Watcher:
    """A client of the control object that keeps what it is told."""

    def __init__(self, unit):
        self._client = Client(unit.session_address, SERVICE, ROOT, SERVICE)
        self.told = []
        self._changed = threading.Condition()
        self._follow()

    @on_loop
    def _follow(self):
        connection = self._client._connection
        connection.add_match_string(f"type='signal',sender='{SERVICE}'")
        connection.add_message_filter(self._filter)

    def _filter(self, _connection, message):
        path = str(message.get_path())
        if message.get_type() == dbus.lowlevel.MESSAGE_TYPE_SIGNAL and path.startswith(ROOT):
            with self._changed:
                self.told.append((path[len(ROOT) + 1:], str(message.get_member()),
                                  [plain(argument) for argument in message.get_args_list()]))
                self._changed.notify_all()
        return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED

    def close(self):
        """Leaves the bus."""
        self._client.close()

    def do(self, noun, verb, *arguments):
        """Calls the method of a verb; returns the tuple of its results."""
        found = nouns()[noun].verbs[verb]
        return self._client.call_on(SERVICE, found.path, found.interface, found.member, found.signature, *arguments)

    def call(self, member):
        """Calls a method of the unit as a whole."""
        return self._client.call(member)

    def state(self, noun):
        """The properties of an object."""
        return self._client.call_on(SERVICE, nouns()[noun].path, PROPERTIES, "GetAll", "s", "")[0]

    def lasting(self):
        """The state of all objects but the number of pictures: the display tells the time, so that each new minute makes
        another."""
        return {noun: {name: value for name, value in self.state(noun).items() if name != "Frames"} for noun in nouns()}

    def changes(self, noun):
        """What was told of the changes of an object's properties, one after the other."""
        with self._changed:
            return [arguments[1] for path, member, arguments in self.told
                    if path == noun and member == "PropertiesChanged"]

    def wait(self, condition):
        """Waits until the condition holds."""
        with self._changed:
            assert self._changed.wait_for(condition, PATIENCE), self.told

    def wait_for(self, noun, **values):
        """Waits until the properties have been told to have the values."""
        self.wait(lambda: any(values.items() <= change.items() for change in self.changes(noun)))

    def of(self, member):
        """The arguments of the signals of a name."""
        with self._changed:
            return [arguments for _, name, arguments in self.told if name == member]


@pytest.fixture(name="watcher")
def watcher_fixture(unit):
    """A subscribed client of a unit without a daemon."""
    watcher = Watcher(unit)
    watcher.call("Subscribe")
    yield watcher
    watcher.close()


# The declaration ------------------------------------------------------------------------------------------------------


def test_the_object_is_introspectable_as_declared(unit):
    """Every noun is an object with the methods and properties of the file."""
    for noun in nouns().values():
        client = Client(unit.session_address, SERVICE, noun.path, noun.interface)
        text = client.introspect()
        client.close()
        for verb in noun.verbs.values():
            assert f'<method name="{verb.member}"' in text
        for name, _, _ in noun.properties:
            assert f'<property name="{name}"' in text


def test_every_verb_and_every_property_says_what_it_is():
    """The effect of a verb can be told with the names of its arguments and results."""
    for noun in nouns().values():
        assert noun.summary and all(summary for *_, summary in noun.properties)
        for verb in noun.verbs.values():
            assert verb.summary.endswith(".")
            named = set(re.findall(r"{(\w+)", verb.effect))
            assert named <= {*(argument.name for argument in verb.inputs), *verb.outputs}
            for argument in verb.inputs:
                assert argument.default is None or argument.value(argument.default) is not None
                choices_of(argument, {"sibling": "video", "section": "audio"})


def test_the_state_has_every_property_of_its_declared_type(unit, watcher):
    """Also that of a unit without siblings."""
    with VirtualUnit(daemon=False, siblings=()) as bare:
        poor = Watcher(bare)
        for noun in nouns().values():
            names = {name for name, _, _ in noun.properties}
            assert set(poor.state(noun.name)) == set(watcher.state(noun.name)) == names
        with pytest.raises(DbusFailure, match="this unit has no storage daemon"):
            poor.do("storage", "remove", "card", False)
        poor.close()
    assert unit.errors == []


def test_siblings_and_their_members_are_known(unit):
    """Those that commands offer are those that there are."""
    assert set(SIBLINGS) == set(unit.siblings)
    assert "StartRecording" in call_names("video") and "Get RecordingState" in call_names("video")
    assert "Set MountPoint" not in call_names("storage") and "Set KnownPrimary" in call_names("storage")


@pytest.mark.parametrize("words, whole", [
    (["fault", "video", "StartRecording", "refuse"], ["fault", "add", "video", "StartRecording", "refuse"]),
    (["fault", "clear"], ["fault", "clear"]), (["fault", "--help"], ["fault", "--help"]), (["fault"], ["fault"]),
    (["key", "Enter"], ["key", "type", "Enter"]), (["storage", "card"], ["storage", "card"]), ([], [])])
def test_a_verb_can_be_left_out(words, whole):
    """Where the file says so."""
    assert with_default_verb(words) == whole


# What is done ---------------------------------------------------------------------------------------------------------

#: Noun, verb, arguments; then what the unit's own objects say of it.
_DEEDS = [
    ("storage", "remove", ("card", True), lambda unit: unit.storage.devices() == ["internal"]),
    ("storage", "unmount", ("card",), lambda unit: unit.mount_point("card") == ""),
    ("storage", "low", ("card", True), lambda unit: unit.storage.objects[unit.storage.device_path("card")]
     .values["StorageIsBelowMinimumLevel"]),
    ("storage", "read-only", ("card", True), lambda unit: unit.storage.objects[unit.storage.device_path("card")]
     .values["ReadOnly"]),
    ("storage", "fill", ("card", True), lambda unit: not unit.storage.has_room(unit.media + "/file")),
    ("storage", "add", ("stick",), lambda unit: os.path.isdir(unit.mount_point("stick") or "")),
    ("camera", "connect", (False,), lambda unit: unit.hardware.video_status == 0),
    ("camera", "roll", (-45,), lambda unit: (unit.video.get("CameraRollAngle"),
                                             unit.video.get("CameraRollAngleRaw")) == ("-45", -45)),
    ("camera", "pitch", (30,), lambda unit: unit.video.get("CameraPitchAngle") == 30),
    ("camera", "sonde", (True,), lambda unit: unit.hardware.sonde is True),
    ("reel", "connect", (False,), lambda unit: unit.hardware.reel["Connected"] is False),
    ("reel", "distance", (12.34,), lambda unit: (unit.hardware.reel["Relative"], unit.hardware.reel["Absolute"]) ==
     (1234, 2234)),
    ("reel", "mode", ("absolute",), lambda unit: unit.hardware.reel["Mode"] == "absolute"),
    ("reel", "zero", (), lambda unit: unit.hardware.reel["Relative"] == 0),
    ("power", "low", (True,), lambda unit: (unit.hardware.power_sufficient, unit.hardware.power["LowBatteryWarnings"])
     == (0, (True, True))),
    ("power", "charge", (7, 9), lambda unit: unit.hardware.power["BatteryChargePercentages"] == (7, 9)),
    ("power", "source", (2,), lambda unit: unit.hardware.power["ActivePowerSource"] == 2),
    ("cooling", "temperature", (-5,), lambda unit: unit.hardware.cooling["CpuTemp"] == -5),
    ("cooling", "fan", (100,), lambda unit: unit.hardware.cooling["FanSpeed"] == 100),
    ("clock", "set", ("2026-07-14 09:30:00",), lambda unit: 0 <= unit.clock.now() - 1784021400 < PATIENCE),
    ("clock", "advance", (-3600.0,), lambda unit: -7_200_000_000 < unit.clock.offset_usec < -3_599_000_000),
    ("clock", "zone", ("UTC",), lambda unit: unit.timedate.timezone == "UTC"),
    ("clock", "ntp", (False,), lambda unit: unit.timedate.keeps_network_time is False),
    ("key", "unplug", (), lambda unit: not unit.keypad.plugged),
    ("front", "hold", (True,), lambda unit: "aplay" not in unit.audio._gates),
    ("sibling", "die", ("video",), lambda unit: not unit.video.alive),
    ("sibling", "hang", ("video",), lambda unit: [rule.kind for rule in unit.faults.rules()] == [SILENT]),
    ("fault", "add", ("video", "any", "die-after", 0, 0.0), lambda unit: [
        (rule.member, rule.kind.kind, rule.times) for rule in unit.faults.rules()] == [(None, "die after", None)]),
    ("settings", "set", ("audio", "speakerVolume", Typed("s", "30")), lambda unit:
     unit.settings.value("audio", "speakerVolume") == 30),
    ("settings", "set", ("audio", "micEnabled", Typed("b", False)), lambda unit:
     unit.settings.value("audio", "micEnabled") is False),
    ("job", "open", ("internal", "job7"), lambda unit: unit.jobs.current == ("internal", "job7")),
    ("job", "close", (), lambda unit: unit.jobs.current is None),
    ("sync", "active", (True,), lambda unit: unit.sync.active),
]


@pytest.mark.parametrize("noun, verb, arguments, done", _DEEDS, ids=[f"{deed[0]}-{deed[1]}" for deed in _DEEDS])
def test_what_is_done_is_done_to_the_unit_and_told(unit, watcher, noun, verb, arguments, done):
    """The answer comes when it is done, and behind what is told of it."""
    assert not done(unit)
    before = watcher.state(noun)
    watcher.do(noun, verb, *arguments)
    assert done(unit)
    changed = {name: value for name, value in watcher.state(noun).items() if value != before[name]}
    if (noun, verb) == ("front", "hold"):  # is seen by the next sound only
        return
    assert changed and watcher.changes(noun)
    told = {name: value for change in watcher.changes(noun) for name, value in change.items()}
    assert told == {name: value for name, value in watcher.state(noun).items() if name in told}
    assert set(told) == set(changed)


@pytest.mark.parametrize("noun, verb, arguments, text", [
    ("storage", "remove", ("disk", False), "no device 'disk'; there are: card, internal"),
    ("storage", "add", ("card",), "card is plugged in already"),
    ("storage", "add", ("../card",), "'../card' cannot be the name of a device"),
    ("recording", "grow", (100, "video"), "video is not recording"),
    ("recording", "grow", (100, "film"), "no kind of recording 'film'; there are: autolog, photoTalk, video"),
    ("playback", "break", (), "nothing is played"),
    ("reel", "distance", (1e9,), "the counter shows less than 10000 m"),
    ("reel", "mode", ("sideways",), "no mode 'sideways'; there are: absolute, relative"),
    ("power", "charge", (101, 5), "a battery is charged to 0 to 100 percent"),
    ("cooling", "fan", (101,), "the fan turns at 0 to 100 percent"),
    ("gps", "fix", (91.0, 0.0, ""), "a place has -90 to 90 degrees north and -180 to 180 degrees east"),
    ("gps", "fix", (1.0, 0.0, "noon"), "'noon' is no time like 2026-07-14 09:30:00"),
    ("gps", "fix", (1.0, 0.0, "1999-01-01 00:00"), "gpsd understands times from 2021 to 2069"),
    ("clock", "set", ("@9e99",), "this clock cannot be so far from the machine's"),
    ("clock", "zone", ("Atlantis",), "no zone 'Atlantis' on this unit"),
    ("key", "type", ("Entre",), "no key 'Entre'; meant is perhaps Enter"),
    ("key", "type", ("Enter",), "nobody listens to the keypad"),
    ("key", "plug", (), "the keypad is plugged in already"),
    ("sibling", "die", ("radio",), "no sibling 'radio'"),
    ("fault", "add", ("video", "StartRadio", "refuse", 0, 0.0), "no member of video 'StartRadio'; there are: "),
    ("fault", "add", ("video", "any", "explode", 0, 0.0), "no kind of fault 'explode'"),
    ("fault", "add", ("video", "any", "code", 0, 0.5), "a code is a whole number"),
    ("fault", "add", ("video", "any", "late", 0, 0.0), "a late answer needs --value, the seconds"),
    ("fault", "remove", (7,), "no fault '7'"),
    ("settings", "set", ("audio", "speakerVolume", Typed("s", "loud")), "'loud' is no value of the type i"),
    ("settings", "set", ("audio", "bass", Typed("s", "1")), "no key of audio 'bass'"),
    ("settings", "reset", ("radio",), "no section 'radio'"),
    ("job", "open", ("card", "../job"), "'../job' cannot be the name of a job"),
    ("job", "open", ("disk", "job"), "no mounted device 'disk'"),
    ("daemon", "stop", (), "the daemon does not run"),
    ("unit", "load", ("/nonexistent",), "/nonexistent"),
])
def test_what_cannot_be_done_is_refused_with_the_reason(unit, watcher, noun, verb, arguments, text):
    """It changes nothing, and is no error of the simulation."""
    before = watcher.lasting()
    with pytest.raises(DbusFailure) as refused:
        watcher.do(noun, verb, *arguments)
    assert text in refused.value.text
    assert watcher.lasting() == before and unit.errors == []


def test_calls_of_wrong_types_and_to_nowhere_are_refused(unit):
    """As by any sibling."""
    client = Client(unit.session_address, SERVICE, ROOT + "/reel", SERVICE + ".Reel")
    for member, signature, arguments, name in (("Distance", "s", ("far",), _INVALID),
                                               ("Turn", "", (), "org.freedesktop.DBus.Error.UnknownMethod")):
        with pytest.raises(DbusFailure) as refused:
            client.call(member, signature, *arguments)
        assert refused.value.name == name
    with pytest.raises(DbusFailure, match="not writable"):
        client.set("Distance", "d", 3.0)
    client.close()
    assert unit.errors == [] and list(unit.calls) == []


def test_files_go_and_come_with_their_device(unit, watcher):
    """Unless they are to stay."""
    file = os.path.join(unit.media, "file")
    with open(file, "wb"):
        pass
    watcher.do("storage", "remove", "card", False)
    assert not os.path.exists(file)
    watcher.do("storage", "add", "card")
    assert os.path.exists(file)
    watcher.do("storage", "remove", "card", True)
    assert os.path.exists(file)
    watcher.do("storage", "add", "card")
    assert os.path.exists(file)
    watcher.do("storage", "unmount", "card")
    watcher.do("storage", "mount", "card")
    assert unit.media == os.path.dirname(file)


def test_a_full_device_has_room_again(unit, watcher):
    """Both for the video daemon and by its own properties."""
    watcher.do("storage", "fill", "card", True)
    watcher.do("storage", "fill", "card", True)
    assert unit.storage.full == ["card"] and watcher.state("storage")["Devices"]["card"]["FreeSpace"] == 0
    assert watcher.state("storage")["Devices"]["card"]["Full"] is True
    watcher.do("storage", "fill", "card", False)
    assert unit.storage.has_room(unit.media + "/file")
    with open(unit.full_devices_file, encoding="utf-8") as file:
        assert file.read() == ""


def test_faults_are_told_as_they_are_met(unit, watcher, video_client):
    """And can be taken back one by one."""
    number, = watcher.do("fault", "add", "video", "StopRecording", "code", 2, -7.0)
    other, = watcher.do("fault", "add", "video", "any", "refuse", 0, 0.0)
    assert [fault[0] for fault in watcher.state("fault")["Faults"]] == [number, other]
    watcher.do("fault", "remove", other)
    assert video_client.call("StopRecording") == (-7,)
    assert watcher.state("fault")["Faults"] == [(number, "video", "StopRecording", "code", 1, 1, -7.0)]
    assert video_client.call("StopRecording") == (-7,)
    assert watcher.state("fault")["Faults"] == []
    watcher.do("sibling", "hang", "video")
    assert watcher.state("sibling")["States"]["video"] == "hanging"
    watcher.do("fault", "clear")
    assert watcher.state("sibling")["States"]["video"] == "alive"
    watcher.do("sibling", "hang", "video")
    watcher.do("sibling", "return", "video")
    watcher.do("sibling", "die", "video")
    assert watcher.state("sibling")["States"]["video"] == "dead"
    watcher.do("sibling", "return", "video")
    assert watcher.state("sibling")["States"]["video"] == "alive" and unit.video.alive


def test_a_recording_does_what_it_is_told(unit, watcher, video_client):
    """Its state, file and size are there to be seen."""
    path = f"{unit.media}/a.mp4"
    video_client.call("StartRecording", "sssuuu", path, "", "", 1, 1, 1)
    watcher.wait(lambda: watcher.changes("recording"))
    size = os.path.getsize(path)
    watcher.do("recording", "grow", 5000, "video")
    watcher.do("recording", "limit", "video")
    assert watcher.state("recording")["Recordings"]["video"]["Size"] == os.path.getsize(path) == size + 5000 + 4096
    watcher.do("recording", "end", "video")
    assert watcher.state("recording")["Recordings"]["video"] == {
        "State": "off", "File": "", "PreviousFile": path, "Size": 0}
    assert [signal.args[1] for signal in video_client.signals if signal.member == "VideoGrew"] == [False, True]
    video_client.call("StartPlayback", "sd", path, 1.0)
    watcher.do("playback", "move", 500)
    assert (watcher.state("playback")["State"], watcher.state("playback")["Position"]) == ("playing", 500)
    watcher.do("playback", "break")
    assert watcher.state("playback")["State"] == "broken"


# What is told ---------------------------------------------------------------------------------------------------------


def test_what_others_change_is_told_too(unit, watcher):
    """By the unit's own objects, by calls of the daemon, and by files that its tools write."""
    unit.hardware.set_reel(relative=77)
    watcher.wait_for("reel", Relative=77)
    unit.gpio.mic.value = 1
    watcher.wait_for("front", Microphone=True)
    unit.gpio.mic.remove()
    watcher.wait_for("front", Microphone=False)
    unit.gpio.mic.plug()
    unit.gpio.mic.value = 1
    watcher.wait(lambda: [change for change in watcher.changes("front") if "Microphone" in change][2:])
    unit.audio.set_control("HP DAC", 127)
    watcher.wait_for("front", Volume=100)
    unit.faults.on("jobs")
    watcher.wait(lambda: watcher.changes("fault"))
    unit.framebuffers.set(0, 640, 480)
    watcher.wait(lambda: any("Frames" in change for change in watcher.changes("front")))
    assert watcher.state("front")["Screens"][0][:3] == (640, 480, 24)


def test_calls_and_signals_of_siblings_are_told(unit, watcher, video_client):
    """With the fault that a call has met, and values of any type as they are."""
    unit.faults.on("video", "StopRecording", times=1)
    with pytest.raises(DbusFailure):
        video_client.call("StopRecording")
    video_client.call("StartPlayback", "sd", "/none", 1.5)
    unit.video.set("CameraPitchAngle", 9)
    unit.storage.remove_device("card")
    watcher.wait(lambda: [one for one in watcher.of("Emitted") if one[3] == "InterfacesRemoved"])
    interface = "com.tavilon.common.Video1.Control"
    path = "/com/tavilon/common/Video1"
    assert [call for call in watcher.of("Called") if call[0] == "video"] == [
        ["video", path, interface, "StopRecording", [], "refuse"],
        ["video", path, interface, "StartPlayback", ["/none", 1.5], ""]]
    signals = watcher.of("Emitted")
    assert ["video", path, PROPERTIES, "PropertiesChanged", [interface, {"CameraPitchAngle": 9}, []]] in signals
    assert next(signal for signal in signals if signal[3] == "InterfacesRemoved")[4][0].endswith("/card")
    assert [call[4:6] for call in watcher._client.call("Calls")[0]] == [("StopRecording", []),
                                                                       ("StartPlayback", ["/none", 1.5])]


def test_the_daemon_is_told_of_and_ruled(build_dir):
    """Its log, its signals, its life and its end."""
    with VirtualUnit(build_dir) as unit:
        watcher = Watcher(unit)
        unit.client.call("Say", "s", "before")
        watcher.call("Subscribe")
        unit.client.call("Say", "s", "well\nsaid")
        watcher.wait(lambda: watcher.of("Logged") and watcher.of("Emitted"))
        assert watcher.of("Logged") == [[6, "well\nsaid"]]
        assert watcher.of("Emitted")[0][0] == "controller" and watcher.of("Emitted")[0][3:] == ["Said", ["well\nsaid"]]
        assert [text for _, text in watcher._client.call("Log")[0]] == ["before", "well\nsaid"]
        first = unit.pid
        assert watcher.state("daemon") == {"Running": True, "Pid": first}
        pid, = watcher.do("daemon", "restart")
        assert pid == unit.pid != first and watcher.state("daemon")["Pid"] == pid
        assert watcher.do("daemon", "kill") == (-9,)
        watcher.wait_for("daemon", Running=False, Pid=0)
        with pytest.raises(DbusFailure, match="does not run"):
            watcher.do("daemon", "stop")
        watcher.do("daemon", "start")
        with pytest.raises(DbusFailure, match="runs already"):
            watcher.do("daemon", "start")
        assert watcher.do("daemon", "stop") == (0,)
        watcher.do("daemon", "start")
        watcher.told.clear()
        unit.client.call_async("Leave", "i", 3)
        watcher.wait_for("daemon", Running=False, Pid=0)
        assert unit.wait_exit() == 3
        watcher.close()


def test_nothing_is_told_to_those_who_have_not_asked(unit):
    """Nor when they have enough, nor when they have left."""
    quiet, loud = Watcher(unit), Watcher(unit)
    unit.hardware.set_reel(relative=1)
    loud.call("Subscribe")
    loud.call("Subscribe")
    unit.hardware.set_reel(relative=2)
    loud.wait_for("reel", Relative=2)
    loud.call("Unsubscribe")
    loud.call("Unsubscribe")
    unit.hardware.set_reel(relative=3)
    loud.call("Subscribe")
    unit.hardware.set_reel(relative=4)
    loud.wait_for("reel", Relative=4)
    assert [change["Relative"] for change in loud.changes("reel")] == [2, 4]
    loud.close()
    deadline = time.monotonic() + PATIENCE
    while unit.simulation._subscribers and time.monotonic() < deadline:
        quiet._client.sync()
    assert not unit.simulation._subscribers
    seen = len(quiet.told)
    unit.hardware.set_reel(relative=5)
    quiet._client.sync()
    assert len(quiet.told) == seen
    quiet.close()


def test_a_wait_for_the_daemon_holds_nobody_up(build_dir):
    """What ends it can be told meanwhile; a wait has its end."""
    with VirtualUnit(build_dir) as unit:
        watcher = Watcher(unit)
        assert watcher.do("unit", "settle", 60.0) == (True,)
        os.kill(unit.pid, 19)  # SIGSTOP
        assert watcher.do("unit", "settle", 0.05) == (False,)
        waits = watcher._client.request(SERVICE, ROOT, SERVICE, "Settle", "d", 60.0)
        watcher.do("reel", "zero")
        os.kill(unit.pid, 18)  # SIGCONT
        assert waits.result(PATIENCE).args == (True,)
        watcher.close()


def test_a_bus_that_is_renewed_has_the_object_again(unit):
    """And a renewed unit has the clock of the machine and no full device."""
    unit.stop_bus()
    unit.renew_bus()
    unit.remember()
    watcher = Watcher(unit)
    watcher.do("clock", "advance", 1000.0)
    watcher.do("storage", "fill", "card", True)
    unit.renew()
    assert unit.clock.is_machines and unit.storage.has_room(unit.media + "/file")
    assert not os.path.exists(unit.full_devices_file)
    watcher.close()


def test_other_tools_see_the_object(unit):
    """Such as busctl."""
    told = subprocess.run(["busctl", "--user", "get-property", SERVICE, f"{ROOT}/reel", f"{SERVICE}.Reel", "Distance"],
                          env={**os.environ, "DBUS_SESSION_BUS_ADDRESS": unit.session_address}, capture_output=True,
                          text=True, check=True).stdout
    assert told == "d 2.34\n"
