"""The command-line control against the daemon: it waits for what comes, and prints what holds."""

import os
import re
import signal
import subprocess
import time

import pytest

from interfaces.introspection import controller_members
from interfaces.pages import changes_of
from tests.integration.controllerctl_cases import DONE, PROGRAM, REFUSED, USAGE, Running, environment, run
from tests.integration.test_controllerctl_documents import COMPLETION, RUNNER, SHELL
from virtual_unit import ANSWER, PATIENCE

PROPERTIES = {member.name: changes_of(member)[0] for member in controller_members() if member.kind == "property"}


# Waiting --------------------------------------------------------------------------------------------------------------

#: What changes each property, and how the changed one is told.
CHANGES = {"MicEnabled": ("mic off", "off"), "SpkrEnabled": ("speaker on", "on"), "SpkrVolume": ("volume 7", "7"),
           "KeypadBeepEnabled": ("key-beep toggle", "on|off"), "GetTimezone": ("timezone set Paris", '"Paris"'),
           "GetDst": ("dst set on", "on")}


@pytest.mark.parametrize("name", PROPERTIES)
def test_every_property_is_waited_for_or_refused(unit, name):
    """Never for ever."""
    if PROPERTIES[name] == "untold":
        assert run(unit, f"wait {name}").status == USAGE
        return
    line, text = CHANGES[name]
    with Running(unit, f"wait {name}") as waiting:
        assert run(unit, line).status == DONE
        assert re.fullmatch(f"{name}=({text})\n", waiting.end().out)


def test_another_zone_is_waited_for(unit):
    """One that is set anew is no change, and others than the one that is waited for go by."""
    assert run(unit, "timezone set London").status == DONE
    with Running(unit, "wait GetTimezone") as anything, Running(unit, "wait GetTimezone Paris") as paris:
        for name in "London", "Rome", "Paris":
            assert run(unit, ["timezone", "set", name]).status == DONE
        assert anything.end().out == 'GetTimezone="Rome"\n'
        assert paris.end().out == 'GetTimezone="Paris"\n'


# What holds -----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("line, text, reading", [
    ("volume 200", "100", "volume"), ("volume 70", "", "volume"), ("mic off", "", "mic"), ("sonde YES", "", "sonde"),
    ("timezone set new_york", "New_York", "timezone get"), ("timezone set PARIS", "Paris", "timezone get"),
    ("timezone set New_York", "", "timezone get"), ("timezone set CCU/Paris", "", "timezone get"),
    ("timezone set --offset 0", "Dublin", "timezone get"), ("dst set 1", "", "dst get")])
def test_an_order_prints_what_holds_where_that_differs(unit, line, text, reading):
    """And nothing else."""
    told = run(unit, line)
    assert (told.status, told.errors, told.out) == (DONE, "", f"{text}\n" if text else "")
    if text:
        assert run(unit, reading).out == told.out


def test_a_clock_that_is_not_set(unit):
    """Is told: the controller answers in the same way then."""
    start = int(time.time())
    told = run(unit, "time set now")
    assert (told.status, told.out, told.errors) == (DONE, "", "")
    assert start <= unit.timedate.times[-1] // 1000000 <= time.time()
    unit.faults.on("timedate", "SetTime", kind=ANSWER(""))
    told = run(unit, "time set @1000 --json")
    message = told.object.pop("message")
    assert told.object == {"ok": False, "exit": REFUSED, "code": None, "message": message}
    assert re.fullmatch(r"the clock was not set, it says @\d+", message)
    assert told.errors == f"controllerctl: {message}\n"


def test_what_holds_is_not_known(own_unit):
    """Which is said; the order was obeyed. A volume is written without a word when the mixer has no such control."""
    own_unit.audio.remove_control("HP DAC")
    told = run(own_unit, "volume 50 --json")
    assert told.object == {"ok": True, "exit": DONE, "volume": None}
    assert told.errors == ("controllerctl: what holds now is not known: refused: SoundManager::GetSpkrVolume failed\n")


@pytest.mark.parametrize("name, meant", [("Pariss", "Paris"), ("new_yrok", "New_York"), ("Xanadu", None)])
def test_zones_that_are_nearly_right(unit, name, meant):
    """Are refused by the unit, and the one that was probably meant is named."""
    told = run(unit, ["timezone", "set", name])
    hint = f'controllerctl: did you mean "{meant}"?\n' if meant else ""
    assert (told.status, told.out) == (REFUSED, "")
    assert told.errors == f"controllerctl: refused: {name} is not installed in the list of CCU timezones\n{hint}"


def test_sounds_that_are_nearly_right(unit):
    """The same."""
    sound = run(unit, "sound list").out.splitlines()[0]
    told = run(unit, ["sound", "play", sound.upper() + "x"])
    assert told.status == REFUSED
    assert told.errors == f'controllerctl: refused: Could not play file\ncontrollerctl: did you mean "{sound}"?\n'


# Completion -----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("stopped", ["daemon", "bus"])
@pytest.mark.parametrize("shell", COMPLETION)
@pytest.mark.parametrize("words", ["timezone set ", "sound play ", "wait "])
def test_completion_does_not_wait(own_unit, shell, words, stopped):
    """For half a second, with a daemon or a bus that stands still; a busy machine has some tries."""
    process = own_unit.pid if stopped == "daemon" else own_unit.session_bus_pid
    command = [*SHELL[shell], RUNNER[shell], COMPLETION[shell], PROGRAM, *words.split(" ")]
    os.kill(process, signal.SIGSTOP)
    try:
        deadline = time.monotonic() + PATIENCE
        took, offered = PATIENCE, None
        while (took > 0.5 or offered != (words == "wait ")) and time.monotonic() < deadline:
            start = time.monotonic()
            done = subprocess.run(command, env=environment(own_unit, SYSTEMD_BUS_TIMEOUT="1h"), capture_output=True,
                                  text=True, check=False, timeout=PATIENCE)
            took, offered = time.monotonic() - start, "MicEnabled" in done.stdout
    finally:
        os.kill(process, signal.SIGCONT)
    assert took <= 0.5
    assert offered == (words == "wait ")


# Versions -------------------------------------------------------------------------------------------------------------


def test_the_version_of_the_controller_that_runs(unit):
    """And its build, as its program says; also when the program has been replaced since. Without one, nothing."""
    binary = os.path.join(os.environ["CCU_BUILD_DIR"], "daemon", "controllerd")
    notes = subprocess.run(["readelf", "--notes", "--wide", binary], capture_output=True, text=True, check=True).stdout
    build = re.search(r"Build ID: (\w+)", notes)
    suffix = f", build {build.group(1)}" if build else ""
    assert '"type":"deb","name":"controllerd","version":"1.1.0"' in notes
    told = run(unit, "--version")
    assert (told.status, told.errors) == (DONE, "")
    assert told.out == f"controllerctl 1.1.0\ncontrollerd 1.1.0{suffix}, running\n"
    assert run(unit, "--version --host unit").out == "controllerctl 1.1.0\n"
    unit.stop_daemon()
    assert run(unit, "--version").out == "controllerctl 1.1.0\n"
    unit.start_daemon()
