"""Fixtures of the integration tests: the daemon's own binary in a virtual unit."""

import pytest

from tests.integration.client_driver import ClientDriver
from tests.integration.fault_matrix import Matrix
from tests.integration.lender import Lender
from virtual_unit import AT_ONCE, VirtualUnit
from virtual_unit.controller import stand_in_controller


@pytest.fixture(scope="module", name="lender")
def lender_of_the_file():
    """Lends one unit with the daemon running to all tests of a file."""
    lender = Lender(bus_timeout=AT_ONCE)
    yield lender
    lender.close()


@pytest.fixture
def unit(lender):
    """A unit with the daemon running, as new but for its devices; where others than the display are changed, it is to be
    `own_unit`."""
    with lender.lend() as lent:
        yield lent


@pytest.fixture
def own_unit():
    """A unit with the daemon running, which nobody else has."""
    with VirtualUnit() as started:
        yield started


@pytest.fixture(scope="module")
def shared():
    """A unit with the daemon running, for all tests of a file that leave it so."""
    with VirtualUnit() as started:
        yield started


@pytest.fixture(scope="module")
def stand_in():
    """A unit with nothing but the controller's stand-in, for all tests of a file."""
    with VirtualUnit(daemon=False, siblings=()) as started, stand_in_controller(started):
        yield started


@pytest.fixture(scope="module")
def driver(unit):
    """One driver of the clients for all tests of a file, whose unit serves them all."""
    with ClientDriver(unit) as started:
        yield started


@pytest.fixture
def listener(unit, request):
    """A driver that listens to the sibling that the file says it LISTENS_TO."""
    with ClientDriver(unit) as started:
        assert started.listen(request.module.LISTENS_TO) == 0
        assert started.descriptors("socket") == 1
        yield started


@pytest.fixture
def matrix(lender):
    """Runs scenarios with faults, on one unit."""
    return Matrix(lender)


@pytest.fixture
def make_unit():
    """Makes units of a test's own wishes, which end with the test."""
    units = []

    def make(**options):
        units.append(VirtualUnit(**options).start())
        return units[-1]

    yield make
    for started in units:
        started.stop()


def pytest_generate_tests(metafunc):
    """Test classes that name CASES run each of their tests that take a `case` with each of them."""
    cases = getattr(metafunc.cls, "CASES", None)
    if cases is not None and "case" in metafunc.fixturenames:
        metafunc.parametrize("case", cases, ids=str)
