"""Recordings of every kind from their start to their end: what they ask, in which order, what they leave and say."""

import os
import re

import pytest

from tests.integration.recording_texts import (
    CARD, KINDS, MESSAGES, REEL, Watch, debug, error, info, left_over, opened, others, reason, signals_of)
from virtual_unit import CODE, DIE, REFUSE


@pytest.fixture(name="kind", params=KINDS, ids=str)
def each_kind(request):
    """The kind of recording."""
    return request.param


def start(unit, kind, width=1920, height=1080, quality=90):
    """Orders a start and returns its answer."""
    return kind.order(unit, "Start", width, height, quality)


# Start ----------------------------------------------------------------------------------------------------------------


def test_start_asks_in_order_registers_the_file_and_tells_each_step(unit, kind):
    watch = Watch(unit)
    paths = kind.first_paths(unit)
    assert start(unit, kind) == (0, "Ran successfully")
    unit.settle()
    assert watch.calls == kind.start_calls + kind.started_calls
    assert watch.lines == kind.start_lines(paths) + kind.started_lines()
    order = unit.video.orders[kind.name]
    assert (order.path, order.recovery, order.snapshot) == (paths.media, paths.recovery, paths.snapshot)
    assert (order.width, order.height, order.quality) == (1920, 1080, 90)
    item = unit.jobs.item_of(paths.media)
    assert (item.path, item.type) == (paths.media, kind.media_type)
    assert (item.rec_active, item.recovery, item.snapshot) == (paths.rec_active, paths.recovery, paths.snapshot)
    assert (item.angles, item.reel) == ((True, 12, True, -3), (True, 1234, 234))


def test_markers_are_hidden_files_that_only_their_owner_can_write(unit, kind):
    paths = kind.start_recording(unit)
    for marker in (paths.rec_active, paths.recovery):
        assert os.stat(marker).st_mode & 0o7777 == 0o300


def test_start_while_recording_is_refused_and_touches_nothing(unit, kind):
    kind.start_recording(unit)
    watch = Watch(unit)
    before = left_over(unit)
    assert start(unit, kind) == (-8, MESSAGES[-8])
    assert watch.calls == [kind.state_call]
    assert watch.lines == [info(f"{kind.start} called"),
                           info(f"{kind.start} {kind.state_word} record state is not OFF"), reason(-8)]
    assert left_over(unit) == before


@pytest.mark.parametrize("state", [2, 3, -1])
def test_start_is_refused_in_every_state_but_off(unit, kind, state):
    unit.video.set(f"{kind.member}State", state, emit=False)
    assert start(unit, kind) == (-8, MESSAGES[-8])


def test_start_without_a_current_job(unit, kind):
    unit.jobs.close()
    watch = Watch(unit)
    assert start(unit, kind) == (-7, "No current job - unable to record")
    assert watch.calls == kind.start_calls[:2]
    assert watch.lines == [
        info(f"{kind.start} called"), info("Controller - StorageManager::GetFilepathComponents"),
        debug("GetNewMediaPathComponents"),
        error("ControllerDaemon - StorageManager::GetFilename : JobsManager::GetNewMediaPathComponents - "
              "No current job."),
        error(kind.path_operation),
        info('RecordingFile == "" - failed to start recording'), reason(-7)]


@pytest.mark.parametrize("code, text", [(1, "Failed: Device busy"), (16, "Failed: Cannot delete/move current job"),
                                        (30, "Unknown error code"), (-1, "Unknown error code")])
def test_start_when_the_jobs_manager_gives_no_path(unit, kind, code, text):
    unit.jobs.answer_code("GetNewMediaPathComponents", code)
    watch = Watch(unit)
    assert start(unit, kind) == (-4, MESSAGES[-4])
    assert watch.lines[3:] == [
        error("ControllerDaemon - StorageManager::GetFilename : JobsManager::GetNewMediaPathComponents error: " + text),
        error(kind.path_operation),
        info('RecordingFile == "" - failed to start recording'), reason(-4)]


