"""What the client of the storage daemon makes of its signals."""

import pytest

from tests.integration.client_cases import ListeningTests
from tests.integration.client_driver import ClientDriver, error, info
from virtual_unit import VirtualUnit
from virtual_unit.values import Typed

SERVICE = "com.tavilon.common.StorageDaemon1"
PATH = "/com/tavilon/common/StorageDaemon1"
CARD = PATH + "/card"
INTERNAL = PATH + "/internal"
DEVICE = SERVICE + ".Device"
MANAGER = "org.freedesktop.DBus.ObjectManager"
PROPERTIES = "org.freedesktop.DBus.Properties"

ADDED = info("[StorageDaemonDbusHandler] Interface Added\n")
REMOVED = info("[StorageDaemonDbusHandler] Interface Removed\n")
UNREADABLE = error("Failed to read interface")


@pytest.fixture(scope="module", name="unit")
def unit_fixture():
    """A unit with nothing but the storage daemon."""
    with VirtualUnit(daemon=False, siblings=("storage",)) as started:
        yield started


@pytest.fixture(name="fresh_unit")
def fresh_unit_fixture():
    """The same, for a test that plugs and pulls devices."""
    with VirtualUnit(daemon=False, siblings=("storage",)) as started:
        yield started


LISTENS_TO = "storage"


def next_after(unit, listener):
    """The lines so far, with a signal sent and seen to mark their end."""
    unit.storage.emit_changes(CARD, DEVICE, {"IsMounted": True})
    assert listener.signal() == ("PropertiesChanged", [CARD, {"IsMounted": True}])
    return listener.log.lines()


def test_a_device_comes_and_goes(fresh_unit):
    """Both are told, with the interfaces, and the manager's own changes are not."""
    unit = fresh_unit
    with ClientDriver(unit) as listener:
        assert listener.listen("storage") == 0
        unit.storage.add_device("stick", unit.directory + "/stick")
        name, (path, interfaces) = listener.signal()
        assert (name, path) == ("InterfacesAdded", PATH + "/stick")
        assert interfaces[DEVICE]["MountPoint"] == unit.directory + "/stick"
        assert len(interfaces[DEVICE]) == 12
        unit.storage.remove_device("stick")
        name, (path, names) = listener.signal()
        assert (name, path, sorted(names)) == ("InterfacesRemoved", PATH + "/stick", sorted(interfaces))
        assert next_after(unit, listener) == [ADDED, REMOVED]


@pytest.mark.parametrize("changes, told", [
    ({"StorageIsBelowMinimumLevel": True, "ReadOnly": False, "MountPoint": ""},) * 2, ({}, {}),
    ({"Odd": Typed("(ib)", (1, True)), "Id": "x"}, {"Id": "x"}),
    ({"List": Typed("as", ["a", ""])}, {"List": ["a", ""]}),
    ({"Map": Typed("a{sv}", {}), "Bytes": Typed("ay", [1])}, {})])
def test_changes_of_a_device(unit, listener, changes, told):
    """Every change of a device is told with the device's path."""
    unit.storage.emit_changes(INTERNAL, DEVICE, changes)
    assert listener.signal() == ("PropertiesChanged", [INTERNAL, told])
    assert not next_after(unit, listener)


def test_ten_thousand_changes(unit, listener):
    """A map of any size."""
    changes = {f"Property{number}": number for number in range(10000)}
    unit.storage.emit_changes(CARD, DEVICE, {name: Typed("i", value) for name, value in changes.items()})
    assert listener.signal() == ("PropertiesChanged", [CARD, changes])


@pytest.mark.parametrize("interface", [SERVICE, "com.tavilon.common.Other", ""])
def test_changes_of_something_else(unit, listener, interface):
    """Changes of other interfaces are not told."""
    unit.storage.emit_changes(PATH, interface, {"MountPoint": Typed("s", "/")})
    assert not next_after(unit, listener)


@pytest.mark.parametrize("types, body", [("", ()), ("i", (1,)), ("s", (DEVICE,)), ("ss", (DEVICE, "x")),
                                         ("sa{ss}as", (DEVICE, {"IsMounted": "x"}, []))])
def test_changes_that_cannot_be_read(unit, listener, types, body):
    """One line, nothing told, and the next change is heard."""
    unit.storage.emit(CARD, PROPERTIES, "PropertiesChanged", *body, signature=types)
    assert next_after(unit, listener) == [error("ParseProperties failed:-6")]


@pytest.mark.parametrize("types, body, line", [
    ("", (), UNREADABLE), ("s", ("x",), UNREADABLE), ("o", (CARD,), UNREADABLE), ("oas", (CARD, [DEVICE]), UNREADABLE),
    ("oa{sa{ss}}", (CARD, {DEVICE: {"a": "b"}}), UNREADABLE), ("oa{sv}", (CARD, {"a": Typed("i", 1)}), UNREADABLE)])
def test_additions_that_cannot_be_read(unit, listener, types, body, line):
    """The information line, one failure line, nothing told."""
    unit.storage.emit(PATH, MANAGER, "InterfacesAdded", *body, signature=types)
    assert next_after(unit, listener) == [ADDED, line]


@pytest.mark.parametrize("types, body", [("", ()), ("as", ([DEVICE],)), ("o", (CARD,)), ("oa{sv}", (CARD, {}))])
def test_removals_that_cannot_be_read(unit, listener, types, body):
    """The information line, one failure line, nothing told."""
    unit.storage.emit(PATH, MANAGER, "InterfacesRemoved", *body, signature=types)
    assert next_after(unit, listener) == [REMOVED, UNREADABLE]


def test_an_addition_with_several_interfaces(unit, listener):
    """Each with its own properties, unknown types left out."""
    body = {"a.b": {"x": Typed("u", 1), "odd": Typed("(i)", (1,))}, "c.d": {}}
    unit.storage.emit(PATH, MANAGER, "InterfacesAdded", CARD, body)
    assert listener.signal() == ("InterfacesAdded", [CARD, {"a.b": {"x": 1}, "c.d": {}}])


def test_object_manager_signals_of_another_object(unit, listener):
    """Only the manager object is followed."""
    unit.storage.emit(CARD, MANAGER, "InterfacesRemoved", CARD, [DEVICE])
    assert not next_after(unit, listener)


class TestListening(ListeningTests):
    """That does not begin."""
