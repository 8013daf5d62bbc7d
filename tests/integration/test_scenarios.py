"""The scenarios that come along, played on the daemon; and what is told of one that does not come out."""

import io
import os
import re
import subprocess
import sys
from xml.etree import ElementTree

import pytest

from virtual_unit import PATIENCE, VirtualUnit
from virtual_unit.registry import announce
from virtual_unit.run import Run, junit
from virtual_unit.scenario import own, read

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
_TEN = ["card-pulled", "day", "gps-time", "hanging-jobs", "low-power", "low-storage", "playback-source-gone",
        "reel-lost", "size-limit", "video-dies"]


def _run(folder, *arguments):
    """The command as a process of its own."""
    environment = {**os.environ, "CCU_CALLER_DIR": str(folder)}
    return subprocess.run([sys.executable, "-m", "virtual_unit", "run", *map(str, arguments)], cwd=_ROOT,
                          env=environment, text=True, capture_output=True, check=False, timeout=10 * PATIENCE)


def _play(tmp_path, text, session=None):
    """The outcome of a scenario, and what was shown of it."""
    path = tmp_path / "one.yaml"
    path.write_text(text, encoding="utf-8")
    shown = io.StringIO()
    outcome, = Run(shown, session=session).play([read(str(path))])
    return outcome, shown.getvalue()


def test_there_are_ten():
    """And no file beside them."""
    assert list(own()) == _TEN


@pytest.mark.parametrize("name", _TEN)
def test_a_scenario_comes_out(name):
    """Every step of it."""
    shown = io.StringIO()
    scenario = read(own()[name])
    outcome, = Run(shown).play([scenario])
    assert outcome.failed is None, shown.getvalue()
    assert outcome.done == [step.text for step in scenario.steps]
    assert scenario.title in shown.getvalue() and "1 of 1 scenarios came out as they should" in shown.getvalue()


@pytest.mark.parametrize("step, what, difference", [
    ("call: VideoRecordStart 1 1 1\n    reply: [-8, no]", "line 4, call VideoRecordStart 1 1 1",
     'expected  [-8, "no"]'),
    ("call: VideoRecordStart 1 1 1\n    error: no", "line 4, call VideoRecordStart 1 1 1", 'expected  the error "no"'),
    ("call: SetTimeGPS", "line 4, call SetTimeGPS", "refused: No GPS Fix"),
    ("call: SetTimeGPS\n    error: Lost", "line 4, call SetTimeGPS", 'expected  "Lost"'),
    ("signal: none", "line 4, signal none", 'got       CaptureError [-4, "Storage was removed'),
    ("signal: TimeChanged", "line 4, signal TimeChanged", "expected  TimeChanged"),
    ("signal: CaptureError\n    with: [-3, $_]", "line 4, signal CaptureError", 'expected  [-3, "$_"]'),
    ("property: MicEnabled\n    is: 1", "line 4, property MicEnabled", "expected  1"),
    ("property: MicEnabled\n    is: false", "line 4, property MicEnabled", "got       true"),
    ("property: storage.Devices.card.Id\n    is: card", "line 4, property storage.Devices.card.Id",
     "storage has no Devices.card.Id"),
    ("property: reel\n    is: 3", None, None),
    ("do: storage remove card", "line 4, do storage remove card", "no device 'card'; there are: internal"),
])
def test_what_differs_is_told_with_its_line(tmp_path, step, what, difference):
    """And the steps behind it are not played."""
    text = f"title: One\nsteps:\n  - do: storage remove card\n  - {step}\n  - wait: 1000\n"
    if "CaptureError" in step or step == "signal: none" or step == "signal: TimeChanged":
        text = text.replace("  - do: storage remove card\n",
                            "  - {call: VideoRecordStart 1 1 1}\n", 1).replace("line 4", "line 5")
        text = text.replace(f"  - {step}", "  - do: storage remove card\n  - " + step)
        what = what.replace("line 4", "line 5")
    if what is None:
        with pytest.raises(Exception, match="no property of the controller 'reel'"):
            _play(tmp_path, text)
        return
    outcome, shown = _play(tmp_path, text)
    assert outcome.failed == what and difference in "\n".join(outcome.differences)
    assert outcome.differences[-1] == "1 more steps were not played"
    assert f"NO  {what}" in shown and "0 of 1 scenarios" in shown


