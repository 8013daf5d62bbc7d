"""Every operation of every client, as the driver lists them, against the interface files of the siblings.

The other files say what each operation does. This one makes sure that none is left out and that neither side drifts:
whatever a client calls is declared, with the types and the access that the client uses, and what is declared is used.
"""

import errno
import importlib

import pytest

from tests.integration.client_cases import Case, declared
from virtual_unit import VirtualUnit, declaration
from virtual_unit.values import complete_types

SIBLINGS = ("video", "storage", "settings", "jobs", "hardware", "sync", "timedate")
#: Asked, never followed.
WITHOUT_LISTENER = {"timedate"}
#: What these declare is not for this system alone: settings are keys of the settings daemon's own, and timedated serves
#: everybody.
NOT_ONLY_OURS = {"settings", "timedate"}
CARD = "/com/tavilon/common/StorageDaemon1/card"

#: Inputs that must name something that is there, or that decide what is asked.
INPUTS = {
    "video.GetCaptures": [[0], [1], [2]],
    "storage.GetPathFromFilename": [["/nowhere"]],
    "settings.GetSetting(string)": [["time", "zone"]],
    "settings.GetSetting(bool)": [["time", "dst"]],
    "settings.GetSetting(int32)": [["audio", "speakerVolume"]],
    "settings.GetSetting(uint32)": [["keyBeep", "beeps"]],
    "settings.GetSectionSettings": [["time"]],
    "settings.ResetSection": [["time"]],
    "settings.ResetSetting": [["time", "zone"]],
    "timedate.SetTime": [[1]],
    "timedate.SetTimezone": [["CCU/Berlin"]],
}
#: Results of the errors with which a sibling answers a call that it does not declare so.
UNDECLARED = {-errno.EINVAL: "other types or no such key", -errno.EBADR: "unknown", -errno.EROFS: "read-only"}
#: What is declared for its changes alone: nobody reads it.
ONLY_FOLLOWED = {("com.tavilon.common.JobsManagerDaemon1.Device", "Get TargetDeviceID")}
ZERO = {"b": False, "d": 0.0, "s": "", "o": "/", "g": ""}


def value_of(kind):
    """A value of a D-Bus type, as JSON."""
    if kind.startswith("a"):
        return []
    if kind.startswith("("):
        return [value_of(part) for part in complete_types(kind[1:-1])]
    return ZERO.get(kind, 0)


def inputs_of(operation, types):
    """Lists of inputs for an operation."""
    if operation in INPUTS:
        return INPUTS[operation]
    values = [value_of(kind) for kind in types]
    if operation.startswith("storage.") and values:
        values[0] = CARD
    return [values]


@pytest.fixture(scope="module", name="unit")
def unit_fixture():
    """A unit with all siblings."""
    with VirtualUnit(daemon=False) as started:
        yield started


@pytest.fixture(scope="module", name="used")
def used_fixture(unit, driver):
    """The result and the calls of every operation, as (name, result, calls)."""
    used = []
    for operation, types in driver.operations().items():
        for inputs in inputs_of(operation, types):
            mark = unit.calls.mark()
            result = driver.run(operation, *inputs).result
            used.append((operation, result, unit.calls.since(mark)))
    return used


def test_every_client_is_there(driver):
    """With its operations and, where it has one, its listener."""
    assert {name.partition(".")[0] for name in driver.operations()} == set(SIBLINGS)
    assert set(driver.listeners()) == set(SIBLINGS) - WITHOUT_LISTENER


def test_every_call_is_declared(used):
    """Object, interface, member and access."""
    for operation, _, calls in used:
        assert calls, f"{operation} asks nobody"
        for call in calls:
            if call.member == "GetAll":
                assert call.interface in declaration.load(call.sibling)[call.path].interfaces
                continue
            _, access = declared(call.sibling, call.path, call.interface, call.member)
            assert not call.member.startswith("Set ") or access in (None, "readwrite"), f"{operation}: {call}"


def test_every_call_has_the_declared_types(used):
    """The siblings refuse what they do not declare, and have refused nothing."""
    assert not [(operation, UNDECLARED[result]) for operation, result, _ in used if result in UNDECLARED]


def members(sibling):
    """What a sibling declares, as (interface, member); properties as "Get X", and "Set X" where they can be set."""
    for node in declaration.load(sibling).values():
        for interface, member in node.methods:
            yield interface, member
        for name, item in node.properties.items():
            yield item.interface, f"Get {name}"
            if item.access == "readwrite":
                yield item.interface, f"Set {name}"


@pytest.mark.parametrize("sibling", [name for name in SIBLINGS if name not in NOT_ONLY_OURS])
def test_every_declared_member_is_used(used, sibling):
    """The interface files declare nothing that no client asks for."""
    asked = {(call.interface, call.member) for _, _, calls in used for call in calls}
    own = {member for member in members(sibling) if member[0] not in declaration.bare_node().interfaces}
    assert own - asked - ONLY_FOLLOWED == set()


@pytest.mark.parametrize("sibling", SIBLINGS)
def test_every_operation_has_a_case(driver, sibling):
    """Each is held against its member, arguments, results and lines, and against every fault."""
    module = importlib.import_module(f"test_{sibling}_client")
    tables = [value for value in vars(module).values() if isinstance(value, list)]
    tested = {case.operation for table in tables for case in table if isinstance(case, Case)}
    assert {name for name in driver.operations() if name.startswith(sibling + ".")} == tested
