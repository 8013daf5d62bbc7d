"""What a recording must do when a sibling fails at one of its calls: the procedure, told once more and independently.

A scenario walks through its calls; `ask` says whether a call gets its answer and notes the failure line of the client
that makes it.  Patterns are for whole lines.
"""

import re

from tests.integration.playback_texts import FILENAME_CALL, INVALID
from tests.integration.recording_texts import KINDS, VIDEO
from virtual_unit import DIE, WRONG_TYPE

HALVEX = "static int32_t Halvexd::HalvexDaemonDbusHandler::"
STORED = "static int32_t Storaged::StorageDaemonDbusHandler::"

#: Getters that say so themselves when they fail: the operation with its types, and the constant of their line.
PROPERTY_LINES = {
    "Get RemoteIP": (HALVEX + "GetRemoteIP(std::string&)", "HALVEX_DAEMON_PROP_REMOTE_IP"),
    "Get RemoteDBusAddress": (HALVEX + "GetRemoteDbusAddr(std::string&)", "HALVEX_DAEMON_PROP_REMOTE_DBUS_ADDR"),
    "Get Connected": (HALVEX + "GetReelConnected(bool&)", "HALVEX_DAEMON_PROP_REEL_CONNECTED"),
    "Get Absolute": (HALVEX + "GetReelDistanceAbsolute(int32_t&)", "HALVEX_DAEMON_PROP_REEL_DIST_ABS"),
    "Get Mode": (HALVEX + "GetReelDistanceSoftwareMode(std::string&)", "HALVEX_DAEMON_PROP_REEL_DIST_MODE"),
    "Get Relative": (HALVEX + "GetReelDistanceRelative(int32_t&)", "HALVEX_DAEMON_PROP_REEL_DIST_REL"),
    "Get StorageIsBelowMinimumLevel": (STORED + "GetStorageSpaceBelowMinimumThreshold(const std::string&, bool&)",
                                       "PROP_STORAGE_IS_BELOW_MINIMUM_LEVEL"),
    "Get MountPoint": (STORED + "GetMountPoint(const std::string&, std::string&)", "PROP_MOUNTPOINT"),
    "Get IsMounted": (STORED + "GetMounted(const std::string&, bool&)", "PROP_IS_MOUNTED"),
}
#: Names of the adders in the lines of calls that got no answer, and of answers that cannot be read.
ADDERS = {kind.adder: (kind.adder_operation, kind.adder_operation) for kind in KINDS}
ADDERS["AddSnapshotMedia"] = ("AddSnapshotMediaItemm", "AddSnapshotMediaItem")


def _client_line(sibling, member, misread):
    """The line of the client whose call got no answer, or one that it could not read; None when it has none."""
    if member in PROPERTY_LINES:
        operation, constant = PROPERTY_LINES[member]
        return re.escape(f"{operation}: sdbus_utils::GetProperty {constant} failed ") + ".+"
    if member.startswith(("Get ", "Set ")) or member == "GetManagedObjects" or sibling == "timedate":
        return None
    if sibling == "video":
        return r"sd_bus_message_read failed \(r = -\d+\)" if misread else \
            rf"sd_bus_call_method {member} failed: .+ \(r = -\d+\)"
    if sibling == "hardware":
        return rf"{member}: sd_bus_{'message_read' if misread else 'call_method'} failed \(r = -\d+\)"
    name = f"libjobsdaemon::JobsManager::{ADDERS.get(member, (member, member))[misread]}"
    if misread:
        return rf"{name}: sd_bus_message_read failed r = -\d+"
    return rf"{name}: sd_bus_call_method failed r = -\d+" + (" reason: .+" if member in ADDERS else ", message = .+")


class Calls:
    """One run of something in which the call with the index meets the fault.  A subclass knows the failure lines."""

    def __init__(self, index, fault):
        self.fault = fault
        self.errors = []
        self._index = index
        self._position = -1
        self._dead = set()

    def ask(self, sibling, member):
        """Makes a call; False when it fails."""
        dead = sibling in self._dead
        if not dead:
            self._position += 1
        if not dead and self._position != self._index:
            return True
        if self.fault is DIE:
            self._dead.add(sibling)
        misread = not dead and self.fault is WRONG_TYPE
        if misread and self.reads_nothing(member):
            return True
        line = self.client_line(sibling, member, misread)
        if line is not None:
            self.errors.append(line)
        return False

    def reads_nothing(self, _member):
        """Whether the answer of a call has no value, so that nobody looks at its type."""
        return False

    def client_line(self, sibling, member, misread):
        """The pattern of the line of the client whose call failed, None when it has none."""
        raise NotImplementedError

    def error(self, text, pattern=""):
        """Notes a failure line: a text, and a pattern for what follows it."""
        self.errors.append(re.escape(text) + pattern)


