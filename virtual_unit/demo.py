"""`demo`: an inspection on the unmodified daemon, step by step, each step compared with what it should be."""

import contextlib
import os
import signal
import sys
import time

from .chapters import CHAPTERS
from .daemon import DaemonFailure
from .ending import Ending
from .program import PROGRAM
from .show import ReaderGone, Show
from .stage import Failure, Result, Stage
from .unit import VirtualUnit

#: The status of a program whose output nobody reads, as a shell tells it.
_CLOSED_PIPE = 128 + signal.SIGPIPE

_TITLE = "The controller daemon of a camera control unit: one inspection"
_EXPLANATION = ("The daemon is the one that runs on a unit. What stands around it here is simulated, and every call, "
                "reply and signal below went over a D-Bus of its own. Each chapter has a fresh unit.")

_NEXT = (
    (f"{PROGRAM} up", "a unit to try calls on, until Ctrl-C"),
    (f"{PROGRAM} up -- bash", "a shell inside a unit, for every command above: controllerctl status"),
    ("docs/controllerctl.md", "the commands, their status and their JSON"),
    ("docs/interface.md", "every member, with its arguments, codes and texts"),
)


def _milliseconds_since(began):
    return (time.monotonic() - began) * 1000


class Inspection:
    """Plays chapters, each on a unit of its own, and sums them up.

    make_unit      what a unit is made with; takes the options of VirtualUnit
    interruptible  context in which the user may end the whole
    """

    def __init__(self, stream, make_unit=VirtualUnit, interruptible=contextlib.nullcontext()):
        self._show = Show(stream)
        self._make_unit = make_unit
        self._interruptible = interruptible
        self._result = Result()

    def run(self, chapters=CHAPTERS):
        """Returns the exit status: 0 when every step of every chapter came out as it should, otherwise 1.

        Raises OSError when there is nothing to start.
        """
        began = time.monotonic()
        for number, chapter in enumerate(chapters, 1):
            try:
                self._play(number, chapter)
            except (DaemonFailure, RuntimeError) as error:
                # The report that a unit gives of itself behind its problems is noted already.
                problems = str(error).partition("\n-- log\n")[0].splitlines()
                self._result.fail(self._show, Failure(chapter.title, "the unit", tuple(problems)))
        self._conclude(time.monotonic() - began)
        return 1 if self._result.failures else 0

    def _play(self, number, chapter):
        began = time.monotonic()
        with self._make_unit(daemon=False, **chapter.options) as unit:
            stage = Stage(self._show, unit, chapter.title, self._result)
            stage.unit_ms = _milliseconds_since(began)
            began = time.monotonic()
            unit.start_daemon(wait=False)
            if number == 1:
                self._show.title(_TITLE, _EXPLANATION)
            self._show.heading(f"{number}  {chapter.title}")
            try:
                with self._interruptible:
                    unit.daemon.wait_ready()
                    stage.daemon_ms = _milliseconds_since(began)
                    chapter.play(stage)
            except Exception as error:  # pylint: disable=broad-except
                stage.fail("the chapter broke off", f"{type(error).__name__}: {error}".splitlines())
            self._result.note(chapter.title, unit)

    def _conclude(self, seconds):
        show, result = self._show, self._result
        show.heading("Summary")
        show.table([("steps checked", str(result.steps)), ("calls to siblings", str(result.calls)),
                    ("lines that the daemon logged", str(result.log_lines)), ("time", f"{seconds:.1f} s")])
        if not result.failures:
            show.tell("Every step came out as it should. Where to go next:")
            show.table(_NEXT)
            return
        show.heading(f"What differed ({len(result.failures)})")
        for failure in result.failures:
            show.bad(f"{failure.chapter}: {failure.what}, after {failure.after}", failure.differences)
        for chapter in dict.fromkeys(failure.chapter for failure in result.failures):
            show.heading(f"The daemon's log of: {chapter}")
            show.lines(result.logs.get(chapter, ()))


def _silence(stream):
    """Lets what is still buffered for a closed pipe go nowhere."""
    nowhere = os.open(os.devnull, os.O_WRONLY)
    os.dup2(nowhere, stream.fileno())
    os.close(nowhere)


def _complain(text):
    print(f"demo: {text}", file=sys.stderr)
    return 1


def _chosen(words):
    """The chapter that a number or words of the title mean; several when it is not clear, none when there is none."""
    if words.isdigit():
        return [CHAPTERS[int(words) - 1]] if 0 < int(words) <= len(CHAPTERS) else []
    return [chapter for chapter in CHAPTERS if words.lower() in chapter.title.lower()]


def show_chapters():
    """Prints the chapters with their numbers; returns the exit status for the shell."""
    for number, chapter in enumerate(CHAPTERS, 1):
        print(f"{number:2}  {chapter.title}")
    return 0


def demo(build_dir=None, chapter=None):
    """Shows the inspection, or one chapter of it; returns the exit status for the shell."""
    chosen = CHAPTERS if chapter is None else _chosen(chapter)
    if chapter is not None and len(chosen) != 1:
        found = ", ".join(f'"{one.title}"' for one in chosen)
        _complain(f"'{chapter}' is in several titles: {found}" if chosen else
                  f"no chapter '{chapter}'; --list shows them")
        return 2
    ending = Ending()
    try:
        return Inspection(sys.stdout, lambda **options: VirtualUnit(build_dir, **options), ending).run(chosen)
    except KeyboardInterrupt:
        _complain("interrupted")
        return 128 + ending.number
    except ReaderGone:
        _silence(sys.stdout)
        return _CLOSED_PIPE
    except OSError as error:
        return _complain(f"the unit cannot be started: {error}")
