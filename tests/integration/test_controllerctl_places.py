"""Where the command-line control looks for the controller: another user's bus, another computer's, one by its address."""

import os
import re
import subprocess

import pytest

from tests.integration.controllerctl_cases import (  # pylint: disable=unused-import
    DONE, PROGRAM, UNREACHABLE, environment, run, stand_in_fixture)

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

#: Stands for ssh and for systemd-run: notes its words, and passes on the bus of the unit. What ssh runs goes through a
#: shell there, which is why a word is noted as that shell takes it.
_STAND_IN = """#!/bin/sh
printf '%s\\n' "${0##*/}" "$@" >>"$CCU_NOTES"
echo . >>"$CCU_NOTES"
exec systemd-stdio-bridge -p"$CCU_BUS"
"""


@pytest.fixture(name="away")
def away_fixture(unit, tmp_path):
    """Runs a line in a place that knows of no bus; returns how it ended, and the words of each stand-in that it ran."""
    for name in "ssh", "systemd-run":
        path = tmp_path / name
        path.write_text(_STAND_IN, encoding="utf-8")
        path.chmod(0o755)

    def run_away(line, **variables):
        notes = tmp_path / "notes"
        notes.write_text("", encoding="utf-8")
        ended = run(unit, line, **{"PATH": f"{tmp_path}:{os.environ['PATH']}", "CCU_NOTES": str(notes),
                                   "CCU_BUS": unit.session_address, "DBUS_SESSION_BUS_ADDRESS": None,
                                   "XDG_RUNTIME_DIR": None, **variables})
        return ended, [entry.splitlines() for entry in notes.read_text(encoding="utf-8").split(".\n")[:-1]]
    return run_away


RUN = ["systemd-run", "-M.host", "-PGq", "--wait", "-pUser=ccu", "-pPAMName=login", "systemd-stdio-bridge",
       "-punix:path=${XDG_RUNTIME_DIR}/bus"]
BRIDGE = ["systemd-stdio-bridge", "--user"]
#: What a shell is given, so that it takes it as it is.
RUN_QUOTED = [*RUN[:-1], f"'{RUN[-1]}'"]


@pytest.mark.parametrize("options, words", [
    ("--machine ccu@", RUN), ("-M ccu@", RUN), ("--machine=ccu@box", ["systemd-run", "-Mbox", *RUN[2:]]),
    ("--machine ccu@.host", RUN), ("--host ccu@unit", ["ssh", "-xT", "--", "ccu@unit", *BRIDGE]),
    ("-H unit", ["ssh", "-xT", "--", "unit", *BRIDGE]),
    ("--host ccu@unit:2222", ["ssh", "-xT", "-p", "2222", "--", "ccu@unit", *BRIDGE]),
    ("--host ccu@[fe80::1%eth0]:22", ["ssh", "-xT", "-p", "22", "--", "ccu@fe80::1%eth0", *BRIDGE]),
    ("--host fe80::1", ["ssh", "-xT", "--", "fe80::1", *BRIDGE]),
    ("--host root@unit --machine ccu@", ["ssh", "-xT", "--", "root@unit", *RUN_QUOTED])])
@pytest.mark.parametrize("behind", [False, True])
def test_another_bus(unit, away, options, words, behind):
    """Is reached as systemd's own tools reach it, by options that may stand anywhere."""
    unit.controller.set_properties("/com/tavilon/common/Controller1", {"MicEnabled": True}, emit=False)
    ended, ran = away(f"mic {options}" if behind else f"{options} mic")
    assert (ended.status, ended.out, ended.errors) == (DONE, "on\n", "")
    assert ran == [words]


def test_signals_of_another_bus(unit, away):
    """Are waited for there, and what changes is written there."""
    ended, ran = away("--host unit wait MicEnabled --timeout 0")
    assert ended.errors == "controllerctl: waiting\ncontrollerctl: the time has passed\n" and len(ran) == 1
    mark = unit.calls.mark()
    assert away("--host unit volume 30")[0].status == DONE
    assert ("Set SpkrVolume", (30,)) in [(call.member, call.arguments) for call in unit.calls.since(mark)]


