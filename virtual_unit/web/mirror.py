"""What a page is to know of a unit, kept up to date by what the control object tells, and the orders that it takes."""

import asyncio
import contextlib
import functools
import json
import time
from collections import deque

import dbus.lowlevel

from interfaces.introspection import controller_members

from ..client import INTERFACE, PATH, Client, DbusFailure
from ..client import SERVICE as CONTROLLER
from ..declaration import PROPERTIES
from ..loop import on_loop
from ..patience import PATIENCE
from ..scenario import arguments_of, property_of
from ..simulation_names import ROOT, SERVICE
from ..values import Typed, plain
from ..verbs import effect_of, nouns, parse_words
from .clockwork import Stopwatch, offsets

#: Lines of calls, signals and the log that a new page gets.
_HISTORY = 400
#: The last of what only grows, such as beeps; a page wants to know how many there were, and these.
_LAST = 8
_LONGEST_TEXT = 600
#: The controller's properties that no other object of the unit shows.
_CONTROLLER_PROPERTIES = ("KeypadBeepEnabled", "AudioFiles")


class _Ear(Client):
    """Hands on every signal of the control object, and the end of the bus; for the thread of the siblings' loop."""

    def __init__(self, session, heard, ended):
        self._heard, self._ended = heard, ended
        super().__init__(session, SERVICE, ROOT, SERVICE)
        self._follow()

    @on_loop
    def _follow(self):
        self._connection.add_match_string(f"type='signal',sender='{SERVICE}'")

    def _filter(self, _connection, message):
        if message.get_type() == dbus.lowlevel.MESSAGE_TYPE_SIGNAL:
            path = str(message.get_path())
            if message.get_member() == "Disconnected" and path == "/org/freedesktop/DBus/Local":
                self._ended()
            elif path.startswith(ROOT):
                self._heard(path.removeprefix(ROOT).lstrip("/") or "unit", str(message.get_member()),
                            [plain(argument) for argument in message.get_args_list()])
        return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED


def _shown(values):
    text = ", ".join(json.dumps(value, ensure_ascii=False, default=str) for value in values)
    return text if len(text) <= _LONGEST_TEXT else text[:_LONGEST_TEXT] + " ..."


def _call_line(sibling, member, arguments, fault=""):
    return {"kind": "call", "who": sibling, "what": member, "text": _shown(arguments), "fault": fault}


def _tail(values):
    return {"count": len(values), "last": values[-_LAST:]}


