"""Fixtures of the integration tests: the daemon's own binary in a virtual unit."""

import pytest

from virtual_unit import VirtualUnit


@pytest.fixture
def unit():
    """A unit with the daemon running."""
    with VirtualUnit() as started:
        yield started


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
