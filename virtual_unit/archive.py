"""Snapshots: the state of a unit's siblings and devices and all its files in one file, to come back to.

The file is a compressed tar archive of the unit's folders with a JSON text, `state.json`.  What names the unit's folder
in there names that of the unit that it is loaded into.
"""

import dataclasses
import io
import json
import os
import shutil
import tarfile
import tempfile
import zlib

from .faults import Fault
from .jobs import Job, MediaItem
from .loop import on_loop
from .sibling import SimulatedObject
from .video import Order

_FORMAT = 1
_STATE = "state.json"
#: Folders of the unit that are kept.
_FOLDERS = ("media", "logs", "sounds", "framebuffers", os.path.join("audio", "mixer"))
#: Stands for the unit's folder.
_UNIT = "${UNIT}"
_RECORDS = {kind.__name__: kind for kind in (Job, MediaItem, Order)}


class Unreadable(Exception):
    """A file that is no snapshot."""


# Values as JSON -------------------------------------------------------------------------------------------------------


def _encode(value, folder):
    if value is None or isinstance(value, (bool, int, float)):
        return value
    if isinstance(value, str):
        return value.replace(folder, _UNIT)
    if isinstance(value, list):
        return [_encode(item, folder) for item in value]
    if isinstance(value, tuple):
        return {"tuple": _encode(list(value), folder)}
    if isinstance(value, dict):
        return {"dict": [[_encode(key, folder), _encode(item, folder)] for key, item in value.items()]}
    if isinstance(value, SimulatedObject):
        return {"object": [value.declared.path, _encode(value.values, folder)]}
    if type(value).__name__ in _RECORDS:
        fields = {field.name: getattr(value, field.name) for field in dataclasses.fields(value)}
        return {type(value).__name__: _encode(fields, folder)}
    raise TypeError(f"a snapshot cannot hold {value!r}")


def _decode(value, folder, sibling):
    def inner(item):
        return _decode(item, folder, sibling)

    if isinstance(value, str):
        return value.replace(_UNIT, folder)
    if isinstance(value, list):
        return list(map(inner, value))
    if not isinstance(value, dict):
        return value
    (kind, content), = value.items()
    if kind == "tuple":
        return tuple(map(inner, content))
    if kind == "dict":
        return {inner(key): inner(item) for key, item in content}
    if kind == "object":
        return sibling.object_like(content[0], inner(content[1]))
    return _RECORDS[kind](**inner(content))


# Saving ---------------------------------------------------------------------------------------------------------------


@on_loop
def _siblings_of(unit):
    return {name: {"alive": sibling.alive,
                   "state": {key: _encode(value, unit.directory) for key, value in sibling.own_state().items()
                             if not callable(value)}}
            for name, sibling in unit.siblings.items()}


def _state_of(unit):
    gps, faults = unit.gps, [rule for rule in unit.faults.rules() if rule.index is None]
    return {
        "format": _FORMAT, "siblings": _siblings_of(unit), "daemon": unit.daemon_alive,
        "clock": None if unit.clock.is_machines else unit.clock.now_usec(),
        "gps": gps.said if gps.running else None, "keypad": unit.keypad.plugged,
        "lines": [line.value for line in unit.gpio.lines],
        "faults": [[rule.sibling, rule.member, rule.path, rule.kind.kind, rule.kind.value, rule.left or None]
                   for rule in faults]}


def _wanted(info):
    return info if info.isfile() or info.isdir() else None


def save(unit, path):
    """Keeps the unit in a file, which appears complete, in place of what is there."""
    unit.framebuffers.disown()
    state = json.dumps(_state_of(unit)).encode()
    part = path + ".part"
    try:
        with tarfile.open(part, "w:gz", compresslevel=1) as tar:
            info = tarfile.TarInfo(_STATE)
            info.size = len(state)
            tar.addfile(info, io.BytesIO(state))
            for folder in _FOLDERS:
                tar.add(os.path.join(unit.directory, folder), folder, filter=_wanted)
        os.replace(part, path)
    finally:
        if os.path.exists(part):
            os.unlink(part)


# Loading --------------------------------------------------------------------------------------------------------------


