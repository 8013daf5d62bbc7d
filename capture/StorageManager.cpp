#include "capture/StorageManager.h"

#include "clients/jobs/JobsManager.h"
#include "dbus_helper/Log.h"

#include <filesystem>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::CaptureErrorCode;
using libjobsdaemon::JobsManager;

constexpr int32_t jobsNoCurrentJob = 7;

/// What differs between the kinds of media file.
struct MediaFile
{
    const char* suffix;
    const char* successName; ///< what opens "... file %s ok"
    const char* operation;
    const char* failureName; ///< what the failure line calls it
};

constexpr MediaFile snapshotFile{".jpeg", "Snapshot", "GetNextSnapshotPath", "snapshot"};
constexpr MediaFile videoFile{".mp4", "Video", "GetNextVideoRecordingPath", "video"};
constexpr MediaFile photoTalkFile{"-photoTalk.mp4", "Phototalk", "GetNextPhotoTalkPath", "photoTalk"};
constexpr MediaFile autoLogFile{"-autolog.mp4", "Autolog", "GetNextAutoLogPath", "autolog"};

CaptureErrorCode GetNextPath(const MediaFile& file, std::string& path)
{
    path.clear();
    std::string folder;
    std::string stem;
    const CaptureErrorCode code = StorageManager::GetFilepathComponents(folder, stem);
    if (code != CaptureErrorCode::Success)
    {
        Log::Error("%s: Failed to get new %s file path", file.operation, file.failureName);
        return code;
    }
    path = folder + "/" + stem + file.suffix;
    Log::Info("%s file %s ok", file.successName, path.c_str());
    return code;
}

/// A folder that exists, made with its parents when nothing stands there.
CaptureErrorCode EnsureFolder(const std::string& folder)
{
    std::error_code error;
    const auto status = std::filesystem::status(folder, error);
    if (std::filesystem::is_directory(status))
    {
        return CaptureErrorCode::Success;
    }
    if (std::filesystem::status_known(status) && std::filesystem::exists(status))
    {
        Log::Error("Path beneath media item exists, but is not a folder: %s", folder.c_str());
        return CaptureErrorCode::PathNotCreated;
    }
    std::filesystem::create_directories(folder, error);
    if (std::filesystem::is_directory(std::filesystem::status(folder, error)))
    {
        return CaptureErrorCode::Success;
    }
    Log::Error("Path beneath media item could not be created: %s", folder.c_str());
    return CaptureErrorCode::PathNotCreated;
}

} // namespace

CaptureErrorCode StorageManager::GetFilepathComponents(std::string& folder, std::string& stem)
{
    Log::Info("Controller - StorageManager::GetFilepathComponents");
    int32_t jobsCode = 0;
    const int32_t result = JobsManager::GetNewMediaPathComponents(jobsCode, folder, stem);
    if (result < 0)
    {
        Log::Error("JobsManager.GetNewMediaPathComponents() failed %d", result);
        return CaptureErrorCode::PathNotCreated;
    }
    if (jobsCode == jobsNoCurrentJob)
    {
        Log::Error("ControllerDaemon - StorageManager::GetFilename : JobsManager::GetNewMediaPathComponents - No "
                   "current job.");
        return CaptureErrorCode::NoCurrentJob;
    }
    if (jobsCode != 0)
    {
        Log::Error("ControllerDaemon - StorageManager::GetFilename : JobsManager::GetNewMediaPathComponents error: %s",
                   JobsManager::ErrorText(jobsCode));
        return CaptureErrorCode::PathNotCreated;
    }
    if (stem.empty())
    {
        Log::Error("ControllerDaemon - StorageManager::GetFilename : JobsManager::GetNewMediaPathComponents returned "
                   "empty filenameStem");
        return CaptureErrorCode::PathNotCreated;
    }
    return EnsureFolder(folder);
}

CaptureErrorCode StorageManager::GetNextSnapshotPath(std::string& path) { return GetNextPath(snapshotFile, path); }
CaptureErrorCode StorageManager::GetNextVideoRecordingPath(std::string& path) { return GetNextPath(videoFile, path); }
CaptureErrorCode StorageManager::GetNextPhotoTalkPath(std::string& path) { return GetNextPath(photoTalkFile, path); }
CaptureErrorCode StorageManager::GetNextAutoLogPath(std::string& path) { return GetNextPath(autoLogFile, path); }

} // namespace ControllerDaemon
