"""The sound files: which are listed, how one is played, and that nothing else is ever run."""

import contextlib
import os

import pytest

from tests.integration.device_texts import FAILED, effect_of
from virtual_unit import PATIENCE, VirtualUnit

FOLDER = "/usr/share/sounds/"
REFUSED = (FAILED, "Could not play file")

#: What a shell would take apart, each of which would leave a file if somebody ran it.
HOSTILE = [
    "two words.wav", "  .wav", "it's.wav", 'a "quote".wav', "a;touch run1;.wav", "`touch run2`.wav",
    "$(touch run3).wav",
    "a&touch run4&.wav", "a|touch run5|.wav", "a>run6.wav", "new\nline\ntouch run7\n.wav", "-D.wav", "--help.wav",
    "*.wav", "?eep.wav", "\\.wav", "$HOME.wav", "~.wav", "#.wav", "!!.wav", "{a,b}.wav", "a\ttab.wav", "\x01.wav",
    "ä ☃.wav", "x" * 251 + ".wav", "'; touch run8; '.wav", '"; touch run9; ".wav',
]


@pytest.fixture(name="unit")
def unit_with_devices_of_its_own(own_unit):
    """The devices are what is changed here."""
    return own_unit


@contextlib.contextmanager
def unit_with(names, prepare=lambda unit: None):
    """A unit with these sound files and no others."""
    with VirtualUnit(daemon=False) as unit:
        for name in os.listdir(unit.audio.sounds_folder):
            unit.audio.remove_sound(name)
        for name in names:
            unit.audio.add_sound(name)
        prepare(unit)
        unit.start_daemon()
        yield unit


@pytest.fixture(scope="module", name="hostile")
def hostile_unit():
    """A unit all of whose sounds have names that no shell must see."""
    with unit_with(["beep.wav", *HOSTILE]) as unit:
        yield unit


def make_files(folder, names):
    """Files without contents."""
    for name in names:
        with open(os.path.join(folder, name), "wb"):
            pass


def play(unit, name):
    """Asks for a sound; returns all that came of it."""
    return effect_of(unit, lambda: unit.client.call("PlayAudio", "s", name))


def players(unit):
    """The player's commands."""
    return [command for command in unit.audio.commands if command[0] == "aplay"]


def threads(unit):
    """Number of the daemon's threads, without the one that the thread sanitizer keeps in it from the first on."""
    with open(f"/proc/{unit.pid}/maps", encoding="utf-8") as file:
        sanitizer = "libtsan" in file.read()
    return len(os.listdir(f"/proc/{unit.pid}/task")) - sanitizer


def children(unit):
    """The daemon's children, zombies included."""
    found = []
    for thread in os.listdir(f"/proc/{unit.pid}/task"):
        try:
            with open(f"/proc/{unit.pid}/task/{thread}/children", encoding="ascii") as file:
                found += file.read().split()
        except FileNotFoundError:  # the thread has ended meanwhile
            continue
    return found


def is_quiet(unit):
    """Waits until the daemon is its one thread again, without children."""
    return unit.audio.wait_for(lambda _audio: threads(unit) <= 1 and children(unit) == [])


def test_the_files_are_listed_as_the_folder_lists_them(unit):
    """In its own order, without a line or a call."""
    names = [entry.name for entry in os.scandir(unit.audio.sounds_folder)]
    assert effect_of(unit, lambda: unit.client.get("AudioFiles")).__dict__ == {
        "answer": names, "lines": [], "calls": [], "changes": [], "arguments": []}
    assert sorted(names) == ["beep.wav", "shutter.wav", "warning.wav"]


def test_only_names_that_end_in_the_extension_are_listed():
    """Whatever stands before it, and whatever kind of file it is."""
    def prepare(unit):
        folder = unit.audio.sounds_folder
        make_files(folder, ["a.WAV", "b.wave", ".wav", "c.wav.bak", "wav", "d.mp3", "ewav", "f.wav", "g.x.wav",
                            "..wav"])
        os.mkdir(os.path.join(folder, "folder.wav"))
        make_files(os.path.join(folder, "folder.wav"), ["inside.wav"])
        os.symlink("/nonexistent", os.path.join(folder, "link.wav"))

    with unit_with([], prepare) as unit:
        assert sorted(unit.client.get("AudioFiles")) == ["..wav", "f.wav", "folder.wav", "g.x.wav", "link.wav"]
        assert play(unit, "a.WAV").answer == play(unit, ".wav").answer == REFUSED


def test_a_name_that_is_no_text_is_left_out_and_the_others_are_told():
    """And played."""
    with unit_with(["good.wav", "bad\udcff.wav", "also.wav"]) as unit:
        assert sorted(unit.client.get("AudioFiles")) == ["also.wav", "good.wav"]
        assert play(unit, "good.wav").answer == ()


@pytest.mark.parametrize("prepare", [lambda _unit: None, lambda unit: os.rmdir(unit.audio.sounds_folder)])
def test_without_files_the_list_is_empty_and_nothing_is_said(prepare):
    """Whether the folder is empty or missing."""
    with unit_with([], prepare) as unit:
        assert unit.client.get("AudioFiles") == []
        assert not [line for line in unit.log.lines() if line.priority == 3]
        assert play(unit, "beep.wav").answer == REFUSED


