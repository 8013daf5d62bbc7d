"""One unit, one panel and one browser for all tests."""

import pytest

from tests.browser.browser import running_browser
from tests.integration.panel_pages import Page, running_panel


def pytest_addoption(parser):
    """The picture in the documentation changes on demand only: no two are alike to the last pixel."""
    parser.addoption("--docs", action="store_true", help="make the picture of the panel in docs/ anew")


@pytest.fixture(scope="session", name="shared")
def shared_fixture():
    """The panel of a unit."""
    with running_panel() as panel:
        yield panel


@pytest.fixture(scope="session", name="window")
def window_fixture():
    """The browser."""
    with running_browser() as browser:
        yield browser


@pytest.fixture(scope="session", name="observer")
def observer_fixture(shared):
    """Who sees what the unit has become, without the browser."""
    with Page(shared) as page:
        yield page


@pytest.fixture(name="panel")
def panel_fixture(shared, observer):
    """The panel of a unit that is as new, and that knows it: the next page asks for no picture that is gone."""
    yield shared
    shared.renew()
    observer.wait(lambda: not observer.at("job.Media"))


@pytest.fixture(name="browser")
def browser_fixture(panel, window):
    """A browser that has just opened the page; it must not have complained of anything behind the test."""
    window.size(1280, 900)
    window.prefer("light")
    window.open(panel.address)
    yield window
    assert window.complaints() == []
