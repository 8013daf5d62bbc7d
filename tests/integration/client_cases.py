"""What a client operation should do, as data, and what holds each case against a simulated sibling and its faults."""

import contextlib
import errno
import functools
import os
import subprocess
from dataclasses import dataclass, field
from typing import Callable, Optional

import pytest

from tests.integration.client_driver import UNTOUCHED, ClientDriver, Outcome
from virtual_unit import ABSENT, AT_ONCE, DIE, REFUSE, SILENT, WRONG_TYPE, VirtualUnit, declaration
from virtual_unit.faults import Fault
from virtual_unit.loop import spawn

#: Where an operation fails.
OPEN, CALL, READ = "open", "call", "read"

#: What names the address of a bus.
USER_BUS, SYSTEM_BUS = "DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"


@dataclass(frozen=True)
class Case:
    """One operation with given inputs, the call that it makes and what it gives.

    operation  its name at the driver, "client.Operation"
    call       (path, interface, member, arguments) as the sibling sees it; properties as "Get X" and "Set X"
    types      D-Bus types of the arguments, or of the property
    result     the exact result; None for any that is not negative
    outs       out-arguments after success
    untouched  out-arguments after a failure
    traffic    lines that are logged whatever happens
    failed     lines of a failure, told its step, its result and the bus's words for it
    told       True when the bus's words are the last out-argument
    blind      True when the reply is not read, so that a reply of another type goes unnoticed
    prepare    brings the sibling into the state that the case speaks of
    answer     how the sibling answers instead of doing what it is asked
    program    the driver program that has the operation
    """
    operation: str
    call: tuple
    types: str
    inputs: tuple = ()
    result: Optional[int] = None
    outs: list = field(default_factory=list)
    untouched: list = field(default_factory=list)
    traffic: list = field(default_factory=list)
    failed: Callable = lambda step, result, text: []
    told: bool = False
    blind: bool = False
    prepare: Callable = lambda unit: None
    answer: Optional[Fault] = None
    program: str = "client_driver"

    def __str__(self):
        return f"{self.operation}{self.inputs}".replace("\n", " ")

    @property
    def sibling(self):
        """Name of the sibling that is called."""
        return self.operation.split(".", maxsplit=1)[0]


@dataclass(frozen=True)
class Column:
    """One way in which every operation can fail: the fault, and what sd-bus makes of it."""
    name: str
    step: str
    error: int
    text: str
    fault: Optional[Fault] = None

    def __str__(self):
        return self.name


_NO_OWNER = "The name {service} was not provided by any .service files"
_CUT_OFF = "Message recipient disconnected from message bus without replying"

COLUMNS = [
    Column("refuse", CALL, errno.EACCES, "refused by the simulation", REFUSE),
    Column("absent", CALL, errno.EHOSTUNREACH, _NO_OWNER, ABSENT),
    Column("wrong type", READ, errno.ENXIO, os.strerror(errno.ENXIO), WRONG_TYPE),
    Column("die", CALL, errno.ETIMEDOUT, _CUT_OFF, DIE),
]
#: These need a sibling, a bus or a time-out of their own.
GONE = Column("gone", CALL, errno.EHOSTUNREACH, _NO_OWNER)
NO_BUS = Column("no bus", OPEN, errno.ENOENT, os.strerror(errno.ENOENT))
NO_ANSWER = Column("silent", CALL, errno.ETIMEDOUT, os.strerror(errno.ETIMEDOUT), SILENT)


def client_unit(*siblings):
    """The fixture `unit` of a client's test file: a unit with nothing but these siblings."""
    @pytest.fixture(scope="module", name="unit")
    def fixture():
        with VirtualUnit(daemon=False, siblings=siblings, bus_timeout=AT_ONCE) as started:
            yield started
    return fixture


def calls_since(unit, mark):
    """The calls since the mark, in the shape of a case."""
    return [(call.path, call.interface, call.member, call.arguments) for call in unit.calls.since(mark)]


def assert_success(case, outcome):
    """The operation has succeeded as the case says."""
    assert outcome.result == case.result if case.result is not None else outcome.result >= 0, outcome
    outs = case.outs + ([""] if case.told else [])
    assert outcome == Outcome(outcome.result, outs, case.traffic)


