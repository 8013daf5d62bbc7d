"""The devices' properties as clients see them: values, lines, what is told to whom, and every failure."""

import errno
import os
import shutil

import pytest

from tests.integration import device_texts as texts
from tests.integration.device_texts import FAILED, effect_of, read, write
from tests.integration.recording_texts import error, info, opened
from tests.integration.time_texts import without_clock
from virtual_unit import PATIENCE, REFUSE

INT_MIN, INT_MAX = -2 ** 31, 2 ** 31 - 1


@pytest.fixture(name="unit")
def healthy_unit(shared):
    """The unit, in which nothing fails any more after the test."""
    yield shared
    shared.faults.clear()
    shared.audio.mend()
    for line in shared.gpio.lines:
        line.mend()


# What is written ------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("on", [True, False, False, True])
def test_the_keypad_beep_is_stored_and_told(unit, on):
    """Also when it was so before, and asks no sibling."""
    signature = texts.handler("SetKeypadBeepEnabled")
    assert [*write(unit, "KeypadBeepEnabled", on)] == [
        None, [info(signature), info(f"{signature} keypadBeepEnabled = {int(on)}")], [], [{"KeypadBeepEnabled": on}]]
    assert [*read(unit, "KeypadBeepEnabled")] == [on, [], [], []]


@pytest.mark.parametrize("on", [True, False, False, True])
def test_the_sonde_is_switched_and_shown_and_emits_nothing_of_its_own(unit, on):
    """Wherever the hardware is, which is asked afresh each time."""
    signature = texts.handler("SetSonde")
    effect = write(unit, "Sonde", on)
    assert [*effect] == [None, [info(f"{signature} called"), info(f"{signature} SetSonde new_sonde_state = {int(on)}"),
                                *texts.SONDE_LINES], texts.SONDE_CALLS, []]
    assert effect.arguments[-1] == (texts.SONDE_LED, int(on))
    assert [*read(unit, "Sonde")] == [on, [opened("GetCameraSonde")],
                                      [*texts.REMOTE, ("hardware", "Get Sonde")], []]


@pytest.mark.parametrize("on", [True, False, False, True])
def test_the_microphone_is_switched_shown_muted_elsewhere_and_told(unit, on):
    """In this order, by its line, its LED and the video daemon."""
    effect = write(unit, "MicEnabled", on)
    assert [*effect] == [None, texts.mic_lines(on), texts.MIC_CALLS, [{"MicEnabled": on}]]
    assert effect.arguments == [(texts.MIC_LED, int(on)), (not on,)]
    assert unit.gpio.mic.value == int(on)
    assert [*read(unit, "MicEnabled")] == [on, [texts.mic_got(on)], [], []]


@pytest.mark.parametrize("on", [True, False, False, True])
def test_the_speaker_is_switched_and_told_and_has_no_led(unit, on):
    """By its line alone."""
    assert [*write(unit, "SpkrEnabled", on)] == [
        None, [info(f"{texts.handler('SetSpkrEnabled')}: spkr_enabled = {int(on)}"), *texts.speaker_lines(on)], [],
        [{"SpkrEnabled": on}]]
    assert unit.gpio.speaker.value == int(on)
    assert [*read(unit, "SpkrEnabled")] == [on, [texts.speaker_got(on)], [], []]


@pytest.mark.parametrize("asked, heard", [(0, 0), (100, 100), (75, 76), (150, 100), (INT_MAX, 100)])
def test_the_volume_goes_to_the_mixer_as_it_is_and_comes_back_as_the_mixer_says(unit, asked, heard):
    """In percent, rounded and bounded by the mixer's steps."""
    before = len(unit.audio.commands)
    assert [*write(unit, "SpkrVolume", asked)] == [
        None, [info(f"{texts.handler('SetSpkrVolume')}: spkr_volume = {asked}")], [], [{"SpkrVolume": heard}]]
    assert unit.audio.commands[before:] == [["amixer", "set", "HP DAC", f"{asked}%"], ["amixer", "get", "HP DAC"]]
    assert [*read(unit, "SpkrVolume")] == [heard, [], [], []]


