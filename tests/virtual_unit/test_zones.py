"""The unit's time zones: their files, the link that says which is in force, and how the daemon's process sees both."""

import datetime
import os
import pathlib
import subprocess
import zoneinfo

import pytest

from virtual_unit import DbusFailure, VirtualUnit, zones

_HERE = pathlib.Path(__file__).resolve().parent
_UTC = datetime.timezone.utc
_NAMES = [zone.name for zone in zones.table()]
_YEARS = (2026, 2031, 2090)
_SECOND, _HOUR = datetime.timedelta(seconds=1), datetime.timedelta(hours=1)


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    """The zone files."""
    made = tmp_path_factory.mktemp("made") / "zones"
    zones.make(made)
    return made


@pytest.fixture
def unit(folder):
    """A unit without a daemon that has the zone files."""
    with VirtualUnit(daemon=False, zones=folder) as started:
        yield started


@pytest.fixture
def timedated(client_of):
    """A client of the unit's timedated."""
    name = "org.freedesktop.timedate1"
    return client_of(name, "/org/freedesktop/timedate1", name, system=True)


# The table and the files ----------------------------------------------------------------------------------------------


def _sunday(year, month, day):
    """The first Sunday from a day on."""
    moment = datetime.datetime(year, month, day, tzinfo=_UTC)
    return moment + datetime.timedelta(days=6 - moment.weekday())


def _summer(zone, year):
    """The moments at which a year's daylight saving begins and ends; in the south it ends before it begins."""
    if zone.latitude < 0:
        two = 2 * _HOUR - datetime.timedelta(seconds=zone.offset)
        return _sunday(year, 10, 1) + two, _sunday(year, 4, 1) + two
    return _sunday(year, 3, 25) + _HOUR, _sunday(year, 10, 25) + _HOUR


def _moments(zone):
    """Moments at which to look: each month, and to the second around the edges of daylight saving."""
    for year in _YEARS:
        yield from (datetime.datetime(year, month, 1, 12, tzinfo=_UTC) for month in range(1, 13))
        for edge in _summer(zone, year):
            yield from (edge - _SECOND, edge)


def _is_summer(zone, moment):
    begin, end = _summer(zone, moment.year)
    return begin <= moment < end if begin < end else not end <= moment < begin


def _seen(path, zone):
    """What the file says at the moments: the offset from UTC and the share of daylight saving, in seconds."""
    with open(path, "rb") as file:
        info = zoneinfo.ZoneInfo.from_file(file)
    for moment in _moments(zone):
        local = moment.astimezone(info)
        yield moment, int(local.utcoffset().total_seconds()), int(local.dst().total_seconds())


def test_the_table_is_complete_and_in_order():
    """70 zones with their place on earth."""
    assert len(_NAMES) == 70 and _NAMES == sorted(set(_NAMES))
    for zone in zones.table():
        assert abs(zone.latitude) <= 90 and abs(zone.longitude) <= 180 and -43200 <= zone.offset <= 46800, zone


def test_there_is_a_file_for_each_zone_and_nothing_else(folder):
    """In both forms, and UTC's."""
    assert sorted(os.listdir(folder)) == sorted([*_NAMES, "UTC", "DST"])
    assert sorted(os.listdir(folder / "DST")) == _NAMES


def test_the_standard_form_has_the_tables_offset_all_year(folder):
    """And no daylight saving; UTC has neither."""
    for zone in zones.table():
        for moment, offset, saving in _seen(folder / zone.name, zone):
            assert (offset, saving) == (zone.offset, 0), (zone, moment)
    assert {seen[1:] for seen in _seen(folder / "UTC", zones.table()[0])} == {(0, 0)}


def test_the_other_form_has_an_hour_more_in_its_summer(folder):
    """To the second, in each hemisphere at its time."""
    for zone in zones.table():
        for moment, offset, saving in _seen(folder / "DST" / zone.name, zone):
            more = 3600 if _is_summer(zone, moment) else 0
            assert (offset, saving) == (zone.offset + more, more), (zone, moment)


