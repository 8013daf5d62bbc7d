"""The clock: how it is read and set, in local time and in UTC, and what stands in the way."""

import time
from datetime import datetime, timezone

import pytest

from tests.integration.recording_texts import debug, error, info, lines_of
from tests.integration.time_texts import (
    ABSENT, CLOCK_REFUSED, GATED, GET_ZONE, NOT_NOW, SET_CLOCK, SET_ZONE, asked, fields, refused, second, told)
from virtual_unit import LATE, REFUSE, Client

#: Zones by what they are for: standard time of no hour at all, west, and daylight saving of both hemispheres.
LONDON, NEW_YORK, KATHMANDU, LORD_HOWE = "CCU/London", "CCU/New_York", "CCU/Kathmandu", "CCU/Lord_Howe"
PARIS_DST, AUCKLAND_DST = "CCU/DST/Paris", "CCU/DST/Auckland"
SECONDS = 1_750_000_000  # 2025-06-15 15:06:40 UTC
TIMEDATED = ("org.freedesktop.timedate1", "/org/freedesktop/timedate1", "org.freedesktop.timedate1")


@pytest.fixture(name="unit")
def unit_fixture(shared):
    """The unit in London, with nothing behind it."""
    shared.faults.clear()
    shared.timedate.timezone = LONDON
    shared.sync.set_active(False)
    shared.clock.follow()
    shared.settle()
    shared.client.clear()
    return shared


def utc(*moment):
    """Seconds since the epoch of a moment of UTC."""
    return int(datetime(*moment, tzinfo=timezone.utc).timestamp())


# Reading --------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("zone", [LONDON, NEW_YORK, KATHMANDU, LORD_HOWE, PARIS_DST, AUCKLAND_DST])
@pytest.mark.parametrize("local", [True, False])
def test_the_time_is_now(unit, zone, local):
    """In the zone in force or in UTC, with the zone's flag either way."""
    unit.timedate.timezone = zone
    first = second()
    answer = unit.client.call("GetTime", "b", local)
    last = second()
    assert answer in [fields(unit, seconds, zone if local else None) for seconds in range(first, last + 1)]


@pytest.mark.parametrize("zone", [NEW_YORK, PARIS_DST])
@pytest.mark.parametrize("local", [True, False])
def test_the_seconds_are_now(unit, zone, local):
    """The same instant whatever the flag says."""
    unit.timedate.timezone = zone
    first = second()
    seconds, dst = unit.client.call("GetTimeSecs", "b", local)
    assert first <= seconds <= second() and dst is ("DST" in zone)


def late_zone(unit):
    """timedated takes its time, more than a second, over every question for the zone."""
    return unit.faults.on("timedate", "Get Timezone", LATE(1.1))


@pytest.mark.parametrize("zone", [NEW_YORK, PARIS_DST])
@pytest.mark.parametrize("member, local", [("GetTime", True), ("GetTime", False), ("GetTimeSecs", True)])
def test_the_time_is_that_of_the_answer(unit, zone, member, local):
    """Not that from before timedated has told the zone, whose answer may take long."""
    unit.timedate.timezone = zone
    rule = late_zone(unit)
    first = second()
    answer = unit.client.call(member, "b", local)
    last = second()
    rule.cancel()
    later = range(first + 1, last + 1)
    assert answer in ([fields(unit, seconds, zone if local else None) for seconds in later] if member == "GetTime"
                      else [(seconds, "DST" in zone) for seconds in later])


def test_the_time_that_is_told_is_that_of_the_announcement(unit):
    """With a new zone, too."""
    rule = late_zone(unit)
    first = second()
    assert unit.client.call("SetTimezone", "s", PARIS_DST) == ()
    last = second()
    rule.cancel()
    zone, time = told(unit)
    assert zone == ("TimezoneChanged", (PARIS_DST,))
    assert time in [("TimeChanged", fields(unit, seconds, PARIS_DST)) for seconds in range(first + 1, last + 1)]


