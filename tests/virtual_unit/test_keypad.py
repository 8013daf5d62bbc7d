"""The input devices of the unit, as the real libudev and libinput see them."""

import contextlib
import os
import pathlib
import signal
import socket
import subprocess
import threading
import time

import pytest

from virtual_unit import PATIENCE, daemon
from virtual_unit.keypad import KEYBOARD, POINTER, InputDevices, Keypad

_HERE = pathlib.Path(__file__).resolve().parent
_A, _B = 30, 48

#: libinput's types of events.
_ADDED, _REMOVED, _MOTION, _BUTTON = (f"event {number}" for number in (1, 2, 400, 402))


@pytest.fixture(scope="module")
def probe(tmp_path_factory):
    """The program that reads input devices."""
    program = tmp_path_factory.mktemp("probe") / "input_probe"
    subprocess.run(["cc", "-std=c11", "-Wall", "-Wextra", "-Werror", _HERE / "input_probe.c", "-o", program, "-linput",
                    "-ludev"], check=True)
    return program


@pytest.fixture
def devices(tmp_path):
    """The unit's input devices."""
    return InputDevices(str(tmp_path))


class _Reader:
    """The lines of a running probe."""

    def __init__(self, process):
        self.pid = process.pid
        self._lines = process.stdout

    def lines(self, count):
        """The next lines, without the time of keys."""
        return [" ".join(self._lines.readline().split()[:3]) for _ in range(count)]

    def times(self, count):
        """The times of the next key events."""
        return [int(self._lines.readline().split()[3]) for _ in range(count)]


@pytest.fixture
def read(build_dir, probe, devices):
    """Starts a probe, with all of the libraries that the daemon gets, and waits for it to have found its devices."""
    libraries = daemon.Daemon(build_dir, str(devices.directory), {}).preloads + [daemon.UMOCKDEV]
    environment = {**os.environ, **devices.environment, "LD_PRELOAD": " ".join(libraries)}
    with contextlib.ExitStack() as stack:
        def start(found=1, seat="seat0"):
            process = stack.enter_context(subprocess.Popen([probe, seat], stdout=subprocess.PIPE, text=True,
                                                           env=environment))
            stack.callback(process.kill)
            patience = threading.Timer(PATIENCE, process.kill)  # ends the lines that a test waits for
            patience.start()
            stack.callback(patience.cancel)
            reader = _Reader(process)
            assert reader.lines(1 + found) == ["seat 0"] + [_ADDED] * found
            return reader
        yield start


def test_a_key_goes_down_and_up(devices, read):
    """A key is one event when it goes down and one when it goes up; that it repeats is no news."""
    reader = read()
    for step in (devices.keypad.press, devices.keypad.repeat, devices.keypad.release, devices.keypad.press):
        step(_A)
    assert reader.lines(3) == [f"key {_A} 1", f"key {_A} 0", f"key {_A} 1"]


def test_an_event_has_the_time_of_the_system(devices, read):
    """The time of an event is the one at which it was made, on the kernel's own clock."""
    reader = read()
    before = time.monotonic_ns() // 1_000_000
    devices.keypad.type([_A])
    first, second = reader.times(2)
    assert before <= first <= second <= time.monotonic_ns() // 1_000_000


def test_a_keypad_is_pulled_out_and_plugged_in(devices, read):
    """A reader hears of both, and goes on reading."""
    reader = read()
    for _ in range(2):
        devices.keypad.unplug()
        assert reader.lines(1) == [_REMOVED]
        assert not devices.keypad.opened
        devices.keypad.plug()
        assert reader.lines(1) == [_ADDED]
        devices.keypad.press(_B)
        devices.keypad.release(_B)
        assert reader.lines(2) == [f"key {_B} 1", f"key {_B} 0"]


def test_what_is_plugged_in_is_unread_until_its_reader_has_heard_of_it(devices):
    """Whoever waits for what was typed also waits for what comes and goes: only then is there somebody to type for."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as listener:
        listener.bind(f"{devices.directory}/event7")
        devices.wait_read(0)
        for step in (devices.keypad.unplug, devices.keypad.plug):
            step()
            with pytest.raises(TimeoutError):
                devices.wait_read(0)
        listener.recv(4096)
        with pytest.raises(TimeoutError):
            devices.wait_read(0)
        listener.recv(4096)
        devices.wait_read(0)
        devices.keypad.unplug()
    devices.wait_read(0)  # of who has ended nothing is left to read


def test_a_unit_without_keypad(devices, read):
    """A reader without devices waits for one."""
    devices.keypad.unplug()
    reader = read(found=0)
    devices.keypad.plug()
    assert reader.lines(1) == [_ADDED]


def test_a_burst_of_keys_is_not_lost(devices, read):
    """Ten thousand keys at once arrive, all and in their order, though a pipe holds fewer."""
    reader = read()
    codes = [1 + i % 200 for i in range(10_000)]
    typist = threading.Thread(target=devices.keypad.type, args=(codes,))
    typist.start()
    assert reader.lines(2 * len(codes)) == [f"key {code} {state}" for code in codes for state in (1, 0)]
    typist.join()


def test_other_devices_on_the_seat(devices, read):
    """A mouse is seen beside the keypad, with events of its own kinds."""
    mouse = devices.add(POINTER, "Mouse")
    reader = read(found=2)
    mouse.move(3, 4)
    assert reader.lines(1) == [_MOTION]
    mouse.click()
    assert reader.lines(2) == [_BUTTON, _BUTTON]
    another = devices.add(KEYBOARD, "Second keypad")
    assert reader.lines(1) == [_ADDED]
    another.press(_B)
    assert reader.lines(1) == [f"key {_B} 1"]


def test_other_seats(devices, read):
    """A device belongs to one seat."""
    other = devices.add(KEYBOARD, "Somebody's keyboard", seat="seat1")
    read()
    assert devices.keypad.opened and not other.opened
    reader = read(seat="seat1")
    other.press(_A)
    assert reader.lines(1) == [f"key {_A} 1"]


def test_keys_without_a_reader(devices):
    """A key that nobody would hear of is an error of the test."""
    with pytest.raises(OSError):
        devices.keypad.press(_A)
    assert devices.keypad.unread == 0
    devices.wait_read(timeout=0)


def test_what_is_unread_is_counted(devices, read):
    """A reader that stands still leaves events unread, and waiting for it has an end."""
    reader = read()
    os.kill(reader.pid, signal.SIGSTOP)
    os.waitid(os.P_PID, reader.pid, os.WSTOPPED)
    devices.keypad.press(_A)
    assert devices.keypad.unread == 2
    with pytest.raises(TimeoutError):
        devices.wait_read(timeout=0.01)
    with pytest.raises(TimeoutError):
        devices.keypad.emit(*[(0, 0, 0)] * 10_000, timeout=0.01)
    os.kill(reader.pid, signal.SIGCONT)
    devices.wait_read()
    assert devices.keypad.unread == 0


def test_another_process_presses_keys(devices, read, tmp_path):
    """The folder of a unit is all that is needed to press a key of it."""
    reader = read()
    Keypad.of_unit(str(tmp_path)).press(_A)
    assert reader.lines(1) == [f"key {_A} 1"]
