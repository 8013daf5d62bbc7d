"""What a release is hardened with: the distribution's flags, seen on the files that are built.

Other builds are for looking inside, and have no such test.
"""

import json
import os
import re
import subprocess

import pytest

BUILD = os.environ["CCU_BUILD_DIR"]
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
#: Where the product is compiled.
FOLDERS = {"dbus_helper", "clients", "capture", "time", "device", "daemon", "controller_client", "controllerctl"}
PROGRAMS = ["daemon/controllerd", "controllerctl/controllerctl"]
LIBRARY = "controller_client/libcontroller-client.so.1"
BUILT = [*PROGRAMS, LIBRARY]


def readelf(name, *options):
    """What readelf says of a file that was built."""
    return subprocess.run(["readelf", "--wide", *options, os.path.join(BUILD, name)], stdout=subprocess.PIPE, text=True,
                          check=True, env={**os.environ, "LC_ALL": "C"}).stdout


def imported(name):
    """The functions that it takes from other libraries."""
    return set(re.findall(r"FUNC +GLOBAL +DEFAULT +UND +(\w+)", readelf(name, "--dyn-syms")))


@pytest.mark.parametrize("name", BUILT)
def test_all_that_the_linker_fills_in_is_read_only(name):
    """Before the program runs: full RELRO, and neither text that is written to nor a stack that is run."""
    dynamic, segments = readelf(name, "--dynamic"), readelf(name, "--segments")
    assert re.search(r"\(FLAGS_1\) +Flags:.*\bNOW\b", dynamic) and "TEXTREL" not in dynamic
    assert re.search(r"^ +GNU_RELRO ", segments, re.MULTILINE)
    assert re.findall(r"^ +GNU_STACK .* ([RWE]+) +0x\w+$", segments, re.MULTILINE) == ["RW"]


@pytest.mark.parametrize("name", PROGRAMS)
def test_a_program_can_be_anywhere(name):
    """As the kernel likes."""
    assert re.search(r"Type: +DYN ", readelf(name, "--file-header"))
    assert re.search(r"\(FLAGS_1\) +Flags:.*\bPIE\b", readelf(name, "--dynamic"))


@pytest.mark.parametrize("name", BUILT)
def test_the_stack_is_protected(name):
    assert "__stack_chk_fail" in imported(name)


@pytest.mark.parametrize("name, function", zip(BUILT, ["vsyslog", "snprintf", "vsyslog"]))
def test_the_c_librarys_checking_functions_are_called(name, function):
    """And not those that do not check."""
    functions = imported(name)
    assert f"__{function}_chk" in functions and function not in functions


@pytest.mark.parametrize("name", BUILT)
def test_no_folder_of_the_build_is_named(name):
    """Neither the tree's nor that of what was built, so that both may be anywhere and the packages are the same."""
    folders = re.findall(r"DW_AT_comp_dir.*: (.*)$", readelf(name, "--debug-dump=info", "--dwarf-depth=1"), re.MULTILINE)
    assert set(folders) == {"."}
    with open(os.path.join(BUILD, name), "rb") as file:
        assert f"{ROOT}/".encode() not in file.read()


@pytest.mark.parametrize("flag", ["-fstack-clash-protection", "-Werror=format-security"])
def test_what_leaves_no_mark_in_a_file_is_asked_for(flag):
    """As the compiler was called."""
    with open(os.path.join(BUILD, "compile_commands.json"), encoding="utf-8") as file:
        commands = [(os.path.relpath(command["file"], ROOT).split(os.sep)[0], command["command"].split())
                    for command in json.load(file)]
    assert FOLDERS <= {folder for folder, _ in commands}
    assert all(flag in words for folder, words in commands if folder in FOLDERS)