@pytest.mark.parametrize("member, shape", [("GetTime", "iiiiiib"), ("GetTimeSecs", "ib")])
def test_the_time_can_be_read_without_timedated(unit, member, shape):
    """The flag is then false, and the failure is in the log."""
    unit.timedate.timezone = PARIS_DST
    unit.timedate.die()
    mark = unit.log.mark()
    reply = unit.client.call_async(member, "b", True).result()
    unit.timedate.revive()
    assert (reply.signature, reply.args[-1]) == (shape, False)
    assert lines_of(unit, mark) == [error(f"{GET_ZONE}: Cannot read property, error: {ABSENT}")]


# Setting by seconds ---------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("zone, ahead", [(LONDON, 0), (NEW_YORK, -18000), (KATHMANDU, 20700), (LORD_HOWE, 1030),
                                         (PARIS_DST, 3600), (AUCKLAND_DST, 43200)])
@pytest.mark.parametrize("seconds", [1, SECONDS, SECONDS + 180 * 86400, 2**31 - 1])
@pytest.mark.parametrize("local", [True, False])
def test_seconds_are_set(unit, zone, ahead, seconds, local):
    """As they are, or as those at which the zone's standard time reads like the UTC of the given ones."""
    unit.timedate.timezone = zone
    expected = seconds if local else seconds - ahead
    mark = unit.calls.mark()
    assert unit.client.call("SetTimeSecs", "ib", seconds, local) == ()
    assert asked(unit, mark) == [("SetTime", expected * 1_000_000, False, False)]
    assert told(unit) == ([("TimeChanged", fields(unit, expected, zone))] if expected > 0 else [])


@pytest.mark.parametrize("seconds", [0, -1, -86400, -2**31])
def test_seconds_before_the_epoch_are_refused_by_timedated(unit, seconds):
    """Which the reply does not tell; the clock stays, and nothing is announced."""
    mark, calls = unit.log.mark(), unit.calls.mark()
    assert unit.client.call("SetTimeSecs", "ib", seconds, True) == ()
    assert told(unit) == []
    assert asked(unit, calls) == [("SetTime", seconds * 1_000_000, False, False)]
    assert lines_of(unit, mark) == [debug(f"{SET_CLOCK}: usec = {seconds * 1_000_000 % 2**64}"),
                                    error(f"{SET_CLOCK}: Cannot call method: Invalid absolute time")]


def test_seconds_that_timedated_refuses(unit):
    """Are answered like others."""
    unit.faults.on("timedate", "SetTime", REFUSE)
    assert unit.client.call("SetTimeSecs", "ib", SECONDS, True) == ()
    assert told(unit) == []


