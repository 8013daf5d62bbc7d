"""All lines of the three kinds of recording side by side, and that these are all.

"%s" stands for the signature text of an operation, or for what a line tells of.  The lines come from the daemon at
work, and from the one operation that nothing in it calls yet.
"""

import os
import re

import pytest

from tests.integration.client_driver import ClientDriver
from tests.integration.recording_texts import CARD, KINDS, lines_of
from virtual_unit import CODE, REFUSE, VirtualUnit

# Video, photoTalk, autolog; one name where they are alike.
LINES = [
    ("%s called",),
    ("%s video record state is not OFF",
     "%s photoTalk record state is not OFF",
     "%s autoLog record state is not OFF"),
    ("Video file %s ok", "Phototalk file %s ok", "Autolog file %s ok"),
    ("GetNextVideoRecordingPath: Failed to get new video file path",
     "GetNextPhotoTalkPath: Failed to get new photoTalk file path",
     "GetNextAutoLogPath: Failed to get new autolog file path"),
    ('RecordingFile == "" - failed to start recording',),
    ("%s RecordingFile %s\n",),
    ("GetPathFromFilename() failed for videoFilepath %s",
     "GetPathFromFilename() failed for photoTalkFilepath %s",
     "GetPathFromFilename() failed for autologFilepath %s"),
    ("GetPathFromFilename() ok %s",),
    ("GetStorageSpaceBelowMinimumThreshold() failed",
     "GetStorageSpaceBelowMinimumThreshold() failed",
     "BelowMinimumThreshold() failed"),
    ("Can't read StorageSpaceBelowMiniumThreshold - failed to start recording",),
    ("StorageSpaceBelowMiniumThreshold = %s",),
    ("StorageSpaceBelowMiniumThreshold() is true - failed to start recording",
     "StorageSpaceBelowMiniumThreshold is true - failed to start recording",
     "StorageSpaceBelowMiniumThreshold is true - failed to start recording"),
    ("VideoCapture::VideoRecordStart: GetPowerSufficientForAction reported sufficient power.",
     "PhotoTalkCapture::PhotoTalkRecordStart: GetPowerSufficientForAction reported sufficient power.",
     "AutoLogCapture::AutoLogRecordStart: GetPowerSufficientForAction reported sufficient power."),
    ("VideoCapture::VideoRecordStart: GetPowerSufficientForAction reported insufficient power.",
     "PhotoTalkCapture::PhotoTalkRecordStart: GetPowerSufficientForAction reported insufficient power.",
     "AutoLogCapture::AutoLogRecordStart: GetPowerSufficientForAction reported insufficient power."),
    ("Halvexd::HalvexDaemonDbusHandler::GetPowerSufficientForAction: Power is insufficient for recording\n",),
    ("%s: Failed to add video media item, r = %s",
     "%s: Failed to add photoTalk media item, r = %s",
     "%s: Failed to add autolog media item, r = %s"),
    ("%s: Failed to add video media item. Error: %s",
     "%s: Failed to add photoTalk media item. Error: %s",
     "%s: Failed to add autolog media item. Error: %s"),
    ("%s: Started recording",),
    ("%s: Failed to start recording",),
    ("%s: Failed to delete video media item, r = %s",
     "%s: Failed to delete photoTalk media item, r = %s",
     "%s: Failed to delete autolog media item, r = %s"),
    ("%s: Failed to delete video media item. Error: %s",
     "%s: Failed to delete photoTalk media item. Error: %s",
     "%s: Failed to delete autolog media item. Error: %s"),
    ("%s: called",),
    ("%s Failed to stop recording",),
    ("%s Failed to get video recording filepath",
     "%s Failed to get photoTalk recording filepath",
     "%s Failed to get autolog recording filepath"),
    ("%s Stopped video recording", "%s Stopped photoTalk recording", "%s Stopped autoLog"),
    ("%s: Failed to update video media item, r = %s",
     "%s: Failed to update photoTalk media item, r = %s",
     "%s: Failed to update autolog media item, r = %s"),
    ("%s: Failed to update video media item. Error: %s",
     "%s: Failed to update photoTalk media item. Error: %s",
     "%s: Failed to update autolog media item. Error: %s"),
    ("%s Paused video record", "%s Paused photoTalk record", "%s Paused autolog record"),
    ("%s Failed to pause video record", "%s Failed to pause photoTalk record", "%s Failed to pause autolog record"),
    ("%s Resumed video record", "%s Resumed photoTalk record", "%s Resumed autolog record"),
    ("%s Failed to resume video record",
     "%s Failed to resume photoTalk record",
     "%s Failed to resume autolog record"),
    ("%s video record state -> %s", "%s photoTalk record state -> %s", "%s autoLog record state -> %s"),
    ("%s Current capture path %s approaching size limit.",),
    ("%s - video capture %s size changed.  Updating media item.",
     "%s - photoTalk capture %s size changed.  Updating media item.",
     "%s - autolog capture %s size changed.  Updating media item."),
    ("%s no video recording in progress",
     "%s no photoTalk recording in progress",
     "%s no autoLog recording in progress"),
    ("GetPathFromFilename() failed for filepath %s",),
    ("StorageSpaceBelowMiniumThreshold = %s on %s",),
    ("%s: StorageIsReadOnly = %s on %s",),
    ("%s enter",),
    ("%s Failed to get video state from video-daemon, or recording is 'off'. Cancelling anyway...",
     "%s Failed to get photoTalk state from video-daemon, or recording is 'off'. Cancelling anyway...",
     "%s Failed to get autolog state from video-daemon, or recording is 'off'. Cancelling anyway..."),
    ("%s Failed to get video record filepath from video-daemon",
     "%s Failed to get photoTalk record filepath from video-daemon",
     "%s Failed to get autolog record filepath from video-daemon"),
    ("%s Failed to get video mounted status from controller-daemon",
     "%s Failed to get photoTalk mounted status from controller-daemon",
     "%s Failed to get autolog mounted status from controller-daemon"),
    ("%s leave",),
    ("%s Failed to get video filepath", "%s Failed to get photoTalk filepath", "%s Failed to get autolog filepath"),
    ("[CaptureError::EmitSizeLimitReached] Video file size limit reached.",
     "[CaptureError::EmitSizeLimitReached] PhotoTalk file size limit reached.",
     "[CaptureError::EmitSizeLimitReached] Autolog file size limit reached."),
    ("[CaptureError::EmitError] Storage is too low - unable to continue recording",),
    ("[CaptureError::EmitError] Storage was removed - unable to continue recording",),
]
COLUMNS = {"video": 0, "photoTalk": 1, "autolog": 2}
#: Lines of the clients and of what all captures share, which other tests pin.
SHARED = re.compile(
    r"Videod: |libjobsdaemon|sd_bus_|Opened local|static int32_t |int32_t |void |Controller(Daemon)? - |JobsManager\.|"
    r"\[CaptureError::ErrorReason\]|\[StorageDaemon|Storage\.|syslog controller|The controller is|[A-Za-z]+$|"
    r"GetPowerSufficientForAction: |.*VideoPlayback")


