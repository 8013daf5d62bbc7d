"""The one picture of a unit: the display, the daemon's screenshots and the snapshots that it orders show the same."""

import os

import pytest
from PIL import Image, ImageChops, ImageStat

from virtual_unit.display import image
from virtual_unit.framebuffers import INTERFACE, VIDEO


@pytest.fixture(name="unit")
def unit_without_time(own_unit):
    """A unit for which no time goes by."""
    own_unit.clock.now = lambda: 1_800_000_000.0
    own_unit.video.recorded_seconds = lambda kind="video": 5.0
    return own_unit


def _screenshot(unit):
    path, code, _ = unit.client.call("Screenshot", "s", unit.directory)
    assert code == 0
    with Image.open(path) as file:
        shot = file.convert("RGB")
    os.unlink(path)
    return shot


def _snapshot(unit, size):
    path, code, _ = unit.client.call("Snapshot", "uuu", *size, 100)
    assert code == 0
    with Image.open(path) as file:
        return file.convert("RGB")


def _expect_one_picture(unit, size=(1280, 720)):
    """The three of a scene; returns the display."""
    shot, seen, snapshot = _screenshot(unit), image(unit.framebuffers.screens()), _snapshot(unit, size)
    assert shot.size == seen.size == snapshot.size == size
    assert max(most for _, most in ImageChops.difference(shot, seen).getextrema()) <= 1, "rounding, where it is blended"
    assert max(ImageStat.Stat(ImageChops.difference(snapshot, seen)).mean) < 1.5, "what JPEG leaves out"
    return seen


def _mean_difference(one, other):
    return max(ImageStat.Stat(ImageChops.difference(one, other)).mean)


def test_display_screenshot_and_snapshot_are_one_picture(unit):
    """Of a unit that moves, turns, records, plays and loses its camera; each scene is another than that before."""
    seen = [_expect_one_picture(unit)]
    for happens in (lambda: unit.hardware.move_reel(1777), lambda: unit.video.turn(roll=-60),
                    lambda: unit.client.call("VideoRecordStart", "uuu", 1280, 720, 90),
                    lambda: unit.hardware.set_video_status(0), lambda: unit.client.call("VideoRecordStop"),
                    lambda: unit.hardware.set_video_status(1)):
        happens()
        seen.append(_expect_one_picture(unit))
        assert _mean_difference(*seen[-2:]) > 0.05
    film = unit.video.get("PreviousRecordingFilename")
    assert unit.client.call("VideoPlaybackStart", "sd", film, 1.0)[0] == 0
    assert _mean_difference(_expect_one_picture(unit), seen[-1]) > 2
    assert unit.client.call("VideoPlaybackStop", "b", True)[0] == 0
    assert _mean_difference(_expect_one_picture(unit), seen[-1]) < 0.5, "as before"


def test_on_a_smaller_screen_too(unit):
    """Of another shape."""
    for device in (VIDEO, INTERFACE):
        unit.framebuffers.set(device, 640, 480)
    assert len(_expect_one_picture(unit, (640, 480)).getcolors(640 * 480)) > 1000


def test_screenshots_have_it_drawn_and_nothing_else_does(unit):
    """Once for each layer of each scene."""
    unit.hardware.move_reel(1)
    assert unit.painter.drawn == 0
    first = _screenshot(unit)
    assert unit.painter.drawn == 2
    assert _screenshot(unit).tobytes() == first.tobytes() and unit.painter.drawn == 2
    unit.hardware.move_reel(50)
    unit.settle()
    assert unit.painter.drawn == 2
    assert _screenshot(unit).tobytes() != first.tobytes() and unit.painter.drawn == 4


@pytest.mark.parametrize("device", [VIDEO, INTERFACE])
def test_layers_that_are_a_tests_own_are_not_waited_for(unit, device):
    """The daemon knocks for none of them: what others have drawn does not cost the unit anything."""
    knocks = []
    unit.framebuffers.draw = lambda: knocks.append(1)
    pixels = bytes(64 * 32 * (3, 4)[device])
    for each in (VIDEO, INTERFACE):
        unit.framebuffers.set(each, 64, 32)
    unit.framebuffers.set(device, 64, 32, pixels=pixels)
    _screenshot(unit)
    assert len(knocks) == 1, "for the other one"
    unit.framebuffers.set(1 - device, 64, 32, pixels=bytes(64 * 32 * (4, 3)[device]))
    assert set(_screenshot(unit).getdata()) == {(0, 0, 0)}
    assert len(knocks) == 1


def test_a_unit_that_does_not_answer_the_door_shows_what_it_has(unit):
    """The daemon does not wait for nobody."""
    before = _screenshot(unit)
    unit.framebuffers.close()
    unit.hardware.move_reel(4711)
    assert _screenshot(unit).tobytes() == before.tobytes()
