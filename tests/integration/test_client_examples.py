"""The examples of the client library: each does what it says, and its loop turns while a sibling hangs."""

import os
import re
import signal
import subprocess

import pytest

from tests.integration.installed_client import (  # pylint: disable=unused-import
    ROOT, cached, library_folder_fixture, prefix_fixture, run)
from virtual_unit import PATIENCE, SILENT, VirtualUnit

#: The examples, with what they need besides the client library.
EXAMPLES = {"record_qt": ["Qt5Core"], "follow_glib": ["glib-2.0"], "snapshot_sd_event": ["libsystemd"]}
FLAGS = {"record_qt": ["-fPIC"]}
#: A person sees nothing of what takes no longer.
LONGEST_MILLISECONDS = 20
ATTEMPTS = 5
DONE = "Ran successfully"


PAGES = {"record_qt": "record-from-qt", "follow_glib": "follow-signals-from-glib",
         "snapshot_sd_event": "snapshot-from-sd-event"}


def text_of(*path):
    """A file of the tree."""
    with open(os.path.join(ROOT, *path), encoding="utf-8") as file:
        return file.read()


@pytest.mark.parametrize("name", EXAMPLES)
def test_the_page_shows_the_example(name):
    """Word for word, at whatever depth; and how it is built."""
    page = text_of("docs", f"{PAGES[name]}.md")
    unindented = re.sub(r"^ +", "", text_of("examples", f"{name}.cpp"), flags=re.MULTILINE)
    blocks = re.findall(r"^```c\+\+\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)
    assert len(blocks) >= 3
    for block in blocks:
        assert re.sub(r"^ +", "", block, flags=re.MULTILINE).strip() in unindented, block
    build = " ".join(["c++", *FLAGS.get(name, []), f"examples/{name}.cpp", "-o", name,
                      f"$(pkg-config --cflags --libs controller-client {' '.join(EXAMPLES[name])})"])
    assert f"\n{build}\n" in page


@pytest.fixture(scope="module", name="programs")
def programs_fixture(library_folder, tmp_path_factory):
    """The folder with the examples, built as the pages say, by the oldest standard, and without a word."""
    folder = tmp_path_factory.mktemp("examples")
    environment = {**os.environ, "PKG_CONFIG_PATH": os.path.join(library_folder, "pkgconfig")}
    for name, packages in EXAMPLES.items():
        flags = run("pkg-config", "--cflags", "--libs", "controller-client", *packages, env=environment).split()
        assert run(cached("CMAKE_CXX_COMPILER"), "-std=c++11", "-Wall", "-Wextra", *FLAGS.get(name, []),
                   os.path.join(ROOT, "examples", f"{name}.cpp"), "-o", str(folder / name), *flags) == ""
    return str(folder)


@pytest.fixture(name="start")
def start_fixture(programs, library_folder):
    """Starts an example in a unit."""
    processes = []

    def start(unit, name):
        environment = {**os.environ, **unit.daemon.environment(), "LD_LIBRARY_PATH": library_folder}
        processes.append(subprocess.Popen([os.path.join(programs, name)], env=environment, stdout=subprocess.PIPE,
                                          stderr=subprocess.PIPE, text=True))
        return processes[-1]

    yield start
    for process in processes:
        process.kill()
        process.communicate()


@pytest.fixture(scope="module", name="unit")
def unit_fixture():
    """A unit with the daemon."""
    with VirtualUnit() as started:
        yield started


def finish(process):
    """What an example says until its end, its status, and the longest time between two turns of its loop."""
    out, errors = process.communicate(timeout=PATIENCE)
    longest = re.search(r"^loop: \d+ turns, at most (\S+) ms apart$", errors, re.MULTILINE).group(1)
    return out, process.returncode, float(longest)


def test_a_recording_from_qt(unit, start):
    """Starts, lasts a second, and is saved."""
    assert finish(start(unit, "record_qt"))[:2] == (f"start: {DONE}\nstop: {DONE}\n", 0)
    unit.settle()
    assert [call.member for call in unit.calls.of("video")].count("StartRecording") == 1


def test_a_refusal_in_qt(unit, start):
    """Is told in the controller's words."""
    unit.hardware.power_sufficient = 0
    assert finish(start(unit, "record_qt"))[:2] == ("start: Power is too low - unable to record\n", 1)
    unit.hardware.power_sufficient = 1


def test_signals_in_glib(unit, start):
    """And the zone, again after it was changed."""
    unit.timedate.timezone = "CCU/London"
    process = start(unit, "follow_glib")
    assert [process.stdout.readline() for _ in range(2)] == ["following\n", "zone: London\n"]
    unit.client.call("SetTimezone", "s", "Rome")
    assert sorted(process.stdout.readline() for _ in range(3)) == ["TimeChanged\n", "TimezoneChanged\n", "zone: Rome\n"]
    process.send_signal(signal.SIGTERM)
    assert finish(process)[:2] == ("", 0)


def test_a_bus_that_goes_in_glib(make_unit, start):
    """Ends the program, which waits in no call."""
    unit = make_unit(daemon=False, siblings=())
    process = start(unit, "follow_glib")
    assert process.stdout.readline() == "following\n"
    assert process.stdout.readline().startswith("zone: The name com.tavilon.common.Controller1 was not provided")
    unit.stop_bus()
    assert finish(process)[:2] == ("the bus is gone\n", 0)


def test_a_picture_by_sd_event(unit, start):
    """With its path."""
    out, status, _ = finish(start(unit, "snapshot_sd_event"))
    path = re.fullmatch(r"snapshot: (\S+)\n", out).group(1)
    assert status == 0 and os.path.exists(path)


def hang_follower(unit, start):
    """The follower asks for the zone and is left without an answer."""
    process = start(unit, "follow_glib")
    told = [process.stdout.readline() for _ in range(2)]
    process.send_signal(signal.SIGTERM)
    return ("".join(told), *finish(process)[1:])


HANGS = {
    "record_qt": ("video", lambda unit, start: finish(start(unit, "record_qt")), "start: {}", 1),
    "follow_glib": ("timedate", hang_follower, "following\nzone: {}", 0),
    "snapshot_sd_event": ("video", lambda unit, start: finish(start(unit, "snapshot_sd_event")), "snapshot: {}", 1),
}


@pytest.mark.parametrize("name", HANGS)
def test_a_loop_turns_while_a_sibling_hangs(make_unit, start, name):
    """The call ends with its own time-out, in words; nothing has held the loop up.

    A loop that a call blocks stands still for as long as the call, at every attempt; other things that a machine may
    have to do hold it up at one, and not at the next.
    """
    sibling, act, words, status = HANGS[name]
    longest = []
    while not longest or longest[-1] > LONGEST_MILLISECONDS:
        assert len(longest) < ATTEMPTS, longest
        unit = make_unit(bus_timeout=60)
        rule = unit.faults.on(sibling, kind=SILENT)
        told, ended, apart = act(unit, start)
        rule.cancel()
        assert (told, ended) == (words.format("Connection timed out\n"), status)
        longest.append(apart)