def test_start_on_storage_that_is_low(unit, kind):
    unit.storage.set_low("card")
    unit.settle()
    watch = Watch(unit)
    assert start(unit, kind) == (-3, MESSAGES[-3])
    assert watch.calls == kind.start_calls[:4]
    assert watch.lines == [
        info(f"{kind.start} called"), *kind.path_lines(kind.first_paths(unit)), *kind.storage_lines(low=True),
        error(kind.threshold_true), reason(-3)]
    assert left_over(unit) == []


def test_start_without_sufficient_power_is_refused_after_the_storage_check(unit, kind):
    unit.hardware.power_sufficient = 0
    watch = Watch(unit)
    assert start(unit, kind) == (-2, MESSAGES[-2])
    assert watch.calls == kind.start_calls[:5]
    assert unit.calls.of("hardware", "GetPowerSufficientForAction")[0].arguments == (0,)
    assert watch.lines == [
        info(f"{kind.start} called"), *kind.path_lines(kind.first_paths(unit)), *kind.storage_lines(),
        kind.power_line("insufficient"),
        error("Halvexd::HalvexDaemonDbusHandler::GetPowerSufficientForAction: Power is insufficient for recording\n"),
        reason(-2)]
    assert left_over(unit) == []


def test_start_when_no_storage_holds_the_file(unit, kind):
    folder = os.path.join(unit.directory, "elsewhere")
    unit.jobs.on_GetNewMediaPathComponents = lambda _path: (0, folder, "0001")
    watch = Watch(unit)
    assert start(unit, kind) == (-1, MESSAGES[-1])
    path = f"{folder}/0001{kind.suffix}"
    assert watch.lines[-2:] == [error(f"GetPathFromFilename() failed for {kind.filepath_word} {path}"), reason(-1)]
    assert os.listdir(folder) == []


@pytest.mark.parametrize("answer, sufficient", [(1, True), (2, True), (-1, True), (0, False)])
def test_power_suffices_when_the_answer_is_not_zero(unit, kind, answer, sufficient):
    unit.hardware.power_sufficient = answer
    assert start(unit, kind)[0] == (0 if sufficient else -2)


def test_start_when_the_jobs_manager_rejects_the_media_item(unit, kind):
    unit.jobs.answer_code(kind.adder, 3)
    watch = Watch(unit)
    assert start(unit, kind) == (-10, MESSAGES[-10])
    assert watch.calls == kind.start_calls[:-1]
    assert watch.lines[-4:] == [
        *kind.added(3, "Failed: Filesystem is read only"),
        error(f"{kind.start}: Failed to add {kind.word} media item. Error: Failed: Filesystem is read only"),
        reason(-10)]
    assert left_over(unit) == []
    assert not unit.jobs.items


def test_start_that_the_video_daemon_refuses_takes_everything_back(unit, kind):
    unit.faults.on(*kind.start_call, kind=CODE(-5))
    watch = Watch(unit)
    paths = kind.first_paths(unit)
    assert start(unit, kind) == (-1, MESSAGES[-1])
    assert watch.calls == kind.start_calls + [("jobs", "GetCurrentJobDeviceID"), ("jobs", "GetCurrentJobID"),
                                         ("jobs", "GetMediaID"), ("jobs", "DeleteMediaItem")]
    assert watch.lines[-7:] == [
        kind.order_line(paths), error(f"{kind.start}: Failed to start recording"), debug("GetCurrentJobDeviceID"),
        debug("GetCurrentJobID"), debug("GetMediaID"), debug("DeleteMediaItem"), reason(-1)]
    assert left_over(unit) == []
    assert not unit.jobs.items


@pytest.mark.parametrize("member, code, text", [("GetMediaID", 10, "Failed: Media ID not found"),
                                                ("DeleteMediaItem", 1, "Failed: Device busy")])
