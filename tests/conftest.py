"""What all Python tests share."""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def pytest_sessionfinish(session, exitstatus):
    """A skipped test fails the run: a skip hides what it should show."""
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    if exitstatus == 0 and reporter is not None and reporter.stats.get("skipped"):
        session.exitstatus = 1