def _unpack(path, folder):
    """Puts the archive's files beneath a folder; returns the state."""
    with tarfile.open(path, "r:gz") as tar:
        for info in tar:
            parts = info.name.split("/")
            if not (info.isfile() or info.isdir()) or ".." in parts or info.name.startswith("/"):
                raise Unreadable(f"{path} has {info.name}, which is no file of a unit")
            tar.extract(info, folder, set_attrs=False)
    with open(os.path.join(folder, _STATE), encoding="utf-8") as file:
        return json.load(file)


class _Snapshot:
    """What a file keeps, checked for one unit and ready to be put in place."""

    def __init__(self, unit, path, folder):
        self._unit, self._folder = unit, folder
        state = _unpack(path, folder)
        if state["format"] != _FORMAT or set(state["siblings"]) != set(unit.siblings):
            raise Unreadable(f"{path} is of a unit of another kind")
        for wanted in _FOLDERS:
            if not os.path.isdir(os.path.join(folder, wanted)):
                raise Unreadable(f"{path} lacks the folder {wanted}")
        self._faults = [Fault(kind, value) for *_, kind, value, _times in state["faults"]]
        self._state = state
        self._siblings()  # what cannot be understood is to be found before anything is changed

    def _siblings(self):
        """The attributes of each sibling, anew at each call."""
        return {name: {key: _decode(value, self._unit.directory, self._unit.siblings[name])
                       for key, value in kept["state"].items()} for name, kept in self._state["siblings"].items()}

    def put_files(self):
        """The unit's folders are those that were kept; they stay what they are to those who watch them."""
        for name in _FOLDERS:
            target = os.path.join(self._unit.directory, name)
            for entry in os.listdir(target):
                place = os.path.join(target, entry)
                (shutil.rmtree if os.path.isdir(place) and not os.path.islink(place) else os.unlink)(place)
            source = os.path.join(self._folder, name)
            shutil.copytree(source, target, dirs_exist_ok=True)
        self._unit.framebuffers.adopt()

    @on_loop
    def put_siblings(self):
        """The siblings have the state that was kept; nobody is told."""
        for name, state in self._siblings().items():
            self._unit.siblings[name].take_state(state)
        self._unit.point_local_time(self._unit.timedate.timezone if self._unit.timedate else "UTC")
        if self._unit.storage is not None:
            self._unit.storage.list_full_devices()

    def put_devices(self):
        """So do clock, receiver, keypad, mixer and lines, and calls meet the same faults."""
        unit, state = self._unit, self._state
        if state["clock"] is None:
            unit.clock.follow()
        else:
            unit.clock.set_usec(state["clock"])
        if state["gps"] is None:
            unit.gps.stop()
        else:
            unit.gps.say_again(*state["gps"])
        if state["keypad"] != unit.keypad.plugged:
            (unit.keypad.plug if state["keypad"] else unit.keypad.unplug)()
        for name in os.listdir(os.path.join(self._folder, "audio", "mixer")):
            shutil.copyfile(os.path.join(self._folder, "audio", "mixer", name),
                            os.path.join(unit.directory, "audio", "mixer", name))
        for line, value in zip(unit.gpio.lines, state["lines"]):
            if value is not None:
                line.value = value
        for (sibling, member, path, *_, times), kind in zip(state["faults"], self._faults):
            unit.faults.on(sibling, member, kind, times, path)
        for name, kept in state["siblings"].items():
            if not kept["alive"]:
                unit.siblings[name].die()

    @property
    def has_daemon(self):
        """Whether the daemon ran."""
        return self._state["daemon"]


def load(unit, path):
    """Puts the unit into the state that a file keeps.

    The daemon is ended before, and comes up with the siblings as they were kept, if it ran then; what it sets as it
    starts is put right afterwards.  It keeps nothing else, and so is what it was.
    """
    with tempfile.TemporaryDirectory(prefix="snapshot-", dir=unit.directory) as folder:
        try:
            snapshot = _Snapshot(unit, path, folder)
        except (tarfile.TarError, zlib.error, EOFError, KeyError, TypeError, ValueError, AttributeError) as error:
            raise Unreadable(f"{path} is no snapshot of a unit: {error}") from error
        if unit.daemon_alive:
            unit.stop_daemon()
        unit.faults.clear()
        for sibling in unit.siblings.values():
            sibling.revive()
        snapshot.put_files()
        snapshot.put_siblings()
        if snapshot.has_daemon:
            unit.start_daemon()
            unit.settle()
            snapshot.put_siblings()
        snapshot.put_devices()
        unit.stir()
