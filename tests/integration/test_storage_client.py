"""The client of the storage daemon, operation by operation, against the simulated one."""

import errno

import pytest

from tests.integration.client_cases import (
    OPEN, Case, FailureTests, calls_since, check_declared, check_success, client_unit, untouched)
from tests.integration.client_driver import ClientDriver, error
from virtual_unit import ABSENT, AT_ONCE, DIE, REFUSE, SILENT, WRONG_TYPE, VirtualUnit

SERVICE = "com.tavilon.common.StorageDaemon1"
PATH = "/com/tavilon/common/StorageDaemon1"
CARD = PATH + "/card"
INTERNAL = PATH + "/internal"
DEVICE = SERVICE + ".Device"
MANAGER = "org.freedesktop.DBus.ObjectManager"
CLASS = "Storaged::StorageDaemonDbusHandler"

#: C++ spelling of what a getter fills.
SPELLING = {"b": "bool&", "s": "std::string&", "i": "int32_t&", "t": "uint64_t&",
            "as": "std::vector<std::__cxx11::basic_string<char> >&"}
#: Operation after "Get", property, type, constant in the failure line, values.
DEVICE_PROPERTIES = [
    ("ReadOnly", "ReadOnly", "b", "PROP_READ_ONLY"),
    ("Bus", "Bus", "s", "PROP_BUS"),
    ("Socket", "Socket", "i", "PROP_SOCKET"),
    ("MountPoint", "MountPoint", "s", "PROP_MOUNTPOINT"),
    ("DevicePath", "DevicePath", "s", "PROP_DEVICE_PATH"),
    ("StorageSpaceBelowWarningThreshold", "StorageIsBelowWarningLevel", "b", "PROP_STORAGE_IS_BELOW_WARNING_LEVEL"),
    ("StorageSpaceBelowMinimumThreshold", "StorageIsBelowMinimumLevel", "b", "PROP_STORAGE_IS_BELOW_MINIMUM_LEVEL"),
    ("Mounted", "IsMounted", "b", "PROP_IS_MOUNTED"),
    ("KnownPrimary", "KnownPrimary", "b", "PROP_KNOWN_PRIMARY"),
    ("FreeSpace", "FreeSpace", "t", "PROP_READ_ONLY"),
    ("Id", "Id", "s", "PROP_READ_ONLY"),
    ("IsSafeToRemove", "IsSafeToRemove", "b", "PROP_IS_SAFE_TO_REMOVE"),
]
VALUES = {"b": (False, True), "i": (-5,), "t": (18446744073709551615,), "s": ("",  "d\u00fcse %s")}


def property_failed(operation, parameters, constant):
    """The line of a property operation that failed."""
    kind = operation[:3]

    def lines(_step, _result, text):
        return [error(f"static int32_t {CLASS}::{operation}({parameters}): sdbus_utils::{kind}Property {constant} "
                      f"failed {text}")]

    return lines


def device_getter(operation, name, kind, constant, value):
    """The case of a device's property that is read."""
    return Case(f"storage.Get{operation}", (CARD, DEVICE, f"Get {name}", ()), kind, (CARD,), outs=[value],
                untouched=untouched(kind),
                failed=property_failed(f"Get{operation}", f"const std::string&, {SPELLING[kind]}", constant),
                prepare=lambda unit: unit.storage.set_properties(CARD, {name: value}, emit=False))


def manager_getter(name, kind, constant, value):
    """The case of a property of the manager."""
    return Case(f"storage.Get{name}", (PATH, SERVICE, f"Get {name}", ()), kind, outs=[value], untouched=untouched(kind),
                failed=property_failed(f"Get{name}", SPELLING[kind], constant),
                prepare=lambda unit: unit.storage.set_properties(PATH, {name: value}, emit=False))


def known_primary(known):
    """The case of the only property that is written."""
    return Case("storage.SetKnownPrimary", (CARD, DEVICE, "Set KnownPrimary", (known,)), "b", (CARD, known), blind=True,
                failed=property_failed("SetKnownPrimary", "const std::string&, bool", "PROP_KNOWN_PRIMARY"))