def test_a_value_that_is_expected_under_a_name_is_that_from_then_on(tmp_path):
    """In what is expected and in what is done."""
    outcome, _ = _play(tmp_path, "title: One\nsteps:\n"
                                 "  - {property: storage.Primary, is: $device}\n"
                                 "  - {do: storage read-only $device}\n"
                                 "  - {property: storage.Devices.internal.ReadOnly, is: true}\n"
                                 "  - {property: job.Current, is: [$device, job1]}\n")
    assert outcome.failed == "line 6, property job.Current"
    assert outcome.differences == ('expected  ["internal", "job1"]', 'got       ["card", "job1"]')


def test_a_full_card(tmp_path):
    """Nothing can be made on it, by the daemon either, until it is emptied."""
    outcome, shown = _play(tmp_path, "title: One\nsteps:\n"
                                     "  - {do: storage fill card}\n"
                                     "  - {call: Snapshot 64 48 80, reply: [$_, -4, Unable to create path for "
                                     "recording]}\n"
                                     "  - {call: VideoRecordStart 1 1 1, reply: [-4, $_]}\n"
                                     "  - {do: storage fill card off}\n"
                                     "  - {call: Snapshot 64 48 80, reply: [$_, 0, $_]}\n"
                                     "  - {call: VideoRecordStart 1 1 1, reply: [0, $_]}\n")
    assert outcome.failed is None, shown


def test_a_unit_that_runs_is_played_on(tmp_path):
    """Which another process may have."""
    with VirtualUnit(directory=str(tmp_path)) as unit, announce(unit, "mine"):
        unit.hardware.set_reel(relative=77)
        (tmp_path / "one.yaml").write_text(
            "title: One\nsteps:\n  - {property: reel.Relative, is: 77}\n  - do: reel zero\n", encoding="utf-8")
        done = _run(tmp_path, "one.yaml", "--unit", unit.directory, "--junit", "out.xml")
        assert done.returncode == 0, done.stdout + done.stderr
        assert unit.hardware.reel["Relative"] == 0
    suite = ElementTree.parse(tmp_path / "out.xml").getroot()
    assert (suite.tag, suite.get("tests"), suite.get("failures")) == ("testsuite", "1", "0")
    assert re.fullmatch(r"\d+\.\d{3}", suite.find("testcase").get("time"))
    assert suite.findtext("testcase/system-out") == "property reel.Relative\ndo reel zero"


def test_a_failure_in_junit(tmp_path):
    """Names the step and what differed, and the daemon that dies is one."""
    outcome, _ = _play(tmp_path, "title: One\nsteps:\n  - {property: MicEnabled, is: <no> & 1}\n")
    case = ElementTree.fromstring(junit([outcome]).encode()).find("testcase")
    assert case.find("failure").get("message") == "line 3, property MicEnabled"
    assert case.find("failure").text == 'expected  "<no> & 1"\ngot       true'


@pytest.mark.parametrize("arguments, status, told", [
    (("wrong.yaml", "none.yaml"), 2, "wrong.yaml:2: a scenario needs 'title'\n"),
    (("day", "--unit", "nobody"), 1, "run: no unit"), (("--list",), 0, "")])
def test_the_command_says_what_is_wrong(tmp_path, arguments, status, told):
    """All mistakes of all files, before anything is played."""
    (tmp_path / "wrong.yaml").write_text("\nsteps: [{wait: 1}]\n", encoding="utf-8")
    done = _run(tmp_path, *arguments)
    assert done.returncode == status and told in done.stderr
    if arguments[0] == "wrong.yaml":
        assert "none.yaml: No such file or directory" in done.stderr and done.stdout == ""
    if arguments[0] == "--list":
        assert [line.split()[0] for line in done.stdout.splitlines()] == _TEN
