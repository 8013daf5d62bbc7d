"""Traces: what is recorded of a unit is replayed without a difference; a daemon that does something else is found."""

import functools
import io
import json
import os
import re
import signal
import subprocess
import sys
import zipfile
from xml.etree import ElementTree

import dpkt
import pytest
from jeepney import Message, MessageType

from tests.fuzz.player import PLANTED
from virtual_unit import PATIENCE, VirtualUnit
from virtual_unit.archive import save
from virtual_unit.chapters import CHAPTERS
from virtual_unit.demo import Inspection
from virtual_unit.registry import announce
from virtual_unit.traces import commands, file, sequence
from virtual_unit.traces.record import Recorder
from virtual_unit.traces.replay import Replay
from virtual_unit.traces.story import OF_DAEMON, Kind, Story

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.environ["CCU_BUILD_DIR"]
TITLES = [chapter.title for chapter in CHAPTERS]
RECORDING, PLAYBACK = "A recording, from its start to its end", "Playback of a recording"
CLOCK = "Clock and time zone"
#: Seconds after which a daemon that does nothing hangs: it never does anything again, so the less the sooner.
SOON = PATIENCE / 30


class RecordedUnit(VirtualUnit):
    """Is recorded from before its daemon starts to its end."""

    def __init__(self, path, **options):
        super().__init__(BUILD, **options)
        self._path = path

    def start(self):
        super().start()
        self._recorder = recorder_of(self)
        return self

    def stop(self):
        self._recorder.finish(self._path)
        super().stop()


def recorder_of(unit, **options):
    """Records a unit of this process."""
    buses = {file.SESSION: unit.session_address, file.SYSTEM: unit.system_address}
    return Recorder(buses, unit.daemon.log_path,
                    lambda on: (unit.happenings.start if on else unit.happenings.stop)(), **options)


class PlantedUnit(VirtualUnit):
    """Its daemon does something wrong."""

    def __init__(self, planted, **options):
        super().__init__(BUILD, environment={"CCU_PLANTED": planted}, **options)

    def start_daemon(self, *arguments, **options):
        self.daemon.preloads.insert(0, os.path.join(BUILD, PLANTED))
        super().start_daemon(*arguments, **options)


@pytest.fixture(scope="module")
def recorded(tmp_path_factory):
    """Gives the trace of a chapter of the demo; each is recorded once."""
    folder = tmp_path_factory.mktemp("traces")

    @functools.cache
    def record(title):
        number = TITLES.index(title)
        path = str(folder / f"{number}.trace")
        output = io.StringIO()
        with pytest.MonkeyPatch.context() as patch:
            patch.delenv("CCU_BUILD_DIR")  # where the demo leaves its screenshot
            status = Inspection(output, functools.partial(RecordedUnit, path)).run([CHAPTERS[number]])
        assert status == 0, output.getvalue()
        return path

    return record


def replay(path, **options):
    """The story of a trace, and the outcome of its replay."""
    story = Story(file.read(path))
    return story, Replay(story, **{"make_unit": functools.partial(VirtualUnit, BUILD), **options}).run()


def write(folder, messages, log):
    """A folder as one makes it of a real unit's captures, in the older of the two formats."""
    folder.mkdir()
    for bus in (file.SESSION, file.SYSTEM):
        with open(folder / f"{bus}.pcap", "wb") as output:
            writer = dpkt.pcap.Writer(output, snaplen=2 ** 27, linktype=dpkt.pcap.DLT_DBUS)
            for one in messages:
                if one.bus == bus:
                    writer.writepkt_time(one.message.serialise(serial=one.serial), one.time)
    (folder / file.LOG).write_text("".join(file.entry(one.time, one.level, one.text) for one in log), "utf-8")
    return folder


# Without a difference -------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("title", TITLES)
def test_a_chapter_of_the_demo_is_replayed_without_a_difference(recorded, title):
    story, outcome = replay(recorded(title))
    assert outcome.differences == []
    kinds = [step.kind for step in story.steps]
    assert outcome.compared == {kind.value: kinds.count(kind) for kind in OF_DAEMON} | {"log line": len(story.log)}
    assert Kind.REQUEST in kinds and Kind.CALL in kinds and story.log


