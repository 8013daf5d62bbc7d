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
AVAILABLE = {f"{kind}Record{operation}" for kind in ("Video", "PhotoTalk", "AutoLog")
             for operation in ("Start", "Stop", "Pause", "Resume")}
AVAILABLE |= {"Snapshot", "Screenshot", "VideoPlaybackRate"}
AVAILABLE |= {f"VideoPlayback{operation}" for operation in ("Start", "Stop", "Pause", "Resume", "Seek")}


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
    in_order = [described(element) for element in interface]
    # Introspection lists the members in the order of their registration, whatever their kind.
    assert in_order == MEMBERS
    assert len(in_order) == 46


def test_every_argument_has_a_name_in_lower_camel_case(interface):
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
    for name in ("GetDst", "GetTimezone", "GetTimezoneList", "GetTimeSourceAvailable"):
        assert refused(unit.client.call, name).name == "org.freedesktop.DBus.Error.UnknownMethod"


def test_what_the_bus_library_refuses_changes_and_logs_nothing(unit):
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


VALUES = {"u": 1, "i": 1, "s": "x", "b": True, "d": 1.5}


def text_of(name):
    """What a member says whose manager is missing."""
    return f"{name} is not available in this build of the controller daemon"


def check_available(client, name, kind, types):
    """A member that has a manager answers as such: a method with a code, which may stand behind a path."""
    if kind == "method":
        reply = client.call(name, types, *(VALUES[character] for character in types))
        assert next(value for value in reply if isinstance(value, int)) <= 0
        return
    client.set(name, types, VALUES[types])
    assert client.get(name) == VALUES[types]


def is_about_time(name):
    """Members of clock and zone."""
    return "Time" in name or "Dst" in name


@pytest.mark.parametrize("name, kind, first, second",
                         [item for item in MEMBERS if item[1] != "signal" and not is_about_time(item[0])])
def test_members_without_a_manager_say_so(unit, name, kind, first, second):
    if name in AVAILABLE:
        check_available(unit.client, name, kind, first)
        return
    if kind == "method":
        failures = [refused(unit.client.call, name, first, *(VALUES[character] for character in first))]
    else:
        failures = [refused(unit.client.get, name)]
    if kind == "readwrite":
        failures.append(refused(unit.client.set, name, first, VALUES[first]))
    assert second is not None
    for failure in failures:
        assert (failure.name, failure.text) == ("org.freedesktop.DBus.Error.Failed", text_of(name))
