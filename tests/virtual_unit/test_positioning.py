"""The unit's gpsd: real, and nothing of it outside the unit."""

import os
import re
import select
import shutil
import signal
import subprocess
import sys
import textwrap

import pytest

from virtual_unit import PATIENCE, VirtualUnit
from virtual_unit.gps import sentence

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
_T = 1_767_225_600


def _exists(key):
    with open("/proc/sysvipc/shm", encoding="ascii") as file:
        return any(int(line.split()[0]) == key for line in file.readlines()[1:])


def _attached(pid):
    """Keys of the shared memory that a process has attached."""
    with open(f"/proc/{pid}/maps", encoding="utf-8") as file:
        return [int(key, 16) for key in re.findall(r"/SYSV([0-9a-f]{8})", file.read())]


@pytest.fixture(scope="module", name="gps")
def _gps():
    with VirtualUnit(daemon=False) as unit:
        yield unit.gps


@pytest.mark.parametrize("kind, shown", [("fix_3d", (3, 1)), ("fix_2d", (2, 1)), ("dgps", (3, 2))])
@pytest.mark.parametrize("place", [(52.5218, 13.4015), (-33.5, -70.5), (0.0, 0.0), (-0.00001, 179.99999), (90, -180)])
@pytest.mark.parametrize("when", [_T, _T + 0.57, 1_609_459_200, 3_155_759_999])
def test_a_fix_is_exported(gps, kind, shown, place, when):
    getattr(gps, kind)(*place, when)
    mode, status, seconds, *exported = gps.exported()
    assert (mode, status) == shown
    assert seconds == pytest.approx(when, abs=0.001) and exported == pytest.approx(place, abs=1e-6)


def test_a_lost_fix_is_exported(gps):
    gps.fix_3d(1, 2, _T)
    gps.no_fix()
    assert gps.exported()[:2] == (1, 0)


@pytest.mark.parametrize("when", [0, 1_000_000_000, 1_609_459_199, 3_155_760_000])
def test_a_time_that_gpsd_would_misunderstand_is_refused(gps, when):
    with pytest.raises(ValueError):
        gps.fix_3d(1, 2, when)


def test_gpsd_is_asked_for_where_it_is_missing(monkeypatch):
    """The unit's package only recommends it."""
    monkeypatch.setattr("virtual_unit.gps._GPSD", "/usr/sbin/no-gpsd")
    with VirtualUnit(daemon=False) as unit, pytest.raises(FileNotFoundError, match="^GPS needs the package gpsd$"):
        unit.gps.start()


def test_a_sentence_has_its_checksum():
    assert sentence("GPGLL,5057.970,N,00146.110,E,142451,A") == "$GPGLL,5057.970,N,00146.110,E,142451,A*27\r\n"


def test_two_units_have_their_own(gps):
    gps.fix_3d(1, 2, _T)
    with VirtualUnit(daemon=False) as other:
        assert other.gps.exported() is None
        other.gps.fix_3d(3, 4, _T)
        assert gps.exported()[3] == 1 and other.gps.exported()[3] == 3


def test_nothing_is_left_of_it():
    with VirtualUnit(daemon=False) as unit:
        unit.gps.fix_3d(1, 2, _T)
        pid, key = unit.gps.pid, int(unit.gps.environment["GPSD_SHM_KEY"], 0)
        assert _attached(pid) == [key], "other segments than that of the export"
    assert not os.path.exists(f"/proc/{pid}")
    assert not _exists(key)


def _crash(pid):
    """Kills a child and waits until it is dead, for it still runs for a moment."""
    os.kill(pid, signal.SIGKILL)
    os.waitid(os.P_PID, pid, os.WEXITED | os.WNOWAIT)


def test_nothing_is_left_of_a_gpsd_that_crashed():
    with VirtualUnit(daemon=False) as unit:
        unit.gps.fix_3d(1, 2, _T)
        key = int(unit.gps.environment["GPSD_SHM_KEY"], 0)
        _crash(unit.gps.pid)
        unit.gps.fix_3d(3, 4, _T)
        assert unit.gps.exported()[3] == 3
        _crash(unit.gps.pid)
    assert not _exists(key)


_CHILD = """
    import sys
    sys.path.insert(0, {root!r})
    from virtual_unit import VirtualUnit
    with VirtualUnit(daemon=False) as unit:
        unit.gps.start()
        print(unit.directory, unit.gps.pid, unit.gps.environment["GPSD_SHM_KEY"], flush=True)
        sys.stdin.read()
"""


def test_nothing_is_left_of_it_when_the_tests_are_killed():
    program = textwrap.dedent(_CHILD).format(root=_ROOT)
    with subprocess.Popen([sys.executable, "-c", program], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          text=True) as child:
        directory, pid, key = child.stdout.readline().split()
        gpsd = os.pidfd_open(int(pid))
        try:
            child.kill()
            assert select.select([gpsd], [], [], PATIENCE)[0], "gpsd runs on"
        finally:
            os.close(gpsd)
            shutil.rmtree(directory, ignore_errors=True)
    assert not _exists(int(key, 0))
