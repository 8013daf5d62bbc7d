"""How the command-line control is used: wrong words, names of any kind, and where its output goes."""

import os
import pty
import re
import signal
import subprocess

import pytest

from tests.integration.controllerctl_cases import (  # pylint: disable=unused-import
    CASES, DONE, PROGRAM, REFUSED, USAGE, environment, prepare_status, run, stand_in_fixture)
from virtual_unit.syslog import SyslogReader


@pytest.fixture(autouse=True)
def no_faults(unit):
    """Each test starts with a stand-in that serves."""
    unit.faults.clear()


# Usage ----------------------------------------------------------------------------------------------------------------

WRONG = [
    "", "nothing", "--nothing", "status now", "snapshot --width", "snapshot --width -1", "snapshot --quality x",
    "snapshot 1", "screenshot a b", "record", "record begin", "record start --kind film", "record start --width 1.5",
    "record start --height 4294967296", "record stop now", "record pause --width 1", "record resume x", "play",
    "play start", "play start a b", "play start a --rate fast", "play start a --rate inf", "play start a --rate nan",
    "play stop live", "play pause x", "play resume x", "play seek", "play seek 1.5", "play seek 2147483648",
    "play rate fast", "play rate 1 2", "mic maybe", "mic on off", "speaker 2", "sonde y", "key-beep O",
    "volume loud", "volume 5x", "volume ''", "volume 99999999999", "sound", "sound play", "sound list x",
    "sound play a b", "time", "time get now", "time get --seconds --utc",
    "time set", "time set then", "time set now --utc", "time set 2026-13-01T00:00:00",
    "time set 2026-01-01T00:00:00Z --dst on", "time set 2026-01-01T00:00:00+24:00", "time set 2026-01-01T00:00:00+1:00",
    "time set 2038-01-19T03:14:08Z", "time set 2026-01-01Z",
    "time set 2026-02-29T00:00:00", "time set '2026-01-01 24:00:00'", "time set '2026-01-01 00:60'",
    "time set '2026-01-01 00:00:61'", "time set ' 2026-01-01 00:00'", "time set @", "time set @2147483648",
    "time set @1 --utc", "time set @1 --dst on", "time set @1.5", "time set 2026-01-01T00:00 --dst maybe",
    "time set-gps x", "dst", "dst get x", "dst set", "dst set maybe", "timezone", "timezone get x", "timezone set",
    "timezone set London --offset 1", "timezone set London --dst", "timezone set --offset x", "timezone list x",
    "timezone set-gps x", "timezone from-utc", "timezone from-utc +1h", "timezone from-utc 1 2", "monitor x",
    "monitor --count -1", "wait", "wait Nothing", "wait CaptureError 1", "wait MicEnabled maybe", "wait SpkrVolume x",
    "wait VideoPlaybackRate", "wait AudioFiles x", "wait MicEnabled --timeout -1", "wait MicEnabled --timeout soon",
    "wait MicEnabled --timeout ''", "wait MicEnabled --timeout 5x", "wait MicEnabled on off", "wait Sonde",
    "status --timeout -1", "status --timeout 5x", "doctor --timeout -1", "doctor --timeout 1e999",
    "dst set toggle", "volume +-5", "volume +", "volume +5x", "--machine ccu status", "--machine @ status", "--host '' -H 'a b' mic",
    "--host a: mic", "--host -x mic", "--machine 'a;b@' mic", "--machine a@ --address unix:path=/x mic", "--address"]


@pytest.mark.parametrize("line", WRONG)
def test_wrong_usage(unit, line):
    """Asks nothing and says what is wrong, on standard error alone."""
    mark = unit.calls.mark()
    told = run(unit, line + " --json")
    assert (told.status, told.out) == (USAGE, "")
    assert told.errors.startswith("controllerctl: ")
    assert told.errors.count("\n") <= 2 or told.errors.startswith("controllerctl: a verb is required\n  ")
    assert not unit.calls.since(mark)


@pytest.mark.parametrize("line, complaint", [
    ("nothing", 'there is no verb or option "nothing"'),
    ("--nothing", 'there is no verb or option "--nothing"'), ("record begin", 'there is no verb or option "begin"'),
    ("play start", "file is required"), ("play start --loud", 'there is no verb or option "--loud"'),
    ("record start --kind film", "--kind: it must be one of video, photo-talk, auto-log"),
    ("snapshot --width", "--width: 1 required VALUE missing"),
    ("status now", "The following argument was not expected: now"),
    ("time get --seconds --utc", "--utc does not go with --seconds"),
    ("timezone set London --offset 1", "give either a name, or --offset with or without --dst"),
    ("wait Nothing", "name: there is no such signal or property")])
