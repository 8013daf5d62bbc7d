#!/usr/bin/python3
"""Records, and follows the time zone, with GDBus: follow_gdbus.py [ZONE]"""

import sys

from gi.repository import Gio, GLib

SERVICE, PATH = "com.tavilon.common.Controller1", "/com/tavilon/common/Controller1"
CONTROL = SERVICE + ".Control"
MILLISECONDS = 120_000
awaited = {"TimezoneChanged", "TimeChanged"}
loop = GLib.MainLoop()


def heard(_bus, _sender, _path, _interface, member, _values):
    """Whatever the controller emits."""
    if member in awaited:
        awaited.remove(member)
        print(member)
    if not awaited:
        loop.quit()


def call(member, signature="()", *arguments):
    """Calls a method."""
    return proxy.call_sync(member, GLib.Variant(signature, arguments), Gio.DBusCallFlags.NONE, MILLISECONDS).unpack()


bus = Gio.bus_get_sync(Gio.BusType.SESSION)
proxy = Gio.DBusProxy.new_sync(bus, Gio.DBusProxyFlags.NONE, None, SERVICE, PATH, CONTROL)
# By path and interface, without a sender: the proxy's own "g-signal" never tells of the two.
bus.signal_subscribe(None, CONTROL, None, PATH, None, Gio.DBusSignalFlags.NONE, heard)

zone = proxy.get_cached_property("GetTimezone").unpack()
print("zone:", zone)
code, message = call("VideoRecordStart", "(uuu)", 1920, 1080, 90)
print("start:", message)
if code == 0:
    print("stop:", call("VideoRecordStop")[1])

call("SetTimezone", "(s)", sys.argv[1] if len(sys.argv) > 1 else zone)
loop.run()
# Asked for again, since no PropertiesChanged brings the proxy's cache up to date.
print("cached:", proxy.get_cached_property("GetTimezone").unpack())
print("zone:", call("org.freedesktop.DBus.Properties.Get", "(ss)", CONTROL, "GetTimezone")[0])
