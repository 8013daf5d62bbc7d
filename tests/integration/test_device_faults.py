"""Every call that the devices make, met by every kind of failure: answers, lines, what is done all the same, and later
life."""

import re
from collections.abc import Callable
from dataclasses import dataclass

import pytest

from tests.integration import device_texts as texts
from tests.integration.device_texts import FAILED, effect_of
from tests.integration.fault_matrix import FAULTS, recover
from tests.integration.recording_model import Calls
from virtual_unit import AT_ONCE, VirtualUnit

#: The failure lines of the clients: of a call without an answer, and of an answer that cannot be read. Orders whose
#: answer has no value are answered by whatever comes.
CLIENT_LINES = {
    "SetLedState": (r"sd_bus_call_method SetLedState failed \(r = -\d+\)", None),
    "BeepBuzzer": (None, r"sd_bus_call_method SetLedState failed \(r = -\d+\)"),
    "Set SystemMicMute": (None, None),
}


def property_line(access, operation, kind, constant):
    """The failure line of a property of the hardware daemon."""
    return re.escape(f"{texts.HALVEX}{operation}({kind}): sdbus_utils::{access}Property {constant} failed ") + ".+"


for _member, _operation, _kind, _constant in (
        ("Get RemoteIP", "GetRemoteIP", "std::string&", "HALVEX_DAEMON_PROP_REMOTE_IP"),
        ("Get RemoteDBusAddress", "GetRemoteDbusAddr", "std::string&", "HALVEX_DAEMON_PROP_REMOTE_DBUS_ADDR"),
        ("Get Sonde", "GetCameraSonde", "bool&", "HALVEX_DAEMON_PROP_CAMERA_SONDE")):
    _line = property_line("Get", _operation, _kind, _constant)
    CLIENT_LINES[_member] = (_line, _line)
CLIENT_LINES["Set Sonde"] = (property_line("Set", "SetCameraSonde", "bool", "HALVEX_DAEMON_PROP_CAMERA_SONDE"), None)


class Model(Calls):
    """Walks through the calls of a step."""

    def reads_nothing(self, member):
        return member.startswith("Set ") or member == "SetLedState"

    def client_line(self, sibling, member, misread):
        return CLIENT_LINES[member][misread]

    def led(self, number, value):
        """Shows a switch."""
        if not self.ask("hardware", "SetLedState"):
            self.error(texts.led_failed(number, value)[1])

    def microphone(self, on):
        """Switches the microphone, which no sibling can prevent."""
        self.led(texts.MIC_LED, on)
        self.ask("video", "Set SystemMicMute")

    def remote(self):
        """Asks where the hardware is; here when it cannot be told."""
        for call in texts.REMOTE:
            self.ask(*call)

    def sonde(self, on):
        """Switches the sonde; shown only when that was done."""
        self.remote()
        done = self.ask("hardware", "Set Sonde")
        if done:
            self.led(texts.SONDE_LED, on)
        return done


@dataclass(frozen=True)
class Step:
    """Something that the devices do: how it comes about, the model's answer, and what is so whatever fails."""
    act: Callable
    expect: Callable
    always: Callable = lambda unit, effect: True


def set_sonde(model):
    """A client switches the sonde."""
    if model.sonde(1):
        return None
    model.error(f"{texts.handler('SetSonde')} Halvex->SetCameraSonde failed")
    return (FAILED, "Halvex->SetCameraSonde failed")


def get_sonde(model):
    """A client asks for the sonde, which is on, and off for those who cannot know."""
    model.remote()
    if model.ask("hardware", "Get Sonde"):
        return True
    model.error(f"{texts.handler('GetSonde')} Halvex->GetCameraSonde failed")
    return False


def follow_sonde(model):
    """The settings daemon tells of a sonde that is on."""
    model.sonde(1)


def beep(model):
    """A key is pressed."""
    model.ask("hardware", "BeepBuzzer")


def microphone_is_on(unit, effect):
    """Whatever siblings say, the microphone is switched, and that is told."""
    return unit.gpio.mic.value == 1 and effect.changes == [{"MicEnabled": True}]


STEPS = {
    "set microphone": Step(lambda unit: unit.client.set("MicEnabled", "b", True), lambda model: model.microphone(1),
                           microphone_is_on),
    "set sonde": Step(lambda unit: unit.client.set("Sonde", "b", True), set_sonde),
    "get sonde": Step(lambda unit: unit.client.get("Sonde"), get_sonde),
    "beep": Step(lambda unit: unit.keypad.type([59]), beep),
    "microphone by settings": Step(lambda unit: unit.settings.change("audio", {"micEnabled": True}),
                                   lambda model: model.microphone(1), microphone_is_on),
    "sonde by settings": Step(lambda unit: unit.settings.change("sonde", {"enabled": True}), follow_sonde),
}


def prepare(unit):
    """Nothing fails; the microphone is off, the sonde on, and the keypad beeps."""
    recover(unit)
    unit.hardware.set_property("/com/tavilon/common/Halvex1/camera", "Sonde", True)
    unit.client.set("MicEnabled", "b", False)
    unit.client.set("KeypadBeepEnabled", "b", True)


def run(unit, step, fault=None, index=None):
    """Does a step with a fault at the call with that index; returns its calls."""
    prepare(unit)
    unit.settle()
    if fault is not None:
        unit.faults.at(index, fault)
    effect = effect_of(unit, lambda: step.act(unit))
    model = Model(-1 if index is None else index, fault)
    answer = step.expect(model)
    errors = [text for priority, text in effect.lines if priority == 3]
    assert len(errors) == len(model.errors) and all(map(re.fullmatch, model.errors, errors)), \
        f"expected {model.errors}\ngot {errors}"
    assert effect.answer == answer
    assert step.always(unit, effect)
    return effect.calls


@pytest.fixture(scope="module", name="unit")
def running_unit():
    """A unit for all tests of the file."""
    with VirtualUnit(bus_timeout=AT_ONCE) as started:
        yield started


@pytest.mark.parametrize("fault", FAULTS)
@pytest.mark.parametrize("name", STEPS)
def test_every_call_that_fails(unit, name, fault):
    """By each fault: the answer and the failure lines are the model's, and the same step works again after it."""
    calls = run(unit, STEPS[name])
    assert calls
    failures = []
    for index, call in enumerate(calls):
        try:
            run(unit, STEPS[name], FAULTS[fault], index)
        except AssertionError as failure:
            failures.append(f"{index} {call}: {failure}")
    assert not failures, "\n".join(failures)
    assert run(unit, STEPS[name]) == calls
