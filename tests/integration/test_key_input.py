"""The keypad, by the daemon's own libudev and libinput: which keys are heard, and which of them beep."""

import pytest

from tests.integration.device_texts import effect_of
from tests.integration.recording_texts import info
from virtual_unit import VirtualUnit
from virtual_unit.keypad import KEYBOARD, POINTER

BEEP = ("hardware", "BeepBuzzer")


@pytest.fixture(scope="module", name="unit")
def beeping_unit():
    """A unit whose keypad beeps."""
    with VirtualUnit(daemon=False) as started:
        started.settings.preset("keyBeep", {"enabled": True, "duration": 11, "period": 22, "beeps": 33})
        started.start_daemon()
        yield started


def key_line(code, beeps=True):
    """The line of a key event."""
    return info(f"DeviceManager::KeyPress: Got keyCode {code}, keypadBeepEnabled {int(beeps)}")


def test_a_press_beeps_with_duration_period_and_beeps_in_this_order(unit):
    """Those of the settings, once."""
    effect = effect_of(unit, lambda: unit.keypad.press(59))
    assert [*effect] == [None, [key_line(59)], [BEEP], []]
    assert effect.arguments == [(11, 22, 33)]
    unit.keypad.release(59)


def test_a_release_is_told_and_does_not_beep(unit):
    """Its line is that of a press."""
    unit.keypad.press(60)
    assert [*effect_of(unit, lambda: unit.keypad.release(60))] == [None, [key_line(60)], [], []]


def test_repeats_of_a_key_that_is_held_down_are_not_heard(unit):
    """Neither told nor beeped."""
    unit.keypad.press(61)
    assert [*effect_of(unit, lambda: unit.keypad.repeat(61))] == [None, [], [], []]
    unit.keypad.release(61)


@pytest.mark.parametrize("code", [1, 28, 116, 158, 240, 248])
def test_any_key_is_told_by_its_code(unit, code):
    """From the lowest to the highest that a keyboard has."""
    assert effect_of(unit, lambda: unit.keypad.type([code])).lines == [key_line(code)] * 2


def test_a_disabled_beep_is_silent_for_presses_too(unit):
    """Until it is enabled again, and the keys are told meanwhile."""
    unit.client.set("KeypadBeepEnabled", "b", False)
    assert [*effect_of(unit, lambda: unit.keypad.type([59, 60]))] == [
        None, [key_line(code, beeps=False) for code in (59, 59, 60, 60)], [], []]
    unit.client.set("KeypadBeepEnabled", "b", True)
    assert effect_of(unit, lambda: unit.keypad.type([59])).calls == [BEEP]


def test_many_keys_at_once_are_told_in_order_and_each_press_beeps(unit):
    """However far the daemon lags behind, none is lost."""
    codes = [1 + number % 200 for number in range(5000)]
    effect = effect_of(unit, lambda: unit.keypad.type(codes))
    assert effect.lines == [key_line(code) for code in codes for _ in range(2)]
    assert effect.calls == [BEEP] * len(codes)


@pytest.mark.parametrize("fail", [lambda unit: unit.faults.on("hardware", "BeepBuzzer"),
                                  lambda unit: unit.hardware.die()])
def test_a_beep_that_fails_is_nobodys_business(make_unit, fail):
    """It is not even logged, and stays enabled."""
    unit = make_unit()
    unit.client.set("KeypadBeepEnabled", "b", True)
    fail(unit)
    effect = effect_of(unit, lambda: unit.keypad.type([59]))
    assert effect.lines == [key_line(59)] * 2
    assert unit.client.get("KeypadBeepEnabled") is True


def test_a_mouse_is_not_heard(unit):
    """Although it is opened, and its buttons are keys; the keypad is heard on."""
    mouse = unit.input.add(POINTER, "A mouse")

    def move():
        unit.audio.wait_for(lambda _audio: mouse.opened)
        mouse.move(10, -10)
        mouse.click()

    assert [*effect_of(unit, move)] == [None, [], [], []]
    assert effect_of(unit, lambda: unit.keypad.type([59])).calls == [BEEP]
    mouse.unplug()


def test_a_second_keypad_is_heard_as_soon_as_it_is_plugged_in_and_one_of_another_seat_never(unit):
    """It is not even opened."""
    elsewhere = unit.input.add(KEYBOARD, "Somebody else's", seat="seat1")
    other = unit.input.add(KEYBOARD, "Second keypad")  # devices are announced in order
    unit.audio.wait_for(lambda _audio: other.opened)
    assert effect_of(unit, lambda: other.type([30])).lines == [key_line(30)] * 2
    assert not elsewhere.opened
    other.unplug()


def test_a_keypad_that_comes_back_is_heard_again(unit):
    """Its leaving and coming are told to nobody."""
    def replug():
        unit.keypad.unplug()
        unit.audio.wait_for(lambda _audio: not unit.keypad.opened)
        unit.keypad.plug()
        unit.audio.wait_for(lambda _audio: unit.keypad.opened)

    assert [*effect_of(unit, replug)] == [None, [], [], []]
    assert effect_of(unit, lambda: unit.keypad.type([59])).calls == [BEEP]


def test_without_a_keypad_the_daemon_runs_and_hears_one_later(make_unit):
    """Without a failure line."""
    unit = make_unit(daemon=False)
    unit.keypad.unplug()
    unit.start_daemon()
    assert not [line for line in unit.log.lines() if line.priority == 3]
    unit.keypad.plug()
    unit.audio.wait_for(lambda _audio: unit.keypad.opened)
    assert effect_of(unit, lambda: unit.keypad.type([59])).lines == [key_line(59, beeps=False)] * 2
