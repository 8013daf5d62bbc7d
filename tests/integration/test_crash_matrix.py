"""What a crash leaves is what is kept of it, the unit goes on from there, and `controllerctl recover` mends it.

Of each thing that the end of somebody can leave one run is played. All runs are played when $CCU_CRASH_MATRIX is "all",
which takes minutes.
"""

import dataclasses
import os

import pytest

from tests.integration import crash_page
from tests.integration.crash_matrix import SCENARIOS, played, rows_of
from tests.integration.recording_texts import AUTO_LOG, PHOTO_TALK

KEPT = crash_page.kept()


def chosen():
    """The rows that are played, by scenario and end."""
    rows = KEPT
    if os.environ.get("CCU_CRASH_MATRIX") != "all":
        rows = {(row.end.partition(",")[0], row.outcome): row for row in reversed(KEPT)}.values()
    found = {}
    for row in rows:
        found.setdefault((row.scenario, row.end), []).append(row)
    return found


CHOSEN = chosen()


def test_the_page_is_what_is_made_of_the_table():
    """`./ccu pages` makes it anew, and says of everything that can be left what to do about it."""
    with open(crash_page.PAGE, encoding="utf-8") as file:
        assert file.read() == crash_page.made()
    assert {row.left for row in KEPT} == set(crash_page.TO_DO)
    assert {row.scenario for row in KEPT} == set(SCENARIOS)


@pytest.mark.parametrize("kind", [AUTO_LOG, PHOTO_TALK], ids=str)
def test_a_start_of_any_kind_leaves_the_same(kind):
    """The page tells it once."""
    of_kind, of_video = ([dataclasses.replace(row, scenario="", call=crash_page.as_of_video(row.call)) for row in KEPT
                          if row.scenario == name] for name in (f"start {kind}", "start"))
    assert of_kind == of_video


@pytest.mark.parametrize("name", SCENARIOS)
def test_the_table_has_every_call(lender, name):
    """`./ccu pages crash` makes it anew."""
    assert rows_of(lender, name) == [dataclasses.replace(row, left="", found="") for row in KEPT
                                     if row.scenario == name]


@pytest.mark.parametrize("chosen_rows", CHOSEN.values(), ids=map("-".join, CHOSEN))
def test_a_crash_leaves_what_the_table_says(lender, chosen_rows):
    """All rows are looked at, whatever becomes of one."""
    failures = []
    for row in chosen_rows:
        try:
            assert played(lender, row) == row
        except AssertionError as failure:
            failures.append(f"{row.index} {row.call}: {failure}")
    assert not failures, "\n".join(failures)
