#!/usr/bin/python3
"""A small program in the daemon's place: owns the controller's name, obeys the members below, logs to syslog(3)."""

import os
import signal
import socket
import sys
import syslog

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

_INTERFACE = "com.tavilon.common.Controller1.Control"


class Controller(dbus.service.Object):
    """The controller's object with members for the tests."""

    @dbus.service.method(_INTERFACE, in_signature="s", out_signature="is")
    def Say(self, text):
        """Logs the text, signals and answers it."""
        syslog.syslog(syslog.LOG_INFO, text)
        self.Said(text)
        return 0, text

    @dbus.service.method(_INTERFACE, in_signature="i", out_signature="")
    def Leave(self, status):
        """Ends the process at once."""
        os._exit(status)

    @dbus.service.method(_INTERFACE, in_signature="s", out_signature="s")
    def Environment(self, name):
        """The value of a variable."""
        return os.environ.get(name, "")

    @dbus.service.signal(_INTERFACE, signature="s")
    def Said(self, text):
        """What was said."""


def _on_video_changed(interface, changed, _invalidated):
    syslog.syslog(syslog.LOG_DEBUG, f"changed {interface} {sorted(map(str, changed))}")


def main():
    """Runs until SIGTERM; $STAND_IN tells what goes wrong."""
    mode = os.environ.get("STAND_IN", "")
    if mode == "dies before ready":
        sys.exit(3)
    if mode == "ignores SIGTERM":
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    bus.add_signal_receiver(_on_video_changed, "PropertiesChanged", "org.freedesktop.DBus.Properties",
                            path="/com/tavilon/common/Video1")
    name = dbus.service.BusName("com.tavilon.common.Controller1", bus)
    controller = Controller(name, "/com/tavilon/common/Controller1")
    if mode == "sanitizer report":
        with open("sanitizer.1", "w", encoding="utf-8") as file:
            file.write("ERROR: AddressSanitizer: something bad")
    loop = GLib.MainLoop()
    if mode != "ignores SIGTERM":
        GLib.unix_signal_add(GLib.PRIORITY_HIGH, signal.SIGTERM, loop.quit)
    notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    notify.sendto(b"READY=1", os.environ["NOTIFY_SOCKET"])
    loop.run()
    del controller


if __name__ == "__main__":
    main()
