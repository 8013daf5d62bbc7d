"""The unit's panel as text, and the keys that are pressed from another terminal."""

import contextlib
import fcntl
import io
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import termios
import threading

import pytest

from tests.integration.terminal import Terminal
from tests.virtual_unit.in_process import command
from virtual_unit import PATIENCE, VirtualUnit
from virtual_unit.panel import Panel, Screen, fitted, width_of
from virtual_unit.registry import announce

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
_HALVEX = ("com.tavilon.common.Halvex1", "/com/tavilon/common/Halvex1", "com.tavilon.common.Halvex1.Control")
_AT_FIRST = "microphone off | speaker off, 79% | LEDs mic off, sonde off | beeps 0 | plays nothing"


def test_the_panel_shows_what_there_is(unit, client_of):
    """Every part of the front is where it is looked for."""
    panel = Panel(unit)
    assert panel.text() == _AT_FIRST
    hardware = client_of(*_HALVEX)
    for number, state in ((0, 1), (3, 3), (1, 0)):
        hardware.call("SetLedState", "uu", number, state)
    hardware.call("BeepBuzzer", "uuu", 100, 200, 1)
    unit.gpio.mic.value = 1
    unit.gpio.speaker.remove()
    unit.audio.set_control("HP DAC", 127)
    unit.audio.hold("aplay")
    environment = {**os.environ, **unit.audio.environment}
    with subprocess.Popen(["aplay", "/usr/share/sounds/beep.wav"], env=environment) as player:
        unit.audio.wait_played(ended=False)
        assert panel.text() == ("microphone on | speaker gone, 100% | LEDs mic on, LED 1 off, sonde 3 | beeps 1 | "
                                "plays beep.wav")
        unit.audio.release("aplay")
        assert player.wait(PATIENCE) == 0
    assert panel.text().endswith("| plays nothing")


def test_the_panel_is_followed():
    """Every change is told once, and the panel of a unit without hardware is told too."""
    with VirtualUnit(daemon=False, siblings=()) as unit:
        shown, told, stop = [], threading.Semaphore(0), threading.Event()

        def show(text, *_shorter):
            shown.append(text)
            told.release()

        follower = threading.Thread(target=Panel(unit).follow, args=(show, stop, 0.001))
        follower.start()
        try:
            assert told.acquire(timeout=PATIENCE)
            unit.gpio.mic.value = 1
            assert told.acquire(timeout=PATIENCE)
        finally:
            stop.set()
            follower.join()
        assert [text.partition(" |")[0] for text in shown] == ["microphone off", "microphone on"]


def test_the_screen_of_a_pipe():
    """Every status is a line among the others."""
    stream = io.StringIO()
    screen = Screen(stream)
    screen.line("one")
    screen.status("mic on")
    screen.line("two")
    screen.close()
    assert stream.getvalue() == "one\n  panel mic on\ntwo\n"


def test_the_screen_of_a_terminal():
    """The status stays beneath the lines that go by."""
    stream = io.StringIO()
    stream.isatty = lambda: True
    screen = Screen(stream)
    screen.status("mic on")
    screen.line("one")
    screen.close()
    clear, status = "\r\x1b[J", "\x1b[?7lmic on\x1b[?7h\r"
    assert stream.getvalue() == f"{clear}{status}{clear}one\n{status}{clear}"


# Width ----------------------------------------------------------------------------------------------------------------

_WIDE = "\u30d1\u30a4\u30d7"  # three characters of two columns each


@pytest.mark.parametrize("texts, width, shown", [
    (("a longer text", "short"), 13, "a longer text"), (("a longer text", "short"), 12, "short"),
    (("a longer text", "short"), 4, "sho\u2026"), (("short",), 1, "\u2026"), (("short",), 0, ""), (("",), 1, ""),
    ((_WIDE,), 6, _WIDE), ((_WIDE,), 5, _WIDE[:2] + "\u2026"), ((_WIDE,), 4, _WIDE[:1] + "\u2026"),
    ((_WIDE,), 2, "\u2026"), (("e\u0301" * 3,), 3, "e\u0301" * 3), (("e\u0301" * 3,), 2, "e\u0301\u2026"),
    (("be\x1b[31mep\n\udcff\u200d.wav",), 30, "be\ufffd[31mep\ufffd\ufffd\ufffd.wav")])
