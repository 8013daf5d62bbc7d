"""What is written of the command-line control holds: its help, man page, completions, JSON schema and examples."""

import json
import os
import re
import shlex
import subprocess
import time

import pytest

from interfaces.introspection import controller_members
from interfaces.pages import changes_of
from tests.integration.controllerctl_cases import (  # pylint: disable=unused-import
    CASES, DONE, NAMED_ALIKE, PROGRAM, USAGE, VERBS, Running, environment, prepare_status, run, stand_in_fixture)
from virtual_unit import PATIENCE
from virtual_unit.client import INTERFACE, PATH
from virtual_unit.values import zero

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FOLDER = os.path.join(ROOT, "controllerctl")
COMPLETION = {"bash": os.path.join(FOLDER, "completion", "controllerctl.bash"),
              "zsh": os.path.join(FOLDER, "completion", "_controllerctl")}
SHELL = {"bash": ["bash", "--norc", "--noprofile", "-c"], "zsh": ["zsh", "-f", "-c"]}
EVERYWHERE = {"--json", "--help", "--machine", "--host", "--address"}


def read(*path):
    """The text of a file of the tree."""
    with open(os.path.join(ROOT, *path), encoding="utf-8") as file:
        return file.read()


def help_of(unit, verb=""):
    """Members, options and the whole text of the help."""
    told = run(unit, verb + " --help", COLUMNS="1000")
    assert (told.status, told.errors) == (DONE, "")
    members = told.out.partition("Verbs:\n")[2].partition("\n\n")[0]
    options = set(re.findall(r"^ +(?:-[a-zA-Z],)?(--[a-z-]+)", told.out, re.MULTILINE))
    return re.findall(r"^  ([a-z-]+) ", members, re.MULTILINE), options, told.out


@pytest.fixture(scope="module", name="verbs")
def verbs_fixture(unit):
    """Every verb with its own options, as the program's help has them."""
    found = {}
    for name in help_of(unit)[0]:
        members, options, _ = help_of(unit, name)
        for member in members:
            found[f"{name} {member}"] = help_of(unit, f"{name} {member}")[1] - EVERYWHERE
        if not members:
            found[name] = options - EVERYWHERE
    return found


def verb_of(line):
    """The verb of a line: its first words that are written like one."""
    group = line.split(" ")[0] in ("record", "play", "sound", "time", "dst", "timezone")
    return " ".join(line.split(" ")[:2 if group else 1])


def test_every_verb_is_tested(verbs):
    """Against the stand-in, or in a test of its own."""
    others = {"status", "monitor", "wait", "doctor", "recover"}
    assert {verb_of(str(case)) for case in CASES} | others == set(verbs)
    assert {verb_of(str(case)) for case in VERBS} == set(verbs) - others


def test_the_man_page_has_every_verb(verbs):
    """With its options, and no other."""
    told = {}
    for line in re.findall(r'^\.SS "(.*)"$', read("controllerctl", "controllerctl.1"), re.MULTILINE):
        line = line.replace("\\-", "-")
        told[verb_of(line)] = set(re.findall(r"--[a-z-]+", line))
    assert told == verbs
    shown = subprocess.run(["man", "--warnings", "-l", os.path.join(FOLDER, "controllerctl.1")], text=True, check=True,
                           env={**os.environ, "MANPAGER": "cat", "LC_ALL": "C.UTF-8"}, capture_output=True)
    assert shown.stderr == "" and "controllerctl - control a camera" in re.sub(r"\s+", " ", shown.stdout)


def test_the_manual_has_every_verb(verbs):
    """Each once, with the members that it uses; and of members all that the controller has, but for properties that the
    status tells under their own name."""
    table = read("docs", "controllerctl.md").partition("\n## Verbs\n")[2].partition("\n## JSON\n")[0]
    rows = re.findall(r"^\| (`.*?) \| (.*) \|$", table, re.MULTILINE)
    assert sorted(re.findall(r"`([a-z -]+)`", " ".join(left for left, _ in rows))) == sorted(verbs)
    members = set(re.findall(r'"(\w+)"', " ".join(right for _, right in rows)))
    assert members | set(NAMED_ALIKE) == {member.name for member in controller_members()}


