"""The steps that the fuzzer takes, as Hypothesis draws them: lists of plain values, which JSON holds as they are.

What belongs to one unit's folder stands in a text as a word with "@", see `Player`.
"""

from hypothesis import strategies as st

from interfaces.introspection import controller_members
from virtual_unit import ALL_SIBLINGS, declaration
from virtual_unit.values import complete_types

#: What no text of ours may have done: every name that could is in TEXTS.
CANARY = "ran-by-shell"

#: A log that takes a client's text for a format does not say the whole of it.
FORMAT_TEXT = "{format %d %s %.500x %5$s %%}"

#: Sounds of the unit beside its own.
HOSTILE_SOUNDS = [f"$(touch {CANARY}).wav", f"; touch {CANARY} ;.wav", f"`touch {CANARY}`", "-q", FORMAT_TEXT]

#: Texts of whatever a client may name: folders, files, sounds, zones.
TEXTS = HOSTILE_SOUNDS + ["", "/", ".", "..", "@media", "@logs", "@recorded", "@media/missing", "/dev/zero", "relative/file",
                          "Paris", "CCU/DST/Paris", "London", "../../etc/passwd", "\x7f\x01\u2028é" + "\U0001f3a5", "@long"]

_NUMBERS = {
    "y": (0, 255), "n": (-2 ** 15, 2 ** 15 - 1), "q": (0, 2 ** 16 - 1), "i": (-2 ** 31, 2 ** 31 - 1),
    "u": (0, 2 ** 32 - 1), "x": (-2 ** 63, 2 ** 63 - 1), "t": (0, 2 ** 64 - 1),
}
_LIKELY = [0, 1, 2, 3, 90, 100, 1080, 1920, 3600]
_TYPES = ["i", "u", "s", "b", "d", "as", "ao", "a{sv}", "a{ss}", "(ii)", "(si)", "o", "g", "ay", "t", "x", "v", "aas", "i" * 40]
_OBJECTS = ["/", "/com/tavilon/common/StorageDaemon1/card", "/com/tavilon/common/StorageDaemon1/internal", "/a/b"]
#: What "many" is; and where each entry is asked about in a call of its own, so that the wait is theirs.
_MANY, _MANY_ASKED = 10_000, 100
_ASKED_ONE_BY_ONE = ("Get AvailableDevices",)


def value(signature):
    """A value of one complete type; of a variant [type, value], of a dictionary its pairs."""
    kind = signature[0]
    if signature.startswith("a{"):
        key, item = complete_types(signature[2:-1])
        return st.lists(st.tuples(value(key), value(item)).map(list), max_size=3)
    if kind == "a":
        return st.lists(value(signature[1:]), max_size=3)
    if kind == "(":
        return st.tuples(*map(value, complete_types(signature[1:-1]))).map(list)
    if kind == "v":
        return st.sampled_from(["i", "s", "b", "d", "as", "(ii)"]).flatmap(
            lambda inside: value(inside).map(lambda item: [inside, item]))
    if kind in _NUMBERS:
        low, high = _NUMBERS[kind]
        return st.sampled_from([number for number in _LIKELY + [low, high] if low <= number <= high]) | st.integers(low, high)
    return {"b": st.booleans(), "d": st.sampled_from([0.0, 1.0, -1.0, 0.5, 1e308, float("inf"), float("nan")]),
            "s": st.sampled_from(TEXTS), "o": st.sampled_from(_OBJECTS), "g": st.sampled_from(["", "i", "a{sv}"])}[kind]


def values(signature):
    """A list of values of a whole signature."""
    return st.tuples(*map(value, complete_types(signature))).map(list)


def many(signature, member=""):
    """One value of the type, an array, with a great many entries, as an answer to a member."""
    count = _MANY_ASKED if member in _ASKED_ONE_BY_ONE else _MANY
    if signature.startswith("a{"):
        key, item = complete_types(signature[2:-1])
        return [[f"/many/{i}" if key == "o" else f"many{i}" if key == "s" else i, _least(item)] for i in range(count)]
    return [_least(signature[1:])] * count


def _least(signature):
    kind = signature[0]
    if kind == "(":
        return [_least(part) for part in complete_types(signature[1:-1])]
    return {"a": [], "v": ["s", "x"], "s": "x", "o": "/", "g": "", "b": False, "d": 0.0}.get(kind, 0)


_MEMBERS = controller_members()
_METHODS = {member.name: member.types[0] for member in _MEMBERS if member.kind == "method"}
_PROPERTIES = {member.name: member.signature for member in _MEMBERS if member.kind == "property"}
_WRITABLE = {member.name: member.signature for member in _MEMBERS if member.access == "readwrite"}
_NAMES = st.sampled_from(["VideoRecord", "PhotoTalkRecord", "AutoLogRecord"])
_SIBLING = st.sampled_from(ALL_SIBLINGS)


def _asked(sibling):
    """What a sibling can be asked for, with the types of its answer, a property's as "v" with its own."""
    for declared in declaration.load(sibling).values():
        for (_, member), method in declared.methods.items():
            if method.result and member not in ("Get", "GetAll", "Introspect", "GetMachineId"):
                yield member, method.result
        for name, item in declared.properties.items():
            yield f"Get {name}", f"v{item.signature}"


def _told():
    """What siblings tell: (sibling, path, interface, member, types)."""
    for sibling in ALL_SIBLINGS:
        for path, declared in declaration.load(sibling).items():
            for (interface, member), signature in declared.signals.items():
                yield sibling, path.replace("/device", "/card"), interface, member, signature


_ASKED = sorted({(sibling, *item) for sibling in ALL_SIBLINGS for item in _asked(sibling)})
_TOLD = sorted(_told())
#: Both, and the sibling's own of a variant's text.
_ARRAYS = [(sibling, member, kind.removeprefix("v")) for sibling, member, kind in _ASKED
           if kind.removeprefix("v").startswith("a")]


