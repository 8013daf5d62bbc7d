"""The mistakes that a scenario's file can have: each is told with its line and what would be right."""

import pytest

from virtual_unit.scenario import Mistakes, arguments_of, read
from virtual_unit.verbs import parse_words

_HEAD = "title: One\nsteps:\n"


def _mistakes(tmp_path, text):
    path = tmp_path / "one.yaml"
    path.write_text(text, encoding="utf-8")
    with pytest.raises(Mistakes) as found:
        read(str(path))
    return [line.removeprefix(f"{path}:") for line in found.value.texts]


@pytest.mark.parametrize("step, text", [
    ("do: storage pull card",
     "no verb of storage 'pull'; there are: add, remove, unmount, mount, low, read-only, fill"),
    ("do: storge remove card", "no noun 'storge', perhaps 'storage'; there are: daemon, storage, recording, playback, "
                               "camera, reel, power, cooling, gps, clock, key, front, sibling, fault, settings, job, "
                               "sync, unit"),
    ("do: storage remove", "storage remove lacks device"),
    ("do: reel zero now", "reel zero takes no 'now'"),
    ("do: storage low card maybe", "on: 'maybe' is neither on nor off"),
    ("do: gps fix 1 x", "longitude: 'x' is no number"),
    ("do: gps fix 1 2 --tme x", "no option '--tme', perhaps '--time'; there are: --time"),
    ("do: gps fix 1 2 --time", "--time lacks its value"),
    ("do: fault video any refuze", "kind: 'refuze' is none of absent, refuse, code, wrong-type, silent, late, die, "
                                   "die-after"),
    ("do: fault video any refuse --times -1", "times: -1 is not between 0 and 4294967295"),
    ("do: []", "'do' takes words or a list of them"),
    ('do: storage "remove', "No closing quotation"),
    ("call: VideoRecordStrat 1 2 3", "no method of the controller 'VideoRecordStrat', perhaps 'VideoRecordStart'"),
    ("call: VideoRecordStart 1 2", "VideoRecordStart takes 3 arguments (width, height, quality), not 2"),
    ("call: VideoRecordStop 1", "VideoRecordStop takes 0 arguments, not 1"),
    ("call: VideoRecordStart 1 2 x", "quality: 'x' is no whole number"),
    ("{call: VideoRecordStop, reply: [], error: x}", "a call has a reply or an error"),
    ("call: [VideoPlaybackStart, $file, 1.0]", "$file has no value yet: it gets one where it is expected"),
    ("set: MicEnabled", "'set' takes a property and its value"),
    ("set: MicEnabled 7", "MicEnabled: '7' is neither on nor off"),
    ("set: AudioFiles x", "AudioFiles cannot be set"),
    ("signal: CaptureEror", "no signal of the controller 'CaptureEror', perhaps 'CaptureError'"),
    ("{signal: none, with: []}", "'with' does not go with 'signal: none'"),
    ("{property: reel.Distanz, is: 3}", "no property of reel 'Distanz', perhaps 'Distance'"),
    ("{property: rel.Distance, is: 3}", "no noun 'rel', perhaps 'reel'"),
    ("{property: MicEnable, is: 3}", "no property of the controller 'MicEnable', perhaps 'MicEnabled'"),
    ("property: MicEnabled", "'property' needs 'is'"),
    ("log:", "'log' takes a text"), ("wait: long", "'wait' takes seconds"), ("wait: -1", "'wait' takes seconds"),
    ("wait: true", "'wait' takes seconds"),
    ("{do: reel zero, with: 3}", "'with' does not go with 'do'"),
    ("{do: reel zero, wait: 3}", "a step has one of say, do, call, set, signal, property, log, wait, not do, wait"),
    ("is: 3", "a step has one of say, do, call, set, signal, property, log, wait, not none"),
    ("dew: 3", "no key of a step 'dew'"),
    ("{wait: 1, wait: 2}", "a step has 'wait' twice"),
    ("wait", "a step is a mapping of say, do, call, set, signal, property, log, wait, reply, error, with, is"),
])
def test_a_mistake_in_a_step(tmp_path, step, text):
    """Of the third line."""
    found = _mistakes(tmp_path, f"{_HEAD}  - {step}\n  - wait: 0\n")
    assert found == [f"3: {text}"]


