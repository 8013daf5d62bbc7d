"""The hardware of another unit: how its bus is reached, and what happens when it is not. And buses with limits."""

import errno
import os
import subprocess
from types import SimpleNamespace

import pytest

from tests.integration.client_driver import ClientDriver, Outcome, error, info
from tests.integration.hardware_cases import CONTROL, NO_BUS_LINE, PATH, QUESTIONS, REEL
from virtual_unit import VirtualUnit
from virtual_unit.faults import CallLog, Faults
from virtual_unit.happenings import Teller
from virtual_unit.hardware import Hardware
from virtual_unit.loop import spawn

SONDE = (f"{PATH}/camera", "com.tavilon.common.Halvex1.camera")
GET_SONDE_TEXT = "static int32_t Halvexd::HalvexDaemonDbusHandler::GetCameraSonde(bool&)"
LOOPBACK = "127.0.0.1"

#: Stands in for ssh: notes its arguments, and gives the command to a shell of this machine as sshd does on the other.
#: A refusal comes when the bus has begun to speak; the descriptor does not block, so that is waited for with select.
SSH = """#!/bin/sh
printf '%s\\n' "$@" > "$0.arguments"
if [ -e "$0.refuse" ]; then
    /usr/bin/python3 -Sc 'import select; select.select([0], [], [])'
    exit 255
fi
while [ "$1" != -- ]; do shift; done
shift 2
exec /bin/sh -c "$*"
"""

BUS = """<busconfig>
  <type>session</type>
  <listen>unix:path={folder}/bus</listen>
  <listen>tcp:host=127.0.0.1,port=0</listen>
  <auth>EXTERNAL</auth>
  <auth>ANONYMOUS</auth>
  <allow_anonymous/>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
  </policy>
  <limit name="max_match_rules_per_connection">{matches}</limit>
</busconfig>
"""


@pytest.fixture(scope="module", name="unit")
def unit_fixture():
    """The unit itself."""
    with VirtualUnit(daemon=False, siblings=("hardware",)) as started:
        yield started


@pytest.fixture(scope="module", name="other")
def other_fixture():
    """The other unit."""
    with VirtualUnit(daemon=False, siblings=("hardware",)) as started:
        yield started


@pytest.fixture(scope="module", name="ssh")
def ssh_fixture(unit):
    """The stand-in for ssh, the first in the driver's search path."""
    path = os.path.join(unit.directory, "bin", "ssh")
    os.mkdir(os.path.dirname(path))
    with open(path, "w", encoding="utf-8") as file:
        file.write(SSH)
    os.chmod(path, 0o755)
    return path


@pytest.fixture(scope="module", name="driver")
def driver_fixture(unit, ssh):
    """One driver for all operations."""
    with ClientDriver(unit, {"PATH": f"{os.path.dirname(ssh)}:{os.environ['PATH']}"}) as started:
        yield started


@pytest.fixture(name="start_bus")
def start_bus_fixture(tmp_path):
    """Starts a bus that can be reached over the network, and returns its addresses: the local one and the other."""
    processes = []

    def start(matches=1000):
        configuration = tmp_path / "bus.conf"
        configuration.write_text(BUS.format(folder=tmp_path, matches=matches))
        process = spawn(["dbus-daemon", "--nofork", "--nopidfile", "--print-address=1",
                         f"--config-file={configuration}"], stdout=subprocess.PIPE)
        processes.append(process)
        addresses = process.stdout.readline().decode().strip().split(";")
        return sorted(addresses, key=lambda address: address.startswith("tcp:"))

    yield start
    for process in processes:
        process.kill()
        process.wait()
        process.stdout.close()


def choose(unit, ip, address):
    """Says where the hardware that is meant is."""
    unit.hardware.set_properties(PATH, {"RemoteIP": ip, "RemoteDBusAddress": address}, emit=False)


def members(unit):
    """The calls that reached a unit's hardware daemon, which are then forgotten."""
    seen = [(call.path, call.interface, call.member, call.arguments) for call in unit.calls]
    unit.calls.clear()
    return seen


def get_sonde(unit, driver):
    """Reads a property; returns the outcome and the calls that reached the unit itself."""
    unit.calls.clear()
    outcome = driver.run("hardware.GetCameraSonde")
    return outcome, members(unit)


def test_over_ssh(unit, other, driver, ssh):
    """The other unit's daemon is read and written, the local one only asked where it is."""
    address = f"unix:path={other.directory}/session.socket"
    choose(unit, LOOPBACK, address)
    other.hardware.set_property(SONDE[0], "Sonde", False)
    other.calls.clear()
    unit.calls.clear()
    assert driver.run("hardware.GetCameraSonde") == Outcome(1, [False], [info("Opened remote bus for GetCameraSonde")])
    assert driver.run("hardware.SetCameraSonde", True).lines == [info("Opened remote bus for SetCameraSonde")]
    assert members(unit) == QUESTIONS * 2
    assert members(other) == [(*SONDE, "Get Sonde", ()), (*SONDE, "Set Sonde", (True,))]
    assert other.hardware.get_property(SONDE[0], "Sonde") is True
    with open(f"{ssh}.arguments", encoding="utf-8") as file:
        assert file.read().splitlines() == ["-xT", "-oBatchMode=yes", "--", LOOPBACK, "systemd-stdio-bridge",
                                            f"--bus-path='{address}'"]


def test_all_reel_properties_over_ssh(unit, other, driver):
    """Go the same way."""
    choose(unit, LOOPBACK, f"unix:path={other.directory}/session.socket")
    other.hardware.set_property(REEL[0], "SerialNumber", "the other's")
    outcome = driver.run("hardware.GetAllReelProperties")
    assert outcome.outs[0]["SerialNumber"] == ["s", "the other's"]
    assert outcome.lines == [info("Opened remote bus for GetAllReelProperties")]


