"""The command-line control, verb by verb: against the controller's stand-in, and what stands in the way."""

import os

import pytest

from tests.integration.controllerctl_cases import (
    CASES, DONE, REFUSED, TIME_OUT, UNREACHABLE, VERBS, run)
from virtual_unit import ABSENT, AT_ONCE, DIE, REFUSE, SILENT, WRONG_TYPE, VirtualUnit
from virtual_unit.controller import stand_in_controller

NO_OWNER = "The name com.tavilon.common.Controller1 was not provided by any .service files"
CUT_OFF = "Message recipient disconnected from message bus without replying"
UNREACHED = "controllerctl: the controller cannot be reached: "
UNANSWERED = "controllerctl: the controller did not answer: "


@pytest.fixture(scope="module", name="unit")
def unit_fixture():
    """A unit with nothing but the controller's stand-in."""
    with VirtualUnit(daemon=False, siblings=(), bus_timeout=AT_ONCE) as started, stand_in_controller(started):
        yield started


@pytest.fixture(autouse=True)
def no_faults(unit):
    """Each test starts with a stand-in that serves."""
    unit.faults.clear()
    unit.controller.revive()


def calls_since(unit, mark):
    """The calls that the controller got."""
    return [(call.member, call.arguments) for call in unit.calls.since(mark)]


@pytest.mark.parametrize("case", CASES, ids=str)
def test_a_verb(unit, case):
    """Asks what it should and tells the answer, in words and as JSON, and nothing else."""
    case.prepare(unit)
    mark = unit.calls.mark()
    told = run(unit, case.line)
    assert (told.status, told.out, told.errors) == (DONE, case.text + "\n" if case.text else "", "")
    assert calls_since(unit, mark) == case.calls
    case.prepare(unit)
    as_json = run(unit, "--json " + case.line)
    assert (as_json.status, as_json.errors) == (DONE, "")
    assert list(as_json.object.items()) == list({"ok": True, "exit": DONE, **case.fields}.items())


def check_failure(unit, line, status, message, errors, **variables):
    """The verb fails, in words and as JSON."""
    told = run(unit, line, **variables)
    assert (told.status, told.out, told.errors) == (status, "", errors + message + "\n")
    as_json = run(unit, "--json " + line, **variables)
    assert as_json.object == {"ok": False, "exit": status, "code": None, "message": message}
    assert (as_json.status, as_json.errors) == (status, told.errors)


@pytest.mark.parametrize("kind, status, message, errors", [
    (REFUSE, REFUSED, "refused by the simulation", "controllerctl: refused: "),
    (ABSENT, UNREACHABLE, NO_OWNER, UNREACHED)], ids=["refused", "absent"])
@pytest.mark.parametrize("case", VERBS, ids=str)
def test_a_verb_without_success(unit, case, kind, status, message, errors):
    """Tells why: the words of the unit's refusal or of the bus."""
    unit.faults.on("controller", kind=kind)
    check_failure(unit, case.line, status, message, errors)


def test_verbs_without_an_answer(unit):
    """End with their own status when the time has passed."""
    unit.faults.on("controller", kind=SILENT)
    for line in map(str, VERBS):
        check_failure(unit, line, TIME_OUT, os.strerror(110), UNANSWERED)


@pytest.mark.parametrize("case", [case for case in VERBS if case.coded], ids=str)
def test_a_verb_that_is_refused_with_a_code(unit, case):
    """Tells the code and its message."""
    member = case.calls[0][0]
    path = ("/x",) if "path" in case.fields else ()
    unit.controller.answer(member, *path, -7, "No current job - d\u00fcse %s")
    told, as_json = run(unit, case.line), run(unit, case.line + " --json")
    unit.controller.answer(member)
    message = "No current job - d\u00fcse %s"
    assert (told.status, told.out, told.errors) == (REFUSED, "", f"controllerctl: refused with -7: {message}\n")
    assert as_json.object == {"ok": False, "exit": REFUSED, "code": -7, "message": message}
    assert (as_json.status, as_json.errors) == (REFUSED, told.errors)


@pytest.mark.parametrize("line", ["snapshot", "mic", "time get", "timezone from-utc 0", "time get --seconds"])
def test_an_answer_of_another_type(unit, line):
    """Is no success, whatever it holds."""
    unit.faults.on("controller", kind=WRONG_TYPE)
    check_failure(unit, line, REFUSED, os.strerror(6),
                  "controllerctl: the controller gave another answer than its interface has: ")


def test_a_controller_that_ends_over_the_call(unit):
    """Has not answered."""
    unit.faults.on("controller", kind=DIE, times=1)
    told = run(unit, "record stop")
    assert (told.status, told.errors) == (TIME_OUT, f"{UNANSWERED}{CUT_OFF}\n")


def test_no_bus(unit):
    """Is no controller."""
    check_failure(unit, "sonde on", UNREACHABLE, os.strerror(2), UNREACHED,
                  DBUS_SESSION_BUS_ADDRESS=f"unix:path={unit.directory}/no-bus")
