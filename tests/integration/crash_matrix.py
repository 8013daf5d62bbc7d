"""What a crash leaves: whoever ends, at each call that a scenario makes, and how the unit goes on from there.

The calls are not picked by hand: a scenario is run once in peace, and then once for each call of that run and each end.
What is left is kept in crash_matrix.tsv, a line for each of these runs, and told in the operator's words by the page
that `./ccu pages` makes of it.
"""

import contextlib
import dataclasses
import functools
import os
import threading
from dataclasses import dataclass

from tests.integration.controllerctl_cases import DONE, run
from tests.integration.crash_page import NOTHING, Row, keep
from tests.integration.lender import Lender
from tests.integration.recording_texts import AUTO_LOG, KINDS, MESSAGES, PHOTO_TALK, VIDEO, Paths, left_over
from virtual_unit import AT_ONCE, CODE, DIE, DIE_AFTER, MEANWHILE, PATIENCE, DbusFailure
from virtual_unit.client import SERVICE
from virtual_unit.loop import shared_loop

LONDON = "CCU/London"
#: The order of a recording.
ORDER = (1920, 1080, 90)
#: What the file grows by that nobody has told the jobs manager.
UNTOLD = bytes(5000)
#: What `recover` tells of and leaves as it is.
FOR_THE_OPERATOR = ("filmInNoJob", "pictureInNoJob", "fileMissing")
#: The kinds in the order in which it asks for them.
RUNNING_ORDER = (VIDEO, PHOTO_TALK, AUTO_LOG)


# Who ends -------------------------------------------------------------------------------------------------------------


class End:
    """The end of somebody when a call arrives, which is carried out nevertheless or not."""

    def __init__(self, carried_out):
        self.carried_out = carried_out
        self._done = threading.Event()

    def fault(self, unit):
        """What meets the call."""
        return MEANWHILE(lambda: self._end(unit), self.carried_out)

    def _end(self, unit):
        self.end(unit)
        self._done.set()

    def end(self, unit):
        """Ends it, on the loop's thread."""

    def wait_done(self):
        """Waits until the call has come and been carried out, if it is."""
        if not self._done.wait(PATIENCE):
            raise TimeoutError("the call has not come")
        shared_loop().call(lambda: None)

    def wait(self, unit, answer):
        """Waits until it has ended, and the daemon has done what it does about that."""

    def come_back(self, unit):
        """Has it come back."""


class NobodyEnds(End):
    """Peace."""

    def fault(self, unit):
        return MEANWHILE(lambda: None, True)

    def wait(self, unit, answer):
        unit.daemon.wait_ready()
        with contextlib.suppress(DbusFailure):
            if answer is not None:
                answer.result(PATIENCE)
        unit.settle()


class DaemonEnds(End):
    """SIGKILL of the daemon."""

    def end(self, unit):
        unit.kill()

    def wait(self, unit, _answer):
        self.wait_done()
        while SERVICE in unit.client.names():  # until the bus has passed on what the daemon had said
            pass

    def come_back(self, unit):
        unit.start_daemon()


class SiblingEnds(NobodyEnds):
    """SIGKILL of the sibling that is asked; the daemon is started anew all the same."""

    def fault(self, unit):
        return DIE_AFTER if self.carried_out else DIE

    def wait(self, unit, answer):
        super().wait(unit, answer)
        if not unit.video.alive:
            unit.video.lose_recordings()

    def come_back(self, unit):
        for sibling in (unit.video, unit.storage, unit.jobs, unit.hardware, unit.settings, unit.sync, unit.timedate):
            sibling.revive()
        unit.stop_daemon()
        unit.start_daemon()


class BusEnds(End):
    """SIGKILL of the bus, which ends the daemon; the siblings take up their names on the next one."""

    def end(self, unit):
        unit.stop_bus()

    def wait(self, unit, _answer):
        self.wait_done()
        unit.wait_exit()
        unit.client.close()
        unit.client.clear()  # what it has heard at the end is chance

    def come_back(self, unit):
        unit.renew_bus()
        unit.start_daemon()


#: By the words of the table.
ENDS = {
    "daemon, before": lambda: DaemonEnds(False), "daemon, after": lambda: DaemonEnds(True),
    "sibling, before": lambda: SiblingEnds(False), "sibling, after": lambda: SiblingEnds(True),
    "bus, before": lambda: BusEnds(False), "bus, after": lambda: BusEnds(True),
}


def meets(end, call):
    """Whether an end makes sense at a call: the system bus of timedated is another one, and stays."""
    return not (end == "bus, before" and call[0] == "timedate")


# What is left ---------------------------------------------------------------------------------------------------------


def described(parts):
    """The parts that there are in one text."""
    return ", ".join(part for part in parts if part) or NOTHING