@pytest.mark.parametrize("title", [RECORDING, PLAYBACK, "A snapshot into the job"])
def test_captures_and_journal_of_a_real_unit_are_replayed(recorded, title, tmp_path):
    """Where nobody tells of files, nor whose the connections are."""
    trace = file.read(recorded(title))
    asked = [one for one in trace.messages if one.is_call and one.member == "GetConnectionUnixProcessID"]
    left_out = {(one.bus, one.sender, one.serial) for one in asked}
    messages = [one for one in trace.messages
                if one.member != "Happened" and one not in asked and
                (one.is_call or one.is_signal or (one.bus, one.destination, one.answered) not in left_out)]
    assert len(messages) < len(trace.messages) - len(asked)
    story, outcome = replay(write(tmp_path / "real", messages, trace.log))
    assert story.folder is None
    assert outcome.differences == []
    assert outcome.compared["call"] == len([step for step in Story(trace).steps if step.kind is Kind.CALL])
    assert not os.path.exists(Story(trace).folder)  # of the machine on which it was recorded


def test_a_capture_of_the_user_bus_alone_is_replayed(recorded, tmp_path):
    """The unit's own stand-in for timedated answers, and no line is compared."""
    trace = file.read(recorded(RECORDING))
    capture = write(tmp_path / "it", trace.messages, []) / "session.pcap"
    _, outcome = replay(capture.rename(tmp_path / "capture"))
    assert outcome.differences == []
    assert outcome.compared["call"] > 40 and outcome.compared["log line"] == 0


def test_a_life_with_starts_ends_and_a_dead_sibling_is_replayed(tmp_path):
    """From its middle on, with the unit as it was then."""
    start = ("VideoRecordStart", "uuu", 1920, 1080, 90)
    with VirtualUnit(BUILD) as unit:
        unit.client.call(*start)
        unit.settle()
        recorder = recorder_of(unit, save=functools.partial(save, unit))
        unit.stop_daemon()
        unit.start_daemon()
        assert unit.client.call("VideoRecordStop")[0] == 0
        unit.settle()
        unit.jobs.die()
        assert unit.client.call(*start)[0] == -4
        unit.jobs.revive()
        unit.clock.set(1_784_021_400)
        assert unit.client.call("GetTimeSecs", "b", True)[0] >= 1_784_021_400
        unit.kill()
        unit.start_daemon()
        unit.keypad.type([28])
        unit.settle()
        recorder.finish(str(tmp_path / "it.trace"))
    story, outcome = replay(tmp_path / "it.trace")
    assert outcome.differences == []
    assert [step.kind for step in story.steps if step.kind in (Kind.START, Kind.END)] == [
        Kind.END, Kind.START, Kind.END, Kind.START]
    assert outcome.compared["answer"] == 3 and not story.has_start and story.unit is not None


# A daemon that does something else ------------------------------------------------------------------------------------


@pytest.mark.parametrize("planted, title, kind, step, was, became", [
    ("message", PLAYBACK, "other", "VideoPlaybackStart", "(-2, \"Playback file doesn't exist\")",
     '(-2, "Ran successfully")'),
    ("types", RECORDING, "other", "VideoRecordStop", '(0, "Ran successfully")', "ENOMSG"),
    ("refusal", RECORDING, "other", "VideoRecordStop", '(0, "Ran successfully")', "for no reason"),
    ("two answers", RECORDING, "other", "VideoRecordStop", '(0, "Ran successfully")', "another one"),
    ("no answer", RECORDING, "missing", "VideoRecordStop", '(0, "Ran successfully")',
     "call of video: Get RecordingState"),
    ("hang", RECORDING, "missing", "VideoRecordStop", '(0, "Ran successfully")', "the daemon hangs"),
    ("crash", RECORDING, "other", "VideoRecordStop", '(0, "Ran successfully")', "disconnected from message bus"),
    ("signal", CLOCK, "other", "TimeChanged", "TimeChanged (2026, 1, 31, 12, 30, 0, false)", 'TimeChanged ("changed")'),
    ("conversion", RECORDING, "other", None, "Failed to get video state", "%d"),
])
def test_a_planted_wrong_is_found_at_its_place(recorded, planted, title, kind, step, was, became):
    patience = {"patience": SOON} if planted == "hang" else {}
    story, outcome = replay(recorded(title), make_unit=functools.partial(PlantedUnit, planted), **patience)
    [found] = outcome.differences
    assert found.kind == kind
    assert was in found.recorded and became in found.replayed and became not in found.recorded
    place = story.steps[found.step - 1]
    if step is None:
        assert found.what.endswith("of the log") and found.recorded.replace(" %d", "") in found.replayed
    else:
        assert (found.what, place.name) == (place.kind.value, step)


