#include "capture/CaptureMetadata.h"
#include "capture/MarkerFiles.h"
#include "capture/MediaItem.h"
#include "capture/Recording.h"
#include "clients/hardware/HalvexDaemonDbusHandler.h"
#include "clients/jobs/JobsManager.h"
#include "clients/storage/StorageDaemonDbusHandler.h"
#include "dbus_helper/Log.h"

#include <filesystem>

namespace ControllerDaemon::Recording
{
namespace
{

using DbusHelper::CaptureErrorCode;
using Halvexd::HalvexDaemonDbusHandler;
using libjobsdaemon::JobsManager;
using Storaged::StorageDaemonDbusHandler;

/// The action whose power the hardware daemon is asked to judge.
constexpr int32_t recordingAction = 0;

/// What stands beside a recording's file.
struct Companions
{
    explicit Companions(const std::string& mediaPath)
        : recActive(RecActivePath(mediaPath)), recovery(RecoveryPath(mediaPath)),
          snapshot(std::filesystem::path(mediaPath).replace_extension("jpeg").string())
    {}

    std::string recActive;
    std::string recovery;
    std::string snapshot; ///< that the video daemon takes with it
};

CaptureErrorCode CheckStorage(const Kind& kind, const std::string& mediaPath)
{
    std::string storagePath;
    if (StorageDaemonDbusHandler::GetPathFromFilename(mediaPath, storagePath) < 0)
    {
        Log::Error("GetPathFromFilename() failed for %sFilepath %s", kind.words.name, mediaPath.c_str());
        return CaptureErrorCode::Unknown;
    }
    Log::Info("GetPathFromFilename() ok %s", storagePath.c_str());
    bool belowMinimum = false;
    if (StorageDaemonDbusHandler::GetStorageSpaceBelowMinimumThreshold(storagePath, belowMinimum) < 0)
    {
        Log::Error("%s", kind.words.thresholdFailed);
        Log::Error("Can't read StorageSpaceBelowMiniumThreshold - failed to start recording");
        return CaptureErrorCode::Unknown;
    }
    Log::Info("StorageSpaceBelowMiniumThreshold = %d", belowMinimum ? 1 : 0);
    if (belowMinimum)
    {
        Log::Error("%s", kind.words.thresholdTrue);
        return CaptureErrorCode::StorageTooLow;
    }
    return CaptureErrorCode::Success;
}

CaptureErrorCode CheckPower(const Kind& kind)
{
    int32_t answer = 0;
    const int32_t result = HalvexDaemonDbusHandler::GetPowerSufficientForAction(recordingAction, answer);
    const bool sufficient = result >= 0 && answer != 0;
    Log::Debug("%s: GetPowerSufficientForAction reported %s power.", kind.words.startOperation,
               sufficient ? "sufficient" : "insufficient");
    if (!sufficient)
    {
        Log::Error("Halvexd::HalvexDaemonDbusHandler::GetPowerSufficientForAction: Power is insufficient for "
                   "recording\n");
        return CaptureErrorCode::PowerTooLow;
    }
    return CaptureErrorCode::Success;
}

bool AddMediaItem(const Kind& kind, const std::string& mediaPath, const Companions& beside)
{
    JobsManagerD::cameraAngles_t angles;
    JobsManagerD::reelDistance_t distance;
    GetCameraAngles(angles);
    GetReelDistances(distance);
    int32_t jobsCode = 0;
    const int32_t result =
        kind.peers.addMediaItem(mediaPath, std::string(kind.words.name) + " recording", beside.recActive,
                                beside.recovery, beside.snapshot, angles, distance, jobsCode);
    return MediaItemDone({kind.signatures.start, "add", kind.words.name}, result, jobsCode);
}

/// Takes the media item out of the job again. The result of the step that failed, with the jobs manager's code.
int32_t DeleteFromJob(const std::string& mediaPath, int32_t& jobsCode)
{
    std::string deviceId;
    std::string jobId;
    std::string mediaId;
    int32_t result = JobsManager::GetCurrentJobDeviceID(deviceId);
    result = result < 0 ? result : JobsManager::GetCurrentJobID(jobId);
    result = result < 0 ? result : JobsManager::GetMediaID(mediaPath, jobsCode, mediaId);
    if (result < 0 || jobsCode != 0)
    {
        return result;
    }
    return JobsManager::DeleteMediaItem(deviceId, jobId, mediaId, jobsCode);
}

void DeleteMediaItem(const Kind& kind, const std::string& mediaPath)
{
    int32_t jobsCode = 0;
    const int32_t result = DeleteFromJob(mediaPath, jobsCode);
    MediaItemDone({kind.signatures.start, "delete", kind.words.name}, result, jobsCode);
}

void CreateMarkers(const Companions& beside)
{
    // Not consulted: a marker that cannot be hidden, or made, is no reason to lose the recording.
    constexpr bool ownerExecute = true;
    CreateHiddenFile(beside.recovery, ownerExecute);
    CreateHiddenFile(beside.recActive, ownerExecute);
}

void RemoveMarkers(const std::string& mediaPath)
{
    RemoveRecActiveFile(mediaPath);
    RemoveRecoveryFile(mediaPath);
}

CaptureErrorCode Refuse(const std::string& mediaPath, CaptureErrorCode code)
{
    RemoveMarkers(mediaPath);
    return code;
}

/// From the first file made to the video daemon's answer: a failure takes back what was made.
CaptureErrorCode Begin(const Kind& kind, const std::string& mediaPath, uint32_t width, uint32_t height,
                       uint32_t quality)
{
    const Companions beside(mediaPath);
    CreateMarkers(beside);
    if (!AddMediaItem(kind, mediaPath, beside))
    {
        return Refuse(mediaPath, CaptureErrorCode::MediaItemNotAdded);
    }
    if (kind.peers.start(mediaPath, beside.recovery, beside.snapshot, width, height, quality) < 0)
    {
        Log::Error("%s: Failed to start recording", kind.signatures.start);
        DeleteMediaItem(kind, mediaPath);
        return Refuse(mediaPath, CaptureErrorCode::Unknown);
    }
    Log::Info("%s: Started recording", kind.signatures.start);
    return CaptureErrorCode::Success;
}

} // namespace

CaptureErrorCode Start(const Kind& kind, uint32_t width, uint32_t height, uint32_t quality)
{
    Log::Info("%s called", kind.signatures.start);
    int32_t state = stateOff;
    if (kind.peers.getState(state, nullptr) < 0 || state != stateOff)
    {
        Log::Info("%s %s record state is not OFF", kind.signatures.start, kind.words.state);
        return CaptureErrorCode::WrongState;
    }
    std::string mediaPath;
    CaptureErrorCode code = kind.peers.getNextPath(mediaPath);
    if (code != CaptureErrorCode::Success)
    {
        Log::Info("RecordingFile == \"\" - failed to start recording");
        return code;
    }
    Log::Info("%s RecordingFile %s\n", kind.signatures.start, mediaPath.c_str());
    code = CheckStorage(kind, mediaPath);
    code = code != CaptureErrorCode::Success ? code : CheckPower(kind);
    return code != CaptureErrorCode::Success ? code : Begin(kind, mediaPath, width, height, quality);
}

} // namespace ControllerDaemon::Recording
