"""Texts of megabytes to a daemon that can hardly grow: refused before anything is made of them.

The daemon's address space is limited, which sanitizers cannot work with: their builds do not run this file.
"""

import resource

import pytest

from tests.integration.playback_texts import MESSAGES, refused_lines, state_lines
from tests.integration.recording_texts import Watch, error, info
from virtual_unit import PATIENCE, DbusFailure

MIB = 1 << 20
ERRORS = "org.freedesktop.DBus.Error."

#: The members that take a text from a client: types and the arguments behind it.
MEMBERS = [("Screenshot", "s", ()), ("VideoPlaybackStart", "sd", (1.0,)), ("SetTimezone", "s", ()),
           ("PlayAudio", "s", ())]


def giant(size):
    """A text that would be a path of many parts."""
    return "/a" * (size // 2)


def leave_room(unit, size):
    """Lets the daemon grow by that many bytes at most."""
    with open(f"/proc/{unit.pid}/statm", encoding="ascii") as file:
        used = int(file.read().split()[0]) * resource.getpagesize()
    resource.prlimit(unit.pid, resource.RLIMIT_AS, (used + size, resource.RLIM_INFINITY))


@pytest.fixture(name="unit")
def unit_of_a_tests_own(own_unit):
    """A unit whose daemon has no memory to spare from earlier texts."""
    return own_unit


@pytest.mark.parametrize("size", [16 * MIB, 120 * MIB], ids=["16 MiB", "120 MiB"])
def test_a_folder_that_no_file_system_takes_is_a_bad_directory(unit, size):
    folder = giant(size)
    leave_room(unit, 6 * size)  # message, text and an answer that repeats it, whose buffer doubles as it grows
    watch = Watch(unit)
    answer = unit.client.call("Screenshot", "s", folder, timeout=5 * PATIENCE)
    assert answer[1:] == (-1, "Bad directory")
    assert (answer[0] == folder) is True  # here and below: nobody wants to see the difference of two such texts
    assert watch.lines == []
    assert unit.client.call("VideoPlaybackPause")[0] == -1


def test_a_file_that_no_file_system_takes_is_not_there(unit):
    name = giant(16 * MIB)
    leave_room(unit, 8 * len(name))  # message and text, and a line of the log at a time, which is written twice as long
    watch = Watch(unit)
    assert unit.client.call("VideoPlaybackStart", "sd", name, 1.0, timeout=5 * PATIENCE) == (-2, MESSAGES[-2])
    assert (watch.lines == refused_lines(name, "existence check failed: File name too long")) is True
    assert watch.calls == []


def test_a_zone_that_no_file_system_takes_is_not_installed(unit):
    zone = "x" * 16 * MIB  # of one part: the last alone is looked for in the names of the zones
    leave_room(unit, 8 * len(zone))
    with pytest.raises(DbusFailure) as failure:
        unit.client.call("SetTimezone", "s", zone, timeout=5 * PATIENCE)
    assert failure.value.name == ERRORS + "Failed"
    assert (failure.value.text == f"{zone} is not installed in the list of CCU timezones") is True


def test_a_sound_that_no_file_system_takes_cannot_be_played(unit):
    name = giant(16 * MIB)
    leave_room(unit, 4 * len(name))
    with pytest.raises(DbusFailure, match=f"{ERRORS}Failed: Could not play file"):
        unit.client.call("PlayAudio", "s", name, timeout=5 * PATIENCE)


@pytest.mark.parametrize("member, types, rest", MEMBERS, ids=[member for member, *_ in MEMBERS])
def test_memory_that_runs_out_is_an_error_and_a_line_and_the_daemon_goes_on(unit, member, types, rest):
    text = giant(16 * MIB)
    leave_room(unit, 3 * len(text) // 2)  # the message, and not the text once more
    watch = Watch(unit)
    with pytest.raises(DbusFailure) as failure:
        unit.client.call(member, types, text, *rest, timeout=5 * PATIENCE)
    assert (failure.value.name, failure.value.text) == (ERRORS + "NoMemory", "Out of memory")
    assert watch.lines == [error(f"Exception while serving {member}: Out of memory")]
    with pytest.raises(DbusFailure, match="Could not play file"):
        unit.client.call("PlayAudio", "s", "none")
    assert unit.daemon_alive


def test_a_siblings_news_that_memory_runs_out_over_is_a_line_and_the_next_are_followed(unit):
    text = giant(16 * MIB)
    leave_room(unit, 3 * len(text) // 2)
    watch = Watch(unit)
    unit.video.emit_changes("/com/tavilon/common/Video1", "com.tavilon.common.Video1.Control",
                            {"PlaybackFilename": text})
    unit.settle()
    assert watch.lines == [error("Exception while serving PropertiesChanged: Out of memory")]
    watch = Watch(unit)
    unit.video.set("PlaybackState", 1)
    unit.settle()
    assert watch.lines == state_lines(1)


def test_a_message_that_memory_cannot_hold_costs_the_connection_and_so_ends_the_daemon_for_a_new_start(unit):
    """By the bus library's doing, before any handler."""
    text = giant(16 * MIB)
    leave_room(unit, len(text) // 2)
    watch = Watch(unit)
    with pytest.raises(DbusFailure, match="NoReply"):
        unit.client.call("PlayAudio", "s", text, timeout=5 * PATIENCE)
    assert unit.wait_exit() == 1
    assert watch.lines == [info("Failed to start main event loop"), info("Exiting..\n")]
