"""Screenshots: every pixel of the written file against an independent model, every refusal with all its lines."""

import itertools
import os
import random
import re
import resource
import shutil
import time

import pytest
from PIL import Image

from tests.integration.screenshot_model import (
    MESSAGES, NO_FILE, NO_IOCTL, NO_MATCH, NO_MEMORY, NO_OPEN, NO_READ, NO_RGB, blended, both_layers, done, failed,
    geometry, mirrored, rows_of, screen)
from tests.integration.time_texts import second
from virtual_unit.framebuffers import INTERFACE, VIDEO

LOGS = "/mnt/ccu-data/logs"
HUGE = 2 ** 31
LARGEST = 2 ** 32 - 1

# What happens ---------------------------------------------------------------------------------------------------------


@pytest.fixture(name="folder")
def folder_for_pictures(unit):
    """An empty folder, in one that goes with it."""
    around = os.path.join(unit.directory, "around")
    path = os.path.join(around, "pictures")
    os.makedirs(path)
    yield path
    shutil.rmtree(around)


def take(unit, folder):
    """Takes a screenshot; returns its answer and the new lines."""
    mark, calls = unit.log.mark(), unit.calls.mark()
    answer = unit.client.call("Screenshot", "s", folder)
    assert unit.calls.members(since=calls) == [], "no sibling is asked"
    return answer, [(line.priority, line.text) for line in unit.log.since(mark)]


def expect_refused(unit, folder, lines):
    """Takes a screenshot that must fail with these lines and leave no file."""
    answer, logged = take(unit, folder)
    assert answer[1:] == (-1, MESSAGES[-1])
    assert logged == failed(answer[0], lines)
    assert os.listdir(folder) == []


def read(path):
    """The rows of a written file."""
    with Image.open(path) as image:
        assert (image.format, image.mode) == ("PNG", "RGB")
        return rows_of(image.tobytes(), *image.size, 3)


def random_layers(width, height, seed, alphas=range(256)):
    """The pixels of both layers."""
    source = random.Random(seed)
    video = source.randbytes(width * height * 3)
    interface = bytearray(source.randbytes(width * height * 4))
    interface[3::4] = bytes(source.choices(list(alphas), k=width * height))
    return video, bytes(interface)


def expect_screen(unit, folder, width, height, video, interface):
    """Takes a screenshot that must succeed and compares every pixel and every line; returns the file's path."""
    answer, logged = take(unit, folder)
    assert answer[1:] == (0, MESSAGES[0])
    assert logged == done(answer[0], both_layers(width, height))
    assert read(answer[0]) == screen(width, height, video, interface)
    return answer[0]


# Pixels ---------------------------------------------------------------------------------------------------------------


def test_a_fresh_unit_shows_its_picture(unit, folder):
    """Pixel by pixel what its layers hold, in rows of the bands, of the middle and at the edges."""
    answer, logged = take(unit, folder)
    assert logged == done(answer[0], both_layers(1280, 720))
    rows, (video, interface) = read(answer[0]), drawn(unit, 1280, 720)
    assert set(rows[0]) == {(0, 0, 0)}, "a black row at the top"
    for y in (1, 30, 59, 60, 300, 360, 500, 678, 719):
        assert rows[y] == [blended(*pair)[::-1] for pair in zip(video[720 - y], interface[y])]
        assert len(set(rows[y])) > 50


def drawn(unit, width, height):
    """The rows of the layers that the unit has drawn."""
    layers = []
    for device, pixel in ((VIDEO, 3), (INTERFACE, 4)):
        with open(unit.framebuffers.path(device), "rb") as file:
            layers.append(rows_of(file.read(), width, height, pixel))
    return layers


@pytest.mark.parametrize("width, height",
                         [*itertools.product((1, 2, 3, 4, 5, 17), (1, 2, 3, 6, 7)), (67, 64), (48, 33)])
def test_every_pixel_of_every_size(unit, folder, width, height):
    layers = random_layers(width, height, seed=width * 1000 + height)
    unit.framebuffers.set(VIDEO, width, height, pixels=layers[0])
    unit.framebuffers.set(INTERFACE, width, height, pixels=layers[1])
    expect_screen(unit, folder, width, height, *layers)


