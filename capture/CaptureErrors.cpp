#include "capture/CaptureErrors.h"

#include "dbus_helper/Log.h"
#include "dbus_helper/Serve.h"
#include "interfaces/ControllerEndpoint.h"

#include <array>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::CaptureErrorCode;
using DbusHelper::CaptureRuntimeError;
using DbusHelper::CaptureType;
using DbusHelper::PlaybackErrorCode;
using DbusHelper::PlaybackRuntimeError;

template <typename Code>
struct Entry
{
    Code code;
    const char* text;
};
template <typename Code>
Entry(Code, const char*) -> Entry<Code>;

constexpr std::array captureCodes{
    Entry{CaptureErrorCode::Success, "Ran successfully"},
    Entry{CaptureErrorCode::Unknown, "Unknown error"},
    Entry{CaptureErrorCode::PowerTooLow, "Power is too low - unable to record"},
    Entry{CaptureErrorCode::StorageTooLow, "Storage is too low - unable to record"},
    Entry{CaptureErrorCode::PathNotCreated, "Unable to create path for recording"},
    Entry{CaptureErrorCode::FileExists, "Recording file already exists - unable to overwrite"},
    Entry{CaptureErrorCode::FileExistsAskOverwrite, "Recording file already exists - overwrite existing file?"},
    Entry{CaptureErrorCode::NoCurrentJob, "No current job - unable to record"},
    Entry{CaptureErrorCode::WrongState, "Not in correct state to perform record action"},
    Entry{CaptureErrorCode::NoStorage, "No storage available"},
    Entry{CaptureErrorCode::MediaItemNotAdded, "Failed to add media item to job"},
};

constexpr std::array captureRuntimeErrors{
    Entry{CaptureRuntimeError::Unknown, "Unknown runtime error"},
    Entry{CaptureRuntimeError::PowerTooLow, "Power is too low - unable to continue recording"},
    Entry{CaptureRuntimeError::StorageTooLow, "Storage is too low - unable to continue recording"},
    Entry{CaptureRuntimeError::StorageRemoved, "Storage was removed - unable to continue recording"},
};

constexpr std::array captureTypes{
    Entry{CaptureType::AutoLog, "Autolog file size limit reached."},
    Entry{CaptureType::PhotoTalk, "PhotoTalk file size limit reached."},
    Entry{CaptureType::Video, "Video file size limit reached."},
};

constexpr std::array playbackCodes{
    Entry{PlaybackErrorCode::Success, "Ran successfully"},
    Entry{PlaybackErrorCode::Unknown, "Unknown error"},
    Entry{PlaybackErrorCode::NoFile, "Playback file doesn't exist"},
    Entry{PlaybackErrorCode::WrongState, "Not in correct state to perform playback action"},
};

constexpr std::array playbackRuntimeErrors{
    Entry{PlaybackRuntimeError::Unknown, "Unknown runtime error"},
    Entry{PlaybackRuntimeError::PowerTooLow, "Power is too low - unable to continue playback"},
    Entry{PlaybackRuntimeError::StorageRemoved, "Storage was removed - unable to continue playback"},
};

template <typename Table, typename Code>
const char* Find(const Table& table, Code code, const char* otherwise)
{
    for (const auto& entry : table)
    {
        if (entry.code == code)
        {
            return entry.text;
        }
    }
    return otherwise;
}

template <typename Code>
void Emit(sd_bus* bus, const char* signal, Code code, const char* text)
{
    const int result =
        DbusHelper::EmitSignal(bus, controllerEndpoint, signal, static_cast<int32_t>(code), std::string(text));
    if (result < 0)
    {
        Log::Info("Failed to emit signal, error code: %d\n", result);
    }
}

} // namespace

const char* CaptureErrorReason(CaptureErrorCode code)
{
    const char* text = Find(captureCodes, code, "Invalid capture error");
    const auto log = code == CaptureErrorCode::Success ? &Log::Info : &Log::Error;
    log("[CaptureError::ErrorReason] %s", text);
    return text;
}

const char* PlaybackErrorReason(PlaybackErrorCode code)
{
    const char* text = Find(playbackCodes, code, "Invalid playback error");
    const auto log = code == PlaybackErrorCode::Success ? &Log::Info : &Log::Error;
    log("[PlaybackError::ErrorReason] %s", text);
    return text;
}

void EmitCaptureError(sd_bus* bus, CaptureRuntimeError error)
{
    const char* text = Find(captureRuntimeErrors, error, "Invalid capture runtime error");
    Log::Error("[CaptureError::EmitError] %s", text);
    Emit(bus, "CaptureError", error, text);
}

void EmitCaptureSizeLimitReached(sd_bus* bus, CaptureType type)
{
    const char* text = Find(captureTypes, type, "Invalid capture type");
    Log::Error("[CaptureError::EmitSizeLimitReached] %s", text);
    Emit(bus, "CaptureSizeLimitReached", type, text);
}

void EmitPlaybackError(sd_bus* bus, PlaybackRuntimeError error)
{
    const char* text = Find(playbackRuntimeErrors, error, "Invalid playback runtime error");
    Log::Error("[Playback::EmitError] %s", text);
    Emit(bus, "PlaybackError", error, text);
}

} // namespace ControllerDaemon
