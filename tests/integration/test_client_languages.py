"""The examples in other languages: each does what it says, with the daemon and with its python-dbusmock template."""

import json
import os
import re
import subprocess

import pytest

from interfaces.introspection import controller_members
from interfaces.pages import announces
from tests.integration.installed_client import ROOT, cached, run
from tests.integration.language_examples import FETCHED, SAYS, blocks, examples, page
from tests.integration.mock_cases import running_mock
from virtual_unit import PATIENCE, VirtualUnit

INTERFACE_FILE = os.path.join(ROOT, "interfaces", "com.tavilon.common.Controller1.Control.xml")
#: Those that Debian's packages are enough for.
HERE = {name: example for name, example in examples().items() if name != FETCHED}


@pytest.fixture(scope="module", name="places")
def places_fixture(tmp_path_factory):
    """Where each example is, those that are compiled being built as the page says, without a warning."""
    folder = tmp_path_factory.mktemp("languages")
    os.symlink(os.path.join(ROOT, "examples"), folder / "examples")
    compilers = {"cc": cached("CMAKE_C_COMPILER") or "cc", "c++": cached("CMAKE_CXX_COMPILER")}
    for example in HERE.values():
        for command in example.commands:
            program, _, rest = command.replace(f"/usr/share/dbus-1/interfaces/{os.path.basename(INTERFACE_FILE)}",
                                               INTERFACE_FILE).partition(" ")
            if program in compilers:
                program = f"{cached('CMAKE_CXX_COMPILER_LAUNCHER')} {compilers[program]} -Wall -Wextra -Werror"
            run("bash", "-c", f"{program} {rest}", cwd=folder)
    return {name: str(folder / example.program) for name, example in HERE.items()}


@pytest.fixture(scope="module", name="buses")
def buses_fixture():
    """A unit with the daemon, and a bus with the template."""
    with VirtualUnit() as unit, running_mock() as mock:
        yield {"daemon": unit, "template": mock}


@pytest.mark.parametrize("name", HERE)
@pytest.mark.parametrize("whom", ["daemon", "template"])
def test_an_example_records_and_follows_the_zone(buses, places, whom, name):
    """It hears both signals, which come from no owner of the name, and is not misled by what a proxy keeps."""
    unit = buses[whom]
    unit.client.call("SetTimezone", "s", "London")
    done = subprocess.run([places[name], "Rome"], env={**os.environ, **unit.daemon.environment()}, timeout=PATIENCE,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
    assert (done.returncode, done.stdout.splitlines()) == (0, HERE[name].says), done.stderr


def unindented(text):
    """A text without the depth of its lines."""
    return re.sub(r"^ +", "", text, flags=re.MULTILINE)


def test_the_page_shows_the_examples():
    """Each, with at least its two ways round, word for word at whatever depth; and nothing else."""
    assert set(examples()) == set(SAYS)
    shown = []
    for example in examples().values():
        with open(os.path.join(ROOT, example.path), encoding="utf-8") as file:
            source = unindented(file.read())
        assert len(example.blocks) >= 2, example.name
        assert [block for block in example.blocks if unindented(block).strip() not in source] == []
        shown += example.blocks
    assert sorted(shown) == sorted(blocks(page(), r"python|javascript|c|c\+\+"))
    assert {example.name: bool(example.commands) for example in examples().values()} == {
        name: name == FETCHED or not name.endswith((".py", ".js")) for name in SAYS}


def test_what_is_fetched_is_pinned():
    """By version and sum, each part of it, and to no place: whoever fetches it has a registry."""
    folder = os.path.join(ROOT, "examples", os.path.dirname(FETCHED))
    with open(os.path.join(folder, "package.json"), encoding="utf-8") as file:
        wanted = json.load(file)["dependencies"]
    with open(os.path.join(folder, "package-lock.json"), encoding="utf-8") as file:
        text = file.read()
    own, *packages = json.loads(text)["packages"].values()
    assert own["dependencies"] == wanted and all(re.fullmatch(r"\d+\.\d+\.\d+", version) for version in wanted.values())
    assert packages and all(package["version"] and package["integrity"].startswith("sha512-") for package in packages)
    assert "//" not in re.sub(r'"sha512-[^"]*"', "", text) and '"resolved"' not in text


@pytest.mark.parametrize("name", ["interface.md", "clients-in-other-languages.md"])
def test_the_pages_warn_of_all_properties_that_go_stale(name):
    """Those whose changes introspection promises, and nothing announces."""
    stale = {member.name for member in controller_members()
             if member.kind == "property" and not announces(member) and not member.annotations}
    with open(os.path.join(ROOT, "docs", name), encoding="utf-8") as file:
        warning = next(item for item in re.split(r"\n- |\n\n", file.read()) if '"GetTimeSourceAvailable"' in item)
    assert set(re.findall(r'"(\w+)"', warning)) - {"cached"} == stale