def check_success(unit, driver, case):
    """Runs the case against a sibling that serves."""
    case.prepare(unit)
    mark = unit.calls.mark()
    rule = unit.faults.on(case.sibling, kind=case.answer) if case.answer else None
    outcome = driver.run(case.operation, *case.inputs)
    if rule:
        rule.cancel()
    assert calls_since(unit, mark) == [case.call]
    assert_success(case, outcome)


def assert_failure(case, column, service, outcome):
    """The operation has failed as the column says."""
    if case.blind and column.step == READ:
        assert_success(case, outcome)
        return
    text = column.text.format(service=service)
    # A property's type is checked by the same sd-bus call that fetches it.
    step = CALL if column.step == READ and case.call[2].startswith("Get ") else column.step
    outs = case.untouched + ([text] if case.told else [])
    lines = case.traffic + case.failed(step, -column.error, text)
    assert outcome == Outcome(-column.error, outs, lines)


def check_failure(unit, driver, case, column):
    """Runs the case against a sibling that fails like the column; it is called exactly once, nothing is retried."""
    sibling = getattr(unit, case.sibling)
    mark = unit.calls.mark()
    rule = unit.faults.on(case.sibling, kind=column.fault)
    outcome = driver.run(case.operation, *case.inputs)
    rule.cancel()
    sibling.revive()
    assert calls_since(unit, mark) == [case.call]
    assert_failure(case, column, sibling.service, outcome)


def check_gone(unit, cases):
    """Runs the cases while their sibling is not there at all."""
    sibling = getattr(unit, cases[0].sibling)
    sibling.die()
    with ClientDriver(unit, program=cases[0].program) as driver:
        for case in cases:
            assert_failure(case, GONE, sibling.service, driver.run(case.operation, *case.inputs))
    sibling.revive()


def without_bus(unit, bus=USER_BUS):
    """The environment of a driver that finds the other bus, but not this one."""
    return {bus: f"unix:path={unit.directory}/no-bus"}


def check_no_bus(unit, cases, bus=USER_BUS):
    """Runs the cases while there is no bus to connect to."""
    with ClientDriver(unit, without_bus(unit, bus), cases[0].program) as driver:
        for case in cases:
            assert_failure(case, NO_BUS, "", driver.run(case.operation, *case.inputs))


_REFUSING_BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:dir={directory}</listen><auth>EXTERNAL</auth>
<policy context="default">
 <allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
</policy>
<limit name="max_match_rules_per_connection">0</limit></busconfig>
"""


@contextlib.contextmanager
def refusing_bus(unit):
    """A bus of its own that refuses every subscription; gives its address."""
    configuration = os.path.join(unit.directory, "refusing-bus.conf")
    with open(configuration, "w", encoding="utf-8") as file:
        file.write(_REFUSING_BUS.format(directory=unit.directory))
    bus = spawn(["dbus-daemon", "--nofork", "--nopidfile", "--print-address", f"--config-file={configuration}"],
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    try:
        yield bus.stdout.readline().strip()
    finally:
        bus.kill()
        bus.communicate()


def check_silent(unit, cases):
    """Runs the cases against a sibling that never answers."""
    rule = unit.faults.on(cases[0].sibling, kind=SILENT)
    try:
        with ClientDriver(unit, program=cases[0].program) as driver:
            for case in cases:
                assert_failure(case, NO_ANSWER, "", driver.run(case.operation, *case.inputs))
    finally:
        rule.cancel()


def check_descriptors(unit, driver, cases):
    """Nothing stays open, whatever happens to the cases."""
    driver.run(cases[0].operation, *cases[0].inputs)
    before = driver.descriptors()
    for column in COLUMNS:
        for case in cases:
            rule = unit.faults.on(case.sibling, kind=column.fault)
            driver.run(case.operation, *case.inputs)
            rule.cancel()
            getattr(unit, case.sibling).revive()
    assert driver.descriptors() == before


def declared(sibling, path, interface, member):
    """What the interface file says of a member: (types, access), access None for a method; fails when it is unknown."""
    node = _node(sibling, path)
    kind, _, name = member.partition(" ")
    if not name:
        return node.methods[interface, kind].signature, None
    item = node.properties[name]
    assert item.interface == interface, f"{name} belongs to {item.interface}, not {interface}"
    return item.signature, item.access


@functools.lru_cache(maxsize=None)
def _node(sibling, path):
    nodes = declaration.load(sibling)
    if path in nodes:
        return nodes[path]
    parent = path.rpartition("/")[0]
    return next(node for node in nodes.values() if node.prototype and node.path.rpartition("/")[0] == parent)


def check_declared(case):
    """The interface file has the member with the case's types, and the access that the case needs."""
    path, interface, member, _ = case.call
    types, access = declared(case.sibling, path, interface, member)
    assert types == case.types
    if member.startswith("Set "):
        assert access == "readwrite"