def recording_left(unit, kind, media):
    """What is left of a recording, in words."""
    paths = Paths(media)
    film, rec_active, recovery = map(os.path.exists, (media, paths.rec_active, paths.recovery))
    item = unit.jobs.item_of(media)
    stale = item and film and item.size != os.path.getsize(media)
    markers = {(True, True): "both markers", (True, False): "recActive", (False, True): "recovery"}
    return described([
        "it runs" if unit.video.state(kind.name) else "",
        "file" if film else "",
        markers.get((rec_active, recovery), ""),
        item and ("item without a file" if not film else "item with old sizes" if stale else "item"),
    ])


def snapshot_left(unit):
    """The same of a snapshot."""
    path = os.path.join(unit.media, "job1", "media", "0001.jpeg")
    item = unit.jobs.item_of(path)
    return described(["picture" if os.path.exists(path) else "", item and "item"])


# The scenarios --------------------------------------------------------------------------------------------------------


class Scenario:
    """Something that happens while somebody ends."""

    kind = VIDEO
    behind = None  # the call behind which they are met; those up to it are another scenario's

    def prepare(self, unit):
        """What holds before."""

    def act(self, unit):
        """The step that is cut off; returns the future of its answer, if it has one."""

    def come_to_rest(self, unit):
        """Ends what stands in the way of a new recording and is no crash's."""

    @staticmethod
    def ask(unit, *call):
        """Makes a call whose answer may not come, and returns its future."""
        return unit.client.call_async(*call)

    def media(self, unit):
        """The file of the recording."""
        return self.kind.first_paths(unit).media

    def left(self, unit):
        """What is left, in words."""
        return recording_left(unit, self.kind, self.media(unit))


@dataclass
class Start(Scenario):
    """The start of a recording of a kind."""

    kind: object

    def act(self, unit):
        return self.ask(unit, f"{self.kind.prefix}RecordStart", "uuu", *ORDER)


class RefusedStart(Scenario):
    """What a start that the video daemon refuses does from then on: it takes back what was made."""

    behind = VIDEO.start_call

    def prepare(self, unit):
        unit.faults.on(*self.behind, kind=CODE(-2))

    def act(self, unit):
        return self.ask(unit, "VideoRecordStart", "uuu", *ORDER)


class Running(Scenario):
    """A scenario on a recording that runs, and whose file has grown since that was told last."""

    def prepare(self, unit):
        paths = self.kind.start_recording(unit)
        with open(paths.media, "ab") as file:
            file.write(UNTOLD)


class Stop(Running):
    """A stop."""

    def act(self, unit):
        return self.ask(unit, "VideoRecordStop")


class Limit(Running):
    """Growth to the size limit."""

    def act(self, unit):
        unit.video.grow(approaching_limit=True)


class Low(Running):
    """Storage that runs low."""

    def act(self, unit):
        unit.storage.set_low("card")

    def come_to_rest(self, unit):
        unit.storage.set_low("card", False)


class Pulled(Running):
    """Storage that is pulled out, and its files with it."""

    def prepare(self, unit):
        super().prepare(unit)
        self.mount, self.film = unit.media, self.media(unit)

    def act(self, unit):
        os.rename(self.mount, self.mount + "-pulled")
        unit.storage.remove_device("card")

    def left(self, unit):
        os.rename(self.mount + "-pulled", self.mount)
        return recording_left(unit, self.kind, self.film)

    def come_to_rest(self, unit):
        unit.storage.add_device("card", self.mount)


class Snapshot(Scenario):
    """A snapshot."""

    def act(self, unit):
        return self.ask(unit, "Snapshot", "uuu", 640, 480, 90)

    def left(self, unit):
        return snapshot_left(unit)


class Clock(Scenario):
    """Something that changes clock or zone: which of it holds, and has been told."""

    def prepare(self, unit):
        unit.timedate.timezone = LONDON
        unit.timedate.times.clear()
        unit.client.clear()

    def left(self, unit):
        told = {signal.member for signal in unit.client.announced}
        return described([
            "zone set" if unit.timedate.timezone != LONDON else "",
            "clock set" if unit.timedate.times else "",
            *(f'"{name}"' for name in ("TimezoneChanged", "TimeChanged") if name in told)])


class SetTime(Clock):
    """The clock, by fields of the zone's other form."""

    def act(self, unit):
        return self.ask(unit, "SetTime", "iiiiiibb", 2025, 6, 15, 12, 0, 0, True, True)


class SetTimezone(Clock):
    """The zone."""

    def act(self, unit):
        return self.ask(unit, "SetTimezone", "s", "Berlin")


class StartUp(Running):
    """The start of the daemon while a recording runs."""

    def prepare(self, unit):
        super().prepare(unit)
        unit.stop_daemon()

    def act(self, unit):
        shared_loop().call(unit.start_daemon, False)  # no call is served before it has returned


#: By their names in the table.
SCENARIOS = {
    "start": lambda: Start(VIDEO), **{f"start {kind}": functools.partial(Start, kind) for kind in KINDS
                                     if kind is not VIDEO},
    "start refused": RefusedStart, "stop": Stop, "size limit": Limit, "storage low": Low, "storage removed": Pulled,
    "snapshot": Snapshot, "SetTime": SetTime, "SetTimezone": SetTimezone, "start-up": StartUp,
}


