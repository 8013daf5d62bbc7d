"""The command that lists and mends what crashes have left: what it finds, what it leaves alone, and when it refuses."""

import os
import re
import subprocess
from concurrent.futures import ThreadPoolExecutor

import pytest

from tests.integration.controllerctl_cases import (
    DONE, REFUSED, TIME_OUT, UNREACHABLE, USAGE, environment, run)
from tests.integration.crash_page import PAGE
from tests.integration.recording_texts import AUTO_LOG, KINDS, MESSAGES, VIDEO, left_over
from virtual_unit import CODE, MEANWHILE, PATIENCE, REFUSE, SILENT, VirtualUnit
from virtual_unit.loop import shared_loop

STOPPED = "its sizes have been brought up to date, its marker has been removed"


def recover(unit, options="", status=DONE):
    """Runs it; returns the object that it told."""
    done = run(unit, f"recover --json {options}")
    assert done.status == status, done
    return done.object


def found(told):
    """What was found, by the names of the files."""
    return {os.path.basename(left["path"]): (left["what"], left["mended"]) for left in told["found"]}


def stop_unseen(unit, kind=VIDEO):
    """A recording that ends without the controller: its marker stays, its item has the sizes of before."""
    paths = kind.start_recording(unit)
    with open(paths.media, "ab") as file:
        file.write(bytes(5000))
    unit.video.change(kind.name, 0, **{f"{kind.member}Filename": ""})
    unit.settle()
    return paths


def test_nothing(unit):
    """Is said on standard error, and nothing is asked of the controller that could change anything."""
    done = run(unit, "recover")
    assert (done.status, done.out, done.errors) == (DONE, "", "controllerctl: nothing was left\n")
    assert recover(unit, "--apply") == {"ok": True, "exit": 0, "applied": True, "found": [], "sizes": 0, "running": []}


def test_lines(unit):
    """A line each, with what is to be done or has been done."""
    paths = stop_unseen(unit)
    assert run(unit, "recover").out == (
        f"{paths.media}: is not being recorded, but marked so; its sizes are to be brought up to date, its marker to "
        "be removed\n")
    assert run(unit, "recover --apply").out == f"{paths.media}: {STOPPED}\n"
    assert run(unit, "recover").out == ""


@pytest.mark.parametrize("kind", KINDS, ids=str)
@pytest.mark.parametrize("paused", [False, True], ids=["running", "paused"])
def test_a_recording_that_goes_on_is_not_touched(unit, kind, paused):
    """While another one's rest is mended."""
    first = stop_unseen(unit, kind)
    paths = kind.start_recording(unit)
    if paused:
        assert kind.order(unit, "Pause")[0] == 0
    mark = unit.calls.mark()
    told = recover(unit, "--apply")
    assert (told["running"], told["sizes"]) == ([paths.media], 1)
    assert found(told) == {os.path.basename(first.media): ("stopped", True)}
    assert left_over(unit) == sorted([os.path.basename(first.media), *paths.names])
    assert [call.arguments for call in unit.calls.of("jobs", "UpdateMediaFileSizes", since=mark)] == [(first.media,)]


def test_a_recording_is_known_however_its_path_is_spelled(unit):
    paths = VIDEO.start_recording(unit)
    unit.video.set("RecordingFilename", paths.media.replace("/media/0001", "/../job1/media/./0001"))
    told = recover(unit, "--apply")
    assert told["found"] == [] and told["sizes"] == 0
    assert left_over(unit) == paths.names


# When it cannot know --------------------------------------------------------------------------------------------------

UNKNOWN = [(("video", f"Get {kind.member}State"), fault, status)
           for kind in KINDS for fault, status in ((REFUSE, UNREACHABLE), (SILENT, TIME_OUT))] + [
    (("jobs", "GetNewMediaPathComponents"), REFUSE, UNREACHABLE),
    (("jobs", "GetNewMediaPathComponents"), CODE(5), REFUSED),
    (("jobs", "GetMediaID"), REFUSE, UNREACHABLE),
    (("jobs", "GetMediaID"), SILENT, TIME_OUT),
    (("jobs", "GetMediaID"), CODE(7), REFUSED),
]


@pytest.mark.parametrize("call, fault, status", UNKNOWN, ids=lambda value: str(value).replace(" ", "_"))
def test_it_refuses_when_it_cannot_know(unit, call, fault, status):
    """And touches nothing."""
    stop_unseen(unit)
    before = left_over(unit)
    unit.faults.on(*call, kind=fault)
    mark = unit.calls.mark()
    told = recover(unit, "--apply", status)
    assert not told["ok"] and told["message"].endswith("; nothing was touched")
    assert left_over(unit) == before and not unit.calls.of("jobs", "UpdateMediaFileSizes", since=mark)


