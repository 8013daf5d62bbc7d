"""What a chapter of the demo plays on: its unit, the calls and events in it, and the comparison of every outcome."""

import difflib
from dataclasses import dataclass, field

from .client import DbusFailure
from .control import Control, command

#: Texts of the codes that a capture is answered with.
ANSWERS = {
    0: "Ran successfully",
    -1: "Unknown error",
    -2: "Power is too low - unable to record",
    -3: "Storage is too low - unable to record",
    -4: "Unable to create path for recording",
    -7: "No current job - unable to record",
    -8: "Not in correct state to perform record action",
    -10: "Failed to add media item to job",
}


@dataclass(frozen=True)
class Failure:
    """A step that did not come out as it should, and what had happened last before it."""
    chapter: str
    what: str
    differences: tuple
    after: str = "the start"


@dataclass
class Result:
    """What the chapters have come to so far; `logs` maps a chapter to the lines of its daemon."""
    steps: int = 0
    calls: int = 0
    log_lines: int = 0
    failures: list = field(default_factory=list)
    logs: dict = field(default_factory=dict)

    def fail(self, show, failure):
        """Shows and keeps a failure."""
        self.failures.append(failure)
        show.bad(failure.what, failure.differences)

    def note(self, chapter, unit):
        """Adds up what a chapter's unit has seen."""
        self.calls += len(unit.calls)
        self.log_lines += len(unit.log.lines())
        self.logs[chapter] = list(filter(None, (unit.log.format() + "\n" + unit.daemon.errors()).splitlines()))


def describe(value):
    """A value in plain words."""
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, tuple) and len(value) == 2 and isinstance(value[1], str):
        return f'{value[0]} "{value[1]}"'
    if isinstance(value, (list, tuple)):
        return ", ".join(map(describe, value)) or "none"
    return str(value)


def differences(got, expected):
    """Lines that tell what is wrong: of two lists only the entries that differ."""
    if isinstance(got, list) and isinstance(expected, list):
        marks = {"- ": "expected, missing: ", "+ ": "got, not expected: "}
        compared = difflib.ndiff([repr(entry) for entry in expected], [repr(entry) for entry in got])
        return tuple(marks[line[:2]] + line[2:] for line in compared if line[:2] in marks)
    return f"expected  {expected!r}", f"got       {got!r}"


class Stage:
    """One chapter's unit; `unit_ms` and `daemon_ms` are the milliseconds that it and the daemon took to start."""

    def __init__(self, show, unit, chapter, result):
        self.show, self.unit = show, unit
        self.unit_ms = self.daemon_ms = 0
        self._chapter, self._result = chapter, result
        self._control = Control(unit.build_dir, unit)
        self._mark = unit.calls.mark()
        self._last = Failure.after

    def _plain(self, text):
        return text.replace(self.unit.directory, "UNIT")

    # Outcomes ---------------------------------------------------------------------------------------------------------

    def check(self, what, got, expected, shown=None):
        """Compares one outcome, shows it (in the words of `shown` if given); returns whether it is as it should be."""
        self._result.steps += 1
        if got == expected:
            self.show.good(what, self._plain(describe(got) if shown is None else shown))
            return True
        self.fail(what, differences(got, expected))
        return False

    def fail(self, what, lines):
        """Shows and keeps a failure."""
        self._result.fail(self.show, Failure(self._chapter, what, tuple(map(self._plain, lines)), self._last))

    # What happens -----------------------------------------------------------------------------------------------------

    def tell(self, text):
        """Says in plain words what comes."""
        self.show.tell(self._plain(text))

    def _begin(self, text):
        self._last = self._plain(text)
        self._mark = self.unit.calls.mark()
        return self._last

    def happen(self, text, action, *arguments, **named):
        """Makes something happen to the unit and waits until the daemon has dealt with it."""
        self.show.event(self._begin(text))
        action(*arguments, **named)
        self.unit.settle()

    def call(self, member, *arguments):
        """Calls a method by the command that a user would type, or sets a property; returns the values of the reply,
        or the DbusFailure by which it was refused."""
        self.show.call(self._begin(command(member, arguments)))
        return self._try(self._control.run, member, arguments)

    def call_bus(self, member, signature="", *arguments):
        """Calls a method over the bus, in ways that no command has; returns its reply, or its DbusFailure."""
        self.show.call(self._begin(f"{member} ({', '.join(map(describe, arguments))})"))
        return self._try(self.unit.client.call, member, signature, *arguments)

    def _try(self, call, *arguments):
        try:
            return call(*arguments)
        except DbusFailure as failure:
            return failure
        finally:
            self.unit.settle()

    def order(self, code, member, *arguments):
        """Calls a capture method that must answer with the code and its text; returns whether it did."""
        return self.check("reply", self.call(member, *arguments), (code, ANSWERS[code]))

    # What came of it --------------------------------------------------------------------------------------------------

    @property
    def calls(self):
        """What the siblings were asked since the last call or event, as (sibling, member)."""
        return self.unit.calls.members(since=self._mark)

    def check_asked(self, *groups, by_command=()):
        """Compares what the daemon asked its siblings, in order, with groups of (sibling, members, purpose). What the
        command asked them itself, when it had the daemon's reply, came among the last calls at any place."""
        expected = [(sibling, member) for sibling, members, _ in groups for member in members.split(", ")]
        calls = self.calls[::-1]
        for question in by_command:
            calls.remove(question)
        if self.check("the daemon asked its siblings", calls[::-1], expected, f"{len(expected)} calls, in this order:"):
            self.show.table(groups)

    def check_signals(self, *expected):
        """Compares the daemon's signals since the last time, which are (member, code, text), and who has sent them."""
        client = self.unit.client
        owner = client.call_bus("GetNameOwner", "s", client.service)
        signals = self._receive()
        self.check("signals", [(signal.member, *signal.args, signal.sender) for signal in signals],
                   [(*signal, owner) for signal in expected],
                   f"{len(signals)}, sent by the daemon" if signals else "none")

    def take_signals(self):
        """The daemon's signals since the last time, as (member, *arguments), whatever connection they came from."""
        return [(signal.member, *signal.args) for signal in self._receive()]

    def take_changes(self):
        """The changes of the daemon's properties since the last time, a dictionary a signal."""
        self.unit.settle()
        changes = [signal.args[1] for signal in self.unit.client.signals if signal.member == "PropertiesChanged"]
        self.unit.client.clear()
        for change in changes:
            self.show.signal(f"PropertiesChanged ({', '.join(f'{name} {describe(change[name])}' for name in change)})")
        return changes

    def _receive(self):
        client = self.unit.client
        self.unit.settle()
        signals = client.announced
        client.clear()
        for signal in signals:
            self.show.signal(f"{signal.member} ({describe(signal.args)})")
        return signals
