"""The zone: how it is named, found, read and set by clients."""

import os

import pytest

from tests.integration.recording_texts import debug, error, info, lines_of
from tests.integration.time_texts import (  # pylint: disable=unused-import
    ABSENT, GET_ZONE, LIST, LIST_LINE, LONDON, SET_ZONE, ZONE_REFUSED, asked, london_fixture, refused, told,
    zone_told)
from virtual_unit import REFUSE, zones

NOT_INSTALLED = " is not installed in the list of CCU timezones"
NO_FILE = "Failed to set timezone via systemd-timedated CODE:-22"


# Reading --------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("zone, name, dst", [
    ("CCU/DST/Paris", "Paris", True), ("CCU/Paris", "Paris", False), ("UTC", "UTC", False),
    ("America/Argentina/Buenos_Aires", "Buenos_Aires", False), ("CCU/", "", False), ("", "", False),
    ("DST", "DST", True), ("CCU/DSTown", "DSTown", True)])
def test_the_zone_in_force(unit, zone, name, dst):
    """Is told by its bare name, and whether it is one with daylight saving."""
    unit.timedate.set_property("/org/freedesktop/timedate1", "Timezone", zone, emit=False)
    assert (unit.client.get("GetTimezone"), unit.client.get("GetDst")) == (name, dst)


@pytest.mark.parametrize("name, word", [("GetDst", "dst"), ("GetTimezone", "timezone")])
def test_a_zone_that_cannot_be_read(unit, name, word):
    """Fails the access with the code of the failure, which is in the log."""
    unit.timedate.die()
    mark = unit.log.mark()
    text = refused(unit.client.get, name)
    unit.timedate.revive()
    assert text == f"Failed to get {word} from systemd-timedated CODE:-113"
    assert lines_of(unit, mark) == [error(f"{GET_ZONE}: Cannot read property, error: {ABSENT}")]


# The list -------------------------------------------------------------------------------------------------------------


def test_the_list_holds_all_zones(unit):
    """Of the unit's image, in order; the daylight saving forms are no zones of their own."""
    assert unit.client.get("GetTimezoneList") == LIST and len(LIST) == 71
    assert LIST_LINE in lines_of(unit)


def test_the_list_holds_files_only(make_unit, tmp_path):
    """No folders, hidden files, dangling links and names that could not travel; and it stays as it was at the start."""
    folder = tmp_path / "zones"
    folder.mkdir()
    for name in ("Zürich", "b", "B", "a b", "UTC", "100%s", ".hidden"):
        (folder / name).touch()
    with open(os.path.join(os.fsencode(folder), b"M\xfcnchen"), "w", encoding="utf-8"):
        pass
    for name in ("DST", "folder"):
        (folder / name).mkdir()
    (folder / "link").symlink_to("b")
    (folder / "link to a folder").symlink_to("DST")
    (folder / "dangling").symlink_to("nothing")
    (folder / "loop").symlink_to("loop")
    os.mkfifo(folder / "pipe")
    unit = make_unit(zones=str(folder))
    expected = ["100%s", "B", "UTC", "Zürich", "a b", "b", "link"]
    assert unit.client.get("GetTimezoneList") == expected
    assert ", ".join(expected[3:]) in [text for _, text in lines_of(unit)][2]
    (folder / "later").touch()
    assert unit.client.get("GetTimezoneList") == expected


def test_an_empty_list(make_unit, tmp_path):
    """Of a folder without files."""
    unit = make_unit(zones=str(tmp_path))
    assert unit.client.get("GetTimezoneList") == []
    assert info("") in lines_of(unit)


@pytest.mark.parametrize("made, reason", [(False, "No such file or directory"), (True, "Not a directory")])
def test_a_missing_folder(make_unit, tmp_path, made, reason):
    """Gives an empty list and a line; the daemon runs."""
    folder = tmp_path / "zones"
    if made:
        folder.touch()
    unit = make_unit(zones=str(folder))
    assert unit.client.get("GetTimezoneList") == []
    assert error(f"Failed to list the timezones in /usr/share/zoneinfo/CCU/: {reason}") in lines_of(unit)