def order(member, types, *arguments):
    """The case of an order to a device, which answers nothing."""

    def failed(step, result, text):
        if step == OPEN:
            return [error(f"{member}: sd_bus_open_user failed r = {result}")]
        return [error(f"{member}: sd_bus_call_method failed r = {result}, reason = {text}")]

    return Case(f"storage.{member}", (CARD, DEVICE, member, arguments), types, (CARD, *arguments), blind=True,
                failed=failed)


CASES = [device_getter(*row, value) for row in DEVICE_PROPERTIES for value in VALUES[row[2]]]
CASES += [manager_getter("PrimaryDevice", "s", "PROP_PRIMARY_DEVICE", INTERNAL),
          manager_getter("AvailableDevices", "as", "PROP_AVAILABLE_DEVICES", []),
          manager_getter("AvailableDevices", "as", "PROP_AVAILABLE_DEVICES", [CARD, "", INTERNAL]),
          known_primary(True), known_primary(False), order("SetWriteActive", "yb", 0, True),
          order("SetWriteActive", "yb", 255, False), order("StartFormat", "")]

#: Operations that list the devices first.
LISTED = (PATH, MANAGER, "GetManagedObjects", ())
AVAILABLE = (PATH, SERVICE, "Get AvailableDevices", ())
LIST_CASES = [Case("storage.GetStorageObjectPaths", LISTED, "", outs=[[CARD, INTERNAL]]),
              Case("storage.GetPathFromFilename", LISTED, "", ("/m/card/a/b",), outs=[CARD],
                   prepare=lambda unit: mount(unit, card="/m/card", internal="/m"))]


def mount(unit, **places):
    """Mounts devices at these places, without telling anyone."""
    for device, place in places.items():
        unit.storage.set_properties(f"{PATH}/{device}", {"MountPoint": place}, emit=False)


UNIT_FIXTURE = client_unit("storage")


@pytest.fixture(name="fresh_unit")
def fresh_unit_fixture():
    """The same, for a test that plugs and pulls devices."""
    with VirtualUnit(daemon=False, siblings=("storage",), bus_timeout=AT_ONCE) as started:
        yield started


@pytest.mark.parametrize("case", CASES + LIST_CASES, ids=str)
def test_operation(unit, driver, case):
    """Member, types, arguments, result, out-arguments and lines."""
    check_declared(case)
    check_success(unit, driver, case)


class TestFailures(FailureTests):
    """Every operation that fails."""

    CASES = CASES
    STAYS_OPEN = CASES + LIST_CASES


@pytest.mark.parametrize("device", ["", "card", "//", "/a b", PATH + "/card/"])
@pytest.mark.parametrize("case", [case for case in CASES if case.inputs], ids=str)
def test_a_device_that_is_no_object_path(unit, driver, case, device):
    """Fails before anything is sent, as a failed call."""
    mark = unit.calls.mark()
    outcome = driver.run(case.operation, device, *case.inputs[1:])
    assert not unit.calls.since(mark)
    assert outcome.result == -errno.EINVAL and outcome.outs == case.untouched
    assert outcome.lines == case.failed("call", -errno.EINVAL, "Invalid argument")


@pytest.mark.parametrize("case", [case for case in CASES if case.inputs], ids=str)
def test_a_device_that_is_not_there(driver, case):
    """The storage daemon's own words are logged."""
    pulled = PATH + "/pulled"
    outcome = driver.run(case.operation, pulled, *case.inputs[1:])
    assert outcome.result == -errno.EBADR and outcome.outs == case.untouched
    assert outcome.lines == case.failed("call", -errno.EBADR, f"Unknown object '{pulled}'.")


# Listing the devices --------------------------------------------------------------------------------------------------

FAILED_LIST = [(ABSENT, -errno.EHOSTUNREACH), (REFUSE, -errno.EACCES), (WRONG_TYPE, -errno.ENXIO)]


def told_of_files(result):
    """What a question for a file's device gives when one of its calls fails: -ENOENT is the answer that there is none."""
    return -errno.EIO if result == -errno.ENOENT else result


