"""Removable storage: markers on FAT, and a stick that is pulled out."""

import gzip
import json
import os
import tempfile

from ..image import make_stick
from .case import collector

CASES = []
case = collector(CASES)

_START = ("VideoRecordStart", "uuu", 1280, 720, 80)
_GOOD = [0, "Ran successfully"]


def _markers(unit, device):
    """The markers on a device, each with whether it is hidden."""
    lines = unit.sh(f"find /media/{device} -name '.*-rec*' -exec fatattr {{}} +").splitlines()
    return {line.split()[-1].rpartition("-")[2]: "h" in line.split()[0] for line in lines}


def _empty_stick():
    """What a stick with nothing on it holds."""
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "stick")
        make_stick(path, 4 << 20)
        with open(path, "rb") as file:
            return file.read()


def _record_on(unit, device):
    unit.simulation("job", "Open", "ss", device, "inspection")
    assert unit.call(*_START) == _GOOD
    markers = _markers(unit, device)
    assert markers == {"recActive": True, "recovery": True}, markers
    assert unit.call("VideoRecordStop") == _GOOD
    assert "recActive" not in _markers(unit, device)


@case()
def _(unit):
    """hidden markers on FAT, on a stick and a loop mount"""
    unit.wait_service()
    unit.plug_stick()
    _record_on(unit, "card")
    unit.see("USB stick: .recActive and .recovery have the attribute h, and stop takes the first away")
    unit.sh("gzip -d >/root/loop.img && mkdir /media/loop && "
            "mount -o loop,uid=ccu,gid=ccu /root/loop.img /media/loop", stdin=gzip.compress(_empty_stick()))
    unit.wait_device("loop")
    _record_on(unit, "loop")
    unit.see("loop mount: the same")


@case()
def _(unit):
    """stick pulled while recording"""
    unit.wait_service()
    unit.plug_stick()
    unit.simulation("job", "Open", "ss", "card", "inspection")
    unit.follow_signals()
    pid = unit.pid
    assert unit.call(*_START) == _GOOD
    unit.machine.pull_stick()
    codes = unit.wait_for(lambda: unit.signals("CaptureError"), "CaptureError")
    assert [code[0] for code in codes] == [-4], json.dumps(codes)
    unit.see(f'one CaptureError {codes[0][0]} "{codes[0][1]}"')
    unit.wait_device("card", there=False)
    assert unit.pid == pid
    unit.plug_stick()
    _record_again(unit)
    assert unit.signals("CaptureError") == codes


def _record_again(unit):
    unit.simulation("job", "Open", "ss", "card", "again")
    assert unit.call(*_START) == _GOOD and unit.call("VideoRecordStop") == _GOOD
    unit.see("plugged in again, it is recorded on again")
