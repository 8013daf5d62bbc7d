"""The python-dbusmock template is to its clients what the daemon is."""

import functools
import os
import re

import pytest

from interfaces import pages
from interfaces.introspection import CONTROLLER, controller_members
from tests.integration.installed_client import ROOT, install, run
from tests.integration.mock_cases import CASES, DEEDS, MOCK, TEMPLATE, daemon_sides, mock_sides, seen
from virtual_unit import DbusFailure
from virtual_unit.client import PATH, SERVICE
from virtual_unit.values import Typed

ZONES = os.path.join(ROOT, "virtual_unit", "zone_table.tsv")


@pytest.fixture(scope="module", name="mock")
def mock_fixture():
    """Makes sides of the template."""
    with mock_sides() as lend:
        yield lend


@pytest.fixture(scope="module", name="play")
def play_fixture(mock):
    """Plays a case on both sides, once."""
    with daemon_sides() as daemon:
        yield functools.lru_cache(maxsize=None)(lambda name: (seen(daemon, name), seen(mock, name)))


@pytest.mark.parametrize("name", CASES)
def test_a_client_sees_the_same(play, name):
    """Answers, refusals, signals with who has sent them, and changes of properties."""
    on_daemon, on_template = play(name)
    assert on_template == on_daemon != []


def codes(title):
    """The codes and messages of a list that are ever told, as an answer or a signal has them."""
    return [f"{code}, {message!r}" for code, message, when in pages.codes(title) if not when.startswith("never")]


def test_the_cases_have_all_that_a_client_can_meet(play):
    """Every member, what is written, every code and every refusal."""
    lines = [line for name in CASES for line in play(name)[0]]

    def told(start, text=""):
        return any(line.startswith(start) and text in line for line in lines)

    for member in controller_members():
        if member.kind == "signal":
            assert told(f"  {member.name}(")
            if member.outputs[-1][1] == "message":
                assert [code for code in codes(member.name) if not told(f"  {member.name}({code})")] == []
        elif member.kind == "method":
            assert told(f"{member.name} = "), member.name
        else:
            assert told(f"Get {member.name} = "), member.name
            assert member.access == "read" or told(f"Set {member.name} = "), member.name
        for text, _meaning in pages.errors(member):
            text = text.replace("NAME", "Nowhere")
            assert any(told(f"{way}{member.name} = ", f"Failed: {text}") for way in ("", "Get ", "Set ")), text
    for section, kinds in {"recording": ("VideoRecord", "PhotoTalkRecord", "AutoLogRecord"),
                           "playback": ("VideoPlayback",)}.items():
        for kind in kinds:
            assert [code for code in codes(section) if not told(kind, code)] == []


# What only the template can ------------------------------------------------------------------------------------------


def ask(side, member, signature="", *arguments):
    """Calls one of the template's own methods."""
    return side.client.call_on(SERVICE, PATH, MOCK, member, signature, *arguments)


def test_each_scenario_of_the_menu_is_compared(mock):
    """With what makes it happen on a unit."""
    with mock() as side:
        assert ask(side, "Scenarios")[0].keys() == DEEDS.keys()
        with pytest.raises(DbusFailure, match="no scenario 'rain'; there are: healthy, no job"):
            side.happen("rain")


def test_a_member_answers_with_any_code_of_its_list(mock):
    """Also with those that the daemon never sends, until it is told 0."""
    with mock() as side:
        ask(side, "AnswerCode", "si", "VideoRecordStart", -9)
        ask(side, "AnswerCode", "si", "Snapshot", -7)
        ask(side, "AnswerCode", "si", "VideoPlaybackStop", -3)
        assert side.client.call("VideoRecordStart", "uuu", 1, 1, 1) == (-9, "No storage available")
        assert side.client.call("Snapshot", "uuu", 1, 1, 1) == ("", -7, "No current job - unable to record")
        assert side.client.call("VideoPlaybackStop", "b", True) == \
            (-3, "Not in correct state to perform playback action")
        ask(side, "AnswerCode", "si", "VideoRecordStart", 0)
        assert side.client.call("VideoRecordStart", "uuu", 1, 1, 1) == (0, "Ran successfully")
        with pytest.raises(DbusFailure, match="VideoRecordStart has no code -11; it has: 0, -1, "):
            ask(side, "AnswerCode", "si", "VideoRecordStart", -11)
        with pytest.raises(DbusFailure, match="'PlayAudio' is none of Snapshot, "):
            ask(side, "AnswerCode", "si", "PlayAudio", -1)


