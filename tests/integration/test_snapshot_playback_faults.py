"""Every call of snapshots and playback, met by every kind of failure: codes, lines, what is left, and later life."""

import os

import pytest

from tests.integration import playback_texts as texts
from tests.integration.fault_matrix import FAULTS
from tests.integration.recording_texts import KINDS, MESSAGES, VIDEO, left_over, signals_of
from virtual_unit import WRONG_TYPE, DbusFailure

_OFF, _PLAYING, _PAUSED = 0, 1, 2


class Scenario:
    """Something that snapshots or playback do; no kind of recording."""

    kind = None

    def prepare(self, unit):
        """Nothing: the unit is fresh."""

    def come_to_rest(self, unit):
        """The daemon has survived, and what still plays can be stopped."""
        if unit.video.get("PlaybackState") != 0:
            assert unit.client.call("VideoPlaybackStop", "b", True) == (0, texts.MESSAGES[0])
        unit.settle()

    def life_goes_on(self, unit):
        """The next snapshot and the next playback are as good as any."""
        path, code, text = unit.client.call("Snapshot", "uuu", 8, 8, 90)
        assert (code, text) == (0, MESSAGES[0]) and unit.jobs.item_of(path).type == "snapshot"
        texts.start_playing(unit, name="next.mp4")
        assert unit.client.call("VideoPlaybackStop", "b", True) == (0, texts.MESSAGES[0])


class Snapshot(Scenario):
    """A snapshot."""

    def act(self, unit):
        """The step under test; returns its answer."""
        return unit.client.call("Snapshot", "uuu", 8, 8, 90)

    def expect(self, model, unit, answer):
        """Walks the model and compares what is left."""
        path = texts.first_picture(unit)
        if not model.ask("jobs", "GetNewMediaPathComponents"):
            model.error("JobsManager.GetNewMediaPathComponents() failed ", r"-\d+")
            model.error("GetNextSnapshotPath: Failed to get new snapshot file path")
            assert answer == ("", -4, MESSAGES[-4])
        elif not model.ask("video", "Snapshot"):
            model.error(f"{texts.SNAPSHOT} Failed to generate snapshot")
            assert answer == (path, -1, MESSAGES[-1])
            assert left_over(unit) == []
        else:
            self._expect_item(model, unit, path)
            assert answer == (path, 0, MESSAGES[0])
            assert left_over(unit) == [os.path.basename(path)]

    @staticmethod
    def _expect_item(model, unit, path):
        records = model.angles(), model.reel()
        item = unit.jobs.item_of(path)
        if model.ask("jobs", "AddSnapshotMedia"):
            assert (item.angles, item.reel) == records
        else:
            model.error(f"{texts.SNAPSHOT}: Failed to add snapshot media item, r = ", r"-\d+")
            assert item is None


class Order(Scenario):
    """An order to the player: how it is given, what it asks, its failure line and the states before and after."""

    def __init__(self, member, signature, arguments, asked, failed, states):
        self._call, self._asked, self._failed = (member, signature, *arguments), asked, failed
        self._before, self._after = states

    def prepare(self, unit):
        path = texts.make_file(unit)
        if self._before != _OFF:
            texts.start_playing(unit)
        if self._before == _PAUSED:
            assert unit.client.call("VideoPlaybackPause")[0] == 0
        self._call = tuple(path if argument is FILE else argument for argument in self._call)

    def act(self, unit):
        """The step under test; returns its answer."""
        return unit.client.call(*self._call)

    def expect(self, model, unit, answer):
        """Walks the model and compares what is left."""
        done = model.ask("video", self._asked)
        if not done:
            model.error(self._failed)
        code = 0 if done else -1
        assert answer == (code, texts.MESSAGES[code])
        assert unit.video.get("PlaybackState") == (self._after if done else self._before)
        assert signals_of(unit) == []