def test_start_refused_and_the_item_cannot_be_deleted(unit, kind, member, code, text):
    unit.faults.on(*kind.start_call, kind=CODE(-1))
    unit.jobs.answer_code(member, code)
    watch = Watch(unit)
    assert start(unit, kind)[0] == -1
    assert error(f"{kind.start}: Failed to delete {kind.word} media item. Error: {text}") in watch.lines
    assert left_over(unit) == []


@pytest.mark.parametrize("member", ["GetCurrentJobDeviceID", "GetCurrentJobID", "GetMediaID", "DeleteMediaItem"])
def test_start_refused_and_the_jobs_manager_does_not_answer_the_deletion(unit, kind, member):
    unit.faults.on(*kind.start_call, kind=CODE(-1))
    unit.faults.on("jobs", member, kind=REFUSE)
    watch = Watch(unit)
    assert start(unit, kind)[0] == -1
    failed = [text for priority, text in watch.lines if text.startswith(f"{kind.start}: Failed to delete")]
    assert len(failed) == 1 and re.search(rf"{kind.word} media item, r = -\d+$", failed[0])
    assert watch.calls[-1] == ("jobs", member)
    assert left_over(unit) == []


def test_markers_that_cannot_be_removed_are_told(unit, kind):
    paths = kind.first_paths(unit)

    def refuse(*_order):
        for marker in (paths.rec_active, paths.recovery):
            os.remove(marker)
            os.makedirs(os.path.join(marker, "full"))
        return -1

    setattr(unit.video, f"on_{kind.start_call[1]}", refuse)
    watch = Watch(unit)
    assert start(unit, kind)[0] == -1
    assert watch.lines[-3:] == [
        error("int RemoveRecActiveFile(std::__cxx11::string&) Filesystem error attempting to remove recActive file "
              + paths.rec_active),
        error("int RemoveRecoveryFile(std::__cxx11::string&) Filesystem error attempting to remove recovery file "
              + paths.recovery), reason(-1)]


def test_markers_that_cannot_be_made_do_not_stop_the_start(unit, kind):
    paths = kind.first_paths(unit)
    for marker in (paths.rec_active, paths.recovery):
        os.makedirs(os.path.join(marker, "full"))
    watch = Watch(unit)
    assert start(unit, kind)[0] == 0
    assert not any(text.startswith(("MakeHidden", "CheckHidden")) for _, text in watch.lines)


# Metadata -------------------------------------------------------------------------------------------------------------


def reel_lines(unit, kind, **reel):
    """The lines about the reel of a start with such a reel, and the record that went to the job."""
    unit.hardware.set_reel(**reel)
    watch = Watch(unit)
    paths = kind.start_recording(unit)
    lines = [line for line in watch.lines if line[1].startswith(REEL) or line[1].startswith("Opened")]
    return lines, unit.jobs.item_of(paths.media).reel


def test_no_reel(unit, kind):
    lines, record = reel_lines(unit, kind, connected=False)
    assert lines == [opened("GetReelConnected"), info(f"{REEL} GetReelConnected reported False")]
    assert record == (False, 0, 0)


def test_reel_without_a_distance(unit, kind):
    lines, record = reel_lines(unit, kind, absolute=2147483647)
    assert lines[3:] == [
        info(f"{REEL} GetReelDistanceAbsolute reported 2147483647.  Assume no reel connected."),
        info(f"{REEL} reelDist: [valid, absCentimetres, relCentimetres] = [False, 0, 0]")]
    assert record == (False, 0, 0)


def test_reel_in_absolute_mode(unit, kind):
    lines, record = reel_lines(unit, kind, mode="absolute", absolute=-5)
    assert lines[2:] == [
        opened("GetReelDistanceAbsolute"), opened("GetReelDistanceSoftwareMode"),
        info(f"{REEL} reelDist: [valid, absCentimetres, relCentimetres] = [True, -5, 0]")]
    assert record == (True, -5, 0)