def test_the_comparison_has_every_verb(verbs):
    """In its first column, and no other; each row has a cell for each of the tools."""
    text = read("docs", "controllerctl-compared.md").partition("\n## Verb by verb\n")[2].partition("\n## ")[0]
    rows = [line.strip("| ").split(" | ") for line in text.splitlines() if line.startswith("| ")]
    assert {len(row) for row in rows} == {9}
    named = re.findall(r"`([a-z -]+)`", " ".join(row[0] for row in rows))
    assert {verb for verb in named if not verb.startswith("-")} == set(verbs)


def test_the_cases_use_every_method_and_property():
    """None is left out of the program."""
    called = {member.split(" ")[-1] for case in CASES for member, _ in case.calls}
    assert called | {"GetTimeSourceAvailable", *NAMED_ALIKE} == \
        {member.name for member in controller_members() if member.kind in ("method", "property")}


def test_wait_knows_every_signal_and_what_they_tell_of(unit):
    """By the names of the interface: all signals, and the properties whose changes are announced or told by a signal."""
    names = {member.name for member in controller_members() if member.kind == "signal"} | \
        {member.name for member in controller_members() if member.kind == "property" and changes_of(member)[0] != "untold"}
    listed = re.search(r"One of (.*)$", help_of(unit, "wait")[2], re.MULTILINE).group(1).split(", ")
    assert sorted(listed) == sorted(names)
    assert {"GetTimezone", "GetDst", "MicEnabled"} < names and "Sonde" not in names


@pytest.mark.parametrize("member", [member for member in controller_members()
                                    if member.kind == "property" and changes_of(member)[0] == "untold"],
                         ids=lambda member: member.name)
@pytest.mark.parametrize("value", ["", " on", " x"])
def test_what_nothing_tells_of_is_not_waited_for(unit, member, value):
    """The reason is that of the interface's file."""
    mark = unit.calls.mark()
    told = run(unit, f"wait {member.name}{value}")
    assert (told.status, told.out) == (USAGE, "")
    assert told.errors == (f"controllerctl: name: the controller does not tell of changes of {member.name}, "
                           f"{changes_of(member)[1]}\n")
    assert not unit.calls.since(mark)


def test_arguments_of_signals_have_the_names_of_the_interface(unit):
    """All of them, in order."""
    signals = [member for member in controller_members() if member.kind == "signal"]
    with Running(unit, f"monitor --json --count {len(signals)}") as monitor:
        for member in signals:
            unit.controller.emit(PATH, INTERFACE, member.name, *(zero(kind) for kind, _ in member.outputs))
            told = json.loads(monitor.line())
            assert (told["name"], list(told["arguments"])) == (member.name, [name for _, name in member.outputs])


# Completion -----------------------------------------------------------------------------------------------------------

#: Each runs the completion of the words that it is given, of which the last is not finished, and prints one a line.
RUNNER = {
    "bash": 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); compopt() { :; }; _controllerctl; '
            'printf "%s\\n" "${COMPREPLY[@]}"',
    "zsh": r"""_describe() { print -rl -- "${(@P)4}" | sed -E 's/^((\\.|[^:\\])*):.*/\1/; s/\\(.)/\1/g' | while read -r entry; do
           [[ $entry == ${words[CURRENT]}* ]] && print -r -- $entry; done; return 0 }
           _files() { print -r -- files "$@" }; words=("$@"); CURRENT=$#; file=$0; set --; source $file""",
}


