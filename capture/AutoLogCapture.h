#pragma once

#include "capture/RecordingCapture.h"

#include <cstdint>
#include <string>

namespace ControllerDaemon
{

extern const Recording::Kind autoLogKind;

/// AutoLog recordings. What the operations do, and what they return, is said in RecordingCapture.
class AutoLogCapture : public RecordingCapture<autoLogKind>
{
  public:
    AutoLogCapture(Videod::VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage);

    static Code AutoLogRecordStart(uint32_t width, uint32_t height, uint32_t quality)
    {
        return Start(width, height, quality);
    }
    static Code AutoLogRecordStop() { return Stop(); }
    static Code AutoLogRecordCancel() { return Cancel(); }
    static Code AutoLogRecordPause() { return Pause(); }
    static Code AutoLogRecordResume() { return Resume(); }

    static void AutoLogRecordStateChangedHandler(int32_t newState) { StateChanged(newState); }
    // NOLINTNEXTLINE(performance-unnecessary-value-param): slots take what their signals give
    static void AutoLogGrownHandler(std::string path, bool approachingLimit) { Grown(path, approachingLimit); }
};

} // namespace ControllerDaemon