def altered(trace, changes):
    """The messages of a trace with others in the place of some; None takes one out."""
    return [new for one in trace.messages if (new := changes.get(id(one), one)) is not None]


def other_body(one, body):
    """The message with another content."""
    return file.Captured(one.time, one.bus, Message(one.message.header, body))


def test_a_trace_of_another_version_shows_all_that_has_changed(recorded, tmp_path):
    """Of a daemon that asked less at its start, for another action's power, answered in other words and logged at
    another level."""
    trace = file.read(recorded(RECORDING))
    steps = Story(trace).steps
    remote = next(step for step in steps if step.name == "Get RemoteIP")
    power = next(step for step in steps if step.name == "GetPowerSufficientForAction")
    answer = next(step for step in steps if step.kind is Kind.ANSWER and step.name == "VideoRecordPause")
    changes = {id(remote.captured): None, id(remote.answer.captured): None,
               id(power.captured): other_body(power.captured, (7,)),
               id(answer.captured): other_body(answer.captured, (0, "Ran well"))}
    line = next(place for place, one in enumerate(trace.log) if "Paused video record" in one.text)
    log = trace.log[:]
    log[line] = file.Logged(log[line].time, 5, log[line].text)
    folder = write(tmp_path / "altered", altered(trace, changes), log)
    _, first = replay(folder)
    assert [(one.kind, one.recorded, one.replayed) for one in first.differences] == [
        ("additional", "call of hardware: Get RemoteDBusAddress ()", "call of hardware: Get RemoteIP ()")]
    story, every = replay(folder, keep_going=True)
    text = log[line].text.rstrip()
    assert every.differences[:1] == first.differences
    assert [(one.kind, one.recorded, one.replayed) for one in every.differences[1:]] == [
        ("other", "call of hardware: GetPowerSufficientForAction (7)",
         "call of hardware: GetPowerSufficientForAction (0)"),
        ("other", 'answer to VideoRecordPause (0, "Ran well")', 'answer to VideoRecordPause (0, "Ran successfully")'),
        ("other", f"<5> {text}", f"<6> {text}")]
    assert [story.steps[one.step - 1].name for one in every.differences[:3]] == [
        "Get RemoteDBusAddress", "GetPowerSufficientForAction", "VideoRecordPause"]


# What cannot be read --------------------------------------------------------------------------------------------------


