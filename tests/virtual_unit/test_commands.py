"""The commands that work on units that run, as a user types them, and their completion in the shells."""

import contextlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

import pytest

from tests.virtual_unit.in_process import command
from virtual_unit import DIE_AFTER, PATIENCE, VirtualUnit
from virtual_unit.__main__ import Commands
from virtual_unit.complete import FILES, complete
from virtual_unit.registry import NoUnit, announce, choose, units
from virtual_unit.verbs import nouns

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
_CCU = os.path.join(_ROOT, "ccu")


@pytest.fixture(name="home")
def home_fixture(monkeypatch):
    """A folder for units that no other test has any in."""
    folder = tempfile.mkdtemp(prefix="c-", dir="/tmp")
    monkeypatch.setenv("TMPDIR", folder)
    monkeypatch.delenv("CCU_UNIT", raising=False)
    yield folder
    shutil.rmtree(folder)


@contextlib.contextmanager
def _running(home, name="mine", **options):
    with VirtualUnit(directory=home, **{"daemon": False, **options}) as unit, announce(unit, name):
        yield unit


def _ccu(*words, cwd=None, **environment):
    """Runs ./ccu; returns its status, output and errors."""
    done = subprocess.run([_CCU, *words], text=True, capture_output=True, check=False, cwd=cwd,
                          env={**os.environ, **environment}, timeout=5 * PATIENCE)
    return done.returncode, done.stdout, done.stderr


def _without(module, folder, *words):
    """Runs a command where Python does not find a module; returns its status, output and errors."""
    (folder / f"{module}.py").write_text(f"raise ModuleNotFoundError('No module', name='{module}')\n", "utf-8")
    done = subprocess.run([sys.executable, "-m", "virtual_unit", *words], cwd=_ROOT, text=True, capture_output=True,
                          check=False, env={**os.environ, "PYTHONPATH": str(folder)})
    return done.returncode, done.stdout, done.stderr


@pytest.mark.parametrize("words, module, package", [
    (["record", "here.trace"], "dpkt", "python3-dpkt"), (["trace", "here.trace"], "jeepney", "python3-jeepney"),
    (["replay", "here.trace"], "dpkt", "python3-dpkt"), (["panel"], "aiohttp", "python3-aiohttp")])
def test_a_package_that_is_only_recommended_is_asked_for(tmp_path, words, module, package):
    """By the commands that need it, where somebody has gone without."""
    assert _without(module, tmp_path, *words) == (1, "", f"ccu: {words[0]} needs the package {package}\n")


@pytest.mark.parametrize("command", [[], ["--", "true"]])
def test_a_unit_without_the_panel_that_was_wanted_ends(tmp_path, command):
    """For the reason that the panel gives."""
    status, printed, said = _without("aiohttp", tmp_path, "up", "--panel", *command)
    assert (status, said) == (1, "ccu: panel needs the package python3-aiohttp\nthe panel has ended with status 1\n")
    assert printed.count("export ") == len(printed.splitlines()) == (0 if command else 3)


# Doing ----------------------------------------------------------------------------------------------------------------


def test_what_is_done_and_what_comes_of_it_in_one_line(home):
    """And in JSON, wherever the option stands."""
    with _running(home) as unit:
        assert _ccu("do", "storage", "remove", "card") == (0, "card is pulled out\n", "")
        assert unit.storage.devices() == ["internal"]
        assert command("do", "fault", "video", "StartRecording", "refuse", "--times", "1") == (
            0, "fault 1: video StartRecording meets refuse\n", "")
        assert [(rule.member, rule.left) for rule in unit.faults.rules()] == [("StartRecording", 1)]
        assert command("do", "camera", "roll", "-30")[:2] == (0, "the head is turned to -30 degrees\n")
        assert command("do", "storage", "low", "internal")[1] == "internal runs low\n"
        assert command("do", "storage", "low", "internal", "off")[1] == "internal has space again\n"
        for words in (("do", "--json", "reel", "distance", "12.34"), ("do", "reel", "distance", "12.34", "--json")):
            status, told, _ = command(*words)
            assert status == 0 and json.loads(told) == {
                "ok": True, "noun": "reel", "verb": "distance", "arguments": {"metres": 12.34}, "results": {},
                "effect": "the counter shows 12.34 m", "settled": True}