def test_a_member_is_refused_with_its_own_texts(mock):
    """Reading and writing each for itself."""
    with mock() as side:
        ask(side, "Refuse", "ss", "PlayAudio", "Could not play file")
        with pytest.raises(DbusFailure, match="Could not play file"):
            side.client.call("PlayAudio", "s", "beep.wav")
        ask(side, "Refuse", "ss", "PlayAudio", "")
        side.client.call("PlayAudio", "s", "beep.wav")
        ask(side, "Refuse", "ss", "MicEnabled", "SoundManager::SetMicEnabled failed")
        assert side.client.get("MicEnabled") is True
        with pytest.raises(DbusFailure, match="SoundManager::SetMicEnabled failed"):
            side.client.set("MicEnabled", "b", False)
        with pytest.raises(DbusFailure, match="MicEnabled is not refused with 'no', but with: "):
            ask(side, "Refuse", "ss", "MicEnabled", "no")


def test_a_signal_is_emitted_with_its_message(mock):
    """Any of its codes."""
    with mock() as side:
        ask(side, "EmitCode", "si", "CaptureError", -2)
        side.hear()
        assert side.seen == ["  CaptureError(-2, 'Power is too low - unable to continue recording') from the owner"]
        with pytest.raises(DbusFailure, match="CaptureError has no code 0"):
            ask(side, "EmitCode", "si", "CaptureError", 0)


def test_what_dbusmock_itself_can_goes_on_to_work(mock):
    """Calls are counted, and a method can be given another body."""
    with mock() as side:
        ask(side, "ClearCalls")
        side.client.call("VideoRecordStart", "uuu", 1920, 1080, 90)
        side.client.get("GetTimezone")
        assert ask(side, "GetMethodCalls", "s", "VideoRecordStart")[0][0][1] == [1920, 1080, 90]
        assert len(ask(side, "GetMethodCalls", "s", "Get")[0]) == 1
        ask(side, "AddMethod", "sssss", "", "VideoRecordStop", "", "is", "ret = (-1, 'Unknown error')")
        assert side.client.call("VideoRecordStop") == (-1, "Unknown error")


def test_names_and_files_are_taken_from_parameters(mock):
    """A wrong one is said, and changes nothing."""
    wanted = {"interface": Typed("s", CONTROLLER), "zones": Typed("s", ZONES), "media": Typed("s", "/pictures"),
              "logs": Typed("s", "/screens"), "sounds": Typed("as", ["bell.wav"])}
    with mock() as side:
        try:
            ask(side, "AddTemplate", "sa{sv}", TEMPLATE, wanted)
            assert side.client.call("Snapshot", "uuu", 1, 1, 1)[0] == "/pictures/0001.jpeg"
            assert side.client.call("Screenshot", "s", "")[0].startswith("/screens/screenshot_")
            assert side.client.get("AudioFiles") == ["bell.wav"]
            with pytest.raises(DbusFailure, match="No such file or directory: .*'/nowhere.xml'"):
                ask(side, "AddTemplate", "sa{sv}", TEMPLATE, {"interface": Typed("s", "/nowhere.xml")})
            assert side.client.get("AudioFiles") == ["bell.wav"]
        finally:
            ask(side, "AddTemplate", "sa{sv}", TEMPLATE, {})


# Its page, and the template as it is installed -------------------------------------------------------------------------


@pytest.fixture(scope="module", name="page")
def page_fixture():
    """The text of the page."""
    with open(os.path.join(ROOT, "docs", "mock.md"), encoding="utf-8") as file:
        return file.read()


def test_the_page_has_the_menu(mock, page):
    """With the words that the mock itself has."""
    with mock() as side:
        menu = ask(side, "Scenarios")[0]
    assert dict(re.findall(r'^\| "(.+)" \| (.+) \|$', page, re.MULTILINE)) == menu


def test_the_test_of_the_page_passes(page, tmp_path):
    """On the template where the development package has it, away from this tree."""
    install(tmp_path / "usr", "client_dev")
    example = re.search(r"^```python\n(.*?)^```$", page, re.MULTILINE | re.DOTALL).group(1)
    assert "/usr/share/python-dbusmock" in example
    (tmp_path / "test_card.py").write_text(example.replace("/usr", str(tmp_path / "usr"), 1), encoding="utf-8")
    said = run("/usr/bin/python3", "-m", "unittest", "test_card", cwd=tmp_path,
               env={**os.environ, "TMPDIR": str(tmp_path)})  # where dbusmock leaves a folder
    assert re.search(r"\nRan 1 test in .*\n\nOK\n", said)
