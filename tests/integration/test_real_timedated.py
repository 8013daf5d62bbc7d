"""Clock and zone against systemd-timedated itself, which moves no clock here: see virtual_unit/real_timedated.py.

A machine that cannot run it fails here, in one test that says what is missing; `ccu test` leaves these tests out where
namespaces are refused.
"""

import contextlib
import errno
import os
import subprocess
import time
import xml.etree.ElementTree as ElementTree
from datetime import datetime

import pytest

from tests.integration.client_driver import ClientDriver, debug, error
from tests.integration.time_texts import CLOCK_REFUSED, SET_CLOCK, SET_ZONE, refused, rules, second, told
from virtual_unit import declaration, zones
from virtual_unit.real_timedated import RealTimedatedUnit, missing

ZONES = [zone.name for zone in zones.table()]
SERVICE, OBJECT = "org.freedesktop.timedate1", "/org/freedesktop/timedate1"
EPERM_TEXT = "Failed to set local time: Operation not permitted"
NO_TIME_TEXT = "Invalid absolute time"
ZONE_CODE = f"Failed to set timezone via systemd-timedated CODE:{-errno.EINVAL}"
SECONDS = 1_000_000_000

#: Half-hours, both sides of UTC, and forms with daylight saving of both hemispheres, of which one has it now.
WALK = ["CCU/Kathmandu", "CCU/New_York", "CCU/DST/Auckland", "CCU/Lord_Howe", "CCU/DST/Berlin", "CCU/Auckland",
        "CCU/Berlin", "CCU/London"]

_lacking = "; ".join(missing())


def test_this_machine_can_run_timedated():
    """What is missing is told."""
    assert not _lacking


# Fixtures -------------------------------------------------------------------------------------------------------------


@contextlib.contextmanager
def machine_untouched():
    """Around what must leave the machine its zone, its clock and its mounts."""
    files, clock, mounts = machine_files(), time.time() - time.monotonic(), machine_mounts()
    yield
    assert machine_files() == files and machine_mounts() == mounts
    assert abs(time.time() - time.monotonic() - clock) < 60  # the network may still move it a little


def machine_files():
    """The machine's own of the files that timedated writes, and of the folder that units add."""
    return [(os.path.realpath(path), os.path.lexists(path) and os.lstat(path).st_mtime_ns)
            for path in ("/etc/localtime", "/etc/adjtime", "/usr/share/zoneinfo/CCU")]


def machine_mounts():
    """The mounts at the places that are others to timedated."""
    with open("/proc/self/mountinfo", encoding="utf-8") as file:
        return [line for line in file if line.split()[4].startswith(("/etc", "/usr/share/zoneinfo"))]


@pytest.fixture(scope="module", name="running")
def running_fixture():
    """One unit for all tests, with a driver of the client's own operations."""
    with RealTimedatedUnit() as started, ClientDriver(started) as driver:
        yield started, driver


@pytest.fixture(name="unit")
def unit_fixture(running):
    """The unit in London, with nothing behind it."""
    unit, driver = running
    assert driver.run("timedate.SetTimezone", zones.INITIAL).result >= 0
    unit.client.sync()
    unit.client.clear()
    return unit


@pytest.fixture(name="driver")
def driver_fixture(running):
    """Another process that asks timedated, by the same client."""
    return running[1]


def timezone_of(driver):
    """The zone that timedated says is in force."""
    return driver.run("timedate.GetTimezone").outs[0]


def local_now(unit, zone):
    """What "GetTime" answers, and the answers that it may give: from before the call until after it."""
    first = second()
    answer = unit.client.call("GetTime", "b", True)[:6]
    moments = (datetime.fromtimestamp(seconds, rules(unit, zone)) for seconds in range(first, second() + 1))
    return answer, [moment.timetuple()[:6] for moment in moments]


def signals(unit):
    """The names of the signals of clock and zone, and the zone that was told."""
    heard = told(unit)
    return [member for member, _ in heard], [arguments for member, arguments in heard if member == "TimezoneChanged"]


BOTH = ["TimezoneChanged", "TimeChanged"]


