"""Fixtures of the virtual unit's own tests."""

import os
import pathlib
import shutil
import subprocess

import pytest

from virtual_unit import Client, VirtualUnit

_HERE = pathlib.Path(__file__).resolve().parent
_ROOT = _HERE.parent.parent


@pytest.fixture(scope="session")
def build_dir(tmp_path_factory):
    """A build tree with the preload libraries, built under fortified headers, and the stand-in for the daemon."""
    root = tmp_path_factory.mktemp("build")
    preload = root / "virtual_unit" / "preload"
    preload.mkdir(parents=True)
    for source in [*(_ROOT / "virtual_unit" / "preload").glob("*.c"), _ROOT / "virtual_unit" / "pipe.c"]:
        subprocess.run(["cc", "-std=c11", "-shared", "-fPIC", "-O2", "-D_FORTIFY_SOURCE=2", "-Wall", "-Wextra",
                        "-Werror", source, "-o", preload / f"lib{source.stem}.so", "-ldl", "-lm"], check=True)
    (root / "daemon").mkdir()
    shutil.copy(_HERE / "stand_in_daemon.py", root / "daemon" / "controllerd")
    (root / "daemon" / "controllerd").chmod(0o755)
    return str(root)


@pytest.fixture(scope="session")
def capture_library(build_dir):
    """The syslog capture library."""
    return os.path.join(build_dir, "virtual_unit", "preload", "libsyslog_capture.so")


@pytest.fixture
def unit():
    """A unit without a daemon."""
    with VirtualUnit(daemon=False) as started:
        yield started


@pytest.fixture
def client_of(unit):
    """Makes a client of any object on the unit's session or system bus."""
    clients = []

    def make(service, path, interface, system=False):
        clients.append(Client(unit.system_address if system else unit.session_address, service, path, interface))
        return clients[-1]

    yield make
    for client in clients:
        client.close()


@pytest.fixture
def video_client(client_of):
    """A client of the video daemon."""
    return client_of("com.tavilon.common.Video1", "/com/tavilon/common/Video1", "com.tavilon.common.Video1.Control")