@pytest.mark.parametrize("mode", ["", "Relative", "metres %s"])
def test_reel_in_a_mode_that_is_not_known(unit, kind, mode):
    lines, record = reel_lines(unit, kind, mode=mode)
    assert lines[4:] == [
        info(f"{REEL} GetReelDistanceSoftwareMode reported {mode}.  Assume no reel connected."),
        info(f"{REEL} reelDist: [valid, absCentimetres, relCentimetres] = [False, 0, 0]")]
    assert record == (False, 0, 0)


def test_reel_in_relative_mode_reports_both_distances(unit, kind):
    lines, record = reel_lines(unit, kind, mode="relative", absolute=100, relative=-7)
    assert lines[5:] == [
        info(f"{REEL} Reel in relative mode. GetReelDistanceRelative: -7"),
        info(f"{REEL} reelDist: [valid, absCentimetres, relCentimetres] = [True, 100, -7]")]
    assert record == (True, 100, -7)


@pytest.mark.parametrize("rotates, tilts, angles", [
    (False, True, (False, 0, True, -3)), (True, False, (True, 12, False, 0)), (False, False, (False, 0, False, 0))])
def test_camera_angles_are_asked_of_cameras_that_have_them(unit, kind, rotates, tilts, angles):
    unit.video.set("AutoRotateCapable", rotates)
    unit.video.set("TiltsenseCapable", tilts)
    watch = Watch(unit)
    paths = kind.start_recording(unit)
    assert unit.jobs.item_of(paths.media).angles == angles
    assert (("video", "Get CameraRollAngleRaw") in watch.calls) == rotates
    assert (("video", "Get CameraPitchAngle") in watch.calls) == tilts


# Stop, pause and resume -----------------------------------------------------------------------------------------------


def test_stop_saves(unit, kind):
    paths = kind.start_recording(unit)
    watch = Watch(unit)
    assert kind.order(unit, "Stop") == (0, MESSAGES[0])
    unit.settle()
    assert watch.calls == kind.stop_calls + kind.stopped_calls
    assert watch.lines == [*kind.stop_lines(), reason(0), *kind.stopped_lines()]
    assert left_over(unit) == [os.path.basename(paths.media)]
    assert unit.jobs.item_of(paths.media).size == os.path.getsize(paths.media)


def test_stop_that_the_video_daemon_refuses(unit, kind):
    watch = Watch(unit)
    assert kind.order(unit, "Stop") == (-1, MESSAGES[-1])
    assert watch.calls == kind.stop_calls[:1]
    assert watch.lines == [*kind.stop_lines()[:2], error(f"{kind.stop} Failed to stop recording"), reason(-1)]


def test_stop_whose_file_is_not_told_answers_a_failure_although_it_stopped(unit, kind):
    paths = kind.start_recording(unit)
    unit.faults.on(*kind.previous_call, kind=REFUSE)
    watch = Watch(unit)
    assert kind.order(unit, "Stop") == (-1, MESSAGES[-1])
    assert unit.video.state(kind.name) == 0
    assert watch.lines[:4] == [*kind.stop_lines()[:2],
                               error(f"{kind.stop} Failed to get {kind.word} recording filepath"), reason(-1)]
    assert os.path.exists(paths.rec_active)


def test_stop_when_the_sizes_cannot_be_updated_succeeds(unit, kind):
    kind.start_recording(unit)
    unit.jobs.answer_code("UpdateMediaFileSizes", 10)
    watch = Watch(unit)
    assert kind.order(unit, "Stop") == (0, MESSAGES[0])
    assert watch.lines[:6] == [
        *kind.stop_lines(),
        error(f"{kind.update}: Failed to update {kind.word} media item. Error: Failed: Media ID not found"),
        reason(0)]


