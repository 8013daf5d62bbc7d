"""The client of the jobs manager daemon, operation by operation, against the simulated one."""

from dataclasses import replace

import pytest

from tests.integration.client_cases import OPEN, READ, Case, FailureTests, check_declared, check_success, client_unit
from tests.integration.client_driver import ClientDriver, debug, error
from virtual_unit.values import Typed, complete_types

SERVICE = "com.tavilon.common.JobsManagerDaemon1"
PATH = "/com/tavilon/common/JobsManagerDaemon1"
DEVICE = SERVICE + ".Device"
PROPERTIES = "org.freedesktop.DBus.Properties"
CLASS = "libjobsdaemon::JobsManager"

#: Members by the types that they take and those of their reply.
TABLE = [
    ("SetTargetDeviceID", "s", "i"),
    ("MoveJob CopyJob", "sss", "i"),
    ("CancelCMD", "s", "i"),
    ("DeleteJob", "ss", "i"),
    ("DeleteAllJobs", "s", "i"),
    ("DeleteJobList", "sas", "i"),
    ("MoveAllJobs CopyAllJobs", "ss", "i"),
    ("MoveJobList CopyJobList", "ssas", "i"),
    ("DeleteMediaItem", "sss", "i"),
    ("FindJobs ConvertJobs", "s", "i"),
    ("SearchJobs", "ssyqb", "i"),
    ("UpdateMediaFileSizes", "s", "i"),
    ("GetJobMediaCounts", "ss", "(iiiiii)"),
    ("CurrentJobMediaCounts", "", "(iiiiii)"),
    ("SetJobAddress SetJobCustomer SetJobName SetJobNotes SetJobPrivateNotes SetJobUserData UpdateJobContact", "sss",
     "i"),
    ("AddJobContact", "sss", "(iy)"),
    ("ClearJobAddress ClearJobCustomer RemoveJobContacts", "ss", "i"),
    ("RemoveJobContact", "ssy", "i"),
    ("GetJobLocked", "ss", "(ib)"),
    ("SetJobLocked", "ssb", "i"),
    ("SetMediaName SetMediaNotes SetMediaPrivateNotes SetMediaUserData", "ssss", "i"),
    ("GetMediaIsIncludedInReport", "sss", "(ii)"),
    ("SetMediaIsIncludedInReport", "sssi", "i"),
    ("GetCurrentJobID GetCurrentJobDeviceID", "", "s"),
    ("CloseJob", "", "(is)"),
    ("GetNewMediaPathComponents", "", "(iss)"),
    ("CreateJob OpenJob", "ss", "(iss)"),
    ("GetJob GetJobFolderPath GetJobContacts GetJobAddress GetJobCustomer GetJobName GetJobNotes GetJobPrivateNotes "
     "GetJobUserData", "ss", "(is)"),
    ("GetJobContact", "ssy", "(is)"),
    ("GetJobListStats GetSearchStats GetMediaID", "s", "(is)"),
    ("GetJobList", "syyqq", "(is)"),
    ("GetSearchResults", "sqq", "(is)"),
    ("GetMediaItem GetMediaName GetMediaNotes GetMediaUserData GetMediaPrivateNotes", "sss", "(is)"),
]
#: Adders: member, operation, name in the line of a failed call, number of texts.
ADDERS = [
    ("AddSnapshotMedia", "AddSnapshotMediaItem", "AddSnapshotMediaItemm", 2),
    ("AddVideoMedia", "AddVideoMediaItem", "AddVideoMediaItem", 5),
    ("AddAutologMedia", "AddAutologMediaItem", "AddAutologMediaItem", 5),
    ("AddPhotoTalkMedia", "AddPhotoTalkMediaItem", "AddPhotoTalkMediaItem", 5),
]
CODES = {0: "Succeeded", 7: "Failed: No current job", 16: "Failed: Cannot delete/move current job",
         17: "Failed: Cannot delete/move locked job", 29: "Failed: Invalid range", 30: "Unknown error code",
         -1: "Unknown error code"}

UNTOUCHED = {"i": 77, "y": 77, "b": True, "s": "untouched"}
#: What a value in the n-th place is.
VALUES = {"s": lambda place: f"text {place} \u00fc %s %n", "as": lambda place: [f"job {place}", "", "%d"],
          "y": lambda place: 200 + place, "q": lambda place: 60000 + place, "i": lambda place: -5 - place,
          "b": lambda place: False}


def values(types):
    """A value for each type, all different."""
    return tuple(VALUES[kind](place) for place, kind in enumerate(complete_types(types)))


