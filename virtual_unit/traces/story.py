"""What a trace tells: requests to the controller, its calls to siblings, signals, and what happened beside the buses.

A message knows connections, not programs.  Whose a connection is follows from the names that it owns, from what the bus
was asked about it (a virtual unit asks while it is recorded), or else from what it does: the controller opens one for
each call to a sibling, and makes one call over it.
"""

import collections
import enum
import json
import re
import zlib
from dataclasses import dataclass, field

from jeepney import DBusAddress, MessageType, new_signal

from ..client import PATH as CONTROLLER_PATH, SERVICE as CONTROLLER
from ..declaration import PEER, PROPERTIES
from ..simulation_names import ROOT, SERVICE as SIMULATION
from ..unit import SERVICES
from .file import SESSION, Captured, Unreadable

_BUS = "org.freedesktop.DBus"
#: What the daemon logs of a key: its code, and whether it beeps.
_KEY = re.compile(r"KeyPress: Got keyCode (\d+), keypadBeepEnabled (\d)")


class Kind(enum.Enum):
    """What a step is."""
    REQUEST = "request"
    ANSWER = "answer"
    CALL = "call"
    REPLY = "reply"
    TOLD = "signal"
    SIGNAL = "sibling's signal"
    HAPPENING = "happening"
    START = "start of the daemon"
    END = "end of the daemon"


#: What the daemon itself does.
OF_DAEMON = (Kind.ANSWER, Kind.CALL, Kind.TOLD)


@dataclass(eq=False)
class Step:
    """One thing that happened.  `who` and `whom` name programs; `answer` is that of a request, or the reply to a call;
    `meanwhile` is what happened to the daemon while it waited for the reply."""
    kind: Kind
    captured: Captured
    who: str
    whom: str = ""
    answer: "Step" = None
    question: "Step" = None
    number: int = 0
    meanwhile: list = field(default_factory=list)
    aside: bool = False  # over a connection of its own

    @property
    def bus(self):
        """The bus on which it passed."""
        return self.captured.bus

    @property
    def name(self):
        """What is called or said, properties by their names."""
        asked = (self.question or self).captured
        if asked.interface == PROPERTIES and asked.body:
            return " ".join([asked.member, *(str(part) for part in asked.body[1:2] if isinstance(part, str))])
        return asked.member or ""

    @property
    def values(self):
        """The arguments without what `name` has of them; an error's name and text."""
        if self.captured.error:
            return (self.captured.error, *self.captured.body)
        if self.captured.interface == PROPERTIES and self.captured.is_call:
            return self.captured.body[2:]
        return self.captured.body


def happening(step):
    """What has happened, its arguments and the content of a file."""
    try:
        what, arguments, content = step.captured.body
        return what, json.loads(arguments), zlib.decompress(content) if content else b""
    except (ValueError, TypeError, zlib.error) as error:
        raise Unreadable(f"a happening in it cannot be understood: {error}") from error


class _Connections:
    """Whose the connections are."""

    def __init__(self, messages):
        self._names = {}  # of (bus, unique name)
        self._asked = {}
        self._processes = {}
        self._calls = collections.Counter()
        self._clients = {}
        self._daemons = set()
        waiting = {}
        for one in messages:
            if one.is_call:
                self._note_call(one, waiting)
            elif one.is_signal:
                self._note_signal(one)
            else:
                self._note_answer(one, waiting.pop((one.bus, one.destination, one.answered), None))
        self._daemons.update(self._processes[place] for place, names in self._names.items()
                             if CONTROLLER in names and place in self._processes)

    def _note_call(self, one, waiting):
        waiting[one.bus, one.sender, one.serial] = one
        if one.destination in SERVICES and one.interface != PEER:
            self._calls[one.bus, one.sender] += 1

    def _note_signal(self, one):
        if one.sender == _BUS and one.member == "NameOwnerChanged" and one.body[2]:
            self._own(one.bus, one.body[2], one.body[0])
        elif one.path == ROOT and one.member == "Happened" and one.body[0] == "daemon":
            self._daemons.add(json.loads(one.body[1])[0])

    def _note_answer(self, one, call):
        if call is None or one.kind is not MessageType.method_return:
            return
        if call.destination != _BUS and not call.destination.startswith(":"):
            self._own(one.bus, one.sender, call.destination)
        elif call.member == "RequestName" and one.body[0] in (1, 4):
            self._own(one.bus, call.sender, call.body[0])
        elif call.member == "GetConnectionUnixProcessID":
            self._processes[one.bus, call.body[0]] = one.body[0]
        elif call.member == "GetNameOwner":
            self._own(one.bus, one.body[0], call.body[0])

    def _own(self, bus, connection, name):
        if not name.startswith(":"):
            self._names.setdefault((bus, connection), set()).add(name)

    def service(self, bus, name):
        """The service that a name, unique or not, stands for; None when it is none of those that are known."""
        known = (CONTROLLER, SIMULATION, *SERVICES)
        return name if name in known else next((one for one in self._names.get((bus, name), ()) if one in known), None)

    def is_daemons(self, bus, connection):
        """Whether it is one of the controller."""
        place = bus, connection
        if CONTROLLER in self._names.get(place, ()):
            return True
        if self._daemons and place in self._processes:
            return self._processes[place] in self._daemons
        return self._calls[place] == 1  # nobody was asked, as by a sibling that is gone

    def client(self, bus, connection):
        """A name for a program that is not known by another."""
        service = self.service(bus, connection)
        if service in SERVICES:
            return SERVICES[service]
        return self._clients.setdefault((bus, connection), f"client {len(self._clients) + 1}")


