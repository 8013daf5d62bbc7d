"""The client of the hardware daemon, operation by operation, against the simulated one."""

import errno
import os
from dataclasses import replace

import pytest

from tests.integration.client_cases import (
    COLUMNS, ListeningTests, assert_failure, assert_success, calls_since, check_declared, check_descriptors,
    check_failure, check_gone, check_no_bus, check_silent, check_success, client_unit)
from tests.integration.client_driver import ClientDriver, Outcome, error
from tests.integration.hardware_cases import (
    ALL_REEL, BATTERY_INFO, BATTERY_REFUSAL, BATTERY_VALUES, CHOSEN, CONTROL, COOLING, DIRECT, DISTANCE, ICONS,
    LEFT, METHODS, NO_BUS_LINE, PATH, POWER, QUESTION_CASES, QUESTIONS, REEL, RIGHT, SERVICE, answering,
    question_lines)
from virtual_unit import REFUSE
from virtual_unit.values import Typed

PROPERTIES = "org.freedesktop.DBus.Properties"
MANAGER = "org.freedesktop.DBus.ObjectManager"


UNIT_FIXTURE = client_unit("hardware")


@pytest.fixture(name="local", autouse=True)
def local_fixture(unit):
    """The unit's own hardware is meant."""
    unit.hardware.set_properties(PATH, {"RemoteIP": "", "RemoteDBusAddress": ""}, emit=False)


@pytest.mark.parametrize("case", METHODS + [ICONS] + QUESTION_CASES, ids=str)
def test_direct_operation(unit, driver, case):
    """Member, types, arguments, out-arguments and lines."""
    check_declared(case)
    check_success(unit, driver, case)


@pytest.mark.parametrize("column", COLUMNS, ids=str)
@pytest.mark.parametrize("case", DIRECT, ids=str)
def test_fault_of_a_direct_operation(unit, driver, case, column):
    """A call that fails: line, result, untouched out-arguments, no second try."""
    check_failure(unit, driver, case, column)


@pytest.mark.parametrize("case", CHOSEN, ids=str)
def test_property(unit, driver, case):
    """After the questions which hardware is meant, the same."""
    check_declared(case)
    case.prepare(unit)
    mark = unit.calls.mark()
    outcome = driver.run(case.operation, *case.inputs)
    assert calls_since(unit, mark) == QUESTIONS + [case.call]
    assert_success(case, outcome)


def test_all_reel_properties(unit, driver):
    """The reel's own, with their types; the distance counter is another object."""
    ALL_REEL.prepare(unit)
    mark = unit.calls.mark()
    outcome = driver.run(ALL_REEL.operation)
    assert calls_since(unit, mark) == QUESTIONS + [ALL_REEL.call]
    assert_success(ALL_REEL, outcome)


@pytest.mark.parametrize("column", COLUMNS, ids=str)
@pytest.mark.parametrize("case", CHOSEN + [ALL_REEL], ids=str)
def test_fault_of_a_property(unit, driver, case, column):
    """An access that fails though the questions went well."""
    mark = unit.calls.mark()
    rule = unit.faults.on("hardware", case.call[2], column.fault)
    outcome = driver.run(case.operation, *case.inputs)
    rule.cancel()
    unit.hardware.revive()
    assert calls_since(unit, mark) == QUESTIONS + [case.call]
    assert_failure(case, column, SERVICE, outcome)


@pytest.mark.parametrize("column", COLUMNS[:3], ids=str)
@pytest.mark.parametrize("which", range(2))
def test_a_question_without_answer(unit, driver, column, which):
    """Has its line and counts as empty: the local bus is taken, both questions are asked all the same."""
    case = next(case for case in CHOSEN if case.operation == "hardware.GetReelConnected")
    case.prepare(unit)
    mark = unit.calls.mark()
    rule = unit.faults.on("hardware", QUESTIONS[which][2], column.fault)
    outcome = driver.run(case.operation)
    rule.cancel()
    assert calls_since(unit, mark) == QUESTIONS + [case.call]
    lines = [question_lines(column.text.format(service=SERVICE))[which]] + case.traffic
    assert_success(replace(case, traffic=lines), outcome)


