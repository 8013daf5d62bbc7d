"""Draws lists of steps, plays them, and makes the list that has shown something shorter."""

from hypothesis import HealthCheck, Phase, Verbosity, given, seed, settings
from hypothesis import strategies as st
from hypothesis.errors import Flaky

from tests.fuzz.player import LASTING, Finding, FuzzUnit, Player
from tests.fuzz.steps import STEP
from tests.integration.lender import Lender
from virtual_unit import PATIENCE, DaemonFailure

#: Lists of steps of one seed; then comes the next one.
_LISTS = 20
#: Lists of lists, since those grow long and still lose any of their steps when they shrink.
_STEPS = st.lists(st.lists(STEP, max_size=12), max_size=12).map(lambda lists: [step for some in lists for step in some])


class Search:
    """Looks for a list of steps that shows a wrong, and for a shorter one that still does."""

    def __init__(self, patience=PATIENCE, grace=PATIENCE, planted=None, build_dir=None):
        self._patience, self._grace = patience, grace
        self._lender = Lender(make=FuzzUnit, planted=planted, build_dir=build_dir)
        #: The last steps that have shown something, and what.
        self.steps = self.finding = None
        self.taken = 0
        #: What was played before on the same unit, and what had been when the last steps have shown something.
        self._played = []
        self.before = []

    def play(self, steps):
        """Plays a list on a unit that is as new; raises what it shows."""
        try:
            self._play(steps)
            self.taken += len(steps)
            self._played.append(steps)
        except (Finding, DaemonFailure, TimeoutError, RuntimeError) as finding:
            self.steps, self.finding = steps, finding
            self.before, self._played = self._played, []
            raise Finding(getattr(finding, "kind", type(finding).__name__), str(finding)) from None

    def _play(self, steps):
        found = None
        with self._lender.lend() as unit:
            try:
                Player(unit, self._patience, self._grace).play(steps)
            except Finding as finding:
                if finding.kind in LASTING:  # this unit has ended with it
                    raise
                finding.add_note(f"The virtual unit at that time:\n{unit.report()}")
                found = finding
        if found:
            raise found

    def look(self, number, lists=_LISTS, shrink=True):
        """Tries the lists of one seed; True when one of them has shown something, which stands in `steps` then."""

        @seed(number)
        @settings(max_examples=lists, deadline=None, database=None, report_multiple_bugs=False, print_blob=False,
                  verbosity=Verbosity.quiet, suppress_health_check=list(HealthCheck),
                  phases=[Phase.generate] + [Phase.shrink] * shrink)
        @given(_STEPS)
        def play(steps):
            self.play(steps)

        try:
            play()
        except (Finding, Flaky):
            return True
        return False

    def close(self):
        """Ends the unit."""
        self._lender.close()
