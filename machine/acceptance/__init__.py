"""What the machine is there to show: cases, each on a machine of its own, and the table of what was seen."""

import sys
import time
import traceback

from ..sockets import Gone
from . import devices, life, media, packages, system
from .case import Unit

#: In the order of a reader who wants to know whether it starts before anything else.
_ALL = [case for part in (life, devices, media, system, packages) for case in part.CASES]


class Outcome:
    """A row of the table."""

    def __init__(self, name, seen, passed, seconds):
        self.name, self.seen, self.passed, self.seconds = name, seen, passed, seconds


def table(outcomes):
    """The rows as text, and what they come to."""
    width = max(len(outcome.name) for outcome in outcomes)
    lines = [f"{'test':{width}}  {'':4}  {'s':>4}  seen"]
    for outcome in outcomes:
        first, *others = outcome.seen or ["nothing"]
        lines.append(f"{outcome.name:{width}}  {'pass' if outcome.passed else 'FAIL'}  {outcome.seconds:4.0f}  {first}")
        lines += [f"{'':{width}}  {'':4}  {'':4}  {seen}" for seen in others]
    failed = sum(not outcome.passed for outcome in outcomes)
    lines.append(f"{len(outcomes) - failed} passed, {failed} failed")
    return "\n".join(lines)


class Cases:
    """Those that have one of the words in their names, or all."""

    def __init__(self, words):
        self._chosen = [case for case in _ALL if not words or any(word in case.name for word in words)]

    @property
    def names(self):
        """Their names."""
        return [case.name for case in self._chosen]

    def run(self, image, packages_folder):
        """Runs them one after the other, and prints the table; 1 when one has failed."""
        outcomes = []
        for case in self._chosen:
            outcomes.append(_run(case, image, packages_folder))
            print(f"{case.name}: {'pass' if outcomes[-1].passed else 'FAIL'}", file=sys.stderr, flush=True)
        print(table(outcomes))
        return 0 if all(outcome.passed for outcome in outcomes) else 1


def _run(case, image, packages_folder):
    began = time.monotonic()
    unit = Unit(image, packages_folder, case.name)
    passed = False
    try:
        if case.state is not None:
            unit.start(case.state)
        case.run(unit)
        passed = True
    except (AssertionError, Gone, RuntimeError, TimeoutError, OSError) as problem:
        print(f"{case.name}:\n{traceback.format_exc()}{unit.report()}", file=sys.stderr)
        unit.see(f"not so: {str(problem).splitlines()[0] if str(problem) else type(problem).__name__}")
    finally:
        unit.stop()
    return Outcome(case.name, unit.seen, passed, time.monotonic() - began)
