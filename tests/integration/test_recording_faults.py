"""Every call that a recording makes, met by every kind of failure: codes, lines, what is left, and life afterwards.

$CCU_RECORDING_KIND narrows the kinds, so that they can be tested side by side.
"""

import os

import pytest

from tests.integration import recording_model
from tests.integration.fault_matrix import FAULTS
from tests.integration.recording_texts import KINDS, MESSAGES, left_over, signals_of
from virtual_unit import CODE

LOW = (("CaptureError", (-3, "Storage is too low - unable to continue recording")),)
LOST = (("CaptureError", (-4, "Storage was removed - unable to continue recording")),)

CHOSEN = [kind for kind in KINDS if kind.name in os.environ.get("CCU_RECORDING_KIND", kind.name).split()]


class Scenario:
    """Something that happens to a recording of a kind."""

    def __init__(self, kind):
        self.kind = kind

    def start(self, unit):
        """Orders a start."""
        return self.kind.order(unit, "Start", 1920, 1080, 90)

    def come_to_rest(self, unit):
        """The daemon has survived, and what still records can be stopped and saved."""
        unit.storage.set_low("card", False)
        unit.settle()
        if unit.video.state(self.kind.name) != 0:
            assert self.kind.order(unit, "Stop")[0] == 0
        unit.settle()

    def life_goes_on(self, unit):
        """The next recording is as good as any."""
        assert self.start(unit) == (0, MESSAGES[0])
        assert self.kind.order(unit, "Stop")[0] == 0


class Start(Scenario):
    """A start, and the news that the video daemon records."""

    def prepare(self, unit):
        """Nothing: the unit is fresh."""

    def act(self, unit):
        """The step under test; returns its answer."""
        return self.start(unit)

    def expect(self, model, unit, answer):
        """Walks the model and compares what is left."""
        code, records = recording_model.start(model)
        if code == 0:
            model.started()
        assert answer == (code, MESSAGES[code])
        paths = self.kind.first_paths(unit)
        if code != 0:
            assert left_over(unit) == []
            assert unit.jobs.item_of(paths.media) is None
            return
        assert left_over(unit) == paths.names
        item = unit.jobs.item_of(paths.media)
        assert (item.angles, item.reel) == records


class RefusedStart(Start):
    """A start that the video daemon refuses: what was made is taken back."""

    def prepare(self, unit):
        unit.faults.on(*self.kind.start_call, kind=CODE(-2))

    def expect(self, model, unit, answer):
        code, _ = recording_model.start(model)
        deleted = True
        if code == 0:
            code = -1
            model.error(f"{self.kind.start}: Failed to start recording")
            deleted = recording_model.delete(model)
        assert answer == (code, MESSAGES[code])
        assert left_over(unit) == []
        assert deleted or unit.jobs.item_of(self.kind.first_paths(unit).media) is not None
        assert not deleted or unit.jobs.item_of(self.kind.first_paths(unit).media) is None


class Running(Scenario):
    """A scenario on a recording that runs."""

    emitted = ()

    def prepare(self, unit):
        """Starts the recording."""
        self.kind.start_recording(unit)

    def expect(self, model, unit, answer):
        """Walks the model and compares what is left."""
        assert answer is None
        assert tuple(signals_of(unit)) == self.walk(model, unit)

    def marked(self, unit):
        """Whether the marker of a recording in progress is there."""
        return os.path.exists(self.kind.first_paths(unit).rec_active)

    def saved(self, model, unit):
        """A stop that saves; the marker goes with the last step.  Returns whether news of it will come."""
        stopped, saved = model.stop()
        assert self.marked(unit) != saved
        assert unit.video.state(self.kind.name) == (0 if stopped else 1)
        return stopped

    def lost(self, model, unit):
        """A cancel; the marker stays.  Returns whether news of it will come."""
        assert self.marked(unit)
        return model.cancel()


class Stop(Running):
    """A stop."""

    def act(self, unit):
        return self.kind.order(unit, "Stop")

    def expect(self, model, unit, answer):
        stopped, saved = model.stop()
        if stopped:
            model.stopped()
        assert answer[0] == (0 if saved else -1)
        assert self.marked(unit) != saved
        assert unit.jobs.item_of(self.kind.first_paths(unit).media) is not None


class Grow(Running):
    """Growth of the file."""

    def act(self, unit):
        unit.video.grow(self.kind.name)

    def walk(self, model, _unit):
        """The signals that are expected."""
        model.update()
        return ()


class Limit(Running):
    """Growth to the size limit."""

    def act(self, unit):
        unit.video.grow(self.kind.name, approaching_limit=True)

    def walk(self, model, unit):
        if self.saved(model, unit):
            model.stopped()
        return (("CaptureSizeLimitReached", self.kind.limit),)


class Low(Running):
    """Storage that runs low."""

    def act(self, unit):
        unit.storage.set_low("card")

    def walk(self, model, unit):
        recording_model.before(model)
        known = recording_model.storage_event(model, "storage")
        stopped = known and self.saved(model, unit)
        recording_model.after(model)
        if stopped:
            model.stopped()
        return LOW if known else ()


class Pulled(Running):
    """Storage that is pulled out; the storage daemon tells of nothing else."""

    def act(self, unit):
        unit.storage.emit("/com/tavilon/common/StorageDaemon1", "org.freedesktop.DBus.ObjectManager",
                          "InterfacesRemoved", unit.storage.device_path("card"),
                          ["com.tavilon.common.StorageDaemon1.Device"])

    def walk(self, model, unit):
        recording_model.before(model, removed=True)
        known = recording_model.storage_event(model, "removed")
        stopped = known and self.lost(model, unit)
        recording_model.after(model, removed=True)
        if stopped:
            model.stopped()
        return LOST if known else ()


SCENARIOS = [Start, RefusedStart, Stop, Grow, Limit, Low, Pulled]


@pytest.mark.parametrize("kind", CHOSEN, ids=str)
@pytest.mark.parametrize("scenario", SCENARIOS, ids=lambda made: made.__name__)
def test_in_peace(matrix, scenario, kind):
    assert matrix.run(scenario(kind))


@pytest.mark.parametrize("kind", CHOSEN, ids=str)
@pytest.mark.parametrize("fault", FAULTS)
@pytest.mark.parametrize("scenario", SCENARIOS, ids=lambda made: made.__name__)
def test_every_call_that_fails(matrix, scenario, fault, kind):
    matrix.fail_every_call(lambda: scenario(kind), fault)
