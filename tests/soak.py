"""./ccu soak: eight clients at once, for a long time, and what the daemon holds meanwhile.

The benchmark's endurance has one client, four calls and canned answers, and tells the costs of each apart. Here all
members are called in any order, siblings behave, and their signals come in between.
"""

import argparse
import os
import random
import shutil
import sys
import threading
import time
from dataclasses import astuple, dataclass, fields

from virtual_unit import PATIENCE, Client, DbusFailure, VirtualUnit
from virtual_unit.declaration import PROPERTIES
from virtual_unit.loop import on_loop
from virtual_unit.values import Typed

_CLIENTS = 8
_SIGNALS_PER_CALL = 0.1
_ROUNDS = 40
#: Of what has the mixer run: processes cost more than all else.
_MIXER_SHARE = 0.01
#: How long what a last sound leaves may take to go.
_GRACE_SECONDS = PATIENCE / 20
_PAGE_KIB = os.sysconf("SC_PAGESIZE") // 1024

_KINDS = ("VideoRecord", "PhotoTalkRecord", "AutoLogRecord")
_READ = ("KeypadBeepEnabled", "GetTimezone", "MicEnabled", "AudioFiles", "GetTimezoneList", "GetDst",
         "GetTimeSourceAvailable", "VideoPlaybackRate", "Sonde")
#: (how often, member, types, arguments). Not the members that ask for GPS, of which each call costs: see docs/gps.md.
_CALLS = [
    *((4, f"{kind}Start", "uuu", (1920, 1080, 90)) for kind in _KINDS),
    *((4, f"{kind}{word}", "", ()) for kind in _KINDS for word in ("Stop", "Pause", "Resume")),
    (4, "Snapshot", "uuu", (640, 480, 80)), (2, "Screenshot", "s", ("",)), (2, "Screenshot", "s", ("/nowhere",)),
    (4, "VideoPlaybackStart", "sd", ("/nowhere", 1.0)), (4, "VideoPlaybackStop", "b", (True,)),
    (4, "VideoPlaybackSeek", "i", (7,)), (1, "PlayAudio", "s", ("bell.wav",)), (4, "PlayAudio", "s", ("none",)),
    (4, "SetTime", "iiiiiibb", (2026, 7, 1, 12, 0, 0, True, True)), (4, "SetTimeSecs", "ib", (1_800_000_000, False)),
    (8, "GetTime", "b", (True,)), (8, "GetTimeSecs", "b", (False,)), (4, "SetDst", "b", (True,)),
    (4, "SetTimezone", "s", ("Paris",)), (4, "SetTimezone", "s", ("Nowhere",)),
    (4, "SetTimezoneUTC", "ib", (3600, False)), (8, "GetTimezoneFromUTC", "ib", (-18_000, True)),
    (4, "VideoRecordStart", "s", ("of the wrong type",)),
    (4, "Unheard", "", ()),
]


@dataclass(frozen=True)
class Sample:
    """What the daemon holds at rest."""
    private_dirty_kib: int
    resident_kib: int
    descriptors: int
    threads: int
    children: int

    @staticmethod
    def of(pid):
        """That of a process now."""
        base = f"/proc/{pid}"
        with open(f"{base}/smaps_rollup", encoding="ascii") as file:
            sizes = {line.split(":")[0]: int(line.split()[1]) for line in file if "kB" in line}
        with open(f"{base}/task/{pid}/children", encoding="ascii") as file:
            children = len(file.read().split())
        return Sample(sizes["Private_Dirty"], sizes["Rss"], len(os.listdir(f"{base}/fd")),
                      len(os.listdir(f"{base}/task")), children)


#: What each figure may have grown by in the second half; what is resident depends on what the machine has to spare.
GOALS = {"private_dirty_kib": _PAGE_KIB, "descriptors": 0, "threads": 0, "children": 0}


