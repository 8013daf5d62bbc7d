"""News of storage while the storage daemon does not say where a file is: what is recorded and played goes on.

Every event x every way in which the question fails x the recording's device and another one, for recordings of all
kinds and a playback at once.  Nothing of that ends them, so a unit serves for all events that meet the same failure.
"""

import os
import re

import pytest

from tests.integration.fault_matrix import FAULTS, error_lines, recover
from tests.integration.playback_texts import INVALID, REMOVED_SIGNAL, checked_lines, start_playing
from tests.integration.recording_model import PROPERTY_LINES
from tests.integration.recording_texts import KINDS, MESSAGES, Paths, Watch, info, signals_of
from virtual_unit import AT_ONCE, DIE, PATIENCE, VirtualUnit

_MANAGER = "/com/tavilon/common/StorageDaemon1"
_DEVICE = "com.tavilon.common.StorageDaemon1.Device"

LOW = ("CaptureError", (-3, "Storage is too low - unable to continue recording"))
LOST = ("CaptureError", (-4, "Storage was removed - unable to continue recording"))


# What the storage daemon tells ----------------------------------------------------------------------------------------


def changed(**changes):
    """News of a device's properties."""
    return lambda unit, device: unit.storage.emit_changes(unit.storage.device_path(device), _DEVICE, changes)


def pulled(unit, device):
    """News of a device that has gone."""
    unit.storage.emit(_MANAGER, "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved",
                      unit.storage.device_path(device), [_DEVICE])


#: The news alone: nothing at the storage daemon is any different afterwards.
EVENTS = {"unmounted": changed(IsMounted=False), "low": changed(StorageIsBelowMinimumLevel=True),
          "read-only": changed(ReadOnly=True), "pulled out": pulled}
REMOVALS = ("unmounted", "pulled out")


# ... and how it fails to tell the rest --------------------------------------------------------------------------------

_LISTING = r"Storage\.GetStorageObjectPaths\(\) failed -\d+"
_MOUNT_POINT = "{}: sdbus_utils::GetProperty {} failed .+".format(*map(re.escape, PROPERTY_LINES["Get MountPoint"]))


def nothing_told(unit, kind):
    """No question to the storage daemon is answered."""
    unit.faults.on("storage", kind=kind)


def card_not_told(unit, kind):
    """Its devices are, but not where the card is."""
    unit.faults.on("storage", "GetManagedObjects")
    unit.faults.on("storage", "Get MountPoint", kind=kind, path=unit.storage.device_path("card"))


#: How the question fails, and the client's own line about it.
FAILURES = {**{name: (nothing_told, kind, _LISTING) for name, kind in FAULTS.items()},
            **{f"card {name}": (card_not_told, kind, _MOUNT_POINT) for name, kind in FAULTS.items()}}


class Busy:
    """A unit with a recording of each kind and a playback on its card."""

    def __init__(self, unit):
        self.unit = unit

    def begin(self):
        """Starts what does not run yet."""
        for kind in KINDS:
            if self.unit.video.state(kind.name) == 0:
                kind.start_recording(self.unit)
        if self.unit.video.get("PlaybackState") != 1:
            start_playing(self.unit)
        self.unit.settle()
        self.unit.client.clear()

    @property
    def played(self):
        """The file of the playback."""
        return self.unit.video.get("PlaybackFilename")

    @property
    def paths(self):
        """The files of the recordings, in the order of the kinds."""
        return [Paths(self.unit.video.orders[kind.name].path) for kind in KINDS]

    def expect_running(self):
        """All is as it was."""
        assert signals_of(self.unit) == []
        assert [self.unit.video.state(kind.name) for kind in KINDS] == [1, 1, 1]
        assert all(os.path.exists(paths.rec_active) for paths in self.paths)
        assert self.unit.video.get("PlaybackState") == 1

    def expect_saved(self):
        """Each recording can be stopped and saved."""
        for kind, paths in zip(KINDS, self.paths):
            assert kind.order(self.unit, "Stop") == (0, MESSAGES[0])
            assert not os.path.exists(paths.rec_active)


