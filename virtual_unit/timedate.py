"""Stand-in for systemd-timedated: keeps what it is told, sets the unit's clock and never touches the machine's."""

from . import zones
from .loop import on_loop
from .sibling import Refusal, Sibling

#: The kernel takes no clock from 2232 on: 30 years before its nanoseconds end.
_KERNEL_END_USEC = (9223372036 - 30 * 365 * 86400) * 1_000_000

_PATH = "/org/freedesktop/timedate1"
_TIMES = ("TimeUSec", "RTCTimeUSec")


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
        return {"Timezone": zones.INITIAL, "CanNTP": True, "NTP": True, "NTPSynchronized": True}

    def get_property(self, path, name):
        return self.unit.clock.now_usec() if name in _TIMES else super().get_property(path, name)

    def refresh(self, path):
        if path in self.objects:
            self.objects[path].values.update(dict.fromkeys(_TIMES, self.unit.clock.now_usec()))

    @property
    def timezone(self):
        """The zone in force; the daemon's local time follows it."""
        return self.get_property(_PATH, "Timezone")

    @timezone.setter
    def timezone(self, zone):
        self.set_property(_PATH, "Timezone", zone)

    @property
    def keeps_network_time(self):
        """Whether the network keeps the clock."""
        return self.get_property(_PATH, "NTP")

    @keeps_network_time.setter
    def keeps_network_time(self, on):
        self.set_property(_PATH, "NTP", on)

    @on_loop
    def set_properties(self, path, changes, emit=True):
        if "Timezone" in changes:
            self.unit.point_local_time(changes["Timezone"])
        super().set_properties(path, changes, emit)

    # Behaviours -------------------------------------------------------------------------------------------------------

    def on_SetTime(self, path, usec, relative, _interactive):
        """Sets the clock, unless it is kept by the network; not to the epoch or before, nor to 2232 or later."""
        if self.get_property(path, "NTP"):
            raise Refusal("org.freedesktop.timedate1.AutomaticTimeSyncEnabled",
                          "Automatic time synchronization is enabled")
        if not relative and usec <= 0:
            raise Refusal("InvalidArgs", "Invalid absolute time")
        moment = (self.unit.clock.now_usec() if relative else 0) + usec
        if not 0 < moment < _KERNEL_END_USEC:
            raise Refusal("InvalidArgs", "Failed to set local time: Invalid argument")
        self.times.append(usec)
        self.unit.clock.set_usec(moment)

    def on_SetTimezone(self, path, zone, _interactive):
        """Sets the zone, which must have a zone file."""
        if not zones.is_installed(self.unit.zones_folder, zone):
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
        """The zones that can be set."""
        return zones.installed(self.unit.zones_folder)