@pytest.mark.parametrize("name, fault", [("", None), (None, REFUSE)], ids=["empty", "unreadable"])
def test_it_refuses_when_the_file_is_not_told(unit, name, fault):
    """Of a recording that goes on."""
    paths = VIDEO.start_recording(unit)
    if fault:
        unit.faults.on("video", "Get RecordingFilename", kind=fault)
    else:
        unit.video.set("RecordingFilename", name)
    recover(unit, "--apply", UNREACHABLE)
    assert left_over(unit) == paths.names


def test_it_refuses_a_bus_that_is_not_the_machines_own(unit):
    """The files would be another unit's."""
    done = run(unit, "recover --apply", DBUS_SESSION_BUS_ADDRESS="unixexec:path=/bin/false")
    assert (done.status, done.out) == (USAGE, "")
    assert done.errors == "controllerctl: recover: it looks at files, so it is to be run on the unit itself\n"


def test_without_a_controller_it_does_its_work(unit):
    """That nobody is at work then is known."""
    stop_unseen(unit)
    unit.kill()
    assert found(recover(unit, "--apply")) == {"0001.mp4": ("stopped", True)}


def test_what_the_controller_is_in_the_middle_of_is_waited_for():
    """A start whose recording does not run yet is no leftover."""
    with VirtualUnit(bus_timeout=2 * PATIENCE) as unit:  # nobody gives up meanwhile
        unit.faults.on(*VIDEO.start_call, kind=SILENT, times=1)
        start = unit.client.call_async("VideoRecordStart", "uuu", 1920, 1080, 90)
        unit.calls.wait_for(*VIDEO.start_call)
        mark = unit.calls.mark()
        with ThreadPoolExecutor(1) as background:
            recovering = background.submit(run, unit, "recover --apply")
            unit.calls.wait_for("jobs", "GetNewMediaPathComponents", since=mark)
            for _ in range(20):
                unit.client.names()
            assert not unit.calls.of("video", since=mark) and left_over(unit) == [".0001-recActive", ".0001-recovery"]
            shared_loop().call(lambda: (unit.video.die(), unit.video.revive()))  # at once: nobody finds it gone
            assert recovering.result().status == DONE
        assert start.result().args == (-1, MESSAGES[-1])
        assert left_over(unit) == [] and unit.jobs.items == {}


# By hand --------------------------------------------------------------------------------------------------------------


def test_the_commands_of_the_operators_page(unit):
    """Do what it says."""
    paths = VIDEO.start_recording(unit)
    alone = os.path.join(os.path.dirname(paths.media), "alone")
    for suffix in ".mp4", ".jpeg":
        with open(alone + suffix, "wb") as file:
            file.write(b"x")
    gone = stop_unseen(unit, AUTO_LOG).media
    for name in left_over(unit):
        if "autolog" in name:
            os.remove(os.path.join(os.path.dirname(gone), name))
    with open(PAGE, encoding="utf-8") as file:
        blocks = re.findall(r"```sh\n(.*?)```", file.read(), re.DOTALL)
    commands = "".join(block for block in blocks if not block.startswith("controllerctl"))
    done = subprocess.run(["bash", "-e", "-c", commands], capture_output=True, text=True, check=False, env=environment(
        unit, STORAGE=unit.media, FILE=paths.media, GONE=gone, FILM=alone + ".mp4", PICTURE=alone + ".jpeg"))
    assert done.stderr == "" and done.returncode == 0
    told = done.stdout.splitlines()
    assert told[:6] == ["i 1", f's "{paths.media}"', "i 0", 's ""', "i 0", 's ""']
    assert sorted(told[6:8]) == sorted([paths.rec_active, paths.recovery])
    assert told[8:] == [f'(is) 0 "{unit.jobs.item_of(paths.media).media_id}"', "i 0", "i 0", "i 0"]
    assert unit.jobs.item_of(gone) is None
    assert unit.jobs.item_of(alone + ".mp4").type == "video recording"
    assert unit.jobs.item_of(alone + ".jpeg").type == "snapshot"
    assert recover(unit)["found"] == []


# What is left to the operator -----------------------------------------------------------------------------------------


def test_what_the_video_daemon_has_left_to_mend_a_film_stays(unit):
    """With the marker by which it is found; the sizes are brought up to date all the same."""
    paths = stop_unseen(unit)
    with open(paths.recovery, "wb") as file:
        file.write(b"index")
    told = recover(unit, "--apply")
    assert (found(told), told["sizes"]) == ({"0001.mp4": ("brokenOff", False)}, 1)
    assert left_over(unit) == paths.names
    assert unit.jobs.item_of(paths.media).size == os.path.getsize(paths.media)
    assert run(unit, "recover").out == (
        f"{paths.media}: was broken off, and the video daemon left what may mend it; for you: see whether it plays; its "
        "markers stay\n")


