"""What the settings daemon keeps for the devices: how it is applied at the start, and how changes are followed."""

import pytest

from tests.integration import device_texts as texts
from tests.integration.device_texts import changed, effect_of, key_name
from tests.integration.recording_texts import error, info
from tests.integration.time_texts import without_clock
from virtual_unit import ABSENT, AT_ONCE, DIE, REFUSE, SILENT, WRONG_TYPE
from virtual_unit.values import Typed

STARTED = [info("syslog controller daemon started"), info("The controller is enabled")]

#: The reads of the start: section, key, C++ type, what is logged when it fails.
READS = [
    ("audio", "micEnabled", "bool", "Mic setting"),
    ("audio", "speakerEnabled", "bool", "Speaker setting"),
    ("audio", "speakerVolume", "int", "Speaker volume"),
    ("sonde", "enabled", "bool", "Sonde setting"),
    ("keyBeep", "enabled", "bool", "beep settings for keyBeep"),
    ("keyBeep", "duration", "unsigned int", "beep settings for keyBeep"),
    ("keyBeep", "period", "unsigned int", "beep settings for keyBeep"),
    ("keyBeep", "beeps", "unsigned int", "beep settings for keyBeep"),
]
#: The lines of the healthy unit's values, in the order of the reads; the beep's are together.
LINES = [
    [texts.got_default("Mic state: 1"), *texts.mic_lines(True)],
    [texts.got_default("Speaker state: 0"), *texts.speaker_lines(False)],
    [texts.got_default("Speaker volume: 50")],
    [texts.got_default("Sonde state: 0"), *texts.SONDE_LINES],
    [texts.got_default("keypad beep setting 0 100 200 1")],
]


@pytest.fixture(name="unit")
def unit_with_devices_of_its_own(own_unit):
    """The devices are what is changed here."""
    return own_unit


# The start ------------------------------------------------------------------------------------------------------------


def test_the_defaults_are_read_and_applied_one_by_one_and_told(make_unit):
    """In this order, each before the next is read."""
    unit = make_unit(daemon=False)
    unit.start_daemon()
    unit.settle()
    assert without_clock(texts.lines_of(unit)) == [*STARTED, *texts.default_lines()]
    calls = unit.calls.members()
    assert calls[calls.index(("settings", "Get micEnabled")):] == [
        ("settings", "Get micEnabled"), *texts.MIC_CALLS, ("settings", "Get speakerEnabled"),
        ("settings", "Get speakerVolume"), ("settings", "Get enabled"), *texts.SONDE_CALLS,
        *[("settings", f"Get {key}") for key in ("enabled", "duration", "period", "beeps")]]
    assert texts.changes_of(unit.client.signals) == [{"MicEnabled": True}, {"SpkrEnabled": False}, {"SpkrVolume": 50}]


def test_other_defaults_are_applied_likewise(make_unit):
    """Up to the ends of their ranges, and the beep is used with its own."""
    unit = make_unit(daemon=False)
    unit.settings.preset("audio", {"micEnabled": False, "speakerEnabled": True, "speakerVolume": 100})
    unit.settings.preset("sonde", {"enabled": True})
    unit.settings.preset("keyBeep", {"enabled": True, "duration": 2 ** 32 - 1, "period": 0, "beeps": 3})
    unit.start_daemon()
    unit.settle()
    assert without_clock(texts.lines_of(unit)) == [
        *STARTED, *texts.default_lines(False, True, 100, True, (1, 2 ** 32 - 1, 0, 3))]
    assert (unit.gpio.mic.value, unit.gpio.speaker.value, unit.audio.volume) == (0, 1, 100)
    assert unit.hardware.leds == {texts.MIC_LED: 0, texts.SONDE_LED: 1}
    assert [unit.client.get(name) for name in ("MicEnabled", "SpkrEnabled", "SpkrVolume", "Sonde",
                                               "KeypadBeepEnabled")] == [False, True, 100, True, True]
    unit.keypad.press(59)
    unit.settle()
    assert unit.hardware.beeps == [(2 ** 32 - 1, 0, 3)]


def failed_start(unit):
    """Starts the daemon, which must fail, and returns the lines between its first two and its last two."""
    unit.start_daemon(wait=False)
    assert unit.wait_exit() == 1
    assert unit.daemon.notifications == ["READY=1"]
    lines = without_clock(texts.lines_of(unit))
    assert lines[:2] == STARTED and lines[-2:] == [info("Failed to start Controller"), info("Exiting..\n")]
    assert unit.client.service not in unit.client.names()
    return lines[2:-2]


