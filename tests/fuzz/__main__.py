"""./ccu fuzz: the daemon of the sanitizer build under random steps, for as long as is wished."""

import argparse
import json
import os
import random
import sys
import time

from tests.fuzz.player import Finding
from tests.fuzz.search import Search


#: How much of a unit's report is kept with a finding.
_LINES = 1000


def _report(search, number, folder):
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, f"seed-{number}.json")
    with open(path, "w", encoding="utf-8") as file:
        json.dump({"seed": number, "finding": str(search.finding), "steps": search.steps, "before": search.before,
                   "unit": "\n".join(getattr(search.finding, "__notes__", [])).splitlines()[-_LINES:]}, file, indent=1)
    print(f"FOUND with seed {number}: {str(search.finding):.2000}")
    print("The steps that are left of it:", *map(json.dumps, search.steps), sep="\n  ")
    print(f"Once more: ./ccu fuzz --replay {path} (with the log and the calls of that time)")


def _replay(path, search):
    with open(path, encoding="utf-8") as file:
        recorded = json.load(file)
    try:
        search.play(recorded["steps"])
        print("nothing found in the steps alone: once more with all that was played before them", flush=True)
        for steps in (*recorded["before"], recorded["steps"]):
            search.play(steps)
    except Finding as finding:
        print(f"FOUND: {finding}")
        return 1
    print("nothing found")
    return 0


def _fuzz(arguments, search):
    first = arguments.seed if arguments.seed is not None else random.SystemRandom().randrange(10 ** 9)
    print(f"Seed {first}", flush=True)
    began, number = time.monotonic(), first
    while time.monotonic() - began < 60 * arguments.minutes:
        if search.look(number):
            _report(search, number, arguments.folder)
            return 1
        number += 1
    print(f"{search.taken} steps of {number - first} seeds in {(time.monotonic() - began) / 60:.1f} minutes: nothing found")
    return 0


def main():
    """The command's exit status: 1 when something was found."""
    parser = argparse.ArgumentParser(prog="./ccu fuzz", description=__doc__)
    parser.add_argument("--minutes", type=float, default=1)
    parser.add_argument("--seed", type=int)
    parser.add_argument("--replay", metavar="FILE", help="play the steps of a former finding")
    parser.add_argument("--planted", metavar="NAME", help="with a wrong planted into the daemon, see planted.c")
    parser.add_argument("--folder", default=os.path.join("build", "fuzz"), help="where a finding's steps go")
    arguments = parser.parse_args()
    search = Search(planted=arguments.planted)
    try:
        return _replay(arguments.replay, search) if arguments.replay else _fuzz(arguments, search)
    finally:
        search.close()


sys.exit(main())