def complete(unit, shell, *words, some=True):
    """What the completion offers for the last word.  It gives up after a quarter of a second, which is not enough where
    the machine is busy: where some are to be offered, it is asked again."""
    deadline = time.monotonic() + PATIENCE
    while True:
        done = subprocess.run([*SHELL[shell], RUNNER[shell], COMPLETION[shell], PROGRAM, *words], text=True, check=False,
                              env=environment(unit), cwd=unit.directory, capture_output=True)
        assert done.stderr == ""
        if done.stdout.strip():
            return done.stdout.removesuffix("\n").split("\n")
        if not some or time.monotonic() > deadline:
            return []


@pytest.mark.parametrize("shell", COMPLETION)
def test_verbs_and_options_are_completed(unit, verbs, shell):
    """All that the help has and nothing else."""
    groups = {name.split(" ")[0] for name in verbs if " " in name}
    assert sorted(complete(unit, shell, "")) == sorted({name.split(" ")[0] for name in verbs})
    assert set(complete(unit, shell, "--")) == EVERYWHERE | {"--version"}
    for group in groups:
        assert sorted(complete(unit, shell, "--json", group, "")) == \
            sorted(name.split(" ")[1] for name in verbs if name.startswith(group + " "))
    for verb, options in verbs.items():
        assert sorted(complete(unit, shell, *verb.split(" "), "--")) == sorted(options | EVERYWHERE), verb


@pytest.mark.parametrize("shell", COMPLETION)
@pytest.mark.parametrize("line, offered", [
    ("rec", ["record", "recover"]), ("time set-", ["set-gps"]), ("nothing ", None), ("mic ", ["on", "off", "toggle"]), ("mic of", ["off"]),
    ("dst set ", ["on", "off"]), ("time set --dst ", ["on", "off"]), ("record stop --kind ph", ["photo-talk"]),
    ("record start --width ", []), ("wait MicEnabled ", ["on", "off"]), ("wait SpkrVolume ", []),
    ("time set n", ["now"]), ("--host unit mi", ["mic"]), ("-H unit timezone set ", []), ("wait Cap", ["CaptureError", "CaptureSizeLimitReached"]),
    ("timezone set New", ["New York", "Newport"]), ("sound play b", ["beep.wav", "bell two.wav"]),
    ("sound play $", ["$(touch x).wav"]), ("sound play it", ["it's.wav"]), ("timezone list ", [])])
def test_values_are_completed(unit, shell, line, offered):
    """Those that the program knows, and those that the unit has, as they are: none is run as a command."""
    unit.controller.set_properties("/com/tavilon/common/Controller1", {
        "GetTimezoneList": ["London", "New York", "Newport"], "AudioFiles": ["beep.wav", "bell two.wav", "x",
                                                                         "$(touch x).wav", "it's.wav"]}, emit=False)
    found = complete(unit, shell, *line.split(" "), some=offered != [])
    assert found == offered if offered is not None else len(found) > 10
    assert not os.path.exists(os.path.join(unit.directory, "x"))


@pytest.mark.parametrize("word, offered", [("New\\ ", ["New York"]), ("'New Y", ["New York"]), ('"it\'s', ["it's"]),
                                           ("it\\'s", ["it's"]), ("\\$\\(", ["$(false)"]), ("*", []), ("[", [])])
def test_quoted_values_are_completed(unit, word, offered):
    """By bash, which hands the word over as it is typed."""
    unit.controller.set_properties("/com/tavilon/common/Controller1", {
        "GetTimezoneList": ["New York", "Newport", "it's", "$(false)"]}, emit=False)
    assert complete(unit, "bash", "timezone", "set", word, some=offered != []) == offered


@pytest.mark.parametrize("shell", COMPLETION)
def test_names_to_wait_for_are_completed(unit, shell):
    """All of the help."""
    listed = re.search(r"One of (.*)$", help_of(unit, "wait")[2], re.MULTILINE).group(1).split(", ")
    assert complete(unit, shell, "wait", "") == listed


# JSON -----------------------------------------------------------------------------------------------------------------

NAMES = {int: "integer", str: "string", bool: "boolean"}
TYPES = {"integer": int, "number": (int, float), "string": str, "boolean": bool, "object": dict, "strings": list,
         "objects": list}


