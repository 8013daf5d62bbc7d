"""The sync daemon: copies between storages; a sync lasts until it is cancelled or finished from outside."""

import json

from .loop import on_loop
from .sibling import Sibling

_PATH = "/com/tavilon/common/SyncDaemon1"

SUCCEEDED, SOURCE_NOT_FOUND, DESTINATION_NOT_FOUND, ALREADY_EXISTS = 0, 1, 2, 5


class Sync(Sibling):
    """`syncs` maps a destination to its (source, items)."""

    name = "sync"
    service = "com.tavilon.common.SyncDaemon1"

    def __init__(self, unit, address):
        self.syncs = {}
        super().__init__(unit, address)

    @property
    def active(self):
        """Whether syncs appear as active."""
        return self.get_property(_PATH, "HasActiveSyncs")

    @property
    def status(self):
        """What is told of the syncs."""
        return self.get_property(_PATH, "SyncStatus")

    @on_loop
    def set_active(self, active):
        """Makes syncs appear as active, or not, whatever was ordered."""
        self.set_property(_PATH, "HasActiveSyncs", active)

    @on_loop
    def finish(self):
        """All syncs come to their end."""
        self.syncs.clear()
        self._follow()

    def _follow(self):
        status = json.dumps([{"destination": destination, "source": source, "items": items}
                             for destination, (source, items) in self.syncs.items()]) if self.syncs else ""
        self.set_properties(_PATH, {"HasActiveSyncs": bool(self.syncs), "SyncStatus": status})

    # Behaviours -------------------------------------------------------------------------------------------------------

    def on_AddSyncs(self, path, source, destination, items):
        """Starts a sync of items from a source to a destination."""
        checks = ((not source, SOURCE_NOT_FOUND), (not destination, DESTINATION_NOT_FOUND),
                  (destination in self.syncs, ALREADY_EXISTS))
        code = next((code for failed, code in checks if failed), SUCCEEDED)
        if code == SUCCEEDED:
            self.syncs[destination] = (source, items)
            self._follow()
        return code, self.get_property(path, "SyncStatus")

    def on_CancelSyncs(self, _path, items):
        """Cancels the syncs to the named destinations; none of another name is touched."""
        if not set(items) <= set(self.syncs):
            return DESTINATION_NOT_FOUND
        for destination in items:
            self.syncs.pop(destination, None)
        self._follow()
        return SUCCEEDED

    def on_CancelAllDevices(self, _path):
        """Cancels everything."""
        self.finish()
        return SUCCEEDED
