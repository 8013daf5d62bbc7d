"""The page of promises: each row has a command that is there, and the command that runs them tells what has failed."""

import os
import re
import subprocess
import sys
from datetime import date

import pytest

from tests.promises import PAGE, promises

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(PAGE)))
HEAD = "# Promises\n\n| Promise | Figure | Shown by | Run | Last seen |\n|---|---|---|---|---|\n"


@pytest.fixture(scope="module", name="rows")
def rows_fixture():
    """The rows of the page."""
    with open(PAGE, encoding="utf-8") as file:
        return promises(file.read())


def test_every_promise_has_a_command_of_the_script(rows):
    """And there are some for every day."""
    with open(os.path.join(ROOT, "ccu"), encoding="utf-8") as file:
        commands = re.findall(r"^(\w+)\)", file.read(), re.MULTILINE)
    assert {row.words[0] for row in rows} <= set(commands)
    assert {row.run for row in rows} == {"quick", "all"}


def test_every_test_that_is_named_is_there(rows):
    """Each name for itself: one that is missing would not be missed beside another."""
    listed = subprocess.run(["ctest", "--test-dir", os.environ["CCU_BUILD_DIR"], "--show-only"],
                            stdout=subprocess.PIPE, text=True, check=True).stdout
    names = re.findall(r"Test +#\d+: \w+\.(\S+)$", listed, re.MULTILINE)
    for row in rows:
        kind, *wanted = row.words
        for pattern in wanted if kind == "test" else ():
            assert any(re.fullmatch(pattern, name) for name in names), row


@pytest.mark.parametrize("row", [
    "| It flies | | `./ccu help` | quick | not yet |", "| It flies | high | | quick | not yet |",
    "| It flies | high | `true` | quick | not yet |", "| It flies | high | `./ccu help` | quick | soon |"])
def test_a_promise_without_figure_command_or_date_is_refused(row):
    """None stands there."""
    with pytest.raises(ValueError, match="line 5 "):
        promises(f"{HEAD}{row}\n")


def run(tmp_path, *words):
    """Status, lines and the page afterwards, of one promise that is kept, one that is not, and one for later."""
    page = tmp_path / "docs" / "promises.md"
    page.parent.mkdir()
    page.write_text(f"{HEAD}| It helps | once | `./ccu help` | quick | not yet |\n"
                    "| It flies | high | `./ccu fly` | quick | 2026-01-02 |\n"
                    "| It lasts | long | `./ccu help` | all | 2026-01-02 |\n", encoding="utf-8")
    done = subprocess.run([sys.executable, os.path.join(ROOT, "tests", "promises.py"), "--page", page, *words],
                          stdout=subprocess.PIPE, text=True, check=False)
    return done.returncode, done.stdout.splitlines(), page.read_text(encoding="utf-8").splitlines()[-3:]


def test_what_is_not_kept_is_told(tmp_path):
    """With where to read on."""
    status, lines, page = run(tmp_path)
    assert status == 1 and lines[-1] == "1 of 2 promises kept"
    assert lines[0].startswith("| pass | It helps | once | `./ccu help` | ")
    assert lines[1].startswith("| FAIL | It flies | high | `./ccu fly` | ")
    with open(tmp_path / lines[1].rpartition(" see ")[2], encoding="utf-8") as file:
        assert "unknown command 'fly'" in file.read()
    assert page[0].endswith("| not yet |")


def test_all_are_run_when_it_is_wished_and_the_day_is_noted(tmp_path):
    """Of those that are kept."""
    status, lines, page = run(tmp_path, "--all", "--note")
    assert status == 1 and lines[-1] == "2 of 3 promises kept"
    assert [line.rpartition("| ")[2] for line in page] == [f"{date.today()} |", "2026-01-02 |", f"{date.today()} |"]
