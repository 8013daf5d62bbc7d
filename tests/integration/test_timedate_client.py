"""The client of systemd-timedated, operation by operation, against the stand-in on the unit's system bus."""

import errno

import pytest

from tests.integration.client_cases import (
    CALL, OPEN, SYSTEM_BUS, Case, FailureTests, assert_success, calls_since, check_declared, check_success,
    client_unit, untouched, without_bus)
from tests.integration.client_driver import ClientDriver, debug, error

NAME = "org.freedesktop.timedate1"
PATH = "/org/freedesktop/timedate1"

SET_TIME = "int SystemdDateTime::SetTime(uint64_t)"
SET_TIMEZONE = "int SystemdDateTime::SetTimezone(std::__cxx11::string)"
SET_NTP = "int SystemdDateTime::SetNTP(bool)"
GET_NTP = "int SystemdDateTime::GetNTP(bool&)"
GET_TIMEZONE = "int SystemdDateTime::GetTimezone(std::__cxx11::string&)"


def failed(operation, call_failed=None):
    """The line of an operation that did not get through; a failed call has one only where its text is given."""

    def lines(step, _result, text):
        if step == OPEN:
            return [error(f"{operation}: Cannot open bus")]
        assert step == CALL
        return [error(f"{operation}: {call_failed}{text}")] if call_failed else []

    return lines


def holding(**values):
    """Has the stand-in hold these properties."""
    return lambda unit: unit.timedate.set_properties(PATH, values, emit=False)


def set_time(usec):
    """The case of a time that is set: never by a difference, never by asking a user."""
    return Case("timedate.SetTime", (PATH, NAME, "SetTime", (usec, False, False)), "xbb", (usec,), blind=True,
                traffic=[debug(f"{SET_TIME}: usec = {usec}")], failed=failed(SET_TIME, "Cannot call method: "),
                prepare=holding(NTP=False))


def set_timezone(zone):
    """The case of a zone that is set."""
    return Case("timedate.SetTimezone", (PATH, NAME, "SetTimezone", (zone, False)), "sb", (zone,), blind=True,
                traffic=[debug(f"{SET_TIMEZONE}: timezone = {zone}")],
                failed=failed(SET_TIMEZONE, "Failed to call method:"))


def set_ntp(enabled):
    """The case of the network clock that is switched."""
    return Case("timedate.SetNTP", (PATH, NAME, "SetNTP", (enabled, False)), "bb", (enabled,), blind=True,
                failed=failed(SET_NTP))


def get_ntp(enabled):
    """The case of the network clock that is asked for."""
    return Case("timedate.GetNTP", (PATH, NAME, "Get NTP", ()), "b", outs=[enabled], untouched=untouched("b"),
                failed=failed(GET_NTP), prepare=holding(NTP=enabled))


def get_timezone(zone):
    """The case of the zone that is asked for."""
    return Case("timedate.GetTimezone", (PATH, NAME, "Get Timezone", ()), "s", outs=[zone], untouched=untouched("s"),
                failed=failed(GET_TIMEZONE, "Cannot read property, error: "), prepare=holding(Timezone=zone))


CASES = [*map(set_time, (1, 1700000000123456, 8277292035999999)),
         *map(set_timezone, ("CCU/London", "CCU/DST/New_York")),
         *map(set_ntp, (True, False)), *map(get_ntp, (True, False)),
         *map(get_timezone, ("CCU/DST/Berlin", "", "%s%n\u00fc"))]


UNIT_FIXTURE = client_unit("timedate")


@pytest.mark.parametrize("case", CASES, ids=str)
def test_operation(unit, driver, case):
    """Member, types, arguments, out-arguments and lines."""
    check_declared(case)
    check_success(unit, driver, case)


class TestFailures(FailureTests):
    """Every operation that fails."""

    CASES = CASES
    BUS = SYSTEM_BUS


def test_the_user_bus_is_not_needed(unit):
    """The system bus alone is opened."""
    with ClientDriver(unit, without_bus(unit)) as driver:
        for case in CASES:
            case.prepare(unit)
            assert_success(case, driver.run(case.operation, *case.inputs))


@pytest.mark.parametrize("usec, sent", [(2**63, -2**63), (2**64 - 1, -1)])
def test_a_time_beyond_all_times(unit, driver, monkeypatch, usec, sent):
    """Travels as the signed number of the same bits, and is logged as it was given."""
    monkeypatch.setattr(unit.timedate, "on_SetTime", lambda *_arguments: None)
    mark = unit.calls.mark()
    outcome = driver.run("timedate.SetTime", usec)
    assert calls_since(unit, mark) == [(PATH, NAME, "SetTime", (sent, False, False))]
    assert outcome.result >= 0 and outcome.lines == [debug(f"{SET_TIME}: usec = {usec}")]


def test_the_network_keeps_the_clock(unit, driver):
    """timedated refuses in its own words, and nothing is set."""
    holding(NTP=True)(unit)
    unit.timedate.times.clear()
    outcome = driver.run("timedate.SetTime", 5)
    assert (outcome.result, unit.timedate.times) == (-errno.EALREADY, [])
    assert outcome.lines == [debug(f"{SET_TIME}: usec = 5"),
                             error(f"{SET_TIME}: Cannot call method: Automatic time synchronization is enabled")]


@pytest.mark.parametrize("zone", ["", "/etc/passwd", "../CCU/London", "d\u00fcse %s%n"])
def test_a_zone_that_timedated_refuses(unit, driver, zone):
    """Is sent as it was given: the name is not checked here."""
    mark = unit.calls.mark()
    outcome = driver.run("timedate.SetTimezone", zone)
    assert calls_since(unit, mark) == [(PATH, NAME, "SetTimezone", (zone, False))]
    assert outcome.result == -errno.EINVAL
    words = f"Invalid or not installed time zone '{zone}'"
    assert outcome.lines == [debug(f"{SET_TIMEZONE}: timezone = {zone}"),
                             error(f"{SET_TIMEZONE}: Failed to call method:{words}")]


def test_a_zone_that_is_no_text_for_the_bus(unit, driver):
    """Is not sent; to the log that is a failed call."""
    mark = unit.calls.mark()
    outcome = driver.run("timedate.SetTimezone", "\ufffe")
    assert not unit.calls.since(mark) and outcome.result == -errno.EINVAL
    assert outcome.lines == [debug(f"{SET_TIMEZONE}: timezone = \ufffe"),
                             error(f"{SET_TIMEZONE}: Failed to call method:Invalid argument")]


def test_what_is_set_can_be_read(driver):
    """Zone and network clock come back as they were given."""
    assert driver.run("timedate.SetTimezone", "CCU/DST/Dublin").result >= 0
    assert driver.run("timedate.GetTimezone").outs == ["CCU/DST/Dublin"]
    for enabled in (False, True):
        assert driver.run("timedate.SetNTP", enabled).result >= 0
        assert driver.run("timedate.GetNTP").outs == [enabled]