def test_the_files_take_the_place_of_older_ones(tmp_path):
    """As when the table has changed; nothing is left beside them."""
    (tmp_path / "zones").mkdir()
    (tmp_path / "zones" / "Atlantis").touch()
    zones.make(tmp_path / "zones")
    assert sorted(os.listdir(tmp_path / "zones")) == sorted([*_NAMES, "UTC", "DST"])
    assert os.listdir(tmp_path) == ["zones"]


# The zone in force ----------------------------------------------------------------------------------------------------


def test_the_units_link_follows_the_zone(unit, timedated, folder):
    """From a new unit's zone on, whoever sets it; without a zone file the link leads nowhere."""
    assert timedated.get("Timezone") == "CCU/London" and os.readlink(unit.local_time_link) == f"{folder}/London"
    timedated.call("SetTimezone", "sb", "CCU/DST/Paris", False)
    assert timedated.get("Timezone") == "CCU/DST/Paris"
    assert os.readlink(unit.local_time_link) == f"{folder}/DST/Paris"
    unit.timedate.timezone = "CCU/Berlin"
    assert os.readlink(unit.local_time_link) == f"{folder}/Berlin"
    unit.timedate.timezone = "CCU/Atlantis"
    assert os.path.islink(unit.local_time_link) and not os.path.exists(unit.local_time_link)


def test_a_unit_without_timedated_has_a_zone_as_well(folder):
    """The one of every new unit."""
    with VirtualUnit(daemon=False, zones=folder, siblings=()) as unit:
        assert os.readlink(unit.local_time_link) == f"{folder}/London"


@pytest.mark.parametrize("zone", ["", "CCU", "CCU/", "CCU/DST", "CCU/DST/", "CCU/Atlantis", "CCU/DST/UTC", "London",
                                  "CCU//London", "CCU/London/", "/CCU/London", "CCU/DST/../London", "CCU/Lon don",
                                  "CCU/Empty", "Atlantis/London"])
def test_a_zone_that_is_not_installed_is_refused(folder, zone, unit, timedated):
    """In timedated's words, and nothing has changed."""
    (folder / "Empty").touch()
    with pytest.raises(DbusFailure) as refused:
        timedated.call("SetTimezone", "sb", zone, False)
    (folder / "Empty").unlink()
    assert refused.value.name == "org.freedesktop.DBus.Error.InvalidArgs"
    assert refused.value.text == f"Invalid or not installed time zone '{zone}'"
    assert timedated.get("Timezone") == "CCU/London" and os.readlink(unit.local_time_link) == f"{folder}/London"
    assert unit.timedate.timezones == []


def test_every_zone_that_timedated_lists_can_be_set(timedated, unit):
    """They are the files' names, and UTC."""
    listed = timedated.call("ListTimezones", "")[0]
    assert listed == sorted(["UTC", "CCU/UTC"] + [prefix + name for name in _NAMES for prefix in ("CCU/", "CCU/DST/")])
    for zone in listed:
        timedated.call("SetTimezone", "sb", zone, False)
    assert unit.timedate.timezones == listed


# What the daemon sees -------------------------------------------------------------------------------------------------


@pytest.fixture(scope="module")
def reader_program(tmp_path_factory):
    """A program that looks at zones by the calls by which the daemon does."""
    program = tmp_path_factory.mktemp("reader") / "zone_reader"
    subprocess.run(["g++", "-std=c++20", "-Wall", "-Wextra", "-Werror", _HERE / "zone_reader.cpp", "-o", program],
                   check=True)
    return program


@pytest.fixture
def ask(reader_program, unit, build_dir):
    """Asks the program one thing; started with the libraries and the environment of the unit's daemon."""
    libraries = [f"{build_dir}/virtual_unit/preload/lib{name}.so" for name in ("places", "local_time")]
    running = []

    def start(environment):
        whole = {**unit.daemon.environment(), "LD_PRELOAD": " ".join(libraries), **environment}
        running.append(subprocess.Popen([reader_program], env=whole, text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE))

    def question(text, **environment):
        if not running:
            start(environment)
        print(text, file=running[0].stdin, flush=True)
        return running[0].stdout.readline().rstrip()

    yield question
    for process in running:
        process.communicate()