def test_no_question_answered(unit, driver):
    """Refusals of both questions refuse nothing else: the access itself still goes through."""
    case = next(case for case in CHOSEN if case.operation == "hardware.GetCameraSonde")
    case.prepare(unit)
    rules = [unit.faults.on("hardware", call[2], REFUSE) for call in QUESTIONS]
    outcome = driver.run(case.operation)
    for rule in rules:
        rule.cancel()
    assert_success(replace(case, traffic=question_lines("refused by the simulation") + case.traffic), outcome)


def _unanswered(case):
    """The case when nothing at all is answered, the questions included."""
    return replace(case, traffic=[],
                   failed=lambda step, result, text: question_lines(text) + case.traffic
                   + case.failed(step, result, text))


EVERYTHING_FAILS = DIRECT + [_unanswered(case) for case in CHOSEN + [ALL_REEL]]


def test_the_daemon_is_gone(unit):
    """The bus itself knows no owner of the name."""
    check_gone(unit, EVERYTHING_FAILS)


def test_the_daemon_never_answers(unit):
    """Every call ends with the bus library's time-out."""
    check_silent(unit, EVERYTHING_FAILS)


def test_there_is_no_bus(unit):
    """No connection can be opened: methods return the failure, properties -1."""
    check_no_bus(unit, DIRECT)
    lines = question_lines(os.strerror(errno.ENOENT)) + [NO_BUS_LINE]
    with ClientDriver(unit, {"DBUS_SESSION_BUS_ADDRESS": f"unix:path={unit.directory}/no-bus"}) as driver:
        for case in CHOSEN + [ALL_REEL]:
            assert driver.run(case.operation, *case.inputs) == Outcome(-1, case.untouched, lines)


def test_nothing_stays_open(unit, driver):
    """Descriptors are as many as before after every operation has met every fault."""
    check_descriptors(unit, driver, DIRECT + CHOSEN + [ALL_REEL])


# What only some methods do --------------------------------------------------------------------------------------------

def test_battery_info(unit, driver):
    """Told and logged, field by field, the right battery first."""
    check_declared(BATTERY_INFO)
    check_success(unit, driver, replace(BATTERY_INFO, traffic=BATTERY_INFO.traffic + BATTERY_VALUES))


def test_battery_info_that_the_daemon_could_not_get(unit, driver):
    """A success that says so; nothing of it is logged."""
    given = (False, *RIGHT, *LEFT)
    check_success(unit, driver, replace(BATTERY_INFO, outs=[list(given)], prepare=answering("GetBatteryInfo", given),
                                        traffic=BATTERY_INFO.traffic + BATTERY_REFUSAL))


@pytest.mark.parametrize("member, lines", [
    ("BeepBuzzer", [error("sd_bus_call_method SetLedState success != (int) true")]), ("SetPowerState", [])])
def test_a_daemon_that_did_not_obey(unit, driver, member, lines):
    """Is a success; only the beep has a line for it."""
    case = next(case for case in METHODS if case.call[2] == member)
    check_success(unit, driver, replace(case, prepare=answering(member, False), traffic=lines))


@pytest.mark.parametrize("member, answer", [("RequestBatteryData", True), ("GetPowerSufficientForAction", 0),
                                            ("GetPowerSufficientForAction", -1)])
def test_answers_are_passed_on(unit, driver, member, answer):
    """Whatever they are."""
    case = next(case for case in METHODS if case.call[2] == member)
    check_success(unit, driver, replace(case, outs=[answer], prepare=answering(member, answer)))


def test_a_property_that_cannot_be_set(unit, driver):
    """The hardware daemon's own words are in the line."""
    case = next(case for case in CHOSEN if case.operation == "hardware.SetCameraSonde")
    node = unit.hardware.objects[case.call[0]].declared.properties["Sonde"]
    node.access = "read"
    try:
        outcome = driver.run(case.operation, True)
    finally:
        node.access = "readwrite"
    assert outcome == Outcome(-errno.EROFS, [], case.traffic
                              + case.failed(None, None, "Property 'Sonde' is not writable."))


# Signals --------------------------------------------------------------------------------------------------------------

#: Objects whose property changes are followed, and the client's signals.
FOLLOWED = [(REEL, "ReelPropertiesChanged"), (DISTANCE, "ReelDistancePropertiesChanged"),
            (POWER, "PowerPropertiesChanged"), (COOLING, "CoolingPropertiesChanged"), (CONTROL, "PropertiesChanged")]


LISTENS_TO = "hardware"


