"""The ordered log of incoming calls and the scripted faults that calls can meet."""

import itertools
import threading
from collections.abc import Sequence
from dataclasses import dataclass

from .patience import PATIENCE


@dataclass(frozen=True)
class Call:
    """One incoming method call; a property access is named by its meaning: "Get X", "Set X" or "GetAll"."""
    index: int
    sibling: str
    path: str
    interface: str
    member: str
    arguments: tuple


class CallLog(Sequence):
    """Every call that reached a sibling of the unit, in the one order in which the loop served them."""

    def __init__(self):
        self._calls = []
        self._next = 0
        self._changed = threading.Condition()

    def __len__(self):
        return len(self._calls)

    def __getitem__(self, index):
        return self._calls[index]

    def __repr__(self):
        return "\n".join(map(repr, self._calls))

    def append(self, sibling, path, interface, member, arguments):
        """Records a call and returns it."""
        with self._changed:
            call = Call(self._next, sibling, path, interface, member, tuple(arguments))
            self._next += 1
            self._calls.append(call)
            self._changed.notify_all()
        return call

    def mark(self):
        """The index that the next call will have."""
        return self._next

    def since(self, mark):
        """The calls from the mark on."""
        return [call for call in list(self._calls) if call.index >= mark]

    def of(self, sibling, member=None, since=0):
        """The calls that reached one sibling, of one member if it is given."""
        return [call for call in self.since(since)
                if call.sibling == sibling and member in (None, call.member)]

    def members(self, sibling=None, since=0):
        """The member names in order, of one sibling or as (sibling, member) pairs of all."""
        if sibling is not None:
            return [call.member for call in self.of(sibling, since=since)]
        return [(call.sibling, call.member) for call in self.since(since)]

    def wait_for(self, sibling, member=None, count=1, timeout=PATIENCE, since=0):
        """Waits until a sibling has got that many such calls and returns them."""
        with self._changed:
            if not self._changed.wait_for(lambda: len(self.of(sibling, member, since)) >= count, timeout):
                raise TimeoutError(f"{count} x {sibling} {member} not seen within {timeout} s; calls were:\n{self!r}")
        return self.of(sibling, member, since)

    def clear(self):
        """Forgets the calls; indexes count on."""
        with self._changed:
            self._calls.clear()


@dataclass(frozen=True)
class Fault:
    """What happens to a call instead of, or besides, being carried out."""
    kind: str
    value: object = 0


#: Answered exactly as the bus answers for a name that nobody owns.
ABSENT = Fault("absent")
#: An error reply of the sibling.
REFUSE = Fault("refuse")
#: A reply of a type that the interface file contradicts.
WRONG_TYPE = Fault("wrong type")
#: Never answered.
SILENT = Fault("silent")
#: The sibling's connection is closed in mid-call, the call is not carried out.
DIE = Fault("die")
#: The call is carried out, then the sibling's connection is closed without an answer.
DIE_AFTER = Fault("die after")


def CODE(number):  # pylint: disable=invalid-name
    """The sibling's own refusal: the first int32 of the reply is the number, the call is not carried out.

    A reply that starts with a boolean instead answers false; one that can carry no code at all is an error reply.
    """
    return Fault("code", number)


def LATE(seconds):  # pylint: disable=invalid-name
    """Carried out at once, answered correctly when the seconds have passed."""
    return Fault("late", seconds)


def MEANWHILE(deed, carried_out):  # pylint: disable=invalid-name
    """When the call arrives `deed` is done on the loop's thread, such as the end of somebody; then the call is carried
    out and answered as ever, or neither."""
    return Fault("meanwhile", (deed, carried_out))


def ANSWER(signature, *values):  # pylint: disable=invalid-name
    """Answered with these values, whatever the interface file declares; the call is not carried out."""
    return Fault("answer", (signature, values))


#: The kinds of faults, as commands name them.
KINDS = ("absent", "refuse", "code", "wrong-type", "silent", "late", "die", "die-after")


class Rule:
    """A fault that waits for its calls, those that fit all that is not None; `hits` counts those that it met.  Its
    number is another than that of every other fault of the unit."""

    def __init__(self, owner, kind, times, index=None, sibling=None, member=None, path=None):
        self.number = None
        self.kind = kind
        self.hits = 0
        self.times, self.index, self.sibling, self.member, self.path = times, index, sibling, member, path
        self._owner = owner

    @property
    def left(self):
        """How many calls it will still meet; 0 for one without end."""
        return 0 if self.times is None else self.times - self.hits

    def hangs(self, sibling):
        """True for the fault of a sibling that answers nothing at all."""
        return self.kind == SILENT and (self.sibling, self.member, self.path, self.times) == (sibling, None, None, None)

    def take(self, call):
        """True when the fault applies to this call, which it then has used up."""
        wanted = ((self.index, call.index), (self.sibling, call.sibling), (self.member, call.member),
                  (self.path, call.path))
        if any(mine not in (None, its) for mine, its in wanted):
            return False
        self.hits += 1
        if self.times is not None and self.hits >= self.times:
            self.cancel()
        return True

    def cancel(self):
        """Ends the fault."""
        self._owner.remove(self)


class Faults:
    """The scripted faults of a unit; a fault set later goes before one set earlier."""

    def __init__(self, calls):
        self._calls = calls
        self._rules = []
        self._numbers = itertools.count(1)
        self._lock = threading.Lock()
        #: Called after each change.
        self.changed = lambda: None

    def at(self, number, kind):
        """The fault meets the call with that number, counted from now over all siblings, 0 being the next."""
        return self._add(kind, 1, index=self._calls.mark() + number)

    def on(self, sibling, member=None, kind=REFUSE, times=None, path=None):
        """The fault meets the calls of a sibling (of one member, on one object), that many times or until cleared."""
        return self._add(kind, times, sibling=sibling, member=member, path=path)

    def _add(self, kind, times, **wanted):
        if not isinstance(kind, Fault):
            raise TypeError(f"{kind!r} is no kind of fault")
        rule = Rule(self, kind, times, **wanted)
        with self._lock:
            rule.number = next(self._numbers)
            self._rules.append(rule)
        self.changed()
        return rule

    def rules(self):
        """Those in force, in the order of their coming."""
        with self._lock:
            return list(self._rules)

    def take(self, call):
        """The fault that meets this call, or None."""
        return next((rule.kind for rule in reversed(self.rules()) if rule.take(call)), None)

    def remove(self, rule):
        """Ends one fault."""
        with self._lock:
            if rule in self._rules:
                self._rules.remove(rule)
        self.changed()

    def clear(self):
        """Ends all faults."""
        with self._lock:
            self._rules.clear()
        self.changed()
