"""The client of the sync daemon, operation by operation, against the simulated one."""

import errno
from dataclasses import replace

import pytest

from tests.integration.client_cases import (
    CALL, OPEN, SYSTEM_BUS, Case, FailureTests, RefusedListeningTests, assert_success, check_declared, check_success,
    client_unit, untouched, without_bus)
from tests.integration.client_driver import ClientDriver, error, info
from virtual_unit.values import Typed

NAME = "com.tavilon.common.SyncDaemon1"
PATH = "/com/tavilon/common/SyncDaemon1"
PROPERTIES = "org.freedesktop.DBus.Properties"
CLASS = "SyncDaemonDbusHandler"

#: The blank before the colon is part of the texts.
CODES = {0: "Succeeded", 1: "Failed : Source not found", 2: "Failed : Destination not found",
         3: "Failed : Destination mounted read only", 4: "Failed : Destination full",
         5: "Failed : Sync already exists", 6: "Failed : Sync source conflict", 7: "Failed : Insufficient power",
         8: "Failed : Insufficient space", 9: "Failed : Internal error", 10: "Unknown error code",
         -1: "Unknown error code", -2147483648: "Unknown error code"}
STATUS = '[{"destination": "card"}] %s%n\u00fc'


def answering(member, answer):
    """Has the simulation answer a member so, and do nothing else."""
    return lambda unit: setattr(unit.sync, f"on_{member}", lambda _path, *_arguments: answer)


def holding(**values):
    """Has the simulation hold these properties."""
    return lambda unit: unit.sync.set_properties(PATH, values, emit=False)


def failed(member, call, read):
    """The line of a method that did not get through."""

    def lines(step, result, text):
        if step == OPEN:
            return [error(f"{CLASS}::{member}: sd_bus_open_user failed r = {result}")]
        if step == CALL:
            return [error(f"{CLASS}::{member}: {call} failed r = {result}, reason = {text}")]
        return [error(f"{CLASS}::{member}: {read} r = {result}")]

    return lines


def code_line(member, code):
    """The line that tells a code."""
    return info(f"{CLASS}::{member}: Received ReturnCode = {CODES[code]}")


def status_line(member, status):
    """The line that tells the status of the syncs."""
    return info(f"{CLASS}::{member}: Received syncStatus = {status}")


def add_syncs(items, code=0, status=STATUS):
    """The case of syncs that are ordered, its lines of success left out."""
    inputs = ("source %s", "d\u00fcse", items)
    return Case("sync.AddSyncs", (PATH, NAME, "AddSyncs", inputs), "ssas", inputs, outs=[code, status],
                untouched=untouched("i", "s"), failed=failed("AddSyncs", "sd_bus_call", "sd_bus_message_read failed"),
                prepare=answering("AddSyncs", (code, status)))


def cancel_syncs(items, code=0):
    """The same of syncs that are cancelled."""
    return Case("sync.CancelSyncs", (PATH, NAME, "CancelSyncs", (items,)), "as", (items,), outs=[code],
                untouched=untouched("i"),
                failed=failed("CancelSyncs", "sd_bus_call_method", "sd_bus_message_read failed"),
                prepare=answering("CancelSyncs", code))


def cancel_all(code=0):
    """The case of everything that is cancelled, which logs no success."""
    return Case("sync.CancelAllDevices", (PATH, NAME, "CancelAllDevices", ()), "", outs=[code],
                untouched=untouched("i"),
                failed=failed("CancelAllDevices", "sd_bus_call_method", "Error parsing reply"),
                prepare=answering("CancelAllDevices", code))


def active_failed(step, _result, _text):
    """The line names the system bus, although it is the user bus that is opened: that is how it is known."""
    step_text = "sd_bus_open_system(&bus)" if step == OPEN else "sd_bus_get_property"
    return [error(f"{CLASS}::HasActiveSyncs: {step_text} failed")]


def status_failed(step, result, text):
    """The same, with the result."""
    if step == OPEN:
        return [error(f"{CLASS}::GetSyncStatus: sd_bus_open_system(&bus) failed r = {result}")]
    return [error(f"{CLASS}::GetSyncStatus: sd_bus_get_property failed r = {result}, message = {text}")]