# Setting --------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("current, requested, expected", [
    (LONDON, "Berlin", "CCU/Berlin"), ("CCU/DST/London", "Berlin", "CCU/DST/Berlin"),
    (LONDON, "CCU/DST/Paris", "CCU/DST/Paris"), ("CCU/DST/London", "CCU/Paris", "CCU/Paris"),
    (LONDON, "UTC", "CCU/UTC"), (LONDON, "London", LONDON)])
def test_a_zone_is_set(unit, current, requested, expected):
    """In the form in force, or in that which it names itself."""
    unit.timedate.timezone = current
    mark, calls = unit.log.mark(), unit.calls.mark()
    assert unit.client.call("SetTimezone", "s", requested) == ()
    assert asked(unit, calls) == [("SetTimezone", expected, False)] and unit.timedate.timezone == expected
    assert zone_told(unit, expected)
    assert lines_of(unit, mark) == [info(f"timezone: {expected}"), debug(f"{SET_ZONE}: timezone = {expected}")]


@pytest.mark.parametrize("requested", [
    "Atlantis", "berlin", "Berlin ", "CCU/Atlantis", "Z\u00fcrich", "%s%n", "Berlin\n", "DST/Atlantis",
    "CCU/" + "x" * 65536, "CCU/../../..x"])
def test_a_zone_that_is_not_installed(unit, requested):
    """Is refused by the name that was asked for, before timedated is asked."""
    calls = unit.calls.mark()
    assert refused(unit.client.call, "SetTimezone", "s", requested) == requested + NOT_INSTALLED
    assert asked(unit, calls) == [] and told(unit) == []


@pytest.mark.parametrize("requested", [
    "", "/", "Berlin/", "B", "_", "CCU/", "../../etc/", "Europe/Berlin", "xCCU/Berlin", "CCU/../Berlin",
    "CCU/DST/CCU/Berlin", "x" * 65536 + "/"])
def test_a_part_of_a_name_counts_as_installed(unit, requested):
    """The empty one, too: what is no zone after all is timedated's to refuse."""
    calls = unit.calls.mark()
    assert refused(unit.client.call, "SetTimezone", "s", requested) == NO_FILE
    assert asked(unit, calls) == [("SetTimezone", requested if "CCU/" in requested else f"CCU/{requested}", False)]
    assert told(unit) == [] and unit.timedate.timezone == LONDON


def test_a_zone_that_timedated_refuses(unit):
    """Is answered with the code, and announced to nobody."""
    unit.faults.on("timedate", "SetTimezone", REFUSE)
    text = refused(unit.client.call, "SetTimezone", "s", "Berlin")
    assert text.startswith("Failed to set timezone via systemd-timedated CODE:-") and told(unit) == []


def test_the_form_in_force_cannot_be_read(unit):
    """Counts as standard time."""
    unit.timedate.timezone = "CCU/DST/London"
    unit.faults.on("timedate", "Get Timezone", REFUSE)
    assert unit.client.call("SetTimezone", "s", "Berlin") == ()
    assert unit.timedate.timezone == "CCU/Berlin"


# By offset ------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("offset, dst, name", [
    (34200, False, "Adelaide"), (-18000, False, "Bogota"), (0, True, "Azores"), (0, False, "Dublin"),
    (37800, True, "Adelaide"), (1030, False, "Lord_Howe"), (2000, False, "Lord_Howe"), (2314, False, "Lord_Howe"),
    (2315, False, "Amsterdam"), (2**31 - 1, False, "Samoa"), (2**31 - 1, True, "Samoa"), (-2**31, False, "Hawaii"),
    (-2**31, True, "Hawaii"), (-21600, False, "Central"), (19800, False, "Kolkata")])
@pytest.mark.parametrize("current, prefix", [(LONDON, "CCU/"), ("CCU/DST/Paris", "CCU/DST/")])
def test_the_zone_of_an_offset(unit, offset, dst, name, current, prefix):
    """The first by name of the nearest, in the form in force whatever the flag says; it can be asked for and set."""
    unit.timedate.timezone = current
    calls = unit.calls.mark()
    assert unit.client.call("GetTimezoneFromUTC", "ib", offset, dst) == (prefix + name,)
    assert asked(unit, calls) == [] and told(unit) == []
    assert unit.client.call("SetTimezoneUTC", "ib", offset, dst) == ()
    assert asked(unit, calls) == [("SetTimezone", prefix + name, False)] and zone_told(unit, prefix + name)


