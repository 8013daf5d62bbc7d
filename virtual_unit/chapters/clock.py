"""The clock and its zone: set by hand, by name, by offset, by GPS and by the settings, and left alone while recording."""

import datetime
import zoneinfo

from .. import zones
from ..client import DbusFailure
from .captures import start, stop

_TIME = "/com/tavilon/common/Settings1/time"

#: Where the GPS receiver is, and what time it tells.
_PARIS = (48.8566, 2.3522)
_GPS_TIME = datetime.datetime(2026, 7, 14, 9, 30, 0, tzinfo=datetime.timezone.utc)

#: Zones and what their standard time is ahead of UTC.
_WALK = (("Kathmandu", "5:45"), ("Hawaii", "-10:00"), ("Lord_Howe", "0:17:10"))

_TOLERANCE_SECONDS = 10


def play(stage):
    """Every way to set clock and zone, and what stands in the way."""
    _read(stage)
    _set_clock(stage)
    _walk(stage)
    _save_daylight(stage)
    _refuse(stage)
    _ask_gps(stage)
    _follow_settings(stage)


# What comes of it -----------------------------------------------------------------------------------------------------


def _rules(stage):
    with open(zones.file_of(stage.unit.zones_folder, stage.unit.timedate.timezone), "rb") as file:
        return zoneinfo.ZoneInfo.from_file(file)


def _moment(values, rules):
    return datetime.datetime(*values[:6], tzinfo=rules)


def _is_now(stage, values):
    now = datetime.datetime.fromtimestamp(stage.unit.clock.now(), datetime.timezone.utc)
    return abs((_moment(values, _rules(stage)) - now).total_seconds()) < _TOLERANCE_SECONDS


def _check_told(stage, zone=None, seconds=None):
    """Compares what clients are told: a zone, then a time, which is now unless its seconds are given."""
    dst = "DST" in stage.unit.timedate.timezone
    signals = stage.take_signals()
    stage.check("clients are told", [name for name, *_ in signals],
                [*(["TimezoneChanged"] if zone else []), "TimeChanged"])
    if zone:
        stage.check("... of the zone", signals[0][1:], (zone,), zone)
    values = signals[-1][1:]
    local = f"{values[0]}-{values[1]:02}-{values[2]:02} {values[3]:02}:{values[4]:02}:{values[5]:02}"
    right = _is_now(stage, values) if seconds is None else _moment(values, _rules(stage)).timestamp() == seconds
    stage.check("... of the local time", (right, values[6]), (True, dst), local + (", daylight saving" if dst else ""))


def _done(stage, member, *arguments):
    return stage.check("reply", stage.call(member, *arguments), (), "empty")


def _refused(stage, text, member, *arguments):
    answer = stage.call(member, *arguments)
    stage.check("refused", answer.text if isinstance(answer, DbusFailure) else answer, text, f'"{text}"')
    stage.check("told to timedated", [member for sibling, member in stage.calls
                                      if sibling == "timedate" and member.startswith("Set")], [], "nothing")


def _check_zone(stage, zone):
    stage.check("zone at timedated", stage.unit.timedate.timezone, zone)


# The steps ------------------------------------------------------------------------------------------------------------


def _read(stage):
    unit = stage.unit
    stage.tell("systemd-timedated keeps clock and zone; here it is a stand-in, so that no clock of this machine moves. "
               "At its start the daemon has taken the clock from the network and the zone from the settings.")
    stage.check("kept by the network", unit.timedate.ntp, [False], "no")
    stage.check("zone", unit.client.get("GetTimezone"), "London")
    stage.check("daylight saving", unit.client.get("GetDst"), False)
    stage.check("zones on the unit", len(unit.client.get("GetTimezoneList")), 71)
    stage.check("local time is now", _is_now(stage, stage.call("GetTime", True)), True)


def _set_clock(stage):
    stage.tell("An operator sets the clock.")
    moment = datetime.datetime(2026, 1, 31, 12, 30, 0, tzinfo=_rules(stage))
    _done(stage, "SetTime", 2026, 1, 31, 12, 30, 0, False, True)
    stage.check("microseconds at timedated", stage.unit.timedate.times[-1], int(moment.timestamp()) * 1_000_000)
    _check_told(stage, seconds=moment.timestamp())
    stage.check("the clock goes on from there", _is_now(stage, stage.call("GetTime", True)), True)