def test_pause_and_resume(unit, kind):
    kind.start_recording(unit)
    watch = Watch(unit)
    assert kind.order(unit, "Pause") == (0, MESSAGES[0])
    unit.settle()
    assert watch.calls == [("video", f"Pause{kind.member}")]
    assert watch.lines == [info(f"{kind.pause} called"), debug(f"Videod: VideoDaemonDbusHandler::Pause{kind.member}"),
                           info(f"{kind.pause} Paused {kind.word} record"), reason(0), *kind.state_lines(2)]
    watch = Watch(unit)
    assert kind.order(unit, "Resume") == (0, MESSAGES[0])
    unit.settle()
    assert watch.calls == [("video", f"Resume{kind.member}"), *kind.started_calls]
    assert watch.lines == [info(f"{kind.resume} called"), debug(f"Videod: VideoDaemonDbusHandler::Resume{kind.member}"),
                           info(f"{kind.resume} Resumed {kind.word} record"), reason(0), *kind.started_lines()]


@pytest.mark.parametrize("operation", ["Pause", "Resume"])
def test_pause_and_resume_without_a_recording(unit, kind, operation):
    watch = Watch(unit)
    signature = getattr(kind, operation.lower())
    assert kind.order(unit, operation) == (-1, MESSAGES[-1])
    assert watch.lines == [info(f"{signature} called"),
                           debug(f"Videod: VideoDaemonDbusHandler::{operation}{kind.member}"),
                           error(f"{signature} Failed to {operation.lower()} {kind.word} record"), reason(-1)]


# What the video daemon tells ------------------------------------------------------------------------------------------


def test_growth_updates_the_media_item(unit, kind):
    paths = kind.start_recording(unit)
    watch = Watch(unit)
    unit.video.grow(kind.name, size=5000)
    unit.settle()
    assert watch.calls == [("jobs", "UpdateMediaFileSizes")]
    assert watch.lines == [
        info(f"{kind.grown} - {kind.word} capture {paths.media} size changed.  Updating media item."),
        debug("UpdateMediaFileSizes")]
    assert unit.jobs.item_of(paths.media).size == os.path.getsize(paths.media)


def test_growth_that_cannot_be_recorded_is_told(unit, kind):
    kind.start_recording(unit)
    unit.jobs.answer_code("UpdateMediaFileSizes", 5)
    watch = Watch(unit)
    unit.video.grow(kind.name)
    unit.settle()
    assert watch.lines[2:] == [
        error(f"{kind.update}: Failed to update {kind.word} media item. Error: Failed: Filesystem error")]


def test_growth_to_the_size_limit_saves_the_recording(unit, kind):
    paths = kind.start_recording(unit)
    watch = Watch(unit)
    unit.video.grow(kind.name, approaching_limit=True)
    assert signals_of(unit) == [("CaptureSizeLimitReached", kind.limit)]
    assert watch.calls == kind.stop_calls + kind.stopped_calls
    assert watch.lines == [
        info(f"{kind.grown} Current capture path {paths.media} approaching size limit."),
        error(f"[CaptureError::EmitSizeLimitReached] {kind.limit[1]}"), *kind.stop_lines(), *kind.stopped_lines()]
    assert unit.jobs.item_of(paths.media).size == os.path.getsize(paths.media)
    assert left_over(unit) == [os.path.basename(paths.media)]


@pytest.mark.parametrize("state", [2, 3, 17, -1])
def test_other_states_are_told_and_do_no_work(unit, kind, state):
    watch = Watch(unit)
    unit.video.set(f"{kind.member}State", state)
    unit.settle()
    assert watch.lines == kind.state_lines(state)
    assert watch.calls == []


def test_recording_state_without_a_file_name(unit, kind):
    unit.faults.on(*kind.filename_call, kind=REFUSE)
    watch = Watch(unit)
    unit.video.set(f"{kind.member}State", 1)
    unit.settle()
    assert watch.lines == [*kind.state_lines(1), error(f"{kind.state} Failed to get {kind.word} recording filepath")]


