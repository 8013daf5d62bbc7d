"""Every call of clock and zone, met by every kind of failure: answers, lines, what is told, and later life."""

import re

import pytest

from tests.integration.fault_matrix import FAULTS
from tests.integration.time_texts import (
    CLOCK_REFUSED, GET_ZONE, LONDON, SET_CLOCK, SET_ZONE, ZONE_REFUSED, fields, told)
from virtual_unit import WRONG_TYPE, DbusFailure

OTHER = "CCU/DST/London"
PARIS = (48.8566, 2.3522)
SECONDS = 1_750_000_000
TIME = "/com/tavilon/common/Settings1/time"
CODE = r"-?\d+"


class Scenario:
    """Something that is asked of clock or zone; no kind of recording."""

    kind = None
    zone = LONDON

    def __init__(self, access, *call):
        self._access, self._call = access, call

    def prepare(self, unit):
        """The zone that is in force before."""
        unit.timedate.timezone = self.zone
        unit.client.clear()

    def act(self, unit):
        """The step under test; returns its answer, or the text of its refusal."""
        try:
            return getattr(unit.client, self._access)(*self._call)
        except DbusFailure as failure:
            assert failure.name == "org.freedesktop.DBus.Error.Failed"
            return failure.text

    def come_to_rest(self, unit):
        """The daemon has survived, and tells the zone that is in force."""
        assert unit.client.get("GetTimezone") == unit.timedate.timezone.rpartition("/")[2]

    def life_goes_on(self, unit):
        """It sets clock and zone as ever."""
        unit.timedate.timezone = LONDON
        unit.client.clear()
        assert unit.client.call("SetTimezone", "s", "Rome") == ()
        assert unit.client.call("SetTimeSecs", "ib", SECONDS, True) == ()
        assert [name for name, _ in told(unit)] == ["TimezoneChanged", "TimeChanged", "TimeChanged"]

    # Steps that several have in common ------------------------------------------------------------------------------

    @staticmethod
    def ask_whether(model):
        """Whether clients may change anything: who does not answer has nothing against it."""
        model.ask("video", "Get ActiveCaptures")
        _ask(model, "sync", "Get HasActiveSyncs", "SyncDaemonDbusHandler::HasActiveSyncs: sd_bus_get_property failed")

    @staticmethod
    def get_zone(model):
        """The zone in force."""
        return _ask(model, "timedate", "Get Timezone", f"{GET_ZONE}: Cannot read property, error: ")

    @staticmethod
    def set_zone(model):
        """The order of a zone, whose empty answer nobody reads."""
        return _order(model, "SetTimezone", f"{SET_ZONE}: Failed to call method:")

    @staticmethod
    def set_clock(model):
        """The order of a time."""
        return _order(model, "SetTime", f"{SET_CLOCK}: Cannot call method: ")

    def tell(self, model, unit, *names):
        """What is told, and the flag that goes with a time."""
        flags = [self.get_zone(model) for name in names if name == "TimeChanged"]
        signals = told(unit)
        assert [name for name, _ in signals] == list(names)
        for known, (_, values) in zip(flags, [signal for signal in signals if signal[0] == "TimeChanged"]):
            assert values[-1] is (known and "DST" in unit.timedate.timezone)


def _ask(model, sibling, member, line):
    """A question with a line of its own; a value of another type is none."""
    answered = model.ask(sibling, member)
    if not answered:
        model.error(line, ".*")
    return answered


def _order(model, member, line):
    """An order to timedated: done unless it is refused, also when its empty answer is none."""
    done = model.ask("timedate", member)
    if not done and model.fault is not WRONG_TYPE:
        model.error(line, ".+")
        return False
    return True


def coded(text, answer):
    """Whether an answer is the text with some code."""
    return re.fullmatch(re.escape(text) + CODE, answer) is not None


class Read(Scenario):
    """The time, which is answered whatever timedated says."""

    zone = OTHER

    def expect(self, model, unit, answer):
        """The flag is false when the zone is not known."""
        assert answer[-1] is self.get_zone(model)
        assert told(unit) == []


class Property(Scenario):
    """The zone or its form."""

    def __init__(self, name, value, word):
        super().__init__("get", name)
        self._value, self._word = value, word

    def expect(self, model, unit, answer):
        """The access fails as the question does."""
        if self.get_zone(model):
            assert answer == self._value
        else:
            assert coded(f"Failed to get {self._word} from systemd-timedated CODE:", answer)
        assert told(unit) == []


class Available(Scenario):
    """Whether something could be set."""

    def expect(self, model, unit, answer):
        """It can: nobody says otherwise."""
        self.ask_whether(model)
        assert answer == 1 and told(unit) == []


class Seconds(Scenario):
    """The clock by seconds."""

    def expect(self, model, unit, answer):
        """No failure is answered, and none is announced."""
        self.ask_whether(model)
        assert answer == ()
        done = self.set_clock(model)
        self.tell(model, unit, *(["TimeChanged"] if done else []))
        assert [values[:-1] for _, values in told(unit)] == [fields(unit, SECONDS, LONDON)[:-1]] * done


class ByFix(Scenario):
    """Something that is taken from a fix, which is there."""

    def prepare(self, unit):
        """The fix is of Paris, and of the moment that others set."""
        unit.gps.fix_3d(*PARIS, SECONDS)
        super().prepare(unit)