def test_what_is_wrong(unit, line, complaint):
    """Is named."""
    assert run(unit, line).errors.removesuffix("See controllerctl --help.\n") == f"controllerctl: {complaint}\n"


@pytest.mark.parametrize("line, complaint", [
    ("recrod", 'there is no verb or option "recrod", did you mean "record"?'),
    ("record strat", 'there is no verb or option "strat", did you mean "start"?'),
    ("Status", 'there is no verb or option "Status", did you mean "status"?'),
    ("play start x --raet 2", 'there is no verb or option "--raet", did you mean "--rate"?'),
    ("monitr", 'there is no verb or option "monitr", did you mean "monitor"?'),
    ("wait micenabled", 'name: there is no such signal or property, did you mean "MicEnabled"?'),
    ("record start --kind vidoe", "--kind: it must be one of video, photo-talk, auto-log"),
    ("wait MicEnabled --timeout 5x", "--timeout: it must be a time like 90 (seconds), 5m or \"1h 30min\""),
    ("volume loud", "value: it must be a whole number of 32 bits, or a change like +10 or -10"),
    ("--machine ccu status", "--machine: it must be USER@ or USER@CONTAINER")])
def test_what_was_meant(unit, line, complaint):
    """Is said where it is near."""
    assert run(unit, line).errors.removesuffix("See controllerctl --help.\n") == f"controllerctl: {complaint}\n"


def test_a_verb_alone_lists_its_own(unit):
    """With what they do, as the help has them; so does the program alone."""
    for line in "", "record", "play", "sound", "time", "dst", "timezone":
        told = run(unit, line)
        head, *listed, last = told.errors.splitlines()
        assert (told.status, head, last) == (USAGE, "controllerctl: a verb is required", "See controllerctl --help.")
        members = run(unit, f"{line} --help").out.partition("Verbs:\n")[2].partition("\n\n")[0]
        assert [entry.split()[0] for entry in listed if entry[2] != " "] == re.findall(r"^  ([a-z-]+)", members, re.MULTILINE)
        assert re.sub(r"\s+", " ", " ".join(listed)) == " " + re.sub(r"\s+", " ", members.strip())


def test_every_verb_has_wrong_usages():
    """None is left out."""
    def verbs(lines):
        groups = ("record", "play", "sound", "time", "dst", "timezone")
        return {tuple(line.split(" ")[:2 if line.split(" ")[0] in groups else 1]) for line in lines}

    assert verbs(case.line for case in CASES) <= verbs(WRONG)


def test_the_version(unit):
    """Is told without a controller."""
    told = run(unit, "--version", DBUS_SESSION_BUS_ADDRESS=None)
    assert (told.status, told.out, told.errors) == (DONE, "controllerctl 1.1.0\n", "")


# Names and places -----------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("line, given", [("play start", "VideoPlaybackStart"), ("screenshot", "Screenshot")])
@pytest.mark.parametrize("name", ["a/b c", "mic", "play"])
def test_relative_names(unit, line, given, name):
    """Are from the caller's folder, not from the controller's, and may be those of verbs."""
    mark = unit.calls.mark()
    assert run(unit, [*line.split(), name], cwd="/usr").status == DONE
    assert [(call.member, call.arguments[0]) for call in unit.calls.since(mark)] == [(given, f"/usr/{name}")]


@pytest.mark.parametrize("words", [
    ("play", "start", b"/\xff"), ("screenshot", b"/\xc3"), ("sound", "play", b"\xed\xa0\x80"),
    ("timezone", "set", b"\xff"), ("screenshot", b"relative\xff")])
def test_arguments_that_are_no_utf8(unit, words):
    """Cannot be sent, so nothing is."""
    mark = unit.calls.mark()
    told = run(unit, ("--json", *words))
    assert (told.status, told.out) == (USAGE, "")
    assert told.errors.startswith("controllerctl: an argument cannot be sent, texts and file names must be UTF-8")
    assert not unit.calls.since(mark)


