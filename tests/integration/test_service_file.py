"""The service file: systemd understands it, and it shuts the daemon in."""

import ctypes
import os
import re
import shutil
import subprocess

import pytest

from virtual_unit.faults import REFUSE
from virtual_unit.unit import ALL_SIBLINGS

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
#: Exposure in tenths of systemd's points, of a hundred.
ENOUGH = 20


def analyze(*arguments):
    """The exit status and the output of systemd-analyze."""
    done = subprocess.run(["systemd-analyze", *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)
    return done.returncode, done.stdout


@pytest.fixture(name="service")
def service_file(tmp_path):
    """The file, for the daemon of this build."""
    with open(os.path.join(ROOT, "packaging", "systemd", "controllerd.service"), encoding="utf-8") as file:
        text = file.read()
    assert "ExecStart=/usr/bin/controllerd\n" in text
    path = tmp_path / "controllerd.service"
    daemon = os.path.join(os.environ["CCU_BUILD_DIR"], "daemon", "controllerd")
    path.write_text(text.replace("/usr/bin/controllerd", daemon))
    folder = tmp_path / "controllerd.service.d"
    folder.mkdir()
    shutil.copy(os.path.join(ROOT, "packaging", "systemd", "10-user.conf"), folder)
    return path


def test_systemd_has_nothing_to_complain_of(service):
    assert analyze("verify", "--man=no", str(service)) == (0, "")


def test_an_attacker_gets_little(service):
    status, report = analyze("security", "--offline=true", f"--threshold={ENOUGH}", "--no-pager", str(service))
    assert status == 0, report


@pytest.mark.parametrize("line", ["Type=notify", "Restart=always", "DeviceAllow=/dev/gpiochip4 rw",
                                  "DeviceAllow=/dev/fb0 r", "DeviceAllow=/dev/fb1 r", "DeviceAllow=char-input rw",
                                  "DeviceAllow=char-alsa rw", "MemoryMax=1G", "TasksMax=256"])
def test_what_the_daemon_needs_it_has(service, line):
    assert line in service.read_text().splitlines()


def test_keypads_may_be_opened_as_they_are(service, unit):
    """Less than that, and libinput finds no keypad, without a word."""
    folder = f"/proc/{unit.pid}"
    opened = [number for number in os.listdir(f"{folder}/fd")
              if os.readlink(f"{folder}/fd/{number}") == os.path.realpath(unit.keypad.node)]
    assert len(opened) == 1
    with open(f"{folder}/fdinfo/{opened[0]}", encoding="utf-8") as file:
        access = int(re.search(r"^flags:\s*(\d+)$", file.read(), re.MULTILINE).group(1), 8) & os.O_ACCMODE
    wanted = {os.O_RDONLY: "r", os.O_WRONLY: "w", os.O_RDWR: "rw"}[access]
    assert re.findall(r"^DeviceAllow=char-input (\w+)$", service.read_text(), re.MULTILINE) == [wanted]


def call_timeout(monkeypatch):
    """Seconds after which the bus library gives up a call, unless it is told otherwise."""
    monkeypatch.delenv("SYSTEMD_BUS_TIMEOUT", raising=False)
    library, bus, timeout = ctypes.CDLL("libsystemd.so.0"), ctypes.c_void_p(), ctypes.c_uint64()
    assert library.sd_bus_new(ctypes.byref(bus)) >= 0
    assert library.sd_bus_get_method_call_timeout(bus, ctypes.byref(timeout)) >= 0
    library.sd_bus_unref(bus)
    return timeout.value / 1_000_000


def calls_of_a_start(make_unit, failing):
    """The number of calls to the siblings, of which one fails them all, in a unit whose zone is not the settings'."""
    unit = make_unit(daemon=False)
    unit.settings.preset("time", {"zone": "Berlin", "dst": True})
    unit.faults.on(failing, kind=REFUSE)  # one that hangs is called no more often
    unit.start_daemon(wait=False)
    if failing == "settings":
        assert unit.wait_exit() == 1
    else:
        unit.daemon.wait_ready()
    return len(unit.calls)


def test_systemd_waits_longer_than_the_longest_start(service, make_unit, monkeypatch):
    """In which every call that it makes hangs, with each of the siblings that may change what it calls."""
    calls = max(calls_of_a_start(make_unit, failing) for failing in (*ALL_SIBLINGS, "none of them"))
    patience = int(re.search(r"^TimeoutStartSec=(\d+)$", service.read_text(), re.MULTILINE).group(1))
    assert calls >= 20
    assert patience > calls * call_timeout(monkeypatch)


#: What the service says of its user's number.
NUMBERED = r"^(\w+)=.*(?:user@|user/)(\d+)"


def drop_in_of(service):
    """The one file that names the number."""
    return (service.parent / "controllerd.service.d" / "10-user.conf").read_text()


def test_the_users_number_is_in_one_file(service):
    """Which another of its name takes the place of; and nothing requires the number."""
    assert not re.search(r"user[@/]\d|\b1000\b", service.read_text())
    assert re.findall(NUMBERED, drop_in_of(service), re.MULTILINE) == [
        ("Wants", "1000"), ("After", "1000"), ("Environment", "1000")]


@pytest.mark.parametrize("path", ["docs/integration.md", "packaging/man/controllerd.8"])
def test_the_documented_drop_in_says_what_its_namesake_says(service, path):
    """All of it, of another number, and who that is."""
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        text = file.read()
    assert "/etc/systemd/system/controllerd.service.d/10-user.conf" in text
    written = re.search(r"\[Unit\]\n(.*?\n)(?:```|\.EE)", text, re.DOTALL).group(1)
    number = re.search(NUMBERED, written, re.MULTILINE).group(2)
    user = re.search(r"^User=(\w+)$", written, re.MULTILINE).group(1)
    with open("/usr/share/base-passwd/group.master", encoding="utf-8") as file:
        assert not re.search(rf"^{user}:", file.read(), re.MULTILINE)  # or adduser would refuse it
    namesake = re.findall(r"^\w+=.*", drop_in_of(service).replace("1000", number), re.MULTILINE)
    assert re.findall(r"^\w+=.*", written, re.MULTILINE) == [*namesake[:2], f"User={user}", *namesake[2:]]