def test_what_is_refused_is_said(home):
    """By the unit with status 1, by the command's own parser with 2."""
    with _running(home):
        assert _ccu("do", "storage", "remove", "disk") == (1, "", "ccu: no device 'disk'; there are: card, internal\n")
        status, told, _ = command("do", "storage", "remove", "disk", "--json")
        assert (status, json.loads(told)) == (
            1, {"ok": False, "message": "no device 'disk'; there are: card, internal"})
        for words, text in ((("do", "reel", "distance", "far"), "'far' is no number"),
                            (("do", "storage", "pull", "card"), "invalid choice: 'pull'"),
                            (("do", "cooling", "fan", "300"), "300 is not between 0 and 255"),
                            (("do", "reel", "mode", "odd"), "'odd' is none of absolute, relative")):
            status, _, errors = command(*words)
            assert status == 2 and text in errors


def test_the_state_of_a_noun(home):
    """One property a line, or all as JSON."""
    with _running(home):
        status, told, _ = command("do", "reel", "state")
        assert status == 0 and told.splitlines() == [
            "Absolute   1234", "Connected  true", "Distance   2.34", "Mode       relative", "Relative   234"]
        assert json.loads(command("do", "reel", "state", "--json")[1])["state"]["Distance"] == 2.34


def test_every_noun_and_verb_has_help():
    """With what the declaration says of it."""
    for noun in nouns().values():
        status, told, _ = command("do", noun.name, "--help")
        assert status == 0
        for verb in noun.verbs.values():
            assert re.search(rf"^    {verb.name}(?: |$)", told, re.MULTILINE)
    told = " ".join(_ccu("do", "fault", "add", "--help")[1].split())
    assert "Calls to a member of a sibling meet a fault" in told and "--times TIMES" in told


def test_a_sibling_dies_behind_a_command(home):
    """What a unit does not survive is no success: nobody listens, and that is said."""
    with _running(home) as unit:
        unit.simulation.die()
        status, _, errors = command("do", "reel", "zero")
        assert status == 1 and errors.startswith("ccu: ")


# Units ----------------------------------------------------------------------------------------------------------------


def test_several_side_by_side(home):
    """Each has a name, its own or one that is free; ended ones are none."""
    assert command("list") == (0, "", "no unit is running: start one with ./ccu up\n")
    with _running(home, "") as first, _running(home, "") as second, _running(home, "mine") as third:
        assert [unit.name for unit in (first, second, third)] == ["unit", "unit2", "mine"]
        assert [line.split()[0] for line in _ccu("list")[1].splitlines()] == ["mine", "unit", "unit2"]
        told = json.loads(command("list", "--json")[1])
        assert [(unit["name"], unit["folder"], unit["pid"]) for unit in told] == [
            ("mine", third.directory, 0), ("unit", first.directory, 0), ("unit2", second.directory, 0)]
        with pytest.raises(NoUnit, match="there is a unit named mine already"):
            announce(first, "mine")
        assert command("do", "reel", "zero")[2] == (
            "ccu: several units are running: choose with --unit, or CCU_UNIT, one of mine, unit, unit2\n")
        assert command("do", "--unit", "unit2", "reel", "zero")[0] == 0
        assert _ccu("do", "reel", "connect", "off", CCU_UNIT=third.directory)[0] == 0
        assert [unit.hardware.reel["Relative"] for unit in (first, second, third)] == [234, 0, 234]
        assert [unit.hardware.reel["Connected"] for unit in (first, second, third)] == [True, True, False]
        assert command("env", "--unit", "other")[2] == "ccu: no unit is named other; there are: mine, unit, unit2\n"
    assert units() == []
    with pytest.raises(NoUnit, match="no unit runs in"):
        choose(first.directory)