def test_a_bus_by_its_address(unit, away):
    """Whatever the environment says."""
    for variables in {}, {"DBUS_SESSION_BUS_ADDRESS": "unix:path=/nowhere"}:
        ended, ran = away(f"--address {unit.session_address} volume", **variables)
        assert (ended.status, ended.errors, ran) == (DONE, "", [])


def test_another_computer_that_cannot_be_reached(away, tmp_path):
    """Is no controller; what ssh says of it is seen."""
    (tmp_path / "ssh").write_text("#!/bin/sh\necho 'no route' >&2\nexit 255\n", encoding="utf-8")
    ended, _ = away("--host unit mic --json")
    assert (ended.status, ended.object["ok"]) == (UNREACHABLE, False)
    assert ended.errors.startswith("no route\ncontrollerctl: the controller cannot be reached: ")


@pytest.mark.parametrize("line", ["doctor", "recover"])
@pytest.mark.parametrize("options, elsewhere", [
    ("--host unit", True), ("--machine ccu@box", True), ("--machine ccu@", False), ("", False)])
def test_files_of_this_computer_are_not_taken_for_the_units(away, line, options, elsewhere):
    """Whoever asks another computer is told where files were looked at."""
    ended, _ = away(f"{line} {options} --json")
    assert ("controllerctl: files and devices were looked at on this computer, not on the unit: run it there\n"
            in ended.errors) == elsewhere


# Advice ---------------------------------------------------------------------------------------------------------------


def user():
    """The user that the service runs as."""
    with open(os.path.join(ROOT, "packaging", "systemd", "controllerd.service"), encoding="utf-8") as file:
        return re.search(r"^User=(\w+)$", file.read(), re.MULTILINE).group(1)


ADVICE = (f'controllerctl: the controller is on the bus of the unit\'s own user, mostly "{user()}": as root add '
          f"--machine {user()}@ to reach it, or from another computer --host {user()}@UNIT\n")


@pytest.mark.parametrize("line", ["mic", "status", "wait CaptureError", "monitor"])
def test_a_session_without_a_bus_is_told_what_to_do(away, line):
    """As that of root over ssh is."""
    ended, _ = away(line)
    assert ended.status == UNREACHABLE
    assert ended.errors.endswith(": No medium found\n" + ADVICE)
    as_json, _ = away(line + " --json")
    assert (as_json.object["message"], as_json.errors) == ("No medium found" if line == "mic" else
                                                           "the bus cannot be reached: No medium found", ended.errors)


def test_a_bus_without_a_controller_is_told_what_to_do(unit, away, tmp_path):
    """Root may have one of its own; whoever has chosen a bus is told nothing."""
    os.symlink(unit.session_address.removeprefix("unix:path="), tmp_path / "bus")
    unit.controller.die()
    try:
        ended, _ = away("mic", XDG_RUNTIME_DIR=str(tmp_path))
        assert ended.status == UNREACHABLE and ended.errors.endswith(".service files\n" + ADVICE)
        for line in f"--address {unit.session_address} mic", "--host unit mic", "--machine ccu@ mic":
            assert ADVICE not in away(line)[0].errors
        assert ADVICE not in run(unit, "mic").errors
    finally:
        unit.controller.revive()


def test_another_user_is_told_to_become_root(unit, tmp_path):
    """Nobody else gets to the bus of another user."""
    if os.geteuid() != 0:
        command = [PROGRAM]
    else:
        command = ["setpriv", "--reuid", "65534", "--clear-groups", PROGRAM]
    done = subprocess.run([*command, "mic"], env=environment(unit, DBUS_SESSION_BUS_ADDRESS=None, XDG_RUNTIME_DIR=None),
                          cwd="/", capture_output=True, text=True, check=False)
    assert done.returncode == UNREACHABLE
    # Nobody else can write what an instrumented program counts, either, and it says so.
    said = "".join(line for line in done.stderr.splitlines(True) if not line.startswith("profiling:"))
    assert said.endswith(ADVICE.replace("as root add", "become root and add"))
