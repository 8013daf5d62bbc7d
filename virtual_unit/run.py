"""`run`: plays scenarios, each on a unit of its own or all on one that runs, and reports how each step came out."""

import contextlib
import json
import os
import sys
import time
from dataclasses import dataclass
from xml.etree import ElementTree

from . import scenario as files
from .client import Client, DbusFailure
from .daemon import DaemonFailure
from .ending import Ending
from .patience import PATIENCE
from .registry import NoUnit, choose
from .remote import Remote
from .show import Show
from .unit import VirtualUnit


#: Seconds for a signal or a line that an ended wait for the daemon has not brought yet.
_WAIT = PATIENCE / 6


class Differs(Exception):
    """A step did not come out as expected; the arguments are lines."""


@dataclass
class Outcome:
    """What became of a scenario: the texts of the steps that came out, and the one that did not with what differed."""
    scenario: files.Scenario
    done: list
    failed: str = None
    differences: tuple = ()
    seconds: float = 0


def _plain(value):
    """A value as YAML has it: tuples are lists."""
    return json.loads(json.dumps(value))


def _shown(value):
    return json.dumps(value, ensure_ascii=False)


class Player:
    """Plays the steps of one scenario on a unit, as a client on its bus."""

    def __init__(self, session):
        self._remote = Remote(session)
        self._client = Client(session)
        self._variables = {}
        self._signals = self._lines = 0
        self._remote.subscribe()
        self._remote.settle(PATIENCE)
        self._client.sync()
        self._client.clear()

    def close(self):
        """Leaves the bus."""
        self._remote.close()
        self._client.close()

    def play(self, step):
        """Plays one step; returns what came of it in a few words, or raises Differs."""
        return getattr(self, f"_{step.action}")(step.subject, step.expected)

    def _settle(self):
        self._remote.settle(PATIENCE)
        self._client.sync()

    # Expectations -----------------------------------------------------------------------------------------------------

    def _fits(self, got, expected):
        """Whether a value is as expected.  A name that has no value yet fits, and gets it; $_ never gets one."""
        if files.is_variable(expected):
            if expected == "$_":
                return True
            return self._variables.setdefault(expected, got) == got
        if isinstance(expected, list) and isinstance(got, list):
            return len(got) == len(expected) and all(map(self._fits, got, expected))
        if isinstance(expected, dict) and isinstance(got, dict):
            return all(key in got and self._fits(got[key], item) for key, item in expected.items())
        return type(got) is type(expected) and got == expected or \
            {type(got), type(expected)} == {int, float} and got == expected

    def _compare(self, got, expected):
        got = _plain(got)
        if not self._fits(got, expected):
            raise Differs(f"expected  {_shown(self._filled(expected))}", f"got       {_shown(got)}")
        return _shown(got)

    def _filled(self, value):
        if isinstance(value, list):
            return list(map(self._filled, value))
        return self._variables.get(value, value) if isinstance(value, str) else value

    # Actions ----------------------------------------------------------------------------------------------------------

    @staticmethod
    def _say(_text, _expected):
        return None

    @staticmethod
    def _wait(seconds, _expected):
        time.sleep(seconds)
        return ""

    def _do(self, words, _expected):
        try:
            _, effect = self._remote.do(*files.parse_words([files.word(self._filled(word)) for word in words]))
        except (DbusFailure, ValueError) as failure:
            raise Differs(getattr(failure, "text", str(failure))) from None
        self._settle()
        return effect

    def _call(self, words, expected):
        member, signature, arguments = files.arguments_of(self._filled(words))
        return self._answer(lambda: list(self._client.call(member, signature, *arguments)), expected)

    def _set(self, words, expected):
        name, signature, value = files.property_of(self._filled(words))
        return self._answer(lambda: self._client.set(name, signature, value), expected)

    def _answer(self, call, expected):
        try:
            got = call()
        except DbusFailure as failure:
            self._settle()
            if "error" not in expected:
                raise Differs(f"refused: {failure.text}") from None
            return "refused: " + self._compare(failure.text, expected["error"])
        self._settle()
        if "error" in expected:
            raise Differs(f"expected  the error {_shown(expected['error'])}", f"got       {_shown(_plain(got))}")
        if "reply" not in expected:
            return _shown(_plain(got)) if got else ""
        wanted = expected["reply"]
        return self._compare(got, wanted if isinstance(wanted, list) else [wanted])

    def _signal(self, name, expected):
        if name == "none":
            more = self._client.announced[self._signals:]
            if more:
                raise Differs(*(f"got       {signal.member} {_shown(_plain(signal.args))}" for signal in more))
            return ""
        count = self._signals + 1
        if not self._client.wait_until(lambda: len(self._client.announced) >= count, _WAIT):
            raise Differs(f"{name} did not come within {_WAIT:.0f} s")
        signal = self._client.announced[self._signals]
        self._signals = count
        if signal.member != name:
            raise Differs(f"expected  {name}", f"got       {signal.member} {_shown(_plain(signal.args))}")
        wanted = expected.get("with", "$_")
        return self._compare(signal.args, wanted if isinstance(wanted, list) or wanted == "$_" else [wanted])

    def _property(self, name, expected):
        noun, dot, rest = name.partition(".")
        if not dot:
            return self._compare(self._client.get(name), expected["is"])
        value = self._remote.state(noun)
        for part in rest.split("."):
            if not isinstance(value, dict) or part not in value:
                raise Differs(f"{noun} has no {rest}")
            value = value[part]
        return self._compare(value, expected["is"])

    def _log(self, text, _expected):
        position = self._remote.wait_line(text, self._lines, _WAIT)
        if position is None:
            raise Differs(f"no line with this was logged within {_WAIT:.0f} s")
        self._lines = position + 1
        return ""


