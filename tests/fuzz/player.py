"""Plays the fuzzer's steps on a virtual unit, and judges the daemon after each of them."""

import contextlib
import glob
import os
import re
import tempfile
import time

from interfaces.introspection import controller_members, members
from interfaces.pages import codes, errors
from tests.fuzz import steps
from virtual_unit import ALL_SIBLINGS, ANSWER, AT_ONCE, CODE, DbusFailure, PATIENCE, Typed, VirtualUnit
from virtual_unit import faults, declaration
from virtual_unit.values import complete_types

#: What makes the daemon do a planted wrong, of the build.
PLANTED = os.path.join("tests", "fuzz", "libplanted.so")

_FAULTS = {"absent": faults.ABSENT, "refuse": faults.REFUSE, "wrong type": faults.WRONG_TYPE, "silent": faults.SILENT,
           "die": faults.DIE, "die after": faults.DIE_AFTER}
_MEMBERS = {member.name: member for member in controller_members()}
_BEFORE_OUR_CODE = ("InvalidArgs", "UnknownMethod", "UnknownProperty", "PropertyReadOnly")
#: A conversion of printf that nobody has carried out, and what it makes of nothing.
_CONVERSION = re.compile(r"%[-+ #0']*[\d*]*(\.[\d*]+)?(hh|h|ll|l|z|j|t)?[diouxXeEfgGaAcspnm]|\(null\)")
_POLL_SECONDS = 0.002


#: Kinds of findings after which the daemon is no longer what it was.
LASTING = ("dead", "silent", "leak", "sanitizer", "shell")


class Finding(AssertionError):
    """The daemon has not kept a promise; `kind` tells which."""

    def __init__(self, kind, text):
        super().__init__(f"{kind}: {text}")
        self.kind = kind


class FuzzUnit(VirtualUnit):
    """A unit with small screens and hostile names of sounds; with a wrong planted into the daemon if one is named."""

    def __init__(self, planted=None, **options):
        super().__init__(bus_timeout=AT_ONCE, environment={"CCU_PLANTED": planted}, **options)
        self._planted = planted
        #: What the daemon holds when it is at rest, by the process that holds it.
        self.at_rest = {}

    def _start_siblings(self):
        super()._start_siblings()
        for name in steps.HOSTILE_SOUNDS:
            self.audio.add_sound(name)
        for device in (0, 1):
            self.framebuffers.set(device, 32, 16)
        if self._planted:
            self.daemon.preloads.insert(0, os.path.join(self.build_dir, PLANTED))

    def holdings(self):
        """What the daemon holds now: (descriptors, threads, children)."""
        base = f"/proc/{self.pid}"
        with open(f"{base}/task/{self.pid}/children", encoding="ascii") as file:
            children = len(file.read().split())
        return len(os.listdir(f"{base}/fd")), len(os.listdir(f"{base}/task")), children


def _python(signature, value):
    """The Python value that the siblings send for one that JSON can hold."""
    if signature == "v":
        return Typed(value[0], _python(*value))
    if signature[0] == "(":
        return tuple(_python(*pair) for pair in zip(complete_types(signature[1:-1]), value))
    if signature.startswith("a{"):
        kinds = complete_types(signature[2:-1])
        return {_python(kinds[0], key): _python(kinds[1], item) for key, item in value}
    if signature[0] == "a":
        return [_python(signature[1:], item) for item in value]
    return value


def _refusals(name):
    """Patterns of what a member may be refused with."""
    texts = [text for text, _ in errors(_MEMBERS[name])] if name in _MEMBERS else []
    return [re.sub(r"CODE:\\-\d+", r"CODE:-\\d+", re.escape(text)).replace("NAME", ".*") for text in texts]


def _pairs(title):
    return {(int(code), words) for code, words, _ in codes(title)}


_CODES = {"record": _pairs("recording") | {(-1, "Bad directory")}, "playback": _pairs("playback"),
          **{title: _pairs(title) for title in ("CaptureError", "CaptureSizeLimitReached", "PlaybackError")}}