# Setting by fields ----------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("zone, given, local, expected", [
    (LONDON, (2025, 6, 15, 12, 30, 5), True, utc(2025, 6, 15, 12, 30, 5)),
    (NEW_YORK, (2025, 6, 15, 12, 30, 5), True, utc(2025, 6, 15, 17, 30, 5)),
    (NEW_YORK, (2025, 6, 15, 12, 30, 5), False, utc(2025, 6, 15, 12, 30, 5)),
    (LORD_HOWE, (2025, 6, 15, 0, 17, 9), True, utc(2025, 6, 14, 23, 59, 59)),
    # What carries over.
    (NEW_YORK, (2025, 13, 1, 0, 0, 0), False, utc(2026, 1, 1)),
    (NEW_YORK, (2025, 0, 1, 0, 0, 0), False, utc(2024, 12, 1)),
    (NEW_YORK, (2025, 1, 32, 0, 0, 0), False, utc(2025, 2, 1)),
    (NEW_YORK, (2025, 2, 29, 0, 0, 0), True, utc(2025, 3, 1, 5)),
    (NEW_YORK, (2025, 1, 1, 24, 60, 60), False, utc(2025, 1, 2, 1, 1)),
    (NEW_YORK, (2025, 1, 1, 0, 0, -1), False, utc(2024, 12, 31, 23, 59, 59)),
    # Beyond what seconds in 32 bits hold.
    (NEW_YORK, (2040, 1, 1, 0, 0, 0), False, utc(2040, 1, 1)),
    # Both edges of daylight saving. The flag must be the zone's, so the fields are always those of summer time: an hour
    # that the clock leaves out, the hour that it shows twice (the first of them), and one after its end.
    (PARIS_DST, (2025, 3, 30, 1, 59, 59), True, utc(2025, 3, 29, 23, 59, 59)),
    (PARIS_DST, (2025, 3, 30, 2, 30, 0), True, utc(2025, 3, 30, 0, 30)),
    (PARIS_DST, (2025, 3, 30, 3, 0, 0), True, utc(2025, 3, 30, 1)),
    (PARIS_DST, (2025, 10, 26, 2, 30, 0), True, utc(2025, 10, 26, 0, 30)),
    (PARIS_DST, (2025, 10, 26, 3, 0, 0), True, utc(2025, 10, 26, 1)),
    (PARIS_DST, (2025, 12, 1, 12, 0, 0), True, utc(2025, 12, 1, 10)),
    (AUCKLAND_DST, (2025, 4, 6, 2, 30, 0), True, utc(2025, 4, 5, 13, 30)),
    (AUCKLAND_DST, (2025, 9, 28, 2, 30, 0), True, utc(2025, 9, 27, 13, 30)),
    (PARIS_DST, (2025, 3, 30, 2, 30, 0), False, utc(2025, 3, 30, 2, 30)),
    (PARIS_DST, (2025, 10, 26, 2, 30, 0), False, utc(2025, 10, 26, 2, 30)),
])
def test_fields_are_set(unit, zone, given, local, expected):
    """In the zone in force or in UTC, in microseconds, once; the announcement has the local fields."""
    unit.timedate.timezone = zone
    mark = unit.calls.mark()
    assert unit.client.call("SetTime", "iiiiiibb", *given, "DST" in zone, local) == ()
    assert asked(unit, mark) == [("SetTime", expected * 1_000_000, False, False)]
    assert told(unit) == [("TimeChanged", fields(unit, expected, zone))]


@pytest.mark.parametrize("zone, dst, formed", [
    (LONDON, True, "CCU/DST/London"), (PARIS_DST, False, "CCU/Paris"), ("UTC", True, "CCU/DST/UTC"),
    ("Europe/Berlin", True, "CCU/DST/Berlin")])
def test_fields_of_the_other_form(unit, zone, dst, formed):
    """Put the other form of the zone in force before they are read, and tell of it first."""
    unit.timedate.timezone = zone
    mark = unit.calls.mark()
    reply = unit.client.call_async("SetTime", "iiiiiibb", 2025, 6, 15, 12, 0, 0, dst, True)
    if formed == "CCU/DST/UTC":
        assert refused(reply.result) == CLOCK_REFUSED  # has no file
        assert asked(unit, mark) == [("SetTimezone", formed, False)] and told(unit) == []
        return
    assert reply.result().args == ()
    hours = {"CCU/DST/London": 11, "CCU/Paris": 11, "CCU/DST/Berlin": 10}[formed]
    expected = utc(2025, 6, 15, hours)
    assert asked(unit, mark) == [("SetTimezone", formed, False), ("SetTime", expected * 1_000_000, False, False)]
    assert told(unit) == [("TimezoneChanged", (formed,)), ("TimeChanged", (2025, 6, 15, 12, 0, 0, dst))]


def test_the_zone_is_refused_first(unit):
    """Then the clock is not touched."""
    unit.faults.on("timedate", "SetTimezone", REFUSE)
    mark = unit.calls.mark()
    assert refused(unit.client.call, "SetTime", "iiiiiibb", 2025, 6, 15, 12, 0, 0, True, True) == CLOCK_REFUSED
    assert [name for name, *_ in asked(unit, mark)] == ["SetTimezone"] and told(unit) == []


def test_a_zone_that_cannot_be_read_has_no_other_form(unit):
    """Without the flag the clock is set all the same; with it nothing is."""
    unit.faults.on("timedate", "Get Timezone", REFUSE)
    mark = unit.calls.mark()
    assert refused(unit.client.call, "SetTime", "iiiiiibb", 2025, 6, 15, 12, 0, 0, True, False) == CLOCK_REFUSED
    assert asked(unit, mark) == []
    assert unit.client.call("SetTime", "iiiiiibb", 2025, 6, 15, 12, 0, 0, False, False) == ()
    assert len(asked(unit, mark)) == 1


