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
TEXTS = HOSTILE_SOUNDS + [
    "", "/proc", ".", "@media/..", "@media", "@logs", "@recorded", "@media/missing", "/dev/zero", "relative/file", "Paris",
    "CCU/DST/Paris", "London", "../../etc/passwd", "\x7f\x01\u2028é\U0001f3a5", "@long"]

_NUMBERS = {
    "y": (0, 255), "n": (-2 ** 15, 2 ** 15 - 1), "q": (0, 2 ** 16 - 1), "i": (-2 ** 31, 2 ** 31 - 1),
    "u": (0, 2 ** 32 - 1), "x": (-2 ** 63, 2 ** 63 - 1), "t": (0, 2 ** 64 - 1),
}
_LIKELY = [0, 1, 2, 3, 90, 100, 1080, 1920, 3600]
_TYPES = ["i", "u", "s", "b", "d", "as", "ao", "a{sv}", "a{ss}", "(ii)", "(si)", "o", "g", "ay", "t", "x", "v", "aas",
          "i" * 40]
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
        likely = [number for number in _LIKELY + [low, high] if low <= number <= high]
        return st.sampled_from(likely) | st.integers(low, high)
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
_SIBLING = st.sampled_from(ALL_SIBLINGS)
_ON_USER_BUS = [sibling for sibling in ALL_SIBLINGS if sibling != "timedate"]


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
#: Who tells of properties that have changed, and what: (sibling, path, interface, name).
_CHANGED = sorted((sibling, path.replace("/device", "/card"), item.interface, name) for sibling in _ON_USER_BUS
                  for path, node in declaration.load(sibling).items() for name, item in node.properties.items())
#: What is answered with an array, a property's value too.
_ARRAYS = [(sibling, member, kind.removeprefix("v")) for sibling, member, kind in _ASKED
           if kind.removeprefix("v").startswith("a")]
#: What leaves something behind that must be taken back.
_LATE = [("jobs", f"Add{kind}Media") for kind in ("Video", "PhotoTalk", "Autolog", "Snapshot")] + [
    ("video", f"Start{kind}") for kind in ("Recording", "PhotoTalk", "AutoLog")]
_FAULTS = st.sampled_from(["absent", "refuse", "wrong type", "silent", "die", "die after"])
_STORAGE_EVENTS = st.sampled_from(["unmount", "mount", "remove", "add", "low", "enough", "read-only", "writable"])
_KINDS = st.sampled_from(["video", "photoTalk", "autolog"])


def _step(*parts):
    """A step of these parts; what is no strategy stands for itself."""
    return st.tuples(*(part if isinstance(part, st.SearchStrategy) else st.just(part) for part in parts)).map(list)


def _for_one(items, make):
    """What is made for one of the items."""
    return st.sampled_from(sorted(items)).flatmap(lambda item: make(*item) if isinstance(item, tuple) else make(item))


def _order(kind, word):
    if word == "Start":
        return _step("call", f"{kind}RecordStart", "uuu", st.just([1920, 1080, 90]))
    return _step("call", f"{kind}Record{word}", "", st.just([]))


def _own_answer(sibling, member, kind):
    """An answer of the type that is declared."""
    if kind[0] == "v":
        return _step("answer", sibling, member, "v", value(kind[1:]).map(lambda inside: [[kind[1:], inside]]), 1)
    return _step("answer", sibling, member, kind, values(kind), st.integers(1, 3))


def _other_answer(sibling, member, _):
    return _for_one(_TYPES, lambda kind: _step("answer", sibling, member, kind, values(kind), 1))


def _other_signal(sibling, path, interface, member, _):
    return _for_one(_TYPES, lambda kind: _step("tell", sibling, path, interface, member, kind, values(kind)))


def _other_value(kind):
    first = complete_types(kind)[0]
    return _step("set", st.sampled_from(sorted(_PROPERTIES) + ["Unheard"]), first, value(first))


_CALL = _for_one(_METHODS.items(), lambda name, kind: _step("call", name, kind, values(kind)))
_RECORD = _for_one([(kind, word) for kind in ("Video", "PhotoTalk", "AutoLog")
                    for word in ("Start", "Stop", "Pause", "Resume")], _order)
_START = _for_one(["Video", "PhotoTalk", "AutoLog"], lambda kind: _order(kind, "Start"))
_SOUND = _step("call", "PlayAudio", "s", st.sampled_from(HOSTILE_SOUNDS).map(lambda name: [name]))
_PROPERTY = st.one_of(
    _step("get", st.sampled_from(sorted(_PROPERTIES))),
    _for_one(_WRITABLE.items(), lambda name, kind: _step("set", name, kind, value(kind))))
_WRONG = st.one_of(
    _for_one(_TYPES, lambda kind: _step("call", st.sampled_from(sorted(_METHODS) + ["Unheard"]), kind, values(kind))),
    _for_one(_TYPES, _other_value), _step("get_all"), _step("introspect"))
_FAULT = st.one_of(
    _step("fault", _SIBLING, _FAULTS, st.integers(1, 3)), _step("fault_at", st.integers(0, 24), _FAULTS),
    _for_one(_LATE, lambda sibling, member: _step("fault_on", sibling, member, _FAULTS)),
    _step("code", _SIBLING, st.sampled_from([-1, 1, 2, 7, 9, 10, 24, -2 ** 31, 2 ** 31 - 1]), st.integers(1, 3)))
_ANSWER = _for_one(_ASKED, _own_answer) | _for_one(_ASKED, _other_answer)
_GREAT = (_for_one(_ARRAYS, lambda sibling, member, kind: _step("many", sibling, member, kind))
          | _step("flood", st.sampled_from(_ON_USER_BUS)))
_TELL = st.one_of(
    _for_one(_TOLD, lambda *item: _step("tell", *item, values(item[-1]))), _for_one(_TOLD, _other_signal),
    _for_one(_CHANGED, lambda *item: _step("tell_change", *item, value("v"))))
_WORLD = st.one_of(
    _step("storage", _STORAGE_EVENTS, st.sampled_from(["internal", "card"])), _step("pull", "card"),
    _step("grow", _KINDS, st.booleans()), _step("change", _KINDS, st.sampled_from([0, 1, 2, 3, -1])),
    _step("break_playback"), _step("job", st.booleans()), _step("power", st.sampled_from([0, 1, 7])),
    _step("sync", st.booleans()), _step("zone", st.sampled_from(TEXTS + ["CCU/London", "CCU/DST/London"])),
    _step("key", st.sampled_from([1, 30, 59, 248])), _step("vanish", _SIBLING), _step("return", _SIBLING),
    _step("calm"))

#: One step; each kind as often as it stands here.
STEP = st.one_of(_CALL, _CALL, _RECORD, _START, _SOUND, _PROPERTY, _WRONG, _FAULT, _FAULT, _ANSWER, _GREAT, _TELL,
                 _TELL, _WORLD, _WORLD)
