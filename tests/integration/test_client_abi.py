"""What programs were built against: the library's symbols and types are those of the last release, and more."""

import glob
import os
import re
import subprocess
from xml.etree import ElementTree

import pytest

from tests.integration.installed_client import BUILD, ROOT, run

#: The description of the last release's interface, as abidw makes it.
[RELEASED] = glob.glob(os.path.join(ROOT, "controller_client", "abi", "libcontroller-client.so.*.abi"))
LIBRARY = os.path.join(BUILD, "controller_client", "libcontroller-client.so")
#: The types that programs hold themselves.
RECORDS = {"ControllerEvent", "ControllerFailure", "ControllerSignals", "ControllerValue", "LocalDateTime"}

#: What no program survives, made in the description: as if the last release had been otherwise.
BREAKS = {
    "a function that is no longer there": ("10SetTimeGPSEv", "10SetTimeGnssEv"),
    "a function of another type": ("SetDSTEb", "SetDSTEi"),
    "a field at another place": (r"layout-offset-in-bits='32'>(\s+<var-decl name='month')",
                                 r"layout-offset-in-bits='64'>\1"),
    "a record of another size": (r"(class-decl name='LocalDateTime' size-in-bits=)'224'", r"\1'192'"),
    "a failure of another size": (r"(class-decl name='ControllerFailure' size-in-bits=)'\d+'", r"\1'64'"),
    "a kind of failure with another number": (r"(enumerator name='Refused' value=)'4'", r"\1'5'"),
    "a kind of event that is gone": (r"enumerator name='Stopped'", "enumerator name='Ended'"),
}


def records_of(description):
    """Size, fields with their places and enumerators of the types that programs hold."""
    found = {}
    for record in ElementTree.parse(description).iter("class-decl"):
        if record.get("name") in RECORDS and record.get("size-in-bits"):
            fields = {member.find("var-decl").get("name"): member.get("layout-offset-in-bits")
                      for member in record.findall("data-member")}
            names = {(kind.get("name"), item.get("name"), item.get("value"))
                     for kind in record.iter("enum-decl") for item in kind.iter("enumerator")}
            found[record.get("name")] = (record.get("size-in-bits"), fields, names)
    return found


@pytest.fixture(scope="module", name="described")
def described_fixture(tmp_path_factory):
    """The description of this build."""
    path = tmp_path_factory.mktemp("abi") / "this.abi"
    run("abidw", "--headers-dir", os.path.join(ROOT, "controller_client"), "--drop-private-types", "--no-show-locs",
        "--exported-interfaces-only", "--out-file", str(path), LIBRARY)
    return str(path)


def breaks(released, described):
    """What programs of a release would not survive. Additions are none."""
    done = subprocess.run(["abidiff", "--no-added-syms", released, LIBRARY], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    found = [done.stdout] if done.returncode != 0 else []
    now = records_of(described)
    for name, (size, fields, names) in records_of(released).items():  # abidiff does not look into every result
        if now[name][:2] != (size, fields) or not names <= now[name][2]:
            found.append(f"{name} was {size}, {fields}, {names} and is {now[name]}")
    return found


def test_programs_of_the_last_release_run_on(described):
    """Nothing that they use has gone or has become something else. What breaks this needs another soname."""
    assert set(records_of(RELEASED)) == RECORDS
    assert not breaks(RELEASED, described)


@pytest.mark.parametrize("pattern, otherwise", BREAKS.values(), ids=BREAKS)
def test_a_break_would_be_seen(described, tmp_path, pattern, otherwise):
    """As if the last release had been otherwise."""
    with open(RELEASED, encoding="utf-8") as file:
        text, count = re.subn(pattern, otherwise, file.read())
    assert count > 0
    (tmp_path / "other.abi").write_text(text)
    assert breaks(str(tmp_path / "other.abi"), described)


def test_the_last_release_has_this_soname():
    """It is in the name of the description: a library of another soname begins a new one."""
    [soname] = re.findall(r"\(SONAME\).*\[(.*)\]", run("readelf", "-d", LIBRARY))
    assert os.path.basename(RELEASED).startswith(soname + ".")