def announce_off(unit, kind):
    """News that the recording is off, which come late: the video daemon is at something else already."""
    unit.video.emit_changes("/com/tavilon/common/Video1", "com.tavilon.common.Video1.Control",
                            {f"{kind.member}State": 0})


def test_a_recording_that_was_started_meanwhile_is_never_hit(unit, kind):
    paths = kind.start_recording(unit)
    watch = Watch(unit)
    announce_off(unit, kind)
    unit.settle()
    assert unit.video.state(kind.name) == 1
    assert watch.lines == [*kind.state_lines(0), info(f"{kind.invalid} enter"), info(f"{kind.invalid} leave")]
    assert os.path.exists(paths.rec_active)


@pytest.mark.parametrize("file_name", [True, False])
def test_a_recording_that_cannot_be_checked_is_cancelled(unit, kind, file_name):
    kind.start_recording(unit)
    fault = kind.filename_call if file_name else ("storage", "Get IsMounted")
    line = f"Failed to get {kind.word} " + ("record filepath from video-daemon" if file_name else
                                            "mounted status from controller-daemon")
    unit.faults.on(*fault, kind=REFUSE)
    watch = Watch(unit)
    announce_off(unit, kind)
    unit.log.wait_for(f"{kind.cancel}: called")
    unit.settle()
    assert error(f"{kind.invalid} {line}") in watch.lines
    assert unit.video.state(kind.name) == 0


def test_a_recording_without_a_file_is_cancelled(unit, kind):
    kind.start_recording(unit)
    unit.video.set(f"{kind.member}Filename", "", emit=False)
    watch = Watch(unit)
    announce_off(unit, kind)
    unit.settle()
    assert watch.lines[4:6] == [error(f"{kind.invalid} Failed to get {kind.word} record filepath from video-daemon"),
                                debug(f"{kind.cancel}: called")]
    assert unit.video.state(kind.name) == 0


def test_a_recording_whose_storage_is_not_mounted_is_cancelled(unit, kind):
    kind.start_recording(unit)
    unit.storage.set_property(CARD, "IsMounted", False, emit=False)
    watch = Watch(unit)
    announce_off(unit, kind)
    unit.settle()
    assert watch.lines[3:5] == [info(f"{kind.invalid} enter"), debug(f"{kind.cancel}: called")]
    assert unit.video.state(kind.name) == 0


# What the storage daemon tells ----------------------------------------------------------------------------------------


FOUND = [info(f"GetPathFromFilename() ok {CARD}")]
LOW_SIGNAL = ("CaptureError", (-3, "Storage is too low - unable to continue recording"))
LOST_SIGNAL = ("CaptureError", (-4, "Storage was removed - unable to continue recording"))
GONE_LINE = info("[StorageDaemonDbusHandler] Interface Removed\n")


def emitted(signal):
    """The line of a signal."""
    return error(f"[CaptureError::EmitError] {signal[1][1]}")


def storage_calls(kind):
    """What the recording's own check of a storage event asks."""
    return [kind.state_call, kind.filename_call, ("storage", "GetManagedObjects")]


def event(kind, own, handler="storage"):
    """The lines of a storage event: the recording's own between those of the kinds that are not recording."""
    (before, _), (after, _) = others(kind, handler)
    return [*before, *own, *after]


def event_calls(kind, *own):
    """The calls of a storage event, likewise."""
    (_, before), (_, after) = others(kind, "storage")
    return [*before, *storage_calls(kind), *own, *after]


def missing(paths):
    """The line of a file whose storage is gone."""
    return error(f"GetPathFromFilename() failed for filepath {paths.media}")


def lost_lines(kind):
    """The lines of losing the storage, without those before."""
    return [debug(f"{kind.cancel}: called"), kind.stop_order_line, emitted(LOST_SIGNAL)]


def test_storage_changes_without_a_recording(unit):
    watch = Watch(unit)
    unit.storage.set_low("card")
    unit.settle()
    assert watch.calls == [kind.state_call for kind in KINDS]
    assert watch.lines == [kind.no_progress_line(kind.storage) for kind in KINDS]
    assert signals_of(unit) == []