class Model(Calls):
    """One run of a scenario of a kind of recording, or of none."""

    def __init__(self, kind, index, fault):
        super().__init__(index, fault)
        self.kind = kind

    def client_line(self, sibling, member, misread):
        return _client_line(sibling, member, misread)

    # What several scenarios do ----------------------------------------------------------------------------------------

    def find_storage(self, media=True):
        """Finds the storage of a file; the devices are asked one by one when they cannot be had at once."""
        if self.ask("storage", "GetManagedObjects"):
            return media
        if not self.ask("storage", "Get AvailableDevices"):
            self.error("Storage.GetStorageObjectPaths() failed ", r"-\d+")
            return False
        mounted = [self.ask("storage", "Get MountPoint") for _ in ("internal", "card")]
        return mounted[-1]

    def update(self):
        """Updates the sizes of the media item."""
        if not self.ask("jobs", "UpdateMediaFileSizes"):
            self.error(f"{self.kind.update}: Failed to update {self.kind.word} media item, r = ", r"-\d+")

    def read_remote(self, member):
        """Reads a value of the reel, after the address of a remote hardware daemon."""
        self.ask("hardware", "Get RemoteIP")
        self.ask("hardware", "Get RemoteDBusAddress")
        return self.ask("hardware", member)

    def reel(self):
        """The record of the reel."""
        if not self.read_remote("Get Connected") or not self.read_remote("Get Absolute") \
                or not self.read_remote("Get Mode") or not self.read_remote("Get Relative"):
            return (False, 0, 0)
        return (True, 1234, 234)

    def angles(self):
        """The record of the camera."""
        rotates = self.ask("video", "Get AutoRotateCapable")
        roll = 12 if rotates and self.ask("video", "Get CameraRollAngleRaw") else 0
        tilts = self.ask("video", "Get TiltsenseCapable")
        pitch = -3 if tilts and self.ask("video", "Get CameraPitchAngle") else 0
        return (rotates, roll, tilts, pitch)

    def started(self):
        """The news that the video daemon records."""
        if not self.ask(*self.kind.filename_call):
            self.error(f"{self.kind.state} Failed to get {self.kind.word} recording filepath")
            return
        self.update()

    def cancel(self):
        """Stops without saving; the video daemon of these scenarios is on."""
        if not self.ask(*self.kind.stop_call):
            self.error(f"{self.kind.cancel} Failed to stop recording")
            return False
        return True

    def stop(self):
        """Stops and saves."""
        if not self.ask(*self.kind.stop_call):
            self.error(f"{self.kind.stop} Failed to stop recording")
            return False, False
        if not self.ask(*self.kind.previous_call):
            self.error(f"{self.kind.stop} Failed to get {self.kind.word} recording filepath")
            return True, False
        self.update()
        return True, True

    def stopped(self):
        """The news that the video daemon is off, and its one more refusal to stop."""
        self.ask(*self.kind.state_call)
        self.error(self.kind.off_line[1])
        self.ask(*self.kind.stop_call)
        self.error(f"{self.kind.cancel} Failed to stop recording")


def start(model):
    """A start; returns its code and the records of the item, None when there is none."""
    kind = model.kind
    if not model.ask(*kind.state_call):
        return -8, None
    if not model.ask("jobs", "GetNewMediaPathComponents"):
        model.error("JobsManager.GetNewMediaPathComponents() failed ", r"-\d+")
        model.error(kind.path_operation)
        return -4, None
    if not model.find_storage():
        model.error(f"GetPathFromFilename() failed for {kind.filepath_word} ", ".+/0001.*mp4")
        return -1, None
    if not model.ask("storage", "Get StorageIsBelowMinimumLevel"):
        model.error(kind.threshold_failed)
        model.error("Can't read StorageSpaceBelowMiniumThreshold - failed to start recording")
        return -1, None
    if not model.ask("hardware", "GetPowerSufficientForAction"):
        model.error("Halvexd::HalvexDaemonDbusHandler::GetPowerSufficientForAction: Power is insufficient for "
                    "recording\n")
        return -2, None
    records = model.angles(), model.reel()
    if not model.ask(*kind.add_call):
        model.error(f"{kind.start}: Failed to add {kind.word} media item, r = ", r"-\d+")
        return -10, None
    if not model.ask(*kind.start_call):
        model.error(f"{kind.start}: Failed to start recording")
        return -1, None
    return 0, records


def delete(model):
    """What follows a start that the video daemon refuses."""
    for member in ("GetCurrentJobDeviceID", "GetCurrentJobID", "GetMediaID", "DeleteMediaItem"):
        if not model.ask("jobs", member):
            model.error(f"{model.kind.start}: Failed to delete {model.kind.word} media item, r = ", r"-\d+")
            return False
    return True


def storage_event(model, handler):
    """The recording's own part of a storage event up to the decision: whether its storage is known; what could not be
    asked is no reason to end it.  The kinds that are not recording ask before and after; see `before` and `after`."""
    kind = model.kind
    if not model.ask(*kind.state_call):
        return False
    if not model.ask(*kind.filename_call):
        model.error(f"{getattr(kind, handler)} Failed to get {kind.word} recording filepath")
        return False
    if model.find_storage():
        return True
    model.error("GetPathFromFilename() failed for filepath ", ".+/0001.*mp4")
    return False


def _then_playback(model, kind, removed):
    """Playback hears of a storage that goes right after the video recording; nothing is played here."""
    if removed and kind is VIDEO and not model.ask(*FILENAME_CALL):
        model.error(f"{INVALID} Failed to get video playback filename")


def _ask_kinds(model, kinds, removed):
    for kind in kinds:
        model.ask(*kind.state_call)
        _then_playback(model, kind, removed)


def before(model, removed=False):
    """The questions of those that hear of a storage event first; `removed`: the storage goes away."""
    _ask_kinds(model, KINDS[:KINDS.index(model.kind)], removed)


def after(model, removed=False):
    """The questions of those that hear of it last."""
    _then_playback(model, model.kind, removed)
    _ask_kinds(model, KINDS[KINDS.index(model.kind) + 1:], removed)