def column(kind):
    """The lines of one kind."""
    return [row[COLUMNS[kind.name] if len(row) > 1 else 0] for row in LINES]


def pattern(line):
    """What a line of the table looks like in the log."""
    return re.compile(".+".join(map(re.escape, line.split("%s"))), re.DOTALL)


def start(kind, unit):
    """Orders a start."""
    return kind.order(unit, "Start", 640, 480, 50)


def refuse(*calls, kind=REFUSE):
    """A step in which these calls fail."""
    def step(recording, unit):
        for call in calls:
            unit.faults.on(*(call(recording) if callable(call) else call), kind=kind)
        start(recording, unit)
    return step


def on_recording(act):
    """A step on a recording that runs."""
    def step(kind, unit):
        kind.start_recording(unit)
        act(kind, unit)
    return step


def fail_then(calls, act, kind=REFUSE):
    """A step in which calls fail once the recording runs."""
    def step(recording, unit):
        recording.start_recording(unit)
        for call in calls:
            unit.faults.on(*call(recording), kind=kind)
        act(recording, unit)
    return step


def announce_off(kind, unit):
    """Late news that the recording is off."""
    unit.video.emit_changes("/com/tavilon/common/Video1", "com.tavilon.common.Video1.Control",
                            {f"{kind.member}State": 0})


def elsewhere(kind, unit):
    """A start on storage that nobody knows."""
    folder = os.path.join(unit.directory, "elsewhere")
    unit.jobs.on_GetNewMediaPathComponents = lambda _path: (0, folder, "0001")
    start(kind, unit)


