#pragma once

#include "capture/RecordingCapture.h"

#include <cstdint>
#include <string>

namespace ControllerDaemon
{

extern const Recording::Kind photoTalkKind;

/// PhotoTalk recordings, on the same terms as VideoCapture.
class PhotoTalkCapture : public RecordingCapture<photoTalkKind>
{
  public:
    /// Follows the clients' signals from now on.
    PhotoTalkCapture(Videod::VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage);

    /// Starts a recording, with a snapshot of width x height pixels, quality in percent. WrongState unless the video
    /// daemon is off; NoCurrentJob, PathNotCreated, StorageTooLow, PowerTooLow, MediaItemNotAdded; Unknown when the
    /// storage cannot be asked or the video daemon refuses. A refusal leaves nothing behind.
    static DbusHelper::CaptureErrorCode PhotoTalkRecordStart(uint32_t width, uint32_t height, uint32_t quality);
    /// Stops and saves. Unknown when the video daemon refuses, or does not tell which file it closed.
    static DbusHelper::CaptureErrorCode PhotoTalkRecordStop();
    /// Stops without any work on the media item, which keeps the sizes it had. Unknown when the video daemon refuses.
    static DbusHelper::CaptureErrorCode PhotoTalkRecordCancel();
    /// Unknown when the video daemon refuses.
    static DbusHelper::CaptureErrorCode PhotoTalkRecordPause();
    static DbusHelper::CaptureErrorCode PhotoTalkRecordResume();

    /// Method handlers; each replies "is", the code and its message.
    static int PhotoTalkRecordStart(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int PhotoTalkRecordStop(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int PhotoTalkRecordPause(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int PhotoTalkRecordResume(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;

    /// The video daemon's state became `state`: off (0) ends the recording, recording (1) updates the media item.
    static void PhotoTalkRecordStateChangedHandler(int32_t state);
    /// The file grew: updates the media item, or stops the recording when it nears its size limit.
    static void PhotoTalkGrownHandler(std::string path, bool approachingLimit);
};

} // namespace ControllerDaemon
