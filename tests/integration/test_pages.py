"""What is said of the interface: the pages are made from its file, and the file says what the daemon does."""

import functools
import glob
import os
import re

import pytest

from interfaces.introspection import controller_members
from interfaces import pages
from virtual_unit import VirtualUnit

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
#: Each list of codes in the file, with the type that has them in the code.
CODES = {"recording": "CaptureErrorCode", "CaptureError": "CaptureRuntimeError", "playback": "PlaybackErrorCode",
         "CaptureSizeLimitReached": "CaptureType", "PlaybackError": "PlaybackRuntimeError"}


def read(path):
    """The text of a file."""
    with open(path, encoding="utf-8") as file:
        return file.read()


# The pages ------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("path", pages.PAGES, ids=os.path.basename)
def test_a_page_is_what_is_made_of_the_interface_file(path):
    """`./ccu pages` makes it anew."""
    assert read(path) == pages.made(path)


@pytest.mark.parametrize("pattern", [r'^\| "(\w+)" \| (?:method|property|signal) ', r"^\\fB(\w+)\\fR "],
                         ids=["manual", "manual page"])
def test_every_member_is_described_once(pattern):
    """None has a section that no page shows."""
    found = [name for path in pages.PAGES for name in re.findall(pattern, read(path), re.MULTILINE)]
    assert sorted(found) == sorted(member.name for member in controller_members())


def test_every_refusal_is_told():
    """By a page of the manual."""
    manual = "".join(read(path) for path in pages.PAGES if path.endswith(".md"))
    for member in controller_members():
        for text, when in pages.errors(member):
            assert when and manual.count(f'| "{member.name}" | "{text}" | {when} |\n') == 1, (member.name, text)


# The file -------------------------------------------------------------------------------------------------------------


@functools.lru_cache(maxsize=None)
def sources():
    """The text of the daemon's own folders, literals in one piece."""
    files = [path for folder in ("capture", "time", "device")
             for path in glob.glob(os.path.join(ROOT, folder, "*.[ch]*"))]
    return re.sub(r'"\s*\n\s*"', "", "".join(read(path) for path in files))


@pytest.mark.parametrize("title", CODES)
def test_codes_and_messages_are_those_of_the_code(title):
    """All of them, in order."""
    kind = CODES[title]
    numbers = dict(re.findall(r"(\w+) = (-?\d+),", re.search(rf"enum class {kind} : int32_t\n{{(.*?)}};", sources(),
                                                             re.DOTALL).group(1)))
    entries = re.findall(rf'Entry{{{kind}::(\w+), "(.*?)"}}', sources())
    assert [(code, message) for code, message, _ in pages.codes(title)] == \
        [(numbers[name], message) for name, message in entries] != []


def test_refusals_are_texts_of_the_code():
    """To the blank; what differs from call to call is a number or a name."""
    texts = {text for member in controller_members() for text, _ in pages.errors(member)}
    assert texts
    for text in texts:
        literal = re.sub(r"^NAME\b", "", re.sub(r"CODE:-\d+$", "CODE:", text))
        assert f'"{literal}"' in sources(), text


def changes(client):
    """The properties whose changes the client has been told of, in order."""
    return [name for signal in client.signals if signal.member == "PropertiesChanged"
            for name in (*signal.args[1], *signal.args[2])]


def test_changes_are_announced_as_the_file_says():
    """Whatever introspection promises; by a write, and for the zone's properties by what changes them."""
    values = {"b": True, "i": 2, "d": 1.5}
    written = [member for member in controller_members() if member.access == "readwrite"]
    with VirtualUnit() as unit:
        unit.client.sync()
        for member in written:
            unit.client.clear()
            unit.client.set(member.name, member.signature, values[member.signature])
            unit.client.sync()
            assert changes(unit.client) == [member.name] * pages.announces(member), member.name
        unit.client.clear()
        before = unit.client.get_all()
        unit.client.call("SetTimezone", "s", "Kathmandu")
        unit.client.call("SetDst", "b", True)
        unit.client.call("VideoRecordStart", "uuu", 1, 1, 1)  # the time source is not available now
        unit.settle()
        after = unit.client.get_all()
        changed = {member for member in controller_members() if before.get(member.name) != after.get(member.name)}
        signals = {signal.member for signal in unit.client.signals}
        assert {"GetDst", "GetTimezone", "GetTimeSourceAvailable"} <= {member.name for member in changed}
        assert sorted(changes(unit.client)) == sorted(member.name for member in changed if pages.announces(member))
        assert signals - {"PropertiesChanged"} == {"TimezoneChanged", "TimeChanged"}


@pytest.mark.parametrize("name, change", [
    ("GetTimezone", lambda client: client.call("SetTimezone", "s", "Kathmandu")),
    ("GetTimezone", lambda client: client.call("SetTimezoneUTC", "ib", 3600, False)),
    ("GetDst", lambda client: client.call("SetDst", "b", True)),
    ("GetDst", lambda client: client.call("SetTime", "iiiiiibb", 2026, 1, 2, 3, 4, 5, True, True)),
    ("Sonde", lambda client: client.set("Sonde", "b", True)),
    ("VideoPlaybackRate", lambda client: client.set("VideoPlaybackRate", "d", 2.5)),
    ("GetTimeSourceAvailable", lambda client: client.call("VideoRecordStart", "uuu", 1, 1, 1))])
def test_signals_tell_of_changes_as_the_file_says(unit, name, change):
    """The one that is said to tell of a change comes with it; of what is untold, none does."""
    member = next(member for member in controller_members() if member.name == name)
    before = unit.client.get(name)
    unit.client.sync()
    unit.client.clear()
    change(unit.client)
    unit.settle()
    unit.client.sync()
    assert unit.client.get(name) != before
    told = {signal.member for signal in unit.client.signals}
    how, signal = pages.changes_of(member)
    assert (how, signal in told) == ("told", True) or (how, told) == ("untold", set())


def test_changes_that_nothing_announces_are_explained():
    """By a signal of the interface, or by a reason; no property has both, and what is announced has neither."""
    signals = {member.name for member in controller_members() if member.kind == "signal"}
    for member in controller_members():
        if member.kind == "property":
            how, what = pages.changes_of(member)
            assert {"announced": what == "", "told": what in signals, "untold": bool(what)}[how], member.name
