"""What may stand where a recording's markers go: the start goes on, and nothing but a plain file is made or emptied."""

import os
import select
import socket

import pytest

from tests.integration.recording_texts import MESSAGES, VIDEO, Paths, Watch, error
from virtual_unit import CODE, VirtualUnit

# What stands there: each is made at the marker's path, and may have something at another path, "aside". --------------


def write(path, data=b"of great value"):
    """A file that is none of the daemon's business."""
    with open(path, "wb") as file:
        file.write(data)


def pipe(path, _aside):
    """A plain open would wait for its reader."""
    os.mkfifo(path)


def server(path, _aside):
    """A socket; its name is longer than an address may be, the one beneath /proc is not."""
    folder = os.open(os.path.dirname(path), os.O_RDONLY)
    with socket.socket(socket.AF_UNIX) as made:
        made.bind(f"/proc/self/fd/{folder}/{os.path.basename(path)}")
    os.close(folder)


def link_to_file(path, aside):
    """The file must not be emptied in the marker's stead."""
    write(aside)
    os.symlink(aside, path)


def link_to_file_beside(path, aside):
    """The same, by its name from here."""
    write(aside)
    os.symlink(os.path.relpath(aside, os.path.dirname(path)), path)


def link_to_nothing(path, aside):
    """Nothing must come to be there."""
    os.symlink(aside, path)


def link_to_pipe(path, aside):
    """Waits as the pipe does."""
    os.mkfifo(aside)
    os.symlink(aside, path)


def link_to_folder(path, aside):
    """It has a file in it."""
    full_folder(aside, None)
    os.symlink(aside, path)


def link_to_device(path, _aside):
    """Devices are to be opened by those who know them."""
    os.symlink("/dev/full", path)


def loop(path, _aside):
    """A link to itself."""
    os.symlink(os.path.basename(path), path)


def empty_folder(path, _aside):
    """Nothing in it."""
    os.mkdir(path)


def full_folder(path, _aside):
    """A file in it."""
    os.mkdir(path)
    write(os.path.join(path, "file"))


OBSTACLES = [pipe, server, link_to_file, link_to_file_beside, link_to_nothing, link_to_pipe, link_to_folder,
             link_to_device, loop, empty_folder, full_folder]
MARKERS = ["rec_active", "recovery"]


def picture(path):
    """All that can be told of what stands at a path without opening it; None where nothing does."""
    if not os.path.lexists(path):
        return None
    status = os.lstat(path)
    return (status.st_ino, status.st_mode, status.st_size, status.st_nlink, status.st_mtime_ns, status.st_ctime_ns,
            {name: picture(os.path.join(path, name)) for name in os.listdir(path)}
            if os.path.isdir(path) and not os.path.islink(path) else {})


def take_away(path):
    """Removes an obstacle, as those who made it would."""
    if os.path.isdir(path) and not os.path.islink(path):
        for name in os.listdir(path):
            os.remove(os.path.join(path, name))
        os.rmdir(path)
    else:
        os.remove(path)


# The recordings -------------------------------------------------------------------------------------------------------


@pytest.fixture(scope="module", name="unit")
def unit_for_all():
    """One unit; each test records into a folder of its own."""
    with VirtualUnit() as started:
        yield started


@pytest.fixture(name="paths")
def paths_of_a_new_folder(unit, request):
    """The files of the next recording; nothing is left of it afterwards."""
    folder = os.path.join(unit.media, request.node.name)
    os.mkdir(folder)
    unit.jobs.on_GetNewMediaPathComponents = lambda _path: (0, folder, "0001")
    yield Paths(os.path.join(folder, "0001.mp4"))
    unit.faults.clear()
    if unit.video.state() != 0:  # a test has failed: the next one is to have its own recording
        VIDEO.order(unit, "Stop")
    unit.settle()


