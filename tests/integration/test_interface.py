"""The interface as clients see it: the members of its file, and what the bus library refuses on its own."""

import pytest

from interfaces.introspection import controller_members, members
from virtual_unit import DbusFailure
from virtual_unit.client import INTERFACE

METHODS = [member for member in controller_members() if member.kind == "method"]
PROPERTIES = [member for member in controller_members() if member.kind == "property"]


def test_the_daemon_has_the_members_of_the_interface_file(unit):
    """No others, in its order, with its types, names, accesses and flags."""
    # Introspection lists the members in the order of their registration, whatever their kind.
    assert members(unit.client.introspect(), INTERFACE) == controller_members() != []


def test_introspection_can_be_had_often(make_unit, monkeypatch):
    """Under a sanitizer, too, which takes freed memory for new again sooner here than it does by itself."""
    monkeypatch.setenv("ASAN_OPTIONS", "quarantine_size_mb=1")
    unit = make_unit()
    assert len({unit.client.introspect() for _ in range(100)}) == 1


def test_every_argument_has_a_name_in_lower_camel_case():
    """None is left to clients to guess."""
    for member in controller_members():
        for _, name in member.inputs + member.outputs:
            assert name and name[0].islower() and name.isalnum(), (member.name, name)


def refused(function, *call):
    """The error that a call is refused with."""
    with pytest.raises(DbusFailure) as caught:
        function(*call)
    return caught.value


def test_properties_that_are_named_like_methods_are_no_methods(unit):
    """A call of one is of an unknown method."""
    for name in ("GetDst", "GetTimezone", "GetTimezoneList", "GetTimeSourceAvailable"):
        assert refused(unit.client.call, name).name == "org.freedesktop.DBus.Error.UnknownMethod"


def test_what_the_bus_library_refuses_changes_and_logs_nothing(unit):
    """Types, names and accesses that are not the interface's, before any handler."""
    unit.settle()
    mark, calls = unit.log.mark(), len(unit.calls)
    error = "org.freedesktop.DBus.Error."
    client = unit.client
    assert refused(client.call, "VideoRecordStart", "uu", 1, 1).name == error + "InvalidArgs"
    assert refused(client.call, "VideoRecordStart", "uus", 1, 1, "high").name == error + "InvalidArgs"
    assert refused(client.call, "VideoRecordStop", "b", True).name == error + "InvalidArgs"
    assert refused(client.call, "VideoRecordRewind").name == error + "UnknownMethod"
    assert refused(client.set, "AudioFiles", "as", ["x"]).name == error + "PropertyReadOnly"
    assert refused(client.set, "SpkrVolume", "s", "loud").name == error + "InvalidArgs"
    assert refused(client.get, "Volume").name == error + "UnknownProperty"
    assert refused(client.call, "CaptureError", "is", 1, "x").name == error + "UnknownMethod"
    unit.settle()
    assert unit.log.since(mark) == []
    assert len(unit.calls) == calls


#: Values of each type; a volume of 2 percent is what the mixer makes of it, too.
VALUES = {"u": 1, "i": 2, "s": "x", "b": True, "d": 1.5}


#: What a method answers with these values that is refused here.
REFUSALS = {
    "PlayAudio": "Could not play file",
    "SetTime": "Failed to set time via systemd-datetimed",  # a moment before the epoch
    "SetTimeGPS": "No GPS Fix",
    "SetTimezone": "Failed to set timezone via systemd-timedated CODE:-22",  # part of a name, and no name
    "SetTimezoneGPS": "No GPS Fix",
}


@pytest.mark.parametrize("member", METHODS, ids=lambda member: member.name)
def test_every_method_answers_by_its_signature(unit, member):
    """Or refuses by its own text."""
    signature, result = member.types
    arguments = [VALUES[character] for character in signature]
    if member.name in REFUSALS:
        assert refused(unit.client.call, member.name, signature, *arguments).text == REFUSALS[member.name]
        return
    reply = unit.client.call_async(member.name, signature, *arguments).result()
    assert reply.signature == result


@pytest.mark.parametrize("member", PROPERTIES, ids=lambda member: member.name)
def test_every_property_can_be_read_and_written_as_introspection_says(unit, member):
    """And holds what was written."""
    value = unit.client.get(member.name)
    assert isinstance(value, {"b": bool, "i": int, "u": int, "d": float, "s": str, "as": list}[member.signature])
    if member.access == "readwrite":
        unit.client.set(member.name, member.signature, VALUES[member.signature])
        assert unit.client.get(member.name) == VALUES[member.signature]


def test_all_properties_can_be_read_at_once(unit):
    """Each with the value that it has alone."""
    assert unit.client.get_all() == {member.name: unit.client.get(member.name) for member in PROPERTIES}
