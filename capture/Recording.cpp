#include "capture/Recording.h"

#include "capture/MarkerFiles.h"
#include "capture/MediaItem.h"
#include "clients/jobs/JobsManager.h"
#include "clients/storage/StorageDaemonDbusHandler.h"
#include "dbus_helper/Log.h"

#include <cerrno>
#include <optional>

namespace ControllerDaemon::Recording
{
namespace
{

using DbusHelper::CaptureErrorCode;
using DbusHelper::CaptureRuntimeError;
using libjobsdaemon::JobsManager;
using Storaged::StorageDaemonDbusHandler;

bool IsInProgress(const Kind& kind)
{
    int32_t state = stateOff;
    return kind.peers.getState(state, nullptr) >= 0 && state != stateOff;
}

/// The storage of a file, empty when no device holds it; nothing when that could not be asked.
std::optional<std::string> StorageOf(const std::string& filename)
{
    std::string storagePath;
    const int32_t result = StorageDaemonDbusHandler::GetPathFromFilename(filename, storagePath);
    if (result < 0)
    {
        Log::Error("GetPathFromFilename() failed for filepath %s", filename.c_str());
        return result == -ENOENT ? std::optional(storagePath) : std::nullopt;
    }
    Log::Info("GetPathFromFilename() ok %s", storagePath.c_str());
    return storagePath;
}

/// The storage of the recording in progress, empty when no device holds its file any more; nothing when no recording
/// that could be affected is known, or its storage could not be asked for: that is no news of the storage itself.
std::optional<std::string> StorageInUse(const Kind& kind, const char* signature)
{
    if (!IsInProgress(kind))
    {
        Log::Info("%s no %s recording in progress", signature, kind.words.state);
        return std::nullopt;
    }
    std::string filename;
    if (kind.peers.getFilename(filename, nullptr) < 0)
    {
        Log::Error("%s Failed to get %s recording filepath", signature, kind.words.name);
        return std::nullopt;
    }
    return StorageOf(filename);
}

/// A changed property that is there as a bool.
std::optional<bool> Changed(const sdbus_utils::PropertyMap& properties, const char* name)
{
    const auto found = properties.find(name);
    const bool* value = found == properties.end() ? nullptr : std::any_cast<bool>(&found->second);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

/// Storage that is gone takes the recording with it, without a file to save.
void LoseStorage(const Kind& kind, sd_bus* bus)
{
    Cancel(kind);
    EmitCaptureError(bus, CaptureRuntimeError::StorageRemoved);
}

/// The words of an order that holds the recording or lets it go on.
struct MoveWords
{
    const char* signature;
    const char* order;
    const char* done;
};

CaptureErrorCode Move(const Kind& kind, const MoveWords& words, int32_t (*order)())
{
    Log::Info("%s called", words.signature);
    if (order() < 0)
    {
        Log::Error("%s Failed to %s %s record", words.signature, words.order, kind.words.name);
        return CaptureErrorCode::Unknown;
    }
    Log::Info("%s %s %s record", words.signature, words.done, kind.words.name);
    return CaptureErrorCode::Success;
}

/// The check that the recording at the video daemon can go on. False, and logged, when it cannot.
bool IsValid(const Kind& kind)
{
    const char* signature = kind.signatures.stopAndCancelInvalid;
    if (!IsInProgress(kind))
    {
        Log::Error("%s Failed to get %s state from video-daemon, or recording is 'off'. Cancelling anyway...",
                   signature, kind.words.name);
        return false;
    }
    std::string filename;
    if (kind.peers.getFilename(filename, nullptr) < 0 || filename.empty())
    {
        Log::Error("%s Failed to get %s record filepath from video-daemon", signature, kind.words.name);
        return false;
    }
    std::string storagePath;
    bool mounted = false;
    if (StorageDaemonDbusHandler::GetPathFromFilename(filename, storagePath) < 0 ||
        StorageDaemonDbusHandler::GetMounted(storagePath, mounted) < 0)
    {
        Log::Error("%s Failed to get %s mounted status from controller-daemon", signature, kind.words.name);
        return false;
    }
    return mounted;
}

} // namespace

CaptureErrorCode Stop(const Kind& kind)
{
    Log::Debug("%s: called", kind.signatures.stop);
    if (kind.peers.stop() < 0)
    {
        Log::Error("%s Failed to stop recording", kind.signatures.stop);
        return CaptureErrorCode::Unknown;
    }
    std::string filename;
    if (kind.peers.getPreviousFilename(filename, nullptr) < 0)
    {
        Log::Error("%s Failed to get %s recording filepath", kind.signatures.stop, kind.words.name);
        return CaptureErrorCode::Unknown;
    }
    Log::Info("%s Stopped %s", kind.signatures.stop, kind.words.stopped);
    RemoveRecActiveFile(filename);
    UpdateMediaItem(kind, filename);
    return CaptureErrorCode::Success;
}

CaptureErrorCode Cancel(const Kind& kind)
{
    Log::Debug("%s: called", kind.signatures.cancel);
    if (kind.peers.stop() < 0)
    {
        Log::Error("%s Failed to stop recording", kind.signatures.cancel);
        return CaptureErrorCode::Unknown;
    }
    return CaptureErrorCode::Success;
}

CaptureErrorCode Pause(const Kind& kind)
{
    return Move(kind, {kind.signatures.pause, "pause", "Paused"}, kind.peers.pause);
}

CaptureErrorCode Resume(const Kind& kind)
{
    return Move(kind, {kind.signatures.resume, "resume", "Resumed"}, kind.peers.resume);
}

void StateChanged(const Kind& kind, int32_t state)
{
    const char* signature = kind.signatures.stateChanged;
    Log::Info("%s called", signature);
    Log::Info("%s %s record state -> %d", signature, kind.words.state, state);
    if (state == stateOff)
    {
        StopAndCancelInvalid(kind);
        return;
    }
    if (state != stateRecording)
    {
        return;
    }
    std::string filename;
    if (kind.peers.getFilename(filename, nullptr) < 0)
    {
        Log::Error("%s Failed to get %s recording filepath", signature, kind.words.name);
        return;
    }
    UpdateMediaItem(kind, filename);
}

void Grown(const Kind& kind, sd_bus* bus, const std::string& path, bool approachingLimit)
{
    const char* signature = kind.signatures.grown;
    if (!approachingLimit)
    {
        Log::Info("%s - %s capture %s size changed.  Updating media item.", signature, kind.words.name, path.c_str());
        UpdateMediaItem(kind, path);
        return;
    }
    Log::Info("%s Current capture path %s approaching size limit.", signature, path.c_str());
    EmitCaptureSizeLimitReached(bus, kind.type);
    Stop(kind);
}

void StoragePropertiesChanged(const Kind& kind, sd_bus* bus, const std::string& objectPath,
                              const sdbus_utils::PropertyMap& properties)
{
    const char* signature = kind.signatures.storagePropertiesChanged;
    const std::optional<std::string> storage = StorageInUse(kind, signature);
    if (!storage.has_value())
    {
        return;
    }
    const bool unmounted = Changed(properties, "IsMounted") == std::optional(false);
    if (storage->empty() || *storage != objectPath)
    {
        if (storage->empty() && unmounted)
        {
            LoseStorage(kind, bus);
        }
        return;
    }
    const std::optional<bool> belowMinimum = Changed(properties, "StorageIsBelowMinimumLevel");
    const std::optional<bool> readOnly = Changed(properties, "ReadOnly");
    if (belowMinimum.has_value())
    {
        Log::Info("StorageSpaceBelowMiniumThreshold = %d on %s", *belowMinimum ? 1 : 0, storage->c_str());
    }
    if (readOnly.has_value())
    {
        Log::Info("%s: StorageIsReadOnly = %d on %s", signature, *readOnly ? 1 : 0, storage->c_str());
    }
    if (unmounted)
    {
        LoseStorage(kind, bus);
    }
    else if (belowMinimum.value_or(false))
    {
        Stop(kind);
        EmitCaptureError(bus, CaptureRuntimeError::StorageTooLow);
    }
    else if (readOnly.value_or(false))
    {
        Stop(kind);
        EmitCaptureError(bus, CaptureRuntimeError::StorageRemoved);
    }
}

void StorageRemoved(const Kind& kind, sd_bus* bus, const std::string& objectPath)
{
    const std::optional<std::string> storage = StorageInUse(kind, kind.signatures.storageRemoved);
    if (storage.has_value() && (storage->empty() || *storage == objectPath))
    {
        LoseStorage(kind, bus);
    }
}

void StopAndCancelInvalid(const Kind& kind)
{
    Log::Info("%s enter", kind.signatures.stopAndCancelInvalid);
    if (!IsValid(kind))
    {
        Cancel(kind);
    }
    Log::Info("%s leave", kind.signatures.stopAndCancelInvalid);
}

bool StopAndSaveOnStoragePath(const Kind& kind, const std::string& storagePath)
{
    std::string filename;
    if (kind.peers.getFilename(filename, nullptr) < 0)
    {
        Log::Error("%s Failed to get %s filepath", kind.signatures.stopAndSaveOnStoragePath, kind.words.name);
        return false;
    }
    std::string recordingStorage;
    if (filename.empty() || StorageDaemonDbusHandler::GetPathFromFilename(filename, recordingStorage) < 0 ||
        recordingStorage != storagePath)
    {
        return false;
    }
    Stop(kind);
    return true;
}

void UpdateMediaItem(const Kind& kind, const std::string& path)
{
    int32_t jobsCode = 0;
    const int32_t result = JobsManager::UpdateMediaFileSizes(path, jobsCode);
    MediaItemDone({kind.signatures.updateMediaItem, "update", kind.words.name}, result, jobsCode);
}

} // namespace ControllerDaemon::Recording
