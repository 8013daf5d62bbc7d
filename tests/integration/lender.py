"""One unit for many tests: each gets it as new."""

import contextlib

from virtual_unit import VirtualUnit


class Lender:
    """Lends a unit of the kind with these options, always the same one unless something has gone wrong on it."""

    def __init__(self, make=VirtualUnit, **options):
        self._make = make
        self._options = options
        self._unit = None

    @contextlib.contextmanager
    def lend(self):
        """The unit, as new.  A daemon that ends by itself meanwhile, or an error of the simulation, is raised here."""
        if self._unit is None:
            self._unit = self._make(**self._options).start()
            self._unit.remember()
        try:
            yield self._unit
            self._unit.renew()
        except BaseException as error:
            error.add_note(f"The virtual unit at that time:\n{self._unit.report()}")
            self._discard()
            raise

    def _discard(self):
        unit, self._unit = self._unit, None
        unit.discard()

    def close(self):
        """Ends the unit; raises what went wrong with it."""
        if self._unit is not None:
            unit, self._unit = self._unit, None
            unit.stop()
