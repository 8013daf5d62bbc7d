"""The state of the unit as the command-line control shows it: from the controller and from all siblings."""

import json
import os
import re

import pytest

from tests.integration.controllerctl_cases import (
    DONE, NAMED_ALIKE, PATH, PROGRAM, REFUSED, STATUS, TIME_OUT, UNREACHABLE, USAGE, Running, environment, prepare_status,
    run)
from tests.integration.terminal import Terminal
from virtual_unit import ABSENT, PATIENCE, REFUSE, SILENT, WRONG_TYPE

NO_OWNER = "The name com.tavilon.common.Controller1 was not provided by any .service files"
SIBLINGS = ("video", "storage", "jobs", "hardware", "settings", "sync")
#: What no slow machine makes siblings miss.
PATIENTLY = f"--timeout {PATIENCE:.0f}"


def rows(text):
    """Label to the texts that stand behind it and below."""
    found, label = {}, None
    for line in text.splitlines():
        name, value = line[:10].strip(), line[12:]
        label = name or label
        found.setdefault(label, []).append(value)
    return found


@pytest.fixture(autouse=True)
def no_faults(stand_in):
    """Each test starts with a stand-in that serves."""
    stand_in.faults.clear()
    stand_in.controller.revive()
    prepare_status(stand_in)


# The controller's part ------------------------------------------------------------------------------------------------

def test_the_controllers_part(stand_in):
    """Every value, in words and as JSON; without siblings, which is no failure."""
    told = run(stand_in, "status")
    assert (told.status, told.errors) == (DONE, "")
    found = rows(told.out)
    told_by_it = ("time", "timezone", "clock", "microphone", "speaker", "sonde", "key beep")
    assert {name: found[name] for name in told_by_it} == {
        "time": ["2026-01-02 03:04:05"], "timezone": ["London, daylight saving time off"], "clock": ["can be set"],
        "microphone": ["on"], "speaker": ["off, volume 70 %"], "sonde": ["on"], "key beep": ["off"]}
    for key, _, text in NAMED_ALIKE.values():
        assert f"\n{key} " in told.out and text in told.out
    as_json = run(stand_in, "status --json").object
    expected = {"ok": True, "exit": DONE, "errors": {}, "time": "2026-01-02 03:04:05", **dict(STATUS.values())}
    assert {name: as_json[name] for name in expected} == expected
    assert as_json["siblings"] == dict.fromkeys(SIBLINGS, "absent")
    assert as_json["problems"] == [f"the {name} daemon is absent" for name in SIBLINGS]


@pytest.mark.parametrize("kind, message, words", [
    (REFUSE, "refused by the simulation", "refused"),
    (WRONG_TYPE, os.strerror(6), "another answer than its interface has")], ids=["refused", "wrong type"])
def test_gaps(stand_in, kind, message, words):
    """What is refused is missing, and why it is; the rest is told."""
    stand_in.faults.on("controller", "Get Sonde", kind=kind)
    told, as_json = run(stand_in, "status"), run(stand_in, "--json status")
    assert (told.status, as_json.status) == (REFUSED, REFUSED)
    assert told.errors == as_json.errors == f"controllerctl: sonde: {words}: {message}\n"
    assert (rows(told.out)["sonde"], rows(told.out)["key beep"]) == (["-"], ["off"])
    answer = as_json.object
    assert (answer["ok"], answer["sonde"], answer["volume"]) == (False, None, 70)
    assert answer["errors"] == {"sonde": message}


@pytest.mark.parametrize("member", [None, "Get Sonde"])
@pytest.mark.parametrize("kind, status, message, words", [
    (ABSENT, UNREACHABLE, NO_OWNER, "the controller cannot be reached"),
    (SILENT, TIME_OUT, os.strerror(110), "the controller did not answer")], ids=["absent", "silent"])
