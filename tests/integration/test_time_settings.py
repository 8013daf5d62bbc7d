"""The settings' zone: it is brought into force at the start, and followed from then on."""

import pytest

from tests.integration.recording_texts import debug, error, info, lines_of
from tests.integration.time_texts import (  # pylint: disable=unused-import
    ABSENT, GET_SETTING, GET_ZONE, LIST, LIST_LINE, LONDON, NO_DEFAULTS, SETTINGS_CHANGED, SET_ZONE, TIME,
    london_fixture, told, zone_set, zone_told)
from virtual_unit import AT_ONCE, REFUSE, SILENT
from virtual_unit.values import Typed


# Changes --------------------------------------------------------------------------------------------------------------


def hear(unit, **changes):
    """Changes the settings; returns the lines of that."""
    mark = unit.log.mark()
    unit.settings.set_properties(TIME, changes)
    unit.settle()
    return lines_of(unit, mark)


def changed(old, new, *names):
    """The lines of a change of the settings that changes the zone."""
    return [info(SETTINGS_CHANGED), *(info(f"name: {name}") for name in names), zone_set(old, new),
            debug(f"{SET_ZONE}: timezone = {new}")]


@pytest.mark.parametrize("changes, new", [
    ({"dst": True}, "CCU/DST/London"), ({"zone": "Berlin"}, "CCU/Berlin"),
    ({"zone": "Berlin", "dst": True}, "CCU/DST/Berlin")])
def test_the_settings_are_followed(unit, changes, new):
    """Both in one go, and back."""
    assert hear(unit, **changes) == changed(LONDON, new, *sorted(changes))
    assert zone_told(unit, new) and unit.timedate.timezone == new
    unit.client.clear()
    back = {name: {"zone": "London", "dst": False}[name] for name in changes}
    assert hear(unit, **back) == changed(new, LONDON, *sorted(changes))
    assert zone_told(unit, LONDON)


def test_the_settings_win_over_clients(unit):
    """Whenever they change: the zone that a client has set is gone then."""
    assert unit.client.call("SetTimezone", "s", "Tehran") == ()
    hear(unit, dst=True)
    assert unit.timedate.timezone == "CCU/DST/London"


def test_the_settings_come_to_what_holds(unit):
    """Then nothing is set or told."""
    unit.timedate.timezone = "CCU/DST/London"
    assert hear(unit, dst=True) == [info(SETTINGS_CHANGED), info("name: dst")]
    assert told(unit) == []


def test_the_settings_are_followed_at_any_time(unit):
    """Also while something is captured."""
    unit.video.set_properties("/com/tavilon/common/Video1", {"ActiveCaptures": ["video"]}, emit=False)
    hear(unit, zone="Rome")
    unit.video.set_properties("/com/tavilon/common/Video1", {"ActiveCaptures": []}, emit=False)
    assert unit.timedate.timezone == "CCU/Rome"


@pytest.mark.parametrize("announced, names", [
    ({"zone": "London", "dst": False}, ["dst", "zone"]),
    ({"zone": Typed("o", "/Berlin"), "dst": Typed("i", 1)}, ["dst", "zone"]),
    ({"dst": Typed("s", "true")}, ["dst"]), ({"Zone": Typed("s", "Berlin")}, ["Zone"]), ({}, [])])
def test_settings_that_change_nothing(unit, announced, names):
    """Those that hold, those of another type, and those that nobody knows: named, and passed over."""
    unit.timedate.timezone = "CCU/Rome"  # would be set back if anything counted as a change
    mark = unit.log.mark()
    unit.settings.emit_changes(TIME, "com.tavilon.common.Settings1", announced)
    unit.settle()
    assert lines_of(unit, mark) == [info(SETTINGS_CHANGED), *(info(f"name: {name}") for name in names)]
    assert told(unit) == [] and unit.timedate.timezone == "CCU/Rome"


def test_other_sections_are_not_the_clocks(unit):
    """Although their keys may have the same names."""
    mark = unit.log.mark()
    unit.settings.emit_changes("/com/tavilon/common/Settings1/gps", "com.tavilon.common.Settings1",
                               {"zone": Typed("s", "Berlin")})
    unit.settle()
    assert lines_of(unit, mark) == [] and unit.timedate.timezone == LONDON


