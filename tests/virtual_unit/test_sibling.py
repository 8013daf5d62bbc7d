"""What every sibling has from its interface file, and how it refuses what the file does not have."""

import xml.etree.ElementTree as ElementTree

import pytest

from virtual_unit import ALL_SIBLINGS, PATIENCE, DbusFailure, Typed, declaration
from virtual_unit.values import append, complete_types, plain, signature_of, typed, zero

_ERROR = "org.freedesktop.DBus.Error."
_PROPERTIES = "org.freedesktop.DBus.Properties"
_VIDEO = ("com.tavilon.common.Video1", "/com/tavilon/common/Video1", "com.tavilon.common.Video1.Control")
_SETTINGS = "com.tavilon.common.Settings1"


def _own_methods(declared):
    return [(interface, member) for interface, member in declared.methods
            if not interface.startswith("org.freedesktop.DBus.")]


@pytest.mark.parametrize("name", ALL_SIBLINGS)
def test_every_declared_method_has_a_behaviour_and_no_other(unit, name):
    declared = {member for item in declaration.load(name).values() for _, member in _own_methods(item)}
    behaviours = {member[3:] for member in dir(getattr(unit, name)) if member.startswith("on_")}
    assert behaviours == declared


@pytest.mark.parametrize("name", ALL_SIBLINGS)
def test_every_object_answers_get_all_and_introspect_by_its_file(unit, client_of, name):
    sibling = getattr(unit, name)
    for path, item in sibling.objects.items():
        client = client_of(sibling.service, path, "", system=name == "timedate")
        values = client.get_all()
        assert {key: value.signature for key, value in item.declared.properties.items()}.keys() == values.keys()
        interfaces = {node.get("name") for node in ElementTree.fromstring(client.introspect()).findall("interface")}
        assert interfaces == set(item.declared.interfaces)


@pytest.mark.parametrize("name", ALL_SIBLINGS)
def test_every_method_replies_with_the_signature_of_its_file(unit, client_of, name):
    sibling = getattr(unit, name)
    for path, item in list(sibling.objects.items()):
        client = client_of(sibling.service, path, "", system=name == "timedate")
        for interface, member in _own_methods(item.declared):
            method = item.declared.methods[interface, member]
            arguments = [zero(part) for part in complete_types(method.signature)]
            try:
                reply = client.request(sibling.service, path, interface, member, method.signature,
                                       *arguments).result(PATIENCE)
            except DbusFailure as failure:
                assert "error in the simulation" not in failure.text
                continue
            assert reply.signature == method.result, member


@pytest.mark.parametrize("name", ALL_SIBLINGS)
def test_argument_names_are_lower_camel_case_and_given(name):
    root = ElementTree.parse(declaration.interface_file(name)).getroot()
    for argument in root.iter("arg"):
        assert argument.get("name")[:1].islower() and "_" not in argument.get("name")
    assert all(item.get("access") in ("read", "readwrite") for item in root.iter("property"))


@pytest.mark.parametrize("path, interface, member, signature, arguments, error", [
    ("/nowhere", _VIDEO[2], "StopRecording", "", (), "UnknownObject"),
    (_VIDEO[1], "com.example.Other", "StopRecording", "", (), "UnknownInterface"),
    (_VIDEO[1], _VIDEO[2], "NoSuchMember", "", (), "UnknownMethod"),
    (_VIDEO[1], _VIDEO[2], "StopRecording", "i", (1,), "InvalidArgs"),
    (_VIDEO[1], _VIDEO[2], "StopPlayback", "i", (1,), "InvalidArgs"),
    (_VIDEO[1], _PROPERTIES, "Get", "ss", (_VIDEO[2], "NoSuchProperty"), "UnknownProperty"),
    (_VIDEO[1], _PROPERTIES, "Get", "ss", ("com.example.Other", "RecordingState"), "UnknownInterface"),
    (_VIDEO[1], _PROPERTIES, "Get", "s", (_VIDEO[2],), "InvalidArgs"),
    (_VIDEO[1], _PROPERTIES, "GetAll", "s", ("com.example.Other",), "UnknownInterface"),
    (_VIDEO[1], _PROPERTIES, "Set", "ssv", (_VIDEO[2], "RecordingState", Typed("i", 1)), "PropertyReadOnly"),
    (_VIDEO[1], _PROPERTIES, "Set", "ssv", (_VIDEO[2], "SystemMicMute", Typed("i", 1)), "InvalidArgs"),
    (_VIDEO[1], _PROPERTIES, "Set", "ssv", (_VIDEO[2], "OverlayUserText", Typed("(iis)", (1, 2, "")), ), "InvalidArgs"),
    (_VIDEO[1], "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", "", (), "UnknownInterface"),
])
def test_refusals(unit, path, interface, member, signature, arguments, error):
    with pytest.raises(DbusFailure) as raised:
        unit.client.call_on(_VIDEO[0], path, interface, member, signature, *arguments)
    assert raised.value.name == _ERROR + error
    assert len(unit.calls) == 1