def test_no_controller(stand_in, member, kind, status, message, words):
    """Is told with its own status, also when it goes in between; what is known is told all the same."""
    stand_in.faults.on("controller", member, kind=kind)
    line = "status --timeout 0.1" if kind == SILENT else f"status {PATIENTLY}"
    told, as_json = run(stand_in, line), run(stand_in, f"--json {line}")
    assert (told.status, told.errors) == (status, f"controllerctl: {words}: {message}\n")
    assert rows(told.out)["sonde"] == ["-"]
    answer = as_json.object
    assert (answer["ok"], answer["exit"], answer["code"], answer["message"]) == (False, status, None, message)
    assert answer["sonde"] is None and len(answer["siblings"]) == len(SIBLINGS)
    assert kind == SILENT or (answer["errors"], answer["siblings"]["video"]) == ({}, "absent")


def test_no_bus(stand_in):
    """Is no controller, and nothing else to tell."""
    nowhere = {"DBUS_SESSION_BUS_ADDRESS": f"unix:path={stand_in.directory}/no-bus"}
    told = run(stand_in, "status --json", **nowhere)
    message = f"the bus cannot be reached: {os.strerror(2)}"
    assert told.object == {"ok": False, "exit": UNREACHABLE, "code": None, "message": message}
    assert told.errors == f"controllerctl: {message}\n"


@pytest.mark.parametrize("line", ["status --color blue", "status --timeout soon", "status --timeout",
                                  "status --watch 1"])
def test_wrong_usage(stand_in, line):
    """Is refused, and nobody is asked."""
    mark = stand_in.calls.mark()
    assert run(stand_in, line).status == USAGE
    assert not stand_in.calls.since(mark)


# The siblings' part ---------------------------------------------------------------------------------------------------

def look(unit):
    """What is told as JSON and, by its labels, in words."""
    told = run(unit, f"status --json {PATIENTLY}")
    return told.object, rows(run(unit, f"status {PATIENTLY}").out)


def test_a_unit_at_rest(unit):
    """All there, nothing under way, all well."""
    told, seen = look(unit)
    assert (told["ok"], told["errors"], told["problems"], told["sync"]) == (True, {}, [], {"active": False})
    assert told["siblings"] == dict.fromkeys(SIBLINGS, "there")
    assert told["job"] == {"id": "job1", "device": "card", "name": ""}
    assert told["power"] == {"source": 1, "level": 3, "rightPercent": 85, "leftPercent": 80, "rightLow": False,
                             "leftLow": False, "mayRecord": True}
    assert told["playback"]["state"] == "off"
    assert [(item["kind"], item["state"], item["file"]) for item in told["recordings"]] == [
        (kind, "off", "") for kind in ("video", "photo-talk", "auto-log")]
    assert told["storages"] == [
        {"id": name, "mountPoint": unit.mount_point(name), "mounted": True, "freeBytes": 8 * 1024 ** 3, "low": False,
         "nearlyLow": False, "readOnly": False, "primary": name == "internal"} for name in ("card", "internal")]
    assert (seen["video"], seen["problems"], seen["job"]) == (["off"], ["none"], ["job1 on card"])
    assert seen["storage"] == [f"card: 8.6 GB free, at {unit.mount_point('card')}",
                               f"internal: 8.6 GB free, primary, at {unit.mount_point('internal')}"]
    assert seen["power"] == ["right battery 85 %, left battery 80 %, source 1, level 3"]
    assert seen["siblings"] == [", ".join(SIBLINGS)]