def test_a_unit_of_a_killed_process_is_none(home):
    """Though its folder is still there."""
    with _running(home) as unit:
        mark = os.path.join(unit.directory, "up")
        left = os.path.join(home, "ccu-killed")
        os.mkdir(left)
        shutil.copy(mark, os.path.join(left, "up"))
        assert [found.folder for found in units()] == [unit.directory]


def test_a_command_in_a_unit_that_runs(home, tmp_path):
    """With its variables, where the user is, and with its own status."""
    with _running(home) as unit:
        script = 'echo "$DBUS_SESSION_BUS_ADDRESS|$CCU_UNIT|$PWD|$PATH"; exit 7'
        status, told, _ = _ccu("exec", "--", "sh", "-c", script, cwd=tmp_path)
        session, folder, where, path = told.strip().split("|")
        assert (status, session, folder, where) == (7, unit.session_address, unit.directory, str(tmp_path))
        assert path.startswith(os.path.join(unit.build_dir, "controllerctl") + ":")
        assert _ccu("exec", "--", "/nonexistent/command")[0] == 127
        assert _ccu("exec", "--", _ROOT)[0] == 126
        assert command("exec")[0] == 2
    assert command("exec", "--", "true")[0] == 1


def test_a_shell_in_a_unit_that_runs(home):
    """A second time changes nothing more."""
    with _running(home) as unit:
        script = f'eval "$({_CCU} env)"; first=$PATH; eval "$({_CCU} env)"; echo "$CCU_UNIT"; [ "$first" = "$PATH" ]'
        done = subprocess.run(["sh", "-c", script], text=True, capture_output=True, check=True, env=os.environ)
        assert done.stdout == f"{unit.directory}\n"
    assert command("env") == (1, "", "ccu: no unit is running: start one with ./ccu up\n")


def test_a_snapshot_by_command(home, tmp_path):
    """With a path from where the user is."""
    with _running(home) as unit:
        assert _ccu("snapshot", "save", "a.unit", cwd=tmp_path)[:2] == (0, f"kept in {tmp_path}/a.unit\n")
        unit.hardware.move_reel(1)
        assert _ccu("snapshot", "load", "a.unit", cwd=tmp_path)[0] == 0
        assert unit.hardware.reel["Relative"] == 234
        status, _, errors = _ccu("snapshot", "load", "none", cwd=tmp_path)
        assert status == 1 and f"{tmp_path}/none" in errors


def test_up_gives_its_unit_a_name_and_lives_on_without_its_daemon(home, build_dir):
    """It ends when the daemon ends by itself."""
    with subprocess.Popen([sys.executable, "-m", "virtual_unit", "up", "--unit", "mine"], cwd=_ROOT, text=True,
                          env={**os.environ, "CCU_BUILD_DIR": build_dir}, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL) as process:
        try:
            for _ in range(3):
                process.stdout.readline()
            assert command("do", "daemon", "restart")[0] == 0
            assert command("do", "daemon", "kill", "--unit", "mine")[:2] == (0, "the daemon was killed: status -9\n")
            assert command("list")[1].split()[:3] == ["mine", "no", "daemon"]
            assert command("do", "daemon", "start")[0] == 0 and process.poll() is None
            pid = json.loads(command("list", "--json")[1])[0]["pid"]
            os.kill(pid, 9)
            assert process.wait(PATIENCE) == 1
        finally:
            process.terminate()


# The demo -------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("words, status, text", [
    (("--list",), 0, "10  Clock and time zone\n"), (("storage",), 2, "no chapter 'storage'; --list shows them"),
    (("99",), 2, "no chapter '99'"), (("recording",), 2, "'recording' is in several titles: ")])
def test_the_chapters_of_the_demo_are_listed_and_chosen(words, status, text):
    """A chapter that is not meant clearly is not played."""
    ended, told, errors = command("demo", *words)
    assert ended == status and text in told + errors