@pytest.mark.parametrize("fault", [ABSENT, REFUSE, WRONG_TYPE], ids=lambda fault: fault.kind)
@pytest.mark.parametrize("index", range(len(READS)), ids=[f"{section}-{key}" for section, key, *_ in READS])
def test_a_default_that_cannot_be_read_is_told_leaves_the_others_and_ends_the_process(make_unit, index, fault):
    """After all the others have been applied."""
    section, key, kind, words = READS[index]
    unit = make_unit(daemon=False)
    unit.faults.on("settings", f"Get {key}", kind=fault, path=unit.settings.section_path(section))
    lines = failed_start(unit)
    step = min(index, len(LINES) - 1)
    before, after = sum(LINES[:step], []), sum(LINES[step + 1:], [])
    assert lines[:len(before)] == before and lines[len(before) + 2:] == after
    client_line, own_line = lines[len(before):len(before) + 2]
    assert client_line[0] == 3 and client_line[1].startswith(texts.unread(key, kind))
    assert len(client_line[1]) > len(texts.unread(key, kind))
    assert own_line == texts.no_default(words)
    read = [(call.path.rsplit("/", 1)[1], call.member[len("Get "):]) for call in unit.calls.of("settings")
            if not call.path.endswith("/time")]
    # A failure ends the reading of its own section, where a section is one value, and nothing else.
    assert read == [each[:2] for each in READS[:(index + 1 if section == "keyBeep" else len(READS))]]


@pytest.mark.parametrize("siblings", [(), ("hardware", "video"), ("storage", "jobs")], ids=", ".join)
def test_without_a_settings_daemon_the_process_ends_with_every_failure_told(make_unit, siblings):
    """Whoever else is there."""
    unit = make_unit(daemon=False, siblings=siblings)
    lines = failed_start(unit)
    assert [line for line in lines if not line[1].startswith("static ")] == [
        texts.no_default(words) for words in dict.fromkeys(words for *_, words in READS)]
    assert len(lines) == 10
    assert unit.gpio.events == ["open", "request 14 controller 1", "request 13 controller 0"]


@pytest.mark.parametrize("fault", [DIE, SILENT], ids=lambda fault: fault.kind)
def test_a_settings_daemon_that_dies_or_hangs_at_the_first_read_ends_the_process(make_unit, fault):
    """One that hangs once still tells the others."""
    unit = make_unit(daemon=False, bus_timeout=AT_ONCE)
    unit.faults.on("settings", "Get micEnabled", kind=fault)
    lines = failed_start(unit)
    assert lines[1] == texts.no_default("Mic setting")
    assert lines[2:] == (sum(LINES[1:], []) if fault is SILENT else lines[2:])
    assert (len(lines) == 10) == (fault is DIE)


def test_values_that_cannot_be_applied_are_no_failure_of_the_start(make_unit):
    """Their lines are in the log, and the daemon runs."""
    unit = make_unit(daemon=False, siblings=("settings",))
    unit.gpio.mic.fail("write")
    unit.gpio.speaker.fail("write")
    unit.audio.refuse_processes()
    unit.start_daemon()
    unit.settle()
    own = [line for line in texts.lines_of(unit) if "SoundManager::S" in line[1] and line[0] == 3]
    assert own == [*texts.set_failed("MicEnabled"), *texts.set_failed("SpkrEnabled"),
                   error(f"{texts.setter('SpkrVolume', 'int')}: SoundManager::SetSpkrVolume failed")]
    assert unit.daemon_alive


# Changes --------------------------------------------------------------------------------------------------------------


@pytest.fixture(name="followed")
def unit_at_its_defaults(shared):
    """The unit, without faults and with the settings' defaults in force."""
    yield shared
    shared.faults.clear()
    for line in shared.gpio.lines:
        line.mend()
    for section in ("audio", "sonde", "keyBeep"):
        shared.settings.change(section, {key: shared.settings.value(section, key)
                                         for key in shared.settings.objects[shared.settings.section_path(section)]
                                          .values})


