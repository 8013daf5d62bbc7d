"""./ccu fuzz: the daemon of the sanitizer build under random steps, for as long as is wished, and beside that each of
the fuzzers in turn."""

import argparse
import glob
import json
import os
import random
import subprocess
import sys
import tempfile
import threading
import time

from tests.fuzz.player import Finding
from tests.fuzz.search import Search
from virtual_unit.loop import spawn

_CORPUS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")
#: How much of a fuzzer's words is shown.
_CHARACTERS = 4000


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


class Fuzzers(threading.Thread):
    """Runs the fuzzers of a folder one after the other, with an equal share of the time."""

    def __init__(self, folder, minutes, first, into):
        super().__init__(daemon=True)
        self._programs = sorted(glob.glob(os.path.join(folder, "fuzz_*")))
        self._seconds = max(1, int(60 * minutes / max(1, len(self._programs))))
        self._seed, self._into = first, into
        #: What each has said that has found something.
        self.found = [] if self._programs else [f"there are no fuzzers in {folder}"]

    def run(self):
        for program in self._programs:
            name = os.path.basename(program).removeprefix("fuzz_")
            fresh = os.path.join(self._into, name)
            os.makedirs(fresh, exist_ok=True)
            with tempfile.TemporaryDirectory(prefix="ccu-fuzz-") as folder:  # a fuzzer ends without tidying up
                process = spawn([program, f"-max_total_time={self._seconds}", f"-seed={self._seed % 2 ** 32 or 1}",
                                 "-max_len=512", f"-artifact_prefix={fresh}-", fresh, os.path.join(_CORPUS, name)],
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, errors="replace",
                                env={**os.environ, "TMPDIR": folder})
                said = process.stderr.read()
                status = process.wait()
            if status != 0:
                self.found.append(f"{name}:\n{said[-_CHARACTERS:]}")
            print(f"{name}: {' '.join(said.splitlines()[-1:])}", flush=True)


def _fuzz(arguments, search):
    first = arguments.seed if arguments.seed is not None else random.SystemRandom().randrange(10 ** 9)
    print(f"Seed {first}", flush=True)
    fuzzers = Fuzzers(arguments.fuzzers, arguments.minutes, first, arguments.folder) if arguments.fuzzers else None
    if fuzzers:
        fuzzers.start()
    began, number, found = time.monotonic(), first, False
    while time.monotonic() - began < 60 * arguments.minutes and not found:
        found = search.look(number)
        if found:
            _report(search, number, arguments.folder)
        number += 1
    took = (time.monotonic() - began) / 60
    print(f"{search.taken} steps of {number - first} seeds in {took:.1f} minutes: {'' if found else 'nothing '}found")
    if fuzzers and not found:
        fuzzers.join()
        for text in fuzzers.found:
            print(f"FOUND by {text}")
        found = bool(fuzzers.found)
    return int(found)


def main():
    """The command's exit status: 1 when something was found."""
    parser = argparse.ArgumentParser(prog="./ccu fuzz", description=__doc__)
    parser.add_argument("--minutes", type=float, default=1)
    parser.add_argument("--seed", type=int)
    parser.add_argument("--replay", metavar="FILE", help="play the steps of a former finding")
    parser.add_argument("--planted", metavar="NAME", help="with a wrong planted into the daemon, see planted.c")
    parser.add_argument("--fuzzers", metavar="DIR", help="where the fuzzers are; none are run without")
    parser.add_argument("--folder", default=os.path.join("build", "findings"), help="where a finding's steps go")
    arguments = parser.parse_args()
    search = Search(planted=arguments.planted)
    try:
        return _replay(arguments.replay, search) if arguments.replay else _fuzz(arguments, search)
    finally:
        search.close()


sys.exit(main())