_WINTER = int(datetime.datetime(2026, 1, 15, 12, tzinfo=_UTC).timestamp())
_JULY = int(datetime.datetime(2026, 7, 15, 12, tzinfo=_UTC).timestamp())


def test_the_zones_are_found_where_a_unit_has_them(ask, folder):
    """Links to files among them, and no folders."""
    os.symlink(folder / "Paris", folder / "Link")
    os.symlink(folder / "Atlantis", folder / "Dangling")
    listed = ask("list /usr/share/zoneinfo/CCU/").split()
    links = [ask(f"islink /usr/share/zoneinfo/CCU/{name}") for name in ("Link", "Paris")]
    (folder / "Link").unlink()
    (folder / "Dangling").unlink()
    assert listed == sorted([*_NAMES, "UTC", "Link"]) and links == ["1", "0"]
    assert ask("list /usr/share/zoneinfo/CCU/DST").split() == _NAMES


def test_a_folder_of_a_longer_name_is_another_one(ask, folder):
    """Only whole names of folders are replaced."""
    os.symlink(folder, f"{folder}-other")
    assert ask("list /usr/share/zoneinfo/CCU-other") == ""
    os.unlink(f"{folder}-other")


def test_without_the_folder_nothing_is_found(ask, tmp_path):
    """A unit whose image has no zones."""
    assert ask("list /usr/share/zoneinfo/CCU/", CCU_ZONES=str(tmp_path / "none")) == ""


def test_local_time_follows_the_zone_in_force(ask, unit):
    """At once, in both directions, with the edge of daylight saving; a zone without a file is UTC."""
    assert ask(f"localtime {_JULY}") == "2026-07-15T12:00:00 0 0"
    unit.timedate.timezone = "CCU/DST/Paris"
    assert ask(f"localtime {_JULY}") == "2026-07-15T14:00:00 7200 1"
    assert ask(f"localtime {_WINTER}") == "2026-01-15T13:00:00 3600 0"
    edge = int(_summer(zones.table()[_NAMES.index("Paris")], 2026)[0].timestamp())
    assert ask(f"localtime {edge - 1}") == "2026-03-29T01:59:59 3600 0"
    assert ask(f"localtime {edge}") == "2026-03-29T03:00:00 7200 1"
    unit.timedate.timezone = "CCU/Lord_Howe"
    assert ask(f"localtime {_JULY}") == "2026-07-15T12:17:10 1030 0"
    unit.timedate.timezone = "CCU/Atlantis"
    assert ask(f"localtime {_JULY}") == "2026-07-15T12:00:00 0 0"


def test_mktime_follows_the_zone_in_force(ask, unit):
    """By itself, without another call before it."""
    assert ask("mktime 2026-07-15T12:00:00") == str(_JULY)
    unit.timedate.timezone = "CCU/DST/Auckland"
    assert ask("mktime 2026-07-16T00:00:00") == str(_JULY)
    assert ask("mktime 2026-01-16T01:00:00") == str(_WINTER)


def test_the_reentrant_call_keeps_the_zone_that_it_knows(ask, unit):
    """As that of the C library does when /etc/localtime changes: a daemon that uses it must not pass for right."""
    assert ask(f"localtime {_JULY}") == ask(f"localtime_r {_JULY}") == "2026-07-15T12:00:00 0 0"
    unit.timedate.timezone = "CCU/Seoul"
    assert ask(f"localtime_r {_JULY}") == "2026-07-15T12:00:00 0 0"
    assert ask(f"localtime {_JULY}") == ask(f"localtime_r {_JULY}") == "2026-07-15T21:00:00 32400 0"


def test_a_zone_given_in_the_environment_goes_first(ask, unit):
    """Whatever the link says."""
    assert ask(f"localtime {_JULY}", TZ="XYZ-05:30") == "2026-07-15T17:30:00 19800 0"
    unit.timedate.timezone = "CCU/Seoul"
    assert ask(f"localtime {_JULY}") == "2026-07-15T17:30:00 19800 0"
