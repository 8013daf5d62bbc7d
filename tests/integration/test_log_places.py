"""What `./ccu where` says of the lines that the demo logs, against who has logged them: the callers of syslog(3), by
their addresses in the binary. It takes a build with debug information and every call: ctest runs it in those alone."""

import io
import os
import pathlib
import re
import subprocess

import pytest

from dbus_helper.where import Sources, text_of
from virtual_unit import VirtualUnit
from virtual_unit.demo import Inspection

_ROOT = pathlib.Path(__file__).resolve().parent.parent.parent

#: The one text that the daemon logs as it comes: nothing in it is the sources' own.
_ZONES = "Adelaide, Alaska, "


def _source(path):
    """The path of a source as it is here, whatever stood before it where it was compiled; "" for any other."""
    parts = pathlib.Path(os.path.normpath(path)).parts
    tails = (os.path.join(*parts[index:]) for index in range(1, len(parts) - 1))
    return next((tail for tail in tails if (_ROOT / tail).is_file()), "")


def _callers(lines):
    """The places of the calls that led to each text, as FILE:LINE; those outside the sources and the log left out."""
    addresses = {caller for line in lines for caller in line.callers}
    places = {}
    for binary in {caller.rpartition("+")[0] for caller in addresses}:
        if not binary.startswith(os.environ["CCU_BUILD_DIR"]):
            continue
        offsets = sorted({caller.rpartition("+")[2] for caller in addresses if caller.startswith(f"{binary}+")})
        calls = "\n".join(hex(int(offset, 16) - 1) for offset in offsets)  # what returns there
        done = subprocess.run(["addr2line", "-e", binary], input=calls, capture_output=True, text=True, check=True)
        for offset, place in zip(offsets, done.stdout.splitlines()):
            path, _, number = place.partition(" ")[0].rpartition(":")
            source = _source(path)
            if source and not source.endswith("/Log.cpp"):
                places[f"{binary}+{offset}"] = f"{source}:{number}"
    return {line.text: [places[caller] for caller in line.callers if caller in places] for line in lines}


@pytest.fixture(scope="module", name="logged")
def fixture_logged():
    """Every line of the demo, with the places of the calls that led to it, the statement first."""
    lines = {}

    class TracedUnit(VirtualUnit):
        """Its log has the callers, and is kept."""

        def __init__(self, **options):
            super().__init__(environment={"CCU_SYSLOG_CALLERS": "1"}, **options)

        def stop(self):
            lines.update(dict.fromkeys(self.log.lines()))
            super().stop()

    output = io.StringIO()
    assert Inspection(output, TracedUnit).run() == 0, output.getvalue()
    return _callers(lines)


@pytest.fixture(scope="module", name="sources")
def fixture_sources():
    """What `./ccu where` knows."""
    return Sources()


def test_every_line_is_traced_to_the_statement_that_logged_it(logged, sources):
    assert len(logged) > 200
    wrong = {}
    for text, places in logged.items():
        matches = sources.matches(text_of(text))
        best = [str(match.places[0]) for match in matches if match.rank == matches[0].rank]
        if text.startswith(_ZONES):
            best = [str(place) for place in sources.open_ended()]
        if not places or places[0] not in best:
            wrong[text] = (places, [str(match.places[0]) for match in matches])
    assert wrong == {}


def test_lines_that_two_statements_log_are_few(logged, sources):
    shared = {tuple(sorted(str(match.places[0]) for match in matches)): text for text, matches in (
        (text, sources.matches(text_of(text))) for text in logged) if len(matches) > 1}
    formats = {match.format for text in shared.values() for match in sources.matches(text_of(text))}
    assert formats <= {"GetPathFromFilename() ok %s", "%s enter"}


def test_the_callers_that_gave_words_are_those_that_called(logged, sources):
    followed = 0
    for text, places in logged.items():
        for match in sources.matches(text_of(text)):
            given = [str(place) for place in match.places[1:] if place.definition.parameters is not None]
            if str(match.places[0]) == places[0]:
                assert [place for place in places if place in given] == given, (text, places)
                followed += len(given)
    assert followed > 10


def test_the_operation_that_a_line_names_is_the_one_that_ran(logged, sources):
    """Where an operation of that name is among the callers: some lines name another on purpose."""
    ran = 0
    for text, places in logged.items():
        operations = sources.operations(text_of(text))
        if not re.match(r"(static )?\S+ \w+::\w+::\w+\(", text) or not operations:
            continue
        assert len(operations) == 1, text
        path, line = operations[0].source.path, operations[0].line
        later = [each.line for each in operations[0].source.definitions
                 if each.parameters is not None and each.line > line]
        ran += any(place.startswith(f"{path}:") and line <= int(place.rpartition(":")[2]) < min(later, default=10**6)
                   for place in places)
    assert ran > 50
