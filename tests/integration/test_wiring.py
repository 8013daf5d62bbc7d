"""Which signals of the siblings the daemon follows, and that it runs on where it cannot."""

import os

import pytest

from tests.integration.recording_texts import CARD, KINDS, VIDEO, info, lines_of
from virtual_unit import Typed

VIDEO_PATH = "/com/tavilon/common/Video1"
CONTROL = "com.tavilon.common.Video1.Control"
STORAGE = "com.tavilon.common.StorageDaemon1"
PROPERTIES = "org.freedesktop.DBus.Properties"


def news(unit, act):
    """The lines and calls that something causes in the daemon."""
    unit.settle()
    mark, calls = unit.log.mark(), unit.calls.mark()
    act()
    unit.settle()
    return lines_of(unit, mark), unit.calls.members(since=calls)


def test_a_storage_device_that_appears_causes_nothing(unit):
    # Only its properties of the manager object change besides, which is no device.
    assert news(unit, lambda: unit.storage.add_device("stick", os.path.join(unit.directory, "stick"))) == ([], [])


def test_a_storage_device_that_goes_reaches_the_client_and_the_recording(unit):
    lines, calls = news(unit, lambda: unit.storage.remove_device("card"))
    assert lines[0] == info("[StorageDaemonDbusHandler] Interface Removed\n")
    assert [call for call in calls if call[1].endswith("State")] == [kind.state_call for kind in KINDS]


def test_settings_that_change_reach_nobody_who_would_say_so(unit):
    assert news(unit, lambda: unit.settings.change("display", {"brightness": 10})) == ([], [])


@pytest.mark.parametrize("kind", KINDS, ids=str)
def test_growth_reaches_the_recording_of_its_kind_alone(unit, kind):
    lines, _ = news(unit, lambda: unit.video.emit(VIDEO_PATH, CONTROL, f"{kind.prefix}Grew", "/x.mp4", False))
    assert lines[0] == info(f"{kind.grown} - {kind.word} capture /x.mp4 size changed.  Updating media item.")
    assert not any(other.capture in text for other in KINDS if other is not kind for _, text in lines)


@pytest.mark.parametrize("changes", [{"PlaybackFilename": "/x.mp4"}, {"CaptureZoom": 2.0}, {}])
def test_other_properties_of_the_video_daemon_cause_nothing(unit, changes):
    assert news(unit, lambda: unit.video.emit_changes(VIDEO_PATH, CONTROL, changes)) == ([], [])


def test_signals_of_strangers_are_not_taken_for_a_siblings(unit):
    VIDEO.start_recording(unit)

    def impersonate():
        unit.jobs.emit(VIDEO_PATH, CONTROL, "VideoGrew", "/x.mp4", True, signature="sb")

    assert news(unit, impersonate) == ([], [])
    assert unit.video.state() == 1


#: Signals that the daemon obeys when their sibling emits them to everybody: path, interface, member, types, arguments.
OBEYED = [
    (VIDEO_PATH, CONTROL, "VideoGrew", "sb", "/x.mp4", True),
    (VIDEO_PATH, PROPERTIES, "PropertiesChanged", "sa{sv}as", CONTROL, {"RecordingState": Typed("i", 0)}, []),
    (CARD, PROPERTIES, "PropertiesChanged", "sa{sv}as", f"{STORAGE}.Device", {"IsMounted": Typed("b", False)}, []),
    ("/" + STORAGE.replace(".", "/"), "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved", "oas", CARD,
     [f"{STORAGE}.Device"]),
    ("/com/tavilon/common/Settings1/audio", PROPERTIES, "PropertiesChanged", "sa{sv}as", "com.tavilon.common.Settings1",
     {"micEnabled": Typed("b", False)}, []),
]


@pytest.mark.parametrize("sender", ["jobs", "video"])
@pytest.mark.parametrize("signal", OBEYED, ids=lambda signal: f"{signal[0]} {signal[2]}")
def test_what_is_addressed_to_a_connection_of_the_daemon_is_not_obeyed(unit, signal, sender):
    """Match rules do not apply to it, so it can be anybody's."""
    VIDEO.start_recording(unit)
    path, interface, member, types, *arguments = signal

    def address():
        for connection in unit.client.connections_of(unit.pid):
            getattr(unit, sender).emit(path, interface, member, *arguments, signature=types, destination=connection)

    assert news(unit, address) == ([], [])
    assert unit.video.state() == 1


def test_a_burst_of_growth_is_dealt_with_in_order(unit):
    paths = VIDEO.start_recording(unit)

    def grow():
        for _ in range(300):
            unit.video.grow(size=10)

    _, calls = news(unit, grow)
    assert calls == [("jobs", "UpdateMediaFileSizes")] * 300
    assert unit.jobs.item_of(paths.media).size == os.path.getsize(paths.media)
    assert unit.client.call("VideoRecordStop")[0] == 0
