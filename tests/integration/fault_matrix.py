"""Every call that a scenario makes, met by every kind of failure.

The calls are not picked by hand: a scenario is run once in peace, and then once for each call of that run's own log
and each fault.  A scenario prepares a unit, acts on it, walks through its model to tell what must come of it, and
shows that life goes on.
"""

import re

from tests.integration.recording_model import Model
from tests.integration.recording_texts import ERROR, lines_of
from virtual_unit import ABSENT, DIE, REFUSE, SILENT, WRONG_TYPE, VirtualUnit

FAULTS = {"absent": ABSENT, "refuse": REFUSE, "wrong type": WRONG_TYPE, "silent": SILENT, "die": DIE}
#: Patience of the daemon's bus library, so that tests need not wait its 25 seconds.
SILENT_SECONDS = 0.5


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


def run(scenario, fault=None, index=None):
    """Runs a scenario, with a fault at the call with that index; returns its calls."""
    with VirtualUnit(bus_timeout=SILENT_SECONDS if fault is SILENT else None) as unit:
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
        scenario.life_goes_on(unit)
        return made


def fail_every_call(make, fault):
    """Runs the scenarios that `make` makes, one for each call, with a fault at that call."""
    failures = []
    for index, call in enumerate(run(make())):
        try:
            run(make(), FAULTS[fault], index)
        except AssertionError as failure:
            failures.append(f"{index} {call}: {failure}")
    assert not failures, "\n".join(failures)
