"""The service: how it is shut in, and how it comes back."""

import re
import time

from .case import collector

CASES = []
case = collector(CASES)

#: systemd's points; the service file's own test has the same limit.
_EXPOSURE = 2.0
#: Seconds after which a daemon whose bus has gone is back, besides what starts take.
_BACK = 5
#: How often a start is timed; the quickest one counts, which the least of other work has come between.
_STARTS = 5
#: How many times as long a start may take as that of a program that does nothing, and how many times as much of a
#: processor: half of both are needed, most of the time by the siblings, which are Python here.
_TIMES = 10, 5
#: Megabytes that are the daemon's own after a start.
_OWN = 2
#: A program that only says that it is ready, in the daemon's place.
_BARE = b"""[Service]
ExecStart=
ExecStart=/usr/bin/systemd-notify --ready
RemainAfterExit=yes
"""


def _process(unit):
    """What the kernel says of the daemon."""
    return dict(re.findall(r"^(\w+):\s+(.*)$", unit.sh(f"cat /proc/{unit.pid}/status"), re.MULTILINE))


def _wait_again(unit, pid):
    """Waits until a daemon that is another than this one answers."""
    unit.wait_for(lambda: unit.pid not in (0, pid), "another process")
    unit.wait_service()


@case()
def _(unit):
    """start under the sandbox"""
    unit.wait_service()
    assert unit.show("ActiveState") == "active"
    process = _process(unit)
    groups = set(unit.sh(f"getent group {process['Groups']} | cut -d: -f1").split())
    assert set(process["Uid"].split()) == {unit.sh("id -u ccu")}
    assert groups - {"ccu"} == {"audio", "gpio", "input", "video"}
    assert {int(process[f"Cap{kind}"], 16) for kind in ("Inh", "Prm", "Eff", "Bnd", "Amb")} == {0}
    assert (process["NoNewPrivs"], process["Seccomp"]) == ("1", "2")
    exposure = float(re.search(r"exposure level for \S+ ([\d.]+)",
                               unit.sh("systemd-analyze security --no-pager controllerd.service")).group(1))
    assert exposure <= _EXPOSURE
    unit.see(f"active, user ccu, groups {' '.join(sorted(groups - {'ccu'}))}, no capabilities, exposure {exposure}")


@case()
def _(unit):
    """killed and back"""
    unit.wait_service()
    pid, restarts = unit.pid, int(unit.show("NRestarts"))
    began = time.monotonic()
    unit.sh(f"kill -KILL {pid}")
    _wait_again(unit, pid)
    assert int(unit.show("NRestarts")) == restarts + 1
    unit.see(f"answers again after {time.monotonic() - began:.0f} s, of which 2 are the service's pause")


def _start(unit):
    """What a start takes from the process to READY: milliseconds, and those of them on a processor."""
    taken = []
    for _ in range(_STARTS):
        unit.sh("systemctl restart controllerd.service")
        began, ready, busy = (int(unit.show(name)) for name in (
            "ExecMainStartTimestampMonotonic", "ActiveEnterTimestampMonotonic", "CPUUsageNSec"))
        taken.append(((ready - began) / 1e3, busy / 1e6))
    return [min(column) for column in zip(*taken)]


@case()
def _(unit):
    """start to READY, against a program that only says so"""
    unit.wait_service()
    process, whole = _process(unit), _start(unit)
    unit.sh("d=/run/systemd/system/controllerd.service.d; mkdir -p $d; cat >$d/bare.conf; systemctl daemon-reload",
            stdin=_BARE)
    bare = _start(unit)
    ratios = [long / short for long, short in zip(whole, bare)]
    own, resident = (int(process[name].split()[0]) / 1024 for name in ("RssAnon", "VmRSS"))
    unit.see(f"{ratios[0]:.1f} times as long, {ratios[1]:.1f} times as much of a processor, in the same sandbox")
    unit.see(f"{resident:.1f} MB resident, {own:.1f} MB of that its own")
    assert ratios[0] <= _TIMES[0] and ratios[1] <= _TIMES[1] and own <= _OWN


def _last(unit, text):
    """When the journal has had a text for the last time, in seconds since the machine's start."""
    lines = unit.sh(f"journalctl -b -o short-monotonic --no-pager | grep -F '{text}'").splitlines()
    return float(lines[-1].partition("]")[0].strip("[ "))


@case()
def _(unit):
    """user bus restarted"""
    unit.wait_service()
    pid = unit.pid
    unit.sh(f"logger killed; kill -KILL {pid}")
    _wait_again(unit, pid)
    usual = _last(unit, "Started controllerd.service") - _last(unit, "killed")
    pid = unit.pid
    unit.sh("systemctl --user -M ccu@ restart dbus.service || true")  # which cuts the order off, too
    _wait_again(unit, pid)
    back = _last(unit, "Started controllerd.service") - _last(unit, "Started siblings.service")
    # On this slow board a start takes longer than that; one may just have failed when the siblings came.
    assert back <= _BACK + 2 * usual, f"back after {back:.0f} s, where a start takes {usual:.0f} s"
    unit.see(f"ready {max(back, 0):.0f} s after its siblings were back, where a start after a kill takes {usual:.0f} s")


def _boot_with_siblings(unit, drop_in):
    unit.sh("d=/etc/systemd/user/siblings.service.d; mkdir -p $d; cat >$d/test.conf", stdin=drop_in.encode())
    unit.boot_again()
    unit.sh("test -s /etc/systemd/user/siblings.service.d/test.conf")


def _starts(unit):
    """How often the daemon has been started."""
    return int(unit.sh("journalctl -b -u controllerd.service --no-pager | grep -c 'syslog controller daemon started' "
                       "|| true"))


@case()
def _(unit):
    """siblings late at a cold boot"""
    _boot_with_siblings(unit, "[Service]\nExecStartPre=/bin/sleep 8\n")
    unit.wait_service()
    assert (unit.show("NRestarts"), _starts(unit)) == ("0", 1)
    unit.see("the service waited, and the daemon's first start succeeded")


@case()
def _(unit):
    """siblings absent at a cold boot"""
    _boot_with_siblings(unit, "[Unit]\nConditionPathExists=/nowhere\n")
    unit.wait("journalctl -b --no-pager | grep 'not on the user bus after 30 seconds'")
    unit.wait_for(lambda: int(unit.show("NRestarts")) >= 1, "another try")
    unit.see("after 30 s the daemon was started all the same, ended, and was tried again")
    unit.sh("rm -r /etc/systemd/user/siblings.service.d && systemctl --user -M ccu@ daemon-reload && "
            "systemctl --user -M ccu@ start siblings.service")
    unit.wait_service()
    unit.see("siblings that came then found it within its next try")
