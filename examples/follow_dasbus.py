#!/usr/bin/python3
"""Records, and follows the time zone, with dasbus: follow_dasbus.py [ZONE]"""

import sys

from dasbus.client.handler import GLibClient
from dasbus.connection import SessionMessageBus
from dasbus.loop import EventLoop

SERVICE, PATH = "com.tavilon.common.Controller1", "/com/tavilon/common/Controller1"
CONTROL = SERVICE + ".Control"
MILLISECONDS = 120_000
awaited = ["TimezoneChanged", "TimeChanged"]
loop = EventLoop()


def heard(member):
    """Notes one of the two signals."""
    awaited.remove(member)
    print(member)
    if not awaited:
        loop.quit()


bus = SessionMessageBus()
controller = bus.get_proxy(SERVICE, PATH, interface_name=CONTROL)
# By path and interface, without a service: controller.TimezoneChanged.connect never tells of the two.
for name in awaited:
    GLibClient.subscribe_signal(bus.connection, None, PATH, CONTROL, name,
                                lambda _values, member: heard(member), callback_args=(name,))

zone = controller.GetTimezone
print("zone:", zone)
code, message = controller.VideoRecordStart(1920, 1080, 90, timeout=MILLISECONDS)
print("start:", message)
if code == 0:
    print("stop:", controller.VideoRecordStop(timeout=MILLISECONDS)[1])

controller.SetTimezone(sys.argv[1] if len(sys.argv) > 1 else zone, timeout=MILLISECONDS)
loop.run()
# A property of a dasbus proxy is asked for each time: keep none of these, no PropertiesChanged tells of them.
print("zone:", controller.GetTimezone)
