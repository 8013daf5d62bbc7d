"""The demo: what it shows, that it notices what is wrong, and that it leaves nothing behind however it ends."""

import collections
import contextlib
import functools
import io
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

import pytest

from interfaces.introspection import controller_members
from virtual_unit import PATIENCE, VirtualUnit
from virtual_unit.chapters import CHAPTERS, Chapter
from virtual_unit.demo import Inspection
from virtual_unit.show import Show

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
_TELLING = ("cmdline", "environ")
_BY_TITLE = {chapter.title: chapter for chapter in CHAPTERS}
_RECORDING = _BY_TITLE["A recording, from its start to its end"]
_INCIDENTS = _BY_TITLE["A recording that must end early"]
_MEMBERS = controller_members()
_KINDS = collections.Counter(member.kind for member in _MEMBERS)
_TOTALS = f" {len(_MEMBERS)}: {_KINDS['method']} methods, {_KINDS['property']} properties, {_KINDS['signal']} signals"


def processes_of(folder):
    """The processes whose command line or environment names the folder."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError):
            if any(folder in pathlib.Path(f"/proc/{pid}/{name}").read_text("utf-8", "replace") for name in _TELLING):
                found.append(pid)
    return found


@pytest.fixture
def folder():
    """A folder for temporary files that must be empty, with no process in it, when the test is over."""
    with tempfile.TemporaryDirectory(prefix="demo-") as path:
        yield path
        assert os.listdir(path) == []
        assert processes_of(path) == []


@contextlib.contextmanager
def running_demo(folder, **environment):
    """The demo as a process of its own."""
    command = [sys.executable, "-m", "virtual_unit", "demo"]
    with subprocess.Popen(command, cwd=_ROOT, env={**os.environ, "TMPDIR": folder, **environment}, text=True,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        try:
            yield process
        finally:
            process.terminate()


def read_until(process, text):
    """Reads the output up to the line that contains the text."""
    for line in process.stdout:
        if text in line:
            return
    raise AssertionError(f"the demo has ended without {text!r}")


def play(*chapters, unit=VirtualUnit):
    """Plays chapters in this process; returns the exit status and the output."""
    output = io.StringIO()
    status = Inspection(output, unit).run(chapters)
    return status, output.getvalue()


def tampered(**changes):
    """A kind of unit whose video daemon behaves in other ways."""

    class TamperedUnit(VirtualUnit):
        """Its video daemon is changed when it comes up."""

        def start(self):
            super().start()
            for name, behaviour in changes.items():
                setattr(self.video, name, functools.partial(behaviour, self))
            return self

    return TamperedUnit


# What it shows --------------------------------------------------------------------------------------------------------


def test_every_step_is_shown_and_comes_out_as_it_should(folder):
    with running_demo(folder) as process:
        output, errors = process.communicate(timeout=PATIENCE)
    assert (process.returncode, errors) == (0, "")
    lines = output.splitlines()
    assert output.isascii() and "\x1b" not in output
    assert max(map(len, lines)) <= 100
    assert [line for line in lines if re.match(r"\d+  [A-Z]", line)] == [
        f"{number}  {chapter.title}" for number, chapter in enumerate(CHAPTERS, 1)]
    assert not [line for line in lines if line.startswith("  NO")]
    steps = int(re.search(r"steps checked +(\d+)", output).group(1))
    assert steps == sum(line.startswith("  ok") for line in lines) >= 80
    assert os.path.exists(os.path.join(_ROOT, "docs", "interface.md")) and "docs/interface.md" in output
    assert folder not in output


@pytest.mark.parametrize("chapter, expected", [
    ("The unit comes up", ["com.tavilon.common.Video1", "READY=1", "the 71 time zones of the unit"]),
    ("What the daemon offers", [_TOTALS, f"\n      {len(_MEMBERS)}  {_MEMBERS[-1].kind:8}  {_MEMBERS[-1].name}"]),
    ("A recording, from its start to its end", [
        "->  controllerctl record start --width 1920 --height 1080 --quality 90", '0 "Ran successfully"',
        ".0001-recActive, .0001-recovery, 0001.mp4", "2750 cm absolute, 430 cm relative",
        "->  controllerctl record pause", "->  controllerctl record resume", "1119232 bytes"]),
    ("A recording that is refused", [
        '-8 "Not in correct state to perform record action"', '-3 "Storage is too low - unable to record"',
        '-2 "Power is too low - unable to record"', '-7 "No current job - unable to record"',
        '-10 "Failed to add media item to job"', '-1 "Unknown error"', "org.freedesktop.DBus.Error.InvalidArgs"]),
    ("A recording that must end early", [
        '<-  CaptureError (-3 "Storage is too low - unable to continue recording")',
        '<-  CaptureError (-4 "Storage was removed - unable to continue recording")',
        '<-  CaptureSizeLimitReached (2 "Video file size limit reached.")', ".0004-recActive, 0004.mp4"]),
    ("Clock and time zone", [
        "<-  TimezoneChanged (CCU/DST/Auckland)", "<-  TimeChanged (2026, 1, 15, 12, 0, 0, yes)", '"No GPS Fix"',
        '"Cannot set time now"', '"Cannot set time right now"', "<-  TimezoneChanged (CCU/Paris)"]),
    ("A sibling that fails in the middle of a call", [
        '-1 "Unknown error"', '-4 "Unable to create path for recording"', "the daemon goes on"]),
])
def test_chapters_stand_on_their_own(chapter, expected):
    status, output = play(_BY_TITLE[chapter])
    assert status == 0
    assert [text for text in expected if text not in output] == []


class Terminal(io.StringIO):
    """A stream that says that it is a terminal."""

    def isatty(self):
        return True


@pytest.mark.parametrize("stream, environment, coloured", [
    (Terminal, {}, True), (Terminal, {"NO_COLOR": "1"}, False), (Terminal, {"TERM": "dumb"}, False),
    (io.StringIO, {}, False),
])
def test_colours_are_for_terminals_whose_user_wants_them(monkeypatch, stream, environment, coloured):
    monkeypatch.delenv("NO_COLOR", raising=False)
    for name, value in {"TERM": "xterm", **environment}.items():
        monkeypatch.setenv(name, value)
    written = stream()
    show = Show(written)
    show.heading("A heading")
    show.good("a value", "right")
    show.bad("another value", ["expected  1", "got       2"])
    assert ("\x1b[" in written.getvalue()) == coloured
    plain = re.sub(r"\x1b\[[0-9;]*m", "", written.getvalue())
    assert "  ok  a value                             right\n  NO  another value\n      expected  1\n" in plain


# What it notices ------------------------------------------------------------------------------------------------------


def test_a_wrong_answer_is_told_with_the_log():
    status, output = play(_RECORDING, unit=tampered(on_PauseRecording=lambda _unit, _path: -1))
    assert status == 1
    assert "  NO  reply\n      expected  (0, 'Ran successfully')\n      got       (-1, 'Unknown error')\n" in output
    assert "  NO  A recording, from its start to its end: reply, after controllerctl record pause\n" in output
    assert "What differed" in output and "Failed to pause video record" in output
    assert "Every step came out as it should" not in output


def test_a_call_that_is_missing_is_told_alone():
    def forget(unit, _path):
        """Resumes without telling anybody, so the recording's file is never looked up."""
        unit.video.set("RecordingState", 1, emit=False)
        return 0

    status, output = play(
        Chapter("Resumed", lambda stage: (
            stage.call("VideoRecordStart", 1, 1, 1), stage.call("VideoRecordPause"),
            stage.order(0, "VideoRecordResume"),
            stage.check_asked(("video", "ResumeRecording", ""), ("video", "Get RecordingFilename", "")))),
        unit=tampered(on_ResumeRecording=forget))
    assert status == 1
    assert "      expected, missing: ('video', 'Get RecordingFilename')\n" in output
    assert "ResumeRecording')" not in output