@pytest.mark.parametrize("text, mistakes", [
    ("", ["1: a scenario is a mapping of title, about, unit, steps"]),
    ("[1]", ["1: a scenario is a mapping of title, about, unit, steps"]),
    ("titel: x\nsteps: [{wait: 1}]", ["1: no key of a scenario 'titel', perhaps 'title'",
                                      "1: a scenario needs 'title'"]),
    ("title: x", ["1: a scenario needs 'steps'"]),
    ("title: x\nsteps: 3", ["2: 'steps' is a list of steps"]),
    ("title: x\nsteps: []", ["2: 'steps' is a list of steps"]),
    ("title: x\nunit: 3\nsteps: [{wait: 1}]", ["2: 'unit' is a mapping of bus_timeout, daemon"]),
    ("title: x\nunit: {bus_timeuot: 1}\nsteps: [{wait: 1}]",
     ["2: no option of a unit 'bus_timeuot', perhaps 'bus_timeout'"]),
    ("title: x\nunit: {bus_timeout: soon}\nsteps: [{wait: 1}]", ["2: bus_timeout cannot be 'soon'"]),
    ("title: x\nsteps: [\n", ["3: this is no YAML: expected the node content, but found '<stream end>'"]),
    ("title: x\n\tsteps: 3\n", ["2: this is no YAML: found character '\\t' that cannot start any token"]),
    ("title: !!python/name:os.system x\nsteps: [{wait: 1}]", None),
])
def test_a_mistake_in_a_file(tmp_path, text, mistakes):
    """With the line at which it is noticed."""
    found = _mistakes(tmp_path, text)
    if mistakes is None:
        assert "could not determine a constructor" in found[0]
    else:
        assert found == mistakes


def test_all_mistakes_are_told_at_once(tmp_path):
    """In the order of their lines."""
    found = _mistakes(tmp_path, f"{_HEAD}  - wait: x\n  - do: nothing\n  - wait: 1\n  - log:\n")
    assert [line.split(":")[0] for line in found] == ["3", "4", "6"]


def test_a_file_that_cannot_be_read(tmp_path):
    """Is a mistake too."""
    (tmp_path / "one.yaml").write_bytes(b"\xff\xfe\xfa")
    for path, text in ((tmp_path / "one.yaml", "this is no text in UTF-8"), (tmp_path, "Is a directory"),
                       (tmp_path / "none", "No such file or directory")):
        with pytest.raises(Mistakes, match=text):
            read(str(path))


def test_a_scenario_as_it_is_read(tmp_path):
    """With what is left out as it is then."""
    path = tmp_path / "some.yaml"
    path.write_text("title: Some\nabout: >\n  long\n  text\nunit: {bus_timeout: 0}\nsteps:\n  - do: reel zero\n"
                    "    \n  - call: [VideoPlaybackStop, true]\n    reply: [$_]\n", encoding="utf-8")
    scenario = read(str(path))
    assert (scenario.name, scenario.title, scenario.about, scenario.options) == ("some", "Some", "long text",
                                                                                {"bus_timeout": 0})
    assert [(step.line, step.text, step.expected) for step in scenario.steps] == [
        (7, "do reel zero", {}), (9, "call VideoPlaybackStop true", {"reply": ["$_"]})]


def test_texts_are_texts(tmp_path):
    """Also those that YAML would take for something else."""
    path = tmp_path / "some.yaml"
    path.write_text("title: Some\nsteps:\n  - property: MicEnabled\n"
                    "    is: [off, no, 09:30:00, 2026-07-14, on, true, 7, 0.5, -3, 010]\n", encoding="utf-8")
    assert read(str(path)).steps[0].expected["is"] == [
        "off", "no", "09:30:00", "2026-07-14", "on", True, 7, 0.5, -3, "010"]


def test_words_become_values():
    """Of the declared types, with the defaults of what is left out."""
    verb, values = parse_words(["fault", "video", "Get RecordingState", "code", "--value", "-2"])
    assert (verb.noun, verb.name) == ("fault", "add")
    assert values == {"sibling": "video", "member": "Get RecordingState", "kind": "code", "times": 0, "value": -2.0}
    assert parse_words(["storage", "low", "card"])[1] == {"device": "card", "on": True}
    assert parse_words(["storage", "low", "card", "off"])[1] == {"device": "card", "on": False}
    assert parse_words(["storage", "low", "$device"])[1] == {"device": "$device", "on": True}
    assert arguments_of(["SetTimeSecs", "17", True]) == ("SetTimeSecs", "ib", [17, True])