@pytest.mark.parametrize("zone", ["Atlantis", "", "../../etc/passwd", "Z\u00fcrich"])
def test_settings_of_an_unknown_zone(unit, zone):
    """Are timedated's to refuse, in the log alone; the next change is followed."""
    lines = hear(unit, zone=zone)
    assert lines[:-1] == changed(LONDON, f"CCU/{zone}", "zone")
    assert lines[-1] == error(f"{SET_ZONE}: Failed to call method:Invalid or not installed time zone 'CCU/{zone}'")
    assert told(unit) == [] and unit.timedate.timezone == LONDON
    hear(unit, zone="Rome")
    assert unit.timedate.timezone == "CCU/Rome"


# The start ------------------------------------------------------------------------------------------------------------


def start(make_unit, zone=LONDON, settings=None, **options):
    """Starts a daemon at a unit with this zone in force and these settings; returns the unit."""
    unit = make_unit(daemon=False, **options)
    unit.timedate.timezone = zone
    unit.settings.set_properties(TIME, settings or {}, emit=False)
    return unit


def test_the_start_takes_the_clock_from_the_network(make_unit):
    """Before it reads the settings; what holds already is not set."""
    unit = start(make_unit)
    unit.start_daemon()
    calls = [(call.member, *call.arguments) for call in unit.calls if call.sibling == "timedate"]
    assert calls == [("SetNTP", False, False), ("Get Timezone",)] and unit.timedate.ntp == [False]
    members = [call.member for call in unit.calls if call.sibling in ("timedate", "settings")]
    assert members.index("SetNTP") < members.index("Get zone") < members.index("Get dst") \
        < members.index("Get Timezone")


@pytest.mark.parametrize("zone, settings, new", [
    ("CCU/London", {"dst": True}, "CCU/DST/London"), ("UTC", {"zone": "Rome"}, "CCU/Rome"),
    ("CCU/DST/Paris", {"zone": "Paris"}, "CCU/Paris")])
def test_the_start_brings_the_zone_in_line(make_unit, zone, settings, new):
    """With the settings, and tells of it."""
    unit = start(make_unit, zone, settings)
    unit.start_daemon()
    lines = lines_of(unit)
    assert lines[lines.index(LIST_LINE) + 1:][:2] == [zone_set(zone, new), debug(f"{SET_ZONE}: timezone = {new}")]
    assert unit.timedate.timezone == new and zone_told(unit, new)


@pytest.mark.parametrize("key", ["zone", "dst"])
def test_a_setting_that_cannot_be_read_at_the_start(make_unit, key):
    """Leaves the zone alone, and the other setting unused; changes are followed all the same."""
    unit = start(make_unit, "CCU/Rome", {"zone": "Paris", "dst": True})
    unit.faults.on("settings", f"Get {key}", REFUSE)
    unit.start_daemon()
    lines = lines_of(unit)
    failed = lines[lines.index(LIST_LINE) + 1:][:2]
    kind = {"zone": "std::__cxx11::basic_string<char>", "dst": "bool"}[key]
    assert failed[0][1].startswith(GET_SETTING + f"[with T = {kind}") and failed[1] == NO_DEFAULTS
    assert unit.timedate.timezone == "CCU/Rome" and told(unit) == []
    unit.faults.clear()
    hear(unit, zone="Athens")
    assert unit.timedate.timezone == "CCU/Athens"  # the flag that was not taken over is off


def test_the_start_without_timedated(make_unit):
    """Goes on: neither clock nor zone is anything that the rest needs."""
    unit = start(make_unit)
    unit.timedate.die()
    unit.start_daemon()
    lines = lines_of(unit)
    assert lines[lines.index(LIST_LINE) + 1:][:4] == [
        error(f"{GET_ZONE}: Cannot read property, error: {ABSENT}"), zone_set("", LONDON),
        debug(f"{SET_ZONE}: timezone = {LONDON}"), error(f"{SET_ZONE}: Failed to call method:{ABSENT}")]
    assert told(unit) == []


def test_the_start_with_a_timedated_that_hangs(make_unit):
    """Is late, and good."""
    unit = start(make_unit, bus_timeout=AT_ONCE)
    unit.faults.on("timedate", kind=SILENT)
    unit.start_daemon()
    assert unit.client.get("GetTimezoneList") == LIST
    unit.faults.clear()
    assert unit.client.get("GetTimezone") == "London"
