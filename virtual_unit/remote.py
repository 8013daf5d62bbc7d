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

    def state(self, noun):
        """The values of an object's properties."""
        return self._client.call_on(SERVICE, nouns()[noun].path, PROPERTIES, "GetAll", "s",
                                    nouns()[noun].interface)[0]