def has_active_syncs(active):
    """The case of the question whether anything is copied."""
    return Case("sync.HasActiveSyncs", (PATH, NAME, "Get HasActiveSyncs", ()), "b", outs=[active],
                untouched=untouched("b"), failed=active_failed, prepare=holding(HasActiveSyncs=active))


def sync_status(status):
    """The case of the status that is read, its line of success left out."""
    return Case("sync.GetSyncStatus", (PATH, NAME, "Get SyncStatus", ()), "s", outs=[status], untouched=untouched("s"),
                failed=status_failed, prepare=holding(SyncStatus=status))


def success_lines(case):
    """What is logged when the case succeeds."""
    member = case.operation.partition(".")[2]
    lines = {"AddSyncs": lambda code, status: [code_line(member, code), status_line(member, status)],
             "CancelSyncs": lambda code: [code_line(member, code)],
             "GetSyncStatus": lambda status: [status_line(member, status)]}
    return lines[member](*case.outs) if member in lines else []


ITEMS = (["one"], [], ["", "one", "one", "%s", "d\u00fcse"], [f"item {number}" for number in range(500)])
CASES = [*map(add_syncs, ITEMS), *map(cancel_syncs, ITEMS), cancel_all(), has_active_syncs(True),
         has_active_syncs(False), sync_status(""), sync_status(STATUS)]


def succeeding(case):
    """The case with its lines of success."""
    return replace(case, traffic=success_lines(case))


UNIT_FIXTURE = client_unit("sync")


@pytest.mark.parametrize("case", CASES, ids=str)
def test_operation(unit, driver, case):
    """Member, types, arguments, out-arguments and lines."""
    check_declared(case)
    check_success(unit, driver, succeeding(case))


@pytest.mark.parametrize("code", CODES)
@pytest.mark.parametrize("make", [lambda code: add_syncs(["one"], code, "busy"),
                                  lambda code: cancel_syncs(["one"], code), cancel_all], ids=["add", "cancel", "all"])
def test_a_code_is_not_a_failure(unit, driver, make, code):
    """It is handed on and told by its text, except by the member that tells nothing; the caller judges."""
    check_success(unit, driver, succeeding(make(code)))


class TestFailures(FailureTests):
    """Every operation that fails."""

    CASES = CASES


def test_the_system_bus_is_not_needed(unit):
    """Whatever the lines of a failure say."""
    with ClientDriver(unit, without_bus(unit, SYSTEM_BUS)) as driver:
        for case in CASES:
            case.prepare(unit)
            assert_success(succeeding(case), driver.run(case.operation, *case.inputs))


@pytest.mark.parametrize("operation, inputs, outs", [
    ("AddSyncs", ("\ufffe", "card", ["one"]), untouched("i", "s")),
    ("AddSyncs", ("internal", "\ufffe", ["one"]), untouched("i", "s")),
    ("AddSyncs", ("internal", "card", ["one", "\ufffe"]), untouched("i", "s")),
    ("CancelSyncs", (["\ufffe"],), untouched("i"))])
def test_an_argument_that_is_no_text_for_the_bus(unit, driver, operation, inputs, outs):
    """Ends the operation before anything is sent."""
    mark = unit.calls.mark()
    outcome = driver.run(f"sync.{operation}", *inputs)
    assert not unit.calls.since(mark)
    assert (outcome.result, outcome.outs) == (-errno.EINVAL, outs)
    assert outcome.lines == [error(f"{CLASS}::{operation}: write to message failed r = -22")]


@pytest.mark.parametrize("member, reply, answer", [
    ("AddSyncs", "is", (0, "x")), ("AddSyncs", "(us)", (0, "x")), ("AddSyncs", "(i)", (0,)),
    ("AddSyncs", "(iss)", (0, "x", "y")), ("AddSyncs", "(si)", ("x", 0)), ("CancelSyncs", "u", 0),
    ("CancelSyncs", "(is)", (0, "x")), ("CancelAllDevices", "u", 0), ("CancelAllDevices", "", ())])