def change(unit, section, values):
    """Changes settings; returns the daemon's lines, calls and changes."""
    _, *rest = effect_of(unit, lambda: unit.settings.change(section, values))
    return rest


@pytest.mark.parametrize("on", [True, False])
def test_a_changed_microphone_is_switched_like_by_a_client(followed, on):
    """Line, LED, muting and news."""
    assert change(followed, "audio", {"micEnabled": on}) == [
        [changed("Audio"), key_name("micEnabled"), *texts.mic_lines(on)], texts.MIC_CALLS, [{"MicEnabled": on}]]
    assert (followed.gpio.mic.value, followed.hardware.leds[texts.MIC_LED]) == (int(on), int(on))
    assert followed.video.get("SystemMicMute") is not on


@pytest.mark.parametrize("on", [True, False])
def test_a_changed_speaker_is_switched_like_by_a_client(followed, on):
    """Line and news."""
    assert change(followed, "audio", {"speakerEnabled": on}) == [
        [changed("Audio"), key_name("speakerEnabled"), *texts.speaker_lines(on)], [], [{"SpkrEnabled": on}]]


def test_a_changed_volume_is_set_like_by_a_client(followed):
    """Also to nothing."""
    assert change(followed, "audio", {"speakerVolume": 0}) == [
        [changed("Audio"), key_name("speakerVolume")], [], [{"SpkrVolume": 0}]]
    assert followed.audio.volume == 0


@pytest.mark.parametrize("on", [True, False])
def test_a_changed_sonde_is_switched_and_shown(followed, on):
    """And clients read it so, who are not told."""
    assert change(followed, "sonde", {"enabled": on}) == [
        [changed("Sonde"), key_name("enabled"), *texts.SONDE_LINES], texts.SONDE_CALLS, []]
    assert followed.hardware.leds[texts.SONDE_LED] == int(on)
    assert followed.client.get("Sonde") is on


def test_a_changed_beep_is_used_and_not_told(followed):
    """From the next press on."""
    assert change(followed, "keyBeep", {"enabled": True, "duration": 7, "period": 8, "beeps": 9}) == [
        [changed("KeyBeep"), *map(key_name, ("beeps", "duration", "enabled", "period"))], [], []]
    assert followed.client.get("KeypadBeepEnabled") is True
    followed.keypad.press(59)
    followed.settle()
    assert followed.hardware.beeps[-1] == (7, 8, 9)
    followed.keypad.release(59)


@pytest.mark.parametrize("key, value, beep", [("duration", 70, (70, 200, 1)), ("period", 70, (100, 70, 1)),
                                              ("beeps", 70, (100, 200, 70))])
def test_one_changed_number_of_the_beep_leaves_the_others(followed, key, value, beep):
    """As they were."""
    change(followed, "keyBeep", {"enabled": True, "duration": 100, "period": 200, "beeps": 1})
    assert change(followed, "keyBeep", {key: value})[0] == [changed("KeyBeep"), key_name(key)]
    followed.keypad.press(59)
    followed.settle()
    assert followed.hardware.beeps[-1] == beep
    followed.keypad.release(59)


def test_several_changes_are_applied_in_the_order_of_their_names(followed):
    """And one that nobody knows is named among them."""
    lines, calls, changes = change(followed, "audio", {
        "speakerVolume": 100, "speakerEnabled": True, "micEnabled": False, "balance": Typed("i", 3)})
    assert lines == [changed("Audio"), key_name("balance"), key_name("micEnabled"), *texts.mic_lines(False),
                     key_name("speakerEnabled"), *texts.speaker_lines(True), key_name("speakerVolume")]
    assert (calls, changes) == (texts.MIC_CALLS, [{"MicEnabled": False}, {"SpkrEnabled": True}, {"SpkrVolume": 100}])