def out_types(reply):
    """The types of the out-arguments."""
    return complete_types(reply.strip("()"))


def outs(reply, given):
    """Out-arguments that hold the given values; the five counts are one of them."""
    given = list(given)
    return [given[0], given[1:]] if reply == "(iiiiii)" else given


def answering(member, answer):
    """Has the simulation answer a member so, and do nothing else."""
    return lambda unit: setattr(unit.jobs, f"on_{member}", lambda _path, *_arguments: answer)


def failed(member):
    """The line of a call that did not get through."""

    def lines(step, result, text):
        if step == OPEN:
            return [error(f"{CLASS}::{member}: sd_bus_open_system(&bus) failed r = {result}")]
        if step == READ:
            return [error(f"{CLASS}::{member}: sd_bus_message_read failed r = {result}")]
        return [error(f"{CLASS}::{member}: sd_bus_call_method failed r = {result}, message = {text}")]

    return lines


def case_of(member, types, reply):
    """The case of a member."""
    inputs, kinds = values(types), out_types(reply)
    answer = values("".join(kinds))
    return Case(f"jobs.{member}", (PATH, SERVICE, member, inputs), types, inputs,
                outs=outs(reply, answer), untouched=outs(reply, [UNTOUCHED[kind] for kind in kinds]),
                traffic=[debug(f"{member} deviceID = {inputs[0]}" if member == "SetTargetDeviceID" else member)],
                failed=failed(member), prepare=answering(member, answer if len(answer) > 1 else answer[0]))


def adder_failed(operation, call_name):
    """The line of an adder that did not get through."""

    def lines(step, result, text):
        if step == OPEN:
            return [error(f"{CLASS}::{operation}: sd_bus_open_user failed r = {result}")]
        if step == READ:
            return [error(f"{CLASS}::{operation}: sd_bus_message_read failed r = {result}")]
        return [error(f"{CLASS}::{call_name}: sd_bus_call_method failed r = {result} reason: {text}")]

    return lines


def adder_case(member, operation, call_name, count):
    """The case of an adder: the fields of its records travel one by one."""
    texts = values("s" * count)
    angles, reel = (True, -12, False, 34), (True, 1234, -234)
    return Case(f"jobs.{operation}", (PATH, SERVICE, member, texts + angles + reel), "s" * count + "bibibii",
                texts + (angles, reel), outs=[0], untouched=[77], traffic=[debug(operation)],
                failed=adder_failed(operation, call_name), prepare=answering(member, 0))


def added(case, operation, code):
    """The same case when the jobs daemon has answered with the code."""
    line = f"{CLASS}::{operation}: sd_bus_message_read ok. rtnCode = {code}, Error - {CODES[code]}"
    return replace(case, outs=[code], traffic=case.traffic + [error(line)],
                   prepare=answering(case.call[2], code))


MEMBER_CASES = [case_of(member, types, reply) for members, types, reply in TABLE for member in members.split()]
ADDER_CASES = [adder_case(*row) for row in ADDERS]
CASES = MEMBER_CASES + ADDER_CASES


UNIT_FIXTURE = client_unit("storage", "jobs")


@pytest.mark.parametrize("case", MEMBER_CASES, ids=str)
def test_operation(unit, driver, case):
    """Member, types, arguments, out-arguments and lines."""
    check_declared(case)
    check_success(unit, driver, case)


@pytest.mark.parametrize("code", CODES)
@pytest.mark.parametrize("row, case", zip(ADDERS, ADDER_CASES), ids=str)
def test_adder(unit, driver, row, case, code):
    """The same, and the line that tells the code, whatever it is."""
    check_declared(case)
    check_success(unit, driver, added(case, row[1], code))


@pytest.mark.parametrize("code", [1, 29, 30, -1, -2147483648])
@pytest.mark.parametrize("case", [case for case in MEMBER_CASES if len(case.outs) == 1 and case.outs[0] == -5], ids=str)
def test_a_refusal_is_not_logged(unit, driver, case, code):
    """A code is for the caller to judge: the call itself went well."""
    check_success(unit, driver, replace(case, outs=[code], prepare=answering(case.call[2], code)))


@pytest.mark.parametrize("angles, reel", [((False, 0, False, 0), (False, 0, 0)),
                                          ((False, 2147483647, True, -2147483648), (False, -2147483648, 2147483647))])
