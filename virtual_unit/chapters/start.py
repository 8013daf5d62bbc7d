"""The unit comes up: buses, siblings, and the daemon as its supervisor sees it."""

from ..client import Client
from ..unit import ALL_SIBLINGS

_PURPOSES = {
    "storage": "internal and removable storage",
    "video": "camera, encoders and player",
    "jobs": "jobs and the media items in them",
    "settings": "what the user has set",
    "hardware": "power, reel, camera head, keypad, LEDs",
    "sync": "copies of jobs to elsewhere",
    "timedate": "clock and time zone",
}


#: The start brings clock and zone in line with the settings.
_ASKED = [("timedate", "SetNTP"), ("settings", "Get zone"), ("settings", "Get dst"), ("timedate", "Get Timezone")]


def _names(address):
    client = Client(address)
    try:
        return client.names()
    finally:
        client.close()


def play(stage):
    """Shows everything that there is before the first call."""
    unit = stage.unit
    stage.tell("A unit is two private buses, simulated siblings of the daemon, and the daemon itself, unmodified. Its "
               "folder, which goes when the unit goes, is called UNIT below.")
    services = {name: getattr(unit, name).service for name in ALL_SIBLINGS}
    names = {address: _names(address) for address in (unit.session_address, unit.system_address)}
    on_system_bus = [name for name, service in services.items() if service in names[unit.system_address]]
    on_session_bus = [name for name, service in services.items() if service in names[unit.session_address]]
    stage.check("on the system bus", on_system_bus, ["timedate"], "the stand-in for timedated")
    stage.check("on the session bus", on_session_bus, [name for name in services if name != "timedate"],
                f"{len(on_session_bus)} siblings, all after {stage.unit_ms:.0f} ms")
    stage.show.table((name, service, _PURPOSES[name]) for name, service in services.items())
    stage.check("the daemon tells its supervisor", unit.daemon.notifications, ["READY=1"],
                f"READY=1, {stage.daemon_ms:.0f} ms after its start")
    stage.check("... and owns its name", unit.client.service in names[unit.session_address], True, unit.client.service)
    zones = unit.client.get("GetTimezoneList")
    stage.check("... and has logged", unit.log.texts(),
                ["syslog controller daemon started", "The controller is enabled", ", ".join(zones)],
                f"its start, and the {len(zones)} time zones of the unit")
    stage.check("... and has asked its siblings", unit.calls.members(), _ASKED, f"{len(_ASKED)} calls, in this order:")
    stage.show.table(_ASKED)
