"""Snapshots: what they ask, in which order, what they leave and say, and every way to be refused."""

import os
import struct

import pytest

from tests.integration.playback_texts import (
    SNAPSHOT, SNAPSHOT_CALLS, first_picture, ordered_lines, snapshot_lines)
from tests.integration.recording_texts import (
    CAMERA, MESSAGES, REEL, VIDEO, Watch, debug, error, info, left_over, opened, reason)
from virtual_unit import CODE, DIE, PATIENCE, REFUSE


def snapshot(unit, width=640, height=480, quality=90):
    """Orders a snapshot; returns its answer."""
    return unit.client.call("Snapshot", "uuu", width, height, quality)


def size_of_picture(path):
    """Width and height of a JPEG, from its frame header."""
    with open(path, "rb") as file:
        data = file.read()
    assert data.startswith(b"\xff\xd8\xff") and data.endswith(b"\xff\xd9")
    height, width = struct.unpack_from(">HH", data, data.index(b"\xff\xc0") + 5)
    return width, height


def test_a_snapshot_asks_in_order_registers_the_picture_and_tells_each_step(unit):
    watch = Watch(unit)
    path = first_picture(unit)
    assert snapshot(unit) == (path, 0, "Ran successfully")
    assert watch.calls == SNAPSHOT_CALLS
    assert watch.lines == snapshot_lines(path)
    assert unit.calls.of("video", "Snapshot")[0].arguments == (path, 640, 480, 90)
    assert size_of_picture(path) == (640, 480)
    item = unit.jobs.item_of(path)
    assert (item.path, item.type) == (path, "snapshot")
    assert (item.angles, item.reel) == ((True, 12, True, -3), (True, 1234, 234))
    assert left_over(unit) == ["0001.jpeg"]
    assert unit.client.announced == []


def test_the_reply_is_path_code_and_message(unit):
    reply = unit.client.call_async("Snapshot", "uuu", 1, 1, 1).result(PATIENCE)
    assert reply.signature == "sis"


def test_what_the_jobs_manager_is_told_of_camera_and_reel(unit):
    unit.video.set("AutoRotateCapable", False)
    unit.video.set("CameraPitchAngle", -90)
    unit.hardware.set_reel(connected=True, mode="absolute", absolute=-7, relative=9)
    watch = Watch(unit)
    path, *_ = snapshot(unit)
    assert unit.calls.of("jobs", "AddSnapshotMedia")[0].arguments == (
        path, "snapshot", False, 0, True, -90, True, -7, 0)
    assert watch.lines[7:] == [
        info(f"{CAMERA} GetAutoRotateCameraConnected: False"), info(f"{CAMERA} GetTiltsenseCameraConnected: True"),
        info(f"{CAMERA} GetCameraPitchAngle: -90"), opened("GetReelConnected"),
        info(f"{REEL} GetReelConnected reported True"), opened("GetReelDistanceAbsolute"),
        opened("GetReelDistanceSoftwareMode"),
        info(f"{REEL} reelDist: [valid, absCentimetres, relCentimetres] = [True, -7, 0]"),
        *snapshot_lines(path)[-3:]]


@pytest.mark.parametrize("order", [(1, 1, 1), (1920, 1080, 100), (4096, 4096, 50)])
def test_the_order_goes_to_the_video_daemon_as_it_is(unit, order):
    width, height, quality = order
    watch = Watch(unit)
    path = first_picture(unit)
    assert snapshot(unit, *order) == (path, 0, MESSAGES[0])
    assert watch.lines == snapshot_lines(path, width=width, height=height, quality=quality)
    assert size_of_picture(path) == (width, height)


@pytest.mark.parametrize("order", [(0, 0, 0), (4294967295, 4294967295, 4294967295)])
def test_an_order_that_the_video_daemon_cannot_carry_out_is_its_to_refuse(unit, order):
    width, height, quality = order
    watch = Watch(unit)
    path = first_picture(unit)
    assert snapshot(unit, *order) == (path, -1, "Unknown error")
    assert watch.lines == [*ordered_lines(path, width, height, quality),
                           error(f"{SNAPSHOT} Failed to generate snapshot"), reason(-1)]
    assert left_over(unit) == []


def test_snapshots_follow_each_other_and_a_recording_goes_on(unit):
    recording = VIDEO.start_recording(unit)
    paths = [snapshot(unit)[0] for _ in range(3)]
    assert [os.path.basename(path) for path in paths] == ["0002.jpeg", "0003.jpeg", "0004.jpeg"]
    assert all(unit.jobs.item_of(path).type == "snapshot" for path in paths)
    assert unit.video.state() == 1 and os.path.exists(recording.rec_active)


# Refusals -------------------------------------------------------------------------------------------------------------


def path_failed_lines(*lines, code):
    """The lines of a snapshot that gets no path."""
    return [info(f"{SNAPSHOT} called"), info("Controller - StorageManager::GetFilepathComponents"),
            debug("GetNewMediaPathComponents"), *lines,
            error("GetNextSnapshotPath: Failed to get new snapshot file path"),
            info("Failed to get snapshot filepath"), reason(code)]


def test_without_a_current_job(unit):
    unit.jobs.close()
    watch = Watch(unit)
    assert snapshot(unit) == ("", -7, "No current job - unable to record")
    assert watch.calls == SNAPSHOT_CALLS[:1]
    assert watch.lines == path_failed_lines(
        error("ControllerDaemon - StorageManager::GetFilename : JobsManager::GetNewMediaPathComponents - "
              "No current job."), code=-7)


