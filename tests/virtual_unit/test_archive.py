"""Snapshots of a unit: what is kept and comes back, in the same unit and in another, and what is no snapshot."""

import io
import json
import os
import tarfile

import pytest

from virtual_unit import CODE, LATE, VirtualUnit
from virtual_unit.archive import Unreadable, load, save


def _write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def _read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()



def _in_the_middle(unit):
    """A unit as a test might have it: recording, a media item, a device that came, one that is full, faults, a fix."""
    path = f"{unit.media}/job1/media/0001.mp4"
    _write(path, "recorded so far")
    unit.video.change("video", 1, RecordingFilename=path)
    unit.video.turn(roll=77)
    unit.jobs.open("internal", "job2")
    unit.jobs.add_media(f"{unit.mount_point('internal')}/a.jpeg", "snapshot", (), (True, 1, False, 0, True, 2, 3))
    unit.storage.plug_in("stick")
    unit.storage.set_full("internal")
    unit.storage.pull_out("card")
    unit.settings.preset("audio", {"speakerVolume": 7})
    unit.hardware.move_reel(4242)
    unit.hardware.leds[3] = 1
    unit.hardware.power_sufficient = 0
    unit.sync.set_active(True)
    unit.sync.die()
    unit.timedate.timezone = "UTC"
    unit.clock.set(1_800_000_000)
    unit.faults.on("video", "StartRecording", CODE(-7), times=2)
    unit.faults.on("jobs", kind=LATE(0.5), path="/com/tavilon/common/JobsManagerDaemon1")
    unit.gpio.mic.value = 1
    unit.audio.set_control("HP DAC", 12)
    unit.framebuffers.set(1, 320, 200)
    unit.keypad.unplug()


def _told(unit):
    """What there is to be seen of a unit, without its folder."""
    def plain(value):
        return json.loads(json.dumps(value, default=lambda one: vars(one)).replace(unit.directory, "UNIT"))

    siblings = {name: (sibling.alive, {path: item.values for path, item in sibling.objects.items()})
                for name, sibling in unit.siblings.items()}
    for times in siblings["timedate"][1].values():
        times.update(TimeUSec=0, RTCTimeUSec=0)
    files = {os.path.relpath(os.path.join(place, name), unit.directory): os.path.getsize(os.path.join(place, name))
             for folder in ("media", "logs", "framebuffers")
             for place, _, names in os.walk(os.path.join(unit.directory, folder)) for name in names}
    return plain([siblings, list(unit.jobs.items.values()), list(unit.jobs.jobs.values()), unit.jobs.current,
                  unit.storage.full, unit.storage.has_room(unit.mount_point("internal") + "/x"),
                  {str(number): value for number, value in unit.hardware.leds.items()}, unit.hardware.power_sufficient,
                  os.readlink(unit.local_time_link), unit.clock.is_machines, files, unit.gpio.mic.value,
                  unit.audio.volume, unit.framebuffers.screens(), unit.keypad.plugged,
                  [(rule.sibling, rule.member, rule.path, vars(rule.kind), rule.left) for rule in unit.faults.rules()]])


@pytest.fixture(name="kept")
def kept_fixture(tmp_path):
    """A snapshot of a unit in the middle of something, and what there was to be seen of it."""
    path = str(tmp_path / "kept.unit")
    with VirtualUnit(daemon=False) as unit:
        _in_the_middle(unit)
        save(unit, path)
        return path, _told(unit)


def test_a_unit_comes_back(unit, tmp_path):
    """Whatever has happened since."""
    path = str(tmp_path / "new.unit")
    before = _told(unit)
    save(unit, path)
    _in_the_middle(unit)
    assert _told(unit) != before
    load(unit, path)
    assert _told(unit) == before and os.listdir(tmp_path) == ["new.unit"]


