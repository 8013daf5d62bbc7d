"""The units that run for people: how commands find them, whoever has started them."""

import fcntl
import glob
import json
import os
import tempfile
from dataclasses import asdict, dataclass

from .folders import MEMORY, within_reach
from .program import PROGRAM

#: In the folder of a unit that is there for people; locked by its process for as long as it runs.
_MARK = "up"
#: Name of a unit whose user has not given it one.
_USUAL = "unit"
NONE_RUNS = f"no unit is running: start one with {PROGRAM} up"


class NoUnit(Exception):
    """There is no such unit, or more than one."""


@dataclass(frozen=True)
class Running:
    """What is to be known of a unit that runs."""
    name: str
    folder: str
    build_dir: str
    session: str
    system: str

    @property
    def exports(self):
        """The variables by which programs reach the unit."""
        return {"DBUS_SESSION_BUS_ADDRESS": self.session, "DBUS_SYSTEM_BUS_ADDRESS": self.system,
                "CCU_UNIT": self.folder}

    def path(self, path):
        """A PATH with controllerctl in it."""
        own = os.path.join(self.build_dir, "controllerctl")
        return ":".join([own, *(part for part in path.split(":") if part != own)])

    def environment(self):
        """This process's environment with the unit in it."""
        return {**os.environ, **self.exports, "PATH": self.path(os.environ.get("PATH", "/usr/bin:/bin"))}


def _folders():
    """The folders in which units may be."""
    wanted = next(filter(None, map(os.environ.get, ("TMPDIR", "TEMP", "TMP"))), None)
    return [within_reach(wanted)] if wanted else sorted({MEMORY, within_reach(tempfile.gettempdir())})


def _read(path):
    """The unit of a mark, None when its process has ended or is another user's."""
    try:
        with open(path, "r+", encoding="utf-8") as mark:
            try:
                fcntl.flock(mark, fcntl.LOCK_SH | fcntl.LOCK_NB)
            except BlockingIOError:
                return Running(**json.load(mark)) if os.fstat(mark.fileno()).st_uid == os.getuid() else None
    except (OSError, ValueError, TypeError):
        pass
    return None


def units():
    """All of them, by name."""
    marks = [mark for folder in _folders() for mark in glob.glob(os.path.join(folder, "ccu-*", _MARK))]
    return sorted(filter(None, map(_read, marks)), key=lambda unit: unit.name)


def announce(unit, name=""):
    """Lets commands find the unit, by the name or by one of its own, until the returned file is closed."""
    parent = os.open(os.path.dirname(unit.directory), os.O_RDONLY | os.O_CLOEXEC)
    try:
        fcntl.flock(parent, fcntl.LOCK_EX)  # no two get one name
        taken = {other.name for other in units()}
        if name in taken:
            raise NoUnit(f"there is a unit named {name} already")
        free = (f"{_USUAL}{number}" if number > 1 else _USUAL for number in range(1, len(taken) + 2))
        unit.name = name or next(candidate for candidate in free if candidate not in taken)
        facts = Running(unit.name, unit.directory, unit.build_dir, unit.session_address, unit.system_address)
        path = os.path.join(unit.directory, _MARK)
        mark = open(path + ".new", "w", encoding="utf-8")  # pylint: disable=consider-using-with
        fcntl.flock(mark, fcntl.LOCK_EX)
        json.dump(asdict(facts), mark)
        mark.flush()
        os.rename(path + ".new", path)
        return mark
    finally:
        os.close(parent)


def choose(name=None):
    """The unit that is meant by a name or a folder, by $CCU_UNIT, or because there is no other."""
    wanted = name or os.environ.get("CCU_UNIT")
    running = units()
    if wanted and os.sep in wanted:
        found = _read(os.path.join(wanted, _MARK))
        if found is None:
            raise NoUnit(f"no unit runs in {wanted}")
        return found
    found = [unit for unit in running if wanted in (None, "", unit.name)]
    if not running:
        raise NoUnit(NONE_RUNS)
    names = ", ".join(unit.name for unit in running)
    if not found:
        raise NoUnit(f"no unit is named {wanted}; there are: {names}")
    if len(found) > 1:
        raise NoUnit(f"several units are running: choose with --unit, or CCU_UNIT, one of {names}")
    return found[0]