@pytest.mark.parametrize("code, text", [(3, "Failed: Filesystem is read only"), (-1, "Unknown error code")])
def test_when_the_jobs_manager_gives_no_path(unit, code, text):
    unit.jobs.answer_code("GetNewMediaPathComponents", code)
    watch = Watch(unit)
    assert snapshot(unit) == ("", -4, MESSAGES[-4])
    assert watch.lines == path_failed_lines(
        error("ControllerDaemon - StorageManager::GetFilename : JobsManager::GetNewMediaPathComponents error: " + text),
        code=-4)


def redirect(unit, folder, stem="0001"):
    """Has the jobs manager hand out another folder."""
    unit.jobs.on_GetNewMediaPathComponents = lambda _path: (0, folder, stem)


def test_without_a_stem(unit):
    redirect(unit, unit.media, "")
    watch = Watch(unit)
    assert snapshot(unit) == ("", -4, MESSAGES[-4])
    assert watch.lines == path_failed_lines(
        error("ControllerDaemon - StorageManager::GetFilename : JobsManager::GetNewMediaPathComponents returned "
              "empty filenameStem"), code=-4)


def test_with_a_file_where_the_folder_should_be(unit):
    folder = os.path.join(unit.media, "file")
    with open(folder, "w", encoding="ascii") as file:
        file.write("kept")
    redirect(unit, folder)
    watch = Watch(unit)
    assert snapshot(unit) == ("", -4, MESSAGES[-4])
    assert watch.lines == path_failed_lines(error(f"Path beneath media item exists, but is not a folder: {folder}"),
                                            code=-4)
    with open(folder, encoding="ascii") as file:
        assert file.read() == "kept"


@pytest.mark.parametrize("answer", [-1, -2147483648])
def test_a_picture_that_the_video_daemon_gave_up_is_removed(unit, answer):
    def write_part(_object, path, *_order):
        with open(path, "wb") as file:
            file.write(b"\xff\xd8 and no more")
        return answer

    unit.video.on_Snapshot = write_part
    watch = Watch(unit)
    path = first_picture(unit)
    assert snapshot(unit) == (path, -1, "Unknown error")
    assert watch.calls == SNAPSHOT_CALLS[:2]
    assert watch.lines == [*ordered_lines(path), error(f"{SNAPSHOT} Failed to generate snapshot"), reason(-1)]
    assert left_over(unit) == []
    assert not unit.jobs.items


def test_what_cannot_be_removed_is_not_told(unit):
    path = first_picture(unit)
    os.makedirs(os.path.join(path, "full"))
    unit.faults.on("video", "Snapshot", kind=CODE(-3))
    watch = Watch(unit)
    assert snapshot(unit) == (path, -1, "Unknown error")
    assert watch.lines == [*ordered_lines(path), error(f"{SNAPSHOT} Failed to generate snapshot"), reason(-1)]
    assert os.path.isdir(os.path.join(path, "full"))


def test_a_positive_answer_of_the_video_daemon_is_a_success(unit):
    unit.video.on_Snapshot = lambda *_order: 1
    assert snapshot(unit) == (first_picture(unit), 0, MESSAGES[0])


@pytest.mark.parametrize("code, text", [(3, "Failed: Filesystem is read only"), (30, "Unknown error code"),
                                        (-1, "Unknown error code")])
def test_a_picture_that_the_jobs_manager_rejects_is_kept_and_a_success(unit, code, text):
    unit.jobs.answer_code("AddSnapshotMedia", code)
    watch = Watch(unit)
    path = first_picture(unit)
    assert snapshot(unit) == (path, 0, "Ran successfully")
    assert watch.calls == SNAPSHOT_CALLS
    assert watch.lines == snapshot_lines(path, code, text)
    assert size_of_picture(path) == (640, 480)
    assert not unit.jobs.items


def test_a_picture_that_cannot_be_registered_is_kept_and_a_success(unit):
    unit.faults.on("jobs", "AddSnapshotMedia", kind=REFUSE)
    watch = Watch(unit)
    path = first_picture(unit)
    assert snapshot(unit) == (path, 0, "Ran successfully")
    call_line, failed_line, reply_line = watch.lines[-3:]
    # The doubled m is in the line of a call that did not get through, as support people know it.
    assert call_line[1].startswith("libjobsdaemon::JobsManager::AddSnapshotMediaItemm: sd_bus_call_method failed r = -")
    result = call_line[1].split(" r = ")[1].split(" ")[0]
    assert failed_line == error(f"{SNAPSHOT}: Failed to add snapshot media item, r = {result}")
    assert reply_line == reason(0)
    assert os.path.exists(path)


def test_a_video_daemon_that_comes_back_takes_the_next(unit):
    unit.faults.on("video", "Snapshot", kind=DIE, times=1)
    assert snapshot(unit)[1] == -1
    unit.video.revive()
    path, code, _ = snapshot(unit)
    assert code == 0 and unit.jobs.item_of(path).type == "snapshot"


# Paths ----------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("folder, stem", [("100 %s%n folder", "50%d"), ("a/b/c", "0001"), ("\u00e4 \u65e5", "\u672c"),
                                          ("dot", "0001.2")])
def test_paths_are_texts_and_never_formats(unit, folder, stem):
    folder = os.path.join(unit.media, folder)
    redirect(unit, folder, stem)
    watch = Watch(unit)
    path = f"{folder}/{stem}.jpeg"
    assert snapshot(unit) == (path, 0, MESSAGES[0])
    assert watch.lines == snapshot_lines(path)
    assert os.path.exists(path)


def test_a_path_of_four_thousand_characters(unit):
    folder = unit.media
    while len(folder) < 3800:
        folder = os.path.join(folder, "0" * 150)
    redirect(unit, folder, "1" * 150)
    watch = Watch(unit)
    path = f"{folder}/{'1' * 150}.jpeg"
    assert snapshot(unit) == (path, 0, MESSAGES[0])
    assert watch.lines == snapshot_lines(path)
    assert os.path.exists(path)
