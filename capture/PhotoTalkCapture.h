#pragma once

#include "capture/RecordingCapture.h"

#include <cstdint>
#include <string>

namespace ControllerDaemon
{

extern const Recording::Kind photoTalkKind;

/// PhotoTalk recordings. What the operations do, and what they return, is said in RecordingCapture.
class PhotoTalkCapture : public RecordingCapture<photoTalkKind>
{
  public:
    PhotoTalkCapture(Videod::VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage);

    static Code PhotoTalkRecordStart(uint32_t width, uint32_t height, uint32_t quality)
    {
        return Start(width, height, quality);
    }
    static Code PhotoTalkRecordStop() { return Stop(); }
    static Code PhotoTalkRecordCancel() { return Cancel(); }
    static Code PhotoTalkRecordPause() { return Pause(); }
    static Code PhotoTalkRecordResume() { return Resume(); }

    static void PhotoTalkRecordStateChangedHandler(int32_t newState) { StateChanged(newState); }
    // NOLINTNEXTLINE(performance-unnecessary-value-param): slots take what their signals give
    static void PhotoTalkGrownHandler(std::string path, bool approachingLimit) { Grown(path, approachingLimit); }
};

} // namespace ControllerDaemon