def test_set_changes_and_announces(unit, video_client):
    video_client.set("OverlayUserText", "(iisis)", (1, 2, "three", 4, "five"))
    assert video_client.get("OverlayUserText") == (1, 2, "three", 4, "five")
    assert video_client.signals[0].args == (_VIDEO[2], {"OverlayUserText": (1, 2, "three", 4, "five")}, [])
    assert [call.member for call in unit.calls] == ["Set OverlayUserText", "Get OverlayUserText"]
    assert unit.calls[0].arguments == ((1, 2, "three", 4, "five"),)
    assert unit.calls[0].interface == _VIDEO[2]


def test_silent_and_equal_changes_are_not_announced(unit, video_client):
    unit.video.set("CaptureZoom", 2.0, emit=False)
    unit.video.set("CaptureZoom", 2.0)
    video_client.sync()
    assert video_client.signals == []


def test_a_value_of_the_wrong_type_never_becomes_a_property(unit):
    with pytest.raises((TypeError, ValueError)):
        unit.video.set("CaptureZoom", "wide")
    assert unit.video.get("CaptureZoom") == 1.0


def test_calls_have_one_order_over_all_siblings(unit):
    mark = unit.calls.mark()
    for service, path in (("Settings1", "time"), ("Video1", ""), ("Settings1", "audio")):
        name = f"com.tavilon.common.{service}"
        unit.client.call_on(name, "/" + "/".join(name.split(".") + [path] * bool(path)), _PROPERTIES, "GetAll", "s", "")
    assert unit.calls.members() == [("settings", "GetAll"), ("video", "GetAll"), ("settings", "GetAll")]
    assert [call.index for call in unit.calls.of("settings")] == [mark, mark + 2]
    assert unit.calls.wait_for("video")[0].path == _VIDEO[1]
    with pytest.raises(TimeoutError):
        unit.calls.wait_for("sync", timeout=0.01)
    unit.calls.clear()
    assert len(unit.calls) == 0 and unit.calls.mark() == 3


def test_introspect_and_ping_are_no_calls(unit, video_client):
    video_client.introspect()
    video_client.sync()
    assert len(unit.calls) == 0


def test_paths_above_objects_introspect_to_their_children(client_of):
    client = client_of("com.tavilon.common.Halvex1", "/com/tavilon", "")
    assert '<node name="common"' in client.introspect()
    client = client_of("com.tavilon.common.Halvex1", "/com/tavilon/common/Halvex1/reel", "")
    assert '<node name="distance"' in client.introspect()


def test_objects_come_and_go(unit, client_of):
    client = client_of(_SETTINGS, "/com/tavilon/common/Settings1/time", _SETTINGS)
    assert client.get("zone") == "London"
    unit.settings.remove_section("time")
    with pytest.raises(DbusFailure, match="UnknownObject"):
        client.get("zone")
    unit.settings.add_object("/com/tavilon/common/Settings1/time")
    assert client.get("zone") == "London"


@pytest.mark.parametrize("signature, value", [
    ("b", True), ("y", 255), ("n", -3), ("q", 3), ("i", -1), ("u", 1), ("x", -2 ** 40), ("t", 2 ** 40), ("d", 0.5),
    ("s", "text"), ("o", "/a"), ("as", ["a", "b"]), ("as", []), ("(iisis)", (1, 2, "", 3, "")), ("a{si}", {"a": 1}),
    ("(sassas)", ("a", ["b"], "c", [])), ("a(ib)", [(1, True)]),
])
def test_values_keep_their_type_on_the_way(signature, value):
    item = typed(signature, value)
    assert signature_of(item) == signature
    back = plain(item)
    assert back == value and type(back) is type(value)


def test_values_that_do_not_fit_are_refused():
    with pytest.raises(TypeError):
        typed("(ii)", (1, 2, 3))
    with pytest.raises(TypeError):
        typed("v", 1)
    with pytest.raises(TypeError):
        typed("i", Typed("s", ""))
    with pytest.raises(TypeError):
        append(None, "ii", (1,))