class TestRealTimedated:
    """What the stand-in is trusted to do like the real one."""

    __test__ = not _lacking

    # Zones ------------------------------------------------------------------------------------------------------------

    @pytest.mark.parametrize("name", ZONES)
    def test_every_zone_is_taken_in_both_forms(self, unit, driver, name):
        """By its name, by the flag, and by its full name; timedated gives back the same text."""
        for call, zone in ((("SetTimezone", "s", f"CCU/DST/{name}"), f"CCU/DST/{name}"),
                           (("SetDst", "b", False), f"CCU/{name}"),
                           (("SetDst", "b", True), f"CCU/DST/{name}"),
                           (("SetTimezone", "s", f"CCU/{name}"), f"CCU/{name}")):
            unit.client.clear()
            assert unit.client.call(*call) == ()
            assert timezone_of(driver) == zone
            assert unit.etc_localtime == f"../usr/share/zoneinfo/{zone}"
            assert (unit.client.get("GetTimezone"), unit.client.get("GetDst")) == (name, "/DST/" in zone)
            assert signals(unit) == (BOTH, [(zone,)])

    @pytest.mark.parametrize("name", ZONES)
    def test_local_time_is_that_of_the_zones_file(self, unit, name):
        """The C library reads through timedated's link what another reader reads of the file."""
        for zone in (f"CCU/DST/{name}", f"CCU/{name}"):
            unit.client.call("SetTimezone", "s", zone)
            answer, possible = local_now(unit, zone)
            assert answer in possible

    def test_a_zone_is_taken_by_its_offset(self, unit, driver):
        assert unit.client.call("SetTimezoneUTC", "ib", 34200, False) == ()
        assert timezone_of(driver) == "CCU/Adelaide"
        assert signals(unit) == (BOTH, [("CCU/Adelaide",)])

    def test_a_zone_of_the_settings_is_taken(self, unit, driver):
        unit.settings.change("time", {"zone": "Caracas", "dst": True})
        unit.client.wait_signal("TimeChanged")
        assert timezone_of(driver) == "CCU/DST/Caracas"

    def test_a_zone_of_another_list_is_brought_into_ours(self, unit, driver):
        assert driver.run("timedate.SetTimezone", "Europe/Berlin").result >= 0
        assert unit.client.get("GetTimezone") == "Berlin"
        unit.client.call("SetDst", "b", True)
        assert timezone_of(driver) == "CCU/DST/Berlin"

    @pytest.mark.parametrize("zone", ["", "CCU/Nowhere", "CCU/../CCU/Berlin", "/CCU/Berlin", "CCU/Berlin/", "CCU/DST"])
    def test_what_is_no_zone_is_refused(self, unit, driver, zone):
        """With the words that the stand-in has, too."""
        outcome = driver.run("timedate.SetTimezone", zone)
        assert outcome.result == -errno.EINVAL
        assert outcome.lines == [
            debug(f"{SET_ZONE}: timezone = {zone}"),
            error(f"{SET_ZONE}: Failed to call method:Invalid or not installed time zone '{zone}'")]
        assert timezone_of(driver) == zones.INITIAL and unit.etc_localtime.endswith(zones.INITIAL)

    @pytest.mark.parametrize("wanted, zone", [("", "CCU/"), ("../CCU/Berlin", "../CCU/Berlin"), ("Lon", "CCU/Lon"),
                                                ("CCU/Berlin/", "CCU/Berlin/")])
    def test_what_only_looks_installed_is_refused_by_timedated(self, unit, driver, wanted, zone):
        """The daemon's own check lets these pass."""
        mark = unit.log.mark()
        assert refused(unit.client.call, "SetTimezone", "s", wanted) == ZONE_CODE
        assert error(f"{SET_ZONE}: Failed to call method:Invalid or not installed time zone '{zone}'") in \
            unit.log.since(mark)
        assert timezone_of(driver) == zones.INITIAL and signals(unit) == ([], [])

    # Local time -------------------------------------------------------------------------------------------------------

    def test_local_time_follows_another_process_that_sets_the_zone(self, unit, driver):
        """The running daemon is not told, and its next answer is of the new zone."""
        for zone in WALK:
            assert driver.run("timedate.SetTimezone", zone).result >= 0
            answer, possible = local_now(unit, zone)
            assert answer in possible, zone

    def test_local_time_follows_a_link_that_is_moved_by_hand(self, unit):
        for zone in WALK:
            unit.point_etc_localtime(zone)
            answer, possible = local_now(unit, zone)
            assert answer in possible, zone

    def test_daylight_saving_shows_in_local_time(self, unit):
        """It holds in one of the hemispheres at any time of the year."""
        shifted = 0
        for name in ("Auckland", "Berlin"):
            offsets = []
            for zone in (f"CCU/{name}", f"CCU/DST/{name}"):
                unit.client.call("SetTimezone", "s", zone)
                local, utc = (datetime(*unit.client.call("GetTime", "b", wanted)[:6]) for wanted in (True, False))
                offsets.append(round((local - utc).total_seconds() / 60))
            shifted += offsets[1] - offsets[0] == 60
        assert shifted >= 1

    # Clock ------------------------------------------------------------------------------------------------------------

    @pytest.mark.parametrize("seconds, text", [(SECONDS, EPERM_TEXT), (2**31 - 1, EPERM_TEXT), (1, EPERM_TEXT),
                                               (0, NO_TIME_TEXT), (-1, NO_TIME_TEXT)])
    def test_the_order_to_set_the_clock_is_understood(self, unit, seconds, text):
        """It fails at the kernel, that is after timedated has read and allowed it, and changes nothing."""
        mark = unit.log.mark()
        with machine_untouched():
            assert unit.client.call("SetTimeSecs", "ib", seconds, True) == ()
        assert unit.log.since(mark) == [
            debug(f"{SET_CLOCK}: usec = {seconds * 1_000_000 % 2**64}"),
            error(f"{SET_CLOCK}: Cannot call method: {text}")]
        assert signals(unit) == ([], [])

    def test_microseconds_are_what_timedated_counts_in(self, driver):
        """Neither the first nor one of the year 2223 is anything that it minds."""
        for usec in (1, 8_000_000_000_000_000):
            assert driver.run("timedate.SetTime", usec).lines == [
                debug(f"{SET_CLOCK}: usec = {usec}"), error(f"{SET_CLOCK}: Cannot call method: {EPERM_TEXT}")]

    def test_the_clients_order_by_fields_is_refused_by_the_kernel(self, unit):
        mark = unit.log.mark()
        assert refused(unit.client.call, "SetTime", "iiiiiibb", 2001, 9, 9, 1, 46, 40, False, False) == CLOCK_REFUSED
        assert unit.log.since(mark) == [
            debug(f"{SET_CLOCK}: usec = {SECONDS * 1_000_000}"),
            error(f"{SET_CLOCK}: Cannot call method: {EPERM_TEXT}")]

    @pytest.mark.parametrize("enabled", [False, True])
    def test_the_order_to_switch_the_network_clock_is_understood(self, driver, enabled):
        """This system has no network clock, which is another answer than that to arguments it cannot read."""
        assert driver.run("timedate.SetNTP", enabled).result == -errno.EOPNOTSUPP

    def test_the_network_clock_is_off(self, driver):
        outcome = driver.run("timedate.GetNTP")
        assert outcome.result >= 0 and outcome.outs == [False] and outcome.lines == []

    # The place --------------------------------------------------------------------------------------------------------

    def test_the_stand_in_declares_what_timedated_declares(self, unit):
        """Members, types and directions of the interface."""
        asked = subprocess.run(
            [*unit.inside(), "busctl", f"--address={unit.system_address}", "introspect", "--xml-interface", SERVICE,
             OBJECT], capture_output=True, text=True, check=True)
        assert members(ElementTree.fromstring(asked.stdout)) == members(stand_in())

    @pytest.mark.parametrize("folder_of_units", [None, "/dev/shm"])
    def test_the_machine_keeps_its_own_zone_clock_and_mounts(self, folder_of_units):
        """Also while the zone is another one, and after all is over, and whatever file system the unit is in."""
        with machine_untouched():
            with RealTimedatedUnit(directory=folder_of_units) as unit, machine_untouched():
                unit.client.call("SetTimezone", "s", "Kathmandu")
                unit.client.call("SetTimeSecs", "ib", SECONDS, True)
                folder = unit.directory
                processes = inside(folder)
                assert {"dbus-daemon", "systemd-timedat", "controllerd"} <= set(processes.values())
        assert not os.path.exists(folder)
        assert not any(os.path.exists(f"/proc/{pid}") for pid in processes)


# Helpers --------------------------------------------------------------------------------------------------------------


def members(node):
    """The members of timedated's interface as {name: (kind, types)}."""
    interface = next(item for item in node.iter("interface") if item.get("name") == SERVICE)
    return {item.get("name"): (item.tag, item.get("type"), item.get("access"),
                               [(argument.get("type"), argument.get("direction")) for argument in item.iter("arg")])
            for item in interface if item.tag in ("method", "property", "signal")}


def stand_in():
    """The stand-in's interface file."""
    folder = os.path.join(os.path.dirname(declaration.__file__), "interfaces")
    return ElementTree.parse(os.path.join(folder, "timedate.xml")).getroot()


def inside(folder):
    """The processes whose /etc is the one of that unit's folder, by their number."""
    found = {}
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.path.samefile(f"/proc/{pid}/root/etc", f"{folder}/etc"):
                with open(f"/proc/{pid}/comm", encoding="utf-8") as name:
                    found[pid] = name.read().strip()
        except OSError:
            continue
    return found