def test_a_text_that_fits(texts, width, shown):
    """The first one that does, or what there is room for, in whole characters."""
    assert fitted(texts, width) == shown
    assert width_of(shown) <= width


def test_the_panel_in_fewer_words(unit, client_of):
    """Down to forty columns, with everything that there is."""
    panel = Panel(unit)
    assert panel.texts() == (_AT_FIRST, "mic off | speaker off 79% | LEDs off | beeps 0",
                             "mic off, spk off 79%, LED -, 0 beeps")
    assert width_of(panel.texts()[-1]) <= 40
    hardware = client_of(*_HALVEX)
    for number, state in ((0, 1), (3, 3)):
        hardware.call("SetLedState", "uu", number, state)
    unit.gpio.speaker.remove()
    assert panel.texts()[1:] == ("mic off | speaker gone 79% | LEDs mic, sonde 3 | beeps 0",
                                 "mic off, spk gone 79%, LED mic+sonde 3, 0 beeps")


@pytest.fixture(name="terminal")
def terminal_fixture():
    """Both ends of a terminal: where it is written to as a program does, and where a person sits; and what sets its
    width."""
    ours, theirs = os.openpty()

    def widen(columns):
        fcntl.ioctl(ours, termios.TIOCSWINSZ, struct.pack("4H", 24, columns, 0, 0))

    def read():
        written = b""
        while not written.endswith(b"\r"):
            written += os.read(ours, 4096)
        return written.decode()

    with open(theirs, "w", encoding="utf-8") as stream:
        yield stream, widen, read
    os.close(ours)


def _drawn(text):
    return f"\r\x1b[J\x1b[?7l{text}\x1b[?7h\r"


def test_a_status_takes_the_room_that_the_terminal_has(terminal):
    """Asked at each draw, and drawn anew when it has changed."""
    stream, widen, read = terminal
    texts = ("all of it in many words", f"few words {_WIDE}")
    screen = Screen(stream)
    for width, shown in ((23, texts[0]), (22, texts[1]), (15, f"few words {_WIDE[:2]}\u2026"), (0, texts[0]),
                         (14, f"few words {_WIDE[:1]}\u2026"), (100, texts[0])):
        widen(width)
        screen.status(*texts)
        assert read() == _drawn(shown)
    for width, shown in ((16, texts[1]), (3, "fe\u2026"), (23, texts[0])):
        widen(width)
        screen.refit()
        assert read() == _drawn(shown)
        screen.refit()  # draws nothing: what is read next is the next one
    screen.close()


def test_no_line_of_a_terminal_is_left_or_broken(build_dir):
    """Of any width, from the beginning or when it has changed."""
    environment = {**os.environ, "CCU_BUILD_DIR": build_dir, "PYTHONPATH": _ROOT}
    command = ["sh", "-c", "trap : INT; $0 -m virtual_unit up; echo all is gone; cat", sys.executable]
    with Terminal(30, command, environment) as terminal:
        def panels(width):
            """The lines that a panel can be on, where nothing is wider than the terminal."""
            lines = terminal.screen(joined=False)
            assert all(width_of(line) <= width for line in lines), lines
            return [line for line in lines if re.match("mic|off|speaker|LED|beeps|plays", line)]

        for width, text in ((30, "mic off, spk off 79%, LED -, \u2026"), (100, _AT_FIRST),
                            (40, "mic off, spk off 79%, LED -, 0 beeps"),
                            (50, "mic off | speaker off 79% | LEDs off | beeps 0"), (20, "mic off, spk off 79\u2026"),
                            (200, _AT_FIRST)):
            terminal.resize(width)
            terminal.wait_for(lambda lines, text=text: lines[-1] == text)
            assert panels(width) == [text]
        terminal.type(["C-c"])
        terminal.wait_for(lambda lines: "all is gone" in lines)


