"""What an operator hears and touches: microphone, speaker, sounds, sonde, keys and their beep, and the settings of all."""

from ..audio import SOUNDS
from ..client import DbusFailure
from ..panel import Panel

_SETTINGS = "/com/tavilon/common/Settings1/"
_ENTER, _ESCAPE = 28, 1
_BEEP = (100, 200, 1)
_MIC_LED, _SONDE_LED = 0, 3


def play(stage):
    """Each device by a client, by a key, and by the settings."""
    _look(stage)
    _switch(stage)
    _listen(stage)
    _press(stage)
    _follow_settings(stage)
    _break(stage)


def _look(stage):
    stage.tell("The front of the unit. The lines of microphone and speaker are those of a GPIO chip, the mixer and the "
               "player are programs, the keypad is an input device, and the LEDs are the hardware daemon's.")
    _show_panel(stage)
    stage.check("applied at the start", (stage.unit.gpio.mic.value, stage.unit.gpio.speaker.value,
                                         stage.unit.audio.control("PCM").percent), (1, 0, 100),
                "microphone on, speaker off, mixer at 100%")
    _check_changes(stage, {"MicEnabled": True}, {"SpkrEnabled": False}, {"SpkrVolume": stage.unit.audio.volume})


def _check_refused(stage, answer, text):
    stage.check("refused", answer.text if isinstance(answer, DbusFailure) else answer, text, f'"{text}"')


def _show_panel(stage):
    stage.show.event(Panel(stage.unit).text())


def _check_changes(stage, *expected):
    """Compares the changes of properties that clients are told of."""
    stage.check("clients are told", stage.take_changes(), list(expected),
                ", ".join(f"{name} {value}" for change in expected for name, value in change.items()) or "nothing")


def _set(stage, name, value):
    stage.check("reply", stage.call(name, value), (), "empty")


def _switch(stage):
    unit = stage.unit
    stage.tell("A client switches the microphone off: its line, its LED, and the sound of the next recording.")
    _set(stage, "MicEnabled", False)
    stage.check("line", unit.gpio.mic.value, 0, "low")
    stage.check("LED", unit.hardware.leds[_MIC_LED], 0, "off")
    stage.check("muted at the video daemon", unit.video.get("SystemMicMute"), True)
    _check_changes(stage, {"MicEnabled": False})
    stage.tell("The speaker on, and its volume.")
    _set(stage, "SpkrEnabled", True)
    _set(stage, "SpkrVolume", 80)
    stage.check("line", unit.gpio.speaker.value, 1, "high")
    # It is read twice: by the controller for what it announces, and by controllerctl, which says what holds afterwards.
    read = ["amixer", "get", "HP DAC"]
    stage.check("command", unit.audio.commands[-3:], [["amixer", "set", "HP DAC", "80%"], read, read],
                "amixer set 'HP DAC' 80%")
    percent = unit.client.get("SpkrVolume")
    stage.check("volume", percent, unit.audio.volume, f"{percent}%, as the mixer has it")
    _check_changes(stage, {"SpkrEnabled": True}, {"SpkrVolume": percent})
    stage.tell("The sonde, which is in the camera head. Its change is the hardware daemon's to tell.")
    _set(stage, "Sonde", True)
    stage.check("at the camera head", unit.client.get("Sonde"), True)
    stage.check("LED", unit.hardware.leds[_SONDE_LED], 1, "on")
    _check_changes(stage)
    _show_panel(stage)


def _listen(stage):
    unit = stage.unit
    stage.tell("Sounds are files of the unit's image, played in the background.")
    names = unit.client.get("AudioFiles")
    stage.check("sounds", sorted(names), sorted(name for name in SOUNDS if name.endswith(".wav")))
    stage.check("reply", stage.call("PlayAudio", names[0]), (), "empty")
    played = unit.audio.wait_played()[-1]
    stage.check("played", played.path, f"/usr/share/sounds/{names[0]}")
    for name in (names[0].removesuffix(".wav"), "/etc/passwd", f"{names[0]}; reboot"):
        answer = stage.call("PlayAudio", name)
        _check_refused(stage, answer, "Could not play file")
    stage.check("played besides", len(unit.audio.played), 1, "nothing")


def _press(stage):
    unit = stage.unit
    stage.tell("Keys come from the kernel through libinput. They beep when the operator wants it.")
    stage.happen("the Enter key is pressed and released", unit.keypad.type, [_ENTER])
    stage.check("beeps", unit.hardware.beeps, [])
    _set(stage, "KeypadBeepEnabled", True)
    _check_changes(stage, {"KeypadBeepEnabled": True})
    stage.happen("the Enter and the Escape key are pressed and released", unit.keypad.type, [_ENTER, _ESCAPE])
    stage.check("beeps", unit.hardware.beeps, [_BEEP, _BEEP], "2, of 100 with a period of 200, at the presses")
    stage.happen("the keypad is unplugged, and plugged in again", _replug, unit)
    stage.happen("the Enter key is pressed and released", unit.keypad.type, [_ENTER])
    stage.check("beeps", len(unit.hardware.beeps), 3)


def _replug(unit):
    unit.keypad.unplug()
    unit.keypad.plug()


def _follow_settings(stage):
    unit = stage.unit
    stage.tell("The settings are followed as they change.")
    stage.happen("the settings change: microphone off, speaker on, volume 30", unit.settings.set_properties,
                 _SETTINGS + "audio", {"micEnabled": False, "speakerEnabled": True, "speakerVolume": 30})
    stage.check("lines", (unit.gpio.mic.value, unit.gpio.speaker.value), (0, 1), "microphone low, speaker high")
    stage.check("volume", unit.client.get("SpkrVolume"), unit.audio.volume, f"{unit.audio.volume}%")
    _check_changes(stage, {"MicEnabled": False}, {"SpkrEnabled": True}, {"SpkrVolume": unit.audio.volume})
    stage.happen("the settings change: three beeps a key", unit.settings.set_property, _SETTINGS + "keyBeep", "beeps", 3)
    stage.happen("the Enter key is pressed and released", unit.keypad.type, [_ENTER])
    stage.check("beep", unit.hardware.beeps[-1], (*_BEEP[:2], 3), "three times")
    _show_panel(stage)


def _break(stage):
    unit = stage.unit
    stage.tell("What fails is answered, and changes nothing.")
    stage.show.event("the line of the microphone cannot be written")
    unit.gpio.mic.fail("write")
    _check_refused(stage, stage.call("MicEnabled", True), "SoundManager::SetMicEnabled failed")
    stage.check("microphone", unit.client.get("MicEnabled"), False, "off, as before")
    _check_changes(stage)
