"""The chip that stands for the unit's GPIO lines, as a program that is linked to libgpiod sees it."""

import contextlib
import errno
import json
import os
import pathlib
import subprocess
import sys

import pytest

from virtual_unit.gpio import MICROPHONE, SPEAKER, Gpio

_PROBE = pathlib.Path(__file__).resolve().parent / "gpio_probe.py"


@contextlib.contextmanager
def _program(build_dir, gpio, library=""):
    """A process whose calls are those of the returned function."""
    environment = {**os.environ, **gpio.environment}
    if not library:
        environment["LD_PRELOAD"] = os.path.join(build_dir, "virtual_unit", "preload", "libgpio.so")
    with subprocess.Popen([sys.executable, _PROBE, library], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                          env=environment) as process:
        def call(*what):
            process.stdin.write(json.dumps(what) + "\n")
            process.stdin.flush()
            return tuple(json.loads(process.stdout.readline()))
        yield call


@pytest.fixture
def gpio(tmp_path):
    """A unit's chip."""
    chip = Gpio(str(tmp_path))
    yield chip
    chip.close()


@pytest.fixture
def call(build_dir, gpio):
    """Calls libgpiod in a process that has opened the chip and has the microphone's line."""
    with _program(build_dir, gpio) as function:
        assert function("chip_open_by_name", "gpiochip4") == (True, 0)
        assert function("chip_get_line", MICROPHONE) == (True, 0)
        gpio.clear()
        yield function


def _request(call):
    assert call("line_request_output", MICROPHONE, "tester", 1) == (0, 0)


def test_an_output_is_seen_and_kept(call, gpio):
    """What is written shows, with who writes it, and is what is read."""
    assert (gpio.mic.value, gpio.mic.consumer, gpio.mic.direction) == (0, None, "input")
    _request(call)
    assert (gpio.mic.value, gpio.mic.consumer, gpio.mic.direction) == (1, "tester", "output")
    assert call("line_get_value", MICROPHONE) == (1, 0)
    assert call("line_set_value", MICROPHONE, 0) == (0, 0)
    assert gpio.mic.value == 0 and gpio.speaker.value == 0
    gpio.mic.value = 1
    assert call("line_get_value", MICROPHONE) == (1, 0)
    assert gpio.events == ["request 14 tester 1", "get 14", "set 14 0", "get 14"]


def test_lines_are_free_after_their_owner(build_dir, gpio):
    """A program that ends without a word loses its lines, and they keep their level."""
    with _program(build_dir, gpio) as call:
        call("chip_open_by_name", "gpiochip4")
        call("chip_get_line", MICROPHONE)
        _request(call)
        assert gpio.mic.busy
    assert (gpio.mic.busy, gpio.mic.consumer, gpio.mic.value) == (False, None, 1)


def test_a_line_has_one_owner(build_dir, call, gpio):
    """A second program does not get the line, and the first one keeps it."""
    _request(call)
    with _program(build_dir, gpio) as second:
        second("chip_open_by_name", "gpiochip4")
        second("chip_get_line", MICROPHONE)
        assert second("line_request_output", MICROPHONE, "second", 0) == (-1, errno.EBUSY)
    assert (gpio.mic.value, gpio.mic.consumer) == (1, "tester")


def test_closing_the_chip_releases_its_lines(call, gpio):
    """A closed chip has no lines left, in the order in which the library gives them up."""
    _request(call)
    call("chip_close")
    assert not gpio.mic.busy
    assert gpio.events[-2:] == ["release 14", "close"]


def test_a_released_line_can_be_requested_again(call, gpio):
    """A release is one, and a second is nothing."""
    _request(call)
    call("line_release", MICROPHONE)
    assert not gpio.mic.busy
    call("line_release", MICROPHONE)
    _request(call)
    assert gpio.events.count("release 14") == 1


@pytest.mark.parametrize("operation, arguments, fault, answer", [
    ("line_request_output", ("tester", 1), lambda line: line.occupy(), errno.EBUSY),
    ("line_request_output", ("tester", 1), lambda line: line.fail("request", errno.EACCES), errno.EACCES),
    ("line_request_output", ("tester", 1), lambda line: line.remove(), errno.ENODEV),
    ("line_set_value", (1,), lambda line: None, errno.EPERM),
    ("line_get_value", (), lambda line: None, errno.EPERM),
])
def test_faults_of_a_line_that_is_not_ours(call, gpio, operation, arguments, fault, answer):
    """A request in vain, or none, is told as the library tells it."""
    fault(gpio.mic)
    assert call(operation, MICROPHONE, *arguments) == (-1, answer)


@pytest.mark.parametrize("operation, arguments, fault, answer", [
    ("line_request_output", ("tester", 1), lambda line: None, errno.EBUSY),
    ("line_set_value", (0,), lambda line: line.fail("write"), errno.EIO),
    ("line_set_value", (0,), lambda line: line.remove(), errno.ENODEV),
    ("line_get_value", (), lambda line: line.fail("read", errno.ETIMEDOUT), errno.ETIMEDOUT),
    ("line_get_value", (), lambda line: line.remove(), errno.ENODEV),
])
def test_faults_of_our_line(call, gpio, operation, arguments, fault, answer):
    """A line that fails later fails as the library tells it, and what it showed stays."""
    _request(call)
    fault(gpio.mic)
    assert call(operation, MICROPHONE, *arguments) == (-1, answer)
    assert gpio.mic.value in (1, None)


def test_mended_lines_work(call, gpio):
    """A fault passes."""
    gpio.mic.fail("request")
    assert call("line_request_output", MICROPHONE, "tester", 1) == (-1, errno.EIO)
    gpio.mic.mend()
    _request(call)
    gpio.mic.free()


def test_lines_that_are_not_there(call, gpio):
    """A line beyond the chip's last, and one that was taken away, cannot be had."""
    gpio.speaker.remove()
    assert call("chip_get_line", SPEAKER) == (False, errno.EINVAL)
    assert call("chip_get_line", len(gpio.lines)) == (False, errno.EINVAL)
    assert gpio.speaker.value is None


@pytest.mark.parametrize("library", ["", "libgpiod.so.2"])
def test_a_chip_that_is_not_there(build_dir, gpio, library):
    """The stand-in and the library itself say the same of a machine without the chip."""
    gpio.remove_chip()
    with _program(build_dir, gpio, library) as call:
        assert call("chip_open_by_name", "gpiochip4" if not library else "gpiochip-none") == (False, errno.ENOENT)
