"""The client of the settings daemon, operation by operation, against the simulated one."""

import errno

import pytest

from tests.integration.client_cases import (
    Case, FailureTests, RefusedListeningTests, calls_since, check_declared, check_success, client_unit, untouched)
from tests.integration.client_driver import error, info
from virtual_unit.values import Typed

NAME = "com.tavilon.common.Settings1"
PATH = "/com/tavilon/common/Settings1"
PROPERTIES = "org.freedesktop.DBus.Properties"
CLASS = "Settingsd::SettingsDaemonDbusHandler"

SECTIONS = ["boot", "system", "audio", "keyBeep", "display", "capture", "jobs", "sync", "sonde", "reel", "camera",
            "overlay", "video", "videoRecording", "autologRecording", "photoTalkRecording", "storage", "development",
            "bluetooth", "device", "network", "motionDetection", "contacts", "remoteCamera", "remoteDevices",
            "shutdown", "time", "gps", "cooling"]

# Reading --------------------------------------------------------------------------------------------------------------

#: Driver's overload and the name of the type in the failure line.
OVERLOADS = {"s": ("string", "std::__cxx11::basic_string<char>"), "b": ("bool", "bool"), "i": ("int32", "int"),
             "u": ("uint32", "unsigned int")}
SETTINGS = [("time", "zone", "s", "Azores %s"), ("time", "zone", "s", ""), ("time", "dst", "b", False),
            ("time", "dst", "b", True), ("audio", "micEnabled", "b", False), ("audio", "speakerEnabled", "b", False),
            ("audio", "speakerVolume", "i", -100), ("sonde", "enabled", "b", False), ("keyBeep", "enabled", "b", False),
            ("keyBeep", "duration", "u", 4294967295), ("keyBeep", "period", "u", 0), ("keyBeep", "beeps", "u", 3)]


def getting_failed(key, kind):
    """The line of a setting that could not be read."""
    text = ("static int32_t Settingsd::SettingsDaemonDbusHandler::GetSetting(const string&, const string&, T&) [with "
            f"T = {OVERLOADS[kind][1]}; int32_t = int; std::__cxx11::string = std::__cxx11::basic_string<char>]")
    return lambda _step, _result, words: [error(f"{text}: ERROR sdbus_utils::GetProperty {key} failed {words}")]


def setting(section, key, kind, value):
    """The case of a setting that is read."""
    return Case(f"settings.GetSetting({OVERLOADS[kind][0]})", (f"{PATH}/{section}", NAME, f"Get {key}", ()), kind,
                (section, key), outs=[value], untouched=untouched(kind), failed=getting_failed(key, kind),
                prepare=lambda unit: unit.settings.preset(section, {key: value}))


# Resetting ------------------------------------------------------------------------------------------------------------


def reset(member, types, parameters, *arguments):
    """The case of a reset, which answers nothing."""
    text = f"static int32_t {CLASS}::{member}({parameters})"
    return Case(f"settings.{member}", (PATH, NAME, member, arguments), types, arguments, traffic=[info(text)],
                failed=lambda _step, result, _words: [error(f"{text}:sd_bus_call_method call failed (r = {result})")],
                blind=True)


KEY_BEEP = {"enabled": True, "duration": 5, "period": 6, "beeps": 7}
SECTION = Case("settings.GetSectionSettings", (f"{PATH}/keyBeep", NAME, "GetAll", ()), "s", ("keyBeep",),
               outs=[{"enabled": ["b", True], "duration": ["u", 5], "period": ["u", 6], "beeps": ["u", 7]}],
               untouched=[{"untouched": ["untouched", True]}],
               prepare=lambda unit: unit.settings.preset("keyBeep", KEY_BEEP))

CASES = [setting(*row) for row in SETTINGS]
CASES += [reset("ResetToDefaults", "b", "bool", True), reset("ResetToDefaults", "b", "bool", False),
          reset("ResetSection", "s", "const std::string&", "audio"),
          reset("ResetSetting", "ss", "const std::string&, const std::string&", "audio", "speakerVolume"), SECTION]