# The runs -------------------------------------------------------------------------------------------------------------


def properties(unit):
    """What the daemon tells, but for what a scenario may change, which must be what its siblings say."""
    told = unit.client.get_all()
    zone = unit.timedate.timezone
    assert (told.pop("GetTimezone"), told.pop("GetDst")) == (zone.rpartition("/")[2], "DST" in zone)
    assert told.pop("GetTimeSourceAvailable") == int(not unit.video.get("ActiveCaptures"))
    return told


def goes_on(unit):
    """What still records can be stopped, and the next recording is as good as any."""
    for kind in KINDS:
        if unit.video.state(kind.name):
            assert kind.order(unit, "Stop") == (0, MESSAGES[0])
    unit.settle()
    assert VIDEO.order(unit, "Start", *ORDER) == (0, MESSAGES[0])
    assert VIDEO.order(unit, "Stop") == (0, MESSAGES[0])
    unit.settle()


def found_by(told):
    """What `recover` has found, in its own words."""
    return ", ".join(left["what"] for left in told["found"]) or NOTHING


def recover(unit, *options):
    """Runs it; returns what it has told."""
    done = run(unit, ["recover", "--json", *options])
    assert done.status == DONE, done
    return done.object


def contents(unit):
    """Every file of the job, with what is in it."""
    folder = os.path.join(unit.media, "job1", "media")
    found = {}
    for name in left_over(unit):
        os.chmod(os.path.join(folder, name), 0o600)  # markers cannot be read by anybody else
        with open(os.path.join(folder, name), "rb") as file:
            found[name] = file.read()
    return found


def is_marker(name):
    """Whether it is the name of one, of which the empty ones may go."""
    return name.startswith(".")


def mended(unit):
    """Has `recover` list what was left, and mend it; returns what it found.  Nothing is touched by the list, nor is
    what holds a picture or a film ever, nor a recording that goes on."""
    before, items = contents(unit), dict(unit.jobs.items)
    found = recover(unit)
    assert (contents(unit), unit.jobs.items) == (before, items)
    applied = recover(unit, "--apply")
    assert applied["running"] == found["running"] == [
        unit.video.get(f"{kind.member}Filename") for kind in RUNNING_ORDER if unit.video.state(kind.name)]
    after = contents(unit)
    stems = {os.path.splitext(os.path.basename(path))[0] for path in found["running"]}
    kept = {name for name in before if not is_marker(name) or name.rpartition("-")[0][1:] in stems}
    assert {name: after.get(name) for name in kept} == {name: before[name] for name in kept}
    assert set(unit.jobs.items) >= {key for key, item in items.items() if item.path in found["running"]}
    assert [left["mended"] for left in applied["found"]] == [
        left["what"] not in FOR_THE_OPERATOR for left in found["found"]]
    return found_by(found)


def assert_whole(unit):
    """Nothing is left but what only an operator can judge, and every other item has its file and its size."""
    found = {left["path"]: left["what"] for left in recover(unit)["found"]}
    assert set(found.values()) <= set(FOR_THE_OPERATOR)
    for item in unit.jobs.items.values():
        if found.get(item.path) != "fileMissing":
            assert item.type == "snapshot" or item.size == os.path.getsize(item.path), item


def play(unit, scenario, end, index=0):
    """Plays a scenario on a unit that is as new, with an end at one call; returns its calls, what was left, and what
    of it `recover` has found."""
    before = properties(unit)
    scenario.prepare(unit)
    unit.settle()
    mark = unit.calls.mark()
    unit.faults.at(index, end.fault(unit))
    end.wait(unit, scenario.act(unit))
    calls = unit.calls.members(since=mark)
    left = scenario.left(unit)
    unit.faults.clear()
    end.come_back(unit)
    scenario.come_to_rest(unit)
    unit.settle()
    assert properties(unit) == before
    found = mended(unit)
    goes_on(unit)
    assert_whole(unit)
    return calls, left, found


def calls_of(lender, name):
    """The calls of a scenario that somebody can end at, as (index, call), found by playing it in peace."""
    with lender.lend() as unit:
        calls = play(unit, SCENARIOS[name](), NobodyEnds(True))[0]
    behind = SCENARIOS[name]().behind
    first = calls.index(behind) + 1 if behind else 0
    return list(enumerate(calls))[first:]


def rows_of(lender, name):
    """The rows of a scenario, without what they come to."""
    calls = calls_of(lender, name)
    return [Row(name, end, index, " ".join(call), "", "") for end in ENDS for index, call in calls if meets(end, call)]


def played(lender, row):
    """A row with what comes of it."""
    with lender.lend() as unit:
        _, left, found = play(unit, SCENARIOS[row.scenario](), ENDS[row.end](), row.index)
    return dataclasses.replace(row, left=left, found=found)


def _main():
    """Plays everything, and keeps what comes of it."""
    lender = Lender(bus_timeout=AT_ONCE)
    rows = [played(lender, row) for name in SCENARIOS for row in rows_of(lender, name)]
    lender.close()
    keep(rows)


if __name__ == "__main__":
    _main()