@pytest.mark.parametrize("case", LIST_CASES, ids=str)
@pytest.mark.parametrize("fault, result", FAILED_LIST + [(DIE, -errno.EHOSTUNREACH)])
def test_the_devices_cannot_be_listed(unit, driver, case, fault, result):
    """Both ways are tried; one line tells the result of the last."""
    mark = unit.calls.mark()
    rule = unit.faults.on("storage", kind=fault)
    outcome = driver.run(case.operation, *case.inputs)
    rule.cancel()
    unit.storage.revive()
    assert calls_since(unit, mark) == [LISTED, AVAILABLE][:1 if fault is DIE else 2]
    assert (outcome.result, outcome.outs) == (result, untouched(*["as" if not case.inputs else "s"]))
    assert outcome.lines == [error(f"Storage.GetStorageObjectPaths() failed {result}")]


def test_no_bus_and_no_answer_while_listing(unit):
    """The same line."""
    for environment, fault, result in (
            ({"DBUS_SESSION_BUS_ADDRESS": f"unix:path={unit.directory}/no-bus"}, None, -errno.ENOENT),
            (None, SILENT, -errno.ETIMEDOUT)):
        rule = unit.faults.on("storage", kind=fault) if fault else None
        with ClientDriver(unit, environment) as driver:
            for case in LIST_CASES:
                outcome = driver.run(case.operation, *case.inputs)
                assert outcome.result == (told_of_files(result) if case.inputs else result)
                assert outcome.lines == [error(f"Storage.GetStorageObjectPaths() failed {result}")]
        if rule:
            rule.cancel()


@pytest.mark.parametrize("fault, _result", FAILED_LIST)
def test_available_devices_stand_in(unit, driver, fault, _result):
    """A manager that cannot list its objects still names the devices; mount points are then asked for one by one."""
    mount(unit, card="/m/card", internal="/m")
    unit.storage.set_properties(PATH, {"AvailableDevices": [INTERNAL, CARD]}, emit=False)
    rule = unit.faults.on("storage", "GetManagedObjects", kind=fault)
    mark = unit.calls.mark()
    listed = driver.run("storage.GetStorageObjectPaths")
    assert calls_since(unit, mark) == [LISTED, AVAILABLE]
    assert listed.result >= 0 and listed.outs == [[INTERNAL, CARD]] and not listed.lines
    mark = unit.calls.mark()
    found = driver.run("storage.GetPathFromFilename", "/m/card/x")
    rule.cancel()
    assert calls_since(unit, mark) == [LISTED, AVAILABLE, (INTERNAL, DEVICE, "Get MountPoint", ()),
                                       (CARD, DEVICE, "Get MountPoint", ())]
    assert found.result >= 0 and found.outs == [CARD] and not found.lines


def test_a_mount_point_that_cannot_be_asked_for(unit, driver):
    """That device is passed over with its own line; the others are looked at."""
    mount(unit, card="/m/card", internal="/m")
    unit.storage.set_properties(PATH, {"AvailableDevices": [CARD, INTERNAL]}, emit=False)
    rules = [unit.faults.on("storage", "GetManagedObjects"), unit.faults.on("storage", "Get MountPoint", path=CARD)]
    found = driver.run("storage.GetPathFromFilename", "/m/card/x")
    for rule in rules:
        rule.cancel()
    assert found.result >= 0 and found.outs == [INTERNAL]
    assert found.lines == [error(f"static int32_t {CLASS}::GetMountPoint(const std::string&, std::string&): "
                                 "sdbus_utils::GetProperty PROP_MOUNTPOINT failed refused by the simulation")]


@pytest.mark.parametrize("fault, result", FAILED_LIST + [(DIE, -errno.ETIMEDOUT)])
def test_a_file_that_only_the_device_without_an_answer_could_hold(unit, driver, fault, result):
    """The call's failure, since nobody has said that no device holds it."""
    mount(unit, card="/m/card", internal="/n")
    unit.storage.set_properties(PATH, {"AvailableDevices": [INTERNAL, CARD]}, emit=False)
    rules = [unit.faults.on("storage", "GetManagedObjects"),
             unit.faults.on("storage", "Get MountPoint", kind=fault, path=CARD)]
    for name in ("/m/card/x", "/elsewhere"):
        lost = driver.run("storage.GetPathFromFilename", name)
        unit.storage.revive()
        assert (lost.result, lost.outs) == (result, ["untouched"])
        assert len(lost.lines) == 1 and "PROP_MOUNTPOINT" in lost.lines[0].text
    assert driver.run("storage.GetPathFromFilename", "/n/x").outs == [INTERNAL]
    unit.storage.revive()
    for rule in rules:
        rule.cancel()
    assert driver.run("storage.GetPathFromFilename", "/elsewhere").result == -errno.ENOENT