UNIT_FIXTURE = client_unit("settings")


@pytest.mark.parametrize("case", CASES, ids=str)
def test_operation(unit, driver, case):
    """Member, types, arguments, result, out-arguments and lines."""
    if case is not SECTION:
        check_declared(case)
    check_success(unit, driver, case)


class TestFailures(FailureTests):
    """Every operation that fails."""

    CASES = CASES


@pytest.mark.parametrize("section, key, words, code", [
    ("time", "nosuch", "Unknown property 'nosuch'.", errno.EBADR),
    ("nosuch", "zone", f"Unknown object '{PATH}/nosuch'.", errno.EBADR),
    ("", "zone", "Invalid argument", errno.EINVAL), ("a b", "zone", "Invalid argument", errno.EINVAL),
    ("time", "", "Invalid argument", errno.EINVAL), ("time", "a b%s", "Invalid argument", errno.EINVAL)])
def test_a_setting_that_is_not_there(driver, section, key, words, code):
    """The failure line, and the variable as it was."""
    outcome = driver.run("settings.GetSetting(string)", section, key)
    assert (outcome.result, outcome.outs) == (-code, ["untouched"])
    assert outcome.lines == getting_failed(key, "s")(None, None, words)


@pytest.mark.parametrize("kind", OVERLOADS)
@pytest.mark.parametrize("section, key, held", [("time", "zone", "s"), ("time", "dst", "b"),
                                                ("audio", "speakerVolume", "i"), ("keyBeep", "beeps", "u")])
def test_a_setting_of_another_type(driver, kind, section, key, held):
    """Only the setting's own type reads it: an int32 is no uint32."""
    outcome = driver.run(f"settings.GetSetting({OVERLOADS[kind][0]})", section, key)
    if kind == held:
        assert outcome.result >= 0 and not outcome.lines
        return
    assert (outcome.result, outcome.outs) == (-errno.ENXIO, untouched(kind))
    assert outcome.lines == getting_failed(key, kind)(None, None, "No such device or address")


def test_every_section_can_be_read(unit, driver):
    """The whole table, and a section that is not there."""
    for section in SECTIONS:
        mark = unit.calls.mark()
        outcome = driver.run("settings.GetSectionSettings", section)
        assert outcome.result >= 0 and not outcome.lines
        assert set(outcome.outs[0]) == set(unit.settings.objects[f"{PATH}/{section}"].values)
        assert calls_since(unit, mark) == [(f"{PATH}/{section}", NAME, "GetAll", ())]
    outcome = driver.run("settings.GetSectionSettings", "nosuch")
    assert (outcome.result, outcome.outs, outcome.lines) == (-errno.EBADR, SECTION.untouched, [])


# Signals --------------------------------------------------------------------------------------------------------------

HANDLER = f"static int32_t {CLASS}::PropertiesChanged(sd_bus_message*, void*, sd_bus_error*)"
LISTEN = f"int32_t {CLASS}::Listen()"


LISTENS_TO = "settings"


def told(listener):
    """The two signals of one change."""
    return [listener.signal(), listener.signal()]


def next_after(unit, listener):
    """The lines so far, with a change sent and seen to mark their end."""
    unit.settings.emit_changes(f"{PATH}/gps", NAME, {"enabled": True})
    changes = {"enabled": ["b", True]}
    assert told(listener) == [("SectionChanged", ["gps", changes]), ("gps", [changes])]
    return listener.log.lines()


@pytest.mark.parametrize("section", SECTIONS)
def test_change_of_a_section(unit, listener, section):
    """First all, then those of the section alone; no line."""
    changes = {"b": Typed("i", -1), "a": Typed("s", "x"), "C": Typed("b", False)}
    unit.settings.emit_changes(f"{PATH}/{section}", NAME, changes)
    expected = {"C": ["b", False], "a": ["s", "x"], "b": ["i", -1]}
    assert told(listener) == [("SectionChanged", [section, expected]), (section, [expected])]
    assert not next_after(unit, listener)


