#pragma once

#include "capture/CaptureReply.h"

#include <cstdint>
#include <string>

namespace ControllerDaemon
{

/// Still pictures into the current job: the video daemon writes the JPEG, the jobs manager gets it as a media item.
/// Nothing is kept between calls. Loop thread; blocks on the daemons it asks.
class SnapshotCapture
{
  public:
    /// Takes a picture of width x height pixels, quality in percent. `path` becomes that of the file as soon as the job
    /// has one for it, and stays empty before. NoCurrentJob, PathNotCreated; Unknown when the video daemon refuses,
    /// and then no file is left. A picture that could not be registered is a success: it exists, and the log tells.
    static DbusHelper::CaptureErrorCode Snapshot(uint32_t width, uint32_t height, uint32_t quality, std::string& path);

    /// Method handler; replies "sis", the path, the code and its message.
    static int Snapshot(const PictureCall<uint32_t, uint32_t, uint32_t>& call);
};

} // namespace ControllerDaemon