def test_the_folder_is_read_once(unit):
    """At the start: files that come later are refused, and those that go are the player's to miss."""
    before = unit.client.get("AudioFiles")
    unit.audio.add_sound("new.wav")
    unit.audio.remove_sound("beep.wav")
    assert unit.client.get("AudioFiles") == before
    assert play(unit, "new.wav").answer == REFUSED
    assert play(unit, "beep.wav").answer == ()  # the player finds out, and nobody is told
    assert unit.audio.wait_commands("aplay") == [["aplay", FOLDER + "beep.wav"]]
    assert is_quiet(unit)
    assert unit.audio.played == []


def test_a_sound_is_played_by_the_player_and_answered_at_once(unit):
    """While it still plays, and other calls are answered, too."""
    unit.audio.hold("aplay")
    assert [*play(unit, "beep.wav")] == [(), [], [], []]
    assert [one.path for one in unit.audio.wait_played(1, ended=False)] == [FOLDER + "beep.wav"]
    assert players(unit) == [["aplay", FOLDER + "beep.wav"]]
    assert len(unit.client.get("AudioFiles")) == 3 and unit.audio.playing == [FOLDER + "beep.wav"]
    unit.audio.release("aplay")
    assert is_quiet(unit)
    assert unit.audio.playing == []


@pytest.mark.parametrize("name", ["", "beep", "BEEP.wav", "Beep.wav", "beep.wav ", " beep.wav", "./beep.wav",
                                  "../sounds/beep.wav", FOLDER + "beep.wav", "beep.wav\n", "beep.wav;touch run",
                                  "$(touch run)", "/etc/passwd", "beep.wav beep.wav", "*", "x" * 300])
def test_a_name_that_is_not_listed_is_refused(hostile, name):
    """By one text, however near to a listed one it comes, and no player is started."""
    before = len(players(hostile))
    assert [*play(hostile, name)] == [REFUSED, [], [], []]
    assert is_quiet(hostile)
    assert len(players(hostile)) == before


@pytest.mark.parametrize("name", HOSTILE)
def test_a_name_that_a_shell_would_take_apart_is_played_as_that_one_file(hostile, name):
    """And nothing that it spells is run."""
    files = sorted(os.listdir(hostile.directory))
    commands, played = len(hostile.audio.commands), len(hostile.audio.played)
    assert name in hostile.client.get("AudioFiles")
    assert [*play(hostile, name)] == [(), [], [], []]
    assert [one.path for one in hostile.audio.wait_played(played + 1)[played:]] == [FOLDER + name]
    assert is_quiet(hostile)
    assert hostile.audio.commands[commands:] == [["aplay", FOLDER + name]]
    assert sorted(os.listdir(hostile.directory)) == files


def test_a_thousand_sounds_are_listed_and_any_is_played():
    """The first and the last."""
    names = [f"sound {number}.wav" for number in range(1000)]

    def prepare(unit):
        make_files(unit.audio.sounds_folder, names)

    with unit_with([], prepare) as unit:
        listed = unit.client.get("AudioFiles")
        assert listed == [entry.name for entry in os.scandir(unit.audio.sounds_folder)]
        assert sorted(listed) == sorted(names)
        for name in (listed[0], listed[-1]):
            assert play(unit, name).answer == ()
        assert {one.path for one in unit.audio.wait_played(2)} == {FOLDER + listed[0], FOLDER + listed[-1]}


def test_a_hundred_at_once_play_side_by_side_and_leave_nothing(unit):
    """No thread and no child, and meanwhile the daemon answers."""
    unit.audio.hold("aplay")
    calls = [unit.client.call_async("PlayAudio", "s", "beep.wav") for _ in range(100)]
    assert all(call.result(PATIENCE).args == () for call in calls)
    unit.audio.wait_played(100, ended=False)
    assert len(children(unit)) == 100
    assert unit.client.get("KeypadBeepEnabled") is False  # nobody waits for the sounds
    unit.audio.release("aplay")
    unit.audio.wait_played(100)
    assert is_quiet(unit)
    assert players(unit) == [["aplay", FOLDER + "beep.wav"]] * 100


def test_a_player_inherits_nothing_of_the_daemons(unit):
    """No socket, no pipe, no line of the chip."""
    unit.audio.hold("aplay")
    play(unit, "beep.wav")
    player = unit.audio.wait_played(1, ended=False)[0].pid
    links = [os.readlink(f"/proc/{player}/fd/{number}") for number in os.listdir(f"/proc/{player}/fd")]
    assert not [link for link in links if link.startswith(("socket:", "anon_inode:", "pipe:")) or "gpio" in link]
    unit.audio.release("aplay")
    assert is_quiet(unit)


def break_program(audio):
    """Puts something in the player's place that is no program."""
    path = os.path.join(audio.path, "aplay")
    os.unlink(path)
    with open(path, "wb") as file:
        file.write(b"\0")
    os.chmod(path, 0o755)


@pytest.mark.parametrize("fail", [
    lambda audio: audio.fail("aplay"), lambda audio: audio.remove("aplay"), lambda audio: audio.refuse_processes(),
    break_program], ids=["fails", "not found", "no process", "no program"])
def test_a_player_that_fails_is_nobodys_business(unit, fail):
    """The call has long been answered, and nothing is logged."""
    fail(unit.audio)
    assert [*play(unit, "beep.wav")] == [(), [], [], []]
    assert is_quiet(unit)
    assert unit.audio.played == []


def test_the_daemon_ends_while_a_sound_plays(unit):
    """At once, by the signal that it was sent."""
    unit.audio.hold("aplay")
    play(unit, "beep.wav")
    unit.audio.wait_played(1, ended=False)
    assert unit.stop_daemon() == -15