def cut_texts(inputs):
    """The inputs once for each text in them, at any depth, with a zero byte in the midst of that text."""
    for index, value in enumerate(inputs):
        nested = isinstance(value, (list, tuple))
        texts = cut_texts(value) if nested else [f"{value}\0cut"] if isinstance(value, str) else []
        for cut in texts:
            yield [*inputs[:index], cut, *inputs[index + 1:]]


def check_no_text_is_cut(unit, driver, case):
    """A text with a zero byte is refused like one that is no UTF-8: its beginning alone is not sent."""
    mark = unit.calls.mark()
    for inputs in cut_texts(case.inputs):
        outcome = driver.run(case.operation, *inputs)
        outs = case.untouched + ([os.strerror(errno.EINVAL)] if case.told else [])
        assert (outcome.result, outcome.outs) == (-errno.EINVAL, outs), inputs
    assert not unit.calls.since(mark)


def untouched(*types):
    """What out-arguments of these D-Bus types hold after a failure."""
    return [UNTOUCHED[kind] if kind in UNTOUCHED else UNTOUCHED["i"] for kind in types]


class FailureTests:
    """What the operations of every client go through; a test file names its cases in a subclass.

    STAYS_OPEN  the cases whose descriptors are counted, CASES unless told otherwise
    BUS         the bus on which the daemon is
    """

    CASES = ()
    STAYS_OPEN = None
    BUS = USER_BUS

    @pytest.mark.parametrize("column", COLUMNS, ids=str)
    def test_fault(self, unit, driver, case, column):
        """A call that fails: line, result, untouched out-arguments, no second try."""
        check_failure(unit, driver, case, column)

    def test_no_text_is_cut(self, unit, driver, case):
        """Nothing is sent when a text is not whole."""
        check_no_text_is_cut(unit, driver, case)

    def test_the_daemon_is_gone(self, unit):
        """The bus itself knows no owner of the name."""
        check_gone(unit, self.CASES)

    def test_there_is_no_bus(self, unit):
        """No connection can be opened."""
        check_no_bus(unit, self.CASES, self.BUS)

    def test_the_daemon_never_answers(self, unit):
        """Every call ends with the bus library's time-out."""
        check_silent(unit, self.CASES)

    def test_nothing_stays_open(self, unit, driver):
        """Descriptors are as many as before after every operation has met every fault."""
        check_descriptors(unit, driver, self.STAYS_OPEN or self.CASES)


class ListeningTests:
    """How listening does not begin; a test file names in a subclass the lines that are logged without a bus."""

    NO_BUS = ()

    def test_listening_without_a_bus(self, unit, request):
        """The failure is the caller's to report."""
        with ClientDriver(unit, without_bus(unit)) as driver:
            assert driver.listen(request.module.LISTENS_TO) == -errno.ENOENT
            assert driver.log.lines() == list(self.NO_BUS)


class RefusedListeningTests(ListeningTests):
    """The same of a client that gives up when it is refused a subscription, and the lines of that."""

    REFUSED = ()

    def test_listening_at_a_bus_that_refuses_subscriptions(self, unit, request):
        """The connection is closed again."""
        with refusing_bus(unit) as address, ClientDriver(unit, {USER_BUS: address}) as driver:
            assert driver.listen(request.module.LISTENS_TO) == -errno.ENOBUFS
            assert driver.log.lines() == list(self.REFUSED)
            assert driver.descriptors("socket") == 0