def test_a_refused_clock_announces_nothing(unit):
    """Neither the time nor the form of the zone that was changed before."""
    unit.faults.on("timedate", "SetTime", REFUSE)
    assert refused(unit.client.call, "SetTime", "iiiiiibb", 2025, 6, 15, 12, 0, 0, True, True) == CLOCK_REFUSED
    assert told(unit) == [] and unit.timedate.timezone == "CCU/DST/London"


@pytest.mark.parametrize("given", [
    (2**31 - 1, 1, 1, 0, 0, 0), (2**31 - 1, 2**31 - 1, 2**31 - 1, 2**31 - 1, 2**31 - 1, 2**31 - 1),
    (-2**31, 1, 1, 0, 0, 0), (-2**31, -2**31, -2**31, -2**31, -2**31, -2**31), (2025, -2**31, 1, 0, 0, 0),
    (300_000, 1, 1, 0, 0, 0), (-300_000, 1, 1, 0, 0, 0)])
@pytest.mark.parametrize("local", [True, False])
def test_fields_beyond_the_clock(unit, given, local):
    """Are refused before timedated is asked."""
    mark, calls = unit.log.mark(), unit.calls.mark()
    assert refused(unit.client.call, "SetTime", "iiiiiibb", *given, False, local) == CLOCK_REFUSED
    assert asked(unit, calls) == [] and told(unit) == []
    assert lines_of(unit, mark) == [error("The time to be set is beyond what the clock can hold")]


def test_fields_beyond_the_clock_of_the_other_form(unit):
    """The form is changed before the fields are read, and stays so; timedated is not asked to set the clock."""
    calls = unit.calls.mark()
    assert refused(unit.client.call, "SetTime", "iiiiiibb", 300_000, 1, 1, 0, 0, 0, True, True) == CLOCK_REFUSED
    assert asked(unit, calls) == [("SetTimezone", "CCU/DST/London", False)] and told(unit) == []


@pytest.mark.parametrize("given", [(1969, 12, 31, 23, 59, 59), (1970, 1, 1, 0, 0, 0), (-4, 2, 29, 0, 0, 0)])
def test_fields_before_the_epoch(unit, given):
    """Are refused by timedated, the last second among them."""
    calls = unit.calls.mark()
    assert refused(unit.client.call, "SetTime", "iiiiiibb", *given, False, False) == CLOCK_REFUSED
    assert len(asked(unit, calls)) == 1 and told(unit) == []


# What stands in the way -----------------------------------------------------------------------------------------------


def check_gate(unit, member):
    """A member is refused by its own text, and whether it would be is told."""
    types, arguments, text = GATED[member]
    calls = unit.calls.mark()
    assert refused(unit.client.call, member, types, *arguments) == text
    assert unit.client.get("GetTimeSourceAvailable") == 0
    assert asked(unit, calls) == [] and unit.calls.of("timedate", since=calls) == [] and told(unit) == []


@pytest.mark.parametrize("member", GATED)
def test_not_while_something_is_captured(unit, member):
    """Whatever the kind of capture."""
    unit.video.set_properties("/com/tavilon/common/Video1", {"ActiveCaptures": ["autolog"]}, emit=False)
    check_gate(unit, member)
    unit.video.set_properties("/com/tavilon/common/Video1", {"ActiveCaptures": []}, emit=False)
    assert unit.client.get("GetTimeSourceAvailable") == 1


@pytest.mark.parametrize("member", GATED)
def test_not_while_something_is_synchronised(unit, member):
    """Either."""
    unit.sync.set_active(True)
    check_gate(unit, member)
    unit.sync.set_active(False)
    assert unit.client.get("GetTimeSourceAvailable") == 1