@pytest.mark.parametrize("alpha", [0, 1, 127, 128, 254, 255])
def test_every_pixel_of_one_alpha(unit, folder, alpha):
    width, height = 53, 20
    layers = random_layers(width, height, seed=alpha, alphas=[alpha])
    unit.framebuffers.set(VIDEO, width, height, pixels=layers[0])
    unit.framebuffers.set(INTERFACE, width, height, pixels=layers[1])
    path = expect_screen(unit, folder, width, height, *layers)
    if alpha == 0:
        bottom = mirrored(rows_of(layers[0], width, height, 3))
        assert read(path) == [[pixel[::-1] for pixel in row] for row in bottom]


@pytest.mark.parametrize("width, height", [(1920, 7), (1920, 8), (1920, 9), (1920, 17), (1921, 16), (20000, 3),
                                           (3, 6000), (1, 16385)])
@pytest.mark.parametrize("spare", [0, 5])
def test_layers_that_are_read_in_several_bands(unit, folder, width, height, spare):
    layers = random_layers(width, height, seed=width + height)
    for device in (VIDEO, INTERFACE):
        unit.framebuffers.set(device, width, height, xres_virtual=width + spare, pixels=layers[device])
    expect_screen(unit, folder, width, height, *layers)


@pytest.mark.parametrize("rows", [0, 1, 8, 100, 119])
def test_an_interface_that_ends_in_any_band(unit, folder, rows):
    width, height = 640, 120
    for device in (VIDEO, INTERFACE):
        unit.framebuffers.set(device, width, height)
    unit.framebuffers.cut(INTERFACE, rows * width * 4 + 3)
    expect_refused(unit, folder, geometry(VIDEO, width, height, 3) + NO_READ)


def test_half_of_white_over_black_is_128(unit, folder):
    unit.framebuffers.set(VIDEO, 2, 1, pixels=bytes(6))
    unit.framebuffers.set(INTERFACE, 2, 1, pixels=b"\xff\xff\xff\x80" * 2)
    assert read(take(unit, folder)[0][0]) == [[(128, 128, 128)] * 2]


@pytest.mark.parametrize("xoffset, yoffset, right, below", [(0, 8, 0, 0), (0, 0, 0, 8), (5, 0, 0, 0), (0, 0, 7, 0),
                                                            (5, 8, 7, 3)])
def test_only_the_visible_window_of_a_virtual_screen(unit, folder, xoffset, yoffset, right, below):
    width, height = 18, 9
    layers = random_layers(width, height, seed=xoffset + yoffset)
    for device in (VIDEO, INTERFACE):
        # The layers are panned each in its own way.
        unit.framebuffers.set(device, width, height, xres_virtual=xoffset + width + right + device,
                              yres_virtual=yoffset + height + below, xoffset=xoffset, yoffset=yoffset,
                              pixels=layers[device])
    expect_screen(unit, folder, width, height, *layers)


# The screen's refusals ------------------------------------------------------------------------------------------------

SMALL = (6, 4)


@pytest.fixture(name="small")
def small_unit(unit):
    """A unit with small layers."""
    for device in (VIDEO, INTERFACE):
        unit.framebuffers.set(device, *SMALL)
    return unit


def before(device):
    """The lines that come before those of a layer."""
    return geometry(VIDEO, *SMALL, 3) if device == INTERFACE else []


DEVICES = pytest.mark.parametrize("device", [VIDEO, INTERFACE])


@DEVICES
def test_a_layer_that_is_absent(small, folder, device):
    small.framebuffers.remove(device)
    expect_refused(small, folder, before(device) + NO_OPEN)


@DEVICES
def test_a_layer_that_is_no_framebuffer(small, folder, device):
    small.framebuffers.hush(device)
    expect_refused(small, folder, before(device) + NO_IOCTL)


@DEVICES
def test_a_layer_that_cannot_be_read(small, folder, device):
    small.framebuffers.break_reads(device)
    expect_refused(small, folder, before(device) + NO_READ)


