"""What the service does before the daemon: it waits for its siblings on the bus, for a time, at a first start alone."""

import os
import re
import select
import shlex
import signal
import subprocess

import pytest

from virtual_unit import PATIENCE
from virtual_unit.hardware import Hardware
from virtual_unit.jobs import Jobs
from virtual_unit.settings import Settings
from virtual_unit.storage import Storage
from virtual_unit.sync import Sync
from virtual_unit.video import Video

FOLDER = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))), "packaging",
                      "systemd")
NAMES = {kind.service: kind.name for kind in (Settings, Storage, Video, Jobs, Hardware, Sync)}


def command_of_the_service():
    """The words of the service's line, whose script is this tree's."""
    with open(os.path.join(FOLDER, "controllerd.service"), encoding="utf-8") as file:
        line = re.search(r"^ExecStartPre=((?:.*\\\n)*.*)$", file.read(), re.MULTILINE).group(1)
    words = shlex.split(line.replace("\\\n", " "))
    assert words[:2] == ["/bin/sh", "/usr/lib/controllerd/wait-for-siblings"]
    return ["/bin/sh", os.path.join(FOLDER, "wait-for-siblings"), *words[2:]]


class Wait:
    """The script, run as the service does, whose pauses are as long as the test wants."""

    def __init__(self, unit, folder):
        paths = [os.path.join(folder, name) for name in ("pauses", "ends")]
        for path in paths:
            os.mkfifo(path)
        self._pauses, self._ends = (os.open(path, os.O_RDWR | os.O_CLOEXEC) for path in paths)  # nobody waits for one
        tools = os.path.join(folder, "tools")
        os.mkdir(tools)
        with open(os.path.join(tools, "sleep"), "w", encoding="utf-8") as file:
            file.write('#!/bin/sh\necho "$1" >{}\nread -r _ <{}\n'.format(*paths))
        os.chmod(os.path.join(tools, "sleep"), 0o755)
        self.run_folder = os.path.join(folder, "run")
        os.mkdir(self.run_folder)
        self._environment = {"PATH": f"{tools}:{os.environ['PATH']}", "RUNTIME_DIRECTORY": self.run_folder,
                             "DBUS_SESSION_BUS_ADDRESS": unit.session_address}
        self._process = None

    def start(self, seconds=None):
        """Starts it, with the service's bound unless told otherwise."""
        command = command_of_the_service()
        if seconds is not None:
            command[2] = str(seconds)
        self._process = subprocess.Popen(  # pylint: disable=consider-using-with
            command, env=self._environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            start_new_session=True)
        return self

    def pause(self):
        """Waits until the script has looked in vain and makes a pause; its seconds."""
        assert select.select([self._pauses], [], [], PATIENCE)[0]
        return float(os.read(self._pauses, 100))

    def go_on(self):
        """Ends the pause."""
        os.write(self._ends, b"\n")

    def ended(self):
        """Waits for the end; the status and what was said."""
        said = self._process.communicate(timeout=PATIENCE)[0]
        return self._process.returncode, said

    def discard(self):
        """Ends what a failed test has left."""
        for pipe in (self._pauses, self._ends):
            os.close(pipe)
        if self._process is not None and self._process.returncode is None:
            os.killpg(self._process.pid, signal.SIGKILL)
            self._process.communicate()


@pytest.fixture(name="unit")
def unit_without_the_daemon(make_unit):
    """The siblings are there."""
    return make_unit(daemon=False)


@pytest.fixture(name="make_wait")
def make_wait_fixture(tmp_path):
    """Makes the script's surroundings, which end with the test."""
    made = []

    def make(unit):
        made.append(Wait(unit, str(tmp_path)))
        return made[-1]

    yield make
    for wait in made:
        wait.discard()


def test_it_waits_for_all_siblings_of_the_user_bus_and_for_nobody_else(unit):
    words = command_of_the_service()
    assert sorted(words[3:]) == sorted(NAMES) and set(NAMES.values()) == set(unit.siblings) - {"timedate"}
    assert 0 < int(words[2]) <= 60


def test_where_all_are_there_nobody_waits(unit, make_wait):
    wait = make_wait(unit).start(seconds=0)
    assert wait.ended() == (0, "")


@pytest.mark.parametrize("late", NAMES.values())
def test_one_that_comes_late_is_waited_for(unit, make_wait, late):
    """Not a moment longer, and in silence."""
    unit.siblings[late].die()
    wait = make_wait(unit).start()
    for _ in range(3):
        assert wait.pause() == 1
        wait.go_on()
    assert wait.pause() == 1
    unit.siblings[late].revive()
    wait.go_on()
    assert wait.ended() == (0, "")


def test_a_bus_that_comes_late_is_waited_for(unit, make_wait):
    unit.stop_bus()
    wait = make_wait(unit).start()
    wait.pause()
    unit.renew_bus()
    wait.go_on()
    assert wait.ended() == (0, "")


def pauses_until_the_end(wait, seconds):
    """Sees that it makes a pause for each second and then ends; what it says."""
    wait.start(seconds)
    for _ in range(seconds):
        wait.pause()
        wait.go_on()
    return wait.ended()


def test_one_that_never_comes_is_named_and_the_daemon_is_started(unit, make_wait):
    unit.sync.die()
    assert pauses_until_the_end(make_wait(unit), 3) == (
        0, f"not on the user bus after 3 seconds: {unit.sync.service}; the daemon is started all the same\n")


def test_without_a_bus_the_daemon_is_started(make_unit, make_wait):
    """It says what it thinks of that."""
    unit = make_unit(daemon=False, bus=False)
    status, said = pauses_until_the_end(make_wait(unit), 1)
    assert status == 0 and said == "not on the user bus after 1 seconds:" + "".join(
        f" {name}" for name in command_of_the_service()[3:]) + "; the daemon is started all the same\n"


@pytest.mark.parametrize("in_vain", [False, True])
def test_a_daemon_that_has_ended_is_not_kept_waiting(unit, make_wait, in_vain):
    """Whether the first wait was in vain or not: the service keeps its folder then."""
    wait = make_wait(unit)
    if in_vain:
        unit.video.die()
    assert wait.start(seconds=0).ended()[0] == 0
    unit.video.die()
    assert wait.start().ended() == (0, "")


def test_a_service_that_was_stopped_waits_again(unit, make_wait):
    """Its folder has gone."""
    wait = make_wait(unit)
    assert wait.start().ended() == (0, "")
    os.remove(os.path.join(wait.run_folder, *os.listdir(wait.run_folder)))
    unit.video.die()
    assert pauses_until_the_end(wait, 1)[1].startswith("not on the user bus")


def test_the_service_keeps_its_folder_while_it_is_started_again():
    """And has one, which systemd makes for its user."""
    with open(os.path.join(FOLDER, "controllerd.service"), encoding="utf-8") as file:
        text = file.read()
    assert "\nRuntimeDirectory=controllerd\n" in text and "\nRuntimeDirectoryPreserve=restart\n" in text


def test_a_name_that_only_looks_like_it_is_none(unit, make_wait):
    """Such as one that goes on behind it."""
    unit.settings.die()
    unit.settings.service += "x"
    unit.settings.revive()
    status, said = pauses_until_the_end(make_wait(unit), 1)
    assert status == 0 and "com.tavilon.common.Settings1;" in said
