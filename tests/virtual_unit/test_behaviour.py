"""What the simulated daemons do."""

import json
import os

import pytest

from virtual_unit import DbusFailure, Typed

_JOBS = ("com.tavilon.common.JobsManagerDaemon1", "/com/tavilon/common/JobsManagerDaemon1",
         "com.tavilon.common.JobsManagerDaemon1")
_STORAGE = "/com/tavilon/common/StorageDaemon1"
_SETTINGS = "com.tavilon.common.Settings1"
_METADATA = (True, 12, False, 0, True, 1234, 234)


@pytest.fixture
def jobs(client_of):
    """A client of the jobs manager."""
    return client_of(*_JOBS)


@pytest.mark.parametrize("kind, member, capture", [
    ("video", "Recording", "video"), ("photoTalk", "PhotoTalk", "photoTalk"), ("autolog", "AutoLog", "autolog")])
def test_life_of_a_recording(unit, video_client, kind, member, capture):
    path, recovery, snapshot = (f"{unit.media}/{name}" for name in ("a.mp4", ".a-recovery", "a.jpeg"))
    order = (f"Start{member}", "sssuuu", path, recovery, snapshot, 640, 480, 80)
    with open(recovery, "wb"):
        pass
    assert video_client.call(f"Pause{member}") == video_client.call(f"Stop{member}") == (-1,)
    assert video_client.call(*order) == (0,)
    assert video_client.call(*order) == (-1,)
    assert video_client.get(f"{member}State") == 1 and video_client.get(f"{member}Filename") == path
    assert video_client.get("ActiveCaptures") == [capture]
    assert unit.video.orders[kind].width == 640
    size = os.path.getsize(path)
    unit.video.grow(kind, 100, approaching_limit=True)
    assert os.path.getsize(path) == size + 100 and not os.path.exists(snapshot)
    assert video_client.call(f"Resume{member}") == (-1,)
    assert video_client.call(f"Pause{member}") == (0,)
    assert video_client.get("PausedCaptures") == [capture] and video_client.get(f"{member}State") == 2
    assert video_client.call(f"Resume{member}") == video_client.call(f"Stop{member}") == (0,)
    assert not os.path.exists(recovery)
    assert video_client.get(f"Previous{member}Filename") == path and video_client.get(f"{member}Filename") == ""
    states = [signal.args[1][f"{member}State"] for signal in video_client.signals
              if signal.member == "PropertiesChanged"]
    assert states == [1, 2, 1, 0]
    grew = next(signal for signal in video_client.signals if signal.member.endswith("Grew"))
    assert grew.args == (path, True) and grew.signature == "sb"


def test_recording_into_a_missing_folder_is_refused(unit, video_client):
    assert video_client.call("StartRecording", "sssuuu", f"{unit.media}/none/a.mp4", "", "", 1, 1, 1) == (-1,)


def test_three_recordings_at_once(unit, video_client):
    for member in ("Recording", "PhotoTalk", "AutoLog"):
        assert video_client.call(f"Start{member}", "sssuuu", f"{unit.media}/{member}", "", "", 1, 1, 1) == (0,)
    assert video_client.get("ActiveCaptures") == ["video", "photoTalk", "autolog"]
    assert video_client.get("InactiveCaptures") == []


def test_snapshot_is_a_jpeg(unit, video_client):
    path = f"{unit.media}/a.jpeg"
    assert video_client.call("Snapshot", "suuu", path, 1, 1, 1) == (0,)
    with open(path, "rb") as file:
        data = file.read()
    assert data.startswith(b"\xff\xd8\xff") and data.endswith(b"\xff\xd9")
    assert video_client.call("Snapshot", "suuu", f"{unit.media}/none/a.jpeg", 1, 1, 1) == (-1,)


def test_playback(unit, video_client):
    path = f"{unit.media}/a.mp4"
    assert video_client.call("StartPlayback", "sd", path, 1.0) == (-1,)
    with open(path, "wb"):
        pass
    assert video_client.call("StartPlayback", "sd", path, 2.0) == (0,)
    assert video_client.call("SeekPlayback", "i", 100) == video_client.call("PausePlayback") == (0,)
    assert video_client.call("GetPlaybackProgress") == (False, True, False, 2.0, 60000, 100)
    assert video_client.call("ResumePlayback") == video_client.call("StopPlayback", "b", True) == (0,)
    assert video_client.call("StopPlayback", "b", True) == (-1,)
    assert video_client.get("PlaybackFilename") == ""