@pytest.mark.parametrize("path, section", [
    (PATH, "Settings1"), (PATH + "/unknown", "unknown"), (PATH + "/tim", "tim"), (PATH + "/times", "times"),
    (PATH + "/Time", "Time"), ("/x", "x")])
def test_change_of_no_section(unit, listener, path, section):
    """An object that is not in the table reaches only those who follow all."""
    unit.settings.emit_changes(path, NAME, {"zone": Typed("s", "x")})
    assert listener.signal() == ("SectionChanged", [section, {"zone": ["s", "x"]}])
    assert not next_after(unit, listener)


@pytest.mark.parametrize("path", [PATH + "/time", "/time", PATH + "/deeper/time"])
@pytest.mark.parametrize("interface", [NAME, "com.tavilon.common.Other", ""])
def test_the_last_part_of_the_path_decides(unit, listener, path, interface):
    """Wherever the object lies, whatever the interface."""
    unit.settings.emit_changes(path, interface, {"dst": Typed("b", True)})
    changes = {"dst": ["b", True]}
    assert told(listener) == [("SectionChanged", ["time", changes]), ("time", [changes])]


def test_an_empty_change(unit, listener):
    """Is told as such; the list of invalidated settings is ignored."""
    unit.settings.emit_changes(f"{PATH}/time", NAME, {}, invalidated=["zone"])
    assert told(listener) == [("SectionChanged", ["time", {}]), ("time", [{}])]


def test_values_of_unknown_types(unit, listener):
    """Are left out, the others are told."""
    changes = {"a": Typed("(is)", (1, "x")), "b": Typed("a{sv}", {"x": Typed("i", 1)}), "c": Typed("v", Typed("i", 1)),
               "d": Typed("ai", [1]), "e": Typed("y", 200), "f": Typed("as", ["", "x"]), "g": Typed("o", "/x")}
    unit.settings.emit_changes(f"{PATH}/time", NAME, changes)
    expected = {"e": ["y", 200], "f": ["as", ["", "x"]], "g": ["o", "/x"]}
    assert told(listener) == [("SectionChanged", ["time", expected]), ("time", [expected])]
    assert not next_after(unit, listener)


def test_the_root_of_all_paths(unit, listener):
    """Has no last part."""
    unit.settings.emit_changes("/", NAME, {"zone": Typed("s", "x")})
    assert next_after(unit, listener) == [error(f"{HANDLER}: Mallformed path string")]


@pytest.mark.parametrize("types, body, line", [
    ("", (), "Failed to skip interface string"), ("i", (1,), "Failed to skip interface string"),
    ("a{sv}", ({},), "Failed to skip interface string"), ("s", (NAME,), "ParsePropertiesWithType failed:-6"),
    ("ss", (NAME, "x"), "ParsePropertiesWithType failed:-6"),
    ("sa{ss}as", (NAME, {"zone": "x"}, []), "ParsePropertiesWithType failed:-6")])
def test_changes_that_cannot_be_read(unit, listener, types, body, line):
    """One line, nothing told, and the next change is heard."""
    unit.settings.emit(f"{PATH}/time", PROPERTIES, "PropertiesChanged", *body, signature=types)
    assert next_after(unit, listener) == [error(f"{HANDLER}: {line}")]


def test_other_signals(unit, listener):
    """Only the standard one is followed."""
    unit.settings.emit(f"{PATH}/time", NAME, "PropertiesChanged", NAME, {}, [], signature="sa{sv}as")
    unit.settings.emit(f"{PATH}/time", PROPERTIES, "Changed", NAME, {}, [], signature="sa{sv}as")
    assert not next_after(unit, listener)


class TestListening(RefusedListeningTests):
    """That does not begin."""

    NO_BUS = [error(f"{LISTEN}: Failed to connect to dbus")]
    REFUSED = [error(f"{LISTEN}: Failed to register PropertiesChanged signal"),
               error("LibDbusHelper::Storage: Failed to init signal listeners")]