def test_records_travel_as_they_are(unit, driver, angles, reel):
    """Field by field, also where a flag says that the number means nothing."""
    answering("AddSnapshotMedia", 0)(unit)
    mark = unit.calls.mark()
    driver.run("jobs.AddSnapshotMediaItem", "/media/a.jpeg", "snapshot", angles, reel)
    assert unit.calls.since(mark)[0].arguments == ("/media/a.jpeg", "snapshot") + angles + reel


class TestFailures(FailureTests):
    """Every operation that fails."""

    CASES = CASES


@pytest.mark.parametrize("member, reply, answer", [
    ("GetNewMediaPathComponents", "(is)", (0, "folder")),
    ("GetNewMediaPathComponents", "iss", (0, "folder", "stem")),
    ("GetMediaID", "(iss)", (0, "id", "more")),
    ("GetMediaID", "(us)", (0, "id")),
    ("GetJobMediaCounts", "(iiiii)", (0, 1, 2, 3, 4)),
    ("SetTargetDeviceID", "u", 0),
    ("SetTargetDeviceID", "", ()),
])
def test_a_reply_of_almost_the_right_type(unit, driver, member, reply, answer):
    """Nothing of it is taken over."""
    case = next(case for case in CASES if case.call[2] == member)
    method = unit.jobs.objects[PATH].declared.methods[SERVICE, member]
    right = method.result, method.result_count
    answering(member, answer)(unit)
    method.result, method.result_count = reply, len(complete_types(reply))
    try:
        outcome = driver.run(case.operation, *case.inputs)
    finally:
        method.result, method.result_count = right
    assert (outcome.result, outcome.outs, outcome.lines) == (-6, case.untouched,
                                                             case.traffic + case.failed(READ, -6, ""))


# Signals --------------------------------------------------------------------------------------------------------------

@pytest.fixture(name="listener")
def listener_fixture(unit):
    """A driver that listens to the jobs daemon."""
    with ClientDriver(unit) as started:
        assert started.listen("jobs") == 0
        yield started


def expect_end(unit, listener):
    """Nothing is told before a change that is sent now, whose arrival ends the test."""
    unit.jobs.emit_changes(PATH, SERVICE, {"TargetDeviceID": Typed("s", "end")})
    assert listener.signal() == ("TargetDeviceIDChanged", ["end"])


@pytest.mark.parametrize("path", [PATH, f"{PATH}/card"])
def test_device_properties(unit, listener, path):
    """The object and all changes of types that are known, and no line."""
    unit.jobs.emit(path, PROPERTIES, "PropertiesChanged", DEVICE,
                   {"Busy": Typed("b", True), "Jobs": Typed("u", 4), "Odd": Typed("(ii)", (1, 2))}, [],
                   signature="sa{sv}as")
    assert listener.signal() == ("DevicePropertiesChanged", [path, {"Busy": True, "Jobs": 4}])
    expect_end(unit, listener)
    assert not listener.log.lines()


def test_target_device(unit, listener):
    """Its new ID, after the change as such."""
    unit.jobs.set_property(PATH, "TargetDeviceID", "internal")
    assert listener.signal() == ("DevicePropertiesChanged", [PATH, {"TargetDeviceID": "internal"}])
    assert listener.signal() == ("TargetDeviceIDChanged", ["internal"])
    expect_end(unit, listener)


def test_target_device_of_another_type(unit, listener):
    """Is a change, and no device."""
    unit.jobs.emit_changes(PATH, DEVICE, {"TargetDeviceID": Typed("i", 4)})
    assert listener.signal() == ("DevicePropertiesChanged", [PATH, {"TargetDeviceID": 4}])
    expect_end(unit, listener)


def test_changes_of_another_interface(unit, listener):
    """Concern nobody."""
    unit.jobs.emit_changes(PATH, SERVICE, {"Busy": Typed("b", True)})
    expect_end(unit, listener)


@pytest.mark.parametrize("types, body", [("", ()), ("s", (DEVICE,)), ("i", (1,)), ("ss", (DEVICE, "x")),
                                         ("sa{ss}as", (DEVICE, {"TargetDeviceID": "x"}, []))])
def test_changes_that_cannot_be_read(unit, listener, types, body):
    """One line, and the next change is heard."""
    unit.jobs.emit(PATH, PROPERTIES, "PropertiesChanged", *body, signature=types)
    expect_end(unit, listener)
    assert listener.log.lines() == [error("ParseProperties failed (r = -6)")]


def test_listening_without_a_bus(unit):
    """The failure is the caller's to report."""
    with ClientDriver(unit, {"DBUS_SESSION_BUS_ADDRESS": f"unix:path={unit.directory}/no-bus"}) as driver:
        assert driver.listen("jobs") < 0
        assert not driver.log.lines()