class Player:
    """Plays lists of steps, each on a unit that is as new.  `patience` is how long the daemon may be silent, `grace` how
    long it may take to come to rest."""

    def __init__(self, unit, patience=PATIENCE, grace=PATIENCE):
        self.unit = unit
        self.patience = patience
        self.grace = grace
        self._mark = 0

    def play(self, listed):
        """Plays all steps; raises a Finding."""
        unit = self.unit
        if unit.pid not in unit.at_rest:
            unit.settle()
            unit.at_rest[unit.pid] = unit.holdings()
        unit.client.strays.clear()
        for step in listed:
            self._mark = unit.log.mark()
            markers = self._markers()
            refused = self._take(step)
            self._judge()
            if refused:
                left = self._markers() - markers
                self._expect(not left, "marker", f"a refused start has left {sorted(left)}")

    @staticmethod
    def _expect(condition, kind, text):
        if not condition:
            raise Finding(kind, text)

    def _take(self, step):
        """Takes a step; returns whether that was a start that was refused."""
        name, *parts = step
        return getattr(self, f"_do_{name}")(*parts)

    # Texts and values -------------------------------------------------------------------------------------------------

    def _text(self, text):
        media = os.path.join(self.unit.directory, "media", "card")
        names = {"@media": media, "@logs": self.unit.logs_folder, "@long": "x" * 70_000,
                 "@recorded": next(iter(sorted(glob.glob(f"{media}/*/*/*.mp4"))), media)}
        word, slash, rest = text.partition("/")
        return names.get(word, word) + slash + rest

    def _meant(self, value):
        if isinstance(value, str):
            return self._text(value)
        return [self._meant(item) for item in value] if isinstance(value, list) else value

    def _values(self, signature, values):
        return [_python(*pair) for pair in zip(complete_types(signature), self._meant(values))]

    # What clients do --------------------------------------------------------------------------------------------------

    def _answer(self, future, text):
        """What a call was answered, by an answer or an error: exactly one of them, before a ping sent after it."""
        client = self.unit.client
        ping = client.request(client.service, "/", declaration.PEER, "Ping", timeout=3 * self.patience)
        try:
            ping.result(self.patience)
        except DbusFailure as failure:
            raise self._end_of(f"{text}, then {failure}") from None
        except TimeoutError:
            raise Finding("silent", f"no answer to a ping after {text}") from None
        self._expect(future.done(), "answers", f"no answer to {text}")
        self._expect(not client.strays, "answers", f"more than one answer to {text}: {client.strays}")
        return future

    def _end_of(self, text):
        """The finding for a daemon that has answered a ping with an error, which is its end."""
        deadline = time.monotonic() + self.patience
        while self.unit.daemon_alive and time.monotonic() < deadline:
            time.sleep(_POLL_SECONDS)
        last_words = [*self.unit.daemon.sanitizer_reports(), self.unit.daemon.errors()]
        return Finding("silent" if self.unit.daemon_alive else "dead", "\n".join([text, *filter(None, last_words)]))

    def _judge_error(self, name, failure, is_right, also=()):
        short = failure.name.removeprefix("org.freedesktop.DBus.Error.")
        if short in _BEFORE_OUR_CODE or (name == "Unheard" and short == "UnknownObject"):
            self._expect(not is_right or name not in _MEMBERS, "refusal", f"{name}: {failure}")
            return
        patterns = [pattern for member in (name, *also) for pattern in _refusals(member)]
        known = short == "Failed" and any(re.fullmatch(pattern, failure.text, re.DOTALL) for pattern in patterns)
        self._expect(known, "refusal", f"{name} was refused with what its description does not know: {failure}")

    def _do_call(self, name, signature, values):
        client = self.unit.client
        arguments = self._values(signature, values)
        text = f"{name} {signature} {arguments!r:.200}"
        answer = self._answer(client.call_async(name, signature, *arguments, timeout=3 * self.patience), text)
        member = _MEMBERS.get(name)
        is_right = member is not None and member.kind == "method" and member.types[0] == signature
        try:
            reply = answer.result(0)
        except DbusFailure as failure:
            self._judge_error(name, failure, is_right)
            return False
        self._expect(is_right, "refusal", f"{text} was answered")
        self._expect(reply.signature == member.types[1], "types", f"{text} was answered with {reply}")
        return self._judge_code(name, reply)

    def _judge_code(self, name, reply):
        if not reply.signature.endswith("is"):
            return False
        pair = reply.args[-2:]
        table = _CODES["playback" if name.startswith("VideoPlayback") else "record"]
        self._expect(pair in table, "code", f"{name} was answered with {reply.args}")
        return name.endswith("RecordStart") and pair[0] != 0

    def _property(self, name, text, is_right, also, member, signature, *arguments):
        client = self.unit.client
        future = client.request(client.service, client.path, declaration.PROPERTIES, member, signature, *arguments,
                                timeout=3 * self.patience)
        try:
            reply = self._answer(future, text).result(0)
        except DbusFailure as failure:
            self._judge_error(name, failure, is_right, also)
            return None
        self._expect(is_right, "refusal", f"{text} was answered")
        return reply

    def _do_get(self, name):
        reply = self._property(name, f"Get {name}", True, (), "Get", "ss", self.unit.client.interface, name)
        kind = {"b": bool, "i": int, "d": float, "s": str, "as": list}[_MEMBERS[name].signature]
        self._expect(reply is None or type(reply.args[0]) is kind, "types", f"Get {name} was answered with {reply}")

    def _do_set(self, name, signature, value):
        value = _python(signature, self._meant(value))
        member = _MEMBERS.get(name)
        is_right = member is not None and member.access == "readwrite" and member.signature == signature
        self._property(name, f"Set {name} {signature} {value!r:.200}", is_right, (), "Set", "ssv",
                       self.unit.client.interface, name, Typed(signature, value))

    def _do_get_all(self):
        names = [name for name, member in _MEMBERS.items() if member.kind == "property"]
        reply = self._property("", "GetAll", True, names, "GetAll", "s", self.unit.client.interface)
        self._expect(reply is None or set(reply.args[0]) == set(names), "types", f"GetAll was answered with {reply}")

    def _do_introspect(self):
        client = self.unit.client
        future = client.request(client.service, client.path, declaration.INTROSPECTABLE, "Introspect",
                                timeout=3 * self.patience)
        found = members(self._answer(future, "Introspect").result(0).args[0], client.interface)
        self._expect({member.name for member in found} == set(_MEMBERS), "types", "introspection lacks members")

    # What siblings do -------------------------------------------------------------------------------------------------

    def _do_fault(self, sibling, kind, times):
        self.unit.faults.on(sibling, kind=_FAULTS[kind], times=times)

    def _do_fault_on(self, sibling, member, kind):
        self.unit.faults.on(sibling, member, kind=_FAULTS[kind], times=1)

    def _do_fault_at(self, number, kind):
        self.unit.faults.at(number, _FAULTS[kind])

    def _do_code(self, sibling, code, times):
        self.unit.faults.on(sibling, kind=CODE(code), times=times)

    def _do_answer(self, sibling, member, signature, values, times):
        self.unit.faults.on(sibling, member, kind=ANSWER(signature, *self._values(signature, values)), times=times)

    def _do_many(self, sibling, member, signature):
        value = _python(signature, steps.many(signature, member))
        answer = ANSWER("v", Typed(signature, value)) if member.startswith("Get ") else ANSWER(signature, value)
        self.unit.faults.on(sibling, member, kind=answer, times=1)

    def _do_flood(self, sibling):
        item = getattr(self.unit, sibling)
        path = next(iter(item.objects), "/")
        changes = {key: Typed("i", 1) for key, _ in steps.many("a{sv}")}
        item.emit_changes(path, item.service, changes)

    def _do_tell(self, sibling, path, interface, member, signature, values):
        getattr(self.unit, sibling).emit(path, interface, member, *self._values(signature, values), signature=signature)

    def _do_tell_change(self, sibling, path, interface, name, value):
        getattr(self.unit, sibling).emit_changes(path, interface, {name: _python("v", self._meant(value))})

    def _do_vanish(self, sibling):
        getattr(self.unit, sibling).die()

    def _do_return(self, sibling):
        getattr(self.unit, sibling).revive()

    def _do_calm(self):
        self.unit.faults.clear()
        for sibling in ALL_SIBLINGS:
            self._do_return(sibling)

    def _do_storage(self, event, device):
        storage, is_there = self.unit.storage, device in self.unit.storage.devices()
        folder = os.path.join(self.unit.directory, "media", device)
        if event == "add":
            if not is_there:
                storage.add_device(device, folder)
        elif is_there:
            {"unmount": lambda: storage.unmount(device), "mount": lambda: storage.mount(device, folder),
             "remove": lambda: storage.remove_device(device), "low": lambda: storage.set_low(device),
             "enough": lambda: storage.set_low(device, False), "read-only": lambda: storage.set_read_only(device),
             "writable": lambda: storage.set_read_only(device, False)}[event]()

    def _do_grow(self, kind, near_limit):
        with contextlib.suppress(OSError):  # where its folder has gone
            self.unit.video.grow(kind, approaching_limit=near_limit)

    def _do_change(self, kind, state):
        self.unit.video.change(kind, state)

    def _do_job(self, is_open):
        if not is_open:
            self.unit.jobs.close()
        elif self.unit.mount_point("card"):
            self.unit.jobs.open()

    def _do_power(self, suffices):
        self.unit.hardware.power_sufficient = suffices

    def _do_break_playback(self):
        self.unit.video.break_playback()

    def _do_pull(self, device):
        folder = os.path.join(self.unit.directory, "media", device)
        if os.path.isdir(folder):
            os.rename(folder, tempfile.mkdtemp(prefix="pulled-", dir=self.unit.directory))
            os.mkdir(folder)
            self._do_storage("remove", device)

    def _do_sync(self, active):
        self.unit.sync.set_active(active)

    def _do_zone(self, zone):
        with contextlib.suppress(OSError):  # where it can be no file's name
            self.unit.timedate.timezone = self._text(zone)

    def _do_key(self, code):
        self.unit.keypad.press(code)
        self.unit.keypad.release(code)

    # What must hold ---------------------------------------------------------------------------------------------------

    def _judge(self):
        unit, client = self.unit, self.unit.client
        self._answer(client.request(client.service, "/", declaration.PEER, "Ping", timeout=3 * self.patience), "a step")
        unit.settle()
        self._expect(unit.daemon_alive, "dead", "the daemon has ended")
        reports = unit.daemon.sanitizer_reports()
        self._expect(not reports, "sanitizer", "\n".join(reports))
        self._judge_signals()
        self._judge_log()
        self._judge_holdings()
        ran = os.path.exists(os.path.join(unit.directory, steps.CANARY))
        tools = {command[0] for command in unit.audio.commands}
        self._expect(not ran and tools <= {"amixer", "aplay"}, "shell", f"a name was run: {unit.audio.commands[-3:]}")
        if unit.errors:
            raise RuntimeError("the simulation has failed:\n" + "\n".join(unit.errors))

    def _judge_signals(self):
        for signal in self.unit.client.announced:
            member = _MEMBERS.get(signal.member)
            is_right = member is not None and member.kind == "signal" and signal.signature == member.types[1]
            self._expect(is_right, "types", f"{signal} is not of the interface")
            table = _CODES.get(signal.member)
            self._expect(table is None or signal.args in table, "code", f"{signal.member} {signal.args}")
        self.unit.client.clear()

    def _judge_log(self):
        for line in self.unit.log.since(self._mark):
            text = line.text
            if "{format" in text:
                self._expect(steps.FORMAT_TEXT in text, "log", f"a text was taken for a format: {text}")
                text = text.replace(steps.FORMAT_TEXT, "")
            self._expect(not _CONVERSION.search(text), "log", f"a format without its value: {text}")

    def _judge_holdings(self):
        """At rest, which comes soon when a sound was played, the daemon holds what it held at first."""
        deadline = time.monotonic() + self.grace
        wanted = self.unit.at_rest[self.unit.pid]
        while (held := self.unit.holdings()) != wanted:
            self._expect(time.monotonic() < deadline, "leak",
                         f"descriptors, threads and children were {wanted}, are {held}")
            time.sleep(_POLL_SECONDS)

    def _markers(self):
        return set(glob.glob(os.path.join(self.unit.directory, "media", "**", ".*-rec*"), recursive=True))
