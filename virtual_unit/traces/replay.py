"""`replay`: gives the unmodified daemon what a trace gave it, and tells where it does something else.

One connection to each bus has all siblings' names and is every client: it answers each call of the daemon as the trace
does, and sends requests and signals when the daemon has done all that came before them there.  So it sees what the
daemon does in one order, the bus's.  What the trace tells of a virtual unit's devices and files happens again.
"""

import contextlib
import difflib
import itertools
import os
import re
import select
import time

from jeepney import HeaderFields, MessageFlag, MessageType

from .. import archive
from ..client import PATH as CONTROLLER_PATH, SERVICE as CONTROLLER
from ..declaration import PEER
from ..patience import PATIENCE
from ..syslog import SyslogReader
from ..unit import AT_ONCE, SERVICES, VirtualUnit
from .bus import BUS, Bus
from .compare import Difference, Outcome, mapped, same
from .file import SESSION, SYSTEM, Captured
from .guess import Guess
from .happen import happen
from .sequence import value_text
from .story import OF_DAEMON, Kind, Step, happening

_TIMEDATED = "org.freedesktop.timedate1"
#: Stands for the folder of the unit, in what is compared.
_UNIT = "UNIT"
#: What differs from run to run in texts: unique names, and screenshots, which are named by the time.
_MASKS = ((re.compile(r":1\.\d+"), ":1.*"), (re.compile(r"screenshot_[^/]*\.png"), "screenshot_*.png"))
_QUIET_SECONDS = 0.05
#: Questions to the bus, behind which it has told of a daemon that has ended.
_FAREWELLS = 3
#: What is compared besides messages.
_LINES = "log line"
#: Differences, after which a daemon is another one.
_MOST = 200


class _Enough(Exception):
    """The first difference was found."""


