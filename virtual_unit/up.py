"""`up`: a unit to work with by hand, until it is interrupted or, with a command, for as long as the command runs."""

import contextlib
import os
import shlex
import signal
import subprocess
import sys
import threading

from .daemon import DaemonFailure
from .ending import Ending
from .panel import Panel, Screen
from .registry import NoUnit, announce, choose
from .unit import VirtualUnit
from .web import NoPanel

#: The variable that has the panel's address.
_PANEL = "CCU_PANEL"
_LEVELS = ("emerg", "alert", "crit", "err", "warning", "notice", "info", "debug")


def _format(line):
    return f"{_LEVELS[line.priority]:>7} {line.text.rstrip()}"


def _show(name, value):
    print(f"export {name}={shlex.quote(value)}", flush=True)


def _serve(unit, ending, panel):
    """Shows how to reach the unit, and follows its panel and the daemon's log until the user or the daemon ends it."""
    for name, value in choose(unit.directory).exports.items():
        _show(name, value)
    with panel as address:
        if address:
            _show(_PANEL, address)
        return _follow(unit, ending)


def _follow(unit, ending):
    stop = threading.Event()
    screen = Screen(sys.stderr)
    followers = [threading.Thread(target=unit.log.follow, args=(lambda line: screen.line(_format(line)), stop)),
                 threading.Thread(target=Panel(unit).follow, args=(screen.status, stop),
                                  kwargs={"meanwhile": screen.refit})]
    for follower in followers:
        follower.daemon = True
        follower.start()
    try:
        with ending:
            status = unit.daemon.wait_unbidden_end()
    except KeyboardInterrupt:
        return 0
    finally:
        stop.set()
        for follower in followers:
            follower.join()
        screen.close()
    print(f"the daemon has ended by itself with status {status}", file=sys.stderr)
    return 1


def _run(unit, ending, panel, command):
    """Runs a command inside the unit; returns its status as a shell would."""
    try:
        with panel as address, ending:
            shown = {_PANEL: address} if address else {}
            if address:
                print(f"the panel is at {address}", file=sys.stderr, flush=True)
            status = subprocess.run(command, cwd=os.environ.get("CCU_CALLER_DIR"), check=False,
                                    env={**choose(unit.directory).environment(), **shown}).returncode
    except KeyboardInterrupt:
        return 128 + signal.SIGINT
    except OSError as error:
        print(f"{command[0]}: {error.strerror}", file=sys.stderr)
        return 127
    return 128 - status if status < 0 else status


def _panel_of(unit, port):
    if port is None:
        return contextlib.nullcontext()
    from .web.child import beside  # pylint: disable=import-outside-toplevel
    return beside(unit, port)


def up(command, build_dir=None, name="", panel_port=None):
    """Starts a unit that others find by its name, with a panel at a port (0 is any) unless that is None, and with a
    command in it if there is one; returns the exit status for the shell."""
    ending = Ending()
    try:
        with VirtualUnit(build_dir) as unit, announce(unit, name):
            panel = _panel_of(unit, panel_port)
            try:
                return _run(unit, ending, panel, command) if command else _serve(unit, ending, panel)
            except NoPanel as failure:
                print(failure, file=sys.stderr)
                return 1
    except (DaemonFailure, NoUnit, OSError) as error:
        print("\n".join([str(error), *getattr(error, "__notes__", [])]), file=sys.stderr)
        return 1