def verdict(samples):
    """By figure, what the last sample has beyond all of the first half, and whether that is within its goal."""
    half = samples[:(len(samples) + 1) // 2]
    growths = {field.name: getattr(samples[-1], field.name) - max(getattr(sample, field.name) for sample in half)
               for field in fields(Sample)}
    return {name: (growth, name not in GOALS or growth <= GOALS[name]) for name, growth in growths.items()}


class Caller(threading.Thread):
    """One client that makes calls, each when the one before was answered."""

    def __init__(self, client, count, number):
        super().__init__(daemon=True)
        self._client, self._count, self._choice = client, count, random.Random(number)
        self.problem = None

    def run(self):
        try:
            for _ in range(self._count):
                self._call()
        except Exception as error:  # pylint: disable=broad-except
            self.problem = error

    def _call(self):
        client, choice = self._client, self._choice
        try:
            if choice.random() < 0.5:
                client.get(choice.choice(_READ))
            elif choice.random() < 0.1:
                client.set(*choice.choice((("SpkrEnabled", "b", choice.random() < 0.5),
                                           ("KeypadBeepEnabled", "b", True), ("VideoPlaybackRate", "d", 1.5))))
            elif choice.random() < _MIXER_SHARE:
                client.set("SpkrVolume", "i", choice.randrange(100))
                client.get("SpkrVolume")
            else:
                _, member, types, arguments = choice.choices(_CALLS, [call[0] for call in _CALLS])[0]
                client.call(member, types, *arguments)
        except DbusFailure as failure:  # a refusal is an answer
            if failure.name.endswith((".NoReply", ".ServiceUnknown", ".Disconnected")):
                raise


class Soak:
    """The rounds of calls and signals on one unit."""

    def __init__(self, unit, seed):
        self._unit = unit
        self._seed = seed
        self._clients = [Client(unit.session_address) for _ in range(_CLIENTS)]
        self._choice = random.Random(seed)
        self.calls = self.signals = 0
        for device in (0, 1):
            unit.framebuffers.set(device, 64, 32)

    def round(self, count):
        """So many calls from all clients and a tenth of them signals; returns what the daemon holds then."""
        callers = [Caller(client, count // _CLIENTS, f"{self._seed} {self.calls} {number}")
                   for number, client in enumerate(self._clients)]
        for caller in callers:
            caller.start()
        for _ in range(int(count * _SIGNALS_PER_CALL)):
            self._tell()
        for caller in callers:
            caller.join()
        problems = [caller.problem for caller in callers if caller.problem is not None]
        if problems:
            raise problems[0]
        strays = [stray for client in self._clients for stray in client.strays]
        if strays:
            raise AssertionError(f"more than one answer to a call: {strays}")
        self.calls += count // _CLIENTS * _CLIENTS
        return self._rest()

    def _tell(self):
        unit, kind = self._unit, self._choice.choice(("video", "photoTalk", "autolog"))
        self.signals += 1
        self._choice.choice((
            lambda: unit.video.grow(kind, 0), lambda: unit.video.emit_changes(
                "/com/tavilon/common/Video1", "com.tavilon.common.Video1.Control", {"CaptureHue": 7}),
            lambda: unit.storage.set_device("internal", FreeSpace=self.signals),
            lambda: unit.settings.change("time", {"zone": ("London", "Paris")[self.signals % 2]}),
            lambda: unit.settings.emit_changes("/com/tavilon/common/Settings1/time", PROPERTIES,
                                               {"zone": Typed("i", self.signals)}),
        ))()

    def _rest(self):
        """Waits until everything is done, makes room for the next round, and tells what the daemon holds."""
        unit = self._unit
        unit.settle()
        unit.audio.wait_for(lambda audio: not audio.playing)
        unit.calls.clear()
        unit.log.truncate()
        on_loop(unit.jobs.items.clear)()
        for client in (unit.client, *self._clients):
            client.clear()
        for folder in (os.path.join(unit.media, "job1", "media"), unit.logs_folder):
            shutil.rmtree(folder, ignore_errors=True)
            os.makedirs(folder)
        deadline = time.monotonic() + _GRACE_SECONDS
        while True:
            sample = Sample.of(unit.pid)
            if (sample.threads, sample.children) == (1, 0) or time.monotonic() > deadline:
                return sample
            time.sleep(0.002)

    def close(self):
        """Ends the clients."""
        for client in self._clients:
            client.close()


def run(unit, calls, minutes=None, seed=1, show=print):
    """The samples of a soak of so many calls, or of so many minutes if those are over before."""
    soak = Soak(unit, seed)
    ends = time.monotonic() + 60 * minutes if minutes else float("inf")
    each = max(calls // _ROUNDS, _CLIENTS)
    samples = []
    show(f"{'calls':>9} {'signals':>8} {'dirty KiB':>9} {'resident':>9} {'files':>6} {'threads':>7} {'children':>8}")
    try:
        while soak.calls < calls and time.monotonic() < ends:
            samples.append(soak.round(each))
            show("{:9} {:8} {:9} {:9} {:6} {:7} {:8}".format(soak.calls, soak.signals, *astuple(samples[-1])))
    finally:
        soak.close()
    return samples


def main():
    """The command's exit status: 1 when something has grown on."""
    parser = argparse.ArgumentParser(prog="./ccu soak", description=__doc__.partition("\n")[0])
    parser.add_argument("--calls", type=int, default=40_000)
    parser.add_argument("--minutes", type=float, help="end then, with fewer calls")
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    with VirtualUnit() as unit:
        growths = verdict(run(unit, arguments.calls, arguments.minutes, arguments.seed))
    for name, (growth, is_met) in growths.items():
        goal = f"goal <= {GOALS[name]}, {'met' if is_met else 'MISSED'}" if name in GOALS else "no goal"
        print(f"{name.replace('_', ' ')}: {growth:+} in the second half, {goal}")
    return 0 if all(is_met for _, is_met in growths.values()) else 1


if __name__ == "__main__":
    sys.exit(main())
