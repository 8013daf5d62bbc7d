#pragma once

#include "capture/RecordingCapture.h"

#include <cstdint>
#include <string>

namespace ControllerDaemon
{

extern const Recording::Kind videoKind;

/// Plain video recordings into the current job. Guards the start (state, job, storage, power), registers the file with
/// the jobs manager before the video daemon writes to it, keeps the media item's sizes up to date while it grows, and
/// stops and saves, or cancels, the recording when its storage fills up or goes away.
class VideoCapture : public RecordingCapture<videoKind>
{
  public:
    /// Follows the clients' signals from now on.
    VideoCapture(Videod::VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage);

    /// Starts a recording, with a snapshot of width x height pixels, quality in percent. WrongState unless the video
    /// daemon is off; NoCurrentJob, PathNotCreated, StorageTooLow, PowerTooLow, MediaItemNotAdded; Unknown when the
    /// storage cannot be asked or the video daemon refuses. A refusal leaves nothing behind.
    static DbusHelper::CaptureErrorCode VideoRecordStart(uint32_t width, uint32_t height, uint32_t quality);
    /// Stops and saves. Unknown when the video daemon refuses, or does not tell which file it closed.
    static DbusHelper::CaptureErrorCode VideoRecordStop();
    /// Stops without any work on the media item, which keeps the sizes it had. Unknown when the video daemon refuses.
    static DbusHelper::CaptureErrorCode VideoRecordCancel();
    /// Unknown when the video daemon refuses.
    static DbusHelper::CaptureErrorCode VideoRecordPause();
    static DbusHelper::CaptureErrorCode VideoRecordResume();

    /// Method handlers; each replies "is", the code and its message.
    static int VideoRecordStart(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int VideoRecordStop(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int VideoRecordPause(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int VideoRecordResume(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;

    /// The video daemon's state became `state`: off (0) ends the recording, recording (1) updates the media item.
    static void VideoRecordStateChangedHandler(int32_t state);
    /// The file grew: updates the media item, or stops the recording when it nears its size limit.
    static void VideoGrownHandler(std::string path, bool approachingLimit);
};

} // namespace ControllerDaemon