class Story:
    """The steps of a trace in their order; `log` has the daemon's lines."""

    def __init__(self, trace):
        self.log, self.unit = trace.log, trace.unit
        self.began, self.ended = trace.messages[0].time, trace.messages[-1].time
        self.buses = {one.bus for one in trace.messages}
        self._who = _Connections(trace.messages)
        self._waiting = {}
        self.steps = list(filter(None, map(self._step, trace.messages)))
        self._place_starts()
        if self.folder is None:
            self._add_keys()
        if not self.steps:
            raise Unreadable("nothing in it is the controller's, nor for it")
        for number, step in enumerate(self.steps, 1):
            step.number = number
        self._attach()

    def _step(self, one):
        if one.is_call:
            return self._call(one)
        if one.is_signal:
            return self._signal(one)
        question = self._waiting.pop((one.bus, one.destination, one.answered), None)
        if question is None:
            return None
        kind = Kind.ANSWER if question.kind is Kind.REQUEST else Kind.REPLY
        question.answer = Step(kind, one, question.whom, question.who, question=question)
        return question.answer

    def _call(self, one):
        service = self._who.service(one.bus, one.destination)
        if one.interface == PEER or service in (None, SIMULATION):
            return None
        by_daemon = self._who.is_daemons(one.bus, one.sender)
        if service == CONTROLLER and not (by_daemon and one.sender == one.destination):
            step = Step(Kind.REQUEST, one, self._who.client(one.bus, one.sender), "controller")
        elif service != CONTROLLER and by_daemon:
            step = Step(Kind.CALL, one, "controller", SERVICES[service])
        else:
            return None
        self._waiting[one.bus, one.sender, one.serial] = step
        return step

    def _signal(self, one):
        if one.sender == _BUS:
            if one.member != "NameOwnerChanged" or one.body[0] != CONTROLLER:
                return None
            return Step(Kind.START if one.body[2] else Kind.END, one, "controller")
        if one.path == ROOT:
            return Step(Kind.HAPPENING, one, "unit") if one.member == "Happened" else None
        if str(one.path).startswith(CONTROLLER_PATH):
            return Step(Kind.TOLD, one, "controller",
                        aside=self._who.service(one.bus, one.sender) != CONTROLLER)
        service = self._who.service(one.bus, one.sender)
        return Step(Kind.SIGNAL, one, SERVICES[service]) if service in SERVICES else None

    def _place_starts(self):
        """The daemon starts before the first thing that it does, not when it takes its name."""
        since = 0
        for step in [step for step in self.steps if step.kind in (Kind.START, Kind.END)]:
            place = self.steps.index(step)
            if step.kind is Kind.START:
                first = next(index for index in range(since, place + 1)
                             if self.steps[index].kind in OF_DAEMON or index == place)
                self.steps.insert(first, self.steps.pop(place))
            since = place + 1

    def _add_keys(self):
        """Of a real unit's keys the log knows, and the buzzer."""
        beeps = [step.captured.time for step in self.steps if step.kind is Kind.CALL and step.name == "BeepBuzzer"]
        down, keys = set(), []
        for line, key in ((line, _KEY.search(line.text)) for line in self.log):
            if key is not None:
                code, beep = map(int, key.groups())
                down ^= {code}
                keys.append((beeps.pop(0) if code in down and beep and beeps else line.time, code, int(code in down)))
        before = self.ended
        for when, code, value in reversed(keys):  # in the order of the log, and before what they caused
            before = min(before, when)
            message = new_signal(DBusAddress(ROOT, interface=SIMULATION), "Happened", "ssay",
                                 ("keypad", json.dumps(["key", code, value]), b""))
            place = next((place for place, step in enumerate(self.steps) if step.captured.time >= before),
                         len(self.steps))
            self.steps.insert(place, Step(Kind.HAPPENING, Captured(before, SESSION, message), "unit"))

    def _attach(self):
        """What came between a call of the daemon, which waits, and the reply belongs to the call; a reply that came
        when the daemon had given up is none."""
        waiting = {}
        for step in self.steps:
            call = waiting.get(step.bus)
            if step.kind is Kind.REPLY:
                if call is step.question:
                    del waiting[step.bus]
                else:
                    step.question.answer = None
            elif step.kind in OF_DAEMON:
                waiting.pop(step.bus, None)
                if step.kind is Kind.CALL:
                    waiting[step.bus] = step
            elif call is not None and call.answer is not None:
                call.meanwhile.append(step)
        for call in waiting.values():
            call.answer = None

    @property
    def has_start(self):
        """Whether the daemon did not run when the trace began."""
        return next((step.kind is Kind.START for step in self.steps if step.kind in (Kind.START, Kind.END)), False)

    @property
    def folder(self):
        """The folder of the virtual unit that was recorded; None of a real one."""
        for step in self.steps:
            if step.kind is Kind.HAPPENING and happening(step)[0] == "folder":
                return happening(step)[1][0]
        return None