class Rate(Scenario):
    """An access to the rate: the failure of the video daemon is that of the access."""

    def __init__(self, access):
        self._access = access

    def act(self, unit):
        """The step under test; returns the text of its failure."""
        try:
            if self._access == "Get":
                assert unit.client.get("VideoPlaybackRate") == 1.0
            else:
                unit.client.set("VideoPlaybackRate", "d", 2.0)
        except DbusFailure as failure:
            return failure.name, failure.text
        return None

    def expect(self, model, _unit, answer):
        """Walks the model; a write is answered by an empty reply, whose type nobody looks at."""
        if model.ask("video", f"{self._access} PlaybackRate") or (self._access == "Set" and model.fault is WRONG_TYPE):
            assert answer is None
            return
        text = f"Video::{self._access}PlaybackRate failed"
        signature = texts.GET_RATE if self._access == "Get" else texts.SET_RATE
        model.error(f"{signature} {text}")
        assert answer == ("org.freedesktop.DBus.Error.Failed", text)


class Gone(Scenario):
    """News of a playback whose file is gone: `hear` emits them, `before` and `after` are the recordings' questions."""

    def __init__(self, hear, signal, before=(), after=()):
        self._hear, self._signal, self._before, self._after = hear, signal, before, after
        self._path = None

    def prepare(self, unit):
        self._path = texts.start_playing(unit)
        os.remove(self._path)

    def act(self, unit):
        """The step under test."""
        self._hear(unit)

    def expect(self, model, unit, _answer):
        """Walks the model and compares what is left."""
        for kind in self._before:
            model.ask(*kind.state_call)
        known = model.ask(*texts.FILENAME_CALL)
        if not known:
            model.error(f"{texts.INVALID} Failed to get video playback filename")
        else:
            model.error(texts.gone_lines(self._path)[1][1])
            if not model.ask("video", "StopPlayback"):
                model.error("Video::StopPlayback(): Failed to stop playback\n")
        for kind in self._after:
            model.ask(*kind.state_call)
        assert signals_of(unit) == ([self._signal] if known else [])


class File:
    """Stands for the file of the unit among the arguments of an order."""


FILE = File()


def failed(order, verb):
    """The failure line of an order."""
    return f"Video::{order}(): Failed to {verb} playback\n"


SCENARIOS = {
    "snapshot": Snapshot,
    "start": lambda: Order("VideoPlaybackStart", "sd", (FILE, 1.0), "StartPlayback",
                           f"{texts.START} VideoPlaybackStart(): Failed to start playback\n", (_OFF, _PLAYING)),
    "stop": lambda: Order("VideoPlaybackStop", "b", (True,), "StopPlayback", failed("StopPlayback", "stop"),
                          (_PLAYING, _OFF)),
    "pause": lambda: Order("VideoPlaybackPause", "", (), "PausePlayback", failed("PausePlayback", "pause"),
                           (_PLAYING, _PAUSED)),
    "resume": lambda: Order("VideoPlaybackResume", "", (), "ResumePlayback", failed("ResumePlayback", "resume"),
                            (_PAUSED, _PLAYING)),
    "seek": lambda: Order("VideoPlaybackSeek", "i", (100,), "SeekPlayback", failed("SeekPlayback", "seek"),
                          (_PLAYING, _PLAYING)),
    "get rate": lambda: Rate("Get"),
    "set rate": lambda: Rate("Set"),
    "broken": lambda: Gone(lambda unit: unit.video.break_playback(), texts.BROKEN_SIGNAL),
    "removed": lambda: Gone(lambda unit: unit.storage.emit(
        "/com/tavilon/common/StorageDaemon1", "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved",
        unit.storage.device_path("card"), ["com.tavilon.common.StorageDaemon1.Device"]), texts.REMOVED_SIGNAL,
        KINDS[:KINDS.index(VIDEO) + 1], KINDS[KINDS.index(VIDEO) + 1:]),
    "unmounted": lambda: Gone(lambda unit: unit.storage.set_device("card", IsMounted=False), texts.REMOVED_SIGNAL,
                              KINDS[:KINDS.index(VIDEO) + 1], KINDS[KINDS.index(VIDEO) + 1:]),
}


@pytest.mark.parametrize("name", SCENARIOS)
def test_in_peace(matrix, name):
    assert matrix.run(SCENARIOS[name]())


@pytest.mark.parametrize("fault", FAULTS)
@pytest.mark.parametrize("name", SCENARIOS)
def test_every_call_that_fails(matrix, name, fault):
    matrix.fail_every_call(SCENARIOS[name], fault)