def test_storage_that_runs_low_saves_the_recording(unit, kind):
    paths = kind.start_recording(unit)
    watch = Watch(unit)
    unit.storage.set_low("card")
    assert signals_of(unit) == [LOW_SIGNAL]
    assert watch.calls == event_calls(kind, *kind.stop_calls) + kind.stopped_calls
    assert watch.lines == event(kind, [
        *FOUND, info(f"StorageSpaceBelowMiniumThreshold = 1 on {CARD}"), *kind.stop_lines(),
        emitted(LOW_SIGNAL)]) + kind.stopped_lines()
    assert left_over(unit) == [os.path.basename(paths.media)]


def test_storage_that_becomes_read_only_saves_the_recording(unit, kind):
    kind.start_recording(unit)
    watch = Watch(unit)
    unit.storage.set_read_only("card")
    assert signals_of(unit) == [LOST_SIGNAL]
    assert watch.calls == event_calls(kind, *kind.stop_calls) + kind.stopped_calls
    assert watch.lines == event(kind, [
        *FOUND, info(f"{kind.storage}: StorageIsReadOnly = 1 on {CARD}"), *kind.stop_lines(),
        emitted(LOST_SIGNAL)]) + kind.stopped_lines()


def test_storage_that_runs_low_and_read_only_at_once_is_one_error(unit, kind):
    kind.start_recording(unit)
    watch = Watch(unit)
    unit.storage.set_device("card", StorageIsBelowMinimumLevel=True, ReadOnly=True)
    assert signals_of(unit) == [LOW_SIGNAL]
    assert watch.lines == event(kind, [
        *FOUND, info(f"StorageSpaceBelowMiniumThreshold = 1 on {CARD}"),
        info(f"{kind.storage}: StorageIsReadOnly = 1 on {CARD}"), *kind.stop_lines(),
        emitted(LOW_SIGNAL)]) + kind.stopped_lines()


def test_storage_that_recovers_is_told_and_the_recording_goes_on(unit, kind):
    kind.start_recording(unit)
    watch = Watch(unit)
    unit.storage.emit_changes(CARD, "com.tavilon.common.StorageDaemon1.Device",
                              {"StorageIsBelowMinimumLevel": False, "ReadOnly": False, "FreeSpace": 5})
    assert signals_of(unit) == []
    assert watch.lines == event(kind, [*FOUND, info(f"StorageSpaceBelowMiniumThreshold = 0 on {CARD}"),
                                       info(f"{kind.storage}: StorageIsReadOnly = 0 on {CARD}")])
    assert unit.video.state(kind.name) == 1


@pytest.mark.parametrize("change", [{"StorageIsBelowMinimumLevel": True}, {"ReadOnly": True}, {"IsMounted": False}])
def test_another_storage_is_no_business_of_the_recording(unit, kind, change):
    kind.start_recording(unit)
    watch = Watch(unit)
    unit.storage.set_device("internal", **change)
    assert signals_of(unit) == []
    assert own_lines(watch) == event(kind, FOUND)
    assert unit.video.state(kind.name) == 1


def own_lines(watch):
    """The lines that are the recordings' own: a storage that goes away is the playback's business too."""
    return [line for line in watch.lines if "VideoPlayback" not in line[1]]


def own_calls(watch):
    """The calls of the recordings."""
    return [call for call in watch.calls if "Playback" not in call[1]]


def test_storage_that_is_unmounted_cancels_the_recording(unit, kind):
    paths = kind.start_recording(unit)
    unit.video.grow(kind.name, size=100)
    unit.settle()
    size = unit.jobs.item_of(paths.media).size
    watch = Watch(unit)
    unit.storage.unmount("card")
    assert signals_of(unit) == [LOST_SIGNAL]
    assert own_calls(watch) == event_calls(kind, kind.stop_call) + kind.stopped_calls
    assert own_lines(watch) == event(kind, [missing(paths), *lost_lines(kind)]) + kind.stopped_lines()
    assert unit.jobs.item_of(paths.media).size == size
    assert os.path.exists(paths.rec_active), "what was broken off must be found again"


