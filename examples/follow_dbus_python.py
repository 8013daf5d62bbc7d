#!/usr/bin/python3
"""Records, and follows the time zone, with dbus-python: follow_dbus_python.py [ZONE]"""

import sys

import dbus
import dbus.mainloop.glib
from gi.repository import GLib

SERVICE, PATH = "com.tavilon.common.Controller1", "/com/tavilon/common/Controller1"
CONTROL = SERVICE + ".Control"
awaited = {"TimezoneChanged", "TimeChanged"}
loop = GLib.MainLoop()


def heard(*_values, member):
    """Whatever the controller emits."""
    if member in awaited:
        awaited.remove(member)
        print(member)
    if not awaited:
        loop.quit()


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
proxy = bus.get_object(SERVICE, PATH)
# By path and interface, without a bus_name: a match on the service misses the two, as does proxy.connect_to_signal.
bus.add_signal_receiver(heard, path=PATH, dbus_interface=CONTROL, member_keyword="member")

zone = proxy.Get(CONTROL, "GetTimezone", dbus_interface=dbus.PROPERTIES_IFACE)
print("zone:", zone)
code, message = proxy.VideoRecordStart(1920, 1080, 90, dbus_interface=CONTROL, timeout=120)
print("start:", message)
if code == 0:
    print("stop:", proxy.VideoRecordStop(dbus_interface=CONTROL, timeout=120)[1])

proxy.SetTimezone(sys.argv[1] if len(sys.argv) > 1 else zone, dbus_interface=CONTROL, timeout=120)
loop.run()
# Asked for again, since no PropertiesChanged tells of it.
print("zone:", proxy.Get(CONTROL, "GetTimezone", dbus_interface=dbus.PROPERTIES_IFACE))
