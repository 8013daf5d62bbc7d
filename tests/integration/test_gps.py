"""Clock and zone by GPS: a real gpsd, whose receiver says what a test wants, and its shared memory."""

import math

import pytest

from tests.integration.time_texts import NO_FIX, NOT_RIGHT_NOW, ZONE_REFUSED, asked, fields, refused, told
from virtual_unit import REFUSE

MEMBERS = ("SetTimeGPS", "SetTimezoneGPS")
T = 1_767_225_600
BERLIN = (52.5218, 13.4015)


@pytest.fixture(name="unit")
def fresh_unit(shared):
    """The unit in standard time, its gpsd as the test before left it."""
    shared.faults.clear()
    shared.timedate.timezone = "CCU/London"
    shared.settle()
    shared.client.clear()
    return shared


def silent_receiver(gps):
    """A gpsd that has heard nothing from its receiver yet."""
    gps.stop()
    gps.start()


NOTHING = {
    "no gpsd": lambda gps: gps.stop(),
    "a silent receiver": silent_receiver,
    "no fix": lambda gps: gps.no_fix(),
    "differential GPS": lambda gps: gps.dgps(*BERLIN, T),
    "a fix without a position": lambda gps: gps.fix_without_position(T),
}


@pytest.mark.parametrize("member", MEMBERS)
@pytest.mark.parametrize("situation", NOTHING)
def test_without_a_fix_nothing_is_set(unit, situation, member):
    """A call is refused, and neither clock nor zone nor any client learns of it."""
    NOTHING[situation](unit.gps)
    mark = unit.calls.mark()
    assert refused(unit.client.call, member) == NO_FIX
    assert asked(unit, mark) == [] and told(unit) == []


@pytest.mark.parametrize("seconds", (T, T + 0.01, T + 0.99, 1_609_459_200, 2_147_483_647.5))
@pytest.mark.parametrize("kind", ("fix_2d", "fix_3d"))
def test_the_clock_is_set_to_the_whole_second(unit, kind, seconds):
    """Of a fix in two or three dimensions, and clients are told the local time that it is."""
    getattr(unit.gps, kind)(*BERLIN, seconds)
    mark = unit.calls.mark()
    assert unit.client.call("SetTimeGPS") == ()
    assert asked(unit, mark) == [("SetTime", math.floor(seconds) * 1_000_000, False, False)]
    assert told(unit) == [("TimeChanged", fields(unit, math.floor(seconds), "CCU/London"))]


PLACES = {
    "the equator's zero": (0.0, 0.0, "Central"),
    "Berlin": (*BERLIN, "Berlin"),
    "the Thames, which the table does not know": (51.5, -0.12, "Paris"),
    "where the table has London": (42.97, -81.25, "London"),
    "a tie that the alphabet decides": (-34.935, 138.6, "Adelaide"),
    "south and west": (-12.0, -77.0, "Lima"),
    "north and west": (21.0, -157.0, "Hawaii"),
    "beyond the date line": (-13.0, 179.9, "Samoa"),
    "the pole": (89.99, 0.0, "Yukon"),
}


@pytest.mark.parametrize("prefix", ("CCU/", "CCU/DST/"))
@pytest.mark.parametrize("place", PLACES)
def test_the_nearest_zone_is_set(unit, place, prefix):
    """In the form that is in force, and clients are told the zone, then the time."""
    latitude, longitude, zone = PLACES[place]
    unit.timedate.timezone = f"{prefix}Kabul"
    unit.gps.fix_3d(latitude, longitude, T)
    mark = unit.calls.mark()
    assert unit.client.call("SetTimezoneGPS") == ()
    assert asked(unit, mark) == [("SetTimezone", prefix + zone, False)]
    (first, zones), (second, moment) = told(unit)
    assert (first, zones) == ("TimezoneChanged", (prefix + zone,))
    assert second == "TimeChanged" and moment[-1] is ("DST" in prefix)


def test_a_fix_in_two_dimensions_has_a_zone(unit):
    """As good as any."""
    unit.gps.fix_2d(*BERLIN, T)
    unit.client.call("SetTimezoneGPS")
    assert unit.timedate.timezone == "CCU/Berlin"


def test_a_clock_that_is_not_set_is_not_announced(unit):
    """When timedated refuses, the call succeeds nevertheless."""
    unit.gps.fix_3d(*BERLIN, T)
    unit.faults.on("timedate", "SetTime", kind=REFUSE)
    assert unit.client.call("SetTimeGPS") == ()
    assert told(unit) == []


def test_a_zone_that_is_not_set_is_not_announced(unit):
    """When timedated refuses, the call is refused."""
    unit.gps.fix_3d(*BERLIN, T)
    unit.faults.on("timedate", "SetTimezone", kind=REFUSE)
    assert refused(unit.client.call, "SetTimezoneGPS") == ZONE_REFUSED
    assert told(unit) == []


@pytest.mark.parametrize("member", MEMBERS)
@pytest.mark.parametrize("has_fix", (True, False))
def test_a_unit_at_work_is_not_disturbed(unit, has_fix, member):
    """By a fix, and without one the work is what is named."""
    if has_fix:
        unit.gps.fix_3d(*BERLIN, T)
    else:
        unit.gps.no_fix()
    unit.sync.set_active(True)
    mark = unit.calls.mark()
    assert refused(unit.client.call, member) == NOT_RIGHT_NOW
    unit.sync.set_active(False)
    assert asked(unit, mark) == [] and told(unit) == []


def test_the_newest_fix_counts(unit):
    """Each call asks gpsd anew, also one that was started after the last call and one that lost its fix."""
    for step, seconds in ((None, T), (None, T - 86400), (unit.gps.no_fix, T + 5), (unit.gps.stop, T + 9)):
        if step is not None:
            step()
            assert refused(unit.client.call, "SetTimeGPS") == NO_FIX
        unit.gps.fix_3d(*BERLIN, seconds)
        unit.client.call("SetTimeGPS")
        assert unit.timedate.times[-1] == seconds * 1_000_000


def test_a_query_leaves_its_handle_open(unit):
    """One attachment more each time, whatever comes of it, and that is all that they cost."""
    unit.gps.no_fix()
    before = unit.gps.attachments
    for _ in range(3):
        refused(unit.client.call, "SetTimezoneGPS")
    unit.gps.fix_3d(*BERLIN, T)
    unit.client.call("SetTimezoneGPS")
    assert unit.gps.attachments == before + 4
