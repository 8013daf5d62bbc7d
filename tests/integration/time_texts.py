"""What clock and zone leave in the log, and how the tests read and set them."""

import time
from datetime import datetime, timezone
from zoneinfo import ZoneInfo

import pytest

from tests.integration.recording_texts import error, info
from virtual_unit import DbusFailure, zones

_CLOCK_REALTIME_COARSE = 5  # of Linux

LONDON = "CCU/London"
TIME = "/com/tavilon/common/Settings1/time"

NOT_NOW = "Cannot set time now"
NOT_RIGHT_NOW = "Cannot set time right now"
NO_FIX = "No GPS Fix"
CLOCK_REFUSED = "Failed to set time via systemd-datetimed"
ZONE_REFUSED = "Failed to set Timezone via systemd-datetimed"

ABSENT = "The name org.freedesktop.timedate1 was not provided by any .service files"
GET_ZONE = "int SystemdDateTime::GetTimezone(std::__cxx11::string&)"
SET_ZONE = "int SystemdDateTime::SetTimezone(std::__cxx11::string)"
SET_CLOCK = "int SystemdDateTime::SetTime(uint64_t)"
SETTINGS_CHANGED = "void ControllerDaemon::TimeManager::TimeSettingsChanged(sdbus_utils::TypedPropertyMap&)"
GET_SETTING = "static int32_t Settingsd::SettingsDaemonDbusHandler::GetSetting(const string&, const string&, T&) "

#: The list of the zones that the unit's image has.
LIST = sorted([zone.name for zone in zones.table()] + ["UTC"])
LIST_LINE = info(", ".join(LIST))
NO_DEFAULTS = error("int ControllerDaemon::TimeManager::SetDefaultSettings(): Failed to get default time settings")

#: The methods that change something, with arguments that change something, and the text by which they are refused.
#: SetTimezoneUTC is none of them: it is never refused for what the unit is doing.
GATED = {
    "SetTime": ("iiiiiibb", (2025, 6, 1, 12, 0, 0, False, False), NOT_NOW),
    "SetTimeSecs": ("ib", (1_700_000_000, True), NOT_NOW),
    "SetTimezone": ("s", ("Berlin",), NOT_NOW),
    "SetDst": ("b", (True,), NOT_NOW),
    "SetTimeGPS": ("", (), NOT_RIGHT_NOW),
    "SetTimezoneGPS": ("", (), NOT_RIGHT_NOW),
}


def second():
    """The second that time(2) gives, which turns a little later than that of finer clocks."""
    return int(time.clock_gettime(_CLOCK_REALTIME_COARSE))


def is_of_the_start(text):
    """Whether a line is of what clock and zone do at the start, or fail to do."""
    return text == LIST_LINE[1] or any(word in text for word in (
        "SystemdDateTime", "TimeManager::SetDefaultSettings", "UpdateTimezone", "GetProperty zone ",
        "GetProperty dst "))


def without_clock(lines):
    """The lines of a start that are others' business."""
    return [(priority, text) for priority, text in lines if not is_of_the_start(text)]


def zone_set(old, new):
    """The line of a zone that the settings have changed."""
    return info(f"UpdateTimezone: Setting Timezone from {old} -> {new}")


def refused(function, *call):
    """The text that a call is refused with; the name is that of every refusal."""
    with pytest.raises(DbusFailure) as caught:
        function(*call)
    assert caught.value.name == "org.freedesktop.DBus.Error.Failed"
    return caught.value.text


def rules(unit, zone):
    """What is known of a zone's time, read from its file by another reader."""
    with open(zones.file_of(unit.zones_folder, zone), "rb") as file:
        return ZoneInfo.from_file(file)


def fields(unit, seconds, zone=None):
    """The fields of a moment with the zone's flag: those of a zone, or those of UTC."""
    moment = datetime.fromtimestamp(seconds, rules(unit, zone) if zone else timezone.utc)
    in_force = unit.timedate.timezone
    return (moment.year, moment.month, moment.day, moment.hour, moment.minute, moment.second, "DST" in in_force)


@pytest.fixture(name="unit")
def london_fixture(shared):
    """Without faults, and without anything behind it: the unit in London, as its settings say."""
    shared.faults.clear()
    shared.settings.set_properties(TIME, {"zone": "London", "dst": False})
    shared.settle()
    shared.timedate.timezone = LONDON
    shared.settle()
    shared.client.clear()
    return shared


def told(unit):
    """The signals of clock and zone since the client's last `clear`: (name, arguments), from whatever connection."""
    unit.client.sync()
    return [(signal.member, signal.args) for signal in unit.client.signals
            if signal.member in ("TimeChanged", "TimezoneChanged")]


def zone_told(unit, zone):
    """Whether exactly the zone and then the time have been told."""
    signals = told(unit)
    assert [name for name, _ in signals] == ["TimezoneChanged", "TimeChanged"]
    return signals[0][1] == (zone,) and signals[1][1][-1] is ("DST" in zone)


def asked(unit, mark):
    """The calls since the mark that change something at timedated, with their arguments."""
    return [(call.member, *call.arguments) for call in unit.calls.since(mark)
            if call.sibling == "timedate" and call.member in ("SetTime", "SetTimezone", "SetNTP")]