class SecondsByFix(ByFix, Seconds):
    """The clock by GPS: as by seconds."""


class Fields(Scenario):
    """The clock by fields of the other form."""

    def expect(self, model, unit, answer):
        """One failure, whatever it was."""
        self.ask_whether(model)
        if self.get_zone(model) and self.set_zone(model) and self.set_clock(model):
            assert answer == ()
            self.tell(model, unit, "TimezoneChanged", "TimeChanged")
        else:
            assert answer == CLOCK_REFUSED and told(unit) == []


class Zone(Scenario):
    """The zone by name."""

    zone = OTHER

    def expect(self, model, unit, answer):
        """Without the form in force it is standard time."""
        self.ask_whether(model)
        known = self.get_zone(model)
        if self.set_zone(model):
            assert answer == ()
            assert told(unit)[0] == ("TimezoneChanged", (f"CCU/{'DST/' if known else ''}Rome",))
            self.tell(model, unit, "TimezoneChanged", "TimeChanged")
        else:
            assert coded("Failed to set timezone via systemd-timedated CODE:", answer) and told(unit) == []


class Form(Scenario):
    """The form of the zone."""

    def expect(self, model, unit, answer):
        """Two steps, two texts."""
        self.ask_whether(model)
        if not self.get_zone(model):
            assert answer == "Cannot get timezone from systemd-datetimed" and told(unit) == []
        elif self.set_zone(model):
            assert answer == ()
            self.tell(model, unit, "TimezoneChanged", "TimeChanged")
        else:
            assert coded("Failed to set new timezone via systemd-datetimed CODE:", answer) and told(unit) == []


class Nearest(Scenario):
    """The zone that a table is asked for, in the form in force; without that it is standard time."""

    zone = OTHER

    def __init__(self, name, *call):
        super().__init__("call", *call)
        self._name = name

    def nearest(self, model):
        """The zone's full name."""
        return f"CCU/{'DST/' if self.get_zone(model) else ''}{self._name}"


class Find(Nearest):
    """The zone of an offset, which is told and not set."""

    def expect(self, model, unit, answer):
        """Told also when the form in force is not known."""
        assert answer == (self.nearest(model),) and told(unit) == []


class Offset(Nearest):
    """The zone by its offset, which asks nobody whether."""

    def expect(self, model, unit, answer):
        """Its own text."""
        expected = self.nearest(model)
        if self.set_zone(model):
            assert answer == ()
            assert told(unit)[0] == ("TimezoneChanged", (expected,))
            self.tell(model, unit, "TimezoneChanged", "TimeChanged")
        else:
            assert answer == ZONE_REFUSED and told(unit) == []


class ZoneByFix(ByFix, Offset):
    """The zone by GPS: as by offset, and everybody is asked whether."""

    def expect(self, model, unit, answer):
        """The text is the same, too."""
        self.ask_whether(model)
        super().expect(model, unit, answer)


class Settings(Scenario):
    """The settings' change of the zone."""

    def prepare(self, unit):
        """The zone that they had is known, as it is after a start: the same one again is no news."""
        unit.settings.emit_changes(TIME, "com.tavilon.common.Settings1", {"zone": "London"})
        unit.settle()
        super().prepare(unit)

    def act(self, unit):
        """The news."""
        unit.settings.set_property(TIME, "zone", "Rome")

    def expect(self, model, unit, _answer):
        """A zone that is not known is another one."""
        self.get_zone(model)
        self.tell(model, unit, *(["TimezoneChanged", "TimeChanged"] if self.set_zone(model) else []))


SCENARIOS = {
    "time": lambda: Read("call", "GetTime", "b", True),
    "seconds": lambda: Read("call", "GetTimeSecs", "b", False),
    "timezone": lambda: Property("GetTimezone", "London", "timezone"),
    "dst": lambda: Property("GetDst", False, "dst"),
    "available": lambda: Available("get", "GetTimeSourceAvailable"),
    "set seconds": lambda: Seconds("call", "SetTimeSecs", "ib", SECONDS, True),
    "set fields": lambda: Fields("call", "SetTime", "iiiiiibb", 2025, 6, 15, 12, 0, 0, True, True),
    "set timezone": lambda: Zone("call", "SetTimezone", "s", "Rome"),
    "set dst": lambda: Form("call", "SetDst", "b", True),
    "set offset": lambda: Offset("Adelaide", "SetTimezoneUTC", "ib", 34200, False),
    "find offset": lambda: Find("Adelaide", "GetTimezoneFromUTC", "ib", 34200, False),
    "set seconds by GPS": lambda: SecondsByFix("call", "SetTimeGPS"),
    "set timezone by GPS": lambda: ZoneByFix("Paris", "SetTimezoneGPS"),
    "settings": lambda: Settings("news"),
}


@pytest.mark.parametrize("name", SCENARIOS)
def test_in_peace(matrix, name):
    """Every scenario makes calls, and its model is right where nothing fails."""
    assert matrix.run(SCENARIOS[name]())


@pytest.mark.parametrize("fault", FAULTS)
@pytest.mark.parametrize("name", SCENARIOS)
def test_every_call_that_fails(matrix, name, fault):
    """By each fault, is answered, logged and announced as the model says, and life goes on."""
    matrix.fail_every_call(SCENARIOS[name], fault)