def make(obstacle, unit, path):
    """Puts an obstacle at a path; returns where it may have something aside."""
    aside = os.path.join(unit.directory, os.path.basename(os.path.dirname(path)) + "-aside")
    obstacle(path, aside)
    return aside


def start(unit):
    """Orders a start."""
    return VIDEO.order(unit, "Start", 1920, 1080, 90)


def not_removed(name, path):
    """The line of a marker that cannot be removed."""
    return error(f"int Remove{name[0].upper()}{name[1:]}File(std::__cxx11::string&) Filesystem error attempting to "
                 f"remove {name} file {path}")


@pytest.mark.parametrize("marker", MARKERS)
@pytest.mark.parametrize("obstacle", OBSTACLES, ids=lambda made: made.__name__)
def test_a_recording(unit, paths, obstacle, marker):
    """Is started and stopped as any other, and leaves alone what stands in the way, and all that it leads to."""
    path = getattr(paths, marker)
    aside = make(obstacle, unit, path)
    before = picture(path), picture(aside)
    watch = Watch(unit)
    assert start(unit) == (0, MESSAGES[0])
    unit.settle()
    assert watch.lines == VIDEO.start_lines(paths) + VIDEO.started_lines()
    assert (picture(path), picture(aside)) == before
    assert os.path.isfile(paths.recovery if marker == "rec_active" else paths.rec_active), "the other one is made"
    if marker == "recovery":
        take_away(path)  # the video daemon's to remove, and this one does not know what it is
    watch = Watch(unit)
    assert VIDEO.order(unit, "Stop") == (0, MESSAGES[0])
    kept = obstacle is full_folder and marker == "rec_active"
    assert [line for line in watch.lines if "attempting to remove" in line[1]] == \
        ([not_removed("recActive", path)] if kept else [])
    assert picture(path) == (before[0] if kept else None), "a marker that is removed goes by its name, whatever it is"
    assert picture(aside) == before[1]


@pytest.mark.parametrize("obstacle", OBSTACLES, ids=lambda made: made.__name__)
def test_a_start_that_is_taken_back(unit, paths, obstacle):
    """Removes the markers' names, and nothing that they lead to."""
    aside = make(obstacle, unit, paths.rec_active)
    full = {path: picture(path) for path in [paths.rec_active] if obstacle is full_folder}
    before = picture(aside)
    unit.faults.on(*VIDEO.start_call, kind=CODE(-2))
    watch = Watch(unit)
    assert start(unit) == (-1, MESSAGES[-1])
    assert [line for line in watch.lines if "attempting to remove" in line[1]] == \
        [not_removed("recActive", path) for path in full]
    assert {path: picture(path) for path in (paths.rec_active, paths.recovery) if os.path.lexists(path)} == full
    assert picture(aside) == before


@pytest.mark.parametrize("marker", MARKERS)
def test_the_reader_of_a_pipe(unit, paths, marker):
    """Does not see an end of what it reads, as it would if the pipe were opened and closed."""
    path = getattr(paths, marker)
    os.mkfifo(path)
    reader = os.open(path, os.O_RDONLY | os.O_NONBLOCK)
    poll = select.poll()
    poll.register(reader, select.POLLIN)
    assert start(unit) == (0, MESSAGES[0])
    assert poll.poll(0) == []
    os.close(os.open(path, os.O_WRONLY))
    assert poll.poll(0) == [(reader, select.POLLHUP)], "that is how it would look"
    os.close(reader)
    assert VIDEO.order(unit, "Stop") == (0, MESSAGES[0])


@pytest.mark.parametrize("marker", MARKERS)
def test_a_file_that_was_left_over(unit, paths, marker):
    """Is emptied and used."""
    path = getattr(paths, marker)
    write(path)
    node = os.stat(path).st_ino
    assert start(unit) == (0, MESSAGES[0])
    assert (os.stat(path).st_size, os.stat(path).st_ino) == (0, node)
    assert VIDEO.order(unit, "Stop") == (0, MESSAGES[0])
    assert not os.path.lexists(path)
