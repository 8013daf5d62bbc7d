"""What fuzzes the daemon sees what it is to see: wrongs that are planted into the daemon from outside."""

import json
import os
import subprocess
import sys

import pytest

from tests.fuzz.player import Finding
from tests.fuzz.search import Search
from virtual_unit import PATIENCE

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
#: What is planted, and what kind of finding it is to be.
PLANTED = {
    "no answer": "answers", "two answers": "answers", "types": "refusal", "signal": "types", "message": "code",
    "refusal": "refusal", "descriptor": "leak", "thread": "leak", "zombie": "leak", "crash": "dead", "hang": "silent",
    "marker": "marker", "format": "log", "conversion": "log", "shell": "shell",
    "report": "sanitizer",
}
#: Those that are seen by what does not come: the less is waited for it the sooner, and it never comes.
WAITED_FOR = {"leak": {"grace": PATIENCE / 120}, "silent": {"patience": PATIENCE / 120}}
SEED = 3  # with which most are met soon
#: Steps of their own for what a short search does not meet.
RECORD = ["call", "VideoRecordStart", "uuu", [1920, 1080, 90]]
RARE = {
    "marker": [["fault_on", "video", "StartRecording", "refuse"], RECORD],
    "format": [["call", "SetTimezone", "s", ["{format %d %s %.500x %5$s %%}"]]],
    "shell": [["call", "PlayAudio", "s", ["$(touch ran-by-shell).wav"]]],
}


@pytest.fixture(name="make_search")
def make_search_fixture():
    """Makes searches, which end with the test."""
    searches = []

    def make(**options):
        searches.append(Search(**options))
        return searches[-1]

    yield make
    for search in searches:
        search.close()


@pytest.mark.parametrize("planted", sorted(set(PLANTED) - set(RARE)))
def test_a_planted_wrong_is_found(make_search, planted):
    """By random steps of one seed."""
    kind = PLANTED[planted]
    search = make_search(planted=planted, **WAITED_FOR.get(kind, {}))
    assert search.look(SEED, shrink=False)
    assert search.finding.kind == kind


@pytest.mark.parametrize("planted", sorted(RARE))
def test_a_planted_wrong_is_seen(make_search, planted):
    """Where the steps lead to it."""
    with pytest.raises(Finding) as raised:
        make_search(planted=planted).play(RARE[planted])
    assert raised.value.kind == PLANTED[planted]


@pytest.mark.parametrize("planted", sorted(RARE))
def test_the_same_steps_show_nothing_without_it(make_search, planted):
    """So what is seen is the wrong and not the steps."""
    make_search().play(RARE[planted])


def fuzz(*words):
    """What the command, with these words, ends with and says."""
    done = subprocess.run([sys.executable, "-m", "tests.fuzz", *map(str, words)], cwd=ROOT, check=False,
                          stdout=subprocess.PIPE, text=True)
    return done.returncode, done.stdout


def test_a_finding_is_told_and_can_be_had_again(tmp_path):
    """With its seed and the one step that matters, in a file that the command takes."""
    status, said = fuzz("--folder", tmp_path, "--planted", "message", "--seed", SEED)
    assert status == 1 and f"FOUND with seed {SEED}: code: " in said
    path = tmp_path / f"seed-{SEED}.json"
    recorded = json.loads(path.read_text(encoding="utf-8"))
    [step] = recorded["steps"]
    assert recorded["seed"] == SEED and step[0] == "call" and json.dumps(step) in said
    status, said = fuzz("--planted", "message", "--replay", path)
    assert status == 1 and said.startswith("FOUND: code: ")
    assert fuzz("--replay", path)[0] == 0


@pytest.mark.parametrize("ends, status", [("exit 0", 0), ("echo overrun >&2; exit 77", 1), (None, 1)])
def test_what_a_fuzzer_finds_is_told(tmp_path, ends, status):
    """Or that there is none."""
    if ends is not None:
        program = tmp_path / "fuzz_Messages"
        program.write_text(f"#!/bin/sh\n{ends}\n", encoding="utf-8")
        program.chmod(0o755)
    ended, said = fuzz("--minutes", 0, "--fuzzers", tmp_path, "--folder", tmp_path)
    assert ended == status and ("FOUND by" in said) == bool(status)
    assert ends is None or ("overrun" in said) == bool(status)
