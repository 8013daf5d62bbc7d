"""What is said of a daemon that grows, and of one that does not."""

import pytest

from tests.fuzz.player import FuzzUnit
from tests.soak import GOALS, Sample, run, verdict

REST = Sample(1000, 8000, 17, 1, 0)


def grown(**figures):
    """A sample with other figures."""
    return Sample(**{**vars(REST), **figures})


def failing(samples):
    """The figures that have grown on."""
    return {name for name, (_, is_met) in verdict(samples).items() if not is_met}


@pytest.mark.parametrize("figure", sorted(GOALS))
def test_what_grows_in_the_second_half_is_told(figure):
    """By more than its goal, beyond all that was before."""
    more = grown(**{figure: getattr(REST, figure) + GOALS[figure] + 1})
    just = grown(**{figure: getattr(REST, figure) + GOALS[figure]})
    assert failing([REST, REST, REST, more]) == {figure}
    assert failing([REST, more, REST, more]) == failing([REST, REST, REST, just]) == failing([REST] * 4) == set()


def soaked(planted=None):
    """The samples of a short soak."""
    with FuzzUnit(planted) as unit:
        return run(unit, 320, show=lambda *_: None)


def test_a_short_one():
    """All calls are answered, and what does not have to warm up stays."""
    samples = soaked()
    assert len(samples) == 40 and failing(samples) <= {"private_dirty_kib"}


@pytest.mark.parametrize("planted, figure", [("memory", "private_dirty_kib"), ("descriptor", "descriptors")])
def test_a_planted_leak_is_told(planted, figure):
    """A little of it at every stop and playback."""
    assert figure in failing(soaked(planted))