def expect_end(unit, listener, *lines):
    """Nothing is told before a signal that is sent now, and these lines were logged."""
    unit.hardware.emit(*CONTROL, "VideoStatusChanged", 4711)
    assert listener.signal() == ("VideoStatusChanged", [4711])
    assert listener.log.lines() == list(lines)


@pytest.mark.parametrize("status", [0, -1, 2147483647])
def test_video_status(unit, listener, status):
    """The status and no line."""
    unit.hardware.emit(*CONTROL, "VideoStatusChanged", status)
    assert listener.signal() == ("VideoStatusChanged", [status])
    expect_end(unit, listener)


def test_keys(unit, listener):
    """Code and value of each key event, in order."""
    unit.hardware.press_key(30, 1)
    unit.hardware.press_key(30, 0)
    assert [listener.signal(), listener.signal()] == [("KeyPressed", [30, 1]), ("KeyPressed", [30, 0])]
    expect_end(unit, listener)


@pytest.mark.parametrize("target, signal", FOLLOWED)
def test_property_changes(unit, listener, target, signal):
    """Reach the signal of their own object alone, with their types."""
    unit.hardware.emit_changes(*target, {"Zone": Typed("s", "x"), "Count": Typed("i", -5), "Odd": Typed("(ii)", (1, 2)),
                                         "On": Typed("b", True)})
    assert listener.signal() == (signal, [{"Count": ["i", -5], "On": ["b", True], "Zone": ["s", "x"]}])
    expect_end(unit, listener)


@pytest.mark.parametrize("target, signal", FOLLOWED)
@pytest.mark.parametrize("types, body", [("", ()), ("s", ("x",)), ("i", (1,)), ("sa{ss}as", ("x", {"On": "1"}, []))])
def test_property_changes_that_cannot_be_read(unit, listener, target, signal, types, body):
    """One line, and the next change is heard."""
    unit.hardware.emit(target[0], PROPERTIES, "PropertiesChanged", *body, signature=types)
    unit.hardware.emit_changes(*target, {"On": Typed("b", False)})
    assert listener.signal() == (signal, [{"On": ["b", False]}])
    expect_end(unit, listener, error("ParsePropertiesWithType failed (r = -6)"))


def test_changes_of_other_objects(unit, listener):
    """The camera's are not followed."""
    unit.hardware.set_property(f"{PATH}/camera", "Brightness", 51)
    expect_end(unit, listener)


def test_objects(unit, listener):
    """That come and go."""
    path = f"{PATH}/reel"
    unit.hardware.emit(PATH, MANAGER, "InterfacesAdded", path,
                       {REEL[1]: {"Connected": Typed("b", True)}, "empty.Interface": {}})
    unit.hardware.emit(PATH, MANAGER, "InterfacesRemoved", path, [REEL[1], "empty.Interface"])
    assert listener.signal() == ("InterfacesAdded", [path, {REEL[1]: {"Connected": True}, "empty.Interface": {}}])
    assert listener.signal() == ("InterfacesRemoved", [path, [REEL[1], "empty.Interface"]])
    expect_end(unit, listener)


@pytest.mark.parametrize("interface, member, types, body, line", [
    (CONTROL[1], "VideoStatusChanged", "s", ("1",), "sd_bus_message_read failed (r = -6)"),
    (CONTROL[1], "KeyPressEvent", "i", (1,), "sd_bus_message_read failed (r = -6)"),
    (CONTROL[1], "KeyPressEvent", "", (), "sd_bus_message_read failed (r = -6)"),
    (MANAGER, "InterfacesAdded", "o", ("/a",), "ParseInterfaceAdded failed (r = -6)"),
    (MANAGER, "InterfacesAdded", "sa{sa{sv}}", ("/a", {}), "ParseInterfaceAdded failed (r = -6)"),
    (MANAGER, "InterfacesRemoved", "oai", ("/a", [1]), "ParseInterfaceRemoved failed (r = -6)"),
])
def test_signals_that_cannot_be_read(unit, listener, interface, member, types, body, line):
    """One line and no callback."""
    unit.hardware.emit(PATH, interface, member, *body, signature=types)
    expect_end(unit, listener, error(line))


class TestListening(ListeningTests):
    """That does not begin."""

    NO_BUS = [error(f"Failed to connect to the dbus, {os.strerror(errno.ENOENT)}")]
