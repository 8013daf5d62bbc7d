"""A lasting connection that is lost ends the daemon, so that its supervisor starts it again."""

import contextlib
import os
import shutil
import socket
import tempfile
import threading

import pytest

from tests.integration.playback_texts import PAUSE
from tests.integration.recording_texts import KINDS, MESSAGES, Watch, debug, error, info, left_over
from virtual_unit import PATIENCE, SILENT, DbusFailure, VirtualUnit
from virtual_unit.bus import PrivateBus
from virtual_unit.folders import folder_of_units

#: What the end of a lasting connection leaves in the log, and nothing else.
LOST = [info("Failed to start main event loop"), info("Exiting..\n")]
#: The listener's, those of the three siblings that are listened to, and the server's.
LASTING = 5


@pytest.fixture(name="unit")
def unit_of_a_tests_own(own_unit):
    """A unit that is not the same afterwards."""
    return own_unit


def test_a_bus_that_ends_ends_the_daemon(unit):
    watch = Watch(unit)
    unit.stop_bus()
    assert unit.wait_exit() == 1
    assert watch.lines == LOST


def test_a_bus_that_ends_in_mid_call_fails_the_call_and_ends_the_daemon(unit):
    unit.faults.on("video", "PausePlayback", kind=SILENT)
    watch = Watch(unit)
    unit.client.call_async("VideoPlaybackPause")
    unit.calls.wait_for("video", "PausePlayback")
    unit.stop_bus()
    assert unit.wait_exit() == 1
    assert watch.lines == [
        info(f"{PAUSE} called"), debug("Videod: VideoDaemonDbusHandler::PausePlayback"),
        error("sd_bus_call_method PausePlayback failed: Connection reset by peer (r = -104)"),
        error("Video::PausePlayback(): Failed to pause playback\n"),
        error("[PlaybackError::ErrorReason] Unknown error"), *LOST]


def test_a_bus_that_ends_in_mid_start_ends_the_daemon(make_unit):
    unit = make_unit(daemon=False)
    unit.faults.on("settings", kind=SILENT)
    unit.start_daemon(wait=False)
    unit.calls.wait_for("settings")
    unit.stop_bus()
    assert unit.wait_exit() == 1
    assert unit.daemon.notifications == ["READY=1"]


@pytest.mark.parametrize("kind", KINDS, ids=str)
def test_a_recording_outlives_the_bus_and_is_saved_by_the_daemon_that_is_started_again(unit, kind):
    paths = kind.start_recording(unit)
    unit.stop_bus()
    assert unit.wait_exit() == 1
    assert left_over(unit) == paths.names
    unit.renew_bus()
    unit.start_daemon()
    unit.settle()
    assert unit.video.state(kind.name) == 1
    unit.video.grow(kind.name, size=5000)
    assert kind.order(unit, "Stop") == (0, MESSAGES[0])
    assert left_over(unit) == [os.path.basename(paths.media)]
    assert unit.jobs.item_of(paths.media).size == os.path.getsize(paths.media)


# One connection alone -------------------------------------------------------------------------------------------------


def test_a_bus_that_throws_the_server_out_for_its_limits_ends_the_daemon():
    """The bus takes no message that is longer than this from anybody, and closes the connection that sends one."""
    class Unit(VirtualUnit):
        """A unit with a mean bus."""

        def _make_bus(self, kind):
            return PrivateBus(self.directory, kind, limits={"max_message_size": 4096})

    with Unit() as unit:
        watch = Watch(unit)
        with pytest.raises(DbusFailure, match="NoReply"):
            unit.client.introspect()
        assert unit.wait_exit() == 1
        assert watch.lines == LOST


class Door:
    """Stands between the daemon and its bus, and can shut out one connection."""

    def __init__(self):
        self._folder = tempfile.mkdtemp(prefix="ccu-door-", dir=folder_of_units())
        self.address = f"unix:path={self._folder}/door"
        self._listening = socket.socket(socket.AF_UNIX)
        self._listening.bind(f"{self._folder}/door")
        self._listening.listen(64)
        self._open = []  # (the daemon's end, the bus's end), in the order in which they were made
        self._changed = threading.Condition()
        self._threads = []

    def lead_to(self, address):
        """Lets connections through to the bus from now on."""
        self._start(self._accept, address.partition("unix:path=")[2].partition(",")[0])

    def _start(self, function, *arguments):
        thread = threading.Thread(target=function, args=arguments, daemon=True)
        self._threads.append(thread)
        thread.start()

    def _accept(self, path):
        with contextlib.suppress(OSError):  # the end of the listening
            while True:
                caller = self._listening.accept()[0]
                callee = socket.socket(socket.AF_UNIX)
                callee.connect(path)
                with self._changed:
                    self._open.append((caller, callee))
                self._start(self._carry, caller, callee, (caller, callee))
                self._start(self._carry, callee, caller, (caller, callee))

    def _carry(self, source, target, pair):
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                target.sendall(data)
        for end in pair:
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)
        with self._changed:
            if pair in self._open:
                self._open.remove(pair)
            self._changed.notify_all()

    def wait_open(self, count, timeout=PATIENCE):
        """Waits until that many connections are left."""
        with self._changed:
            assert self._changed.wait_for(lambda: len(self._open) == count, timeout), self._open

    def cut(self, index):
        """Ends one connection, counted in the order in which they were made."""
        for end in self._open[index]:
            end.shutdown(socket.SHUT_RDWR)

    def close(self):
        """Ends everything."""
        self._listening.shutdown(socket.SHUT_RDWR)
        with self._changed:
            ends = [end for pair in self._open for end in pair]
        for end in ends:
            end.shutdown(socket.SHUT_RDWR)
        for thread in self._threads:
            thread.join()
        self._listening.close()
        shutil.rmtree(self._folder)


@pytest.fixture(name="door")
def closed_door():
    """A door, which is closed at the end."""
    door = Door()
    yield door
    door.close()


@pytest.mark.parametrize("index", range(LASTING), ids=["listener", "settings", "video", "storage", "server"])
def test_one_lasting_connection_that_is_cut_ends_the_daemon(door, make_unit, index):
    unit = make_unit(daemon=False, environment={"DBUS_SESSION_BUS_ADDRESS": door.address})
    door.lead_to(unit.session_address)
    unit.start_daemon()
    unit.client.sync()
    door.wait_open(LASTING)
    watch = Watch(unit)
    door.cut(index)
    assert unit.wait_exit() == 1
    assert watch.lines == LOST


def test_a_passing_connection_that_is_cut_fails_its_call_alone(door, make_unit):
    unit = make_unit(daemon=False, environment={"DBUS_SESSION_BUS_ADDRESS": door.address})
    door.lead_to(unit.session_address)
    unit.start_daemon()
    unit.client.sync()
    door.wait_open(LASTING)
    unit.faults.on("video", "PausePlayback", kind=SILENT)
    call = unit.client.call_async("VideoPlaybackPause")
    unit.calls.wait_for("video", "PausePlayback")
    door.cut(LASTING)
    assert call.result(PATIENCE).args == (-1, "Unknown error")
    assert unit.client.call("VideoPlaybackResume")[0] == -1
    assert unit.daemon_alive