# Completion -----------------------------------------------------------------------------------------------------------

_CASES = [
    (["do", "storage", "r"], ["remove", "read-only"]), (["do", "storage", "remove", ""], ["card", "internal"]),
    (["do", "fault", "h"], ["hardware"]), (["do", "fault", "c"], ["clear"]),
    (["do", "fault", "video", "StartR"], ["StartRecording"]),
    (["do", "fault", "add", "video", "any", "die"], ["die", "die-after"]),
    (["do", "fault", "video", "any", "refuse", "--t"], ["--times"]),
    (["do", "settings", "set", "audio", "s"], ["speakerEnabled", "speakerVolume"]),
    (["do", "storage", "low", "card", ""], ["on", "off"]), (["do", "reel", "mode", "r"], ["relative"]),
    (["do", "recording", "grow", "7", "--kind", "a"], ["autolog"]),
    (["do", "clock", "zone", "DST/Pari"], ["DST/Paris"]),
    (["do", "--unit", "mi"], ["mine"]), (["do", "--unit", "mine", "stor"], ["storage"]),
    (["key", "Ente"], ["Enter"]), (["key", "Enter", "re"], ["release", "repeat"]),
    (["snapshot", "l"], ["load"]), (["completion", ""], ["bash", "zsh"]), (["dem"], ["demo"]), (["cov"], ["coverage"]),
    (["run", "low"], ["low-power", "low-storage"]), (["nonsense", "x", ""], []), (["list", ""], []),
]
_SHELLS = {
    "bash": ["bash", "--norc", "--noprofile", "-c",
             'eval "$("$0" completion bash)"; COMP_WORDS=("$0" "$@"); COMP_CWORD=$#; compopt() { :; }; _ccu; '
             'printf "%s\\n" "${COMPREPLY[@]}"'],
    "zsh": ["zsh", "-f", "-c",
            'compdef() { :; }; eval "$("$0" completion zsh)"; _files() { :; }; '
            'compadd() { shift; print -rl -- "$@" }; words=("$0" "$@"); CURRENT=$#words; _ccu'],
}


def offered_for(words, others):
    """What the command line would offer."""
    return complete(Commands().with_do().parser, words, others)


@pytest.mark.parametrize("words, offered", _CASES, ids=[" ".join(words) for words, _ in _CASES])
def test_what_can_come_next(home, words, offered):
    """From the same declaration that is served and parsed."""
    with _running(home) if "--unit" in words else contextlib.nullcontext():
        found = [word for word in offered_for(words, ["coverage", "up"]) if word != FILES]
        assert found == offered


def test_files_are_left_to_the_shell():
    """Where one is meant."""
    for words in (["snapshot", "save", ""], ["run", "--junit", ""], ["do", "unit", "save", ""], ["build", ""]):
        assert offered_for(words, ["build"]) == [FILES]
    assert offered_for(["run", ""], [])[-1] == FILES


@pytest.mark.parametrize("shell", _SHELLS)
@pytest.mark.parametrize("words, offered", [
    (["do", "storage", "r"], ["remove", "read-only"]), (["co"], ["completion", "coverage"]),
    (["do", "fault", "jobs", "Get Ta"], ["Get TargetDeviceID"]), (["do", "nonsense", "x"], [])])
def test_the_shells_complete(home, shell, words, offered):
    """Commands of the script itself too."""
    done = subprocess.run([*_SHELLS[shell], _CCU, *words], text=True, capture_output=True, check=False, cwd=home)
    assert done.stderr == ""
    assert [line.replace("\\ ", " ") for line in done.stdout.splitlines() if line] == offered


def test_faults_of_kinds_with_two_words():
    """Are named with a dash in commands, and are those of the simulation."""
    assert DIE_AFTER.kind.replace(" ", "-") in nouns()["fault"].verbs["add"].inputs[2].fixed_choices