def test_a_film_that_was_broken_off_and_is_in_no_job(unit):
    """Is told as both, and has no sizes to be brought up to date."""
    paths = stop_unseen(unit)
    unit.jobs.items.clear()
    with open(paths.recovery, "wb") as file:
        file.write(b"index")
    assert run(unit, "recover --apply").out == (
        f"{paths.media}: was broken off, the video daemon left what may mend it, and it is in no job; for you: see "
        "whether it plays, then enter it into the job; its markers stay\n")
    assert left_over(unit) == paths.names


@pytest.mark.parametrize("has_item", [True, False])
def test_of_a_start_that_was_cut_off_no_more_is_told_than_there_was(unit, has_item):
    """Markers, with an item or without."""
    paths = stop_unseen(unit)
    os.remove(paths.media)
    if not has_item:
        unit.jobs.items.clear()
    todo, done = ("its item is to be taken out of the job, its markers to be removed",
                  "its item was taken out of the job, its markers were removed") if has_item else (
                      "its markers are to be removed", "its markers were removed")
    assert run(unit, "recover").out == f"{paths.media}: was never recorded; {todo}\n"
    assert run(unit, "recover --apply").out == f"{paths.media}: {done}\n"
    assert unit.jobs.items == {} and left_over(unit) == []


@pytest.mark.parametrize("gone", ["film, its picture stays", "film that was closed", "film and markers", "picture"])
def test_an_item_whose_file_somebody_may_have_moved_stays(unit, gone):
    """Only that of a start that was cut off has a recovery file and nothing else."""
    paths = stop_unseen(unit)
    if gone == "picture":
        os.remove(unit.client.call("Snapshot", "uuu", 640, 480, 90)[0])
        recover(unit, "--apply")
    elif gone == "film, its picture stays":
        os.rename(paths.media, paths.snapshot)
    else:
        for path in (paths.media, paths.recovery, *([paths.rec_active] if "markers" in gone else [])):
            os.remove(path)
    before = left_over(unit)
    name = "0002.jpeg" if gone == "picture" else "0001.mp4"
    assert found(recover(unit, "--apply")) == {name: ("fileMissing", False)}
    assert left_over(unit) == before and len(unit.jobs.items) == (2 if gone == "picture" else 1)


def test_an_item_behind_the_last_file_is_missed_too(unit):
    """Whose number was given by hand; one far behind it is nobody's, and the ones before the next stay known."""
    before, last, item = (os.path.join(unit.media, "job1", "media", name)
                          for name in ("0001.jpeg", "0400.jpeg", "0401.jpeg"))
    os.makedirs(os.path.dirname(last))
    with open(last, "wb") as file:
        file.write(b"picture")
    for path in before, last, item:
        unit.jobs.add_media(path, "snapshot", (), (0,) * 8)
    for _ in range(2):
        unit.jobs.new_media_path_components()
    told = recover(unit)
    assert found(told) == {"0001.jpeg": ("fileMissing", False), "0401.jpeg": ("fileMissing", False)}
    assert [left["mediaId"] for left in told["found"]] == [unit.jobs.item_of(path).media_id for path in (before, item)]


@pytest.mark.parametrize("away", ["unmounted", "no such device", "no such folder"])
def test_items_are_not_missed_on_storage_that_is_not_there(unit, away):
    """Nobody wants them deleted."""
    VIDEO.start_recording(unit)
    unit.client.call("VideoRecordStop")
    unit.settle()
    mount = unit.media
    os.rename(mount, mount + "-away")
    if away == "no such device":
        unit.storage.remove_device("card")
    elif away == "unmounted":
        os.makedirs(os.path.join(mount, "job1", "media"))
        unit.storage.set_device("card", IsMounted=False)
    else:
        os.makedirs(mount)
    assert recover(unit, "--apply")["found"] == [] and len(unit.jobs.items) == 1


@pytest.mark.parametrize("marker", ["rec_active", "recovery"])
def test_one_marker_alone(unit, marker):
    """Of a start that was cut off between the two."""
    paths = stop_unseen(unit)
    unit.jobs.items.clear()
    for path in (paths.media, paths.rec_active, paths.recovery):
        if path != getattr(paths, marker):
            os.remove(path)
    assert found(recover(unit, "--apply")) == {"0001.mp4": ("neverRecorded", True)}
    assert left_over(unit) == []


def test_films_and_pictures_in_no_job_stay(unit):
    """With their markers; the picture of a film is the film's."""
    paths = stop_unseen(unit)
    unit.jobs.items.clear()
    folder = os.path.dirname(paths.media)
    for name in ("0001.jpeg", "other.jpeg"):
        with open(os.path.join(folder, name), "wb") as file:
            file.write(b"picture")
    before = left_over(unit)
    assert found(recover(unit, "--apply")) == {"0001.mp4": ("filmInNoJob", False),
                                               "other.jpeg": ("pictureInNoJob", False)}
    assert left_over(unit) == before


