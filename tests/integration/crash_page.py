"""What a crash leaves, as it is kept and as the operator's page tells it.

crash_matrix.tsv has a line for each call at which somebody was ended by crash_matrix.py; the page has its lines between
two marks made of that. As a program it makes the page anew ("./ccu pages"; "./ccu pages crash" plays the matrix first).
"""

import dataclasses
import itertools
import os
import re
from dataclasses import dataclass

_FOLDER = os.path.dirname(os.path.abspath(__file__))
_KEPT = os.path.join(_FOLDER, "crash_matrix.tsv")
PAGE = os.path.join(os.path.dirname(os.path.dirname(_FOLDER)), "docs", "after-a-crash.md")

NOTHING = "nothing"


@dataclass(frozen=True)
class Row:
    """What one run has come to.

    scenario  what was going on
    end       who ended, and whether the call was carried out
    index     the call's, among those of the scenario
    call      sibling and member
    left      what was left
    found     what of it `controllerctl recover` tells
    """
    scenario: str
    end: str
    index: int
    call: str
    left: str
    found: str

    @property
    def outcome(self):
        """What it has come to."""
        return self.left, self.found


def keep(rows):
    """Writes the table."""
    with open(_KEPT, "w", encoding="utf-8") as file:
        for row in rows:
            print(*dataclasses.astuple(row), sep="\t", file=file)


def kept():
    """The table."""
    with open(_KEPT, encoding="utf-8") as file:
        fields = [line.rstrip("\n").split("\t") for line in file]
    return [Row(scenario, end, int(index), call, left, found) for scenario, end, index, call, left, found in fields]


# The page -------------------------------------------------------------------------------------------------------------

_MARK = "<!-- {} -->"
_ENDS = ("daemon", "sibling", "bus")
#: How the page calls what was going on, in its order.
_TITLES = {
    "start": "The start of a recording", "start refused": "A start that the video daemon has refused",
    "stop": "A stop", "size limit": "A file that nears its size limit", "storage low": "Storage that runs low",
    "storage removed": "Storage that is pulled out", "snapshot": "A snapshot", "SetTime": '"SetTime"',
    "SetTimezone": '"SetTimezone"', "start-up": "The start of the daemon while a recording runs",
}
_STOP = "nothing: stop it, which saves it"
_NOT_TOLD = "nothing: it holds, and the controller tells it when it is asked; clients have not heard of it"
#: Everything that can be left, with the name that it has in the tables, and what there is to do about it.
TO_DO = {
    NOTHING: (NOTHING, "nothing"),
    "both markers": ("markers", "`recover --apply` removes the markers"),
    "both markers, item without a file": ("markers, item", "`recover --apply` removes the item, then the markers"),
    "item without a file": ("item alone", "delete it in the job; it was never recorded"),
    "it runs, file, both markers, item": ("runs", _STOP),
    "it runs, file, both markers, item with old sizes": ("runs, old sizes", f"{_STOP} and brings its sizes up to date"),
    "it runs, file, item with old sizes": ("runs, unmarked", f"{_STOP} and brings its sizes up to date"),
    "file, both markers, item with old sizes": (
        "cut off", "`recover --apply` brings the sizes up to date and removes the markers; see whether the film plays"),
    "file, recActive, item with old sizes": (
        "saved, marked", "`recover --apply` brings the sizes up to date and removes the marker; the film is whole"),
    "file, item with old sizes": (
        "saved, old sizes", "`recover --apply` brings the sizes up to date, old or not: nobody tells them; the film is "
        "whole"),
    "file, item": ("saved", "nothing"),
    "file": ("film in no job", "copy it or enter it into the job; see whether it plays"),
    "picture": ("picture in no job", "copy it or enter it into the job"),
    "picture, item": ("picture", "nothing"),
    "zone set": ("zone", f"{_NOT_TOLD}. A clock that was to be set with it is to be set again"),
    "zone set, clock set": ("zone, clock", _NOT_TOLD),
    'zone set, "TimezoneChanged"': ("zone, told", f"{_NOT_TOLD} by \"TimeChanged\""),
    'zone set, clock set, "TimezoneChanged"': ("zone, clock, zone told", f"{_NOT_TOLD} by \"TimeChanged\""),
    'zone set, "TimezoneChanged", "TimeChanged"': ("zone, all told", "nothing: it is done"),
    'zone set, clock set, "TimezoneChanged", "TimeChanged"': ("zone, clock, all told", "nothing: it is done"),
}


def _table(head, rows):
    return ["", *(f"| {' | '.join(row)} |" for row in (head, ["---"] * len(head), *rows)), ""]


def as_of_video(call):
    """A call of the start of any kind of recording as it is of a video."""
    return re.sub("PhotoTalk|AutoLog", "Recording", re.sub("Add(PhotoTalk|Autolog)Media", "AddVideoMedia", call))


def calls_with_outcomes(rows):
    """The calls of a scenario, each with the names of what comes of every end at it; empty where an end makes no
    sense."""
    ends = [f"{end}, {when}" for end in _ENDS for when in ("before", "after")]
    by_call = {}
    for row in rows:
        by_call.setdefault((row.index, row.call), {})[row.end] = TO_DO[row.left][0]
    return [(call, tuple(left.get(end, "") for end in ends)) for (_, call), left in sorted(by_call.items())]


def _spans(rows):
    """The calls of a scenario, those in one row that follow each other and at which the same comes of every end."""
    for outcomes, calls in itertools.groupby(calls_with_outcomes(rows), key=lambda pair: pair[1]):
        names = [f"`{call}`" for call, _ in calls]
        yield [names[0] if len(names) == 1 else f"{names[0]} to {names[-1]}", *outcomes]


def _made(rows):
    """The lines of the page."""
    found = {}
    for row in rows:
        found.setdefault(row.left, set()).add(row.found)
    yield from _table(("Name", "What there is", "`recover` says", "What to do"), [
        (name, left, " or ".join(sorted(f"`{each}`" if each != NOTHING else each for each in found[left])), todo)
        for left, (name, todo) in TO_DO.items()])
    head = ("While the daemon asks", *(f"{end}, {when}" for end in _ENDS for when in ("before", "after")))
    for scenario, title in _TITLES.items():
        yield f"### {title}"
        yield from _table(head, _spans([row for row in rows if row.scenario == scenario]))


def made():
    """The text of the page as it should be."""
    begin, end = _MARK.format("made: crashes"), _MARK.format("made: end")
    with open(PAGE, encoding="utf-8") as file:
        before, _, rest = file.read().partition(begin + "\n")
    after = rest.partition(end + "\n")[2]
    return "".join((before, begin, "\n", *(f"{line}\n" for line in _made(kept())), end, "\n", after))


if __name__ == "__main__":
    _TEXT = made()
    with open(PAGE, "w", encoding="utf-8") as page:
        page.write(_TEXT)
