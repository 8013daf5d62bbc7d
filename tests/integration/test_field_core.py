"""A core that the packaged daemon leaves on a unit, which has no symbols, and what the symbols' packages tell of it."""

import os
import re
import shutil

import pytest

from tests.integration.built_packages import ROOT, packages_fixture, run  # pylint: disable=unused-import


@pytest.fixture(name="core")
def core_fixture(packages, tmp_path):
    """Of the installed daemon, while it starts on a unit without a bus."""
    run("dpkg-deb", "--extract", packages["controllerd"], str(tmp_path))
    program, core = f"{tmp_path}/usr/bin/controllerd", f"{tmp_path}/core"
    said = run(shutil.which("gdb-multiarch"), "--batch", "--nx", "-iex", "set debuginfod enabled off",
               "-ex", "set startup-with-shell off", "-ex", "break sd_bus_open_user", "-ex", "run", "-ex", "backtrace",
               "-ex", f"generate-core-file {core}", "-ex", "kill", program,
               env={"PATH": "/nonexistent", "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent/bus"})
    assert "main.cpp" not in said  # the unit cannot tell
    return core


def test_a_core_of_a_unit_tells_functions_and_lines(packages, core):
    stacks = run(os.path.join(ROOT, "packaging", "stack"), core, os.path.dirname(packages["controllerd"]))
    assert re.search(r"^#\d+ .* in sd_bus_open_user ", stacks, re.MULTILINE), stacks
    assert re.search(r"^#\d+ .* main\S* \(.*\) at \S*daemon/main\.cpp:\d+$", stacks, re.MULTILINE), stacks
    assert "warning: " not in stacks