def test_storage_that_says_unmounted_while_it_still_resolves_cancels_the_recording(unit, kind):
    kind.start_recording(unit)
    watch = Watch(unit)
    unit.storage.set_device("card", IsMounted=False)
    assert signals_of(unit) == [LOST_SIGNAL]
    assert own_lines(watch) == event(kind, [*FOUND, *lost_lines(kind)]) + kind.stopped_lines()


def test_storage_that_is_pulled_out_cancels_the_recording_once(unit, kind):
    paths = kind.start_recording(unit)
    watch = Watch(unit)
    unit.storage.remove_device("card")
    assert signals_of(unit) == [LOST_SIGNAL]
    assert own_calls(watch) == event_calls(kind, kind.stop_call) + kind.stopped_calls
    assert own_lines(watch) == [GONE_LINE, *event(kind, [missing(paths), *lost_lines(kind)], "removed"),
                                *kind.stopped_lines()]
    assert os.path.exists(paths.rec_active)


def test_another_storage_that_is_pulled_out(unit, kind):
    kind.start_recording(unit)
    watch = Watch(unit)
    unit.storage.remove_device("internal")
    assert signals_of(unit) == []
    assert unit.video.state(kind.name) == 1
    assert own_lines(watch) == [GONE_LINE, *event(kind, FOUND, "removed")]


def test_storage_pulled_out_without_a_recording(unit):
    watch = Watch(unit)
    unit.storage.remove_device("card")
    assert signals_of(unit) == []
    assert own_lines(watch) == [GONE_LINE, *(kind.no_progress_line(kind.removed) for kind in KINDS)]


def test_a_second_event_for_a_recording_that_was_stopped_emits_nothing(unit, kind):
    kind.start_recording(unit)
    unit.storage.set_low("card")
    unit.settle()
    unit.storage.set_read_only("card")
    unit.storage.remove_device("card")
    assert signals_of(unit) == [LOW_SIGNAL]


def test_storage_event_without_a_file_name(unit, kind):
    kind.start_recording(unit)
    unit.faults.on(*kind.filename_call, kind=REFUSE)
    watch = Watch(unit)
    unit.storage.set_low("card")
    assert signals_of(unit) == []
    assert watch.lines == event(kind, [error(f"{kind.storage} Failed to get {kind.word} recording filepath")])


def test_recordings_of_all_kinds_are_lost_together(unit):
    for kind in KINDS:
        kind.start_recording(unit)
    unit.storage.remove_device("card")
    assert signals_of(unit) == [LOST_SIGNAL] * 3
    assert [unit.video.state(kind.name) for kind in KINDS] == [0, 0, 0]


def test_signals_come_from_the_controllers_object(unit, kind):
    kind.start_recording(unit)
    unit.storage.set_low("card")
    signal = unit.client.wait_signal("CaptureError")
    assert signal.interface == "com.tavilon.common.Controller1.Control"


def test_a_daemon_that_is_restarted_leaves_the_recording_alone(own_unit, kind):
    kind.start_recording(own_unit)
    own_unit.stop_daemon()
    own_unit.start_daemon()
    own_unit.settle()
    assert own_unit.video.state(kind.name) == 1
    assert kind.order(own_unit, "Stop") == (0, MESSAGES[0])


def test_a_sibling_that_comes_back_is_followed_again(unit, kind):
    unit.faults.on(*kind.start_call, kind=DIE, times=1)
    assert start(unit, kind)[0] == -1
    unit.video.revive()
    kind.start_recording(unit)
    unit.video.grow(kind.name)
    unit.settle()
    assert unit.calls.of("jobs", "UpdateMediaFileSizes")