def _walk(stage):
    stage.tell("The unit travels. The process's own local time follows, without a restart.")
    for name, ahead in _WALK:
        _done(stage, "SetTimezone", name)
        _check_zone(stage, f"CCU/{name}")
        stage.show.event(f"standard time is {ahead} ahead of UTC there")
        _check_told(stage, zone=f"CCU/{name}")
    stage.tell("A zone can be found by its offset from UTC, too; of several the first by name is taken.")
    stage.check("reply", stage.call("GetTimezoneFromUTC", -18000, False), ("CCU/Bogota",), "CCU/Bogota")
    _done(stage, "SetTimezoneUTC", 43200, False)
    _check_told(stage, zone="CCU/Auckland")


def _save_daylight(stage):
    stage.tell("Each zone has a form with daylight saving. Summer is at the turn of the year in Auckland.")
    _done(stage, "SetDst", True)
    _check_zone(stage, "CCU/DST/Auckland")
    _check_told(stage, zone="CCU/DST/Auckland")
    moment = datetime.datetime(2026, 1, 15, 12, 0, 0, tzinfo=_rules(stage))
    _done(stage, "SetTime", 2026, 1, 15, 12, 0, 0, True, True)
    stage.check("... which is 13 hours ahead of UTC", moment.utcoffset(), datetime.timedelta(hours=13), "yes")
    _check_told(stage, seconds=moment.timestamp())
    stage.tell("The form can come along with a time.")
    _done(stage, "SetTime", 2026, 7, 15, 12, 0, 0, False, True)
    moment = datetime.datetime(2026, 7, 15, 12, 0, 0, tzinfo=_rules(stage))
    _check_told(stage, zone="CCU/Auckland", seconds=moment.timestamp())


def _refuse(stage):
    unit = stage.unit
    stage.tell("A zone that the unit does not have.")
    _refused(stage, "Atlantis is not installed in the list of CCU timezones", "SetTimezone", "Atlantis")
    stage.tell("No clock jumps under a recording, nor under a sync.")
    start(stage)
    _refused(stage, "Cannot set time now", "SetTimeSecs", 1_800_000_000, True)
    _refused(stage, "Cannot set time right now", "SetTimeGPS")
    stage.check("the time could be set", unit.client.get("GetTimeSourceAvailable"), 0, "no")
    stop(stage)
    stage.happen("the sync daemon copies the job", unit.sync.set_active, True)
    _refused(stage, "Cannot set time now", "SetDst", True)
    stage.happen("the copy is complete", unit.sync.set_active, False)
    stage.check("the time could be set", unit.client.get("GetTimeSourceAvailable"), 1, "yes")


def _ask_gps(stage):
    gps = stage.unit.gps
    stage.tell("Time and place come from gpsd, which is Debian's own here, on a receiver that is simulated.")
    _refused(stage, "No GPS Fix", "SetTimeGPS")
    stage.happen("gpsd is started; its receiver looks for satellites", gps.no_fix)
    _refused(stage, "No GPS Fix", "SetTimezoneGPS")
    stage.happen("the receiver has found itself in Paris", gps.fix_3d, *_PARIS, _GPS_TIME)
    _done(stage, "SetTimeGPS")
    stage.check("microseconds at timedated", stage.unit.timedate.times[-1], int(_GPS_TIME.timestamp()) * 1_000_000)
    _check_told(stage, seconds=_GPS_TIME.timestamp())
    _done(stage, "SetTimezoneGPS")
    _check_told(stage, zone="CCU/Paris")


def _follow_settings(stage):
    stage.tell("The settings win whenever they change.")
    stage.happen('the settings change: zone "Athens", with daylight saving', stage.unit.settings.set_properties, _TIME,
                 {"zone": "Athens", "dst": True})
    _check_told(stage, zone="CCU/DST/Athens")