def test_an_offset_can_be_set_at_any_time(unit):
    """Also while something is captured and synchronised."""
    unit.video.set_properties("/com/tavilon/common/Video1", {"ActiveCaptures": ["video"]}, emit=False)
    unit.sync.set_active(True)
    assert unit.client.call("SetTimezoneUTC", "ib", 34200, False) == ()
    unit.sync.set_active(False)
    unit.video.set_properties("/com/tavilon/common/Video1", {"ActiveCaptures": []}, emit=False)
    assert unit.timedate.timezone == "CCU/Adelaide"


def test_an_offset_that_timedated_refuses(unit):
    """Is answered by a text of its own."""
    unit.faults.on("timedate", "SetTimezone", REFUSE)
    assert refused(unit.client.call, "SetTimezoneUTC", "ib", 34200, False) == ZONE_REFUSED
    assert told(unit) == []


# Daylight saving ------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("current, dst, expected", [
    (LONDON, True, "CCU/DST/London"), ("CCU/DST/New_York", False, "CCU/New_York"),
    ("Europe/Berlin", True, "CCU/DST/Berlin"), ("Berlin", True, "CCU/DST/Berlin"),
    ("Odd/DST/Berlin", False, "CCU/Berlin")])
def test_the_form_is_changed(unit, current, dst, expected):
    """The zone keeps its bare name, and is one of the unit's from then on."""
    unit.timedate.set_property("/org/freedesktop/timedate1", "Timezone", current, emit=False)
    calls = unit.calls.mark()
    assert unit.client.call("SetDst", "b", dst) == ()
    assert asked(unit, calls) == [("SetTimezone", expected, False)] and zone_told(unit, expected)
    assert unit.client.get("GetDst") is dst


@pytest.mark.parametrize("current, dst", [(LONDON, False), ("CCU/DST/London", True), ("Europe/Berlin", False)])
def test_the_form_that_holds(unit, current, dst):
    """Is left alone."""
    unit.timedate.timezone = current
    calls = unit.calls.mark()
    assert unit.client.call("SetDst", "b", dst) == ()
    assert asked(unit, calls) == [] and told(unit) == []


def test_the_form_cannot_be_read(unit):
    """Then nothing is set."""
    unit.faults.on("timedate", "Get Timezone", REFUSE)
    calls = unit.calls.mark()
    assert refused(unit.client.call, "SetDst", "b", True) == "Cannot get timezone from systemd-datetimed"
    assert asked(unit, calls) == [] and told(unit) == []


def test_the_form_is_refused(unit):
    """With its code: here a zone without the other form."""
    unit.timedate.timezone = "CCU/UTC"
    text = refused(unit.client.call, "SetDst", "b", True)
    assert text == "Failed to set new timezone via systemd-datetimed CODE:-22"
    assert told(unit) == [] and unit.timedate.timezone == "CCU/UTC"


# Local time -----------------------------------------------------------------------------------------------------------


def test_local_time_follows_the_zone(unit):
    """While the daemon runs, whoever changes it: a client, or somebody else at timedated."""
    seconds = 1_750_000_000
    hours = []
    for zone in ("Kathmandu", "Hawaii", "CCU/DST/Paris"):
        assert unit.client.call("SetTimezone", "s", zone) == ()
        unit.client.clear()
        assert unit.client.call("SetTimeSecs", "ib", seconds, True) == ()
        hours.append(told(unit)[0][1][3:5])
    unit.timedate.timezone = "CCU/Lord_Howe"
    unit.client.clear()
    assert unit.client.call("SetTimeSecs", "ib", seconds, True) == ()
    hours.append(told(unit)[0][1][3:5])
    assert hours == [(20, 51), (5, 6), (17, 6), (15, 23)]


def test_every_zone_can_be_set(unit):
    """In both forms."""
    for zone in zones.table():
        for dst in (False, True):
            assert unit.client.call("SetTimezone", "s", zones_name(zone.name, dst)) == ()
            assert (unit.client.get("GetTimezone"), unit.client.get("GetDst")) == (zone.name, dst)


def zones_name(name, dst):
    """A zone's full name."""
    return f"CCU/{'DST/' if dst else ''}{name}"
