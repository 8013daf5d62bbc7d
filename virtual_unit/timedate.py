"""Stand-in for systemd-timedated: keeps what it is told and never touches the machine's clock."""

import time

from .sibling import Refusal, Sibling

_PATH = "/org/freedesktop/timedate1"


class Timedate(Sibling):
    """`times` holds the microseconds that the clock was set to, `timezones` and `ntp` what else was ordered."""

    name = "timedate"
    service = "org.freedesktop.timedate1"

    def __init__(self, unit, address):
        self.times = []
        self.timezones = []
        self.ntp = []
        super().__init__(unit, address)

    def initial_values(self, path):
        now = time.time_ns() // 1000
        return {"Timezone": "CCU/London", "CanNTP": True, "NTP": True, "NTPSynchronized": True, "TimeUSec": now,
                "RTCTimeUSec": now}

    @property
    def timezone(self):
        """The zone in force."""
        return self.get_property(_PATH, "Timezone")

    @timezone.setter
    def timezone(self, zone):
        self.set_property(_PATH, "Timezone", zone)

    # Behaviours -------------------------------------------------------------------------------------------------------

    def on_SetTime(self, path, usec, relative, _interactive):
        """Sets the clock, which is refused while it is kept by the network."""
        if self.get_property(path, "NTP"):
            raise Refusal("org.freedesktop.timedate1.AutomaticTimeSyncEnabled",
                          "Automatic time synchronization is enabled")
        self.times.append(usec)
        base = self.get_property(path, "TimeUSec") if relative else 0
        self.set_properties(path, {"TimeUSec": base + usec, "RTCTimeUSec": base + usec}, emit=False)

    def on_SetTimezone(self, path, zone, _interactive):
        """Sets the zone."""
        if not zone or zone.startswith("/") or ".." in zone:
            raise Refusal("InvalidArgs", f"Invalid or not installed time zone '{zone}'")
        self.timezones.append(zone)
        self.set_property(path, "Timezone", zone)

    def on_SetNTP(self, path, enabled, _interactive):
        """Switches the network clock."""
        self.ntp.append(enabled)
        self.set_property(path, "NTP", enabled)

    def on_SetLocalRTC(self, path, local, _fix_system, _interactive):
        """Whether the hardware clock keeps local time."""
        self.set_property(path, "LocalRTC", local)

    def on_ListTimezones(self, _path):
        """The zones that were set, and UTC."""
        return ["UTC", *sorted(set(self.timezones) - {"UTC"})]