@DEVICES
@pytest.mark.parametrize("missing", [1, 40, None])
def test_a_layer_that_ends_early(small, folder, device, missing):
    size = os.path.getsize(small.framebuffers.path(device))
    small.framebuffers.cut(device, size - (missing or size))
    expect_refused(small, folder, before(device) + NO_READ)


@DEVICES
def test_a_panned_layer_that_ends_in_its_window(small, folder, device):
    small.framebuffers.set(device, *SMALL, xoffset=2, yoffset=2)
    small.framebuffers.cut(device, os.path.getsize(small.framebuffers.path(device)) - 1)
    expect_refused(small, folder, before(device) + NO_READ)


@pytest.mark.parametrize("video, interface",
                         [(16, 32), (32, 32), (24, 24), (24, 16), (32, 24), (8, 8), (4, 32), (24, 1)])
def test_layers_of_other_pixels(unit, folder, video, interface):
    for device, bits in ((VIDEO, video), (INTERFACE, interface)):
        unit.framebuffers.set(device, *SMALL, bits=bits, pixels=bytes(6 * 4 * (bits // 8)))
    expect_refused(unit, folder,
                   geometry(VIDEO, *SMALL, video // 8) + geometry(INTERFACE, *SMALL, interface // 8) + NO_RGB)


@pytest.mark.parametrize("width, height", [(5, 4), (7, 4), (6, 3), (6, 5), (4, 6)])
def test_layers_of_different_sizes(small, folder, width, height):
    small.framebuffers.set(INTERFACE, width, height)
    expect_refused(small, folder, geometry(VIDEO, *SMALL, 3) + geometry(INTERFACE, width, height, 4) + NO_MATCH)


def test_layers_of_different_sizes_and_other_pixels_do_not_match(small, folder):
    small.framebuffers.set(INTERFACE, 5, 4, bits=16, pixels=bytes(40))
    expect_refused(small, folder, geometry(VIDEO, *SMALL, 3) + geometry(INTERFACE, 5, 4, 2) + NO_MATCH)


@DEVICES
@pytest.mark.parametrize("lines, width, height, bits, xres_virtual, xoffset, yoffset", [
    (NO_READ, 0, 4, 24, 6, 0, 0), (NO_READ, 6, 0, 24, 6, 0, 0), (NO_READ, 0, 0, 24, 0, 0, 0),
    (NO_READ, 6, 4, 24, 5, 0, 0), (NO_READ, 6, 4, 24, 6, 1, 0), (NO_READ, 6, 4, 24, 6, LARGEST, 0),
    (NO_READ, 6, 4, 24, LARGEST, LARGEST, 0), (NO_READ, 6, 4, 24, LARGEST, 0, LARGEST),
    (NO_READ, 6, 4, 24, 6, 0, LARGEST), (NO_READ, 6, 4, 24, HUGE, HUGE - 6, HUGE),
    (NO_READ, 6, 4, 32, HUGE, 0, HUGE), (NO_READ, 6, 4000, 24, 6, 0, 0), (NO_READ, 4000, 4, 24, 4000, 0, 0),
    (NO_MEMORY, HUGE, 4, 24, HUGE, 0, 0), (NO_MEMORY, 6, HUGE, 24, 6, 0, 0), (NO_MEMORY, HUGE, HUGE, 24, HUGE, 0, 0),
    (NO_MEMORY, LARGEST, LARGEST, 32, LARGEST, 0, 0), (NO_MEMORY, LARGEST, LARGEST, LARGEST, LARGEST, 0, 0),
    (NO_MEMORY, 6, 4, LARGEST, 6, 0, 0), (NO_MEMORY, 2 ** 16, 2 ** 16, 32, 2 ** 16, 0, 0),
    (NO_MEMORY, 2 ** 30, 2 ** 30, 32, 2 ** 30, 0, 0),
])
def test_a_layer_that_tells_nonsense(small, folder, device, lines, width, height, bits, xres_virtual, xoffset, yoffset):
    small.framebuffers.announce(device, width, height, bits, xres_virtual, height, xoffset, yoffset)
    expect_refused(small, folder, before(device) + lines)


def test_layers_of_absurd_size_and_no_bytes_a_pixel(unit, folder):
    for device in (VIDEO, INTERFACE):
        unit.framebuffers.announce(device, LARGEST, LARGEST, 1, LARGEST, LARGEST)
    expect_refused(unit, folder, geometry(VIDEO, -1, -1, 0) + geometry(INTERFACE, -1, -1, 0) + NO_RGB)


def test_a_refusal_is_over_when_its_cause_is(small, folder):
    small.framebuffers.remove(VIDEO)
    expect_refused(small, folder, NO_OPEN)
    layers = random_layers(*SMALL, seed=1)
    small.framebuffers.set(VIDEO, *SMALL, pixels=layers[0])
    small.framebuffers.set(INTERFACE, *SMALL, pixels=layers[1])
    expect_screen(small, folder, *SMALL, *layers)


# Folders --------------------------------------------------------------------------------------------------------------


def expect_bad(unit, folder):
    """Takes a screenshot into what is no folder."""
    assert take(unit, folder) == ((folder, -1, "Bad directory"), []), "and nothing is logged"


def test_a_folder_that_is_missing(unit, folder):
    expect_bad(unit, os.path.join(folder, "missing"))
    assert os.listdir(folder) == []


def test_a_folder_that_is_a_file(unit, folder):
    path = os.path.join(folder, "file")
    with open(path, "w", encoding="ascii") as file:
        file.write("kept")
    expect_bad(unit, path)
    expect_bad(unit, path + "/below")
    with open(path, encoding="ascii") as file:
        assert file.read() == "kept"


@pytest.mark.parametrize("name", ["", "x" * 5000, "x" * 300, "100%s%n", "new\nline"])
def test_a_folder_that_cannot_be(unit, folder, name):
    expect_bad(unit, f"{folder}/missing/{name}")


def test_a_folder_that_cannot_be_written_to(small):
    # What is forbidden to others is not forbidden to root; nobody can make a file in the kernel's own folder.
    answer, logged = take(small, "/proc/self")
    assert answer[1:] == (-1, MESSAGES[-1])
    assert logged == failed(answer[0], both_layers(*SMALL) + NO_FILE)


def test_a_full_disk_leaves_no_file(make_unit):
    # Nothing may become larger than a part of the picture: writing fails in the middle of the file.
    unit = make_unit(daemon=False)
    unit.daemon.launcher = ["env", "--ignore-signal=XFSZ"]
    unit.start_daemon()
    width, height = 400, 400
    for device, pixels in zip((VIDEO, INTERFACE), random_layers(width, height, seed=1)):
        unit.framebuffers.set(device, width, height, pixels=pixels)
    limit = width * height * 3 // 2
    resource.prlimit(unit.pid, resource.RLIMIT_FSIZE, (limit, limit))
    answer, logged = take(unit, "")
    assert answer[1:] == (-1, MESSAGES[-1])
    assert logged == failed(answer[0], both_layers(width, height) + NO_FILE)
    assert os.listdir(unit.logs_folder) == []


#: What may stand where the file goes; the other path is that of a file which is none of the daemon's business.
OBSTACLES = {
    "pipe": lambda path, _aside: os.mkfifo(path),
    "folder": lambda path, _aside: os.mkdir(path),
    "link to a file": lambda path, aside: os.symlink(aside, path),
    "link to nothing": lambda path, aside: os.symlink(aside + "-missing", path),
    "link to a device": lambda path, _aside: os.symlink("/dev/null", path),
}


@pytest.mark.parametrize("obstacle", OBSTACLES)
def test_something_else_under_the_files_name(small, folder, obstacle):
    aside = os.path.join(os.path.dirname(folder), "aside")
    with open(aside, "w", encoding="ascii") as file:
        file.write("kept")
    now = int(time.time())
    names = [time.strftime("screenshot_%Y-%m-%d-%H-%M-%S.png", time.gmtime(now + later)) for later in range(-1, 300)]
    for name in names:  # as anybody could who expects a screenshot
        OBSTACLES[obstacle](os.path.join(folder, name), aside)
    modes = {name: os.lstat(os.path.join(folder, name)).st_mode for name in names}
    answer, logged = take(small, folder)
    assert answer[1:] == (-1, MESSAGES[-1])
    assert logged == failed(answer[0], both_layers(*SMALL) + NO_FILE)
    assert {name: os.lstat(os.path.join(folder, name)).st_mode for name in os.listdir(folder)} == modes
    with open(aside, encoding="ascii") as file:
        assert file.read() == "kept"
    assert not os.path.lexists(aside + "-missing")


@pytest.mark.parametrize("name", ["with blanks", "100%s%n%d", "quo'te\"s", "semi;colon`$(x)", "ümläut", "-dash",
                                  "new\nline", "slash/", "slashes//"])
def test_a_folder_of_any_name(small, folder, name):
    path = f"{folder}/{name}"
    os.mkdir(path)
    answer, logged = take(small, path)
    assert answer == (f"{path}/{os.listdir(path)[0]}", 0, MESSAGES[0])
    assert logged == done(answer[0], both_layers(*SMALL))


def test_a_folder_of_four_thousand_characters(small, folder):
    path = folder
    while len(path) < 4000:
        path = f"{path}/{'d' * min(200, max(3999 - len(path), 1))}"
    # Longer than one call can name, in a temporary folder with a long name of its own.
    assert len(path) >= 4000
    os.makedirs(path)
    answer, logged = take(small, path)
    assert answer == (f"{path}/{os.listdir(path)[0]}", 0, MESSAGES[0])
    assert logged == done(answer[0], both_layers(*SMALL))


def test_a_folder_whose_file_would_have_too_long_a_name(small, folder):
    path = folder
    while len(path) < 4080:
        path = f"{path}/{'d' * min(200, max(4079 - len(path), 1))}"
    os.makedirs(path)
    expect_refused(small, path, both_layers(*SMALL) + NO_FILE)


def test_a_link_to_a_folder_is_a_folder(small, folder):
    link = os.path.join(os.path.dirname(folder), "link")
    os.symlink(folder, link)
    assert take(small, link)[0][1:] == (0, MESSAGES[0])
    assert len(os.listdir(folder)) == 1


def test_without_a_folder_the_units_own_is_taken(small):
    answer, logged = take(small, "")
    name = os.listdir(small.logs_folder)[0]
    assert answer == (f"{LOGS}/{name}", 0, MESSAGES[0])
    assert logged == done(answer[0], both_layers(*SMALL))


def test_without_a_folder_and_without_the_units_own(small):
    os.rmdir(small.logs_folder)
    assert take(small, "") == ((LOGS, -1, "Bad directory"), [])


# Names ----------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("zone, seconds", [("UTC", 0), ("XYZ-05:30", 19800), ("ABC11", -39600)])
def test_the_file_is_named_after_the_local_time(make_unit, zone, seconds):
    unit = make_unit(environment={"TZ": zone})
    begin = second() + seconds
    path = take(unit, "")[0][0]
    end = second() + seconds
    names = [time.strftime("screenshot_%Y-%m-%d-%H-%M-%S.png", time.gmtime(now)) for now in range(begin, end + 1)]
    assert re.fullmatch(r"screenshot_\d{4}(-\d\d){5}\.png", os.path.basename(path))
    assert os.path.basename(path) in names


def test_of_two_in_one_second_the_later_one_is_kept(small, folder):
    paths = []
    while len(paths) < 2 or paths[-1] != paths[-2]:
        layers = random_layers(*SMALL, seed=len(paths))
        small.framebuffers.set(VIDEO, *SMALL, pixels=layers[0])
        small.framebuffers.set(INTERFACE, *SMALL, pixels=layers[1])
        paths.append(expect_screen(small, folder, *SMALL, *layers))
    assert sorted(os.listdir(folder)) == sorted({os.path.basename(path) for path in paths})


def test_no_descriptor_is_kept(unit, folder):
    def descriptors():
        return sorted(os.listdir(f"/proc/{unit.pid}/fd"))

    take(unit, folder)
    known = descriptors()
    for device in (None, VIDEO, INTERFACE):
        if device is not None:
            unit.framebuffers.cut(device, 1000)
        take(unit, folder)
    take(unit, "/proc/self")
    assert descriptors() == known
