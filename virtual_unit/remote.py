"""A client of a unit's control object, in whatever process the unit runs."""

from .client import Client
from .declaration import PROPERTIES
from .patience import PATIENCE
from .simulation_names import ROOT, SERVICE
from .verbs import effect_of, nouns

#: Seconds that a command gives the daemon to deal with what it has done.
SETTLE_SECONDS = 2


class Remote:
    """Does what the verbs say."""

    def __init__(self, session):
        self._client = Client(session, SERVICE, ROOT, SERVICE)
        self._before = []

    def close(self):
        """Ends the connection."""
        self._client.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def do(self, verb, values):
        """Carries a verb out with the values of its arguments, by their names; returns the results by theirs, and the
        line that tells the effect.  Raises DbusFailure when the unit refuses."""
        given = [values[argument.name] for argument in verb.inputs]
        answers = self._client.call_on(SERVICE, verb.path, verb.interface, verb.member, verb.signature, *given,
                                       timeout=2 * PATIENCE)
        results = dict(zip(verb.outputs, answers))
        return results, effect_of(verb, values, results)

    def settle(self, seconds=SETTLE_SECONDS):
        """Waits until the daemon has dealt with everything; returns whether it has."""
        return self._client.call("Settle", "d", float(seconds), timeout=2 * PATIENCE)[0]

    def record(self, on):
        """From now on, or no more, what happens beside the buses is told on them."""
        self._client.call("Record", "b", on)

    def save(self, path):
        """Keeps the unit in a file."""
        self._client.call("Save", "s", path, timeout=2 * PATIENCE)

    def subscribe(self):
        """From now on what happens is told, lines of the log with those before."""
        self._client.call("Subscribe")
        self._before = [text for _, text in self._client.call("Log")[0]]
        self._client.clear()

    def _logged(self):
        return self._before + [signal.args[1] for signal in self._client.signals if signal.member == "Logged"]

    def wait_line(self, text, since=0, timeout=PATIENCE):
        """Waits for a line with the text, from one of a number on; returns the number of the first, None in vain."""
        def found():
            lines = self._logged()
            return next(([number] for number in range(since, len(lines)) if text in lines[number]), None)

        place = self._client.wait_until(found, timeout)
        return place[0] if place else None

    def state(self, noun):
        """The values of an object's properties."""
        return self._client.call_on(SERVICE, nouns()[noun].path, PROPERTIES, "GetAll", "s",
                                    nouns()[noun].interface)[0]
