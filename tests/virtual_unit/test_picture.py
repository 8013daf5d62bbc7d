"""What the display shows: the pipe, the overlay, who is told of a new picture; and nobody draws what nobody sees."""

import io
import os
import re
import time

import pytest
from PIL import Image, ImageChops, ImageDraw, ImageFont, ImageStat

from virtual_unit import Client
from virtual_unit.archive import load, save
from virtual_unit.display import image, picture
from virtual_unit.framebuffers import INTERFACE, VIDEO
from virtual_unit.loop import shared_loop
from virtual_unit.picture import Overlay, View, camera, overlay
from virtual_unit.remote import Remote
from virtual_unit.simulation_names import ROOT, SERVICE
from virtual_unit.verbs import nouns

_SIZE = (1280, 720)
_MIDDLE = (640, 360)
#: Metres between two joints of the pipe.
_PIECE = 0.5
_AMBER, _WHITE, _RED = (255, 214, 92, 255), (255, 255, 255, 255), (255, 59, 48, 255)


@pytest.fixture(name="look")
def look_fixture():
    """Draws a view of the pipe in grey."""
    library = os.path.join(os.environ["CCU_BUILD_DIR"], "virtual_unit", "preload", "libpipe.so")
    return lambda **view: camera(library, View(**view), *_SIZE).convert("L")


@pytest.fixture(name="display")
def display_fixture(unit):
    """The display, as those see it who read `Screens`."""
    with Remote(unit.session_address) as remote:
        yield lambda: image(remote.state("front")["Screens"])


def _difference(one, other, mask=None):
    """Mean difference of two pictures' levels."""
    mean = ImageStat.Stat(ImageChops.difference(one, other), mask).mean
    return sum(mean) / len(mean)


def _round(radius):
    mask = Image.new("L", _SIZE)
    ImageDraw.Draw(mask).ellipse([_MIDDLE[0] - radius, _MIDDLE[1] - radius, _MIDDLE[0] + radius, _MIDDLE[1] + radius],
                                 fill=255)
    return mask


def _layer(unit, device):
    """What a framebuffer's file holds."""
    with open(unit.framebuffers.path(device), "rb") as file:
        content = file.read()
    return Image.frombytes(*(("RGB", _SIZE, content, "raw", "BGR") if device == VIDEO else
                             ("RGBA", _SIZE, content, "raw", "BGRA")))


# The pipe -------------------------------------------------------------------------------------------------------------


def _joint(seen):
    """How far above the middle the nearest joint is: where a line is darkest against those around it."""
    strip = seen.crop((_MIDDLE[0] - 10, 0, _MIDDLE[0] + 10, _MIDDLE[1])).resize((1, _MIDDLE[1]), Image.Resampling.BOX)
    levels = list(strip.getdata())[::-1]
    return max(range(60, 330), key=lambda y: levels[y - 14] + levels[y + 14] - 2 * levels[y])


def test_joints_come_nearer_by_the_law_of_perspective(look):
    """The nearer a joint the larger its ring, in proportion; and behind it is the next piece."""
    left = [0.38, 0.32, 0.26, 0.2, 0.16, 0.14]
    for piece in (3, 24):
        rings = [_joint(look(distance=(piece + 1) * _PIECE - metres)) for metres in left]
        products = [ring * metres for ring, metres in zip(rings, left)]
        assert rings == sorted(rings) and rings[-1] > 2 * rings[0]
        assert max(products) < 1.06 * min(products), rings


def test_a_place_always_looks_the_same_and_no_two_are_alike(look):
    """The pipe is made of its places, not of chance."""
    first = look(distance=12.34).tobytes()
    assert look(distance=12.35).tobytes() != first
    look(distance=1), look(distance=2)  # more than are kept
    assert look(distance=12.34).tobytes() == first
    assert _difference(look(distance=3.3), look(distance=3.3 + 4 * _PIECE)) > 4


