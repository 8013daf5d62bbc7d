"""Fixtures of the virtual unit's own tests."""

import os

import pytest

from tests.virtual_unit.stand_in_build import make_build
from virtual_unit import Client, VirtualUnit


@pytest.fixture(scope="session")
def build_dir(tmp_path_factory):
    """A build tree with a stand-in for the daemon: the one in $CCU_STAND_IN_BUILD, or else one of its own."""
    if "CCU_STAND_IN_BUILD" in os.environ:
        return os.environ["CCU_STAND_IN_BUILD"]
    root = tmp_path_factory.mktemp("build") / "tree"
    make_build(root)
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
