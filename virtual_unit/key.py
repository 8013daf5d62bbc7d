"""`key`: presses a key of a unit that `up` runs, from another terminal."""

import glob
import os
import sys

from .keypad import Keypad
from .unit import folder_of_units

#: In the folder of a unit that is there for people.
_MARK = "up"


def mark_for_keys(directory):
    """Lets `key` find the unit that has the folder."""
    with open(os.path.join(directory, _MARK), "wb"):
        pass


def _running():
    marks = glob.glob(os.path.join(folder_of_units(), "ccu-*", _MARK))
    return [folder for folder in sorted(map(os.path.dirname, marks)) if Keypad.of_unit(folder).opened]


def _choose():
    """The folder of the unit that is meant, or what is wrong."""
    named = os.environ.get("CCU_UNIT")
    units = [named] if named else _running()
    if not units:
        return None, "no unit is running: start one with ./ccu up"
    if len(units) > 1:
        return None, "several units are running: set CCU_UNIT to one of " + ", ".join(units)
    if not Keypad.of_unit(units[0]).opened:
        return None, f"nobody listens to the keypad of {units[0]}"
    return units[0], None


def key(code, event=None):
    """Presses, releases or repeats a key, or presses and releases it; returns the exit status for the shell."""
    directory, problem = _choose()
    if problem is not None:
        print(problem, file=sys.stderr)
        return 1
    keypad = Keypad.of_unit(directory)
    for step in (event,) if event else ("press", "release"):
        getattr(keypad, step)(code)
    return 0