@pytest.mark.parametrize("is_open", [True, False], ids=["another job", "no job"])
def test_markers_of_a_job_that_is_not_open_are_listed(unit, is_open):
    """On every storage device."""
    paths = stop_unseen(unit)
    if is_open:
        unit.jobs.open("internal", "job2")
    else:
        unit.jobs.close()
    assert found(recover(unit, "--apply")) == {"0001.mp4": ("otherJob", False)}
    assert left_over(unit) == paths.names
    unit.jobs.open()
    assert found(recover(unit, "--apply")) == {"0001.mp4": ("stopped", True)}


def test_a_marker_of_the_job_is_found_once_however_the_storage_is_mounted(unit):
    """Here by a link."""
    stop_unseen(unit)
    os.symlink(unit.media, unit.media + "-link")
    unit.storage.set_device("card", MountPoint=unit.media + "-link/")
    assert found(recover(unit)) == {"0001.mp4": ("stopped", False)} and len(recover(unit)["found"]) == 1


def test_without_the_storage_daemon_other_jobs_are_not_looked_at(unit):
    """Which is said."""
    stop_unseen(unit)
    unit.faults.on("storage", kind=REFUSE)
    done = run(unit, "recover")
    assert done.status == DONE and done.out.count("\n") == 1
    assert done.errors == "controllerctl: the storage daemon cannot be asked; other jobs were not looked at\n"


# What fails -----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("fault", [CODE(5), REFUSE], ids=["code", "refused"])
def test_a_marker_stays_where_the_sizes_cannot_be_brought_up_to_date(unit, fault):
    """And what follows is mended nevertheless."""
    paths = stop_unseen(unit)
    other = stop_unseen(unit)
    unit.faults.on("jobs", "UpdateMediaFileSizes", kind=fault, times=1)
    told = recover(unit, "--apply", REFUSED)
    assert found(told) == {"0001.mp4": ("stopped", False), "0002.mp4": ("stopped", True)} and told["sizes"] == 1
    assert left_over(unit) == sorted([*paths.names, os.path.basename(other.media)])
    assert told["message"] == f"{paths.media}: its marker stays, since its sizes are not up to date"


@pytest.mark.parametrize("member", ["GetCurrentJobDeviceID", "GetCurrentJobID", "DeleteMediaItem"])
def test_markers_stay_where_the_item_cannot_be_removed(unit, member):
    """They are what it is found by."""
    paths = stop_unseen(unit)
    os.remove(paths.media)
    before = left_over(unit)
    unit.faults.on("jobs", member, kind=REFUSE)
    assert found(recover(unit, "--apply", REFUSED)) == {"0001.mp4": ("neverRecorded", False)}
    assert left_over(unit) == before and unit.jobs.item_of(paths.media)


def test_a_marker_that_cannot_be_removed(unit):
    """A folder with something in it under its name."""
    paths = stop_unseen(unit)
    os.remove(paths.rec_active)
    os.makedirs(os.path.join(paths.rec_active, "x"))
    told = recover(unit, "--apply", REFUSED)
    assert found(told) == {"0001.mp4": ("stopped", False)}
    assert told["message"] == f"{paths.media}: its markers cannot be removed"
    assert os.path.isdir(os.path.join(paths.rec_active, "x"))


# What happens meanwhile -----------------------------------------------------------------------------------------------


def is_recorded_again(unit, path):
    """The video daemon goes on with the file."""
    unit.video.change("video", 1, RecordingFilename=path)


def has_come(_unit, path):
    """Somebody puts a file there."""
    with open(path, "wb") as file:
        file.write(b"film")


def is_silenced(unit, _path):
    """Nobody tells any more what is being recorded."""
    unit.faults.on("video", kind=REFUSE)


@pytest.mark.parametrize("deed, complaint", [
    (is_recorded_again, "it is being recorded now"), (has_come, "it has come"),
    (is_silenced, "the video daemon does not say what it records: refused by the simulation")])
def test_what_has_changed_since_it_was_looked_at_stays(unit, deed, complaint):
    """It is looked at again right before it is mended."""
    saved, missing = stop_unseen(unit), stop_unseen(unit)
    os.remove(missing.media)
    unit.faults.on("jobs", "UpdateMediaFileSizes", times=1, kind=MEANWHILE(lambda: deed(unit, missing.media), True))
    told = recover(unit, "--apply", REFUSED)
    assert found(told)["0002.mp4"] == ("neverRecorded", False)
    assert told["message"] == f"{missing.media}: {complaint}"
    assert {os.path.basename(missing.rec_active), os.path.basename(missing.recovery)} < set(left_over(unit))
    assert unit.jobs.item_of(missing.media) and os.path.exists(saved.media)