# Keys -----------------------------------------------------------------------------------------------------------------

@pytest.fixture
def home(monkeypatch):
    """A folder for units that no other test has any in."""
    folder = tempfile.mkdtemp(prefix="k-", dir="/tmp")
    monkeypatch.setenv("TMPDIR", folder)
    monkeypatch.delenv("CCU_UNIT", raising=False)
    yield folder
    shutil.rmtree(folder)


@contextlib.contextmanager
def _listened_to(home, name=None):
    """A unit that commands find, where it has a name, whose keypad somebody has open; and a function that reads the
    codes and states of the keys."""
    with contextlib.ExitStack() as stack:
        unit = stack.enter_context(VirtualUnit(daemon=False, directory=home, siblings=()))
        if name is not None:
            stack.enter_context(announce(unit, name))
        reader = os.open(unit.keypad.node, os.O_RDONLY | os.O_NONBLOCK)
        stack.callback(os.close, reader)

        def keys():
            try:
                events = struct.iter_unpack("@qqHHi", os.read(reader, 4096))
            except BlockingIOError:
                return []
            return [event[3:] for event in events if event[2] == 1]

        yield unit, keys


@pytest.mark.parametrize("arguments, keys", [
    (("30",), [(30, 1), (30, 0)]), (("30", "press"), [(30, 1)]), (("30", "release"), [(30, 0)]),
    (("248", "repeat"), [(248, 2)]), (("Enter", "press"), [(28, 1)]), (("KEY_ENTER", "press"), [(28, 1)]),
    (("f1",), [(59, 1), (59, 0)]),
])
def test_a_key_of_the_one_unit(home, arguments, keys):
    """The only unit that is there for people is found."""
    with _listened_to(home, "mine") as (_, typed), _listened_to(home) as (_, others):
        status, _, errors = command("key", *arguments)
        assert status == 0, errors
        assert typed() == keys and others() == []


def test_a_key_of_one_of_several_units(home, monkeypatch):
    """Of several units one has to be named."""
    with _listened_to(home, "one") as (unit, typed), _listened_to(home, "other") as (_, others):
        assert command("key", "30")[::2] == (
            1, "ccu: several units are running: choose with --unit, or CCU_UNIT, one of one, other\n")
        monkeypatch.setenv("CCU_UNIT", unit.directory)
        assert command("key", "30", "press")[0] == 0
        monkeypatch.setenv("CCU_UNIT", "one")
        assert command("key", "31", "press")[0] == 0
        words = [sys.executable, "-m", "virtual_unit", "key", "32", "press", "--unit", "one"]
        subprocess.run(words, cwd=_ROOT, env={**os.environ, "CCU_UNIT": "other"}, check=True)
        assert typed() == [(30, 1), (31, 1), (32, 1)] and others() == []


def test_a_key_of_no_unit(home):
    """A key that nobody would hear of is told."""
    assert "no unit is running" in command("key", "30")[2]
    with VirtualUnit(daemon=False, directory=home, siblings=()) as unit, announce(unit):
        status, _, errors = command("key", "30")
        assert status == 1 and "nobody listens to the keypad" in errors


@pytest.mark.parametrize("arguments, status, told", [
    (("Entre",), 1, "no key 'Entre'; meant is perhaps Enter"), (("249",), 1, "no key '249'"),
    (("30", "hit"), 2, "usage:"), ((), 2, "usage:")])
def test_keys_that_make_no_sense(home, arguments, status, told):
    """A command that is not understood says why."""
    with _listened_to(home, "mine") as (_, typed):
        ended, _, errors = command("key", *arguments)
        assert ended == status and told in errors
        assert typed() == []
