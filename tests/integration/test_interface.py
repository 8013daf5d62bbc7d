"""The interface as clients see it: its 46 members, and what the bus library refuses on its own."""

from xml.etree import ElementTree

import pytest

from virtual_unit import DbusFailure

INTERFACE = "com.tavilon.common.Controller1.Control"
UNPRIVILEGED, EMITS = "unprivileged", "emits change"

#: Name, kind, arguments in, arguments out, flag: in the order of the interface.
MEMBERS = [
    ("Snapshot", "method", "uuu", "sis"),
    ("Screenshot", "method", "s", "sis"),
    ("VideoRecordStart", "method", "uuu", "is"),
    ("VideoRecordStop", "method", "", "is"),
    ("VideoRecordPause", "method", "", "is"),
    ("VideoRecordResume", "method", "", "is"),
    ("CaptureError", "signal", "is", ""),
    ("CaptureSizeLimitReached", "signal", "is", ""),
    ("VideoPlaybackStart", "method", "sd", "is"),
    ("VideoPlaybackStop", "method", "b", "is"),
    ("VideoPlaybackPause", "method", "", "is"),
    ("VideoPlaybackResume", "method", "", "is"),
    ("VideoPlaybackSeek", "method", "i", "is"),
    ("VideoPlaybackRate", "readwrite", "d", UNPRIVILEGED),
    ("PlaybackError", "signal", "is", ""),
    ("PhotoTalkRecordStart", "method", "uuu", "is"),
    ("PhotoTalkRecordStop", "method", "", "is"),
    ("PhotoTalkRecordPause", "method", "", "is"),
    ("PhotoTalkRecordResume", "method", "", "is"),
    ("AutoLogRecordStart", "method", "uuu", "is"),
    ("AutoLogRecordStop", "method", "", "is"),
    ("AutoLogRecordPause", "method", "", "is"),
    ("AutoLogRecordResume", "method", "", "is"),
    ("KeypadBeepEnabled", "readwrite", "b", EMITS),
    ("Sonde", "readwrite", "b", EMITS),
    ("MicEnabled", "readwrite", "b", EMITS),
    ("SpkrEnabled", "readwrite", "b", EMITS),
    ("SpkrVolume", "readwrite", "i", EMITS),
    ("AudioFiles", "read", "as", EMITS),
    ("PlayAudio", "method", "s", ""),
    ("SetTime", "method", "iiiiiibb", ""),
    ("SetTimeSecs", "method", "ib", ""),
    ("GetTime", "method", "b", "iiiiiib"),
    ("GetTimeSecs", "method", "b", "ib"),
    ("SetDst", "method", "b", ""),
    ("SetTimezone", "method", "s", ""),
    ("SetTimeGPS", "method", "", ""),
    ("SetTimezoneGPS", "method", "", ""),
    ("SetTimezoneUTC", "method", "ib", ""),
    ("GetTimezoneFromUTC", "method", "ib", "s"),
    ("GetDst", "read", "b", EMITS),
    ("GetTimezone", "read", "s", EMITS),
    ("GetTimezoneList", "read", "as", EMITS),
    ("GetTimeSourceAvailable", "read", "i", EMITS),
    ("TimeChanged", "signal", "iiiiiib", ""),
    ("TimezoneChanged", "signal", "s", ""),
]


def annotations(element):
    """The annotations of a member."""
    return {item.get("name"): item.get("value") for item in element.findall("annotation")}


def arguments(element, direction):
    """The joined types of a member's arguments."""
    return "".join(item.get("type") for item in element.findall("arg") if item.get("direction", "out") == direction)


def described(element):
    """A member as in the table."""
    name = element.get("name")
    if element.tag == "method":
        assert "org.freedesktop.systemd1.Privileged" not in annotations(element)
        return (name, "method", arguments(element, "in"), arguments(element, "out"))
    if element.tag == "signal":
        return (name, "signal", "".join(item.get("type") for item in element.findall("arg")), "")
    emits = annotations(element).get("org.freedesktop.DBus.Property.EmitsChangedSignal", "true")
    return (name, element.get("access"), element.get("type"), EMITS if emits == "true" else UNPRIVILEGED)


@pytest.fixture(name="interface")
def introspected(unit):
    """The interface's own part of the introspection."""
    root = ElementTree.fromstring(unit.client.introspect())
    return next(item for item in root.findall("interface") if item.get("name") == INTERFACE)


def test_the_interface_has_exactly_its_members_in_order(interface):
    """With their types and flags."""
    in_order = [described(element) for element in interface]
    # Introspection lists the members in the order of their registration, whatever their kind.
    assert in_order == MEMBERS
    assert len(in_order) == 46


def test_every_argument_has_a_name_in_lower_camel_case(interface):
    """None is left to clients to guess."""
    for element in interface:
        for argument in element.findall("arg"):
            name = argument.get("name")
            assert name and name[0].islower() and name.isalnum(), (element.get("name"), name)


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


@pytest.mark.parametrize("name, signature, result", [(name, first, second) for name, kind, first, second in MEMBERS
                                                     if kind == "method"])
def test_every_method_answers_by_its_signature(unit, name, signature, result):
    """Or refuses by its own text."""
    arguments = [VALUES[character] for character in signature]
    if name in REFUSALS:
        assert refused(unit.client.call, name, signature, *arguments).text == REFUSALS[name]
        return
    reply = unit.client.call_async(name, signature, *arguments).result()
    assert reply.signature == result


@pytest.mark.parametrize("name, kind, signature", [item[:3] for item in MEMBERS if item[1].startswith("read")])
def test_every_property_can_be_read_and_written_as_introspection_says(unit, name, kind, signature):
    """And holds what was written."""
    value = unit.client.get(name)
    assert isinstance(value, {"b": bool, "i": int, "d": float, "s": str, "as": list}[signature])
    if kind == "readwrite":
        unit.client.set(name, signature, VALUES[signature])
        assert unit.client.get(name) == VALUES[signature]


def test_all_properties_can_be_read_at_once(unit):
    """Each with the value that it has alone."""
    values = unit.client.get_all()
    assert values == {name: unit.client.get(name) for name, kind, *_ in MEMBERS if kind.startswith("read")}
    assert len(values) == 11