@pytest.mark.parametrize("kind, capture", [("video", "video"), ("photo-talk", "photoTalk"), ("auto-log", "autolog")])
def test_a_recording(unit, kind, capture):
    """With its file, size, time since its start and storage, and its states."""
    assert run(unit, f"record start --kind {kind}").status == DONE
    unit.video.grow(capture, size=1_200_000)
    path = unit.video.orders[capture].path
    marker = os.path.join(os.path.dirname(path), f".{os.path.basename(path).removesuffix('.mp4')}-recActive")
    started = os.stat(marker).st_mtime - 3723
    os.utime(marker, (started, started))
    told, seen = look(unit)
    [item] = [item for item in told["recordings"] if item["state"] != "off"]
    assert item["seconds"] in range(3723, 3723 + int(PATIENCE))
    assert item == {"kind": kind, "state": "recording", "file": path, "seconds": item["seconds"],
                    "bytes": os.path.getsize(path), "storage": "card"}
    assert seen[kind][0].startswith("recording for 1:0") and seen[kind][0].endswith(", 1.2 MB on card")
    assert seen[kind][1] == path
    assert (told["timeSource"], seen["clock"]) == (0, ["cannot be set now"])
    run(unit, f"record pause --kind {kind}")
    assert look(unit)[1][kind][0].startswith("paused for 1:0")
    run(unit, f"record stop --kind {kind}")
    assert look(unit)[1][kind] == ["off"]


def test_a_playback(unit):
    """With its file and place, and when it is broken."""
    picture = run(unit, "snapshot").out.removesuffix("\n")
    run(unit, ["play", "start", picture, "--rate", "2"])
    run(unit, "play seek 5")
    told, seen = look(unit)
    assert told["playback"] == {"state": "playing", "file": picture, "position": 5, "duration": 60000}
    assert seen["playback"] == ["playing at rate 2.0, at 5 of 60000", picture]
    unit.video.set("PlaybackState", -1, emit=False)
    told, seen = look(unit)
    assert (told["playback"]["state"], told["problems"]) == ("broken", ["the playback is broken"])
    assert seen["playback"][0].startswith("broken")


def test_problems(unit):
    """Storage, power and job: each is told, in words that say what it means."""
    unit.storage.set_low("card")
    unit.storage.set_device("internal", ReadOnly=True, StorageIsBelowWarningLevel=True)
    unit.hardware.set_properties("/com/tavilon/common/Halvex1/power", {
        "LowBatteryWarnings": (True, False), "PermittedActions": (False, True, True, True, True)})
    unit.jobs.close()
    told, seen = look(unit)
    assert told["problems"] == seen["problems"] == [
        "storage card is full: nothing more can be recorded on it",
        "storage internal is read-only: nothing can be recorded on it", "storage internal is nearly full",
        "the power does not suffice for a recording", "the right battery is low"]
    assert seen["job"] == ["none: nothing can be recorded"] and told["job"]["id"] == ""
    assert "right battery 85 % (low)" in seen["power"][0] and "too low to record" in seen["power"][0]
    assert told["power"]["mayRecord"] is False and told["ok"] is True


def test_storage_that_goes(unit):
    """Unmounted, and gone altogether."""
    unit.storage.unmount("card")
    assert look(unit)[1]["problems"] == ["storage card is not mounted"]
    unit.storage.remove_device("card")
    unit.storage.remove_device("internal")
    told, seen = look(unit)
    assert (told["storages"], seen["storage"]) == ([], ["none"])
    assert told["problems"] == ["there is no storage: nothing can be recorded"]


@pytest.mark.parametrize("name", SIBLINGS)
def test_one_sibling_is_absent_or_refuses(unit, name):
    """Which is told; the others' part stands."""
    for state, begin in ("refuses", lambda: unit.faults.on(name)), ("absent", getattr(unit, name).die):
        begin()
        told, seen = look(unit)
        assert told["siblings"] == {**dict.fromkeys(SIBLINGS, "there"), name: state}
        assert f"{name}: {state}" in seen["siblings"]
        assert any(problem.startswith(f"the {name} daemon") for problem in told["problems"])
        assert told["microphone"] is True
        unit.faults.clear()


