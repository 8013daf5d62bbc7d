"""Folders of media in every condition: what the start answers, and that nothing is lost."""

import os

import pytest

from tests.integration.client_driver import ClientDriver
from tests.integration.recording_texts import (MESSAGES, VIDEO, error, info, left_over, lines_of)
from virtual_unit import REFUSE, VirtualUnit


def redirect(unit, folder, stem="0001"):
    """Has the jobs manager hand out another folder."""
    unit.jobs.on_GetNewMediaPathComponents = lambda _path: (0, folder, stem)


def start(unit):
    """Orders a start; returns its answer and the new lines."""
    mark = unit.log.mark()
    answer = unit.client.call("VideoRecordStart", "uuu", 640, 480, 50)
    return answer, lines_of(unit, mark)


def test_a_folder_that_is_missing_is_made_with_its_parents(unit):
    redirect(unit, os.path.join(unit.media, "a", "b", "c"))
    assert start(unit)[0] == (0, MESSAGES[0])
    assert os.path.exists(os.path.join(unit.media, "a", "b", "c", "0001.mp4"))


def test_a_folder_that_is_a_link_to_a_folder_will_do(unit):
    target = os.path.join(unit.media, "target")
    os.mkdir(target)
    os.symlink(target, os.path.join(unit.media, "link"))
    redirect(unit, os.path.join(unit.media, "link"))
    assert start(unit)[0] == (0, MESSAGES[0])


def test_a_folder_that_is_a_file_is_left_alone(unit):
    folder = os.path.join(unit.media, "file")
    with open(folder, "w", encoding="ascii") as file:
        file.write("kept")
    redirect(unit, folder)
    answer, lines = start(unit)
    assert answer == (-4, MESSAGES[-4])
    assert error(f"Path beneath media item exists, but is not a folder: {folder}") in lines
    with open(folder, encoding="ascii") as file:
        assert file.read() == "kept"


@pytest.mark.parametrize("stem", ["file/below", "0" * 300])
def test_a_folder_that_cannot_be_made(unit, stem):
    with open(os.path.join(unit.media, "file"), "w", encoding="ascii"):
        pass
    folder = os.path.join(unit.media, stem)
    redirect(unit, folder)
    answer, lines = start(unit)
    assert answer == (-4, MESSAGES[-4])
    assert error(f"Path beneath media item could not be created: {folder}") in lines


def test_a_path_of_four_thousand_characters(unit):
    folder = unit.media
    while len(folder) < 4000:
        folder = os.path.join(folder, "d" * 200)
    redirect(unit, folder)
    answer, lines = start(unit)
    assert answer[0] in (0, -4)
    assert any(folder in text for _, text in lines), "lines hold the whole path"
    assert unit.client.call("VideoRecordStop")[0] in (0, -1)


def test_an_empty_stem(unit):
    redirect(unit, os.path.join(unit.media, "x"), stem="")
    answer, lines = start(unit)
    assert answer == (-4, MESSAGES[-4])
    assert error("ControllerDaemon - StorageManager::GetFilename : JobsManager::GetNewMediaPathComponents "
                 "returned empty filenameStem") in lines
    assert not os.path.exists(os.path.join(unit.media, "x"))


@pytest.mark.parametrize("name", ["with blanks", "100%s%n%d", "quo'te\"s", "semi;colon`$(x)", "ümläut", "-dash",
                                  "new\nline"])
def test_names_of_every_kind_are_only_names(unit, name):
    folder = os.path.join(unit.media, name)
    redirect(unit, folder)
    answer, lines = start(unit)
    assert answer == (0, MESSAGES[0])
    assert info(f"Video file {folder}/0001.mp4 ok") in lines
    unit.settle()
    assert unit.client.call("VideoRecordStop") == (0, MESSAGES[0])
    assert os.listdir(folder) == ["0001.mp4"]


def test_a_stem_with_dots_keeps_all_but_the_extension(unit):
    folder = os.path.join(unit.media, "dots")
    redirect(unit, folder, stem="0.0.1")
    assert start(unit)[0][0] == 0
    assert sorted(os.listdir(folder)) == [".0.0.1-recActive", ".0.0.1-recovery", "0.0.1.mp4"]
    assert unit.video.orders["video"].snapshot == os.path.join(folder, "0.0.1.jpeg")


def test_a_full_disk_without_the_folder(make_unit):
    unit = make_unit(environment={"CCU_FULL_DISK": "*/media/card/*"})
    folder = os.path.join(unit.media, "new")
    redirect(unit, folder)
    answer, lines = start(unit)
    assert answer == (-4, MESSAGES[-4])
    assert error(f"Path beneath media item could not be created: {folder}") in lines


def test_a_full_disk_with_the_folder_lets_the_video_daemon_decide(make_unit):
    unit = make_unit(environment={"CCU_FULL_DISK": "*/media/card/*"})
    folder = os.path.join(unit.media, "job1", "media")
    os.makedirs(folder)
    VIDEO.start_recording(unit)
    assert left_over(unit) == ["0001.mp4"], "no marker could be made"
    assert unit.client.call("VideoRecordStop") == (0, MESSAGES[0])


@pytest.fixture(scope="module", name="driver")
def driver_fixture():
    """A driver of the operations by which the daemon's parts get their paths, and the unit that it asks."""
    with VirtualUnit(daemon=False) as unit, ClientDriver(unit, program="capture_driver") as driver:
        yield unit, driver


@pytest.mark.parametrize("operation, suffix", [
    ("GetNextSnapshotPath", ".jpeg"), ("GetNextVideoRecordingPath", ".mp4"), ("GetNextPhotoTalkPath", "-photoTalk.mp4"),
    ("GetNextAutoLogPath", "-autolog.mp4")])
def test_a_path_is_empty_when_there_is_none(driver, operation, suffix):
    """Whatever the caller had there before."""
    unit, asked = driver
    folder = os.path.join(unit.media, "paths")
    redirect(unit, folder)
    assert asked.run(f"paths.{operation}").outs == [f"{folder}/0001{suffix}"]
    for answer, code in (((7, "", ""), -7), ((5, folder, "0002"), -4), ((0, folder, ""), -4)):
        unit.jobs.on_GetNewMediaPathComponents = lambda _path, answer=answer: answer
        outcome = asked.run(f"paths.{operation}")
        assert (outcome.result, outcome.outs) == (code, [""])
    rule = unit.faults.on("jobs", "GetNewMediaPathComponents", kind=REFUSE)
    outcome = asked.run(f"paths.{operation}")
    rule.cancel()
    assert (outcome.result, outcome.outs) == (-4, [""])