@pytest.mark.parametrize("words", [("snapshot", "--width", b"\xff"), (b"\xff",), ("wait", b"\xff"), ("mic", b"\xff")])
def test_words_that_are_no_utf8(unit, words):
    """Are wrong usage like any other."""
    assert run(unit, words, text=False).status == USAGE


def test_answers_with_any_name(unit):
    """Come through as they are; in JSON in one line."""
    path = "/d\u00fcse\n\x1b\u20ac \"%s\"\\.jpeg"
    unit.controller.answer("Snapshot", path, 0, "")
    told, as_json = run(unit, "snapshot"), run(unit, "snapshot --json")
    unit.controller.answer("Snapshot")
    assert told.out == path + "\n"
    assert as_json.object["path"] == path


# Output ---------------------------------------------------------------------------------------------------------------


def on_a_terminal(unit, line, **variables):
    """The status, and what is seen on a terminal that is both outputs."""
    terminal, ours = pty.openpty()
    with os.fdopen(terminal, "rb", buffering=0) as screen:
        status = subprocess.run([PROGRAM, *line.split()], stdin=ours, stdout=ours, stderr=ours, check=False,
                                env=environment(unit, **{"TERM": "xterm", **variables})).returncode
        os.close(ours)
        seen = b""
        while True:
            try:
                seen += screen.read(65536)
            except OSError:  # the terminal has no other end any more
                return status, seen.decode().replace("\r\n", "\n")


@pytest.mark.parametrize("line", ["status --color never", "status --json", "sound list", "--help", "record --help", "record", "mic maybe",
                                  "time get", "snapshot --json"])
def test_a_terminal_sees_the_same_as_a_pipe(unit, line):
    """In words, as JSON, usage and messages."""
    prepare_status(unit)
    told = run(unit, line)
    assert on_a_terminal(unit, line) == (told.status, told.out + told.errors)


@pytest.mark.parametrize("line, variables, colors", [
    ("status", {}, True), ("status", {"NO_COLOR": "1"}, False), ("status", {"NO_COLOR": ""}, True),
    ("status", {"TERM": "dumb"}, False), ("status", {"TERM": None}, False), ("status --color never", {}, False),
    ("status --color always", {"NO_COLOR": "1"}, True)])
def test_colors_on_a_terminal(unit, line, variables, colors):
    """Are there unless the user wants none, and nothing else differs from a pipe."""
    prepare_status(unit)
    status, seen = on_a_terminal(unit, line, **variables)
    assert ("\x1b[" in seen) == colors
    told = run(unit, "status")
    assert "\x1b" not in told.out
    assert (status, re.sub(r"\x1b\[[0-9;]*m", "", seen)) == (told.status, told.out)


def test_the_library_logs_to_syslog_alone(unit):
    """Also on a terminal."""
    log = SyslogReader(os.path.join(unit.directory, "ctl.log"))
    mark = log.mark()
    unit.faults.on("controller")
    assert on_a_terminal(unit, "sound play x") == (REFUSED, "controllerctl: refused: refused by the simulation\n")
    assert [line.text for line in log.since(mark)] == [
        "static int Controllerd::ControllerDaemonDbusHandler::PlayAudio(std::string): Failed to call method:"
        "refused by the simulation\n"]


@pytest.mark.parametrize("line", ["status --json", "snapshot", "--help"])
@pytest.mark.parametrize("handling", [signal.SIG_DFL, signal.SIG_IGN])
def test_a_reader_that_has_gone(unit, line, handling):
    """Ends the program by SIGPIPE, whatever its caller does with that, and without a word."""
    prepare_status(unit)
    reader, writer = os.pipe()
    os.close(reader)
    before = signal.signal(signal.SIGPIPE, handling)
    try:
        done = subprocess.run([PROGRAM, *line.split()], env=environment(unit), stdout=writer, stderr=subprocess.PIPE,
                              restore_signals=False, check=False)
    finally:
        signal.signal(signal.SIGPIPE, before)
        os.close(writer)
    assert (done.returncode, done.stderr) == (-signal.SIGPIPE, b"")


def test_output_that_cannot_be_written(unit):
    """Is told and is no success."""
    with open("/dev/full", "wb") as full:
        done = subprocess.run([PROGRAM, "mic", "--json"], env=environment(unit), stdout=full, stderr=subprocess.PIPE,
                              check=False)
    assert (done.returncode, done.stderr) == (REFUSED, b"controllerctl: cannot write to standard output\n")
