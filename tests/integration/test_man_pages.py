"""The manual pages: well-formed, and of the interface, the service and the version that they speak of."""

import glob
import os
import re
import subprocess

import pytest

from interfaces.introspection import controller_members
from interfaces.pages import announces
from tests.integration.built_packages import ROOT, VERSION, text_of

PAGES = sorted([*glob.glob(os.path.join(ROOT, "packaging", "man", "*")),
                *glob.glob(os.path.join(ROOT, "*", "*.[1-9]"))], key=os.path.basename)
NAMES = [os.path.basename(page) for page in PAGES]
INTERFACE = "com.tavilon.common.Controller1"


def page(name):
    """The source of a page without its fonts, with the signs that are spelled out."""
    text = re.sub(r"\\f[BIR]", "", text_of(PAGES[NAMES.index(name)]))
    return text.replace(r"\(->", "->").replace(r"\-", "-")


# Form -----------------------------------------------------------------------------------------------------------------


def ran(*command):
    """Status, output and complaints of a formatter."""
    done = subprocess.run(command, capture_output=True, text=True, check=False,
                          env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "80"})
    return done.returncode, done.stdout, done.stderr


def test_there_are_four_pages():
    assert NAMES == ["ccu-unit.1", f"{INTERFACE}.5", "controllerctl.1", "controllerd.8"]


@pytest.mark.parametrize("path", PAGES, ids=NAMES)
def test_formatters_have_nothing_to_complain_of(path):
    """Neither of the two that are about, nor of style."""
    assert ran("mandoc", "-Tlint", "-W", "all", path) == (0, "", "")
    status, _, warnings = ran("man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", path)
    assert (status, warnings) == (0, "")


@pytest.mark.parametrize("name", NAMES)
def test_a_page_is_of_its_name_and_of_this_version(name):
    title, section = name.rsplit(".", 1)
    header = re.match(r'\.TH (\S+) (\d) \d{4}-\d\d-\d\d "(\S+) (\S+)" ', page(name))
    program = "controllerctl" if title == "controllerctl" else "controllerd"
    assert header.groups() == (title.upper(), section, program, VERSION)
    assert f"\n.SH NAME\n{title} - " in page(name)


# The interface --------------------------------------------------------------------------------------------------------


def arguments(found):
    """Types and names as in the page: "(is code message)"."""
    return "(" + " ".join(["".join(kind for kind, _ in found), *(name for _, name in found)]) + ")"


def declared(member):
    """A member of the interface file, as the page writes it."""
    if member.kind == "method":
        return f"{arguments(member.inputs)} -> {arguments(member.outputs)}"
    if member.kind == "signal":
        return arguments(member.outputs)
    access = {"readwrite": "read and write", "read": "read only"}[member.access]
    return f"{member.signature}, {access}" + ("" if announces(member) else ", tells no changes")


def interface_of_the_page():
    """The members that the page describes, each under a heading of its kind."""
    found = {}
    for heading, section in re.findall(r"^\.SH (.*)\n((?:(?!\.SH ).*\n)*)", page(f"{INTERFACE}.5"), re.MULTILINE):
        for name, rest in re.findall(r"^\.T[PQ]\n([A-Z]\w*) (.*)$", section, re.MULTILINE):
            kind = "signal" if heading == "SIGNALS" else "method" if "->" in rest else "property"
            assert name not in found, f"{name} is there twice"
            found[name] = (kind, rest)
    return found


def test_the_page_has_the_members_of_the_daemon():
    """All of them, with their types, names and access, and no others."""
    assert interface_of_the_page() == {member.name: (member.kind, declared(member)) for member in controller_members()}


def test_the_page_has_the_codes_and_texts_of_the_interface():
    """As the manual of the interface has them."""
    listed = re.findall(r"^ *(-?\d+)  (.*)$", page(f"{INTERFACE}.5"), re.MULTILINE)
    assert len(listed) == 11
    manual = text_of("docs", "interface.md")
    for code, words in listed:
        row = rf'^\| [^|]*(?<!\d){code}\b[^|]*\| [^|]*"{re.escape(words)}'
        assert re.search(row, manual, re.MULTILINE), (code, words)


# The service ----------------------------------------------------------------------------------------------------------


def test_the_daemons_page_names_what_the_service_gives_it():
    """The devices, the user and the user's number."""
    service, described = text_of("packaging", "systemd", "controllerd.service"), page("controllerd.8")
    devices = re.findall(r"^DeviceAllow=(/dev/\S+)", service, re.MULTILINE)
    assert len(devices) == 3
    for device in devices:
        assert re.search(rf'^\.IR? .*{device}\b', described, re.MULTILINE), device
    user = re.search(r"^User=(\w+)$", service, re.MULTILINE).group(1)
    drop_in = text_of("packaging", "systemd", "10-user.conf")
    number = re.search(r"^Wants=user@(\d+)\.service$", drop_in, re.MULTILINE).group(1)
    assert f"\n.BR {user} ,\nnumber {number}, " in described


def test_the_daemons_page_names_the_bus_and_its_own_page():
    assert f"\n.B {INTERFACE}\n" in page("controllerd.8") and f"\n.BR {INTERFACE} (5)" in page("controllerd.8")
    assert "\n.BR controllerd (8)" in page(f"{INTERFACE}.5")