#: Settings that are announced as something else than they are.
STRANGE = [
    ("Audio", "audio", "micEnabled", Typed("i", 0)), ("Audio", "audio", "micEnabled", Typed("s", "false")),
    ("Audio", "audio", "speakerEnabled", Typed("u", 1)), ("Audio", "audio", "speakerEnabled", Typed("y", 1)),
    ("Audio", "audio", "speakerVolume", Typed("u", 10)), ("Audio", "audio", "speakerVolume", Typed("x", 10)),
    ("Audio", "audio", "speakerVolume", Typed("d", 10.0)), ("Audio", "audio", "speakerVolume", Typed("b", True)),
    ("Audio", "audio", "enabled", Typed("b", True)), ("Audio", "audio", "MicEnabled", Typed("b", False)),
    ("Sonde", "sonde", "enabled", Typed("i", 1)), ("Sonde", "sonde", "Enabled", Typed("b", True)),
    ("Sonde", "sonde", "micEnabled", Typed("b", True)),
    ("KeyBeep", "keyBeep", "enabled", Typed("u", 1)), ("KeyBeep", "keyBeep", "duration", Typed("i", 5)),
    ("KeyBeep", "keyBeep", "period", Typed("t", 5)), ("KeyBeep", "keyBeep", "beeps", Typed("q", 5)),
    ("KeyBeep", "keyBeep", "beeps", Typed("s", "5")), ("KeyBeep", "keyBeep", "volume", Typed("u", 5)),
]


@pytest.mark.parametrize("name, section, key, value", STRANGE)
def test_a_setting_that_is_unknown_or_of_another_type_is_named_and_passed_over(followed, name, section, key, value):
    """The values in force stay."""
    followed.settings.change("keyBeep", {"enabled": False, "duration": 100, "period": 200, "beeps": 1})
    assert change(followed, section, {key: value}) == [[changed(name), key_name(key)], [], []]
    assert followed.client.get("KeypadBeepEnabled") is False
    followed.client.set("KeypadBeepEnabled", "b", True)
    followed.keypad.press(59)
    followed.settle()
    assert followed.hardware.beeps[-1] == (100, 200, 1)
    followed.keypad.release(59)


def test_a_wrong_type_does_not_keep_the_others_from_being_applied(followed):
    """In the same change, behind it."""
    assert change(followed, "audio", {"micEnabled": Typed("i", 0), "speakerVolume": 0})[2] == [{"SpkrVolume": 0}]


@pytest.mark.parametrize("values", [{}, {"enabled": Typed("a{sv}", {})}], ids=["nothing", "a dictionary"])
def test_a_change_without_settings_is_named_alone(followed, values):
    """One of a type that settings never have counts as none."""
    assert change(followed, "sonde", values) == [[changed("Sonde")], [], []]


@pytest.mark.parametrize("section", ["network", "video", "device", "camera", "system"])
def test_other_sections_are_nobodys(followed, section):
    """Even if their keys have the devices' names."""
    assert change(followed, section, {"enabled": Typed("b", True), "micEnabled": Typed("b", False)}) == [[], [], []]


def test_a_reset_of_a_section_is_followed(followed):
    """Like a change to the defaults."""
    followed.settings.change("audio", {"speakerVolume": 0})
    name = "com.tavilon.common.Settings1"
    followed.client.call_on(name, "/com/tavilon/common/Settings1", name, "ResetSection", "s", "audio")
    followed.settle()
    assert followed.client.get("SpkrVolume") == 50


@pytest.mark.parametrize("key, name, line, said", [
    ("micEnabled", "MicEnabled", "mic", texts.mic_set),
    ("speakerEnabled", "SpkrEnabled", "speaker", texts.speaker_set)], ids=["microphone", "speaker"])
def test_a_line_that_cannot_be_written_is_told_and_nothing_else_is_done(followed, key, name, line, said):
    """No LED, no muting, no news."""
    getattr(followed.gpio, line).fail("write")
    assert change(followed, "audio", {key: True}) == [
        [changed("Audio"), key_name(key), said(True), *texts.set_failed(name)], [], []]


def test_a_sonde_that_is_refused_is_not_shown(followed):
    """By its LED, and the refusal is in the log."""
    followed.faults.on("hardware", "Set Sonde")
    lines, calls, _ = change(followed, "sonde", {"enabled": True})
    assert calls == texts.SONDE_CALLS[:-1]
    assert lines[:3] == [changed("Sonde"), key_name("enabled"), *texts.SONDE_LINES] and len(lines) == 4
    assert lines[3][0] == 3 and lines[3][1].startswith(f"{texts.HALVEX}SetCameraSonde(bool): ")


def test_a_settings_daemon_that_comes_back_is_followed_again(make_unit):
    """Under its new connection."""
    unit = make_unit()
    unit.settings.die()
    unit.settings.revive()
    assert change(unit, "audio", {"speakerEnabled": True})[2] == [{"SpkrEnabled": True}]