@pytest.fixture(scope="module", name="busy_unit", params=FAILURES)
def busy_unit_with_a_failure(request):
    """A busy unit, for each failure, and the failure."""
    failure = FAILURES[request.param]
    with VirtualUnit(bus_timeout=AT_ONCE) as unit:
        busy = Busy(unit)
        yield busy, failure
        busy.begin()
        busy.expect_running()
        busy.expect_saved()


def meet(busy, failure, event, device):
    """Sends news while the question fails; returns what has come of it."""
    unit, (fail, kind, line) = busy.unit, failure
    fail(unit, kind)
    watch = Watch(unit)
    mark = unit.log.mark()
    EVENTS[event](unit, device)
    missing = [f"GetPathFromFilename() failed for filepath {paths.media}" for paths in busy.paths]
    # The last to ask; a storage daemon that has died cannot show that its news were dealt with.
    unit.log.wait_for(missing[-1], since=mark, timeout=PATIENCE)
    recover(unit)
    own = [line, *[_LISTING if kind is DIE else line] * 2]  # who has died does not fail a second time
    expected = [pattern for pair in zip(own, map(re.escape, missing)) for pattern in pair]
    errors = [text for text in error_lines(unit, mark) if "layback" not in text]
    assert len(errors) == len(expected) and all(map(re.fullmatch, expected, errors)), errors
    return watch


def orders(watch):
    """What the video daemon was ordered to do."""
    return [member for sibling, member in watch.calls if sibling == "video" and not member.startswith("Get ")]


@pytest.mark.parametrize("device", ["card", "internal"])
@pytest.mark.parametrize("event", EVENTS)
def test_a_question_that_fails_ends_nothing(busy_unit, event, device):
    """Each recording asks, says in one line that it does not know, and goes on; so does the playback."""
    busy, failure = busy_unit
    busy.begin()
    watch = meet(busy, failure, event, device)
    busy.expect_running()
    assert orders(watch) == []
    assert [line for line in watch.lines if "StopAndCancel" in line[1]] == (checked_lines(
        info(f"{INVALID} playback file {busy.played} is still mounted")) if event in REMOVALS else [])


@pytest.mark.parametrize("event", REMOVALS)
def test_a_playback_looks_for_its_file_itself(busy_unit, event):
    """So it ends when the file is gone, with whatever device, while the recordings go on."""
    busy, failure = busy_unit
    busy.begin()
    os.remove(busy.played)
    watch = meet(busy, failure, event, "internal")
    assert signals_of(busy.unit) == [REMOVED_SIGNAL]
    assert orders(watch) == ["StopPlayback"]
    assert [busy.unit.video.state(kind.name) for kind in KINDS] == [1, 1, 1]


# The same questions, answered: what the news are worth then -----------------------------------------------------------


@pytest.fixture(name="busy")
def busy_unit_that_answers(unit):
    """A busy unit of the test's own."""
    busy = Busy(unit)
    busy.begin()
    return busy


@pytest.mark.parametrize("event, signal", [("unmounted", LOST), ("low", LOW), ("read-only", LOST),
                                           ("pulled out", LOST)])
def test_an_answer_ends_what_is_on_that_device(busy, event, signal):
    """The file of the playback is still there, as only the news are sent."""
    EVENTS[event](busy.unit, "internal")
    busy.expect_running()
    EVENTS[event](busy.unit, "card")
    assert signals_of(busy.unit) == [signal] * 3
    assert [busy.unit.video.state(kind.name) for kind in KINDS] == [0, 0, 0]
    assert busy.unit.video.get("PlaybackState") == 1


@pytest.mark.parametrize("device", ["card", "internal"])
@pytest.mark.parametrize("event", EVENTS)
def test_the_answer_that_no_device_holds_the_file(busy, event, device):
    """That is a storage that has gone, whichever device the news of a removal are of."""
    unit = busy.unit
    unit.storage.set_property(unit.storage.device_path("card"), "MountPoint", "", emit=False)
    EVENTS[event](unit, device)
    if event not in REMOVALS:
        busy.expect_running()
        return
    assert signals_of(unit) == [LOST] * 3
    assert [unit.video.state(kind.name) for kind in KINDS] == [0, 0, 0]
