"""Tests of a client, run in a unit: ccu-unit up -- /usr/bin/python3 test_client.py."""

import subprocess
import unittest

from gi.repository import Gio, GLib

NAME = "com.tavilon.common.Controller1"
PATH = "/com/tavilon/common/Controller1"


class Client:
    """What is tested: here the least of a client."""

    def __init__(self):
        self._bus = Gio.bus_get_sync(Gio.BusType.SESSION)

    def call(self, member, signature="", *arguments):
        """The answer of the controller."""
        return self._bus.call_sync(NAME, PATH, f"{NAME}.Control", member, GLib.Variant(f"({signature})", arguments), None,
                                   Gio.DBusCallFlags.NONE, -1, None).unpack()


class RecordingTest(unittest.TestCase):
    """A recording on a unit that is well, and on one that is not."""

    def setUp(self):
        self.client = Client()

    def start(self):
        """Starts a recording."""
        return self.client.call("VideoRecordStart", "uuu", 1920, 1080, 90)

    def test_a_recording(self):
        self.assertEqual(self.start(), (0, "Ran successfully"))
        self.assertEqual(self.start(), (-8, "Not in correct state to perform record action"))
        self.assertEqual(self.client.call("VideoRecordStop"), (0, "Ran successfully"))

    def test_a_unit_that_runs_low(self):
        subprocess.run(["ccu-unit", "do", "storage", "low", "card", "on"], check=True)
        self.addCleanup(subprocess.run, ["ccu-unit", "do", "storage", "low", "card", "off"], check=True)
        self.assertEqual(self.start(), (-3, "Storage is too low - unable to record"))


if __name__ == "__main__":
    unittest.main()
