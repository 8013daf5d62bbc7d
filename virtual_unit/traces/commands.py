"""`record`, `replay` and `trace`: each returns the exit status for the shell."""

import functools
import json
import os
import select
import signal
import subprocess
import sys

from ..client import DbusFailure
from ..daemon import DaemonFailure
from ..ending import Ending
from ..registry import NoUnit, choose
from ..remote import Remote
from ..unit import VirtualUnit
from . import file
from .record import Recorder
from .replay import Replay
from .sequence import lines, picture
from .story import Story

#: What cannot be done with these arguments; 1 is for what was found.
_MISTAKE = 2
_CUT_OFF = 128


def _place(path):
    return os.path.abspath(os.path.join(os.environ.get("CCU_CALLER_DIR", ""), path))


def _complain(text):
    print(f"ccu: {text}", file=sys.stderr)
    return _MISTAKE


def _wait_for_signal(ending):
    """Waits until the user ends it, also when that comes before the waiting."""
    reader, writer = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
    signal.set_wakeup_fd(writer)
    with ending:
        print("end it with Ctrl-C", file=sys.stderr, flush=True)
        select.select([reader], [], [])
        raise KeyboardInterrupt


def _wait(ending, command, unit):
    """Waits for the command, or the user."""
    try:
        if not command:
            _wait_for_signal(ending)
        with ending:
            status = subprocess.run(command, cwd=os.environ.get("CCU_CALLER_DIR"), env=unit.environment(),
                                    check=False).returncode
    except KeyboardInterrupt:
        return _CUT_OFF + ending.number if command else 0
    except OSError as error:
        print(f"{command[0]}: {error.strerror}", file=sys.stderr)
        return 127
    return _CUT_OFF - status if status < 0 else status


def record(path, command=(), unit=None):
    """Records a unit that runs, until the user ends it or for as long as a command runs in it."""
    ending = Ending()
    path = _place(path)
    try:
        found = choose(unit)
        with Remote(found.session) as remote:
            recorder = Recorder({file.SESSION: found.session, file.SYSTEM: found.system},
                                os.path.join(found.folder, "syslog"), remote.record, remote.save)
            try:
                print(f"recording {found.name}", file=sys.stderr)
                status = _wait(ending, command, found)
                recorder.finish(path)
            finally:
                recorder.discard()
    except (NoUnit, DbusFailure, OSError, RuntimeError) as error:
        return _complain(getattr(error, "text", str(error)))
    print(f"recorded in {path}", file=sys.stderr)
    return status


def _show(outcome, story):
    for number, one in enumerate(outcome.differences, 1):
        passed = f"{story.steps[one.step - 1].captured.time - story.began:.3f} s"
        print(f"difference {number}: {one.kind} {one.what}, at step {one.step} of {len(story.steps)}, {passed}")
        for word, text in (("recorded", one.recorded), ("replayed", one.replayed)):
            for line in (text or "nothing").splitlines():
                print(f"  {word}  {line}")
    compared = ", ".join(f"{count} {what}{'s' * (count != 1)}" for what, count in outcome.compared.items())
    print(("no difference" if outcome.same else f"differences: {len(outcome.differences)}") + f" in {compared}; "
          f"recorded in {outcome.recorded_seconds:.1f} s, replayed in {outcome.seconds:.1f} s")


def replay(path, keep_going=False, as_json=False, build_dir=None):
    """Gives the daemon what a trace gave it; the status is 1 when it did something else."""
    try:
        story = Story(file.read(_place(path)))
        outcome = Replay(story, keep_going, functools.partial(VirtualUnit, build_dir)).run()
    except (file.Unreadable, OSError) as error:
        return _complain(str(error))
    except (DaemonFailure, TimeoutError) as error:
        print(f"ccu: {error}", file=sys.stderr)
        return 1
    if as_json:
        print(json.dumps(outcome.as_json()))
    else:
        _show(outcome, story)
    return 0 if outcome.same else 1


def trace(path, svg=None):
    """Shows who called whom; as a picture too, if its file is named."""
    try:
        story = Story(file.read(_place(path)))
        if svg is None:
            print("\n".join(lines(story)))
            return 0
        with open(_place(svg), "w", encoding="utf-8") as output:
            output.write(picture(story))
    except (file.Unreadable, OSError) as error:
        return _complain(str(error))
    return 0
