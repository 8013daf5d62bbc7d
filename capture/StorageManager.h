#pragma once

#include "capture/CaptureErrors.h"

#include <string>

namespace ControllerDaemon
{

/// Allocates the paths of new media files in the current job: the jobs manager decides where they live and what the
/// next one is called, this makes sure that the folder exists. Loop thread; blocks on the jobs manager.
class StorageManager
{
  public:
    /// Folder and file name stem of the current job's next media item; the folder is made when it does not exist.
    /// NoCurrentJob without a job, PathNotCreated for everything else that fails.
    static DbusHelper::CaptureErrorCode GetFilepathComponents(std::string& folder, std::string& stem);

    /// Full path of the next file of each kind. The same codes; the path is empty then.
    static DbusHelper::CaptureErrorCode GetNextSnapshotPath(std::string& path);
    static DbusHelper::CaptureErrorCode GetNextVideoRecordingPath(std::string& path);
    static DbusHelper::CaptureErrorCode GetNextPhotoTalkPath(std::string& path);
    static DbusHelper::CaptureErrorCode GetNextAutoLogPath(std::string& path);
};

} // namespace ControllerDaemon