@pytest.mark.parametrize("asked", [-1, INT_MIN])
def test_a_volume_that_the_mixer_takes_for_an_option_changes_nothing_and_is_no_failure(unit, asked):
    """For clients, who read the one in force."""
    unit.client.set("SpkrVolume", "i", 40)
    held = unit.audio.volume
    assert write(unit, "SpkrVolume", asked).answer is None
    assert ["amixer", "set", "HP DAC", f"{asked}%"] in unit.audio.commands
    assert (unit.audio.volume, unit.client.get("SpkrVolume")) == (held, held)


def printed(unit):
    """What the daemon and the programs that it runs have printed, which is the service's word in the journal."""
    with open(unit.daemon.error_path, encoding="utf-8") as file:
        return file.read()


def test_what_the_mixer_prints_of_a_change_is_nobodys(make_unit):
    """At the start and later, also when it prints no end of it; what it complains of stays to be read."""
    unit = make_unit()
    assert unit.audio.volume is not None
    unit.client.set("SpkrVolume", "i", 40)
    unit.audio.say("no end\n" * 20000)
    unit.client.set("SpkrVolume", "i", 41)
    assert printed(unit) == ""
    unit.audio.mend()
    unit.audio.remove_control("HP DAC")
    unit.client.set("SpkrVolume", "i", 42)
    assert set(printed(unit).splitlines()) == {"amixer: Unable to find simple control 'HP DAC',0"}


def test_values_that_somebody_else_has_changed_are_read_afresh(unit):
    """From the lines, the mixer and the hardware daemon."""
    unit.gpio.mic.value, unit.gpio.speaker.value = 0, 1
    unit.audio.set_control("HP DAC", 0, 127)
    unit.hardware.set_property("/com/tavilon/common/Halvex1/camera", "Sonde", True)
    assert [unit.client.get(name) for name in ("MicEnabled", "SpkrEnabled", "SpkrVolume", "Sonde")] == \
        [False, True, 0, True]


# GPIO that fails ------------------------------------------------------------------------------------------------------


LINES = [("MicEnabled", "mic"), ("SpkrEnabled", "speaker")]


def written_lines(name, on):
    """The lines of a write up to the hardware."""
    if name == "MicEnabled":
        return [texts.mic_set(on)]
    return [info(f"{texts.handler('SetSpkrEnabled')}: spkr_enabled = {int(on)}"), texts.speaker_set(on)]


@pytest.mark.parametrize("name, line", LINES)
def test_a_line_that_cannot_be_written_is_a_failed_access_and_nothing_else_is_done(unit, name, line):
    """Nothing is shown, muted or told."""
    getattr(unit.gpio, line).value = 0
    getattr(unit.gpio, line).fail("write", errno.ENODEV)
    assert [*write(unit, name, True)] == [(FAILED, f"SoundManager::Set{name} failed"),
                                          [*written_lines(name, True), *texts.set_failed(name)], [], []]
    assert getattr(unit.gpio, line).value == 0


@pytest.mark.parametrize("name, line", LINES)
def test_a_line_that_cannot_be_read_is_a_failed_access(unit, name, line):
    """By a text of its own."""
    getattr(unit.gpio, line).fail("read")
    assert [*read(unit, name)] == [(FAILED, f"SoundManager::Get{name} failed"), texts.get_failed(name), [], []]


@pytest.mark.parametrize("name, line", LINES)
def test_a_change_whose_new_value_cannot_be_read_is_made_and_not_told(unit, name, line):
    """For want of a value, and no failure for who made it."""
    getattr(unit.gpio, line).fail("read")
    effect = write(unit, name, True)
    assert (effect.answer, effect.changes) == (None, [])
    assert effect.lines == [*written_lines(name, True), *texts.get_failed(name)]
    assert effect.calls == (texts.MIC_CALLS if line == "mic" else [])
    assert getattr(unit.gpio, line).value == 1