UPDATE = ("jobs", "UpdateMediaFileSizes")
#: Everything that can happen to a recording, each in a unit of its own.
STEPS = [
    on_recording(lambda kind, unit: [start(kind, unit), kind.order(unit, "Pause"), kind.order(unit, "Resume"),
                                     kind.order(unit, "Stop")]),
    lambda kind, unit: [kind.order(unit, operation) for operation in ("Pause", "Resume", "Stop")],
    lambda kind, unit: [unit.jobs.close(), start(kind, unit)],
    elsewhere,
    refuse(("storage", "Get StorageIsBelowMinimumLevel")),
    lambda kind, unit: [unit.storage.set_low("card"), start(kind, unit)],
    refuse(("hardware", "GetPowerSufficientForAction")),
    refuse(lambda kind: kind.add_call),
    refuse(lambda kind: kind.add_call, kind=CODE(3)),
    refuse(lambda kind: kind.start_call, ("jobs", "DeleteMediaItem")),
    lambda kind, unit: [unit.jobs.answer_code("GetMediaID", 10), refuse(lambda each: each.start_call)(kind, unit)],
    fail_then([lambda kind: kind.previous_call], lambda kind, unit: kind.order(unit, "Stop")),
    fail_then([lambda _: UPDATE], lambda kind, unit: kind.order(unit, "Stop")),
    fail_then([lambda _: UPDATE], lambda kind, unit: kind.order(unit, "Stop"), kind=CODE(5)),
    on_recording(lambda kind, unit: unit.video.grow(kind.name)),
    on_recording(lambda kind, unit: unit.video.grow(kind.name, approaching_limit=True)),
    on_recording(lambda kind, unit: unit.storage.set_low("card")),
    on_recording(lambda kind, unit: unit.storage.set_read_only("card")),
    on_recording(lambda kind, unit: unit.storage.remove_device("card")),
    fail_then([lambda kind: kind.filename_call], announce_off),
    fail_then([lambda _: ("storage", "Get IsMounted")], announce_off),
]


def gather(kind, lender):
    """Every line of the kind, of all that can happen to it."""
    lines = []
    for step in STEPS:
        with lender.lend() as unit:
            mark = unit.log.mark()
            step(kind, unit)
            unit.settle()
            lines += [text for _, text in lines_of(unit, mark)]
    with VirtualUnit(daemon=False) as unit, ClientDriver(unit, program="capture_driver") as driver:
        unit.faults.on(*kind.filename_call, kind=REFUSE)
        lines += [line.text for line in
                  driver.run(f"{kind.name}.StopAndSaveAllRecordingsOnStoragePath", CARD).lines]
    return [line for line in lines if kind.capture.split("::")[1] in line or not SHARED.match(line)]


@pytest.mark.parametrize("kind", KINDS, ids=str)
def test_these_are_the_lines_and_no_others(lender, kind):
    others = [other.capture for other in KINDS if other is not kind]
    lines = [line for line in gather(kind, lender) if not any(other in line for other in others)]
    patterns = {line: pattern(line) for line in column(kind)}
    unknown = {line for line in lines if not any(known.fullmatch(line) for known in patterns.values())}
    assert not unknown, "\n".join(sorted(unknown))
    missing = [line for line, known in patterns.items() if not any(map(known.fullmatch, lines))]
    assert not missing, "\n".join(missing)


@pytest.mark.parametrize("kind", KINDS, ids=str)
def test_saving_what_lies_on_a_storage(unit, kind):
    def save(unit, driver, storage):
        return driver.run(f"{kind.name}.StopAndSaveAllRecordingsOnStoragePath", storage).result

    with ClientDriver(unit, program="capture_driver") as driver:
        assert save(unit, driver, CARD) is False
        paths = kind.start_recording(unit)
        assert save(unit, driver, "/com/tavilon/common/StorageDaemon1/internal") is False
        assert unit.video.state(kind.name) == 1
        assert save(unit, driver, CARD) is True
        assert unit.video.state(kind.name) == 0
        assert not os.path.exists(paths.rec_active)


@pytest.mark.parametrize("kind", KINDS, ids=str)
def test_cancelling_stops_and_does_no_more(own_unit, kind):
    with ClientDriver(own_unit, program="capture_driver") as driver:
        assert driver.run(f"{kind.name}.Cancel").result == -1
        paths = kind.start_recording(own_unit)
        size = own_unit.jobs.item_of(paths.media).size
        own_unit.stop_daemon()
        with open(paths.media, "ab") as file:
            file.write(bytes(100))
        outcome = driver.run(f"{kind.name}.Cancel")
        assert outcome.result == 0
        assert [line.text for line in outcome.lines] == [f"{kind.cancel}: called", kind.stop_order_line[1]]
        assert own_unit.video.state(kind.name) == 0
        assert own_unit.jobs.item_of(paths.media).size == size
        assert os.path.exists(paths.rec_active)