def test_a_reply_of_almost_the_right_type(unit, driver, monkeypatch, member, reply, answer):
    """Nothing of it is taken over."""
    case = next(case for case in CASES if case.call[2] == member)
    method = unit.sync.objects[PATH].declared.methods[NAME, member]
    count = 2 if reply == "is" else 1 if reply else 0
    monkeypatch.setattr(method, "result", reply)
    monkeypatch.setattr(method, "result_count", count)
    monkeypatch.setattr(unit.sync, f"on_{member}", lambda _path, *_arguments: answer)
    outcome = driver.run(case.operation, *case.inputs)
    assert (outcome.result, outcome.outs) == (-errno.ENXIO, case.untouched)
    assert outcome.lines == case.failed("read", -errno.ENXIO, "")


# Signals --------------------------------------------------------------------------------------------------------------

LISTENING_FAILED = error(f"{CLASS}: Failed to init signal listeners")


LISTENS_TO = "sync"


def next_after(unit, listener):
    """The lines so far, with a change sent and seen to mark their end: nothing else was told before it."""
    unit.sync.emit_changes(PATH, NAME, {"SyncStatus": "end"})
    assert listener.signal() == ("PropertiesChanged", [NAME, {"SyncStatus": "end"}])
    return listener.log.lines()


def test_changes(unit, listener):
    """Are told with their interface, all that go out together at once, and without a line."""
    holding(HasActiveSyncs=False, SyncStatus="")(unit)
    unit.sync.set_properties(PATH, {"HasActiveSyncs": True, "SyncStatus": STATUS})
    assert listener.signal() == ("PropertiesChanged", [NAME, {"HasActiveSyncs": True, "SyncStatus": STATUS}])
    assert not next_after(unit, listener)


def test_an_empty_change_and_another_interface(unit, listener):
    """Are told as they are; the list of invalidated properties is ignored."""
    unit.sync.emit_changes(PATH, NAME + ".Other", {}, invalidated=["SyncStatus"])
    assert listener.signal() == ("PropertiesChanged", [NAME + ".Other", {}])
    assert not next_after(unit, listener)


def test_values_of_unknown_types(unit, listener):
    """Are left out, the others are told."""
    unit.sync.emit_changes(PATH, NAME, {"a": Typed("(is)", (1, "x")), "b": Typed("u", 4)})
    assert listener.signal() == ("PropertiesChanged", [NAME, {"b": 4}])
    assert not next_after(unit, listener)


def test_other_objects_and_other_signals(unit, listener):
    """Are not heard."""
    body, types = (NAME, {"SyncStatus": Typed("s", "x")}, []), "sa{sv}as"
    unit.sync.emit(PATH + "/card", PROPERTIES, "PropertiesChanged", *body, signature=types)
    unit.sync.emit(PATH, PROPERTIES, "Changed", *body, signature=types)
    unit.sync.emit(PATH, NAME, "PropertiesChanged", *body, signature=types)
    assert not next_after(unit, listener)


@pytest.mark.parametrize("types, body, line", [
    ("", (), "Failed to read interface"), ("i", (1,), "Failed to read interface"),
    ("a{sv}", ({},), "Failed to read interface"), ("s", (NAME,), "ParseProperties failed:-6"),
    ("ss", (NAME, "x"), "ParseProperties failed:-6"),
    ("sa{ss}as", (NAME, {"SyncStatus": "x"}, []), "ParseProperties failed:-6")])
def test_changes_that_cannot_be_read(unit, listener, types, body, line):
    """One line, nothing told, and the next change is heard."""
    unit.sync.emit(PATH, PROPERTIES, "PropertiesChanged", *body, signature=types)
    assert next_after(unit, listener) == [error(line)]


def test_a_daemon_that_comes_back(unit, listener):
    """Is followed again."""
    unit.sync.die()
    unit.sync.revive()
    assert not next_after(unit, listener)


class TestListening(RefusedListeningTests):
    """That does not begin."""

    NO_BUS = [LISTENING_FAILED]
    REFUSED = [LISTENING_FAILED]
