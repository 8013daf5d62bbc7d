#pragma once

#include "capture/RecordingCapture.h"

#include <cstdint>
#include <string>

namespace ControllerDaemon
{

extern const Recording::Kind videoKind;

/// Plain video recordings. What the operations do, and what they return, is said in RecordingCapture.
class VideoCapture : public RecordingCapture<videoKind>
{
  public:
    VideoCapture(Videod::VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage);

    static Code VideoRecordStart(uint32_t width, uint32_t height, uint32_t quality)
    {
        return Start(width, height, quality);
    }
    static Code VideoRecordStop() { return Stop(); }
    static Code VideoRecordCancel() { return Cancel(); }
    static Code VideoRecordPause() { return Pause(); }
    static Code VideoRecordResume() { return Resume(); }

    static void VideoRecordStateChangedHandler(int32_t newState) { StateChanged(newState); }
    // NOLINTNEXTLINE(performance-unnecessary-value-param): slots take what their signals give
    static void VideoGrownHandler(std::string path, bool approachingLimit) { Grown(path, approachingLimit); }
};

} // namespace ControllerDaemon