def test_not_while_recording(unit):
    """The real thing: the clock stays as it was until the recording has ended."""
    assert unit.client.call("VideoRecordStart", "uuu", 8, 8, 90)[0] == 0
    before = list(unit.timedate.times)
    assert refused(unit.client.call, "SetTimeSecs", "ib", SECONDS, True) == NOT_NOW
    assert unit.timedate.times == before
    assert unit.client.call("VideoRecordStop")[0] == 0
    assert unit.client.call("SetTimeSecs", "ib", SECONDS, True) == ()
    assert unit.timedate.times == [*before, SECONDS * 1_000_000]


@pytest.mark.parametrize("sibling, member", [("video", "Get ActiveCaptures"), ("sync", "Get HasActiveSyncs")])
def test_who_does_not_answer_has_nothing_against_it(unit, sibling, member):
    """A sibling that refuses to say stops no one."""
    unit.faults.on(sibling, member, REFUSE)
    assert unit.client.get("GetTimeSourceAvailable") == 1
    assert unit.client.call("SetTimeSecs", "ib", SECONDS, True) == ()
    assert told(unit) == [("TimeChanged", fields(unit, SECONDS, LONDON))]


def test_what_is_asked_in_which_order(unit):
    """First whether, then what: one question after the other, and the flag once more for the announcement."""
    unit.calls.clear()
    assert unit.client.call("SetTime", "iiiiiibb", 2025, 6, 15, 12, 0, 0, True, True) == ()
    assert unit.calls.members() == [
        ("video", "Get ActiveCaptures"), ("sync", "Get HasActiveSyncs"), ("timedate", "Get Timezone"),
        ("timedate", "SetTimezone"), ("timedate", "SetTime"), ("timedate", "Get Timezone")]


def test_announcements_come_from_a_connection_of_their_own(unit):
    """From the object and interface of the controller, but not from its connection."""
    assert unit.client.call("SetTime", "iiiiiibb", 2025, 6, 15, 12, 0, 0, True, True) == ()
    assert len(told(unit)) == 2
    service = unit.client.call_bus("GetNameOwner", "s", unit.client.service)
    senders = {signal.sender for signal in unit.client.signals}
    assert len(senders) == 2 and service not in senders and not senders & set(unit.client.names())
    assert {signal.interface for signal in unit.client.signals} == {unit.client.interface}
    assert [signal.signature for signal in unit.client.signals] == ["s", "iiiiiib"]


def test_announcements_that_fail(make_unit):
    """Are in the log and nowhere else."""
    unit = make_unit(environment={"CCU_FAIL_CALLS": "sd_bus_emit_signal"})
    unit.timedate.timezone = LONDON
    mark = unit.log.mark()
    assert unit.client.call("SetTime", "iiiiiibb", 2025, 6, 15, 12, 0, 0, True, True) == ()
    assert lines_of(unit, mark) == [debug(f"{SET_ZONE}: timezone = CCU/DST/London"),
                                    debug(f"{SET_CLOCK}: usec = {utc(2025, 6, 15, 11) * 1_000_000}"),
                                    info("EmitTimezoneChange: Failed to emit signal, error code: -5"),
                                    info("EmitTimeChange: Failed to emit signal, error code: -5")]
    assert told(unit) == []


# The clock of the virtual unit ----------------------------------------------------------------------------------------


def test_the_clock_goes_on_from_where_it_was_set(unit):
    """For the daemon and for timedated, until it is the machine's again."""
    began = time.monotonic()
    unit.client.call("SetTimeSecs", "ib", SECONDS, True)
    first, _ = unit.client.call("GetTimeSecs", "b", True)
    assert SECONDS <= first <= SECONDS + (time.monotonic() - began) + 1
    unit.clock.set(SECONDS + 3600.75)
    later, _ = unit.client.call("GetTimeSecs", "b", True)
    assert SECONDS + 3600 <= later <= SECONDS + 3602 + (time.monotonic() - began)
    timedated = Client(unit.system_address, *TIMEDATED)
    assert 0 <= timedated.get("TimeUSec") / 1e6 - SECONDS - 3600.75 <= time.monotonic() - began
    timedated.close()
    unit.clock.follow()
    before = second()
    assert before <= unit.client.call("GetTimeSecs", "b", True)[0] <= second()