def test_storage_devices_come_and_go(unit, client_of):
    manager = client_of("com.tavilon.common.StorageDaemon1", _STORAGE, "com.tavilon.common.StorageDaemon1")

    def managed():
        return manager.call_on(manager.service, _STORAGE, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects")[0]

    device = managed()[f"{_STORAGE}/card"]["com.tavilon.common.StorageDaemon1.Device"]
    assert device["MountPoint"] == unit.media and device["IsMounted"] is True
    assert manager.get("PrimaryDevice") == f"{_STORAGE}/internal"
    unit.storage.remove_device("card")
    assert list(managed()) == manager.get("AvailableDevices") == [f"{_STORAGE}/internal"]
    removed = manager.wait_signal("InterfacesRemoved").args
    assert removed[0] == f"{_STORAGE}/card" and "com.tavilon.common.StorageDaemon1.Device" in removed[1]
    unit.storage.add_device("stick", os.path.join(unit.directory, "media", "stick"))
    added = manager.wait_signal("InterfacesAdded").args
    assert added[1]["com.tavilon.common.StorageDaemon1.Device"]["Id"] == "stick"


def test_storage_changes_are_one_signal_each(unit, client_of):
    device = client_of("com.tavilon.common.StorageDaemon1", f"{_STORAGE}/card",
                       "com.tavilon.common.StorageDaemon1.Device")
    unit.storage.set_low("card")
    unit.storage.set_read_only("card", True)
    unit.storage.unmount("card")
    device.sync()
    assert [signal.args[1] for signal in device.signals] == [
        {"StorageIsBelowMinimumLevel": True}, {"ReadOnly": True},
        {"IsMounted": False, "MountPoint": "", "IsSafeToRemove": True}]
    device.call("SetWriteActive", "yb", 2, True)
    assert unit.storage.writes == [(f"{_STORAGE}/card", 2, True)]


def test_media_items(unit, jobs):
    code, folder, stem = jobs.call("GetNewMediaPathComponents")[0]
    assert (code, folder, stem) == (0, f"{unit.media}/job1/media", "0001")
    assert jobs.call("GetNewMediaPathComponents")[0][2] == "0002"
    path = f"{unit.media}/0001.mp4"
    marks = (f"{unit.media}/r", f"{unit.media}/c", f"{unit.media}/s")
    assert jobs.call("AddVideoMedia", "sssssbibibii", path, "video recording", *marks, *_METADATA) == (0,)
    assert jobs.call("AddSnapshotMedia", "ssbibibii", "/x.jpeg", "snapshot", *_METADATA) == (0,)
    item = unit.jobs.item_of(path)
    assert (item.rec_active, item.recovery, item.snapshot) == marks
    assert item.angles == _METADATA[:4] and item.reel == _METADATA[4:]
    with open(path, "wb") as file:
        file.write(bytes(77))
    assert jobs.call("UpdateMediaFileSizes", "s", path) == (0,) and item.size == 77
    assert jobs.call("UpdateMediaFileSizes", "s", "/none") == (10,)
    code, media_id = jobs.call("GetMediaID", "s", path)[0]
    assert code == 0 and jobs.call("GetMediaID", "s", "/none") == ((10, ""),)
    key = (*jobs.call("GetCurrentJobDeviceID"), *jobs.call("GetCurrentJobID"), media_id)
    assert key[:2] == ("card", "job1")
    assert jobs.call("DeleteMediaItem", "sss", "internal", *key[1:]) == (9,)
    assert jobs.call("DeleteMediaItem", "sss", "none", *key[1:]) == (2,)
    assert jobs.call("DeleteMediaItem", "sss", *key) == (0,)
    assert jobs.call("DeleteMediaItem", "sss", *key) == (10,)
    assert [item.type for item in unit.jobs.items.values()] == ["snapshot"]


def test_no_current_job(unit, jobs):
    unit.jobs.close()
    assert jobs.call("GetNewMediaPathComponents") == ((7, "", ""),)
    assert jobs.call("AddSnapshotMedia", "ssbibibii", "/x.jpeg", "snapshot", *_METADATA) == (7,)
    assert jobs.call("GetCurrentJobID") == ("",)
    unit.jobs.open()
    assert jobs.call("GetCurrentJobID") == ("job1",)


def test_members_without_a_use_succeed_and_say_no_more(unit, jobs):
    before = dict(unit.jobs.jobs)
    assert jobs.call("DeleteAllJobs", "s", "card") == (0,)
    assert jobs.call("CreateJob", "ss", "internal", "{}") == ((0, "", ""),)
    assert jobs.call("CurrentJobMediaCounts") == ((0, 0, 0, 0, 0, 0),)
    assert jobs.call("GetJobLocked", "ss", "card", "job1") == ((0, False),)
    assert unit.jobs.jobs == before and jobs.call("GetCurrentJobID") == ("job1",)


def test_settings_change_in_one_signal(unit, client_of):
    audio = client_of(_SETTINGS, "/com/tavilon/common/Settings1/audio", _SETTINGS)
    unit.settings.change("audio", {"micEnabled": False, "speakerVolume": 70, "speakerEnabled": Typed("s", "odd")})
    audio.sync()
    assert [signal.args for signal in audio.signals] == [
        (_SETTINGS, {"micEnabled": False, "speakerVolume": 70, "speakerEnabled": "odd"}, [])]
    assert audio.get("speakerVolume") == 70 and audio.get("speakerEnabled") is False
    audio.call_on(_SETTINGS, "/com/tavilon/common/Settings1", _SETTINGS, "ResetSetting", "ss", "audio", "speakerVolume")
    assert audio.get("speakerVolume") == 50 and audio.get("micEnabled") is False
    audio.call_on(_SETTINGS, "/com/tavilon/common/Settings1", _SETTINGS, "ResetToDefaults", "b", True)
    assert audio.get("micEnabled") is True
    with pytest.raises(DbusFailure, match="No section"):
        audio.call_on(_SETTINGS, "/com/tavilon/common/Settings1", _SETTINGS, "ResetSection", "s", "none")


def test_settings_have_all_sections(unit):
    assert len(unit.settings.sections()) == 29
    assert unit.settings.value("keyBeep", "period") == 200


def test_hardware_notes_leds_and_beeps(unit, client_of):
    control = client_of("com.tavilon.common.Halvex1", "/com/tavilon/common/Halvex1",
                        "com.tavilon.common.Halvex1.Control")
    control.call("SetLedState", "uu", 3, 1)
    assert control.call("BeepBuzzer", "uuu", 100, 200, 1) == (True,)
    assert unit.hardware.leds == {3: 1} and unit.hardware.beeps == [(100, 200, 1)]
    unit.hardware.press_key(28)
    assert control.wait_signal("KeyPressEvent").args == (28, 1)
    unit.hardware.set_reel(connected=False, absolute=99)
    distance = client_of("com.tavilon.common.Halvex1", "/com/tavilon/common/Halvex1/reel/distance",
                         "com.tavilon.common.Halvex1.reel")
    assert distance.get("Absolute") == 99 and distance.get("Relative") == 234


def test_syncs(unit, client_of):
    client = client_of("com.tavilon.common.SyncDaemon1", "/com/tavilon/common/SyncDaemon1",
                       "com.tavilon.common.SyncDaemon1")
    code, status = client.call("AddSyncs", "ssas", "internal", "card", ["job1"])[0]
    assert code == 0 and json.loads(status)[0]["items"] == ["job1"]
    assert client.get("HasActiveSyncs") is True
    assert client.call("AddSyncs", "ssas", "internal", "card", [])[0][0] == 5
    assert client.call("CancelSyncs", "as", ["other"]) == (2,)
    assert client.call("CancelSyncs", "as", ["card"]) == (0,)
    assert client.get("SyncStatus") == ""


def test_timedate_keeps_what_it_is_told(unit, client_of):
    name = "org.freedesktop.timedate1"
    client = client_of(name, "/org/freedesktop/timedate1", name, system=True)
    with pytest.raises(DbusFailure, match="AutomaticTimeSyncEnabled"):
        client.call("SetTime", "xbb", 1000000, False, False)
    client.call("SetNTP", "bb", False, False)
    client.call("SetTime", "xbb", 1000000, False, False)
    client.call("SetTimezone", "sb", "CCU/DST/Paris", False)
    assert unit.timedate.times == [1000000] and unit.timedate.timezone == client.get("Timezone") == "CCU/DST/Paris"
    with pytest.raises(DbusFailure, match="InvalidArgs"):
        client.call("SetTimezone", "sb", "../etc/passwd", False)