INIT = f"{texts.SOUND}Init()"


def break_lines(unit, *names, how):
    """Does something to lines of the chip."""
    for name in names:
        how(getattr(unit.gpio, name))


#: How the sound cannot be initialised: what is done to the chip, the line, and what is asked of the chip.
NO_SOUND = {
    "no chip": (lambda unit: unit.gpio.remove_chip(), "Failed to open GPIO chip", []),
    "no microphone line": (lambda unit: unit.gpio.mic.remove(), "Failed to get MIC or SPKR lines",
                           ["open", "close"]),
    "no speaker line": (lambda unit: unit.gpio.speaker.remove(), "Failed to get MIC or SPKR lines",
                        ["open", "close"]),
    "busy microphone line": (lambda unit: unit.gpio.mic.occupy(),
                             "Failed to request GPIO output for MIC or SPKR lines",
                             ["open", "request 14 controller 1", "request 13 controller 0", "release 13", "close"]),
    "busy speaker line": (lambda unit: unit.gpio.speaker.occupy(),
                          "Failed to request GPIO output for MIC or SPKR lines",
                          ["open", "request 14 controller 1", "request 13 controller 0", "release 14", "close"]),
    "both refuse": (lambda unit: break_lines(unit, "mic", "speaker", how=lambda line: line.fail("request")),
                    "Failed to request GPIO output for MIC or SPKR lines",
                    ["open", "request 14 controller 1", "request 13 controller 0", "close"]),
}


@pytest.mark.parametrize("name", NO_SOUND)
def test_without_its_lines_the_daemon_goes_on_without_sound(make_unit, name):
    """Whatever is the matter with the chip; the mixer's volume is what remains."""
    prepare, words, events = NO_SOUND[name]
    unit = make_unit(daemon=False)
    prepare(unit)
    unit.start_daemon()
    unit.settle()
    assert unit.gpio.events == events
    lines = [(priority, text) for priority, text in without_clock(texts.lines_of(unit))
             if "started" not in text]
    assert lines == [
        info("The controller is enabled"),
        error(f"{INIT}: {words}"), error(f"{texts.CONSTRUCTOR}: Failed to initialize Sound Manager"),
        texts.got_default("Mic state: 1"), texts.mic_set(True), *texts.set_failed("MicEnabled"),
        texts.got_default("Speaker state: 0"), texts.speaker_set(False), *texts.set_failed("SpkrEnabled"),
        texts.got_default("Speaker volume: 50"), texts.got_default("Sonde state: 0"), *texts.SONDE_LINES,
        texts.got_default("keypad beep setting 0 100 200 1")]
    assert ["amixer", "set", "PCM", "100%"] not in unit.audio.commands
    assert unit.client.get("AudioFiles") == []
    assert effect_of(unit, lambda: unit.client.call("PlayAudio", "s", "beep.wav")).answer == \
        (FAILED, "Could not play file")
    for member, _ in LINES:
        assert read(unit, member).answer == (FAILED, f"SoundManager::Get{member} failed")
        assert write(unit, member, True).answer == (FAILED, f"SoundManager::Set{member} failed")
    assert write(unit, "SpkrVolume", 30).changes == [{"SpkrVolume": 31}]  # the mixer needs no lines


# A mixer that fails ---------------------------------------------------------------------------------------------------


NO_VOLUME = (FAILED, "SoundManager::GetSpkrVolume failed")
NO_VOLUME_LINES = [error(f"{texts.handler('GetSpkrVolume')}: SoundManager::GetSpkrVolume failed")]