def schema():
    """Verb to its fields, in order, as the manual has them."""
    table = read("docs", "controllerctl.md").partition("\n## JSON\n")[2]
    rows = re.findall(r"^\| (`.*?) \| (.*)\|$", table, re.MULTILINE)
    return {verb: dict(re.findall(r"`(\w+)` (\w+)", fields)) for verbs, fields in rows
            for verb in re.findall(r"`(.*?)`", verbs)}


#: What follows a verb in a line of the schema, where it needs something.
ARGUMENTS = {"play start": "/x", "play seek": "1", "sound play": "x", "time set": "@1", "dst set": "on",
             "timezone set": "x", "timezone from-utc": "0"}


@pytest.mark.parametrize("verb", schema())
def test_the_schema_of_a_verb(unit, verb):
    """Has the fields that are told, with their types."""
    prepare_status(unit)
    answer = run(unit, f"{verb} {ARGUMENTS.get(verb, '')} --json").object
    well = verb != "doctor"  # there is no daemon, and hardly anything else, on this unit
    assert list(answer)[:2] == ["ok", "exit"] and (answer["ok"], answer["exit"]) == (well, 0 if well else 3)
    assert well or answer.pop("code") is None
    fields = schema()[verb]
    if verb == "status":
        fields.update((key, NAMES[type(value)]) for key, value, _ in NAMED_ALIKE.values())
    fields.pop("file", None)  # there is no video daemon here to tell it
    assert list(answer)[2:] == list(fields)
    for name, kind in fields.items():
        assert isinstance(answer[name], TYPES[kind]), name
        assert isinstance(answer[name], bool) == (kind == "boolean"), name
        assert kind != "strings" or all(isinstance(entry, str) for entry in answer[name])


def test_every_verb_has_a_schema(verbs):
    """And no other has; those of more than one object, or of objects in it, have a section of their own."""
    assert {verb_of(verb) for verb in schema()} == set(verbs) - {"monitor", "wait", "recover"}


# The examples, and what is installed ----------------------------------------------------------------------------------

def test_the_examples(make_unit):
    """Work in a unit, one after another."""
    unit = make_unit()
    block = re.search(r"```sh\n(.*?)```", read("docs", "controllerctl.md"), re.DOTALL).group(1)
    lines = [line for line in block.splitlines() if line]
    assert len(lines) == 10
    path = f"{os.path.dirname(PROGRAM)}:{os.environ['PATH']}"
    for line in lines:
        line = line.replace("--timeout 1m", "--timeout 0").replace("monitor --json", "monitor --count 0")
        done = subprocess.run(["bash", "-c", line], env=environment(unit, PATH=path), cwd=unit.directory, text=True,
                              capture_output=True, check=False)
        # The status is refused where a member is not in the build.
        ends = {4} if "wait" in line else {0, 1} if "ctl status" in line else {0}
        assert done.returncode in ends, (line, done)
        unit.settle()


def test_what_is_installed(tmp_path):
    """The program, its man page and its completions, in a component of their own."""
    subprocess.run(["cmake", "--install", os.environ["CCU_BUILD_DIR"], "--prefix", tmp_path, "--component", "ctl"],
                   check=True, capture_output=True)
    files = {os.path.relpath(os.path.join(parent, name), tmp_path)
             for parent, _, names in os.walk(tmp_path) for name in names}
    assert files == {"bin/controllerctl", "share/man/man1/controllerctl.1",
                     "share/bash-completion/completions/controllerctl", "share/zsh/vendor-completions/_controllerctl"}
    needed = subprocess.run(["readelf", "-d", tmp_path / "bin" / "controllerctl"], capture_output=True, text=True,
                            check=True).stdout
    assert "libcontroller-client.so.1" in needed and "libsystemd.so.0" in needed and "libpng" not in needed
    assert "RPATH" not in needed and "RUNPATH" not in needed
