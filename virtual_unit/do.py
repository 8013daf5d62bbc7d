"""Commands that work on a unit that runs, by its control object: `do`, `key`, `snapshot`, `exec`, `env` and `list`."""

import json
import os
import shlex
import sys

from .client import DbusFailure
from .program import NAME
from .registry import NONE_RUNS, NoUnit, choose, units
from .remote import Remote
from .values import Typed
from .verbs import WHOLE, nouns

_BUSY = "; the daemon has not dealt with it yet"


def _complain(text, as_json=False):
    if as_json:
        print(json.dumps({"ok": False, "message": text}))
    print(f"{NAME}: {text}", file=sys.stderr)
    return 1


def _plain(value):
    return value.value if isinstance(value, Typed) else value


def _text(value):
    return json.dumps(value, ensure_ascii=False, default=str) if not isinstance(value, str) else value


def _show_state(remote, noun, as_json):
    state = remote.state(noun)
    if as_json:
        print(json.dumps({"ok": True, "noun": noun, "state": state}))
        return
    width = max(map(len, state))
    for name, value in sorted(state.items()):
        print(f"{name:{width}}  {_text(value)}")


def _carry_out(remote, verb, values, as_json):
    results, effect = remote.do(verb, values)
    settled = remote.settle() if verb.noun != WHOLE else True
    if as_json:
        print(json.dumps({"ok": True, "noun": verb.noun, "verb": verb.name,
                          "arguments": {name: _plain(value) for name, value in values.items()}, "results": results,
                          "effect": effect, "settled": settled}))
    else:
        print(effect + ("" if settled else _BUSY))


def do(noun, verb, values, unit=None, as_json=False):
    """Carries a verb out, or shows the state of its noun when it is None; returns the exit status for the shell."""
    try:
        with Remote(choose(unit).session) as remote:
            if verb is None:
                _show_state(remote, noun, as_json)
            else:
                _carry_out(remote, verb, values, as_json)
    except (NoUnit, DbusFailure) as problem:
        return _complain(getattr(problem, "text", str(problem)), as_json)
    return 0


def key(name, event, unit=None, as_json=False):
    """Presses, releases or repeats a key, or presses and releases it; returns the exit status for the shell."""
    return do("key", nouns()["key"].verbs[event or "type"], {"key": name}, unit, as_json)


def snapshot(verb, path, unit=None, as_json=False):
    """Saves the unit to a file, or loads it; returns the exit status for the shell."""
    whole = os.path.abspath(os.path.join(os.environ.get("CCU_CALLER_DIR", ""), path))
    return do(WHOLE, nouns()[WHOLE].verbs[verb], {"path": whole}, unit, as_json)


def execute(command, unit=None):
    """Becomes a command that runs in a unit; returns the exit status for the shell when there is none."""
    try:
        environment = choose(unit).environment()
        os.chdir(os.environ.get("CCU_CALLER_DIR", "."))
        os.execvpe(command[0], command, environment)
    except NoUnit as problem:
        return _complain(str(problem))
    except OSError as error:
        print(f"{command[0]}: {error.strerror}", file=sys.stderr)
        return 127 if isinstance(error, FileNotFoundError) else 126


def env(unit=None):
    """Prints what puts a shell into a unit; returns the exit status for the shell."""
    try:
        found = choose(unit)
    except NoUnit as problem:
        return _complain(str(problem))
    for name, value in {**found.exports, "PATH": found.path(os.environ.get("PATH", "/usr/bin:/bin"))}.items():
        print(f"export {name}={shlex.quote(value)}")
    return 0


def show_units(as_json=False):
    """Prints the units that run; returns the exit status for the shell."""
    found = []
    for unit in units():
        try:
            with Remote(unit.session) as remote:
                found.append((unit, remote.state("daemon")))
        except DbusFailure:  # it has ended just now
            continue
    if as_json:
        print(json.dumps([{"name": unit.name, "folder": unit.folder, "session": unit.session, "system": unit.system,
                           "pid": daemon["Pid"]} for unit, daemon in found]))
    elif not found:
        print(NONE_RUNS, file=sys.stderr)
    else:
        width = max(len(unit.name) for unit, _ in found)
        for unit, daemon in found:
            running = f"daemon {daemon['Pid']}" if daemon["Running"] else "no daemon"
            print(f"{unit.name:{width}}  {running:14}  {unit.folder}")
    return 0