UNREADABLE = {
    "nothing": "", "empty lines": "\n\n", "capture": "  Front Left: Capture 3 [3%] [1.50dB] [on]\n",
    "no decibels": "  Front Left: Playback 100 [79%] [on]\n", "no steps": "  Front Left: Playback [79%] [-13.50dB]\n",
    "cut short": "  Front Left:", "mono": "  Mono: Playback 100 [79%] [-13.50dB] [on]\n",
    "right channel alone": "  Front Right: Playback 100 [79%] [-13.50dB]\n",
    "another language": "  Vorne links: Wiedergabe 100 [79%] [-13,50dB]\n",
    "a better line behind": "  Front Left:\n  Front Left: Playback 100 [79%] [-13.50dB]\n",
    "no text": "\0\xff" * 5000, "an endless line": "x" * 100000,
}


@pytest.mark.parametrize("name", UNREADABLE)
def test_a_mixer_that_does_not_say_the_volume_is_a_failed_read(unit, name):
    """Whatever else it says, and however much."""
    unit.audio.say(UNREADABLE[name])
    assert [*read(unit, "SpkrVolume")] == [NO_VOLUME, NO_VOLUME_LINES, [], []]


READABLE = {
    "as ever": ("  Front Left: Playback 100 [79%] [-13.50dB] [on]\n", 79),
    "without newline": ("Front Left: Playback -3 [4%] [0.00dB]", 4),
    "decimal comma": ("  Front Left: Playback 100 [79%] [-13,50dB] [on]\n", 79),
    "more than a pipe holds": ("  Front Left: Playback 1 [2%] [3dB]\n" * 5000, 2),
}


@pytest.mark.parametrize("name", READABLE)
def test_other_layouts_of_the_mixer_are_read(unit, name):
    """As long as the first line of the left channel has the percents in their place."""
    output, percent = READABLE[name]
    unit.audio.say(output)
    assert read(unit, "SpkrVolume").answer == percent


@pytest.mark.parametrize("fail", [lambda audio: audio.remove("amixer"), lambda audio: audio.fail("amixer", 1),
                                  lambda audio: audio.remove_control("HP DAC")])
def test_a_mixer_that_fails_is_no_failed_write_and_a_failed_read(make_unit, fail):
    """Nobody looks at its exit code, and its output is missed."""
    unit = make_unit()
    fail(unit.audio)
    assert [*write(unit, "SpkrVolume", 20)] == [
        None, [info(f"{texts.handler('SetSpkrVolume')}: spkr_volume = 20"), *NO_VOLUME_LINES], [], []]
    assert read(unit, "SpkrVolume").answer == NO_VOLUME


def test_a_mixer_that_prints_before_it_fails_is_read(unit):
    """By what it printed."""
    unit.audio.say("  Front Left: Playback 100 [79%] [-13.50dB] [on]\n")
    unit.audio.fail("amixer", 1)
    assert read(unit, "SpkrVolume").answer == 79


@pytest.fixture(name="programs")
def folder_of_programs(tmp_path):
    """A folder to be all of the daemon's PATH, with nothing in it but what the unit starts the daemon with."""
    os.symlink(shutil.which("setpriv"), tmp_path / "setpriv")
    return tmp_path


def write_mixer(folder, contents, mode):
    """Puts a file in the mixer's place."""
    (folder / "amixer").write_bytes(contents)
    (folder / "amixer").chmod(mode)


@pytest.mark.parametrize("prepare", [
    lambda folder: None, lambda folder: (folder / "amixer").mkdir(),
    lambda folder: write_mixer(folder, b"#!/bin/sh\n", 0o600), lambda folder: write_mixer(folder, b"\0", 0o755),
    lambda folder: write_mixer(folder, b"#!/nonexistent\n", 0o755)],
    ids=["none", "a folder", "not executable", "no program", "no interpreter"])
def test_a_mixer_that_is_not_there_is_as_one_that_fails(make_unit, programs, prepare):
    """At the start, when the volume is written, and when it is read."""
    prepare(programs)
    unit = make_unit(environment={"PATH": str(programs)})
    assert not [line for line in texts.lines_of(unit) if INIT in line[1]]
    assert [*write(unit, "SpkrVolume", 20)] == [
        None, [info(f"{texts.handler('SetSpkrVolume')}: spkr_volume = 20"), *NO_VOLUME_LINES], [], []]
    assert read(unit, "SpkrVolume").answer == NO_VOLUME
    assert unit.audio.commands == []


