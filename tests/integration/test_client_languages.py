"""The examples in other languages: each does what it says, with the daemon and with its python-dbusmock template."""

import os
import re
import subprocess

import pytest

from interfaces.introspection import controller_members
from interfaces.pages import announces
from tests.integration.installed_client import ROOT, cached, run
from tests.integration.mock_cases import running_mock
from virtual_unit import PATIENCE, VirtualUnit

INTERFACE_FILE = os.path.join(ROOT, "interfaces", "com.tavilon.common.Controller1.Control.xml")
PAGE = os.path.join(ROOT, "docs", "clients-in-other-languages.md")

DONE = "Ran successfully"
BEFORE = ["zone: London", f"start: {DONE}", f"stop: {DONE}", "TimezoneChanged", "TimeChanged"]
ASKED = [*BEFORE, "zone: Rome"]
#: Where the library keeps what it once read, it is wrong by then.
CACHED = [*BEFORE, "cached: London", "zone: Rome"]
SAYS = {"follow_dbus_python.py": ASKED, "follow_gdbus.py": CACHED, "follow_dasbus.py": ASKED, "follow_gjs.js": CACHED,
        "follow_gdbus": CACHED, "follow_sdbus": ASKED, "follow_qt": ASKED}

#: How those that are compiled are made, as the page says.
BUILDS = {
    "follow_gdbus": [
        "gdbus-codegen --interface-prefix com.tavilon.common.Controller1. --c-namespace Ccu --generate-c-code "
        "controller /usr/share/dbus-1/interfaces/com.tavilon.common.Controller1.Control.xml",
        "cc examples/follow_gdbus.c controller.c -o follow_gdbus -I. $(pkg-config --cflags --libs gio-unix-2.0)"],
    "follow_sdbus": [
        "c++ -std=c++17 examples/follow_sdbus.cpp -o follow_sdbus $(pkg-config --cflags --libs sdbus-c++)"],
    "follow_qt": [
        "$(pkg-config --variable=host_bins Qt5Core)/moc examples/follow_qt.cpp -o follow_qt.moc",
        "c++ -fPIC examples/follow_qt.cpp -o follow_qt -I. $(pkg-config --cflags --libs Qt5DBus)"],
}


@pytest.fixture(scope="module", name="places")
def places_fixture(tmp_path_factory):
    """Where each example is, those that are compiled being built as the page says, without a warning."""
    folder = tmp_path_factory.mktemp("languages")
    os.symlink(os.path.join(ROOT, "examples"), folder / "examples")
    compilers = {"cc": cached("CMAKE_C_COMPILER") or "cc", "c++": cached("CMAKE_CXX_COMPILER")}
    for commands in BUILDS.values():
        for command in commands:
            program, _, rest = command.replace(f"/usr/share/dbus-1/interfaces/{os.path.basename(INTERFACE_FILE)}",
                                               INTERFACE_FILE).partition(" ")
            if program in compilers:
                program = f"{cached('CMAKE_CXX_COMPILER_LAUNCHER')} {compilers[program]} -Wall -Wextra -Werror"
            run("bash", "-c", f"{program} {rest}", cwd=folder)
    return {name: str(folder / name) if name in BUILDS else os.path.join(ROOT, "examples", name) for name in SAYS}


@pytest.fixture(scope="module", name="buses")
def buses_fixture():
    """A unit with the daemon, and a bus with the template."""
    with VirtualUnit() as unit, running_mock() as mock:
        yield {"daemon": unit, "template": mock}


@pytest.mark.parametrize("name", SAYS)
@pytest.mark.parametrize("whom", ["daemon", "template"])
def test_an_example_records_and_follows_the_zone(buses, places, whom, name):
    """It hears both signals, which come from no owner of the name, and is not misled by what a proxy keeps."""
    unit = buses[whom]
    unit.client.call("SetTimezone", "s", "London")
    done = subprocess.run([places[name], "Rome"], env={**os.environ, **unit.daemon.environment()}, timeout=PATIENCE,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
    assert (done.returncode, done.stdout.splitlines()) == (0, SAYS[name]), done.stderr


def unindented(text):
    """A text without the depth of its lines."""
    return re.sub(r"^ +", "", text, flags=re.MULTILINE)


def test_the_page_shows_the_examples():
    """Word for word, at whatever depth; and how they are built and started."""
    with open(PAGE, encoding="utf-8") as file:
        page = file.read()
    shown = set()
    for name in SAYS:
        path = name if name not in BUILDS else f"{name}.c" if name == "follow_gdbus" else f"{name}.cpp"
        assert page.count(f"examples/{path}") >= 1
        with open(os.path.join(ROOT, "examples", path), encoding="utf-8") as file:
            source = unindented(file.read())
        language = {"py": "python", "js": "javascript", "c": "c", "cpp": "c++"}[path.rpartition(".")[2]]
        here = {block for block in re.findall(rf"^```{re.escape(language)}\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)
                if unindented(block).strip() in source}
        assert len(here) >= 2, path
        shown |= here
        for command in BUILDS.get(name, []):
            assert f"\n{command}\n" in page.replace(" \\\n    ", " ")
    assert shown == set(re.findall(r"^```(?:python|javascript|c|c\+\+)\n(.*?)^```$", page, re.MULTILINE | re.DOTALL))


@pytest.mark.parametrize("page", ["interface.md", "clients-in-other-languages.md"])
def test_the_pages_warn_of_all_properties_that_go_stale(page):
    """Those whose changes introspection promises, and nothing announces."""
    stale = {member.name for member in controller_members()
             if member.kind == "property" and not announces(member) and not member.annotations}
    with open(os.path.join(ROOT, "docs", page), encoding="utf-8") as file:
        warning = next(item for item in re.split(r"\n- |\n\n", file.read()) if '"GetTimeSourceAvailable"' in item)
    assert set(re.findall(r'"(\w+)"', warning)) - {"cached"} == stale