def _step(name, *parts):
    """A step with parts of its own; a plain value stands for itself."""
    return st.tuples(st.just(name), *parts).map(list)


def _of(names, make):
    return st.sampled_from(names).flatmap(make)


def _own_answer(item):
    sibling, member, kind = item
    return st.tuples(st.just("answer"), st.just(sibling), st.just(member), st.just(kind[:1] if kind[0] == "v" else kind),
                     (value(kind[1:]).map(lambda inner: [[kind[1:], inner]]) if kind[0] == "v" else values(kind)),
                     st.integers(1, 3)).map(list)


_CALL = _of(sorted(_METHODS.items()), lambda item: _step("call", st.just(item[0]), st.just(item[1]), values(item[1])))
_START = st.tuples(_NAMES, st.sampled_from(["Start", "Start", "Stop", "Stop", "Pause", "Resume"])).map(
    lambda pair: ["call", "".join(pair), "uuu" if pair[1] == "Start" else "", [1920, 1080, 90] if pair[1] == "Start" else []])
_SOUND = st.sampled_from(HOSTILE_SOUNDS).map(lambda name: ["call", "PlayAudio", "s", [name]])
_PROPERTY = (_of(sorted(_PROPERTIES), lambda name: _step("get", st.just(name)))
             | _of(sorted(_WRITABLE.items()), lambda item: _step("set", st.just(item[0]), st.just(item[1]), value(item[1]))))
_WRONG = (
    _of(_TYPES, lambda kind: _step("call", st.sampled_from(sorted(_METHODS) + ["Unheard"]), st.just(kind), values(kind)))
    | _of(_TYPES, lambda kind: _step("set", st.sampled_from(sorted(_PROPERTIES) + ["Unheard"]),
                                     st.just(complete_types(kind)[0]), value(complete_types(kind)[0])))
    | st.just(["get_all"]) | st.just(["introspect"]))
_FAULT = _step("fault", _SIBLING, st.sampled_from(["absent", "refuse", "wrong type", "silent", "die", "die after"]),
               st.integers(1, 3))
_LATER_FAULT = _step("fault_at", st.integers(0, 24),
                     st.sampled_from(["absent", "refuse", "wrong type", "silent", "die", "die after"]))
#: What leaves something behind that must be taken back.
_LATE_CALLS = [("jobs", f"Add{kind}Media") for kind in ("Video", "PhotoTalk", "Autolog", "Snapshot")] + [
    ("video", f"Start{kind}") for kind in ("Recording", "PhotoTalk", "AutoLog")]
_FAULT_ON = _of(_LATE_CALLS, lambda item: _step("fault_on", *map(st.just, item), st.sampled_from(
    ["absent", "refuse", "wrong type", "silent", "die"])))
_CODE = _step("code", _SIBLING, st.sampled_from([-1, 1, 2, 7, 9, 10, 24, -2 ** 31, 2 ** 31 - 1]), st.integers(1, 3))
_ANSWER = (_of(_ASKED, _own_answer)
           | _of(_TYPES, lambda kind: _of(_ASKED, lambda item: _step("answer", st.just(item[0]), st.just(item[1]),
                                                                     st.just(kind), values(kind), st.just(1)))))
_MANY_STEP = (_of(_ARRAYS, lambda item: _step("many", *map(st.just, item)))
              | st.sampled_from([sibling for sibling in ALL_SIBLINGS if sibling != "timedate"]).flatmap(
                  lambda sibling: _step("flood", st.just(sibling))))
_TELL = (_of(_TOLD, lambda item: _step("tell", *map(st.just, item), values(item[4])))
         | _of(_TYPES, lambda kind: _of(_TOLD, lambda item: _step("tell", *map(st.just, item[:4]), st.just(kind), values(kind)))))
_CHANGES = _of(sorted(name for name in ALL_SIBLINGS if name != "timedate"), lambda sibling: _of(
    sorted((path, name, item.interface) for path, node in declaration.load(sibling).items()
           for name, item in node.properties.items()) or [("/", "x", "x")],
    lambda item: _step("tell_change", st.just(sibling), st.just(item[0].replace("/device", "/card")), st.just(item[2]),
                       st.just(item[1]), value("v"))))
_DEVICE = st.sampled_from(["internal", "card"])
_WORLD = (
    _step("storage", st.sampled_from(["unmount", "mount", "remove", "add", "low", "enough", "read-only", "writable"]), _DEVICE)
    | _step("grow", st.sampled_from(["video", "photoTalk", "autolog"]), st.booleans())
    | _step("change", st.sampled_from(["video", "photoTalk", "autolog"]), st.sampled_from([0, 1, 2, 3, -1]))
    | _step("job", st.booleans()) | _step("power", st.sampled_from([0, 1, 0, 1, 7]))
    | _step("player", st.just(0)) | _step("pull", st.just("card")) | _step("sync", st.booleans())
    | _step("zone", st.sampled_from(TEXTS + ["CCU/London", "CCU/DST/London"])) | _step("key", st.sampled_from([1, 30, 59, 248]))
    | _step("vanish", _SIBLING) | _step("vanish", _SIBLING) | _step("return", _SIBLING) | st.just(["calm"]))

#: One step; each kind as often as it stands here.
STEP = st.one_of(_CALL, _CALL, _START, _START, _SOUND, _PROPERTY, _WRONG, _FAULT, _LATER_FAULT, _FAULT_ON, _CODE, _ANSWER, _ANSWER, _MANY_STEP,
                 _TELL, _TELL, _CHANGES, _WORLD, _WORLD)