def test_another_unit_takes_it_over(unit, kept):
    """With the files where it has its own, and a clock that goes on."""
    path, told = kept
    load(unit, path)
    assert _told(unit) == told
    assert 0 <= unit.clock.now() - 1_800_000_000 < 600
    assert _read(unit.storage.usual_mount_point("card") + "-pulled/job1/media/0001.mp4") == "recorded so far"
    unit.storage.plug_in("card")
    assert _read(unit.video.get("RecordingFilename")) == "recorded so far"
    assert not [name for name in os.listdir(unit.directory) if name.startswith("snapshot-")]
    load(unit, path)
    assert _told(unit) == told


def test_the_siblings_go_on_from_there(unit, kept, video_client):
    """They answer as they would have."""
    load(unit, kept[0])
    assert video_client.get("CameraRollAngle") == "77" and video_client.get("ActiveCaptures") == ["video"]
    assert video_client.call("StartRecording", "sssuuu", "/none", "", "", 1, 1, 1) == (-7,)
    assert video_client.call("PauseRecording") == (0,)
    unit.sync.revive()
    assert unit.jobs.new_media_path_components() == (f"{unit.mount_point('internal')}/job2/media", "0001")


def test_the_daemon_is_started_anew_and_what_it_sets_is_put_right(build_dir, tmp_path):
    """Where it ran; where it did not, it does not."""
    path = str(tmp_path / "with.unit")
    with VirtualUnit(build_dir) as unit:
        unit.video.turn(roll=5)
        save(unit, path)
        pid = unit.pid
        unit.video.turn(roll=6)
        load(unit, path)
        assert unit.daemon_alive and unit.pid != pid and unit.video.get("CameraRollAngleRaw") == 5
        assert unit.client.call("Say", "s", "here") == (0, "here")
        unit.stop_daemon()
        save(unit, path)
        unit.start_daemon()
        load(unit, path)
        assert not unit.daemon_alive


def _tar(path, *entries):
    with tarfile.open(path, "w:gz") as tar:
        for name, text, kind in entries:
            info = tarfile.TarInfo(name)
            info.size, info.type, info.linkname = len(text), kind, "/etc/passwd"
            tar.addfile(info, io.BytesIO(text.encode()))


@pytest.mark.parametrize("entries, text", [
    ((("state.json", "{", tarfile.REGTYPE),), "is no snapshot of a unit"),
    ((("state.json", "{}", tarfile.REGTYPE),), "is no snapshot of a unit"),
    ((("state.json", '{"format": 9, "siblings": {}}', tarfile.REGTYPE),), "is of a unit of another kind"),
    ((("../state.json", "{}", tarfile.REGTYPE),), "no file of a unit"),
    ((("/tmp/state.json", "{}", tarfile.REGTYPE),), "no file of a unit"),
    ((("media", "", tarfile.SYMTYPE),), "no file of a unit"),
])
def test_what_is_no_snapshot_changes_nothing(unit, tmp_path, entries, text):
    """And the reason is told."""
    path = str(tmp_path / "wrong.unit")
    _tar(path, *entries)
    before = _told(unit)
    with pytest.raises(Unreadable, match=text):
        load(unit, path)
    assert _told(unit) == before


def test_a_snapshot_that_lacks_its_end_changes_nothing(unit, kept):
    """Nor does one of a unit with other siblings, nor another file."""
    path, _ = kept
    before = _told(unit)
    with VirtualUnit(daemon=False, siblings=("video",)) as poor, pytest.raises(Unreadable, match="another kind"):
        load(poor, path)
    os.truncate(path, os.path.getsize(path) // 2)
    with pytest.raises(Unreadable):
        load(unit, path)
    _write(path, "a text")
    with pytest.raises(Unreadable):
        load(unit, path)
    with pytest.raises(FileNotFoundError):
        load(unit, path + "-none")
    assert _told(unit) == before


def test_a_snapshot_that_cannot_be_written_leaves_the_old_one(unit, kept):
    """And nothing beside it."""
    path, _ = kept
    folder = os.path.dirname(path)
    before = os.path.getsize(path)
    with pytest.raises(OSError):
        save(unit, folder + "/none/file")
    unit.sync.syncs["somewhere"] = object()
    with pytest.raises(TypeError, match="cannot hold"):
        save(unit, path)
    assert os.listdir(folder) == ["kept.unit"] and os.path.getsize(path) == before
