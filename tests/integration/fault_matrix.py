"""Every call that a scenario makes, met by every kind of failure.

The calls are not picked by hand: a scenario is run once in peace, and then once for each call of that run's own log
and each fault.  A scenario prepares a unit, acts on it, walks through its model to tell what must come of it, comes
to rest on what the fault has left, and shows that life goes on.

All scenarios of a file share a unit, which is renewed before each: the daemon keeps nothing between calls, and what one
fault has left in it would show in the next run.
"""

import re

from tests.integration.recording_model import Model
from tests.integration.recording_texts import ERROR, lines_of
from virtual_unit import ABSENT, DIE, REFUSE, SILENT, WRONG_TYPE

FAULTS = {"absent": ABSENT, "refuse": REFUSE, "wrong type": WRONG_TYPE, "silent": SILENT, "die": DIE}


def error_lines(unit, mark):
    """The failure lines since the mark; the answer's own line and the adder's report of its code stand apart."""
    return [text for priority, text in lines_of(unit, mark)
            if priority == ERROR and "sd_bus_message_read ok" not in text and not text.startswith("[")]


def recover(unit):
    """Ends all faults and brings back every sibling that has died of one."""
    unit.faults.clear()
    for sibling in (unit.video, unit.storage, unit.jobs, unit.hardware, unit.settings, unit.sync, unit.timedate):
        if not sibling.alive:
            sibling.revive()
    unit.settle()


def _play(unit, scenario, fault, index):
    """Plays a scenario on a unit that is as new, with a fault at the call with that index; returns its calls."""
    scenario.prepare(unit)
    unit.settle()
    mark, calls = unit.log.mark(), unit.calls.mark()
    if fault is not None:
        unit.faults.at(index, fault)
    answer = scenario.act(unit)
    unit.settle()
    made = unit.calls.members(since=calls)
    model = Model(scenario.kind, -1 if index is None else index, fault)
    scenario.expect(model, unit, answer)
    errors = error_lines(unit, mark)
    assert len(errors) == len(model.errors) and all(map(re.fullmatch, model.errors, errors)), \
        f"expected {model.errors}\ngot {errors}"
    recover(unit)
    return made


class Matrix:
    """The runs of a file's scenarios, on the unit that the lender gives."""

    def __init__(self, lender):
        self._lender = lender

    def _run(self, scenario, fault=None, index=None, goes_on=True):
        """Runs a scenario, and shows if wanted that life goes on; returns the scenario's calls."""
        with self._lender.lend() as unit:
            made = _play(unit, scenario, fault, index)
            scenario.come_to_rest(unit)
            if goes_on:
                scenario.life_goes_on(unit)
            return made

    def run(self, scenario):
        """Runs a scenario in peace; returns its calls."""
        return self._run(scenario)

    def fail_every_call(self, make, fault):
        """Runs the scenarios that `make` makes, one for each call, with a fault at that call.  That life goes on is
        shown by the next of them, and after the last in so many words."""
        failures = []
        calls = self._run(make())
        for index, call in enumerate(calls):
            try:
                self._run(make(), FAULTS[fault], index, goes_on=index == len(calls) - 1)
            except AssertionError as failure:
                failures.append(f"{index} {call}: {failure}")
        assert not failures, "\n".join(failures)