class Mirror:
    """`state` maps nouns to the values of their properties.  Those beside the control object's own are "controller",
    "times" (how long recordings have lasted), "local" (the zone's distances from UTC) and what others add.

    listener  is told of every change by `state_changed(noun, changes)` and `happened(line)`
    ended     is called when the bus has ended
    """

    def __init__(self, session, zones_folder, listener, ended):
        self._session, self._zones_folder, self._listener = session, zones_folder, listener
        self._loop = asyncio.get_running_loop()
        self._bus_ended = ended
        self.state = {"controller": {}, "times": {}, "local": {"Offsets": []}}
        self.lines = deque(maxlen=_HISTORY)
        self._watches = {}
        self._tasks = set()
        self._ear = None

    async def start(self):
        """Follows the unit from now on; returns when all of its state is known."""
        self._ear = await asyncio.to_thread(_Ear, self._session, functools.partial(self._soon, self._hear),
                                            functools.partial(self._soon, self._bus_ended))
        await self._ask(ROOT, SERVICE, "Subscribe")
        # A reply is taken in the order of the bus, between the signals before and behind it.
        answers = [self._ask(ROOT, SERVICE, "Calls", then=self._take_calls),
                   self._ask(ROOT, SERVICE, "Log", then=self._take_log)]
        answers += [self._ask(noun.path, PROPERTIES, "GetAll", "s", noun.interface,
                              then=functools.partial(self._take_state, noun.name)) for noun in nouns().values()]
        await asyncio.gather(*answers)

    def close(self):
        """Leaves the bus."""
        if self._ear is not None:
            self._ear.close()

    def _soon(self, function, *arguments):
        if not self._loop.is_closed():
            self._loop.call_soon_threadsafe(function, *arguments)

    def _ask(self, path, interface, member, signature="", *arguments, service=SERVICE, then=None):
        # No thread waits for the answer, which may never come: the end of the panel would wait for the thread.
        future = self._ear.request(service, path, interface, member, signature, *arguments, timeout=2 * PATIENCE)
        if then is not None:
            future.add_done_callback(lambda done: done.exception() or self._soon(then, *done.result().args))
        return asyncio.wrap_future(future)

    # What is told -----------------------------------------------------------------------------------------------------

    def _hear(self, noun, member, arguments):
        if member == "PropertiesChanged":
            self._take_state(noun, arguments[1])
        elif member == "Called":
            sibling, _, _, name, values, fault = arguments
            self._happened(_call_line(sibling, name, values, fault))
        elif member == "Logged":
            self._happened({"kind": "log", "level": arguments[0], "text": arguments[1].rstrip()})
        elif member == "Emitted":
            sender, path, _, name, values = arguments
            if sender == "controller" and name == "PropertiesChanged":
                self._take_controller(values[1])
            self._happened({"kind": "signal", "who": sender, "what": name, "text": _shown(values), "path": path})

    async def look(self):
        """Looks at the display: the unit draws, before it answers, what has changed since it was last looked at."""
        front = nouns()["front"]
        with contextlib.suppress(DbusFailure):
            await self._ask(front.path, PROPERTIES, "Get", "ss", front.interface, "Screens",
                            then=lambda screens: self.state["front"].update(Screens=screens))

    def _happened(self, line):
        line["at"] = int(time.time() * 1000)
        self.lines.append(line)
        self._listener.happened(line)

    def _take_calls(self, calls):
        before = [_call_line(sibling, member, values) for _, sibling, _, _, member, values in calls[-_HISTORY // 2:]]
        self.lines.extendleft(reversed(before))

    def _take_log(self, lines):
        before = [{"kind": "log", "level": level, "text": text.rstrip()} for level, text in lines[-_HISTORY // 2:]]
        self.lines.extendleft(reversed(before))

    def _take_state(self, noun, values):
        if noun == "front":
            values = {**values, **{name: _tail(values[name]) for name in ("Beeps", "Played") if name in values}}
        if noun == "daemon" and values.get("Pid"):
            self._spawn(self._ask_controller())
        if noun == "recording":
            self._time(values["Recordings"])
        self.change(noun, values)
        if noun == "clock":
            clock = self.state["clock"]
            local = offsets(self._zones_folder, clock.get("Zone", "UTC"), time.time() + clock.get("Offset", 0) / 1e6)
            self.change("local", {"Offsets": local})

    def change(self, noun, values):
        """Values of a noun are others; also for nouns that the unit does not have."""
        self.state.setdefault(noun, {}).update(values)
        self._listener.state_changed(noun, values)

    def _time(self, recordings):
        for kind, recording in recordings.items():
            self._watches.setdefault(kind, Stopwatch()).follow(recording["State"])
        self.change("times", self.times())

    def times(self):
        """For each kind of recording the seconds that it has lasted, None where nobody knows, and whether they run."""
        return {kind: watch.read() for kind, watch in self._watches.items()}

    def _take_controller(self, values):
        known = {name: value for name, value in values.items() if name in _CONTROLLER_PROPERTIES}
        if known:
            self.change("controller", known)

    async def _ask_controller(self):
        for name in _CONTROLLER_PROPERTIES:
            try:
                value, = (await self._ask(PATH, PROPERTIES, "Get", "ss", INTERFACE, name, service=CONTROLLER)).args
            except DbusFailure:
                continue
            self._take_controller({name: sorted(value) if isinstance(value, list) else value})

    def _spawn(self, work):
        task = asyncio.ensure_future(work)
        self._tasks.add(task)
        task.add_done_callback(self._tasks.discard)

    # Orders -----------------------------------------------------------------------------------------------------------

    async def do(self, words):
        """Has something happen to the unit, in the words of `./ccu do`; returns the line that tells the effect."""
        verb, values = parse_words(words)
        given = [values[argument.name] for argument in verb.inputs]
        reply = await self._ask(verb.path, verb.interface, verb.member, verb.signature, *given)
        return effect_of(verb, values, dict(zip(verb.outputs, reply.args)))

    async def call(self, words):
        """Calls the controller; returns what came of it and whether that is a success."""
        member, signature, values = arguments_of(words)
        names = next([name for _, name in one.outputs] for one in controller_members() if one.name == member)
        reply = (await self._ask(PATH, INTERFACE, member, signature, *values, service=CONTROLLER)).args
        results = dict(zip(names, reply))
        if "code" in results:
            told = f"{results['message']}" + (f" ({results['code']})" if results["code"] else "")
            return f"{member}: {told}", results["code"] == 0
        return f"{member}: {_shown(reply) if reply else 'done'}", True

    async def set(self, words):
        """Sets a property of the controller; returns what it was set to."""
        name, signature, value = property_of(words)
        await self._ask(PATH, PROPERTIES, "Set", "ssv", INTERFACE, name, Typed(signature, value), service=CONTROLLER)
        return f"{name} is {json.dumps(value)}"