def test_only_devices_are_listed(fresh_unit):
    """The manager itself and objects of other kinds are no devices, and there may be none."""
    unit = fresh_unit
    with ClientDriver(unit) as driver:
        unit.storage.remove_device("internal")
        assert driver.run("storage.GetStorageObjectPaths").outs == [[CARD]]
        unit.storage.add_device("second", unit.directory + "/second")
        assert driver.run("storage.GetStorageObjectPaths").outs == [[CARD, PATH + "/second"]]
        assert driver.run("storage.GetPathFromFilename", unit.directory + "/second/x").outs == [PATH + "/second"]
        unit.storage.remove_device("second")
        unit.storage.remove_device("card")
        none = driver.run("storage.GetStorageObjectPaths")
        assert none.result >= 0 and none.outs == [[]] and not none.lines
        lost = driver.run("storage.GetPathFromFilename", "/anything")
        assert (lost.result, lost.outs, lost.lines) == (-errno.ENOENT, ["untouched"], [])


#: Mount points of the card and the internal storage, a file, and the device that holds it.
PLACES = [
    ("/m/card", "/m", "/m/card/job/a.mp4", CARD),
    ("/m/card", "/m", "/m/other/a.mp4", INTERNAL),
    ("/m/card", "/m/card/deep", "/m/card/deep/a", INTERNAL),
    ("/m/card", "/m/card/deep", "/m/card/deeper/a", CARD),
    ("/m/card", "/m", "/m/card2/a.mp4", INTERNAL),
    ("/m/card", "/n", "/m/car/a.mp4", None),
    ("/m/card", "/n", "/m/card2", None),
    ("/m/card", "/n", "/m/card", CARD),
    ("/m/card", "/n", "/m/card/", CARD),
    ("/m/card", "/n", "/m", None),
    ("/m/card/", "/n", "/m/card/a", CARD),
    ("/m/card///", "/m/", "/m/card/a", CARD),
    ("/m//card", "/n", "/m/card/a", CARD),
    ("/m/card", "/n", "//m//card//a", CARD),
    ("/", "", "/anything/at/all", CARD),
    ("//", "", "/anything", CARD),
    ("/", "/m", "/m/a", INTERNAL),
    ("/", "/m", "/", CARD),
    ("", "", "/m/a", None),
    ("", "/m", "/m/a", INTERNAL),
    ("/m/a b%s", "/m", "/m/a b%s/\u00fc", CARD),
    ("/M", "/n", "/m/a", None),
    ("m", "/n", "/m/a", None),
    ("/m", "/n", "m/a", None),
    ("/m", "/n", "", None),
    ("/" + "x" * 2000 + "/" + "y" * 2000, "/" + "x" * 2000, "/" + "x" * 2000 + "/" + "y" * 2000 + "/z", CARD),
]


@pytest.mark.parametrize("card, internal, filename, holder", PLACES, ids=lambda value: value and value[:40])
@pytest.mark.parametrize("listed", [True, False])
def test_the_device_of_a_file(unit, driver, card, internal, filename, holder, listed):
    """The longest mount point that is a prefix of the name by whole components, however the devices were listed."""
    mount(unit, card=card, internal=internal)
    unit.storage.set_properties(PATH, {"AvailableDevices": [INTERNAL, CARD]}, emit=False)
    rule = None if listed else unit.faults.on("storage", "GetManagedObjects")
    outcome = driver.run("storage.GetPathFromFilename", filename)
    if rule:
        rule.cancel()
    assert (outcome.result >= 0, outcome.outs, outcome.lines) == (holder is not None, [holder or "untouched"], [])
    assert outcome.result >= 0 or outcome.result == -errno.ENOENT