def _cut_archive(path, folder):
    data = open(path, "rb").read()
    (folder / "it").write_bytes(data[:len(data) // 2])


def _cut_capture(path, folder):
    capture = zipfile.ZipFile(path).read("session.pcap")
    (folder / "it").write_bytes(capture[:capture.index(b"GetNewMediaPathComponents") + 8])


def _cut_between(path, folder):
    capture = zipfile.ZipFile(path).read("session.pcap")
    (folder / "it").write_bytes(capture[:-4])  # the length that ends the last block, behind the message


def _cut_by_size(path, folder):
    trace = file.read(path)
    long = max(trace.messages, key=lambda one: len(one.message.serialise(serial=one.serial)))
    with open(folder / "it", "wb") as output:
        dpkt.pcap.Writer(output, linktype=dpkt.pcap.DLT_DBUS).writepkt_time(
            long.message.serialise(serial=long.serial)[:100], long.time)


def _of_a_network(_path, folder):
    with open(folder / "it", "wb") as output:
        dpkt.pcap.Writer(output).writepkt_time(bytes(60), 1)


def _of_nonsense(_path, folder):
    with open(folder / "it", "wb") as output:
        dpkt.pcap.Writer(output, linktype=dpkt.pcap.DLT_DBUS).writepkt_time(b"nonsense" * 9, 1)


def _empty_capture(_path, folder):
    with open(folder / "it", "wb") as output:
        dpkt.pcap.Writer(output, linktype=dpkt.pcap.DLT_DBUS)


def _of_others(path, folder):
    trace = file.read(path)
    others = [one for one in trace.messages if one.kind is MessageType.signal and one.member == "NameAcquired"]
    write(folder / "it", others, [])


def _foreign_log(path, folder):
    trace = file.read(path)
    (write(folder / "it", trace.messages, []) / file.LOG).write_text("Nov 22 controllerd[1]: a line\n", "utf-8")


def _empty_folder(_path, folder):
    (folder / "it").mkdir()


@pytest.mark.parametrize("make, said", [
    (_cut_archive, "no whole archive"), (_cut_capture, "is no whole capture: .*it is cut"),
    (_cut_between, "is no whole capture: .*it is cut"),
    (_cut_by_size, "is cut in its message 1; `busctl capture` cuts what is longer than --size"),
    (_of_a_network, "capture of link type 1, not of D-Bus"), (_of_nonsense, "message 1 of .* is none of D-Bus"),
    (_empty_capture, "is empty"), (_of_others, "nothing in it is the controller's"),
    (_foreign_log, "line 1 of log.jsonl is none of `journalctl -o json`"), (_empty_folder, "has no session.pcap"),
    (lambda _path, folder: (folder / "it").write_bytes(b""), "no whole capture"),
    (lambda _path, folder: (folder / "it").write_text("a letter\n" * 9), "no whole capture"),
    (lambda _path, folder: None, "No such file"),
])
def test_what_is_no_whole_trace_is_refused(recorded, tmp_path, capsys, make, said):
    make(recorded(RECORDING), tmp_path)
    for command in (commands.trace, commands.replay):
        assert command(str(tmp_path / "it")) == 2
        output, errors = capsys.readouterr()
        assert output == "" and re.fullmatch(f"ccu: .*({said}).*\n", errors), errors


def test_a_trace_cannot_reach_out_of_its_unit(recorded, tmp_path, capsys):
    """It comes from somewhere else."""
    trace = file.read(recorded(RECORDING))
    path = tmp_path / "reached"
    written = next(one for one in trace.messages if one.member == "Happened" and one.body[0] == "write")
    changes = {id(written): other_body(written, ("write", json.dumps([f"../../..{path}"]), written.body[2]))}
    assert commands.replay(str(write(tmp_path / "one", altered(trace, changes), trace.log)), build_dir=BUILD) == 2
    assert capsys.readouterr().err == f"ccu: the trace has ../../..{path}, which is no file of a unit\n"
    asked = next(step for step in Story(trace).steps if step.name == "GetNewMediaPathComponents").answer.captured
    code, _, stem = asked.body[0] if isinstance(asked.body[0], tuple) else asked.body
    changes = {id(one): None for one in trace.messages if one.member == "Happened"}
    body = (code, f"/media/../..{path}", stem)
    changes[id(asked)] = other_body(asked, (body,) if isinstance(asked.body[0], tuple) else body)
    assert commands.replay(str(write(tmp_path / "other", altered(trace, changes), trace.log)), build_dir=BUILD) == 2
    assert capsys.readouterr().err == f"ccu: the trace works in /media/../..{path}, which may be anywhere\n"
    assert not path.exists()


# To be read -----------------------------------------------------------------------------------------------------------


def test_the_text_tells_who_called_whom_and_how_long_it_took(recorded):
    text = "\n".join(sequence.lines(Story(file.read(recorded(RECORDING)))))
    for pattern in (r"^ +\d+\.\d{3} +client \d -> controller: VideoRecordStart \(1920, 1080, 90\)$",
                    r"^ +\d+\.\d{3} +\d+\.\d ms +controller -> hardware: Get Absolute \(\) = 2750$",
                    r'^ +\d+\.\d{3} +\d+\.\d ms  client \d <- controller: 0, "Ran successfully"$',
                    r"^ +\d+\.\d{3} +video tells: PropertiesChanged \(.*RecordingState: 1",
                    r"^ +\d+\.\d{3} +log <6> .*Started recording$", r"\*\* controller: starts$",
                    r"\*\* unit: write media/card/job1/media/0001.mp4, 1024 bytes$"):
        assert re.search(pattern, text, re.MULTILINE), pattern


def test_the_picture_has_a_lane_for_everybody_and_a_row_for_every_step(recorded, tmp_path):
    path = recorded(RECORDING)
    assert commands.trace(path, str(tmp_path / "it.svg")) == 0
    root = ElementTree.parse(tmp_path / "it.svg").getroot()
    space = {"svg": "http://www.w3.org/2000/svg"}
    texts = [element.text for element in root.findall("svg:text", space)]
    assert {"controller", "video", "jobs", "storage", "hardware", "settings", "timedate"} <= set(texts)
    steps = Story(file.read(path)).steps
    rows = len(root.findall("svg:path", space)) + len(root.findall("svg:circle", space))
    assert rows == len([step for step in steps if step.kind is not Kind.REPLY])
    assert any(re.match(r"StartRecording \(.*\) = 0  \(\d+\.\d ms\)$", text or "") for text in texts)


# The commands ---------------------------------------------------------------------------------------------------------


def ccu(*words, **options):
    """One of the commands as a process."""
    return subprocess.Popen([sys.executable, "-m", "virtual_unit", *map(str, words)], cwd=ROOT, text=True,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)


def test_a_unit_that_runs_is_recorded_while_a_command_runs_in_it(tmp_path):
    """From the middle of its life on: a recording goes on, and a fault is set."""
    path = tmp_path / "it.trace"
    with VirtualUnit(BUILD) as unit, announce(unit):
        unit.client.call("VideoRecordStart", "uuu", 1920, 1080, 90)
        unit.video.grow(size=100)
        unit.settle()
        call = ("busctl --user call com.tavilon.common.Controller1 /com/tavilon/common/Controller1 "
                "com.tavilon.common.Controller1.Control")
        with ccu("record", "--unit", unit.directory, path, "--", "sh", "-c",
                 f"{call} VideoRecordPause; {call} VideoRecordStart uuu 1 1 1; exit 3") as process:
            output, errors = process.communicate(timeout=PATIENCE)
        assert process.returncode == 3, errors
        assert output == 'is 0 "Ran successfully"\nis -8 "Not in correct state to perform record action"\n'
        assert not unit.happenings.active
    with ccu("replay", "--json", path) as process:
        output, errors = process.communicate(timeout=PATIENCE)
    outcome = json.loads(output)
    assert (process.returncode, outcome["ok"], outcome["differences"]) == (0, True, []), errors
    assert outcome["compared"]["answer"] == 2 and outcome["compared"]["call"] >= 2


def test_a_recording_is_ended_by_the_user(tmp_path):
    with VirtualUnit(BUILD) as unit, announce(unit):
        with ccu("record", "--unit", unit.directory, tmp_path / "it.trace") as process:
            for line in process.stderr:
                if "Ctrl-C" in line:
                    break
            unit.client.get("GetDst")
            process.send_signal(signal.SIGINT)
            _, errors = process.communicate(timeout=PATIENCE)
        assert (process.returncode, errors) == (0, f"recorded in {tmp_path / 'it.trace'}\n")
    story = Story(file.read(tmp_path / "it.trace"))
    assert [step.name for step in story.steps if step.kind is Kind.REQUEST] == ["Get GetDst"]


def test_a_replay_tells_the_first_difference_and_a_summary(recorded, tmp_path, capsys):
    trace = file.read(recorded(RECORDING))
    step = next(step for step in Story(trace).steps if step.name == "GetPowerSufficientForAction")
    changes = {id(step.captured): other_body(step.captured, (7,))}
    assert commands.replay(str(write(tmp_path / "it", altered(trace, changes), trace.log)), build_dir=BUILD) == 1
    output, _ = capsys.readouterr()
    assert re.fullmatch(r"difference 1: other call, at step \d+ of \d+, \d+\.\d{3} s\n"
                        r"  recorded  call of hardware: GetPowerSufficientForAction \(7\)\n"
                        r"  replayed  call of hardware: GetPowerSufficientForAction \(0\)\n"
                        r"differences: 1 in \d+ answers?, \d+ calls, \d+ signals, \d+ log lines; "
                        r"recorded in \d+\.\d s, replayed in \d+\.\d s\n", output), output
