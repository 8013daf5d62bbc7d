#include "capture/SnapshotCapture.h"

#include "capture/CaptureMetadata.h"
#include "capture/MediaItem.h"
#include "capture/StorageManager.h"
#include "clients/jobs/JobsManager.h"
#include "clients/video/VideoDaemonDbusHandler.h"
#include "dbus_helper/Log.h"

#include <filesystem>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::CaptureErrorCode;
using libjobsdaemon::JobsManager;

constexpr DbusHelper::FixedString name{"ControllerDaemon::SnapshotCapture::Snapshot"};

constexpr const char* text = DbusHelper::signature<CaptureErrorCode(uint32_t, uint32_t, uint32_t, std::string&), name>;

/// Failures are logged and no more: the picture is on the storage, with or without a record of it.
void AddMediaItem(const std::string& path)
{
    JobsManagerD::cameraAngles_t angles;
    JobsManagerD::reelDistance_t distance;
    GetCameraAngles(angles);
    GetReelDistances(distance);
    int32_t jobsCode = 0;
    const int32_t result = JobsManager::AddSnapshotMediaItem(path, "snapshot", angles, distance, jobsCode);
    MediaItemDone({text, "add", "snapshot"}, result, jobsCode);
}

} // namespace

CaptureErrorCode SnapshotCapture::Snapshot(uint32_t width, uint32_t height, uint32_t quality, std::string& path)
{
    Log::Info("%s called", text);
    const CaptureErrorCode code = StorageManager::GetNextSnapshotPath(path);
    if (code != CaptureErrorCode::Success)
    {
        Log::Info("Failed to get snapshot filepath");
        return code;
    }
    Log::Info("%s Snapshot Filepath %s", text, path.c_str());
    if (Videod::VideoDaemonDbusHandler::Snapshot(path, width, height, quality) < 0)
    {
        Log::Error("%s Failed to generate snapshot", text);
        std::error_code ignored; // the video daemon may have left part of a file, or nothing
        std::filesystem::remove(path, ignored);
        return CaptureErrorCode::Unknown;
    }
    Log::Info("%s Stopped snapshot", text);
    AddMediaItem(path);
    return CaptureErrorCode::Success;
}

int SnapshotCapture::Snapshot(const PictureCall<uint32_t, uint32_t, uint32_t>& call)
{
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t quality = 0;
    std::string path;
    const bool readable = call.Read(width, height, quality) >= 0;
    const CaptureErrorCode code =
        readable ? Snapshot(width, height, quality, path)
                 : Unreadable<CaptureErrorCode>(DbusHelper::signature<sd_bus_message_handler_t, name>);
    return AnswerPicture(call, path, code);
}

} // namespace ControllerDaemon