class Run:
    """Plays scenarios and shows them as they are played."""

    def __init__(self, stream, make_unit=VirtualUnit, session=None, interruptible=contextlib.nullcontext()):
        self._show, self._make_unit, self._session = Show(stream), make_unit, session
        self._interruptible = interruptible

    def play(self, scenarios):
        """The outcomes of scenarios."""
        outcomes = [self._play(scenario) for scenario in scenarios]
        failed = [outcome for outcome in outcomes if outcome.failed]
        self._show.tell(f"{len(outcomes) - len(failed)} of {len(outcomes)} scenarios came out as they should, "
                        f"{sum(len(outcome.done) for outcome in outcomes)} steps.", indent=0)
        for outcome in failed:
            self._show.bad(f"{outcome.scenario.path}: {outcome.failed}", ())
        return outcomes

    def _play(self, scenario):
        began = time.monotonic()
        outcome = Outcome(scenario, [])
        self._show.heading(f"{scenario.name}: {scenario.title}")
        if scenario.about:
            self._show.tell(scenario.about)
        try:
            with contextlib.ExitStack() as stack:
                session = self._session
                if session is None:
                    session = stack.enter_context(self._make_unit(**scenario.options)).session_address
                with self._interruptible, contextlib.closing(Player(session)) as player:
                    self._play_steps(player, scenario, outcome)
        except (DaemonFailure, RuntimeError, DbusFailure, TimeoutError) as error:
            self._fail(outcome, "the unit", str(error).partition("\n-- log\n")[0].splitlines())
        outcome.seconds = time.monotonic() - began
        return outcome

    def _play_steps(self, player, scenario, outcome):
        for number, step in enumerate(scenario.steps, 1):
            if step.action == "say":
                self._show.tell(step.subject)
            try:
                came = player.play(step)
            except Differs as differs:
                left = len(scenario.steps) - number
                more = [f"{left} more steps were not played"] if left else []
                self._fail(outcome, f"line {step.line}, {step.text}", [*differs.args, *more])
                return
            outcome.done.append(step.text)
            if came is not None:
                self._show.good(step.text, came)

    def _fail(self, outcome, what, lines):
        if outcome.failed is None:
            outcome.failed, outcome.differences = what, tuple(lines)
        self._show.bad(what, lines)


def junit(outcomes):
    """The outcomes as the XML that continuous integration reads."""
    failures = sum(outcome.failed is not None for outcome in outcomes)
    suite = ElementTree.Element("testsuite", name="scenarios", tests=str(len(outcomes)), failures=str(failures),
                                errors="0", time=f"{sum(outcome.seconds for outcome in outcomes):.3f}")
    for outcome in outcomes:
        case = ElementTree.SubElement(suite, "testcase", classname="scenarios", name=outcome.scenario.name,
                                      file=outcome.scenario.path, time=f"{outcome.seconds:.3f}")
        if outcome.failed is not None:
            failure = ElementTree.SubElement(case, "failure", message=outcome.failed)
            failure.text = "\n".join(outcome.differences)
        ElementTree.SubElement(case, "system-out").text = "\n".join(outcome.done)
    ElementTree.indent(suite)
    return ElementTree.tostring(suite, encoding="unicode", xml_declaration=True) + "\n"


# The command ----------------------------------------------------------------------------------------------------------


def show_scenarios():
    """Prints the scenarios that come along; returns the exit status for the shell."""
    found = [files.read(path) for path in files.own().values()]
    width = max(len(scenario.name) for scenario in found)
    for scenario in found:
        print(f"{scenario.name:{width}}  {scenario.title}")
    return 0


def _read(names):
    """The scenarios of names and paths; raises Mistakes with those of all of them."""
    own, caller = files.own(), os.environ.get("CCU_CALLER_DIR", "")
    found, mistakes = [], []
    for name in names:
        try:
            found.append(files.read(own[name] if name in own else os.path.join(caller, name)))
        except files.Mistakes as problem:
            mistakes += problem.texts
    if mistakes:
        raise files.Mistakes(mistakes)
    return found


def run(names, unit=None, junit_path=None, build_dir=None):
    """Plays the scenarios, all that come along when there are no names; returns the exit status for the shell: 0 when
    all came out, 1 when one did not, 2 for mistakes in the files."""
    ending = Ending()
    try:
        scenarios = _read(names or files.own())
        session = choose(unit).session if unit else None
        runner = Run(sys.stdout, lambda **options: VirtualUnit(build_dir, **options), session, ending)
        outcomes = runner.play(scenarios)
        if junit_path is not None:
            with open(os.path.join(os.environ.get("CCU_CALLER_DIR", ""), junit_path), "w", encoding="utf-8") as file:
                file.write(junit(outcomes))
    except files.Mistakes as mistakes:
        print(mistakes, file=sys.stderr)
        return 2
    except (NoUnit, OSError) as problem:
        print(f"run: {problem}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("run: interrupted", file=sys.stderr)
        return 128 + ending.number
    return 1 if any(outcome.failed for outcome in outcomes) else 0
