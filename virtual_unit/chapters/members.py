"""What the daemon offers: its interface, as introspection tells it."""

from xml.etree import ElementTree

from ..client import INTERFACE

#: Kind, name, arguments in and out (or type and access of a property) of every member, in the order of the interface.
_MEMBERS = [tuple(line.replace("-", "").split(" ")) for line in """\
method Snapshot uuu sis
method Screenshot s sis
method VideoRecordStart uuu is
method VideoRecordStop - is
method VideoRecordPause - is
method VideoRecordResume - is
signal CaptureError is -
signal CaptureSizeLimitReached is -
method VideoPlaybackStart sd is
method VideoPlaybackStop b is
method VideoPlaybackPause - is
method VideoPlaybackResume - is
method VideoPlaybackSeek i is
property VideoPlaybackRate d readwrite
signal PlaybackError is -
method PhotoTalkRecordStart uuu is
method PhotoTalkRecordStop - is
method PhotoTalkRecordPause - is
method PhotoTalkRecordResume - is
method AutoLogRecordStart uuu is
method AutoLogRecordStop - is
method AutoLogRecordPause - is
method AutoLogRecordResume - is
property KeypadBeepEnabled b readwrite
property Sonde b readwrite
property MicEnabled b readwrite
property SpkrEnabled b readwrite
property SpkrVolume i readwrite
property AudioFiles as read
method PlayAudio s -
method SetTime iiiiiibb -
method SetTimeSecs ib -
method GetTime b iiiiiib
method GetTimeSecs b ib
method SetDst b -
method SetTimezone s -
method SetTimeGPS - -
method SetTimezoneGPS - -
method SetTimezoneUTC ib -
method GetTimezoneFromUTC ib s
property GetDst b read
property GetTimezone s read
property GetTimezoneList as read
property GetTimeSourceAvailable i read
signal TimeChanged iiiiiib -
signal TimezoneChanged s -
""".splitlines()]


def _arguments(element, direction, default="in"):
    return "".join(item.get("type") for item in element.findall("arg") if item.get("direction", default) == direction)


def _described(element):
    if element.tag == "property":
        return element.tag, element.get("name"), element.get("type"), element.get("access")
    return element.tag, element.get("name"), _arguments(element, "in"), _arguments(element, "out")


def play(stage):
    """Shows every member and compares it."""
    unit = stage.unit
    tree = ElementTree.fromstring(unit.client.introspect())
    interface = next((item for item in tree.findall("interface") if item.get("name") == INTERFACE), [])
    found = [_described(element) for element in interface]
    stage.tell(f"One object, {unit.client.path}, with one interface of its own, {INTERFACE}:")
    stage.show.table([("#", "Kind", "Name", "In, type", "Out, access"),
                      *((number, *member) for number, member in enumerate(found, 1))])
    kinds = [kind for kind, *_ in found]
    counts = ", ".join(f"{kinds.count(kind)} {words}" for kind, words in (
        ("method", "methods"), ("property", "properties"), ("signal", "signals")))
    stage.check("members, in their order", found, _MEMBERS, f"{len(found)}: {counts}")