def test_silent_siblings_are_asked_all_at_once(own_unit):
    """All of them have their questions while none has answered; and the controller, which serves one request after
    another, is not made to wait for them."""
    for name in SIBLINGS:
        own_unit.faults.on(name, kind=SILENT)
    mark = own_unit.calls.mark()
    with Running(own_unit, "status --json --timeout 3600", ready=False) as running:
        for name in SIBLINGS:
            own_unit.calls.wait_for(name, since=mark)
        for name in SIBLINGS:
            getattr(own_unit, name).die()
        ended = running.end()
    own_unit.faults.clear()
    assert ended.status == REFUSED and set(json.loads(ended.out)["siblings"].values()) == {"silent"}


def test_silent_siblings_have_half_a_second(own_unit):
    """And no more than that together; what the controller would ask them for is not asked at all."""
    for name in SIBLINGS:
        own_unit.faults.on(name, kind=SILENT)
    mark = own_unit.calls.mark()
    told = run(own_unit, "status --json")
    asked = {call.member for call in own_unit.calls.since(mark)}
    assert told.object["siblings"] == dict.fromkeys(SIBLINGS, "silent")
    assert told.status == REFUSED and told.object["microphone"] is True
    assert told.object["errors"] == {"timeSource": "the video daemon is silent",
                                     "sonde": "the hardware daemon is silent",
                                     "rate": "the video daemon is silent"}
    assert not asked & {"Get Sonde", "Get PlaybackRate", "Get ActiveCaptures"}
    own_unit.faults.clear()


# Watching -------------------------------------------------------------------------------------------------------------

def test_watching(own_unit):
    """Tells each change, by the siblings and by the controller, until the bus goes."""
    with Running(own_unit, f"status --watch --json {PATIENTLY}", ready=False) as watch:
        states = []

        def follow(holds):
            while not states or not holds(states[-1]):
                states.append(watch.object())

        follow(lambda state: state["recordings"][0]["state"] == "off")
        assert run(own_unit, "record start").status == DONE
        follow(lambda state: state["recordings"][0]["state"] == "recording" and state["timeSource"] == 0)
        run(own_unit, "volume 33")
        follow(lambda state: state["volume"] == 33)
        own_unit.sync.die()
        follow(lambda state: state["siblings"]["sync"] == "absent")
        own_unit.sync.revive()
        follow(lambda state: state["siblings"]["sync"] == "there")
        own_unit.stop_daemon()
        follow(lambda state: not state["ok"])
        assert states[-1]["exit"] == UNREACHABLE and states[-1]["recordings"][0]["state"] == "recording"
        own_unit.stop_bus()
        ended = watch.end()
    assert ended.status == UNREACHABLE and "the bus cannot be reached" in ended.errors
    assert all(one != other for one, other in zip(states, states[1:]))


def test_watching_on_a_terminal(own_unit):
    """Shows it in the place of what was shown before, with the time of a recording that goes on; what cannot be told
    stands below."""
    command = ["sh", "-c", f"{PROGRAM} status --watch {PATIENTLY}; echo ended $?; read line"]
    with Terminal(120, command, environment(own_unit)) as terminal:

        def shown(pattern):
            """The texts that a line is made of, when there is such a one: once."""
            lines = terminal.wait_for(lambda lines: any(re.match(pattern, line) for line in lines))
            [found] = [match for match in (re.match(pattern, line) for line in lines) if match]
            return found.groups()

        shown("video +off$")
        run(own_unit, "volume 33")
        shown("speaker +off, volume 33 %$")
        assert run(own_unit, "record start").status == DONE
        first = shown(r"video +recording for (\d+:\d\d), 1.0 kB on card$")
        while shown(r"video +recording for (\d+:\d\d), 1.0 kB on card$") == first:
            pass
        own_unit.stop_daemon()
        shown(f"the controller cannot be reached: {NO_OWNER}$")
        shown("time +-$")
        own_unit.stop_bus()
        shown("controllerctl: the bus cannot be reached: ")
        shown(f"ended {UNREACHABLE}$")