def test_a_mixer_that_prints_on_is_not_waited_for_in_vain(make_unit, programs):
    """Nobody listens to it any more, which ends it."""
    write_mixer(programs, b"#!/bin/sh\n[ $1 = set ] || while echo 'Front Left: Playback 1 [2%] [3dB]'; do :; done\n",
                0o755)
    unit = make_unit(environment={"PATH": str(programs)})
    assert read(unit, "SpkrVolume").answer == 2


def test_the_mixer_inherits_nothing_of_the_daemons(unit):
    """No socket, no line of the chip, and of pipes the one that it prints to."""
    before = len(unit.audio.wait_commands("amixer"))
    unit.audio.hold("amixer")
    reading = unit.client.request(unit.client.service, unit.client.path, texts.PROPERTIES, "Get", "ss",
                                  unit.client.interface, "SpkrVolume")
    unit.audio.wait_commands("amixer", before + 1)
    with open(f"/proc/{unit.pid}/task/{unit.pid}/children", encoding="ascii") as file:
        (mixer,) = file.read().split()
    folder = f"/proc/{mixer}/fd"
    links = {int(number): os.readlink(os.path.join(folder, number)) for number in os.listdir(folder)}
    unit.audio.release("amixer")
    assert reading.result(PATIENCE).args == (unit.audio.volume,)
    assert links.pop(1).startswith("pipe:")
    assert not [link for link in links.values()
                if link.startswith(("socket:", "anon_inode:", "pipe:")) or "gpio" in link]


def test_without_a_process_the_volume_can_be_neither_written_nor_read(unit):
    """By texts of their own."""
    unit.audio.refuse_processes()
    assert [*write(unit, "SpkrVolume", 20)] == [
        (FAILED, "SoundManager::SetSpkrVolume failed"),
        [info(f"{texts.handler('SetSpkrVolume')}: spkr_volume = 20"),
         error(f"{texts.setter('SpkrVolume', 'int')}: SoundManager::SetSpkrVolume failed")], [], []]
    assert [*read(unit, "SpkrVolume")] == [NO_VOLUME, NO_VOLUME_LINES, [], []]


def test_a_slow_mixer_is_waited_for(unit):
    """By all who have asked after it, whatever they asked for."""
    before = len(unit.audio.wait_commands("amixer"))
    unit.audio.hold("amixer")
    reading = unit.client.request(unit.client.service, unit.client.path, texts.PROPERTIES, "Get", "ss",
                                  unit.client.interface, "SpkrVolume")
    behind = unit.client.call_async("PlayAudio", "s", "no.wav")
    unit.audio.wait_commands("amixer", before + 1)
    assert not reading.done() and not behind.done()
    unit.audio.release("amixer")
    assert reading.result(PATIENCE).args == (unit.audio.volume,)
    assert behind.exception(10).text == "Could not play file"


@pytest.mark.parametrize("fail, lines", [
    (lambda audio: audio.remove("amixer"), []), (lambda audio: audio.fail("amixer", 1), []),
    (lambda audio: audio.refuse_processes(), [error(f"{INIT}: Failed to configure volume of DAC device")])])
def test_a_mixer_that_fails_at_the_start_is_not_fatal(make_unit, fail, lines):
    """And told only when it could not even be run."""
    unit = make_unit(daemon=False)
    fail(unit.audio)
    unit.start_daemon()
    assert [line for line in texts.lines_of(unit) if INIT in line[1]] == lines
    assert sorted(unit.client.get("AudioFiles")) == ["beep.wav", "shutter.wav", "warning.wav"]