def test_a_signal_that_does_not_come_is_told_without_waiting():
    status, output = play(_INCIDENTS, unit=tampered(grow=lambda _unit, **_size: None))
    words = " ".join(output.split())
    assert status == 1
    assert "expected, missing: ('CaptureSizeLimitReached', 2, 'Video file size limit reached.'" in words


def test_a_daemon_that_dies_is_told_and_the_next_chapter_has_another():
    def kill(unit, _path, *_order):
        os.kill(unit.pid, signal.SIGKILL)
        return 0

    status, output = play(_RECORDING, _BY_TITLE["What the daemon offers"], unit=tampered(on_StartRecording=kill))
    assert status == 1
    assert "  NO  the unit\n      the daemon ended unexpectedly\n" in output
    assert _TOTALS in output


def test_an_error_in_the_simulation_or_a_chapter_is_no_success():
    def fail(_unit, _path):
        raise ValueError("a wrong behaviour")

    status, output = play(_RECORDING, unit=tampered(on_PauseRecording=fail))
    assert status == 1 and "the simulation has failed" in output and "ValueError: a wrong behaviour" in output
    status, output = play(Chapter("Broken", lambda stage: stage.unit.client.wait_signal("Never", timeout=0)))
    assert status == 1 and "  NO  the chapter broke off\n      TimeoutError: 1 x Never not seen" in output


# How it ends ----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_an_interruption_ends_it_with_one_line(folder, number):
    with running_demo(folder) as process:
        read_until(process, _RECORDING.title)
        process.send_signal(number)
        _, errors = process.communicate(timeout=PATIENCE)
    assert (process.returncode, errors) == (128 + number, "demo: interrupted\n")


def test_an_interruption_during_a_call_that_hangs_does_not_wait_for_it(folder):
    with running_demo(folder) as process:
        read_until(process, "The jobs manager hangs")
        read_until(process, "controllerctl record start")
        process.send_signal(signal.SIGINT)
        output, errors = process.communicate(timeout=PATIENCE)
    assert (process.returncode, errors) == (130, "demo: interrupted\n")
    assert "Unable to create path" not in output


def test_a_reader_that_leaves_ends_it_quietly(folder):
    with running_demo(folder) as process:
        process.stdout.readline()
        process.stdout.close()
        assert process.wait(PATIENCE) == 128 + signal.SIGPIPE
        assert process.stderr.read() == ""


def test_without_a_daemon_one_line_says_so(folder):
    with running_demo(folder, CCU_BUILD_DIR="/nonexistent") as process:
        output, errors = process.communicate(timeout=PATIENCE)
    assert (process.returncode, output) == (1, "")
    assert errors == "demo: the unit cannot be started: /nonexistent/daemon/controllerd has not been built\n"