class Replay:
    """Replays a story on a unit of its own.

    keep_going  tells all differences instead of the first
    make_unit   what the unit is made with; takes the options of VirtualUnit
    patience    seconds after which a daemon that has nothing to wait for hangs
    """

    def __init__(self, story, keep_going=False, make_unit=VirtualUnit, patience=PATIENCE):
        self._story, self._keep_going = story, keep_going
        self._unit = make_unit(daemon=not story.has_start, bus_timeout=AT_ONCE)
        self._outcome = Outcome({kind.value: 0 for kind in OF_DAEMON} | {_LINES: 0})
        self._buses = {}
        self._places = []
        self._guess = None  # of a real unit, of which no more is known
        self._log = None
        self._recorded, self._logged = [], []  # lines as they are compared
        self._clock_offset = 0
        self._patience = patience
        self._hangs = False
        self._done = 0  # steps

    def run(self):
        """Returns the Outcome."""
        began = time.monotonic()
        self._unit.start()
        try:
            self._prepare()
            with contextlib.suppress(_Enough):
                self._play()
        finally:
            problems = self._unit.discard()
            for bus in self._buses.values():
                bus.connection.close()
        if problems and self._outcome.same:
            self._note("other", None, "the daemon", None, "\n".join(problems))
        self._outcome.seconds = time.monotonic() - began
        self._outcome.recorded_seconds = self._story.ended - self._story.began
        return self._outcome

    # The stage --------------------------------------------------------------------------------------------------------

    def _prepare(self):
        unit, story = self._unit, self._story
        if story.unit is not None and not story.has_start:
            path = os.path.join(unit.directory, "recorded.tar.gz")
            with open(path, "wb") as file:
                file.write(story.unit)
            archive.load(unit, path)
        if unit.daemon_alive:
            unit.settle()
        for name, address in ((SESSION, unit.session_address), (SYSTEM, unit.system_address)):
            if name not in story.buses:  # without a capture of that bus the unit's own stand-in answers
                continue
            siblings = [one for one in unit.siblings.values() if (one.service == _TIMEDATED) == (name == SYSTEM)]
            for sibling in siblings:
                sibling.die()
            self._buses[name] = Bus(name, address)
            self._buses[name].expected = [step for step in story.steps if step.bus == name and step.kind in OF_DAEMON]
            self._buses[name].take([sibling.service for sibling in siblings])
        unit.simulation.die()
        if story.folder:
            self._places = [(story.folder, unit.directory)]
        else:
            self._guess = Guess(story, unit.directory)
            self._places = self._guess.places
        self._recorded = [self._line(line.level, line.text) for line in story.log]
        self._log = SyslogReader(unit.daemon.log_path)
        self._log.clear()

    def _here(self, text):
        """A text of the trace with the places of this unit."""
        for there, here in self._places:
            text = text.replace(there, here)
        return text

    def _plain(self, text):
        """A text of the trace or of this unit, as it is compared."""
        for number, place in enumerate(self._places):
            for path in place:
                text = text.replace(path, f"{_UNIT}{number or ''}")
        for mask, instead in _MASKS:
            text = mask.sub(instead, text)
        return text

    # Playing ----------------------------------------------------------------------------------------------------------

    def _play(self):
        within = {id(step) for call in self._story.steps for step in call.meanwhile}
        asked = set()
        for step in self._story.steps:
            if step.kind is Kind.ANSWER:
                asked.discard(id(step.question))
            if step.kind in OF_DAEMON or step.kind is Kind.REPLY or id(step) in within:
                asked.update(id(one) for one in step.meanwhile if one.kind is Kind.REQUEST and one.answer)
                continue
            self._wait_for(step, settled=not asked)
            if step.kind is Kind.REQUEST and step.answer:
                asked.add(id(step))
            self._do(step)
        self._wait_for(None, settled=True)
        self._compare_log(whole=True)

    def _wait_for(self, step, settled):
        """Waits until the daemon has done all that came before the step, and nothing else is left to it."""
        number = step.number if step else len(self._story.steps) + 1

        def missing():
            return [one for bus in self._buses.values() if step is None or bus.name == step.bus
                    for one in itertools.takewhile(lambda one: one.number < number, bus.expected)]

        self._pump(lambda: not missing(), _QUIET_SECONDS)
        if settled or missing():
            self._settle()
        self._compare_log()
        for one in missing():
            self._buses[one.bus].expected.remove(one)
            self._differs("missing", one, recorded=self._text(one))

    def _settle(self):
        """Lets the daemon deal with all that it was sent; what its calls bring about is sent behind the pings."""
        done = None
        while done != self._done:
            done = self._done
            self._ping(self._unit.client.connections_of(self._unit.pid))
        if not (self._unit.daemon_alive or self._hangs):
            for _ in range(_FAREWELLS):
                self._ping([BUS.bus_name])

    def _ping(self, connections):
        """Waits until each has answered, or the bus for what has gone."""
        self._unit.input.wait_read()
        bus = self._buses[SESSION]
        for connection in connections:
            bus.pings.add(bus.send(MessageType.method_call, {
                HeaderFields.destination: connection, HeaderFields.path: "/", HeaderFields.interface: PEER,
                HeaderFields.member: "Ping"}, None, ()))
        if not self._pump(lambda: not bus.pings, self._patience):
            self._unit.kill()  # what it was to do is missing
            self._hangs = True

    def _pump(self, done, quiet):
        """Deals with what comes until that is done, or nothing has come for some seconds; returns whether it is done."""
        while not done():
            sockets = [bus.connection.sock for bus in self._buses.values()]
            if not select.select(sockets, [], [], quiet)[0]:
                return done()
            for bus in self._buses.values():
                for message in bus.received():
                    self._receive(bus, message)
        return True

    def _receive(self, bus, message):
        one = Captured(time.time(), bus.name, message)
        if one.is_call:
            if one.interface == PEER:
                self._send_answer(bus, one, MessageType.method_return, None, "", ())
            else:
                self._observe(bus, Kind.CALL, one)
        elif one.is_signal:
            if str(one.path).startswith(CONTROLLER_PATH):
                self._observe(bus, Kind.TOLD, one)
        elif one.answered in bus.pings:
            bus.pings.discard(one.answered)
        elif one.answered in bus.requests:
            self._observe(bus, Kind.ANSWER, one, bus.requests[one.answered])

    # What the daemon does ---------------------------------------------------------------------------------------------

    def _content(self, kind, one, question):
        """What is compared of a message."""
        body = mapped(one.body, self._plain)
        if kind is Kind.ANSWER:
            return kind, question, one.error, one.signature, body
        return (kind, one.destination if kind is Kind.CALL else None, self._plain(one.path), one.interface, one.member,
                one.signature, body)

    def _fits(self, step, content):
        """Whether that is the step, whatever time it tells."""
        recorded = self._content(step.kind, step.captured, step.question)
        return recorded[:-1] == content[:-1] and same(step.name, recorded[-1], content[-1])

    def _observe(self, bus, kind, one, question=None):
        self._compare_log()
        content = self._content(kind, one, question)
        found = self._find(bus, content)
        if found is not None:
            self._outcome.compared[kind.value] += 1
        else:
            found = self._unfound(bus, Step(kind, one, "controller", question=question), content)
        known = found
        if found is not None:
            bus.expected.remove(found)
        elif kind is Kind.CALL:  # answered like another of its kind
            known = next((step for step in self._story.steps if step.kind is kind and self._fits(step, content)), None)
        if kind is Kind.CALL:
            self._answer(bus, one, known, is_expected=found is not None)

    def _find(self, bus, content):
        """The step that it is: the next one.  What comes over a connection of its own, as TimeChanged does, may be a
        place before or behind what comes over another at the same time."""
        for place, step in enumerate(bus.expected[:2]):
            if self._fits(step, content) and (place == 0 or step.aside or bus.expected[0].aside):
                return step
        return None

    def _unfound(self, bus, came, content):
        """Tells the difference; returns the step in whose place that came, None when it is one too many."""
        text = self._text(came)
        head = bus.expected[0] if bus.expected else None
        later = next((step for step in bus.expected if self._fits(step, content)), None)
        if later is not None and not any(step.kind is Kind.REQUEST
                                         for step in self._story.steps[head.number:later.number]):
            for step in bus.expected[:bus.expected.index(later)]:
                bus.expected.remove(step)
                self._differs("missing", step, recorded=self._text(step), replayed=text)
            return later
        if head is not None and self._is_like(head, came, content):
            self._differs("other", head, recorded=self._text(head), replayed=text)
            return head
        self._differs("additional", head, what=came.kind.value, recorded=head and self._text(head), replayed=text)
        return None

    def _is_like(self, step, came, content):
        """Whether it is the step with other values."""
        if came.kind is Kind.ANSWER:
            return step.question is came.question
        return step.name == came.name and self._content(step.kind, step.captured, None)[:-2] == content[:-2]

    def _answer(self, bus, one, step, is_expected):
        """Answers a call as the trace does."""
        if step is None:
            self._send_answer(bus, one, MessageType.error, "org.freedesktop.DBus.Error.Failed", "s",
                              ("the trace has no such call",))
            return
        for other in step.meanwhile if is_expected else ():
            self._do(other)
        if step.answer is None:
            self._unit.give_up(self._unit.pid)
            return
        reply = step.answer.captured
        self._follow_timedated(step)
        if self._guess:
            self._guess.answered(step)
        self._send_answer(bus, one, reply.kind, reply.error, reply.signature, mapped(reply.body, self._here))

    @staticmethod
    def _send_answer(bus, call, kind, error, signature, body):
        bus.send(kind, {HeaderFields.reply_serial: call.serial, HeaderFields.destination: call.sender,
                        HeaderFields.error_name: error}, signature, body, MessageFlag.no_reply_expected)

    def _follow_timedated(self, step):
        """The unit's clock and zone are what timedated has been told."""
        call = step.captured
        if call.destination != _TIMEDATED or step.answer.captured.error:
            return
        if call.member == "SetTimezone":
            self._unit.point_local_time(call.body[0])
        elif call.member == "SetTime" and not call.body[1]:
            self._clock_offset = call.body[0] - int(call.time * 1e6)
            self._unit.clock.set_usec(call.body[0])

    # What happens to it -----------------------------------------------------------------------------------------------

    def _do(self, step):
        self._done += 1
        self._unit.clock.set_usec(int(step.captured.time * 1e6) + self._clock_offset)
        if self._guess:
            self._guess.before(step)
        if step.kind is Kind.REQUEST:
            self._request(step)
        elif step.kind is Kind.SIGNAL:
            one = step.captured
            if one.interface.endswith(".Properties") and "Timezone" in one.body[1]:
                self._unit.point_local_time(one.body[1]["Timezone"][1])
            self._buses[step.bus].send(MessageType.signal, {
                HeaderFields.path: one.path, HeaderFields.interface: one.interface, HeaderFields.member: one.member,
            }, one.signature, mapped(one.body, self._here))
        elif step.kind is Kind.HAPPENING:
            what, arguments, content = happening(step)
            if what == "clock":
                self._clock_offset = arguments[0]
            else:
                happen(self._unit, self._places, what, arguments, content)
        elif step.kind is Kind.START:
            self._start()
        elif self._unit.daemon_alive:
            self._unit.stop_daemon()

    def _request(self, step):
        bus, one = self._buses[step.bus], step.captured
        flags = one.message.header.flags & MessageFlag.no_reply_expected
        serial = bus.send(MessageType.method_call, {
            HeaderFields.destination: CONTROLLER, HeaderFields.path: one.path,
            HeaderFields.interface: one.interface or None, HeaderFields.member: one.member},
            one.signature, mapped(one.body, self._here), flags)
        bus.requests[serial] = step

    def _start(self):
        self._unit.start_daemon(wait=False)
        deadline = time.monotonic() + PATIENCE
        while not self._unit.ready and self._unit.daemon_alive and time.monotonic() < deadline:
            self._pump(lambda: self._unit.ready, _QUIET_SECONDS)

    # The log ----------------------------------------------------------------------------------------------------------

    def _line(self, level, text):
        """A line as it is compared: the journal takes blanks off its ends."""
        return f"<{level}> {self._plain(text).strip()}"

    def _read_log(self):
        """Takes the lines that the daemon has logged since the last time."""
        new = self._log.since(len(self._logged))
        self._logged.extend(self._line(line.priority, line.text) for line in new)

    def _compare_log(self, whole=False):
        """Compares what the daemon has logged so far and tells the first difference; at the end also what is missing,
        and all differences if they are wanted."""
        recorded, logged = self._recorded, self._logged
        if not recorded:
            return
        self._read_log()
        place = self._outcome.compared[_LINES]
        while place < min(len(recorded), len(logged)) and recorded[place] == logged[place]:
            place += 1
        self._outcome.compared[_LINES] = place
        if place < len(logged) and not self._keep_going:
            step = next((one for bus in self._buses.values() for one in bus.expected), self._story.steps[-1])
            self._differs_in_log(recorded[place:place + 1], logged[place:place + 1], place, step)
        if whole:
            for kind, *ends in difflib.SequenceMatcher(None, recorded, logged, False).get_opcodes():
                if kind != "equal":
                    self._differs_in_log(recorded[ends[0]:ends[1]], logged[ends[2]:ends[3]], ends[0],
                                         self._step_of_line(ends[0]))

    def _step_of_line(self, place):
        """The step about which a line was recorded: by its time, which is a little late."""
        log = self._story.log
        time_of_line = log[min(place, len(log) - 1)].time
        return next((step for step in reversed(self._story.steps) if step.captured.time <= time_of_line),
                    self._story.steps[0])

    def _differs_in_log(self, recorded, texts, place, step):
        kind = "other" if recorded and texts else "missing" if recorded else "additional"
        self._differs(kind, step, f"line {place + 1} of the log", "\n".join(recorded) or None, "\n".join(texts) or None)

    # Words ------------------------------------------------------------------------------------------------------------

    def _note(self, kind, step, what, recorded, replayed):
        number = step.number if step else len(self._story.steps)
        self._outcome.differences.append(Difference(kind, number, what, recorded, replayed))

    def _differs(self, kind, step, what=None, recorded=None, replayed=None):
        if replayed is None and not self._unit.daemon_alive:
            replayed = "the daemon hangs" if self._hangs else "the daemon has ended"
        self._note(kind, step, what or (step.kind.value if step else "call"), recorded, replayed)
        if not self._keep_going or len(self._outcome.differences) == _MOST:
            raise _Enough

    def _text(self, step):
        text = self._plain(f"{step.name} ({value_text(step.values)})")
        if step.kind is Kind.ANSWER:
            return f"answer to {text}"
        if step.kind is Kind.CALL:
            return f"call of {SERVICES.get(step.captured.destination)}: {text}"
        return f"signal {text}"