def test_the_amplifier_is_set_up_before_the_daemon_says_anything(make_unit):
    """Or takes a line, and the volumes follow."""
    unit = make_unit(daemon=False)
    unit.audio.hold("amixer")
    unit.start_daemon(wait=False)
    assert unit.audio.wait_commands("amixer") == [["amixer", "set", "PGA", "3"]]
    assert texts.lines_of(unit) == [] and unit.gpio.events == []
    unit.audio.release("amixer")
    unit.daemon.wait_ready()
    assert unit.audio.commands == [["amixer", "set", "PGA", "3"], ["amixer", "set", "PCM", "100%"],
                                   ["amixer", "set", "HP DAC", "50%"], ["amixer", "get", "HP DAC"]]


def test_the_lines_are_taken_for_the_life_of_the_process(make_unit):
    """As outputs in its name, and its end is what gives them back."""
    unit = make_unit()
    assert unit.gpio.events == ["open", "request 14 controller 1", "request 13 controller 0", "set 14 1", "get 14",
                                "set 13 0", "get 13"]
    assert [(line.consumer, line.direction) for line in (unit.gpio.mic, unit.gpio.speaker)] == \
        [("controller", "output")] * 2
    unit.stop_daemon()
    assert not {"close", "release 13", "release 14"} & set(unit.gpio.events)


# Siblings that fail ---------------------------------------------------------------------------------------------------


def test_a_microphone_without_led_and_video_daemon_is_switched_all_the_same(unit):
    """And told, with a line for the LED."""
    unit.faults.on("hardware")
    unit.faults.on("video")
    effect = write(unit, "MicEnabled", False)
    assert (effect.answer, effect.calls, effect.changes) == (None, texts.MIC_CALLS, [{"MicEnabled": False}])
    assert effect.lines[1][1].startswith("sd_bus_call_method SetLedState failed (r = -")
    del effect.lines[1]
    assert effect.lines == [texts.mic_set(False), texts.led_failed(0, 0), texts.mic_got(False)]


def test_a_sonde_that_the_hardware_daemon_refuses_is_a_failed_write_and_not_shown(unit):
    """By its LED, which stays what it was."""
    unit.faults.on("hardware", "Set Sonde", kind=REFUSE)
    signature = texts.handler("SetSonde")
    effect = write(unit, "Sonde", True)
    assert effect.answer == (FAILED, "Halvex->SetCameraSonde failed")
    assert effect.calls == texts.SONDE_CALLS[:-1] and effect.changes == []
    assert effect.lines[:3] == [info(f"{signature} called"), info(f"{signature} SetSonde new_sonde_state = 1"),
                                *texts.SONDE_LINES]
    assert effect.lines[-1] == error(f"{signature} Halvex->SetCameraSonde failed") and len(effect.lines) == 5


def test_a_sonde_that_is_not_told_is_answered_as_off(unit):
    """With the failure in the log alone."""
    unit.client.set("Sonde", "b", True)
    unit.faults.on("hardware", "Get Sonde", kind=REFUSE)
    effect = read(unit, "Sonde")
    assert (effect.answer, len(effect.lines)) == (False, 3)
    assert effect.lines[-1] == error(f"{texts.handler('GetSonde')} Halvex->GetCameraSonde failed")


def test_an_led_that_fails_does_not_fail_the_sonde(unit):
    """It has a line of its own."""
    unit.faults.on("hardware", "SetLedState", kind=REFUSE)
    effect = write(unit, "Sonde", True)
    assert (effect.answer, effect.calls) == (None, texts.SONDE_CALLS)
    assert effect.lines[-1] == texts.led_failed(3, 1)


def test_a_service_whose_name_is_taken_has_nobody_to_tell(make_unit):
    """Of changes, which it makes all the same."""
    unit = make_unit(daemon=False)
    assert unit.client.call_bus("RequestName", "su", unit.client.service, 0) == 1
    unit.start_daemon()
    unit.settle()
    unit.client.clear()
    effect = effect_of(unit, lambda: unit.settings.change("audio", {"speakerEnabled": True}))
    assert effect.lines == [texts.changed("Audio"), texts.key_name("speakerEnabled"), texts.speaker_set(True)]
    assert effect.changes == [] and unit.gpio.speaker.value == 1