@pytest.mark.parametrize("operation, inputs", [
    ("SetLedState", (1, 1)), ("BeepBuzzer", (1, 2, 3)), ("GetVideoStatus", ()), ("SetAnalogReelDisplay", (4,)),
    ("GetPowerSufficientForAction", (0,)), ("GetBatteryLevelIcons", ())])
def test_what_stays_at_home(unit, other, driver, operation, inputs):
    """Methods and the battery icons are the unit's own, and ask nothing before."""
    choose(unit, LOOPBACK, f"unix:path={other.directory}/session.socket")
    unit.calls.clear()
    other.calls.clear()
    assert driver.run(f"hardware.{operation}", *inputs).result >= 0
    assert len(members(unit)) == 1 and not members(other)


@pytest.mark.parametrize("ip, address", [("", "unix:path=/run/bus"), (LOOPBACK, ""), ("", "")])
def test_half_an_answer(unit, driver, ip, address):
    """Means the local hardware."""
    choose(unit, ip, address)
    outcome, calls = get_sonde(unit, driver)
    assert outcome.lines == [info("Opened local bus for GetCameraSonde")]
    assert calls == QUESTIONS + [(*SONDE, "Get Sonde", ())]


@pytest.mark.parametrize("ip, address", [
    ("unit", "unix:path=/run/bus"), ("-oProxyCommand=touch started", "unix:path=/run/bus"),
    ("127.0.0.1;touch started", "unix:path=/run/bus"), (LOOPBACK, "bus"), (LOOPBACK, "unix:path=/run/$(touch started)"),
    (LOOPBACK, "unix:path=/run/bus';touch started;'"), (LOOPBACK, "unixexec:path=touch,argv1=started"),
    (LOOPBACK, "unix:path=/run/bus;unixexec:path=touch,argv1=started")])
def test_what_is_no_address(unit, driver, ssh, ip, address):
    """Is not opened, and runs nothing; the property is not read elsewhere instead."""
    choose(unit, ip, address)
    if os.path.exists(f"{ssh}.arguments"):
        os.unlink(f"{ssh}.arguments")
    outcome, calls = get_sonde(unit, driver)
    assert outcome == Outcome(-1, [True], [NO_BUS_LINE])
    assert calls == QUESTIONS
    assert not os.path.exists(f"{ssh}.arguments") and not os.path.exists(os.path.join(unit.directory, "started"))


def test_a_unit_that_lets_nobody_in(unit, other, driver, ssh):
    """The access fails with its own line, and nothing is left open."""
    choose(unit, LOOPBACK, f"unix:path={other.directory}/session.socket")
    with open(f"{ssh}.refuse", "w", encoding="utf-8"):
        outcome, _ = get_sonde(unit, driver)
        before = driver.descriptors()
        get_sonde(unit, driver)
    os.unlink(f"{ssh}.refuse")
    assert outcome.result < 0 and outcome.outs == [True]
    text = os.strerror(-outcome.result)
    assert outcome.lines == [info("Opened remote bus for GetCameraSonde"),
                             error(f"{GET_SONDE_TEXT}: sdbus_utils::GetProperty HALVEX_DAEMON_PROP_CAMERA_SONDE failed "
                                   f"{text}")]
    assert driver.descriptors() == before


def test_over_tcp(unit, driver, start_bus):
    """With the IP in place of the host that the address names."""
    local, tcp = start_bus()
    calls = CallLog()
    told = dict.fromkeys(("stir", "tell_call", "tell_signal"), lambda *_: None)
    told_of = SimpleNamespace(calls=calls, faults=Faults(calls), errors=[], happenings=Teller(None), **told)
    remote = Hardware(told_of, local)
    remote.revive()
    remote.set_property(SONDE[0], "Sonde", False)
    choose(unit, LOOPBACK, tcp.replace(LOOPBACK, "no.such.host"))
    outcome, local_calls = get_sonde(unit, driver)
    remote.die()
    assert outcome == Outcome(1, [False], [info("Opened remote bus for GetCameraSonde")])
    assert local_calls == QUESTIONS
    assert calls.members("hardware") == ["Get Sonde"]


def test_tcp_without_a_listener(unit, driver):
    """Fails, with nothing read."""
    choose(unit, LOOPBACK, "tcp:host=unit,port=1")
    outcome, calls = get_sonde(unit, driver)
    assert outcome.result < 0 and outcome.outs == [True]
    assert calls == QUESTIONS


def test_a_bus_that_takes_few_subscriptions(unit, start_bus):
    """Each signal is tried, each refusal has its line, and the first one is returned."""
    with ClientDriver(unit, {"DBUS_SESSION_BUS_ADDRESS": start_bus(matches=7)[0]}) as driver:
        result = driver.listen("hardware")
        text = os.strerror(-result)
        assert result == -errno.ENOBUFS
        assert driver.log.lines() == [error(f"Failed to register InterfacesAdded signal, {text}"),
                                      error(f"Failed to register InterfacesRemoved signal, {text}"),
                                      error("Storage: Failed to init signal listeners")]


def test_both_answers_come_from_the_unit_itself(unit, other, driver):
    """Also while another unit's hardware is meant."""
    choose(unit, LOOPBACK, f"unix:path={other.directory}/session.socket")
    choose(other, "192.0.2.9", "unix:path=/elsewhere")
    assert driver.run("hardware.GetRemoteIP").outs == [LOOPBACK]
    assert driver.run("hardware.GetRemoteDbusAddr").outs == [f"unix:path={other.directory}/session.socket"]
    assert members(unit)[-2:] == [(*CONTROL, "Get RemoteIP", ()), (*CONTROL, "Get RemoteDBusAddress", ())]
