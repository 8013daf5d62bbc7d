"""Property maps as they come over a real bus, through the settings client, which passes them on whole."""

import os
import socket
import struct

import pytest

from tests.integration.client_driver import ClientDriver
from virtual_unit import PATIENCE, VirtualUnit
from virtual_unit.values import Typed

NAME = "com.tavilon.common.Settings1"
PATH = "/com/tavilon/common/Settings1/time"

#: A value of every type that a map can hold, and how the driver tells it.
KNOWN = [("b", False), ("b", True), ("y", 0), ("y", 255), ("n", -32768), ("q", 65535), ("i", -2147483648),
         ("i", 2147483647), ("u", 4294967295), ("x", -9223372036854775808), ("t", 18446744073709551615), ("d", -0.5),
         ("d", 1e308), ("s", ""), ("s", "d\u00fcse %s\n\t\"\\ \U0001f3a5"), ("s", "x" * 100000), ("o", "/a/b"),
         ("g", "a{sv}"), ("as", []), ("as", ["", "b", "a"])]
#: Values of types that are left out.
UNKNOWN = [Typed("v", Typed("i", 1)), Typed("(ii)", (1, 2)), Typed("a{sv}", {"zone": Typed("s", "inner")}),
           Typed("a(ss)", [("a", "b")]), Typed("ay", [1, 2]), Typed("aas", [["a"], []]), Typed("ao", ["/a"]),
           Typed("a{s(iv)}", {"a": (1, Typed("v", Typed("as", ["x"])))}), Typed("(((s)))", ((("x",),),))]


@pytest.fixture(scope="module", name="unit")
def unit_fixture():
    """A unit with nothing but the settings daemon."""
    with VirtualUnit(daemon=False, siblings=("settings",)) as started:
        yield started


@pytest.fixture(name="listener")
def listener_fixture(unit):
    """A driver that listens to the settings daemon."""
    with ClientDriver(unit) as started:
        assert started.listen("settings") == 0
        yield started


def told(listener):
    """The map of the next change."""
    assert listener.signal()[0] == "SectionChanged"
    name, (changes,) = listener.signal()
    assert name == "time"
    return changes


def exchange(unit, listener, changes):
    """Sends a change and returns what is told of it."""
    unit.settings.emit_changes(PATH, NAME, changes)
    return told(listener)


@pytest.mark.parametrize("signature, value", KNOWN, ids=lambda value: str(value)[:12])
def test_a_value_of_a_known_type(unit, listener, signature, value):
    """Arrives with its signature and as it was."""
    assert exchange(unit, listener, {"zone": Typed(signature, value)}) == {"zone": [signature, value]}


@pytest.mark.parametrize("value", UNKNOWN, ids=lambda value: value.signature)
def test_a_value_of_an_unknown_type(unit, listener, value):
    """Is left out, with no line; the entries around it are kept."""
    changes = {"a": Typed("i", 1), "m": value, "z": Typed("s", "last")}
    assert exchange(unit, listener, changes) == {"a": ["i", 1], "z": ["s", "last"]}
    assert not listener.log.lines()


def test_names(unit, listener):
    """Any text is a name; they come in ascending order of their bytes, whatever their order in the message."""
    names = ["period", "enabled", "", "Z", "a b", "\u00e4", "beeps", "duration", "%s", "zz", "\U0001f3a5"]
    changes = exchange(unit, listener, {name: Typed("u", number) for number, name in enumerate(names)})
    assert changes == {name: ["u", number] for number, name in enumerate(names)}
    assert list(changes) == sorted(names, key=lambda name: name.encode())


def test_ten_thousand_entries(unit, listener):
    """Of mixed types, every third of them unknown."""
    kinds = [lambda number: Typed("i", number), lambda number: Typed("s", str(number)), lambda _: Typed("(b)", (True,))]
    changes = exchange(unit, listener, {f"key{number}": kinds[number % 3](number) for number in range(10000)})
    assert len(changes) == 6667
    assert changes["key9999"] == ["i", 9999] and changes["key9997"] == ["s", "9997"] and "key9998" not in changes


def test_all_settings_of_a_section(unit):
    """A whole interface is read on the same terms."""
    with ClientDriver(unit) as driver:
        unit.settings.preset("keyBeep", {"enabled": True, "duration": 1, "period": 2, "beeps": 3})
        outcome = driver.run("settings.GetSectionSettings", "keyBeep")
        assert list(outcome.outs[0].items()) == [("beeps", ["u", 3]), ("duration", ["u", 1]), ("enabled", ["b", True]),
                                                 ("period", ["u", 2])]


# Text that is no UTF-8 ------------------------------------------------------------------------------------------------


def padded(data, boundary):
    """The data up to the boundary."""
    return data + bytes(-len(data) % boundary)


def text(data):
    """A string or object path."""
    return struct.pack("<I", len(data)) + data + b"\0"


def message(kind, serial, fields, signature="", body=b""):
    """A whole D-Bus message; the fields are (code, type, text)."""
    if signature:
        fields = [*fields, (8, "g", signature)]
    header = b""
    for code, form, value in fields:
        data = value.encode()
        content = bytes([len(data)]) + data + b"\0" if form == "g" else text(data)
        header = padded(header, 8) + bytes([code, 1]) + form.encode() + b"\0"
        header += content  # the content of a text starts at a multiple of four here
    start = struct.pack("<cBBBII", b"l", kind, 0, 1, len(body), serial) + struct.pack("<I", len(header))
    return padded(start + header, 8) + body


def call(serial, member, signature="", body=b""):
    """A call to the bus itself."""
    return message(1, serial, [(1, "o", "/org/freedesktop/DBus"), (6, "s", "org.freedesktop.DBus"),
                               (2, "s", "org.freedesktop.DBus"), (3, "s", member)], signature, body)


def zone_changed(serial, zone):
    """A PropertiesChanged of the "time" section with these bytes as the zone."""
    entry = padded(text(b"zone") + b"\1s\0", 4) + text(zone)
    body = padded(text(NAME.encode()), 4) + struct.pack("<I", len(entry))
    body = padded(body, 8) + entry
    body = padded(body, 4) + struct.pack("<I", 0)
    fields = [(1, "o", PATH), (2, "s", "org.freedesktop.DBus.Properties"), (3, "s", "PropertiesChanged")]
    return message(4, serial, fields, "sa{sv}as", body)


def connect(unit):
    """A connection that owns the settings daemon's name and sends bytes as they are given."""
    raw = socket.socket(socket.AF_UNIX)
    raw.settimeout(PATIENCE)
    raw.connect(unit.session_address.partition("path=")[2].partition(",")[0])
    raw.sendall(b"\0AUTH EXTERNAL " + str(os.getuid()).encode().hex().encode() + b"\r\n")
    assert raw.recv(4096).startswith(b"OK")
    raw.sendall(b"BEGIN\r\n" + call(1, "Hello") + call(2, "RequestName", "su", padded(text(NAME.encode()), 4)
                                                                              + struct.pack("<I", 0)))
    return raw


def test_text_that_is_no_utf8_never_arrives(unit, listener):
    """The bus hangs up on who sends it; the listener hears the next valid change."""
    unit.settings.die()
    try:
        with connect(unit) as raw:
            raw.sendall(zone_changed(3, b"valid"))
            assert told(listener) == {"zone": ["s", "valid"]}
            raw.sendall(zone_changed(4, b"\xff\xfe"))
            while raw.recv(4096):
                pass
    finally:
        unit.settings.revive()
    assert exchange(unit, listener, {"zone": "next"}) == {"zone": ["s", "next"]}
    assert not listener.log.lines()