@pytest.mark.parametrize("roll", [12, 90, -37, 180])
def test_the_picture_turns_with_the_camera(look, roll):
    """All of it, against the camera."""
    middle, straight, turned = _round(320), look(distance=12.3), look(distance=12.3, roll=roll)
    assert _difference(turned, straight.rotate(roll, Image.Resampling.BICUBIC), middle) < 2.5
    assert _difference(turned, straight, middle) > 8
    assert _difference(turned, straight.rotate(-roll, Image.Resampling.BICUBIC), middle) > 8 or roll == 180


def test_light_falls_off_towards_the_end_and_comes_from_the_lamps(look):
    """The middle is dark whatever is near."""
    seen = look(distance=12.1)
    rings = [ImageStat.Stat(seen, ImageChops.subtract(_round(radius), _round(radius // 2))).mean[0]
             for radius in (24, 80, 200, 350)]
    assert rings == sorted(rings) and rings[0] < 30 < 90 < rings[-1]
    means = [ImageStat.Stat(look(distance=12.1, light=light)).mean[0] for light in (0, 0.3, 1, 2)]
    assert means == sorted(means) and means[0] < 10 < means[1]


def test_the_end_moves_with_the_tilt_and_zoom_magnifies(look):
    """A camera that looks up has the end below the middle; a joint is as many times larger."""
    def end(seen):
        dark = seen.resize((32, 18), Image.Resampling.BOX)
        return min(range(32 * 18), key=list(dark.getdata()).__getitem__) // 32

    assert end(look(distance=2.1, pitch=15)) > end(look(distance=2.1)) > end(look(distance=2.1, pitch=-15))
    assert _joint(look(distance=12.2, zoom=1.5)) == pytest.approx(1.5 * _joint(look(distance=12.2)), rel=0.05)


# What is to be seen ---------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("view", [{"zoom": float("nan")}, {"zoom": float("inf")}, {"distance": float("inf")},
                                  {"distance": 2e7}, {"distance": -3.3}, {"light": -5.0}, {"pitch": 1e9}])
def test_a_view_from_nowhere_harms_nobody(look, view):
    """Whatever a client has set."""
    assert look(**view).size == _SIZE


def test_the_view_is_that_of_the_unit(unit):
    """Reel, angles, zoom and lamps."""
    unit.hardware.set_reel(absolute=4321, relative=1)
    unit.video.turn(roll=33, pitch=5)
    unit.video.set("CaptureZoom", 2.0)
    unit.hardware.set_property("/com/tavilon/common/Halvex1/camera", "Brightness", 100)
    assert unit.painter.scene().view == View(distance=43.21, roll=33.0, pitch=5.0, zoom=2.0, light=2.0)


@pytest.mark.parametrize("steps, override, roll", [("90", "0", 10), ("0", "0", 0), ("90", "30", 70), ("", "", 0),
                                                   ("nan", "inf", 0)])
def test_the_video_daemon_turns_the_picture_upright(unit, steps, override, roll):
    """In its steps, exactly, or by the angle that it was told."""
    unit.video.turn(roll=100)
    unit.video.set("RotationSteps", steps)
    unit.video.set("RotationOverrideAngle", override)
    assert unit.painter.scene().view.roll == 100
    unit.video.set("RotationEnabled", True)
    assert unit.painter.scene().view.roll == roll


def _play(unit, position, state=1):
    path = f"{unit.media}/film.mp4"
    with open(path, "wb"):
        pass
    unit.video.on_StartPlayback("", path, 1.0)
    unit.video.set("PlaybackPosition", position)
    unit.video.set("PlaybackState", state)


@pytest.mark.parametrize("happens, colour, notice", [
    (lambda unit: unit.hardware.set_video_status(0), (10, 24, 150), "NO SIGNAL"),
    (lambda unit: unit.hardware.on_SetPowerState("", 0, 0), (10, 24, 150), "NO SIGNAL"),
    (lambda unit: unit.video.die(), (0, 0, 0), "NO VIDEO"),
    (lambda unit: unit.video.set("DisplayContent", "none"), (0, 0, 0), ""),
    (lambda unit: _play(unit, 0, -1), (0, 0, 0), "PLAYBACK ERROR"),
])
def test_where_there_is_no_picture(unit, display, happens, colour, notice):
    """It is plain, and says why."""
    happens(unit)
    seen = display()
    assert seen.getpixel((100, 500)) == colour
    assert unit.painter.scene().overlay.notice == notice
    has_text = seen.crop((200, 300, 1080, 420)).getcolors(1) is None
    assert has_text == bool(notice)


def test_a_film_shows_a_pipe_of_its_own(unit):
    """As far as it has been played, and what and how far that is."""
    _play(unit, 12000)
    scene = unit.painter.scene()
    assert scene.view == View(distance=pytest.approx(1.2))
    assert scene.overlay.angles == "PLAY  film.mp4  00:12 / 01:00"
    unit.video.set("PlaybackState", 2)
    assert unit.painter.scene().overlay.angles.startswith("PAUSE ")
    unit.video.on_StopPlayback("", True)
    assert unit.painter.scene().view.distance == 12.34


# The overlay ----------------------------------------------------------------------------------------------------------


def _is_written(layer, text, colour, size, place, anchor):
    """Whether a text, rendered here, is what the layer has of a colour in the line."""
    font = ImageFont.truetype("/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf", size)
    mask = Image.new("L", _SIZE)
    draw = ImageDraw.Draw(mask)
    draw.text(place, text, font=font, fill=255, anchor=anchor)
    left, top, right, bottom = draw.textbbox(place, text, font=font, anchor=anchor)
    box = (left - 30, top - 10, right + 30, bottom + 10)
    wanted = [level == 255 for level in mask.crop(box).getdata()]
    got = [pixel == colour for pixel in layer.crop(box).getdata()]
    return sum(wanted) > 50 and wanted == got


@pytest.mark.parametrize("text, colour, size, place, anchor", [
    ("56.78 m", _AMBER, 52, (32, 678), "lm"), ("2027-01-15  09:00", _WHITE, 30, (32, 30), "lm")])
def test_the_overlay_says_it(unit, display, text, colour, size, place, anchor):
    """Letter for letter, and nothing else."""
    unit.hardware.move_reel(5678)
    unit.clock.set(1_800_000_000 + 3600)  # 2027-01-15 09:00 UTC, and in London
    display()
    layer = _layer(unit, INTERFACE)
    assert _is_written(layer, text, colour, size, place, anchor)
    assert not _is_written(layer, text.replace("7", "1", 1), colour, size, place, anchor)


@pytest.mark.parametrize("units, reel, distance, counter", [
    ("metres", {}, "2.34 m", "REL"), ("metres", {"mode": "absolute"}, "12.34 m", "ABS"), ("feet", {}, "7.7 ft", "REL"),
    ("metres", {"relative": -5}, "-0.05 m", "REL"), ("metres", {"connected": False}, "--.-- m", "")])
def test_the_counter(unit, units, reel, distance, counter):
    """In the units that are set, of the mode that is chosen."""
    unit.settings.change("reel", {"units": units})
    unit.hardware.set_reel(**reel)
    said = unit.painter.scene().overlay
    assert (said.distance, said.counter) == (distance, counter)


def test_the_time_is_that_of_the_units_zone(unit):
    """And the clock that was set."""
    unit.clock.set(1_800_000_000)
    assert unit.painter.scene().overlay.moment == "2027-01-15  08:00"
    unit.timedate.timezone = "UTC"
    unit.point_local_time("CCU/Berlin")
    assert unit.painter.scene().overlay.moment == "2027-01-15  09:00"
    unit.point_local_time("CCU/Nowhere")
    assert unit.painter.scene().overlay.moment == "2027-01-15  08:00"


def test_the_sign_of_a_recording_comes_and_goes(unit, video_client, display):
    """With the time that has been recorded, which does not run while it pauses."""
    def signs():
        return unit.painter.scene().overlay.signs

    def red():
        display()
        return sum(count for count, pixel in _layer(unit, INTERFACE).getcolors(10000) if pixel == _RED)

    assert signs() == () and red() == 0
    video_client.call("StartRecording", "sssuuu", f"{unit.media}/a.mp4", "", "", 1, 1, 1)
    unit.video.recorded["video"] = (0.0, time.monotonic() - 75)
    (text, paused), = signs()
    assert re.fullmatch(r"REC 0[1-9]:\d\d", text) and text >= "REC 01:15" and not paused
    assert red() > 300
    video_client.call("PauseRecording")
    unit.video.recorded["video"] = (75.5, None)
    assert signs() == (("REC 01:15", True),) and red() == 0
    video_client.call("ResumeRecording")
    assert unit.video.recorded["video"][0] == 75.5 and unit.video.recorded_seconds() >= 75.5 and not signs()[0][1]
    video_client.call("StartAutoLog", "sssuuu", f"{unit.media}/b.mp4", "", "", 1, 1, 1)
    assert [text[:8] for text, _ in signs()] == ["REC 01:1", "AUTO LOG"]
    for member in ("StopRecording", "StopAutoLog"):
        video_client.call(member)
    assert signs() == () and red() == 0
    video_client.call("StartRecording", "sssuuu", f"{unit.media}/a.mp4", "", "", 1, 1, 1)
    assert unit.video.recorded["video"][0] == 0


def test_the_overlay_can_be_switched_off_and_has_the_users_text(unit):
    """By the settings; the text by the video daemon's property."""
    unit.video.set("OverlayUserText", (1, 2, "Manhole 7", 3, "font"))
    assert unit.painter.scene().overlay.remark == "Manhole 7"
    unit.video.set("OverlayUserText", (1, 2, "M" * 100_000 + "\n", 3, "font"))
    assert unit.painter.scene().overlay.remark == "M" * 60
    unit.settings.change("overlay", {"enabled": False})
    assert overlay(unit.painter.scene().overlay, 320, 180).getcolors() == [(320 * 180, (0, 0, 0, 0))]
    for section in ("overlay", "reel"):
        unit.settings.remove_section(section)
    assert unit.painter.scene().overlay.distance == "2.34 m"
    assert len(overlay(Overlay("now"), 320, 180).getcolors()) > 1
    assert overlay(Overlay("now"), 100, 50).getcolors() == [(5000, (0, 0, 0, 0))], "where nobody could read it"


# One picture ----------------------------------------------------------------------------------------------------------


def test_a_snapshot_is_what_the_display_shows(unit, video_client, display):
    """Of any size, and as good as was ordered."""
    path = f"{unit.media}/a.jpeg"
    sizes, before = {}, None
    for width, height, quality, lost in ((*_SIZE, 100, 1), (640, 360, 95, 3), (*_SIZE, 10, 7)):
        for centimetres in (1234, 4321):
            unit.hardware.move_reel(centimetres)
            assert video_client.call("Snapshot", "suuu", path, width, height, quality) == (0,)
            seen = display().resize((width, height), Image.Resampling.BILINEAR)
            with Image.open(path) as taken:
                assert (taken.format, taken.size) == ("JPEG", (width, height))
                assert _difference(taken.convert("RGB"), seen) < lost
                assert before is None or before.size != seen.size or _difference(taken.convert("RGB"), before) > 10
            before = seen
        sizes[width, quality] = os.path.getsize(path)
    assert sizes[1280, 100] > 4 * sizes[1280, 10]


def test_the_display_as_a_file(unit, display):
    """As a person is to see it, in the forms that there are."""
    seen = display()
    screens = unit.framebuffers.screens()
    assert picture(screens, form="RGB") == seen.tobytes()
    for form in ("JPEG", "PNG"):
        with Image.open(io.BytesIO(picture(screens, (320, 180), form))) as file:
            assert (file.format, file.size) == (form, (320, 180))
            assert _difference(file.convert("RGB"), seen.resize((320, 180), Image.Resampling.BILINEAR)) < 3
    below = _layer(unit, VIDEO)
    for x, y in ((100, 300), (640, 360), (1200, 600)):  # where the overlay is clear
        assert seen.getpixel((x, y)) == below.getpixel((x, _SIZE[1] - y)), "upside down, one row too low"


def test_who_asks_for_a_screen_while_it_changes_is_told_of_one(unit):
    """Of the one before, and never of a part of either."""
    with open(unit.framebuffers.path(INTERFACE) + ".info", "rb", buffering=0) as asked:
        before = asked.read(1)
        unit.framebuffers.set(INTERFACE, 640, 480)
        before += asked.read()
    unit.framebuffers.set(INTERFACE, *_SIZE)
    with open(unit.framebuffers.path(INTERFACE) + ".info", "rb") as asked:
        assert asked.read() == before


def test_what_display_there_is_of_broken_devices(unit):
    """Each layer is shown as far as it is there."""
    unit.framebuffers.set(VIDEO, 20, 10, xoffset=3, yres_virtual=14, pixels=b"\x10\x20\x30" * 200)
    assert image(unit.framebuffers.screens()).getpixel((5, 5)) == (0x30, 0x20, 0x10), "the interface is of another size"
    unit.framebuffers.set(INTERFACE, 20, 10, pixels=b"\x00\x00\xff\xff" * 200)
    assert image(unit.framebuffers.screens()).getpixel((5, 5)) == (255, 0, 0)
    unit.framebuffers.cut(INTERFACE, 100)
    assert image(unit.framebuffers.screens()).getpixel((5, 5)) == (0x30, 0x20, 0x10)
    unit.framebuffers.remove(VIDEO)
    unit.framebuffers.hush(INTERFACE)
    assert image(unit.framebuffers.screens()).getcolors() == [(1280 * 720, (0, 0, 0))]


# Who is told, and who draws -------------------------------------------------------------------------------------------


class _Follower:
    """Has subscribed, and reads the display when it likes."""

    def __init__(self, unit):
        front = nouns()["front"]
        self._client = Client(unit.session_address, SERVICE, front.path, front.interface)
        self._client.call_on(SERVICE, ROOT, SERVICE, "Subscribe")

    def _frames(self):
        return [signal.args[1]["Frames"] for signal in self._client.signals
                if signal.member == "PropertiesChanged" and "Frames" in signal.args[1]]

    def told(self):
        """What it has been told of new pictures by now: the unit looks once more before it answers this."""
        self._client.call_on(SERVICE, ROOT, SERVICE, "Calls")
        return self._frames()

    def wait_told(self, count):
        """Waits until it has been told so often."""
        assert self._client.wait_until(lambda: len(self._frames()) >= count), self._client.signals

    def look(self):
        """Reads the display."""
        return image(self._client.get("Screens"))

    def close(self):
        """Leaves."""
        self._client.close()


@pytest.fixture(name="follower")
def follower_fixture(unit, monkeypatch):
    """A subscribed client, and no time goes by."""
    monkeypatch.setattr(unit.clock, "now", lambda: 1_800_000_000.0)
    follower = _Follower(unit)
    yield follower
    follower.close()


def test_who_has_looked_is_told_once_and_sees_it_by_looking_again(unit, follower):
    """However much happens meanwhile; a layer that is the same is not drawn anew."""
    first = follower.look()
    assert follower.told() == [] and unit.painter.drawn == 2
    for metres in (500, 600, 700):
        unit.hardware.move_reel(metres)
        assert follower.told() == [[1, 1]]
    assert unit.painter.drawn == 2, "nobody has looked"
    second = follower.look()
    assert second.tobytes() != first.tobytes() and unit.painter.drawn == 4
    assert follower.look().tobytes() == second.tobytes() and unit.painter.drawn == 4
    assert follower.told() == [[1, 1]]
    unit.hardware.set_reel(mode="absolute")
    assert follower.told() == [[1, 1], [1, 2]], "another counter, the same place"
    assert follower.look().tobytes() != second.tobytes() and unit.painter.drawn == 5
    assert follower.told() == [[1, 1], [1, 2]]


def test_who_has_looked_is_told_also_when_others_look_before(unit, follower):
    """As the daemon might for a screenshot, in the moment of a change."""
    follower.look()
    shared_loop().call(lambda: (unit.hardware.move_reel(500), unit.framebuffers.draw()))
    assert follower.told() == [[1, 1]]
    follower.look()
    assert follower.told() == [[1, 1]] and unit.painter.drawn == 4


def test_a_unit_that_nobody_looks_at_draws_nothing(unit, follower, video_client):
    """Whatever happens to it, also while somebody follows it; and nobody is told of pictures."""
    unit.hardware.move_reel(777)
    unit.video.turn(roll=9)
    video_client.call("StartRecording", "sssuuu", f"{unit.media}/a.mp4", "", "", 1, 1, 1)
    unit.clock.set(1_800_000_000)
    unit.stir()
    assert follower.told() == [] and unit.framebuffers.seconds_left() is None
    assert unit.painter.drawn == 0
    for device in (VIDEO, INTERFACE):
        assert not any(_layer(unit, device).tobytes())


def test_who_looks_is_told_when_only_time_goes_by(unit, follower, monkeypatch):
    """By an alarm that is set for then."""
    follower.look()
    assert follower.told() == []
    monkeypatch.setattr(unit.painter, "seconds_left", lambda: 0.001)
    assert follower.told() == []  # this look has set the alarm, and there is no other one to come
    monkeypatch.setattr(unit.clock, "now", lambda: 1_800_000_060.0)
    follower.wait_told(1)
    assert follower.told() == [[0, 1]]
    assert unit.framebuffers.seconds_left() is None


def test_how_long_a_picture_lasts(unit, video_client):
    """To the next minute, or to the next second of a recording that runs."""
    unit.clock.set(1_800_000_000 - 10)
    assert 0 < unit.painter.seconds_left() <= 60
    video_client.call("StartRecording", "sssuuu", f"{unit.media}/a.mp4", "", "", 1, 1, 1)
    assert 0 < unit.painter.seconds_left() <= 1


def test_pictures_of_others_stay_theirs(unit, follower, tmp_path):
    """Who writes to a layer has it; it is told of, and kept by a snapshot, until the layer gets its screen anew."""
    follower.look()
    with open(unit.framebuffers.path(INTERFACE), "r+b") as file:
        file.write(b"\x00\x00\xff\xff" * _SIZE[0] * _SIZE[1])
    follower.wait_told(1)
    save(unit, str(tmp_path / "kept.unit"))
    unit.hardware.move_reel(5)
    assert follower.look().getcolors() == [(_SIZE[0] * _SIZE[1], (255, 0, 0))]
    below = _layer(unit, VIDEO).tobytes()
    unit.framebuffers.set(INTERFACE, *_SIZE)
    unit.hardware.move_reel(5000)
    seen = follower.look()
    assert len(seen.getcolors(_SIZE[0] * _SIZE[1])) > 100
    load(unit, str(tmp_path / "kept.unit"))
    unit.hardware.move_reel(5000)
    assert follower.look().getcolors() == [(_SIZE[0] * _SIZE[1], (255, 0, 0))]
    assert _layer(unit, VIDEO).tobytes() != below, "this one is the unit's"


def test_pixels_of_a_test_stay(unit, follower):
    """What `set` was given is shown, and everything else of it that is wrong."""
    unit.framebuffers.set(VIDEO, 2, 2, pixels=b"\x01\x02\x03" * 4)
    unit.framebuffers.set(INTERFACE, 2, 2, pixels=b"\x00\x00\x00\x00" * 4)
    assert follower.look().getpixel((1, 1)) == (3, 2, 1)
    assert unit.painter.drawn == 0
    unit.framebuffers.set(VIDEO, *_SIZE)
    unit.framebuffers.announce(VIDEO, 2 ** 31, 2 ** 31, 24, 2 ** 31, 2 ** 31)
    unit.framebuffers.set(INTERFACE, *_SIZE)
    unit.framebuffers.cut(INTERFACE, 100)
    unit.framebuffers.draw()
    assert unit.painter.drawn == 0 and os.path.getsize(unit.framebuffers.path(INTERFACE)) == 100


def test_a_panned_screen_is_drawn_in_its_window(unit, display):
    """And nothing around it."""
    for device in (VIDEO, INTERFACE):
        unit.framebuffers.set(device, 64, 36, xoffset=8, yoffset=4, xres_virtual=80, yres_virtual=50)
    seen = display()
    assert seen.size == (64, 36) and len(seen.getcolors(64 * 36)) > 100
    with open(unit.framebuffers.path(VIDEO), "rb") as file:
        content = file.read()
    assert len(content) == 80 * 50 * 3 and content[:80 * 4 * 3] == b"\xa5" * 80 * 4 * 3
